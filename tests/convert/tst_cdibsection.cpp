// The DIB section: row layout, creation, copies in and out.
#include "common/runtimeerror.h"
#include "convert/cdibsection.h"

#include <QPainter>
#include <QTest>
#include <algorithm>

namespace
{
// Pixel (x, y) counted from the top, as blue-green-red bytes of the buffer.
QRgb at(const cDIBSection& d, int x, int y)
{
    const uchar* p =
        d.DIBSectionBitsPtr() + qsizetype(d.Height() - 1 - y) * d.BytesPerScanLine() + x * 3;
    return qRgb(p[2], p[1], p[0]);
}

bool padsAreZero(const cDIBSection& d)
{
    const int used = d.Width() * 3;
    for (int y = 0; y < d.Height(); ++y)
        for (int i = used; i < d.BytesPerScanLine(); ++i)
            if (d.DIBSectionBitsPtr()[qsizetype(y) * d.BytesPerScanLine() + i] != 0)
                return false;
    return true;
}

int overflowOf(auto&& body)
{
    try {
        body();
    } catch (const RuntimeError& e) {
        return e.number();
    }
    return 0;
}

// A picture with a distinct colour per pixel.
QImage pattern(int w, int h)
{
    QImage img(w, h, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            img.setPixel(x, y, qRgb(x * 7 % 256, y * 11 % 256, (x + y) * 13 % 256));
    return img;
}
} // namespace

class TestDib : public QObject
{
    Q_OBJECT
private slots:
    void bytesPerScanLine_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("bytes");
        QTest::addColumn<int>("pad");
        QTest::newRow("1") << 1 << 4 << 1;
        QTest::newRow("2") << 2 << 8 << 2;
        QTest::newRow("3") << 3 << 12 << 3;
        QTest::newRow("4") << 4 << 12 << 0;
        QTest::newRow("5") << 5 << 16 << 1;
        QTest::newRow("5100") << 5100 << 15300 << 0;
        QTest::newRow("5101") << 5101 << 15304 << 1;
    }
    void bytesPerScanLine()
    {
        QFETCH(int, width);
        QFETCH(int, bytes);
        QFETCH(int, pad);
        cDIBSection d;
        QVERIFY(d.Create(width, 3));
        QCOMPARE(d.BytesPerScanLine(), bytes);
        QCOMPARE(d.BytesPerScanLine() - d.Width() * 3, pad);
    }

    void createTwiceReplacesTheFirst()
    {
        cDIBSection d;
        QVERIFY(d.Create(10, 10));
        const quintptr first = d.hDib();
        QVERIFY(first != 0);
        std::memset(d.DIBSectionBitsPtr(), 0xAB, size_t(d.BytesPerScanLine()) * 10);
        QVERIFY(d.Create(7, 3));
        QVERIFY(d.hDib() != 0 && d.hDib() != first);
        QCOMPARE(d.Width(), 7);
        QCOMPARE(d.Height(), 3);
        // A fresh image is black, pad bytes included.
        for (int i = 0; i < d.BytesPerScanLine() * 3; ++i)
            QCOMPARE(d.DIBSectionBitsPtr()[i], uchar(0));
        d.ClearUp();
        QCOMPARE(d.hDib(), quintptr(0));
        QVERIFY(d.DIBSectionBitsPtr() == nullptr);
        QCOMPARE(d.Width(), 0);
    }

