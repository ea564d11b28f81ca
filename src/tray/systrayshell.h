#pragma once

#include "tray/notifyicondata.h"

#include <QList>
#include <QString>
#include <functional>

// What the tray control needs from the desktop: the notification area, its
// own window's procedure and timers, and the top-level windows where a
// balloon can be found. One implementation per desktop shell.
class SysTrayShell
{
public:
    // The control's window procedure: (hwnd, uMsg, wParam, lParam) -> result.
    using WindowProc = std::function<qintptr(quintptr, quint32, quintptr, qintptr)>;

    virtual ~SysTrayShell() = default;

    // The control's own window.
    virtual quintptr window() const = 0;
    // Shell_NotifyIconW: 1 on success.
    virtual int notifyIcon(quint32 message, const NotifyIconData& data) = 0;
    // The notification area's host window, 0 when there is none.
    virtual quintptr findTaskbarWindow() = 0;

    // Routes the control's window messages to proc; returns the previous
    // procedure (non-zero) or 0 on failure.
    virtual quintptr subclass(WindowProc proc) = 0;
    virtual void unsubclass(quintptr previous) = 0;
    virtual qintptr callPrevious(quintptr previous, quintptr hwnd, quint32 msg, quintptr wParam,
                                 qintptr lParam) = 0;

    // Window timers delivered to the procedure as WM_TIMER with the id in
    // wParam. setTimer answers the id when the timer runs, else 0.
    virtual quintptr setTimer(quintptr id, quint32 periodMs) = 0;
    virtual void killTimer(quintptr id) = 0;

    // Brings the host form's window to the front.
    virtual void setForegroundWindow() = 0;

    // Top-level windows, their class names and texts, for finding a balloon.
    virtual QList<quintptr> topLevelWindows() = 0;
    virtual QString className(quintptr window) = 0;
    virtual QString balloonClassName() const = 0;
    virtual qintptr sendMessage(quintptr window, quint32 msg, quintptr wParam, qintptr lParam) = 0;
    // WM_GETTEXT: at most maxChars - 1 characters, as the window API gives them.
    virtual QString windowText(quintptr window, int maxChars) = 0;
};
