// The printer list, its on-line check and the printer tools.
#include "server/frmMain.h"

#include "common/runtimeerror.h"

#include <QListWidget>

void frmMain::PopulateListControlWithPrinters(QListWidget* ListControl)
{
    ListControl->clear();
}
void frmMain::List2_MouseUp() {}
void frmMain::List2_KeyUp() {}
void frmMain::FG2_RowColChange() {}
void frmMain::Timer1_Timer() {}
void frmMain::Command3_Click() {}
void frmMain::Command4_Click() {}
void frmMain::Command6_Click() {}
void frmMain::Command7_Click() {}
void frmMain::Command8_Click() {}
void frmMain::Command9_Click() {}
void frmMain::connectPrinterList()
{
    connect(List2, &QListWidget::itemClicked, this, Guarded([this] { List2_MouseUp(); }));
}
