// Printing and the printer list against a real CUPS scheduler (the "cups"
// fixture): a cups-pdf queue whose printed pages land as PDF files, a file
// queue and a queue that rejects jobs.
#include "common/log.h"
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "convert/currentprinter.h"
#include "convert/printers.h"
#include "gspages.h"
#include "netscan/FrmNetScan.h"
#include "platform/printertools.h"
#include "server/frmMain.h"
#include "testsupport.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPrinterInfo>
#include <QPushButton>
#include <QTableWidget>
#include <QTcpServer>
#include <QTest>
#include <QTimer>
#include <cups/cups.h>
#include <memory>

namespace
{
quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

QString run(const QString& program, const QStringList& args)
{
    QProcess p;
    p.start(program, args);
    p.waitForFinished(60000);
    return QString::fromLocal8Bit(p.readAllStandardOutput() + p.readAllStandardError());
}

int rowOf(const QListWidget* list, const QString& text)
{
    for (int i = 0; i < list->count(); ++i)
        if (list->item(i)->text() == text)
            return i;
    return -1;
}

bool isYellow(const QTableWidgetItem* item)
{
    return item->background().color() == QColor(255, 255, 0);
}

qint64 pictureKey(const QTableWidget* grid, int row)
{
    const QVariant v = grid->item(row, 0)->data(Qt::DecorationRole);
    return v.isValid() ? v.value<QPixmap>().cacheKey() : 0;
}
} // namespace

class TestPrinting : public QObject
{
    Q_OBJECT
    QMap<QString, QString> m_cups;
    QTemporaryDir m_pages;
    QString m_tiff1, m_tiff3;
    std::unique_ptr<QTemporaryDir> m_dir;
    QStringList m_log;
    QList<Message> m_shown;

    QString pdfQueue() const { return m_cups.value(QStringLiteral("CUPS_PDF_QUEUE")); }
    QString fileQueue() const { return m_cups.value(QStringLiteral("CUPS_FILE_QUEUE")); }
    QString rejectQueue() const { return m_cups.value(QStringLiteral("CUPS_REJECT_QUEUE")); }

    QStringList printedPdfs() const
    {
        return QDir(m_cups.value(QStringLiteral("CUPS_PDF_OUT")))
            .entryList({QStringLiteral("*.pdf")}, QDir::Files, QDir::Name);
    }

    // cups-pdf keeps a PDF private (0600) until it is complete.
    QString waitForNewPdf(const QStringList& before)
    {
        const QString out = m_cups.value(QStringLiteral("CUPS_PDF_OUT"));
        for (int i = 0; i < 600; ++i) {
            for (const QString& name : printedPdfs()) {
                if (before.contains(name))
                    continue;
                const QFileInfo info(out + QStringLiteral("/") + name);
                if (info.permissions() & QFile::ReadOther)
                    return info.filePath();
            }
            QTest::qWait(100);
        }
        return {};
    }

