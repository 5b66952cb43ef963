// ReferenceImpl: the target of an element reference.
#pragma once

#include "velmardata/block_hold.hpp"
#include "velmardata/element_reference.hpp"
#include "velmardata/element_types.hpp"

namespace velmar::data::detail {

// Ownership: m_hold owns one hold on the block, which keeps m_element valid. No reference to the
// array's contents is owned, so a reference does not make the array shared.
struct ReferenceImpl {
  foundation::velmardata::ArrayType m_type;
  void* m_element;  // borrowed from the block
  impl::BlockHold m_hold;
};

}  // namespace velmar::data::detail
