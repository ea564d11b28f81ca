#pragma once

// The Apache share of the webdav fixture, and a ThinDavApi run to its end.
#include "cloud/thindavapi.h"
#include "common/msgbox.h"
#include "testsupport.h"
#include "testsupport.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>
#include <functional>

inline QByteArray fileBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

struct DavShare {
    QString url, user, password, root, home;

    static DavShare fromFixture()
    {
        const auto env = serviceEnv(QStringLiteral("webdav"));
        return {env.value("DAV_URL"), env.value("DAV_USER"), env.value("DAV_PASSWORD"),
                env.value("DAV_ROOT"), env.value("DAV_HOME")};
    }
    bool ok() const { return !url.isEmpty(); }
    // A path below the share as Apache keeps it: whether it is there, what it holds.
    bool has(const QString& path) const { return QFileInfo::exists(root + u'/' + path); }
    QByteArray bytes(const QString& path) const { return fileBytes(root + u'/' + path); }
    // Request lines Apache logged, as they arrived.
    QString accessLog() const { return QString::fromUtf8(fileBytes(home + "/logs/access.log")); }
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
