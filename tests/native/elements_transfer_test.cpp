// Copies and conversions in memory: for all pairs of element types the same as through Python
// numbers.
#include "elements/transfer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "boundary_values.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;
using boundary_values::Bytes;
using boundary_values::Kind;
using boundary_values::kinds;
using foundation::velmardata::ArrayType;
using foundation::velmardata::arrayTypeOf;

constexpr Purpose purposes[] = {Purpose::Construction, Purpose::Assignment};

constexpr std::byte untouched{0xa5};

// What Python makes of each value of `from`. Empty where the number is refused.
using Converted = std::vector<std::optional<Bytes>>;
Converted convertedByPython(const Kind& from, const Kind& to, Purpose purpose) {
  Converted converted;
  for (std::size_t k = 0; k < from.count(); ++k) {
    const PyRef number = from.numberOf(from.value(k));
    converted.push_back(to.convert(number.get(), purpose == Purpose::Construction));
  }
  return converted;
}

// How elements lie in memory: units of the element size from one to the next, and whether the last
// comes first.
struct Layout {
  const char* label;
  std::int64_t fromStride;
  std::int64_t toStride;
};
constexpr Layout layouts[] = {{"dense", 1, 1},          {"from every third", 3, 1},
                              {"to every other", 1, 2}, {"both with gaps", 2, 3},
                              {"from the last", -1, 1}, {"to the last", 1, -2}};

// Converts the values at these places, laid out in memory. Empty if that is refused.
std::optional<std::vector<Bytes>> transferred(const Kind& from, const Kind& to, Purpose purpose,
                                              const std::vector<std::size_t>& places,
                                              const Layout& layout) {
  const auto count = static_cast<std::int64_t>(places.size());
  const auto fromSize = static_cast<std::int64_t>(from.size);
  const auto toSize = static_cast<std::int64_t>(to.size);
  // Space for the gaps; the element before the first one stays untouched too.
  const auto room = [count](std::int64_t size, std::int64_t stride) {
    return static_cast<std::size_t>((count * std::abs(stride) + 1) * size);
  };
  const auto firstOf = [count](std::int64_t size, std::int64_t stride) {
    return stride > 0 ? 0 : (count - 1) * -stride * size;
  };
  // Gaps have values that are always refused or wrong if they are read.
  std::vector<std::uint64_t> source(room(fromSize, layout.fromStride) / 8 + 2, ~std::uint64_t{0});
  std::vector<std::uint64_t> target(room(toSize, layout.toStride) / 8 + 2);
  std::memset(target.data(), static_cast<int>(untouched), target.size() * 8);
  auto* const sourceFirst =
      reinterpret_cast<std::byte*>(source.data()) + firstOf(fromSize, layout.fromStride);
  auto* const targetFirst =
      reinterpret_cast<std::byte*>(target.data()) + firstOf(toSize, layout.toStride);
  for (std::int64_t k = 0; k < count; ++k) {
    std::memcpy(sourceFirst + k * layout.fromStride * fromSize,
                from.value(places[static_cast<std::size_t>(k)]), from.size);
  }
  const Box box = {sourceFirst, from.type, {{count, layout.fromStride * fromSize}}, count};
  const Lanes lanes = {{count, layout.toStride * toSize}};
  const bool isAccepted = tryTransfer(box, purpose, to.type, lanes, targetFirst);
  EXPECT_EQ(PyErr_Occurred(), nullptr);
  std::vector<Bytes> results;
  std::size_t written = 0;
  for (std::int64_t k = 0; k < count; ++k) {
    const std::byte* const element = targetFirst + k * layout.toStride * toSize;
    results.emplace_back(element, element + to.size);
  }
  for (const auto* byte = reinterpret_cast<const std::byte*>(target.data());
       byte != reinterpret_cast<const std::byte*>(target.data() + target.size()); ++byte) {
    written += *byte != untouched ? 1 : 0;
  }
  EXPECT_LE(written, places.size() * to.size) << "bytes between the elements are written";
  if (!isAccepted) return std::nullopt;
  return results;
}

