#include "convert/pageimages.h"

#include <QBuffer>
#include <QDir>
#include <QImageReader>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <QProcess>
#include <QTemporaryDir>
#include <cstring>
#include <vector>

#ifndef Q_OS_WIN
#include <cups/raster.h>
#endif

namespace
{
constexpr int kXpsSeconds = 600;

struct Page {
    QImage image;
    double dpiX = 72;
    double dpiY = 72;
};

// The pages on PDF pages of their own size.
QByteArray toPdf(const std::vector<Page>& pages)
{
    QByteArray pdf;
    QBuffer out(&pdf);
    out.open(QIODevice::WriteOnly);
    QPdfWriter writer(&out);
    writer.setResolution(72);
    writer.setPageMargins(QMarginsF());
    QPainter painter;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        const Page& p = pages[i];
        const QSizeF points(p.image.width() * 72.0 / p.dpiX, p.image.height() * 72.0 / p.dpiY);
        writer.setPageSize(QPageSize(points, QPageSize::Point));
        if (i == 0 ? !painter.begin(&writer) : !writer.newPage())
            return QByteArray();
        painter.drawImage(QRectF(QPointF(), points), p.image);
    }
    painter.end();
    return pdf;
}

std::vector<Page> readImages(QByteArrayView bytes, QString* why)
{
    QByteArray copy = bytes.toByteArray();
    QBuffer in(&copy);
    in.open(QIODevice::ReadOnly);
    QImageReader reader(&in);
    reader.setAllocationLimit(0); // a 600 dpi page is past Qt's default limit
    std::vector<Page> pages;
    const int count = qMax(1, reader.imageCount());
    for (int i = 0; i < count; ++i) {
        if (i > 0 && !reader.jumpToImage(i))
            break;
        QImage image = reader.read();
        if (image.isNull()) {
            *why = reader.errorString();
            break;
        }
        // Dots per metre, 0 when the file says nothing: 72 dpi then.
        const double x = image.dotsPerMeterX() * 0.0254, y = image.dotsPerMeterY() * 0.0254;
        pages.push_back({std::move(image), x >= 1 ? x : 72, y >= 1 ? y : 72});
    }
    return pages;
}

#ifndef Q_OS_WIN
struct Stream {
    QByteArrayView bytes;
    qsizetype at = 0;
};

ssize_t readStream(void* ctx, unsigned char* buffer, size_t length)
{
    auto* s = static_cast<Stream*>(ctx);
    const qsizetype n = qMin<qsizetype>(qsizetype(length), s->bytes.size() - s->at);
    std::memcpy(buffer, s->bytes.data() + s->at, std::size_t(n));
    s->at += n;
    return n;
}

// One raster page as an image, for the colour spaces and depths printers are sent.
QImage rasterPage(cups_raster_t* r, const cups_page_header2_t& h, QString* why)
{
    const bool gray = h.cupsNumColors == 1, rgb = h.cupsNumColors == 3;
    const bool black = h.cupsColorSpace == CUPS_CSPACE_K; // 1 is ink, not light
    if ((!gray && !rgb) || (h.cupsBitsPerColor != 8 && !(gray && h.cupsBitsPerColor == 1)) ||
        h.cupsColorOrder != CUPS_ORDER_CHUNKED || h.cupsWidth == 0 || h.cupsHeight == 0 ||
        h.cupsWidth > 100000 || h.cupsHeight > 100000) {
        *why = QStringLiteral("a raster page of %1 colours at %2 bits is not read here")
                   .arg(h.cupsNumColors)
                   .arg(h.cupsBitsPerColor);
        return QImage();
    }
    QImage image(int(h.cupsWidth), int(h.cupsHeight),
                 rgb                       ? QImage::Format_RGB888
                 : h.cupsBitsPerColor == 1 ? QImage::Format_Mono
                                           : QImage::Format_Grayscale8);
    if (image.isNull()) {
        *why = QStringLiteral("no memory for a %1 x %2 page").arg(h.cupsWidth).arg(h.cupsHeight);
        return QImage();
    }
    if (image.format() == QImage::Format_Mono)
        image.setColorTable({black ? qRgb(255, 255, 255) : qRgb(0, 0, 0),
                             black ? qRgb(0, 0, 0) : qRgb(255, 255, 255)});
    std::vector<unsigned char> line(h.cupsBytesPerLine);
    const auto width = std::size_t(image.bytesPerLine());
    for (unsigned y = 0; y < h.cupsHeight; ++y) {
        if (cupsRasterReadPixels(r, line.data(), h.cupsBytesPerLine) != h.cupsBytesPerLine) {
            *why = QStringLiteral("the raster data end inside a page");
            return QImage();
        }
        unsigned char* row = image.scanLine(int(y));
        std::memcpy(row, line.data(), qMin<std::size_t>(width, line.size()));
        if (black && h.cupsBitsPerColor == 8)
            for (std::size_t x = 0; x < width; ++x)
                row[x] = uchar(255 - row[x]);
    }
    return image;
}

