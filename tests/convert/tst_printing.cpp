// Printing and the printer list against a real CUPS scheduler (the "cups"
// fixture): a cups-pdf queue whose printed pages land as PDF files, a file
// queue and a queue that rejects jobs.
#include "common/log.h"
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "convert/currentprinter.h"
#include "convert/printers.h"
#include "converttest.h"
#include "testsupport.h"
#include "netscan/frmnetscan.h"
#include "platform/printertools.h"
#include "testsupport.h"
#include "server/frmmain.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPrinterInfo>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <cups/cups.h>
#include <memory>

namespace
{
int rowOf(const QListWidget* list, const QString& text)
{
    const QList<QListWidgetItem*> found = list->findItems(text, Qt::MatchExactly);
    return found.size() == 1 ? list->row(found.first()) : -1;
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
    Cups m_cups;
    QTemporaryDir m_pages;
    QString m_tiff1, m_tiff3;
    std::unique_ptr<QTemporaryDir> m_dir;
    QStringList m_log;
    QList<Message> m_shown;

    QString newPdf(const QStringList& before)
    {
        QString pdf;
        (void)QTest::qWaitFor([&] { return !(pdf = m_cups.newCompletePdf(before)).isEmpty(); },
                              60000);
        return pdf;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(!m_cups.env.isEmpty(), "the cups fixture wrote no cups.env");
        QCOMPARE(qEnvironmentVariable("CUPS_SERVER"), m_cups.value("CUPS_SERVER"));
        const QStringList names = installedPrinterNames();
        for (const QString& q : {m_cups.pdfQueue(), m_cups.fileQueue(), m_cups.rejectQueue()})
            QVERIFY2(names.contains(q), qPrintable(names.join(u',')));
        QString error;
        m_tiff1 = renderPages(m_pages.path(), 1, QStringLiteral("tifflzw"), &error);
        QVERIFY2(!m_tiff1.isEmpty(), qPrintable(error));
        m_tiff3 = renderPages(m_pages.path(), 3, QStringLiteral("tifflzw"), &error);
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
        CurrentPrinter::Select(QPrinterInfo::printerInfo(m_cups.pdfQueue()));
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
        QCOMPARE(form.List2->currentItem()->text(), m_cups.fileQueue());
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
        // The row handler ran once and saved the list's choice.
        QCOMPARE(SettingsStore::get(QStringLiteral("Name")), m_cups.fileQueue());
        QCOMPARE(form.printerName(), QStringLiteral("  quorvelFILE "));
    }

    void noPrinterLeavesOneLine()
    {
        // A scheduler that does not answer has no printers to offer.
        cupsSetServer(qPrintable(m_dir->filePath(QStringLiteral("nothing.sock"))));
        struct Restore {
            QString server;
            ~Restore() { cupsSetServer(qPrintable(server)); }
        } restore{m_cups.value("CUPS_SERVER")};
        frmMain form(freePort());
        QCOMPARE(form.List2->count(), 1);
        QCOMPARE(form.List2->item(0)->text(), QStringLiteral("(No Printer Installed)"));
        QCOMPARE(form.FG2->rowCount(), 1);
        QCOMPARE(form.printerTableName(1), QStringLiteral("(No Printer Installed)"));
        // Nothing matches it, so the current printer stays.
        form.SelectPrinterByName(form.List2->item(0)->text());
        QCOMPARE(CurrentPrinter::DeviceName(), m_cups.pdfQueue());

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
        struct Extra : QStringList {
            void add(int count)
            {
                for (int i = 0; i < count; ++i) {
                    append(QStringLiteral("Extra%1").arg(size() + 1, 3, 10, QChar(u'0')));
                    runTool(QStringLiteral("lpadmin"),
                            {QStringLiteral("-p"), last(), QStringLiteral("-v"),
                             QStringLiteral("file:///dev/null"), QStringLiteral("-E")});
                }
            }
            ~Extra()
            {
                for (const QString& n : *this)
                    runTool(QStringLiteral("lpadmin"), {QStringLiteral("-x"), n});
            }
        } extra;
        extra.add(100 - int(installedPrinterNames().size()));
        QCOMPARE(installedPrinterNames().size(), 100);
        {
            frmMain form(freePort());
            QVERIFY(m_shown.isEmpty());
            QCOMPARE(form.FG2->rowCount(), 100);
            QCOMPARE(form.printerTableName(100), form.List2->item(99)->text());
            QVERIFY(isYellow(form.FG2->item(form.List2->currentRow(), 1)));
        }
        // The 101st does not fit: filling the table stops with error 9.
        extra.add(1);
        frmMain form(freePort());
        QCOMPARE(form.List2->count(), 101);
        QCOMPARE(form.FG2->rowCount(), 101);
        QCOMPARE(form.FG2->item(100, 1)->text(), form.List2->item(100)->text());
        QCOMPARE(m_shown.size(), 1);
        QCOMPARE(m_shown[0].text, QStringLiteral("Run-time error '9': Subscript out of range"));
    }

    void gridRowChangeMovesTheHighlight()
    {
        // Without a remembered name the default printer is chosen.
        frmMain form(freePort());
        QCOMPARE(form.printerName(), m_cups.pdfQueue());
        QCOMPARE(form.List2->currentItem()->text(), m_cups.pdfQueue());
        const int from = form.List2->currentRow();
        const int to = rowOf(form.List2, m_cups.rejectQueue());
        QVERIFY(isYellow(form.FG2->item(from, 1)));
        form.FG2->setCurrentCell(to, 1);
        QCOMPARE(form.FG2->item(from, 1)->background().color(), QColor(255, 255, 255));
        QVERIFY(isYellow(form.FG2->item(to, 1)));
        QCOMPARE(form.List2->currentItem()->text(), m_cups.rejectQueue());
        QCOMPARE(SettingsStore::get(QStringLiteral("Name")), m_cups.rejectQueue());
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
        const int target = rowOf(list, m_cups.fileQueue());
        const QRect rect = list->visualItemRect(list->item(target));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rect.center());
        QCOMPARE(list->currentRow(), target);
        QCOMPARE(SettingsStore::get(QStringLiteral("Name")), m_cups.fileQueue());

        list->setFocus();
        const int next = target == 0 ? 1 : 0;
        QTest::keyClick(list, next > target ? Qt::Key_Down : Qt::Key_Up);
        QCOMPARE(list->currentRow(), next);
        QCOMPARE(SettingsStore::get(QStringLiteral("Name")), list->item(next)->text());
    }

