// Without a notification area (offscreen, as in a headless run) the window
// still loads; the log says the icon is missing, and no error box appears.
#include "common/log.h"
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "testsupport.h"
#include "server/frmmain.h"
#include "tray/ctlsystrayballoon.h"

#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>

class TestHeadless : public QObject
{
    Q_OBJECT
private slots:
    void loadsWithoutTheIconAndSaysSo()
    {
        QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
        QTemporaryDir dir;
        Paths::setProgramFolder(dir.path());
        SettingsStore::setFolder(dir.filePath(QStringLiteral("settings")));
        QList<Message> messages;
        setMsgRecorder([&](const Message& m) { messages << m; });
        QStringList log;
        Log::setSink([&](const QString& line) { log << line; });

        frmMain form(freePort());
        QVERIFY(form.isLoaded());
        QVERIFY(log.join(u'\n').contains(QStringLiteral("No notification area on this display")));
        QCOMPARE(form.cmdStartStop->text(), QStringLiteral("Stop SysTray"));
        QVERIFY(messages.isEmpty());
        // Balloons and blinking go on quietly with nowhere to show.
        form.cmdMessage1->click();
        form.cmdClignote1->click();
        QVERIFY(form.ctlSysTrayBalloon1->BlinkIsRunning());
        QVERIFY(messages.isEmpty());

        Log::setSink({});
        setMsgRecorder({});
        SettingsStore::setFolder(QString());
    }
};

QTEST_MAIN(TestHeadless)
#include "tst_headless.moc"
