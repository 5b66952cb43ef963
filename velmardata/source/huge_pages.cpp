// Regions of huge pages: mapping, alignment, and one freed region kept for reuse.
#include "huge_pages.hpp"

#include <sys/mman.h>

#include <atomic>
#include <cassert>
#include <cstddef>
#include <new>

namespace velmar::data::impl {
namespace {

constexpr std::uint64_t hugePage = std::uint64_t{2} << 20;
constexpr std::uint64_t keptAtMost = std::uint64_t{16} << 20;

// Lies at the start of a freed region that is kept for reuse; m_bytes is the size of the region.
struct KeptRegion {
  std::uint64_t m_bytes;
};
std::atomic<KeptRegion*> s_kept = nullptr;  // owns the region; null if none is kept

std::uint64_t roundedToHugePages(std::uint64_t bytes) noexcept {
  return (bytes + hugePage - 1) / hugePage * hugePage;
}

// `bytes` bytes (whole huge pages), aligned to a huge page; null on failure. Maps one huge page
// more than needed and unmaps the parts before and after the aligned region.
void* mapRegion(std::uint64_t bytes) noexcept {
  void* mapped =
      mmap(nullptr, bytes + hugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  auto* start = static_cast<std::byte*>(mapped);
  const std::uint64_t intoPage = reinterpret_cast<std::uintptr_t>(mapped) % hugePage;
  const std::uint64_t before = (hugePage - intoPage) % hugePage;
  if (before != 0) munmap(start, before);
  munmap(start + before + bytes, hugePage - before);
  madvise(start + before, bytes, MADV_HUGEPAGE);  // a failure affects only the speed
  return start + before;
}

// Keeps the region in place of the previous one, which is unmapped.
void keepOrUnmap(KeptRegion* region) noexcept {
  KeptRegion* previous = s_kept.exchange(region, std::memory_order_acq_rel);
  if (previous != nullptr) munmap(previous, previous->m_bytes);
}

}  // namespace

void* allocateHugePages(std::uint64_t bytes) noexcept {
  const std::uint64_t rounded = roundedToHugePages(bytes);
  if (rounded <= keptAtMost) {
    KeptRegion* kept = s_kept.exchange(nullptr, std::memory_order_acq_rel);
    if (kept != nullptr && kept->m_bytes == rounded) return kept;
    if (kept != nullptr) keepOrUnmap(kept);
  }
  return mapRegion(rounded);
}

void freeHugePages(void* memory, std::uint64_t bytes) noexcept {
  assert(reinterpret_cast<std::uintptr_t>(memory) % hugePage == 0);
  const std::uint64_t rounded = roundedToHugePages(bytes);
  if (rounded <= keptAtMost) {
    keepOrUnmap(new (memory) KeptRegion{rounded});
  } else {
    munmap(memory, rounded);
  }
}

}  // namespace velmar::data::impl
