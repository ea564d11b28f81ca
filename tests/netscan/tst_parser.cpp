// Cutting computer names out of "net view" and aligning the address column.
#include "common/runtimeerror.h"
#include "netscan/netviewparser.h"

#include <QTest>

namespace
{
QString lines(const QStringList& l)
{
    return l.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n");
}
const QString Header = QStringLiteral("Server Name            Remark\r\n\r\n") + QString(79, u'-') +
                       QStringLiteral("\r\n");
const QString Done = QStringLiteral("The command completed successfully.");
} // namespace

class TestNetViewParser : public QObject
{
    Q_OBJECT
private slots:
    void remarksAreCutAndTheClosingLineDropped()
    {
        const QString out =
            Header + lines({QStringLiteral("\\\\ACCOUNTING           Accounts PC"),
                            QStringLiteral("\\\\FILESERVER           Main file server"),
                            QStringLiteral("\\\\PRINTSRV"), Done, QString()});
        int pumped = 0;
        const NetViewNames r = ParseNetView(out, [&] { ++pumped; });
        QCOMPARE(r.names, QStringList({"ACCOUNTING ", "FILESERVER ", "PRINTSRV"}));
        QCOMPARE(int(r.nameWidth), 12);
        QCOMPARE(pumped, 3);
    }

    void lastEntryKeepsItsRemark()
    {
        // The last part is taken again as a whole, up to the closing line.
        const QString out = Header + lines({QStringLiteral("\\\\NAS                  Storage"),
                                            QStringLiteral("\\\\WS-042               Bob's desk"),
                                            Done, QString()});
        const NetViewNames r = ParseNetView(out);
        QCOMPARE(r.names, QStringList({"NAS ", "WS-042               Bob's desk"}));
        QCOMPARE(int(r.nameWidth), 33);
    }

    void longNameSetsTheWidth()
    {
        const QString out = Header + lines({QStringLiteral("\\\\A                    x"),
                                            QStringLiteral("\\\\DESIGN-WORKSTATION-0042 CAD"),
                                            QStringLiteral("\\\\B"), Done});
        const NetViewNames r = ParseNetView(out);
        QCOMPARE(r.names, QStringList({"A ", "DESIGN-WORKSTATION-0042 ", "B"}));
        QCOMPARE(int(r.nameWidth), 25);
        QStringList aligned;
        for (const QString& n : r.names)
            aligned << NetScanLine(n, r.nameWidth, QStringLiteral("10.0.0.1"));
        for (const QString& l : aligned)
            QCOMPARE(l.indexOf(QStringLiteral("| ")), 25);
        QCOMPARE(aligned[0],
                 QStringLiteral("A") + QString(24, u' ') + QStringLiteral("| 10.0.0.1"));
    }

    void withoutClosingLineTheLastPartIsTakenWhole()
    {
        const NetViewNames r = ParseNetView(QStringLiteral("\\\\ONE two\r\n\\\\LAST\r\n"));
        QCOMPARE(r.names, QStringList({"ONE ", "LAST"}));
        QCOMPARE(int(r.nameWidth), 6);
    }

    void noComputers_data()
    {
        QTest::addColumn<QString>("output");
        QTest::newRow("empty list") << QStringLiteral("There are no entries in the list.\r\n\r\n");
        QTest::newRow("error") << QStringLiteral("System error 6118 has occurred.\r\n\r\n");
        QTest::newRow("nothing") << QString();
    }
    void noComputers()
    {
        QFETCH(QString, output);
        const NetViewNames r = ParseNetView(output);
        QVERIFY(r.names.isEmpty());
        QCOMPARE(int(r.nameWidth), 2);
    }

    void closingLineTooCloseToTheStartIsARunTimeError()
    {
        // "The" within the first two characters of the last part cannot be cut before.
        QVERIFY_THROWS_EXCEPTION(RuntimeError, ParseNetView(QStringLiteral("\\\\Theatre\r\n")));
        try {
            ParseNetView(QStringLiteral("\\\\Theatre\r\n"));
        } catch (const RuntimeError& e) {
            QCOMPARE(e.number(), 5);
        }
    }

    void lineAlignment()
    {
        QCOMPARE(NetScanLine(QStringLiteral("SERVER "), 12, QStringLiteral("192.168.1.20")),
                 QStringLiteral("SERVER      | 192.168.1.20"));
        QVERIFY_THROWS_EXCEPTION(RuntimeError, NetScanLine(QStringLiteral("LONGER-NAME"), 4, "x"));
        QCOMPARE(TrimBlanks(QStringLiteral("  a b \t ")), QStringLiteral("a b \t"));
        QCOMPARE(int(hibyte(0x0201)), 2);
        QCOMPARE(int(lobyte(0x0201)), 1);
    }
};

QTEST_APPLESS_MAIN(TestNetViewParser)
#include "tst_parser.moc"
