// The tray control's own logic: usage errors, the record it gives the shell
// and its fixed-size texts, the notification dispatch, blinking and the ids
// from the instance counter. Offscreen: there is no notification area, so the
// shell adds nothing, but the control's window procedure and timers work as
// in a real session.
#include "tray/notifyicondata.h"
#include "traytest.h"

#include <QApplication>
#include <QTest>

struct ctlSysTrayBalloonTestAccess {
    static qint32 increment(ctlSysTrayBalloon& t)
    {
        return t.SingletonIncrement(QString::fromLatin1(ctlSysTrayBalloon::SectionName));
    }
    static qint32 decrement(ctlSysTrayBalloon& t)
    {
        return t.SingletonDecrement(QString::fromLatin1(ctlSysTrayBalloon::SectionName));
    }
    static bool refresh(ctlSysTrayBalloon& t) { return t.SysTrayIconRefresh(); }
};
using Access = ctlSysTrayBalloonTestAccess;

static const QString NotLoaded = QStringLiteral("SysTray non chargé");
static const QString NoStandardIcon = QStringLiteral("Icône standard non définie");
static const QString Misuse = QStringLiteral("Utilisation incorrecte de la fonction");

class TestControl : public QObject
{
    Q_OBJECT
    std::unique_ptr<QLabel> m_std, m_blink, m_empty;
    std::unique_ptr<ctlSysTrayBalloon> m_tray;
    QStringList m_events; // PgmError included

    void addIcon()
    {
        m_tray->IconPicture(m_std.get());
        QVERIFY(m_tray->SysTrayAddIcon());
        QVERIFY(m_events.isEmpty());
    }
    qintptr tray(quint32 notification)
    {
        return m_tray->CallBackProc(m_tray->shell()->window(), tray::WM_TRAYCALLBACK,
                                    quintptr(m_tray->iconId()), qintptr(notification));
    }
    void tick(int timerId)
    {
        m_tray->CallBackProc(m_tray->shell()->window(), tray::WM_TIMER, quintptr(timerId), 0);
    }
    int period(int timerId) { return trayShell(m_tray.get())->timerPeriod(quintptr(timerId)); }
    quintptr shownIcon() const { return m_tray->notificationRecord().hIcon.handle; }
    static quintptr handle(const QLabel& l) { return quintptr(l.pixmap().cacheKey()); }

private slots:
    void initTestCase()
    {
        m_std = iconLabel(QStringLiteral("quorvel"));
        m_blink = iconLabel(QStringLiteral("quorvel_blink"));
        m_empty = iconLabel();
        QVERIFY(!m_std->pixmap().isNull());
    }
    void init()
    {
        m_events.clear();
        m_tray = std::make_unique<ctlSysTrayBalloon>();
        recordTrayEvents(m_tray.get(), this, m_events);
    }
    void cleanup() { m_tray.reset(); }

    void idsFollowTheInstanceNumber()
    {
        const qint32 first = m_tray->ID();
        QVERIFY(first >= 1);
        QCOMPARE(m_tray->iconId(), 1000 + 4 * (first - 1));
        const QList<int> timers = {m_tray->taskbarTimerId(), m_tray->balloonTimerId(),
                                   m_tray->blinkTimerId()};
        const int icon = m_tray->iconId();
        QCOMPARE(timers, QList<int>({icon + 1, icon + 2, icon + 3}));
        ctlSysTrayBalloon second;
        QCOMPARE(second.ID(), first + 1);
        QCOMPARE(second.iconId(), icon + 4);
        // Never given back: a new instance after one ended still moves up.
        m_tray.reset();
        ctlSysTrayBalloon third;
        QCOMPARE(third.ID(), first + 2);
    }

    void counterCallsAreGuardedPerInstance()
    {
        const qint32 before = m_tray->ID();
        QCOMPARE(Access::increment(*m_tray), 0);
        QVERIFY(Access::decrement(*m_tray) >= 0);
        QCOMPARE(Access::decrement(*m_tray), 0);
        QCOMPARE(m_events, QStringList({pgmError("SingletonIncrement", -3, Misuse),
                                        pgmError("SingletonDecrement", -3, Misuse)}));
        QCOMPARE(m_tray->ID(), before);
    }

