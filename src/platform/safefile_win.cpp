#include "platform/safefile.h"

#include <windows.h>

namespace
{
DWORD attributes(const QString& path)
{
    return GetFileAttributesW(reinterpret_cast<const wchar_t*>(path.utf16()));
}
} // namespace

bool safefile::taken(const QString& path)
{
    return attributes(path) != INVALID_FILE_ATTRIBUTES;
}

bool safefile::isLink(const QString& path)
{
    const DWORD a = attributes(path);
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_REPARSE_POINT);
}

safefile::Result safefile::write(const QString& path, std::initializer_list<QByteArrayView> pieces,
                                 Mode mode, QString* why)
{
    const auto* name = reinterpret_cast<const wchar_t*>(path.utf16());
    if (mode == Mode::Replace && isLink(path))
        DeleteFileW(name);
    // The reparse point itself is opened, never what it points to.
    HANDLE h = CreateFileW(name, GENERIC_WRITE, 0, nullptr,
                           mode == Mode::Exclusive ? CREATE_NEW : CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        const DWORD e = GetLastError();
        if (why)
            *why = QStringLiteral("error %1").arg(e);
        return e == ERROR_FILE_EXISTS || e == ERROR_ALREADY_EXISTS ? Result::Taken : Result::Failed;
    }
    bool ok = true;
    for (const QByteArrayView piece : pieces) {
        const char* p = piece.data();
        qsizetype left = piece.size();
        while (ok && left > 0) {
            DWORD n = 0;
            const DWORD chunk = DWORD(qMin<qsizetype>(left, 1 << 30));
            ok = WriteFile(h, p, chunk, &n, nullptr) && n > 0;
            p += n;
            left -= n;
        }
    }
    if (!ok && why)
        *why = QStringLiteral("error %1").arg(GetLastError());
    CloseHandle(h);
    return ok ? Result::Written : Result::Failed;
}
