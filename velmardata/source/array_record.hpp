// ArrayRecord: the complete object behind every ArrayImpl pointer.
#pragma once

#include <cassert>
#include <cstdint>
#include <utility>
#include <vector>

#include "block.hpp"
#include "element_size.hpp"
#include "velmardata/array_impl.hpp"
#include "velmardata/element_types.hpp"

namespace velmar::data::impl {

using foundation::velmardata::ArrayType;

// The contents of an array. Ownership: the references that ArrayImpl counts own the record; the
// record owns one hold on its block. m_block is null only after takeElements has moved it out, just
// before the record is destroyed. The other members never change.
struct ArrayRecord final : ArrayImpl {
  ArrayRecord(ArrayType type, std::vector<unsigned long> dimensions, std::uint64_t numberOfElements,
              OwnedBlock block) noexcept
      : m_type(type),
        m_numberOfElements(numberOfElements),
        m_dimensions(std::move(dimensions)),
        m_block(std::move(block)) {
    assert(m_block != nullptr);
    assert(m_numberOfElements * elementSize(m_type) <= m_block->m_bytes);
  }

  const ArrayType m_type;
  const std::uint64_t m_numberOfElements;
  const std::vector<unsigned long> m_dimensions;
  OwnedBlock m_block;
};

// The record of an ArrayImpl; null for null.
inline ArrayRecord* recordOf(ArrayImpl* impl) noexcept {
  return static_cast<ArrayRecord*>(impl);
}

// Makes the caller's reference `impl` the only one to its contents: replaces shared contents by a
// copy and releases the reference to the old ones. Null is allowed. Throws std::bad_alloc and then
// changes nothing.
void unshare(ArrayImpl*& impl);

// Releases the caller's reference `impl`, sets it to null and returns the elements: the block of
// the contents, or a copy if they are shared. The result is null if `impl` was null. Throws
// std::bad_alloc and then changes nothing.
OwnedBlock takeElements(ArrayImpl*& impl);

}  // namespace velmar::data::impl
