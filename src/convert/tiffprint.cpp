#include "convert/tiffprint.h"

#include "common/doevents.h"
#include "common/int16.h"
#include "common/runtimeerror.h"
#include "convert/currentprinter.h"
#include "convert/imagefile.h"
#include "platform/filelock.h"
#include "platform/printertools.h"

#include <QFileInfo>

bool TiffLoad(ImageFile& image, const QString& fileName)
{
    if (heldOpenByAnotherProcess(fileName.toStdWString()))
        return false;
    try {
        return image.LoadFile(fileName);
    } catch (const std::exception&) {
        return false;
    }
}

void PrintTiffPages(const QString& tiffFilePath, const std::function<void(const QString&)>& log)
{
    ImageFile image;
    waitUntil([&] { return TiffLoad(image, tiffFilePath); });
    const Int16 pages = image.FrameCount();
    if (!CurrentPrinter::HasOpenDocument())
        CurrentPrinter::SetDocName(QFileInfo(tiffFilePath).completeBaseName());
    // CUPS drops a job sent to a queue that refuses jobs, and Qt does not tell.
    const QString printer = CurrentPrinter::DeviceName();
    if (pages > 0 && !printer.isEmpty() && !PrinterTools::acceptsJobs(printer.toStdWString()))
        log(QStringLiteral("Printer \"%1\" does not accept jobs: %2 is not printed")
                .arg(printer, tiffFilePath));
    // Every page goes onto the same sheet, stretched over it from the
    // top-left corner; nothing here starts a new page or ends the document.
    for (Int16 page = 1; page <= pages; ++page) {
        int width = 0;
        Int16 height;
        QImage picture;
        ResumeNext([&] { image.setActiveFrame(page); });
        ResumeNext([&] { width = image.Width(); });
        ResumeNext([&] { height = image.Height(); });
        ResumeNext([&] { picture = image.Picture(); });
        if (picture.isNull() || picture.width() != width || picture.height() != height) {
            log(QStringLiteral("Page %1 of %2 cannot be printed: %3")
                    .arg(page)
                    .arg(tiffFilePath, image.lastError()));
            continue;
        }
        ResumeNext([&] {
            if (!CurrentPrinter::PaintPicture(picture, 0, 0, CurrentPrinter::Width(),
                                              CurrentPrinter::Height()))
                log(QStringLiteral("Cannot print on printer \"%1\"").arg(printer));
        });
    }
}
