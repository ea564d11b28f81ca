// --output, --colour and --printer choose what a server without its window
// does with jobs, as clicks in the window would.

#include "dispatchtest.h"

#include "common/settings.h"
#include "server/runoptions.h"

#include <QLineEdit>
#include <QListWidget>
#include <QRadioButton>

namespace
{
RunOptions parsed(const QStringList& args, bool* ok = nullptr)
{
    RunOptions o;
    const bool good = o.parse(QStringList{QStringLiteral("quorvel")} + args);
    if (ok)
        *ok = good;
    return o;
}
} // namespace

class TestRunOptions : public QObject
{
    Q_OBJECT
private slots:
    void parsing();
    void outputSelectsTheButtons_data();
    void outputSelectsTheButtons();
    void cloudNeedsItsServer();
    void printerIsChosenAsAClickWould();
};

void TestRunOptions::parsing()
{
    bool ok = false;
    RunOptions o = parsed({"--output", "TIFF", "--colour", "--printer", "Office"}, &ok);
    QVERIFY(ok);
    QCOMPARE(o.output, QStringLiteral("tiff"));
    QVERIFY(o.colour);
    QCOMPARE(o.printer, QStringLiteral("Office"));

    o = parsed({}, &ok);
    QVERIFY(ok);
    QVERIFY(o.output.isEmpty());
    QVERIFY(!o.colour);
    QVERIFY(o.printer.isNull());

    parsed({"--output", "fax"}, &ok);
    QVERIFY(!ok);
    parsed({"--output"}, &ok);
    QVERIFY(!ok);
}

void TestRunOptions::outputSelectsTheButtons_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("checked"); // the buttons expected on, by name
    QTest::addColumn<QString>("extension");

    QTest::newRow("none") << QStringList{} << "Option1 Option6 Option8"
                          << ".pdf";
    QTest::newRow("pdf") << QStringList{"--output", "pdf"} << "Option1 Option6 Option8"
                         << ".pdf";
    QTest::newRow("tiff") << QStringList{"--output", "tiff"} << "Option2 Option4 Option6"
                          << ".tif";
    QTest::newRow("jpeg, colour") << QStringList{"--output", "jpeg", "--colour"}
                                  << "Option2 Option5 Option7"
                                  << ".tif";
    QTest::newRow("print") << QStringList{"--output", "print"} << "Option3 Option6 Option8"
                           << ".tif";
}

void TestRunOptions::outputSelectsTheButtons()
{
    QFETCH(QStringList, args);
    QFETCH(QString, checked);
    QFETCH(QString, extension);
    Server s;
    frmMain& w = *s.window;
    parsed(args).apply(w);
    const QList<QRadioButton*> all{w.Option1, w.Option2, w.Option3, w.Option4, w.Option5,
                                   w.Option6, w.Option7, w.Option8, w.Option9};
    QStringList on;
    for (int i = 0; i < all.size(); ++i)
        if (all[i]->isChecked())
            on << QStringLiteral("Option%1").arg(i + 1);
    QCOMPARE(on.join(u' '), checked);
    QVERIFY(w.TxtPath->text().endsWith(extension));
}

void TestRunOptions::cloudNeedsItsServer()
{
    {
        Server s;
        parsed({"--output", "cloud"}).apply(*s.window);
        QVERIFY(!s.window->Option9->isChecked()); // no cloud server chosen: the click does nothing
        QVERIFY(s.window->Option1->isChecked());
    }
    SettingsStore::put(QStringLiteral("CloudClientUserId"), QStringLiteral("alice"));
    SettingsStore::put(QStringLiteral("CloudClientServerId"), QStringLiteral("srv1"));
    Server s;
    parsed({"--output", "cloud"}).apply(*s.window);
    QVERIFY(s.window->Option9->isChecked());
    SettingsStore::remove(QStringLiteral("CloudClientUserId"));
    SettingsStore::remove(QStringLiteral("CloudClientServerId"));
}

void TestRunOptions::printerIsChosenAsAClickWould()
{
    Server s;
    frmMain& w = *s.window;
    w.List2->clear();
    w.List2->addItems({"Office Laser", " desk jet ", "laser", "Laser"});

    parsed({"--printer", "DESK JET"}).apply(w);
    QCOMPARE(w.List2->currentItem()->text(), QStringLiteral(" desk jet "));
    QCOMPARE(SettingsStore::get(QStringLiteral("Name")), QStringLiteral(" desk jet "));

    // The exact name comes before one that differs in case only.
    parsed({"--printer", "Laser"}).apply(w);
    QCOMPARE(w.List2->currentItem()->text(), QStringLiteral("Laser"));
    QCOMPARE(SettingsStore::get(QStringLiteral("Name")), QStringLiteral("Laser"));

    // An unknown name changes nothing.
    parsed({"--printer", "nowhere"}).apply(w);
    QCOMPARE(w.List2->currentItem()->text(), QStringLiteral("Laser"));
    QCOMPARE(SettingsStore::get(QStringLiteral("Name")), QStringLiteral("Laser"));
}

QTEST_MAIN(TestRunOptions)
#include "tst_runoptions.moc"
