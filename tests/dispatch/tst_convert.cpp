// Saving a job, the output choice, the Ghostscript command lines as they run,
// the waits, the lock check and the file wipe.

#include "dispatchtest.h"

#include "platform/filelock.h"
#include "server/jobfiles.h"

#include <QButtonGroup>
#include <QImageReader>
#include <QTemporaryFile>
#include <QTimer>

#include <unistd.h>

namespace
{
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

// As the window can show it: no action chosen at all.
void chooseNoAction(frmMain& w)
{
    w.actionGroup->setExclusive(false);
    for (QAbstractButton* b : w.actionGroup->buttons())
        b->setChecked(false);
    w.actionGroup->setExclusive(true);
}
} // namespace

class TestConvert : public QObject
{
    Q_OBJECT
private slots:
    void savePSFileKeepsTheBytes()
    {
        Server s;
        // Every byte value, CR LF pairs and a NUL: PostScript may carry binary data.
        QByteArray job("%!PS\r\n");
        for (int i = 0; i < 256; ++i)
            job.append(char(i));
        job.append("\r\nshowpage\r\n");
        s.window->SavePSFile(job);
        const QString expected = s.jobPath(s.window->fileName() + ".ps");
        QCOMPARE(s.window->Text1->text(), expected);
        QCOMPARE(readFile(expected), job + "\n");

        // An existing file is replaced, not appended to.
        s.window->SavePSFile("short");
        QCOMPARE(readFile(expected), QByteArray("short\n"));
    }

    void fileTypeBringsBackSaveAsImage()
    {
        Server s;
        frmMain& w = *s.window;
        const QString base = s.jobPath(w.fileName());
        // Start-up: a grayscale PDF, no file type.
        QVERIFY(w.Option1->isChecked() && w.Option6->isChecked() && w.Option8->isChecked());
        QCOMPARE(w.TxtPath->text(), base + ".pdf");

        w.Option2->click();
        QVERIFY(w.Option8->isChecked());
        QCOMPARE(w.TxtPath->text(), base + ".tif");

        // With a file type chosen, every call moves the choice back to the image.
        w.Option5->click();
        for (QRadioButton* other : {w.Option1, w.Option3}) {
            other->click();
            QVERIFY(w.Option2->isChecked() && !other->isChecked());
            QCOMPARE(w.TxtPath->text(), base + ".tif");
        }

        // Nothing chosen: the path stays as it was.
        chooseNoAction(w);
        w.Option8->setChecked(true);
        w.TxtPath->setText(QStringLiteral("unchanged"));
        w.DoChangeOption();
        QCOMPARE(w.TxtPath->text(), QStringLiteral("unchanged"));
        // and a job starts nothing.
        w.Text3->setText(QStringLiteral("before"));
        w.SavePSFile(makePsJob(1));
        w.DoConvertPs2PdfImage();
        QCOMPARE(w.Text3->text(), QStringLiteral("before"));
        QCOMPARE(w.findChildren<QProcess*>().size(), 0);
    }

    void commandLinesAreTheLinesThatRun_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<bool>("colour");
        QTest::addColumn<QString>("extension");
        QTest::addColumn<QString>("middle");
        QTest::addColumn<QString>("gap");

