#pragma once

#include <string>

// The per-user entry that starts the program when the user logs on.
// Windows: a value named after the executable in HKEY_CURRENT_USER's Run key.
// Linux: an XDG autostart file ~/.config/autostart/<executable name>.desktop.

// True when the entry for exeName exists (a failing check is false).
bool RunEntryExists(const std::wstring& exeName);

// Writes (enable) or removes the entry for programFolder/exeName. Answers the
// message to show when opening or writing fails (empty when all went well);
// a failing removal says nothing.
std::wstring RunEntrySet(const std::wstring& exeName, const std::wstring& programFolder,
                         bool enable);

// The machine-wide variant; kept, nothing calls it.
void SetRunOnStart(const std::wstring& exeName, const std::wstring& programFolder);

// Where the entry lives (the Linux folder honours XDG_CONFIG_HOME).
std::wstring RunEntryLocation(const std::wstring& exeName);
