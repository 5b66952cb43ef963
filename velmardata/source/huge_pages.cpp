// Regions of huge pages: mapping, alignment, and one freed region kept for reuse.
#include "huge_pages.hpp"

#include <sys/mman.h>

#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstring>
#include <new>

namespace velmar::data::impl {
namespace {

constexpr std::uint64_t hugePage = std::uint64_t{2} << 20;
// Sizes are multiples of 2 MiB, so no test detects a change of `32` to `33`.
constexpr std::uint64_t keptAtMost = std::uint64_t{32} << 20;
// Kept regions up to this size are used for zeros: clearing a larger one takes longer than mapping
// new pages, which the system clears only when they are touched. Sizes are multiples of 2 MiB, so
// no test detects a change of `16` to `17`.
constexpr std::uint64_t clearedAtMost = std::uint64_t{16} << 20;

// Lies in front of the memory of a freed region that is kept for reuse; m_bytes is the size of the
// memory without the bytes in front.
struct KeptRegion {
  std::uint64_t m_bytes;
};
std::atomic<KeptRegion*> s_kept = nullptr;  // owns the region; null if none is kept

std::uint64_t roundedToHugePages(std::uint64_t bytes) noexcept {
  return (bytes + hugePage - 1) / hugePage * hugePage;
}

// `bytes` bytes (whole huge pages), aligned to a huge page, with the bytes in front; null on
// failure. Maps one huge page more than needed and unmaps the parts before and after.
std::byte* mapRegion(std::uint64_t bytes) noexcept {
  const std::uint64_t length = bytesInFront + bytes + hugePage;
  void* mapped = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  auto* first = static_cast<std::byte*>(mapped);
  const std::uint64_t intoPage =
      (reinterpret_cast<std::uintptr_t>(mapped) + bytesInFront) % hugePage;
  const std::uint64_t before = (hugePage - intoPage) % hugePage;
  std::byte* memory = first + before + bytesInFront;
  if (before != 0) munmap(first, before);
  munmap(memory + bytes, hugePage - before);
  madvise(memory, bytes, MADV_HUGEPAGE);  // a failure affects only the speed
  return memory;
}

void unmapRegion(std::byte* memory, std::uint64_t bytes) noexcept {
  munmap(memory - bytesInFront, bytesInFront + bytes);
}

std::byte* memoryOf(KeptRegion* region) noexcept {
  return reinterpret_cast<std::byte*>(region) + bytesInFront;
}

// Keeps the region in place of the previous one, which is unmapped.
void keepOrUnmap(KeptRegion* region) noexcept {
  KeptRegion* previous = s_kept.exchange(region, std::memory_order_acq_rel);
  if (previous != nullptr) unmapRegion(memoryOf(previous), previous->m_bytes);
}

// The kept region if it has that size; null otherwise, and it stays kept.
std::byte* takeKept(std::uint64_t bytes) noexcept {
  KeptRegion* kept = s_kept.exchange(nullptr, std::memory_order_acq_rel);
  if (kept != nullptr && kept->m_bytes == bytes) return memoryOf(kept);
  // With null the call would unmap a region that another thread has just kept. That affects only
  // the speed, so no test detects a change of the condition to `true`.
  if (kept != nullptr) keepOrUnmap(kept);
  return nullptr;
}

}  // namespace

void* allocateHugePages(std::uint64_t bytes, Fill fill) noexcept {
  const std::uint64_t rounded = roundedToHugePages(bytes);
  const std::uint64_t atMost = fill == Fill::Zeros ? clearedAtMost : keptAtMost;
  if (std::byte* kept = rounded <= atMost ? takeKept(rounded) : nullptr) {
    if (fill == Fill::Zeros) std::memset(kept, 0, bytes);
    return kept;
  }
  return mapRegion(rounded);
}

void freeHugePages(void* memory, std::uint64_t bytes) noexcept {
  assert(reinterpret_cast<std::uintptr_t>(memory) % hugePage == 0);
  auto* first = static_cast<std::byte*>(memory);
  const std::uint64_t rounded = roundedToHugePages(bytes);
  if (rounded <= keptAtMost) {
    keepOrUnmap(new (first - bytesInFront) KeptRegion{rounded});
  } else {
    unmapRegion(first, rounded);
  }
}

}  // namespace velmar::data::impl
