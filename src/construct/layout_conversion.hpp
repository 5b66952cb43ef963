// From a filled buffer to an array: adopted as it lies, or reordered into column-major order.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <velmardata/velmardata.hpp>

#include "module/element_types.hpp"
#include "storage/element_buffer.hpp"

// The array of a buffer that holds as many elements as the dimensions multiply to. The buffer is
// adopted without a copy when it is in storage order or `numberOfElements`, the number of elements
// that may need reordering, is below 2; otherwise it is freed after the reordering. Empty with
// MemoryError set when memory for the reordered elements is short.
std::optional<foundation::velmardata::Array> makeTypedArrayFromBuf(
    const ElementFacts& element, UntypedBuffer&& buffer, bool bufferInStorageOrder,
    std::span<const std::int64_t> dimensions, std::int64_t numberOfElements);
template <class T>
std::optional<foundation::velmardata::Array> makeTypedArrayFromBuf(
    ElementBuffer<T>&& buffer, bool bufferInStorageOrder, std::span<const std::int64_t> dimensions,
    std::int64_t numberOfElements) {
  const auto deleter = buffer.get_deleter();
  return makeTypedArrayFromBuf(factsOf<T>, UntypedBuffer(buffer.release(), deleter),
                               bufferInStorageOrder, dimensions, numberOfElements);
}

// The array that holds the elements of a row-major source in column-major order. Fails as above.
std::optional<foundation::velmardata::Array> convertRowMajorBufferToColumnMajor(
    const ElementFacts& element, const void* source, std::span<const std::int64_t> dimensions,
    std::int64_t numberOfElements);
