// Allocation of blocks: small ones by malloc, large ones aligned, very large ones in huge pages.
#include "block.hpp"

#include <cassert>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "huge_pages.hpp"

namespace velmar::data::impl {
namespace {

// Blocks of this size and more start at a cache line, for vector loads. The padding is small
// compared with the block.
constexpr std::uint64_t largeBytes = 4096;
constexpr std::uint64_t largeAlignment = 64;

// Blocks of this size and more use huge pages, because page faults then take longer than the system
// calls. Not under AddressSanitizer, which finds overruns only in blocks from malloc.
#ifdef __SANITIZE_ADDRESS__
constexpr std::uint64_t hugePageBytes = std::numeric_limits<std::uint64_t>::max();
#else
constexpr std::uint64_t hugePageBytes = std::uint64_t{4} << 20;
#endif

// The largest pointer difference, less 8 MiB for the header and for rounding up. No allocator
// returns a block of almost this size, so no test detects a change of `8` or `20`.
constexpr std::uint64_t maximumBytes =
    std::numeric_limits<std::ptrdiff_t>::max() - (std::int64_t{8} << 20);

// The block of all arrays without elements. Its initial hold is never released, so it is never
// freed. m_room makes the pointer to its elements valid.
struct EmptyBlock {
  BlockHeader m_header;
  std::byte m_room[sizeof(BlockHeader)] = {};
};
alignas(largeAlignment) constinit EmptyBlock s_emptyBlock;

// The distance in bytes from the start of an allocation by malloc to the elements.
std::size_t offsetOfElements(std::uint64_t bytes) noexcept {
  return bytes < largeBytes ? sizeof(BlockHeader) : largeAlignment;
}

// Memory for `bytes` bytes of elements, with room for the header in front; null on failure.
void* allocateElements(std::uint64_t bytes, Fill fill) noexcept {
  if (bytes >= hugePageBytes) return allocateHugePages(bytes, fill);
  const std::uint64_t total = offsetOfElements(bytes) + bytes;
  void* start = bytes < largeBytes
                    ? std::malloc(total)
                    : std::aligned_alloc(largeAlignment, (total + largeAlignment - 1) /
                                                             largeAlignment * largeAlignment);
  if (start == nullptr) return nullptr;
  void* elements = static_cast<std::byte*>(start) + offsetOfElements(bytes);
  if (fill == Fill::Zeros) std::memset(elements, 0, bytes);
  return elements;
}

void freeElements(void* elements, std::uint64_t bytes) noexcept {
  if (bytes >= hugePageBytes) {
    freeHugePages(elements, bytes);
  } else {
    std::free(static_cast<std::byte*>(elements) - offsetOfElements(bytes));
  }
}

}  // namespace

OwnedBlock allocateBlock(std::uint64_t bytes, Fill fill) noexcept {
  if (bytes == 0) {
    s_emptyBlock.m_header.m_count.fetch_add(1, std::memory_order_relaxed);
    return OwnedBlock(&s_emptyBlock.m_header);
  }
  if (bytes > maximumBytes) return nullptr;

  void* elements = allocateElements(bytes, fill);
  if (elements == nullptr) return nullptr;
  auto* block = new (blockOf(elements)) BlockHeader;
  block->m_bytes = bytes;
  return OwnedBlock(block);
}

void releaseBlock(BlockHolders* block) noexcept {
  assert(block != nullptr);
  if (block->m_count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  auto* header = static_cast<BlockHeader*>(block);
  const std::uint64_t bytes = header->m_bytes;
  freeElements(elementsOf(header), bytes);
}

void deleteElements(void* elements) noexcept {
  if (elements != nullptr) releaseBlock(blockOf(elements));
}

}  // namespace velmar::data::impl
