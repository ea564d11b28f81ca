#include "platform/pages.h"

#include <sys/mman.h>

// Plain pages, no huge-page advice: on virtual machines that hand free memory
// back to their host, a huge page touched for the first time costs several
// times what its 512 small pages do.
void* pages::allocate(std::size_t bytes)
{
    void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : p;
}

void* pages::grow(void* data, std::size_t oldBytes, std::size_t newBytes)
{
#ifdef MREMAP_MAYMOVE
    void* p = ::mremap(data, oldBytes, newBytes, MREMAP_MAYMOVE);
    return p == MAP_FAILED ? nullptr : p;
#else
    (void)data;
    (void)oldBytes;
    (void)newBytes;
    return nullptr;
#endif
}

void pages::release(void* data, std::size_t bytes)
{
    ::munmap(data, bytes);
}

void* pages::reserve(std::size_t bytes)
{
    void* p = ::mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE,
                     -1, 0);
    return p == MAP_FAILED ? nullptr : p;
}

bool pages::commit(void* data, std::size_t bytes)
{
    return ::mprotect(data, bytes, PROT_READ | PROT_WRITE) == 0;
}

bool pages::populate(void* data, std::size_t bytes)
{
#ifndef MADV_POPULATE_WRITE
    constexpr int MADV_POPULATE_WRITE = 23; // Linux 5.14
#endif
    return ::madvise(data, bytes, MADV_POPULATE_WRITE) == 0;
}
