// --output, --colour and --printer choose what a server without its window
// does with jobs, as clicks in the window would.

#include "dispatchtest.h"

#include "server/runoptions.h"

#include <QListWidget>

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
    void parsing()
    {
        bool ok = false;
        RunOptions o = parsed({"--output", "TIFF", "--colour", "--printer", "Office"}, &ok);
        QVERIFY(ok);
        QCOMPARE(o.output, QStringLiteral("tiff"));
        QVERIFY(o.colour);
        QCOMPARE(o.printer, QStringLiteral("Office"));

        o = parsed({}, &ok);
        QVERIFY(ok);
        QVERIFY(o.output.isEmpty() && !o.colour && o.printer.isNull());

        for (const QStringList& bad : {QStringList{"--output", "fax"}, QStringList{"--output"}}) {
            parsed(bad, &ok);
            QVERIFY(!ok);
        }
    }

    void outputSelectsTheButtons_data()
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
        QTest::newRow("jpeg, colour")
            << QStringList{"--output", "jpeg", "--colour"} << "Option2 Option5 Option7"
            << ".tif";
        QTest::newRow("print") << QStringList{"--output", "print"} << "Option3 Option6 Option8"
                               << ".tif";
    }

    void outputSelectsTheButtons()
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

    void cloudNeedsItsServer()
    {
        {
            Server s;
            parsed({"--output", "cloud"}).apply(*s.window);
            QVERIFY(
                !s.window->Option9->isChecked()); // no cloud server chosen: the click does nothing
            QVERIFY(s.window->Option1->isChecked());
        }
        CloudAccount account;
        Server s;
        parsed({"--output", "cloud"}).apply(*s.window);
        QVERIFY(s.window->Option9->isChecked());
    }

    void printerIsChosenAsAClickWould()
    {
        Server s;
        frmMain& w = *s.window;
        w.List2->clear();
        w.List2->addItems({"Office Laser", " desk jet ", "laser", "Laser"});
        // Trimmed and case-blind; the exact name comes before one that differs in
        // case only; an unknown name changes nothing.
        for (auto [given, chosen] :
             {std::pair{"DESK JET", " desk jet "}, {"Laser", "Laser"}, {"nowhere", "Laser"}}) {
            parsed({"--printer", given}).apply(w);
            QCOMPARE(w.List2->currentItem()->text(), QLatin1String(chosen));
            QCOMPARE(SettingsStore::get(QStringLiteral("Name")), QLatin1String(chosen));
        }
    }
};

QTEST_MAIN(TestRunOptions)
#include "tst_runoptions.moc"
