#include "convert/imagefile.h"

#include "common/runtimeerror.h"

#include <QFile>
#include <QFileInfo>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <tiffio.h>

namespace
{
// libtiff's messages would go to stderr; keep the first error of an open
// handle so that the caller can log it.
int keepError(TIFF*, void* userData, const char* module, const char* fmt, va_list ap)
{
    auto* error = static_cast<QString*>(userData);
    if (error->isEmpty()) {
        char text[512];
        std::vsnprintf(text, sizeof text, fmt, ap);
        *error = QString::fromLocal8Bit(module ? module : "") + QStringLiteral(": ") +
                 QString::fromLocal8Bit(text);
    }
    return 1;
}

int ignoreWarning(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

struct TiffCloser {
    void operator()(TIFF* tif) const { TIFFClose(tif); }
};
using TiffHandle = std::unique_ptr<TIFF, TiffCloser>;

TiffHandle openTiff(const QString& fileName, QString& error)
{
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, keepError, &error);
    TIFFOpenOptionsSetWarningHandlerExtR(options, ignoreWarning, nullptr);
#ifdef _WIN32
    TIFF* tif = TIFFOpenWExt(reinterpret_cast<const wchar_t*>(fileName.utf16()), "r", options);
#else
    TIFF* tif = TIFFOpenExt(QFile::encodeName(fileName).constData(), "r", options);
#endif
    TIFFOpenOptionsFree(options);
    if (!tif && error.isEmpty())
        error = QStringLiteral("cannot open the file");
    return TiffHandle(tif);
}

template <typename T> T tag(TIFF* tif, ttag_t t, T fallback)
{
    T value = fallback;
    if (TIFFGetField(tif, t, &value) != 1)
        return fallback;
    return value;
}

// The strips of the current page must lie inside the file: a file that is
// still being written (or was cut short) has pages pointing past its end.
bool stripsInside(TIFF* tif, quint64 fileSize)
{
    const uint32_t n = TIFFIsTiled(tif) ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
    const ttag_t offsetsTag = TIFFIsTiled(tif) ? TIFFTAG_TILEOFFSETS : TIFFTAG_STRIPOFFSETS;
    const ttag_t countsTag = TIFFIsTiled(tif) ? TIFFTAG_TILEBYTECOUNTS : TIFFTAG_STRIPBYTECOUNTS;
    uint64_t* offsets = nullptr;
    uint64_t* counts = nullptr;
    if (n == 0 || TIFFGetField(tif, offsetsTag, &offsets) != 1 ||
        TIFFGetField(tif, countsTag, &counts) != 1 || !offsets || !counts)
        return false;
    for (uint32_t i = 0; i < n; ++i)
        if (offsets[i] > fileSize || counts[i] > fileSize - offsets[i])
            return false;
    return true;
}

// Pages keep their 1 bit per pixel, with 0 for black and 1 for white: Qt's
// PDF engine (CUPS printing) then embeds them as 1-bit images instead of
// JPEG-compressed colour ones.
QImage readMono(TIFF* tif, const ImageFile::Frame& f)
{
    QImage image(f.width, f.height, QImage::Format_Mono);
    if (image.isNull())
        return {};
    image.setColorTable({qRgb(0, 0, 0), qRgb(255, 255, 255)});
    const tmsize_t bytes = TIFFScanlineSize(tif);
    if (bytes > image.bytesPerLine())
        return {};
    // Ghostscript writes min-is-white pages: a set bit is black there.
    const bool invert = f.photometric == PHOTOMETRIC_MINISWHITE;
    for (int y = 0; y < f.height; ++y) {
        uchar* line = image.scanLine(y);
        if (TIFFReadScanline(tif, line, uint32_t(y), 0) < 0)
            return {};
        if (invert)
            for (tmsize_t i = 0; i < bytes; ++i)
                line[i] = uchar(~line[i]);
    }
    return image;
}

QImage readGray8(TIFF* tif, const ImageFile::Frame& f)
{
    QImage image(f.width, f.height, QImage::Format_Grayscale8);
    if (image.isNull() || TIFFScanlineSize(tif) > image.bytesPerLine())
        return {};
    for (int y = 0; y < f.height; ++y) {
        uchar* line = image.scanLine(y);
        if (TIFFReadScanline(tif, line, uint32_t(y), 0) < 0)
            return {};
        if (f.photometric == PHOTOMETRIC_MINISWHITE)
            for (int x = 0; x < f.width; ++x)
                line[x] = uchar(255 - line[x]);
    }
    return image;
}

// tiff12nc writes 4 bits per sample; QImageReader and libtiff's RGBA reader
// refuse it, so each nibble is widened here (x 17 maps 0..15 onto 0..255).
QImage readRgb4(TIFF* tif, const ImageFile::Frame& f)
{
    QImage image(f.width, f.height, QImage::Format_RGB888);
    if (image.isNull())
        return {};
    const tmsize_t size = TIFFScanlineSize(tif);
    if (size < (qint64(f.width) * 3 + 1) / 2)
        return {};
    std::unique_ptr<uchar[]> packed(new uchar[size_t(size)]);
    const int samples = f.width * 3;
    for (int y = 0; y < f.height; ++y) {
        if (TIFFReadScanline(tif, packed.get(), uint32_t(y), 0) < 0)
            return {};
        uchar* out = image.scanLine(y);
        const uchar* in = packed.get();
        int s = 0;
        for (; s + 1 < samples; s += 2) {
            const uchar b = *in++;
            out[s] = uchar((b >> 4) * 17);
            out[s + 1] = uchar((b & 0x0F) * 17);
        }
        if (s < samples)
            out[s] = uchar((*in >> 4) * 17);
    }
    return image;
}

QImage readRgb8(TIFF* tif, const ImageFile::Frame& f)
{
    QImage image(f.width, f.height, QImage::Format_RGB888);
    if (image.isNull() || TIFFScanlineSize(tif) > image.bytesPerLine())
        return {};
    for (int y = 0; y < f.height; ++y)
        if (TIFFReadScanline(tif, image.scanLine(y), uint32_t(y), 0) < 0)
            return {};
    return image;
}

// Every other kind of page goes through libtiff's RGBA reader.
QImage readRgba(TIFF* tif, const ImageFile::Frame& f)
{
    QImage image(f.width, f.height, QImage::Format_ARGB32);
    if (image.isNull() || image.bytesPerLine() != qsizetype(f.width) * 4)
        return {};
    if (TIFFReadRGBAImageOriented(tif, uint32_t(f.width), uint32_t(f.height),
                                  reinterpret_cast<uint32_t*>(image.bits()), ORIENTATION_TOPLEFT,
                                  0) != 1)
        return {};
    // libtiff packs 0xAABBGGRR; Qt's ARGB32 is 0xAARRGGBB.
    return image.rgbSwapped();
}

QImage decode(TIFF* tif, const ImageFile::Frame& f)
{
    const bool strips = !f.tiled && f.planar == PLANARCONFIG_CONTIG;
    const bool grey =
        f.photometric == PHOTOMETRIC_MINISWHITE || f.photometric == PHOTOMETRIC_MINISBLACK;
    if (strips && grey && f.samplesPerPixel == 1 && f.bitsPerSample == 1)
        return readMono(tif, f);
    if (strips && grey && f.samplesPerPixel == 1 && f.bitsPerSample == 8)
        return readGray8(tif, f);
    if (strips && f.photometric == PHOTOMETRIC_RGB && f.samplesPerPixel == 3) {
        if (f.bitsPerSample == 4)
            return readRgb4(tif, f);
        if (f.bitsPerSample == 8)
            return readRgb8(tif, f);
    }
    return readRgba(tif, f);
}
} // namespace

