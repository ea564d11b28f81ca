// The DIB section: row layout, creation, copies in and out.
#include "convert/cdibsection.h"
#include "converttest.h"

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
    for (int y = 0; y < d.Height(); ++y)
        for (int i = d.Width() * 3; i < d.BytesPerScanLine(); ++i)
            if (d.DIBSectionBitsPtr()[qsizetype(y) * d.BytesPerScanLine() + i] != 0)
                return false;
    return true;
}

bool allZero(const cDIBSection& d)
{
    const uchar* bits = d.DIBSectionBitsPtr();
    return std::all_of(bits, bits + qsizetype(d.BytesPerScanLine()) * d.Height(),
                       [](uchar b) { return b == 0; });
}

void dirty(cDIBSection& d)
{
    std::memset(d.DIBSectionBitsPtr(), 0xAB, size_t(d.BytesPerScanLine()) * d.Height());
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
    void bytesPerScanLineAndPad()
    {
        for (auto [width, bytes] : {std::pair{1, 4},
                                    {2, 8},
                                    {3, 12},
                                    {4, 12},
                                    {5, 16},
                                    {5100, 15300},
                                    {5101, 15304},
                                    {715827881, 2147483644}})
            QCOMPARE(cDIBSection::BytesPerScanLine(width), bytes);
        cDIBSection d;
        QVERIFY(d.Create(5101, 3));
        QCOMPARE(d.BytesPerScanLine(), 15304);
        QVERIFY(padsAreZero(d));
    }

    void createReplacesAndStartsBlack()
    {
        cDIBSection d;
        QVERIFY(d.Create(10, 10));
        const quintptr first = d.hDib();
        QVERIFY(first != 0);
        dirty(d);
        QVERIFY(d.Create(7, 3));
        QVERIFY(d.hDib() != 0 && d.hDib() != first);
        QCOMPARE(d.Width(), 7);
        QCOMPARE(d.Height(), 3);
        QVERIFY(allZero(d)); // pad bytes included
        d.ClearUp();
        QCOMPARE(d.hDib(), quintptr(0));
        QVERIFY(d.DIBSectionBitsPtr() == nullptr);
        QCOMPARE(d.Width(), 0);

        // Page-sized memory passes from one section to the next.
        cDIBSection page;
        QVERIFY(page.Create(2550, 3300));
        dirty(page);
        page.ClearUp();
        cDIBSection second;
        QVERIFY(second.Create(2550, 3300));
        QVERIFY(allZero(second));
        // A picture overwrites everything, pad bytes included.
        dirty(second);
        second.ClearUp();
        QImage white(2549, 3300, QImage::Format_Mono);
        white.setColorTable({qRgb(255, 255, 255), qRgb(0, 0, 0)});
        white.fill(0);
        cDIBSection third;
        third.CreateFromPicture(white);
        QCOMPARE(third.BytesPerScanLine(), 7648);
        QVERIFY(padsAreZero(third));
        QCOMPARE(at(third, 2548, 3299), qRgb(255, 255, 255));
        QCoreApplication::processEvents(); // the spare memory goes
    }

    void badSizesFailOrRaiseError6()
    {
        cDIBSection d;
        QVERIFY(!d.Create(0, 10));
        QVERIFY(!d.Create(10, 0));
        QVERIFY(!d.Create(-4, 10));
        QCOMPARE(d.hDib(), quintptr(0));
        quintptr handle = 123;
        QVERIFY(!d.CreateDIB(0, 0, handle));
        QCOMPARE(handle, quintptr(0));
        QCOMPARE(raisedErrorOf([&] { d.CreateFromPicture(QImage()); }), 0);
        // Width * 3 passes 2^31; the row fits but the image does not.
        QCOMPARE(raisedErrorOf([&] { d.Create(800000000, 1); }), rt::Overflow);
        QCOMPARE(raisedErrorOf([&] { d.Create(100000, 100000); }), rt::Overflow);
        QCOMPARE(raisedErrorOf([&] { cDIBSection::BytesPerScanLine(715827882); }), rt::Overflow);
    }

    void picturesKeepTheirColoursBottomUp_data()
    {
        QTest::addColumn<int>("format");
        for (auto f : {QImage::Format_Mono, QImage::Format_MonoLSB, QImage::Format_RGB32,
                       QImage::Format_ARGB32, QImage::Format_RGB888, QImage::Format_BGR888,
                       QImage::Format_Indexed8, QImage::Format_Grayscale8})
            QTest::addRow("%d", int(f)) << int(f);
    }
    void picturesKeepTheirColoursBottomUp()
    {
        QFETCH(int, format);
        // 21 pixels: a 1-bit row is two whole bytes and a partial one.
        QImage source = pattern(21, 6).convertToFormat(QImage::Format(format));
        if (source.depth() == 1) // white is index 0 here
            source.setColorTable({qRgb(255, 255, 255), qRgb(0, 0, 0)});
        cDIBSection d;
        d.CreateFromPicture(source);
        QCOMPARE(d.Width(), 21);
        QCOMPARE(d.Height(), 6);
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 21; ++x)
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

        QImage fill(4, 3, QImage::Format_RGB32);
        fill.fill(qRgb(0xF0, 0x0F, 0x33));
        d.Create(4, 3);
        d.LoadPictureBlt(fill, 0, 0, -1, -1, cDIBSection::SrcPaint);
        QCOMPARE(at(d, 3, 2), qRgb(0xF0, 0x0F, 0x33));
        fill.fill(qRgb(0x0F, 0xFF, 0x30));
        d.LoadPictureBlt(fill, 0, 0, -1, -1, cDIBSection::SrcInvert);
        QCOMPARE(at(d, 0, 0), qRgb(0xFF, 0xF0, 0x03));
        d.LoadPictureBlt(fill, 0, 0, -1, -1, cDIBSection::SrcAnd);
        QCOMPARE(at(d, 1, 1), qRgb(0x0F, 0xF0, 0x00));
    }

    void paintPictureCopiesOut()
    {
        const QImage source = pattern(6, 4);
        cDIBSection d;
        d.CreateFromPicture(source);
        QImage target(10, 10, QImage::Format_RGB32);
        target.fill(Qt::white);
        d.PaintPicture(target, 3, 2);
        QCOMPARE(target.pixel(3, 2), source.pixel(0, 0));
        QCOMPARE(target.pixel(8, 5), source.pixel(5, 3));
        QCOMPARE(target.pixel(2, 2), qRgb(255, 255, 255));
        QCOMPARE(target.pixel(9, 6), qRgb(255, 255, 255));

        // A part of the image, source offset and size given.
        target.fill(Qt::white);
        d.PaintPicture(target, 0, 0, 2, 1, 4, 3);
        QCOMPARE(target.pixel(0, 0), source.pixel(4, 3));
        QCOMPARE(target.pixel(1, 0), source.pixel(5, 3));
        QCOMPARE(target.pixel(0, 1), qRgb(255, 255, 255));

        // XOR onto a 24-bit picture.
        QImage rgb(6, 4, QImage::Format_RGB888);
        rgb.fill(qRgb(0xFF, 0xFF, 0xFF));
        d.PaintPicture(rgb, 0, 0, -1, -1, 0, 0, cDIBSection::SrcInvert);
        QCOMPARE(rgb.format(), QImage::Format_RGB888);
        QCOMPARE(rgb.pixel(2, 1), source.pixel(2, 1) ^ 0x00FFFFFF);
    }
};

QTEST_GUILESS_MAIN(TestDib)
#include "tst_cdibsection.moc"
