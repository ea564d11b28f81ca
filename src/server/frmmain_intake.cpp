// TCP job intake: element 0 listens, every accepted connection is loaded
// as the element whose index is the connection count, and every byte
// received goes into the one job buffer.
#include "server/frmmain.h"

#include "common/log.h"
#include "common/runtimeerror.h"
#include "dispatch/jobqueue.h"
#include "platform/rawsocket.h"
#include "server/jobsocket.h"
#include "server/socketlistener.h"

#include <QHostInfo>
#include <QLabel>
#include <QListWidget>
#include <QNetworkInterface>

namespace
{
// The connection log keeps this many lines, so a line costs the same however many came before.
constexpr int kConnectionLogLines = 10000;
// --job-queue reads a connection through one buffer of this size into its spool file.
constexpr qint64 kSpoolChunk = 1 << 20;
constexpr int kSpoolChunksPerEvent = 8;

QString localIp()
{
    for (const QHostAddress& a : QNetworkInterface::allAddresses())
        if (a.protocol() == QAbstractSocket::IPv4Protocol && !a.isLoopback())
            return a.toString();
    return QStringLiteral("127.0.0.1");
}
} // namespace

void frmMain::addStatus(const QString& text, bool log)
{
    List1->addItem(text);
    if (List1->count() > kConnectionLogLines)
        delete List1->takeItem(0);
    // Scrolling lays out the whole list: a hidden one scrolls when it is shown.
    if (List1->isVisible())
        List1->scrollToBottom();
    if (log)
        Log::line(text);
}

void frmMain::startListening()
{
    const quint16 port = m_Listen.port;
    m_ListenPort = Int16(port > 32767 ? int(port) - 65536 : port);
    lblHostID->setText(QHostInfo::localHostName());
    lblAddress->setText(localIp());
    const quint16 localPort = quint16(m_ListenPort.value());
    m_StatusText = QStringLiteral("Listening to port: ") + QString::number(localPort);
    // Shown before the port opens, logged once it takes connections: people and scripts wait
    // for the log line.
    addStatus(m_StatusText, false);

    m_Socket0 = std::make_unique<SocketListener>();
    connect(m_Socket0.get(), &SocketListener::ConnectionRequest, this, [this](qintptr requestID) {
        if (!admitConnection(requestID))
            return;
        RunGuarded([&] { Socket_ConnectionRequest(0, requestID); });
        // A request that no element took is refused: its connection is closed.
        delete m_PendingRequest;
        m_PendingRequest = nullptr;
    });
    connect(m_Socket0.get(), &SocketListener::Paused, this, [this](const QString& why) {
        addStatus(QStringLiteral("No new connection can be taken now (%1; %2 connections open): "
                                 "new clients wait until a connection closes")
                      .arg(why)
                      .arg(m_Socket.size()));
    });
    connect(m_Socket0.get(), &SocketListener::Resumed, this,
            [this] { addStatus(QStringLiteral("New connections are taken again")); });
    if (!m_Socket0->start(m_Listen.address, localPort)) {
        const QString why = m_Socket0->errorString();
        const int code =
            m_Socket0->serverError() == QAbstractSocket::AddressInUseError ? 10048 : 10013;
        RaiseError(code, QStringLiteral("Cannot listen on port %1: %2").arg(localPort).arg(why));
    }
    Log::line(m_StatusText);
    if (m_Listen.address != QHostAddress::Any)
        Log::line(QStringLiteral("Listening on %1 only").arg(m_Listen.address.toString()));
    if (!m_Listen.allowed.isEmpty())
        Log::line(QStringLiteral("Connections are taken only from %1")
                      .arg(m_Listen.allowedText().isEmpty() ? QStringLiteral("no network")
                                                            : m_Listen.allowedText()));
}

// Before any request is raised: a peer outside the allowed networks, or one
// past the connection cap, is closed at once.
bool frmMain::admitConnection(qintptr requestID)
{
    const QString peer = JobSocket::peerAddress(requestID);
    QString why;
    if (!m_Listen.allows(QHostAddress(peer)))
        why = QStringLiteral("not in the allowed networks (%1)").arg(m_Listen.allowedText());
    else if (qsizetype(m_Socket.size()) >= m_Listen.maxConnections)
        why = QStringLiteral("%1 connections are open, the most allowed")
                  .arg(m_Listen.maxConnections);
    if (why.isEmpty())
        return true;
    rawsocket::close(requestID);
    addStatus(QStringLiteral("Connection from %1 refused: %2").arg(peer, why));
    return false;
}

JobSocket* frmMain::loadSocket(int index)
{
    if (m_Socket.count(index))
        RaiseError(rt::ObjectAlreadyLoaded,
                   QStringLiteral("Object already loaded (Socket(%1) is still open; the new "
                                  "connection is refused and its data is not received)")
                       .arg(index));
    JobSocket* socket = m_PendingRequest;
    m_PendingRequest = nullptr;
    m_Socket[index] = socket;
    return socket;
}

void frmMain::Socket_ConnectionRequest(int Index, qintptr requestID)
{
    // The connection is held from the start, so that its peer is known; it
    // is accepted once an element takes it.
    if (Index == 0 && !m_PendingRequest)
        m_PendingRequest = new JobSocket(requestID);
    const QString remote = m_PendingRequest ? m_PendingRequest->RemoteHostIP() : QString();
    m_StatusText = QStringLiteral("Connection request id ") + QString::number(requestID) +
                   QStringLiteral(" from ") + remote;
    if (Index != 0)
        return;

    addStatus(m_StatusText);
    lookUpClient(remote);
    m_LastRequestId = QString::number(requestID);
    acceptConnection();
}

