// Exports every page of a TIFF as a quality-95 JPEG the way the dispatch
// does: image object -> picture -> DIB section -> SaveJPG. Prints the pages
// written and the seconds taken, TIFF loading included.
// Usage: jpeg_export FILE.tif OUTPREFIX
#include "common/msgbox.h"
#include "convert/cdibsection.h"
#include "convert/imagefile.h"
#include "convert/jpegwriter.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: jpeg_export FILE.tif OUTPREFIX\n");
        return 2;
    }
    setMsgMode(MsgMode::Headless);
    const QString tiff = QString::fromLocal8Bit(argv[1]);
    const QString prefix = QString::fromLocal8Bit(argv[2]);
    QElapsedTimer clock;
    clock.start();
    ImageFile image;
    if (!image.LoadFile(tiff)) {
        std::fprintf(stderr, "cannot load %s: %s\n", argv[1], qPrintable(image.lastError()));
        return 1;
    }
    int written = 0;
    for (int page = 1; page <= image.FrameCount(); ++page) {
        image.setActiveFrame(page);
        cDIBSection dib;
        dib.CreateFromPicture(image.Picture());
        if (SaveJPG(dib,
                    prefix + QStringLiteral("_00") + QString::number(page) + QStringLiteral(".jpg"),
                    95))
            ++written;
    }
    std::printf("%d %.3f\n", written, double(clock.nsecsElapsed()) / 1e9);
    return written == image.FrameCount() ? 0 : 1;
}
