// Abuse of the real program on 127.0.0.1: the listener in the default mode (every row ends with
// a normal job), and every job kept as its own file in the queued mode; the process still answers.
#include "testsupport.h"

#include <QAbstractItemModel>
#include <QScopeGuard>
#include <QStandardPaths>

#include <sys/socket.h>

namespace
{
// Field N (1-based, N > 2) of /proc/PID/stat.
qint64 statField(qint64 pid, int n)
{
    const QByteArray stat = readFile(QStringLiteral("/proc/%1/stat").arg(pid));
    return stat.mid(stat.lastIndexOf(')') + 2).split(' ').value(n - 3).toLongLong();
}

// A one-page job whose page says text.
QByteArray page(const QString& text)
{
    return "%!PS\n/Helvetica findfont 14 scalefont setfont 72 700 moveto (" + text.toLatin1() +
           ") show showpage\n";
}

// Connects, sends, closes (or resets, or stays open: the socket is returned then).
QTcpSocket* send(quint16 port, const QByteArray& bytes, bool close = true, bool reset = false)
{
    auto* c = new QTcpSocket;
    c->connectToHost(QHostAddress::LocalHost, port);
    if (!c->waitForConnected(10000))
        qWarning("connect: %s", qPrintable(c->errorString()));
    c->write(bytes);
    while (c->bytesToWrite() > 0 && c->waitForBytesWritten(10000)) {
    }
    if (reset) {
        const linger rst{1, 0}; // close with RST
        ::setsockopt(int(c->socketDescriptor()), SOL_SOCKET, SO_LINGER, &rst, sizeof rst);
    }
    if (close || reset) {
        c->disconnectFromHost();
        if (c->state() != QAbstractSocket::UnconnectedState)
            c->waitForDisconnected(10000);
        delete c;
        return nullptr;
    }
    return c;
}

// The text of each PDF in folder (links not followed), sorted.
QStringList pdfTexts(const QString& folder)
{
    QStringList texts;
    for (const QFileInfo& f :
         QDir(folder).entryInfoList({"*.pdf"}, QDir::Files | QDir::NoSymLinks)) {
        QProcess p;
        p.start("pdftotext", {f.filePath(), "-"});
        p.waitForFinished(30000);
        texts << QString::fromUtf8(p.readAllStandardOutput()).trimmed();
    }
    texts.sort();
    return texts;
}

QStringList clientTexts(const QString& prefix, int n)
{
    QStringList texts;
    for (int i = 1; i <= n; ++i)
        texts << prefix + QString::number(i);
    texts.sort();
    return texts;
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
        QTRY_VERIFY(statField(pid, 24) * 4 < 150000); // resident kB: the blanks are gone
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

    void jobQueue_data()
    {
        QTest::addColumn<QString>("abuse");
        QTest::addColumn<int>("jobs"); // normal jobs, sent in a row unless the abuse says so
        QTest::addColumn<QStringList>("args");
        const int many = qEnvironmentVariableIntValue("QUORVEL_ABUSE_JOBS");
        QTest::newRow("jobs in a row") << "row" << (many ? many : 2000) << QStringList();
        QTest::newRow("clients at once") << "at once" << 200 << QStringList();
        QTest::newRow("half-open, reset and slow clients") << "clients" << 20 << QStringList();
        QTest::newRow("kill -9, restart") << "kill" << 40 << QStringList();
        QTest::newRow("endless and memory-hungry jobs")
            << "limits" << 5 << QStringList{"--gs-cpu-seconds", "3", "--gs-memory-mb", "300"};
        QTest::newRow("planted links") << "links" << 6 << QStringList();
        QTest::newRow("job folder removed, then unwritable") << "folder" << 6 << QStringList();
    }
    void jobQueue()
    {
        QFETCH(QString, abuse);
        QFETCH(int, jobs);
        QFETCH(QStringList, args);
        HeadlessQuorvel q;
        QVERIFY(q.start(args << "--job-queue"));
        const QString folder = q.jobFolder();
        QStringList expected = clientTexts("client ", jobs) << "still answering";
        expected.sort();
        std::vector<std::unique_ptr<QTcpSocket>> open;
        const auto sendAll = [&](int from, int to) {
            for (int i = from; i <= to; ++i)
                send(q.port, page("client " + QString::number(i)));
        };
        QProcess slow;
        const QString outside = q.home.filePath("outside");
        if (abuse == "at once") {
            for (int i = 1; i <= jobs; ++i)
                sendJob(q.port, page("client " + QString::number(i)));
        } else if (abuse == "clients") {
            open.emplace_back(send(q.port, page("half open"), false));
            send(q.port, page("reset"), false, true);
            // 100 MB after the page, 1 MB every 50 ms.
            slow.start("bash", {"-c",
                                "{ printf %s \"$1\"; for i in $(seq 100); do yes '% padding' | "
                                "head -c 1048576; sleep 0.05; done; } | nc -N 127.0.0.1 $2",
                                "slow", page("slow client"), QString::number(q.port)});
            expected << "slow client";
            expected.sort();
            sendAll(1, jobs);
            QVERIFY(slow.waitForFinished(120000));
        } else if (abuse == "kill") {
            sendAll(1, jobs);
            QVERIFY(q.waitForLog("Connection closed", 10000));
            QTRY_COMPARE_WITH_TIMEOUT(q.log().count("Connection closed"), jobs, 20000);
            QVERIFY(!QDir(folder + "/spool").isEmpty());
            // A 200 MB job on its way in, 1 MB every 20 ms: killed with it half received.
            slow.start("bash", {"-c",
                                "{ printf %s \"$1\"; for i in $(seq 200); do yes '% padding' | "
                                "head -c 1048576; sleep 0.02; done; } | nc -N 127.0.0.1 $2",
                                "big", page("big"), QString::number(q.port)});
            const auto partSize = [&] {
                const auto parts = QDir(folder + "/spool").entryInfoList({"*.part"});
                return parts.isEmpty() ? 0 : parts.first().size();
            };
            QTRY_VERIFY_WITH_TIMEOUT(partSize() > 20 << 20, 20000);
            q.process.kill();
            q.process.waitForFinished();
            QVERIFY(q.start({"--job-queue"}));
            QVERIFY(q.waitForLog("spooled jobs from an earlier run are queued"));
            QVERIFY(q.log().contains("an earlier run ended while receiving it"));
            slow.waitForFinished(20000);
        } else if (abuse == "limits") {
            send(q.port, "%!PS\n{} loop\n");
            send(q.port, "%!PS\n/l null def { /l [ l 65000 string ] def } loop\n");
            sendAll(1, jobs);
        } else if (abuse == "links") {
            writeFile(outside + "-kept", "outside");
            for (int s = 0; s < 40; ++s) {
                const QString base =
                    "File_" + QDateTime::currentDateTime().addSecs(s).toString("yyMMdd_hhmmss");
                QFile::link(outside + "-kept", folder + "/" + base + ".pdf");
                QFile::link(outside + "-new", folder + "/" + base + "_2.pdf");
            }
            sendAll(1, jobs);
        } else if (abuse == "folder") {
            sendAll(1, 2);
            QTRY_COMPARE_WITH_TIMEOUT(pdfTexts(folder), clientTexts("client ", 2), 30000);
            QVERIFY(QDir(folder).removeRecursively());
            sendAll(3, 4);
            QVERIFY(q.waitForLog("was missing; it is made again"));
            QTRY_COMPARE_WITH_TIMEOUT(pdfTexts(folder), clientTexts("client ", 4).mid(2), 30000);
            // Root writes into a read-only folder: a file in its place cannot be written by anyone.
            QVERIFY(QDir(folder).removeRecursively() && writeFile(folder, "not a folder"));
            sendAll(5, 6);
            QVERIFY(q.waitForLog("cannot be written"));
            QFile::remove(folder);
            expected = QStringList{"client 5", "client 6", "still answering"};
        } else {
            sendAll(1, jobs);
        }
        send(q.port, page("still answering"));
        QVERIFY(q.waitForLog("Connection closed")); // the job exists: it is spooled
        // After kill -9 the job then converting may be redone, beside its unfinished PDF.
        const auto texts = [&] {
            QStringList t = pdfTexts(folder);
            if (abuse == "kill")
                t.removeDuplicates(), t.removeAll("");
            return t;
        };
        const auto pdfs = [&] {
            return QDir(folder).entryList({"*.pdf"}, QDir::Files | QDir::NoSymLinks).size();
        };
        // Only a connection still open (the half-open client's) has a file there: a partial one.
        const auto spooled = [&] { return QDir(folder + "/spool").entryList(QDir::Files); };
        QTRY_VERIFY2_WITH_TIMEOUT(
            spooled().size() == qsizetype(open.size()) && pdfs() >= expected.size(),
            qPrintable(spooled().join(u' ') + q.log().right(3000)), (60 + jobs / 2) * 1000);
        if (texts() != expected)
            qWarning() << spooled() << texts() << QDir(folder).entryList(QDir::Files) << q.log();
        QCOMPARE(texts(), expected);
        QCOMPARE(q.process.state(), QProcess::Running);
        if (abuse == "clients")
            QVERIFY(q.log().contains("was reset before it closed"));
        if (abuse == "limits") {
            QVERIFY2(q.log().contains("CPU time limit of 3 s"), qPrintable(q.log()));
            QVERIFY(q.log().contains("memory limit of 300 MB"));
            QCOMPARE(QDir(folder + "/failed").entryList(QDir::Files).size(), 2);
        }
        if (abuse == "links") {
            QCOMPARE(readFile(outside + "-kept"), QByteArray("outside"));
            QVERIFY(!QFileInfo::exists(outside + "-new"));
        }
    }
    // A job that runs until its time limit, then a quick one: with one worker the quick one
    // waits for it, with two it is done first.
    void workersConvertSideBySide_data()
    {
        QTest::addColumn<QString>("workers");
        QTest::addColumn<bool>("quickFirst");
        QTest::newRow("one worker") << "1" << false;
        QTest::newRow("two workers") << "2" << true;
    }
    void workersConvertSideBySide()
    {
        QFETCH(QString, workers);
        QFETCH(bool, quickFirst);
        HeadlessQuorvel q;
        QVERIFY(q.start({"--job-queue", "--workers", workers, "--gs-wall-seconds", "6"}));
        send(q.port, "%!PS\n{} loop\n");
        QVERIFY(q.waitForLog("Connection closed")); // so it is the first to close
        send(q.port, page("quick"));
        const QString limit = "ran past its time limit of 6 s";
        QTRY_VERIFY_WITH_TIMEOUT(
            q.log().contains(limit) || pdfTexts(q.jobFolder()).contains("quick"), 30000);
        QCOMPARE(!q.log().contains(limit), quickFirst);
        QVERIFY(q.log().contains(workers + " converting at once"));
        QTRY_COMPARE_WITH_TIMEOUT(pdfTexts(q.jobFolder()), QStringList{"quick"}, 30000);
    }

    // The spool on a 4 MB file system: a larger job is refused while it comes, and the jobs
    // before and after it are whole.
    void fullDiskRefusesTheJobOnly()
    {
        HeadlessQuorvel q;
        const QString folder = q.jobFolder();
        QVERIFY(QDir().mkpath(folder));
        if (QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=4m", "tmpfs", folder}) != 0)
            QSKIP("no tmpfs can be mounted here (root is needed)");
        const auto unmount = qScopeGuard([&] {
            q.stop();
            QProcess::execute("umount", {"-l", folder});
        });
        QVERIFY(q.start({"--job-queue"}));
        send(q.port, page("before"));
        QTRY_COMPARE_WITH_TIMEOUT(pdfTexts(folder), QStringList{"before"}, 30000);
        send(q.port, page("too large") + QByteArray(8 << 20, '%'));
        QVERIFY(q.waitForLog("No space left on device", 20000));
        QVERIFY(q.log().contains("is refused: its spool file could not be written"));
        send(q.port, page("after"));
        QTRY_COMPARE_WITH_TIMEOUT(pdfTexts(folder), (QStringList{"after", "before"}), 30000);
        QVERIFY(QDir(folder + "/spool").isEmpty());
    }

    void ghostscriptLimitsInDefaultMode()
    {
        HeadlessQuorvel q;
        QVERIFY(q.start({"--gs-wall-seconds", "2"}));
        send(q.port, "%!PS\n{} loop\n");
        QVERIFY(q.waitForLog("ran past its time limit of 2 s", 20000));
        QVERIFY(q.waitForLog("no page was made; its PostScript is kept as "));
        send(q.port, page("still answering"));
        QVERIFY(q.waitForLog("Connection closed")); // the job exists: it is spooled
        QTRY_VERIFY_WITH_TIMEOUT(pdfTexts(q.jobFolder()).contains("still answering"), 30000);
        QTRY_COMPARE(QDir(q.jobFolder()).entryList({"*.ps"}).size(), 1); // the failed one's
    }

    void queuedJpegPagesAreNeverWrittenThroughALink()
    {
        HeadlessQuorvel q;
        QVERIFY(q.start({"--job-queue", "--output", "jpeg"}));
        const QString outside = q.home.filePath("outside");
        for (int s = 0; s < 40; ++s) // page 2 of any job named in the next 40 s
            QFile::link(outside,
                        q.jobFolder() + "/File_" +
                            QDateTime::currentDateTime().addSecs(s).toString("yyMMdd_hhmmss") +
                            "_002.jpg");
        send(q.port, makePsJob(3));
        QVERIFY(q.waitForLog("Failed to save the picture to the file: '", 60000));
        QVERIFY(q.waitForLog(" -> File_", 60000)); // the job's line: pages 1 and 3
        QVERIFY(!QFileInfo::exists(outside));
        QCOMPARE(QDir(q.jobFolder()).entryList({"*.jpg"}, QDir::Files | QDir::NoSymLinks).size(),
                 2);
    }

    // The version is asked at start-up and answers late here: the first job still waits for it.
    void oldGhostscriptRunsSafe_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("safer");
        QTest::newRow("9.27") << "9.27" << true;
        QTest::newRow("9.50") << "9.50.0" << false;
        QTest::newRow("10.02") << "10.02.1" << false;
    }
    void oldGhostscriptRunsSafe()
    {
        QFETCH(QString, version);
        QFETCH(bool, safer);
        HeadlessQuorvel q;
        const QString gs = q.home.filePath("bin/gs"), args = q.home.filePath("gs-args");
        QVERIFY(QDir(q.home.path()).mkpath("bin"));
        writeFile(gs, QStringLiteral("#!/bin/sh\nif [ \"$1\" = --version ]; then sleep 1; echo %1; "
                                     "exit; fi\necho \"$@\" >> '%2'\nexec %3 \"$@\"\n")
                          .arg(version, args, QStandardPaths::findExecutable("gs"))
                          .toUtf8());
        QVERIFY(QFile::setPermissions(gs, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(q.start());
        send(q.port, page("safe or not"));
        QTRY_VERIFY_WITH_TIMEOUT(pdfTexts(q.jobFolder()).contains("safe or not"), 30000);
        QCOMPARE(QString::fromUtf8(readFile(args)).contains("-dSAFER"), safer);
        QCOMPARE(q.log().contains("Ghostscript " + version + " is older than 9.50"), safer);
    }
};

QTEST_MAIN(TestAbuse)
#include "tst_abuse.moc"
