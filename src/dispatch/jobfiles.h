#pragma once

#include "platform/safefile.h"

#include <QByteArrayView>
#include <QDateTime>
#include <QString>

#include <initializer_list>

// The files of a job in the job folder.

// "File_" + yyMMdd + "_" + hhmmss: two jobs within one second share a name.
QString jobBaseName(const QDateTime& when = QDateTime::currentDateTime());

// Overwrites the file with "X" over its whole length, closes and deletes it.
// False when a step failed (the caller tries again). A file that is already
// gone counts as wiped. While another process holds the file open it is
// left alone, as Windows would refuse to open it.
bool WipeFile(const QString& path);

// Wipes the file, trying again (events run between tries) until it is gone.
void WipeUntilDone(const QString& path);

// Writes the job's bytes as received, then the line end of one print
// statement, never through a symbolic link (one found there is removed and
// logged); a missing job folder is made again first. Raises run-time error
// 76 when the file cannot be made, 70 when it cannot be written whole.
// lineEnd false: the bytes alone (a job kept as it came).
void SaveJobFile(const QString& path, QByteArrayView bytes, bool lineEnd = true);

// Moves a spooled job to the job folder as baseName + extension, under the
// first name no job has taken; returns the new path, empty when it cannot.
QString MoveJobFile(const QString& from, const QString& folder, const QString& baseName,
                    const QString& extension);

// Makes the folder again when it is gone, and logs it; false when it cannot be made.
bool EnsureFolder(const QString& folder);

// baseName, or baseName_2, _3 ... : the first that no file of a job (a
// link included) has taken in folder.
QString FreeJobName(const QString& folder, const QString& baseName);

// safefile::write with Qt's types: never through a symbolic link.
safefile::Result WriteNoFollow(const QString& path, std::initializer_list<QByteArrayView> pieces,
                               safefile::Mode mode, QString* why = nullptr);
