#include "tray/qtsystrayshell.h"

#include <QApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QLabel>
#include <QMouseEvent>
#include <QTimer>
#include <QWidget>

#if defined(QUORVEL_HAVE_XCB)
#include <QtGui/qguiapplication_platform.h>
#include <xcb/xcb.h>
#endif

namespace
{
QSystemTrayIcon::MessageIcon messageIcon(quint32 infoFlags)
{
    switch (infoFlags & 0x0F) {
    case 1:
        return QSystemTrayIcon::Information;
    case 2:
        return QSystemTrayIcon::Warning;
    case 3:
        return QSystemTrayIcon::Critical;
    default:
        return QSystemTrayIcon::NoIcon;
    }
}

#if defined(QUORVEL_HAVE_XCB)
// The window that owns the tray selection of screen 0: it changes when the
// tray host restarts, as the taskbar window does on Windows.
quintptr x11TrayOwner(bool& known)
{
    known = false;
    auto* x11 = qApp ? qApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection())
        return 0;
    xcb_connection_t* c = x11->connection();
    static xcb_atom_t atom = XCB_ATOM_NONE;
    if (atom == XCB_ATOM_NONE) {
        const char name[] = "_NET_SYSTEM_TRAY_S0";
        xcb_intern_atom_reply_t* reply =
            xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, sizeof name - 1, name), nullptr);
        if (!reply)
            return 0;
        atom = reply->atom;
        free(reply);
    }
    xcb_get_selection_owner_reply_t* reply =
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, atom), nullptr);
    if (!reply)
        return 0;
    known = true;
    const quintptr owner = reply->owner;
    free(reply);
    return owner;
}
#endif
} // namespace

// Owned by the control (not a QObject child of it), so it goes before the control does.
QtSysTrayShell::QtSysTrayShell(QWidget* control) : m_Control(control) {}

QtSysTrayShell::~QtSysTrayShell()
{
    for (auto& [id, timer] : m_Timers)
        delete timer;
    delete m_Icon.data();
}

quintptr QtSysTrayShell::window() const
{
    return quintptr(m_Control);
}

void QtSysTrayShell::deliver(quint32 msg, quintptr wParam, qintptr lParam)
{
    if (m_Proc) {
        WindowProc proc = m_Proc; // the procedure may unsubclass while it runs
        proc(window(), msg, wParam, lParam);
    }
}

void QtSysTrayShell::notify(quint32 event)
{
    deliver(tray::WM_TRAYCALLBACK, m_Uid, qintptr(event));
}

int QtSysTrayShell::notifyIcon(quint32 message, const NotifyIconData& data)
{
    switch (message) {
    case tray::NIM_ADD: {
        if (m_Icon || !QSystemTrayIcon::isSystemTrayAvailable())
            return 0;
        m_Uid = data.uID;
        m_Icon = new QSystemTrayIcon(this);
        connect(m_Icon, &QSystemTrayIcon::activated, this, &QtSysTrayShell::activated);
        connect(m_Icon, &QSystemTrayIcon::messageClicked, this, &QtSysTrayShell::messageClicked);
        if (data.uFlags & tray::NIF_ICON)
            m_Icon->setIcon(data.hIcon.icon);
        if (data.uFlags & tray::NIF_TIP)
            m_Icon->setToolTip(FixedBufferText(data.szTip));
        m_Icon->show();
        return 1;
    }
    case tray::NIM_SETVERSION:
        return m_Icon ? 1 : 0;
    case tray::NIM_MODIFY:
        if (!m_Icon)
            return 0;
        if (data.uFlags & tray::NIF_INFO) {
            hideBalloon();
            // The shell keeps a balloon between 10 and 30 seconds whatever is asked;
            // shorter times are the control's own auto-close.
            const int shellTimeout = int(qBound<quint32>(10000, data.uTimeoutOrVersion, 30000));
            m_Icon->showMessage(FixedBufferText(data.szInfoTitle), FixedBufferText(data.szInfo),
                                messageIcon(data.dwInfoFlags), shellTimeout);
            trackBalloon();
            return 1;
        }
        if (data.uFlags & tray::NIF_ICON)
            m_Icon->setIcon(data.hIcon.icon);
        if (data.uFlags & tray::NIF_TIP)
            m_Icon->setToolTip(FixedBufferText(data.szTip));
        return 1;
    case tray::NIM_DELETE: {
        if (!m_Icon)
            return 0;
        hideBalloon();
        QSystemTrayIcon* icon = m_Icon;
        m_Icon = nullptr;
        icon->disconnect(this);
        icon->hide();
        icon->deleteLater(); // a notification of this icon may still be on the stack
        return 1;
    }
    default:
        return 0;
    }
}

