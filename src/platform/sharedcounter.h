#pragma once

#include <QString>
#include <memory>

// A small named memory section shared by every process of the user's
// session, holding one 32-bit count. A handle keeps the section alive; the
// section disappears with its last holder (on Linux a segment that no live
// process holds any more, e.g. after a kill, counts as absent).
class SharedSection
{
public:
    // Opens an existing section for reading; null when there is none.
    static std::unique_ptr<SharedSection> openExisting(const QString& name);
    // Opens the section for writing, creating it (4 bytes) when absent; null on failure.
    static std::unique_ptr<SharedSection> create(const QString& name);
    // Keeps a handle until the process ends.
    static void keepOpen(std::unique_ptr<SharedSection> section);

    ~SharedSection(); // closes the handle
    SharedSection(const SharedSection&) = delete;
    SharedSection& operator=(const SharedSection&) = delete;

    bool read(qint32& value) const;
    bool write(qint32 value);

    struct Impl;

private:
    explicit SharedSection(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d;
};
