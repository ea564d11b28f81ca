// The main window as host of the tray icon, in a real notification area:
// start/stop, the menu, restore, the error box, the demonstration buttons
// and the "Run Program on Windows Startup" box.
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "freeport.h"
#include "platform/startupentry.h"
#include "server/frmMain.h"
#include "tray/ctlSysTrayBalloon.h"
#include "tray/qtsystrayshell.h"
#include "xtray.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QFileInfo>
#include <QGroupBox>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

class TestHost : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_dir;
    QList<Message> m_messages;

    static QRect iconRect(frmMain& form)
    {
        auto* shell = static_cast<QtSysTrayShell*>(form.ctlSysTrayBalloon1->shell());
        return shell->trayIcon() ? shell->trayIcon()->geometry() : QRect();
    }
    static bool iconEmbedded(frmMain& form)
    {
        // Embedded and placed by the tray host (a new icon first sits at 0,0).
        return QTest::qWaitFor(
            [&] {
                const QRect r = iconRect(form);
                return r.width() > 4 && r.topLeft() != QPoint(0, 0);
            },
            8000);
    }
    static void click(const QPoint& p, int button, int repeat = 1)
    {
        QVERIFY(
            xdotool({QStringLiteral("mousemove"), QString::number(p.x()), QString::number(p.y()),
                     QStringLiteral("click"), QStringLiteral("--repeat"), QString::number(repeat),
                     QStringLiteral("--delay"), QStringLiteral("80"), QString::number(button)}));
    }
    QString entryPath() const
    {
        return RunEntryLocation(
            QFileInfo(QCoreApplication::applicationFilePath()).completeBaseName());
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        Paths::setProgramFolder(m_dir->path());
        SettingsStore::setFolder(m_dir->filePath(QStringLiteral("settings")));
        qputenv("XDG_CONFIG_HOME", m_dir->filePath(QStringLiteral("config")).toUtf8());
        m_messages.clear();
        setMsgRecorder([this](const Message& m) { m_messages << m; });
    }
    void cleanup()
    {
        setMsgRecorder({});
        SettingsStore::setFolder(QString());
    }

    void loadStartsTheIconAndStopStartToggles()
    {
        frmMain form(freePort());
        QVERIFY(form.ctlSysTrayBalloon1->isLoaded());
        QCOMPARE(form.cmdStartStop->text(), QStringLiteral("Stop SysTray"));
        QVERIFY(iconEmbedded(form));
        QCOMPARE(
            static_cast<QtSysTrayShell*>(form.ctlSysTrayBalloon1->shell())->trayIcon()->toolTip(),
            QStringLiteral("Quorvel"));
        form.cmdStartStop->click();
        QCOMPARE(form.cmdStartStop->text(), QStringLiteral("Start SysTray"));
        QVERIFY(!form.ctlSysTrayBalloon1->isLoaded());
        form.cmdStartStop->click();
        QCOMPARE(form.cmdStartStop->text(), QStringLiteral("Stop SysTray"));
        QVERIFY(form.ctlSysTrayBalloon1->isLoaded());
        QVERIFY(m_messages.isEmpty());
    }

    void pgmErrorIsACriticalBox()
    {
        frmMain form(freePort());
        QVERIFY(!form.ctlSysTrayBalloon1->SysTrayAddIcon());
        QCOMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].text, QStringLiteral("(1) Erreur -1 - Icône standard non définie"));
        QCOMPARE(m_messages[0].icon, MsgIcon::Critical);
        QCOMPARE(m_messages[0].title,
                 QStringLiteral("ctlSysTrayBalloon1, procédure \"SysTrayAddIcon\""));
    }

    void rightClickPopsTheMenuAndSettingsRestores()
    {
        frmMain form(freePort());
        QVERIFY(iconEmbedded(form));
        QVERIFY(!form.isVisible());
        click(iconRect(form).center(), 3);
        QTRY_VERIFY(form.mnuzMonMenu->isVisible());
        QCOMPARE(form.mnuzMonMenu->defaultAction(), form.mnuSettings);
        const QStringList texts = {form.mnuzMonMenu->actions()[0]->text(),
                                   form.mnuzMonMenu->actions()[2]->text()};
        QCOMPARE(texts, QStringList({"Settings", "Exit"}));
        QVERIFY(form.mnuzLigne->isSeparator());
        QTest::qWait(300);
        const QImage shot = screenshot(QStringLiteral("tray_menu"));
        const QRect area =
            form.mnuzMonMenu->geometry().united(iconRect(form)).adjusted(-24, -8, 16, 24);
        QVERIFY(shot.copy(area).save(qEnvironmentVariable("QUORVEL_SCREENSHOTS") +
                                     QStringLiteral("/tray_menu_crop.png")));
        const QRect item = form.mnuzMonMenu->actionGeometry(form.mnuSettings);
        click(form.mnuzMonMenu->mapToGlobal(item.center()), 1);
        QTRY_VERIFY(form.isVisible());
        QTRY_VERIFY(!form.mnuzMonMenu->isVisible());
    }

    void doubleClickRestoresAMinimisedWindow()
    {
        frmMain form(freePort());
        form.show();
        QVERIFY(QTest::qWaitForWindowExposed(&form));
        form.setWindowState(Qt::WindowMinimized);
        QTRY_VERIFY(!form.isVisible()); // lives on in the tray
        QVERIFY(iconEmbedded(form));
        click(iconRect(form).center(), 1, 2);
        QTRY_VERIFY(form.isVisible());
        QVERIFY(!(form.windowState() & Qt::WindowMinimized));
        form.mnuzMonMenu->hide(); // the clicks' MouseUp popped it up too
    }

    void demonstrationButtons()
    {
        frmMain form(freePort());
        ctlSysTrayBalloon* t = form.ctlSysTrayBalloon1;
        form.cmdClignote1->click();
        QVERIFY(t->BlinkIsRunning());
        form.cmdClignote1->click();
        QVERIFY(!t->BlinkIsRunning());

        const quintptr before = t->notificationRecord().hIcon.handle;
        form.cmdAlternanceIcone1->click();
        QVERIFY(t->notificationRecord().hIcon.handle != before);
        form.cmdAlternanceIcone1->click();
        QCOMPARE(t->notificationRecord().hIcon.handle, before);

        QVERIFY(iconEmbedded(form));
        QSignalSpy shown(t, &ctlSysTrayBalloon::BalloonShow);
        QSignalSpy timedOut(t, &ctlSysTrayBalloon::BalloonTimeOut);
        form.cmdMessage1->click();
        QVERIFY(shown.wait(5000));
        QVERIFY(timedOut.wait(10000));
        QVERIFY(m_messages.isEmpty());
    }

    void startupEntryFollowsTheBox()
    {
        QVERIFY(!QFile::exists(entryPath()));
        {
            frmMain form(freePort());
            QVERIFY(!form.ChkRun->isChecked());
            form.ChkRun->click();
            QVERIFY(form.ChkRun->isChecked());
            QVERIFY(QFile::exists(entryPath()));
            QVERIFY(entryPath().startsWith(m_dir->filePath(QStringLiteral("config/autostart/"))));
            QFile f(entryPath());
            QVERIFY(f.open(QIODevice::ReadOnly));
            QVERIFY(f.readAll().contains(QCoreApplication::applicationDirPath().toUtf8()));
        }
        {
            // Start-up shows what is there and does not write it again.
            QFile f(entryPath());
            QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
            f.write("[Desktop Entry]\nExec=kept-as-is\n");
            f.close();
            frmMain form(freePort());
            QVERIFY(form.ChkRun->isChecked());
            QVERIFY(f.open(QIODevice::ReadOnly));
            QCOMPARE(f.readAll(), QByteArray("[Desktop Entry]\nExec=kept-as-is\n"));
            f.close();
            form.ChkRun->click();
            QVERIFY(!QFile::exists(entryPath()));
        }
        frmMain form(freePort());
        QVERIFY(!form.ChkRun->isChecked());
        QVERIFY(m_messages.isEmpty());
    }
};

int main(int argc, char** argv)
{
    useXtrayDisplay();
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    TestHost test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_host.moc"
