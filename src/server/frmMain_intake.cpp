// TCP job intake: element 0 listens, every accepted connection is loaded
// as the element whose index is the connection count, and every byte
// received goes into the one job buffer.
#include "server/frmMain.h"

#include "common/runtimeerror.h"
#include "server/socketlistener.h"

#include <QHostAddress>
#include <QHostInfo>
#include <QLabel>
#include <QListWidget>
#include <QNetworkInterface>
#include <QTcpSocket>

namespace
{
// Dual-stack listening shows IPv4 peers as ::ffff:a.b.c.d.
QString hostIp(const QHostAddress& address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    return isV4 ? QHostAddress(v4).toString() : address.toString();
}

constexpr const char* kRemoteHostIP = "RemoteHostIP";

QString remoteHostIP(const QTcpSocket* socket)
{
    return socket->property(kRemoteHostIP).toString();
}

QString localIp()
{
    for (const QHostAddress& a : QNetworkInterface::allAddresses())
        if (a.protocol() == QAbstractSocket::IPv4Protocol && !a.isLoopback())
            return a.toString();
    return QStringLiteral("127.0.0.1");
}

// The job buffer holds the bytes as received; blanks are ASCII white space.
bool holdsMoreThanBlanks(const QByteArray& buffer)
{
    for (char c : buffer)
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n' && c != '\f' && c != '\v')
            return true;
    return false;
}

// Large socket buffers let a big job flow without stalling the sender.
constexpr int kReceiveBufferBytes = 4 * 1024 * 1024;
} // namespace

void frmMain::addStatus(const QString& text)
{
    List1->addItem(text);
    List1->scrollToBottom();
    Log::line(text);
}

void frmMain::startListening()
{
    m_ListenPort = Int16(m_RequestedPort > 32767 ? int(m_RequestedPort) - 65536 : m_RequestedPort);
    lblHostID->setText(QHostInfo::localHostName());
    lblAddress->setText(localIp());
    const quint16 localPort = quint16(m_ListenPort.value());
    m_StatusText = QStringLiteral("Listening to port: ") + QString::number(localPort);
    addStatus(m_StatusText);

    m_Socket0 = std::make_unique<SocketListener>();
    connect(m_Socket0.get(), &SocketListener::ConnectionRequest, this, [this](qintptr requestID) {
        RunGuarded([&] { Socket_ConnectionRequest(0, requestID); });
        // A request that was not accepted is refused and closed.
        if (m_PendingRequest) {
            m_PendingRequest->abort();
            m_PendingRequest->deleteLater();
            m_PendingRequest = nullptr;
        }
    });
    if (!m_Socket0->listen(QHostAddress::Any, localPort)) {
        const QString why = m_Socket0->errorString();
        const int code =
            m_Socket0->serverError() == QAbstractSocket::AddressInUseError ? 10048 : 10013;
        RaiseError(code, QStringLiteral("Cannot listen on port %1: %2").arg(localPort).arg(why));
    }
}

QTcpSocket* frmMain::loadSocket(int index)
{
    if (m_Socket.count(index))
        RaiseError(rt::ObjectAlreadyLoaded,
                   QStringLiteral("Object already loaded (Socket(%1) is still open)").arg(index));
    auto* socket = m_PendingRequest;
    m_PendingRequest = nullptr;
    m_Socket[index] = socket;
    return socket;
}

void frmMain::Socket_ConnectionRequest(int Index, qintptr requestID)
{
    // The connection is taken from the listener at once so that its peer is
    // known; it counts as accepted only once an element holds it.
    if (Index == 0 && !m_PendingRequest) {
        m_PendingRequest = new QTcpSocket;
        m_PendingRequest->setSocketDescriptor(requestID);
        // Kept: the peer's address is gone once the connection is closed.
        m_PendingRequest->setProperty(kRemoteHostIP, hostIp(m_PendingRequest->peerAddress()));
    }
    const QString remote = m_PendingRequest ? remoteHostIP(m_PendingRequest) : QString();
    m_StatusText = QStringLiteral("Connection request id ") + QString::number(requestID) +
                   QStringLiteral(" from ") + remote;
    if (Index != 0)
        return;

    addStatus(m_StatusText);
    m_LastRequestId = QString::number(requestID);
    ++m_ConnCount;
    lblConnections->setText(m_ConnCount.toString());

    const int index = m_ConnCount;
    QTcpSocket* socket = loadSocket(index);
    socket->setReadBufferSize(0);
    socket->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, kReceiveBufferBytes);
    connect(socket, &QTcpSocket::readyRead, this, Guarded([this, socket, index] {
                if (m_Socket.count(index) && m_Socket[index] == socket)
                    Socket_DataArrival(index, socket->bytesAvailable());
            }));
    connect(socket, &QTcpSocket::disconnected, this, Guarded([this, socket, index] {
                if (m_Socket.count(index) && m_Socket[index] == socket)
                    Socket_Close(index);
            }));
    // Bytes that came with the connection itself.
    if (socket->bytesAvailable() > 0)
        Socket_DataArrival(index, socket->bytesAvailable());
}

void frmMain::Socket_DataArrival(int Index, qint64 /*bytesTotal*/)
{
    QTcpSocket* socket = m_Socket.at(Index);
    // Read straight onto the end of the buffer; the capacity doubles, so a
    // large job is not copied per arrival.
    for (qint64 available = socket->bytesAvailable(); available > 0;
         available = socket->bytesAvailable()) {
        const qsizetype old = m_JobBuffer.size();
        const qsizetype needed = old + available;
        if (m_JobBuffer.capacity() < needed)
            m_JobBuffer.reserve(qMax(needed, m_JobBuffer.capacity() * 2));
        m_JobBuffer.resize(needed);
        const qint64 got = socket->read(m_JobBuffer.data() + old, available);
        m_JobBuffer.resize(old + qMax<qint64>(got, 0));
        if (got <= 0)
            break;
    }
}

void frmMain::Socket_Close(int Index)
{
    QTcpSocket* socket = m_Socket.at(Index);
    // What the client sent just before closing still belongs to the job.
    if (socket->bytesAvailable() > 0)
        Socket_DataArrival(Index, socket->bytesAvailable());

    m_StatusText = QStringLiteral("Connection closed: ") + remoteHostIP(socket);
    addStatus(m_StatusText);

    socket->disconnect(this);
    socket->close();
    m_Socket.erase(Index);
    socket->deleteLater();

    --m_ConnCount;
    lblConnections->setText(m_ConnCount.toString());

    if (holdsMoreThanBlanks(m_JobBuffer))
        Command1_Click();
}
