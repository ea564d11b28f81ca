#include "testsupport.h"

#include <QSet>
#include <future>
#include <unistd.h>

// The IPP printer of a headless Quorvel, driven by real clients: ipptool, a driverless CUPS
// queue and avahi-browse, all on 127.0.0.1.
class TestIppPrinter : public QObject
{
    Q_OBJECT
    HeadlessQuorvel server;
    quint16 ippPort = freePort();
    QTemporaryDir work;
    QString uri() const { return QStringLiteral("ipp://127.0.0.1:%1/ipp/print").arg(ippPort); }

    // Sends FILE as TYPE and waits until the job has ended; ipptool's verdict and output.
    QPair<bool, QString> print(const QString& file, const QString& type, const QString& title,
                               quint16 port = 0)
    {
        QString said;
        const bool ok =
            ippPrint(port ? QStringLiteral("ipp://127.0.0.1:%1/ipp/print").arg(port) : uri(), file,
                     type, title, &said);
        return {ok, said};
    }
    QSet<QString> outputs() const
    {
        const QStringList pdfs =
            QDir(server.jobFolder()).entryList({QStringLiteral("*.pdf")}, QDir::Files);
        return {pdfs.begin(), pdfs.end()};
    }
    // The PDFs made since BEFORE, waiting up to MS for COUNT of them.
    QStringList newOutputs(const QSet<QString>& before, int count, int ms = 30000)
    {
        QDeadlineTimer deadline(ms);
        QSet<QString> made;
        while ((made = outputs() - before).size() < count && !deadline.hasExpired())
            QTest::qWait(100);
        QStringList paths;
        for (const QString& name : made)
            paths << QDir(server.jobFolder()).filePath(name);
        return paths;
    }
    bool gs(const QStringList& args)
    {
        return QProcess::execute(QStringLiteral("gs"),
                                 QStringList{QStringLiteral("-q"), QStringLiteral("-dBATCH"),
                                             QStringLiteral("-dNOPAUSE")} +
                                     args) == 0;
    }

private slots:
    void initTestCase()
    {
        const QString bus = serviceEnv(QStringLiteral("avahi")).value("DBUS_SYSTEM_BUS_ADDRESS");
        QVERIFY2(!bus.isEmpty(), "the avahi fixture is not up");
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus.toLocal8Bit());
        // Samples of each format, made by Ghostscript and Qt.
        const QString ps = work.filePath(QStringLiteral("three.ps"));
        QVERIFY(writeFile(ps, makePsJob(3)));
        QVERIFY(
            gs({QStringLiteral("-sDEVICE=pdfwrite"),
                QStringLiteral("-sOutputFile=") + work.filePath(QStringLiteral("three.pdf")), ps}));
        QVERIFY(
            gs({QStringLiteral("-sDEVICE=pwgraster"), QStringLiteral("-r150"),
                QStringLiteral("-sOutputFile=") + work.filePath(QStringLiteral("three.pwg")), ps}));
        const QByteArray pwg = readFile(work.filePath(QStringLiteral("three.pwg")));
        QVERIFY(writeFile(work.filePath(QStringLiteral("short.pwg")), pwg.left(pwg.size() / 2)));
        // The library's URF reader takes Ghostscript's URF of plain text pages only.
        const QString text = work.filePath(QStringLiteral("text.ps"));
        QVERIFY(writeFile(text, "%!PS\n/Helvetica findfont 20 scalefont setfont\n"
                                "72 700 moveto (One) show showpage 72 700 moveto (Two) show "
                                "showpage 72 700 moveto (Three) show showpage\n"));
        QVERIFY(gs({QStringLiteral("-sDEVICE=urf"), QStringLiteral("-r150"),
                    QStringLiteral("-sOutputFile=") + work.filePath(QStringLiteral("three.urf")),
                    text}));
        QImage image(200, 100, QImage::Format_RGB32);
        image.fill(Qt::red);
        QVERIFY(image.save(work.filePath(QStringLiteral("red.jpg"))));
        QVERIFY(image.save(work.filePath(QStringLiteral("red.png"))));
        QVERIFY(
            writeFile(work.filePath(QStringLiteral("pjl.prn")),
                      "\x1b%-12345X@PJL JOB NAME=\"pjl\"\r\n@PJL ENTER LANGUAGE=POSTSCRIPT\r\n" +
                          makePsJob(2) + "\x1b%-12345X"));
        QVERIFY(writeFile(work.filePath(QStringLiteral("text.txt")),
                          "A text file, printed through CUPS.\n"));
        QVERIFY2(server.start({QStringLiteral("--ipp-port"), QString::number(ippPort)}),
                 qPrintable(server.log()));
        QVERIFY2(server.waitForLog(QStringLiteral("IPP printer")), qPrintable(server.log()));
        // The driverless queue, made from the printer's attributes while it is idle.
        const QMap<QString, QString> cups = serviceEnv(QStringLiteral("cups"));
        QVERIFY2(!cups.isEmpty(), "the cups fixture is not up");
        qputenv("CUPS_SERVER", cups.value("CUPS_SERVER").toLocal8Bit());
        const QString said = runTool(QStringLiteral("lpadmin"),
                                     {QStringLiteral("-p"), QStringLiteral("QuorvelIpp"),
                                      QStringLiteral("-v"), uri(), QStringLiteral("-m"),
                                      QStringLiteral("everywhere"), QStringLiteral("-E")});
        const QString ppd = cups.value("CUPS_HOME") + QStringLiteral("/conf/ppd/QuorvelIpp.ppd");
        QTRY_VERIFY2_WITH_TIMEOUT(readFile(ppd).contains("application/pdf"),
                                  qPrintable(said + readFile(ppd)), 10000);
    }

    // Every format the printer takes becomes the PDF of its pages, and the job's record has the
    // sender, the user and the title.
    void formats_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("type");
        QTest::addColumn<int>("pages"); // 0: the job is refused, and nothing is kept
        QTest::newRow("PDF") << "three.pdf"
                             << "application/pdf" << 3;
        QTest::newRow("PostScript") << "three.ps"
                                    << "application/postscript" << 3;
        QTest::newRow("JPEG") << "red.jpg"
                              << "image/jpeg" << 1;
        QTest::newRow("PNG") << "red.png"
                             << "image/png" << 1;
        QTest::newRow("PWG raster") << "three.pwg"
                                    << "image/pwg-raster" << 3;
        QTest::newRow("URF") << "three.urf"
                             << "image/urf" << 3;
        QTest::newRow("PJL as octet-stream") << "pjl.prn"
                                             << "application/octet-stream" << 2;
        QTest::newRow("PWG raster cut short") << "short.pwg"
                                              << "image/pwg-raster" << 0;
    }
    void formats()
    {
        QFETCH(QString, file);
        QFETCH(QString, type);
        QFETCH(int, pages);
        const QSet<QString> before = outputs();
        const QString title = QStringLiteral("Report %1").arg(QTest::currentDataTag());
        const auto [ok, said] = print(work.filePath(file), type, title);
        if (pages == 0) {
            QVERIFY2(!ok, qPrintable(said));
            QVERIFY2(server.waitForLog(QStringLiteral("is not kept")), qPrintable(server.log()));
            QCOMPARE(outputs(), before);
            return;
        }
        QVERIFY2(ok, qPrintable(said));
        // "completed" came after the output was made: it is there now, not later.
        const QStringList made = newOutputs(before, 1, 0);
        QCOMPARE(made.size(), 1);
        QCOMPARE(pdfPages(made.first()), pages);
        QVERIFY2(server.log().contains(
                     QStringLiteral("from 127.0.0.1, user \"alice\", title \"%1\"").arg(title)),
                 qPrintable(server.log()));
        QVERIFY2(server.log().contains(QStringLiteral("Job \"%1\" from alice").arg(title)),
                 qPrintable(server.log()));
    }

    // A CUPS queue set up driverless from the printer's own attributes prints through it.
    void driverlessCups_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("pages");
        QTest::newRow("PDF") << "three.pdf" << 3;
        QTest::newRow("PostScript") << "three.ps" << 3;
        QTest::newRow("text") << "text.txt" << 1;
        QTest::newRow("JPEG") << "red.jpg" << 1;
    }
    void driverlessCups()
    {
        QFETCH(QString, file);
        QFETCH(int, pages);
        const QSet<QString> before = outputs();
        const QString said =
            runTool(QStringLiteral("lp"), {QStringLiteral("-d"), QStringLiteral("QuorvelIpp"),
                                           QStringLiteral("-t"), file, work.filePath(file)});
        QVERIFY2(said.contains(QLatin1String("request id")), qPrintable(said));
        const QStringList outs = newOutputs(before, 1, 60000);
        QVERIFY2(outs.size() == 1, qPrintable(server.log()));
        QTest::qWait(300); // Ghostscript has closed it when the job is logged
        QVERIFY(server.waitForLog(QStringLiteral("Job \"%1\"").arg(file)));
        QCOMPARE(pdfPages(outs.first()), pages);
    }

    // The printer and the 9100 port are found on the LAN, with their ports and TXT keys.
    void discovery()
    {
        const auto browse = [](const QString& type) {
            return runTool(QStringLiteral("timeout"),
                           {QStringLiteral("15"), QStringLiteral("avahi-browse"),
                            QStringLiteral("-rtp"), type});
        };
        QString ipp;
        QDeadlineTimer deadline(20000);
        while (!(ipp = browse(QStringLiteral("_ipp._tcp")))
                    .contains(QStringLiteral(";%1;").arg(ippPort)) &&
               !deadline.hasExpired())
            QTest::qWait(500);
        QVERIFY2(ipp.contains(QStringLiteral(";%1;").arg(ippPort)), qPrintable(ipp));
        for (const char* key : {"\"rp=ipp/print\"", "\"pdl=", "\"URF=", "\"UUID=", "\"Color=T\""})
            QVERIFY2(ipp.contains(QLatin1String(key)), key);
        QVERIFY(ipp.contains(QLatin1String("Quorvel")));
        QVERIFY(browse(QStringLiteral("_print._sub._ipp._tcp"))
                    .contains(QStringLiteral(";%1;").arg(ippPort)));
        const QString raw = browse(QStringLiteral("_pdl-datastream._tcp"));
        QVERIFY2(raw.contains(QStringLiteral(";%1;").arg(server.port)), qPrintable(raw));
        QVERIFY(raw.contains(QLatin1String("\"pdl=application/postscript")));
    }

    // Three clients sending twenty jobs each at once: sixty outputs, each job exactly once.
    void concurrentClients()
    {
        const QSet<QString> before = outputs();
        std::vector<std::future<bool>> clients; // ipptool waits: each client a thread
        for (int c = 1; c <= 3; ++c) {
            const QString ps = work.filePath(QStringLiteral("client%1.ps").arg(c));
            QVERIFY(writeFile(ps, "%!PS\n/Helvetica findfont 30 scalefont setfont 72 700 moveto "
                                  "(Client " +
                                      QByteArray::number(c) + ") show showpage\n"));
            clients.push_back(std::async(std::launch::async, [this, ps, c] {
                return ippPrint(uri(), ps, QStringLiteral("application/postscript"),
                                QStringLiteral("client%1").arg(c), nullptr, 20);
            }));
        }
        for (auto& client : clients)
            QVERIFY(client.get());
        const QStringList made = newOutputs(before, 60, 10000);
        QCOMPARE(made.size(), 60);
        QMap<QString, int> perClient;
        for (const QString& pdf : made) {
            const QString text = runTool(QStringLiteral("pdftotext"), {pdf, QStringLiteral("-")});
            ++perClient[text.trimmed()];
        }
        QCOMPARE(perClient.value(QStringLiteral("Client 1")), 20);
        QCOMPARE(perClient.value(QStringLiteral("Client 2")), 20);
        QCOMPARE(perClient.value(QStringLiteral("Client 3")), 20);
    }

    // The allowed networks hold for IPP too: a client outside them is refused, and logged.
    void refusedOutsideAllowedNetworks()
    {
        HeadlessQuorvel guarded;
        const quint16 port = freePort();
        QVERIFY(guarded.start({QStringLiteral("--ipp-port"), QString::number(port),
                               QStringLiteral("--allow"), QStringLiteral("10.0.0.0/8")}));
        QVERIFY(guarded.waitForLog(QStringLiteral("IPP printer")));
        const auto [ok, said] =
            print(work.filePath(QStringLiteral("three.pdf")), "application/pdf", "x", port);
        QVERIFY(!ok);
        QVERIFY2(said.contains(QLatin1String("client-error-forbidden")), qPrintable(said));
        QVERIFY(guarded.waitForLog(QStringLiteral("IPP request from 127.0.0.1 refused")));
        QVERIFY(QDir(guarded.jobFolder()).entryList({QStringLiteral("*.pdf")}).isEmpty());
    }

    // A document too big for the disk is refused, logged and not kept; the next job prints.
    void fullDiskRefusesTheJob()
    {
        if (getuid() != 0)
            QSKIP("mounting a small file system needs root");
        HeadlessQuorvel small;
        QVERIFY(QProcess::execute(
                    "mount", {"-t", "tmpfs", "-o", "size=4m", "tmpfs", small.home.path()}) == 0);
        const auto unmount = qScopeGuard([&] {
            small.stop();
            QProcess::execute("umount", {small.home.path()});
        });
        const quint16 port = freePort();
        QVERIFY(small.start({"--ipp-port", QString::number(port)}));
        QVERIFY(small.waitForLog("IPP printer"));
        const QString big = work.filePath("big.ps");
        QVERIFY(writeFile(big, makePsJob(1) + QByteArray(8 << 20, '%')));
        const auto [ok, said] = print(big, "application/postscript", "big", port);
        QVERIFY2(!ok && said.contains("server-error"), qPrintable(said));
        QVERIFY2(small.waitForLog("is refused before it was kept"), qPrintable(small.log()));
        QCOMPARE(QDir(small.jobFolder()).entryList({"*.pdf"}, QDir::Files).size(), 0);
        QVERIFY(print(work.filePath("three.ps"), "application/postscript", "after", port).first);
        QCOMPARE(QDir(small.jobFolder()).entryList({"*.pdf"}, QDir::Files).size(), 1);
    }

    // ipptool's own conformance files: every test passes but the known failures.
    void conformance()
    {
        QProcess p;
        p.setProcessChannelMode(QProcess::MergedChannels);
        const QString dir = QFINDTESTDATA("conformance.sh").section(u'/', 0, -2);
        p.start(QStringLiteral("bash"),
                {dir + QStringLiteral("/conformance.sh"), uri(),
                 dir + QStringLiteral("/known-failures.txt"), work.filePath("conformance")});
        QVERIFY(p.waitForFinished(900000));
        const QString said = QString::fromLocal8Bit(p.readAll());
        qInfo().noquote() << said.right(3000);
        QVERIFY2(p.exitCode() == 0, qPrintable(said.right(6000)));
    }

    void cleanupTestCase() { server.stop(); }
};

QTEST_MAIN(TestIppPrinter)
#include "tst_ippprinter.moc"