        const QString tiff = " -dNOPAUSE -dBATCH -r600 -sDEVICE=%1 -sPAPERSIZE=letter "
                             "-dCOLORSCREEN=%2 -dDITHERPPI=204 -dQUIET";
        QTest::newRow("print") << "print" << false << ".tif" << tiff.arg("tifflzw", "0") << " ";
        // Print wins when the image is chosen as well.
        QTest::newRow("print, colour")
            << "print" << true << ".tif" << tiff.arg("tifflzw", "0") << " ";
        QTest::newRow("image, grayscale")
            << "image" << false << ".tif" << tiff.arg("tifflzw", "4") << " ";
        QTest::newRow("image, colour")
            << "image" << true << ".tif" << tiff.arg("tiff12nc", "4") << " ";
        QTest::newRow("pdf") << "pdf" << false << ".pdf"
                             << " -dNOPAUSE -dBATCH -sDEVICE=pdfwrite -dQUIET"
                             << "  ";
    }

    void commandLinesAreTheLinesThatRun()
    {
        QFETCH(QString, output);
        QFETCH(bool, colour);
        QFETCH(QString, extension);
        QFETCH(QString, middle);
        QFETCH(QString, gap);

        Server s;
        frmMain& w = *s.window;
        choose(w, output, colour);
        const QString out = s.jobPath(w.fileName()) + extension;
        QCOMPARE(w.TxtPath->text(), out);

        w.SavePSFile(makePsJob(1));
        w.DoConvertPs2PdfImage();
        const QString expected = "\"" + w.ghostscriptPath() + "\"" + middle + " -sOutputFile=\"" +
                                 out + "\"" + gap + "\"" + s.jobPath(w.fileName()) + ".ps\"";
        QCOMPARE(w.Text3->text(), expected);
        QVERIFY(expected.contains(QLatin1String("program folder"))); // blanks in every path

        // The line ran: the output appears, complete, in the format it names.
        QTRY_VERIFY_WITH_TIMEOUT(!w.IsFileTiffPDFLocked(out), 60000);
        if (extension == QLatin1String(".pdf"))
            QCOMPARE(pdfPages(out), 1);
        else
            QCOMPARE(QImageReader(out).imageCount(), 1);
        QVERIFY2(!w.txtLog->text().contains(QLatin1String("Ghostscript")),
                 qPrintable(w.txtLog->text()));
    }

    void ghostscriptErrorsReachTheLog()
    {
        Server s;
        frmMain& w = *s.window;
        convert(w, "%!PS\n/Helvetica findfont 12 scalefont setfont\nnosuchoperator\nshowpage\n");
        const QString log = w.txtLog->text();
        QVERIFY2(log.contains(QStringLiteral("Ghostscript ended with exit code 1 for ") +
                              w.TxtPath->text()),
                 qPrintable(log));
        QVERIFY2(log.contains(QLatin1String("Error: /undefined in nosuchoperator")),
                 qPrintable(log));
        QVERIFY(log.endsWith(QLatin1String("\r\n")));

        // A good job afterwards logs nothing more.
        w.txtLog->setText(QString());
        convert(w, makePsJob(1));
        QCOMPARE(w.txtLog->text(), QString());
    }

    void everyRunHasItsOwnTemporaryFolder()
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
        convert(w, "%!PS\n(TEMPFILE=) print null (w) .tempfile pop = flush\n(" +
                       secret.fileName().toLocal8Bit() +
                       ") (r) file 100 string readstring pop (read: ) print =\nshowpage\n");
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

    void waitForFileLetsEventsRun()
    {
        Server s;
        // The file turns up while the wait runs; a folder of that name is not it.
        for (const QString& name : {QStringLiteral("late.tif"), QStringLiteral("folder.tif")}) {
            const QString path = s.jobPath(name);
            if (name.startsWith(QLatin1String("folder")))
                QDir().mkpath(path);
            QTimer::singleShot(300, [path] {
                QDir(path).removeRecursively();
                writeFile(path, "II*");
            });
            s.window->DoWait4FilePS2PDFCreated(path);
            QVERIFY(QFileInfo(path).isFile());
        }
    }

    void lockCheck()
    {
        Server s;
        frmMain& w = *s.window;
        const QString path = s.jobPath(QStringLiteral("job.pdf"));
        QVERIFY(w.IsFileTiffPDFLocked(path)); // missing
        QVERIFY(!QFileInfo::exists(path));    // and not created by the check
        writeFile(path, QByteArray());
        QVERIFY(w.IsFileTiffPDFLocked(path)); // empty
        writeFile(path, QByteArray(3 << 20, 'p'));
        // Our own descriptors do not count.
        QFile own(path);
        QVERIFY(own.open(QIODevice::ReadOnly));
        QVERIFY(!w.IsFileTiffPDFLocked(path));
        QVERIFY(!heldOpenByAnotherProcess(path));
        // Another process that holds it open, for writing or reading, does.
        for (const char* redirect : {">>", "<"}) {
            {
                FileHolder other(path, redirect);
                QVERIFY(heldOpenByAnotherProcess(path));
                QVERIFY(w.IsFileTiffPDFLocked(path));
            }
            QVERIFY(!w.IsFileTiffPDFLocked(path));
        }
        // A file that cannot be opened for reading and writing counts as locked.
        if (QFile::setPermissions(path, QFile::ReadOwner) && ::geteuid() != 0)
            QVERIFY(w.IsFileTiffPDFLocked(path));
    }

    void wipeOverwritesThenDeletes()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("job.ps"));
        const QString link = dir.filePath(QStringLiteral("seen-through-a-link"));
        const QByteArray content = makePsJob(2);
        writeFile(path, content);
        // A hard link still sees the data after the name is deleted.
        QCOMPARE(::link(qPrintable(path), qPrintable(link)), 0);
        {
            FileHolder gs(path, "<");
            QVERIFY(!WipeFile(path)); // still open elsewhere: the caller tries again
            QCOMPARE(readFile(path), content);
        }
        QVERIFY(WipeFile(path));
        QVERIFY(!QFileInfo::exists(path));
        QCOMPARE(readFile(link), QByteArray(content.size(), 'X'));
        QVERIFY(WipeFile(path)); // already gone
    }
};

QTEST_MAIN(TestConvert)
#include "tst_convert.moc"
