// The tray control and its host window: the real tray on the xtray display, the rest offscreen.
#include "platform/startupentry.h"
#include "testsupport.h"
#include "tray/ctlsystrayballoon.h"
#include "tray/qtsystrayshell.h"

#include <QMenu>
#include <algorithm>
#include <cstdio>
#include <list>

using T = ctlSysTrayBalloon;

// Shared by both: a control whose events are written down: "MouseDown(1)", "PgmError(S,-1,text)".
class TrayTest : public QObject
{
    Q_OBJECT
protected:
    static QtSysTrayShell* shell(T& t) { return static_cast<QtSysTrayShell*>(t.shell()); }
    static quintptr handle(const QLabel& l) { return quintptr(l.pixmap().cacheKey()); }
    bool addIcon()
    {
        m_tray->IconPicture(&m_std);
        return m_tray->SysTrayAddIcon() && m_events.isEmpty();
    }

    QLabel m_std, m_blink; // the shipped icons
    std::unique_ptr<T> m_tray;
    QStringList m_events;

protected slots:
    void init()
    {
        m_std.setPixmap(QPixmap(":/tray/icons/quorvel.png"));
        m_blink.setPixmap(QPixmap(":/tray/icons/quorvel_blink.png"));
        m_events.clear();
        m_tray = std::make_unique<T>();
        const auto on = [this](auto signal) { // each event under the signal's name
            const QString name = QMetaMethod::fromSignal(signal).name();
            connect(m_tray.get(), signal, this, [this, name](const auto&... a) {
                const QStringList args = {QVariant(a).toString()...};
                m_events << (args.isEmpty() ? name : name + '(' + args.join(',') + ')');
            });
        };
        on(&T::MouseMove), on(&T::Click), on(&T::DblClick), on(&T::MouseDown), on(&T::MouseUp);
        on(&T::BalloonClosed), on(&T::BalloonClicked), on(&T::BalloonShow), on(&T::PgmError);
        on(&T::BalloonTimeOut);
    }
    void cleanup()
    {
        m_tray.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        setMsgRecorder({});
        SettingsStore::setFolder(QString());
    }
};

class TestXtray : public TrayTest
{
    Q_OBJECT
    static constexpr QRgb Standard = qRgb(0x1E, 0x5A, 0xC8), Blink = qRgb(0xFF, 0x96, 0x00);

    static QRect iconRect(T& t)
    {
        QSystemTrayIcon* icon = shell(t)->trayIcon();
        return icon ? icon->geometry() : QRect();
    }
    // Waits until the icon (of t, else of m_tray) is embedded, placed and drawn in colour.
    bool shows(QRgb colour, const QString& shot, T* t = nullptr)
    {
        return QTest::qWaitFor(
            [&] {
                QTest::qWait(200);
                const QRect r = iconRect(t ? *t : *m_tray);
                return r.width() >= 4 && countColour(screenshot(shot), r, colour) > 40;
            },
            10000);
    }
    static QWidget* visibleBalloon()
    {
        for (QWidget* w : QApplication::topLevelWidgets())
            if (w->inherits("QBalloonTip") && w->isVisible())
                return w;
        return nullptr;
    }
    // The events become those of WANT (in any order) and nothing follows for a while.
    bool settled(const QString& want)
    {
        const QStringList w = want.split(' ');
        const auto done = [&] {
            return std::is_permutation(m_events.begin(), m_events.end(), w.begin(), w.end());
        };
        return QTest::qWaitFor(done, 5000) && !QTest::qWaitFor([&] { return !done(); }, 300);
    }

private slots:
    void clicks_data()
    {
        QTest::addColumn<int>("button"); // xdotool: 1 left, 2 middle, 3 right
        QTest::addColumn<int>("repeat");
        QTest::addColumn<QString>("events");
        QTest::newRow("left") << 1 << 1 << "MouseDown(1) Click MouseUp(1)";
        QTest::newRow("right") << 3 << 1 << "MouseDown(2) MouseUp(2)";
        QTest::newRow("middle") << 2 << 1 << "MouseDown(4) MouseUp(4)";
        QTest::newRow("double") << 1 << 2 << "MouseDown(1) Click MouseUp(1) DblClick(1)";
    }
    void clicks()
    {
        QFETCH(int, button);
        QFETCH(int, repeat);
        QFETCH(QString, events);
        QVERIFY(addIcon());
        QVERIFY(shows(Standard, "tray_clicks"));
        QVERIFY(clickAt(iconRect(*m_tray).center(), button, repeat));
        QVERIFY2(settled(events), qPrintable(m_events.join(' ')));
    }