template <class Check>
void forEachTransfer(Check check) {
  for (const Kind& from : kinds()) {
    for (const Kind& to : kinds()) {
      for (const Purpose purpose : purposes) {
        SCOPED_TRACE(std::string(from.name) + " to " + to.name +
                     (purpose == Purpose::Construction ? ", construction" : ", assignment"));
        check(from, to, purpose, convertedByPython(from, to, purpose));
        if (testing::Test::HasFailure()) return;
      }
    }
  }
}

TEST(Transfer, HandlesEachValueAsPythonDoes) {
  forEachTransfer([](const Kind& from, const Kind& to, Purpose purpose, const Converted& expected) {
    for (std::size_t k = 0; k < from.count(); ++k) {
      const std::vector<std::size_t> one = {k};
      const auto results = transferred(from, to, purpose, one, layouts[0]);
      ASSERT_EQ(results.has_value(), expected[k].has_value())
          << textOf(from.numberOf(from.value(k)).get());
      if (results) {
        ASSERT_EQ((*results)[0], *expected[k]) << textOf(from.numberOf(from.value(k)).get());
      }
    }
  });
}

// Twice each, so that rows are longer than the widest vectors.
TEST(Transfer, HandlesManyValuesAtOnceInEveryLayout) {
  forEachTransfer([](const Kind& from, const Kind& to, Purpose purpose, const Converted& expected) {
    std::vector<std::size_t> accepted;
    std::optional<std::size_t> refused;
    for (int repetition = 0; repetition < 2; ++repetition) {
      for (std::size_t k = 0; k < from.count(); ++k) {
        if (expected[k]) {
          accepted.push_back(k);
        } else {
          refused = k;
        }
      }
    }
    for (const Layout& layout : layouts) {
      SCOPED_TRACE(layout.label);
      if (!accepted.empty()) {
        const auto results = transferred(from, to, purpose, accepted, layout);
        ASSERT_TRUE(results);
        for (std::size_t k = 0; k < accepted.size(); ++k) {
          ASSERT_EQ((*results)[k], *expected[accepted[k]]) << k;
        }
      }
      if (!refused) continue;
      for (const std::size_t place : {std::size_t{0}, accepted.size() / 2, accepted.size()}) {
        std::vector<std::size_t> mixed = accepted;
        mixed.insert(mixed.begin() + static_cast<std::ptrdiff_t>(place), *refused);
        ASSERT_FALSE(transferred(from, to, purpose, mixed, layout)) << place;
      }
    }
  });
}

TEST(Transfer, AlwaysConvertsOnlyWhatIsNeverRefused) {
  int certain = 0;
  forEachTransfer([&certain](const Kind& from, const Kind& to, Purpose, const Converted& expected) {
    if (!alwaysConverts(from.type, to.type)) return;
    ++certain;
    for (std::size_t k = 0; k < from.count(); ++k) {
      EXPECT_TRUE(expected[k]) << textOf(from.numberOf(from.value(k)).get());
    }
  });
  EXPECT_GT(certain, 2 * 100);
}

TEST(Transfer, OfOneTypeIsCertainExceptForComplexNumbersOf64Bits) {
  for (const Kind& kind : kinds()) {
    const bool isExpected =
        kind.type != ArrayType::COMPLEX_INT64 && kind.type != ArrayType::COMPLEX_UINT64;
    EXPECT_EQ(alwaysConverts(kind.type, kind.type), isExpected) << kind.name;
  }
  EXPECT_TRUE(alwaysConverts(ArrayType::INT8, ArrayType::DOUBLE));
  EXPECT_TRUE(alwaysConverts(ArrayType::UINT64, ArrayType::SINGLE));
  EXPECT_FALSE(alwaysConverts(ArrayType::UINT64, ArrayType::DOUBLE));
  EXPECT_FALSE(alwaysConverts(ArrayType::DOUBLE, ArrayType::LOGICAL));
  EXPECT_FALSE(alwaysConverts(ArrayType::DOUBLE, ArrayType::INT8));
}

