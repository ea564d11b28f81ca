// The main window's cloud actions: confirming the user, fetching the jobs
// waiting on the share and handing them to the dispatch.
#include "server/frmmain.h"

#include "cloud/thindavapi.h"

#include "cloud/uccloudsrvr.h"
#include "common/log.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"
#include "common/settings.h"
#include "dispatch/jobqueue.h"
#include "serverlist/frmclsrlst.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

void frmMain::setupCloud()
{
    // Both controls live in the hidden cloud frame; 1 receives, 2 sends.
    UcCloudSrvr1 = new UcCloudSrvr(Frame7);
    UcCloudSrvr1->setObjectName(QStringLiteral("UcCloudSrvr1"));
    UcCloudSrvr2 = new UcCloudSrvr(Frame7);
    UcCloudSrvr2->setObjectName(QStringLiteral("UcCloudSrvr2"));
    Frame7->layout()->addWidget(UcCloudSrvr1);
    Frame7->layout()->addWidget(UcCloudSrvr2);

    // The control raises its events by direct call with reference arguments.
    connect(UcCloudSrvr1, &UcCloudSrvr::ValidateUser, this,
            [this](bool& found) { RunGuarded([&] { UcCloudSrvr1_ValidateUser(found); }); });
    connect(UcCloudSrvr1, &UcCloudSrvr::ServerInfoReturn, this,
            [this](QString& list) { RunGuarded([&] { UcCloudSrvr1_ServerInfoReturn(list); }); });
    connect(UcCloudSrvr1, &UcCloudSrvr::CloudFileReceived, this,
            [this](QString& data) { RunGuarded([&] { UcCloudSrvr1_CloudFileReceived(data); }); });
    connect(UcCloudSrvr1->Dav(), &ThinDavApi::FileProgress, this,
            [this](qint64 received, qint64 total) { showFetchProgress(received, total); });
    // A failed fetch or a delete: the next file of the same fetch.
    connect(UcCloudSrvr1, &UcCloudSrvr::TransferEnded, this, Guarded([this] {
                showProgress(QString(), 0, -1); // a failed fetch ends no job
                if (m_CloudFetch.active)
                    nextCloudStep();
            }));
}

void frmMain::Check1_Click()
{
    if (!m_Loaded)
        return;
    m_UserValidate = false;
    if (Check1->isChecked() && !TxtEmailId->text().trimmed().isEmpty()) {
        UcCloudSrvr1->setUcCloudUserId(m_Ids.installationId);
        UcCloudSrvr1->setUcCloudServerId(TxtEmailId->text());
        UcCloudSrvr1->UcFindServerInfo();
    }
}

void frmMain::UcCloudSrvr1_ValidateUser(bool found)
{
    if (!found) {
        Check1->setChecked(false);
        MsgBox(QStringLiteral("User Id not found on server..."));
        registrationEnded(found);
        return;
    }
    // Takes effect at the next start.
    SettingsStore::put(QStringLiteral("UserValidate"), m_Ids.userEMailId);
    registrationEnded(found);
}

void frmMain::Command2_Click()
{
    // One editor, kept for later use; it hands its selected row to this window.
    if (!m_FrmClSrLst) {
        m_FrmClSrLst = new FrmClSrLst(m_Ids.installationId, this);
        connect(m_FrmClSrLst, &FrmClSrLst::cloudDestinationChanged, this,
                Guarded([this](const QString& userId, const QString& serverId) {
                    setCloudDestination(userId, serverId);
                }));
    }
    m_FrmClSrLst->show();
    m_FrmClSrLst->raise();
    m_FrmClSrLst->activateWindow();
}

void frmMain::Command5_Click()
{
    if (!m_UserValidate) {
        MsgBox(QStringLiteral("User Id Not Validated..."));
        return;
    }
    if (Check1->isChecked() && !TxtEmailId->text().trimmed().isEmpty()) {
        UcCloudSrvr1->setUcCloudUserId(m_Ids.installationId);
        UcCloudSrvr1->setUcCloudServerId(TxtEmailId->text());
        UcCloudSrvr1->UcCheckCloudList();
    }
}

