#pragma once

#include <QString>

// Program-wide values set before the main window loads.
namespace Globals
{
// The user's e-mail id, read from the setting "EMailId" at program start.
QString& UserEMailId();
// Identifies this installation to the cloud print store.
QString& InstallationId();
// Reads both from the settings (and makes the installation id on first run).
void LoadProgramIds();
} // namespace Globals
