#include "ipp/dnssd.h"

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>

namespace
{
// Another try after the bus failed (a daemon that comes and goes is waited for on the bus).
constexpr int kRetryMs = 10000;
// Avahi's alternatives tried at once before giving up on a name.
constexpr int kMaxRenames = 20;
} // namespace

// Avahi's lock is not recursive: nothing that may call back into this object runs under it.
struct DnsSdAdvertiser::Locked {
    DnsSdAdvertiser* self;
    explicit Locked(DnsSdAdvertiser* s) : self(s) { avahi_threaded_poll_lock(self->poll_); }
    ~Locked()
    {
        avahi_threaded_poll_unlock(self->poll_);
        std::vector<std::function<void()>> notices;
        notices.swap(self->notices_);
        for (const auto& notice : notices)
            notice();
    }
};

DnsSdAdvertiser::DnsSdAdvertiser(LogFunction log, QObject* parent)
    : QObject(parent), log_(std::move(log))
{
    retry_.setSingleShot(true);
    retry_.setInterval(kRetryMs);
    connect(&retry_, &QTimer::timeout, this, [this] {
        Locked lock(this);
        connectClient();
    });
    poll_ = avahi_threaded_poll_new();
    if (!poll_ || avahi_threaded_poll_start(poll_) < 0) {
        if (poll_)
            avahi_threaded_poll_free(poll_);
        poll_ = nullptr;
        log_(QStringLiteral("No Avahi daemon: Quorvel is not advertised on the LAN (its event "
                            "thread did not start); clients can still print by address"));
        return;
    }
    Locked lock(this);
    connectClient();
}

DnsSdAdvertiser::~DnsSdAdvertiser()
{
    if (!poll_)
        return;
    avahi_threaded_poll_stop(poll_);
    // Freeing the client frees its groups, which withdraws the services.
    if (client_)
        avahi_client_free(client_);
    avahi_threaded_poll_free(poll_);
}

void DnsSdAdvertiser::connectClient()
{
    // Runs on Avahi's thread: only tells this object's thread to look.
    auto onClient = [](AvahiClient*, AvahiClientState, void* self) {
        auto* me = static_cast<DnsSdAdvertiser*>(self);
        QMetaObject::invokeMethod(
            me,
            [me] {
                Locked lock(me);
                me->clientChanged();
            },
            Qt::QueuedConnection);
    };
    int error = 0;
    client_ = avahi_client_new(avahi_threaded_poll_get(poll_), AVAHI_CLIENT_NO_FAIL, onClient, this,
                               &error);
    if (!client_) {
        noDaemon(error);
        retry_.start();
    }
}

void DnsSdAdvertiser::clientChanged()
{
    if (!client_)
        return;
    switch (avahi_client_get_state(client_)) {
    case AVAHI_CLIENT_S_RUNNING:
        noDaemonLogged_ = false;
        for (auto& s : services_)
            if (!s->group || avahi_entry_group_is_empty(s->group))
                registerService(*s);
        break;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION:
        // The host's own name is being settled: ours go again once it is.
        for (auto& s : services_)
            if (s->group) {
                avahi_entry_group_reset(s->group);
                s->established = false;
            }
        break;
    case AVAHI_CLIENT_CONNECTING:
        dropGroups();
        noDaemon(AVAHI_ERR_NO_DAEMON);
        break;
    case AVAHI_CLIENT_FAILURE: {
        const int error = avahi_client_errno(client_);
        dropGroups();
        avahi_client_free(client_);
        client_ = nullptr;
        noDaemon(error);
        // The daemon went away: a new client waits for it on the bus. Other faults wait a while.
        if (error == AVAHI_ERR_DISCONNECTED)
            connectClient();
        else
            retry_.start();
        break;
    }
    }
}

void DnsSdAdvertiser::advertise(const QString& name, const QString& type, quint16 port,
                                const QList<QByteArray>& txt, const QStringList& subtypes)
{
    services_.push_back(std::make_unique<Service>(Service{name, type, port, txt, subtypes}));
    if (!poll_)
        return;
    Locked lock(this);
    if (client_ && avahi_client_get_state(client_) == AVAHI_CLIENT_S_RUNNING)
        registerService(*services_.back());
}

QString DnsSdAdvertiser::advertisedName(const QString& type) const
{
    for (const auto& s : services_)
        if (s->type == type && s->established)
            return s->name;
    return QString();
}

