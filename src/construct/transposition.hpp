// The reorder from row-major to column-major as the transposition of a matrix: its plan and its
// walk.
#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// Fills `strides`, which has as many entries as there are dimensions: the last is 1, each other is
// the product of all later dimensions.
void computeRowMajorStrides(std::span<const std::int64_t> dimensions,
                            std::span<std::int64_t> strides);

// Enumerates the positions of an index space, each as the sum of its indices times the strides. The
// walk can stop after any position and go on later.
class HybridTraversal {
 public:
  // fromLastDimension makes the last dimension the outermost loop and the first dimension the
  // innermost; without it the order is the reverse. There are as many strides as extents.
  HybridTraversal(std::span<const std::int64_t> extents, std::span<const std::int64_t> strides,
                  bool fromLastDimension);

  // Writes the next sums, as many as there is room for and as positions are left; returns their
  // number. After the last position the walk starts anew. Allocates nothing.
  std::size_t generateIndices(std::span<std::int64_t> sums);

 private:
  struct Dimension {
    std::int64_t extent;
    std::int64_t stride;
    std::int64_t index;
  };
  bool moveOn();

  boost::container::small_vector<Dimension, 4> m_dimensions;  // the innermost first
  std::int64_t m_sum = 0;                                     // of the position that comes next
  bool m_isEmpty;  // an extent is 0, or there are no dimensions
};

namespace transposition {

// Offsets of the positions of some dimensions, in pieces: multiples of one stride where only one
// dimension counts, a short list otherwise. Lists of all positions would take as much memory as the
// elements when one dimension is long.
class Offsets {
 public:
  Offsets(std::span<const std::int64_t> extents, std::span<const std::int64_t> strides,
          bool fromLastDimension);

  // The number of all positions.
  std::int64_t count() const { return m_count; }
  // Moves to the next piece. False when there was none; the walk then starts anew.
  bool findPiece();
  // Of the piece: the number of its first position, and how many it has.
  std::int64_t first() const { return m_first; }
  std::int64_t size() const { return m_size; }
  // The offset of position first() + k.
  std::int64_t at(std::int64_t k) const {
    return m_list.empty() ? k * m_stride : m_list[static_cast<std::size_t>(k)];
  }

 private:
  std::int64_t m_count;
  std::int64_t m_stride;
  HybridTraversal m_traversal;
  std::vector<std::int64_t> m_list;  // empty when one dimension counts
  std::int64_t m_first = 0;
  std::int64_t m_size = 0;
};

// The reorder as the transposition of a matrix. Its rows are the positions of the leading
// dimensions and its columns those of the others:
//   target[row + offset of the column] = source[offset of the row + column]
struct Transposition {
  Offsets rows;
  Offsets columns;
};

Transposition makeTransposition(std::span<const std::int64_t> dimensions);

// Moves elements of 1, 2, 4, 8 or 16 bytes from the source, which may lie at any address, to the
// target. Linear in the number of elements.
void transpose(Transposition plan, std::size_t elementSize, const void* source, void* target);

}  // namespace transposition
