// ArrayRecord: the whole of what an ArrayImpl pointer points to.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "block.hpp"
#include "velmardata/array_impl.hpp"
#include "velmardata/element_types.hpp"

namespace velmar::data::impl {

using foundation::velmardata::ArrayType;

// Owned by the references that its base counts; owns one hold on its block, which is never null
// except while release() takes it out. Type, dimensions and count never change.
struct ArrayRecord final : ArrayImpl {
  ArrayRecord(ArrayType type, std::vector<unsigned long> dimensions, std::uint64_t numberOfElements,
              OwnedBlock block) noexcept
      : m_type(type),
        m_numberOfElements(numberOfElements),
        m_dimensions(std::move(dimensions)),
        m_block(std::move(block)) {}

  const ArrayType m_type;
  const std::uint64_t m_numberOfElements;
  const std::vector<unsigned long> m_dimensions;
  OwnedBlock m_block;
};

// Null for null.
inline ArrayRecord* recordOf(ArrayImpl* impl) noexcept {
  return static_cast<ArrayRecord*>(impl);
}

// A new block with the elements of the record. Throws std::bad_alloc.
OwnedBlock copyElements(const ArrayRecord& record);

// Makes the reference that `impl` stands for the only one to its contents, which are copied if
// they are shared; `impl` is then the copy and the reference to the old contents is given up.
// Throws std::bad_alloc, with nothing changed. Null is allowed.
void unshare(ArrayImpl*& impl);

// Takes the elements out of the contents, or copies them if they are shared, and gives up the
// reference that `impl` stands for; `impl` is then null. Throws std::bad_alloc, with nothing
// changed. The block is null if `impl` was.
OwnedBlock takeElements(ArrayImpl*& impl);

}  // namespace velmar::data::impl
