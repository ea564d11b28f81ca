// "Print to Printer": a job sent over TCP is printed on the printer chosen in
// the list, through a private CUPS scheduler with a cups-pdf queue, and the
// previous printer is current again afterwards.

#include "dispatchtest.h"

#include "convert/currentprinter.h"

#include <QListWidget>

class TestPrint : public QObject
{
    Q_OBJECT
    Cups m_cups;

private slots:
    void initTestCase() { QVERIFY2(!m_cups.env.isEmpty(), "the cups fixture wrote no cups.env"); }

    void printsOnTheChosenPrinterAndSwitchesBack_data()
    {
        QTest::addColumn<int>("pages");
        QTest::newRow("1 page") << 1;
        // Every frame is painted onto the one sheet.
        QTest::newRow("3 pages") << 3;
    }

    void printsOnTheChosenPrinterAndSwitchesBack()
    {
        QFETCH(int, pages);
        Server s;
        frmMain& w = *s.window;
        // Current: the file queue; chosen in the list: the cups-pdf queue.
        w.SelectPrinterByName(m_cups.fileQueue());
        QCOMPARE(CurrentPrinter::DeviceName(), m_cups.fileQueue());
        const QList<QListWidgetItem*> items =
            w.List2->findItems(m_cups.pdfQueue(), Qt::MatchExactly);
        QCOMPARE(items.size(), 1);
        w.List2->setCurrentItem(items.first());
        choose(w, QStringLiteral("print"));

        const QStringList before = m_cups.printed();
        sendJob(s.port, makePsJob(pages));
        QTRY_VERIFY_WITH_TIMEOUT(!w.fileName().isEmpty() && w.jobBuffer().isEmpty() &&
                                     w.TxtPath->text().endsWith(".tif") && s.jobFiles().isEmpty() &&
                                     w.connectionCount() == 0,
                                 120000);
        QVERIFY2(s.messages.empty(), qPrintable(s.shown()));
        // Back on the previous printer; leaving the chosen one sent the page.
        QCOMPARE(CurrentPrinter::DeviceName(), m_cups.fileQueue());
        QString pdf;
        QTRY_VERIFY_WITH_TIMEOUT(!(pdf = m_cups.newCompletePdf(before)).isEmpty(), 60000);
        QCOMPARE(pdfPages(pdf), 1);
    }
};

QUORVEL_CUPS_TEST_MAIN(TestPrint)
#include "tst_print.moc"
