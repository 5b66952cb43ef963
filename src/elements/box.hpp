// A box: elements in memory, described by an address and one lane for each open dimension.
#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <velmardata/velmardata.hpp>

#include "storage/index_chain.hpp"
#include "storage/mcpp_py_array.hpp"

// One dimension: how many positions, and the bytes from one to the next.
struct Lane {
  std::int64_t count;
  std::int64_t stride;
};
using Lanes = boost::container::small_vector<Lane, 4>;

// Borrowed memory: a box is valid until Python code may run or the storage is written to. All its
// elements exist, and there is at least one. Lanes come in the order of the dimensions.
struct Box {
  const std::byte* first = nullptr;  // the element at the first position of each lane
  foundation::velmardata::ArrayType type{};
  Lanes lanes;
  // Of all elements. Every box is given its count, so no test detects a change.
  std::int64_t count = 0;
};

// The lanes of a part of the storage, and the offset in bytes of its first element. Empty, with no
// error set, when the chain leaves no dimension open, when there are no elements, or when an
// element lies outside the storage.
struct Region {
  std::int64_t offset = 0;
  Lanes lanes;
  std::int64_t count = 1;  // the product of the lanes' counts
};
std::optional<Region> findRegion(const MDArrayWrapper& storage, const IndexChain& chain);

// The elements that reads of the view would find. Empty, with no error set, when there are none,
// when reads would fail, or when the storage has expired.
std::optional<Box> findBox(const MCppPyArray& view);

// Whether two sets of lanes describe the same shape.
bool haveSameCounts(const Lanes& a, const Lanes& b);

// Lanes of contiguous memory for the same dimensions: the first dimension densest (storage order),
// or the last (nesting order).
Lanes denseLanes(const Lanes& dimensions, std::size_t elementSize, bool firstDensest);
