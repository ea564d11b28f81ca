#pragma once

#include <QImage>
#include <QtGlobal>
#include <cstddef>
#include <memory>

class QPainter;

// One 24-bit bitmap in plain memory, laid out as a Windows DIB: rows stored
// bottom row first, 3 bytes per pixel in blue-green-red order, each row
// padded to a multiple of 4 bytes. The JPEG writer reads it directly.
class cDIBSection
{
public:
    // Raster operations of the copies; only these four are understood.
    enum Rop : quint32 {
        SrcCopy = 0xCC0020,
        SrcPaint = 0xEE0086,  // OR
        SrcAnd = 0x8800C6,    // AND
        SrcInvert = 0x660046, // XOR
    };

    cDIBSection() = default;
    ~cDIBSection() { ClearUp(); }
    cDIBSection(const cDIBSection&) = delete;
    cDIBSection& operator=(const cDIBSection&) = delete;

    // A new image of that size, all black; releases the previous one first.
    // False when the size is not positive or the memory cannot be had;
    // a size whose byte count overflows 32 bits raises run-time error 6.
    bool Create(qint32 lWidth, qint32 lHeight);
    // Fills the header and allocates the pixel memory; hDib gets the new
    // section's handle (0 on failure).
    bool CreateDIB(qint32 lWidth, qint32 lHeight, quintptr& hDib);
    // The image becomes the picture's size and content; left empty when the
    // picture is null or too large.
    void CreateFromPicture(const QImage& picThis);
    // Copies from a picture into this image at (0, 0).
    void LoadPictureBlt(const QImage& source, qint32 lSrcLeft = 0, qint32 lSrcTop = 0,
                        qint32 lSrcWidth = -1, qint32 lSrcHeight = -1, Rop eRop = SrcCopy);
    // Copies this image onto a picture or a painter's device.
    void PaintPicture(QImage& target, qint32 lDestLeft = 0, qint32 lDestTop = 0,
                      qint32 lDestWidth = -1, qint32 lDestHeight = -1, qint32 lSrcLeft = 0,
                      qint32 lSrcTop = 0, Rop eRop = SrcCopy) const;
    void PaintPicture(QPainter& target, qint32 lDestLeft = 0, qint32 lDestTop = 0,
                      qint32 lDestWidth = -1, qint32 lDestHeight = -1, qint32 lSrcLeft = 0,
                      qint32 lSrcTop = 0, Rop eRop = SrcCopy) const;

    // (Width * 3 + 3) rounded down to a multiple of 4; overflow raises run-time error 6.
    qint32 BytesPerScanLine() const { return BytesPerScanLine(m_width); }
    static qint32 BytesPerScanLine(qint32 width);
    qint32 Width() const { return m_width; }
    qint32 Height() const { return m_height; }
    // Non-zero while an image is held; a new one for every creation.
    quintptr hDib() const { return m_hDib; }
    // The first byte of the bottom row; null when empty.
    uchar* DIBSectionBitsPtr()
    {
        m_grayscale = false; // the caller may write anything
        return m_bits.get();
    }
    const uchar* DIBSectionBitsPtr() const { return m_bits.get(); }
    // True when the image is known to hold only greys (made from a 1-bit or
    // grey picture and not written to since): the JPEG writer then stores
    // one channel instead of three.
    bool IsGrayscale() const { return m_grayscale; }
    // The image top-down as a QImage copy (Format_BGR888).
    QImage toImage() const;

    void ClearUp();

private:
    bool allocate(qint32 width, qint32 height, bool zeroed, quintptr& hDib);
    uchar* row(qint32 yTopDown)
    {
        return m_bits.get() + qsizetype(m_height - 1 - yTopDown) * m_pitch;
    }
    const uchar* row(qint32 yTopDown) const
    {
        return m_bits.get() + qsizetype(m_height - 1 - yTopDown) * m_pitch;
    }

    struct Free {
        size_t capacity; // no initialiser: it would make Free incomplete for unique_ptr here
        void operator()(uchar* p) const;
    };
    using Bits = std::unique_ptr<uchar, Free>;
    Bits m_bits;
    qint32 m_width = 0;
    qint32 m_height = 0;
    qint32 m_pitch = 0;
    qint32 m_imageSize = 0;
    quintptr m_hDib = 0;
    bool m_grayscale = false;
};
