// Array: a handle to reference-counted contents whose element type is known only at run time.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "velmardata/array_impl.hpp"
#include "velmardata/element_types.hpp"
#include "velmardata/export.hpp"

namespace foundation::velmardata {

// An N-dimensional array with value semantics. Copies share their contents; writing through one of
// them first copies the contents for that handle. The elements are one block in storage order (the
// first dimension varies fastest). TypedArray<T> gives access to them.
//
// A handle is empty if it was default-constructed, moved from or released: it has no dimensions and
// no elements, and its type is 0, which is not an element type. Threads may use different handles
// at the same time, even if the handles share contents, but not the same handle.
class VELMARDATA_EXPORT Array {
 public:
  Array() noexcept = default;

  // Takes over one reference that the caller owns. Null gives an empty handle. A caller that wants
  // to keep a reference calls velmar::data::impl::addReference first.
  explicit Array(velmar::data::impl::ArrayImpl* impl) noexcept : m_impl(impl) {}

  // Copying adds one reference: one atomic increment, no copy of elements.
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

  virtual ~Array();

  // The element type. Contents from another program may have a type that ArrayType does not list.
  ArrayType getType() const noexcept;

  // The dimensions as given at creation, first dimension first.
  std::vector<unsigned long> getDimensions() const;

  // The product of the dimensions; 1 for contents without dimensions. Constant time.
  std::uint64_t getNumberOfElements() const noexcept;

  // The contents, borrowed: the handle keeps its reference. A receiver that outlives the handle
  // needs its own reference (addReference). Null for an empty handle.
  velmar::data::impl::ArrayImpl* impl() const noexcept { return m_impl; }

 protected:
  velmar::data::impl::ArrayImpl* m_impl = nullptr;

 private:
  void swap(Array& other) noexcept { std::swap(m_impl, other.m_impl); }
};

}  // namespace foundation::velmardata
