#include "tray/ctlsystrayballoon.h"

#include "common/doevents.h"
#include "common/runtimeerror.h"
#include "platform/sharedcounter.h"
#include "tray/nativetrayshell.h"
#include "tray/qtsystrayshell.h"

#include <QDebug>
#include <QLabel>
#include <QPixmap>

static void initTrayResources()
{
    Q_INIT_RESOURCE(tray);
}

namespace
{
// The control keeps its design-time size: 1215 x 375 twips.
constexpr int WidthPx = 1215 / 15;
constexpr int HeightPx = 375 / 15;

TrayIconRef iconOf(QLabel* label)
{
    if (!label)
        RaiseError(91, QStringLiteral("Object variable or With block variable not set"));
    const QPixmap pixmap = label->pixmap();
    TrayIconRef ref;
    ref.handle = quintptr(pixmap.cacheKey());
    if (!pixmap.isNull())
        ref.icon = QIcon(pixmap);
    return ref;
}

std::string section8Bit(const QString& name)
{
    return name.toLocal8Bit().toStdString();
}
} // namespace

const char* const ctlSysTrayBalloon::SectionName = "Tessivane_ctlSysTrayBalloon";

template <typename R, typename F>
R ctlSysTrayBalloon::trapped(const char* source, R failed, F&& body)
{
    try {
        return body();
    } catch (const RuntimeError& e) {
        emit PgmError(QString::fromLatin1(source), e.number(), e.description());
    } catch (const std::exception& e) {
        emit PgmError(QString::fromLatin1(source), 51, QString::fromLocal8Bit(e.what()));
    }
    return failed;
}

ctlSysTrayBalloon::ctlSysTrayBalloon(QWidget* parent, std::unique_ptr<SysTrayShell> shell)
    : QWidget(parent), m_Shell(std::move(shell))
{
    initTrayResources();
    if (!m_Shell)
        m_Shell = createNativeSysTrayShell(this);
    if (!m_Shell)
        m_Shell = std::make_unique<QtSysTrayShell>(this);
    setFixedSize(WidthPx, HeightPx);
    hide(); // invisible at run time
    UserControl_ReadProperties();
}

ctlSysTrayBalloon::~ctlSysTrayBalloon()
{
    if (m_Loaded)
        SysTrayRemoveIcon();
    StopSubclass();
    if (m_CounterTaken)
        SingletonDecrement(QString::fromLatin1(SectionName));
}

void ctlSysTrayBalloon::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (width() != WidthPx || height() != HeightPx)
        resize(WidthPx, HeightPx);
}

void ctlSysTrayBalloon::UserControl_ReadProperties()
{
    trapped("UserControl_ReadProperties", 0, [&] {
        m_CounterTaken = false;
        m_InstanceNumber = SingletonIncrement(QString::fromLatin1(SectionName));
        m_IconId = 1000 + 4 * (m_InstanceNumber - 1);
        return 0;
    });
}

// ---- instance counter ----

qint32 ctlSysTrayBalloon::SingletonIncrement(const QString& name)
{
    return trapped("SingletonIncrement", qint32(0), [&]() -> qint32 {
        m_IncrementGuard += 1;
        if (m_IncrementGuard != 1) {
            emit PgmError(QStringLiteral("SingletonIncrement"), -3,
                          QStringLiteral("Utilisation incorrecte de la fonction"));
            return 0;
        }
        if (auto opened = SharedSection::openExisting(section8Bit(name))) {
            qint32 count = 0;
            if (!opened->read(count)) {
                qDebug() << "Erreur lors du MapViewOfFile";
                return 0;
            }
            count += 1;
            opened.reset();
            auto section = SharedSection::create(section8Bit(name));
            if (!section) {
                qDebug() << "Erreur lors du CreateFileMapping";
                return 0;
            }
            const bool written = section->write(count);
            SharedSection::keepOpen(std::move(section));
            return written ? count : 0;
        }
        auto section = SharedSection::create(section8Bit(name));
        if (!section) {
            qDebug() << "Erreur lors du CreateFileMapping";
            return 0;
        }
        const bool written = section->write(1);
        SharedSection::keepOpen(std::move(section));
        return written ? 1 : 0;
    });
}

qint32 ctlSysTrayBalloon::SingletonDecrement(const QString& name)
{
    return trapped("SingletonDecrement", qint32(0), [&]() -> qint32 {
        m_DecrementGuard += 1;
        if (m_DecrementGuard != 1) {
            emit PgmError(QStringLiteral("SingletonDecrement"), -3,
                          QStringLiteral("Utilisation incorrecte de la fonction"));
            return 0;
        }
        auto opened = SharedSection::openExisting(section8Bit(name));
        if (!opened) {
            qDebug() << "Le mapping est déjà fermé, vérifiez vos appels à SingletonIncrement et "
                        "SingletonDecrement";
            return 0;
        }
        qint32 count = 0;
        if (!opened->read(count))
            return 0;
        count -= 1;
        opened.reset();
        auto section = SharedSection::create(section8Bit(name));
        if (!section)
            return 0;
        section->write(count);
        if (count != 0)
            SharedSection::keepOpen(std::move(section));
        return count;
    });
}

