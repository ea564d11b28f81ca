// The tray icon's host side and the start-up entry.
#include "server/frmMain.h"

#include <QCheckBox>
#include <QPushButton>

void frmMain::setupTray() {}

void frmMain::cmdStartStop_Click()
{
    Log::line(QStringLiteral("No tray icon in this version"));
}

void frmMain::cmdClignote1_Click() {}
void frmMain::cmdAlternanceIcone1_Click() {}
void frmMain::cmdMessage1_Click() {}

void frmMain::ctlSysTrayBalloon1_DblClick(int /*Button*/)
{
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void frmMain::ctlSysTrayBalloon1_MouseUp(int) {}
void frmMain::ctlSysTrayBalloon1_PgmError(const QString&, int, const QString&) {}
bool frmMain::startupEntryExists()
{
    return false;
}
void frmMain::ChkRun_Click() {}