    void usageErrors()
    {
        // Nothing added yet.
        QCOMPARE(m_tray->SysTrayRemoveIcon(), QVariant());
        QVERIFY(!m_tray->BalloonTipShow(QStringLiteral("t"), QStringLiteral("m"), 1, 1000));
        m_tray->BlinkStart(500);
        QVERIFY(!Access::refresh(*m_tray));
        QVERIFY(!m_tray->BlinkIsRunning());
        // No standard icon: nothing is added.
        QVERIFY(!m_tray->SysTrayAddIcon());
        QVERIFY(!m_tray->isLoaded());
        QCOMPARE(m_events, QStringList({pgmError("SysTrayRemoveIcon", -1, NotLoaded),
                                        pgmError("BalloonTipShow", -1, NotLoaded),
                                        pgmError("BlinkStart", -1, "SysTray non démarré"),
                                        pgmError("SysTrayIconRefresh", -1, NotLoaded),
                                        pgmError("Initialize", 0, "")}));
        m_events.clear();

        // Adding twice: the icon stays, with the text the control has always given.
        addIcon();
        QVERIFY(!m_tray->SysTrayAddIcon());
        QVERIFY(m_tray->isLoaded());
        QCOMPARE(m_events, QStringList({pgmError("SysTrayAddIcon", -1, NoStandardIcon)}));
        m_events.clear();
        QCOMPARE(m_tray->SysTrayRemoveIcon(), QVariant(true));
        QVERIFY(!m_tray->isLoaded());

        // A run-time error inside a routine comes out as PgmError too.
        m_tray->IconPicture(nullptr);
        QCOMPARE(m_events.size(), 1);
        QVERIFY2(m_events[0].startsWith(QStringLiteral("PgmError(IconPicture,91,")),
                 qPrintable(m_events[0]));
    }

    void recordForAdding()
    {
        m_tray->setTooltip(QStringLiteral("Quorvel"));
        addIcon();
        const NotifyIconData& r = m_tray->notificationRecord();
        QCOMPARE(r.hWnd, m_tray->shell()->window());
        QCOMPARE(r.uID, quint32(m_tray->iconId()));
        QCOMPARE(r.hIcon.handle, handle(*m_std));
        const QList<quint32> fields = {r.cbSize,  r.uFlags,      r.uCallbackMessage,
                                       r.dwState, r.dwStateMask, r.uTimeoutOrVersion};
        QCOMPARE(fields, QList<quint32>({936, 7, 1025, 2, 0, 3}));
        QCOMPARE(FixedBufferText(r.szTip), QStringLiteral("Quorvel"));
    }

    void fixedBufferKeepsHalfTheBytesLessOne_data()
    {
        QTest::addColumn<int>("bytes");
        QTest::addColumn<int>("written");
        QTest::addColumn<int>("kept");
        QTest::newRow("tooltip 127") << tray::TipBytes << 127 << 127;
        QTest::newRow("tooltip 128") << tray::TipBytes << 128 << 127;
        QTest::newRow("message 300") << tray::InfoBytes << 300 << 255;
        QTest::newRow("message 255") << tray::InfoBytes << 255 << 255;
        QTest::newRow("title 64") << tray::InfoTitleBytes << 64 << 63;
        QTest::newRow("title 5") << tray::InfoTitleBytes << 5 << 5;
    }
    void fixedBufferKeepsHalfTheBytesLessOne()
    {
        QFETCH(int, bytes);
        QFETCH(int, written);
        QFETCH(int, kept);
        QByteArray field(bytes, '\x7f'); // leftovers that must not show
        QString text;
        for (int i = 0; i < written; ++i)
            text += QChar(u'a' + i % 26);
        StringToFixedBuffer(field, text);
        QCOMPARE(field.size(), bytes);
        QCOMPARE(FixedBufferText(field), text.left(kept));
        QCOMPARE(field.mid(kept * 2), QByteArray(bytes - kept * 2, '\0'));
        // Non-Latin text is copied as UTF-16.
        StringToFixedBuffer(field, QStringLiteral("Icône ✓"));
        QCOMPARE(FixedBufferText(field), QStringLiteral("Icône ✓"));
    }

