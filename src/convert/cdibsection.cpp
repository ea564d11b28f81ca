#include "convert/cdibsection.h"

#include "common/runtimeerror.h"

#include <QCoreApplication>
#include <QPainter>
#include <QTimer>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace
{
std::atomic<quintptr> g_nextHandle{1};

// The memory of a page-sized section that was just released is handed to the
// next section made before the event loop runs again (the pages of one JPEG
// export): fresh memory costs a page fault per 4 KB, more than the copy into it.
struct Spare {
    void* memory = nullptr;
    size_t size = 0;
    bool releaseQueued = false;
};
Spare g_spare;
constexpr size_t kSpareMinimum = size_t(8) << 20;

void releaseSpare()
{
    std::free(g_spare.memory);
    g_spare.memory = nullptr;
    g_spare.size = 0;
}

void* takeMemory(size_t size, bool zeroed, size_t& capacity)
{
    if (g_spare.memory && g_spare.size >= size && g_spare.size / 2 <= size) {
        void* memory = g_spare.memory;
        capacity = g_spare.size;
        g_spare.memory = nullptr;
        g_spare.size = 0;
        if (zeroed)
            std::memset(memory, 0, size);
        return memory;
    }
    capacity = size;
    // calloc hands out zeroed pages without touching them.
    return zeroed ? std::calloc(size, 1) : std::malloc(size);
}

void giveBack(void* memory, size_t capacity)
{
    QCoreApplication* app = QCoreApplication::instance();
    if (!memory || capacity < kSpareMinimum || !app) {
        std::free(memory);
        return;
    }
    releaseSpare();
    g_spare.memory = memory;
    g_spare.size = capacity;
    if (!g_spare.releaseQueued) {
        g_spare.releaseQueued = true;
        QTimer::singleShot(0, app, [] {
            g_spare.releaseQueued = false;
            releaseSpare();
        });
    }
}

qint32 checked(qint64 value)
{
    if (value > std::numeric_limits<qint32>::max() || value < std::numeric_limits<qint32>::min())
        RaiseError(rt::Overflow);
    return qint32(value);
}

// Eight pixels of a 1-bit byte as 24 bytes of blue-green-red.
using MonoLut = std::array<std::array<uchar, 24>, 256>;

MonoLut monoLut(QRgb zero, QRgb one, bool lsbFirst)
{
    MonoLut lut{};
    for (int b = 0; b < 256; ++b)
        for (int k = 0; k < 8; ++k) {
            const bool set = lsbFirst ? (b >> k) & 1 : (b >> (7 - k)) & 1;
            const QRgb c = set ? one : zero;
            lut[b][k * 3] = uchar(qBlue(c));
            lut[b][k * 3 + 1] = uchar(qGreen(c));
            lut[b][k * 3 + 2] = uchar(qRed(c));
        }
    return lut;
}

// Writes `count` pixels of the source row y, from column x0, as BGR.
class RowReader
{
public:
    explicit RowReader(const QImage& source) : m_image(source)
    {
        switch (source.format()) {
        case QImage::Format_Mono:
        case QImage::Format_MonoLSB: {
            const QRgb zero = source.colorCount() > 0 ? source.color(0) : qRgb(255, 255, 255);
            const QRgb one = source.colorCount() > 1 ? source.color(1) : qRgb(0, 0, 0);
            m_mono = monoLut(zero, one, source.format() == QImage::Format_MonoLSB);
            m_kind = Mono;
            m_grayscale = isGray(zero) && isGray(one);
            break;
        }
        case QImage::Format_Grayscale8:
            m_kind = Gray;
            m_grayscale = true;
            break;
        case QImage::Format_RGB888:
            m_kind = Rgb;
            break;
        case QImage::Format_BGR888:
            m_kind = Bgr;
            break;
        case QImage::Format_RGB32:
        case QImage::Format_ARGB32:
        case QImage::Format_ARGB32_Premultiplied:
            m_kind = Rgb32;
            break;
        default:
            // Anything else is converted once; the pages the program makes never are.
            m_image = source.convertToFormat(QImage::Format_RGB888);
            m_kind = Rgb;
            break;
        }
    }

    // Only greys come out of this picture.
    bool grayscale() const { return m_grayscale; }

    void read(int y, int x0, int count, uchar* out) const
    {
        const uchar* in = m_image.constScanLine(y);
        switch (m_kind) {
        case Mono: {
            int x = x0;
            const int end = x0 + count;
            for (; x < end && (x & 7); ++x, out += 3)
                monoPixel(in, x, out);
            for (; x + 8 <= end; x += 8, out += 24)
                std::memcpy(out, m_mono[in[x >> 3]].data(), 24);
            for (; x < end; ++x, out += 3)
                monoPixel(in, x, out);
            break;
        }
        case Gray:
            for (int x = x0; x < x0 + count; ++x, out += 3)
                out[0] = out[1] = out[2] = in[x];
            break;
        case Rgb:
            for (const uchar* p = in + qsizetype(x0) * 3; count-- > 0; p += 3, out += 3) {
                out[0] = p[2];
                out[1] = p[1];
                out[2] = p[0];
            }
            break;
        case Bgr:
            std::memcpy(out, in + qsizetype(x0) * 3, size_t(count) * 3);
            break;
        case Rgb32: {
            const auto* p = reinterpret_cast<const QRgb*>(in) + x0;
            for (; count-- > 0; ++p, out += 3) {
                out[0] = uchar(qBlue(*p));
                out[1] = uchar(qGreen(*p));
                out[2] = uchar(qRed(*p));
            }
            break;
        }
        }
    }

private:
    void monoPixel(const uchar* in, int x, uchar* out) const
    {
        // Pixel k of a byte is entry k of that byte's expansion.
        const uchar byte = in[x >> 3];
        const int k = x & 7;
        std::memcpy(out, &m_mono[byte][k * 3], 3);
    }

    static bool isGray(QRgb c) { return qRed(c) == qGreen(c) && qGreen(c) == qBlue(c); }

    enum Kind { Mono, Gray, Rgb, Bgr, Rgb32 };
    QImage m_image;
    Kind m_kind = Rgb;
    bool m_grayscale = false;
    MonoLut m_mono{};
};

QPainter::CompositionMode modeOf(cDIBSection::Rop rop)
{
    switch (rop) {
    case cDIBSection::SrcPaint:
        return QPainter::RasterOp_SourceOrDestination;
    case cDIBSection::SrcAnd:
        return QPainter::RasterOp_SourceAndDestination;
    case cDIBSection::SrcInvert:
        return QPainter::RasterOp_SourceXorDestination;
    case cDIBSection::SrcCopy:
        break;
    }
    return QPainter::CompositionMode_Source;
}
} // namespace

