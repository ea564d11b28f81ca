// "Print to Printer": a job sent over TCP is printed on the printer chosen in
// the list, through a private CUPS scheduler with a cups-pdf queue, and the
// previous printer is current again afterwards.

#include "dispatchtest.h"
#include "psjob.h"
#include "testsupport.h"

#include "convert/currentprinter.h"

#include <QApplication>
#include <QLineEdit>
#include <QListWidget>
#include <QRadioButton>

class TestPrint : public QObject
{
    Q_OBJECT
    QMap<QString, QString> m_cups;

    QString pdfOut() const { return m_cups.value(QStringLiteral("CUPS_PDF_OUT")); }
    QStringList printed() const
    {
        return QDir(pdfOut()).entryList({QStringLiteral("*.pdf")}, QDir::Files, QDir::Name);
    }
    // cups-pdf keeps a PDF private (0600) until it is complete.
    QString newCompletePdf(const QStringList& before) const
    {
        for (const QString& name : printed()) {
            const QFileInfo info(pdfOut() + QStringLiteral("/") + name);
            if (!before.contains(name) && (info.permissions() & QFile::ReadOther))
                return info.filePath();
        }
        return QString();
    }

private slots:
    void initTestCase()
    {
        m_cups = serviceEnv(QStringLiteral("cups"));
        QVERIFY2(!m_cups.isEmpty(), "the cups fixture wrote no cups.env");
    }

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
        const QString pdfQueue = m_cups.value(QStringLiteral("CUPS_PDF_QUEUE"));
        const QString fileQueue = m_cups.value(QStringLiteral("CUPS_FILE_QUEUE"));

        // Current: the file queue; chosen in the list: the cups-pdf queue.
        w.SelectPrinterByName(fileQueue);
        QCOMPARE(CurrentPrinter::DeviceName(), fileQueue);
        const QList<QListWidgetItem*> items = w.List2->findItems(pdfQueue, Qt::MatchExactly);
        QCOMPARE(items.size(), 1);
        w.List2->setCurrentItem(items.first());
        w.Option3->click();

        const QStringList before = printed();
        sendJob(s.port, makePsJob(pages));
        QTRY_VERIFY_WITH_TIMEOUT(!w.fileName().isEmpty() && w.jobBuffer().isEmpty() &&
                                     w.TxtPath->text().endsWith(".tif") && s.jobFiles().isEmpty() &&
                                     w.connectionCount() == 0,
                                 120000);
        QVERIFY2(s.messages.empty(),
                 qPrintable(s.messages.empty() ? QString() : s.messages[0].text));
        // Back on the previous printer; leaving the chosen one sent the page.
        QCOMPARE(CurrentPrinter::DeviceName(), fileQueue);
        QString pdf;
        QTRY_VERIFY_WITH_TIMEOUT(!(pdf = newCompletePdf(before)).isEmpty(), 60000);
        QCOMPARE(pdfPages(pdf), 1);
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
    TestPrint test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_print.moc"
