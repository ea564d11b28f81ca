// The folder of a file and the printer tool command lines.
#include "convert/printers.h"
#include "platform/printertools.h"

#include <QTest>

class TestPrinterPaths : public QObject
{
    Q_OBJECT
private slots:
    void pathOfFile()
    {
        const struct {
            const char* path;
            char separator;
            const char* folder;
        } cases[] = {
            {"C:\\Quorvel\\ImagesPdfExport\\File_1.tif", '\\', "C:\\Quorvel\\ImagesPdfExport\\"},
            {"File_1.tif", '\\', ""},
            {"", '\\', ""},
            {"\\File_1.tif", '\\', "\\"},
            {"C:\\Jobs\\", '\\', "C:\\Jobs\\"},
            {"C:/a/b.tif", '\\', ""}, // a slash is no separator there
            {"/opt/quorvel/ImagesPdfExport/File_1.tif", '/', "/opt/quorvel/ImagesPdfExport/"},
            {"File_1.tif", '/', ""},
        };
        for (const auto& c : cases)
            QCOMPARE(::pathOfFile(QString::fromUtf8(c.path), QChar(c.separator)),
                     QString::fromUtf8(c.folder));
            // Without a separator given, the platform's.
#ifdef Q_OS_WIN
        QCOMPARE(::pathOfFile(QStringLiteral("C:\\a\\b.tif")), QStringLiteral("C:\\a\\"));
#else
        QCOMPARE(::pathOfFile(QStringLiteral("/tmp/jobs/b.tif")), QStringLiteral("/tmp/jobs/"));
        QCOMPARE(::pathOfFile(QStringLiteral("C:\\a\\b.tif")), QString());
#endif
    }

    void windowsCommandLines()
    {
        const QString name = QStringLiteral("HP LaserJet 4 (Floor 2)");
        const QString ui = QStringLiteral("rundll32.exe printui.dll,PrintUIEntry ");
        QCOMPARE(PrinterCommands::properties(name), ui + "/p /n \"HP LaserJet 4 (Floor 2)\"");
        QCOMPARE(PrinterCommands::queue(name), ui + "/o /n \"HP LaserJet 4 (Floor 2)\"");
        QCOMPARE(PrinterCommands::printersFolder(),
                 QStringLiteral("rundll32.exe shell32.dll,SHHelpShortcuts_RunDLL PrintersFolder"));
    }
};

QTEST_GUILESS_MAIN(TestPrinterPaths)
#include "tst_printerpaths.moc"
