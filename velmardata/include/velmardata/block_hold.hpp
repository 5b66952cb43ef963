// The share in a block of elements that iterators and element references keep it alive with.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "velmardata/export.hpp"

namespace velmar::data::impl {

// Who keeps a block of elements alive: its owner (an array, or the unique_ptr of createBuffer and
// release) counts as one, every live iterator and element reference as one more. The last one to
// go frees the block. The count says nothing about sharing between arrays: see ArrayImpl.
struct BlockHolders {
  std::atomic<std::uint64_t> m_count{1};
};

// Gives up one hold on the block, which must not be null; the last one frees it. Clients get here
// through BlockHold, and through the deleter that comes with a block.
VELMARDATA_EXPORT void releaseBlock(BlockHolders* block) noexcept;

// One hold on a block, or on none. Copying costs one atomic increment, moving nothing. Holds on the
// same block may be copied and dropped by different threads at once.
class BlockHold {
 public:
  BlockHold() noexcept = default;
  // Adds a hold to those that the block has. Null is allowed.
  explicit BlockHold(BlockHolders* block) noexcept : m_block(block) { add(); }
  BlockHold(const BlockHold& other) noexcept : m_block(other.m_block) { add(); }
  BlockHold(BlockHold&& other) noexcept : m_block(std::exchange(other.m_block, nullptr)) {}
  BlockHold& operator=(BlockHold other) noexcept {
    std::swap(m_block, other.m_block);
    return *this;
  }
  ~BlockHold() {
    if (m_block != nullptr) releaseBlock(m_block);
  }

 private:
  void add() const noexcept {
    if (m_block != nullptr) m_block->m_count.fetch_add(1, std::memory_order_relaxed);
  }

  BlockHolders* m_block = nullptr;
};

}  // namespace velmar::data::impl
