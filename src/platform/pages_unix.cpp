#include "platform/pages.h"

#include <sys/mman.h>

namespace
{
void adviseHuge(void* data, std::size_t bytes)
{
#ifdef MADV_HUGEPAGE
    ::madvise(data, bytes, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}
} // namespace

void* pages::allocate(std::size_t bytes)
{
    void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED)
        return nullptr;
    adviseHuge(p, bytes);
    return p;
}

void* pages::grow(void* data, std::size_t oldBytes, std::size_t newBytes)
{
#ifdef MREMAP_MAYMOVE
    void* p = ::mremap(data, oldBytes, newBytes, MREMAP_MAYMOVE);
    if (p == MAP_FAILED)
        return nullptr;
    adviseHuge(p, newBytes);
    return p;
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
