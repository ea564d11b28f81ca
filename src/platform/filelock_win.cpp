#include "platform/filelock.h"

#include <algorithm>

#include <windows.h>

bool heldOpenByAnotherProcess(const std::wstring& path)
{
    // No sharing at all: refused while anybody else has the file open.
    std::wstring native = path;
    std::replace(native.begin(), native.end(), L'/', L'\\');
    HANDLE h = CreateFileW(native.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_SHARING_VIOLATION;
    CloseHandle(h);
    return false;
}
