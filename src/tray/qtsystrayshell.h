#pragma once

#include "tray/systrayshell.h"

#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>
#include <map>

class QTimer;

// The notification area through Qt: QSystemTrayIcon for the icon and its
// balloon, QTimers for the window timers. Activations are translated into
// the callback messages the control expects (a click is a button down then
// up), and the balloon's life into the NIN_BALLOON* notifications.
class QtSysTrayShell : public QObject, public SysTrayShell
{
    Q_OBJECT
public:
    explicit QtSysTrayShell(QWidget* control);
    ~QtSysTrayShell() override;

    quintptr window() const override;
    int notifyIcon(quint32 message, const NotifyIconData& data) override;
    quintptr findTaskbarWindow() override;
    quintptr subclass(WindowProc proc) override;
    void unsubclass(quintptr previous) override;
    qintptr callPrevious(quintptr previous, quintptr hwnd, quint32 msg, quintptr wParam,
                         qintptr lParam) override;
    quintptr setTimer(quintptr id, quint32 periodMs) override;
    void killTimer(quintptr id) override;
    void setForegroundWindow() override;
    QList<quintptr> topLevelWindows() override;
    QString className(quintptr window) override;
    QString balloonClassName() const override;
    qintptr sendMessage(quintptr window, quint32 msg, quintptr wParam, qintptr lParam) override;
    QString windowText(quintptr window, int maxChars) override;

    // The icon as Qt shows it (null when not in the tray).
    QSystemTrayIcon* trayIcon() const { return m_Icon; }
    // The period of a running window timer, -1 when it is not running.
    int timerPeriod(quintptr id) const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void deliver(quint32 msg, quintptr wParam, qintptr lParam);
    void notify(quint32 event);
    void activated(QSystemTrayIcon::ActivationReason reason);
    void messageClicked();
    void trackBalloon();
    void hideBalloon();
    QWidget* widgetOf(quintptr window) const;
    static QString balloonText(QWidget* balloon);

    QWidget* m_Control;
    QPointer<QSystemTrayIcon> m_Icon;
    quint32 m_Uid = 0;
    WindowProc m_Proc;
    std::map<quintptr, QTimer*> m_Timers;
    QPointer<QWidget> m_Balloon;
    bool m_BalloonClicked = false;
    bool m_BalloonHiding = false;
    quint64 m_BalloonSerial = 0;
};
