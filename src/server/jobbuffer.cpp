#include "server/jobbuffer.h"

#include "platform/pages.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>

namespace
{
constexpr std::size_t kFirstBlock = 64 * 1024;
constexpr std::size_t kMiB = 1024 * 1024;
// Address space a buffer reserves on 64-bit systems; a larger job moves out of it.
constexpr std::size_t kReservation = sizeof(void*) >= 8 ? std::size_t(64) << 30 : 0;
// A job this large gets its pages faulted in ahead, this far ahead of its tail.
constexpr std::size_t kLargeJob = 4 * kMiB;
constexpr std::size_t kAhead = 32 * kMiB;
constexpr std::size_t kStep = 2 * kMiB;

// Sizes and addresses handed to the system are whole blocks of kFirstBlock (whole pages).
std::size_t blockUp(std::size_t n)
{
    return (n + kFirstBlock - 1) / kFirstBlock * kFirstBlock;
}
std::size_t blockDown(std::size_t n)
{
    return n / kFirstBlock * kFirstBlock;
}
} // namespace

// The thread that faults pages in ahead of the tail. It only faults pages of
// the usable part, which never moves while it runs, and never writes to them.
class JobBuffer::FaultAhead
{
public:
    FaultAhead(char* base, std::size_t from) : m_base(base), m_done(from), m_target(from)
    {
        m_thread = std::thread([this] { run(); });
    }
    ~FaultAhead()
    {
        {
            const std::lock_guard<std::mutex> lock(m_lock);
            m_stop = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }
    void want(std::size_t end)
    {
        {
            const std::lock_guard<std::mutex> lock(m_lock);
            if (end <= m_target)
                return;
            m_target = end;
        }
        m_wake.notify_one();
    }

private:
    void run()
    {
        std::unique_lock<std::mutex> lock(m_lock);
        while (!m_stop) {
            if (m_done >= m_target) {
                m_wake.wait(lock);
                continue;
            }
            const std::size_t from = m_done;
            const std::size_t end = std::min(m_target, from + kStep);
            lock.unlock();
            const bool faulted = pages::populate(m_base + from, end - from);
            lock.lock();
            if (!faulted)
                return; // the system cannot: the reads fault their pages themselves
            m_done = end;
        }
    }

    char* const m_base;
    std::mutex m_lock;
    std::condition_variable m_wake;
    std::size_t m_done;
    std::size_t m_target;
    bool m_stop = false;
    std::thread m_thread;
};

JobBuffer::JobBuffer() = default;

JobBuffer::~JobBuffer()
{
    clear();
}

JobBuffer& JobBuffer::operator=(const QByteArray& bytes)
{
    clear();
    append(bytes);
    return *this;
}

char* JobBuffer::reserveTail(qsizetype n)
{
    const std::size_t needed = m_size + std::size_t(n);
    // A large job in a reservation keeps the next kAhead bytes usable, for the fault-ahead.
    const std::size_t ahead = m_reserved && needed >= kLargeJob ? kAhead : 0;
    if (needed + ahead > m_capacity) {
        const std::size_t capacity = blockUp(std::max(needed + ahead, m_capacity * 2));
        if (!m_data && capacity <= kReservation) {
            m_data = static_cast<char*>(pages::reserve(kReservation));
            m_reserved = m_data ? kReservation : 0;
        }
        if (m_reserved && capacity <= m_reserved) {
            if (!pages::commit(m_data + m_capacity, capacity - m_capacity))
                throw std::bad_alloc();
        } else {
            m_ahead.reset(); // the block may move
            if (m_reserved) { // too large for its reservation: the unused rest goes
                pages::release(m_data + m_capacity, m_reserved - m_capacity);
                m_reserved = 0;
            }
            void* p = m_data ? pages::grow(m_data, m_capacity, capacity)
                             : pages::allocate(capacity);
            if (!p)
                throw std::bad_alloc();
            m_data = static_cast<char*>(p);
        }
        m_capacity = capacity;
    }
    if (ahead && m_reserved) {
        if (!m_ahead)
            m_ahead = std::make_unique<FaultAhead>(m_data, blockDown(needed));
        m_ahead->want(blockDown(needed + ahead));
    }
    return m_data + m_size;
}

void JobBuffer::append(const char* data, qsizetype n)
{
    if (n <= 0)
        return;
    std::memcpy(reserveTail(n), data, std::size_t(n));
    commit(n);
}

void JobBuffer::clear()
{
    m_ahead.reset();
    if (m_data)
        pages::release(m_data, m_reserved ? m_reserved : m_capacity);
    m_data = nullptr;
    m_size = m_capacity = m_reserved = 0;
}

bool JobBuffer::holdsMoreThanBlanks(QByteArrayView bytes)
{
    for (const char c : bytes) {
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n' && c != '\f' && c != '\v')
            return true;
    }
    return false;
}
