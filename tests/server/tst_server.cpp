// The main window as it loads and is driven: Output box, command line, ids, TCP intake.
#include "testsupport.h"

#include "server/runoptions.h"

#include <QButtonGroup>
#include <QGroupBox>

namespace
{
std::unique_ptr<QTcpSocket> connectClient(quint16 port)
{
    auto s = std::make_unique<QTcpSocket>();
    s->connectToHost(QHostAddress::LocalHost, port);
    return s->waitForConnected(5000) ? std::move(s) : nullptr;
}

// The server reads in this same thread: events run while the bytes go.
void send(QTcpSocket& s, const QByteArray& data)
{
    s.write(data);
    const QDeadlineTimer deadline(20000);
    while (s.bytesToWrite() > 0 && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
}

RunOptions parsed(const QStringList& args, bool* ok = nullptr)
{
    RunOptions o;
    const bool good = o.parse(QStringList{QStringLiteral("quorvel")} + args);
    if (ok)
        *ok = good;
    return o;
}
} // namespace

class TestServer_ : public QObject
{
    Q_OBJECT
private slots:
    void loadsWithMainFrameOnly()
    {
        TestServer s;
        frmMain& w = s.start();
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QVERIFY(w.isLoaded() && w.Frame2->isVisible());
        for (QGroupBox* f : {w.Frame1, w.Frame3, w.Frame7, w.Frame8})
            QVERIFY(!f->isVisible());
        QVERIFY(QDir(s.jobFolder()).exists());
        QVERIFY(w.fileName().contains(QRegularExpression(QStringLiteral("^File_\\d{6}_\\d{6}$"))));
        QVERIFY(!w.ghostscriptPath().isEmpty());
        QVERIFY2(s.messages.empty(), qPrintable(s.shown()));
    }

    // Command-line words, then a user's clicks: the buttons on, the choice and the path shown.
    void outputChoice_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("clicks");
        QTest::addColumn<QString>("checked");
        QTest::addColumn<int>("action");
        QTest::addColumn<QString>("extension");
        using A = OutputChoice::Action;
        const auto row = [](const char* tag, const char* args, const char* clicks, const char* on,
                            A a) {
            QTest::newRow(tag) << QString(args).split(u' ', Qt::SkipEmptyParts) << QString(clicks)
                               << QString(on) << int(a) << QString(a == A::Pdf ? ".pdf" : ".tif");
        };
        row("start-up", "", "", "1 6 8", A::Pdf);
        row("pdf", "--output pdf", "", "1 6 8", A::Pdf);
        row("tiff", "--output tiff", "", "2 4 6", A::Image);
        row("jpeg colour", "--output jpeg --colour", "", "2 5 7", A::Image);
        row("print", "--output print", "", "3 6 8", A::Print);
        // Not chosen yet: the click does nothing.
        row("cloud, no server", "--output cloud", "", "1 6 8", A::Pdf);
        row("colour keeps the action", "", "7", "1 7 8", A::Pdf);
        // A file type holds "Save As Image" until "Others" gives it up.
        row("file type holds the image", "", "5 1 3", "2 5 6", A::Image);
        row("others gives it up", "", "5 8 3", "3 6 8", A::Print);
    }

