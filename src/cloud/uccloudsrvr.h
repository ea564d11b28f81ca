#pragma once

// The cloud print store control: checks user ids on the share, creates a
// server's collection, lists a user's servers, uploads jobs without ever
// overwriting, and lists and fetches the jobs waiting for a server.

#include "cloud/thindavapi.h"

#include <QList>
#include <QString>
#include <QWidget>

class LogBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;

class UcCloudSrvr : public QWidget
{
    Q_OBJECT
public:
    explicit UcCloudSrvr(QWidget* parent = nullptr);
    ~UcCloudSrvr() override;

    QString UcCloudUserId() const;
    void setUcCloudUserId(const QString& id);
    QString UcCloudServerId() const;
    void setUcCloudServerId(const QString& id);

    void UcFindServerInfo();
    void UcFindClientInfo();
    void UcUploadToCloudFile(const QString& UcDirName, const QString& UcFileName,
                             const QString& UcFileContent);
    void UcCheckCloudList();
    void UcCheckDownloadList(const QString& UcDwLoadList);
    // Removes a fetched file from this server's collection.
    void UcDeleteCloudFile(const QString& UcFileName);
    // The files of the last listing, in its order (the listed collection left out).
    QList<DirEntry> ListedFiles() const;

    ThinDavApi* Dav() const { return DAV; }
    const QString& Stage() const { return m_stage; }
    bool TimerEnabled() const { return m_timerEnabled; }

    // Child controls.
    LogBox* txtLog = nullptr;
    QLineEdit* txtDirectory = nullptr;
    QLineEdit* Text3 = nullptr;
    QLineEdit* Text4 = nullptr;
    QPushButton* Command4 = nullptr;
    QLabel* Label1 = nullptr;
    QLabel* Label2 = nullptr;
    QTimer* tmrTimeout = nullptr;

signals:
    // Raised only by direct connection: the arguments are references.
    void ClientInfoReturn(QString& ClientServerId, QString& ClientServerList);
    void ServerInfoReturn(QString& ServerFileList);
    void ValidateUser(bool& UserValidate);
    void CloudFileReceived(QString& CloudFileText2);
    // A fetch that failed, or a delete, has ended: the host may go on with its next file.
    void TransferEnded(int Request, bool ok);

private:
    void UserControl_Initialize();
    void DAV_Complete(int Request);
    void tmrTimeout_Timer();
    bool CheckEntry(const DirEntry& Entry, int EntryNumber);

    void ListingStep();
    void MakeDirStep();
    void UploadCheckStep();
    void UploadResultStep();
    void DownloadStep();
    void DeleteStep();

    void Log(const QString& text);
    void LogStatus();
    void Busy();
    void setTimerEnabled(bool enabled);
    QString UserKey() const;   // user id, trimmed, lower case
    QString ServerKey() const; // server id, trimmed, lower case
    QString ServerFolder() const;

    ThinDavApi* DAV = nullptr;
    bool m_timerEnabled = false;
    qint64 m_receivedAtTick = -1;
    QString m_stage;
    QString m_nameList;
    QString m_uploadDirectory;
    QString m_uploadText;
    QString m_fileName;
    QString m_listedDirectory;
    QList<DirEntry> m_entries;
};
