// Reading of `size`, and reconciliation with the dimensions of the data.
#include "construct/construction_shape.hpp"

#include <algorithm>
#include <cassert>
#include <string>

#include "construct/external_buffer.hpp"
#include "module/dimensions.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"

namespace {

// One entry of `size`; empty with an error set.
std::optional<std::int64_t> readDimension(PyObject* size, Py_ssize_t index) {
  const PyRef item = PyRef::steal(PySequence_GetItem(size, index));
  if (!item) {
    setError(PyExc_RuntimeError,
             "Item " + std::to_string(index) +
                 " could not be retrieved from the value associated with the 'size' keyword.");
    return std::nullopt;
  }
  if (!pyObjectIsLong(item.get())) {
    setError(PyExc_TypeError, "dimensions must be nonnegative integers.");
    return std::nullopt;
  }
  const Py_ssize_t dimension = PyLong_AsSsize_t(item.get());
  if (dimension >= 0) return dimension;
  // Deliberate: an int too large to read is reported in these words too; its OverflowError would
  // name a C type.
  setError(PyExc_ValueError,
           "size cannot contain negative dimensions. Use nonnegative integers for dimensions.");
  return std::nullopt;
}

bool refuseShape() {
  setError(PyExc_ValueError, "arrays must be rectangular.");
  return false;
}

// Replaces an error that was pending before the walk.
std::nullopt_t refuseItems() {
  setError(PyExc_ValueError, "elements of array are of different lengths or types.");
  return std::nullopt;
}

PyRef childOf(PyObject* parent, Py_ssize_t index) {
  PyRef child = PyRef::steal(PySequence_GetItem(parent, index));
  if (!child) setError(PyExc_RuntimeError, messages::nullDataPointer);
  return child;
}

// The size of a sequence, 0 for an object that is not a sequence; -1 with an error set.
Py_ssize_t sizeIfSequence(PyObject* object) {
  return PySequence_Check(object) != 0 ? PySequence_Size(object) : 0;
}

}  // namespace

bool ConstructionShape::processSizeKwarg(PyObject* size) {
  assert(size != nullptr && size != Py_None);
  if (PySequence_Check(size) == 0) {
    setError(PyExc_TypeError, "value of 'size' must be a sequence.");
    return false;
  }
  const Py_ssize_t length = PySequence_Size(size);
  if (length < 0) return false;
  if (length == 0) {
    setError(PyExc_ValueError, "sequence passed to 'size' must not be empty.");
    return false;
  }
  Lengths dimensions;
  // Throws when the list cannot be had, before an item is asked for.
  dimensions.reserve(static_cast<std::size_t>(length));
  SignalWatch signals;
  for (Py_ssize_t i = 0; i < length; ++i) {
    if (!signals.count()) return false;
    const std::optional<std::int64_t> dimension = readDimension(size, i);
    if (!dimension) return false;
    dimensions.push_back(*dimension);
  }
  ::makeTwoDimensional(dimensions);
  ::dropTrailingOnes(dimensions);
  assert(specifiedDimensions.empty());
  specifiedDimensions = std::move(dimensions);
  return true;
}

void ConstructionShape::processSize(std::span<const std::int64_t> dimensions) {
  assert(specifiedDimensions.empty());
  specifiedDimensions.assign(dimensions.begin(), dimensions.end());
}

void ConstructionShape::takeLengthOfVector(std::int64_t length) {
  if (specifiedDimensions.empty()) calculatedDimensions.push_back(1);
  calculatedDimensions.push_back(length);
}

bool ConstructionShape::takeDimensionsOf(const Py_buffer& view, std::uint64_t count) {
  using external_buffer::refuse;
  if (view.ndim < 2) {
    if (view.ndim == 0 && count != 1) return refuse(external_buffer::doesNotFit);
    calculatedDimensions.push_back(static_cast<std::int64_t>(count));
    return true;
  }
  if (view.shape == nullptr) return refuse("shape is null.");
  calculatedDimensions.assign(view.shape, view.shape + view.ndim);
  const bool hasNegative = std::any_of(calculatedDimensions.begin(), calculatedDimensions.end(),
                                       [](std::int64_t length) { return length < 0; });
  if (hasNegative || exactProduct(getCalculatedDimensions()) != count || view.strides == nullptr ||
      view.itemsize <= 0) {
    return refuse(external_buffer::doesNotFit);
  }
  // In contiguous memory the first stride tells the order: one item means storage order.
  bufferInStorageOrder = view.strides[0] / view.itemsize == 1;
  return true;
}

bool ConstructionShape::takesLevels(std::span<const Lane> lanes) const {
  const std::uint64_t depth = currentDepth + lanes.size();
  // What is refused is read one by one with the same result, so no test detects a change of the
  // condition to `true`.
  if (leafDepth != 0 && leafDepth != static_cast<std::int64_t>(depth)) return false;
  for (std::size_t k = 0; k < lanes.size(); ++k) {
    const std::size_t level = currentDepth + k;
    if (level >= calculatedDimensions.size()) return true;
    const std::int64_t dimension = calculatedDimensions[level];
    // The same as above, so no test detects a change of the condition to `true`.
    if (dimension != 0 && dimension != lanes[k].count) return false;
  }
  return true;
}

