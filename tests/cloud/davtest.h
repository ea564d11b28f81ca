#pragma once

// The Apache share of the webdav fixture, and a ThinDavApi run to its end.
#include "cloud/thindavapi.h"
#include "common/msgbox.h"
#include "freeport.h"
#include "testsupport.h"

#include <QCoreApplication>
#include <QFile>
#include <QSignalSpy>
#include <QTest>
#include <functional>

struct DavShare {
    QString url, user, password, root, home;
    bool ok = false;

    static DavShare fromFixture()
    {
        const auto env = serviceEnv(QStringLiteral("webdav"));
        DavShare s;
        s.url = env.value(QStringLiteral("DAV_URL"));
        s.user = env.value(QStringLiteral("DAV_USER"));
        s.password = env.value(QStringLiteral("DAV_PASSWORD"));
        s.root = env.value(QStringLiteral("DAV_ROOT"));
        s.home = env.value(QStringLiteral("DAV_HOME"));
        s.ok = !s.url.isEmpty();
        return s;
    }
    // Request lines Apache logged, as they arrived.
    QString accessLog() const
    {
        QFile f(home + QStringLiteral("/logs/access.log"));
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }
};

// What Complete saw while it ran.
struct Completion {
    int request, status;
    QString statusText;
    QList<DirEntry> entries;
    QByteArray bytes;
    QString text;
    qint32 length;
    DavCollection headers;
    QString xml;
    QVariant tag;
    bool aborted;
    int readyState;
};

// A ThinDavApi that keeps what each Complete saw.
struct DavClient : ThinDavApi {
    explicit DavClient(const QString& url, const QString& user = {}, const QString& pw = {})
    {
        setBaseUrl(url);
        User = user;
        PW = pw;
        connect(this, &ThinDavApi::Complete, this, [this](int request) {
            all.append({request, Status(), StatusText(), DirEntries(), FileBytes(), FileText(),
                        Length(), RespHeaders(), XML(), Tag(), Aborted(), ReadyState()});
        });
    }
    explicit DavClient(const DavShare& s) : DavClient(s.url, s.user, s.password) {}
    // Starts a request and waits (bounded) for its Complete.
    bool run(const std::function<void()>& start)
    {
        const qsizetype before = all.size();
        start();
        for (int i = 0; i < 1000 && all.size() == before; ++i)
            QTest::qWait(10);
        return all.size() == before + 1;
    }
    const Completion& last() const { return all.last(); }
    QList<Completion> all;
};

// The message boxes shown (recorded, not shown) while it lives.
struct ShownMessages : QList<Message> {
    ShownMessages()
    {
        setMsgRecorder([this](const Message& m) { append(m); });
    }
    ~ShownMessages() { setMsgRecorder({}); }
    QStringList texts() const
    {
        QStringList t;
        for (const Message& m : *this)
            t << m.text;
        return t;
    }
};

// Starts a request of client c and waits for its Complete (and checks its status).
#define DAV_RUN(c, call) QVERIFY((c).run([&] { (c).call; }))
#define DAV_EXPECT(c, call, code)                                                                  \
    do {                                                                                           \
        DAV_RUN(c, call);                                                                          \
        QCOMPARE((c).last().status, code);                                                         \
    } while (false)

// A URL on 127.0.0.1 where nothing listens.
inline QString closedUrl()
{
    return QStringLiteral("http://127.0.0.1:%1/dav/").arg(freePort());
}

inline QString uniqueName(const char* prefix)
{
    return QString::fromLatin1(prefix) + QString::number(QCoreApplication::applicationPid());
}