    void pageSizedSectionsReuseMemoryCleanly()
    {
        // Page-sized memory passes from one section to the next.
        cDIBSection first;
        QVERIFY(first.Create(2550, 3300));
        const qsizetype bytes = qsizetype(first.BytesPerScanLine()) * first.Height();
        std::memset(first.DIBSectionBitsPtr(), 0xAB, size_t(bytes));
        first.ClearUp();
        cDIBSection second;
        QVERIFY(second.Create(2550, 3300));
        const uchar* bits = second.DIBSectionBitsPtr();
        QVERIFY(std::all_of(bits, bits + bytes, [](uchar b) { return b == 0; }));

        // A picture overwrites everything, pad bytes included.
        std::memset(second.DIBSectionBitsPtr(), 0xAB, size_t(bytes));
        second.ClearUp();
        QImage white(2549, 3300, QImage::Format_Mono);
        white.setColorTable({qRgb(255, 255, 255), qRgb(0, 0, 0)});
        white.fill(0);
        cDIBSection third;
        third.CreateFromPicture(white);
        QCOMPARE(third.BytesPerScanLine(), 7648);
        QVERIFY(padsAreZero(third));
        QCOMPARE(at(third, 2548, 3299), qRgb(255, 255, 255));
        // Nothing stays held once events run again.
        QCoreApplication::processEvents();
    }

    void badSizesFailWithoutError()
    {
        cDIBSection d;
        QVERIFY(!d.Create(0, 10));
        QVERIFY(!d.Create(10, 0));
        QVERIFY(!d.Create(-4, 10));
        QCOMPARE(d.hDib(), quintptr(0));
        quintptr handle = 123;
        QVERIFY(!d.CreateDIB(0, 0, handle));
        QCOMPARE(handle, quintptr(0));
    }

    void sizeOverflowIsRunTimeError6()
    {
        cDIBSection d;
        // Width * 3 passes 2^31.
        QCOMPARE(overflowOf([&] { d.Create(800000000, 1); }), rt::Overflow);
        // The row fits, the image does not.
        QCOMPARE(overflowOf([&] { d.Create(100000, 100000); }), rt::Overflow);
        QCOMPARE(overflowOf([&] { cDIBSection::BytesPerScanLine(715827882); }), rt::Overflow);
        QCOMPARE(cDIBSection::BytesPerScanLine(715827881), 2147483644);
        QCOMPARE(overflowOf([&] { d.CreateFromPicture(QImage()); }), 0);
    }

