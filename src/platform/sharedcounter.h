#pragma once

#include <cstdint>
#include <memory>
#include <string>

// A small named memory section shared by every process of the user's
// session, holding one 32-bit count; the name is in the local 8-bit encoding. A handle keeps the
// section alive; the section disappears with its last holder (on Linux a segment that no live
// process holds any more, e.g. after a kill, counts as absent).
class SharedSection
{
public:
    // Opens an existing section for reading; null when there is none.
    static std::unique_ptr<SharedSection> openExisting(const std::string& name);
    // Opens the section for writing, creating it (4 bytes) when absent; null on failure.
    static std::unique_ptr<SharedSection> create(const std::string& name);
    // Keeps a handle until the process ends.
    static void keepOpen(std::unique_ptr<SharedSection> section);

    ~SharedSection(); // closes the handle
    SharedSection(const SharedSection&) = delete;
    SharedSection& operator=(const SharedSection&) = delete;

    bool read(std::int32_t& value) const;
    bool write(std::int32_t value);

    struct Impl;

private:
    explicit SharedSection(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d;
};
