// The tray icon in a real notification area: Xvfb with trayer, clicks sent
// with xdotool, screenshots taken with ImageMagick.
#include "tray/ctlSysTrayBalloon.h"
#include "tray/qtsystrayshell.h"
#include "xtray.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTest>
#include <memory>

namespace
{
constexpr QRgb Standard = qRgb(0x1E, 0x5A, 0xC8);
constexpr QRgb Blink = qRgb(0xFF, 0x96, 0x00);

QWidget* visibleBalloon()
{
    for (QWidget* w : QApplication::topLevelWidgets())
        if (w->inherits("QBalloonTip") && w->isVisible())
            return w;
    return nullptr;
}

void clickAt(const QPoint& p, int button, int repeat = 1)
{
    QVERIFY(xdotool({QStringLiteral("mousemove"), QString::number(p.x()), QString::number(p.y()),
                     QStringLiteral("click"), QStringLiteral("--repeat"), QString::number(repeat),
                     QStringLiteral("--delay"), QStringLiteral("80"), QString::number(button)}));
}
} // namespace

class TestXtray : public QObject
{
    Q_OBJECT
    std::unique_ptr<QLabel> m_std, m_blink;
    std::unique_ptr<ctlSysTrayBalloon> m_tray;
    QStringList m_events;

    QtSysTrayShell* shell() { return static_cast<QtSysTrayShell*>(m_tray->shell()); }

    QRect iconRect()
    {
        QSystemTrayIcon* icon = shell()->trayIcon();
        return icon ? icon->geometry() : QRect();
    }

