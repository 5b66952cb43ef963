// Kernels of comparisons, one for each element type and its complex form.
#include "elements/equality.hpp"

#include <cassert>
#include <complex>
#include <cstring>
#include <type_traits>

#include "elements/element_kinds.hpp"
#include "elements/walk.hpp"
#include "module/element_types.hpp"

namespace {

template <class T>
using Stored = std::conditional_t<std::is_same_v<T, bool>, unsigned char, T>;

// Whether an integer and a float are the same number, exactly.
template <class Integer>
bool isSameNumber(Integer integer, double number) {
  if constexpr (sizeof(Integer) < 8) {
    return static_cast<double>(integer) == number;
  } else {
    // The first float past the range; the conversion back is exact below it.
    constexpr double end = std::is_signed_v<Integer> ? 0x1p63 : 0x1p64;
    if (!(number < end) || static_cast<double>(integer) != number) return false;
    return static_cast<Integer>(number) == integer;
  }
}

template <class A, class B>
bool isEqual(const Stored<A>& a, const Stored<B>& b) {
  if constexpr (isComplexElement<A> && isComplexElement<B>) {
    // A complex number is read as two doubles.
    return static_cast<double>(a.real()) == static_cast<double>(b.real()) &&
           static_cast<double>(a.imag()) == static_cast<double>(b.imag());
  } else if constexpr (isComplexElement<A>) {
    return isEqual<B, A>(b, a);
  } else if constexpr (isComplexElement<B>) {
    if (static_cast<double>(b.imag()) != 0.0) return false;
    if constexpr (std::is_integral_v<A>) {
      return isSameNumber(a, static_cast<double>(b.real()));
    } else {
      return static_cast<double>(a) == static_cast<double>(b.real());
    }
  } else if constexpr (std::is_same_v<A, bool>) {
    return (a != 0) == (b != 0);
  } else {
    return a == b;
  }
}

// Whether equal numbers have equal bytes.
template <class A, class B>
inline constexpr bool isEqualBytes =
    std::is_same_v<A, B> && std::is_integral_v<Part<A>> && !std::is_same_v<A, bool> &&
    !(isComplexElement<A> && sizeof(Part<A>) == 8);

// Dense rows. Differences are counted in a number of the elements' own kind, without a branch, so
// that the loop becomes vectors.
template <class A, class B>
bool denseRowsAreEqual(const std::byte* a, const std::byte* b, std::int64_t count) {
  if constexpr (isEqualBytes<A, B>) {
    return std::memcmp(a, b, static_cast<std::size_t>(count) * sizeof(A)) == 0;
  } else if constexpr (std::is_same_v<A, B> && isComplexElement<A>) {
    // Parts are compared one by one; those of 64-bit integers after both were rounded.
    const auto* x = reinterpret_cast<const Part<A>*>(a);
    const auto* y = reinterpret_cast<const Part<A>*>(b);
    double differences = 0;
    for (std::int64_t k = 0; k < 2 * count; ++k) {
      differences += static_cast<double>(x[k]) != static_cast<double>(y[k]) ? 1.0 : 0.0;
    }
    return differences == 0;
  } else {
    using Differences = std::conditional_t<std::is_same_v<A, float>, float, double>;
    const auto* x = reinterpret_cast<const Stored<A>*>(a);
    const auto* y = reinterpret_cast<const Stored<B>*>(b);
    Differences differences = 0;
    for (std::int64_t k = 0; k < count; ++k) {
      differences += isEqual<A, B>(x[k], y[k]) ? Differences{0} : Differences{1};
    }
    return differences == 0;
  }
}

template <class A, class B>
bool spreadRowsAreEqual(const std::byte* a, const std::byte* b, std::int64_t count,
                        std::int64_t strideA, std::int64_t strideB) {
  for (std::int64_t k = 0; k < count; ++k, a += strideA, b += strideB) {
    if (!isEqual<A, B>(*reinterpret_cast<const Stored<A>*>(a),
                       *reinterpret_cast<const Stored<B>*>(b))) {
      return false;
    }
  }
  return true;
}

template <class A, class B>
bool planesAreEqual(const std::byte* a, const std::byte* b, const Plane& plane) {
  // In pieces, so that a difference is noticed soon. Their length and the loops for dense elements
  // affect only the speed, so no test detects a change of `2048`, `64` or of the condition to
  // `false`.
  if (plane.innerStrideA == sizeof(A) && plane.innerStrideB == sizeof(B)) {
    if constexpr (isEqualBytes<A, B>) {
      return walkRows<2048>(a, b, plane, denseRowsAreEqual<A, B>);
    } else {
      return walkRows<64, sizeof(A), sizeof(B)>(a, b, plane, denseRowsAreEqual<A, B>);
    }
  }
  // The length affects only the speed, so no test detects a change of `2048`.
  return walkRows<2048>(
      a, b, plane, [&plane](const std::byte* x, const std::byte* y, std::int64_t count) {
        return spreadRowsAreEqual<A, B>(x, y, count, plane.innerStrideA, plane.innerStrideB);
      });
}

using Kernel = bool (*)(const std::byte*, const std::byte*, const Plane&);

template <class A, class B>
struct ComparisonOf {
  static constexpr Kernel pick() {
    if constexpr (std::is_same_v<Part<A>, Part<B>>) {
      return &planesAreEqual<A, B>;
    } else {
      return nullptr;  // of two classes
    }
  }
  static constexpr Kernel value = pick();
};
using Comparisons = element_kinds::PairTable<ComparisonOf, Kernel>;

}  // namespace

bool areEqual(const Box& a, const Box& b) {
  const Kernel kernel = Comparisons::at(a.type, b.type);
  assert(kernel != nullptr);
  return walkPlanes(planWalk(a.lanes, b.lanes), a.first, b.first, kernel);
}
