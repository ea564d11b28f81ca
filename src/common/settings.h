#pragma once

#include <QString>

// The per-user settings of the program: application name and section are
// both "Quorvel"; an absent key reads "".
// Windows: HKEY_CURRENT_USER\Software\Quorvel\Quorvel\Quorvel.
// Elsewhere: an INI file, Quorvel/Quorvel.ini in the user's configuration folder.
class SettingsStore
{
public:
    static QString get(const QString& key);
    static void put(const QString& key, const QString& value);
    static void remove(const QString& key);
    // Makes the settings file readable and writable by this user alone (made if absent), before
    // a secret goes in; false when that failed. Nothing to do for the registry.
    static bool makePrivate();

    // Points the store at an INI file in this folder (tests, portable runs).
    // An empty folder returns to the default place. QUORVEL_SETTINGS_DIR has the same effect.
    static void setFolder(const QString& folder);
    static QString fileName();
    // A file of the program's own beside the settings (on Windows, whose settings are in the
    // registry: in the user's application data folder).
    static QString besideFile(const QString& name);
};
