// Saving a job as PostScript and having Ghostscript convert it.
#include "server/frmMain.h"

void frmMain::SavePSFile(const QByteArray&) {}
void frmMain::DoChangeOption() {}
void frmMain::DoConvertPs2PdfImage() {}
void frmMain::DoWait4FilePS2PDFCreated(const QString&) {}
bool frmMain::IsFileTiffPDFLocked(const QString&) { return true; }
