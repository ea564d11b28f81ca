// The main window's cloud actions on a real share: a job sent to the cloud, fetched and dispatched.
#include "testsupport.h"

#include "cloud/uccloudsrvr.h"
#include "server/runoptions.h"

#include <QDirIterator>

namespace
{
const QString kInstallation = QStringLiteral("quorvel-test");
const QString kEmail = QStringLiteral("printer@example.org");
const ProgramIds kIds{kEmail, kInstallation};

QStringList filesBelow(const QString& folder)
{
    QStringList out;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        out << it.next();
    return out;
}
} // namespace

class TestCloudActions : public QObject
{
    Q_OBJECT
    QMap<QString, QString> m_dav =
        serviceEnv(qEnvironmentVariable("QUORVEL_DAV_SERVICE", "webdav"));
    QString m_collection; // this installation's jobs on the share

    // A window that knows the share; validated unless told otherwise.
    frmMain& start(TestServer& s, bool validated = true, ProgramIds ids = kIds)
    {
        s.put("CloudBaseUrl", m_dav.value(QStringLiteral("DAV_URL")));
        s.put("CloudUser", m_dav.value(QStringLiteral("DAV_USER")));
        s.put("CloudPassword", m_dav.value(QStringLiteral("DAV_PASSWORD")));
        if (validated)
            s.put("UserValidate", ids.userEMailId);
        return s.start(ids);
    }

private slots:
    void init()
    {
        const QString root = m_dav.value(QStringLiteral("DAV_ROOT"));
        QVERIFY2(!root.isEmpty(), "the webdav fixture is not running");
        QDir(root + QStringLiteral("/CloudPrint")).removeRecursively();
        m_collection = root + QStringLiteral("/CloudPrint/") + kInstallation + u'/' + kEmail;
        QDir().mkpath(m_collection);
        // Apache writes as www-data.
        QProcess::execute("chown", {"-R", "www-data:www-data", root + "/CloudPrint"});
    }

    void twoInstallationsSideBySide()
    {
        // Every byte value, read past by the job itself: the bytes must arrive unchanged.
        const QByteArray job = "%!PS\ncurrentfile 256 string readstring\n" + allByteValues() +
                               " pop pop\n/Helvetica findfont 24 scalefont setfont 72 700 moveto\n"
                               "(Cloud job) show showpage\n";
        // Two programs, each with its own folder, settings and port, no window.
        HeadlessQuorvel programs[2];
        const auto run = [&](int i, const QMap<QString, QString>& settings, QStringList args) {
            for (auto [key, dav] : {std::pair{"CloudBaseUrl", "DAV_URL"},
                                    {"CloudUser", "DAV_USER"},
                                    {"CloudPassword", "DAV_PASSWORD"}})
                programs[i].put(key, m_dav.value(dav));
            for (auto it = settings.begin(); it != settings.end(); ++it)
                programs[i].put(it.key(), it.value());
            return programs[i].start(args);
        };
        // The sender prints where its server list chose: this installation's collection.
        QVERIFY(run(0,
                    {{"ClientUserId1", kInstallation},
                     {"ClientServerId1", kEmail},
                     {"Selected1", "Y"},
                     {"CloudClientUserId", kInstallation},
                     {"CloudClientServerId", kEmail}},
                    {"--output", "cloud"}));
        sendJob(programs[0].port, job);
        QTRY_COMPARE_WITH_TIMEOUT(filesBelow(m_collection).size(), 1, 15000);
        QCOMPARE(readFile(filesBelow(m_collection)[0]), job); // byte for byte
        QVERIFY(programs[0].waitForLog("the job buffer is kept"));
        QVERIFY(programs[0].log().contains("Print Uploaded to Cloud..."));
        QCOMPARE(QDir(programs[0].jobFolder()).entryList(QDir::Files), QStringList());

        // The receiver, registered before, fetches at start-up and keeps a PDF.
        QVERIFY(run(1,
                    {{"EMailId", kEmail}, {"UserValidate", kEmail}, {"InstallationId", kInstallation}},
                    {"--get-cloud-data"}));
        const QDir jobs(programs[1].jobFolder());
        QTRY_VERIFY_WITH_TIMEOUT(jobs.entryList(QDir::Files).size() == 1 &&
                                     jobs.entryList(QDir::Files)[0].endsWith(".pdf"),
                                 30000);
        QCOMPARE(filesBelow(m_collection).size(), 1); // it stays on the share
    }

