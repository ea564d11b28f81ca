#include "platform/safefile.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
QString reason()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}
} // namespace

bool safefile::taken(const QString& path)
{
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0;
}

bool safefile::isLink(const QString& path)
{
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 && S_ISLNK(st.st_mode);
}

safefile::Result safefile::write(const QString& path, std::initializer_list<QByteArrayView> pieces,
                                 Mode mode, QString* why)
{
    const QByteArray name = QFile::encodeName(path);
    if (mode == Mode::Replace && isLink(path))
        ::unlink(name.constData());
    const int flags =
        O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | (mode == Mode::Exclusive ? O_EXCL : O_TRUNC);
    const int fd = ::open(name.constData(), flags, 0644);
    if (fd < 0) {
        const bool isTaken = errno == EEXIST || errno == ELOOP;
        if (why)
            *why = reason();
        return isTaken ? Result::Taken : Result::Failed;
    }
    bool ok = true;
    for (const QByteArrayView piece : pieces) {
        const char* p = piece.data();
        qsizetype left = piece.size();
        while (ok && left > 0) {
            const ssize_t n = ::write(fd, p, size_t(left));
            if (n < 0 && errno == EINTR)
                continue;
            ok = n > 0;
            if (ok) {
                p += n;
                left -= n;
            }
        }
    }
    if (!ok && why)
        *why = reason();
    if (::close(fd) != 0 && ok) {
        ok = false;
        if (why)
            *why = reason();
    }
    return ok ? Result::Written : Result::Failed;
}
