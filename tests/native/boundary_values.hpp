// Shared by the tests of elements in memory: for each element type, values at all bounds, their
// Python numbers, and the conversion of Python numbers.
#pragma once

#include "module/python.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "construct/element_conversion_impl.hpp"
#include "module/element_to_number.hpp"
#include "module/element_types.hpp"
#include "module/py_ref.hpp"

namespace boundary_values {

// Elements of one type, one behind the other.
using Bytes = std::vector<std::byte>;

// Floats at the bounds of all types, with their neighbours.
inline std::vector<double> doubles() {
  constexpr double largestFloat = std::numeric_limits<float>::max();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  std::vector<double> values = {0.0,
                                0.5,
                                0.99,
                                1.0,
                                100.7,
                                16777217.0,
                                1e300,
                                0x1p53,
                                0x1p53 + 2,
                                1e-40,
                                1e-50,
                                infinity,
                                std::numeric_limits<double>::max(),
                                std::numeric_limits<double>::min(),
                                std::numeric_limits<double>::denorm_min(),
                                std::numeric_limits<float>::denorm_min(),
                                std::bit_cast<double>(std::uint64_t{0x7ff8000000000000}),
                                std::bit_cast<double>(std::uint64_t{0x7ffabcdee0000001}),
                                std::bit_cast<double>(std::uint64_t{0x7fffffffffffffff}),
                                std::bit_cast<double>(std::uint64_t{0x7ff0000020000001})};
  for (const double bound : {1.0, 128.0, 129.0, 256.0, 32768.0, 32769.0, 65536.0, 0x1p31,
                             0x1p31 + 1, 0x1p32, 0x1p63, 0x1p64, largestFloat}) {
    values.insert(values.end(),
                  {bound, std::nextafter(bound, 0.0), std::nextafter(bound, infinity)});
  }
  const std::size_t count = values.size();
  for (std::size_t k = 0; k < count; ++k) values.push_back(-values[k]);
  return values;
}

// The bounds of type P and those of the other types that lie in it.
template <class P>
std::vector<P> parts() {
  std::vector<P> values;
  if constexpr (std::is_same_v<P, bool>) {
    values = {false, true};
  } else if constexpr (std::is_same_v<P, double>) {
    values = doubles();
  } else if constexpr (std::is_same_v<P, float>) {
    for (const double value : doubles()) {
      // A cast of a float out of range has no defined value.
      if (!(std::abs(value) > std::numeric_limits<float>::max()) || value - value != 0.0) {
        values.push_back(static_cast<float>(value));
      }
    }
    // Signaling NaN.
    for (const std::uint32_t bits : {0x7f800001U, 0xffa12345U}) {
      values.push_back(std::bit_cast<float>(bits));
    }
  } else {
    const auto add = [&values](auto value) {
      if (std::in_range<P>(value)) values.push_back(static_cast<P>(value));
    };
    for (const int power : {0, 7, 8, 15, 16, 31, 32, 53, 63}) {
      const std::uint64_t bound = std::uint64_t{1} << power;
      for (const std::uint64_t value : {bound - 1, bound, bound + 1}) {
        add(value);
        add(static_cast<std::int64_t>(~value));  // -value - 1
        add(static_cast<std::int64_t>(0 - value));
      }
    }
    for (std::uint64_t near = 0; near < 1030; near += 103) add(~near);  // near 2**64
    for (std::int64_t near = 0; near < 1030; near += 103) {
      add(std::numeric_limits<std::int64_t>::max() - near);
    }
  }
  return values;
}

template <class T>
std::vector<T> elements() {
  if constexpr (!isComplexElement<T>) {
    return parts<T>();
  } else {
    using P = Part<T>;
    std::vector<T> values;
    const std::vector<P> of = parts<P>();
    for (std::size_t k = 0; k < of.size(); ++k) {
      values.insert(values.end(),
                    {T(of[k], P{0}), T(P{1}, of[k]), T(of[k], of[of.size() - 1 - k])});
    }
    return values;
  }
}

// One element type at run time.
struct Kind {
  foundation::velmardata::ArrayType type;
  const char* name;
  std::size_t size;
  Bytes values;
  PyRef (*numberOf)(const std::byte* element);
  // What construction and assignment make of a Python number. Empty if they refuse it.
  std::optional<Bytes> (*convert)(PyObject* number, bool allowFloatingPoint);

  std::size_t count() const { return values.size() / size; }
  const std::byte* value(std::size_t k) const { return values.data() + k * size; }
};

template <class T>
Bytes bytesOf(const T& element) {
  Bytes bytes(sizeof(T));
  std::memcpy(bytes.data(), &element, sizeof(T));
  return bytes;
}

template <class T>
Kind kindOf(const char* name) {
  Bytes values;
  for (const T& element : elements<T>()) {
    const Bytes bytes = bytesOf(element);
    values.insert(values.end(), bytes.begin(), bytes.end());
  }
  if constexpr (std::is_same_v<T, bool>) {
    values.insert(values.end(), {std::byte{2}, std::byte{255}});  // from other programs
  }
  return {foundation::velmardata::arrayTypeOf<T>,
          name,
          sizeof(T),
          values,
          [](const std::byte* element) {
            if constexpr (std::is_same_v<T, bool>) {
              return PyRef::steal(makeNumber(*element != std::byte{0}));
            } else {
              T value;
              std::memcpy(&value, element, sizeof(T));
              return PyRef::steal(makeNumber(value));
            }
          },
          [](PyObject* number, bool allowFloatingPoint) -> std::optional<Bytes> {
            const auto result = convertPyObjectToElement<T>(number, allowFloatingPoint);
            if (!result.value) return std::nullopt;
            return bytesOf(*result.value);
          }};
}

// The 21 element types of arrays.
inline const std::vector<Kind>& kinds() {
  static const std::vector<Kind> all = {
#define X(name, number, type) kindOf<type>(#name),
      VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X
  };
  return all;
}

}  // namespace boundary_values
