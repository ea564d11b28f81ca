#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <functional>
#include <memory>
#include <vector>

struct AvahiThreadedPoll;
struct AvahiClient;
struct AvahiEntryGroup;

// Advertises services on the LAN through the Avahi daemon (DNS-SD over mDNS). Avahi's calls run
// on its own thread; their news reaches this object queued, on the thread it lives in. Without
// a daemon the program goes on unadvertised, and registers once the daemon comes (back).
class DnsSdAdvertiser : public QObject
{
    Q_OBJECT
public:
    using LogFunction = std::function<void(const QString&)>;

    explicit DnsSdAdvertiser(LogFunction log, QObject* parent = nullptr);
    // Withdraws every service.
    ~DnsSdAdvertiser() override;

    // Advertises NAME as a service of TYPE ("_pdl-datastream._tcp") on PORT, with the TXT
    // record's "key=value" strings and SUBTYPES ("_print" or "_print._sub._ipp._tcp"). On a
    // name taken on the LAN it takes Avahi's alternative ("NAME #2") and logs it.
    void advertise(const QString& name, const QString& type, quint16 port,
                   const QList<QByteArray>& txt, const QStringList& subtypes = {});

    // The name TYPE is advertised under now ("" while it is not).
    QString advertisedName(const QString& type) const;

signals:
    // TYPE is on the LAN as NAME.
    void established(const QString& type, const QString& name);

private:
    struct Service {
        QString name; // the one asked for, then Avahi's alternatives
        QString type;
        quint16 port = 0;
        QList<QByteArray> txt;
        QStringList subtypes;
        AvahiEntryGroup* group = nullptr;
        bool established = false;
    };

    // Holds Avahi's lock; what is said under it (log lines, signals) goes out once it is let go.
    struct Locked;

    // These run on this object's thread under Locked.
    void connectClient();
    void clientChanged();
    void groupChanged(AvahiEntryGroup* group);
    void registerService(Service& s);
    void rename(Service& s);
    void dropGroups();
    void noDaemon(int error);
    void say(const QString& line);

    LogFunction log_;
    AvahiThreadedPoll* poll_ = nullptr;
    AvahiClient* client_ = nullptr;
    std::vector<std::unique_ptr<Service>> services_;
    bool noDaemonLogged_ = false;
    std::vector<std::function<void()>> notices_;
    QTimer retry_; // a new client after the bus itself failed
};

// The TXT record of the raw (port 9100 style) printer: the languages the port reads, and who
// answers. NOTE says where it is; PRIORITY orders it among a host's printers (0 first).
QList<QByteArray> pdlDatastreamTxt(const QString& note = {}, int priority = 50);
