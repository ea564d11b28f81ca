// A job's road through the real Ghostscript, from TCP clients to the files or printer it ends in.
#include "testsupport.h"

#include "cloud/uccloudsrvr.h"
#include "convert/currentprinter.h"
#include "dispatch/jobdispatcher.h"
#include "dispatch/jobfiles.h"
#include "history/jobhistory.h"
#include "jobs/frmjobs.h"
#include "language/joblanguage.h"
#include "server/runoptions.h"
#include "tray/ctlsystrayballoon.h"

#include <QButtonGroup>
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
    static const QMap<QString, QString> devices{{"pcl", "ljet4"},     {"pxl", "pxlmono"},
                                                {"pwg", "pwgraster"}, {"urf", "urf"},
                                                {"xps", "xpswrite"},  {"png", "png16m"}};
    if (made.contains(name))
        return made[name];
    if (name == "pwg-cut") // a raster stream that ends inside its first page
        return made[name] = sample("pwg").left(2000);
    QByteArray& bytes = made[name];
    if (devices.contains(name)) {
        writeFile(dir.filePath("in.ps"), makePsJob(2));
        QProcess::execute("gs", {"-q", "-dNOPAUSE", "-dBATCH", "-r100", "-sDEVICE=" + devices[name],
                                 "-sOutputFile=" + dir.filePath(name), dir.filePath("in.ps")});
        bytes = readFile(dir.filePath(name));
    } else if (name.startsWith("pjl")) { // a PJL-wrapped job titled in UTF-8 or Latin-1
        const QString title = QStringLiteral("Relev\u00e9 trimestriel");
        bytes = "\x1B%-12345X@PJL JOB NAME=\"" +
                (name.endsWith("utf8") ? title.toUtf8() : title.toLatin1()) +
                "\"\r\n@PJL SET USERNAME=\"alice\"\r\n@PJL ENTER LANGUAGE=POSTSCRIPT\r\n" +
                kSmallJob + "\x1B%-12345X@PJL EOJ\r\n\x1B%-12345X";
    } else if (name == "pdf-utf16") { // its Info /Title in UTF-16BE with a BOM
        writeFile(dir.filePath("in.ps"), "[ /Title <FEFF00520065006C0065007600E9002026A0> /Author "
                                         "(bob) /DOCINFO pdfmark\n" +
                                             kSmallJob);
        QProcess::execute("gs", {"-q", "-dNOPAUSE", "-dBATCH", "-sDEVICE=pdfwrite",
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
        row("zip, not XPS", QByteArray("PK\x03\x04 readme.txt"), "an unknown language");
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
        QTest::addColumn<QString>("line");    // the job's own line, after "from "
        QTest::addColumn<QString>("history"); // its row in --history
        for (const bool queue : {false, true}) {
            const auto row = [queue](const char* sample, const char* output, QStringList kept,
                                     const char* logged, const char* line, const char* history) {
                if (queue) // the PostScript of a failed job goes to failed/
                    kept.removeAll(".ps");
                QTest::addRow("%s, %s%s", sample, output, queue ? ", queued" : "")
                    << QString(sample) << queue << QString(output) << kept << QString(logged)
                    << QString(line) << QString(history);
            };
            row("pcl", "pdf", {".pcl"},
                " is PCL 5, which is not converted here: kept unconverted as ",
                "ADDR: PCL 5, kept unconverted -> File_\\S+\\.pcl$", "kept unconverted +PCL 5 ");
            row("pxl", "tiff", {".pxl"},
                " is PCL XL, which is not converted here: kept unconverted",
                "ADDR: PCL XL, kept unconverted -> File_\\S+\\.pxl$", " PCL XL ");
            row("random", "pdf", {".bin"}, " is in no language Quorvel knows: kept unconverted as ",
                "ADDR: an unknown language, kept unconverted -> File_\\S+\\.bin$",
                "kept unconverted +an unknown language ");
            row("pcl", "raw", {}, " is PCL 5: sent to the printer \"QuorvelRaw\" as a raw job",
                "ADDR: PCL 5 -> printer \"QuorvelRaw\" \\(raw\\)$", "done +PCL 5 ");
            row("pxl", "reject", {".pxl"}, " is PCL XL: the printer \"QuorvelReject\" refused it (",
                "ADDR: PCL XL, kept unconverted \\(the printer refused it: .+\\) -> "
                "File_\\S+\\.pxl$",
                "kept unconverted +PCL XL ");
            row("random", "raw", {".bin"}, ": not sent to the printer, kept unconverted as ",
                "ADDR: an unknown language, kept unconverted -> File_\\S+\\.bin$", " unknown ");
            row("fails", "pdf", {".ps", "_partial.pdf"},
                "exit code 1: \"Error: /undefined in nosuchoperator\"; the 2 pages made before the "
                "error are kept as ",
                "ADDR: PostScript, 2 pages, partial \\(FAILED\\) -> File_\\S+_partial\\.pdf$",
                "partial +PostScript +2 ");
            row("fails", "tiff", {".ps", "_partial.tif"}, "; the 2 pages made before the error",
                "ADDR: PostScript, 2 pages, partial \\(FAILED\\) -> File_\\S+_partial\\.tif$",
                "partial +PostScript +2 ");
            row("fails", "jpeg", {".ps", "_001.jpg", "_002.jpg"},
                "; it failed at page 3; the pages before it are kept as JPEG files",
                "ADDR: PostScript, 2 pages, partial \\(FAILED\\) -> File_\\S+_001\\.jpg, "
                "File_\\S+_002\\.jpg$",
                "partial +PostScript +2 ");
            row("fails", "cups-pdf", {".ps"},
                "; it failed at page 3 (the pages before it were printed)",
                "ADDR: PostScript, 2 pages, partial \\(FAILED\\) -> printer \"QuorvelPDF\"$",
                "partial +PostScript +2 ");
            // Images, raster streams and XPS become the chosen output like any job.
            for (const char* raster : {"pwg", "urf", "xps"})
                row(raster, "pdf", {".pdf"}, ", 2 pages -> File_",
                    "ADDR: [^,]+, 2 pages -> File_\\S+\\.pdf$", "done +[^ ].* +2 ");
            row("png", "tiff", {".tif"}, "PNG, 1 page -> File_",
                "ADDR: PNG, 1 page -> File_\\S+\\.tif$", "done +PNG +1 ");
            row("pwg-cut", "pdf", {".pwg"}, " is PWG raster, which cannot be read (",
                "ADDR: PWG raster, kept unconverted \\(.+\\) -> File_\\S+\\.pwg$",
                "kept unconverted +PWG raster ");
            // Titles and users: PJL (UTF-8, Latin-1), then the PDF Info dictionary (UTF-16).
            for (const char* pjl : {"pjl-utf8", "pjl-latin1"})
                row(pjl, "pdf", {".pdf"}, "Job \"Relev\u00e9 trimestriel\" from alice",
                    "alice \\(ADDR\\): PostScript, 1 page -> File_\\S+\\.pdf$",
                    "done +PostScript +1 .* alice +Relev\u00e9 trimestriel +File_");
            row("pdf-utf16", "tiff", {".tif"}, "Job \"Relev\u00e9 \u26a0\" from bob",
                "bob \\(ADDR\\): PDF, 1 page -> File_\\S+\\.tif$",
                "done +PDF +1 .* bob +Relev\u00e9 \u26a0 +File_");
        }
    }
    void samplesThroughTheListener()
    {
        QFETCH(QString, sample);
        QFETCH(bool, queue);
        QFETCH(QString, output);
        QFETCH(QStringList, kept);
        QFETCH(QString, logged);
        QFETCH(QString, line);
        QFETCH(QString, history);
        const QByteArray bytes = ::sample(sample);
        QVERIFY(!bytes.isEmpty());
        HeadlessQuorvel q;
        QStringList args{"--output", output};
        const QMap<QString, const char*> queues{{"raw", "CUPS_RAW_QUEUE"},
                                                {"reject", "CUPS_REJECT_QUEUE"},
                                                {"cups-pdf", "CUPS_PDF_QUEUE"}};
        if (queues.contains(output))
            args = QStringList{"--output", "print", "--printer", m_cups.value(queues[output])};
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
        if (kept.size() == 1 && QStringList{".pcl", ".pxl", ".bin", ".pwg"}.contains(kept[0]))
            QCOMPARE(readFile(q.jobFolder() + "/" + files[0]), bytes);
        const QDir failed(q.jobFolder() + "/failed");
        if (sample == "fails" && queue) // the spooled bytes, as they came
            QCOMPARE(readFile(failed.filePath(failed.entryList(QDir::Files).value(0))), bytes);
        QTest::qWait(output == "raw" && kept.size() ? 3000 : 0); // what a printer would get
        QTRY_COMPARE_WITH_TIMEOUT(printed, output == "raw" && kept.isEmpty() ? bytes : QByteArray(),
                                  30000);
        // One line for the job, one history row.
        const QRegularExpression jobLine(
            QString(" Job .* from " + line)
                .replace("ADDR", "(localhost, )?127\\.0\\.0\\.1")
                .replace("FAILED", QRegularExpression::escape(
                                       "Ghostscript ended with exit code 1: \"Error: /undefined "
                                       "in nosuchoperator\"")),
            QRegularExpression::MultilineOption);
        QTRY_VERIFY2(q.log().count(jobLine) == 1, qPrintable(q.log()));
        QProcess list;
        list.setProcessEnvironment(q.process.processEnvironment());
        list.start(qEnvironmentVariable("QUORVEL_BINARY"), {"--history"});
        QVERIFY(list.waitForFinished(30000));
        const QStringList rows = QString::fromUtf8(list.readAllStandardOutput()).split('\n');
        QCOMPARE(rows.size(), 3); // the header, the job, the end
        QVERIFY2(rows[1].contains(QRegularExpression(history)), qPrintable(rows.join('\n')));
    }

    void historyKeepsDaysAndRows()
    {
        TestServer s; // settings of its own
        s.put("HistoryDays", "90");
        s.put("HistoryMax", "3");
        const QDateTime now = QDateTime::currentDateTime();
        for (int i = 1; i <= 5; ++i) {
            JobRecord r;
            r.name = "File_" + QString::number(i);
            r.finished = i == 5 ? now.addDays(-91) : now; // the last one is past its days
            QVERIFY(JobHistory::add(r));
        }
        const QString table = JobHistory::table();
        // 1 went past the most rows, 5 past the days.
        QVERIFY2(table.count("File_") == 3 && table.contains("File_2") &&
                     table.contains("File_4") && !table.contains("File_5"),
                 qPrintable(table));
    }

    // The whole Ghostscript line per output: Ghostscript itself takes a wrong device or flag.
    void commandLineForEachOutput_data()
    {
        QTest::addColumn<QStringList>("checked"); // option buttons, with exclusivity off
        QTest::addColumn<bool>("safer");
        QTest::addColumn<QString>("line");
        const QString tiff =
            "\"/gs dir/gs\" -dNOPAUSE -dBATCH -r600 -sDEVICE=%1 -sPAPERSIZE=letter "
            "-dCOLORSCREEN=%2 -dDITHERPPI=204 -dQUIET -sOutputFile=\"/job "
            "dir/File_1.tif\" \"/job dir/File_1.ps\"";
        const QString pdf = "\"/gs dir/gs\"%1 -dNOPAUSE -dBATCH -sDEVICE=pdfwrite -dQUIET "
                            "-sOutputFile=\"/job dir/File_1.pdf\"  \"/job dir/File_1.ps\"";
        const auto row = [](const char* tag, const QStringList& checked, const QString& line,
                            bool safer = false) { QTest::newRow(tag) << checked << safer << line; };
        row("print", {"Option3"}, tiff.arg("tifflzw", "0"));
        row("image, grayscale", {"Option2", "Option6"}, tiff.arg("tifflzw", "4"));
        row("image, colour", {"Option2", "Option7"}, tiff.arg("tiff12nc", "4"));
        row("tiff file, colour", {"Option1", "Option4", "Option7"}, tiff.arg("tiff12nc", "4"));
        row("pdf", {"Option1"}, pdf.arg(""));
        row("pdf, Ghostscript before 9.50", {"Option1"}, pdf.arg(" -dSAFER"), true);
        row("print, Ghostscript before 9.50", {"Option3"},
            tiff.arg("tifflzw", "0").replace("gs\" -d", "gs\" -dSAFER -d"), true);
        // Two at once: print wins over image, image over PDF.
        row("print and image", {"Option3", "Option2", "Option7"}, tiff.arg("tifflzw", "0"));
        row("image and pdf", {"Option1", "Option2"}, tiff.arg("tifflzw", "4"));
        row("nothing", {}, "");
    }
    void commandLineForEachOutput()
    {
        QFETCH(QStringList, checked);
        QFETCH(bool, safer);
        QFETCH(QString, line);
        TestServer s;
        frmMain& w = s.start();
        for (QButtonGroup* g : {w.actionGroup, w.imageTypeGroup, w.colourGroup}) {
            g->setExclusive(false);
            for (QAbstractButton* b : g->buttons())
                b->setChecked(false);
        }
        const QMap<QString, QRadioButton*> buttons{{"Option1", w.Option1}, {"Option2", w.Option2},
                                                   {"Option3", w.Option3}, {"Option4", w.Option4},
                                                   {"Option6", w.Option6}, {"Option7", w.Option7}};
        for (const QString& name : checked)
            buttons[name]->setChecked(true);
        w.DoChangeOption(); // as the dispatch does first
        const JobDispatcher road({"/gs dir/gs", QString(), {}, nullptr, {}, safer, {}});
        QCOMPARE(road.commandLine(Job::named("File_1", w.outputChoice(), "/job dir")), line);
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

    void jpegExportShowsEachPage()
    {
        // Tooltip and jobs window follow the pages in order; then the tooltip is the name again.
        TestServer s;
        frmMain& w = s.start();
        clickOutputWord(w, QStringLiteral("jpeg"));
        w.showJobs();
        QStringList seen;
        const auto tip = [&] { return w.ctlSysTrayBalloon1->Tooltip().section(QChar(0), 0, 0); };
        connect(&w, &frmMain::progressed, this, [&](const QString& job, int done, int total) {
            QCOMPARE(w.jobsWindow()->lblProgress->text(), tip());
            seen << QStringLiteral("%1/%2 ").arg(done).arg(total) + tip().replace(job, "J");
        });
        sendJob(s.port, makePsJob(3));
        QTRY_VERIFY_WITH_TIMEOUT(seen.size() >= 4, kJobMs);
        QCOMPARE(seen, (QStringList{"0/0 Converting job J", "1/3 Converting 1 of 3 pages",
                                    "2/3 Converting 2 of 3 pages", "3/3 Converting 3 of 3 pages"}));
        QTRY_COMPARE(tip() + w.jobsWindow()->lblProgress->text(), QStringLiteral("Quorvel"));
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

        // A run that ended well, its output removed since: the road gives up instead of waiting.
        QStringList logged;
        JobDispatcher::Host host;
        host.log = [&](const QString& l) { logged << l; };
        const JobDispatcher road(host);
        const Job gone = Job::named("gone", w.outputChoice(), s.jobFolder());
        QObject scope; // else it hangs: the file comes after 3 s
        QTimer::singleShot(3000, &scope, [&] { writeFile(gone.outputPath, "%PDF"); });
        QElapsedTimer waited;
        waited.start();
        road.complete(gone,
                      std::make_shared<const GsRun>(GsRun{"gone", gone.outputPath, true, {}}));
        QVERIFY(waited.elapsed() < 3000);
        QVERIFY(logged.join(u'|').contains("Job gone is lost: its output"));
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
