// Blocks of elements: where they come from, how they are freed, how much they hold.
#pragma once

#include <cstdint>
#include <memory>

#include "velmardata/block_hold.hpp"

namespace velmar::data::impl {

// What lies right in front of the elements of every block. The alignment of the elements follows
// from the size, so the size alone says where the allocation starts.
struct BlockHeader : BlockHolders {
  std::uint64_t m_bytes = 0;  // room for elements
};

// Elements keep the alignment of malloc because the header fills exactly one unit of it.
static_assert(sizeof(BlockHeader) == 16);

struct BlockReleaser {
  void operator()(BlockHeader* block) const noexcept { releaseBlock(block); }
};

// Owns one hold on a block.
using OwnedBlock = std::unique_ptr<BlockHeader, BlockReleaser>;

// Room for `bytes` bytes of elements, uninitialised; null if the memory cannot be had, which never
// happens for 0 bytes.
OwnedBlock allocateBlock(std::uint64_t bytes) noexcept;

inline void* elementsOf(BlockHeader* block) noexcept {
  return block + 1;
}

// The block whose elements start there. Not null.
inline BlockHeader* blockOf(void* elements) noexcept {
  return static_cast<BlockHeader*>(elements) - 1;
}

// The deleter of every block that clients own: gives up the hold that came with the pointer. Null
// is allowed.
void deleteElements(void* elements) noexcept;

}  // namespace velmar::data::impl
