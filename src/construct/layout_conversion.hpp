// From a filled buffer to a typed array: adopted as it lies, or gathered into column-major order.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "construct/element_store.hpp"

// The true product of the dimensions, or nothing when it does not fit 64 bits unsigned.
std::optional<std::uint64_t> exactNumberOfElements(const std::vector<std::int64_t>& dimensions);

// The array of a buffer that holds as many elements as `dimensions` multiply to. The buffer is
// adopted when it is in storage order already or `numberOfElements`, the number of elements that
// may need reordering, is below 2; otherwise it stays with the caller. Empty with MemoryError or
// RecursionError set when memory for the reordered elements is short, or there are too many
// dimensions.
template <class T>
std::optional<foundation::velmardata::Array> makeTypedArrayFromBuf(
    ElementBuffer<T>&& buffer, bool bufferInStorageOrder,
    foundation::velmardata::standalone::ClientArrayFactory& factory,
    const std::vector<std::int64_t>& dimensions, const std::vector<std::int64_t>& storedDimensions,
    std::int64_t numberOfElements);

// The gather: element k of the result is the element of the row-major source at the k-th position
// in column-major order. `dimensions` drives it, `storedDimensions` is what the array is given.
template <class T>
std::optional<foundation::velmardata::Array> convertRowMajorBufferToColumnMajor(
    foundation::velmardata::standalone::ClientArrayFactory& factory, const T* source,
    const std::vector<std::int64_t>& dimensions, const std::vector<std::int64_t>& storedDimensions,
    std::int64_t numberOfElements);

// The last stride is 1, each other the product of all later dimensions.
void computeRowMajorStrides(const std::vector<std::int64_t>& dimensions,
                            std::vector<std::int64_t>& strides);

// Enumerates the positions of an index space, each as the sum of its indices times the strides.
class HybridTraversal {
 public:
  // Appends one sum a position to `indices`. From the last dimension: the last is the outermost
  // loop and the first the innermost; otherwise the reverse. `counters` is a vector of zeros, one a
  // dimension, and is that again afterwards. `Placeholder` has no effect. False with RecursionError
  // set for more dimensions than the interpreter lets functions nest.
  template <class Index, class Placeholder>
  static bool generateIndices(const std::vector<Index>& extents, const std::vector<Index>& strides,
                              std::vector<Index>& indices, std::vector<Index>& counters,
                              bool fromLastDimension);

 private:
  template <class Index, class Placeholder>
  static bool generateIndicesImpl(const std::vector<Index>& extents,
                                  const std::vector<Index>& strides, std::int64_t lastDimension,
                                  std::int64_t step, std::int64_t rank, std::vector<Index>& indices,
                                  std::vector<Index>& counters, std::int64_t dimension);
};