void frmMain::UcCloudSrvr1_ServerInfoReturn(const QString& fileList)
{
    const QList<DirEntry> files = UcCloudSrvr1->ListedFiles();
    m_CloudFetched.keepListed(files);
    if (std::exchange(m_CloudFetch.poll, false)) {
        // Unattended: each file once, and no box when there is nothing new.
        QList<DirEntry> fresh;
        for (const DirEntry& file : files)
            if (!m_CloudFetched.contains(file))
                fresh << file;
        if (fresh.isEmpty()) {
            txtLog->append(QStringLiteral("Cloud poll: no new job on the share (%1 fetched before)")
                               .arg(files.size()));
            m_CloudFetch = {};
            return;
        }
        // The queue takes every waiting job; the one buffer only the first.
        m_CloudFetch.todo = m_QueueAll ? fresh : fresh.mid(0, 1);
        m_CloudFetch.active = true;
        List3->clear();
        for (const DirEntry& file : std::as_const(m_CloudFetch.todo))
            List3->addItem(DavDecodedName(file.name));
        txtLog->append(QStringLiteral("Total Printouts Found > ") +
                       QString::number(List3->count()) +
                       QStringLiteral(" > \r\n\r\nPrinting now..."));
        nextCloudStep();
        return;
    }
    if (fileList.isEmpty()) {
        m_CloudFetch = {};
        MsgBox(QStringLiteral("No Files Found..."));
        return;
    }
    List3->clear();
    for (const QString& name : fileList.split(u','))
        if (!name.trimmed().isEmpty())
            List3->addItem(name);
    txtLog->append(QStringLiteral("Total Printouts Found > ") + QString::number(List3->count()) +
                   QStringLiteral(" > \r\n\r\nPrinting now..."));
    m_CloudFetch.active = true;
    m_CloudFetch.current = {};
    for (const DirEntry& file : files)
        if (List3->count() > 0 && DavDecodedName(file.name) == List3->item(0)->text()) {
            m_CloudFetch.current = file;
            break;
        }
    if (!fetchFirstCloudFile())
        m_CloudFetch = {};
}

bool frmMain::fetchFirstCloudFile()
{
    // Only the first file is fetched here, recorded before or not.
    if (List3->count() == 0)
        return false;
    List3->setCurrentRow(0);
    UcCloudSrvr1->UcCheckDownloadList(List3->currentItem()->text());
    return true;
}

void frmMain::nextCloudStep()
{
    // One request at a time: the deletes of fetched files first, then the next fetch.
    if (!m_CloudFetch.toDelete.isEmpty()) {
        UcCloudSrvr1->UcDeleteCloudFile(DavDecodedName(m_CloudFetch.toDelete.takeFirst().name));
        return;
    }
    if (m_CloudFetch.todo.isEmpty()) {
        m_CloudFetch = {};
        return;
    }
    m_CloudFetch.current = m_CloudFetch.todo.takeFirst();
    const QString name = DavDecodedName(m_CloudFetch.current.name);
    const auto rows = List3->findItems(name, Qt::MatchExactly);
    if (!rows.isEmpty())
        List3->setCurrentItem(rows.first());
    UcCloudSrvr1->UcCheckDownloadList(name);
}

void frmMain::settleCloudFile(const DirEntry& file, bool safe)
{
    if (file.relativePath.isEmpty())
        return;
    m_CloudFetched.add(file);
    if (!m_CloudDeleteAfterFetch)
        return;
    if (safe)
        m_CloudFetch.toDelete << file;
    else
        txtLog->append(QStringLiteral("Cloud job %1 could not be written here, so it stays on "
                                      "the share; fetch it again once the job folder can be "
                                      "written")
                           .arg(DavDecodedName(file.name)));
}