void ConstructionShape::takeDimensionsOf(std::span<const Lane> lanes) {
  assert(calculatedDimensions.empty());
  for (const Lane& lane : lanes) calculatedDimensions.push_back(lane.count);
}

void ConstructionShape::enterLevel(std::int64_t length) {
  assert(length >= 0);
  ++currentDepth;
  if (calculatedDimensions.size() < currentDepth) calculatedDimensions.push_back(0);
  if (sequenceLengths.size() < currentDepth) sequenceLengths.push_back(0);
  sequenceLengths[currentDepth - 1] = length;
}

bool ConstructionShape::leaveLevel() {
  assert(currentDepth > 0);
  std::int64_t& dimension = calculatedDimensions[currentDepth - 1];
  std::int64_t& length = sequenceLengths[currentDepth - 1];
  if (dimension == 0) dimension = length;
  if (dimension != length) return refuseShape();
  length = 0;
  --currentDepth;
  return true;
}

bool ConstructionShape::enterLeaf() {
  const auto depth = static_cast<std::int64_t>(currentDepth);
  if (leafDepth == 0) leafDepth = depth;
  if (leafDepth != depth) return refuseShape();
  if (calculatedDimensions.empty()) calculatedDimensions = {1, 1};
  return true;
}

std::uint64_t ConstructionShape::numberOfElementsByLengths() const {
  return wrappedProduct(spanOf(sequenceLengths));
}

void ConstructionShape::setMismatch(PyObject* exceptionClass) const {
  setError(exceptionClass, "dimensions of initializer (" +
                               getDimensionsAsStdString(getCalculatedDimensions()) +
                               ") do not match dimensions specified by 'size' (" +
                               getDimensionsAsStdString(getSpecifiedDimensions()) + ").");
}

bool ConstructionShape::specifiedAndCalculatedDimensionsMatch() {
  if (specifiedDimensions.empty() || specifiedDimensions == calculatedDimensions) return true;
  const std::uint64_t product = wrappedProduct(getSpecifiedDimensions());
  if (product != wrappedProduct(getCalculatedDimensions())) {
    setMismatch(MCPyError::shapeErr);
    return false;
  }
  if (calculatedDimensions.size() == 1) {
    // A flat list fills the shape of `size` in storage order.
    if (calculatedDimensions.front() > 1) {
      bufferInStorageOrder = true;
      return true;
    }
    if (calculatedDimensions.front() == 1 && specifiedDimensions.size() == 2 &&
        specifiedDimensions.front() == 1) {
      return true;
    }
  }
  if (product == 0) return true;
  setMismatch(MCPyError::sizeErr);
  return false;
}

bool ConstructionShape::handleSingleSingletonDimensionEdgeCase(
    std::int64_t numberOfFlattenedElements) {
  if (calculatedDimensions.size() != 1) return true;
  if (specifiedDimensions.empty()) {
    const std::int64_t length = calculatedDimensions.front();
    calculatedDimensions = {length != 0 ? 1 : 0, length};
    return true;
  }
  if (numberOfFlattenedElements == calculateNumberOfElements()) return true;
  setMismatch(MCPyError::shapeErr);
  return false;
}

void ConstructionShape::makeTwoDimensional() {
  ::makeTwoDimensional(calculatedDimensions);
}

void ConstructionShape::dropTrailingOnes() {
  ::dropTrailingOnes(calculatedDimensions);
}

std::int64_t ConstructionShape::calculateNumberOfElements() {
  const auto product = static_cast<std::int64_t>(wrappedProduct(getDimensions()));
  if (product > 0 && numberOfElements == 0) numberOfElements = product;
  return numberOfElements;
}

std::optional<std::int64_t> getLengthOfPySequence(PyObject* value, SignalWatch& signals) {
  if (PySequence_Check(value) == 0) return 1;
  const Py_ssize_t length = PySequence_Size(value);
  if (length < 0) return std::nullopt;
  if (length < 2) return length;
  const PyRef first = childOf(value, 0);
  if (!first) return std::nullopt;
  const bool isSequence = PySequence_Check(first.get()) != 0;
  const Py_ssize_t size = sizeIfSequence(first.get());
  if (size < 0) return std::nullopt;
  for (Py_ssize_t i = 1; i < length; ++i) {
    if (!signals.count()) return std::nullopt;
    const PyRef child = childOf(value, i);
    if (!child) return std::nullopt;
    // A child that disagrees already is not asked for its size.
    if ((PySequence_Check(child.get()) != 0) != isSequence) return refuseItems();
    const Py_ssize_t childSize = sizeIfSequence(child.get());
    if (childSize < 0) return std::nullopt;
    if (childSize != size) return refuseItems();
  }
  return length;
}