    bool logged(const QString& part) const
    {
        for (const QString& line : m_log)
            if (line.contains(part))
                return true;
        return false;
    }

private slots:
    void initTestCase()
    {
        m_cups = serviceEnv(QStringLiteral("cups"));
        QVERIFY2(!m_cups.isEmpty(), "the cups fixture wrote no cups.env");
        QCOMPARE(qEnvironmentVariable("CUPS_SERVER"), m_cups.value(QStringLiteral("CUPS_SERVER")));
        const QStringList names = installedPrinterNames();
        for (const QString& q : {pdfQueue(), fileQueue(), rejectQueue()})
            QVERIFY2(names.contains(q), qPrintable(names.join(u',')));
        QString error;
        m_tiff1 = gspages::render(m_pages.path(), 1, QStringLiteral("tifflzw"), &error);
        QVERIFY2(!m_tiff1.isEmpty(), qPrintable(error));
        m_tiff3 = gspages::render(m_pages.path(), 3, QStringLiteral("tifflzw"), &error);
        QVERIFY2(!m_tiff3.isEmpty(), qPrintable(error));
    }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        Paths::setProgramFolder(m_dir->path());
        SettingsStore::setFolder(m_dir->filePath(QStringLiteral("settings")));
        m_log.clear();
        m_shown.clear();
        Log::setSink([this](const QString& line) { m_log.append(line); });
        setMsgRecorder([this](const Message& m) { m_shown.append(m); });
        CurrentPrinter::Select(QPrinterInfo::printerInfo(pdfQueue()));
    }

    void cleanup()
    {
        CurrentPrinter::EndDoc();
        Log::setSink({});
        setMsgRecorder({});
        SettingsStore::setFolder(QString());
    }

    void listSelectsTheRememberedPrinterWhateverItsCaseAndBlanks()
    {
        SettingsStore::put(QStringLiteral("Name"), QStringLiteral("  quorvelFILE "));
        frmMain form(freePort());
        const QStringList names = installedPrinterNames();
        QCOMPARE(form.List2->count(), names.size());
        QCOMPARE(form.FG2->rowCount(), names.size());
        QCOMPARE(form.List2->currentItem()->text(), fileQueue());
        const int row = form.List2->currentRow();
        for (int i = 0; i < names.size(); ++i) {
            QCOMPARE(form.List2->item(i)->text(), names[i]);
            QCOMPARE(form.FG2->item(i, 1)->text(), names[i]);
            QCOMPARE(form.printerTableName(i + 1), names[i]);
            QCOMPARE(form.printerTableStatus(i + 1), QString());
            QCOMPARE(isYellow(form.FG2->item(i, 1)), i == row);
        }
        QCOMPARE(form.printerTableName(0), QString());
        QCOMPARE(form.FG2->currentRow(), row);
        QCOMPARE(form.TxtEdit->geometry(), form.FG2->visualItemRect(form.FG2->item(row, 1)));
        // The row handler ran once and saved the list's choice.
        QCOMPARE(SettingsStore::get(QStringLiteral("Name")), fileQueue());
        QCOMPARE(form.printerName(), QStringLiteral("  quorvelFILE "));
    }

    void withoutRememberedNameTheDefaultPrinterIsChosen()
    {
        frmMain form(freePort());
        QCOMPARE(form.printerName(), pdfQueue());
        QCOMPARE(form.List2->currentItem()->text(), pdfQueue());
        QVERIFY(isYellow(form.FG2->item(form.List2->currentRow(), 1)));
    }

    void noPrinterLeavesOneLine()
    {
        // A scheduler that does not answer has no printers to offer.
        cupsSetServer(qPrintable(m_dir->filePath(QStringLiteral("nothing.sock"))));
        struct Restore {
            QString server;
            ~Restore() { cupsSetServer(qPrintable(server)); }
        } restore{m_cups.value(QStringLiteral("CUPS_SERVER"))};
        frmMain form(freePort());
        QCOMPARE(form.List2->count(), 1);
        QCOMPARE(form.List2->item(0)->text(), QStringLiteral("(No Printer Installed)"));
        QCOMPARE(form.FG2->rowCount(), 1);
        QCOMPARE(form.printerTableName(1), QStringLiteral("(No Printer Installed)"));
        // Nothing matches it, so the current printer stays.
        form.SelectPrinterByName(form.List2->item(0)->text());
        QCOMPARE(CurrentPrinter::DeviceName(), pdfQueue());

        // Without any printer a print says so in the log and goes on.
        CurrentPrinter::Select(QPrinterInfo::defaultPrinter());
        QCOMPARE(CurrentPrinter::DeviceName(), QString());
        form.PrintTiff(m_tiff1);
        QVERIFY(!CurrentPrinter::HasOpenDocument());
        QVERIFY2(form.txtLog->text().contains(QStringLiteral("Cannot print on printer \"\"")),
                 qPrintable(form.txtLog->text()));
        QVERIFY(m_shown.isEmpty());
    }

    void theTableHoldsOneHundredPrinters()
    {
        // Raw queues that print nowhere, added and removed again here.
        QStringList extra;
        struct Remove {
            QStringList& names;
            ~Remove()
            {
                for (const QString& n : names)
                    run(QStringLiteral("lpadmin"), {QStringLiteral("-x"), n});
            }
        } remove{extra};
        const int installed = int(installedPrinterNames().size());
        auto addQueues = [&](int count) {
            for (int i = 0; i < count; ++i) {
                const QString name =
                    QStringLiteral("Extra%1").arg(extra.size() + 1, 3, 10, QChar(u'0'));
                run(QStringLiteral("lpadmin"),
                    {QStringLiteral("-p"), name, QStringLiteral("-v"),
                     QStringLiteral("file:///dev/null"), QStringLiteral("-E")});
                extra << name;
            }
        };
        addQueues(100 - installed);
        QCOMPARE(installedPrinterNames().size(), 100);
        {
            frmMain form(freePort());
            QVERIFY(m_shown.isEmpty());
            QCOMPARE(form.FG2->rowCount(), 100);
            QCOMPARE(form.printerTableName(100), form.List2->item(99)->text());
            QVERIFY(isYellow(form.FG2->item(form.List2->currentRow(), 1)));
        }
        // The 101st does not fit: filling the table stops with error 9.
        addQueues(1);
        frmMain form(freePort());
        QCOMPARE(form.List2->count(), 101);
        QCOMPARE(form.FG2->rowCount(), 101);
        QCOMPARE(form.FG2->item(100, 1)->text(), form.List2->item(100)->text());
        QCOMPARE(m_shown.size(), 1);
        QCOMPARE(m_shown[0].text, QStringLiteral("Run-time error '9': Subscript out of range"));
    }

    void gridRowChangeMovesTheHighlight()
    {
        frmMain form(freePort());
        const int from = rowOf(form.List2, pdfQueue());
        const int to = rowOf(form.List2, rejectQueue());
        QVERIFY(isYellow(form.FG2->item(from, 1)));
        form.FG2->setCurrentCell(to, 1);
        QVERIFY(!isYellow(form.FG2->item(from, 1)));
        QCOMPARE(form.FG2->item(from, 1)->background().color(), QColor(255, 255, 255));
        QVERIFY(isYellow(form.FG2->item(to, 1)));
        QCOMPARE(form.List2->currentItem()->text(), rejectQueue());
        QCOMPARE(SettingsStore::get(QStringLiteral("Name")), rejectQueue());
        QCOMPARE(form.TxtEdit->geometry(), form.FG2->visualItemRect(form.FG2->item(to, 1)));
        // The status column is another column of the same row: no change.
        form.FG2->setCurrentCell(to, 0);
        QVERIFY(isYellow(form.FG2->item(to, 1)));
    }

    void listSavesTheChoiceOnMouseUpAndKeyUp()
    {
        frmMain form(freePort());
        form.show();
        QVERIFY(QTest::qWaitForWindowExposed(&form));
        QListWidget* list = form.List2;
        const int target = rowOf(list, fileQueue());
        const QRect rect = list->visualItemRect(list->item(target));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rect.center());
        QCOMPARE(list->currentRow(), target);
        QCOMPARE(SettingsStore::get(QStringLiteral("Name")), fileQueue());

        list->setFocus();
        const int next = target == 0 ? 1 : 0;
        QTest::keyClick(list, next > target ? Qt::Key_Down : Qt::Key_Up);
        QCOMPARE(list->currentRow(), next);
        QCOMPARE(SettingsStore::get(QStringLiteral("Name")), list->item(next)->text());
    }

    void offlineCheckAsksCups()
    {
        frmMain form(freePort());
        const int reject = rowOf(form.List2, rejectQueue());
        const int file = rowOf(form.List2, fileQueue());
        const int pdf = rowOf(form.List2, pdfQueue());
        // One check, one second after the list was filled.
        QVERIFY(form.Timer1->isActive());
        QTRY_COMPARE_WITH_TIMEOUT(form.printerTableStatus(reject + 1), QStringLiteral("True"),
                                  5000);
        QVERIFY(!form.Timer1->isActive());
        QCOMPARE(form.printerTableStatus(pdf + 1), QStringLiteral("False"));
        QCOMPARE(form.printerTableStatus(file + 1), QStringLiteral("False"));
        QCOMPARE(pictureKey(form.FG2, reject), form.picUnC->pixmap().cacheKey());
        QCOMPARE(pictureKey(form.FG2, pdf), form.picC->pixmap().cacheKey());
        QVERIFY(form.picC->pixmap().cacheKey() != form.picUnC->pixmap().cacheKey());

        // A stopped queue is off-line too; Command9 checks again.
        run(QStringLiteral("cupsdisable"), {fileQueue()});
        form.Command9->click();
        QVERIFY(form.Timer1->isActive());
        QTRY_COMPARE_WITH_TIMEOUT(form.printerTableStatus(file + 1), QStringLiteral("True"), 5000);
        QCOMPARE(pictureKey(form.FG2, file), form.picUnC->pixmap().cacheKey());
        run(QStringLiteral("cupsenable"), {fileQueue()});
        form.Command9_Click();
        QTRY_COMPARE_WITH_TIMEOUT(form.printerTableStatus(file + 1), QStringLiteral("False"), 5000);
        QCOMPARE(pictureKey(form.FG2, file), form.picC->pixmap().cacheKey());
        QCOMPARE(form.printerTableStatus(reject + 1), QStringLiteral("True"));

        const QMap<QString, bool> states = PrinterTools::offlineStates();
        QCOMPARE(states.value(rejectQueue()), true);
        QCOMPARE(states.value(pdfQueue()), false);
        QVERIFY(!PrinterTools::acceptsJobs(rejectQueue()));
        QVERIFY(PrinterTools::acceptsJobs(pdfQueue()));
    }

    void selectPrinterByNameIsExact()
    {
        frmMain form(freePort());
        CurrentPrinter::Select(QPrinterInfo::printerInfo(fileQueue()));
        QCOMPARE(CurrentPrinter::DeviceName(), fileQueue());
        for (const QString& name : {pdfQueue().toLower(), pdfQueue().toUpper(),
                                    pdfQueue() + QStringLiteral(" "), QStringLiteral("Nowhere")}) {
            form.SelectPrinterByName(name);
            QCOMPARE(CurrentPrinter::DeviceName(), fileQueue());
        }
        form.SelectPrinterByName(pdfQueue());
        QCOMPARE(CurrentPrinter::DeviceName(), pdfQueue());
    }

    void printTiffPutsEveryFrameOnOneSheet()
    {
        frmMain form(freePort());
        CurrentPrinter::Select(QPrinterInfo::printerInfo(fileQueue()));
        const QStringList before = printedPdfs();

        // As the dispatch does it: remember, switch, print, switch back.
        const QString remembered = CurrentPrinter::DeviceName();
        form.SelectPrinterByName(pdfQueue());
        // The file turns up only after printing began to wait for it.
        const QString path = m_dir->filePath(QStringLiteral("File_261122_101010.tif"));
        QTimer::singleShot(300, this, [&] { QFile::copy(m_tiff3, path); });
        form.PrintTiff(path);
        QVERIFY(CurrentPrinter::HasOpenDocument());
        form.SelectPrinterByName(remembered);
        QCOMPARE(CurrentPrinter::DeviceName(), fileQueue());
        QVERIFY(!CurrentPrinter::HasOpenDocument());
        QVERIFY(logged(QStringLiteral("sent to printer \"%1\"").arg(pdfQueue())));

        const QString pdf = waitForNewPdf(before);
        QVERIFY2(!pdf.isEmpty(), "no PDF from cups-pdf within 60 s");
        QVERIFY2(QFileInfo(pdf).fileName().contains(QStringLiteral("File_261122_101010")),
                 qPrintable(pdf));
        const QString info = run(QStringLiteral("pdfinfo"), {pdf});
        QVERIFY2(info.contains(QRegularExpression(QStringLiteral("Pages:\\s+1\\n"))),
                 qPrintable(info));
        // The three pages, one over the other on the one sheet.
        const QString images = run(QStringLiteral("pdfimages"), {QStringLiteral("-list"), pdf});
        QCOMPARE(images.count(QRegularExpression(QStringLiteral("(?m)^\\s+1\\s+\\d+\\s+image"))),
                 3);
        QVERIFY(m_shown.isEmpty());
    }

    void theOpenDocumentIsPrintedWhenTheProgramEnds()
    {
        frmMain form(freePort());
        const QStringList before = printedPdfs();
        const QString path = m_dir->filePath(QStringLiteral("File_261122_202020.tif"));
        QVERIFY(QFile::copy(m_tiff1, path));
        form.PrintTiff(path);
        QVERIFY(CurrentPrinter::HasOpenDocument());
        // The event loop ends as "Exit" or a termination signal ends it.
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();
        QVERIFY(!CurrentPrinter::HasOpenDocument());
        const QString pdf = waitForNewPdf(before);
        QVERIFY2(!pdf.isEmpty(), "no PDF from cups-pdf within 60 s");
        QVERIFY(QFileInfo(pdf).fileName().contains(QStringLiteral("File_261122_202020")));
    }

    void aQueueThatRejectsJobsIsLogged()
    {
        frmMain form(freePort());
        form.SelectPrinterByName(rejectQueue());
        QCOMPARE(CurrentPrinter::DeviceName(), rejectQueue());
        form.PrintTiff(m_tiff1);
        form.SelectPrinterByName(pdfQueue());
        const QString line =
            QStringLiteral("Printer \"%1\" does not accept jobs").arg(rejectQueue());
        QVERIFY2(logged(line), qPrintable(m_log.join(u'\n')));
        QVERIFY(form.txtLog->text().contains(line));
        QVERIFY(m_shown.isEmpty());
    }

    void aTiffStillOpenForWritingIsNotLoaded()
    {
        frmMain form(freePort());
        const QString path = m_dir->filePath(QStringLiteral("writing.tif"));
        QVERIFY(QFile::copy(m_tiff1, path));
        QProcess writer;
        writer.start(QStringLiteral("bash"),
                     {QStringLiteral("-c"), QStringLiteral("exec 3>>\"$1\"; echo open; sleep 60"),
                      QStringLiteral("writer"), path});
        QVERIFY(writer.waitForReadyRead(10000));
        QVERIFY(!form.TiffLoadFile(path));
        writer.kill();
        writer.waitForFinished();
        QVERIFY(form.TiffLoadFile(path));
        QVERIFY(!form.TiffLoadFile(m_dir->filePath(QStringLiteral("missing.tif"))));
    }

    void printerToolsOpenTheSchedulersPages()
    {
        const QString base =
            QStringLiteral("http://localhost:%1").arg(m_cups.value(QStringLiteral("CUPS_PORT")));
        QCOMPARE(PrinterTools::propertiesTarget(pdfQueue()),
                 base + QStringLiteral("/printers/") + pdfQueue());
        QCOMPARE(PrinterTools::queueTarget(pdfQueue()), base + QStringLiteral("/printers/") +
                                                            pdfQueue() +
                                                            QStringLiteral("?which_jobs=all"));
        QCOMPARE(PrinterTools::printerListTarget(), base + QStringLiteral("/printers/"));
        // Each page exists on the scheduler and names the queue.
        QNetworkAccessManager net;
        for (QString url :
             {PrinterTools::propertiesTarget(pdfQueue()), PrinterTools::queueTarget(pdfQueue()),
              PrinterTools::printerListTarget()}) {
            url.replace(QStringLiteral("localhost"), QStringLiteral("127.0.0.1"));
            std::unique_ptr<QNetworkReply> reply(net.get(QNetworkRequest(QUrl(url))));
            QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 10000);
            QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
            QVERIFY(reply->readAll().contains(pdfQueue().toUtf8()));
        }
    }

    void command3OpensTheScanWindow()
    {
        frmMain form(freePort());
        form.Command3->click();
        // Modeless and owned by the main window.
        FrmNetScan* scan = form.findChild<FrmNetScan*>();
        QVERIFY(scan);
        QTRY_VERIFY(scan->isVisible());
        QVERIFY(!scan->isModal());
        form.Command3->click(); // the same window again
        QCOMPARE(form.findChildren<FrmNetScan*>().size(), 1);
        // No output file yet: the folder button does nothing.
        form.TxtPath->clear();
        m_log.clear();
        form.Command6->click();
        QVERIFY(m_log.isEmpty());
    }
};

int main(int argc, char* argv[])
{
    // The private scheduler, before anything asks CUPS for printers.
    const QMap<QString, QString> cups = serviceEnv(QStringLiteral("cups"));
    if (!cups.isEmpty()) {
        qputenv("CUPS_SERVER", cups.value(QStringLiteral("CUPS_SERVER")).toLocal8Bit());
        qputenv("IPP_PORT", cups.value(QStringLiteral("CUPS_PORT")).toLocal8Bit());
    }
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    TestPrinting test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_printing.moc"
