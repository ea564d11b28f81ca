#pragma once

#include <QByteArray>
#include <cstddef>
#include <memory>

// The one job buffer: all bytes received since the last dispatch, kept
// exactly as they arrived (binary included). Appending is amortised O(1)
// and a large job is never copied as it grows. Once a job has proved large,
// another thread faults its next pages in ahead of the socket reads, so the
// first large job of a process comes in as fast as the next ones.
class JobBuffer
{
public:
    JobBuffer();
    JobBuffer(const JobBuffer&) = delete;
    JobBuffer& operator=(const JobBuffer&) = delete;
    ~JobBuffer();

    // Replaces the contents (a job fetched from the cloud).
    JobBuffer& operator=(const QByteArray& bytes);

    qsizetype size() const { return qsizetype(m_size); }
    bool isEmpty() const { return m_size == 0; }
    const char* constData() const { return m_data ? m_data : ""; }
    void append(const char* data, qsizetype n);
    void append(const QByteArray& bytes) { append(bytes.constData(), bytes.size()); }
    // Room for n more bytes at the end; commit() then counts what was written there.
    char* reserveTail(qsizetype n);
    void commit(qsizetype n) { m_size += std::size_t(n); }
    void clear(); // empties and gives the memory back

    // A view of the bytes, valid until the buffer changes.
    QByteArray view() const { return QByteArray::fromRawData(constData(), size()); }
    operator QByteArray() const { return view(); }
    bool operator==(const QByteArray& other) const { return view() == other; }

    // True when anything but ASCII white space is held.
    bool holdsMoreThanBlanks() const { return holdsMoreThanBlanks(view()); }
    static bool holdsMoreThanBlanks(QByteArrayView bytes);

private:
    class FaultAhead;

    char* m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0; // usable bytes
    std::size_t m_reserved = 0; // address space held, when the buffer lives in a reservation
    std::unique_ptr<FaultAhead> m_ahead;
};