    void textLimits()
    {
        addIcon();
        m_tray->setTooltip(QString(200, u'x'));
        QCOMPARE(m_tray->Tooltip(), QString(127, u'x') + QChar(0));
        m_tray->setTooltip(QString()); // the empty text keeps the previous one
        QCOMPARE(m_tray->Tooltip().size(), 128);
        QCOMPARE(FixedBufferText(m_tray->notificationRecord().szTip), QString(127, u'x'));
        m_tray->setTooltip(QStringLiteral("Quorvel")); // a shorter text clears the rest
        QCOMPARE(m_tray->Tooltip(), QStringLiteral("Quorvel") + QString(121, QChar(0)));

        QVERIFY(m_tray->BalloonTipShow(QString(70, u't'), QString(300, u'm'), 2, 4000));
        const NotifyIconData& r = m_tray->notificationRecord();
        QCOMPARE(FixedBufferText(r.szInfoTitle), QString(63, u't'));
        QCOMPARE(FixedBufferText(r.szInfo), QString(255, u'm'));
        const QList<quint32> fields = {r.uFlags, r.uTimeoutOrVersion, r.dwInfoFlags};
        QCOMPARE(fields, QList<quint32>({16, 4000, 2}));
        QVERIFY(m_events.isEmpty());
    }

    void showLastNeedsTextsAndATimeout()
    {
        addIcon();
        m_tray->BalloonTipShowLast(); // nothing shown yet
        QCOMPARE(m_tray->notificationRecord().uFlags, 7u);
        QVERIFY(m_tray->BalloonTipShow(QStringLiteral("Title"), QStringLiteral("Text"), 1, 0));
        m_tray->setTooltip(QStringLiteral("refreshed")); // back to flags 7
        m_tray->BalloonTipShowLast();                    // timeout 0: nothing
        QCOMPARE(m_tray->notificationRecord().uFlags, 7u);
        QVERIFY(m_tray->BalloonTipShow(QStringLiteral("Title"), QStringLiteral("Again"), 1, 900));
        m_tray->setTooltip(QStringLiteral("refreshed"));
        m_tray->BalloonTipShowLast();
        QCOMPARE(m_tray->notificationRecord().uFlags, 16u);
        QCOMPARE(FixedBufferText(m_tray->notificationRecord().szInfo), QStringLiteral("Again"));
    }

    void notificationDispatch_data()
    {
        QTest::addColumn<quint32>("notification");
        QTest::addColumn<QStringList>("events");
        QTest::newRow("move") << tray::WM_MOUSEMOVE << QStringList{"MouseMove"};
        QTest::newRow("left down") << tray::WM_LBUTTONDOWN << QStringList{"MouseDown(1)"};
        QTest::newRow("left up") << tray::WM_LBUTTONUP << QStringList{"Click", "MouseUp(1)"};
        QTest::newRow("left double") << tray::WM_LBUTTONDBLCLK << QStringList{"DblClick(1)"};
        QTest::newRow("right down") << tray::WM_RBUTTONDOWN << QStringList{"MouseDown(2)"};
        QTest::newRow("right up") << tray::WM_RBUTTONUP << QStringList{"MouseUp(2)"};
        QTest::newRow("right double") << tray::WM_RBUTTONDBLCLK << QStringList{"DblClick(2)"};
        QTest::newRow("middle down") << tray::WM_MBUTTONDOWN << QStringList{"MouseDown(4)"};
        QTest::newRow("middle up") << tray::WM_MBUTTONUP << QStringList{"MouseUp(4)"};
        QTest::newRow("middle double") << tray::WM_MBUTTONDBLCLK << QStringList{"DblClick(4)"};
        QTest::newRow("balloon show") << tray::NIN_BALLOONSHOW << QStringList{"BalloonShow"};
        QTest::newRow("balloon hide") << tray::NIN_BALLOONHIDE << QStringList{"BalloonTimeOut"};
        QTest::newRow("balloon timeout")
            << tray::NIN_BALLOONTIMEOUT << QStringList{"BalloonClosed"};
        QTest::newRow("balloon click")
            << tray::NIN_BALLOONUSERCLICK << QStringList{"BalloonClicked"};
        QTest::newRow("select") << tray::NIN_SELECT << QStringList{};
        QTest::newRow("key select") << tray::NIN_KEYSELECT << QStringList{};
    }
    void notificationDispatch()
    {
        QFETCH(quint32, notification);
        QFETCH(QStringList, events);
        tray(notification); // not subclassed yet: nothing
        addIcon();
        tray(notification);
        QCOMPARE(m_events, events);
    }

