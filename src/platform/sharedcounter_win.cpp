// A page-file-backed file mapping, mapped for each read or write.
#include "platform/sharedcounter.h"

#include <cstring>
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

std::unique_ptr<SharedSection> SharedSection::openExisting(const std::string& name)
{
    HANDLE h = OpenFileMappingA(FILE_MAP_READ, FALSE, name.c_str());
    if (!h)
        return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->handle = h;
    impl->access = FILE_MAP_READ;
    return std::unique_ptr<SharedSection>(new SharedSection(std::move(impl)));
}

std::unique_ptr<SharedSection> SharedSection::create(const std::string& name)
{
    HANDLE h = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                  sizeof(std::int32_t), name.c_str());
    if (!h)
        return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->handle = h;
    impl->access = FILE_MAP_WRITE;
    return std::unique_ptr<SharedSection>(new SharedSection(std::move(impl)));
}

bool SharedSection::read(std::int32_t& value) const
{
    void* view = MapViewOfFile(d->handle, FILE_MAP_READ, 0, 0, 0);
    if (!view)
        return false;
    std::memcpy(&value, view, sizeof value);
    UnmapViewOfFile(view);
    return true;
}

bool SharedSection::write(std::int32_t value)
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
