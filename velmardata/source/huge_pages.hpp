// Memory for the largest blocks: whole huge pages, straight from the system.
#pragma once

#include <cstdint>

namespace velmar::data::impl {

// Memory of at least that many bytes, aligned to a huge page, of any contents; null if it cannot be
// had. Fills and copies of this size are bound by page faults, of which huge pages have 512 times
// fewer.
void* allocateHugePages(std::uint64_t bytes) noexcept;

// Gives the memory back; `bytes` as it was asked for. One region of up to 16 MiB is kept for the
// next request of its size, so that a program that makes and drops arrays in a loop does not have
// the same pages cleared by the system over and over.
void freeHugePages(void* memory, std::uint64_t bytes) noexcept;

}  // namespace velmar::data::impl
