// Shared by the tests of writes: storing one element, and reading the array and its mirror.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "memory_limit.hpp"
#include "python_testing.hpp"
#include "storage/element_writer.hpp"

namespace python_testing {

using velmardata_testing::otherThanSample;
using velmardata_testing::samples;

inline Numbers stridesOf(const MDArrayWrapper& wrapper) {
  return numbersOf(wrapper.bytewiseStrides());
}

// The address of the array's elements. Those of the mirror are elsewhere.
template <class T>
const void* addressOfElements(const MDArrayWrapper& wrapper) {
  return velmardata_testing::addressOf(foundation::velmardata::TypedArray<T>(wrapper.array()));
}

// Stores one element at a position of the storage and ignores the view's chain. False, with no
// error set, if the element was not stored. The storage must not have expired.
template <class T>
bool setElement(const MCppPyArray& view, const Position& position, const T& element) {
  const WrapperAccess storage = view.wrapper();
  const std::int64_t offset = storage->getElementOffsetFromIndices(position);
  return ElementWriter<T>(*storage).write(offset, element) == WriteStatus::Stored;
}

template <class T>
std::vector<T> arrayElements(const MDArrayWrapper& wrapper) {
  return velmardata_testing::elementsOf(foundation::velmardata::TypedArray<T>(wrapper.array()));
}

// Fills the mirror if it is not filled yet.
template <class T>
std::vector<T> mirrorElements(const MDArrayWrapper& wrapper) {
  const auto* first = reinterpret_cast<const T*>(wrapper.buf());
  return std::vector<T>(first, first + wrapper.getNumberOfElements());
}

// The elements of the array. The test fails if the mirror has others.
template <class T>
std::vector<T> storedElements(const MDArrayWrapper& wrapper) {
  std::vector<T> elements = arrayElements<T>(wrapper);
  EXPECT_EQ(mirrorElements<T>(wrapper), elements) << "the mirror differs from the array";
  return elements;
}
template <class T>
std::vector<T> storedElements(const MCppPyArray& view) {
  const WrapperAccess storage = view.wrapper();
  return storedElements<T>(*storage);
}

}  // namespace python_testing
