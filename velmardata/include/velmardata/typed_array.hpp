// TypedArray<T>: an Array with a known element type; gives access to the elements.
#pragma once

#include <memory>

#include "velmardata/array.hpp"
#include "velmardata/element_concepts.hpp"
#include "velmardata/element_reference.hpp"
#include "velmardata/element_types.hpp"
#include "velmardata/export.hpp"
#include "velmardata/typed_iterator.hpp"

namespace foundation::velmardata {

// A handle to contents of element type T. The library instantiates it for the 22 element types.
//
// Reading never copies elements. Write access (non-const begin(), operator[]) copies the contents
// first, in linear time, if another handle shares them. If there is no memory for the copy, the
// function throws std::bad_alloc and the handle is unchanged.
template <ArrayElement T>
class VELMARDATA_EXPORT TypedArray : public Array {
 public:
  // Shares the contents of `other`, or takes over its reference. Throws std::invalid_argument and
  // leaves `other` unchanged if its element type is not T or it is empty.
  TypedArray(const Array& other);
  TypedArray(Array&& other);

  TypedArray(const TypedArray&) = default;
  TypedArray(TypedArray&&) = default;
  TypedArray& operator=(const TypedArray&) = default;
  TypedArray& operator=(TypedArray&&) = default;
  ~TypedArray() override = default;

  // An iterator to the first element, for writing. Copies shared contents first.
  TypedIterator<T> begin()
    requires WritableElement<T>;

  // Iterators for reading: to the first element and past the last one. They are equal if there are
  // no elements; an empty handle gives default-constructed iterators. If the contents are shared, a
  // later begin() for writing moves the handle to a new block, so call that before end().
  TypedIterator<const T> begin() const;
  TypedIterator<const T> end() const;

  // A reference for assigning to the element at `index`, counted from 0 in storage order. Copies
  // shared contents first. Throws std::out_of_range if there is no such element.
  ElementReference<T> operator[](unsigned long index)
    requires WritableElement<T>;

  // Empties the handle and returns the elements in storage order, as a block that the caller owns.
  // ArrayFactory::createArrayFromBuffer accepts the block without a copy. The only handle to the
  // contents returns their block, in constant time; if the contents are shared, the block is a
  // copy. Throws std::bad_alloc and leaves the handle unchanged if there is no memory for the copy.
  //
  // The block is null only if the handle was empty.
  std::unique_ptr<T[], void (*)(void*)> release();
};

#define X(name, number, type) extern template class VELMARDATA_EXPORT TypedArray<type>;
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X

}  // namespace foundation::velmardata
