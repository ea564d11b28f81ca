#pragma once

// Shared by the dispatch tests: a main window on a free loopback port in a
// private program folder, a message recorder and real TCP clients.

#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "freeport.h"
#include "printtest.h"
#include "psjob.h"
#include "server/frmmain.h"

#include <QDir>
#include <QLineEdit>
#include <QRadioButton>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <vector>

// A window that lives in its own program folder (with a blank in its name,
// so that every quoted path is tried with one).
struct Server {
    QTemporaryDir root;
    QString folder;
    quint16 port = 0;
    std::vector<Message> messages;
    std::unique_ptr<frmMain> window;

    Server()
    {
        folder = root.path() + QStringLiteral("/program folder");
        QDir().mkpath(folder);
        Paths::setProgramFolder(folder);
        setMsgRecorder([this](const Message& m) { messages.push_back(m); });
        port = freePort();
        window = std::make_unique<frmMain>(port);
    }
    ~Server()
    {
        // Ghostscript closes its output a moment before it exits.
        if (window)
            QTRY_VERIFY_WITH_TIMEOUT(window->findChildren<QProcess*>().isEmpty(), 60000);
        window.reset();
        setMsgRecorder({});
    }

    QString jobFolder() const { return Paths::jobFolder(); }
    QString jobPath(const QString& name) const { return jobFolder() + QDir::separator() + name; }
    QStringList jobFiles() const
    {
        return QDir(jobFolder()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    }
    // Every message shown, for failure output.
    QString shown() const
    {
        QStringList texts;
        for (const Message& m : messages)
            texts << m.text;
        return texts.join(u'|');
    }
};

// Clicks the option buttons for pdf, image, tiff, jpeg or print output.
inline void choose(frmMain& w, const QString& output, bool colour = false)
{
    (colour ? w.Option7 : w.Option6)->click();
    if (output == QLatin1String("pdf"))
        w.Option1->click();
    else if (output == QLatin1String("print"))
        w.Option3->click();
    else
        w.Option2->click();
    if (output == QLatin1String("tiff"))
        w.Option4->click();
    else if (output == QLatin1String("jpeg"))
        w.Option5->click();
}

// Saves the job, converts it and waits until Ghostscript has ended.
inline void convert(frmMain& w, const QByteArray& job)
{
    w.SavePSFile(job);
    w.DoConvertPs2PdfImage();
    QTRY_VERIFY_WITH_TIMEOUT(w.findChildren<QProcess*>().isEmpty(), 60000);
}

// A cloud user and server chosen in the settings while this lives.
struct CloudAccount {
    CloudAccount()
    {
        SettingsStore::put(QStringLiteral("CloudClientUserId"), QStringLiteral("alice"));
        SettingsStore::put(QStringLiteral("CloudClientServerId"), QStringLiteral("srv1"));
    }
    ~CloudAccount()
    {
        for (const char* key : {"CloudClientUserId", "CloudClientServerId", "CloudBaseUrl"})
            SettingsStore::remove(QLatin1String(key));
    }
};

// Sends a job the way a network client does: connect, write everything,
// close. Returns at once; the socket goes away once the server has it all.
inline void sendJob(quint16 port, const QByteArray& data)
{
    auto* c = new QTcpSocket;
    QObject::connect(c, &QTcpSocket::connected, c, [c, data] {
        c->write(data);
        c->disconnectFromHost(); // after the pending bytes
    });
    QObject::connect(c, &QTcpSocket::disconnected, c, &QObject::deleteLater);
    QObject::connect(c, &QTcpSocket::errorOccurred, c, [c](QAbstractSocket::SocketError e) {
        if (e != QAbstractSocket::RemoteHostClosedError)
            qWarning("client: %s", qPrintable(c->errorString()));
        c->deleteLater();
    });
    c->connectToHost(QHostAddress::LocalHost, port);
}