    void monoPictureExpandsToBgrBottomUp_data()
    {
        QTest::addColumn<int>("format");
        QTest::newRow("msb") << int(QImage::Format_Mono);
        QTest::newRow("lsb") << int(QImage::Format_MonoLSB);
    }
    void monoPictureExpandsToBgrBottomUp()
    {
        QFETCH(int, format);
        // 21 pixels: two whole bytes and a partial one per row.
        QImage mono(21, 5, QImage::Format(format));
        mono.setColorTable({qRgb(255, 255, 255), qRgb(0, 0, 0)});
        mono.fill(0);
        for (int i = 0; i < 5; ++i) {
            mono.setPixel(i * 4, i, 1);
            mono.setPixel(20, i, i % 2);
        }
        cDIBSection d;
        d.CreateFromPicture(mono);
        QCOMPARE(d.Width(), 21);
        QCOMPARE(d.Height(), 5);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 21; ++x)
                QCOMPARE(at(d, x, y), mono.pixel(x, y));
        QVERIFY(padsAreZero(d));
        // The first row in memory is the picture's bottom row.
        const uchar* first = d.DIBSectionBitsPtr();
        QCOMPARE(first[16 * 3], uchar(0)); // (16, 4) is black
        QCOMPARE(first[0], uchar(255));
    }

    void colourPicturesKeepTheirColours_data()
    {
        QTest::addColumn<int>("format");
        QTest::newRow("rgb32") << int(QImage::Format_RGB32);
        QTest::newRow("argb32") << int(QImage::Format_ARGB32);
        QTest::newRow("rgb888") << int(QImage::Format_RGB888);
        QTest::newRow("bgr888") << int(QImage::Format_BGR888);
        QTest::newRow("indexed8") << int(QImage::Format_Indexed8);
        QTest::newRow("gray8") << int(QImage::Format_Grayscale8);
    }
    void colourPicturesKeepTheirColours()
    {
        QFETCH(int, format);
        const QImage source = pattern(13, 6).convertToFormat(QImage::Format(format));
        cDIBSection d;
        d.CreateFromPicture(source);
        QCOMPARE(d.Width(), 13);
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 13; ++x)
                QCOMPARE(at(d, x, y), source.pixel(x, y) | 0xFF000000);
        QVERIFY(padsAreZero(d));
        QCOMPARE(d.toImage().convertToFormat(QImage::Format_RGB32),
                 source.convertToFormat(QImage::Format_RGB32));
    }

    void loadPictureBltCopiesARegionWithItsRop()
    {
        cDIBSection d;
        QVERIFY(d.Create(4, 3));
        const QImage source = pattern(10, 10);
        d.LoadPictureBlt(source, 5, 6, 2, 2);
        QCOMPARE(at(d, 0, 0), source.pixel(5, 6));
        QCOMPARE(at(d, 1, 1), source.pixel(6, 7));
        QCOMPARE(at(d, 2, 0), qRgb(0, 0, 0)); // outside the copied width
        QCOMPARE(at(d, 0, 2), qRgb(0, 0, 0)); // outside the copied height

        // The whole image by default, clipped by the source's edge.
        d.LoadPictureBlt(source, 8, 8);
        QCOMPARE(at(d, 1, 1), source.pixel(9, 9));
        QCOMPARE(at(d, 2, 2), qRgb(0, 0, 0));

        QImage white(4, 3, QImage::Format_RGB32);
        white.fill(qRgb(0xF0, 0x0F, 0x33));
        d.Create(4, 3);
        d.LoadPictureBlt(white, 0, 0, -1, -1, cDIBSection::SrcPaint);
        QCOMPARE(at(d, 3, 2), qRgb(0xF0, 0x0F, 0x33));
        QImage other(4, 3, QImage::Format_RGB32);
        other.fill(qRgb(0x0F, 0xFF, 0x30));
        d.LoadPictureBlt(other, 0, 0, -1, -1, cDIBSection::SrcInvert);
        QCOMPARE(at(d, 0, 0), qRgb(0xFF, 0xF0, 0x03));
        d.LoadPictureBlt(other, 0, 0, -1, -1, cDIBSection::SrcAnd);
        QCOMPARE(at(d, 1, 1), qRgb(0x0F, 0xF0, 0x00));
    }

    void paintPictureCopiesOut()
    {
        cDIBSection d;
        d.CreateFromPicture(pattern(6, 4));
        QImage target(10, 10, QImage::Format_RGB32);
        target.fill(Qt::white);
        d.PaintPicture(target, 3, 2);
        QCOMPARE(target.pixel(3, 2), pattern(6, 4).pixel(0, 0));
        QCOMPARE(target.pixel(8, 5), pattern(6, 4).pixel(5, 3));
        QCOMPARE(target.pixel(2, 2), qRgb(255, 255, 255));
        QCOMPARE(target.pixel(9, 6), qRgb(255, 255, 255));

        // A part of the image, source offset and size given.
        target.fill(Qt::white);
        d.PaintPicture(target, 0, 0, 2, 1, 4, 3);
        QCOMPARE(target.pixel(0, 0), pattern(6, 4).pixel(4, 3));
        QCOMPARE(target.pixel(1, 0), pattern(6, 4).pixel(5, 3));
        QCOMPARE(target.pixel(0, 1), qRgb(255, 255, 255));

        // XOR onto a 24-bit picture.
        QImage rgb(6, 4, QImage::Format_RGB888);
        rgb.fill(qRgb(0xFF, 0xFF, 0xFF));
        d.PaintPicture(rgb, 0, 0, -1, -1, 0, 0, cDIBSection::SrcInvert);
        QCOMPARE(rgb.format(), QImage::Format_RGB888);
        QCOMPARE(rgb.pixel(2, 1), pattern(6, 4).pixel(2, 1) ^ 0x00FFFFFF);
    }
};

QTEST_GUILESS_MAIN(TestDib)
#include "tst_cdibsection.moc"
