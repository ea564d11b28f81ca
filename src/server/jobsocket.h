#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QString>

#include "dispatch/jobqueue.h"
#include "server/jobbuffer.h"

#include <memory>

// One accepted connection of the socket array. It reads what arrives
// straight onto the end of the job buffer and reports the peer's close.
class JobSocket : public QObject
{
    Q_OBJECT
public:
    // Takes over the accepted descriptor; the peer's address is kept, as it
    // is gone once the connection closes.
    explicit JobSocket(qintptr descriptor, QObject* parent = nullptr);
    ~JobSocket() override;

    // IPv4 peers as a.b.c.d, also behind a dual-stack listener.
    static QString peerAddress(qintptr fd);
    qintptr descriptor() const { return m_fd; }
    const QString& RemoteHostIP() const { return m_remoteHostIP; }
    // Starts reporting arrivals (the socket is then "accepted").
    void Accept();
    // Moves everything received so far into the buffer; returns the byte count.
    qint64 GetData(JobBuffer& buffer);
    // Reads at most room bytes into a buffer of the caller's; returns the byte count.
    qint64 Receive(char* into, qint64 room);
    void Close();
    // This connection's own job (--job-queue): its spool file, or its bytes in memory while the
    // spool folder cannot be written; and whether it was reset rather than closed normally.
    std::unique_ptr<JobQueue::Incoming>& spool() { return m_spool; }
    JobBuffer& buffer() { return m_buffer; }
    bool wasReset() const { return m_reset; }

signals:
    void DataArrival();
    void Closed(); // the peer closed (or the connection failed)

private:
    void reportClose();

    qintptr m_fd;
    QString m_remoteHostIP;
    QSocketNotifier m_notifier;
    bool m_peerClosed = false;
    bool m_closeReported = false;
    bool m_reset = false;
    JobBuffer m_buffer;
    std::unique_ptr<JobQueue::Incoming> m_spool;
};
