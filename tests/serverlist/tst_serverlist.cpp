// The cloud server list editor, driven by keys and the mouse, its lookups on the webdav share.
#include "testsupport.h"

#include "cloud/uccloudsrvr.h"
#include "serverlist/frmclsrlst.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QTableWidget>

namespace
{
// To the open list, else the focus, found again for the release as the press may move it.
template <typename Key> void key(Key k)
{
    QWidget* const focus = nullptr;
    QTest::keyPress(focus, k);
    QTest::keyRelease(focus, k);
}
void keys(const char* text) // "\r" is Return, "\x1b" Escape
{
    for (const char* c = text; *c; ++c)
        key(*c);
}
QStringList column(const FrmClSrLst& e, int c)
{
    QStringList texts;
    for (int r = 0; r < e.FG2->rowCount(); ++r)
        texts << (e.FG2->item(r, c) ? e.FG2->item(r, c)->text() : QString());
    return texts;
}
QStringList offered(const FrmClSrLst& e)
{
    QStringList items;
    for (int i = 0; i < e.Combo1->count(); ++i)
        items << e.Combo1->itemText(i);
    return items;
}
} // namespace

class TestServerList : public QObject
{
    Q_OBJECT
    QMap<QString, QString> m_dav = serviceEnv(QStringLiteral("webdav"));
    static QString get(const QString& key) { return SettingsStore::get(key); }

    // The main window on the share, and the editor its "Select Cloud Server" opens.
    FrmClSrLst& open(TestServer& s)
    {
        s.put("CloudBaseUrl", m_dav.value(QStringLiteral("DAV_URL")));
        s.put("CloudUser", m_dav.value(QStringLiteral("DAV_USER")));
        s.put("CloudPassword", m_dav.value(QStringLiteral("DAV_PASSWORD")));
        frmMain& w = s.start();
        QTest::mouseClick(w.Command2, Qt::LeftButton);
        FrmClSrLst* editor = w.serverListEditor();
        if (!editor || !QTest::qWaitForWindowActive(editor))
            qFatal("the editor did not open");
        return *editor;
    }

private slots:
    void init()
    {
        const QString root = m_dav.value(QStringLiteral("DAV_ROOT"));
        QVERIFY2(!root.isEmpty(), "the webdav fixture is not running");
        QDir(root + QStringLiteral("/CloudPrint")).removeRecursively();
        // alice's own collection for this installation is no server to print to.
        for (const char* path : {"alice/srv1", "alice/quorvel-test", "bob/srv9"})
            QDir().mkpath(root + QStringLiteral("/CloudPrint/") + QLatin1String(path));
        QProcess::execute("chown", {"-R", "www-data:www-data", root + "/CloudPrint"});
    }

    void loading_data()
    {
        QTest::addColumn<QStringList>("stored"); // row|user|server|selected
        QTest::addColumn<QStringList>("users");  // the grid's user ids afterwards
        QTest::addColumn<QString>("destination");
        QTest::newRow("nothing stored") << QStringList() << QStringList{""} << "/";
        QTest::newRow("row 3 missing ends the list")
            << QStringList{"1|ann|s1|N", "2|bob|s2|N", "4|dan|s4|Y"} << QStringList{"ann", "bob"}
            << "/";
        QTest::newRow("the last Y wins") << QStringList{"1|ann|s1|Y", "2|bob|s2|Y", "3|cy|s3|N"}
                                         << QStringList{"ann", "bob", "cy"} << "bob/s2";
    }

    void loading()
    {
        QFETCH(QStringList, stored);
        QFETCH(QStringList, users);
        QFETCH(QString, destination);
        TestServer s;
        for (const QString& row : stored) {
            const QStringList f = row.split(u'|');
            s.put(qPrintable("ClientUserId" + f[0]), f[1]);
            s.put(qPrintable("ClientServerId" + f[0]), f[2]);
            s.put(qPrintable("Selected" + f[0]), f[3]);
        }
        FrmClSrLst& e = open(s);
        frmMain& w = *s.window;
        QCOMPARE(column(e, 2), users);
        for (int r = 0; r < users.size(); ++r) // numbered from 1
            QCOMPARE(column(e, 1)[r], QString::number(r + 1));
        QCOMPARE(get("CloudClientUserId") + '/' + get("CloudClientServerId"), destination);
        QCOMPARE(w.cloudClientUserId() + '/' + w.cloudClientServerId(), destination);
        QCOMPARE(w.Option9->isEnabled(), destination != "/");
        // Typing starts in row 1's user id cell, whatever is stored.
        keys("z");
        QVERIFY(e.TxtEdit->isVisible());
        QCOMPARE(e.TxtEdit->text(), QStringLiteral("z"));
        const QRect cell = e.FG2->visualRect(e.FG2->model()->index(0, 2));
        QCOMPARE(e.TxtEdit->pos(), e.FG2->viewport()->mapTo(&e, cell.topLeft()));
    }

