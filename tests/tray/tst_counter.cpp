// The instance counter across processes: each process holding a control
// gets the next number; when every holder has ended, even killed, the next
// one starts again at 1.
#include <QProcess>
#include <QTest>
#include <memory>
#include <vector>

class TestCounter : public QObject
{
    Q_OBJECT
    std::vector<std::unique_ptr<QProcess>> m_children;

    int startChild()
    {
        auto p = std::make_unique<QProcess>();
        p->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        p->start(QStringLiteral(QUORVEL_COUNTER_CHILD), QStringList());
        if (!p->waitForStarted(10000))
            return -1;
        while (!p->canReadLine())
            if (!p->waitForReadyRead(10000))
                return -1;
        const int id = p->readLine().trimmed().toInt();
        m_children.push_back(std::move(p));
        return id;
    }

    void endAll(bool kill)
    {
        for (auto& p : m_children) {
            if (kill)
                p->kill();
            else
                p->closeWriteChannel();
            QVERIFY(p->waitForFinished(10000));
        }
        m_children.clear();
    }

private slots:
    void cleanup() { endAll(true); }
    void cleanupTestCase()
    {
        // One holder that ends normally removes what the killed ones left.
        QCOMPARE(startChild(), 1);
        endAll(false);
    }

    void numbersAcrossProcesses_data()
    {
        QTest::addColumn<bool>("kill");
        QTest::newRow("normal ends") << false;
        QTest::newRow("killed") << true;
    }
    void numbersAcrossProcesses()
    {
        QFETCH(bool, kill);
        // The namespace of this test is private, so the first holder gets 1.
        QCOMPARE(startChild(), 1);
        QCOMPARE(startChild(), 2);
        QCOMPARE(startChild(), 3);
        // While one holder lives, numbers keep moving up.
        m_children.front()->closeWriteChannel();
        QVERIFY(m_children.front()->waitForFinished(10000));
        m_children.erase(m_children.begin());
        QCOMPARE(startChild(), 4);
        // Once every holder has ended, the next one is 1 again.
        endAll(kill);
        QCOMPARE(startChild(), 1);
    }
};

QTEST_GUILESS_MAIN(TestCounter)
#include "tst_counter.moc"
