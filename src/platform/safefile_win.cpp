#include "platform/safefile.h"

#include <algorithm>
#include <utility>
#include <windows.h>

namespace
{
DWORD attributes(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str());
}

bool failed(std::string* why)
{
    if (why)
        *why = "Windows error " + std::to_string(GetLastError());
    return false;
}
} // namespace

bool safefile::taken(const std::wstring& path)
{
    return attributes(path) != INVALID_FILE_ATTRIBUTES;
}

bool safefile::isLink(const std::wstring& path)
{
    const DWORD a = attributes(path);
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_REPARSE_POINT);
}

safefile::Result safefile::Stream::open(const std::wstring& path, Mode mode, std::string* why)
{
    close();
    const wchar_t* name = path.c_str();
    if (mode == Mode::Replace && isLink(path))
        DeleteFileW(name);
    // The reparse point itself is opened, never what it points to.
    HANDLE h = CreateFileW(name, GENERIC_WRITE, 0, nullptr,
                           mode == Mode::Exclusive ? CREATE_NEW : CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        const DWORD e = GetLastError();
        failed(why);
        return e == ERROR_FILE_EXISTS || e == ERROR_ALREADY_EXISTS ? Result::Taken : Result::Failed;
    }
    m_handle = reinterpret_cast<std::intptr_t>(h);
    return Result::Written;
}

bool safefile::Stream::write(std::string_view piece, std::string* why)
{
    const char* p = piece.data();
    std::size_t left = piece.size();
    while (left > 0) {
        DWORD n = 0;
        const DWORD chunk = DWORD(std::min<std::size_t>(left, 1 << 30));
        if (!WriteFile(reinterpret_cast<HANDLE>(m_handle), p, chunk, &n, nullptr) || n == 0)
            return failed(why);
        p += n;
        left -= n;
    }
    return true;
}

bool safefile::Stream::sync(std::string* why)
{
    return FlushFileBuffers(reinterpret_cast<HANDLE>(m_handle)) || failed(why);
}

bool safefile::Stream::close(std::string* why)
{
    if (m_handle == kClosed)
        return true;
    return CloseHandle(reinterpret_cast<HANDLE>(std::exchange(m_handle, kClosed))) || failed(why);
}
