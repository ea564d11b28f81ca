// A job's road through the real Ghostscript, from TCP clients to the files or printer it ends in.
#include "testsupport.h"

#include "cloud/uccloudsrvr.h"
#include "convert/currentprinter.h"
#include "dispatch/jobfiles.h"
#include "language/joblanguage.h"
#include "server/runoptions.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QImageReader>
#include <QRandomGenerator>
#include <QTemporaryFile>
#include <QTimer>

#include <unistd.h>

namespace
{
// Long enough for three 600 dpi colour pages on a busy machine.
constexpr int kJobMs = 180000;

// A job whose one page is 200 x 200 points: its pages tell it from a Letter job.
const QByteArray kSmallJob = "%!PS\n<< /PageSize [200 200] >> setpagedevice\n"
                             "0 0 moveto 200 200 lineto stroke showpage\n";

// Blocks a page name for every base name the next seconds can give.
void blockPageName(const TestServer& s, const QString& suffix)
{
    const QDateTime now = QDateTime::currentDateTime();
    for (int second = 0; second < 30; ++second)
        QDir(s.jobFolder()).mkpath(jobBaseName(now.addSecs(second)) + suffix);
}

// True once the dispatch that saved the last .ps has wiped it.
bool dispatchDone(const frmMain& w)
{
    return !w.Text1->text().isEmpty() && !QFileInfo::exists(w.Text1->text());
}

// Sample jobs, made once per run by the real Ghostscript from a two-page job, or random bytes.
QByteArray sample(const QString& name)
{
    static QTemporaryDir dir;
    static QMap<QString, QByteArray> made;
    static const QMap<QString, QString> devices{{"pcl", "ljet4"},
                                                {"pxl", "pxlmono"},
                                                {"pwg", "pwgraster"},
                                                {"urf", "urf"},
                                                {"xps", "xpswrite"}};
    if (made.contains(name))
        return made[name];
    QByteArray& bytes = made[name];
    if (devices.contains(name)) {
        writeFile(dir.filePath("in.ps"), makePsJob(2));
        QProcess::execute("gs", {"-q", "-dNOPAUSE", "-dBATCH", "-r100", "-sDEVICE=" + devices[name],
                                 "-sOutputFile=" + dir.filePath(name), dir.filePath("in.ps")});
        bytes = readFile(dir.filePath(name));
    } else if (name == "fails") {
        bytes = makePsJob(2) + "nosuchoperator\n";
    } else if (name == "random") {
        QRandomGenerator random(19);
        for (int i = 0; i < 4096; ++i)
            bytes += char(random.bounded(256));
        bytes[0] = '\x7F'; // no language starts so
    }
    return bytes;
}

// Saves the job, converts it as the Output box says and waits until Ghostscript has ended.
Job convert(frmMain& w, const QByteArray& bytes)
{
    const Job job = Job::named(w.fileName(), w.outputChoice(), Paths::jobFolder());
    w.SavePSFile(job, bytes);
    w.DoConvertPs2PdfImage(job);
    [&] { QTRY_VERIFY_WITH_TIMEOUT(w.findChildren<QProcess*>().isEmpty(), 60000); }();
    return job;
}
} // namespace

