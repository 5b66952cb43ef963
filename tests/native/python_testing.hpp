// Shared by the tests of the module: arrays of samples, views of them, and index items as text.
#pragma once

#include "module/python.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "module/element_types.hpp"
#include "module/py_ref.hpp"
#include "python_values.hpp"
#include "storage/index_chain.hpp"
#include "storage/index_items.hpp"
#include "storage/mcpp_py_array.hpp"
#include "storage/mcpy_array.hpp"
#include "velmardata_testing.hpp"

namespace python_testing {

using Numbers = std::vector<std::int64_t>;  // lengths, strides or indices

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t two32 = std::int64_t{1} << 32;

// Texts of errors that several functions report.
constexpr const char* nullPointer = "null data pointer.";
constexpr const char* notInitialized = "object not initialized.";

using velmardata_testing::AllTypes;
using velmardata_testing::Dimensions;
using velmardata_testing::sample;
using velmardata_testing::sampleArray;
using velmardata_testing::WritableTypes;

#define X(name, number, enumerator, type, ...) , type
using ClassTypes = velmardata_testing::TypesOf<void VELMARDATA_FOR_EACH_CLASS_TYPE(X)>::type;
#undef X

// Names a typed test after its element type: ReadElement/complex_int8.
struct TypeWords {
  template <class T>
  static std::string nameOf() {
    if constexpr (std::is_same_v<T, char16_t>) {
      return "char16_t";
    } else {
      return std::string(isComplexElement<T> ? "complex_" : "") + typeWord<T>;
    }
  }
};

// --- Arrays and views

// The class of arrays of T. Characters have no class: their views get the first one, which no code
// looks at.
template <class T>
constexpr SupportedArrayEnum classOfElement() {
  if constexpr (std::is_same_v<T, char16_t>) {
    return SupportedArrayEnum::Double;
  } else {
    return classOf<Part<T>>;
  }
}

using ViewPointer = std::unique_ptr<MCppPyArray>;

// A new array of samples in storage order, for double 1.0, 2.0, 3.0 ..., as Python makes arrays.
template <class T>
ViewPointer makeArray(const Dimensions& dimensions) {
  return std::make_unique<MCppPyArray>(sampleArray<T>(dimensions), classOfElement<T>(),
                                       isComplexElement<T>, true, Contents::Own);
}

// A weak view whose storage has expired.
template <class T>
ViewPointer makeExpiredView(const Dimensions& dimensions) {
  const ViewPointer owner = makeArray<T>(dimensions);
  return std::make_unique<MCppPyArray>(*owner, true);
}

// A view without storage: the strong copy of a weak view.
template <class T>
ViewPointer makeViewWithoutStorage(const Dimensions& dimensions) {
  const ViewPointer owner = makeArray<T>(dimensions);
  MCppPyArray weak(*owner, true);
  return std::make_unique<MCppPyArray>(weak, false);
}

// A Python object that owns the view.
inline PyRef makeRecord(ViewPointer view) {
  PyRef record = PyRef::steal(allocMCPyArrayFromMCppPyArray(*view));
  getMCPyArrayFromPyObject(record.get())->mcppPyArray = view.release();
  return record;
}
inline MCppPyArray& viewOf(const PyRef& record) {
  return *getMCPyArrayFromPyObject(record.get())->mcppPyArray;
}

// --- Index items

inline SliceIndexItem slice(std::int64_t start, std::int64_t stop, std::int64_t step,
                            std::int64_t length) {
  return {start, stop, step, length, true};
}

inline std::string describe(const std::optional<std::int64_t>& number) {
  return number ? std::to_string(*number) : "-";
}
// "start:stop:step/length", with a dash for an absent number and "?" behind an item that is not
// normalised.
inline std::string describe(const SliceIndexItem& item) {
  return describe(item.m_start) + ":" + describe(item.m_stop) + ":" + describe(item.m_step) + "/" +
         describe(item.m_slice_len) + (item.m_isNormalized ? "" : "?");
}
inline std::string describe(const IntegerIndexItem& item) {
  return std::to_string(item.m_index) + (item.m_isNormalized ? "" : "?");
}
// A chain of integers, then a slice if there is one.
inline IndexChain chainOf(const Position& integers,
                          const std::optional<SliceIndexItem>& finalSlice = {}) {
  IndexChain chain(integers);
  if (finalSlice) chain.append(*finalSlice);
  return chain;
}
// The items of a chain with a blank between them.
inline std::string describe(const IndexChain& chain) {
  std::string text;
  const auto append = [&text](const auto& item) {
    if (!text.empty()) text += ' ';
    text += describe(item);
  };
  for (const IntegerIndexItem& item : chain.integers()) append(item);
  if (const SliceIndexItem* run = chain.finalSlice()) append(*run);
  return text;
}

inline Numbers entriesOf(const Position& position) {
  return {position.begin(), position.end()};
}
// Lengths or strides of an array.
inline Numbers numbersOf(std::span<const std::int64_t> numbers) {
  return {numbers.begin(), numbers.end()};
}
// The positions of a normalised slice.
inline Numbers valuesOf(const SliceIndexItem& item) {
  Numbers values;
  for (std::int64_t k = 0; k < item.numberOfValues(); ++k) values.push_back(item.valueAt(k));
  return values;
}

}  // namespace python_testing
