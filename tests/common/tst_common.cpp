#include "common/doevents.h"
#include "common/int16.h"
#include "common/log.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"
#include "common/settings.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

class TestCommon : public QObject
{
    Q_OBJECT
    QList<Message> m_messages;

private slots:
    void init()
    {
        m_messages.clear();
        setMsgRecorder([this](const Message& m) { m_messages.append(m); });
    }
    void cleanup() { setMsgRecorder({}); }

    void int16OverflowsAndTheGuardShowsIt()
    {
        Int16 n(32766), low(-32768);
        auto slot = Guarded([&] { ++n; });
        slot(); // to the top
        slot(); // one past it: shown, not thrown; the value unchanged
        QCOMPARE(n.value(), 32767);
        QVERIFY_THROWS_EXCEPTION(RuntimeError, --low);
        QVERIFY_THROWS_EXCEPTION(RuntimeError, Int16(40000));
        QCOMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].text, QStringLiteral("Run-time error '6': Overflow"));
        QCOMPARE(m_messages[0].icon, MsgIcon::Critical);

        RunGuarded([] { throw std::runtime_error("boom"); });
        QCOMPARE(m_messages.size(), 2);
        QVERIFY(m_messages[1].text.startsWith(QStringLiteral("Run-time error '51'")));

        // A guarded slot ignores signal arguments it does not take.
        int calls = 0;
        QTimer t;
        QObject::connect(&t, &QTimer::timeout, &t, Guarded([&] { ++calls; }));
        t.setSingleShot(true);
        t.start(0);
        QTRY_COMPARE(calls, 1);
    }

    void stepsPassOverFailuresOnceSkipping()
    {
        QStringList log;
        Log::setSink([&](const QString& l) { log << l; });
        Steps step;
        int ran = 0;
        QVERIFY_THROWS_EXCEPTION(RuntimeError, step([] { RaiseError(rt::SubscriptOutOfRange); }));
        step.skipErrors = true;
        step([] { RaiseError(rt::SubscriptOutOfRange); });
        step([] { throw std::runtime_error("bad page"); });
        step([&] { ++ran; });
        Log::setSink({});
        QCOMPARE(ran, 1);
        QCOMPARE(log, (QStringList{"Passed over: Run-time error '9': Subscript out of range",
                                   "Passed over: Run-time error '51': bad page"}));
        QVERIFY(m_messages.isEmpty()); // passed over, not shown
    }

    void logTrimsPast30000()
    {
        const QString full(29998, u'a'); // + "\r\n" = 30000: kept whole
        QCOMPARE(LogAppend(QString(), full).size(), 30000);
        const QString over = LogAppend(QString(29999, u'b'), QString());
        QCOMPARE(over.size(), 25000);
        QVERIFY(over.endsWith(QStringLiteral("\r\n")));
        QCOMPARE(LogAppend(QStringLiteral("x"), QStringLiteral("y")), QStringLiteral("xy\r\n"));

        LogBox box;
        QStringList seen;
        Log::setSink([&](const QString& l) { seen << l; });
        box.append(QStringLiteral("one"));
        box.append(QStringLiteral("two"));
        Log::setSink({});
        QCOMPARE(box.text(), QStringLiteral("one\r\ntwo\r\n"));
        QCOMPARE(seen, QStringList({"one", "two"}));
    }

    void settingsStore()
    {
        QTemporaryDir dir;
        SettingsStore::setFolder(dir.path());
        const QString key = "Name", value = "  Office Laser ";
        SettingsStore::put(key, value);
        QCOMPARE(SettingsStore::get(key), value);
        // One section "Quorvel" in the file of the application "Quorvel".
        QSettings raw(dir.filePath("Quorvel.ini"), QSettings::IniFormat);
        QCOMPARE(raw.value("Quorvel/Name").toString(), value);
        SettingsStore::remove(key);
        QCOMPARE(SettingsStore::get(key), QString());
        SettingsStore::setFolder(QString());
    }

    void doEventsRunsPendingWork()
    {
        int ran = 0;
        QMetaObject::invokeMethod(
            this, [&] { ++ran; }, Qt::QueuedConnection);
        QTimer::singleShot(300, this, [&] { ++ran; });
        DoEvents();
        QCOMPARE(ran, 1); // the queued call, not yet the timer
        // Waiting blocks between events: a spinning loop goes round many thousand times in 300 ms.
        int rounds = 0;
        waitUntil([&] { return ran == 2 || ++rounds == 5000; });
        QCOMPARE(ran, 2);
        QVERIFY2(rounds < 1000, qPrintable(QString::number(rounds)));
    }
};

QTEST_MAIN(TestCommon)
#include "tst_common.moc"
