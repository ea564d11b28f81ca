// Preferences (validation, OK and Cancel, a listener restart), the jobs window over a real history,
// the after-save program, and the ways in: shortcuts, the context menu, --jobs.
#include "testsupport.h"

#include "dispatch/aftersave.h"
#include "history/jobhistory.h"
#include "jobs/frmjobs.h"
#include "prefs/frmpreferences.h"
#include "prefs/preferences.h"
#include "server/windowrequest.h"

#include <QComboBox>
#include <QContextMenuEvent>
#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QGroupBox>
#include <QMenu>
#include <QSignalSpy>
#include <QSortFilterProxyModel>
#include <QStandardItemModel>
#include <QTabWidget>
#include <QTableView>
#include <QTimer>

namespace
{
FrmPreferences* openPreferences(frmMain& w)
{
    w.showPreferences();
    return w.preferencesWindow();
}

void click(FrmPreferences* p, QDialogButtonBox::StandardButton which)
{
    p->buttons->button(which)->click();
}

// A program of the shell lines given, in dir.
QString program(const QTemporaryDir& dir, const QByteArray& lines)
{
    const QString path = dir.filePath("program.sh");
    writeFile(path, "#!/bin/sh\n" + lines);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}
// Writes its arguments, one a line, to out and ends with code 3.
QString recorder(const QTemporaryDir& dir)
{
    return program(dir,
                   "printf '%s\\n' \"$@\" > \"" + dir.filePath("out").toUtf8() + "\"\nexit 3\n");
}
} // namespace

