// The fixed-size text fields of the notification record.
#include "tray/notifyicondata.h"

#include <QTest>

class TestFixedBuffer : public QObject
{
    Q_OBJECT
private slots:
    void limitsAreHalfTheBytesLessOne_data()
    {
        QTest::addColumn<int>("bytes");
        QTest::addColumn<int>("written");
        QTest::addColumn<int>("kept");
        QTest::newRow("tooltip 200") << tray::TipBytes << 200 << 127;
        QTest::newRow("tooltip 127") << tray::TipBytes << 127 << 127;
        QTest::newRow("tooltip 128") << tray::TipBytes << 128 << 127;
        QTest::newRow("message 300") << tray::InfoBytes << 300 << 255;
        QTest::newRow("message 255") << tray::InfoBytes << 255 << 255;
        QTest::newRow("title 70") << tray::InfoTitleBytes << 70 << 63;
        QTest::newRow("title 64") << tray::InfoTitleBytes << 64 << 63;
        QTest::newRow("title 5") << tray::InfoTitleBytes << 5 << 5;
    }
    void limitsAreHalfTheBytesLessOne()
    {
        QFETCH(int, bytes);
        QFETCH(int, written);
        QFETCH(int, kept);
        QByteArray field(bytes, '\x7f'); // leftovers that must not show
        QString text;
        for (int i = 0; i < written; ++i)
            text += QChar(u'a' + i % 26);
        StringToFixedBuffer(field, text);
        QCOMPARE(field.size(), bytes);
        QCOMPARE(FixedBufferText(field), text.left(kept));
        for (int i = kept * 2; i < bytes; ++i)
            QCOMPARE(int(field.at(i)), 0);
    }

    void emptyTextKeepsThePreviousOne()
    {
        QByteArray field(tray::TipBytes, '\0');
        StringToFixedBuffer(field, QStringLiteral("Quorvel"));
        StringToFixedBuffer(field, QString());
        QCOMPARE(FixedBufferText(field), QStringLiteral("Quorvel"));
    }

    void shorterTextClearsTheRest()
    {
        QByteArray field(tray::TipBytes, '\0');
        StringToFixedBuffer(field, QStringLiteral("Quorvel print server"));
        StringToFixedBuffer(field, QStringLiteral("Q"));
        QCOMPARE(FixedBufferText(field), QStringLiteral("Q"));
        QCOMPARE(FixedBufferChars(field), QStringLiteral("Q") + QString(127, QChar(0)));
    }

    void nonLatinTextIsCopiedAsUtf16()
    {
        QByteArray field(tray::InfoTitleBytes, '\0');
        const QString text = QStringLiteral("Icône démarrée ✓");
        StringToFixedBuffer(field, text);
        QCOMPARE(FixedBufferText(field), text);
    }
};

QTEST_APPLESS_MAIN(TestFixedBuffer)
#include "tst_fixedbuffer.moc"
