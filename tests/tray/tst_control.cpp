// The tray control's own logic: usage errors, the record it gives the shell,
// the notification dispatch, blinking and the ids from the instance counter.
// Offscreen: there is no notification area, so the shell adds nothing, but
// the control's window procedure and timers work as in a real session.
#include "tray/ctlSysTrayBalloon.h"
#include "tray/qtsystrayshell.h"

#include <QApplication>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <memory>

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

namespace
{
using Access = ctlSysTrayBalloonTestAccess;

struct Error {
    QString source;
    int code;
    QString description;
    bool operator==(const Error& o) const
    {
        return source == o.source && code == o.code && description == o.description;
    }
};

const QString NotLoaded = QStringLiteral("SysTray non chargé");
} // namespace

namespace QTest
{
template <> char* toString(const Error& e)
{
    return qstrdup(
        QStringLiteral("(%1, %2, %3)").arg(e.source).arg(e.code).arg(e.description).toUtf8());
}
} // namespace QTest

class TestControl : public QObject
{
    Q_OBJECT
    std::unique_ptr<QLabel> m_std, m_blink, m_empty;
    std::unique_ptr<ctlSysTrayBalloon> m_tray;
    QList<Error> m_errors;
    QStringList m_events;

    void make()
    {
        m_tray = std::make_unique<ctlSysTrayBalloon>();
        m_errors.clear();
        m_events.clear();
        connect(m_tray.get(), &ctlSysTrayBalloon::PgmError, this,
                [this](const QString& s, int c, const QString& d) {
                    m_errors.append({s, c, d});
                });
        auto* t = m_tray.get();
        connect(t, &ctlSysTrayBalloon::MouseMove, this, [this] { m_events << "MouseMove"; });
        connect(t, &ctlSysTrayBalloon::Click, this, [this] { m_events << "Click"; });
        connect(t, &ctlSysTrayBalloon::DblClick, this,
                [this](int b) { m_events << QStringLiteral("DblClick(%1)").arg(b); });
        connect(t, &ctlSysTrayBalloon::MouseDown, this,
                [this](int b) { m_events << QStringLiteral("MouseDown(%1)").arg(b); });
        connect(t, &ctlSysTrayBalloon::MouseUp, this,
                [this](int b) { m_events << QStringLiteral("MouseUp(%1)").arg(b); });
        connect(t, &ctlSysTrayBalloon::BalloonClosed, this,
                [this] { m_events << "BalloonClosed"; });
        connect(t, &ctlSysTrayBalloon::BalloonClicked, this,
                [this] { m_events << "BalloonClicked"; });
        connect(t, &ctlSysTrayBalloon::BalloonShow, this, [this] { m_events << "BalloonShow"; });
        connect(t, &ctlSysTrayBalloon::BalloonTimeOut, this,
                [this] { m_events << "BalloonTimeOut"; });
    }