    void outputChoice()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, clicks);
        QFETCH(QString, checked);
        QFETCH(int, action);
        QFETCH(QString, extension);
        TestServer s;
        frmMain& w = s.start();
        const QList<QRadioButton*> all{w.Option1, w.Option2, w.Option3, w.Option4, w.Option5,
                                       w.Option6, w.Option7, w.Option8, w.Option9};
        bool ok = false;
        parsed(args, &ok).apply(w);
        QVERIFY(ok);
        for (const QString& n : clicks.split(u' ', Qt::SkipEmptyParts))
            all[n.toInt() - 1]->click();
        QStringList on;
        for (int i = 0; i < all.size(); ++i)
            if (all[i]->isChecked())
                on << QString::number(i + 1);
        QCOMPARE(on.join(u' '), checked);
        QCOMPARE(int(w.outputChoice().action), action);
        QCOMPARE(w.outputChoice().colour, w.Option7->isChecked());
        QCOMPARE(w.TxtPath->text(), s.jobPath(w.fileName() + extension));
    }

    void badOptionsEndTheProgram()
    {
        bool ok = true;
        for (const QStringList& bad :
             {QStringList{"--output", "fax"}, QStringList{"--output"},
              QStringList{"--output", "colour"}, QStringList{"--port", "70000"},
              QStringList{"--allow", "10.0.0.0/33"}, QStringList{"--max-connections", "0"},
              QStringList{"--cloud-url", "ftp://dav.example/"}, QStringList{"--cloud-url", "dav"},
              QStringList{"--cloud-user", " "}}) {
            parsed(bad, &ok);
            QVERIFY2(!ok, qPrintable(bad.join(u' ')));
        }
    }

    // The preferences' Port, Output, Colour and CloudPoll count where the command line is silent.
    void settingsStandInForOptions_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("expected"); // port, output, colour, poll
        QTest::newRow("headless") << QStringList{"--headless"} << "9200 jpeg 1 30";
        QTest::newRow("command line wins")
            << QStringList{"--headless", "--port", "9300", "--output", "pdf", "--cloud-poll", "5"}
            << "9300 pdf 0 5";
        QTest::newRow("the window keeps its buttons") << QStringList{} << "9200  0 30";
    }
    void settingsStandInForOptions()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, expected);
        TestServer s;
        for (auto [key, value] : {std::pair{"Port", "9200"},
                                  {"Output", "jpeg"},
                                  {"Colour", "true"},
                                  {"CloudPoll", "30"}})
            s.put(key, value);
        const RunOptions o = parsed(args);
        QCOMPARE(
            QString("%1 %2 %3 %4").arg(o.listen.port).arg(o.output).arg(o.colour).arg(o.cloudPoll),
            expected);
    }

    void printerIsChosenAsAClickWould()
    {
        TestServer s;
        frmMain& w = s.start();
        w.List2->clear();
        w.List2->addItems({"Office Laser", " desk jet ", "laser", "Laser"});
        // Trimmed, case-blind but exact first; an unknown name changes nothing.
        for (auto [given, chosen] :
             {std::pair{"DESK JET", " desk jet "}, {"Laser", "Laser"}, {"nowhere", "Laser"}}) {
            parsed({"--printer", given}).apply(w);
            QCOMPARE(w.List2->currentItem()->text(), QLatin1String(chosen));
            QCOMPARE(SettingsStore::get(QStringLiteral("Name")), QLatin1String(chosen));
        }
    }

    void cloudOptionNeedsBothIds()
    {
        for (const QString& server : {QStringLiteral("  "), QStringLiteral("srv")}) {
            TestServer s;
            s.put("CloudClientUserId", QStringLiteral("user"));
            s.put("CloudClientServerId", server);
            frmMain& w = s.start();
            QCOMPARE(w.Option9->isEnabled(), server == QLatin1String("srv"));
            parsed({"--output", "cloud"}).apply(w);
            QCOMPARE(w.outputChoice().action == OutputChoice::Action::Cloud,
                     server == QLatin1String("srv"));
        }
    }

    void userValidationAndEmailId()
    {
        TestServer s;
        s.put("UserValidate", QStringLiteral("ann@example.org"));
        frmMain& w = s.start({QStringLiteral("ann@example.org"), QStringLiteral("host")});
        QCOMPARE(w.TxtEmailId->text(), QStringLiteral("ann@example.org"));
        QVERIFY(w.Check1->isChecked() && w.userValidated());
        // A blank id changes nothing; another id is kept.
        w.TxtEmailId->setText(QStringLiteral("   "));
        w.TxtEmailId_Validate();
        QCOMPARE(SettingsStore::get(QStringLiteral("EMailId")), QString());
        w.TxtEmailId->setText(QStringLiteral("bob@example.org"));
        w.TxtEmailId_Validate();
        QCOMPARE(SettingsStore::get(QStringLiteral("EMailId")), QStringLiteral("bob@example.org"));
        QCOMPARE(w.programIds().userEMailId, QStringLiteral("bob@example.org"));
        // "bob" is not the validated id ("ann" still is); an empty id never is.
        for (const QString& id : {QStringLiteral("bob@example.org"), QString()}) {
            if (id.isEmpty())
                s.put("UserValidate", id);
            frmMain other(freePort(), {id, QStringLiteral("host")});
            QVERIFY(!other.Check1->isChecked() && !other.userValidated());
        }
    }

    void noHandlerRunsOnAClosingWindow()
    {
        // A focused id box ends its editing while the window is destroyed.
        TestServer s;
        frmMain& w = s.start();
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        w.TxtEmailId->setFocus();
        QTest::keyClicks(w.TxtEmailId, QStringLiteral("late@example.org"));
        s.window.reset();
        QCOMPARE(SettingsStore::get(QStringLiteral("EMailId")), QString());
    }

    void portInUseIsReportedAndLoadGoesOn()
    {
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress::Any, 0));
        TestServer s;
        s.port = squatter.serverPort();
        frmMain& w = s.start();
        QVERIFY(!w.isListening() && w.isLoaded());
        QVERIFY2(s.messages.size() == 1 &&
                     s.messages[0].text.startsWith(QLatin1String("Run-time error '10048'")),
                 qPrintable(s.shown()));
    }

    void minimisedWindowStaysWithoutTray()
    {
        // No notification area here: hiding would leave no way back.
        TestServer s;
        frmMain& w = s.start();
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        w.setWindowState(Qt::WindowMinimized);
        QTest::qWait(50);
        QVERIFY(w.isVisible());
        w.ctlSysTrayBalloon1_DblClick(1); // restore
        QVERIFY(w.isVisible() && !(w.windowState() & Qt::WindowMinimized));
    }

    void connectionLogAndBytes()
    {
        TestServer s;
        frmMain& w = s.start();
        QVERIFY(w.isListening());
        auto c = connectClient(s.port);
        QVERIFY(c);
        QTRY_COMPARE(w.connectionCount(), 1);
        QCOMPARE(w.lblConnections->text(), QStringLiteral("1"));
        const QString id = w.lastRequestId();
        QVERIFY(id.toLongLong() > 0); // the accepted socket's descriptor
        // 8 MiB of every byte value (pages are faulted ahead past 4 MiB) is kept as it came.
        QByteArray payload("%!PS\n\0\r\n\xff\xfe", 10);
        for (int round = 0; round < 32768; ++round)
            for (int b = 0; b < 256; ++b)
                payload.append(char((b * 7 + round) & 0xff));
        send(*c, payload);
        QTRY_COMPARE_WITH_TIMEOUT(w.jobBuffer().size(), payload.size(), 20000);
        QVERIFY(w.jobBuffer() == payload);
        w.Option8->setChecked(true); // nothing to convert: the close only logs
        w.actionGroup->setExclusive(false);
        w.Option1->setChecked(false);
        c->disconnectFromHost();
        QTRY_COMPARE(w.connectionCount(), 0);
        QCOMPARE(w.lblConnections->text(), QStringLiteral("0"));
        QCOMPARE(rowTexts(w.List1), (QStringList{"Listening to port: " + QString::number(s.port),
                                                 "Connection request id " + id + " from 127.0.0.1",
                                                 "Connection closed: 127.0.0.1"}));
        // Dispatched with no action chosen: the .ps is made and wiped, nothing else.
        QTRY_VERIFY(!w.Text1->text().isEmpty() && s.jobFiles().isEmpty());
        QVERIFY2(s.messages.empty(), qPrintable(s.shown()));
    }

    void interleavedClientsMakeOneJob()
    {
        // Both write into one buffer; the first close dispatches it all, the second finds it empty.
        TestServer s;
        frmMain& w = s.start();
        auto a = connectClient(s.port);
        auto b = connectClient(s.port);
        QVERIFY(a && b);
        QTRY_COMPARE(w.connectionCount(), 2);
        const QByteArray pageA = makePsJob(1), pageB = makePsJob(2);
        const qsizetype cut = pageA.indexOf("%%Page:");
        send(*a, pageA.left(cut));
        QTRY_COMPARE(w.jobBuffer(), pageA.left(cut));
        send(*b, "% from b\n");
        QTRY_COMPARE(w.jobBuffer(), pageA.left(cut) + "% from b\n");
        send(*a, pageA.mid(cut) + pageB);
        QTRY_COMPARE(w.jobBuffer().size(), pageA.size() + 9 + pageB.size());
        a->disconnectFromHost();
        QTRY_VERIFY_WITH_TIMEOUT(s.jobFiles() == QStringList{w.fileName() + ".pdf"}, 60000);
        const QString first = w.fileName();
        QCOMPARE(pdfPages(s.jobPath(first + ".pdf")), 3);
        b->disconnectFromHost();
        QTRY_COMPARE(w.connectionCount(), 0);
        QTest::qWait(1100); // a second dispatch would have a new name by now
        QCOMPARE(s.jobFiles(), QStringList{first + ".pdf"});
        QCOMPARE(w.jobBuffer(), QByteArray());
    }

    void outOfOrderCloseCollidesWithLoadedElement()
    {
        TestServer s;
        frmMain& w = s.start();
        std::unique_ptr<QTcpSocket> c[6];
        for (int i = 1; i <= 3; ++i) {
            QVERIFY(c[i] = connectClient(s.port));
            QTRY_COMPARE(w.connectionCount(), i);
        }
        c[1]->disconnectFromHost(); // element 1 goes; elements 2 and 3 stay
        QTRY_COMPARE(w.connectionCount(), 2);
        // The next connection becomes element 3, which is still loaded.
        QVERIFY(c[4] = connectClient(s.port));
        QTRY_COMPARE(s.messages.size(), size_t(1));
        QVERIFY2(s.messages[0].text.startsWith(
                     QLatin1String("Run-time error '360': Object already loaded")),
                 qPrintable(s.shown()));
        QCOMPARE(w.connectionCount(), 2); // the refused connection is not counted
        QTRY_COMPARE(c[4]->state(), QAbstractSocket::UnconnectedState); // closed by the server
        // The program goes on: the open connections still deliver.
        send(*c[3], "from three");
        QTRY_COMPARE(w.jobBuffer(), QByteArray("from three"));
        c[3]->disconnectFromHost();
        c[2]->disconnectFromHost();
        QTRY_COMPARE(w.connectionCount(), 0);
        QCOMPARE(w.lblConnections->text(), QStringLiteral("0"));
        QVERIFY(c[5] = connectClient(s.port)); // element 1, free again
        QTRY_COMPARE(w.connectionCount(), 1);
        QCOMPARE(s.messages.size(), size_t(1));
    }
};

QTEST_MAIN(TestServer_)
#include "tst_server.moc"
