#pragma once

// Shared by the dispatch tests: a main window on a free loopback port in a
// private program folder, a message recorder and real TCP clients.

#include "common/msgbox.h"
#include "common/paths.h"
#include "freeport.h"
#include "server/frmMain.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTcpServer>
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
    QStringList jobFiles() const
    {
        return QDir(jobFolder()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
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

// What a program prints, or "" when it cannot be run.
inline QString runTool(const QString& program, const QStringList& args)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(60000))
        return QString();
    return QString::fromLocal8Bit(p.readAllStandardOutput());
}

inline int pdfPages(const QString& path)
{
    const QString info = runTool(QStringLiteral("pdfinfo"), {path});
    for (const QString& line : info.split(u'\n'))
        if (line.startsWith(QLatin1String("Pages:")))
            return line.mid(6).trimmed().toInt();
    return -1;
}
