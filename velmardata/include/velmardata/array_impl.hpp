// The reference-counted contents behind every Array, as far as clients may see them.
#pragma once

#include <atomic>
#include <cstdint>

#include "velmardata/export.hpp"

namespace velmar::data::impl {

// The contents of an array: element type, dimensions and elements, which only the library knows,
// behind a count that clients may raise.
//
// Ownership: every Array handle owns one reference, and so may anyone who raises the count without
// a handle, such as a program that hands the plain pointer across a C interface. The contents live
// until the last reference is given up, and count as shared, so that a write copies them first,
// while there are two or more. Iterators and element references are no owners of this count.
//
// The count comes first in the object and is a plain 64-bit atomic: adding 1 to it is all it takes
// to gain a reference. Clients neither create nor destroy these objects.
struct VELMARDATA_EXPORT ArrayImpl {
  ArrayImpl(const ArrayImpl&) = delete;
  ArrayImpl& operator=(const ArrayImpl&) = delete;

  std::atomic<std::uint64_t> m_referenceCount{1};

 protected:
  ArrayImpl() = default;
  ~ArrayImpl() = default;
};

// Gains one reference to the contents and returns the same pointer. Null is allowed.
inline ArrayImpl* addReference(ArrayImpl* impl) noexcept {
  if (impl != nullptr) impl->m_referenceCount.fetch_add(1, std::memory_order_relaxed);
  return impl;
}

// Gives up one reference that the caller owns; the last one destroys the contents. Null is
// allowed. This is how the receiver of a plain pointer that came with a reference hands it back.
VELMARDATA_EXPORT void releaseReference(ArrayImpl* impl) noexcept;

}  // namespace velmar::data::impl