TEST(Transfer, OfOtherTypesIsRefused) {
  const std::uint64_t element = 0;
  std::uint64_t target = 7;
  const auto* const first = reinterpret_cast<const std::byte*>(&element);
  auto* const last = reinterpret_cast<std::byte*>(&target);
  for (const ArrayType type : {ArrayType{}, ArrayType::CHAR, static_cast<ArrayType>(24)}) {
    EXPECT_FALSE(alwaysConverts(type, ArrayType::DOUBLE));
    EXPECT_FALSE(alwaysConverts(ArrayType::DOUBLE, type));
    EXPECT_FALSE(alwaysConverts(type, type));
    EXPECT_FALSE(tryTransfer({first, type, {{1, 2}}, 1}, Purpose::Construction, ArrayType::DOUBLE,
                             {{1, 8}}, last));
    EXPECT_FALSE(tryTransfer({first, ArrayType::DOUBLE, {{1, 8}}, 1}, Purpose::Construction, type,
                             {{1, 2}}, last));
  }
  EXPECT_EQ(target, 7U);
  EXPECT_TRUE(raisedNothing());
}

// --- Rows that are checked in pieces

TEST(TransferOfLongRows, FindsOneRefusedElementAnywhere) {
  constexpr std::int64_t count = 3 * (1 << 16) + 5;
  std::vector<std::int32_t> source(count, 7);
  std::vector<std::int8_t> target(count);
  const auto transfer = [&] {
    const Box box = {
        reinterpret_cast<const std::byte*>(source.data()), ArrayType::INT32, {{count, 4}}, count};
    return tryTransfer(box, Purpose::Assignment, ArrayType::INT8, {{count, 1}},
                       reinterpret_cast<std::byte*>(target.data()));
  };
  EXPECT_TRUE(transfer());
  EXPECT_EQ(target, std::vector<std::int8_t>(count, 7));
  for (const std::int64_t place : {std::int64_t{0}, std::int64_t{65535}, std::int64_t{65536},
                                   std::int64_t{131072}, count - 1}) {
    SCOPED_TRACE(place);
    source[static_cast<std::size_t>(place)] = 128;
    EXPECT_FALSE(transfer());
    source[static_cast<std::size_t>(place)] = 7;
  }
}

// --- More dimensions

TEST(TransferOfPlanes, PutsEachElementInItsPlace) {
  std::vector<std::int16_t> source(2 * 3 * 4);
  for (std::size_t k = 0; k < source.size(); ++k) source[k] = static_cast<std::int16_t>(k);
  const Lanes dimensions = {{2, 0}, {3, 0}, {4, 0}};
  const Lanes from = denseLanes(dimensions, 2, true);
  const Box box = {reinterpret_cast<const std::byte*>(source.data()), ArrayType::INT16, from, 24};
  std::vector<double> target(24, -1.0);
  ASSERT_TRUE(tryTransfer(box, Purpose::Construction, ArrayType::DOUBLE,
                          denseLanes(dimensions, 8, false),
                          reinterpret_cast<std::byte*>(target.data())));
  std::vector<double> expected;
  for (int i = 0; i < 2; ++i) {
    for (int j = 0; j < 3; ++j) {
      for (int k = 0; k < 4; ++k) expected.push_back(i + 2 * j + 6 * k);
    }
  }
  EXPECT_EQ(target, expected);
}

TYPED_SUITE(CopyElements, WritableTypes, TypeWords);

TYPED_CASE(CopyElements, MovesAllBits) {
  const Kind& kind = *std::find_if(kinds().begin(), kinds().end(), [](const Kind& candidate) {
    return candidate.type == arrayTypeOf<TypeParam>;
  });
  const auto count = static_cast<std::int64_t>(kind.count());
  const auto size = static_cast<std::int64_t>(kind.size);
  Bytes dense(kind.values.size());
  copyElements(kind.values.data(), {{count, size}}, kind.size, {{count, size}}, dense.data());
  EXPECT_EQ(dense, kind.values);
  Bytes backwards(kind.values.size());
  copyElements(kind.values.data(), {{count, size}}, kind.size, {{count, -size}},
               backwards.data() + (count - 1) * size);
  Bytes forwards(kind.values.size());
  copyElements(backwards.data() + (count - 1) * size, {{count, -size}}, kind.size, {{count, size}},
               forwards.data());
  EXPECT_EQ(forwards, kind.values);
  if (count > 1) {
    EXPECT_NE(backwards, kind.values);
  }
}

}  // namespace