    void offlineCheckAsksCups()
    {
        frmMain form(freePort());
        const int reject = rowOf(form.List2, m_cups.rejectQueue());
        const int file = rowOf(form.List2, m_cups.fileQueue());
        const int pdf = rowOf(form.List2, m_cups.pdfQueue());
        const qint64 online = form.picC->pixmap().cacheKey();
        const qint64 offline = form.picUnC->pixmap().cacheKey();
        QVERIFY(online != offline);
        // One check, one second after the list was filled.
        QVERIFY(form.Timer1->isActive());
        QTRY_COMPARE_WITH_TIMEOUT(form.printerTableStatus(reject + 1), QStringLiteral("True"),
                                  5000);
        QVERIFY(!form.Timer1->isActive());
        QCOMPARE(form.printerTableStatus(pdf + 1), QStringLiteral("False"));
        QCOMPARE(form.printerTableStatus(file + 1), QStringLiteral("False"));
        QCOMPARE(pictureKey(form.FG2, reject), offline);
        QCOMPARE(pictureKey(form.FG2, pdf), online);

        // A stopped queue is off-line too; Command9 checks again.
        runTool(QStringLiteral("cupsdisable"), {m_cups.fileQueue()});
        form.Command9->click();
        QVERIFY(form.Timer1->isActive());
        QTRY_COMPARE_WITH_TIMEOUT(form.printerTableStatus(file + 1), QStringLiteral("True"), 5000);
        QCOMPARE(pictureKey(form.FG2, file), offline);
        runTool(QStringLiteral("cupsenable"), {m_cups.fileQueue()});
        form.Command9_Click();
        QTRY_COMPARE_WITH_TIMEOUT(form.printerTableStatus(file + 1), QStringLiteral("False"), 5000);
        QCOMPARE(pictureKey(form.FG2, file), online);
        QCOMPARE(form.printerTableStatus(reject + 1), QStringLiteral("True"));
    }

    void selectPrinterByNameIsExact()
    {
        frmMain form(freePort());
        const QString pdfQueue = m_cups.pdfQueue();
        CurrentPrinter::Select(QPrinterInfo::printerInfo(m_cups.fileQueue()));
        for (const QString& name : {pdfQueue.toLower(), pdfQueue.toUpper(),
                                    pdfQueue + QStringLiteral(" "), QStringLiteral("Nowhere")}) {
            form.SelectPrinterByName(name);
            QCOMPARE(CurrentPrinter::DeviceName(), m_cups.fileQueue());
        }
        form.SelectPrinterByName(pdfQueue);
        QCOMPARE(CurrentPrinter::DeviceName(), pdfQueue);
    }