    void balloonEnds_data()
    {
        QTest::addColumn<QString>("end");
        QTest::addColumn<QString>("event");
        QTest::newRow("the control's timer is a time-out") << QString("timer") << "BalloonTimeOut";
        QTest::newRow("a click on its text") << QString("text") << "BalloonClicked";
        QTest::newRow("its close button") << QString("button") << "BalloonClosed";
    }
    void balloonEnds()
    {
        QFETCH(QString, end);
        QFETCH(QString, event);
        QVERIFY(addIcon());
        // Shown before the icon is placed it moves later, no close; the timer's waits (README pic).
        QVERIFY(end != "timer" || shows(Standard, "tray_balloon_before"));
        QVERIFY(m_tray->BalloonTipShow("Quorvel", "Job File_261122_201500 printed", 1,
                                       end == "timer" ? 2500 : 60000));
        QTRY_COMPARE(m_events, QStringList{"BalloonShow"});
        QVERIFY(shows(Standard, "tray_balloon_placed"));
        QTest::qWait(300);
        QWidget* balloon = visibleBalloon();
        QVERIFY(balloon);
        const QRect g = balloon->frameGeometry();
        const auto* button = balloon->findChild<QPushButton*>();
        if (end == "timer") { // the control's own, found by its text (the shell keeps it 10 s)
            QVERIFY(saveCrop(screenshot("tray_balloon"),
                             g.united(iconRect(*m_tray)).adjusted(-8, -8, 8, 8), "tray_balloon"));
            QTRY_VERIFY_WITH_TIMEOUT(!visibleBalloon(), 8000);
        } else {
            QVERIFY(button && clickAt(end == "text" ? QPoint(g.left() + 30, g.bottom() - 12)
                                                    : button->mapToGlobal(button->rect().center()),
                                      1));
        }
        QTRY_VERIFY(!visibleBalloon());
        QVERIFY2(settled("BalloonShow " + event), qPrintable(m_events.join(' ')));
    }

    void iconComesBackWithTheTrayHost()
    {
        QVERIFY(addIcon());
        QVERIFY(shows(Standard, "tray_icon"));
        m_tray->BlinkIconPicture(&m_blink);
        m_tray->BlinkStart(400);
        QVERIFY(xtrayCommand("kill-trayer"));
        QTest::qWait(2500); // a watch tick sees no tray host
        QVERIFY(xtrayCommand("start-trayer"));
        QVERIFY(shows(Standard, "tray_restart")); // back, and blinking
        QVERIFY(shows(Blink, "tray_restart"));
        QVERIFY(m_events.isEmpty());
    }

