#include "server/jobsocket.h"

#include "common/log.h"
#include "platform/rawsocket.h"
#include "server/jobbuffer.h"

#include <QHostAddress>

#include <new>

QString JobSocket::peerAddress(qintptr fd)
{
    sockaddr_storage ss{};
    if (!rawsocket::peerName(fd, ss))
        return QString();
    const QHostAddress a(reinterpret_cast<const sockaddr*>(&ss));
    bool isV4 = false;
    const quint32 v4 = a.toIPv4Address(&isV4);
    return isV4 ? QHostAddress(v4).toString() : a.toString();
}

namespace
{
constexpr qint64 kReadChunk = 1 << 20;
} // namespace

JobSocket::JobSocket(qintptr descriptor, QObject* parent)
    : QObject(parent), m_fd(descriptor), m_remoteHostIP(peerAddress(descriptor)),
      m_notifier(descriptor, QSocketNotifier::Read)
{
    m_notifier.setEnabled(false);
    rawsocket::setNonBlocking(m_fd);
    // The receive window is left to the system's own tuning: a fixed size
    // would turn that off, and a default system caps it far below what tuning reaches.
    connect(&m_notifier, &QSocketNotifier::activated, this, &JobSocket::DataArrival);
}

JobSocket::~JobSocket()
{
    Close();
}

void JobSocket::Accept()
{
    m_notifier.setEnabled(true);
}

qint64 JobSocket::GetData(JobBuffer& buffer)
{
    qint64 total = 0;
    while (m_fd >= 0 && !m_peerClosed) {
        char* tail = nullptr;
        try {
            tail = buffer.reserveTail(kReadChunk);
        } catch (const std::bad_alloc&) {
            // Reading on would fail at every arrival: end the job with what is here.
            Log::line(QStringLiteral("No memory for more of the job from %1 (%2 bytes received): "
                                     "the connection is closed and the job ends there")
                          .arg(m_remoteHostIP)
                          .arg(buffer.size()));
            m_peerClosed = true;
            break;
        }
        const qint64 n = rawsocket::receive(m_fd, tail, kReadChunk);
        if (n > 0) {
            buffer.commit(n);
            total += n;
            continue;
        }
        if (n == rawsocket::WouldBlock)
            break;
        m_peerClosed = true; // 0: closed by the peer; or a failed connection
        m_reset = n != 0;
    }
    reportClose();
    return total;
}

qint64 JobSocket::Receive(char* into, qint64 room)
{
    qint64 total = 0;
    while (m_fd >= 0 && !m_peerClosed && total < room) {
        const qint64 n = rawsocket::receive(m_fd, into + total, room - total);
        if (n > 0) {
            total += n;
            continue;
        }
        if (n == rawsocket::WouldBlock)
            break;
        m_peerClosed = true;
        m_reset = n != 0;
    }
    reportClose();
    return total;
}

void JobSocket::reportClose()
{
    if (!m_peerClosed || m_closeReported)
        return;
    m_closeReported = true;
    m_notifier.setEnabled(false);
    // The close is its own event, after the data that came with it.
    QMetaObject::invokeMethod(this, &JobSocket::Closed, Qt::QueuedConnection);
}

void JobSocket::Close()
{
    if (m_fd < 0)
        return;
    m_notifier.setEnabled(false);
    rawsocket::close(m_fd);
    m_fd = -1;
}
