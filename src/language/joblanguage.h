#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

// The page description language of a job, told from its first bytes.
enum class JobLanguage {
    Unknown,
    PostScript,
    Pdf,
    Pcl,
    PclXl,
    Xps,
    Jpeg,
    Png,
    Tiff,
    PwgRaster,
    Urf,
};

struct DetectedLanguage {
    JobLanguage language = JobLanguage::Unknown;
    qsizetype start = 0; // where the language's own bytes begin, past UEL, PJL and blanks
    bool byPjl = false;  // PJL's ENTER LANGUAGE decided it
    QByteArray pjlTitle; // @PJL JOB NAME= or SET JOBNAME=, as sent
    QByteArray pjlUser;  // @PJL SET USERNAME=, as sent
};

// Reads the job's first bytes after any UEL/PJL prefix and blanks; a PJL
// ENTER LANGUAGE decides when present. Never reads past bytes.
DetectedLanguage DetectJobLanguage(QByteArrayView bytes);

// True when Quorvel makes the chosen output of a job in this language.
bool IsConverted(JobLanguage language);
// True for the languages a printer reads itself (sent raw when printing).
bool IsPrinterLanguage(JobLanguage language);

// "PostScript", "PCL 5", ... for the log.
QString LanguageName(JobLanguage language);
// The extension a job of this language is kept under when it is not converted.
QString KeptExtension(JobLanguage language);