    // Before the tray host the main window loads, says so; the icon's menu, double click show it.
    void hostWindow()
    {
        TestServer s; // a private folder, settings and recorded messages
        qputenv("XDG_CONFIG_HOME", s.root.filePath("config").toUtf8());
        QStringList log;
        Log::setSink([&](const QString& line) { log << line; });
        QVERIFY(xtrayCommand("kill-trayer"));
        QTRY_VERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
        auto form = std::make_unique<frmMain>(freePort());
        Log::setSink({});
        QVERIFY(form->isLoaded());
        QVERIFY(log.join('\n').contains("No notification area on this display"));
        T& t = *form->ctlSysTrayBalloon1;
        const NotifyIconData& r = t.notificationRecord();
        form->cmdMessage1->click(); // a balloon the control closes after 5 s
        QCOMPARE(QList<quint32>({r.uFlags, r.uTimeoutOrVersion}), QList<quint32>({16, 5000}));
        form->cmdClignote1->click(); // blinks and stops quietly
        form->cmdClignote1->click();
        QVERIFY(!t.BlinkIsRunning() && r.hIcon.handle == handle(m_std));
        QVERIFY(xtrayCommand("start-trayer"));
        QVERIFY(shows(Standard, "tray_host", &t));
        QCOMPARE(shell(t)->trayIcon()->toolTip(), "Quorvel");

        QMenu* menu = form->mnuzMonMenu;
        QVERIFY(!form->isVisible());
        QVERIFY(clickAt(iconRect(t).center(), 3));
        QTRY_VERIFY(menu->isVisible());
        QCOMPARE(menu->defaultAction(), form->mnuSettings);
        QVERIFY(clickAt(menu->mapToGlobal(menu->actionGeometry(form->mnuSettings).center()), 1));
        QTRY_VERIFY(form->isVisible() && !menu->isVisible());
        QVERIFY(QTest::qWaitForWindowExposed(form.get()));
        form->setWindowState(Qt::WindowMinimized);
        QTRY_VERIFY(!form->isVisible()); // lives on in the tray
        QTest::qWait(600);               // no double click with the clicks before
        QVERIFY(clickAt(iconRect(t).center(), 1, 2));
        QTRY_VERIFY(form->isVisible() && !(form->windowState() & Qt::WindowMinimized));
        menu->hide(); // the clicks' MouseUp popped it up too

        form->cmdStartStop->click(); // stop and start
        form->cmdStartStop->click();
        QVERIFY(shows(Standard, "tray_host", &t));
        form->cmdAlternanceIcone1->click();
        QVERIFY(shows(Blink, "tray_host", &t));
        form->cmdAlternanceIcone1->click();
        QCOMPARE(r.hIcon.handle, handle(m_std));

        QFile entry(QString::fromStdWString(RunEntryLocation(
            QFileInfo(qApp->applicationFilePath()).completeBaseName().toStdWString())));
        QVERIFY(!form->ChkRun->isChecked());
        form->ChkRun->click(); // ticking writes this program's entry
        QVERIFY(entry.open(QIODevice::ReadWrite));
        QVERIFY(entry.readAll().contains(qApp->applicationDirPath().toUtf8()));
        QVERIFY(entry.resize(0) && entry.write("kept") == 4);
        entry.close();
        form = std::make_unique<frmMain>(freePort()); // shows it, does not write it again
        QVERIFY(form->ChkRun->isChecked() && entry.open(QIODevice::ReadOnly));
        QCOMPARE(entry.readAll(), "kept");
        form->ChkRun->click(); // unticking removes it
        QVERIFY(!entry.exists());
        QVERIFY(s.messages.empty());

        // Adding twice is an error, shown in a critical box; the icon stays.
        QVERIFY(!form->ctlSysTrayBalloon1->SysTrayAddIcon());
        QVERIFY(form->ctlSysTrayBalloon1->isLoaded());
        QCOMPARE(s.messages.size(), size_t(1));
        QCOMPARE(s.messages[0].text, "(1) Erreur -1 - Icône standard non définie");
        QCOMPARE(s.messages[0].title, "ctlSysTrayBalloon1, procédure \"SysTrayAddIcon\"");
        QCOMPARE(s.messages[0].icon, MsgIcon::Critical);
    }
};

class TestOffscreen : public TrayTest
{
    Q_OBJECT
    std::list<QProcess> m_holders;

    // The control's window procedure, as the shell calls it.
    void call(quint32 message, quintptr w, qintptr l = 0)
    {
        m_tray->CallBackProc(m_tray->shell()->window(), message, w, l);
    }
    void notify(quint32 n) { call(tray::WM_TRAYCALLBACK, quintptr(m_tray->iconId()), n); }
    void tick(int timer) { call(tray::WM_TIMER, quintptr(timer)); }
    int period(int timer) { return shell(*m_tray)->timerPeriod(quintptr(timer)); }

    // Another process holding a control, on a namespace of its own; its number.
    int startHolder()
    {
        QProcess& p = m_holders.emplace_back();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QUORVEL_SHM_NAMESPACE", env.value("QUORVEL_SHM_NAMESPACE") + "_holders");
        p.setProcessEnvironment(env);
        p.start(QCoreApplication::applicationFilePath(), {"--hold"});
        // Its number, checked against the icon id it derives from it.
        const QList<QByteArray> got =
            p.waitForReadyRead(10000) ? p.readLine().trimmed().split(' ') : QList<QByteArray>();
        const int n = got.value(0, "-1").toInt();
        return got.value(1).toInt() == 1000 + 4 * (n - 1) ? n : -2;
    }
    bool endHolder(bool kill) // the oldest
    {
        kill ? m_holders.front().kill() : m_holders.front().closeWriteChannel();
        const bool ended = m_holders.front().waitForFinished(10000);
        m_holders.pop_front();
        return ended;
    }

private slots:
    void numbersAcrossProcesses_data()
    {
        QTest::addColumn<bool>("kill");
        QTest::newRow("normal ends") << false;
        QTest::newRow("killed") << true;
    }
    void numbersAcrossProcesses()
    {
        QFETCH(bool, kill);
        QCOMPARE(startHolder(), 1); // the holders' namespace is private
        QCOMPARE(startHolder(), 2);
        QVERIFY(endHolder(false)); // while one holder lives, numbers keep moving up
        QCOMPARE(startHolder(), 3);
        while (!m_holders.empty()) // once every holder has ended, even killed, back to 1
            QVERIFY(endHolder(kill));
        QCOMPARE(startHolder(), 1);
        QVERIFY(endHolder(false)); // the last one takes the segment with it
    }

