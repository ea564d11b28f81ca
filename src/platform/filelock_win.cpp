#include "platform/filelock.h"

#include <QString>

#include <windows.h>

bool heldOpenByAnotherProcess(const QString& path)
{
    // No sharing at all: refused while anybody else has the file open.
    QString native = path;
    native.replace(u'/', u'\\');
    HANDLE h = CreateFileW(reinterpret_cast<const wchar_t*>(native.utf16()), GENERIC_READ, 0,
                           nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_SHARING_VIOLATION;
    CloseHandle(h);
    return false;
}