// ---- properties ----

void ctlSysTrayBalloon::IconPicture(QLabel* NewValue)
{
    trapped("IconPicture", 0, [&] {
        const TrayIconRef icon = iconOf(NewValue);
        if (icon.handle != m_StandardIcon.handle) {
            m_StandardIcon = icon;
            m_Nid.hIcon = icon;
            if (m_Loaded)
                SysTrayIconRefresh();
        }
        return 0;
    });
}

void ctlSysTrayBalloon::BlinkIconPicture(QLabel* NewValue)
{
    trapped("BlinkIconPicture", 0, [&] {
        m_BlinkIcon = iconOf(NewValue);
        return 0;
    });
}

void ctlSysTrayBalloon::setTooltip(const QString& Message128)
{
    trapped("Tooltip", 0, [&] {
        StringToFixedBuffer(m_Nid.szTip, Message128);
        if (m_Loaded)
            SysTrayIconRefresh();
        return 0;
    });
}

QString ctlSysTrayBalloon::Tooltip()
{
    return FixedBufferChars(m_Nid.szTip);
}

// ---- adding and removing ----

bool ctlSysTrayBalloon::Initialize()
{
    if (m_StandardIcon.handle == 0) {
        // No run-time error is pending here: number 0, no text.
        emit PgmError(QStringLiteral("Initialize"), 0, QString());
        return false;
    }
    return trapped("Initialize", false, [&] {
        m_Nid.cbSize = tray::NOTIFYICONDATAW_V5_SIZE;
        m_Nid.hWnd = m_Shell->window();
        m_Nid.uID = quint32(m_IconId);
        m_Nid.uCallbackMessage = tray::WM_TRAYCALLBACK;
        m_Nid.hIcon = m_StandardIcon;
        m_Nid.dwState = tray::NIS_SHAREDICON;
        m_Nid.uTimeoutOrVersion = tray::NOTIFYICON_VERSION;
        return true;
    });
}

bool ctlSysTrayBalloon::SysTrayAddIcon()
{
    return trapped("SysTrayAddIcon", false, [&] {
        if (m_Loaded) {
            emit PgmError(QStringLiteral("SysTrayAddIcon"), -1,
                          QStringLiteral("Icône standard non définie"));
            return false;
        }
        if (!Initialize())
            return false;
        m_Nid.uFlags = tray::NIF_MESSAGE | tray::NIF_ICON | tray::NIF_TIP;
        if (m_Shell->notifyIcon(tray::NIM_ADD, m_Nid) == 1)
            m_Shell->notifyIcon(tray::NIM_SETVERSION, m_Nid);
        StartSubclass();
        m_Loaded = true;
        return true;
    });
}

QVariant ctlSysTrayBalloon::SysTrayRemoveIcon()
{
    return trapped("SysTrayRemoveIcon", QVariant(), [&] {
        if (!m_Loaded) {
            emit PgmError(QStringLiteral("SysTrayRemoveIcon"), -1,
                          QStringLiteral("SysTray non chargé"));
            return QVariant();
        }
        StopTimer(quintptr(balloonTimerId()), m_BalloonTimerRunning);
        StopTimer(quintptr(blinkTimerId()), m_BlinkRunning);
        m_Shell->notifyIcon(tray::NIM_DELETE, m_Nid);
        m_Loaded = false;
        StopSubclass();
        return QVariant(true);
    });
}

bool ctlSysTrayBalloon::SysTrayIconRefresh()
{
    return trapped("SysTrayIconRefresh", false, [&] {
        if (!m_Loaded) {
            emit PgmError(QStringLiteral("SysTrayIconRefresh"), -1,
                          QStringLiteral("SysTray non chargé"));
            return false;
        }
        m_Nid.uFlags = tray::NIF_MESSAGE | tray::NIF_ICON | tray::NIF_TIP;
        m_Shell->notifyIcon(tray::NIM_MODIFY, m_Nid);
        return true;
    });
}

// ---- subclass and timers ----

void ctlSysTrayBalloon::StartSubclass()
{
    StopSubclass();
    // One entry serves as window procedure and timer procedure.
    m_PrevWndProc = m_Shell->subclass([this](quintptr hwnd, quint32 msg, quintptr w, qintptr l) {
        return CallBackProc(hwnd, msg, w, l);
    });
    m_TaskbarWnd = m_Shell->findTaskbarWindow();
    StartTimer(quintptr(taskbarTimerId()), 2000, m_TaskbarWatchRunning);
}