    void misuseIsAPgmError()
    {
        QVERIFY(m_tray->SysTrayRemoveIcon().isNull());
        QVERIFY(!m_tray->BalloonTipShow("t", "m", 1, 1000));
        m_tray->BlinkStart(500);
        QVERIFY(!m_tray->SysTrayAddIcon()); // no standard icon
        QVERIFY(!m_tray->isLoaded() && !m_tray->BlinkIsRunning());
        m_tray->IconPicture(nullptr); // a run-time error inside a routine
        QCOMPARE(m_events.join('\n'),
                 "PgmError(SysTrayRemoveIcon,-1,SysTray non chargé)\n"
                 "PgmError(BalloonTipShow,-1,SysTray non chargé)\n"
                 "PgmError(BlinkStart,-1,SysTray non démarré)\n"
                 "PgmError(Initialize,0,)\n"
                 "PgmError(IconPicture,91,Object variable or With block variable not set)");
    }

    void fixedTextsKeepHalfTheBytesLessOne_data()
    {
        QTest::addColumn<int>("field"); // 0 tooltip, 1 balloon title, 2 balloon text
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("kept");
        QTest::newRow("tooltip 127") << 0 << 127 << 127;
        QTest::newRow("tooltip 128") << 0 << 128 << 127;
        QTest::newRow("title 5") << 1 << 5 << 5;
        QTest::newRow("title 64") << 1 << 64 << 63;
        QTest::newRow("text 300") << 2 << 300 << 255;
    }
    void fixedTextsKeepHalfTheBytesLessOne()
    {
        QFETCH(int, field);
        QFETCH(int, length);
        QFETCH(int, kept);
        QVERIFY(addIcon());
        QString text = "Icône ✓ "; // copied as UTF-16
        while (text.size() < length)
            text += QChar(char16_t(u'a' + text.size() % 26));
        // Leftovers must not show; the empty text keeps the previous one.
        for (const QString& s : {QString(300, u'x'), text.left(length), QString()})
            field == 0
                ? m_tray->setTooltip(s)
                : void(m_tray->BalloonTipShow(field == 1 ? s : "T", field == 2 ? s : "M", 1, 9));
        const NotifyIconData& r = m_tray->notificationRecord();
        const QString chars = field == 0 ? m_tray->Tooltip()
                                         : FixedBufferChars(field == 1 ? r.szInfoTitle : r.szInfo);
        QCOMPARE(chars, text.left(kept) + QString(chars.size() - kept, QChar(0)));
        if (field == 0) // the whole field, whatever was written
            QCOMPARE(chars.size(), 128);
    }

    // Those of the real clicks and balloons are checked on the xtray display.
    void notificationDispatch_data()
    {
        using namespace tray;
        QTest::addColumn<quint32>("notification");
        QTest::addColumn<QString>("events");
        QTest::newRow("move") << WM_MOUSEMOVE << "MouseMove";
        QTest::newRow("right double") << WM_RBUTTONDBLCLK << "DblClick(2)";
        QTest::newRow("middle double") << WM_MBUTTONDBLCLK << "DblClick(4)";
        QTest::newRow("balloon hidden") << NIN_BALLOONHIDE << "BalloonTimeOut";
        QTest::newRow("select") << NIN_SELECT << "";
        QTest::newRow("key select") << NIN_KEYSELECT << "";
    }
    void notificationDispatch()
    {
        QFETCH(quint32, notification);
        QFETCH(QString, events);
        notify(notification); // not subclassed yet: nothing
        QVERIFY(addIcon());
        notify(notification);
        QCOMPARE(m_events.join(' '), events);
    }

