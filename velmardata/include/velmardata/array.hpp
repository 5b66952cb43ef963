// Array: a handle on reference-counted contents whose element type is known at run time only.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "velmardata/array_impl.hpp"
#include "velmardata/element_types.hpp"
#include "velmardata/export.hpp"

namespace foundation::velmardata {

// An N-dimensional array with value semantics: copies share the contents until one of them is
// written through, which first gives that one contents of its own. The elements are one block in
// storage order, the first dimension varying fastest. They are reached through TypedArray<T>.
//
// An empty handle has no contents: its type is 0, which is no element type, it has no dimensions
// and no elements. A handle that was moved from, or whose elements were released, is empty.
//
// Different handles may be used by different threads at once, also when they share contents; one
// handle may not.
class VELMARDATA_EXPORT Array {
 public:
  // An empty handle, to be assigned later.
  Array() noexcept = default;

  // Takes over one reference to the contents that the caller owns; null gives an empty handle. To
  // keep a reference as well, call velmar::data::impl::addReference first.
  explicit Array(velmar::data::impl::ArrayImpl* impl) noexcept : m_impl(impl) {}

  // Copying adds one reference, at the price of one atomic increment.
  Array(const Array& other) noexcept : m_impl(velmar::data::impl::addReference(other.m_impl)) {}
  Array(Array&& other) noexcept : m_impl(std::exchange(other.m_impl, nullptr)) {}
  Array& operator=(const Array& other) noexcept {
    Array(other).swap(*this);
    return *this;
  }
  Array& operator=(Array&& other) noexcept {
    Array(std::move(other)).swap(*this);
    return *this;
  }

  // Gives up the handle's reference.
  virtual ~Array();

  // The number of the element type. For contents from elsewhere it may be one that is not handled.
  ArrayType getType() const noexcept;

  // The dimensions, first dimension first, as many and as they were given at creation.
  std::vector<unsigned long> getDimensions() const;

  // The product of the dimensions, which is 1 for contents without dimensions. Constant time.
  std::uint64_t getNumberOfElements() const noexcept;

  // The contents, for whoever passes them on without a handle: the handle keeps its reference, and
  // a receiver that outlives it needs one of its own (addReference). Null for an empty handle.
  velmar::data::impl::ArrayImpl* impl() const noexcept { return m_impl; }

 protected:
  velmar::data::impl::ArrayImpl* m_impl = nullptr;

 private:
  void swap(Array& other) noexcept { std::swap(m_impl, other.m_impl); }
};

}  // namespace foundation::velmardata