class TestDispatch : public QObject
{
    Q_OBJECT
    Cups m_cups;

private slots:
    // The detector on prefixes; the real samples go through the listener below.
    void languageAfterPrefixes_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("language");
        QTest::addColumn<QByteArray>("title");
        QTest::addColumn<QByteArray>("user");
        const QByteArray uel = "\x1B%-12345X";
        const auto row = [](const char* tag, const QByteArray& b, const char* language,
                            const char* title = nullptr, const char* user = nullptr) {
            QTest::newRow(tag) << b << QString(language) << QByteArray(title) << QByteArray(user);
        };
        row("PJL decides",
            uel + "@PJL JOB NAME = \"Q3\"\r\n@PJL SET USERNAME=alice\r\n"
                  "@PJL ENTER LANGUAGE = pclxl\r\n%!PS\n",
            "PCL XL", "Q3", "alice");
        row("PJL, then sniffed", uel + "@PJL\n@PJL SET JOBNAME=\"a b\"\n\n %PDF-1.7\n", "PDF",
            "a b");
        row("PJL names no language known", uel + "@PJL ENTER LANGUAGE=ZJS\n%!PS\n",
            "an unknown language");
        row("blanks and ^D", "\x04 \r\n%!PS-Adobe-3.0\n", "PostScript");
        row("PCL 5",
            uel + "\x1B"
                  "E\x1B&l0O",
            "PCL 5");
        row("zip, not XPS", QByteArray("PK\x03\x04 readme.txt", 17), "an unknown language");
        row("TIFF, big-endian", QByteArray("MM\0*\0\0\0\x08", 8), "TIFF");
        row("MM alone", "MM!*", "an unknown language");
        row("nothing but PJL", uel + "@PJL JOB", "an unknown language");
    }
    void languageAfterPrefixes()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, language);
        QFETCH(QByteArray, title);
        QFETCH(QByteArray, user);
        const DetectedLanguage found = DetectJobLanguage(bytes);
        QCOMPARE(LanguageName(found.language), language);
        QCOMPARE(found.pjlTitle, title);
        QCOMPARE(found.pjlUser, user);
    }

    // Each sample through the real program's listener, in both modes.
    void samplesThroughTheListener_data()
    {
        QTest::addColumn<QString>("sample");
        QTest::addColumn<bool>("queue");
        QTest::addColumn<QString>("output");   // --output, or a printer: raw, reject
        QTest::addColumn<QStringList>("kept"); // endings of the files left; one alone: byte-exact
        QTest::addColumn<QString>("logged");
        for (const bool queue : {false, true}) {
            const auto row = [queue](const char* sample, const char* output, QStringList kept,
                                     const char* logged) {
                if (queue) // the PostScript of a failed job goes to failed/
                    kept.removeAll(".ps");
                QTest::addRow("%s, %s%s", sample, output, queue ? ", queued" : "")
                    << QString(sample) << queue << QString(output) << kept << QString(logged);
            };
            row("pcl", "pdf", {".pcl"},
                " is PCL 5, which is not converted here: kept unconverted as ");
            row("pxl", "tiff", {".pxl"},
                " is PCL XL, which is not converted here: kept unconverted");
            row("random", "pdf", {".bin"},
                " is in no language Quorvel knows: kept unconverted as ");
            row("pcl", "raw", {}, " is PCL 5: sent to the printer \"QuorvelRaw\" as a raw job");
            row("pxl", "reject", {".pxl"},
                " is PCL XL: the printer \"QuorvelReject\" refused it (");
            row("random", "raw", {".bin"}, ": not sent to the printer, kept unconverted as ");
            row("fails", "pdf", {".ps", "_partial.pdf"},
                "exit code 1: \"Error: /undefined in nosuchoperator\"; the 2 pages made before the "
                "error are kept as ");
            row("fails", "tiff", {".ps", "_partial.tif"}, "; the 2 pages made before the error");
            row("fails", "jpeg", {".ps", "_001.jpg", "_002.jpg"},
                "; it failed at page 3; the pages before it are kept as JPEG files");
        }
    }
    void samplesThroughTheListener()
    {
        QFETCH(QString, sample);
        QFETCH(bool, queue);
        QFETCH(QString, output);
        QFETCH(QStringList, kept);
        QFETCH(QString, logged);
        const QByteArray bytes = ::sample(sample);
        QVERIFY(!bytes.isEmpty());
        HeadlessQuorvel q;
        QStringList args{"--output", output};
        if (output == "raw" || output == "reject")
            args =
                QStringList{"--output", "print", "--printer",
                            m_cups.value(output == "raw" ? "CUPS_RAW_QUEUE" : "CUPS_REJECT_QUEUE")};
        if (queue)
            args << "--job-queue";
        // The raw queue's printer: an AppSocket port whose every byte is kept.
        QTcpServer printer;
        QByteArray printed;
        QVERIFY(printer.listen(QHostAddress::LocalHost, m_cups.value("CUPS_RAW_PORT").toUShort()));
        connect(&printer, &QTcpServer::newConnection, this, [&] {
            QTcpSocket* c = printer.nextPendingConnection();
            connect(c, &QTcpSocket::readyRead, this, [&, c] { printed += c->readAll(); });
        });
        QVERIFY(q.start(args));
        sendJob(q.port, bytes);
        QVERIFY2(q.waitForLog(logged, 60000), qPrintable(q.log()));
        QTRY_VERIFY(q.log().contains("Job ") && QDir(q.jobFolder() + "/spool").isEmpty());
        const QStringList files = QDir(q.jobFolder()).entryList(QDir::Files, QDir::Name);
        QCOMPARE(files.size(), kept.size());
        for (int i = 0; i < files.size(); ++i)
            QVERIFY2(files[i].endsWith(kept[i]), qPrintable(files.join(' ')));
        if (sample != "fails" && kept.size() == 1) // kept unconverted
            QCOMPARE(readFile(q.jobFolder() + "/" + files[0]), bytes);
        const QDir failed(q.jobFolder() + "/failed");
        if (sample == "fails" && queue) // the spooled bytes, as they came
            QCOMPARE(readFile(failed.filePath(failed.entryList(QDir::Files).value(0))), bytes);
        QTest::qWait(output == "raw" && kept.size() ? 3000 : 0); // what a printer would get
        QTRY_COMPARE_WITH_TIMEOUT(printed, kept.isEmpty() ? bytes : QByteArray(), 30000);
    }

    void eachOutputKeepsItsFiles_data()
    {
        QTest::addColumn<QString>("output"); // words of --output, as clicks
        QTest::addColumn<int>("pages");
        QTest::addColumn<QStringList>("kept"); // suffixes after the base name
        QTest::addColumn<QString>("blocked");  // a page name that cannot be written
        QTest::addColumn<QString>("shown");    // as the message names it
        const auto row = [](const char* tag, const char* output, int pages, const QStringList& kept,
                            const char* blocked = "", const char* shown = "") {
            QTest::newRow(tag) << QString(output) << pages << kept << QString(blocked)
                               << QString(shown);
        };
        row("pdf, 3 pages", "pdf", 3, {".pdf"});
        row("tiff, 3 pages", "tiff", 3, {".tif"});
        row("tiff, colour, 1 page", "tiff colour", 1, {".tif"});
        row("jpeg, 1 page", "jpeg", 1, {".jpg"});
        row("jpeg, colour, 3 pages", "jpeg colour", 3, {"_001.jpg", "_002.jpg", "_003.jpg"});
        // Save As Image with neither file type ("Others"): the TIFF stays.
        row("image, no file type", "tiff others", 3, {".tif"});
        // A page that cannot be written is shown and passed over.
        row("jpeg, page 2 failed", "jpeg", 3, {"_001.jpg", "_003.jpg"}, "_002.jpg", "002.jpg");
        row("jpeg, 1 page failed", "jpeg", 1, {}, ".jpg", ".jpg");
    }

    void eachOutputKeepsItsFiles()
    {
        QFETCH(QString, output);
        QFETCH(int, pages);
        QFETCH(QStringList, kept);
        QFETCH(QString, blocked);
        QFETCH(QString, shown);
        TestServer s;
        frmMain& w = s.start();
        for (const QString& word : output.split(u' '))
            if (!clickOutputWord(w, word))
                w.Option8->click();
        if (!blocked.isEmpty())
            blockPageName(s, blocked);
        sendJob(s.port, makePsJob(pages));
        QTRY_VERIFY_WITH_TIMEOUT(w.Text1->text().endsWith(QLatin1String(".ps")), 30000);
        QVERIFY(w.Text3->text().contains(w.TxtPath->text())); // the line that runs
        const QStringList expected = kept.replaceInStrings(QRegularExpression("^"), w.fileName());
        QTRY_VERIFY_WITH_TIMEOUT(dispatchDone(w), kJobMs);
        QCOMPARE(s.jobFiles(), expected); // a TIFF not kept and the .ps wiped
        QCOMPARE(w.jobBuffer(), QByteArray());
        // With a failed page: the writer's own message, then the dispatch's.
        QVERIFY2(s.messages.size() == (blocked.isEmpty() ? 0 : 2), qPrintable(s.shown()));
        if (!blocked.isEmpty()) {
            QCOMPARE(s.messages[1].icon, MsgIcon::Exclamation);
            QCOMPARE(s.messages[1].text, "Failed to save the picture to the file: '" +
                                             s.jobPath(w.fileName()) + shown + "'");
        }
        for (const QString& name : expected) {
            QImageReader image(s.jobPath(name));
            if (name.endsWith(QLatin1String(".pdf")))
                QCOMPARE(pdfPages(s.jobPath(name)), pages);
            else if (name.endsWith(QLatin1String(".tif")))
                QCOMPARE(image.imageCount(), pages);
            else
                QCOMPARE(image.size(), QSize(5100, 6600)); // Letter at 600 dpi
        }
    }

    void secondJobDuringAMessageLosesNoPage()
    {
        // While the message of job 1's unwritable page is up, job 2 comes and is dispatched whole.
        TestServer s;
        frmMain& w = s.start();
        clickOutputWord(w, QStringLiteral("jpeg"));
        blockPageName(s, QStringLiteral("_001.jpg"));
        QString first, second;
        setMsgRecorder([&](const Message& m) {
            s.messages.push_back(m);
            if (!first.isEmpty())
                return;
            first = w.fileName();
            QTRY_VERIFY_WITH_TIMEOUT(jobBaseName() != first, 5000); // a name of its own
            sendJob(s.port, kSmallJob);
            QTRY_VERIFY_WITH_TIMEOUT(w.fileName() != first && dispatchDone(w), kJobMs);
            second = w.fileName();
        });
        sendJob(s.port, makePsJob(3));
        QTRY_VERIFY_WITH_TIMEOUT(!second.isEmpty(), kJobMs);
        const QStringList expected{first + "_002.jpg", first + "_003.jpg", second + ".jpg"};
        QTRY_COMPARE_WITH_TIMEOUT(s.jobFiles(), expected, kJobMs);
        QCOMPARE(QImageReader(s.jobPath(expected[0])).size(), QSize(5100, 6600));
        QCOMPARE(QImageReader(s.jobPath(expected[1])).size(), QSize(5100, 6600));
        QCOMPARE(QImageReader(s.jobPath(expected[2])).size(), QSize(1667, 1667));
        QVERIFY2(s.messages.size() == 2, qPrintable(s.shown()));
    }

    void jobArrivingDuringAWaitIsNotLost()
    {
        TestServer s;
        frmMain& w = s.start();
        // The dispatch waits inside the close event: a timer starts the second client in there.
        QString firstBase;
        bool overlapped = false;
        QTimer::singleShot(1500, [&] {
            firstBase = w.fileName();
            overlapped = s.jobFiles().contains(firstBase + ".ps");
            sendJob(s.port, makePsJob(3));
        });
        // A job that keeps Ghostscript busy for seconds before its page.
        sendJob(s.port, "%!PS\n0 1 200000000 { pop } for\n" + makePsJob(1));
        QTRY_VERIFY_WITH_TIMEOUT(!firstBase.isEmpty() && w.fileName() != firstBase, kJobMs);
        QVERIFY2(overlapped, "the first job ended before the second arrived");
        const QString secondBase = w.fileName();
        QTRY_COMPARE_WITH_TIMEOUT(s.jobFiles(),
                                  (QStringList{firstBase + ".pdf", secondBase + ".pdf"}), kJobMs);
        QCOMPARE(pdfPages(s.jobPath(firstBase + ".pdf")), 1);
        QCOMPARE(pdfPages(s.jobPath(secondBase + ".pdf")), 3);
        QCOMPARE(w.connectionCount(), 0);
    }

    void twoDispatchesInOneSecondShareTheName()
    {
        TestServer s;
        frmMain& w = s.start();
        for (int attempt = 0; attempt < 3; ++attempt) {
            // Start early in a second, so that both jobs fit in it.
            QTRY_VERIFY_WITH_TIMEOUT(QTime::currentTime().msec() < 50, 2000);
            const QString second = jobBaseName();
            w.Text1->clear();
            sendJob(s.port, makePsJob(3));
            QTRY_VERIFY_WITH_TIMEOUT(dispatchDone(w), 30000);
            const QString firstName = w.fileName();
            w.Text1->clear();
            sendJob(s.port, makePsJob(1));
            QTRY_VERIFY_WITH_TIMEOUT(dispatchDone(w), 30000);
            if (jobBaseName() != second)
                continue; // the clock moved on: try again in a fresh second
            // One name for both: the second job's files take the first one's place.
            QCOMPARE(firstName, second);
            QCOMPARE(w.fileName(), second);
            QCOMPARE(s.jobFiles().filter(second), QStringList{second + ".pdf"});
            return;
        }
        QSKIP("two jobs did not fit in one second on this machine");
    }

    void missingGhostscriptKeepsTheJob()
    {
        // Neither a bundled bin/gs nor one on the PATH.
        struct PathGone {
            const QByteArray path = qgetenv("PATH");
            PathGone() { qputenv("PATH", "/nonexistent"); }
            ~PathGone() { qputenv("PATH", path); }
        } gone;
        TestServer s;
        frmMain& w = s.start();
        const QByteArray job = makePsJob(1);
        sendJob(s.port, job);
        QTRY_VERIFY_WITH_TIMEOUT(!s.messages.empty(), 30000);
        QVERIFY2(
            s.messages[0].text.startsWith(QLatin1String("Run-time error '53': File not found: ")),
            qPrintable(s.shown()));
        // The job is neither lost nor half-done: its buffer and its .ps stay.
        QCOMPARE(w.jobBuffer(), job);
        QCOMPARE(s.jobFiles(), QStringList{w.fileName() + ".ps"});
    }

    void cloudBranchKeepsTheBuffer()
    {
        TestServer s;
        s.put("CloudClientUserId", QStringLiteral("alice"));
        s.put("CloudClientServerId", QStringLiteral("srv1"));
        // The share is a closed port on this machine: the upload fails at once.
        s.put("CloudBaseUrl", QStringLiteral("http://127.0.0.1:%1/dav/").arg(freePort()));
        frmMain& w = s.start();
        QVERIFY(clickOutputWord(w, QStringLiteral("cloud")) && w.Option9->isChecked());
        const QByteArray job = makePsJob(1);
        sendJob(s.port, job);
        QTRY_VERIFY_WITH_TIMEOUT(
            w.UcCloudSrvr2->txtLog->text().contains(QLatin1String("Requesting HEAD")), 30000);
        QCOMPARE(w.jobBuffer(), job);
        QCOMPARE(s.jobFiles(), QStringList());
        QCOMPARE(w.Text1->text(), QString());
    }

    void savedJobKeepsEveryByte()
    {
        TestServer s;
        frmMain& w = s.start();
        // Every byte value, CR LF pairs and a NUL: PostScript may carry binary data.
        QByteArray bytes("%!PS\r\n");
        for (int i = 0; i < 256; ++i)
            bytes.append(char(i));
        const Job job = Job::named(w.fileName(), w.outputChoice(), s.jobFolder());
        w.SavePSFile(job, bytes);
        QCOMPARE(w.Text1->text(), s.jobPath(w.fileName() + ".ps"));
        QCOMPARE(readFile(job.psPath), bytes + "\n");
        w.SavePSFile(job, "short"); // replaced, not appended to
        QCOMPARE(readFile(job.psPath), QByteArray("short\n"));
    }

    void ghostscriptRunsAreLoggedAndKeptApart()
    {
        TestServer s;
        frmMain& w = s.start();
        // One line naming the job, its first error line without control bytes, no stack dump.
        const Job failed = convert(w, "%!PS\n(bad\x01\x1B[31mname) cvn cvx exec\nshowpage\n");
        QString log = w.txtLog->text();
        QVERIFY2(log == "Ghostscript failed on job " + failed.baseName +
                            ": Ghostscript ended with exit code 1: \"Error: /undefined in "
                            "bad[31mname\"\r\n",
                 qPrintable(log));
        w.txtLog->setText(QString());
        convert(w, makePsJob(1)); // a good job logs nothing
        QCOMPARE(w.txtLog->text(), QString());

        QTemporaryFile secret(QDir::tempPath() + QStringLiteral("/quorvel-secret-XXXXXX"));
        QVERIFY(secret.open() && secret.write("secret\n") && secret.flush());
        convert(w, "%!PS\n(" + secret.fileName().toLocal8Bit() +
                       ") (r) file 100 string readstring pop cvn cvx exec\nshowpage\n");
        QVERIFY2(w.txtLog->text().contains("\"Error: /invalidfileaccess in --file--\""),
                 qPrintable(w.txtLog->text()));
        // The job names a file in its temporary folder: the error line quotes it.
        convert(w, "%!PS\nnull (w) .tempfile pop cvn cvx exec\n");
        log = w.txtLog->text();
        const QString mark = "Error: /undefined in ";
        const qsizetype at = log.indexOf(mark) + mark.size();
        QVERIFY2(at >= mark.size(), qPrintable(log));
        const QString tmpdir = QFileInfo(log.mid(at, log.indexOf(u'"', at) - at)).absolutePath();
        QVERIFY2(tmpdir.startsWith(QDir::tempPath() + QStringLiteral("/quorvel-gs-")),
                 qPrintable(tmpdir));
        QVERIFY2(!QFileInfo::exists(tmpdir), qPrintable(tmpdir)); // removed after the run
    }

    void waitLockAndWipe()
    {
        TestServer s;
        frmMain& w = s.start();
        // The file (not a folder of its name) turns up in the wait, which then gives one second
        // more.
        const QString path = s.jobPath(QStringLiteral("late.tif"));
        QDir().mkpath(path);
        QElapsedTimer since;
        QTimer::singleShot(300, [&] {
            QDir(path).removeRecursively();
            QVERIFY(writeFile(path, QByteArray()));
            since.start();
        });
        w.DoWait4FilePS2PDFCreated(path);
        QVERIFY2(since.elapsed() >= 1000 && since.elapsed() < 3000,
                 qPrintable(QString::number(since.elapsed())));

        QVERIFY(w.IsFileTiffPDFLocked(path));       // empty
        QVERIFY(w.IsFileTiffPDFLocked(path + "x")); // missing
        QVERIFY(!QFileInfo::exists(path + "x"));    // and not made by the check
        const QByteArray content(3 << 20, 'p');
        QVERIFY(writeFile(path, content));
        QFile own(path); // our own descriptors do not count
        QVERIFY(own.open(QIODevice::ReadOnly));
        QVERIFY(!w.IsFileTiffPDFLocked(path));
        // Another process holding it open, to write or read, does: the wipe leaves it for later.
        for (const char* redirect : {">>", "<"}) {
            FileHolder other(path, redirect);
            QVERIFY(w.IsFileTiffPDFLocked(path));
            QVERIFY(!WipeFile(path));
        }
        QCOMPARE(readFile(path), content);
        // A hard link still sees the data after the name is deleted.
        const QString link = s.jobPath(QStringLiteral("seen-through-a-link"));
        QCOMPARE(::link(qPrintable(path), qPrintable(link)), 0);
        QVERIFY(WipeFile(path));
        QVERIFY(!QFileInfo::exists(path));
        QCOMPARE(readFile(link), QByteArray(content.size(), 'X'));
        QVERIFY(WipeFile(path)); // already gone
    }

    void printsOnTheChosenPrinterAndSwitchesBack_data()
    {
        QTest::addColumn<int>("pages");
        QTest::newRow("1 page") << 1;
        QTest::newRow("3 pages") << 3; // every frame is painted onto the one sheet
    }

    void printsOnTheChosenPrinterAndSwitchesBack()
    {
        QFETCH(int, pages);
        QVERIFY2(!m_cups.env.isEmpty(), "the cups fixture wrote no cups.env");
        TestServer s;
        frmMain& w = s.start();
        // Current: the file queue; chosen in the list: the cups-pdf queue.
        w.SelectPrinterByName(m_cups.fileQueue());
        QCOMPARE(CurrentPrinter::DeviceName(), m_cups.fileQueue());
        const auto items = w.List2->findItems(m_cups.pdfQueue(), Qt::MatchExactly);
        QCOMPARE(items.size(), 1);
        w.List2->setCurrentItem(items.first());
        clickOutputWord(w, QStringLiteral("print"));
        const QStringList before = m_cups.printed();
        sendJob(s.port, makePsJob(pages));
        QTRY_VERIFY_WITH_TIMEOUT(w.TxtPath->text().endsWith(".tif") && dispatchDone(w) &&
                                     s.jobFiles().isEmpty() && w.connectionCount() == 0,
                                 120000);
        QVERIFY2(s.messages.empty(), qPrintable(s.shown()));
        // Back on the previous printer; leaving the chosen one sent the page.
        QCOMPARE(CurrentPrinter::DeviceName(), m_cups.fileQueue());
        QString pdf;
        QTRY_VERIFY_WITH_TIMEOUT(!(pdf = m_cups.newCompletePdf(before)).isEmpty(), 60000);
        QCOMPARE(pdfPages(pdf), 1);
    }
};

QUORVEL_CUPS_TEST_MAIN(TestDispatch)
#include "tst_dispatch.moc"
