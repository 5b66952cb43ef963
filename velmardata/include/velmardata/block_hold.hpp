// BlockHold: keeps a block of elements alive for iterators and element references.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "velmardata/export.hpp"

namespace velmar::data::impl {

// The number of holds on a block of elements: one for its owner (an array, or the unique_ptr of
// createBuffer and release) and one for each live iterator and element reference. Releasing the
// last hold frees the block. This count does not tell whether arrays share contents; see ArrayImpl.
struct BlockHolders {
  std::atomic<std::uint64_t> m_count{1};
};

// Releases one hold on the block; releasing the last one frees it. Null is not allowed. Clients
// call this through BlockHold or through the deleter of a block.
VELMARDATA_EXPORT void releaseBlock(BlockHolders* block) noexcept;

// Owns one hold on a block, or none. Copying costs one atomic increment; moving is free. Threads
// may copy and destroy different holds on the same block at the same time.
class BlockHold {
 public:
  BlockHold() noexcept = default;
  // Adds one hold to the block. Null is allowed.
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

  // Gives the hold to the caller, who releases it with the deleter of the block.
  void giveUp() noexcept { m_block = nullptr; }

 private:
  void add() const noexcept {
    if (m_block != nullptr) m_block->m_count.fetch_add(1, std::memory_order_relaxed);
  }

  BlockHolders* m_block = nullptr;
};

}  // namespace velmar::data::impl
