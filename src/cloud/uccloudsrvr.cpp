#include "cloud/uccloudsrvr.h"

#include "cloud/cloudshare.h"
#include "common/log.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"

#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>

namespace
{
const QString kRoot = QStringLiteral("Root");
const QString kRootServer = QStringLiteral("RootServer");
const QString kClient = QStringLiteral("Client");
const QString kClientServers = QStringLiteral("ClientServers");
const QString kServerDownloadFile = QStringLiteral("ServerDownloadFile");
const QString kCrLf = QStringLiteral("\r\n");

// A late-bound property assignment: an object reference that was never
// set is the object-required run-time error.
void LetProperty(QObject* object, const char* property, const QString& value)
{
    if (!object)
        RaiseError(rt::ObjectRequired);
    object->setProperty(property, value);
}

void AppendName(QString& list, const QString& name)
{
    if (!list.isEmpty())
        list += u',';
    list += name;
}
} // namespace

UcCloudSrvr::UcCloudSrvr(QWidget* parent) : QWidget(parent)
{
    Label1 = new QLabel(QStringLiteral("CloudUser"), this);
    Label2 = new QLabel(QStringLiteral("Cloud Server"), this);
    Text3 = new QLineEdit(this);
    Text4 = new QLineEdit(this);
    txtDirectory = new QLineEdit(this);
    Command4 = new QPushButton(QStringLiteral("Check Directory"), this);
    txtLog = new LogBox(this);
    tmrTimeout = new QTimer(this);
    tmrTimeout->setInterval(0); // never armed: requests are not timed out
    Text3->setObjectName(QStringLiteral("Text3"));
    Text4->setObjectName(QStringLiteral("Text4"));
    txtDirectory->setObjectName(QStringLiteral("txtDirectory"));
    txtLog->setObjectName(QStringLiteral("txtLog"));
    Command4->setObjectName(QStringLiteral("Command4"));

    auto* grid = new QGridLayout(this);
    grid->addWidget(Label1, 0, 0);
    grid->addWidget(Text3, 0, 1);
    grid->addWidget(Label2, 1, 0);
    grid->addWidget(Text4, 1, 1);
    grid->addWidget(txtDirectory, 2, 0, 1, 2);
    grid->addWidget(Command4, 3, 0, 1, 2);
    grid->addWidget(txtLog, 4, 0, 1, 2);

    connect(tmrTimeout, &QTimer::timeout, this, Guarded([this] { tmrTimeout_Timer(); }));
    UserControl_Initialize();
}

UcCloudSrvr::~UcCloudSrvr() = default;

void UcCloudSrvr::UserControl_Initialize()
{
    DAV = new ThinDavApi(this);
    connect(DAV, &ThinDavApi::Complete, this,
            Guarded([this](int request) { DAV_Complete(request); }));
    const QString baseUrl = CloudShare::BaseUrl();
    Log(QStringLiteral("ThinDavApi Version = ") + ThinDavApi::Version());
    Log(QStringLiteral("Requesting OPTIONS"));
    Log(QStringLiteral("BaseURL = ") + baseUrl);
    Log(QString());
    DAV->setBaseUrl(baseUrl);
    DAV->User = CloudShare::User();
    DAV->PW = CloudShare::Password();
    DAV->setCaCertificates(CloudShare::CaCertificates());
    // A locked credential store may hand the password over later.
    connect(CloudPasswordNotifier::instance(), &CloudPasswordNotifier::passwordChanged, this,
            [this] { DAV->PW = CloudShare::Password(); });
    setTimerEnabled(true);
    // No OPTIONS request goes out: opening the share is only this line.
    Log(QStringLiteral("Opening DAV share"));
}

QString UcCloudSrvr::UcCloudUserId() const
{
    return Text3->text();
}
void UcCloudSrvr::setUcCloudUserId(const QString& id)
{
    Text3->setText(id);
}
QString UcCloudSrvr::UcCloudServerId() const
{
    return Text4->text();
}
void UcCloudSrvr::setUcCloudServerId(const QString& id)
{
    Text4->setText(id);
}

QString UcCloudSrvr::UserKey() const
{
    return Text3->text().trimmed().toLower();
}
QString UcCloudSrvr::ServerKey() const
{
    return Text4->text().trimmed().toLower();
}

QString UcCloudSrvr::ServerFolder() const
{
    return QStringLiteral("CloudPrint\\") + UserKey() + u'\\' + Text4->text().trimmed();
}

void UcCloudSrvr::Log(const QString& text)
{
    txtLog->append(text);
}

void UcCloudSrvr::LogStatus()
{
    Log(QString::number(DAV->Status()) + u' ' + DAV->StatusText());
}

void UcCloudSrvr::setTimerEnabled(bool enabled)
{
    // An interval of 0 means the timer never ticks, enabled or not.
    m_timerEnabled = enabled;
    if (enabled && tmrTimeout->interval() > 0)
        tmrTimeout->start();
    else
        tmrTimeout->stop();
}

void UcCloudSrvr::Busy()
{
    setCursor(Qt::WaitCursor);
    setEnabled(false);
    m_receivedAtTick = -1;
    setTimerEnabled(true);
}

