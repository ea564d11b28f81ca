#pragma once

#include <cstddef>

// Page-granular memory for the job buffer. A large job lives in one
// reservation of address space that is made usable as it grows (no copy, no
// move), and its pages can be faulted in ahead of the writes on another
// thread. Where the system has no reservations, allocate/grow serve.
namespace pages
{
void* allocate(std::size_t bytes);
// Returns the new block (contents kept) or nullptr, leaving the old one intact.
void* grow(void* data, std::size_t oldBytes, std::size_t newBytes);
void release(void* data, std::size_t bytes);

// Address space for up to `bytes`, none of it usable yet; nullptr when the system has none.
void* reserve(std::size_t bytes);
// Makes the part [data, data + bytes) of a reservation usable.
bool commit(void* data, std::size_t bytes);
// Faults the pages in for writing without changing their contents; false
// when the system cannot.
bool populate(void* data, std::size_t bytes);
} // namespace pages