    // What the receiving window does with a listing or a fetched file.
    void receivedListsAndFiles_data()
    {
        QTest::addColumn<QString>("list");     // as the control returns it
        QTest::addColumn<QStringList>("rows"); // List3 afterwards
        QTest::addColumn<QString>("data");     // then a fetched file's text
        QTest::addColumn<bool>("job");         // whether it made a job
        QTest::newRow("blank names are left out")
            << " ,a.ps, ,b.ps" << QStringList{"a.ps", "b.ps"} << "%!PS\nshowpage\n"
            << true;
        QTest::newRow("blanks only make no job") << "a.ps" << QStringList{"a.ps"} << " \r\n\t \n"
                                                 << false;
    }

    void receivedListsAndFiles()
    {
        QFETCH(QString, list);
        QFETCH(QStringList, rows);
        QFETCH(QString, data);
        QFETCH(bool, job);
        TestServer s;
        frmMain& w = start(s);
        w.UcCloudSrvr1_ServerInfoReturn(list);
        QCOMPARE(rowTexts(w.List3), rows);
        QCOMPARE(w.List3->currentRow(), 0); // the first is fetched
        QVERIFY(w.txtLog->text().contains(
            QStringLiteral("Total Printouts Found > %1 > ").arg(rows.size())));
        const QString before = w.fileName();
        QTest::qWait(1100); // a dispatch now names a new job
        w.UcCloudSrvr1_CloudFileReceived(data);
        QCOMPARE(w.fileName() != before, job);
        QTRY_COMPARE_WITH_TIMEOUT(s.jobFiles().size(), job ? 1 : 0, 30000);
    }

    void headlessReceiverRegistersAndPolls()
    {
        // A job waits on the share; a fresh installation registers its user id
        // and fetches it at start-up; each poll fetches it again (it stays there).
        QVERIFY(writeFile(m_collection + QStringLiteral("/File_261122_101010.ps"), makePsJob(1)));
        TestServer s;
        frmMain& w = start(s, false, {QString(), kInstallation});
        RunOptions o;
        QVERIFY(
            o.parse({"quorvel", "--register", kEmail, "--get-cloud-data", "--cloud-poll", "2"}));
        o.apply(w);
        QTRY_VERIFY_WITH_TIMEOUT(s.jobFiles() == QStringList{w.fileName() + ".pdf"}, 30000);
        QVERIFY(w.userValidated());
        QCOMPARE(SettingsStore::get(QStringLiteral("UserValidate")), kEmail);
        QTRY_COMPARE_WITH_TIMEOUT(s.jobFiles().size(), 2, 30000);
        QVERIFY2(!s.shown().contains(QLatin1String("Validated")), qPrintable(s.shown()));
    }

    void messagesWithoutJobsOrValidation()
    {
        {
            TestServer s;
            start(s, false).Command5->click();
            QCOMPARE(s.shown(), QStringLiteral("User Id Not Validated..."));
        }
        TestServer s;
        start(s).Command5->click(); // the collection is empty
        QTRY_COMPARE_WITH_TIMEOUT(s.shown(), QStringLiteral("No Files Found..."), 15000);
    }

    void unknownUserUntagsTheBox()
    {
        // The share has no collection for this installation.
        TestServer s;
        frmMain& w = start(s, false, {QString(), QStringLiteral("not-on-the-share")});
        w.TxtEmailId->setText(QStringLiteral("nobody@example.org"));
        w.Check1->setChecked(true); // the user ticks the box
        QTRY_VERIFY_WITH_TIMEOUT(
            s.shown().endsWith(QLatin1String("User Id not found on server...")), 15000);
        QVERIFY(!w.Check1->isChecked() && !w.userValidated());
        QCOMPARE(SettingsStore::get(QStringLiteral("UserValidate")), QString());
    }
};

QTEST_MAIN(TestCloudActions)
#include "tst_cloudactions.moc"
