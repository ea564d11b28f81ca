// The image object on the TIFF files that Ghostscript really writes: the
// 1-bit LZW pages of printing and grayscale images, the 4-bit-per-sample
// RGB pages of colour images.
#include "convert/imagefile.h"
#include "converttest.h"

#include <QTemporaryDir>
#include <QTest>

namespace
{
// Letter at 600 dpi. Page marks of psjob.h, in pixels from the top-left:
// the title baseline at 720 pt, the rule at 240 pt, red / green / blue
// fills between 72 and 172 pt.
constexpr int kWidth = 5100, kHeight = 6600;
int px(double pt)
{
    return int(pt * 600 / 72);
}
int fromTop(double pt)
{
    return kHeight - px(pt);
}
const QRect kTitle(px(72), fromTop(744), px(200), px(24));

int darkPixels(const QImage& img, const QRect& r)
{
    int n = 0;
    for (int y = r.top(); y <= r.bottom(); ++y)
        for (int x = r.left(); x <= r.right(); ++x)
            n += qGray(img.pixel(x, y)) < 128;
    return n;
}
} // namespace

class TestImageFile : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_mono1, m_mono3, m_colour1, m_colour3;

    // Loads path and checks the frame count and every frame's size.
    void load(ImageFile& image, const QString& path, int frames)
    {
        QVERIFY2(image.LoadFile(path), qPrintable(image.lastError()));
        QCOMPARE(image.FrameCount(), frames);
        for (int f = frames; f >= 1; --f) {
            image.setActiveFrame(f);
            QCOMPARE(image.ActiveFrame(), f);
            QCOMPARE(image.Width(), kWidth);
            QCOMPARE(image.Height(), kHeight);
            QCOMPARE(image.Picture().size(), QSize(kWidth, kHeight));
        }
    }

private slots:
    void initTestCase()
    {
        QString error;
        for (auto [path, pages, device] : {std::tuple{&m_mono1, 1, "tifflzw"},
                                           {&m_mono3, 3, "tifflzw"},
                                           {&m_colour1, 1, "tiff12nc"},
                                           {&m_colour3, 3, "tiff12nc"}}) {
            *path = renderPages(m_dir.path(), pages, QLatin1String(device), &error);
            QVERIFY2(!path->isEmpty(), qPrintable(error));
        }
    }

    void monoPageStaysOneBit()
    {
        ImageFile image;
        load(image, m_mono1, 1);
        const QImage page = image.Picture();
        QCOMPARE(page.format(), QImage::Format_Mono);
        // White margin, black title and rule where the job put them.
        QCOMPARE(darkPixels(page, QRect(0, 0, 400, 400)), 0);
        QVERIFY(darkPixels(page, kTitle) > 5000);
        QCOMPARE(qGray(page.pixel(px(300), fromTop(240))), 0);
        QCOMPARE(qGray(page.pixel(px(560), fromTop(240))), 255); // right of the rule
    }

    void monoMultiPageHasEveryFrame()
    {
        ImageFile image;
        load(image, m_mono3, 3);
        QList<QImage> pages;
        for (int f = 1; f <= 3; ++f) {
            image.setActiveFrame(f);
            pages.append(image.Picture());
        }
        // "Test page N of 3": the titles differ, the body does not.
        const QRect title(px(72), fromTop(744), px(250), px(30));
        QVERIFY(pages[0].copy(title) != pages[1].copy(title));
        QVERIFY(pages[1].copy(title) != pages[2].copy(title));
        const QRect rule(px(72), fromTop(250), px(400), px(20));
        QCOMPARE(pages[0].copy(rule), pages[2].copy(rule));
        // Frames outside the file are errors and change nothing.
        QCOMPARE(raisedErrorOf([&] { image.setActiveFrame(0); }), rt::SubscriptOutOfRange);
        QCOMPARE(raisedErrorOf([&] { image.setActiveFrame(4); }), rt::SubscriptOutOfRange);
        QCOMPARE(image.ActiveFrame(), 3);
    }

    void colourPagesAreReadByScanline()
    {
        ImageFile single;
        load(single, m_colour1, 1);
        QCOMPARE(single.Picture().format(), QImage::Format_RGB888);
        ImageFile image;
        load(image, m_colour3, 3);
        image.setActiveFrame(2);
        const QImage page = image.Picture();
        QCOMPARE(page.format(), QImage::Format_RGB888);
        QCOMPARE(page.pixel(10, 10), qRgb(255, 255, 255));
        QVERIFY(near(page.pixel(px(140), fromTop(120)), qRgb(255, 0, 0), 39));
        QVERIFY(near(page.pixel(px(320), fromTop(120)), qRgb(0, 153, 0), 39));
        QVERIFY(near(page.pixel(px(480), fromTop(120)), qRgb(0, 0, 255), 39));
        QVERIFY(darkPixels(page, kTitle) > 5000);
    }

    void incompleteOrForeignFilesDoNotLoad()
    {
        ImageFile image;
        QVERIFY(!image.LoadFile(m_dir.filePath(QStringLiteral("missing.tif"))));
        QCOMPARE(image.FrameCount(), 0);
        QVERIFY(image.Picture().isNull());

        QFile garbage(m_dir.filePath(QStringLiteral("garbage.tif")));
        QVERIFY(garbage.open(QIODevice::WriteOnly));
        garbage.write("%!PS-Adobe-3.0\nnot a picture\n");
        garbage.close();
        QVERIFY(!image.LoadFile(garbage.fileName()));
        QVERIFY(!image.lastError().isEmpty());
        QFile::resize(garbage.fileName(), 0);
        QVERIFY(!image.LoadFile(garbage.fileName()));

        // Ghostscript writes page after page: a file cut anywhere after the
        // header must not pass for a complete one.
        QFile whole(m_mono3);
        QVERIFY(whole.open(QIODevice::ReadOnly));
        const QByteArray bytes = whole.readAll();
        for (double part : {0.2, 0.5, 0.9, 0.999}) {
            QFile cut(m_dir.filePath(QStringLiteral("cut.tif")));
            QVERIFY(cut.open(QIODevice::WriteOnly | QIODevice::Truncate));
            cut.write(bytes.left(qsizetype(bytes.size() * part)));
            cut.close();
            QVERIFY2(!image.LoadFile(cut.fileName()), qPrintable(QString::number(part)));
            QCOMPARE(image.FrameCount(), 0);
        }

        // The same object loads a good file afterwards.
        load(image, m_mono1, 1);
        QVERIFY(image.lastError().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestImageFile)
#include "tst_imagefile.moc"
