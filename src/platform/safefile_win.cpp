#include "platform/safefile.h"

#include <algorithm>
#include <windows.h>

namespace
{
DWORD attributes(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str());
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

safefile::Result safefile::write(const std::wstring& path,
                                 const std::vector<std::string_view>& pieces, Mode mode,
                                 std::string* why)
{
    const wchar_t* name = path.c_str();
    if (mode == Mode::Replace && isLink(path))
        DeleteFileW(name);
    // The reparse point itself is opened, never what it points to.
    HANDLE h = CreateFileW(name, GENERIC_WRITE, 0, nullptr,
                           mode == Mode::Exclusive ? CREATE_NEW : CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        const DWORD e = GetLastError();
        if (why)
            *why = "Windows error " + std::to_string(e);
        return e == ERROR_FILE_EXISTS || e == ERROR_ALREADY_EXISTS ? Result::Taken : Result::Failed;
    }
    bool ok = true;
    for (const std::string_view piece : pieces) {
        const char* p = piece.data();
        std::size_t left = piece.size();
        while (ok && left > 0) {
            DWORD n = 0;
            const DWORD chunk = DWORD(std::min<std::size_t>(left, 1 << 30));
            ok = WriteFile(h, p, chunk, &n, nullptr) && n > 0;
            p += n;
            left -= n;
        }
    }
    if (!ok && why)
        *why = "Windows error " + std::to_string(GetLastError());
    CloseHandle(h);
    return ok ? Result::Written : Result::Failed;
}