quintptr QtSysTrayShell::findTaskbarWindow()
{
#if defined(QUORVEL_HAVE_XCB)
    bool known = false;
    const quintptr owner = x11TrayOwner(known);
    if (known)
        return owner;
#endif
    return QSystemTrayIcon::isSystemTrayAvailable() ? 1 : 0;
}

quintptr QtSysTrayShell::subclass(WindowProc proc)
{
    m_Proc = std::move(proc);
    return 1; // the default procedure
}

void QtSysTrayShell::unsubclass(quintptr)
{
    m_Proc = nullptr;
}

qintptr QtSysTrayShell::callPrevious(quintptr, quintptr, quint32, quintptr, qintptr)
{
    return 0;
}

quintptr QtSysTrayShell::setTimer(quintptr id, quint32 periodMs)
{
    QTimer*& timer = m_Timers[id];
    if (!timer) {
        timer = new QTimer(this);
        timer->setTimerType(Qt::PreciseTimer);
        connect(timer, &QTimer::timeout, this, [this, id] { deliver(tray::WM_TIMER, id, 0); });
    }
    timer->start(int(periodMs));
    return id;
}

void QtSysTrayShell::killTimer(quintptr id)
{
    auto it = m_Timers.find(id);
    if (it != m_Timers.end())
        it->second->stop();
}

int QtSysTrayShell::timerPeriod(quintptr id) const
{
    auto it = m_Timers.find(id);
    return it != m_Timers.end() && it->second->isActive() ? it->second->interval() : -1;
}

void QtSysTrayShell::setForegroundWindow()
{
    QWidget* host = m_Control->window();
    if (host && host != m_Control && host->isVisible()) {
        host->raise();
        host->activateWindow();
    }
}

QWidget* QtSysTrayShell::widgetOf(quintptr window) const
{
    const QWidgetList all = QApplication::topLevelWidgets();
    for (QWidget* w : all)
        if (quintptr(w) == window)
            return w;
    return nullptr;
}

QList<quintptr> QtSysTrayShell::topLevelWindows()
{
    QList<quintptr> windows;
    const QWidgetList all = QApplication::topLevelWidgets();
    for (QWidget* w : all)
        if (w->isVisible())
            windows.append(quintptr(w));
    return windows;
}

QString QtSysTrayShell::className(quintptr window)
{
    QWidget* w = widgetOf(window);
    return w ? QString::fromLatin1(w->metaObject()->className()) : QString();
}

QString QtSysTrayShell::balloonClassName() const
{
    return QStringLiteral("QBalloonTip");
}

// A balloon's text is its message, the last label that carries text.
QString QtSysTrayShell::balloonText(QWidget* balloon)
{
    const QList<QLabel*> labels = balloon->findChildren<QLabel*>();
    for (auto it = labels.crbegin(); it != labels.crend(); ++it)
        if (!(*it)->text().isEmpty())
            return (*it)->text();
    return QString();
}

