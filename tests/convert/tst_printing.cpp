// Printing and the printer list on the cups fixture's queues; the TIFFs are convert_pages'.
#include "convert/currentprinter.h"
#include "convert/printers.h"
#include "netscan/frmnetscan.h"
#include "platform/printertools.h"
#include "testsupport.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPrinterInfo>
#include <QScopeGuard>
#include <QTableWidget>
#include <QTimer>
#include <cups/cups.h>

namespace
{
QColor background(const frmMain& form, int row)
{
    return form.FG2->item(row, 1)->background().color();
}

// The row's state in the table and its picture: red is off-line, green on-line.
QString status(const frmMain& form, int row)
{
    const QImage p = form.FG2->item(row, 0)->data(Qt::DecorationRole).value<QPixmap>().toImage();
    const QString state = form.printerTableStatus(row + 1);
    return p.isNull() ? state : state + (qRed(p.pixel(8, 4)) > 128 ? " red" : " green");
}
} // namespace

class TestPrinting : public QObject
{
    Q_OBJECT
    Cups m_cups;
    const QString m_pdf = m_cups.pdfQueue(), m_file = m_cups.fileQueue(),
                  m_reject = m_cups.rejectQueue();
    const QString m_pages = qEnvironmentVariable("QUORVEL_TEST_PAGES") + '/';
    std::unique_ptr<QTemporaryDir> m_dir;
    QStringList m_log;
    QList<Message> m_shown;

private slots:
    void initTestCase()
    {
        const QStringList names = installedPrinterNames();
        for (const QString& q : {m_pdf, m_file, m_reject})
            QVERIFY2(!q.isEmpty() && names.contains(q), qPrintable(names.join(u',')));
        QVERIFY2(QFile::exists(m_pages + "tifflzw-3.tif"), "no pages: convert_pages renders them");
        Log::setSink([this](const QString& line) { m_log.append(line); });
        setMsgRecorder([this](const Message& m) { m_shown.append(m); });
    }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        Paths::setProgramFolder(m_dir->path());
        SettingsStore::setFolder(m_dir->filePath("settings"));
        m_log.clear(), m_shown.clear();
        CurrentPrinter::Select(QPrinterInfo::printerInfo(m_pdf));
    }
    void cleanup() { CurrentPrinter::EndDoc(); }

    void thePrinterListAndItsButtons()
    {
        // Without a remembered name the default printer is chosen.
        auto form = std::make_unique<frmMain>(freePort());
        form->show();
        QVERIFY(QTest::qWaitForWindowExposed(form.get()));
        const QStringList names = installedPrinterNames();
        const int pdf = names.indexOf(m_pdf), reject = names.indexOf(m_reject),
                  file = names.indexOf(m_file), next = file > 0 ? file - 1 : file + 1;
        QCOMPARE(rowTexts(form->List2), names);
        QCOMPARE(form->FG2->rowCount(), names.size());
        for (int i = 0; i < names.size(); ++i) {
            QCOMPARE(form->FG2->item(i, 1)->text(), names[i]);
            QCOMPARE(form->printerTableName(i + 1), names[i]);
            QCOMPARE(status(*form, i), ""); // not checked yet
            QCOMPARE(background(*form, i) == Qt::yellow, i == pdf);
        }
        QVERIFY(form->printerTableName(0).isEmpty() && form->FG2->currentRow() == pdf);
        QCOMPARE(form->List2->currentRow(), pdf);
        QCOMPARE(SettingsStore::get("Name"), m_pdf);

        // A row of the grid, whatever its column, moves the highlight and chooses its printer.
        form->FG2->setCurrentCell(reject, 1);
        form->FG2->setCurrentCell(reject, 0);
        QVERIFY(background(*form, pdf) == Qt::white && background(*form, reject) == Qt::yellow);
        QCOMPARE(form->List2->currentRow(), reject);
        QCOMPARE(SettingsStore::get("Name"), m_reject);
        QCOMPARE(form->findChild<QLineEdit*>("TxtEdit")->geometry(),
                 form->FG2->visualItemRect(form->FG2->item(reject, 1)));
        // A click or a key in the list saves its choice.
        QListWidget* list = form->List2;
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                          list->visualItemRect(list->item(file)).center());
        QCOMPARE(SettingsStore::get("Name"), m_file);
        list->setFocus();
        QTest::keyClick(list, next > file ? Qt::Key_Down : Qt::Key_Up);
        QCOMPARE(SettingsStore::get("Name"), list->item(next)->text());

        // One check, a moment after the list was filled; a stopped queue is off-line at the next.
        QTRY_COMPARE_WITH_TIMEOUT(status(*form, reject), "True red", 5000);
        QVERIFY(status(*form, pdf) == "False green" && status(*form, file) == "False green");
        runTool("cupsdisable", {m_file});
        QTest::qWait(1500);
        QCOMPARE(status(*form, file), "False green");
        form->findChild<QPushButton*>("Command9")->click();
        QTRY_COMPARE_WITH_TIMEOUT(status(*form, file), "True red", 5000);
        runTool("cupsenable", {m_file});
        form->Command9_Click();
        QTRY_COMPARE_WITH_TIMEOUT(status(*form, file), "False green", 5000);
        QCOMPARE(status(*form, reject), "True red");

        // A remembered name selects its printer whatever its case and blanks.
        SettingsStore::put("Name", "  " + m_file.toUpper() + " ");
        form = std::make_unique<frmMain>(freePort());
        QVERIFY(form->List2->currentRow() == file && background(*form, file) == Qt::yellow);
        QCOMPARE(SettingsStore::get("Name"), m_file);
        QCOMPARE(form->printerName(), "  " + m_file.toUpper() + " ");
        // One modeless scan window; without an output file the folder button does nothing.
        form->Command3_Click();
        form->Command3_Click();
        QCOMPARE(form->findChildren<FrmNetScan*>().size(), 1);
        QTRY_VERIFY(form->findChild<FrmNetScan*>()->isVisible());
        QVERIFY(!form->findChild<FrmNetScan*>()->isModal());
        form->findChild<QLineEdit*>("TxtPath")->clear();
        m_log.clear();
        form->Command6_Click();
        QVERIFY(m_log.isEmpty());
    }

    void theTableHoldsOneHundredPrinters()
    {
        // Raw queues that print nowhere, removed again at the end.
        QStringList extra;
        const auto remove = qScopeGuard([&] {
            for (const QString& n : extra)
                runTool("lpadmin", {"-x", n});
        });
        for (qsizetype i = installedPrinterNames().size(); i < 101; ++i) {
            extra.append(QString("Extra%1").arg(i, 3, 10, QChar(u'0')));
            runTool("lpadmin", {"-p", extra.last(), "-v", "file:///dev/null", "-E"});
        }
        // The 101st does not fit: filling the table stops with error 9.
        frmMain form(freePort());
        QVERIFY(form.List2->count() == 101 && form.FG2->rowCount() == 101);
        QCOMPARE(form.printerTableName(100), form.List2->item(99)->text());
        QCOMPARE(form.FG2->item(100, 1)->text(), form.List2->item(100)->text());
        QCOMPARE(m_shown.size(), 1);
        QCOMPARE(m_shown[0].text, "Run-time error '9': Subscript out of range");
    }

    void printTiffPutsEveryFrameOnOneSheet()
    {
        frmMain form(freePort());
        // As the dispatch does it: remember, switch by the exact name, print, switch back.
        form.SelectPrinterByName(m_file);
        for (const QString& name : {m_pdf.toLower(), m_pdf.toUpper(), m_pdf + " ", QString("x")})
            form.SelectPrinterByName(name);
        QCOMPARE(CurrentPrinter::DeviceName(), m_file);
        QStringList before = m_cups.printed();
        form.SelectPrinterByName(m_pdf);
        // The file turns up only after printing began to wait for it.
        const QString path = m_dir->filePath("File_261122_101010.tif");
        QTimer::singleShot(300, this, [&] { QFile::copy(m_pages + "tifflzw-3.tif", path); });
        form.PrintTiff(path);
        QVERIFY(CurrentPrinter::HasOpenDocument());
        form.SelectPrinterByName(m_file);
        QVERIFY(CurrentPrinter::DeviceName() == m_file && !CurrentPrinter::HasOpenDocument());
        QVERIFY(m_log.join('\n').endsWith("sent to printer \"" + m_pdf + '"'));
        QString pdf;
        QTRY_VERIFY_WITH_TIMEOUT(!(pdf = m_cups.newCompletePdf(before)).isEmpty(), 60000);
        QVERIFY2(pdf.contains("File_261122_101010") && pdfPages(pdf) == 1, qPrintable(pdf));
        // The three pages, one over the other on the one sheet.
        const QString images = runTool("pdfimages", {"-list", pdf});
        QCOMPARE(images.count(QRegularExpression("(?m)^\\s+1\\s+\\d+\\s+image")), 3);
        // A TIFF that another process still holds open is not loaded.
        {
            FileHolder writer(path);
            QVERIFY(!form.TiffLoadFile(path));
        }
        QVERIFY(form.TiffLoadFile(path) && !form.TiffLoadFile(m_dir->filePath("missing.tif")));
        // A queue that rejects jobs is named in the log.
        form.SelectPrinterByName(m_reject);
        form.PrintTiff(m_pages + "tifflzw-1.tif");
        const QString rejected = "Printer \"" + m_reject + "\" does not accept jobs";
        QVERIFY2(form.txtLog->text().contains(rejected), qPrintable(form.txtLog->text()));

        // A document still open is printed when the event loop ends ("Exit", a termination signal).
        before = m_cups.printed();
        form.SelectPrinterByName(m_pdf);
        QVERIFY(QFile::copy(m_pages + "tifflzw-1.tif", m_dir->filePath("File_261122_202020.tif")));
        form.PrintTiff(m_dir->filePath("File_261122_202020.tif"));
        QVERIFY(CurrentPrinter::HasOpenDocument());
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();
        QVERIFY(!CurrentPrinter::HasOpenDocument());
        QTRY_VERIFY_WITH_TIMEOUT(m_cups.newCompletePdf(before).contains("File_261122_202020"),
                                 60000);
        QVERIFY(m_shown.isEmpty());
    }

    void withoutPrintersAPrintIsLogged()
    {
        // A scheduler that does not answer has no printers to offer.
        cupsSetServer(qPrintable(m_dir->filePath("nothing.sock")));
        const auto restore = qScopeGuard([] { cupsSetServer(qgetenv("CUPS_SERVER")); });
        frmMain form(freePort());
        QVERIFY(form.List2->count() == 1 && form.FG2->rowCount() == 1);
        QCOMPARE(form.List2->item(0)->text(), "(No Printer Installed)");
        QCOMPARE(form.printerTableName(1), "(No Printer Installed)");
        // Nothing matches it, so the current printer stays.
        form.SelectPrinterByName(form.List2->item(0)->text());
        QCOMPARE(CurrentPrinter::DeviceName(), m_pdf);
        // Without any printer a print says so in the log and goes on.
        CurrentPrinter::Select(QPrinterInfo::defaultPrinter());
        QCOMPARE(CurrentPrinter::DeviceName(), QString());
        form.PrintTiff(m_pages + "tifflzw-1.tif");
        QVERIFY(!CurrentPrinter::HasOpenDocument() && m_shown.isEmpty());
        QVERIFY2(form.txtLog->text().endsWith("Cannot print on printer \"\"\r\n"),
                 qPrintable(form.txtLog->text()));
    }

    void printerToolsOpenTheSchedulersPages()
    {
        const QString printers = "http://localhost:" + m_cups.value("CUPS_PORT") + "/printers/";
        QNetworkAccessManager net;
        // Each page exists on the scheduler and names the queue.
        const std::wstring pdf = m_pdf.toStdWString();
        for (auto [target, expected] :
             {std::pair{PrinterTools::propertiesTarget(pdf), printers + m_pdf},
              {PrinterTools::queueTarget(pdf), printers + m_pdf + "?which_jobs=all"},
              {PrinterTools::printerListTarget(), printers}}) {
            QCOMPARE(QString::fromStdWString(target), expected);
            std::unique_ptr<QNetworkReply> reply(net.get(QNetworkRequest(
                QUrl(QString::fromStdWString(target).replace("localhost", "127.0.0.1")))));
            QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 10000);
            QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
            QVERIFY(reply->readAll().contains(m_pdf.toUtf8()));
        }
    }
};

QUORVEL_CUPS_TEST_MAIN(TestPrinting)
#include "tst_printing.moc"
