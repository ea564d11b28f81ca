#pragma once

#include <QString>

// Who this program is to the cloud share, read once at start-up and handed
// to the main window.
struct ProgramIds {
    QString userEMailId;    // the setting "EMailId"
    QString installationId; // identifies this computer to the share

    // Reads both from the settings (and makes the installation id on first run).
    static ProgramIds load();
};
