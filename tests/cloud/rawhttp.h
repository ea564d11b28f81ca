#pragma once

// A one-answer-per-connection HTTP server on 127.0.0.1 for the answers a
// WebDAV server does not give (odd headers, broken bodies) and to see the
// request exactly as it went out.
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>

class RawHttpServer : public QObject
{
public:
    explicit RawHttpServer(QByteArray answer) : m_answer(std::move(answer))
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* s = m_server.nextPendingConnection()) {
                connect(s, &QTcpSocket::disconnected, s, &QObject::deleteLater);
                connect(s, &QTcpSocket::readyRead, s, [this, s, buffer = QByteArray()]() mutable {
                    buffer.append(s->readAll());
                    const qsizetype end = buffer.indexOf("\r\n\r\n");
                    qsizetype length = 0;
                    for (const QByteArray& line : buffer.left(end).split('\n'))
                        if (line.toLower().startsWith("content-length:"))
                            length = line.mid(15).trimmed().toLongLong();
                    if (end < 0 || buffer.size() < end + 4 + length)
                        return;
                    requests.append(std::exchange(buffer, {}));
                    s->write(m_answer);
                    s->disconnectFromHost();
                });
            }
        });
    }
    QString url() const
    {
        return QStringLiteral("http://127.0.0.1:%1/dav/").arg(m_server.serverPort());
    }
    // The request line and header lines of request i.
    QList<QByteArray> head(int i) const
    {
        const QByteArray& r = requests.at(i);
        QList<QByteArray> lines = r.left(r.indexOf("\r\n\r\n")).split('\n');
        for (QByteArray& l : lines)
            l = l.trimmed();
        return lines;
    }

    QList<QByteArray> requests;

private:
    QTcpServer m_server;
    QByteArray m_answer;
};
