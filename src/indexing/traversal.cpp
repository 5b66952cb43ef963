// Traversal of a restricted index space.
#include "indexing/traversal.hpp"

#include <algorithm>

#include "indexing/index_items.hpp"
#include "module/support.hpp"
#include "storage/mcpp_py_array.hpp"

namespace traversal {

bool carry(Position& position, const std::vector<std::int64_t>& shape, const IndexChain& chain) {
  for (auto k = static_cast<std::int64_t>(position.size()) - 1;; --k) {
    // A fixed dimension ends the walk: it never carries into the dimensions before it.
    if (k == 0 || getStepFromShapeDimsAndRestrictingIndices(k, shape, chain) == 0) return false;
    const Step step = takeStep(k - 1, position, shape, chain);
    if (step == Step::Outside) return false;
    if (step == Step::AtEnd) continue;
    for (auto after = static_cast<std::size_t>(k); after < position.size(); ++after) {
      position[after] = getStartFromShapeDimsAndRestrictingIndices(static_cast<std::int64_t>(after),
                                                                   shape, chain);
    }
    return true;
  }
}

}  // namespace traversal

bool containsElementWithIndices(const Position& position, std::int64_t numberOfDimensions,
                                const std::vector<std::int64_t>& shape, const IndexChain& chain) {
  const auto available = static_cast<std::int64_t>(std::min(shape.size(), position.size()));
  if (numberOfDimensions > available) return false;
  for (std::int64_t k = 0; k < numberOfDimensions; ++k) {
    const std::int64_t length = traversal::lengthAt(k, shape);
    std::int64_t start = getStartFromShapeDimsAndRestrictingIndices(k, shape, chain);
    std::int64_t stop = getStopFromShapeDimsAndRestrictingIndices(k, shape, chain);
    const std::int64_t step = getStepFromShapeDimsAndRestrictingIndices(k, shape, chain);
    std::int64_t entry = position[static_cast<std::size_t>(k)];
    if (entry < 0) entry += length;
    if (start < 0) start += length;
    if (step < 0) {
      if (entry > start) return false;
      // Deliberate: a run that reaches down to 0 ends the test, dimensions after it included.
      if (stop < 0) return true;
      if (entry <= stop) return false;
    } else {
      if (entry < start) return false;
      if (stop < 0) stop += length;
      if (entry >= stop) return false;
    }
  }
  return true;
}

Position getStartElement(const std::vector<std::int64_t>& shape, const IndexChain& chain,
                         std::int64_t length) {
  Position position(static_cast<std::size_t>(length), 0);
  const std::size_t count = std::min(position.size(), shape.size());
  for (std::size_t k = 0; k < count; ++k) {
    position[k] =
        getStartFromShapeDimsAndRestrictingIndices(static_cast<std::int64_t>(k), shape, chain);
  }
  return position;
}

bool MCppPyArray::incrementIndices(Position& position) const {
  const WrapperAccess storage = wrapper();
  return storage && ::incrementIndices(position, storage->shape(), m_indices);
}

bool MCppPyArray::containsElementWithIndices(const Position& position,
                                             std::int64_t numberOfDimensions) const {
  const WrapperAccess storage = wrapper();
  return storage &&
         ::containsElementWithIndices(position, numberOfDimensions, storage->shape(), m_indices);
}

Position MCppPyArray::getIndicesOfStartElement(std::int64_t length) const {
  const WrapperAccess storage = wrapper();
  return storage ? getStartElement(storage->shape(), m_indices, length) : Position();
}

std::int64_t MCppPyArray::getLengthOfActiveDimension() const {
  if (const SliceIndexItem* slice = finalSlice()) return slice->m_slice_len.value_or(-1);
  const WrapperAccess storage = wrapper();
  if (!storage) return -1;
  const auto active = static_cast<std::size_t>(m_numberOfIntegerIndicesSoFar);
  if (active >= storage->shape().size()) {
    setError(PyExc_RuntimeError, messages::tooManyIndices);
    return -1;
  }
  return storage->shape()[active];
}

Position MCppPyArray::getIntIndicesOfElementFromStoredIntIndicesAndNewIntIndex(
    std::int64_t newIndex, bool& success) const {
  success = false;
  Position position;
  const WrapperAccess storage = wrapper();
  if (!storage) return position;
  if (newIndex < 0) {
    setError(PyExc_RuntimeError, "index not normalized.");
    return position;
  }
  position.resize(storage->shape().size(), 0);
  for (std::size_t k = 0; k < m_indices.size(); ++k) {
    const auto* item = std::get_if<IntegerIndexItem>(&m_indices[k]);
    if (item == nullptr) {
      setError(PyExc_RuntimeError, messages::unexpectedSlice);
      position.clear();
      return position;
    }
    if (k < position.size()) position[k] = item->m_index;
  }
  if (position.empty()) return position;
  success = true;
  position.back() = newIndex;
  return position;
}

const std::byte* MCppPyArray::getAddressOfElementFromNewIntIndex(std::int64_t newIndex) const {
  const MDArrayWrapper* storage = borrowWrapper();
  if (storage == nullptr || !integersComeFirst()) return nullptr;
  return orNullDataPointer(
      storage->addressOfElement(static_cast<std::size_t>(m_numberOfIntegerIndicesSoFar) + 1,
                                positionBehindIntegers(newIndex)));
}