void UcCloudSrvr::UcFindServerInfo()
{
    m_stage = kRoot;
    txtDirectory->setText(QStringLiteral("CloudPrint"));
    Log(QStringLiteral("Requesting PROPFIND"));
    Busy();
    DAV->GetDir(txtDirectory->text(), true);
}

void UcCloudSrvr::UcFindClientInfo()
{
    m_stage = kClient;
    txtDirectory->setText(QStringLiteral("CloudPrint"));
    m_nameList.clear();
    Log(QStringLiteral("Requesting PROPFIND"));
    Busy();
    DAV->GetDir(txtDirectory->text(), true);
}

void UcCloudSrvr::UcUploadToCloudFile(const QString& UcDirName, const QString& UcFileName,
                                      const QString& UcFileContent)
{
    m_fileName = UcFileName + QStringLiteral(".ps");
    m_uploadText = UcFileContent;
    m_uploadDirectory = UcDirName;
    Log(QStringLiteral("Requesting HEAD"));
    Busy();
    DAV->GetFileLength(m_uploadDirectory + u'/' + m_fileName);
}

void UcCloudSrvr::UcCheckCloudList()
{
    m_stage = kServerDownloadFile;
    txtDirectory->setText(ServerFolder());
    m_nameList.clear();
    Log(QStringLiteral("Requesting PROPFIND"));
    Busy();
    DAV->GetDir(txtDirectory->text(), true);
}

void UcCloudSrvr::UcCheckDownloadList(const QString& UcDwLoadList)
{
    m_fileName = UcDwLoadList;
    txtDirectory->setText(ServerFolder());
    Log(QStringLiteral("Requesting GET"));
    Busy();
    DAV->GetFileText(txtDirectory->text() + u'/' + m_fileName);
}

void UcCloudSrvr::UcDeleteCloudFile(const QString& UcFileName)
{
    m_fileName = UcFileName;
    txtDirectory->setText(ServerFolder());
    Log(QStringLiteral("Requesting DELETE"));
    Busy();
    DAV->Delete(txtDirectory->text() + u'/' + m_fileName);
}

QList<DirEntry> UcCloudSrvr::ListedFiles() const
{
    QList<DirEntry> files;
    for (qsizetype n = 1; n < m_entries.size(); ++n)
        if (!m_entries[n].isCollection && !DavDecodedName(m_entries[n].name).isEmpty())
            files << m_entries[n];
    return files;
}

void UcCloudSrvr::DAV_Complete(int Request)
{
    setTimerEnabled(false);
    unsetCursor();
    setEnabled(true);
    if (DAV->Aborted()) {
        Log(QStringLiteral("Aborted due to timeout"));
        Log(QString());
        return;
    }
    switch (Request) {
    case ThinDavApi::rqGetDir:
        ListingStep();
        break;
    case ThinDavApi::rqGetFileBytes:
    case ThinDavApi::rqGetFileText:
        DownloadStep();
        break;
    case ThinDavApi::rqGetFileLength:
        UploadCheckStep();
        break;
    case ThinDavApi::rqMakeDir:
        MakeDirStep();
        break;
    case ThinDavApi::rqDelete:
        DeleteStep();
        break;
    case ThinDavApi::rqPutFileBytes:
    case ThinDavApi::rqPutFileText:
        UploadResultStep();
        break;
    default:
        break;
    }
}

bool UcCloudSrvr::CheckEntry(const DirEntry& Entry, int EntryNumber)
{
    Q_UNUSED(EntryNumber);
    const QString name = DavDecodedName(Entry.name);
    if (name.isEmpty()) // outside the share
        return false;
    if (Entry.isCollection) {
        if (m_stage == kRoot || m_stage == kClient)
            return name == UserKey();
        if (m_stage == kRootServer)
            return name == ServerKey();
        if (m_stage == kClientServers)
            AppendName(m_nameList, name);
        return false;
    }
    if (m_stage == kServerDownloadFile)
        AppendName(m_nameList, name);
    return false;
}

