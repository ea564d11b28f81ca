#pragma once

#include "dispatch/jobdispatcher.h"

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <deque>
#include <functional>

// --job-queue: each job is written to the spool folder as soon as its
// connection closes, so a crash loses none, and jobs are converted one at a
// time in order of close, driven from the event loop: never inside another
// job's wait. A job that Ghostscript cannot finish is kept in the failed
// folder and the queue goes on.
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
    JobQueue(const QString& jobFolder, Host host, QObject* parent = nullptr);

    // A finished job's bytes (blank-only ones are the caller's to drop); true once they are in
    // the spool folder, false while they wait in memory for it.
    bool add(QByteArrayView bytes, const QString& from);
    // Queues the jobs an earlier run spooled and did not finish; returns how many.
    int resume();
    // Jobs not yet done, the one converting now included.
    qsizetype waiting() const { return qsizetype(m_jobs.size()); }
    QString spoolFolder() const;
    QString failedFolder() const;

private:
    struct Entry {
        QString spoolPath;
        QByteArray bytes; // only while the spool folder cannot be written
        QString from;
        QDateTime received;
    };
    bool spool(Entry& entry, QByteArrayView bytes);
    void stall(const QString& why);
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
    std::deque<Entry> m_jobs;
    bool m_busy = false;
    bool m_scheduled = false;
    bool m_stalled = false; // said once until the folder can be written again
    quint64 m_sequence = 0;
};
