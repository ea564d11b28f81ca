// The notification area through Shell_NotifyIconW. The control's window is
// subclassed; the window procedure and the timer procedure both forward to
// the control's procedure, found by window handle.
#include "platform/nativesystrayshell.h"

#include <algorithm>
#include <cstring>
#include <map>

#include <windows.h>

#include <shellapi.h>

namespace
{
class Win32Tray;

std::map<HWND, Win32Tray*>& shells()
{
    static std::map<HWND, Win32Tray*> byWindow;
    return byWindow;
}

LRESULT CALLBACK forwardProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);
VOID CALLBACK forwardTimer(HWND hwnd, UINT, UINT_PTR id, DWORD);

void copyText(wchar_t* to, size_t chars, const std::string& field)
{
    std::memcpy(to, field.data(), std::min(field.size(), chars * sizeof(wchar_t)));
}

class Win32Tray : public NativeTray
{
public:
    Win32Tray(std::function<std::uintptr_t()> window, std::function<std::uintptr_t()> topLevel)
        : m_window(std::move(window)), m_topLevel(std::move(topLevel))
    {
    }
    ~Win32Tray() override
    {
        shells().erase(hwnd());
        for (auto& [handle, icon] : m_icons)
            DestroyIcon(icon);
    }

    HWND hwnd() const { return reinterpret_cast<HWND>(m_window()); }

    LRESULT dispatch(HWND h, UINT msg, WPARAM w, LPARAM l)
    {
        if (m_proc)
            return LRESULT(m_proc(std::uintptr_t(h), msg, std::uintptr_t(w), std::intptr_t(l)));
        return m_previous ? CallWindowProcW(m_previous, h, msg, w, l)
                          : DefWindowProcW(h, msg, w, l);
    }

    std::uintptr_t window() const override { return std::uintptr_t(hwnd()); }

    int notifyIcon(std::uint32_t message, const Record& data) override
    {
        NOTIFYICONDATAW nid;
        std::memset(&nid, 0, sizeof nid);
        nid.cbSize = NOTIFYICONDATAW_V2_SIZE; // the shell version 5 record, 936 bytes
        nid.hWnd = reinterpret_cast<HWND>(data.hWnd);
        nid.uID = data.uID;
        nid.uFlags = data.uFlags;
        nid.uCallbackMessage = data.uCallbackMessage;
        nid.hIcon = iconHandle(data.hIcon);
        copyText(nid.szTip, sizeof nid.szTip / sizeof(wchar_t), data.szTip);
        nid.dwState = data.dwState;
        nid.dwStateMask = data.dwStateMask;
        copyText(nid.szInfo, sizeof nid.szInfo / sizeof(wchar_t), data.szInfo);
        nid.uTimeout = data.uTimeoutOrVersion;
        copyText(nid.szInfoTitle, sizeof nid.szInfoTitle / sizeof(wchar_t), data.szInfoTitle);
        nid.dwInfoFlags = data.dwInfoFlags;
        return Shell_NotifyIconW(message, &nid) ? 1 : 0;
    }

    std::uintptr_t findTaskbarWindow() override
    {
        return std::uintptr_t(FindWindowA("Shell_TrayWnd", nullptr));
    }

