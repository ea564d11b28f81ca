// The main window's cloud actions against the Apache share of the webdav
// fixture: a TCP job sent to the cloud printer, fetched by another window
// with "Get Cloud Data" and printed there like a TCP job.
#include "cloud/uccloudsrvr.h"
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "freeport.h"
#include "server/frmmain.h"
#include "server/globals.h"
#include "testsupport.h"

#include <QCheckBox>
#include <QDir>
#include <QDirIterator>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

namespace
{
const QString kInstallation = QStringLiteral("quorvel-test");
const QString kEmail = QStringLiteral("printer@example.org");

void makeCollection(const QString& path)
{
    QDir().mkpath(path);
    // Apache writes as www-data.
    QProcess::execute(QStringLiteral("chown"),
                      {QStringLiteral("-R"), QStringLiteral("www-data:www-data"), path});
}

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
private slots:
    void initTestCase()
    {
        const auto env = serviceEnv(QStringLiteral("webdav"));
        m_url = env.value(QStringLiteral("DAV_URL"));
        m_root = env.value(QStringLiteral("DAV_ROOT"));
        QVERIFY2(!m_url.isEmpty(), "the webdav fixture is not running");
        m_user = env.value(QStringLiteral("DAV_USER"));
        m_password = env.value(QStringLiteral("DAV_PASSWORD"));
    }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        Paths::setProgramFolder(m_dir->path());
        SettingsStore::setFolder(m_dir->filePath(QStringLiteral("settings")));
        SettingsStore::put(QStringLiteral("CloudBaseUrl"), m_url);
        SettingsStore::put(QStringLiteral("CloudUser"), m_user);
        SettingsStore::put(QStringLiteral("CloudPassword"), m_password);
        Globals::InstallationId() = kInstallation;
        Globals::UserEMailId() = kEmail;
        m_messages.clear();
        setMsgRecorder([this](const Message& m) { m_messages << m.text; });
        QDir(m_root + QStringLiteral("/CloudPrint")).removeRecursively();
        makeCollection(m_root + QStringLiteral("/CloudPrint/") + kInstallation + u'/' + kEmail);
    }
    void cleanup()
    {
        setMsgRecorder({});
        SettingsStore::setFolder(QString());
        Globals::UserEMailId().clear();
    }

    void jobTravelsThroughTheShare()
    {
        const QByteArray job = "%!PS\n/Helvetica findfont 24 scalefont setfont 72 700 moveto\n"
                               "(Cloud job \xe9\xfc) show showpage\n";
        // The sender prints to this installation's collection.
        SettingsStore::put(QStringLiteral("CloudClientUserId"), kInstallation);
        SettingsStore::put(QStringLiteral("CloudClientServerId"), kEmail);
        const quint16 sendPort = freePort();
        frmMain sender(sendPort);
        QVERIFY(sender.Option9->isEnabled());
        sender.Option9->click();
        {
            QTcpSocket client;
            client.connectToHost(QHostAddress::LocalHost, sendPort);
            QVERIFY(client.waitForConnected(5000));
            client.write(job);
            QVERIFY(client.waitForBytesWritten(5000));
            client.disconnectFromHost();
        }
        const QString collection =
            m_root + QStringLiteral("/CloudPrint/") + kInstallation + u'/' + kEmail;
        QTRY_COMPARE_WITH_TIMEOUT(filesBelow(collection).size(), 1, 15000);
        QVERIFY(filesBelow(collection)[0].endsWith(sender.fileName() + QStringLiteral(".ps")));
        QVERIFY(m_messages.join(u'|').contains(QStringLiteral("Print Uploaded to Cloud...")));
        // Nothing local: no job file, and the buffer keeps the job.
        QCOMPARE(QDir(Paths::jobFolder()).entryList(QDir::Files), QStringList());
        QCOMPARE(sender.jobBuffer(), job);

        // The receiving window: validated at start-up, saves jobs as PDF.
        SettingsStore::put(QStringLiteral("UserValidate"), kEmail);
        frmMain receiver(freePort());
        QVERIFY(receiver.Check1->isChecked());
        QVERIFY(receiver.Option1->isChecked());
        QByteArray fetched;
        connect(receiver.UcCloudSrvr1, &UcCloudSrvr::CloudFileReceived, this,
                [&](QString& data) { fetched = data.toLatin1(); });
        receiver.Command5->click();
        QTRY_COMPARE_WITH_TIMEOUT(receiver.List3->count(), 1, 15000);
        QTRY_COMPARE_WITH_TIMEOUT(fetched, job, 15000);
        QVERIFY(receiver.txtLog->text().contains(
            QStringLiteral("Total Printouts Found > 1 > \r\n\r\nPrinting now...")));
        // Dispatched like a TCP job: the PDF stays, the .ps goes; the file stays on the share.
        const QString pdf =
            Paths::jobFolder() + u'/' + receiver.fileName() + QStringLiteral(".pdf");
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(pdf).size() > 0, 30000);
        QTRY_COMPARE_WITH_TIMEOUT(QDir(Paths::jobFolder()).entryList(QDir::Files),
                                  QStringList{receiver.fileName() + QStringLiteral(".pdf")}, 30000);
        QCOMPARE(filesBelow(collection).size(), 1);
    }

    void messagesWithoutJobsOrValidation()
    {
        {
            frmMain notValidated(freePort());
            QVERIFY(!notValidated.Check1->isChecked());
            notValidated.Command5->click();
            QCOMPARE(m_messages, QStringList{QStringLiteral("User Id Not Validated...")});
        }
        m_messages.clear();
        SettingsStore::put(QStringLiteral("UserValidate"), kEmail);
        frmMain form(freePort());
        form.Command5->click(); // the collection is empty
        QTRY_COMPARE_WITH_TIMEOUT(m_messages, QStringList{QStringLiteral("No Files Found...")},
                                  15000);
    }

    void unknownUserUntagsTheBox()
    {
        // The share has no collection for this installation.
        Globals::InstallationId() = QStringLiteral("not-on-the-share");
        Globals::UserEMailId() = QStringLiteral("nobody@example.org");
        frmMain form(freePort());
        form.TxtEmailId->setText(QStringLiteral("nobody@example.org"));
        form.Check1->setChecked(true); // the user ticks the box
        QTRY_VERIFY_WITH_TIMEOUT(
            m_messages.contains(QStringLiteral("User Id not found on server...")), 15000);
        QVERIFY(!form.Check1->isChecked());
        QVERIFY(!form.userValidated());
        QCOMPARE(SettingsStore::get(QStringLiteral("UserValidate")), QString());
    }

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QStringList m_messages;
    QString m_url, m_root, m_user, m_password;
};

QTEST_MAIN(TestCloudActions)
#include "tst_cloudactions.moc"
