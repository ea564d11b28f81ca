#include "platform/pages.h"

#include <cstdlib>

void* pages::allocate(std::size_t bytes)
{
    return std::malloc(bytes);
}

void* pages::grow(void* data, std::size_t, std::size_t newBytes)
{
    return std::realloc(data, newBytes);
}

void pages::release(void* data, std::size_t)
{
    std::free(data);
}

void* pages::reserve(std::size_t)
{
    return nullptr;
}

bool pages::commit(void*, std::size_t)
{
    return false;
}

bool pages::populate(void*, std::size_t)
{
    return false;
}
