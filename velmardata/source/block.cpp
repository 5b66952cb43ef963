// Allocation of blocks: small ones small, large ones aligned, very large ones on huge pages.
#include "block.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

namespace velmar::data::impl {
namespace {

// From this size on, 64 bytes for the sake of cache lines and vector loads cost next to nothing.
constexpr std::uint64_t largeBytes = 4096;
constexpr std::uint64_t largeAlignment = 64;

// From this size on, filling fresh memory takes longer than asking for huge pages.
constexpr std::uint64_t hugePageBytes = std::uint64_t{4} << 20;

// No object may be larger than a pointer difference; what is left is for header and rounding.
constexpr std::uint64_t maximumBytes =
    std::numeric_limits<std::ptrdiff_t>::max() - 2 * largeAlignment;

// All blocks without elements are this one. Its first hold is never given up, so it is never freed
// and cannot run out; the room behind it lets its elements be pointed at.
struct EmptyBlock {
  BlockHeader m_header;
  std::byte m_room[sizeof(BlockHeader)] = {};
};
alignas(largeAlignment) constinit EmptyBlock s_emptyBlock;

// The distance from the start of the allocation to the elements.
std::size_t offsetOfElements(std::uint64_t bytes) noexcept {
  return bytes < largeBytes ? sizeof(BlockHeader) : largeAlignment;
}

// Tells the system that the whole pages inside the elements are wanted as huge pages. Only speed
// depends on the answer.
void adviseHugePages(void* elements, std::uint64_t bytes) noexcept {
#ifdef MADV_HUGEPAGE
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const std::uintptr_t intoPage = reinterpret_cast<std::uintptr_t>(elements) % page;
  const std::uintptr_t skipped = intoPage == 0 ? 0 : page - intoPage;
  const std::uintptr_t wholePages = (bytes - skipped) / page * page;
  madvise(static_cast<std::byte*>(elements) + skipped, wholePages, MADV_HUGEPAGE);
#endif
}

}  // namespace

OwnedBlock allocateBlock(std::uint64_t bytes) noexcept {
  if (bytes == 0) {
    s_emptyBlock.m_header.m_count.fetch_add(1, std::memory_order_relaxed);
    return OwnedBlock(&s_emptyBlock.m_header);
  }
  if (bytes > maximumBytes) return nullptr;

  const std::size_t offset = offsetOfElements(bytes);
  void* start = nullptr;
  if (bytes < largeBytes) {
    start = std::malloc(offset + bytes);
  } else {
    const std::uint64_t rounded = (bytes + largeAlignment - 1) / largeAlignment * largeAlignment;
    start = std::aligned_alloc(largeAlignment, offset + rounded);
  }
  if (start == nullptr) return nullptr;

  void* elements = static_cast<std::byte*>(start) + offset;
  auto* block = new (blockOf(elements)) BlockHeader;
  block->m_bytes = bytes;
  if (bytes >= hugePageBytes) adviseHugePages(elements, bytes);
  return OwnedBlock(block);
}

void releaseBlock(BlockHolders* block) noexcept {
  if (block->m_count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  auto* header = static_cast<BlockHeader*>(block);
  const std::size_t offset = offsetOfElements(header->m_bytes);
  std::free(static_cast<std::byte*>(elementsOf(header)) - offset);
}

void deleteElements(void* elements) noexcept {
  if (elements != nullptr) releaseBlock(blockOf(elements));
}

}  // namespace velmar::data::impl
