// `size`: normalising it, and reconciling it with the dimensions of the data.
#pragma once

#include <exception>

#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "construct/memory_error.hpp"
#include "module/support.hpp"

namespace size_reconciliation {

// Wraps around without check, and is 1 for no dimensions.
inline std::uint64_t wrappedProduct(const std::vector<std::int64_t>& dimensions) {
  std::uint64_t product = 1;
  for (std::int64_t dimension : dimensions) product *= static_cast<std::uint64_t>(dimension);
  return product;
}

// One entry of `size`; false with an error set.
bool readDimension(PyObject* size, Py_ssize_t index, std::int64_t& dimension);

}  // namespace size_reconciliation

template <class T>
bool FinalConstructorParser<T>::processSizeKwarg(PyObject* size) {
  if (size == Py_None) return false;
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
  std::vector<std::int64_t> dimensions;
  for (Py_ssize_t i = 0; i < length; ++i) {
    std::int64_t dimension = 0;
    if (!size_reconciliation::readDimension(size, i, dimension)) return false;
    dimensions.push_back(dimension);
  }
  if (dimensions.size() == 1) dimensions.insert(dimensions.begin(), 1);
  while (dimensions.size() > 2 && dimensions.back() == 1) dimensions.pop_back();
  return processSize(dimensions);
}

template <class T>
bool FinalConstructorParser<T>::processSize(const std::vector<std::int64_t>& dimensions) {
  specifiedDimensions.insert(specifiedDimensions.end(), dimensions.begin(), dimensions.end());
  return reserveBuffer(size_reconciliation::wrappedProduct(specifiedDimensions));
}

template <class T>
bool FinalConstructorParser<T>::reserveBuffer(std::uint64_t count) {
  if (bufferReserved) return true;
  bufferReserved = growTo(count);
  return bufferReserved;
}

template <class T>
bool FinalConstructorParser<T>::growTo(std::uint64_t count) {
  bool isReserved = false;
  try {
    isReserved = flattenedElements.reserve(count);
  } catch (const std::exception&) {
    isReserved = false;  // another data library may throw where ours gives null
  }
  if (!isReserved) setOutOfMemory(count, typeWord<T>);
  return isReserved;
}

template <class T>
std::int64_t FinalConstructorParser<T>::calculateNumberOfElements() {
  const std::vector<std::int64_t>& dimensions = getDimensions();
  if (dimensions.empty()) {
    if (numberOfElements == 0) numberOfElements = 1;
    return numberOfElements;
  }
  const auto product = static_cast<std::int64_t>(size_reconciliation::wrappedProduct(dimensions));
  if (product > 0 && numberOfElements == 0) numberOfElements = product;
  return numberOfElements;
}

template <class T>
void FinalConstructorParser<T>::setMismatch(PyObject* exceptionClass) const {
  setError(exceptionClass, "dimensions of initializer (" +
                               getDimensionsAsStdString(calculatedDimensions) +
                               ") do not match dimensions specified by 'size' (" +
                               getDimensionsAsStdString(specifiedDimensions) + ").");
}

template <class T>
bool FinalConstructorParser<T>::specifiedAndCalculatedDimensionsMatch() {
  using size_reconciliation::wrappedProduct;
  if (specifiedDimensions.empty() || specifiedDimensions == calculatedDimensions) return true;
  const std::uint64_t product = wrappedProduct(specifiedDimensions);
  if (product != wrappedProduct(calculatedDimensions)) {
    setMismatch(MCPyError::shapeErr);
    return false;
  }
  if (calculatedDimensions.size() == 1) {
    // A flat initializer or a vector fills the shape of `size` in storage order.
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
  if (getDimensionsAsStdString(specifiedDimensions) ==
      getDimensionsAsStdString(calculatedDimensions)) {
    return true;
  }
  setMismatch(MCPyError::sizeErr);
  return false;
}

template <class T>
bool FinalConstructorParser<T>::handleSingleSingletonDimensionEdgeCase(bool expandSingleDimension,
                                                                       bool copyToSpecified) {
  if (calculatedDimensions.size() != 1) return true;
  const std::int64_t length = calculatedDimensions.front();
  if (!specifiedDimensions.empty()) {
    if (getNumberOfFlattenedElements() != calculateNumberOfElements()) {
      setMismatch(MCPyError::shapeErr);
      return false;
    }
    // No `size` is stored with one dimension; kept for callers that would.
    if (copyToSpecified && specifiedDimensions.size() == 1) {
      calculatedDimensions = {1, specifiedDimensions.front()};
      specifiedDimensions = calculatedDimensions;
    }
  } else if (expandSingleDimension) {
    calculatedDimensions = {length != 0 ? 1 : 0, length};
  }
  return true;
}

// A product that wraps can agree with the data although the true number of elements does not.
template <class T>
bool FinalConstructorParser<T>::dimensionsHold(std::uint64_t count) const {
  const std::optional<std::uint64_t> exact = exactNumberOfElements(getDimensions());
  if (exact == count) return true;
  setOutOfMemory(exact, typeWord<T>);
  return false;
}

template <class T>
ElementBuffer<T> FinalConstructorParser<T>::makeZeroFilledBuffer(bool& ok) {
  const auto count = static_cast<std::uint64_t>(calculateNumberOfElements());
  ok = dimensionsHold(count);
  if (!ok) return noBuffer();
  ElementBuffer<T> buffer = flattenedElements.takeReserved(count);
  ok = buffer != nullptr;
  if (!ok) {
    setOutOfMemory(count, typeWord<T>);
    return noBuffer();
  }
  bufferInStorageOrder = true;
  std::fill_n(buffer.get(), count, T{});
  return buffer;
}