void DnsSdAdvertiser::registerService(Service& s)
{
    const auto failed = [this, &s](const char* step, int error) {
        say(QStringLiteral("Could not advertise \"%1\" (%2) on the LAN: %3 %4")
                .arg(s.name, s.type, QString::fromLatin1(step),
                     QString::fromUtf8(avahi_strerror(error))));
    };
    if (!s.group) {
        auto onGroup = [](AvahiEntryGroup* group, AvahiEntryGroupState, void* self) {
            auto* me = static_cast<DnsSdAdvertiser*>(self);
            QMetaObject::invokeMethod(
                me,
                [me, group] {
                    Locked lock(me);
                    me->groupChanged(group);
                },
                Qt::QueuedConnection);
        };
        s.group = avahi_entry_group_new(client_, onGroup, this);
        if (!s.group)
            return failed("group:", avahi_client_errno(client_));
    }
    s.established = false;
    AvahiStringList* txt = nullptr;
    for (const QByteArray& entry : s.txt)
        txt = avahi_string_list_add_arbitrary(
            txt, reinterpret_cast<const uint8_t*>(entry.constData()), size_t(entry.size()));
    txt = avahi_string_list_reverse(txt); // it was built front first
    const QByteArray type = s.type.toUtf8();
    int r = AVAHI_OK;
    for (int tries = 0; tries < kMaxRenames; ++tries) {
        const QByteArray name = s.name.toUtf8();
        r = avahi_entry_group_add_service_strlst(s.group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                                 AvahiPublishFlags(0), name.constData(),
                                                 type.constData(), nullptr, nullptr, s.port, txt);
        if (r != AVAHI_ERR_COLLISION)
            break;
        // Taken by another service of this host.
        rename(s);
        avahi_entry_group_reset(s.group);
    }
    avahi_string_list_free(txt);
    if (r < 0)
        return failed("", r);
    for (const QString& subtype : s.subtypes) {
        const QByteArray full = (subtype.contains(QLatin1String("._sub."))
                                     ? subtype
                                     : subtype + QStringLiteral("._sub.") + s.type)
                                    .toUtf8();
        r = avahi_entry_group_add_service_subtype(s.group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                                  AvahiPublishFlags(0), s.name.toUtf8().constData(),
                                                  type.constData(), nullptr, full.constData());
        if (r < 0) {
            avahi_entry_group_reset(s.group);
            return failed(full.constData(), r);
        }
    }
    if ((r = avahi_entry_group_commit(s.group)) < 0)
        failed("", r);
}

void DnsSdAdvertiser::groupChanged(AvahiEntryGroup* group)
{
    // The group may be gone since the news was sent: only a group of ours is asked.
    for (auto& s : services_) {
        if (s->group != group)
            continue;
        switch (avahi_entry_group_get_state(group)) {
        case AVAHI_ENTRY_GROUP_ESTABLISHED:
            if (!s->established) {
                s->established = true;
                say(QStringLiteral("Advertised on the LAN as \"%1\" (%2, port %3)")
                        .arg(s->name, s->type)
                        .arg(s->port));
                notices_.push_back(
                    [this, type = s->type, name = s->name] { emit established(type, name); });
            }
            break;
        case AVAHI_ENTRY_GROUP_COLLISION:
            // Another host on the LAN has the name.
            rename(*s);
            avahi_entry_group_reset(group);
            registerService(*s);
            break;
        case AVAHI_ENTRY_GROUP_FAILURE:
            say(QStringLiteral("Could not advertise \"%1\" (%2) on the LAN: %3")
                    .arg(s->name, s->type,
                         QString::fromUtf8(avahi_strerror(avahi_client_errno(client_)))));
            break;
        default:
            break;
        }
        return;
    }
}

void DnsSdAdvertiser::rename(Service& s)
{
    char* other = avahi_alternative_service_name(s.name.toUtf8().constData());
    const QString taken = s.name;
    s.name = QString::fromUtf8(other);
    avahi_free(other);
    say(QStringLiteral("The name \"%1\" is taken on the LAN; advertising as \"%2\"")
            .arg(taken, s.name));
}

void DnsSdAdvertiser::dropGroups()
{
    for (auto& s : services_) {
        if (s->group)
            avahi_entry_group_free(s->group);
        s->group = nullptr;
        s->established = false;
    }
}

void DnsSdAdvertiser::noDaemon(int error)
{
    if (noDaemonLogged_)
        return;
    noDaemonLogged_ = true;
    // Beyond a daemon that is not running (the bus itself, ...) the reason is worth a look.
    const QString why = error == AVAHI_ERR_NO_DAEMON || error == AVAHI_ERR_DISCONNECTED
                            ? QString()
                            : QStringLiteral(" (%1)").arg(QString::fromUtf8(avahi_strerror(error)));
    say(QStringLiteral("No Avahi daemon: Quorvel is not advertised on the LAN%1; clients can "
                       "still print by address")
            .arg(why));
}

void DnsSdAdvertiser::say(const QString& line)
{
    notices_.push_back([this, line] { log_(line); });
}

QList<QByteArray> pdlDatastreamTxt(const QString& note, int priority)
{
    // What the port reads: PostScript and PDF are converted, PCL goes to the printer as sent.
    QList<QByteArray> txt{
        "txtvers=1",
        "qtotal=1",
        "pdl=application/postscript,application/pdf,application/vnd.hp-PCL,"
        "application/vnd.hp-PCLXL",
        "ty=Quorvel",
        "product=(Quorvel)",
    };
    QString shortNote = note; // a TXT string holds 255 bytes, "note=" included
    while (shortNote.toUtf8().size() > 250)
        shortNote.chop(1);
    if (!shortNote.isEmpty())
        txt << "note=" + shortNote.toUtf8();
    txt << "priority=" + QByteArray::number(qBound(0, priority, 99));
    return txt;
}