class TestPrefs : public QObject
{
    Q_OBJECT
private slots:
    void eachPageRefusesBadValues_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("page");
        QTest::addColumn<QString>("kept"); // the setting after OK; empty: refused
        using P = Prefs::Page;
        const auto row = [](const char* tag, const char* key, const char* value, P page,
                            const char* kept = "") {
            QTest::newRow(tag) << QString(key) << QString(value) << int(page) << QString(kept);
        };
        row("port 0", "Port", "0", P::Receiving);
        row("port 70000", "Port", "70000", P::Receiving);
        row("bad CIDR", "AllowNetworks", "10.0.0.0/8\n10.1.0.0/33", P::Receiving);
        row("not a network", "AllowNetworks", "printers", P::Receiving);
        row("networks", "AllowNetworks", "10.0.0.0/8\n 192.168.1.0/24", P::Receiving,
            "10.0.0.0/8,192.168.1.0/24");
        row("bad address", "ListenAddress", "10.0.0.300", P::Receiving);
        row("no workers", "Workers", "0", P::Receiving);
        row("workers", "Workers", "3", P::Receiving, "3");
        row("IPP on, port 0", "IppPort", "0", P::Receiving); // the switch is set on below
        row("IPP on, a port", "IppPort", "8632", P::Receiving, "8632");
        row("memory", "GsMemoryMB", "-1", P::Conversion);
        row("unwritable folder", "JobFolder", "/proc/quorvel/jobs", P::Names);
        row("a file as folder", "JobFolder", "/dev/null/jobs", P::Names);
        row("template with ..", "NameTemplate", "{user}/../{title}", P::Names);
        row("template", "NameTemplate", "{user}/{title}", P::Names, "{user}/{title}");
        row("missing program", "AfterSaveProgram", "/nonexistent/program", P::AfterSaving);
        row("timeout 0", "AfterSaveTimeout", "0", P::AfterSaving);
        row("ftp share", "CloudBaseUrl", "ftp://share", P::Cloud);
        row("CA file without a certificate", "CloudCaFile", "/dev/null", P::Cloud);
    }
    void eachPageRefusesBadValues()
    {
        QFETCH(QString, key);
        QFETCH(QString, value);
        QFETCH(int, page);
        QFETCH(QString, kept);
        TestServer s;
        FrmPreferences* p = openPreferences(s.start());
        p->setValue("AfterSave", "run");
        p->setValue("AfterSaveProgram", "/bin/true");
        p->setValue("MaxConnections", "100"); // a good change beside the one tried
        if (key == Prefs::kIppPort)
            p->setValue(Prefs::kIpp, "true");
        p->setValue(key, value);
        click(p, QDialogButtonBox::Ok);
        QCOMPARE(p->isVisible(), kept.isEmpty());
        QCOMPARE(SettingsStore::get(key), kept);
        QCOMPARE(SettingsStore::get("MaxConnections"), kept.isEmpty() ? "" : "100");
        if (!kept.isEmpty())
            return;
        QCOMPARE(p->tabPages->currentIndex(), page);
        QVERIFY(p->editor(key)->property("invalid").toBool());
        QVERIFY2(p->lblProblem->text().startsWith(p->tabPages->tabText(page)),
                 qPrintable(p->lblProblem->text()));
        QCOMPARE(SettingsStore::get("AfterSave"), QString()); // nothing half-saved
    }

    void cancelSavesNothingAndPreviewFollows()
    {
        TestServer s;
        frmMain& w = s.start();
        FrmPreferences* p = openPreferences(w);
        QCOMPARE(p->values().value("Port"), QString::number(s.port)); // what runs, not 9100
        p->setValue("NameTemplate", "{user}/{title}");
        QVERIFY2(p->lblPreview->text().endsWith(
                     QDir::toNativeSeparators("ImagesPdfExport/alice/Quarterly report.pdf")),
                 qPrintable(p->lblPreview->text()));
        p->setValue("NameTemplate", "../{title}");
        QVERIFY(p->lblPreview->text().contains("no \"..\""));
        p->setValue("Port", QString::number(freePort()));
        click(p, QDialogButtonBox::Cancel);
        QVERIFY(QFileInfo(SettingsStore::fileName()).size() < 100); // no key written
        QCOMPARE(SettingsStore::get("NameTemplate"), QString());
        QCOMPARE(w.listenPort(), s.port);
        QTRY_VERIFY(!w.preferencesWindow());
    }

    void listenerRestartsOnANewPort()
    {
        TestServer s;
        frmMain& w = s.start();
        const quint16 port = freePort();
        FrmPreferences* p = openPreferences(w);
        p->setValue("Port", QString::number(port));
        p->setValue("ListenAddress", "127.0.0.1");
        click(p, QDialogButtonBox::Ok);
        QVERIFY2(w.txtLog->text().contains(
                     QString("The listener restarts on 127.0.0.1 port %1").arg(port)),
                 qPrintable(w.txtLog->text()));
        QCOMPARE(SettingsStore::get("Port"), QString::number(port));
        QTcpSocket old;
        old.connectToHost(QHostAddress::LocalHost, s.port);
        QVERIFY(!old.waitForConnected(3000));
        sendJob(port, makePsJob(1));
        QTRY_VERIFY_WITH_TIMEOUT(w.Text1->text().endsWith(".ps"), 30000);
        QTRY_VERIFY_WITH_TIMEOUT(w.txtLog->text().contains("test job 1 pages"), 60000);
    }

    void waysIn()
    {
        TestServer s;
        frmMain& w = s.start();
        w.show();
        w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        QVERIFY(w.toolTip().contains("Ctrl+,") && w.toolTip().contains("Ctrl+J"));
        QTest::keyClick(&w, Qt::Key_Comma, Qt::ControlModifier);
        QTRY_VERIFY(w.preferencesWindow() && w.preferencesWindow()->isVisible());
        click(w.preferencesWindow(), QDialogButtonBox::Cancel);
        QTest::keyClick(&w, Qt::Key_J, Qt::ControlModifier);
        QTRY_VERIFY(w.jobsWindow() && w.jobsWindow()->isVisible());
        w.jobsWindow()->close();
        QTRY_VERIFY(!w.jobsWindow());
        // The background's menu: read, then closed.
        QStringList items;
        QTimer::singleShot(300, this, [&] {
            if (auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
                for (QAction* a : menu->actions())
                    items << a->text();
                menu->close();
            }
        });
        QContextMenuEvent menuEvent(QContextMenuEvent::Mouse, QPoint(5, 5),
                                    w.Frame2->mapToGlobal(QPoint(5, 5)));
        QApplication::sendEvent(w.Frame2, &menuEvent);
        QCOMPARE(items, QStringList({"Preferences...", "Jobs..."}));
        // --jobs from a second start: this instance shows the window, the other one ends.
        WindowRequest::listen(&w, [&w](const QString& name) { w.openWindow(name); });
        QProcess second;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QUORVEL_SETTINGS_DIR", QFileInfo(SettingsStore::fileName()).path());
        second.setProcessEnvironment(env);
        second.start(qEnvironmentVariable("QUORVEL_BINARY"), {"--jobs"});
        QTRY_VERIFY_WITH_TIMEOUT(second.state() == QProcess::NotRunning, 20000);
        QCOMPARE(second.exitCode(), 0);
        QTRY_VERIFY(w.jobsWindow() && w.jobsWindow()->isVisible());
    }

    // Real jobs through the listener: the after-save program gets each kept file; the jobs
    // window lists, searches, filters and removes them.
    void jobsWindowAndAfterSave()
    {
        TestServer s;
        QTemporaryDir dir;
        s.put("AfterSave", "run");
        s.put("AfterSaveProgram", recorder(dir));
        s.put("NameTemplate", "{title}; $(x)");
        frmMain& w = s.start();
        sendJob(s.port, makePsJob(2));
        QTRY_VERIFY_WITH_TIMEOUT(w.txtLog->text().contains("ended with exit code 3"), 60000);
        const QString pdf = s.jobPath("test job 2 pages; $(x).pdf");
        QCOMPARE(readFile(dir.filePath("out")), pdf.toUtf8() + "\n"); // one argument, no shell
        sendJob(s.port, "\x01\x02 no language\n");
        QTRY_VERIFY_WITH_TIMEOUT(w.txtLog->text().count("ended with exit code 3") == 2, 60000);

        w.showJobs();
        FrmJobs* jobs = w.jobsWindow();
        QCOMPARE(jobs->view->rowCount(), 2);
        jobs->tblJobs->sortByColumn(FrmJobs::Pages, Qt::DescendingOrder);
        QCOMPARE(jobs->view->index(0, FrmJobs::Pages).data().toInt(), 2);
        QCOMPARE(jobs->view->index(0, FrmJobs::Output).data().toString(),
                 "test job 2 pages; $(x).pdf");
        jobs->cboStatus->setCurrentText("kept unconverted");
        QCOMPARE(jobs->view->rowCount(), 1);
        jobs->cboStatus->setCurrentIndex(0);
        jobs->txtSearch->setText("TEST JOB");
        QCOMPARE(jobs->view->rowCount(), 1);
        jobs->tblJobs->selectRow(0);
        QCOMPARE(jobs->selectedFiles(), QStringList{pdf});
        QVERIFY(jobs->cmdOpen->isEnabled() && jobs->cmdShowInFolder->isEnabled());
        for (const bool yes : {false, true}) {
            setMsgAnswer(yes);
            jobs->cmdRemove->click();
            QCOMPARE(s.messages.back().icon, MsgIcon::Question);
            QCOMPARE(QFileInfo::exists(pdf), !yes);
            QCOMPARE(JobHistory::rows().size(), yes ? 1 : 2);
        }
        setMsgAnswer(false);
        QCOMPARE(jobs->view->rowCount(), 0); // the search stays
        jobs->txtSearch->clear();
        QCOMPARE(jobs->view->rowCount(), 1);
    }

    // Retry runs a failed job's PostScript again, print again a kept output, as new jobs.
    void printAgainAndRetry_data()
    {
        QTest::addColumn<bool>("queue");
        QTest::newRow("default") << false;
        QTest::newRow("queued") << true;
    }
    void printAgainAndRetry()
    {
        QFETCH(bool, queue);
        TestServer s;
        s.put("JobQueue", queue ? "1" : "0");
        frmMain& w = s.start();
        const auto rows = [] { return JobHistory::rows().size(); };
        sendJob(s.port, makePsJob(1));
        // By design two jobs of one second share a name without the queue.
        const auto nextSecond = [queue] { QTest::qWait(queue ? 0 : 1100); };
        QTRY_COMPARE_WITH_TIMEOUT(rows(), 1, 60000);
        nextSecond();
        sendJob(s.port, makePsJob(2) + "nosuchoperator\n");
        QTRY_COMPARE_WITH_TIMEOUT(rows(), 2, 60000);
        w.showJobs();
        FrmJobs* jobs = w.jobsWindow();
        jobs->cboStatus->setCurrentText("partial");
        jobs->tblJobs->selectRow(0);
        const QString ps = jobs->selectedPostScript();
        QVERIFY2(QFileInfo(ps).isFile(), qPrintable(ps));
        QVERIFY(jobs->cmdRetry->isEnabled());
        nextSecond();
        jobs->cmdRetry->click();
        QTRY_COMPARE_WITH_TIMEOUT(rows(), 3, 60000);
        QVERIFY(!QFileInfo::exists(ps));
        QCOMPARE(JobHistory::rows().first().status, "partial"); // it fails again, as it must
        QCOMPARE(JobHistory::rows().first().clientText(), "the jobs window");
        jobs->cboStatus->setCurrentText("done");
        jobs->tblJobs->selectRow(0);
        QVERIFY(!jobs->cmdRetry->isEnabled());
        QVERIFY2(jobs->cmdPrintAgain->isEnabled(), qPrintable(w.txtLog->text()));
        jobs->cmdPrintAgain->click();
        QTRY_VERIFY2_WITH_TIMEOUT(rows() == 4, qPrintable(w.txtLog->text() + s.shown()), 60000);
        const JobRecord again = JobHistory::rows().first();
        QCOMPARE(again.language, "PDF");
        QCOMPARE(again.status, "done");
        QCOMPARE(again.pages, 1);
        QVERIFY(QFileInfo(s.jobPath(again.outputs.value(0))).isFile());
        QTRY_COMPARE(jobs->model->rowCount(), 4); // live rows
    }

    void hangingProgramIsStopped()
    {
        QTemporaryDir dir;
        const QString hangs = program(dir, "exec sleep 60\n");
        QStringList log;
        AfterSave after([&](const QString& line) { log << line; });
        QSignalSpy ended(&after, &AfterSave::ended);
        QElapsedTimer took;
        took.start();
        after.saved({"/tmp/a b.pdf"}, {AfterSave::Action::Run, hangs, 1});
        QVERIFY(ended.wait(10000));
        QVERIFY2(took.elapsed() >= 900 && took.elapsed() < 5000, qPrintable(log.join("|")));
        QCOMPARE(ended.first().value(2).toBool(), true);
        QCOMPARE(log, QStringList{"After saving: " + hangs +
                                  " \"/tmp/a b.pdf\" still ran after 1 s; it is stopped"});
        after.saved({"/tmp/x"}, {AfterSave::Action::Run, "/nonexistent/program", 1});
        QTRY_VERIFY(log.size() == 2 && log[1].contains("cannot be started"));
        QCOMPARE(after.running(), 0);
    }
};

int main(int argc, char* argv[])
{
    useXtrayDisplay();
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    TestPrefs test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_prefs.moc"
