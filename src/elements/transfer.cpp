// Kernels of copies and conversions, one for each pair of element types that converts.
#include "elements/transfer.hpp"

#include <complex>
#include <cstring>
#include <limits>
#include <type_traits>

#include "elements/element_kinds.hpp"
#include "elements/number_rules.hpp"
#include "elements/walk.hpp"
#include "module/element_types.hpp"

namespace vd = foundation::velmardata;

namespace {

// The largest integer that element types other than unsigned ones can be made of.
constexpr std::uint64_t largestLongLong =
    static_cast<std::uint64_t>(std::numeric_limits<long long>::max());

// --- One element. Each function stores the converted element and returns whether it was accepted;
// a refused element stores any value. Straight lines of code, so that loops become vectors.

// Integers and logical elements, which Python reads as ints, to the (part) type P.
template <class P, class From>
inline bool convertInteger(From value, P& to) {
  if constexpr (std::is_same_v<P, bool>) {
    to = value != 0;
    if constexpr (std::is_same_v<From, std::uint64_t>) return value <= largestLongLong;
    return true;
  } else if constexpr (std::is_same_v<P, double>) {
    to = static_cast<double>(value);
    if constexpr (std::is_same_v<From, std::uint64_t>) return value <= largestLongLong;
    return true;
  } else if constexpr (std::is_same_v<P, float>) {
    to = static_cast<float>(value);
    if constexpr (std::is_same_v<From, std::uint64_t>) {
      if (value > largestLongLong) to = std::numeric_limits<float>::infinity();
    }
    return true;
  } else if constexpr (std::is_same_v<From, bool>) {
    to = static_cast<P>(value ? 1 : 0);
    return true;
  } else {
    to = static_cast<P>(value);
    return number_rules::fits<P>(value);
  }
}

// A float or double, which Python reads as a double, to the (part) type P.
template <class P, class From>
inline bool convertFloating(From value, P& to) {
  if constexpr (std::is_same_v<P, double>) {
    to = static_cast<double>(value);
    return true;
  } else if constexpr (std::is_same_v<P, float> && std::is_same_v<From, float>) {
    to = number_rules::throughDouble(value);
    return true;
  } else if constexpr (std::is_same_v<P, float>) {
    to = number_rules::narrow(value);
    return true;
  } else {
    const auto number = static_cast<double>(value);
    const bool isHeld = number_rules::fits<P>(number);
    to = number_rules::truncate<P>(isHeld ? number : 0.0);
    return isHeld;
  }
}

// A part of a complex element, which Python reads as a double whatever its type.
template <class P, class From>
inline bool convertPart(From part, P& to) {
  if constexpr (std::is_floating_point_v<From>) {
    return convertFloating<P>(part, to);
  } else {
    return convertFloating<P>(static_cast<double>(part), to);
  }
}

// Whether a pair of types can convert at all.
template <class From, class To>
inline constexpr bool isPossible =
    isComplexElement<To> ||
    (!isComplexElement<From> && (!std::is_floating_point_v<From> || std::is_floating_point_v<To>));
// Floats and complex numbers make logical elements in constructions only.
template <class From, class To>
inline constexpr bool isOnlyConstruction =
    std::is_same_v<To, bool> && (isComplexElement<From> || std::is_floating_point_v<From>);

template <class From, class To>
inline bool convert(const From& from, To& to) {
  if constexpr (isOnlyConstruction<From, To>) {
    if constexpr (isComplexElement<From>) {
      to = static_cast<double>(from.real()) != 0.0 || static_cast<double>(from.imag()) != 0.0;
    } else {
      to = from != 0;
    }
    return true;
  } else if constexpr (isComplexElement<To>) {
    using P = Part<To>;
    P real{};
    P imaginary{};
    bool isAccepted = false;
    if constexpr (isComplexElement<From>) {
      isAccepted = convertPart<P>(from.real(), real);
      isAccepted &= convertPart<P>(from.imag(), imaginary);
    } else if constexpr (std::is_floating_point_v<From>) {
      isAccepted = convertFloating<P>(from, real);
    } else {
      isAccepted = convertInteger<P>(from, real);
    }
    to = To(real, imaginary);
    return isAccepted;
  } else if constexpr (std::is_floating_point_v<From>) {
    return convertFloating<To>(from, to);
  } else {
    return convertInteger<To>(from, to);
  }
}

// Whether an element keeps all its bits when it is converted to its own type: then the loop is a
// copy. Not for single, where infinity loses its sign; not for the complex 64-bit integers, which
// go through double; not for logical, where any byte but 0 is stored as 1.
template <class T>
inline constexpr bool isCopied =
    !std::is_same_v<T, bool> && !std::is_same_v<Part<T>, float> &&
    !(isComplexElement<T> && std::is_integral_v<Part<T>> && sizeof(Part<T>) == 8);

// Logical elements are read as bytes: another program can have stored any byte.
template <class T>
using Stored = std::conditional_t<std::is_same_v<T, bool>, unsigned char, T>;
template <class T>
inline T loaded(const Stored<T>& stored) {
  if constexpr (std::is_same_v<T, bool>) {
    return stored != 0;
  } else {
    return stored;
  }
}

// Whether the integer type P holds every value of From; not asked for floats.
template <class P, class From>
constexpr bool holdsAll() {
  if constexpr (isComplexElement<From> || std::is_floating_point_v<From>) {
    return false;
  } else {
    return number_rules::fits<P>(std::numeric_limits<From>::min()) &&
           number_rules::fits<P>(std::numeric_limits<From>::max());
  }
}

// Whether no value of From is refused.
template <class From, class To>
constexpr bool isCertain() {
  using P = Part<To>;
  constexpr bool isCopy = std::is_same_v<From, To> && isCopied<From>;
  if constexpr (!isPossible<From, To> || isOnlyConstruction<From, To>) {
    return false;
  } else if constexpr (isCopy || std::is_same_v<P, float> || std::is_same_v<From, bool>) {
    return true;
  } else if constexpr (std::is_same_v<P, double> || std::is_same_v<To, bool>) {
    return !std::is_same_v<From, std::uint64_t>;
  } else {
    return holdsAll<P, From>();
  }
}

// --- Loops

// Bits that are set when an integer does not fit: those that the way to To and back changes, the
// sign where To has none, and the digits that To reads as signs. Without a branch, so that loops
// become vectors.
template <class To, class From>
std::make_unsigned_t<From> lostBits(From value) {
  using Bits = std::make_unsigned_t<From>;
  const auto back = static_cast<From>(static_cast<To>(value));
  Bits lost = static_cast<Bits>(value) ^ static_cast<Bits>(back);
  if constexpr (sizeof(To) >= sizeof(From) && std::is_signed_v<From> && std::is_unsigned_v<To>) {
    lost |= static_cast<Bits>(static_cast<Bits>(value) >> (8 * sizeof(From) - 1));
  } else if constexpr (sizeof(To) <= sizeof(From) && std::is_unsigned_v<From> &&
                       std::is_signed_v<To>) {
    // Also for a narrower type: the sign of its value would fill the upper digits again.
    lost |= static_cast<Bits>(value >> (8 * sizeof(To) - 1));
  }
  return lost;
}

// Chooses a loop that becomes vectors, and affects only the speed, so no test detects a change.
template <class T>
inline constexpr bool isInteger = std::is_integral_v<T> && !std::is_same_v<T, bool>;

template <class From, class To>
bool convertDense(const Stored<From>* __restrict from, To* __restrict to, std::int64_t count) {
  if constexpr (isCertain<From, To>()) {
    for (std::int64_t k = 0; k < count; ++k) convert<From, To>(loaded<From>(from[k]), to[k]);
    return true;
  } else if constexpr (isInteger<From> && isInteger<To>) {
    std::make_unsigned_t<From> lost = 0;
    for (std::int64_t k = 0; k < count; ++k) {
      to[k] = static_cast<To>(from[k]);
      lost |= lostBits<To>(from[k]);
    }
    return lost == 0;
  } else {
    bool isAccepted = true;
    for (std::int64_t k = 0; k < count; ++k) {
      isAccepted &= convert<From, To>(loaded<From>(from[k]), to[k]);
    }
    return isAccepted;
  }
}

template <class From, class To>
bool convertSpread(const std::byte* from, std::byte* to, std::int64_t count,
                   std::int64_t fromStride, std::int64_t toStride) {
  bool isAccepted = true;
  for (std::int64_t k = 0; k < count; ++k, from += fromStride, to += toStride) {
    isAccepted &= convert<From, To>(loaded<From>(*reinterpret_cast<const Stored<From>*>(from)),
                                    *reinterpret_cast<To*>(to));
  }
  return isAccepted;
}

template <class From, class To>
bool convertPlane(const std::byte* from, std::byte* to, const Plane& plane) {
  // In pieces, so that an early refusal costs little. The length of a piece and the loop for dense
  // elements affect only the speed, so no test detects a change of `64` or of the condition to
  // `false`.
  if (plane.innerStrideA == sizeof(From) && plane.innerStrideB == sizeof(To)) {
    return walkRows<64, sizeof(From), sizeof(To)>(
        from, to, plane, [](const std::byte* source, std::byte* target, std::int64_t count) {
          return convertDense<From, To>(reinterpret_cast<const Stored<From>*>(source),
                                        reinterpret_cast<To*>(target), count);
        });
  }
  // The length affects only the speed, so no test detects a change of `16` or of `1` to `2`.
  return walkRows<1 << 16>(
      from, to, plane, [&plane](const std::byte* source, std::byte* target, std::int64_t count) {
        return convertSpread<From, To>(source, target, count, plane.innerStrideA,
                                       plane.innerStrideB);
      });
}

template <std::size_t Size>
bool copyPlane(const std::byte* from, std::byte* to, const Plane& plane) {
  constexpr auto size = static_cast<std::int64_t>(Size);
  const bool isDense = plane.innerStrideA == size && plane.innerStrideB == size;
  for (std::int64_t row = 0; row < plane.outerCount; ++row) {
    if (isDense) {
      std::memcpy(to, from, static_cast<std::size_t>(plane.innerCount) * Size);
    } else {
      const std::byte* source = from;
      std::byte* target = to;
      for (std::int64_t k = 0; k < plane.innerCount; ++k) {
        std::memcpy(target, source, Size);
        source += plane.innerStrideA;
        target += plane.innerStrideB;
      }
    }
    from += plane.outerStrideA;
    to += plane.outerStrideB;
  }
  return true;
}

using Kernel = bool (*)(const std::byte*, std::byte*, const Plane&);

// --- Tables

template <class From, class To>
constexpr Kernel kernelOf() {
  if constexpr (std::is_same_v<From, To> && isCopied<From>) {
    return &copyPlane<sizeof(From)>;
  } else if constexpr (isPossible<From, To> || isOnlyConstruction<From, To>) {
    return &convertPlane<From, To>;
  } else {
    return nullptr;
  }
}

struct Conversion {
  Kernel kernel = nullptr;
  bool isOnlyConstruction = false;
  bool isCertain = false;
};

template <class From, class To>
struct ConversionOf {
  static constexpr Conversion value = {kernelOf<From, To>(), isOnlyConstruction<From, To>,
                                       isCertain<From, To>()};
};
using Conversions = element_kinds::PairTable<ConversionOf, Conversion>;

Kernel copyKernel(std::size_t elementSize) {
  switch (elementSize) {
    case 1:
      return &copyPlane<1>;
    case 2:
      return &copyPlane<2>;
    case 4:
      return &copyPlane<4>;
    case 8:
      return &copyPlane<8>;
    default:
      return &copyPlane<16>;
  }
}

}  // namespace

bool alwaysConverts(vd::ArrayType from, vd::ArrayType to) {
  return Conversions::at(from, to).isCertain;
}

bool tryTransfer(const Box& from, Purpose purpose, vd::ArrayType to, const Lanes& lanes,
                 std::byte* target) {
  const Conversion conversion = Conversions::at(from.type, to);
  if (conversion.kernel == nullptr) return false;
  if (conversion.isOnlyConstruction && purpose != Purpose::Construction) return false;
  return walkPlanes(planWalk(from.lanes, lanes), from.first, target, conversion.kernel);
}

bool tryTransferDense(const Box& from, Purpose purpose, const ElementFacts& to, Order order,
                      void* target) {
  return tryTransfer(from, purpose, to.type,
                     denseLanes(from.lanes, to.size, order == Order::Storage),
                     static_cast<std::byte*>(target));
}

void copyElements(const std::byte* from, const Lanes& fromLanes, std::size_t elementSize,
                  const Lanes& lanes, std::byte* target) {
  walkPlanes(planWalk(fromLanes, lanes), from, target, copyKernel(elementSize));
}
