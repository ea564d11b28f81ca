// The scan window: names from the command's text, one address line per
// name (empty when it does not resolve), the two lists kept in step.
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "testsupport.h"
#include "netscan/frmnetscan.h"
#include "server/frmmain.h"

#include <QElapsedTimer>
#include <QHostInfo>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

class TestNetScanWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // An unresolvable name that never leaves the machine.
        QCOMPARE(QHostInfo::fromName(QStringLiteral("no..such")).error(), QHostInfo::HostNotFound);
    }

    void scanListsNamesAndAddresses()
    {
        QList<Message> messages;
        setMsgRecorder([&](const Message& m) { messages << m; });
        auto* form = new FrmNetScan;
        const QString out = QStringLiteral("Server Name            Remark\r\n\r\n"
                                           "\\\\localhost            This computer\r\n"
                                           "\\\\no..such             Gone\r\n"
                                           "\\\\localhost\r\n"
                                           "The command completed successfully.\r\n\r\n");
        form->ScanOutput(out);
        QCOMPARE(form->Text2->toPlainText(), QString(out).remove(u'\r'));
        QCOMPARE(form->lstComps->count(), 3);
        QCOMPARE(form->List1->count(), 3);
        QCOMPARE(form->nameWidth(), 11);
        QCOMPARE(form->List1->item(0)->text(), QStringLiteral("localhost  | 127.0.0.1"));
        QCOMPARE(form->List1->item(1)->text(), QString());
        QCOMPARE(form->List1->item(2)->text(), QStringLiteral("localhost  | 127.0.0.1"));
        QCOMPARE(form->List1->currentRow(), 0);
        QCOMPARE(form->lstComps->currentRow(), 0);

        form->List1->setCurrentRow(2);
        form->List1_Click();
        QCOMPARE(form->lstComps->currentRow(), 2);
        form->lstComps->setCurrentRow(1);
        form->lstComps_Click();
        QCOMPARE(form->List1->currentRow(), 1);

        // A second scan starts from empty lists.
        form->ScanOutput(QStringLiteral("There are no entries in the list.\r\n"));
        QCOMPARE(form->lstComps->count(), 0);
        QCOMPARE(form->List1->count(), 0);
        QVERIFY(form->logPath().endsWith(QStringLiteral("log.txt")));
        form->close(); // deletes itself
        QVERIFY(messages.isEmpty());
        setMsgRecorder({});
    }

    void openedFromTheMainWindow()
    {
        QTemporaryDir dir;
        Paths::setProgramFolder(dir.path());
        SettingsStore::setFolder(dir.filePath(QStringLiteral("settings")));
        frmMain form(freePort());
        QVERIFY(!form.findChild<FrmNetScan*>());
        form.Command3->click();
        auto* scan = form.findChild<FrmNetScan*>();
        QVERIFY(scan);
        QVERIFY(scan->isVisible());
        QVERIFY(scan->isWindow());
        QCOMPARE(scan->lstComps->count(), 0); // the scan waits for its button
        scan->close();
        SettingsStore::setFolder(QString());
    }
};

QTEST_MAIN(TestNetScanWindow)
#include "tst_window.moc"
