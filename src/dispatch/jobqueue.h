#pragma once

#include "dispatch/jobdispatcher.h"
#include "platform/safefile.h"

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <utility>

// --job-queue: each job streams into a spool file of its own as it arrives
// and exists once its connection has closed and the file is on the disk, so a
// crash loses none. Jobs start in order of close, as many at once as there
// are workers (Ghostscript processes: the event loop stays the one thread),
// and each ends from the event loop, never inside another job's wait. A job
// that Ghostscript cannot finish is kept in the failed folder and the queue
// goes on.
class JobQueue : public QObject
{
    Q_OBJECT
public:
    struct Host {
        std::function<JobDispatcher()> dispatcher; // the road, as the window is set now
        std::function<OutputChoice()> choice;
        std::function<void(const QString&)> log;
        std::function<void(const Job&, const QByteArray&)> upload; // the cloud branch
        std::function<void(const Job&, const QString&)> shown;     // the job and its command line
        std::function<void(const Job&, const JobOutcome&)> ended;  // every job, once
        std::function<QString(const QString&)> clientName; // an address's DNS name, if known
    };
    JobQueue(const QString& jobFolder, Host host, int workers, QObject* parent = nullptr);

    // A job on its way in: its bytes go to a partial spool file as they arrive.
    class Incoming
    {
    public:
        Incoming(const Incoming&) = delete;
        Incoming& operator=(const Incoming&) = delete;
        ~Incoming(); // a job never finished leaves no file behind
        // False once the file cannot take more (a full disk): it is removed then, and why says why.
        bool write(QByteArrayView bytes);
        qint64 size() const { return m_size; }
        const QString& why() const { return m_why; }

    private:
        friend class JobQueue;
        Incoming() = default;
        void drop();
        QString m_path;
        safefile::Stream m_file;
        qint64 m_size = 0;
        QString m_why;
    };
    // A partial spool file for a new job; null (logged) while the spool folder cannot be written.
    std::unique_ptr<Incoming> receive();
    // The connection closed: the file is synced and takes its place in the queue. False (logged,
    // the file removed) when it cannot be kept.
    bool finish(std::unique_ptr<Incoming> job, const QString& from);

    // A complete job file that came another way (IPP), under a ".part" name in the spool
    // folder: it takes its place in the queue as finish() does. The title and user, when
    // given, are the sender's; verdict is called once with the job's outcome, also when the
    // file cannot be queued (false then).
    struct Sender {
        QString from, title, user;
        std::function<void(const JobOutcome&)> verdict;
    };
    bool adopt(const QString& partPath, Sender sender);

    // A finished job's bytes (blank-only ones are the caller's to drop); true once they are in
    // the spool folder, false while they wait in memory for it.
    bool add(QByteArrayView bytes, const QString& from);
    // Queues the jobs an earlier run spooled and did not finish, and removes the partial ones
    // of connections it was still receiving; returns how many were queued.
    int resume();
    // Jobs not yet done, those converting now included.
    qsizetype waiting() const
    {
        return qsizetype(m_jobs.size() + m_converted.size()) + m_converting;
    }
    int workers() const { return m_workers; }
    QString spoolFolder() const;
    QString failedFolder() const;

private:
    struct Entry {
        Entry(QString path, QByteArray bytes, QString from, QDateTime received)
            : spoolPath(std::move(path)), bytes(std::move(bytes)), from(std::move(from)),
              received(std::move(received))
        {
        }
        QString spoolPath;
        QByteArray bytes; // only while the spool folder cannot be written
        QString from;
        QDateTime received;
        QString title, user; // the sender's words, over what the bytes say
        quint64 ticket = 0;
    };
    // Renames a complete ".part" file to its place in order; empty (logged) when it is gone.
    QString enqueueName(const QString& partPath, const QString& from);
    // A free name in the spool folder, in order of close across restarts too.
    QString spoolName(const QString& suffix);
    bool spool(Entry& entry, QByteArrayView bytes);
    void stall(const QString& why);
    // Starts waiting jobs while workers are free; never nested in itself.
    void startFree();
    // Starts the first waiting job; false when it must wait (retried later).
    bool startNext();
    bool keepUnconverted(const Entry& entry, Job job, const QString& unreadable);
    // An image, raster or XPS job becomes the PDF made of it; why it cannot, else empty.
    QString spoolAsPdf(Entry& entry, JobLanguage language);
    void schedule(int ms = 0);
    void next();
    void ended(const Job& job, const GsRun& run);
    void fail(const Job& job, const QString& why,
              JobOutcome outcome = {JobOutcome::Status::Failed, {}, {}, -1});
    void done(const Job& job, const JobOutcome& outcome);

    QString m_folder;
    Host m_host;
    std::deque<Entry> m_jobs;                      // waiting to start
    std::deque<std::pair<Job, GsRun>> m_converted; // Ghostscript has ended, the rest not yet
    int m_workers;
    int m_converting = 0; // Ghostscript processes running
    bool m_inNext = false;
    bool m_starting = false;
    bool m_scheduled = false;
    bool m_stalled = false; // said once until the folder can be written again
    quint64 m_sequence = 0;
    std::map<quint64, std::function<void(const JobOutcome&)>> m_verdicts;
    quint64 m_tickets = 0;
};
