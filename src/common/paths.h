#pragma once

#include <QString>

// Where the program keeps its files.
namespace Paths
{
// The folder of the executable, unless set (tests, --program-folder).
QString programFolder();
void setProgramFolder(const QString& folder);
// programFolder()/ImagesPdfExport, or the user's data folder when the
// program folder is not writable or is an installed prefix/bin (Unix).
// Created by ensureJobFolder().
QString jobFolder();
QString ensureJobFolder();
// The JobFolder setting, when set, replaces the folder above; read again after this.
void resetJobFolder();
// Joins with the platform's separator, as shown to the user.
QString join(const QString& folder, const QString& name);
QString separator();
} // namespace Paths
