// DIB sections, the JPEG writer, Ghostscript's real TIFF pages (convert_pages), path folders.
#include "common/runtimeerror.h"
#include "convert/cdibsection.h"
#include "convert/imagefile.h"
#include "convert/jpegwriter.h"
#include "convert/printers.h"
#include "testsupport.h"

namespace
{
int raisedErrorOf(auto&& body)
{
    try {
        body();
    } catch (const RuntimeError& e) {
        return e.number();
    }
    return 0;
}

// The largest difference of one colour channel.
int diff(QRgb a, QRgb b)
{
    return qMax(qMax(qAbs(qRed(a) - qRed(b)), qAbs(qGreen(a) - qGreen(b))),
                qAbs(qBlue(a) - qBlue(b)));
}

// Whether the buffer's pad bytes (or all its bytes) are zero.
bool zeroed(const cDIBSection& d, bool padsOnly)
{
    for (int y = 0; y < d.Height(); ++y)
        for (int i = padsOnly ? d.Width() * 3 : 0; i < d.BytesPerScanLine(); ++i)
            if (d.DIBSectionBitsPtr()[qsizetype(y) * d.BytesPerScanLine() + i] != 0)
                return false;
    return true;
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

// Letter at 600 dpi; the marks of genps.sh, in points from the bottom left.
constexpr int kWidth = 5100, kHeight = 6600;
QPoint pt(double x, double y)
{
    return QPoint(int(x * 600 / 72), kHeight - int(y * 600 / 72));
}
const QRect kTitle(pt(72, 744), pt(272, 720)), kRule(pt(72, 250), pt(472, 230));

int darkPixels(const QImage& img, const QRect& r)
{
    int n = 0;
    for (int y = r.top(); y <= r.bottom(); ++y)
        for (int x = r.left(); x <= r.right(); ++x)
            n += qGray(img.pixel(x, y)) < 128;
    return n;
}
} // namespace

class TestImages : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QList<Message> m_shown;

private slots:
    void initTestCase()
    {
        QVERIFY2(QDir::setCurrent(qEnvironmentVariable("QUORVEL_TEST_PAGES")) &&
                     QFile::exists("tiff12nc-3.tif"),
                 "no pages: convert_pages renders them");
        setMsgRecorder([this](const Message& m) { m_shown.append(m); });
    }
    void init() { m_shown.clear(); }

