// The listener under abuse in the default mode; every row ends with a normal job.
#include "testsupport.h"

#include <QAbstractItemModel>

namespace
{
// Field N (1-based, N > 2) of /proc/PID/stat.
qint64 statField(qint64 pid, int n)
{
    const QByteArray stat = readFile(QStringLiteral("/proc/%1/stat").arg(pid));
    return stat.mid(stat.lastIndexOf(')') + 2).split(' ').value(n - 3).toLongLong();
}
} // namespace

class TestAbuse : public QObject
{
    Q_OBJECT
private slots:
    void defaultMode_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("abuse");
        QTest::addColumn<QString>("logged");
        QTest::addColumn<int>("times");   // lines with logged
        QTest::addColumn<int>("clients"); // each logged as closed or refused: none is lost
        QTest::newRow("fd limit") << QStringList() << "fd"
                                  << "(Too many open files; " << 1 << 81;
        QTest::newRow("cap") << QStringList() << "cap"
                             << "refused: 5 connections are open, the most allowed" << 3 << 9;
        QTest::newRow("blank flood") << QStringList() << "blanks"
                                     << "Only blanks received (67108864 bytes)" << 3 << 4;
        QTest::newRow("no memory") << QStringList() << "memory"
                                   << "No memory for more of the job from 127.0.0.1" << 1 << 2;
        QTest::newRow("allow elsewhere") << QStringList{"--allow", "10.0.0.0/8"} << ""
                                         << "Connection from 127.0.0.1 refused: not in the "
                                            "allowed networks (10.0.0.0/8)"
                                         << 1 << 1;
        QTest::newRow("listen, allow") << QStringList{"--listen",   "127.0.0.1", "--allow",
                                                      "10.0.0.0/8", "--allow",   "127.0.0.1/32"}
                                       << "listen"
                                       << "Listening on 127.0.0.1 only" << 1 << 1;
    }
    void defaultMode()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, abuse);
        QFETCH(QString, logged);
        HeadlessQuorvel q;
        if (abuse == "cap")
            q.put("MaxConnections", 5);
        QVERIFY(q.start(args));
        const qint64 pid = q.process.processId();
        std::vector<std::unique_ptr<QTcpSocket>> idle(abuse == "fd" ? 80 : abuse == "cap" ? 8 : 0);
        if (abuse == "fd")
            QCOMPARE(
                QProcess::execute("prlimit", {"--pid", QString::number(pid), "--nofile=64:64"}), 0);
        for (auto& c : idle) {
            c = std::make_unique<QTcpSocket>();
            c->connectToHost(QHostAddress::LocalHost, q.port);
        }
        if (abuse == "fd") { // waiting at the limit costs next to no CPU time (ticks of 10 ms)
            QVERIFY(q.waitForLog(logged));
            const qint64 before = statField(pid, 14) + statField(pid, 15);
            QTest::qWait(2000);
            QCOMPARE_LE(statField(pid, 14) + statField(pid, 15) - before, 20);
        }
        for (int i = 0; abuse == "blanks" && i < 3; ++i) {
            sendJob(q.port, QByteArray(64 << 20, ' '));
            QTRY_COMPARE_WITH_TIMEOUT(q.log().count(logged), i + 1, 20000);
        }
        if (abuse == "memory") { // the buffer cannot grow: the job ends there, no spinning
#ifdef __SANITIZE_ADDRESS__
            QSKIP("AddressSanitizer's shadow memory does not fit under an address-space limit");
#endif
            const QString limit = QString::number(statField(pid, 23) + (256 << 20));
            QCOMPARE(QProcess::execute("prlimit", {"--pid", QString::number(pid), "--as=" + limit}),
                     0);
            sendJob(q.port, QByteArray(512 << 20, ' '));
            QVERIFY(q.waitForLog(logged, 60000));
            QVERIFY(q.waitForLog("Only blanks received"));
        }
        QCOMPARE_LT(statField(pid, 24) * 4, 150000); // resident kB: the blanks are gone
        if (abuse == "listen") // bound to 127.0.0.1 alone, with room for 200 clients at once
            QCOMPARE(runTool("ss", {"-Hltn", "sport = " + QString::number(q.port)}).simplified(),
                     "LISTEN 0 512 127.0.0.1:" + QString::number(q.port) + " 0.0.0.0:*");
        if (abuse == "cap")
            QTRY_COMPARE(q.log().count(logged), 3);
        QFETCH(int, clients);
        const auto accounted = [&] {
            return q.log().count("Connection closed") + q.log().count("refused");
        };
        idle.clear();
        QTRY_COMPARE(accounted(), clients - 1); // so the job meets no open element
        sendJob(q.port, makePsJob(1));
        QTRY_COMPARE_WITH_TIMEOUT(QDir(q.jobFolder()).entryList({"*.pdf"}).size(),
                                  abuse.isEmpty() ? 0 : 1, 60000);
        QTRY_COMPARE(accounted(), clients);
        QFETCH(int, times);
        QCOMPARE(q.log().count(logged), times);
        QCOMPARE(q.process.state(), QProcess::Running);
    }

    void emptyConnectionsKeepTheListBounded()
    {
        // 5,000 connections log 10,000 lines after "Listening to port": the first goes.
        TestServer s;
        frmMain& w = s.start();
        int rows = 0;
        connect(w.List1->model(), &QAbstractItemModel::rowsInserted, this, [&] { ++rows; });
        for (int i = 1; i <= 5000; ++i) {
            QTcpSocket c;
            c.connectToHost(QHostAddress::LocalHost, s.port);
            QVERIFY(c.waitForConnected(5000));
            c.close();
            QDeadlineTimer deadline(5000);
            while (rows < 2 * i && !deadline.hasExpired()) // one client at a time: no index clash
                QCoreApplication::processEvents();
        }
        QCOMPARE(rows, 10000);
        QCOMPARE(w.List1->count(), 10000);
        QVERIFY(w.List1->item(0)->text().startsWith("Connection request id "));
        QCOMPARE(w.connectionCount(), 0);
        sendJob(s.port, makePsJob(1));
        QTRY_COMPARE_WITH_TIMEOUT(s.jobFiles(), QStringList{w.fileName() + ".pdf"}, 60000);
        QVERIFY2(s.messages.empty(), qPrintable(s.shown()));
    }
};

QTEST_MAIN(TestAbuse)
#include "tst_abuse.moc"