bool ImageFile::LoadFile(const QString& fileName)
{
    m_fileName = fileName;
    m_frames.clear();
    m_activeFrame = 0;
    m_lastError.clear();

    const QFileInfo info(fileName);
    if (!info.isFile()) {
        m_lastError = QStringLiteral("no such file");
        return false;
    }
    const quint64 fileSize = quint64(info.size());
    QString error;
    TiffHandle tif = openTiff(fileName, error);
    if (!tif) {
        m_lastError = error;
        return false;
    }
    QVector<Frame> frames;
    do {
        Frame f;
        f.width = int(tag<uint32_t>(tif.get(), TIFFTAG_IMAGEWIDTH, 0));
        f.height = int(tag<uint32_t>(tif.get(), TIFFTAG_IMAGELENGTH, 0));
        f.bitsPerSample = tag<uint16_t>(tif.get(), TIFFTAG_BITSPERSAMPLE, 1);
        f.samplesPerPixel = tag<uint16_t>(tif.get(), TIFFTAG_SAMPLESPERPIXEL, 1);
        f.photometric = tag<uint16_t>(tif.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        f.planar = tag<uint16_t>(tif.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        f.tiled = TIFFIsTiled(tif.get()) != 0;
        if (f.width <= 0 || f.height <= 0) {
            m_lastError = QStringLiteral("page %1 has no size").arg(frames.size() + 1);
            return false;
        }
        if (!stripsInside(tif.get(), fileSize)) {
            m_lastError = QStringLiteral("page %1 is incomplete").arg(frames.size() + 1);
            return false;
        }
        frames.push_back(f);
    } while (TIFFReadDirectory(tif.get()) == 1);
    if (!error.isEmpty()) {
        m_lastError = error;
        return false;
    }
    m_frames = frames;
    m_activeFrame = m_frames.isEmpty() ? 0 : 1;
    return true;
}

void ImageFile::setActiveFrame(int frame)
{
    if (frame < 1 || frame > FrameCount())
        RaiseError(rt::SubscriptOutOfRange);
    m_activeFrame = frame;
}

int ImageFile::Width() const
{
    return m_activeFrame > 0 ? m_frames.at(m_activeFrame - 1).width : 0;
}

int ImageFile::Height() const
{
    return m_activeFrame > 0 ? m_frames.at(m_activeFrame - 1).height : 0;
}

QImage ImageFile::Picture() const
{
    if (m_activeFrame <= 0)
        return {};
    QString error;
    TiffHandle tif = openTiff(m_fileName, error);
    if (!tif || TIFFSetDirectory(tif.get(), tdir_t(m_activeFrame - 1)) != 1) {
        m_lastError =
            error.isEmpty() ? QStringLiteral("page %1 is missing").arg(m_activeFrame) : error;
        return {};
    }
    QImage image = decode(tif.get(), m_frames.at(m_activeFrame - 1));
    if (image.isNull()) {
        m_lastError = error.isEmpty()
                          ? QStringLiteral("page %1 cannot be decoded").arg(m_activeFrame)
                          : error;
        return {};
    }
    return image;
}
