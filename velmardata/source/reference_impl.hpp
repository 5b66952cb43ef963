// ReferenceImpl: the element that an element reference stands for.
#pragma once

#include "velmardata/block_hold.hpp"
#include "velmardata/element_reference.hpp"
#include "velmardata/element_types.hpp"

namespace velmar::data::detail {

// Keeps the block of the element alive; is no owner of the array.
struct ReferenceImpl {
  foundation::velmardata::ArrayType m_type;
  void* m_element;
  impl::BlockHold m_hold;
};

}  // namespace velmar::data::detail
