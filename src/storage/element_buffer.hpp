// Blocks of elements from the data library, and the arrays that take them over.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
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

// From this size on, pages that the system clears are quicker than a fill.
inline constexpr std::uint64_t largeZeros = std::uint64_t{4} << 20;
// A 1-by-count array of zeros. Empty, with no error set, when memory is short.
std::optional<foundation::velmardata::Array> tryCreateArrayOfZeros(
    foundation::velmardata::ArrayType type, std::uint64_t count);
template <class T>
ElementBuffer<T> tryCreateElementBuffer(std::uint64_t count) {
  UntypedBuffer buffer = tryCreateBuffer(foundation::velmardata::arrayTypeOf<T>, count);
  const auto deleter = buffer.get_deleter();
  return ElementBuffer<T>(static_cast<T*>(buffer.release()), deleter);
}

// A block of `count` zeros. Null, with no error set, when memory is short. The system clears the
// pages of a large block when they are first touched.
template <class T>
ElementBuffer<T> tryCreateZeros(std::uint64_t count) {
  if (count * sizeof(T) >= largeZeros) {
    if (std::optional<foundation::velmardata::Array> zeros =
            tryCreateArrayOfZeros(foundation::velmardata::arrayTypeOf<T>, count)) {
      return foundation::velmardata::TypedArray<T>(std::move(*zeros)).release();
    }
    return noElementBuffer<T>();
  }
  ElementBuffer<T> buffer = tryCreateElementBuffer<T>(count);
  if (buffer != nullptr) std::fill_n(buffer.get(), count, T{});
  return buffer;
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