void frmMain::sendToCloud(const Job& job)
{
    // The buffer stays as it is and no local file is made.
    uploadToCloud(job, m_JobBuffer);
    // Kept as designed, but a surprise worth telling.
    txtLog->append(QStringLiteral("Cloud job ") + job.baseName +
                   QStringLiteral(": the job buffer is kept, so the next job will carry this one "
                                  "too."));
}

void frmMain::uploadToCloud(const Job& job, const QByteArray& bytes)
{
    const QString folder = QStringLiteral("CloudPrint\\") + m_CloudClientUserId +
                           QStringLiteral("\\") + m_CloudClientServerId;
    // One character per received byte, so the job's bytes survive.
    UcCloudSrvr2->UcUploadToCloudFile(folder, job.baseName, QString::fromLatin1(bytes));
}

void frmMain::UcCloudSrvr1_CloudFileReceived(const QString& data)
{
    const DirEntry file = std::exchange(m_CloudFetch.current, {});
    // One character per byte, as the job was uploaded.
    if (m_QueueAll) {
        // A job of its own: it replaces nothing, and is safe once spooled.
        const QByteArray bytes = data.toLatin1();
        const bool safe = !JobBuffer::holdsMoreThanBlanks(bytes) ||
                          m_JobQueue->add(bytes, QStringLiteral("the cloud share"));
        settleCloudFile(file, safe);
    } else {
        m_JobBuffer = data.toLatin1();
        // Polls wait for this dispatch; a file recorded only once it is done is fetched again
        // after a crash rather than lost.
        m_CloudFetch.active = true;
        if (m_JobBuffer.holdsMoreThanBlanks())
            Command1_Click();
        settleCloudFile(file, true);
    }
    if (m_CloudFetch.active)
        nextCloudStep();
}

// Receiving without a window: the command line does what a user does with
// the id box, the check box and "Get Cloud Data".

void frmMain::registerUser(const QString& id)
{
    TxtEmailId->setText(id);
    TxtEmailId_Validate();
    m_Registering = true;
    // Unticked first, so that the tick always starts a check.
    Check1->setChecked(false);
    Check1->setChecked(true);
    if (!Check1->isChecked() || id.trimmed().isEmpty())
        registrationEnded(false);
}

void frmMain::registrationEnded(bool found)
{
    if (!m_Registering)
        return;
    m_Registering = false;
    // Asked for on the command line: the id counts from now on, not only
    // from the next start.
    if (found) {
        m_UserValidate = true;
        Log::line(QStringLiteral("User id %1 is registered for this installation (%2)")
                      .arg(m_Ids.userEMailId, m_Ids.installationId),
                  true);
    }
    if (const Deferred fetch = std::exchange(m_FetchAfterRegistration, Deferred::None);
        fetch != Deferred::None)
        fetchCloudJobs(fetch == Deferred::Poll);
}

void frmMain::fetchCloudJobs(bool poll)
{
    // A fetch waits for a registration still under way.
    if (m_Registering) {
        m_FetchAfterRegistration =
            std::max(m_FetchAfterRegistration, poll ? Deferred::Poll : Deferred::Manual);
        return;
    }
    // A fetch, its deletes or a fetched job's dispatch still going is left to finish.
    if (!UcCloudSrvr1->isEnabled() || m_CloudFetch.active)
        return;
    m_CloudFetch.poll = poll;
    Command5_Click();
    m_CloudFetch.active = !UcCloudSrvr1->isEnabled(); // a listing went out
    if (!m_CloudFetch.active)
        m_CloudFetch = {};
}

void frmMain::startCloudPoll(int seconds)
{
    // One poll: a new interval from the preferences replaces the old one; 0 stops it.
    if (!m_CloudPoll) {
        m_CloudPoll = new QTimer(this);
        connect(m_CloudPoll, &QTimer::timeout, this, Guarded([this] { fetchCloudJobs(true); }));
    }
    if (seconds > 0)
        m_CloudPoll->start(seconds * 1000);
    else
        m_CloudPoll->stop();
}
