// The notification area through Shell_NotifyIconW. The control's window is
// subclassed; the window procedure and the timer procedure both forward to
// the control's procedure, found by window handle.
#include "platform/nativesystrayshell.h"

#include <QIcon>
#include <QImage>
#include <QPixmap>
#include <QWidget>
#include <cstring>
#include <map>

#include <windows.h>

#include <shellapi.h>

namespace
{
class Win32SysTrayShell;

std::map<HWND, Win32SysTrayShell*>& shells()
{
    static std::map<HWND, Win32SysTrayShell*> byWindow;
    return byWindow;
}

LRESULT CALLBACK forwardProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);
VOID CALLBACK forwardTimer(HWND hwnd, UINT, UINT_PTR id, DWORD);

void copyText(wchar_t* to, size_t chars, const QByteArray& field)
{
    const size_t bytes = qMin(size_t(field.size()), chars * sizeof(wchar_t));
    std::memcpy(to, field.constData(), bytes);
}

class Win32SysTrayShell : public SysTrayShell
{
public:
    explicit Win32SysTrayShell(QWidget* control) : m_control(control) {}
    ~Win32SysTrayShell() override
    {
        shells().erase(hwnd());
        for (auto& [handle, icon] : m_icons)
            DestroyIcon(icon);
    }

    HWND hwnd() const { return reinterpret_cast<HWND>(m_control->winId()); }

    LRESULT dispatch(HWND h, UINT msg, WPARAM w, LPARAM l)
    {
        if (m_proc)
            return LRESULT(m_proc(quintptr(h), msg, quintptr(w), qintptr(l)));
        return m_previous ? CallWindowProcW(m_previous, h, msg, w, l)
                          : DefWindowProcW(h, msg, w, l);
    }

    quintptr window() const override { return quintptr(hwnd()); }

    int notifyIcon(quint32 message, const NotifyIconData& data) override
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

    quintptr findTaskbarWindow() override
    {
        return quintptr(FindWindowA("Shell_TrayWnd", nullptr));
    }

    quintptr subclass(WindowProc proc) override
    {
        const HWND h = hwnd();
        shells()[h] = this;
        m_proc = std::move(proc);
        m_previous = reinterpret_cast<WNDPROC>(
            SetWindowLongPtrW(h, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&forwardProc)));
        return quintptr(m_previous);
    }

    void unsubclass(quintptr previous) override
    {
        const HWND h = hwnd();
        SetWindowLongPtrW(h, GWLP_WNDPROC, LONG_PTR(previous));
        m_proc = nullptr;
        m_previous = nullptr;
        shells().erase(h);
    }

    qintptr callPrevious(quintptr previous, quintptr h, quint32 msg, quintptr w, qintptr l) override
    {
        return qintptr(CallWindowProcW(reinterpret_cast<WNDPROC>(previous),
                                       reinterpret_cast<HWND>(h), msg, WPARAM(w), LPARAM(l)));
    }

    quintptr setTimer(quintptr id, quint32 periodMs) override
    {
        return quintptr(SetTimer(hwnd(), UINT_PTR(id), periodMs, &forwardTimer));
    }

    void killTimer(quintptr id) override { KillTimer(hwnd(), UINT_PTR(id)); }

    void setForegroundWindow() override
    {
        SetForegroundWindow(reinterpret_cast<HWND>(m_control->window()->winId()));
    }

    QList<quintptr> topLevelWindows() override
    {
        QList<quintptr> windows;
        for (HWND w = GetWindow(GetDesktopWindow(), GW_CHILD); w; w = GetWindow(w, GW_HWNDNEXT))
            windows.append(quintptr(w));
        return windows;
    }

    QString className(quintptr window) override
    {
        char name[256] = {};
        const int n = GetClassNameA(reinterpret_cast<HWND>(window), name, sizeof name);
        return QString::fromLatin1(name, n > 0 ? n : 0);
    }

    QString balloonClassName() const override { return QStringLiteral("tooltips_class32"); }

    qintptr sendMessage(quintptr window, quint32 msg, quintptr w, qintptr l) override
    {
        return qintptr(SendMessageW(reinterpret_cast<HWND>(window), msg, WPARAM(w), LPARAM(l)));
    }

    QString windowText(quintptr window, int maxChars) override
    {
        if (maxChars < 1)
            return QString();
        std::wstring buffer(size_t(maxChars), L'\0');
        const LRESULT n = SendMessageW(reinterpret_cast<HWND>(window), WM_GETTEXT, WPARAM(maxChars),
                                       reinterpret_cast<LPARAM>(buffer.data()));
        return QString::fromWCharArray(buffer.data(), int(qMax<LRESULT>(n, 0)));
    }

private:
    HICON iconHandle(const TrayIconRef& ref)
    {
        if (ref.handle == 0 || ref.icon.isNull())
            return nullptr;
        auto it = m_icons.find(ref.handle);
        if (it != m_icons.end())
            return it->second;
        const int size = GetSystemMetrics(SM_CXSMICON);
        HICON icon = ref.icon.pixmap(size, size).toImage().toHICON();
        m_icons[ref.handle] = icon;
        return icon;
    }

    QWidget* m_control;
    WindowProc m_proc;
    WNDPROC m_previous = nullptr;
    std::map<quintptr, HICON> m_icons;
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

std::unique_ptr<SysTrayShell> createNativeSysTrayShell(QWidget* control)
{
    return std::make_unique<Win32SysTrayShell>(control);
}
