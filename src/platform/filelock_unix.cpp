#include "platform/filelock.h"

#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
struct FileId {
    dev_t dev;
    ino_t ino;
};

// Does the process whose /proc entry is given hold a descriptor on the file?
bool processHolds(const std::string& procDir, const FileId& id)
{
    const std::string fdDir = procDir + "/fd";
    DIR* dir = opendir(fdDir.c_str());
    if (!dir)
        return false; // gone, or not ours to look at
    bool found = false;
    while (const dirent* e = readdir(dir)) {
        if (e->d_name[0] == '.')
            continue;
        struct stat st;
        if (stat((fdDir + "/" + e->d_name).c_str(), &st) == 0 && st.st_dev == id.dev &&
            st.st_ino == id.ino) {
            found = true;
            break;
        }
    }
    closedir(dir);
    return found;
}

// Our own descriptors are asked directly: no path lookup per descriptor.
bool weHold(const FileId& id)
{
    DIR* dir = opendir("/proc/self/fd");
    if (!dir)
        return false;
    const int own = dirfd(dir);
    bool found = false;
    while (const dirent* e = readdir(dir)) {
        char* end = nullptr;
        const long fd = std::strtol(e->d_name, &end, 10);
        if (e->d_name[0] == '.' || *end != '\0' || fd == own)
            continue;
        struct stat st;
        if (fstat(int(fd), &st) == 0 && st.st_dev == id.dev && st.st_ino == id.ino) {
            found = true;
            break;
        }
    }
    closedir(dir);
    return found;
}

bool anotherProcessHolds(const FileId& id)
{
    DIR* proc = opendir("/proc");
    if (!proc)
        return false;
    const pid_t self = getpid();
    bool found = false;
    while (const dirent* e = readdir(proc)) {
        char* end = nullptr;
        const long pid = std::strtol(e->d_name, &end, 10);
        if (pid <= 0 || *end != '\0' || pid == self)
            continue;
        if (processHolds(std::string("/proc/") + e->d_name, id)) {
            found = true;
            break;
        }
    }
    closedir(proc);
    return found;
}
} // namespace

bool heldOpenByAnotherProcess(const std::wstring& path)
{
    const QByteArray native = QFile::encodeName(QString::fromStdWString(path));
    const int fd = open(native.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return false; // a file that cannot be opened is not being written either
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return false;
    }
    const FileId id{st.st_dev, st.st_ino};

    // A write lease is refused while any other descriptor is open on the
    // file. Should somebody open it in the instant the lease is held, the
    // kernel signals the holder: SIGURG is ignored by default, SIGIO would end us.
    fcntl(fd, F_SETSIG, SIGURG);
    if (fcntl(fd, F_SETLEASE, F_WRLCK) == 0) {
        fcntl(fd, F_SETLEASE, F_UNLCK);
        close(fd);
        return false;
    }
    const int why = errno;
    close(fd);
    if (why == EAGAIN || why == EBUSY) {
        // Refused: by another process, or by a descriptor of our own.
        if (!weHold(id))
            return true;
    }
    // Leases unavailable here (filesystem, not the owner) or our own
    // descriptor is in the way: look at the other processes.
    return anotherProcessHolds(id);
}
