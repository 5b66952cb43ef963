// Blocks of elements: allocation, release and size.
#pragma once

#include <cassert>
#include <cstdint>
#include <memory>

#include "huge_pages.hpp"
#include "velmardata/block_hold.hpp"

namespace velmar::data::impl {

// The header directly before the elements of every block. Ownership: the holds that BlockHolders
// counts own the block; releasing the last one frees it. The size determines the alignment of the
// elements and therefore the start of the allocation.
struct BlockHeader : BlockHolders {
  std::uint64_t m_bytes = 0;  // capacity for elements
};

// The alignment of malloc, so that the elements after the header have that alignment too.
static_assert(sizeof(BlockHeader) == 16);

struct BlockReleaser {
  void operator()(BlockHeader* block) const noexcept { releaseBlock(block); }
};

// Owns one hold on a block.
using OwnedBlock = std::unique_ptr<BlockHeader, BlockReleaser>;

// A block for `bytes` bytes of elements, uninitialised; null if there is no memory. A block of 0
// bytes is never null.
OwnedBlock allocateBlock(std::uint64_t bytes, Fill fill = Fill::Nothing) noexcept;

inline void* elementsOf(BlockHeader* block) noexcept {
  assert(block != nullptr);
  return block + 1;
}

// The block whose first element is at `elements`.
inline BlockHeader* blockOf(void* elements) noexcept {
  assert(elements != nullptr);
  return static_cast<BlockHeader*>(elements) - 1;
}

// The deleter of every block that clients own: releases the caller's hold. Null is allowed.
void deleteElements(void* elements) noexcept;

}  // namespace velmar::data::impl
