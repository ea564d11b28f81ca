#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// The desktop's own notification area, talked to directly (Windows:
// Shell_NotifyIconW on the control's window). The tray's shell adapter
// (tray/nativetrayshell.h) speaks Qt to the control and this to the desktop.
class NativeTray
{
public:
    // (hwnd, uMsg, wParam, lParam) -> result.
    using WindowProc =
        std::function<std::intptr_t(std::uintptr_t, std::uint32_t, std::uintptr_t, std::intptr_t)>;
    struct Icon {
        std::uintptr_t handle = 0; // 0: none; the same handle is drawn once
        // size x size premultiplied ARGB32 pixels, row by row; empty when there is nothing to draw.
        std::function<std::vector<std::uint32_t>(int size)> pixels;
    };
    // The shell's record (wide-character, version 5 layout); texts are the
    // fields' raw UTF-16 bytes.
    struct Record {
        std::uintptr_t hWnd = 0;
        std::uint32_t uID = 0, uFlags = 0, uCallbackMessage = 0;
        Icon hIcon;
        std::string szTip;
        std::uint32_t dwState = 0, dwStateMask = 0;
        std::string szInfo;
        std::uint32_t uTimeoutOrVersion = 0;
        std::string szInfoTitle;
        std::uint32_t dwInfoFlags = 0;
    };

    virtual ~NativeTray() = default;
    virtual std::uintptr_t window() const = 0;
    virtual int notifyIcon(std::uint32_t message, const Record& data) = 0; // 1 on success
    virtual std::uintptr_t findTaskbarWindow() = 0;
    virtual std::uintptr_t subclass(WindowProc proc) = 0;
    virtual void unsubclass(std::uintptr_t previous) = 0;
    virtual std::intptr_t callPrevious(std::uintptr_t previous, std::uintptr_t hwnd,
                                       std::uint32_t msg, std::uintptr_t wParam,
                                       std::intptr_t lParam) = 0;
    virtual std::uintptr_t setTimer(std::uintptr_t id, std::uint32_t periodMs) = 0;
    virtual void killTimer(std::uintptr_t id) = 0;
    virtual void setForegroundWindow() = 0;
    virtual std::vector<std::uintptr_t> topLevelWindows() = 0;
    virtual std::string className(std::uintptr_t window) = 0;
    virtual std::string balloonClassName() const = 0;
    virtual std::intptr_t sendMessage(std::uintptr_t window, std::uint32_t msg,
                                      std::uintptr_t wParam, std::intptr_t lParam) = 0;
    virtual std::wstring windowText(std::uintptr_t window, int maxChars) = 0;
};

// window: the control's own window; topLevel: its host form's. Both are asked
// when needed. Null where Qt's tray icon serves instead.
std::unique_ptr<NativeTray> createNativeTray(std::function<std::uintptr_t()> window,
                                             std::function<std::uintptr_t()> topLevel);
