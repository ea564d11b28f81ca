#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

// What a job was, once it has ended: one line of the log and one row of the history.
struct JobRecord {
    qint64 id = 0;         // its row, once written
    QString name;          // File_yyMMdd_hhmmss
    QString clientAddress; // empty: not from the network ("Save And Print", the cloud share)
    QString clientName;    // reverse DNS, when known
    QString language;
    QString title;
    QString user;
    int pages = -1; // of the result; -1: unknown
    qint64 bytes = 0;
    QDateTime received;
    QDateTime finished;
    QStringList outputs; // file names, or where it went
    QString status;      // "done", "partial", "kept unconverted", "failed"
    QString reason;

    // Job "Relevé" from alice (host, 192.168.1.20): PostScript, 3 pages -> File_....pdf
    QString logLine() const;
    // "host, 192.168.1.20", the address alone, or the name of a local source.
    QString clientText() const;
};

// The job history: a SQLite database beside the settings, one row per job,
// kept for HistoryDays (90) days and at most HistoryMax (10,000) rows.
namespace JobHistory
{
QString path();
// Writes the row and drops what is past keeping, in one transaction; false
// (and why) when the database cannot be written.
bool add(const JobRecord& record, QString* why = nullptr);
// The last jobs, newest first.
QList<JobRecord> rows(int last = 10000);
bool remove(qint64 id, QString* why = nullptr);
// The last jobs, newest first, as a table for a terminal.
QString table(int last = 50);
} // namespace JobHistory
