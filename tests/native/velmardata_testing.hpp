// Shared by the tests of the data library: names of element types, sample values, arrays.
#pragma once

#include <gtest/gtest.h>
#include <malloc.h>

#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "typed_testing.hpp"

namespace velmardata_testing {

using namespace foundation::velmardata;

template <class Nothing, class... T>
struct TypesOf {
  using type = typed_testing::TypeList<T...>;
};

#define X(name, number, type) , type
using AllTypes = TypesOf<void VELMARDATA_FOR_EACH_ARRAY_TYPE(X)>::type;
using WritableTypes = TypesOf<void VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)>::type;
#undef X
#define X(name, number, enumerator, type, ...) , type
using RealNumericTypes = TypesOf<void VELMARDATA_FOR_EACH_NUMERIC_TYPE(X)>::type;
#undef X

// Names a typed test after its element type: TypedArrayTest/COMPLEX_INT8.
struct TypeNames {
  template <class T>
  static std::string nameOf() {
    switch (arrayTypeOf<T>) {
#define X(name, number, type) \
  case ArrayType::name:       \
    return #name;
      VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
    }
    return "unknown";
  }
};

template <class T>
struct PartOf {
  using type = T;
};
template <class T>
struct PartOf<std::complex<T>> {
  using type = T;
};

// Sample number i. Neighbours differ in both parts and no part is zero, except for bool, which
// repeats true, false, true.
template <class T>
T sample(std::size_t i) {
  using Part = typename PartOf<T>::type;
  const auto number = static_cast<int>(i % 50 + 1);
  if constexpr (std::is_same_v<T, bool>) {
    return i % 3 != 1;
  } else if constexpr (std::is_same_v<T, Part>) {
    return static_cast<T>(number);
  } else {
    return T(static_cast<Part>(number), static_cast<Part>(number + 60));
  }
}

// A value that is not sample number i.
template <class T>
T otherThanSample(std::size_t i) {
  if constexpr (std::is_same_v<T, bool>) {
    return !sample<bool>(i);
  } else {
    return sample<T>(i + 25);
  }
}

using Dimensions = std::vector<unsigned long>;
using UntypedBuffer = std::unique_ptr<void, void (*)(void*)>;
constexpr auto storageLayout = velmar::data::MemoryLayout::Default;

// An uninitialised block from ArrayFactory::createBuffer, which serves all types.
inline UntypedBuffer newBuffer(ArrayType type, unsigned long count) {
  void* block = nullptr;
  void (*deleter)(void*) = nullptr;
  ArrayFactory().createBuffer(&block, &deleter, static_cast<int>(type), count);
  return UntypedBuffer(block, deleter);
}

// A block of `count` samples that starts with sample number `from`.
template <class T>
UntypedBuffer sampleBuffer(unsigned long count, std::size_t from = 0) {
  UntypedBuffer buffer = newBuffer(arrayTypeOf<T>, count);
  for (std::size_t i = 0; i < count; ++i) static_cast<T*>(buffer.get())[i] = sample<T>(from + i);
  return buffer;
}

// An array of samples.
template <class T>
TypedArray<T> sampleArray(const Dimensions& dimensions, std::size_t from = 0) {
  unsigned long count = 1;
  for (const unsigned long dimension : dimensions) count *= dimension;
  return TypedArray<T>(ArrayFactory().createArrayFromBuffer(
      dimensions, arrayTypeOf<T>, sampleBuffer<T>(count, from), storageLayout));
}

template <class T>
std::vector<T> samples(std::size_t count, std::size_t from = 0) {
  std::vector<T> values;
  for (std::size_t i = 0; i < count; ++i) values.push_back(sample<T>(from + i));
  return values;
}

template <class T>
std::vector<T> elementsOf(const TypedArray<T>& array) {
  return std::vector<T>(array.begin(), array.end());
}

template <class T>
std::vector<T> elementsOf(const std::unique_ptr<T[], void (*)(void*)>& block, std::size_t count) {
  return std::vector<T>(block.get(), block.get() + count);
}

// Another handle on the same contents. A plain copy would look unnecessary to the linter.
template <class Handle>
Handle copyOf(const Handle& handle) {
  return handle;
}

// The address of the first element.
template <class T>
const void* addressOf(const TypedArray<T>& array) {
  return std::to_address(array.begin());
}

inline std::uint64_t referenceCount(const Array& array) {
  return array.impl()->m_referenceCount.load();
}

// The number of bytes of address space in use. Shows the largest blocks, which come directly from
// the system. Adds up the mappings, because in an emulator the total of the system also has the
// memory of the emulator.
inline std::size_t addressSpaceInUse() {
  std::ifstream mappings("/proc/self/maps");
  std::size_t total = 0;
  for (std::string line; std::getline(mappings, line);) {
    std::size_t begin = 0;
    std::size_t end = 0;
    if (std::sscanf(line.c_str(), "%zx-%zx", &begin, &end) == 2) total += end - begin;
  }
  return total;
}

// The number of bytes that are allocated and not freed. Constant under a sanitizer, which has its
// own allocator and finds leaks itself.
inline std::size_t heapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace velmardata_testing
