// ArrayFactory: creates blocks for elements, arrays of zeros, and arrays from blocks.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "velmardata/array.hpp"
#include "velmardata/element_concepts.hpp"
#include "velmardata/element_reference.hpp"
#include "velmardata/element_types.hpp"
#include "velmardata/export.hpp"
#include "velmardata/memory_layout.hpp"
#include "velmardata/typed_array.hpp"

namespace foundation::velmardata {

// Creates arrays. The class has no state; constructing one costs nothing.
//
// Dimensions are element counts, first dimension first. Any number of dimensions is allowed; they
// are stored and reported as given. Their product never wraps at 64 bits, and it is 0 if any
// dimension is 0.
class VELMARDATA_EXPORT ArrayFactory {
 public:
  // Allocates `count` uninitialised elements of type number `arrayType`. `*buffer` receives the
  // block, `*deleter` the function that frees it; the deleter accepts null.
  //
  // On failure the block is null and nothing is thrown: no memory, or, for a count above 0, a
  // number that is not one of the 22 element types. A count of 0 gives a block that is not null.
  // Elements are aligned to 16 bytes, in blocks of 4096 bytes and more to 64 bytes.
  void createBuffer(void** buffer, void (**deleter)(void*), int arrayType,
                    unsigned long count) const noexcept;

  // The same for the element type T, as an owning pointer that createArrayFromBuffer accepts. It is
  // null if the allocation fails. Free the block only with the deleter of the pointer.
  template <WritableElement T>
  std::unique_ptr<T[], void (*)(void*)> createBuffer(unsigned long count) const;

  // A new array with all elements zero (false for bool). Linear time. Throws std::bad_alloc, and
  // EArrayUnknownDataType if there are elements and the type is not one of the 22. An array without
  // elements may have any type number.
  Array createArray(ArrayType type, std::vector<unsigned long> dimensions) const;

  // A new array that takes over the block, in constant time and without copying elements. The block
  // must come from createBuffer or release() for the same type and hold at least the product of the
  // dimensions. It may be null if that product is 0.
  //
  // A block with any other deleter is copied, in linear time, and then freed with that deleter. The
  // caller must make sure that such a block is large enough.
  //
  // Throws std::invalid_argument if the block is null or too small, or if the layout is not
  // Default; EArrayUnknownDataType as createArray does; std::bad_alloc. If the call throws, the
  // block is freed.
  Array createArrayFromBuffer(std::vector<unsigned long> dimensions, ArrayType type,
                              std::unique_ptr<void, void (*)(void*)> buffer,
                              velmar::data::MemoryLayout layout) const;

  // The same for a real numeric element type T.
  template <RealNumericElement T>
  TypedArray<T> createArrayFromBuffer(std::vector<unsigned long> dimensions,
                                      std::unique_ptr<T[], void (*)(void*)> buffer,
                                      velmar::data::MemoryLayout layout) const;

  // A 1-by-1 array that holds the value. Throws std::bad_alloc.
  template <WritableElement T>
  TypedArray<typename velmar::data::GetReturnType<T>::type> createScalarInternal(T value) const;
};

// ---------------------------------------------------------------------------------------------

template <WritableElement T>
std::unique_ptr<T[], void (*)(void*)> ArrayFactory::createBuffer(unsigned long count) const {
  void* buffer = nullptr;
  void (*deleter)(void*) = nullptr;
  createBuffer(&buffer, &deleter, static_cast<int>(arrayTypeOf<T>), count);
  return std::unique_ptr<T[], void (*)(void*)>(static_cast<T*>(buffer), deleter);
}

template <RealNumericElement T>
TypedArray<T> ArrayFactory::createArrayFromBuffer(std::vector<unsigned long> dimensions,
                                                  std::unique_ptr<T[], void (*)(void*)> buffer,
                                                  velmar::data::MemoryLayout layout) const {
  std::vector<unsigned long> ownDimensions(std::move(dimensions));
  void (*const deleter)(void*) = buffer.get_deleter();
  std::unique_ptr<void, void (*)(void*)> ownBuffer(buffer.release(), deleter);
  return TypedArray<T>(createArrayFromBuffer(std::move(ownDimensions), arrayTypeOf<T>,
                                             std::move(ownBuffer), layout));
}

template <WritableElement T>
TypedArray<typename velmar::data::GetReturnType<T>::type> ArrayFactory::createScalarInternal(
    T value) const {
  using Stored = typename velmar::data::GetReturnType<T>::type;
  TypedArray<Stored> scalar(createArray(arrayTypeOf<Stored>, {1, 1}));
  detail::setElement<Stored>(scalar[0].impl(), value);
  return scalar;
}

}  // namespace foundation::velmardata
