#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Job files are written without ever following a symbolic link, so a link
// planted in the job folder cannot send a job's bytes anywhere else.
namespace safefile
{
enum class Mode {
    Replace,   // a link under the name is removed first; a file there is replaced
    Exclusive, // fails with Taken when anything has the name (a dangling link too)
};
enum class Result { Written, Taken, Failed };
// Writes the pieces one after another; why holds the reason of a failure.
Result write(const std::wstring& path, const std::vector<std::string_view>& pieces, Mode mode,
             std::string* why = nullptr);
// True when anything has this name: a file, a folder, a link (even a dangling one).
bool taken(const std::wstring& path);
bool isLink(const std::wstring& path);

// A file written piece by piece as its bytes arrive, opened as write() opens it.
class Stream
{
public:
    Stream() = default;
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() { close(); }

    Result open(const std::wstring& path, Mode mode, std::string* why = nullptr);
    bool isOpen() const { return m_handle != kClosed; }
    bool write(std::string_view piece, std::string* why = nullptr);
    // Everything written is on the disk once this returns true.
    bool sync(std::string* why = nullptr);
    bool close(std::string* why = nullptr);

private:
    static constexpr std::intptr_t kClosed = -1;
    std::intptr_t m_handle = kClosed;
};
} // namespace safefile
