// System V shared memory. The key is derived from the name, the user and an
// optional namespace (QUORVEL_SHM_NAMESPACE, which keeps test runs apart the
// way sessions keep Windows sections apart).
#include "platform/sharedcounter.h"

#include <QByteArray>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>
#include <vector>

struct SharedSection::Impl {
    int id = -1;
    void* address = nullptr;
};

namespace
{
key_t keyFor(const std::string& name)
{
    const QByteArray text = QByteArray::fromStdString(name) + ':' +
                            QByteArray::number(uint(getuid())) + ':' +
                            qgetenv("QUORVEL_SHM_NAMESPACE");
    std::uint32_t hash = 2166136261u; // FNV-1a
    for (char c : text) {
        hash ^= std::uint8_t(c);
        hash *= 16777619u;
    }
    hash &= 0x7fffffff;
    return key_t(hash == 0 ? 1 : hash); // 0 would be IPC_PRIVATE
}

// A segment that exists but that no process is attached to is what a killed
// holder leaves behind: remove it so it counts as absent.
bool removeIfOrphaned(int id)
{
    shmid_ds info{};
    if (shmctl(id, IPC_STAT, &info) != 0)
        return true;
    if (info.shm_nattch > 0)
        return false;
    shmctl(id, IPC_RMID, nullptr);
    return true;
}

} // namespace

SharedSection::SharedSection(std::unique_ptr<Impl> impl) : d(std::move(impl)) {}

SharedSection::~SharedSection()
{
    if (!d || !d->address)
        return;
    shmdt(d->address);
    // The last holder takes the segment with it, as a closed mapping goes.
    removeIfOrphaned(d->id);
}

namespace
{
std::unique_ptr<SharedSection::Impl> attachSegment(int id, int flags)
{
    void* address = shmat(id, nullptr, flags);
    if (address == reinterpret_cast<void*>(-1))
        return nullptr;
    auto impl = std::make_unique<SharedSection::Impl>();
    impl->id = id;
    impl->address = address;
    return impl;
}
} // namespace

std::unique_ptr<SharedSection> SharedSection::openExisting(const std::string& name)
{
    const int id = shmget(keyFor(name), 0, 0);
    if (id < 0 || removeIfOrphaned(id))
        return nullptr;
    auto impl = attachSegment(id, SHM_RDONLY);
    return impl ? std::unique_ptr<SharedSection>(new SharedSection(std::move(impl))) : nullptr;
}

std::unique_ptr<SharedSection> SharedSection::create(const std::string& name)
{
    const key_t key = keyFor(name);
    int id = shmget(key, 0, 0);
    if (id >= 0 && removeIfOrphaned(id))
        id = -1;
    if (id < 0)
        id = shmget(key, sizeof(std::int32_t), IPC_CREAT | 0600);
    if (id < 0)
        return nullptr;
    auto impl = attachSegment(id, 0);
    return impl ? std::unique_ptr<SharedSection>(new SharedSection(std::move(impl))) : nullptr;
}

bool SharedSection::read(std::int32_t& value) const
{
    if (!d->address)
        return false;
    std::memcpy(&value, d->address, sizeof value);
    return true;
}

bool SharedSection::write(std::int32_t value)
{
    if (!d->address)
        return false;
    std::memcpy(d->address, &value, sizeof value);
    return true;
}
