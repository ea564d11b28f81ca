#include "server/programids.h"

#include "common/settings.h"

#include <QSysInfo>

ProgramIds ProgramIds::load()
{
    ProgramIds ids;
    ids.userEMailId = SettingsStore::get(QStringLiteral("EMailId"));
    // The host name on first run: stable, and a name that users can tell each other.
    ids.installationId = SettingsStore::get(QStringLiteral("InstallationId"));
    if (ids.installationId.trimmed().isEmpty()) {
        ids.installationId = QSysInfo::machineHostName().trimmed().toLower();
        if (ids.installationId.isEmpty())
            ids.installationId = QStringLiteral("quorvel");
        SettingsStore::put(QStringLiteral("InstallationId"), ids.installationId);
    }
    return ids;
}
