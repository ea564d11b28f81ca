#pragma once

#include <QDateTime>
#include <QString>

// The files of a job in the job folder.

// "File_" + yyMMdd + "_" + hhmmss: two jobs within one second share a name.
QString jobBaseName(const QDateTime& when = QDateTime::currentDateTime());

// Overwrites the file with "X" over its whole length, closes and deletes it.
// False when a step failed (the caller tries again). A file that is already
// gone counts as wiped. While another process holds the file open it is
// left alone, as Windows would refuse to open it.
bool WipeFile(const QString& path);
