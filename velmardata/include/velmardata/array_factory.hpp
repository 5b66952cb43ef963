// ArrayFactory: blocks for elements, and arrays from nothing or from such blocks.
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

// A maker of arrays without state: make one where it is needed, at no cost.
//
// Dimensions are counts of elements, first dimension first; any number of them is stored and
// reported as given. Wherever their product matters it is the true one: a product that does not
// fit 64 bits never wraps to a small number, and a 0 among them makes it 0 whatever the others are.
class VELMARDATA_EXPORT ArrayFactory {
 public:
  // Room for `count` elements of the type with that number, uninitialised. `*buffer` receives the
  // block and `*deleter` the function that frees it; calling that with null does nothing.
  //
  // The block is null, and nothing is thrown, if the memory cannot be had or the number is none of
  // the 22. A count of 0 gives a block that is not null, short of the memory for its few bytes of
  // bookkeeping. Elements lie at a multiple of 16 bytes, in blocks of 4096 bytes and more at a
  // multiple of 64.
  void createBuffer(void** buffer, void (**deleter)(void*), int arrayType,
                    unsigned long count) const noexcept;

  // The same for the element type T, as an owning pointer, which is null where the block is. It
  // must be deleted with its own deleter, and is what createArrayFromBuffer takes over.
  template <WritableElement T>
  std::unique_ptr<T[], void (*)(void*)> createBuffer(unsigned long count) const;

  // A new array whose elements are all zero (false for bool). Throws std::bad_alloc if the memory
  // cannot be had, and EArrayUnknownDataType if the type is none of the 22 and there are elements:
  // an array without elements may have any type number.
  Array createArray(ArrayType type, std::vector<unsigned long> dimensions) const;

  // A new array that takes over the block, with no copy of the elements, in constant time. The
  // block comes from createBuffer or release() for the same type, with room for at least as many
  // elements as the dimensions say; it may be null if they say none.
  //
  // A block that comes with another deleter than the library's own is copied and then freed with
  // it; that it has room for the elements is for the caller to see to.
  //
  // Throws std::invalid_argument if the block is null or too small for the dimensions, or the
  // layout is not Default; EArrayUnknownDataType as createArray does; std::bad_alloc. The block is
  // freed whenever something is thrown.
  Array createArrayFromBuffer(std::vector<unsigned long> dimensions, ArrayType type,
                              std::unique_ptr<void, void (*)(void*)> buffer,
                              velmar::data::MemoryLayout layout) const;

  // The same for a real numeric element type T.
  template <RealNumericElement T>
  TypedArray<T> createArrayFromBuffer(std::vector<unsigned long> dimensions,
                                      std::unique_ptr<T[], void (*)(void*)> buffer,
                                      velmar::data::MemoryLayout layout) const;

  // A 1-by-1 array of the value. Throws std::bad_alloc.
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