void ctlSysTrayBalloon::StopSubclass()
{
    StopTimer(quintptr(taskbarTimerId()), m_TaskbarWatchRunning);
    StopTimer(quintptr(balloonTimerId()), m_BalloonTimerRunning);
    StopTimer(quintptr(blinkTimerId()), m_BlinkRunning);
    if (m_PrevWndProc != 0) {
        m_Shell->unsubclass(m_PrevWndProc);
        m_PrevWndProc = 0;
    }
}

void ctlSysTrayBalloon::StartTimer(quintptr id, qint32 period, bool& running)
{
    if (running || period < 1)
        return;
    running = m_Shell->setTimer(id, quint32(period)) == id;
}

void ctlSysTrayBalloon::StopTimer(quintptr id, bool& running)
{
    if (running)
        m_Shell->killTimer(id);
    running = false;
}

// ---- balloons ----

bool ctlSysTrayBalloon::BalloonTipShow(const QString& Title64Unicode,
                                       const QString& Message256Unicode, qint32 Style,
                                       qint32 Timeout_mSec)
{
    return trapped("BalloonTipShow", false, [&] {
        if (!m_Loaded) {
            emit PgmError(QStringLiteral("BalloonTipShow"), -1,
                          QStringLiteral("SysTray non chargé"));
            return false;
        }
        m_LastTitle = Title64Unicode;
        m_LastMessage = Message256Unicode;
        m_LastStyle = Style;
        m_LastTimeout = Timeout_mSec;
        StringToFixedBuffer(m_Nid.szInfo, Message256Unicode);
        StringToFixedBuffer(m_Nid.szInfoTitle, Title64Unicode);
        m_Nid.uTimeoutOrVersion = quint32(Timeout_mSec);
        m_Nid.dwInfoFlags = quint32(Style);
        m_Nid.uFlags = tray::NIF_INFO;
        m_Shell->notifyIcon(tray::NIM_MODIFY, m_Nid);
        return true;
    });
}

void ctlSysTrayBalloon::BalloonTipShowLast()
{
    trapped("BalloonTipShowLast", 0, [&] {
        if (!m_LastTitle.isEmpty() && !m_LastMessage.isEmpty() && m_LastTimeout != 0)
            BalloonTipShow(m_LastTitle, m_LastMessage, m_LastStyle, m_LastTimeout);
        return 0;
    });
}

void ctlSysTrayBalloon::BalloonTipClose()
{
    trapped("BalloonTipClose", 0, [&] {
        if (!m_Loaded)
            return 0;
        const quintptr balloon = FindBalloonWindow(m_LastMessage);
        if (balloon > 0) {
            m_ClosingBalloon = true;
            m_Shell->sendMessage(balloon, tray::WM_MBUTTONDOWN, 0, 0);
            m_Shell->sendMessage(balloon, tray::WM_MBUTTONUP, 0, 0);
            m_ClosingBalloon = false;
        }
        return 0;
    });
}

quintptr ctlSysTrayBalloon::FindBalloonWindow(QString searched)
{
    const QList<quintptr> windows = m_Shell->topLevelWindows();
    for (quintptr window : windows) {
        DoEvents();
        if (m_Shell->className(window) != m_Shell->balloonClassName())
            continue;
        const int length =
            int(qMin<qintptr>(m_Shell->sendMessage(window, tray::WM_GETTEXTLENGTH, 0, 0), 255));
        QString text = m_Shell->windowText(window, length);
        text.remove(QChar(0));
        // The window API loses the last character; the cut stays for the next windows.
        if (searched.size() > text.size())
            searched.truncate(text.size());
        if (searched == text)
            return window;
    }
    return 0;
}

// ---- blinking ----

void ctlSysTrayBalloon::BlinkStart(qint32 CycleMilliSeconds)
{
    trapped("BlinkStart", 0, [&] {
        m_BlinkCycle = qMax(CycleMilliSeconds, 200);
        if (!m_Loaded) {
            emit PgmError(QStringLiteral("BlinkStart"), -1, QStringLiteral("SysTray non démarré"));
            return 0;
        }
        if (m_BlinkRunning)
            StopTimer(quintptr(blinkTimerId()), m_BlinkRunning);
        StartTimer(quintptr(blinkTimerId()), m_BlinkCycle, m_BlinkRunning);
        return 0;
    });
}

void ctlSysTrayBalloon::BlinkStop()
{
    trapped("BlinkStop", 0, [&] {
        StopTimer(quintptr(blinkTimerId()), m_BlinkRunning);
        m_Nid.hIcon = m_StandardIcon;
        if (m_Loaded)
            SysTrayIconRefresh();
        return 0;
    });
}

