// What the tests of writes share: elements as the array and as the mirror hold them.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "memory_limit.hpp"
#include "python_testing.hpp"

namespace python_testing {

using velmardata_testing::otherThanSample;
using velmardata_testing::samples;

template <class T>
std::vector<T> arrayElements(const MDArrayWrapper& wrapper) {
  return velmardata_testing::elementsOf(foundation::velmardata::TypedArray<T>(wrapper.array()));
}

// This is a look at the mirror: it is filled afterwards.
template <class T>
std::vector<T> mirrorElements(const MDArrayWrapper& wrapper) {
  const auto* first = reinterpret_cast<const T*>(wrapper.buf());
  return std::vector<T>(first, first + wrapper.getNumberOfElements());
}

// The elements, which it is a failure for the mirror not to agree on.
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
