// TypedArray<T>: an Array whose element type is known, and the only way to its elements.
#pragma once

#include <memory>

#include "velmardata/array.hpp"
#include "velmardata/element_concepts.hpp"
#include "velmardata/element_reference.hpp"
#include "velmardata/element_types.hpp"
#include "velmardata/export.hpp"
#include "velmardata/typed_iterator.hpp"

namespace foundation::velmardata {

// A handle like Array, which it derives from and shares contents with. The instances for the 22
// element types live in the library.
//
// Reading never copies elements. Writing (begin() on a handle that is not const, operator[]) does
// once if the contents are shared with another handle, and then throws std::bad_alloc, the handle
// as it was, if there is no memory for the copy.
template <ArrayElement T>
class VELMARDATA_EXPORT TypedArray : public Array {
 public:
  // A handle that shares the contents of `other`, or takes its reference over. Throws
  // std::invalid_argument, `other` as it was, if the element type is not T or the handle is empty.
  TypedArray(const Array& other);
  TypedArray(Array&& other);

  TypedArray(const TypedArray&) = default;
  TypedArray(TypedArray&&) = default;
  TypedArray& operator=(const TypedArray&) = default;
  TypedArray& operator=(TypedArray&&) = default;
  ~TypedArray() override = default;

  // An iterator at the first element that may write. Shared contents are first copied.
  TypedIterator<T> begin()
    requires WritableElement<T>;

  // Iterators for reading at the first element and just after the last one; they are equal if
  // there are no elements, and point nowhere on an empty handle. On shared contents begin() for
  // writing leaves iterators made before it behind in the old block, so call it before end().
  TypedIterator<const T> begin() const;
  TypedIterator<const T> end() const;

  // A reference for assigning to the element at `index`, counted in storage order from 0. Shared
  // contents are first copied. Throws std::out_of_range if there is no such element.
  ElementReference<T> operator[](unsigned long index)
    requires WritableElement<T>;

  // The elements in storage order as a block that the caller owns and frees with the deleter that
  // comes with it; ArrayFactory::createArrayFromBuffer takes it back without a copy. A sole owner
  // hands out its own block, in constant time. Shared contents stay with the other handles and are
  // copied; std::bad_alloc, and the handle as it was, if there is no memory for that.
  //
  // The handle is empty afterwards. The block is null only if the handle was empty before.
  std::unique_ptr<T[], void (*)(void*)> release();
};

#define X(name, number, type) extern template class VELMARDATA_EXPORT TypedArray<type>;
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X

}  // namespace foundation::velmardata
