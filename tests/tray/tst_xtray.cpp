// The tray icon in a real notification area: Xvfb with trayer, clicks sent
// with xdotool, screenshots taken with ImageMagick.
#include "traytest.h"
#include "xtray.h"

#include <QApplication>
#include <QPushButton>
#include <QTest>

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
} // namespace

class TestXtray : public QObject
{
    Q_OBJECT
    std::unique_ptr<QLabel> m_std, m_blink;
    std::unique_ptr<ctlSysTrayBalloon> m_tray;
    QStringList m_events; // PgmError included

    QRect iconRect() { return trayIconRect(m_tray.get()); }

    // Waits until the icon is embedded and drawn in the given colour.
    bool iconShows(QRgb colour, const QString& shot, int timeoutMs = 8000)
    {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < timeoutMs) {
            QTest::qWait(200);
            const QRect r = iconRect();
            if (r.width() >= 4 && countColour(screenshot(shot), r, colour) > 40)
                return true;
        }
        return false;
    }

    // The events become WANT and nothing follows for a while.
    bool settled(const QStringList& want, int timeoutMs = 5000)
    {
        if (!QTest::qWaitFor([&] { return m_events == want; }, timeoutMs))
            return false;
        QTest::qWait(300);
        return m_events == want;
    }

    // A balloon without timeout, shown and left alone for a moment.
    QWidget* showBalloon(const QString& text)
    {
        m_events.clear();
        if (!m_tray->BalloonTipShow(QStringLiteral("Quorvel"), text, 0, 0) ||
            !QTest::qWaitFor([&] { return m_events == QStringList({"BalloonShow"}); }))
            return nullptr;
        QTest::qWait(300);
        return visibleBalloon();
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(QSystemTrayIcon::isSystemTrayAvailable(), "no tray host on the test display");
        m_std = iconLabel(QStringLiteral("quorvel"));
        m_blink = iconLabel(QStringLiteral("quorvel_blink"));
    }

    void init()
    {
        m_events.clear();
        m_tray = std::make_unique<ctlSysTrayBalloon>();
        recordTrayEvents(m_tray.get(), this, m_events);
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
        // The README's picture: the tray host's corner of the screen.
        const QRect icon = iconRect();
        QVERIFY(saveCrop(screenshot(QStringLiteral("tray_icon")),
                         QRect(icon.right() - 159, 0, 160 + 8, icon.bottom() + 12),
                         QStringLiteral("tray_icon")));
        QVERIFY(m_events.isEmpty());
    }

    void clicksGiveTheEventOrder()
    {
        QVERIFY(iconShows(Standard, QStringLiteral("tray_clicks")));
        const QPoint centre = iconRect().center();
        const QList<QPair<int, QStringList>> clicks = {{1, {"MouseDown(1)", "Click", "MouseUp(1)"}},
                                                       {3, {"MouseDown(2)", "MouseUp(2)"}},
                                                       {2, {"MouseDown(4)", "MouseUp(4)"}}};
        for (const auto& [button, events] : clicks) {
            m_events.clear();
            QVERIFY(clickAt(centre, button));
            QTRY_COMPARE(m_events, events);
        }
        m_events.clear();
        QTest::qWait(600); // no double click with the clicks before
        QVERIFY(clickAt(centre, 1, 2));
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
        QVERIFY(
            saveCrop(screenshot(QStringLiteral("tray_balloon")),
                     visibleBalloon()->frameGeometry().united(iconRect()).adjusted(-8, -8, 8, 8),
                     QStringLiteral("tray_balloon")));
        // The control's own timer closes it (the shell would keep it 10 s).
        QTRY_VERIFY_WITH_TIMEOUT(!visibleBalloon(), 8000);
        QVERIFY2(settled({"BalloonShow", "BalloonTimeOut"}), qPrintable(m_events.join(u',')));
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
        QVERIFY2(settled({"BalloonShow", "BalloonTimeOut"}), qPrintable(m_events.join(u',')));
    }

    void userClicksOnTheBalloon()
    {
        QVERIFY(iconShows(Standard, QStringLiteral("tray_balloon_click")));
        // On its text: a user click.
        QWidget* balloon = showBalloon(QStringLiteral("Click me"));
        QVERIFY(balloon);
        const QRect g = balloon->frameGeometry();
        QVERIFY(clickAt(QPoint(g.left() + 30, g.bottom() - 12), 1));
        QTRY_VERIFY(!visibleBalloon());
        QVERIFY2(settled({"BalloonShow", "BalloonClicked"}), qPrintable(m_events.join(u',')));

        // On its close button: closed.
        balloon = showBalloon(QStringLiteral("Close me"));
        QVERIFY(balloon);
        auto* button = balloon->findChild<QPushButton*>();
        QVERIFY(button);
        QVERIFY(clickAt(button->mapToGlobal(button->rect().center()), 1));
        QVERIFY2(settled({"BalloonShow", "BalloonClosed"}), qPrintable(m_events.join(u',')));
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
        QVERIFY(!trayShell(m_tray.get())->trayIcon());
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
