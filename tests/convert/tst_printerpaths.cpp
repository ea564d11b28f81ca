// The folder of a file and the printer tool command lines.
#include "convert/printers.h"
#include "platform/printertools.h"

#include <QTest>

class TestPrinterPaths : public QObject
{
    Q_OBJECT
private slots:
    void pathOfFile_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("separator");
        QTest::addColumn<QString>("folder");
        QTest::newRow("windows path") << "C:\\Quorvel\\ImagesPdfExport\\File_1.tif"
                                      << "\\"
                                      << "C:\\Quorvel\\ImagesPdfExport\\";
        QTest::newRow("bare name") << "File_1.tif"
                                   << "\\"
                                   << "";
        QTest::newRow("empty") << ""
                               << "\\"
                               << "";
        QTest::newRow("at the start") << "\\File_1.tif"
                                      << "\\"
                                      << "\\";
        QTest::newRow("folder only") << "C:\\Jobs\\"
                                     << "\\"
                                     << "C:\\Jobs\\";
        QTest::newRow("slash is no separator there") << "C:/a/b.tif"
                                                     << "\\"
                                                     << "";
        QTest::newRow("linux path") << "/opt/quorvel/ImagesPdfExport/File_1.tif"
                                    << "/"
                                    << "/opt/quorvel/ImagesPdfExport/";
        QTest::newRow("linux bare") << "File_1.tif"
                                    << "/"
                                    << "";
    }
    void pathOfFile()
    {
        QFETCH(QString, path);
        QFETCH(QString, separator);
        QFETCH(QString, folder);
        QCOMPARE(::pathOfFile(path, separator.at(0)), folder);
    }

    void pathOfFileUsesThePlatformSeparator()
    {
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
        QCOMPARE(PrinterCommands::properties(name),
                 QStringLiteral("rundll32.exe printui.dll,PrintUIEntry /p /n \"HP LaserJet 4 "
                                "(Floor 2)\""));
        QCOMPARE(PrinterCommands::queue(name),
                 QStringLiteral("rundll32.exe printui.dll,PrintUIEntry /o /n \"HP LaserJet 4 "
                                "(Floor 2)\""));
        QCOMPARE(PrinterCommands::printersFolder(),
                 QStringLiteral("rundll32.exe shell32.dll,SHHelpShortcuts_RunDLL PrintersFolder"));
    }
};

QTEST_GUILESS_MAIN(TestPrinterPaths)
#include "tst_printerpaths.moc"