    void printTiffPutsEveryFrameOnOneSheet()
    {
        frmMain form(freePort());
        CurrentPrinter::Select(QPrinterInfo::printerInfo(m_cups.fileQueue()));
        const QStringList before = m_cups.printed();

        // As the dispatch does it: remember, switch, print, switch back.
        const QString remembered = CurrentPrinter::DeviceName();
        form.SelectPrinterByName(m_cups.pdfQueue());
        // The file turns up only after printing began to wait for it.
        const QString path = m_dir->filePath(QStringLiteral("File_261122_101010.tif"));
        QTimer::singleShot(300, this, [&] { QFile::copy(m_tiff3, path); });
        form.PrintTiff(path);
        QVERIFY(CurrentPrinter::HasOpenDocument());
        form.SelectPrinterByName(remembered);
        QCOMPARE(CurrentPrinter::DeviceName(), m_cups.fileQueue());
        QVERIFY(!CurrentPrinter::HasOpenDocument());
        QVERIFY(m_log.join(u'\n').contains(
            QStringLiteral("sent to printer \"%1\"").arg(m_cups.pdfQueue())));

        const QString pdf = newPdf(before);
        QVERIFY2(pdf.contains(QStringLiteral("File_261122_101010")), qPrintable(pdf));
        QCOMPARE(pdfPages(pdf), 1);
        // The three pages, one over the other on the one sheet.
        const QString images = runTool(QStringLiteral("pdfimages"), {QStringLiteral("-list"), pdf});
        QCOMPARE(images.count(QRegularExpression(QStringLiteral("(?m)^\\s+1\\s+\\d+\\s+image"))),
                 3);
        QVERIFY(m_shown.isEmpty());
    }

    void theOpenDocumentIsPrintedWhenTheProgramEnds()
    {
        frmMain form(freePort());
        const QStringList before = m_cups.printed();
        const QString path = m_dir->filePath(QStringLiteral("File_261122_202020.tif"));
        QVERIFY(QFile::copy(m_tiff1, path));
        form.PrintTiff(path);
        QVERIFY(CurrentPrinter::HasOpenDocument());
        // The event loop ends as "Exit" or a termination signal ends it.
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();
        QVERIFY(!CurrentPrinter::HasOpenDocument());
        const QString pdf = newPdf(before);
        QVERIFY2(pdf.contains(QStringLiteral("File_261122_202020")), qPrintable(pdf));
    }

    void aQueueThatRejectsJobsIsLogged()
    {
        frmMain form(freePort());
        form.SelectPrinterByName(m_cups.rejectQueue());
        QCOMPARE(CurrentPrinter::DeviceName(), m_cups.rejectQueue());
        form.PrintTiff(m_tiff1);
        form.SelectPrinterByName(m_cups.pdfQueue());
        const QString line =
            QStringLiteral("Printer \"%1\" does not accept jobs").arg(m_cups.rejectQueue());
        QVERIFY2(m_log.join(u'\n').contains(line), qPrintable(m_log.join(u'\n')));
        QVERIFY(form.txtLog->text().contains(line));
        QVERIFY(m_shown.isEmpty());
    }

    void aTiffStillOpenForWritingIsNotLoaded()
    {
        frmMain form(freePort());
        const QString path = m_dir->filePath(QStringLiteral("writing.tif"));
        QVERIFY(QFile::copy(m_tiff1, path));
        {
            FileHolder writer(path);
            QVERIFY(!form.TiffLoadFile(path));
        }
        QVERIFY(form.TiffLoadFile(path));
        QVERIFY(!form.TiffLoadFile(m_dir->filePath(QStringLiteral("missing.tif"))));
    }

    void printerToolsOpenTheSchedulersPages()
    {
        const QString pdfQueue = m_cups.pdfQueue();
        const QString printers =
            QStringLiteral("http://localhost:%1/printers/").arg(m_cups.value("CUPS_PORT"));
        QNetworkAccessManager net;
        // Each page exists on the scheduler and names the queue.
        for (auto [target, expected] :
             {std::pair{PrinterTools::propertiesTarget(pdfQueue), printers + pdfQueue},
              {PrinterTools::queueTarget(pdfQueue), printers + pdfQueue + "?which_jobs=all"},
              {PrinterTools::printerListTarget(), printers}}) {
            QCOMPARE(target, expected);
            target.replace(QStringLiteral("localhost"), QStringLiteral("127.0.0.1"));
            std::unique_ptr<QNetworkReply> reply(net.get(QNetworkRequest(QUrl(target))));
            QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 10000);
            QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
            QVERIFY(reply->readAll().contains(pdfQueue.toUtf8()));
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

QUORVEL_CUPS_TEST_MAIN(TestPrinting)
#include "tst_printing.moc"