void ctlSysTrayBalloon::BlinkSwapIcons()
{
    trapped("BlinkSwapIcons", 0, [&] {
        TrayIconRef taken;
        if (m_BlinkPhase) {
            if (m_StandardIcon.handle == 0) {
                StopTimer(quintptr(blinkTimerId()), m_BlinkRunning);
                emit PgmError(QStringLiteral("BlinkSwapIcons"), -2,
                              QStringLiteral("Icône standard non définie"));
                return 0;
            }
            m_BlinkPhase = false;
            taken = m_StandardIcon;
        } else {
            m_BlinkPhase = true;
            taken = m_BlinkIcon; // shown even when unset: an empty slot
        }
        m_Nid.hIcon = taken;
        if (m_Loaded)
            SysTrayIconRefresh();
        return 0;
    });
}

// ---- notifications ----

void ctlSysTrayBalloon::TaskbarWatchTick()
{
    trapped("TaskbarWatch", 0, [&] {
        if (m_Shell->findTaskbarWindow() == m_TaskbarWnd)
            return 0;
        if (m_Shell->findTaskbarWindow() == 0)
            return 0; // not back yet; the next tick looks again
        const bool wasBlinking = m_BlinkRunning;
        SysTrayRemoveIcon();
        SysTrayAddIcon();
        if (wasBlinking)
            BlinkStart(m_BlinkCycle);
        return 0;
    });
}

qintptr ctlSysTrayBalloon::CallBackProc(quintptr hwnd, quint32 uMsg, quintptr wParam,
                                        qintptr lParam)
{
    return trapped("CallBackProc", qintptr(0), [&]() -> qintptr {
        if (m_PrevWndProc == 0)
            return 0;
        const quintptr prev = m_PrevWndProc;
        if (uMsg == tray::WM_TIMER) {
            if (wParam == quintptr(taskbarTimerId())) {
                TaskbarWatchTick();
            } else if (wParam == quintptr(balloonTimerId())) {
                StopTimer(quintptr(balloonTimerId()), m_BalloonTimerRunning);
                BalloonTipClose();
            } else if (wParam == quintptr(blinkTimerId())) {
                BlinkSwapIcons();
            }
            return 0;
        }
        if (uMsg == tray::WM_TRAYCALLBACK) {
            switch (quint32(lParam)) {
            case tray::WM_MOUSEMOVE:
                emit MouseMove();
                break;
            case tray::WM_LBUTTONDOWN:
                m_Shell->setForegroundWindow();
                emit MouseDown(1);
                break;
            case tray::WM_LBUTTONUP:
                m_Shell->setForegroundWindow();
                emit Click();
                emit MouseUp(1);
                break;
            case tray::WM_LBUTTONDBLCLK:
                m_Shell->setForegroundWindow();
                emit DblClick(1);
                break;
            case tray::WM_RBUTTONDOWN:
                m_Shell->setForegroundWindow();
                emit MouseDown(2);
                break;
            case tray::WM_RBUTTONUP:
                m_Shell->setForegroundWindow();
                emit MouseUp(2); // no Click for the right button
                break;
            case tray::WM_RBUTTONDBLCLK:
                m_Shell->setForegroundWindow();
                emit DblClick(2);
                break;
            case tray::WM_MBUTTONDOWN:
                m_Shell->setForegroundWindow();
                emit MouseDown(4);
                break;
            case tray::WM_MBUTTONUP:
                m_Shell->setForegroundWindow();
                emit MouseUp(4);
                break;
            case tray::WM_MBUTTONDBLCLK:
                m_Shell->setForegroundWindow();
                emit DblClick(4);
                break;
            case tray::NIN_BALLOONSHOW:
                StartTimer(quintptr(balloonTimerId()), m_LastTimeout, m_BalloonTimerRunning);
                emit BalloonShow();
                break;
            case tray::NIN_BALLOONHIDE:
                StopTimer(quintptr(balloonTimerId()), m_BalloonTimerRunning);
                emit BalloonTimeOut();
                break;
            case tray::NIN_BALLOONTIMEOUT:
                StopTimer(quintptr(balloonTimerId()), m_BalloonTimerRunning);
                emit BalloonClosed();
                break;
            case tray::NIN_BALLOONUSERCLICK:
                if (m_ClosingBalloon)
                    emit BalloonTimeOut();
                else
                    emit BalloonClicked();
                break;
            default:
                qDebug().noquote() << QStringLiteral("## Event reçu non traité. uMsg ") +
                                          QString::number(uMsg, 16).toUpper() +
                                          QStringLiteral(" wParam ") +
                                          QString::number(quint64(wParam), 16).toUpper() +
                                          QStringLiteral(" lParam ") +
                                          QString::number(quint64(lParam), 16).toUpper();
                break;
            }
        }
        return m_Shell->callPrevious(prev, hwnd, uMsg, wParam, lParam);
    });
}
