#pragma once

#include "dispatch/outputchoice.h"
#include "language/joblanguage.h"

#include <QString>

// One job on its road from the buffer to its output: named once when the
// dispatch starts and handed down, so a second job cannot take its files.
struct Job {
    QString baseName;   // File_yyMMdd_hhmmss
    QString psPath;     // the saved PostScript
    QString outputPath; // what Ghostscript makes; empty when nothing is converted
    OutputChoice choice;
    JobLanguage language = JobLanguage::PostScript;

    // The job's files in the job folder.
    static Job named(const QString& baseName, const OutputChoice& choice, const QString& folder);
};
