// The JPEG writer: what it writes decodes to the image, the right way up;
// failures are shown as the user sees them.
#include "common/msgbox.h"
#include "convert/cdibsection.h"
#include "convert/jpegwriter.h"
#include "converttest.h"

#include <QImageReader>
#include <QTemporaryDir>
#include <QTest>

namespace
{
// Red top half, blue bottom half, a green stripe on the left.
QImage bands(int w, int h)
{
    QImage img(w, h, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            img.setPixel(x, y,
                         x < w / 4   ? qRgb(0, 200, 0)
                         : y < h / 2 ? qRgb(220, 0, 0)
                                     : qRgb(0, 0, 220));
    return img;
}
} // namespace

class TestJpeg : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QList<Message> m_shown;

private slots:
    void init()
    {
        m_shown.clear();
        setMsgRecorder([this](const Message& m) { m_shown.append(m); });
    }
    void cleanup() { setMsgRecorder({}); }

    void writesTheImageTheRightWayUp_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        // Pad bytes 1, 2, 3 and 0 per row.
        QTest::newRow("101x64") << 101 << 64;
        QTest::newRow("98x50") << 98 << 50;
        QTest::newRow("99x33") << 99 << 33;
        QTest::newRow("100x40") << 100 << 40;
    }
    void writesTheImageTheRightWayUp()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        cDIBSection d;
        d.CreateFromPicture(bands(width, height));
        // A name beyond Latin-1 is kept.
        const QString file = m_dir.filePath(QStringLiteral("стр_ページ_%1.jpg").arg(width));
        QVERIFY(SaveJPG(d, file, 95));
        QVERIFY(m_shown.isEmpty());
        QImageReader reader(file);
        QCOMPARE(reader.format(), QByteArray("jpeg"));
        const QImage back = reader.read();
        QCOMPARE(back.size(), QSize(width, height));
        QVERIFY(near(back.pixel(width - 3, 2), qRgb(220, 0, 0), 12));
        QVERIFY(near(back.pixel(width - 3, height - 3), qRgb(0, 0, 220), 12));
        QVERIFY(near(back.pixel(2, height / 2), qRgb(0, 200, 0), 12));
    }

    void aPageOfGreysIsStoredAsOneChannel()
    {
        QImage mono(203, 101, QImage::Format_Mono);
        mono.setColorTable({qRgb(0, 0, 0), qRgb(255, 255, 255)});
        mono.fill(1);
        for (int y = 0; y < 50; ++y)
            for (int x = 0; x < 100; ++x)
                mono.setPixel(x, y, 0);
        cDIBSection d;
        d.CreateFromPicture(mono);
        QVERIFY(d.IsGrayscale());
        const QString file = m_dir.filePath(QStringLiteral("gray.jpg"));
        QVERIFY(SaveJPG(d, file, 95));
        QImage back(file);
        QCOMPARE(back.format(), QImage::Format_Grayscale8);
        QCOMPARE(back.size(), QSize(203, 101));
        QVERIFY(near(back.pixel(5, 5), qRgb(0, 0, 0), 12));
        QVERIFY(near(back.pixel(150, 90), qRgb(255, 255, 255), 12));

        // Once its bytes may have been written, the image is taken as colour.
        d.DIBSectionBitsPtr()[0] = 200;
        QVERIFY(!d.IsGrayscale());
        QVERIFY(SaveJPG(d, file, 95));
        QCOMPARE(QImage(file).format(), QImage::Format_RGB32);
        cDIBSection colour;
        colour.CreateFromPicture(bands(30, 30));
        QVERIFY(!colour.IsGrayscale());
    }

    void qualityChangesTheFile()
    {
        QImage noise(200, 200, QImage::Format_RGB32);
        for (int y = 0; y < 200; ++y)
            for (int x = 0; x < 200; ++x)
                noise.setPixel(x, y, qRgb((x * 37 + y * 91) % 256, (x * y) % 256, (x ^ y) % 256));
        cDIBSection d;
        d.CreateFromPicture(noise);
        const QString high = m_dir.filePath(QStringLiteral("q95.jpg"));
        const QString low = m_dir.filePath(QStringLiteral("q20.jpg"));
        QVERIFY(SaveJPG(d, high, 95));
        QVERIFY(SaveJPG(d, low, 20));
        QVERIFY(QFileInfo(high).size() > QFileInfo(low).size() * 2);
    }

    void failuresAreShownAndFalse()
    {
        cDIBSection d;
        d.CreateFromPicture(bands(40, 20));
        cDIBSection empty; // nothing to write
        QVERIFY(!SaveJPG(d, m_dir.filePath(QStringLiteral("missing/folder/x.jpg")), 95));
        QVERIFY(!SaveJPG(empty, m_dir.filePath(QStringLiteral("empty.jpg")), 95));
        QCOMPARE(m_shown.size(), 2);
        for (const Message& m : m_shown) {
            QCOMPARE(m.text, QStringLiteral("Failed to save to JPG"));
            QCOMPARE(m.icon, MsgIcon::Exclamation);
        }
        // A failed write leaves no file behind, partial or empty.
        QVERIFY(!QFileInfo::exists(m_dir.filePath(QStringLiteral("empty.jpg"))));
        QCOMPARE(QDir(m_dir.path()).entryList({QStringLiteral("*.tmp")}, QDir::Files).size(), 0);
    }
};

QTEST_MAIN(TestJpeg)
#include "tst_jpegwriter.moc"
