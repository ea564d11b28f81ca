// The main window's cloud actions on a real share: a job sent to the cloud, fetched and dispatched.
#include "testsupport.h"

#include "cloud/uccloudsrvr.h"
#include "server/runoptions.h"
#include "tray/ctlsystrayballoon.h"

#include <QDirIterator>
#include <algorithm>

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

    // Sender to share to receiver, on the share as packaged: each waiting job printed once,
    // across polls and a restart; with "delete" the share is empty afterwards.
    void cloudRoad_data()
    {
        QTest::addColumn<QStringList>(
            "receiver"); // its options besides --register and --cloud-poll
        QTest::addColumn<bool>("deletes");
        QTest::addColumn<bool>("ipp"); // the sender takes the jobs by IPP, not on its 9100 port
        QTest::newRow("one buffer, files kept") << QStringList() << false << false;
        QTest::newRow("queue, files deleted")
            << QStringList{"--job-queue", "--cloud-after-fetch", "delete"} << true << false;
#ifdef QUORVEL_HAVE_IPP
        QTest::newRow("IPP in, cloud out") << QStringList() << false << true;
#endif
    }
    void cloudRoad()
    {
        QFETCH(QStringList, receiver);
        QFETCH(bool, deletes);
        QFETCH(bool, ipp);
        // Every byte value, read past by the job itself; and one over 1 MB.
        QByteArrayList jobs = {"%!PS\ncurrentfile 256 string readstring\n" + allByteValues() +
                                   " pop pop\n/Helvetica findfont 24 scalefont setfont 72 700 "
                                   "moveto\n(Cloud job) show showpage\n",
                               makePsJob(1)};
        while (jobs[1].size() <= 1 << 20)
            jobs[1] += '%' + QByteArray(98, 'x') + '\n';
        // Two programs, each with its own folder, settings and port, no window.
        HeadlessQuorvel programs[2];
        for (auto& p : programs)
            for (auto [key, dav] : {std::pair{"CloudBaseUrl", "DAV_URL"},
                                    {"CloudUser", "DAV_USER"},
                                    {"CloudPassword", "DAV_PASSWORD"}})
                p.put(key, m_dav.value(dav));
        // The sender prints where its server list chose; queued, each upload is its own job.
        for (auto [key, value] : {std::pair{"ClientUserId1", kInstallation},
                                  {"ClientServerId1", kEmail},
                                  {"Selected1", QStringLiteral("Y")},
                                  {"CloudClientUserId", kInstallation},
                                  {"CloudClientServerId", kEmail}})
            programs[0].put(key, value);
        const quint16 ippPort = freePort();
        QVERIFY(programs[0].start(
            ipp ? QStringList{"--output", "cloud", "--ipp-port", QString::number(ippPort)}
                : QStringList{"--output", "cloud", "--job-queue"}));
        QVERIFY(!ipp || programs[0].waitForLog("IPP printer")); // it starts after port 9100
        for (const QByteArray& job : jobs) {
            QString said;
            const QString file = programs[0].home.filePath("sent.ps");
            if (!ipp)
                sendJob(programs[0].port, job);
            else
                QVERIFY2(writeFile(file, job) &&
                             ippPrint(QStringLiteral("ipp://127.0.0.1:%1/ipp/print").arg(ippPort),
                                      file, "application/postscript", "cloud", &said),
                         qPrintable(said));
            QTest::qWait(1100); // a name of its own
        }
        QTRY_COMPARE_WITH_TIMEOUT(filesBelow(m_collection).size(), 2, 15000);
        QByteArrayList onShare;
        for (const QString& f : filesBelow(m_collection))
            onShare << readFile(f);
        QByteArrayList sent = jobs;
        std::sort(onShare.begin(), onShare.end()), std::sort(sent.begin(), sent.end());
        QCOMPARE(onShare, sent); // byte for byte, three collections down
        QCOMPARE(QDir(programs[0].jobFolder()).entryList(QDir::Files), QStringList());

        // The receiver registers its user id, then polls every second.
        programs[1].put("EMailId", kEmail);
        programs[1].put("InstallationId", kInstallation);
        const QStringList args = receiver + QStringList{"--register", kEmail, "--cloud-poll", "1"};
        const auto pdfs = [&] {
            return QDir(programs[1].jobFolder()).entryList({"*.pdf"}, QDir::Files).size();
        };
        for (int run = 0; run < 2; ++run) { // polls, then a new process: none printed again
            if (run)
                programs[1].stop();
            QVERIFY(programs[1].start(args));
            QVERIFY(programs[1].waitForLog("is registered for this installation"));
            if (!run)
                QTRY_COMPARE_WITH_TIMEOUT(pdfs(), 2, 30000);
            QTRY_VERIFY_WITH_TIMEOUT(programs[1].log().count("Cloud poll: no new job") >= 2, 15000);
            QCOMPARE(pdfs(), 2);
        }
        QVERIFY2(!programs[1].log().contains("No Files Found"), qPrintable(programs[1].log()));
        QCOMPARE(filesBelow(m_collection).size(), deletes ? 0 : 2);
    }

    // A stored row without a server id, while "Print to Cloud Printer" stays checked.
    void emptyServerIdUploadsToTheUser()
    {
        TestServer s;
        frmMain& w = start(s);
        w.setCloudDestination(kInstallation, kEmail);
        w.Option9->click();
        w.setCloudDestination(kInstallation, QString());
        QVERIFY(w.Option9->isChecked() && !w.Option9->isEnabled());
        QVERIFY(w.isListening());
        sendJob(s.port, makePsJob(1));
        const QString user = QFileInfo(m_collection).path();
        QTRY_COMPARE_WITH_TIMEOUT(QDir(user).entryList(QDir::Files).size(), 1, 15000);
        QCOMPARE(readFile(QDir(user).filePath(QDir(user).entryList(QDir::Files)[0])), makePsJob(1));
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

    // A fetch shows how much of the job has come, in order; the tray then says "Quorvel" again.
    void fetchShowsItsProgress()
    {
        TestServer s;
        frmMain& w = start(s);
        const QByteArray job = makePsJob(1) + QByteArray(300 << 10, '%') + '\n';
        QVERIFY(writeFile(QDir(m_collection).filePath(QStringLiteral("File_big.ps")), job));
        QList<qint64> received;
        QStringList tips;
        const auto tip = [&] { return w.ctlSysTrayBalloon1->Tooltip().section(QChar(0), 0, 0); };
        connect(&w, &frmMain::fetchProgressed, this, [&](qint64 got, qint64 total) {
            QCOMPARE(total, job.size());
            received << got;
            tips << tip();
        });
        w.Command5->click();
        QTRY_COMPARE_WITH_TIMEOUT(s.jobFiles().size(), 1, 30000);
        QVERIFY(!received.isEmpty() && std::is_sorted(received.begin(), received.end()));
        QCOMPARE(received.last(), job.size());
        QCOMPARE(
            tips.last(),
            QStringLiteral("Fetching the cloud job: %1 of %1 KB").arg((job.size() + 1023) / 1024));
        QTRY_COMPARE(tip(), QStringLiteral("Quorvel"));
    }

    void messagesWithoutJobsOrValidation()
    {
        {
            TestServer s;
            start(s, false).Command5->click();
            QCOMPARE(s.shown(), QStringLiteral("User Id Not Validated..."));
        }
        TestServer s;
        frmMain& w = start(s);
        w.Command5->click(); // the collection is empty: the button tells, a poll only logs
        QTRY_COMPARE_WITH_TIMEOUT(s.shown(), QStringLiteral("No Files Found..."), 15000);
        QTRY_VERIFY(w.UcCloudSrvr1->isEnabled());
        w.fetchCloudJobs(true);
        QTRY_VERIFY_WITH_TIMEOUT(w.txtLog->text().contains("Cloud poll: no new job"), 15000);
        QCOMPARE(s.shown(), QStringLiteral("No Files Found..."));
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
