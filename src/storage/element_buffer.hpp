// Blocks of elements from the data library, and the arrays that take them over.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <velmardata/velmardata.hpp>

// Owns a block; the deleter comes from the data library. A default-made buffer is null.
template <class T>
using ElementBuffer = std::unique_ptr<T[], void (*)(void*)>;

template <class T>
ElementBuffer<T> noElementBuffer() {
  return ElementBuffer<T>(nullptr, [](void*) {});
}

// The same for an element type that is known at run time.
using UntypedBuffer = std::unique_ptr<void, void (*)(void*)>;

// A block for `count` elements of any value. Null, with no error set, when memory is short; never
// null for a count of 0.
UntypedBuffer tryCreateBuffer(foundation::velmardata::ArrayType type, std::uint64_t count);
template <class T>
ElementBuffer<T> tryCreateElementBuffer(std::uint64_t count) {
  UntypedBuffer buffer = tryCreateBuffer(foundation::velmardata::arrayTypeOf<T>, count);
  const auto deleter = buffer.get_deleter();
  return ElementBuffer<T>(static_cast<T*>(buffer.release()), deleter);
}

// The array that takes the block over without a copy. The block holds the elements in storage
// order and must come from tryCreateBuffer, for the same type and for as many elements as the
// dimensions multiply to.
foundation::velmardata::Array makeArrayFromBuffer(foundation::velmardata::ArrayType type,
                                                  UntypedBuffer&& buffer,
                                                  std::span<const std::int64_t> dimensions);
template <class T>
foundation::velmardata::Array makeArrayFromBuffer(ElementBuffer<T>&& buffer,
                                                  std::span<const std::int64_t> dimensions) {
  const auto deleter = buffer.get_deleter();
  return makeArrayFromBuffer(foundation::velmardata::arrayTypeOf<T>,
                             UntypedBuffer(buffer.release(), deleter), dimensions);
}
