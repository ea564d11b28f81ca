// A page-file-backed file mapping, mapped for each read or write.
#include "platform/sharedcounter.h"

#include <cstring>
#include <vector>
#include <windows.h>

struct SharedSection::Impl {
    HANDLE handle = nullptr;
    DWORD access = FILE_MAP_READ;
};

SharedSection::SharedSection(std::unique_ptr<Impl> impl) : d(std::move(impl)) {}

SharedSection::~SharedSection()
{
    if (d && d->handle)
        CloseHandle(d->handle);
}

std::unique_ptr<SharedSection> SharedSection::openExisting(const QString& name)
{
    const QByteArray ansi = name.toLocal8Bit();
    HANDLE h = OpenFileMappingA(FILE_MAP_READ, FALSE, ansi.constData());
    if (!h)
        return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->handle = h;
    impl->access = FILE_MAP_READ;
    return std::unique_ptr<SharedSection>(new SharedSection(std::move(impl)));
}

std::unique_ptr<SharedSection> SharedSection::create(const QString& name)
{
    const QByteArray ansi = name.toLocal8Bit();
    HANDLE h = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(qint32),
                                  ansi.constData());
    if (!h)
        return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->handle = h;
    impl->access = FILE_MAP_WRITE;
    return std::unique_ptr<SharedSection>(new SharedSection(std::move(impl)));
}

bool SharedSection::read(qint32& value) const
{
    void* view = MapViewOfFile(d->handle, FILE_MAP_READ, 0, 0, 0);
    if (!view)
        return false;
    std::memcpy(&value, view, sizeof value);
    UnmapViewOfFile(view);
    return true;
}

bool SharedSection::write(qint32 value)
{
    if (d->access != FILE_MAP_WRITE)
        return false;
    void* view = MapViewOfFile(d->handle, FILE_MAP_WRITE, 0, 0, 0);
    if (!view)
        return false;
    std::memcpy(view, &value, sizeof value);
    UnmapViewOfFile(view);
    return true;
}
