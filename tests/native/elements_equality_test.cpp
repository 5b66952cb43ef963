// Comparisons in memory: for each class the same as Python's comparisons of the numbers.
#include "elements/equality.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "boundary_values.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;
using boundary_values::Kind;
using boundary_values::kinds;
using foundation::velmardata::ArrayType;

// Whether the kinds are real and complex forms of one class.
bool areOfOneClass(const Kind& a, const Kind& b) {
  const auto classOfKind = [](const Kind& kind) {
    return getTypeAndComplexityFromArrayType(kind.type).supportedArrayEnum;
  };
  return classOfKind(a) == classOfKind(b);
}

Box boxOf(const Kind& kind, const std::byte* first, std::int64_t count, std::int64_t stride) {
  return {first, kind.type, {{count, stride}}, count};
}

// Memory for elements of any type.
struct Memory {
  explicit Memory(const Kind& kind, std::size_t count)
      : size(kind.size), words(count * size / 8 + 2) {}
  std::byte* at(std::size_t k) { return reinterpret_cast<std::byte*>(words.data()) + k * size; }

  std::size_t size;
  std::vector<std::uint64_t> words;
};

// Two objects are made even for the same value: an object that is compared with itself is equal
// without a look.
bool areEqualInPython(const Kind& a, const std::byte* x, const Kind& b, const std::byte* y) {
  const PyRef first = a.numberOf(x);
  const PyRef second = b.numberOf(y);
  return PyObject_RichCompareBool(first.get(), second.get(), Py_EQ) == 1;
}

template <class Check>
void forEachPairOfOneClass(Check check) {
  for (const Kind& a : kinds()) {
    for (const Kind& b : kinds()) {
      if (!areOfOneClass(a, b)) continue;
      SCOPED_TRACE(std::string(a.name) + " and " + b.name);
      check(a, b);
      if (testing::Test::HasFailure()) return;
    }
  }
}

TEST(Equality, IsThatOfPythonForEachPairOfValues) {
  int equal = 0;
  int unequal = 0;
  forEachPairOfOneClass([&](const Kind& a, const Kind& b) {
    Memory x(a, 1);
    Memory y(b, 1);
    for (std::size_t i = 0; i < a.count(); ++i) {
      for (std::size_t k = 0; k < b.count(); ++k) {
        std::memcpy(x.at(0), a.value(i), a.size);
        std::memcpy(y.at(0), b.value(k), b.size);
        const bool expected = areEqualInPython(a, a.value(i), b, b.value(k));
        ++(expected ? equal : unequal);
        const auto sizeA = static_cast<std::int64_t>(a.size);
        const auto sizeB = static_cast<std::int64_t>(b.size);
        ASSERT_EQ(areEqual(boxOf(a, x.at(0), 1, sizeA), boxOf(b, y.at(0), 1, sizeB)), expected)
            << textOf(a.numberOf(a.value(i)).get()) << " and "
            << textOf(b.numberOf(b.value(k)).get());
        // The rows with gaps have another loop.
        ASSERT_EQ(areEqual(boxOf(a, x.at(0), 2, 0), boxOf(b, y.at(0), 2, 0)), expected);
      }
    }
  });
  EXPECT_GT(equal, 1000);
  EXPECT_GT(unequal, 10000);
}