    // Waits until the icon is embedded and drawn in the given colour.
    bool iconShows(QRgb colour, const QString& shot, int timeoutMs = 8000)
    {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < timeoutMs) {
            QTest::qWait(200);
            const QRect r = iconRect();
            if (r.width() < 4)
                continue;
            if (countColour(screenshot(shot), r, colour) > 40)
                return true;
        }
        return false;
    }

    void record()
    {
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
        connect(t, &ctlSysTrayBalloon::PgmError, this,
                [this](const QString& s, int c, const QString& d) {
                    m_events << QStringLiteral("PgmError(%1,%2,%3)").arg(s).arg(c).arg(d);
                });
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(QSystemTrayIcon::isSystemTrayAvailable(), "no tray host on the test display");
        m_std = std::make_unique<QLabel>();
        m_std->setPixmap(QPixmap(QStringLiteral(":/tray/icons/quorvel.png")));
        m_blink = std::make_unique<QLabel>();
        m_blink->setPixmap(QPixmap(QStringLiteral(":/tray/icons/quorvel_blink.png")));
    }

    void init()
    {
        m_events.clear();
        m_tray = std::make_unique<ctlSysTrayBalloon>();
        record();
        m_tray->IconPicture(m_std.get());
        m_tray->setTooltip(QStringLiteral("Quorvel"));
        QVERIFY(m_tray->SysTrayAddIcon());
    }

    void cleanup()
    {
        m_tray.reset();
        QTest::qWait(100);
    }

    void iconIsEmbeddedAndDrawn()
    {
        QVERIFY(iconShows(Standard, QStringLiteral("tray_icon")));
        QCOMPARE(shell()->trayIcon()->toolTip(), QStringLiteral("Quorvel"));
        // The README's picture: the tray host's corner of the screen.
        const QImage shot = screenshot(QStringLiteral("tray_icon"));
        const QRect icon = iconRect();
        const QRect r(icon.right() - 159, 0, 160 + 8, icon.bottom() + 12);
        QVERIFY(shot.copy(r).save(qEnvironmentVariable("QUORVEL_SCREENSHOTS") +
                                  QStringLiteral("/tray_icon_crop.png")));
        QVERIFY(m_events.isEmpty());
    }

    void clicksGiveTheEventOrder()
    {
        QVERIFY(iconShows(Standard, QStringLiteral("tray_clicks")));
        const QPoint centre = iconRect().center();
        clickAt(centre, 1);
        QTRY_COMPARE(m_events, QStringList({"MouseDown(1)", "Click", "MouseUp(1)"}));
        m_events.clear();
        clickAt(centre, 3);
        QTRY_COMPARE(m_events, QStringList({"MouseDown(2)", "MouseUp(2)"}));
        m_events.clear();
        clickAt(centre, 2);
        QTRY_COMPARE(m_events, QStringList({"MouseDown(4)", "MouseUp(4)"}));
        m_events.clear();
        QTest::qWait(600); // no double click with the clicks before
        clickAt(centre, 1, 2);
        QTRY_VERIFY(m_events.contains(QStringLiteral("DblClick(1)")));
        QCOMPARE(m_events.mid(0, 3), QStringList({"MouseDown(1)", "Click", "MouseUp(1)"}));
    }

    void balloonClosedByTheControlIsATimeOut()
    {
        QVERIFY(iconShows(Standard, QStringLiteral("tray_balloon_before")));
        QVERIFY(m_tray->BalloonTipShow(QStringLiteral("Quorvel"),
                                       QStringLiteral("Job File_261122_201500 printed"), 1, 2500));
        QTRY_COMPARE(m_events, QStringList({"BalloonShow"}));
        QVERIFY(visibleBalloon());
        const QImage shot = screenshot(QStringLiteral("tray_balloon"));
        const QRect balloon =
            visibleBalloon()->frameGeometry().united(iconRect()).adjusted(-8, -8, 8, 8);
        QVERIFY(shot.copy(balloon).save(qEnvironmentVariable("QUORVEL_SCREENSHOTS") +
                                        QStringLiteral("/tray_balloon_crop.png")));
        // The control's own timer closes it (the shell would keep it 10 s).
        QTRY_COMPARE_WITH_TIMEOUT(m_events, QStringList({"BalloonShow", "BalloonTimeOut"}), 8000);
        QTRY_VERIFY(!visibleBalloon());
        QTest::qWait(300);
        QCOMPARE(m_events, QStringList({"BalloonShow", "BalloonTimeOut"}));
    }

    void balloonCloseFindsItByItsText()
    {
        // Shown at once, before the tray host has placed the icon: Qt moves
        // the balloon then, which is no close.
        QVERIFY(m_tray->BalloonTipShow(QStringLiteral("T"), QStringLiteral("Closed on request"), 0,
                                       60000));
        QTRY_COMPARE(m_events, QStringList({"BalloonShow"}));
        QVERIFY(iconShows(Standard, QStringLiteral("tray_balloon_close")));
        QCOMPARE(m_events, QStringList({"BalloonShow"}));
        QVERIFY(visibleBalloon());
        m_tray->BalloonTipClose();
        QCOMPARE(m_events, QStringList({"BalloonShow", "BalloonTimeOut"}));
        QTRY_VERIFY(!visibleBalloon());
        QTest::qWait(300);
        QCOMPARE(m_events.size(), 2);
    }

    void userClicksOnTheBalloon()
    {
        QVERIFY(iconShows(Standard, QStringLiteral("tray_balloon_click")));
        QVERIFY(
            m_tray->BalloonTipShow(QStringLiteral("Quorvel"), QStringLiteral("Click me"), 0, 0));
        QTRY_COMPARE(m_events, QStringList({"BalloonShow"}));
        QWidget* balloon = visibleBalloon();
        QVERIFY(balloon);
        QTest::qWait(300);
        // On its text: a user click.
        const QRect g = balloon->frameGeometry();
        clickAt(QPoint(g.left() + 30, g.bottom() - 12), 1);
        QTRY_COMPARE(m_events, QStringList({"BalloonShow", "BalloonClicked"}));
        QTRY_VERIFY(!visibleBalloon());
        QTest::qWait(300);
        QCOMPARE(m_events, QStringList({"BalloonShow", "BalloonClicked"}));

        // On its close button: closed.
        m_events.clear();
        QVERIFY(
            m_tray->BalloonTipShow(QStringLiteral("Quorvel"), QStringLiteral("Close me"), 0, 0));
        QTRY_COMPARE(m_events, QStringList({"BalloonShow"}));
        balloon = visibleBalloon();
        QVERIFY(balloon);
        QTest::qWait(300);
        auto* button = balloon->findChild<QPushButton*>();
        QVERIFY(button);
        clickAt(button->mapToGlobal(button->rect().center()), 1);
        QTRY_COMPARE(m_events, QStringList({"BalloonShow", "BalloonClosed"}));
        QTest::qWait(300);
        QCOMPARE(m_events, QStringList({"BalloonShow", "BalloonClosed"}));
    }

    void blinkingAlternatesTheIcons()
    {
        m_tray->BlinkIconPicture(m_blink.get());
        QVERIFY(iconShows(Standard, QStringLiteral("tray_blink_0")));
        m_tray->BlinkStart(400);
        QVERIFY(m_tray->BlinkIsRunning());
        QVERIFY(iconShows(Blink, QStringLiteral("tray_blink_1")));
        QVERIFY(iconShows(Standard, QStringLiteral("tray_blink_2")));
        QVERIFY(iconShows(Blink, QStringLiteral("tray_blink_3")));
        m_tray->BlinkStop();
        QVERIFY(!m_tray->BlinkIsRunning());
        QVERIFY(iconShows(Standard, QStringLiteral("tray_blink_stopped")));
    }

    void iconComesBackAfterTheTrayHostRestarts()
    {
        m_tray->BlinkIconPicture(m_blink.get());
        QVERIFY(iconShows(Standard, QStringLiteral("tray_restart_0")));
        m_tray->BlinkStart(300);
        QVERIFY(xtrayCommand(QStringLiteral("kill-trayer")));
        QTest::qWait(2500); // a watch tick sees no tray host
        QVERIFY(xtrayCommand(QStringLiteral("start-trayer")));
        QVERIFY(iconShows(Standard, QStringLiteral("tray_restart_1"), 10000));
        QVERIFY(iconShows(Blink, QStringLiteral("tray_restart_2"), 10000));
        QVERIFY(m_tray->BlinkIsRunning());
        QVERIFY(m_tray->isLoaded());
        QVERIFY(!m_events.join(u' ').contains(QStringLiteral("PgmError")));
    }

    void iconAppearsWhenATrayHostStartsLater()
    {
        m_tray.reset();
        QVERIFY(xtrayCommand(QStringLiteral("kill-trayer")));
        QTRY_VERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
        init(); // added while there is no notification area
        QVERIFY(m_tray->isLoaded());
        QVERIFY(!shell()->trayIcon());
        QVERIFY(xtrayCommand(QStringLiteral("start-trayer")));
        QVERIFY(iconShows(Standard, QStringLiteral("tray_late_host"), 10000));
        QVERIFY(m_events.isEmpty());
    }
};

int main(int argc, char** argv)
{
    useXtrayDisplay();
    QApplication app(argc, argv);
    TestXtray test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_xtray.moc"