qintptr QtSysTrayShell::sendMessage(quintptr window, quint32 msg, quintptr, qintptr)
{
    QWidget* w = widgetOf(window);
    if (!w)
        return 0;
    const bool balloon = w->inherits("QBalloonTip");
    switch (msg) {
    case tray::WM_GETTEXTLENGTH:
        return balloon ? balloonText(w).size() : w->windowTitle().size();
    case tray::WM_LBUTTONDOWN:
    case tray::WM_RBUTTONDOWN:
    case tray::WM_MBUTTONDOWN:
    case tray::WM_LBUTTONUP:
    case tray::WM_RBUTTONUP:
    case tray::WM_MBUTTONUP: {
        // Any click on a balloon is a user click for the shell, which Qt's
        // balloon takes from the left button.
        const bool down = msg == tray::WM_LBUTTONDOWN || msg == tray::WM_RBUTTONDOWN ||
                          msg == tray::WM_MBUTTONDOWN;
        const QPointF at(w->width() / 2.0, w->height() / 2.0);
        QMouseEvent event(down ? QEvent::MouseButtonPress : QEvent::MouseButtonRelease, at,
                          w->mapToGlobal(at), Qt::LeftButton, down ? Qt::LeftButton : Qt::NoButton,
                          Qt::NoModifier);
        QApplication::sendEvent(w, &event);
        return 0;
    }
    default:
        return 0;
    }
}

QString QtSysTrayShell::windowText(quintptr window, int maxChars)
{
    QWidget* w = widgetOf(window);
    if (!w || maxChars < 1)
        return QString();
    const QString text = w->inherits("QBalloonTip") ? balloonText(w) : w->windowTitle();
    return text.left(maxChars - 1);
}

// ---- the icon's and the balloon's notifications ----

void QtSysTrayShell::activated(QSystemTrayIcon::ActivationReason reason)
{
    switch (reason) {
    case QSystemTrayIcon::Trigger:
        notify(tray::WM_LBUTTONDOWN);
        notify(tray::WM_LBUTTONUP);
        break;
    case QSystemTrayIcon::DoubleClick:
        notify(tray::WM_LBUTTONDBLCLK);
        break;
    case QSystemTrayIcon::Context:
        notify(tray::WM_RBUTTONDOWN);
        notify(tray::WM_RBUTTONUP);
        break;
    case QSystemTrayIcon::MiddleClick:
        notify(tray::WM_MBUTTONDOWN);
        notify(tray::WM_MBUTTONUP);
        break;
    default:
        notify(tray::NIN_SELECT);
        break;
    }
}

void QtSysTrayShell::messageClicked()
{
    m_BalloonClicked = true;
    notify(tray::NIN_BALLOONUSERCLICK);
}

void QtSysTrayShell::trackBalloon()
{
    m_Balloon = nullptr;
    m_BalloonClicked = false;
    const QWidgetList all = QApplication::topLevelWidgets();
    for (QWidget* w : all)
        if (w->inherits("QBalloonTip") && w->isVisible())
            m_Balloon = w;
    if (!m_Balloon)
        return;
    m_Balloon->installEventFilter(this);
    const quint64 serial = ++m_BalloonSerial;
    QTimer::singleShot(0, this, [this, serial] {
        if (serial == m_BalloonSerial)
            notify(tray::NIN_BALLOONSHOW);
    });
}

// A balloon taken away by the program (a new balloon, the icon deleted).
void QtSysTrayShell::hideBalloon()
{
    if (m_Balloon && m_Balloon->isVisible()) {
        m_BalloonHiding = true;
        m_Balloon->close();
        m_BalloonHiding = false;
    }
}

bool QtSysTrayShell::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_Balloon && event->type() == QEvent::Hide) {
        if (m_BalloonHiding) {
            m_Balloon->removeEventFilter(this);
            m_Balloon = nullptr;
            ++m_BalloonSerial;
            notify(tray::NIN_BALLOONHIDE);
        } else {
            // Qt hides a balloon to move it (when the icon is placed) and a
            // click closes it before Qt reports the click: decide once both
            // had their chance.
            const quint64 serial = m_BalloonSerial;
            QTimer::singleShot(0, this, [this, serial] {
                if (serial != m_BalloonSerial || (m_Balloon && m_Balloon->isVisible()))
                    return;
                if (m_Balloon)
                    m_Balloon->removeEventFilter(this);
                m_Balloon = nullptr;
                ++m_BalloonSerial;
                if (!m_BalloonClicked)
                    notify(tray::NIN_BALLOONTIMEOUT);
            });
        }
    }
    return QObject::eventFilter(watched, event);
}
