// From a filled buffer to an array: adopted as it lies, or reordered into column-major order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "module/element_types.hpp"
#include "storage/element_buffer.hpp"

// The array of a buffer that holds as many elements as the dimensions multiply to. The buffer is
// adopted without a copy when it is in storage order or `numberOfElements`, the number of elements
// that may need reordering, is below 2; otherwise it is freed after the reordering. Empty with
// MemoryError set when memory for the reordered elements is short, and with RecursionError set when
// there are too many dimensions.
std::optional<foundation::velmardata::Array> makeTypedArrayFromBuf(
    const ElementFacts& element, UntypedBuffer&& buffer, bool bufferInStorageOrder,
    const std::vector<std::int64_t>& dimensions, std::int64_t numberOfElements);
template <class T>
std::optional<foundation::velmardata::Array> makeTypedArrayFromBuf(
    ElementBuffer<T>&& buffer, bool bufferInStorageOrder,
    const std::vector<std::int64_t>& dimensions, std::int64_t numberOfElements) {
  const auto deleter = buffer.get_deleter();
  return makeTypedArrayFromBuf(factsOf<T>, UntypedBuffer(buffer.release(), deleter),
                               bufferInStorageOrder, dimensions, numberOfElements);
}

// The array that holds the elements of a row-major source in column-major order. Fails as above.
std::optional<foundation::velmardata::Array> convertRowMajorBufferToColumnMajor(
    const ElementFacts& element, const void* source, const std::vector<std::int64_t>& dimensions,
    std::int64_t numberOfElements);

// Fills `strides`, which has as many entries as there are dimensions: the last is 1, each other is
// the product of all later dimensions.
void computeRowMajorStrides(std::span<const std::int64_t> dimensions,
                            std::span<std::int64_t> strides);

// Enumerates the positions of an index space, each as the sum of its indices times the strides.
class HybridTraversal {
 public:
  // Appends one sum for each position to `indices`. fromLastDimension makes the last dimension the
  // outermost loop and the first dimension the innermost; without it the order is the reverse.
  // `counters` holds one zero for each dimension, before and after. False with RecursionError set
  // for more dimensions than the interpreter lets functions nest.
  static bool generateIndices(const std::vector<std::int64_t>& extents,
                              const std::vector<std::int64_t>& strides,
                              std::vector<std::int64_t>& indices,
                              std::vector<std::int64_t>& counters, bool fromLastDimension);

 private:
  static bool generateIndicesImpl(const std::vector<std::int64_t>& extents,
                                  const std::vector<std::int64_t>& strides,
                                  std::int64_t lastDimension, std::int64_t step, std::int64_t rank,
                                  std::vector<std::int64_t>& indices,
                                  std::vector<std::int64_t>& counters, std::int64_t dimension);
};

namespace layout_conversion {

// Offsets of the positions of some dimensions: multiples of one stride where only one dimension
// counts, a list otherwise.
struct Offsets {
  std::int64_t count = 1;
  std::int64_t stride = 0;
  std::vector<std::int64_t> list;

  std::int64_t at(std::int64_t k) const {
    return list.empty() ? k * stride : list[static_cast<std::size_t>(k)];
  }
};

// The reorder as the transposition of a matrix. Its rows are the positions of the leading
// dimensions and its columns those of the others:
//   target[row + columns.at(column)] = source[rows.at(row) + column]
struct Transposition {
  Offsets rows;
  Offsets columns;
};

// Empty with RecursionError set.
std::optional<Transposition> makeTransposition(const std::vector<std::int64_t>& dimensions);

// Moves elements of 1, 2, 4, 8 or 16 bytes from the source, which may lie at any address, to the
// target. Linear in the number of elements.
void transpose(const Transposition& plan, std::size_t elementSize, const void* source,
               void* target);

}  // namespace layout_conversion