// The element a new connection is loaded as (after the count went up): the
// design's rule, the connection count, which can hit a loaded element; with
// --job-queue the lowest free one, so every connection gets its own.
int frmMain::newElementIndex() const
{
    if (!m_QueueAll)
        return m_ConnCount;
    int index = 1;
    while (m_Socket.count(index))
        ++index;
    return index;
}

void frmMain::acceptConnection()
{
    ++m_ConnCount;
    lblConnections->setText(m_ConnCount.toString());

    const int index = newElementIndex();
    if (m_Socket.count(index)) {
        // Refused below: it is not counted, so the count stays the open connections.
        --m_ConnCount;
        lblConnections->setText(m_ConnCount.toString());
    }
    JobSocket* socket = loadSocket(index);
    // Events of an element that has been unloaded meanwhile are dropped.
    const auto isLoaded = [this, socket, index] {
        const auto it = m_Socket.find(index);
        return it != m_Socket.end() && it->second == socket;
    };
    connect(socket, &JobSocket::DataArrival, this, Guarded([this, isLoaded, index] {
                if (isLoaded())
                    Socket_DataArrival(index, 0);
            }));
    connect(socket, &JobSocket::Closed, this, Guarded([this, isLoaded, index] {
                if (isLoaded())
                    Socket_Close(index);
            }));
    socket->Accept();
}

void frmMain::Socket_DataArrival(int Index, qint64 /*bytesTotal*/)
{
    JobSocket* socket = m_Socket.at(Index);
    if (!m_QueueAll) {
        socket->GetData(m_JobBuffer);
        return;
    }
    // A bounded chunk at a time, each into the job's spool file, and a few per event: a large
    // job costs no memory, and keeps no other connection waiting.
    m_SpoolChunk.resize(kSpoolChunk);
    for (int round = 0; round < kSpoolChunksPerEvent; ++round) {
        const qint64 n = socket->Receive(m_SpoolChunk.data(), kSpoolChunk);
        if (n <= 0)
            return;
        const QByteArrayView bytes(m_SpoolChunk.constData(), n);
        auto& spool = socket->spool();
        if (!spool && socket->buffer().isEmpty()) {
            // Blanks before a job are nothing to keep: a blank flood costs nothing.
            if (!JobBuffer::holdsMoreThanBlanks(bytes))
                continue;
            spool = m_JobQueue->receive();
        }
        if (!spool) {
            socket->buffer().append(bytes.data(), bytes.size()); // until the folder can be written
        } else if (!spool->write(bytes)) {
            txtLog->append(QStringLiteral("The job from %1 is refused: its spool file could not "
                                          "be written (%2); its %3 bytes so far are dropped and "
                                          "the connection is closed")
                               .arg(socket->RemoteHostIP(), spool->why())
                               .arg(spool->size() + n));
            spool.reset();
            unloadSocket(Index);
            return;
        }
        if (n < kSpoolChunk)
            return;
    }
}

void frmMain::Socket_Close(int Index)
{
    JobSocket* socket = m_Socket.at(Index);
    m_StatusText = QStringLiteral("Connection closed: ") + socket->RemoteHostIP();
    addStatus(m_StatusText);

    if (m_QueueAll) {
        auto spool = std::move(socket->spool());
        if (socket->wasReset())
            txtLog->append(QStringLiteral("Connection from %1 was reset before it closed: its "
                                          "%2 bytes make no job%3")
                               .arg(socket->RemoteHostIP())
                               .arg(spool ? spool->size() : socket->buffer().size())
                               .arg(spool ? QStringLiteral("; its partial spool file is removed")
                                          : QString()));
        else if (spool)
            m_JobQueue->finish(std::move(spool), socket->RemoteHostIP());
        else if (socket->buffer().holdsMoreThanBlanks())
            m_JobQueue->add(socket->buffer().view(), socket->RemoteHostIP());
        spool.reset();
        socket->buffer().clear();
        unloadSocket(Index);
        return;
    }
    const QString client = socket->RemoteHostIP();
    unloadSocket(Index);
    if (m_JobBuffer.holdsMoreThanBlanks()) {
        // One buffer may hold several clients' bytes: the job is this connection's.
        m_ClosingClient = client;
        Command1_Click();
    } else if (!m_JobBuffer.isEmpty() && m_Socket.empty()) {
        // Nothing to print, and no open connection it could be the start of.
        addStatus(QStringLiteral("Only blanks received (%1 bytes): no job; they are dropped")
                      .arg(m_JobBuffer.size()));
        m_JobBuffer.clear();
    }
}

void frmMain::unloadSocket(int Index)
{
    JobSocket* socket = m_Socket.at(Index);
    socket->disconnect(this);
    socket->Close();
    m_Socket.erase(Index);
    socket->deleteLater();
    --m_ConnCount;
    lblConnections->setText(m_ConnCount.toString());
    // A descriptor is free again; taken after this handler, not inside it.
    QMetaObject::invokeMethod(m_Socket0.get(), &SocketListener::retryNow, Qt::QueuedConnection);
}
