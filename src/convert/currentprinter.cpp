#include "convert/currentprinter.h"
#include <QImage>
#include <QPrinter>
#include <QPrinterInfo>
QString CurrentPrinter::DeviceName()
{
    return printer().printerName();
}
void CurrentPrinter::Select(const QPrinterInfo& p)
{
    printer().setPrinterName(p.printerName());
}
void CurrentPrinter::SetDocName(const QString&) {}
int CurrentPrinter::Width()
{
    return 0;
}
int CurrentPrinter::Height()
{
    return 0;
}
void CurrentPrinter::PaintPicture(const QImage&, int, int, int, int) {}
bool CurrentPrinter::HasOpenDocument()
{
    return false;
}
void CurrentPrinter::EndDoc() {}
QPrinter& CurrentPrinter::printer()
{
    static QPrinter p;
    return p;
}