qint32 cDIBSection::BytesPerScanLine(qint32 width)
{
    return checked(qint64(width) * 3 + 3) & ~3;
}

bool cDIBSection::allocate(qint32 width, qint32 height, bool zeroed, quintptr& hDib)
{
    hDib = 0;
    const qint32 pitch = BytesPerScanLine(width);
    const qint32 size = checked(qint64(pitch) * height);
    if (width <= 0 || height <= 0)
        return false;
    size_t capacity = 0;
    void* memory = takeMemory(size_t(size), zeroed, capacity);
    if (!memory)
        return false;
    m_bits = Bits(static_cast<uchar*>(memory), Free{capacity});
    m_width = width;
    m_height = height;
    m_pitch = pitch;
    m_imageSize = size;
    m_hDib = g_nextHandle.fetch_add(1);
    hDib = m_hDib;
    return true;
}

bool cDIBSection::CreateDIB(qint32 lWidth, qint32 lHeight, quintptr& hDib)
{
    return allocate(lWidth, lHeight, true, hDib);
}

bool cDIBSection::Create(qint32 lWidth, qint32 lHeight)
{
    ClearUp();
    quintptr handle = 0;
    return CreateDIB(lWidth, lHeight, handle);
}

void cDIBSection::CreateFromPicture(const QImage& picThis)
{
    ClearUp();
    if (picThis.isNull())
        return;
    quintptr handle = 0;
    // Every byte is written below, so the memory is not cleared first.
    if (!allocate(picThis.width(), picThis.height(), false, handle))
        return;
    const RowReader reader(picThis);
    const int pad = m_pitch - m_width * 3;
    for (int y = 0; y < m_height; ++y) {
        uchar* out = row(y);
        reader.read(y, 0, m_width, out);
        std::memset(out + qsizetype(m_width) * 3, 0, size_t(pad));
    }
    m_grayscale = reader.grayscale();
}

