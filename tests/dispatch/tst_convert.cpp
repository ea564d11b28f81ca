// Saving a job, the output choice, the Ghostscript command lines as they run,
// the waits, the lock check and the file wipe.

#include "dispatchtest.h"
#include "psjob.h"

#include "platform/filelock.h"
#include "server/jobfiles.h"

#include <QButtonGroup>
#include <QImageReader>
#include <QLineEdit>
#include <QRadioButton>
#include <QSignalSpy>
#include <QTemporaryFile>
#include <QTimer>

#include <unistd.h>

namespace
{
// A child process that keeps the file open (bash redirection) until killed.
struct Holder {
    QProcess p;
    explicit Holder(const QString& path, const char* redirect = ">>")
    {
        p.start(QStringLiteral("bash"),
                {QStringLiteral("-c"),
                 QStringLiteral("exec 3%1\"$1\"; echo ready; exec sleep 60").arg(redirect),
                 QStringLiteral("holder"), path});
        p.waitForReadyRead(10000);
    }
    ~Holder()
    {
        p.kill();
        p.waitForFinished(10000);
    }
};

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>");
}

void selectAction(frmMain& w, QRadioButton* option)
{
    // As the window can show it: nothing at all chosen when option is null.
    w.actionGroup->setExclusive(false);
    for (QAbstractButton* b : w.actionGroup->buttons())
        b->setChecked(b == option);
    w.actionGroup->setExclusive(true);
}
} // namespace

class TestConvert : public QObject
{
    Q_OBJECT
private slots:
    void savePSFileKeepsTheBytes();
    void fileTypeBringsBackSaveAsImage();
    void commandLinesAreTheLinesThatRun_data();
    void commandLinesAreTheLinesThatRun();
    void noActionStartsNothing();
    void ghostscriptErrorsReachTheLog();
    void everyRunHasItsOwnTemporaryFolder();
    void waitForFileLetsEventsRun();
    void lockCheck();
    void lockIgnoresOurOwnDescriptors();
    void wipeOverwritesThenDeletes();
};

void TestConvert::savePSFileKeepsTheBytes()
{
    Server s;
    // Every byte value, CR LF pairs and a NUL: PostScript may carry binary data.
    QByteArray job("%!PS\r\n");
    for (int i = 0; i < 256; ++i)
        job.append(char(i));
    job.append("\r\nshowpage\r\n");
    s.window->SavePSFile(job);
    const QString expected = s.jobFolder() + QDir::separator() + s.window->fileName() + ".ps";
    QCOMPARE(s.window->Text1->text(), expected);
    QCOMPARE(readFile(expected), job + "\n");

    // An existing file is replaced, not appended to.
    s.window->SavePSFile("short");
    QCOMPARE(readFile(expected), QByteArray("short\n"));
}

void TestConvert::fileTypeBringsBackSaveAsImage()
{
    Server s;
    frmMain& w = *s.window;
    const QString base = s.jobFolder() + QDir::separator() + w.fileName();
    // Start-up: a grayscale PDF, no file type.
    QVERIFY(w.Option1->isChecked());
    QVERIFY(w.Option6->isChecked());
    QVERIFY(w.Option8->isChecked());
    QCOMPARE(w.TxtPath->text(), base + ".pdf");

    w.Option2->click();
    QVERIFY(w.Option8->isChecked());
    QCOMPARE(w.TxtPath->text(), base + ".tif");

    w.Option5->click();
    QVERIFY(w.Option2->isChecked());
    // With a file type chosen, every call moves the choice back to the image.
    w.Option1->click();
    QVERIFY(w.Option2->isChecked());
    QVERIFY(!w.Option1->isChecked());
    QCOMPARE(w.TxtPath->text(), base + ".tif");
    w.Option3->click();
    QVERIFY(w.Option2->isChecked());

    // Nothing chosen: the path stays as it was.
    selectAction(w, nullptr);
    w.Option8->setChecked(true);
    w.TxtPath->setText(QStringLiteral("unchanged"));
    w.DoChangeOption();
    QCOMPARE(w.TxtPath->text(), QStringLiteral("unchanged"));
}

