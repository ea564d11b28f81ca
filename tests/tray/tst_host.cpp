// The main window as host of the tray icon, in a real notification area:
// start/stop, the menu, restore, the error box, the demonstration buttons
// and the "Run Program on Windows Startup" box.
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "testsupport.h"
#include "platform/startupentry.h"
#include "server/frmmain.h"
#include "traytest.h"
#include "xtray.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QFileInfo>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

class TestHost : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_dir;
    QList<Message> m_messages;

    static QRect iconRect(frmMain& form) { return trayIconRect(form.ctlSysTrayBalloon1); }
    static bool iconEmbedded(frmMain& form)
    {
        // Embedded and placed by the tray host (a new icon first sits at 0,0).
        return QTest::qWaitFor(
            [&] { return iconRect(form).width() > 4 && iconRect(form).topLeft() != QPoint(); },
            8000);
    }
    QString entryPath() const
    {
        return RunEntryLocation(
            QFileInfo(QCoreApplication::applicationFilePath()).completeBaseName());
    }
    QByteArray entryText() const
    {
        QFile f(entryPath());
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
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
        QCOMPARE(trayShell(form.ctlSysTrayBalloon1)->trayIcon()->toolTip(),
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
        QVERIFY(clickAt(iconRect(form).center(), 3));
        QTRY_VERIFY(form.mnuzMonMenu->isVisible());
        QCOMPARE(form.mnuzMonMenu->defaultAction(), form.mnuSettings);
        const QStringList texts = {form.mnuzMonMenu->actions()[0]->text(),
                                   form.mnuzMonMenu->actions()[2]->text()};
        QCOMPARE(texts, QStringList({"Settings", "Exit"}));
        QVERIFY(form.mnuzLigne->isSeparator());
        QTest::qWait(300);
        QVERIFY(
            saveCrop(screenshot(QStringLiteral("tray_menu")),
                     form.mnuzMonMenu->geometry().united(iconRect(form)).adjusted(-24, -8, 16, 24),
                     QStringLiteral("tray_menu")));
        const QRect item = form.mnuzMonMenu->actionGeometry(form.mnuSettings);
        QVERIFY(clickAt(form.mnuzMonMenu->mapToGlobal(item.center()), 1));
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
        QVERIFY(clickAt(iconRect(form).center(), 1, 2));
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
        const QByteArray kept("[Desktop Entry]\nExec=kept-as-is\n");
        QVERIFY(!QFile::exists(entryPath()));
        {
            frmMain form(freePort());
            QVERIFY(!form.ChkRun->isChecked());
            form.ChkRun->click(); // ticking writes the user's entry for this program
            QVERIFY(entryPath().startsWith(m_dir->filePath(QStringLiteral("config/autostart/"))));
            QVERIFY(entryText().contains(QCoreApplication::applicationDirPath().toUtf8()));
        }
        {
            // Start-up shows what is there and does not write it again.
            QFile f(entryPath());
            QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
            f.write(kept);
            f.close();
            frmMain form(freePort());
            QVERIFY(form.ChkRun->isChecked());
            QCOMPARE(entryText(), kept);
            form.ChkRun->click(); // unticking removes it
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
