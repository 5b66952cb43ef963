// Memory for the largest blocks: whole huge pages, mapped from the system.
#pragma once

#include <cstdint>

namespace velmar::data::impl {

// The writable bytes in front of the memory that allocateHugePages gives. They lie on a small page
// of their own, so that writing a header does not make the system clear a huge page.
inline constexpr std::uint64_t bytesInFront = 4096;

enum class Fill { Nothing, Zeros };

// At least `bytes` bytes of memory, aligned to a huge page; null on failure. Huge pages cause 512
// times fewer page faults, which dominate fills and copies of this size. Zeros cost no time for new
// pages, which the system clears when they are first touched.
void* allocateHugePages(std::uint64_t bytes, Fill fill) noexcept;

// Frees memory from allocateHugePages for the same `bytes`. Null is not allowed. Keeps one freed
// region of up to 32 MiB for the next request of that size, so that a loop that creates and
// destroys arrays does not make the system clear new pages each time.
void freeHugePages(void* memory, std::uint64_t bytes) noexcept;

}  // namespace velmar::data::impl
