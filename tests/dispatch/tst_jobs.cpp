// Jobs sent by real TCP clients end, through the real Ghostscript, as the
// option buttons say; the files the option does not keep are wiped.

#include "dispatchtest.h"

#include "cloud/uccloudsrvr.h"
#include "server/jobfiles.h"

#include <QDateTime>
#include <QImageReader>
#include <QTimer>

namespace
{
// Long enough for three 600 dpi colour pages on a busy machine.
constexpr int kJobTimeoutMs = 180000;
} // namespace

class TestJobs : public QObject
{
    Q_OBJECT
private slots:
    void init() { SettingsStore::remove(QStringLiteral("CloudClientUserId")); }

    void eachOptionKeepsItsFiles_data()
    {
        QTest::addColumn<QString>("option");
        QTest::addColumn<bool>("colour");
        QTest::addColumn<int>("pages");
        QTest::addColumn<QStringList>("kept"); // suffixes after the base name

        const QStringList pages3{"_001.jpg", "_002.jpg", "_003.jpg"};
        QTest::newRow("pdf, 1 page") << "pdf" << false << 1 << QStringList{".pdf"};
        QTest::newRow("pdf, 3 pages") << "pdf" << false << 3 << QStringList{".pdf"};
        QTest::newRow("tiff, 3 pages") << "tiff" << false << 3 << QStringList{".tif"};
        QTest::newRow("tiff, colour, 1 page") << "tiff" << true << 1 << QStringList{".tif"};
        QTest::newRow("jpeg, 1 page") << "jpeg" << false << 1 << QStringList{".jpg"};
        QTest::newRow("jpeg, 3 pages") << "jpeg" << false << 3 << pages3;
        QTest::newRow("jpeg, colour, 3 pages") << "jpeg" << true << 3 << pages3;
        // Save As Image with neither file type: the TIFF stays.
        QTest::newRow("image, no file type") << "image" << false << 3 << QStringList{".tif"};
    }

    void eachOptionKeepsItsFiles()
    {
        QFETCH(QString, option);
        QFETCH(bool, colour);
        QFETCH(int, pages);
        QFETCH(QStringList, kept);

        Server s;
        frmMain& w = *s.window;
        choose(w, option, colour);
        sendJob(s.port, makePsJob(pages));
        QTRY_VERIFY_WITH_TIMEOUT(w.Text1->text().endsWith(QLatin1String(".ps")), 30000);
        QStringList expected;
        for (const QString& suffix : kept)
            expected << w.fileName() + suffix;
        // The .ps goes last, so this is the end of the dispatch.
        QTRY_COMPARE_WITH_TIMEOUT(s.jobFiles(), expected, kJobTimeoutMs);
        QCOMPARE(w.jobBuffer(), QByteArray());
        QVERIFY2(s.messages.empty(), qPrintable(s.shown()));

        for (const QString& name : expected) {
            QImageReader image(s.jobPath(name));
            if (name.endsWith(QLatin1String(".pdf"))) {
                QCOMPARE(pdfPages(s.jobPath(name)), pages);
            } else if (name.endsWith(QLatin1String(".tif"))) {
                QCOMPARE(image.imageCount(), pages);
            } else {
                QCOMPARE(image.format(), QByteArray("jpeg"));
                QCOMPARE(image.size(), QSize(5100, 6600)); // Letter at 600 dpi
            }
        }
    }

    void failedJpegPageIsShownAndPassedOver_data()
    {
        QTest::addColumn<int>("pages");
        QTest::addColumn<QString>("blocked"); // the page name that cannot be written
        QTest::addColumn<QString>("shown");   // as the message names it
        QTest::addColumn<QStringList>("kept");
        QTest::newRow("3 pages") << 3 << "_002.jpg"
                                 << "002.jpg" << QStringList{"_001.jpg", "_003.jpg"};
        QTest::newRow("1 page") << 1 << ".jpg"
                                << ".jpg" << QStringList{};
    }