    void sizes_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("pitch");  // bytes per row; -1: run-time error 6
        QTest::addColumn<int>("result"); // of Create: 1 made, 0 refused, or the error raised
        QTest::newRow("1") << QSize(1, 1) << 4 << 1;
        QTest::newRow("2") << QSize(2, 1) << 8 << 1;
        QTest::newRow("3") << QSize(3, 1) << 12 << 1;
        QTest::newRow("4") << QSize(4, 2) << 12 << 1;
        QTest::newRow("page") << QSize(2550, 3300) << 7652 << 1; // the memory passes on
        QTest::newRow("widest row") << QSize(715827881, 0) << 2147483644 << 0;
        QTest::newRow("row too wide") << QSize(715827882, 1) << -1 << rt::Overflow;
        QTest::newRow("image too large") << QSize(100000, 100000) << 300000 << rt::Overflow;
        QTest::newRow("no width") << QSize(0, 10) << 0 << 0;
        QTest::newRow("no height") << QSize(10, 0) << 32 << 0;
        QTest::newRow("negative") << QSize(-4, 10) << -12 << 0;
    }
    void sizes()
    {
        QFETCH(QSize, size);
        QFETCH(int, pitch);
        QFETCH(int, result);
        const int w = size.width(), h = size.height();
        int bytes = 0;
        QCOMPARE(raisedErrorOf([&] { bytes = cDIBSection::BytesPerScanLine(w); }),
                 pitch == -1 ? rt::Overflow : 0);
        QVERIFY(pitch == -1 || bytes == pitch);
        // A new image replaces a written page and starts all black.
        cDIBSection d;
        QVERIFY(d.Create(2550, 3300));
        const quintptr first = d.hDib();
        std::memset(d.DIBSectionBitsPtr(), 0xAB, size_t(d.BytesPerScanLine()) * 3300);
        bool made = false;
        QCOMPARE(raisedErrorOf([&] { made = d.Create(w, h); }), result > 1 ? result : 0);
        QVERIFY(made == (result == 1) && (d.hDib() != 0) == made && d.hDib() != first);
        QVERIFY(!made || (d.Width() == w && d.Height() == h && zeroed(d, false)));
        quintptr handle = 123;
        raisedErrorOf([&] { d.CreateDIB(w, h, handle); });
        QCOMPARE(handle != 0, made);
        // Emptied, it has nothing to write: that is shown and leaves no file.
        d.ClearUp();
        QVERIFY(d.hDib() == 0 && !d.DIBSectionBitsPtr() && d.Width() == 0);
        QCOMPARE(raisedErrorOf([&] { d.CreateFromPicture(QImage()); }), 0);
        QVERIFY(!SaveJPG(d, m_dir.filePath("empty.jpg"), 95));
        QVERIFY(QDir(m_dir.path()).entryList({"empty*", "*.tmp"}).isEmpty());
        QCOMPARE(m_shown.size(), 1);
        QVERIFY(m_shown[0].text == "Failed to save to JPG" &&
                m_shown[0].icon == MsgIcon::Exclamation);
    }

    void picturesThroughTheJpegWriter_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<QSize>("size");
        // 1-bit rows of whole and partial bytes; 1, 2, 3 and 0 pad bytes.
        int width = 21;
        for (auto f : {QImage::Format_Mono, QImage::Format_MonoLSB, QImage::Format_RGB32,
                       QImage::Format_ARGB32, QImage::Format_RGB888, QImage::Format_BGR888,
                       QImage::Format_Indexed8, QImage::Format_Grayscale8})
            QTest::addRow("format %d", int(f)) << int(f) << QSize(width++, 30);
        QTest::newRow("mono page") << int(QImage::Format_Mono) << QSize(2549, 3300);
    }
    void picturesThroughTheJpegWriter()
    {
        QFETCH(int, format);
        QFETCH(QSize, size);
        QImage source =
            pattern(size.width(), size.height()).convertToFormat(QImage::Format(format));
        if (source.depth() == 1) // white is index 0 here
            source.setColorTable({qRgb(255, 255, 255), qRgb(0, 0, 0)});
        const bool grey = source.depth() == 1 || format == QImage::Format_Grayscale8;
        // Into memory just written and freed: the pad bytes are cleared all the same.
        cDIBSection d;
        QVERIFY(d.Create(size.width() + 1, size.height()));
        std::memset(d.DIBSectionBitsPtr(), 0xAB, size_t(d.BytesPerScanLine()) * size.height());
        d.CreateFromPicture(source);
        QVERIFY(zeroed(d, true) && d.IsGrayscale() == grey);
        QCOMPARE(d.toImage().convertToFormat(QImage::Format_RGB32),
                 source.convertToFormat(QImage::Format_RGB32));

        // Under a name beyond Latin-1, the right way up; greys as one channel.
        const QString file = m_dir.filePath(QString("стр_ページ_%1.jpg").arg(format));
        QVERIFY(SaveJPG(d, file, 95));
        const QImage back(file);
        QCOMPARE(back.format(), grey ? QImage::Format_Grayscale8 : QImage::Format_RGB32);
        qint64 error = 0;
        for (int y = 0; y < size.height(); ++y)
            for (int x = 0; x < size.width(); ++x)
                error += diff(back.pixel(x, y), source.pixel(x, y));
        // On average (flipped or red for blue: 20 and more); colour is stored at half resolution.
        QVERIFY2(error < (grey ? 4 : 40) * size.width() * size.height(), qPrintable(file));
        // A lower quality makes a smaller file; bytes that may be written make it colour.
        const qint64 high = QFileInfo(file).size();
        QVERIFY(SaveJPG(d, file, 20) && QFileInfo(file).size() < high);
        d.DIBSectionBitsPtr();
        QVERIFY(!d.IsGrayscale() && SaveJPG(d, file, 95));
        QCOMPARE(QImage(file).format(), QImage::Format_RGB32);
        QVERIFY(m_shown.isEmpty());
        QVERIFY(!SaveJPG(d, m_dir.filePath("no/folder.jpg"), 95) && m_shown.size() == 1);
    }

    void rops_data()
    {
        QTest::addColumn<int>("rop");
        QTest::addColumn<QRgb>("result"); // of 0x0FFF30 onto 0xF00F33
        QTest::newRow("copy") << int(cDIBSection::SrcCopy) << qRgb(0x0F, 0xFF, 0x30);
        QTest::newRow("or") << int(cDIBSection::SrcPaint) << qRgb(0xFF, 0xFF, 0x33);
        QTest::newRow("and") << int(cDIBSection::SrcAnd) << qRgb(0x00, 0x0F, 0x30);
        QTest::newRow("xor") << int(cDIBSection::SrcInvert) << qRgb(0xFF, 0xF0, 0x03);
    }
    void rops()
    {
        QFETCH(int, rop);
        QFETCH(QRgb, result);
        QImage under(4, 3, QImage::Format_RGB888), over(4, 3, QImage::Format_RGB32);
        under.fill(qRgb(0xF0, 0x0F, 0x33));
        over.fill(qRgb(0x0F, 0xFF, 0x30));
        cDIBSection d;
        d.CreateFromPicture(under);
        d.LoadPictureBlt(over, 0, 0, -1, -1, cDIBSection::Rop(rop));
        QCOMPARE(d.toImage().pixel(3, 2), result);
        // Out onto a 24-bit picture, which stays 24-bit.
        d.CreateFromPicture(over);
        d.PaintPicture(under, 0, 0, -1, -1, 0, 0, cDIBSection::Rop(rop));
        QCOMPARE(under.format(), QImage::Format_RGB888);
        QCOMPARE(under.pixel(3, 2), result);
    }

    void copiesTakeTheirRegion()
    {
        const QImage source = pattern(10, 10);
        const QRgb black = qRgb(0, 0, 0), white = qRgb(255, 255, 255);
        cDIBSection d;
        QVERIFY(d.Create(4, 3));
        d.LoadPictureBlt(source, 5, 6, 2, 2);
        QImage in = d.toImage().convertToFormat(QImage::Format_RGB32);
        QCOMPARE(in.copy(0, 0, 2, 2), source.copy(5, 6, 2, 2));
        QVERIFY(in.pixel(2, 0) == black && in.pixel(0, 2) == black); // outside width, height
        // The whole image by default, clipped by the source's edge.
        d.LoadPictureBlt(source, 8, 8);
        in = d.toImage();
        QVERIFY(in.pixel(1, 1) == source.pixel(9, 9) && in.pixel(2, 2) == black);

        // Out at an offset, then a part of the image.
        d.CreateFromPicture(source.copy(0, 0, 6, 4));
        QImage out(10, 10, QImage::Format_RGB32);
        out.fill(white);
        d.PaintPicture(out, 3, 2);
        QCOMPARE(out.copy(3, 2, 6, 4), source.copy(0, 0, 6, 4));
        QVERIFY(out.pixel(2, 2) == white && out.pixel(9, 6) == white);
        out.fill(white);
        d.PaintPicture(out, 0, 0, 2, 1, 4, 3);
        QVERIFY(out.pixel(0, 0) == source.pixel(4, 3) && out.pixel(1, 0) == source.pixel(5, 3));
        QCOMPARE(out.pixel(0, 1), white);
    }

    void tiffPages_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("pages"); // 0: does not load
        QTest::newRow("print, 1 page") << "tifflzw-1.tif" << 1;
        QTest::newRow("print, 3 pages") << "tifflzw-3.tif" << 3;
        QTest::newRow("colour, 1 page") << "tiff12nc-1.tif" << 1;
        QTest::newRow("colour, 3 pages") << "tiff12nc-3.tif" << 3;
        QTest::newRow("missing") << "missing.tif" << 0;
        QTest::newRow("PostScript") << "job1.ps" << 0;
        // Ghostscript writes page after page: cut anywhere, the file is not complete.
        const QByteArray tiff = readFile("tifflzw-3.tif");
        for (double part : {0.0, 0.2, 0.5, 0.9, 0.999}) {
            const QString cut = m_dir.filePath(QString("cut%1.tif").arg(part));
            QVERIFY(writeFile(cut, tiff.left(qsizetype(tiff.size() * part))));
            QTest::addRow("cut at %g", part) << cut << 0;
        }
    }
    void tiffPages()
    {
        QFETCH(QString, file);
        QFETCH(int, pages);
        // One object loads file after file, good or bad.
        ImageFile image;
        QCOMPARE(image.LoadFile(pages ? "job1.ps" : "tifflzw-1.tif"), pages == 0);
        QCOMPARE(image.LoadFile(file), pages > 0);
        QCOMPARE(image.lastError().isEmpty(), pages > 0);
        QCOMPARE(image.FrameCount(), pages);
        QImage later;
        for (int f = pages; f >= 1; --f) {
            image.setActiveFrame(f);
            const QImage page = image.Picture();
            QVERIFY(image.ActiveFrame() == f && image.Width() == kWidth &&
                    image.Height() == kHeight);
            QCOMPARE(page.size(), QSize(kWidth, kHeight));
            // 1-bit pages stay 1-bit; colour ones are read by scanline.
            const bool colour = file.startsWith("tiff12nc");
            QCOMPARE(page.format(), colour ? QImage::Format_RGB888 : QImage::Format_Mono);
            // White margin, black title and rule where the job put them, and the fills.
            QCOMPARE(darkPixels(page, QRect(0, 0, 400, 400)), 0);
            QVERIFY(darkPixels(page, kTitle) > 5000);
            QVERIFY(qGray(page.pixel(pt(300, 240))) == 0 && qGray(page.pixel(pt(560, 240))) == 255);
            QVERIFY(!colour || (diff(page.pixel(pt(140, 120)), qRgb(255, 0, 0)) <= 39 &&
                                diff(page.pixel(pt(320, 120)), qRgb(0, 153, 0)) <= 39 &&
                                diff(page.pixel(pt(480, 120)), qRgb(0, 0, 255)) <= 39));
            // "Test page N of 3": the titles differ, the body does not.
            QVERIFY(later.isNull() || (page.copy(kTitle) != later.copy(kTitle) &&
                                       page.copy(kRule) == later.copy(kRule)));
            later = page;
        }
        // Frames outside the file are errors and change nothing.
        QCOMPARE(raisedErrorOf([&] { image.setActiveFrame(0); }), rt::SubscriptOutOfRange);
        QCOMPARE(raisedErrorOf([&] { image.setActiveFrame(pages + 1); }), rt::SubscriptOutOfRange);
        QCOMPARE(image.ActiveFrame(), qMin(pages, 1));
        QCOMPARE(image.Picture().isNull(), pages == 0);
    }

    void pathOfFile_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QChar>("separator"); // none: the platform's
        QTest::addColumn<QString>("folder");
        const QChar back(u'\\'), other(QDir::separator() == u'/' ? u'\\' : u'/');
        QTest::newRow("file") << "C:\\Quorvel\\Jobs\\File_1.tif" << back << "C:\\Quorvel\\Jobs\\";
        QTest::newRow("no folder") << "File_1.tif" << back << "";
        QTest::newRow("empty") << "" << back << "";
        QTest::newRow("root") << "\\File_1.tif" << back << "\\";
        QTest::newRow("folder") << "C:\\Jobs\\" << back << "C:\\Jobs\\";
        QTest::newRow("slash") << "C:/a/b.tif" << back << ""; // no separator there
        QTest::newRow("slashes") << "/opt/quorvel/File_1.tif" << QChar(u'/') << "/opt/quorvel/";
        QTest::newRow("platform's") << QDir::toNativeSeparators("/tmp/jobs/b.tif") << QChar()
                                    << QDir::toNativeSeparators("/tmp/jobs/");
        QTest::newRow("not the other") << QString("C:%1a%1b.tif").arg(other) << QChar() << "";
    }
    void pathOfFile()
    {
        QFETCH(QString, path);
        QFETCH(QChar, separator);
        QFETCH(QString, folder);
        QCOMPARE(separator.isNull() ? ::pathOfFile(path) : ::pathOfFile(path, separator), folder);
    }
};

QTEST_MAIN(TestImages)
#include "tst_images.moc"