// Rows longer than the pieces in which they are compared, dense and with gaps, with one element
// that differs.
TEST(Equality, FindsOneDifferenceAnywhere) {
  constexpr std::size_t count = 5000;
  forEachPairOfOneClass([](const Kind& a, const Kind& b) {
    // Value 0 and another one, the same numbers in both forms of the class.
    std::optional<std::size_t> same;
    std::optional<std::size_t> different;
    for (std::size_t k = 0; k < b.count(); ++k) {
      (areEqualInPython(a, a.value(0), b, b.value(k)) ? same : different) = k;
    }
    ASSERT_TRUE(same && different);
    for (const std::size_t gap : {std::size_t{1}, std::size_t{2}}) {
      Memory x(a, gap * count);
      Memory y(b, gap * count);
      for (std::size_t k = 0; k < count; ++k) {
        std::memcpy(x.at(gap * k), a.value(0), a.size);
        std::memcpy(y.at(gap * k), b.value(*same), b.size);
      }
      const Box left = boxOf(a, x.at(0), count, static_cast<std::int64_t>(gap * a.size));
      const Box right = boxOf(b, y.at(0), count, static_cast<std::int64_t>(gap * b.size));
      ASSERT_TRUE(areEqual(left, right));
      for (const std::size_t place : {std::size_t{0}, std::size_t{1}, std::size_t{2047},
                                      std::size_t{2048}, std::size_t{4095}, count - 1}) {
        std::memcpy(y.at(gap * place), b.value(*different), b.size);
        ASSERT_FALSE(areEqual(left, right)) << place;
        std::memcpy(y.at(gap * place), b.value(*same), b.size);
      }
      ASSERT_TRUE(areEqual(left, right));
    }
  });
}

// A row of differences longer than what a float or a small integer can count.
TEST(Equality, IsFalseForManyDifferences) {
  constexpr std::int64_t count = 1 << 17;
  const std::vector<float> ones(count, 1.0F);
  const std::vector<float> twos(count, 2.0F);
  const auto box = [](const std::vector<float>& of) {
    return Box{
        reinterpret_cast<const std::byte*>(of.data()), ArrayType::SINGLE, {{count, 4}}, count};
  };
  EXPECT_FALSE(areEqual(box(ones), box(twos)));
  EXPECT_TRUE(areEqual(box(ones), box(ones)));
}

// --- Deliberate results

TEST(EqualityOf, NaNAndItselfIsFalse) {
  const std::vector<double> values = {1.0, std::numeric_limits<double>::quiet_NaN(), 2.0};
  const Box box = {
      reinterpret_cast<const std::byte*>(values.data()), ArrayType::DOUBLE, {{3, 8}}, 3};
  EXPECT_FALSE(areEqual(box, box));
}

TEST(EqualityOf, ComplexNumbersOf64BitsIsThatOfRoundedParts) {
  using Complex = std::complex<std::int64_t>;
  constexpr std::int64_t large = (std::int64_t{1} << 53) + 1;
  const Complex a(large, 0);
  const Complex b(large - 1, 0);
  const auto box = [](const Complex& of) {
    return Box{reinterpret_cast<const std::byte*>(&of), ArrayType::COMPLEX_INT64, {{1, 16}}, 1};
  };
  EXPECT_TRUE(areEqual(box(a), box(b)));
  const Box real = {reinterpret_cast<const std::byte*>(&large), ArrayType::INT64, {{1, 8}}, 1};
  EXPECT_FALSE(areEqual(real, box(a))) << "a real number is compared exactly with the rounded part";
  EXPECT_FALSE(areEqual(box(a), real));
}

// --- More dimensions

TEST(EqualityOf, TransposedArraysComparesTheSamePlaces) {
  std::vector<std::int32_t> columns(12);
  std::vector<std::int32_t> rows(12);
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t k = 0; k < 4; ++k) {
      columns[i + 3 * k] = rows[4 * i + k] = static_cast<std::int32_t>(10 * i + k);
    }
  }
  const Box a = {
      reinterpret_cast<const std::byte*>(columns.data()), ArrayType::INT32, {{3, 4}, {4, 12}}, 12};
  const Box b = {
      reinterpret_cast<const std::byte*>(rows.data()), ArrayType::INT32, {{3, 16}, {4, 4}}, 12};
  EXPECT_TRUE(areEqual(a, b));
  for (std::int32_t& element : rows) {
    ++element;
    EXPECT_FALSE(areEqual(a, b));
    --element;
  }
}

}  // namespace
