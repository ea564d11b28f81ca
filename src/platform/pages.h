#pragma once

#include <cstddef>

// Page-granular memory for the job buffer: grows in place where the system
// can (no copy of a large job), and is backed by huge pages where it can
// (far fewer page faults while a large job arrives).
namespace pages
{
void* allocate(std::size_t bytes);
// Returns the new block (contents kept) or nullptr, leaving the old one intact.
void* grow(void* data, std::size_t oldBytes, std::size_t newBytes);
void release(void* data, std::size_t bytes);
} // namespace pages
