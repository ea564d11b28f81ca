// Cutting computer names out of "net view" and aligning the address column.
#include "common/runtimeerror.h"
#include "netscan/netviewparser.h"

#include <QTest>

namespace
{
const QString Header = QStringLiteral("Server Name            Remark\r\n\r\n") + QString(79, u'-') +
                       QStringLiteral("\r\n");
const QString Done = QStringLiteral("The command completed successfully.\r\n");
} // namespace

class TestNetViewParser : public QObject
{
    Q_OBJECT
private slots:
    void parse_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<int>("width");
        QTest::newRow("remarks cut, closing line dropped")
            << Header +
                   "\\\\ACCOUNTING           Accounts PC\r\n"
                   "\\\\FILESERVER           Main file server\r\n\\\\PRINTSRV\r\n" +
                   Done + "\r\n"
            << QStringList{"ACCOUNTING ", "FILESERVER ", "PRINTSRV"} << 12;
        // The last part is taken again as a whole, up to the closing line.
        QTest::newRow("last entry keeps its remark")
            << Header +
                   "\\\\NAS                  Storage\r\n"
                   "\\\\WS-042               Bob's desk\r\n" +
                   Done + "\r\n"
            << QStringList{"NAS ", "WS-042               Bob's desk"} << 33;
        QTest::newRow("long name sets the width")
            << Header +
                   "\\\\A                    x\r\n\\\\DESIGN-WORKSTATION-0042 CAD\r\n\\\\B\r\n" +
                   Done
            << QStringList{"A ", "DESIGN-WORKSTATION-0042 ", "B"} << 25;
        QTest::newRow("no closing line: last part whole")
            << QStringLiteral("\\\\ONE two\r\n\\\\LAST\r\n") << QStringList{"ONE ", "LAST"} << 6;
        QTest::newRow("empty list")
            << QStringLiteral("There are no entries in the list.\r\n\r\n") << QStringList() << 2;
        QTest::newRow("error") << QStringLiteral("System error 6118 has occurred.\r\n\r\n")
                               << QStringList() << 2;
        QTest::newRow("nothing") << QString() << QStringList() << 2;
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
        QCOMPARE(pumped, names.size()); // events handled once per name
        // Every line puts the address column at the same place.
        for (const QString& n : r.names)
            QCOMPARE(NetScanLine(n, r.nameWidth, QStringLiteral("10.0.0.1")).indexOf(u'|'), width);
    }

    void closingLineTooCloseToTheStartIsARunTimeError()
    {
        // "The" within the first two characters of the last part cannot be cut before.
        try {
            ParseNetView(QStringLiteral("\\\\Theatre\r\n"));
            QFAIL("no run-time error");
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
    }
};

QTEST_APPLESS_MAIN(TestNetViewParser)
#include "tst_parser.moc"