void TestConvert::commandLinesAreTheLinesThatRun_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<bool>("colour");
    QTest::addColumn<QString>("extension");
    QTest::addColumn<QString>("middle");
    QTest::addColumn<QString>("gap");

    QTest::newRow("print") << "print" << false << ".tif"
                           << " -dNOPAUSE -dBATCH -r600 -sDEVICE=tifflzw -sPAPERSIZE=letter "
                              "-dCOLORSCREEN=0 -dDITHERPPI=204 -dQUIET"
                           << " ";
    // Print wins when the image is chosen as well.
    QTest::newRow("print, colour") << "print" << true << ".tif"
                                   << " -dNOPAUSE -dBATCH -r600 -sDEVICE=tifflzw "
                                      "-sPAPERSIZE=letter -dCOLORSCREEN=0 -dDITHERPPI=204 -dQUIET"
                                   << " ";
    QTest::newRow("image, grayscale") << "image" << false << ".tif"
                                      << " -dNOPAUSE -dBATCH -r600 -sDEVICE=tifflzw "
                                         "-sPAPERSIZE=letter -dCOLORSCREEN=4 -dDITHERPPI=204 "
                                         "-dQUIET"
                                      << " ";
    QTest::newRow("image, colour") << "image" << true << ".tif"
                                   << " -dNOPAUSE -dBATCH -r600 -sDEVICE=tiff12nc "
                                      "-sPAPERSIZE=letter -dCOLORSCREEN=4 -dDITHERPPI=204 -dQUIET"
                                   << " ";
    QTest::newRow("pdf") << "pdf" << false << ".pdf"
                         << " -dNOPAUSE -dBATCH -sDEVICE=pdfwrite -dQUIET"
                         << "  ";
}

void TestConvert::commandLinesAreTheLinesThatRun()
{
    QFETCH(QString, action);
    QFETCH(bool, colour);
    QFETCH(QString, extension);
    QFETCH(QString, middle);
    QFETCH(QString, gap);

    Server s;
    frmMain& w = *s.window;
    (colour ? w.Option7 : w.Option6)->setChecked(true);
    if (action == QLatin1String("print"))
        w.Option3->click();
    else if (action == QLatin1String("image"))
        w.Option2->click();
    else
        w.Option1->click();
    const QString base = s.jobFolder() + QDir::separator() + w.fileName();
    QCOMPARE(w.TxtPath->text(), base + extension);

    w.SavePSFile(makePsJob(1));
    w.DoConvertPs2PdfImage();
    const QString expected = QStringLiteral("\"") + w.ghostscriptPath() + "\"" + middle +
                             " -sOutputFile=\"" + base + extension + "\"" + gap + "\"" + base +
                             ".ps\"";
    QCOMPARE(w.Text3->text(), expected);
    QVERIFY(expected.contains(QLatin1String("program folder"))); // blanks in every path

    // The line ran: the output appears, complete, in the format it names.
    QTRY_VERIFY_WITH_TIMEOUT(!w.IsFileTiffPDFLocked(base + extension), 60000);
    QImageReader tiff(base + extension);
    if (extension == QLatin1String(".pdf"))
        QCOMPARE(pdfPages(base + extension), 1);
    else
        QCOMPARE(tiff.imageCount(), 1);
    QVERIFY2(!w.txtLog->text().contains(QLatin1String("Ghostscript")),
             qPrintable(w.txtLog->text()));
}

void TestConvert::noActionStartsNothing()
{
    Server s;
    frmMain& w = *s.window;
    selectAction(w, nullptr);
    w.Text3->setText(QStringLiteral("before"));
    w.SavePSFile(makePsJob(1));
    w.DoConvertPs2PdfImage();
    QCOMPARE(w.Text3->text(), QStringLiteral("before"));
    QCOMPARE(w.findChildren<QProcess*>().size(), 0);
}

void TestConvert::ghostscriptErrorsReachTheLog()
{
    Server s;
    frmMain& w = *s.window;
    w.SavePSFile("%!PS\n/Helvetica findfont 12 scalefont setfont\nnosuchoperator\nshowpage\n");
    w.DoConvertPs2PdfImage();
    QTRY_VERIFY_WITH_TIMEOUT(w.findChildren<QProcess*>().isEmpty(), 60000);
    const QString log = w.txtLog->text();
    QVERIFY2(
        log.contains(QStringLiteral("Ghostscript ended with exit code 1 for ") + w.TxtPath->text()),
        qPrintable(log));
    QVERIFY2(log.contains(QLatin1String("Error: /undefined in nosuchoperator")), qPrintable(log));
    QVERIFY(log.endsWith(QLatin1String("\r\n")));

    // A good job afterwards logs nothing more.
    w.txtLog->setText(QString());
    w.SavePSFile(makePsJob(1));
    w.DoConvertPs2PdfImage();
    QTRY_VERIFY_WITH_TIMEOUT(w.findChildren<QProcess*>().isEmpty(), 60000);
    QCOMPARE(w.txtLog->text(), QString());
}

