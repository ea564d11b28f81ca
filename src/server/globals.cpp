#include "server/globals.h"

#include "common/settings.h"

#include <QSysInfo>

QString& Globals::UserEMailId()
{
    static QString id;
    return id;
}

QString& Globals::InstallationId()
{
    static QString id;
    return id;
}

void Globals::LoadProgramIds()
{
    UserEMailId() = SettingsStore::get(QStringLiteral("EMailId"));
    // The host name on first run: stable, and a name that users can tell each other.
    QString id = SettingsStore::get(QStringLiteral("InstallationId"));
    if (id.trimmed().isEmpty()) {
        id = QSysInfo::machineHostName().trimmed().toLower();
        if (id.isEmpty())
            id = QStringLiteral("quorvel");
        SettingsStore::put(QStringLiteral("InstallationId"), id);
    }
    InstallationId() = id;
}