    void failedJpegPageIsShownAndPassedOver()
    {
        QFETCH(int, pages);
        QFETCH(QString, blocked);
        QFETCH(QString, shown);
        QFETCH(QStringList, kept);

        Server s;
        frmMain& w = *s.window;
        choose(w, QStringLiteral("jpeg"));
        // A folder where a page should go, for every name the next seconds can give.
        const QDateTime now = QDateTime::currentDateTime();
        for (int second = 0; second < 20; ++second)
            QDir(s.jobFolder()).mkpath(jobBaseName(now.addSecs(second)) + blocked);

        sendJob(s.port, makePsJob(pages));
        QTRY_VERIFY_WITH_TIMEOUT(w.jobBuffer().isEmpty() && !w.Text1->text().isEmpty() &&
                                     !QFileInfo::exists(w.Text1->text()),
                                 kJobTimeoutMs);
        QStringList expected;
        for (const QString& suffix : kept)
            expected << w.fileName() + suffix;
        QTRY_COMPARE_WITH_TIMEOUT(s.jobFiles(), expected, kJobTimeoutMs); // TIFF and .ps wiped

        const QString text =
            "Failed to save the picture to the file: '" + s.jobPath(w.fileName()) + shown + "'";
        QVERIFY2(std::any_of(s.messages.begin(), s.messages.end(),
                             [&](const Message& m) {
                                 return m.text == text && m.icon == MsgIcon::Exclamation;
                             }),
                 qPrintable(s.shown()));
    }

    void jobArrivingDuringAWaitIsNotLost()
    {
        Server s;
        frmMain& w = *s.window;
        // The dispatch runs inside the close event and waits there, so the
        // second client is started by a timer from within that wait.
        QString firstBase;
        bool overlapped = false;
        QTimer::singleShot(1500, [&] {
            firstBase = w.fileName();
            overlapped = s.jobFiles().contains(firstBase + ".ps");
            sendJob(s.port, makePsJob(3));
        });
        // A job that keeps Ghostscript busy for seconds before its page.
        sendJob(s.port, "%!PS\n0 1 200000000 { pop } for\n" + makePsJob(1));

        QTRY_VERIFY_WITH_TIMEOUT(!firstBase.isEmpty() && w.fileName() != firstBase, kJobTimeoutMs);
        QVERIFY2(overlapped, "the first job ended before the second arrived");
        const QString secondBase = w.fileName();
        QTRY_COMPARE_WITH_TIMEOUT(
            s.jobFiles(), (QStringList{firstBase + ".pdf", secondBase + ".pdf"}), kJobTimeoutMs);
        QCOMPARE(pdfPages(s.jobPath(firstBase + ".pdf")), 1);
        QCOMPARE(pdfPages(s.jobPath(secondBase + ".pdf")), 3);
        QCOMPARE(w.connectionCount(), 0);
    }

    void missingGhostscriptKeepsTheJob()
    {
        // Neither a bundled bin/gs nor one on the PATH.
        struct PathGone {
            const QByteArray path = qgetenv("PATH");
            PathGone() { qputenv("PATH", "/nonexistent"); }
            ~PathGone() { qputenv("PATH", path); }
        } gone;
        Server s;
        frmMain& w = *s.window;
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
        CloudAccount account;
        // The share is a closed port on this machine: the upload fails at once.
        SettingsStore::put(QStringLiteral("CloudBaseUrl"),
                           QStringLiteral("http://127.0.0.1:%1/dav/").arg(freePort()));
        Server s;
        frmMain& w = *s.window;
        QVERIFY(w.Option9->isEnabled());
        w.Option9->click();
        const QByteArray job = makePsJob(1);
        sendJob(s.port, job);
        // The upload starts with the question whether the file exists already.
        QTRY_VERIFY_WITH_TIMEOUT(
            w.UcCloudSrvr2->txtLog->text().contains(QLatin1String("Requesting HEAD")), 30000);
        QCOMPARE(w.jobBuffer(), job);
        QCOMPARE(s.jobFiles(), QStringList());
        QCOMPARE(w.Text1->text(), QString());
    }
};

QTEST_MAIN(TestJobs)
#include "tst_jobs.moc"