    void balloonTimerFollowsTheNotifications()
    {
        addIcon();
        const int balloon = m_tray->balloonTimerId();
        QVERIFY(m_tray->BalloonTipShow(QStringLiteral("T"), QStringLiteral("M"), 1, 5000));
        QCOMPARE(period(balloon), -1);
        tray(tray::NIN_BALLOONSHOW);
        QCOMPARE(period(balloon), 5000);
        tray(tray::NIN_BALLOONUSERCLICK); // keeps running
        QCOMPARE(period(balloon), 5000);
        tray(tray::NIN_BALLOONTIMEOUT);
        QCOMPARE(period(balloon), -1);
        tray(tray::NIN_BALLOONSHOW);
        tick(balloon); // auto-close: stops itself, finds no balloon here
        QCOMPARE(period(balloon), -1);
        // A timeout below 1 starts no timer.
        QVERIFY(m_tray->BalloonTipShow(QStringLiteral("T"), QStringLiteral("M"), 1, 0));
        tray(tray::NIN_BALLOONSHOW);
        QCOMPARE(period(balloon), -1);
        QCOMPARE(period(m_tray->taskbarTimerId()), 2000);
    }

    void blinkAlternatesAndKeepsItsPhase()
    {
        m_tray->BlinkIconPicture(m_blink.get());
        addIcon();
        const int timer = m_tray->blinkTimerId();
        const quintptr std = handle(*m_std), blink = handle(*m_blink);
        m_tray->BlinkStart(50);
        QVERIFY(m_tray->BlinkIsRunning());
        QCOMPARE(period(timer), 200); // the floor
        m_tray->BlinkStart(1000);
        QCOMPARE(period(timer), 1000);
        for (quintptr expected : {blink, std, blink}) {
            tick(timer);
            QCOMPARE(shownIcon(), expected);
        }
        m_tray->BlinkStop();
        QVERIFY(!m_tray->BlinkIsRunning());
        QCOMPARE(period(timer), -1);
        QCOMPARE(shownIcon(), std);
        // The phase was kept: the next tick shows the standard icon.
        m_tray->BlinkStart(300);
        for (quintptr expected : {std, blink}) {
            tick(timer);
            QCOMPARE(shownIcon(), expected);
        }
        QVERIFY(m_events.isEmpty());
    }

    void blinkWithoutIcons()
    {
        addIcon();
        m_tray->BlinkStart(200);
        tick(m_tray->blinkTimerId()); // no blink icon: an empty slot
        QCOMPARE(shownIcon(), quintptr(0));
        QVERIFY(m_events.isEmpty());
        m_tray->IconPicture(m_empty.get()); // no standard icon: blinking stops
        QVERIFY(m_events.isEmpty());
        tick(m_tray->blinkTimerId());
        QCOMPARE(m_events, QStringList({pgmError("BlinkSwapIcons", -2, NoStandardIcon)}));
        QVERIFY(!m_tray->BlinkIsRunning());
        QCOMPARE(period(m_tray->blinkTimerId()), -1);
    }

    void blinkTimerReallyTicks()
    {
        m_tray->BlinkIconPicture(m_blink.get());
        addIcon();
        m_tray->BlinkStart(200);
        QTRY_COMPARE(shownIcon(), handle(*m_blink));
        QTRY_COMPARE(shownIcon(), handle(*m_std));
    }

    void removeStopsEverything()
    {
        addIcon();
        m_tray->BlinkStart(200);
        QVERIFY(m_tray->BalloonTipShow(QStringLiteral("T"), QStringLiteral("M"), 1, 5000));
        tray(tray::NIN_BALLOONSHOW);
        QCOMPARE(m_tray->SysTrayRemoveIcon(), QVariant(true));
        QVERIFY(!m_tray->BlinkIsRunning());
        for (int id : {m_tray->taskbarTimerId(), m_tray->balloonTimerId(), m_tray->blinkTimerId()})
            QCOMPARE(period(id), -1);
        m_events.clear();
        tray(tray::WM_LBUTTONUP); // no longer subclassed
        QVERIFY(m_events.isEmpty());
        // And it can be added again.
        QVERIFY(m_tray->SysTrayAddIcon());
        QCOMPARE(period(m_tray->taskbarTimerId()), 2000);
    }

    void designSizeIsKept()
    {
        m_tray->resize(300, 300);
        QCOMPARE(m_tray->size(), QSize(81, 25));
    }
};

QTEST_MAIN(TestControl)
#include "tst_control.moc"
