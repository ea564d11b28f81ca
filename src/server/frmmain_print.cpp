// Printing the pages of a TIFF on the current printer.
#include "server/frmmain.h"

#include "common/doevents.h"
#include "common/int16.h"
#include "convert/currentprinter.h"
#include "convert/imagefile.h"
#include "platform/filelock.h"
#include "platform/printertools.h"

#include <QFileInfo>
#include <QPrinterInfo>

namespace
{
// A step of a page whose failure is passed over: the next step runs.
template <typename F> void resumeNext(F&& step)
{
    try {
        step();
    } catch (const RuntimeError&) {
    }
}
} // namespace

bool frmMain::TiffLoadFile(const QString& FileName)
{
    if (!m_ImageFile)
        m_ImageFile = std::make_unique<ImageFile>();
    // Linux lets a file be read while Ghostscript still writes it: such a
    // file is not loadable yet.
    if (heldOpenByAnotherProcess(FileName))
        return false;
    try {
        return m_ImageFile->LoadFile(FileName);
    } catch (const std::exception&) {
        return false;
    }
}

void frmMain::PrintTiff(const QString& TiffFilePath)
{
    m_ImageFile = std::make_unique<ImageFile>();
    while (!TiffLoadFile(TiffFilePath)) {
        DoEvents();
        DoEvents();
    }
    const Int16 pages = m_ImageFile->FrameCount();
    if (!CurrentPrinter::HasOpenDocument())
        CurrentPrinter::SetDocName(QFileInfo(TiffFilePath).completeBaseName());
    // CUPS drops a job sent to a queue that refuses jobs, and Qt does not tell.
    const QString printer = CurrentPrinter::DeviceName();
    if (pages > 0 && !printer.isEmpty() && !PrinterTools::acceptsJobs(printer))
        txtLog->append(QStringLiteral("Printer \"%1\" does not accept jobs: %2 is not printed")
                           .arg(printer, TiffFilePath));
    // Every page goes onto the same sheet, stretched over it from the
    // top-left corner; nothing here starts a new page or ends the document.
    for (Int16 page = 1; page <= pages; ++page) {
        int width = 0;
        Int16 height;
        QImage picture;
        resumeNext([&] { m_ImageFile->setActiveFrame(page); });
        resumeNext([&] { width = m_ImageFile->Width(); });
        resumeNext([&] { height = m_ImageFile->Height(); });
        resumeNext([&] { picture = m_ImageFile->Picture(); });
        if (picture.isNull() || picture.width() != width || picture.height() != height) {
            txtLog->append(QStringLiteral("Page %1 of %2 cannot be printed: %3")
                               .arg(page)
                               .arg(TiffFilePath, m_ImageFile->lastError()));
            continue;
        }
        resumeNext([&] {
            if (!CurrentPrinter::PaintPicture(picture, 0, 0, CurrentPrinter::Width(),
                                              CurrentPrinter::Height()))
                txtLog->append(QStringLiteral("Cannot print on printer \"%1\"").arg(printer));
        });
    }
}

void frmMain::SelectPrinterByName(const QString& name)
{
    const QList<QPrinterInfo> printers = QPrinterInfo::availablePrinters();
    if (printers.isEmpty())
        return;
    for (const QPrinterInfo& printer : printers)
        if (printer.printerName() == name) {
            CurrentPrinter::Select(printer);
            return;
        }
}
