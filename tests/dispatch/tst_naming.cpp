// File names from a template: tokens, hostile and non-ASCII titles, collisions, and both roads.
#include "testsupport.h"

#include "dispatch/jobnaming.h"

#include <QDirIterator>
#include <QHostInfo>

class TestNaming : public QObject
{
    Q_OBJECT
private slots:
    void templateNames_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QStringList>("taken"); // files there before, relative
        QTest::addColumn<QString>("expected");  // the output made, relative; HOST: this computer
        const auto row = [](const char* tag, const char* pattern, const QString& title,
                            const char* user, QStringList taken, const QString& expected) {
            QTest::newRow(tag) << QString(pattern) << title << QString(user) << taken << expected;
        };
        row("every token", "{user}/{date}_{time} {title} {client} {host} {counter} {language}",
            "Report", "alice", {},
            "alice/2026-03-04_050607 Report 10.0.0.7 HOST 0001 PostScript.pdf");
        row("no template", "", "Report", "alice", {}, "File_260304_050607.pdf");
        row("empty values", "{user}/{title}", "", "", {}, "unknown/untitled.pdf");
        row("non-ASCII kept", "{title}", QString::fromUtf8("Relevé 北京 ⚠"), "", {},
            QString::fromUtf8("Relevé 北京 ⚠.pdf"));
        row("slashes in a value", "{user}/{title}", "../../etc/passwd", "a/b", {},
            "a_b/_._etc_passwd.pdf");
        row("dots only", "{title}", "..", "", {}, "_.pdf");
        row("control and Windows characters", "{title}", QString("a\tb\x01<c>:\"d\"|e?*f\\g"), "",
            {}, "a_b__c___d__e__f_g.pdf");
        row("trailing dots and blanks", "{title}", " name. . ", "", {}, "name.pdf");
        row("reserved names", "{user}/{title}", "con.txt", "LPT1", {}, "_LPT1/_con.txt.pdf");
        row("long title cut at 200 bytes", "{title}", QString(150, QChar(0x00e9)), "", {},
            QString(100, QChar(0x00e9)) + ".pdf");
        row("collisions", "{title}", "Report", "", {"Report.pdf", "Report_2.pdf", "Report_3.jpg"},
            "Report_4.pdf");
        row("a taken folder name", "{user}/x", "", "bob", {"bob/x_001.jpg"}, "bob/x_2.pdf");
    }
    void templateNames()
    {
        QFETCH(QString, pattern);
        QFETCH(QString, title);
        QFETCH(QString, user);
        QFETCH(QStringList, taken);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        SettingsStore::setFolder(dir.filePath("settings"));
        for (const QString& name : taken) {
            QDir().mkpath(QFileInfo(dir.filePath(name)).path());
            QVERIFY(writeFile(dir.filePath(name), "x"));
        }
        OutputChoice pdf;
        Job job = Job::named("File_260304_050607", pdf, dir.path());
        job.received = QDateTime(QDate(2026, 3, 4), QTime(5, 6, 7));
        job.title = title;
        job.user = user;
        job.client = "10.0.0.7";
        QVERIFY(JobNaming(pattern).name(job));
        QCOMPARE(
            job.relative(job.outputPath),
            QString(expected).replace("HOST", JobNaming::safePart(QHostInfo::localHostName())));
        QCOMPARE(QFileInfo(job.outputPath).isFile(), !pattern.isEmpty()); // taken: made now
        QCOMPARE(job.exclusive, !pattern.isEmpty());
        QCOMPARE(job.psPath, dir.filePath("File_260304_050607.ps")); // never templated
        QVERIFY(QFileInfo(job.outputPath).fileName().toUtf8().size() <= 204);
        SettingsStore::setFolder({});
    }

    void templatesThePreferencesRefuse_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QString>("problem");
        QTest::newRow("fine") << "{user}/{date}/{title}"
                              << "";
        QTest::newRow("parent") << "../{title}"
                                << "no \"..\"";
        QTest::newRow("absolute") << "/tmp/{title}"
                                  << "not an absolute path";
        QTest::newRow("drive") << "C:\\x"
                               << "not an absolute path";
        QTest::newRow("unknown token") << "{titel}"
                                       << "no token {titel}";
        QTest::newRow("empty folder") << "{user}//{title}"
                                      << "an empty folder name";
    }
    void templatesThePreferencesRefuse()
    {
        QFETCH(QString, pattern);
        QFETCH(QString, problem);
        const QString said = JobNaming::problem(pattern);
        QVERIFY2(problem.isEmpty() ? said.isEmpty() : said.contains(problem), qPrintable(said));
    }

    // Both roads through the listener and Ghostscript: PDF and JPEG pages under the template's
    // folder, a second job beside the first, a job kept as it came; the .ps never templated.
    void jobsThroughTheListener_data()
    {
        QTest::addColumn<bool>("queue");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QStringList>("kept"); // after two identical jobs
        for (const bool queue : {false, true}) {
            const char* mode = queue ? "queued" : "default";
            QTest::addRow("pdf, %s", mode)
                << queue << "pdf" << QStringList{"alice/Rapport é.pdf", "alice/Rapport é_2.pdf"};
            QTest::addRow("jpeg, %s", mode)
                << queue << "jpeg"
                << QStringList{"alice/Rapport é_001.jpg", "alice/Rapport é_002.jpg",
                               "alice/Rapport é_2_001.jpg", "alice/Rapport é_2_002.jpg"};
        }
        QTest::newRow("kept unconverted, queued")
            << true << "bytes" << QStringList{"unknown/untitled.bin", "unknown/untitled_2.bin"};
    }
    void jobsThroughTheListener()
    {
        QFETCH(bool, queue);
        QFETCH(QString, output);
        QFETCH(QStringList, kept);
        HeadlessQuorvel q;
        q.put("NameTemplate", "{user}/{title}");
        const QByteArray page = "<< /PageSize [100 100] >> setpagedevice 0 0 moveto 99 99 lineto "
                                "stroke showpage\n";
        const QByteArray job = output == "bytes"
                                   ? QByteArray("\x01\x02 no language\n")
                                   : "%!PS-Adobe-3.0\n%%Title: Rapport \xc3\xa9\n%%For: alice\n"
                                     "%%EndComments\n" +
                                         page + page;
        QStringList args{"--output", output == "bytes" ? "pdf" : output};
        if (queue)
            args << "--job-queue";
        QVERIFY(q.start(args));
        for (int i = 1; i <= 2; ++i) {
            sendJob(q.port, job);
            QVERIFY2(q.waitForLog(QString(" -> "), 60000) &&
                         QTest::qWaitFor([&] { return q.log().count(" -> ") == i; }, 60000),
                     qPrintable(q.log()));
        }
        QStringList files;
        QDirIterator it(q.jobFolder(), QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            files << QDir(q.jobFolder()).relativeFilePath(it.next());
        files.sort();
        QCOMPARE(files, kept);
        QVERIFY2(q.log().contains(" -> " + kept.last().section('/', 0, 0) + "/"),
                 qPrintable(q.log()));
    }
};

QTEST_MAIN(TestNaming)
#include "tst_naming.moc"
