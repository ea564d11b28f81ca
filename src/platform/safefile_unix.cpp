#include "platform/safefile.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
QByteArray encoded(const std::wstring& path)
{
    return QFile::encodeName(QString::fromStdWString(path));
}
} // namespace

bool safefile::taken(const std::wstring& path)
{
    struct stat st;
    return ::lstat(encoded(path).constData(), &st) == 0;
}

bool safefile::isLink(const std::wstring& path)
{
    struct stat st;
    return ::lstat(encoded(path).constData(), &st) == 0 && S_ISLNK(st.st_mode);
}

safefile::Result safefile::write(const std::wstring& path,
                                 const std::vector<std::string_view>& pieces, Mode mode,
                                 std::string* why)
{
    const QByteArray name = encoded(path);
    if (mode == Mode::Replace && isLink(path))
        ::unlink(name.constData());
    const int flags =
        O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | (mode == Mode::Exclusive ? O_EXCL : O_TRUNC);
    const int fd = ::open(name.constData(), flags, 0644);
    if (fd < 0) {
        const bool isTaken = errno == EEXIST || errno == ELOOP;
        if (why)
            *why = std::strerror(errno);
        return isTaken ? Result::Taken : Result::Failed;
    }
    bool ok = true;
    for (const std::string_view piece : pieces) {
        const char* p = piece.data();
        std::size_t left = piece.size();
        while (ok && left > 0) {
            const ssize_t n = ::write(fd, p, left);
            if (n < 0 && errno == EINTR)
                continue;
            ok = n > 0;
            if (ok) {
                p += n;
                left -= std::size_t(n);
            }
        }
    }
    if (!ok && why)
        *why = std::strerror(errno);
    if (::close(fd) != 0 && ok) {
        ok = false;
        if (why)
            *why = std::strerror(errno);
    }
    return ok ? Result::Written : Result::Failed;
}
