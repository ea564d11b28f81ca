#include "platform/safefile.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace
{
QByteArray encoded(const std::wstring& path)
{
    return QFile::encodeName(QString::fromStdWString(path));
}

bool failed(std::string* why)
{
    if (why)
        *why = std::strerror(errno);
    return false;
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

safefile::Result safefile::Stream::open(const std::wstring& path, Mode mode, std::string* why)
{
    close();
    const QByteArray name = encoded(path);
    if (mode == Mode::Replace && isLink(path))
        ::unlink(name.constData());
    const int flags =
        O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | (mode == Mode::Exclusive ? O_EXCL : O_TRUNC);
    const int fd = ::open(name.constData(), flags, 0644);
    if (fd < 0) {
        const bool isTaken = errno == EEXIST || errno == ELOOP;
        failed(why);
        return isTaken ? Result::Taken : Result::Failed;
    }
    m_handle = fd;
    return Result::Written;
}

bool safefile::Stream::write(std::string_view piece, std::string* why)
{
    const char* p = piece.data();
    std::size_t left = piece.size();
    while (left > 0) {
        const ssize_t n = ::write(int(m_handle), p, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return failed(why);
        p += n;
        left -= std::size_t(n);
    }
    return true;
}

bool safefile::Stream::sync(std::string* why)
{
    return ::fsync(int(m_handle)) == 0 || failed(why);
}

bool safefile::Stream::close(std::string* why)
{
    if (m_handle == kClosed)
        return true;
    const int fd = int(std::exchange(m_handle, kClosed));
    return ::close(fd) == 0 || failed(why);
}
