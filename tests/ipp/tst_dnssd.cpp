#include "ipp/dnssd.h"
#include "testsupport.h"

#include <QRegularExpression>
#include <QSignalSpy>

// An advertiser with its log and its "established" signals.
struct Advertiser {
    QStringList log;
    DnsSdAdvertiser dnssd{[this](const QString& line) { log << line; }};
    QSignalSpy up{&dnssd, &DnsSdAdvertiser::established};
    QString logText() const { return log.join(u'\n'); }
};

// The advertiser against the avahi fixture's daemon, seen by avahi-browse as a client would.
class TestDnsSd : public QObject
{
    Q_OBJECT
    const QString bus = serviceEnv(QStringLiteral("avahi")).value("DBUS_SYSTEM_BUS_ADDRESS");
    const QString tag = QString::number(QCoreApplication::applicationPid());
    const QString type = QStringLiteral("_pdl-datastream._tcp");

    // avahi-browse's resolved services of TYPE: name ("\032" and the like decoded) → "port;TXT".
    static QMap<QString, QString> browse(const QString& type)
    {
        static const QRegularExpression code(QStringLiteral("\\\\(\\d{3})"));
        QMap<QString, QString> found;
        for (const QString& line : runTool(QStringLiteral("timeout"),
                                           {QStringLiteral("15"), QStringLiteral("avahi-browse"),
                                            QStringLiteral("-rtp"), type})
                                       .split(u'\n')) {
            QStringList f = line.split(u';');
            QRegularExpressionMatch m;
            while (f.size() >= 10 && (m = code.match(f[3])).hasMatch())
                f[3].replace(m.capturedStart(), 4, QChar(m.captured(1).toInt()));
            if (f.size() >= 10 && f[0] == QLatin1String("="))
                found.insert(f[3], f[8] + u';' + f.mid(9).join(u';'));
        }
        return found;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(!bus.isEmpty(), "the avahi fixture did not run");
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus.toUtf8());
    }

    void advertisesNamePortAndTxt()
    {
        const QString name = QStringLiteral("Quorvel tst-") + tag;
        auto a = std::make_unique<Advertiser>();
        a->dnssd.advertise(name, type, 9123, pdlDatastreamTxt(QStringLiteral("Front desk"), 30),
                           {QStringLiteral("_quorvel")});
        QVERIFY2(a->up.wait(10000), qPrintable(a->logText()));
        QCOMPARE(a->dnssd.advertisedName(type), name);
        QVERIFY(a->logText().contains(QStringLiteral("Advertised on the LAN as \"%1\"").arg(name)));
        const QString seen = browse(type).value(name);
        QVERIFY2(seen.startsWith(QLatin1String("9123;")), qPrintable(seen));
        for (const char* entry :
             {"txtvers=1", "qtotal=1", "ty=Quorvel", "product=(Quorvel)", "note=Front desk",
              "priority=30", "pdl=application/postscript,application/pdf,"})
            QVERIFY2(seen.contains(u'"' + QLatin1String(entry)), entry);
        QVERIFY(browse(QStringLiteral("_quorvel._sub.") + type).contains(name));
        a.reset(); // withdraws it
        QTRY_VERIFY_WITH_TIMEOUT(!browse(type).contains(name), 10000);
    }

    void sameNameTwiceGetsTwoNames()
    {
        const QString name = QStringLiteral("Quorvel twin-") + tag;
        Advertiser first, second;
        first.dnssd.advertise(name, type, 9124, pdlDatastreamTxt());
        QVERIFY(first.up.wait(10000));
        second.dnssd.advertise(name, type, 9125, pdlDatastreamTxt());
        QVERIFY2(second.up.wait(10000), qPrintable(second.logText()));
        const QString other = second.dnssd.advertisedName(type);
        QCOMPARE(first.dnssd.advertisedName(type), name);
        QVERIFY2(!other.isEmpty() && other != name, qPrintable(other));
        QVERIFY2(second.logText().contains(QStringLiteral("advertising as \"%1\"").arg(other)),
                 qPrintable(second.logText()));
        const QMap<QString, QString> seen = browse(type);
        QVERIFY2(seen.value(name).startsWith(QLatin1String("9124;")) &&
                     seen.value(other).startsWith(QLatin1String("9125;")),
                 qPrintable(seen.keys().join(u'|')));
    }

    void daemonBackRegistersAgain()
    {
        const QString name = QStringLiteral("Quorvel back-") + tag;
        Advertiser a;
        a.dnssd.advertise(name, type, 9127, pdlDatastreamTxt());
        QVERIFY(a.up.wait(10000));
        QCOMPARE(QProcess::execute(
                     QStringLiteral("bash"),
                     {qEnvironmentVariable("QUORVEL_TEST_SUPPORT") + QStringLiteral("/avahi.sh"),
                      QStringLiteral("restart-avahi"), qEnvironmentVariable("QUORVEL_TEST_STATE")}),
                 0);
        QVERIFY2(a.up.wait(8000), qPrintable(a.logText()));
        QCOMPARE(a.log.filter(QStringLiteral("No Avahi daemon")).size(), 1);
        QVERIFY(browse(type).value(name).startsWith(QLatin1String("9127;")));
    }

    // libdbus keeps the bus address it first read: a process of its own, on a bus that is not.
    void withoutDaemonOneLine()
    {
        const QStringList out =
            runTool(QStringLiteral("env"),
                    {QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/tmp/quorvel-no-bus-") + tag,
                     QStringLiteral("QUORVEL_DNSSD_ALONE=1"),
                     QCoreApplication::applicationFilePath()})
                .split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(out.size(), 2);
        QVERIFY2(out[0].startsWith(QLatin1String("No Avahi daemon")) &&
                     out[0].contains(QLatin1String("clients can still print by address")),
                 qPrintable(out[0]));
        QCOMPARE(out[1], QStringLiteral("gone"));
    }
};

// With QUORVEL_DNSSD_ALONE: advertises for a second, printing the log, then "gone".
int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet("QUORVEL_DNSSD_ALONE")) {
        {
            Advertiser a;
            a.dnssd.advertise(QStringLiteral("Quorvel alone"),
                              QStringLiteral("_pdl-datastream._tcp"), 9126, pdlDatastreamTxt());
            QTest::qWait(1000);
            for (const QString& line : a.log)
                printf("%s\n", qPrintable(line));
        }
        printf("gone\n");
        return 0;
    }
    TestDnsSd test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_dnssd.moc"
