// ArrayImpl: the part of an array's reference-counted contents that clients may access.
#pragma once

#include <atomic>
#include <cstdint>

#include "velmardata/export.hpp"

namespace velmar::data::impl {

// The contents of an array: a public reference count, followed by the element type, dimensions and
// elements, which are private to the library.
//
// Ownership: each Array handle owns one reference. Code that passes the plain pointer, for example
// across a C interface, can own a reference without a handle. The contents live until the last
// reference is released. With two or more references they are shared: a write copies them first.
// Iterators and element references do not own a reference.
//
// The count is the first member, a 64-bit atomic; adding 1 to it adds a reference. Clients neither
// create nor destroy these objects.
struct VELMARDATA_EXPORT ArrayImpl {
  ArrayImpl(const ArrayImpl&) = delete;
  ArrayImpl& operator=(const ArrayImpl&) = delete;

  std::atomic<std::uint64_t> m_referenceCount{1};

 protected:
  ArrayImpl() = default;
  ~ArrayImpl() = default;
};

// Adds one reference and returns the same pointer. Null is allowed.
inline ArrayImpl* addReference(ArrayImpl* impl) noexcept {
  if (impl != nullptr) impl->m_referenceCount.fetch_add(1, std::memory_order_relaxed);
  return impl;
}

// Releases one reference that the caller owns; releasing the last one destroys the contents. Null
// is allowed.
VELMARDATA_EXPORT void releaseReference(ArrayImpl* impl) noexcept;

}  // namespace velmar::data::impl