    void addIcon()
    {
        m_tray->IconPicture(m_std.get());
        QVERIFY(m_tray->SysTrayAddIcon());
        QVERIFY(m_errors.isEmpty());
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
    int period(int timerId)
    {
        return static_cast<QtSysTrayShell*>(m_tray->shell())->timerPeriod(quintptr(timerId));
    }

private slots:
    void initTestCase()
    {
        m_std = std::make_unique<QLabel>();
        m_std->setPixmap(QPixmap(QStringLiteral(":/tray/icons/quorvel.png")));
        m_blink = std::make_unique<QLabel>();
        m_blink->setPixmap(QPixmap(QStringLiteral(":/tray/icons/quorvel_blink.png")));
        m_empty = std::make_unique<QLabel>();
        QVERIFY(!m_std->pixmap().isNull());
    }
    void init() { make(); }
    void cleanup() { m_tray.reset(); }

    void idsFollowTheInstanceNumber()
    {
        const qint32 first = m_tray->ID();
        QVERIFY(first >= 1);
        QCOMPARE(m_tray->iconId(), 1000 + 4 * (first - 1));
        QCOMPARE(m_tray->taskbarTimerId(), m_tray->iconId() + 1);
        QCOMPARE(m_tray->balloonTimerId(), m_tray->iconId() + 2);
        QCOMPARE(m_tray->blinkTimerId(), m_tray->iconId() + 3);
        ctlSysTrayBalloon second;
        QCOMPARE(second.ID(), first + 1);
        QCOMPARE(second.iconId(), m_tray->iconId() + 4);
        // Never given back: a new instance after one ended still moves up.
        m_tray.reset();
        ctlSysTrayBalloon third;
        QCOMPARE(third.ID(), first + 2);
    }

    void counterCallsAreGuardedPerInstance()
    {
        QCOMPARE(Access::increment(*m_tray), 0);
        QCOMPARE(m_errors, QList<Error>({{"SingletonIncrement", -3,
                                          "Utilisation incorrecte de la fonction"}}));
        m_errors.clear();
        const qint32 before = m_tray->ID();
        QVERIFY(Access::decrement(*m_tray) >= 0);
        QCOMPARE(Access::decrement(*m_tray), 0);
        QCOMPARE(m_errors, QList<Error>({{"SingletonDecrement", -3,
                                          "Utilisation incorrecte de la fonction"}}));
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
        QCOMPARE(m_errors, QList<Error>({{"SysTrayRemoveIcon", -1, NotLoaded},
                                         {"BalloonTipShow", -1, NotLoaded},
                                         {"BlinkStart", -1, "SysTray non démarré"},
                                         {"SysTrayIconRefresh", -1, NotLoaded}}));
        m_errors.clear();

        // No standard icon: nothing is added.
        QVERIFY(!m_tray->SysTrayAddIcon());
        QVERIFY(!m_tray->isLoaded());
        QCOMPARE(m_errors, QList<Error>({{"Initialize", 0, ""}}));
        m_errors.clear();

        // Adding twice: the icon stays, with the text the control has always given.
        addIcon();
        QVERIFY(!m_tray->SysTrayAddIcon());
        QVERIFY(m_tray->isLoaded());
        QCOMPARE(m_errors, QList<Error>({{"SysTrayAddIcon", -1, "Icône standard non définie"}}));
        m_errors.clear();
        QCOMPARE(m_tray->SysTrayRemoveIcon(), QVariant(true));
        QVERIFY(!m_tray->isLoaded());

        // A run-time error inside a routine comes out as PgmError too.
        m_tray->IconPicture(nullptr);
        QCOMPARE(m_errors.size(), 1);
        QCOMPARE(m_errors[0].source, QStringLiteral("IconPicture"));
        QCOMPARE(m_errors[0].code, 91);
    }

    void recordForAdding()
    {
        m_tray->setTooltip(QStringLiteral("Quorvel"));
        addIcon();
        const NotifyIconData& r = m_tray->notificationRecord();
        QCOMPARE(r.cbSize, 936u);
        QCOMPARE(r.hWnd, m_tray->shell()->window());
        QCOMPARE(r.uID, quint32(m_tray->iconId()));
        QCOMPARE(r.uFlags, 7u);
        QCOMPARE(r.uCallbackMessage, 1025u);
        QCOMPARE(r.hIcon.handle, quintptr(m_std->pixmap().cacheKey()));
        QCOMPARE(r.dwState, 2u);
        QCOMPARE(r.dwStateMask, 0u);
        QCOMPARE(r.uTimeoutOrVersion, 3u);
        QCOMPARE(FixedBufferText(r.szTip), QStringLiteral("Quorvel"));
    }

    void textLimits()
    {
        addIcon();
        m_tray->setTooltip(QString(200, u'x'));
        QCOMPARE(m_tray->Tooltip(), QString(127, u'x') + QChar(0));
        m_tray->setTooltip(QString());
        QCOMPARE(m_tray->Tooltip().size(), 128);
        QCOMPARE(FixedBufferText(m_tray->notificationRecord().szTip), QString(127, u'x'));
        m_tray->setTooltip(QStringLiteral("Quorvel"));
        QCOMPARE(m_tray->Tooltip(), QStringLiteral("Quorvel") + QString(121, QChar(0)));

        QVERIFY(m_tray->BalloonTipShow(QString(70, u't'), QString(300, u'm'), 2, 4000));
        const NotifyIconData& r = m_tray->notificationRecord();
        QCOMPARE(FixedBufferText(r.szInfoTitle), QString(63, u't'));
        QCOMPARE(FixedBufferText(r.szInfo), QString(255, u'm'));
        QCOMPARE(r.uFlags, 16u);
        QCOMPARE(r.uTimeoutOrVersion, 4000u);
        QCOMPARE(r.dwInfoFlags, 2u);
        QVERIFY(m_errors.isEmpty());
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
        QVERIFY(m_events.isEmpty());
        addIcon();
        tray(notification);
        QCOMPARE(m_events, events);
        QVERIFY(m_errors.isEmpty());
    }

    void balloonTimerFollowsTheNotifications()
    {
        addIcon();
        QVERIFY(m_tray->BalloonTipShow(QStringLiteral("T"), QStringLiteral("M"), 1, 5000));
        QCOMPARE(period(m_tray->balloonTimerId()), -1);
        tray(tray::NIN_BALLOONSHOW);
        QCOMPARE(period(m_tray->balloonTimerId()), 5000);
        tray(tray::NIN_BALLOONUSERCLICK); // keeps running
        QCOMPARE(period(m_tray->balloonTimerId()), 5000);
        tray(tray::NIN_BALLOONTIMEOUT);
        QCOMPARE(period(m_tray->balloonTimerId()), -1);
        tray(tray::NIN_BALLOONSHOW);
        tick(m_tray->balloonTimerId()); // auto-close: stops itself, finds no balloon here
        QCOMPARE(period(m_tray->balloonTimerId()), -1);
        // A timeout below 1 starts no timer.
        QVERIFY(m_tray->BalloonTipShow(QStringLiteral("T"), QStringLiteral("M"), 1, 0));
        tray(tray::NIN_BALLOONSHOW);
        QCOMPARE(period(m_tray->balloonTimerId()), -1);
        QCOMPARE(period(m_tray->taskbarTimerId()), 2000);
    }

    void blinkAlternatesAndKeepsItsPhase()
    {
        m_tray->BlinkIconPicture(m_blink.get());
        addIcon();
        const quintptr std = quintptr(m_std->pixmap().cacheKey());
        const quintptr blink = quintptr(m_blink->pixmap().cacheKey());
        m_tray->BlinkStart(50);
        QVERIFY(m_tray->BlinkIsRunning());
        QCOMPARE(period(m_tray->blinkTimerId()), 200); // the floor
        m_tray->BlinkStart(1000);
        QCOMPARE(period(m_tray->blinkTimerId()), 1000);

        tick(m_tray->blinkTimerId());
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, blink);
        tick(m_tray->blinkTimerId());
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, std);
        tick(m_tray->blinkTimerId());
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, blink);

        m_tray->BlinkStop();
        QVERIFY(!m_tray->BlinkIsRunning());
        QCOMPARE(period(m_tray->blinkTimerId()), -1);
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, std);
        // The phase was kept: the next tick shows the standard icon.
        m_tray->BlinkStart(300);
        tick(m_tray->blinkTimerId());
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, std);
        tick(m_tray->blinkTimerId());
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, blink);
        QVERIFY(m_errors.isEmpty());
    }

    void blinkIconUnsetShowsAnEmptySlot()
    {
        addIcon();
        m_tray->BlinkStart(200);
        tick(m_tray->blinkTimerId());
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, quintptr(0));
        QVERIFY(m_errors.isEmpty());
    }

    void blinkWithoutStandardIconStops()
    {
        addIcon();
        m_tray->BlinkStart(200);
        tick(m_tray->blinkTimerId()); // blink phase
        m_tray->IconPicture(m_empty.get());
        QVERIFY(m_errors.isEmpty());
        tick(m_tray->blinkTimerId());
        QCOMPARE(m_errors, QList<Error>({{"BlinkSwapIcons", -2, "Icône standard non définie"}}));
        QVERIFY(!m_tray->BlinkIsRunning());
        QCOMPARE(period(m_tray->blinkTimerId()), -1);
    }

    void blinkTimerReallyTicks()
    {
        m_tray->BlinkIconPicture(m_blink.get());
        addIcon();
        const quintptr blink = quintptr(m_blink->pixmap().cacheKey());
        m_tray->BlinkStart(200);
        QTRY_COMPARE(m_tray->notificationRecord().hIcon.handle, blink);
        QTRY_COMPARE(m_tray->notificationRecord().hIcon.handle,
                     quintptr(m_std->pixmap().cacheKey()));
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