    void balloonTimerLastBalloonAndRemoval()
    {
        using namespace tray;
        QVERIFY(addIcon());
        const int watch = m_tray->taskbarTimerId(), balloon = m_tray->balloonTimerId();
        QVERIFY(m_tray->BalloonTipShow("T", "M", 1, 0));
        notify(NIN_BALLOONSHOW); // a timeout below 1 starts no timer
        QCOMPARE(period(balloon), -1);
        QVERIFY(m_tray->BalloonTipShow("T", "M", 2, 5000));
        QCOMPARE(period(balloon), -1); // not before the shell shows it
        notify(NIN_BALLOONSHOW);
        notify(NIN_BALLOONUSERCLICK); // keeps running
        QCOMPARE(period(balloon), 5000);
        notify(NIN_BALLOONTIMEOUT);
        QCOMPARE(period(balloon), -1);
        notify(NIN_BALLOONSHOW);
        tick(balloon); // auto-close: stops itself, finds no balloon here
        QCOMPARE(period(balloon), -1);
        // Showing the last balloon again needs both texts and a timeout.
        const NotifyIconData& r = m_tray->notificationRecord();
        for (const auto& [title, timeout] : {std::pair{"", 900}, {"Title", 0}, {"Title", 900}}) {
            QVERIFY(m_tray->BalloonTipShow(title, "Text", 2, timeout));
            m_tray->setTooltip("refreshed"); // back to icon and tooltip
            m_tray->BalloonTipShowLast();
            QCOMPARE(r.uFlags, *title && timeout ? NIF_INFO : 7u);
        }
        QCOMPARE(QList<quint32>({r.uTimeoutOrVersion, r.dwInfoFlags}), QList<quint32>({900, 2}));

        notify(NIN_BALLOONSHOW);
        m_tray->BlinkStart(200);
        QCOMPARE(m_tray->SysTrayRemoveIcon(), QVariant(true));
        QVERIFY(!m_tray->BlinkIsRunning());
        for (int id : {watch, balloon, m_tray->blinkTimerId()})
            QCOMPARE(period(id), -1);
        m_events.clear();
        notify(WM_LBUTTONUP); // no longer subclassed
        QVERIFY(m_events.isEmpty());
        // Numbers are never given back within a process; the design size is kept.
        const qint32 id = m_tray->ID();
        m_tray.reset();
        T next;
        QCOMPARE(next.ID(), id + 1);
        next.resize(300, 300);
        QCOMPARE(next.size(), QSize(81, 25));
    }

    void blinkKeepsItsPhase()
    {
        QVERIFY(addIcon());
        const int timer = m_tray->blinkTimerId();
        m_tray->BlinkStart(50);
        QCOMPARE(period(timer), 200); // the floor
        tick(timer);                  // no blink icon: an empty slot
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, quintptr(0));
        m_tray->BlinkStop();
        QVERIFY(!m_tray->BlinkIsRunning() && period(timer) == -1);
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, handle(m_std));
        m_tray->BlinkIconPicture(&m_blink);
        m_tray->BlinkStart(1000);
        QCOMPARE(period(timer), 1000);
        m_tray->BlinkStart(700); // while blinking: the new period
        QCOMPARE(period(timer), 700);
        tick(timer); // the phase was kept: the standard icon comes next
        QCOMPARE(m_tray->notificationRecord().hIcon.handle, handle(m_std));
        QVERIFY(m_events.isEmpty());
        QLabel none;
        m_tray->IconPicture(&none);
        tick(timer); // the blink icon
        tick(timer); // no standard icon: blinking stops
        QVERIFY(!m_tray->BlinkIsRunning() && period(timer) == -1);
        QCOMPARE(m_events, QStringList{"PgmError(BlinkSwapIcons,-2,Icône standard non définie)"});
    }
};

int main(int argc, char** argv)
{
    const bool xtray = qgetenv("QT_QPA_PLATFORM") == "xcb";
    if (xtray)
        useXtrayDisplay();
    QApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "--hold") == 0) {
        // A holder for the counter test: its number, then it stays until its input closes.
        T tray;
        std::printf("%d %d\n", tray.ID(), tray.iconId());
        std::fflush(stdout);
        while (std::getchar() != EOF) {
        }
        return 0;
    }
    QApplication::setQuitOnLastWindowClosed(false);
    TestXtray onDisplay;
    TestOffscreen offscreen;
    return QTest::qExec(xtray ? static_cast<QObject*>(&onDisplay) : &offscreen, argc, argv);
}

#include "tst_tray.moc"