void cDIBSection::LoadPictureBlt(const QImage& source, qint32 lSrcLeft, qint32 lSrcTop,
                                 qint32 lSrcWidth, qint32 lSrcHeight, Rop eRop)
{
    if (!m_bits || source.isNull())
        return;
    int width = lSrcWidth >= 0 ? lSrcWidth : m_width;
    int height = lSrcHeight >= 0 ? lSrcHeight : m_height;
    // Only what lies inside both bitmaps is copied.
    int dx = 0, dy = 0, sx = lSrcLeft, sy = lSrcTop;
    if (sx < 0) {
        dx = -sx;
        width += sx;
        sx = 0;
    }
    if (sy < 0) {
        dy = -sy;
        height += sy;
        sy = 0;
    }
    width = qMin(width, qMin(m_width - dx, source.width() - sx));
    height = qMin(height, qMin(m_height - dy, source.height() - sy));
    if (width <= 0 || height <= 0)
        return;
    m_grayscale = false;
    const RowReader reader(source);
    std::unique_ptr<uchar[]> line(eRop == SrcCopy ? nullptr : new uchar[size_t(width) * 3]);
    for (int y = 0; y < height; ++y) {
        uchar* out = row(dy + y) + qsizetype(dx) * 3;
        if (eRop == SrcCopy) {
            reader.read(sy + y, sx, width, out);
            continue;
        }
        reader.read(sy + y, sx, width, line.get());
        for (int i = 0; i < width * 3; ++i)
            out[i] = eRop == SrcPaint ? uchar(out[i] | line[i])
                     : eRop == SrcAnd ? uchar(out[i] & line[i])
                                      : uchar(out[i] ^ line[i]);
    }
}

QImage cDIBSection::toImage() const
{
    if (!m_bits)
        return {};
    // A view of the bottom-up rows, turned the right way up into a copy.
    const QImage view(m_bits.get(), m_width, m_height, m_pitch, QImage::Format_BGR888);
    return view.mirrored(false, true);
}

void cDIBSection::PaintPicture(QPainter& target, qint32 lDestLeft, qint32 lDestTop,
                               qint32 lDestWidth, qint32 lDestHeight, qint32 lSrcLeft,
                               qint32 lSrcTop, Rop eRop) const
{
    if (!m_bits)
        return;
    const int width = lDestWidth >= 0 ? lDestWidth : m_width;
    const int height = lDestHeight >= 0 ? lDestHeight : m_height;
    const QRect source = QRect(lSrcLeft, lSrcTop, width, height) & QRect(0, 0, m_width, m_height);
    if (source.isEmpty())
        return;
    const QImage view(m_bits.get(), m_width, m_height, m_pitch, QImage::Format_BGR888);
    const QImage part =
        view.copy(source.x(), m_height - source.bottom() - 1, source.width(), source.height())
            .mirrored(false, true);
    target.save();
    target.setCompositionMode(modeOf(eRop));
    target.drawImage(QPoint(lDestLeft + source.x() - lSrcLeft, lDestTop + source.y() - lSrcTop),
                     part);
    target.restore();
}

void cDIBSection::PaintPicture(QImage& target, qint32 lDestLeft, qint32 lDestTop, qint32 lDestWidth,
                               qint32 lDestHeight, qint32 lSrcLeft, qint32 lSrcTop, Rop eRop) const
{
    if (!m_bits || target.isNull())
        return;
    // The raster operations need a 32-bit destination.
    const QImage::Format format = target.format();
    const bool convert = eRop != SrcCopy && format != QImage::Format_RGB32 &&
                         format != QImage::Format_ARGB32_Premultiplied;
    QImage work = convert ? target.convertToFormat(QImage::Format_RGB32) : QImage();
    {
        QPainter painter(convert ? &work : &target);
        PaintPicture(painter, lDestLeft, lDestTop, lDestWidth, lDestHeight, lSrcLeft, lSrcTop,
                     eRop);
    }
    if (convert)
        target = work.convertToFormat(format, target.colorTable());
}

void cDIBSection::Free::operator()(uchar* p) const
{
    giveBack(p, capacity);
}

void cDIBSection::ClearUp()
{
    m_bits.reset();
    m_width = m_height = m_pitch = m_imageSize = 0;
    m_hDib = 0;
    m_grayscale = false;
}
