#include "server/socketlistener.h"

#include "platform/rawsocket.h"

namespace
{
// Room for 200 clients connecting at once (the system may cap it: net.core.somaxconn).
constexpr int kBacklog = 512;
constexpr int kRetryMs = 250;
// Other events get their turn during a long run of arrivals.
constexpr int kAcceptsPerWake = 64;
} // namespace

bool SocketListener::start(const QHostAddress& address, quint16 port)
{
    setListenBacklogSize(kBacklog);
    if (!listen(address, port))
        return false;
    pauseAccepting(); // Qt's notifier stays off; this one takes over
    m_notifier = std::make_unique<QSocketNotifier>(socketDescriptor(), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &SocketListener::acceptWaiting);
    m_retry.setSingleShot(true);
    m_retry.setInterval(kRetryMs);
    connect(&m_retry, &QTimer::timeout, this, &SocketListener::acceptWaiting);
    return true;
}

void SocketListener::retryNow()
{
    if (m_paused)
        acceptWaiting();
}

void SocketListener::acceptWaiting()
{
    for (int i = 0; i < kAcceptsPerWake; ++i) {
        auto result = rawsocket::AcceptResult::NoneWaiting;
        std::string why;
        const qintptr fd = rawsocket::accept(socketDescriptor(), result, why);
        if (result == rawsocket::AcceptResult::Dropped)
            continue;
        if (result == rawsocket::AcceptResult::CannotAccept) {
            // No busy loop: the notifier would fire at once again. The
            // client waits in the kernel's queue until a retry takes it.
            m_notifier->setEnabled(false);
            m_retry.start();
            if (!m_paused) {
                m_paused = true;
                emit Paused(QString::fromLocal8Bit(why.c_str()));
            }
            return;
        }
        m_retry.stop();
        m_notifier->setEnabled(true);
        if (result == rawsocket::AcceptResult::NoneWaiting) {
            // Everything queued has been taken: the shortage is over.
            if (m_paused) {
                m_paused = false;
                emit Resumed();
            }
            return;
        }
        emit ConnectionRequest(fd);
    }
}