    void lookupAnswers_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QStringList>("servers");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("user"); // the user id cell afterwards
        QTest::newRow("blanks and this installation skipped")
            << "srv1, ,srv2,quorvel-test" << QStringList{"srv1", "srv2"} << QString() << "carol";
        QTest::newRow("no list") << "" << QStringList() << "Server List Not Found..." << QString();
        QTest::newRow("nothing but blanks and this installation")
            << " ,quorvel-test" << QStringList() << "No Server found for this User..." << QString();
    }

    // Answers in an order the share does not keep: as the control raises them.
    void lookupAnswers()
    {
        QFETCH(QString, answer);
        QFETCH(QStringList, servers);
        QFETCH(QString, message);
        QFETCH(QString, user);
        TestServer s;
        FrmClSrLst& e = open(s);
        QString id = QStringLiteral("carol");
        emit e.UcCloudSrvr1->ClientInfoReturn(id, answer);
        QCOMPARE(offered(e), servers);
        QCOMPARE(s.shown(), message);
        QCOMPARE(column(e, 2), QStringList{user});
        QCOMPARE(e.Combo1->view()->isVisible(), !servers.isEmpty());
        QCOMPARE(e.currentColumn(), servers.isEmpty() ? 2 : 3);
    }

    void rowsCompletedThroughTheShare()
    {
        TestServer s;
        FrmClSrLst& e = open(s);
        frmMain& w = *s.window;
        QTest::mouseClick(w.Command2, Qt::LeftButton);
        QCOMPARE(w.findChildren<FrmClSrLst*>().size(), 1);
        keys("alice\r");
        QTRY_VERIFY_WITH_TIMEOUT(e.Combo1->view()->isVisible(), 15000);
        QCOMPARE(offered(e), QStringList{"srv1"});
        keys("\r"); // nothing chosen yet
        QCOMPARE(s.shown(), QStringLiteral("Server-Id not selected properly..."));
        keys(" ");
        key(Qt::Key_Down);
        keys("\rhome\rbob\r");
        QTRY_VERIFY_WITH_TIMEOUT(e.Combo1->view()->isVisible(), 15000);
        key(Qt::Key_Down);
        keys("\rgone\x1b");
        QCOMPARE(get("ClientUserId2"), QString());
        keys("work\r");
        const QStringList rows{get("ClientUserId1"), get("ClientServerId1"), get("ClientNotes1"),
                               get("Selected1"),     get("ClientUserId2"),   get("ClientServerId2"),
                               get("ClientNotes2"),  get("Selected2")};
        QCOMPARE(rows, (QStringList{"alice", "srv1", "home", "Y", "bob", "srv9", "work", "N"}));
        QCOMPARE(column(e, 1), (QStringList{"1", "2", "3"}));
        QCOMPARE(e.currentRow(), 3);
        QCOMPARE(w.cloudClientUserId() + '/' + w.cloudClientServerId(),
                 QStringLiteral("alice/srv1"));
        QVERIFY(w.Option9->isEnabled());

        // A double click on row 2's number makes it the destination; uploads go there.
        const QRect sr2 = e.FG2->visualRect(e.FG2->model()->index(1, 1));
        QTest::mouseDClick(e.FG2->viewport(), Qt::LeftButton, {}, sr2.center());
        QCOMPARE(get("Selected1") + get("Selected2"), QStringLiteral("NY"));
        QCOMPARE(get("CloudClientUserId") + '/' + get("CloudClientServerId"), "bob/srv9");
        e.close();
        QTest::mouseClick(w.Option9, Qt::LeftButton);
        sendJob(s.port, makePsJob(1));
        const QDir bobs(m_dav.value(QStringLiteral("DAV_ROOT")) + "/CloudPrint/bob/srv9");
        QTRY_COMPARE_WITH_TIMEOUT(bobs.entryList(QDir::Files).size(), 1, 15000);
        // Reopened, the editor reads what was stored.
        QTest::mouseClick(w.Command2, Qt::LeftButton);
        QCOMPARE(column(e, 2), (QStringList{"alice", "bob"}));
        QVERIFY(e.isRowSelected(2) && !e.isRowSelected(1));
    }
};

QTEST_MAIN(TestServerList)
#include "tst_serverlist.moc"
