#include "server/jobbuffer.h"

#include "platform/pages.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace
{
constexpr std::size_t kFirstBlock = 64 * 1024;
}

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
    if (needed > m_capacity) {
        std::size_t capacity = std::max({needed, m_capacity * 2, kFirstBlock});
        void* p = m_data ? pages::grow(m_data, m_capacity, capacity) : pages::allocate(capacity);
        if (!p)
            throw std::bad_alloc();
        m_data = static_cast<char*>(p);
        m_capacity = capacity;
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
    if (m_data)
        pages::release(m_data, m_capacity);
    m_data = nullptr;
    m_size = m_capacity = 0;
}

bool JobBuffer::holdsMoreThanBlanks(QByteArrayView bytes)
{
    for (const char c : bytes) {
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n' && c != '\f' && c != '\v')
            return true;
    }
    return false;
}
