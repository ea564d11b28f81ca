#pragma once

#include <QString>

// The per-user entry that starts the program when the user logs on.
// Windows: a value named after the executable in HKEY_CURRENT_USER's Run key.
// Linux: an XDG autostart file ~/.config/autostart/<executable name>.desktop.

// True when the entry for exeName exists (a failing check is false).
bool RunEntryExists(const QString& exeName);

// Writes (enable) or removes the entry for programFolder/exeName. Failures to
// open or write are shown in a message box; a failing removal is not.
void RunEntrySet(const QString& exeName, const QString& programFolder, bool enable);

// The machine-wide variant; kept, nothing calls it.
void SetRunOnStart(const QString& exeName, const QString& programFolder);

// Where the Linux entry lives (the folder honours XDG_CONFIG_HOME).
QString RunEntryLocation(const QString& exeName);