void UcCloudSrvr::ListingStep()
{
    LogStatus();
    bool matched = false;
    if (DAV->IsStatus2XX()) {
        Log(QString());
        m_listedDirectory = txtDirectory->text();
        m_entries = DAV->DirEntries();
        // Entry 0 is the listed collection itself.
        for (int n = 1; n < m_entries.size(); ++n) {
            if (CheckEntry(m_entries[n], n)) {
                matched = true;
                break;
            }
        }
    }

    if (!matched) {
        if (m_stage == kRoot) {
            MsgBox(QStringLiteral("User Id Not Found...") + UserKey());
            bool found = false;
            emit ValidateUser(found);
            return;
        }
        if (m_stage == kClient) {
            MsgBox(QStringLiteral("User Id Not Found...") + UserKey());
            QString id = Text3->text();
            emit ClientInfoReturn(id, m_nameList);
            return;
        }
        if (m_stage == kRootServer) {
            if (!DAV->IsStatus2XX())
                Log(QStringLiteral("The user's collection %1 could not be read, so the server "
                                   "collection goes to %2/%3, where no sender will look.")
                        .arg(QString(txtDirectory->text()).replace(u'\\', u'/'), m_listedDirectory,
                             Text4->text().trimmed()));
            Log(QStringLiteral("Requesting MKCOL"));
            Busy();
            DAV->MakeDir(m_listedDirectory + u'/' + Text4->text().trimmed());
            return;
        }
        if (m_stage == kClientServers) {
            QString id = Text3->text();
            emit ClientInfoReturn(id, m_nameList);
            return;
        }
        // ServerDownloadFile goes on with whatever it collected.
    }

    if (m_stage == kRoot) {
        MsgBox(QStringLiteral("User Id Found...") + UserKey());
        bool found = true;
        emit ValidateUser(found);
        m_stage = kRootServer;
        txtDirectory->setText(QStringLiteral("CloudPrint\\") + UserKey());
        Log(QStringLiteral("Requesting PROPFIND"));
        Busy();
        DAV->GetDir(txtDirectory->text(), true);
    } else if (m_stage == kClient) {
        m_stage = kClientServers;
        txtDirectory->setText(QStringLiteral("CloudPrint\\") + UserKey());
        Log(QStringLiteral("Requesting PROPFIND"));
        Busy();
        DAV->GetDir(txtDirectory->text(), true);
    } else if (m_stage == kClientServers) {
        QString id = Text3->text();
        emit ClientInfoReturn(id, m_nameList);
        setTimerEnabled(false);
    } else if (m_stage == kServerDownloadFile) {
        emit ServerInfoReturn(m_nameList);
        unsetCursor();
        setTimerEnabled(false);
    }
    // RootServer: the server's collection exists already.
}

void UcCloudSrvr::MakeDirStep()
{
    LogStatus();
    if (!DAV->IsStatus2XX()) {
        Log(QStringLiteral("Failed"));
        // Nothing else tells the user: uploads into the missing collection fail later.
        Log(QStringLiteral("The server collection ") + m_listedDirectory + u'\\' +
            Text4->text().trimmed() + QStringLiteral(" could not be made: jobs for it will fail."));
        Log(QString());
    }
}

void UcCloudSrvr::UploadCheckStep()
{
    LogStatus();
    if (DAV->IsStatus2XX()) {
        // The file exists: never overwrite. The message goes to an error
        // object that was never set, which is the object-required error.
        Log(QStringLiteral("Failed, already exists"));
        Log(QString());
        const QString message = QStringLiteral("Make file ") + m_fileName + kCrLf + kCrLf +
                                QStringLiteral("failed") + kCrLf + kCrLf +
                                QStringLiteral("File already exists");
        QObject* objError = nullptr;
        LetProperty(objError, "ErrMsg", message);
        return;
    }
    Log(QStringLiteral("Requesting PUT"));
    Busy();
    DAV->PutFileText(m_uploadDirectory + u'/' + m_fileName, m_uploadText,
                     QStringLiteral("text/plain"));
}

void UcCloudSrvr::UploadResultStep()
{
    LogStatus();
    if (!DAV->IsStatus2XX()) {
        Log(QStringLiteral("Failed"));
        if (DAV->Status() == 413)
            Log(QStringLiteral("The share refused the job %1 of %2 bytes as too large: the "
                               "server's upload limit must be raised (nginx: "
                               "client_max_body_size).")
                    .arg(m_fileName)
                    .arg(m_uploadText.size()));
        Log(QString());
        MsgBox(QStringLiteral("Make file ") + m_fileName + kCrLf + kCrLf +
                   QStringLiteral("failed") + kCrLf + kCrLf + DAV->StatusText(),
               MsgIcon::Exclamation);
    }
}

void UcCloudSrvr::DownloadStep()
{
    LogStatus();
    if (DAV->IsStatus2XX()) {
        QString text = DAV->FileText();
        emit CloudFileReceived(text);
        return;
    }
    Log(QStringLiteral("Failed"));
    Log(QString());
    MsgBox(QStringLiteral("Open file ") + m_fileName + kCrLf + kCrLf + QStringLiteral("failed") +
               kCrLf + kCrLf + DAV->StatusText(),
           MsgIcon::Exclamation);
    emit TransferEnded(ThinDavApi::rqGetFileText, false);
}

void UcCloudSrvr::DeleteStep()
{
    LogStatus();
    const bool ok = DAV->IsStatus2XX();
    if (!ok)
        Log(QStringLiteral("The fetched file %1 could not be removed from the share; it stays "
                           "there and is not fetched again by a poll.")
                .arg(m_fileName));
    emit TransferEnded(ThinDavApi::rqDelete, ok);
}

void UcCloudSrvr::tmrTimeout_Timer()
{
    // A body still arriving runs on; one that stopped arriving since the last tick would
    // otherwise hang the control for good once the timer is off.
    const int state = DAV ? DAV->ReadyState() : 4;
    if (state == 3 && DAV->ReceivedBytes() != m_receivedAtTick) {
        m_receivedAtTick = DAV->ReceivedBytes();
        return;
    }
    setTimerEnabled(false);
    if (state <= 3)
        DAV->AbortRequest();
}
