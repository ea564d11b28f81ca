// Printing the pages of a TIFF on the current printer.
#include "server/frmMain.h"

void frmMain::PrintTiff(const QString&) {}
bool frmMain::TiffLoadFile(const QString&) { return false; }
void frmMain::SelectPrinterByName(const QString&) {}
