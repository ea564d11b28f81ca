#pragma once

#include "dispatch/outputchoice.h"
#include "language/joblanguage.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

// One job on its road from the buffer to its output: named once when the
// dispatch starts and handed down, so a second job cannot take its files.
struct Job {
    QString baseName;   // File_yyMMdd_hhmmss
    QString psPath;     // the saved PostScript
    QString outputPath; // what Ghostscript makes; empty when nothing is converted
    OutputChoice choice;
    JobLanguage language = JobLanguage::PostScript;
    bool exclusive = false; // files made new only, never through a link (--job-queue)
    // What is known of it when it is named, for the log line and the history.
    QString client; // the sender's address, or where the job came from otherwise
    QString clientName; // the sender's reverse DNS name, when known
    QString folder;     // the job folder: outputs are named relative to it
    QDateTime received;
    qint64 bytes = 0;
    QString title;
    QString user;
    quint64 ticket = 0; // a sender waiting for the outcome (an IPP client); 0: none

    // Language, title and user read from its bytes.
    void readFrom(QByteArrayView bytes);
    // The job's files in the job folder.
    // A file of the job as the history and the log name it: relative to the job folder.
    QString relative(const QString& path) const;
    static Job named(const QString& baseName, const OutputChoice& choice, const QString& folder);
};

// How a job ended.
struct JobOutcome {
    enum class Status { Done, Partial, KeptUnconverted, Failed };
    Status status = Status::Done;
    QString reason;      // when not done
    QStringList outputs; // files kept (names), or where it went
    int pages = -1;      // of the result; -1: unknown
};
