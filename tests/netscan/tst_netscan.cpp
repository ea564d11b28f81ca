// Names cut out of "net view", an aligned address line per name (empty: unresolved), lists in step.
#include "common/runtimeerror.h"
#include "netscan/frmnetscan.h"
#include "netscan/netviewparser.h"
#include "testsupport.h"

#include <QPlainTextEdit>

class TestNetScan : public QObject
{
    Q_OBJECT
private slots:
    void parse_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<int>("width");
        const QString done = "The command completed successfully.\r\n";
        QTest::newRow("header and remarks cut, closing line dropped")
            << "Server Name  Remark\r\n---\r\n\\\\ACCOUNTING  Accounts\r\n\\\\FILESERVER\r\n" + done
            << QStringList{"ACCOUNTING ", "FILESERVER"} << 12;
        // The last part is taken again as a whole, up to the closing line.
        QTest::newRow("last entry keeps its remark")
            << "\\\\NAS   Storage\r\n\\\\WS-042               Bob's desk\r\n" + done
            << QStringList{"NAS ", "WS-042               Bob's desk"} << 33;
        QTest::newRow("no closing line: last part whole")
            << QString("\\\\ONE two\r\n\\\\LAST\r\n") << QStringList{"ONE ", "LAST"} << 6;
        QTest::newRow("empty list")
            << QString("There are no entries in the list.\r\n\r\n") << QStringList() << 2;
    }
    void parse()
    {
        QFETCH(QString, output);
        QFETCH(QStringList, names);
        QFETCH(int, width);
        int pumped = 0;
        const NetViewNames r = ParseNetView(output, [&] { ++pumped; });
        QCOMPARE(r.names, names);
        QCOMPARE(int(r.nameWidth), width);
        QCOMPARE(pumped, names.size());  // events handled once per name
        for (const QString& n : r.names) // the address column at one place
            QCOMPARE(NetScanLine(n, r.nameWidth, "10.0.0.1").indexOf(u'|'), width);
    }

    void cutsAndRunTimeErrors()
    {
        QCOMPARE(TrimBlanks("  a b \t "), "a b \t"); // spaces only
        QVERIFY_THROWS_EXCEPTION(RuntimeError, NetScanLine("LONGER-NAME", 4, "x"));
        // "The" within the first two characters of the last part cannot be cut before.
        try {
            ParseNetView("\\\\Theatre\r\n");
            QFAIL("no run-time error");
        } catch (const RuntimeError& e) {
            QCOMPARE(e.number(), 5);
        }
    }

    void scanFromTheMainWindow()
    {
        TestServer s; // a private folder, settings and recorded messages
        frmMain form(freePort());
        QVERIFY(!form.findChild<FrmNetScan*>());
        form.Command3->click();
        auto* scan = form.findChild<FrmNetScan*>();
        QVERIFY(scan && scan->isVisible() && scan->isWindow());
        QCOMPARE(scan->lstComps->count(), 0); // the scan waits for its button

        const QString out = "\\\\localhost            This computer\r\n\\\\no..such    Gone\r\n"
                            "\\\\localhost\r\nThe command completed successfully.\r\n\r\n";
        scan->ScanOutput("\\\\no..such\r\n");
        scan->ScanOutput(out); // starts from empty lists
        QCOMPARE(scan->Text2->toPlainText(), QString(out).remove(u'\r'));
        QCOMPARE(rowTexts(scan->List1),
                 QStringList({"localhost  | 127.0.0.1", "", "localhost  | 127.0.0.1"}));
        QCOMPARE(QList({scan->List1->currentRow(), scan->lstComps->currentRow()}), QList({0, 0}));
        scan->List1->setCurrentRow(2);
        scan->List1_Click();
        QCOMPARE(scan->lstComps->currentRow(), 2);
        scan->lstComps->setCurrentRow(1);
        scan->lstComps_Click();
        QCOMPARE(scan->List1->currentRow(), 1);

        QVERIFY(s.messages.empty());
    }
};

QTEST_MAIN(TestNetScan)
#include "tst_netscan.moc"