    std::uintptr_t subclass(WindowProc proc) override
    {
        const HWND h = hwnd();
        shells()[h] = this;
        m_proc = std::move(proc);
        m_previous = reinterpret_cast<WNDPROC>(
            SetWindowLongPtrW(h, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&forwardProc)));
        return std::uintptr_t(m_previous);
    }

    void unsubclass(std::uintptr_t previous) override
    {
        const HWND h = hwnd();
        SetWindowLongPtrW(h, GWLP_WNDPROC, LONG_PTR(previous));
        m_proc = nullptr;
        m_previous = nullptr;
        shells().erase(h);
    }

    std::intptr_t callPrevious(std::uintptr_t previous, std::uintptr_t h, std::uint32_t msg,
                               std::uintptr_t w, std::intptr_t l) override
    {
        return std::intptr_t(CallWindowProcW(reinterpret_cast<WNDPROC>(previous),
                                             reinterpret_cast<HWND>(h), msg, WPARAM(w), LPARAM(l)));
    }

    std::uintptr_t setTimer(std::uintptr_t id, std::uint32_t periodMs) override
    {
        return std::uintptr_t(SetTimer(hwnd(), UINT_PTR(id), periodMs, &forwardTimer));
    }

    void killTimer(std::uintptr_t id) override { KillTimer(hwnd(), UINT_PTR(id)); }

    void setForegroundWindow() override
    {
        SetForegroundWindow(reinterpret_cast<HWND>(m_topLevel()));
    }

    std::vector<std::uintptr_t> topLevelWindows() override
    {
        std::vector<std::uintptr_t> windows;
        for (HWND w = GetWindow(GetDesktopWindow(), GW_CHILD); w; w = GetWindow(w, GW_HWNDNEXT))
            windows.push_back(std::uintptr_t(w));
        return windows;
    }

    std::string className(std::uintptr_t window) override
    {
        char name[256] = {};
        const int n = GetClassNameA(reinterpret_cast<HWND>(window), name, sizeof name);
        return std::string(name, size_t(n > 0 ? n : 0));
    }

    std::string balloonClassName() const override { return "tooltips_class32"; }

    std::intptr_t sendMessage(std::uintptr_t window, std::uint32_t msg, std::uintptr_t w,
                              std::intptr_t l) override
    {
        return std::intptr_t(
            SendMessageW(reinterpret_cast<HWND>(window), msg, WPARAM(w), LPARAM(l)));
    }

    std::wstring windowText(std::uintptr_t window, int maxChars) override
    {
        if (maxChars < 1)
            return std::wstring();
        std::wstring buffer(size_t(maxChars), L'\0');
        const LRESULT n = SendMessageW(reinterpret_cast<HWND>(window), WM_GETTEXT, WPARAM(maxChars),
                                       reinterpret_cast<LPARAM>(buffer.data()));
        buffer.resize(size_t(std::max<LRESULT>(n, 0)));
        return buffer;
    }

private:
    HICON iconHandle(const Icon& ref)
    {
        if (ref.handle == 0 || !ref.pixels)
            return nullptr;
        auto it = m_icons.find(ref.handle);
        if (it != m_icons.end())
            return it->second;
        const int size = GetSystemMetrics(SM_CXSMICON);
        const std::vector<std::uint32_t> pixels = ref.pixels(size);
        if (pixels.size() != size_t(size) * size_t(size))
            return nullptr;
        // A 32-bit colour bitmap carries the alpha; the mask (rows of whole words) masks nothing.
        const std::vector<BYTE> mask(size_t(size) * size_t((size + 15) / 16 * 2), 0);
        ICONINFO info{};
        info.fIcon = TRUE;
        info.hbmColor = CreateBitmap(size, size, 1, 32, pixels.data());
        info.hbmMask = CreateBitmap(size, size, 1, 1, mask.data());
        HICON icon = CreateIconIndirect(&info);
        DeleteObject(info.hbmColor);
        DeleteObject(info.hbmMask);
        m_icons[ref.handle] = icon;
        return icon;
    }

    std::function<std::uintptr_t()> m_window, m_topLevel;
    WindowProc m_proc;
    WNDPROC m_previous = nullptr;
    std::map<std::uintptr_t, HICON> m_icons;
};

LRESULT CALLBACK forwardProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam)
{
    auto it = shells().find(hwnd);
    if (it == shells().end())
        return DefWindowProcW(hwnd, msg, wParam, lParam);
    return it->second->dispatch(hwnd, msg, wParam, lParam);
}

VOID CALLBACK forwardTimer(HWND hwnd, UINT, UINT_PTR id, DWORD)
{
    auto it = shells().find(hwnd);
    if (it != shells().end())
        it->second->dispatch(hwnd, WM_TIMER, WPARAM(id), 0);
}
} // namespace

std::unique_ptr<NativeTray> createNativeTray(std::function<std::uintptr_t()> window,
                                             std::function<std::uintptr_t()> topLevel)
{
    return std::make_unique<Win32Tray>(std::move(window), std::move(topLevel));
}
