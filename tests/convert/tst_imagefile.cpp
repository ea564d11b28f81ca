// The image object on the TIFF files that Ghostscript really writes: the
// 1-bit LZW pages of printing and grayscale images, the 4-bit-per-sample
// RGB pages of colour images.
#include "common/runtimeerror.h"
#include "convert/imagefile.h"
#include "gspages.h"

#include <QTest>

namespace
{
// Letter at 600 dpi. Page marks of genps.sh, in pixels from the top-left:
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

int darkPixels(const QImage& img, const QRect& r)
{
    int n = 0;
    for (int y = r.top(); y <= r.bottom(); ++y)
        for (int x = r.left(); x <= r.right(); ++x)
            n += qGray(img.pixel(x, y)) < 128;
    return n;
}

int raisedErrorOf(auto&& body)
{
    try {
        body();
    } catch (const RuntimeError& e) {
        return e.number();
    }
    return 0;
}

bool near(QRgb a, QRgb b)
{
    return qAbs(qRed(a) - qRed(b)) < 40 && qAbs(qGreen(a) - qGreen(b)) < 40 &&
           qAbs(qBlue(a) - qBlue(b)) < 40;
}
} // namespace

class TestImageFile : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_mono1, m_mono3, m_colour1, m_colour3;

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QString error;
        m_mono1 = gspages::render(m_dir.path(), 1, QStringLiteral("tifflzw"), &error);
        QVERIFY2(!m_mono1.isEmpty(), qPrintable(error));
        m_mono3 = gspages::render(m_dir.path(), 3, QStringLiteral("tifflzw"), &error);
        QVERIFY2(!m_mono3.isEmpty(), qPrintable(error));
        m_colour1 = gspages::render(m_dir.path(), 1, QStringLiteral("tiff12nc"), &error);
        QVERIFY2(!m_colour1.isEmpty(), qPrintable(error));
        m_colour3 = gspages::render(m_dir.path(), 3, QStringLiteral("tiff12nc"), &error);
        QVERIFY2(!m_colour3.isEmpty(), qPrintable(error));
    }

    void monoPageStaysOneBit()
    {
        ImageFile image;
        QVERIFY2(image.LoadFile(m_mono1), qPrintable(image.lastError()));
        QCOMPARE(image.FrameCount(), 1);
        QCOMPARE(image.ActiveFrame(), 1);
        QCOMPARE(image.Width(), kWidth);
        QCOMPARE(image.Height(), kHeight);
        const QImage page = image.Picture();
        QCOMPARE(page.format(), QImage::Format_Mono);
        QCOMPARE(page.size(), QSize(kWidth, kHeight));
        // White margin, black title and rule where the job put them.
        QCOMPARE(darkPixels(page, QRect(0, 0, 400, 400)), 0);
        QVERIFY(darkPixels(page, QRect(px(72), fromTop(744), px(200), px(24))) > 5000);
        QCOMPARE(qGray(page.pixel(px(300), fromTop(240))), 0);
        QCOMPARE(qGray(page.pixel(px(560), fromTop(240))), 255); // right of the rule
    }

    void monoMultiPageHasEveryFrame()
    {
        ImageFile image;
        QVERIFY2(image.LoadFile(m_mono3), qPrintable(image.lastError()));
        QCOMPARE(image.FrameCount(), 3);
        QList<QImage> pages;
        for (int f = 1; f <= 3; ++f) {
            image.setActiveFrame(f);
            QCOMPARE(image.ActiveFrame(), f);
            QCOMPARE(image.Width(), kWidth);
            QCOMPARE(image.Height(), kHeight);
            pages.append(image.Picture());
            QCOMPARE(pages.last().size(), QSize(kWidth, kHeight));
        }
        // "Test page N of 3": the titles differ, the body does not.
        const QRect title(px(72), fromTop(744), px(250), px(30));
        QVERIFY(pages[0].copy(title) != pages[1].copy(title));
        QVERIFY(pages[1].copy(title) != pages[2].copy(title));
        const QRect rule(px(72), fromTop(250), px(400), px(20));
        QCOMPARE(pages[0].copy(rule), pages[2].copy(rule));
    }

    void colourPagesAreReadByScanline()
    {
        ImageFile image;
        QVERIFY2(image.LoadFile(m_colour3), qPrintable(image.lastError()));
        QCOMPARE(image.FrameCount(), 3);
        image.setActiveFrame(2);
        QCOMPARE(image.Width(), kWidth);
        QCOMPARE(image.Height(), kHeight);
        const QImage page = image.Picture();
        QCOMPARE(page.format(), QImage::Format_RGB888);
        QCOMPARE(page.size(), QSize(kWidth, kHeight));
        QCOMPARE(page.pixel(10, 10), qRgb(255, 255, 255));
        QVERIFY(near(page.pixel(px(140), fromTop(120)), qRgb(255, 0, 0)));
        QVERIFY(near(page.pixel(px(320), fromTop(120)), qRgb(0, 153, 0)));
        QVERIFY(near(page.pixel(px(480), fromTop(120)), qRgb(0, 0, 255)));
        QVERIFY(darkPixels(page, QRect(px(72), fromTop(744), px(200), px(24))) > 5000);

        ImageFile single;
        QVERIFY(single.LoadFile(m_colour1));
        QCOMPARE(single.FrameCount(), 1);
        QCOMPARE(single.Picture().format(), QImage::Format_RGB888);
    }

    void framesOutsideTheFileAreErrors()
    {
        ImageFile image;
        QVERIFY(image.LoadFile(m_mono3));
        QCOMPARE(raisedErrorOf([&] { image.setActiveFrame(0); }), rt::SubscriptOutOfRange);
        QCOMPARE(raisedErrorOf([&] { image.setActiveFrame(4); }), rt::SubscriptOutOfRange);
        QCOMPARE(image.ActiveFrame(), 1);
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
        QVERIFY(image.LoadFile(m_mono1));
        QCOMPARE(image.FrameCount(), 1);
        QVERIFY(image.lastError().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestImageFile)
#include "tst_imagefile.moc"