void TestConvert::everyRunHasItsOwnTemporaryFolder()
{
    Server s;
    frmMain& w = *s.window;
    // A file in the shared temporary folder that a job must not read.
    QTemporaryFile secret(QDir::tempPath() + QStringLiteral("/quorvel-secret-XXXXXX"));
    QVERIFY(secret.open());
    secret.write("secret\n");
    secret.flush();

    // The job leaves a file in its temporary folder and shows its name, then
    // tries the secret; the error brings the output to the log.
    w.SavePSFile("%!PS\n(TEMPFILE=) print null (w) .tempfile pop = flush\n(" +
                 secret.fileName().toLocal8Bit() +
                 ") (r) file 100 string readstring pop (read: ) print =\nshowpage\n");
    w.DoConvertPs2PdfImage();
    QTRY_VERIFY_WITH_TIMEOUT(w.findChildren<QProcess*>().isEmpty(), 60000);
    const QString log = w.txtLog->text();
    QVERIFY2(log.contains(QLatin1String("Error: /invalidfileaccess")), qPrintable(log));
    QVERIFY2(!log.contains(QLatin1String("read: ")), qPrintable(log));

    const qsizetype at = log.indexOf(QLatin1String("TEMPFILE="));
    QVERIFY2(at >= 0, qPrintable(log));
    const QString tmpdir =
        QFileInfo(log.mid(at + 9, log.indexOf(u'\r', at) - at - 9)).absolutePath();
    QVERIFY2(tmpdir.startsWith(QDir::tempPath() + QStringLiteral("/quorvel-gs-")),
             qPrintable(tmpdir));
    QVERIFY2(!QFileInfo::exists(tmpdir), qPrintable(tmpdir)); // removed after the run
}

void TestConvert::waitForFileLetsEventsRun()
{
    Server s;
    const QString path = s.jobFolder() + QStringLiteral("/late.tif");
    bool fired = false;
    QTimer::singleShot(300, [&] {
        fired = true;
        writeFile(path, "II*");
    });
    s.window->DoWait4FilePS2PDFCreated(path);
    QVERIFY(fired);
    QVERIFY(QFileInfo::exists(path));

    // A folder of that name is not the file.
    const QString folder = s.jobFolder() + QStringLiteral("/folder.tif");
    QDir().mkpath(folder);
    QTimer::singleShot(300, [&] {
        QDir(folder).removeRecursively();
        writeFile(folder, "II*");
    });
    s.window->DoWait4FilePS2PDFCreated(folder);
    QVERIFY(QFileInfo(folder).isFile());
}

void TestConvert::lockCheck()
{
    Server s;
    frmMain& w = *s.window;
    const QString path = s.jobFolder() + QStringLiteral("/job.pdf");
    QVERIFY(w.IsFileTiffPDFLocked(path)); // missing
    QVERIFY(!QFileInfo::exists(path));    // and not created by the check
    writeFile(path, QByteArray());
    QVERIFY(w.IsFileTiffPDFLocked(path)); // empty
    writeFile(path, QByteArray(3 << 20, 'p'));
    QVERIFY(!w.IsFileTiffPDFLocked(path));
    QVERIFY(!heldOpenByAnotherProcess(path));
    {
        Holder writer(path);
        QVERIFY(heldOpenByAnotherProcess(path));
        QVERIFY(w.IsFileTiffPDFLocked(path));
    }
    QVERIFY(!w.IsFileTiffPDFLocked(path));
    {
        Holder reader(path, "<");
        QVERIFY(w.IsFileTiffPDFLocked(path));
    }
    QVERIFY(!w.IsFileTiffPDFLocked(path));
    // A file that cannot be opened for reading and writing counts as locked.
    if (QFile::setPermissions(path, QFile::ReadOwner) && ::geteuid() != 0)
        QVERIFY(w.IsFileTiffPDFLocked(path));
}

void TestConvert::lockIgnoresOurOwnDescriptors()
{
    Server s;
    const QString path = s.jobFolder() + QStringLiteral("/own.tif");
    writeFile(path, "II*\0");
    QFile own(path);
    QVERIFY(own.open(QIODevice::ReadOnly));
    QVERIFY(!heldOpenByAnotherProcess(path));
    QVERIFY(!s.window->IsFileTiffPDFLocked(path));
    Holder other(path);
    QVERIFY(heldOpenByAnotherProcess(path));
}

void TestConvert::wipeOverwritesThenDeletes()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("job.ps"));
    const QString link = dir.filePath(QStringLiteral("seen-through-a-link"));
    const QByteArray content = makePsJob(2);
    writeFile(path, content);
    // A hard link still sees the data after the name is deleted.
    QCOMPARE(::link(qPrintable(path), qPrintable(link)), 0);

    {
        Holder gs(path, "<");
        QVERIFY(!WipeFile(path)); // still open elsewhere: the caller tries again
        QCOMPARE(readFile(path), content);
    }
    QVERIFY(WipeFile(path));
    QVERIFY(!QFileInfo::exists(path));
    QCOMPARE(readFile(link), QByteArray(content.size(), 'X'));
    QVERIFY(WipeFile(path)); // already gone
}

QTEST_MAIN(TestConvert)
#include "tst_convert.moc"