std::vector<Page> readRaster(QByteArrayView bytes, QString* why)
{
    Stream stream{bytes};
    std::vector<Page> pages;
    cups_raster_t* r = cupsRasterOpenIO(readStream, &stream, CUPS_RASTER_READ);
    if (!r) {
        *why = QString::fromUtf8(cupsRasterErrorString());
        return pages;
    }
    cups_page_header2_t h;
    while (cupsRasterReadHeader2(r, &h)) {
        QImage image = rasterPage(r, h, why);
        if (image.isNull())
            break;
        pages.push_back({std::move(image), h.HWResolution[0] ? double(h.HWResolution[0]) : 72,
                         h.HWResolution[1] ? double(h.HWResolution[1]) : 72});
    }
    cupsRasterClose(r);
    if (pages.empty() && why->isEmpty())
        *why = QStringLiteral("no page could be read");
    return pages;
}
#endif

QByteArray xpsToPdf(QByteArrayView bytes, QString* why)
{
    QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/quorvel-xps-XXXXXX"));
    QFile in(dir.filePath(QStringLiteral("job.xps")));
    if (!dir.isValid() || !in.open(QIODevice::WriteOnly) ||
        in.write(bytes.data(), bytes.size()) != bytes.size()) {
        *why = QStringLiteral("no temporary folder for it");
        return QByteArray();
    }
    in.close();
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral("xpstopdf"), {in.fileName(), dir.filePath(QStringLiteral("job.pdf"))});
    if (!p.waitForFinished(kXpsSeconds * 1000) || p.exitStatus() != QProcess::NormalExit ||
        p.exitCode() != 0) {
        p.kill();
        const QString said = QString::fromUtf8(p.readAll()).simplified().left(200);
        *why = p.error() == QProcess::FailedToStart
                   ? QStringLiteral("xpstopdf cannot be started (package libgxps-utils)")
                   : QStringLiteral("xpstopdf failed: ") + said;
        return QByteArray();
    }
    QFile out(dir.filePath(QStringLiteral("job.pdf")));
    return out.open(QIODevice::ReadOnly) ? out.readAll() : QByteArray();
}
} // namespace

bool NeedsPdfFirst(JobLanguage language)
{
    switch (language) {
    case JobLanguage::Jpeg:
    case JobLanguage::Png:
    case JobLanguage::Tiff:
    case JobLanguage::PwgRaster:
    case JobLanguage::Urf:
    case JobLanguage::Xps:
        return true;
    default:
        return false;
    }
}

QByteArray PagesAsPdf(QByteArrayView bytes, JobLanguage language, QString* why)
{
    why->clear();
    if (language == JobLanguage::Xps)
        return xpsToPdf(bytes, why);
    std::vector<Page> pages;
    if (language == JobLanguage::PwgRaster || language == JobLanguage::Urf) {
#ifndef Q_OS_WIN
        pages = readRaster(bytes, why);
#else
        *why = QStringLiteral("raster streams are read on Linux only");
#endif
    } else {
        pages = readImages(bytes, why);
    }
    if (pages.empty() || !why->isEmpty()) { // half a job is not the job
        if (why->isEmpty())
            *why = QStringLiteral("no page could be read");
        return QByteArray();
    }
    const QByteArray pdf = toPdf(pages);
    if (pdf.isEmpty())
        *why = QStringLiteral("its pages cannot be made into a PDF");
    return pdf;
}
