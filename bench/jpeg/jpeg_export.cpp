// Exports every page of a TIFF as a quality-95 JPEG the way the dispatch
// does (SaveJpegPages: pages decoded in order, encoded on every core).
// Prints the pages written and the seconds taken, TIFF loading included.
// Usage: jpeg_export FILE.tif OUTPREFIX
#include "common/msgbox.h"
#include "convert/imagefile.h"
#include "convert/jpegpages.h"

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
    int failed = 0;
    SaveJpegPages(image, image.FrameCount(), prefix, [&](const QString&) { ++failed; });
    const int written = image.FrameCount() - failed;
    std::printf("%d %.3f\n", written, double(clock.nsecsElapsed()) / 1e9);
    return failed == 0 ? 0 : 1;
}
