// Static assertions about the data library: numbers, layout, and code that must not compile.
#include <atomic>
#include <complex>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>
#include <velmardata/velmardata.hpp>

namespace {

using namespace foundation::velmardata;
using velmar::data::impl::ArrayImpl;

// --- Element types: numbers and sizes that other programs rely on.

static_assert(std::same_as<std::underlying_type_t<ArrayType>, std::uint32_t>);

template <class T, std::uint32_t number, std::size_t size>
constexpr bool isElementType =
    static_cast<std::uint32_t>(arrayTypeOf<T>) == number && sizeof(T) == size && ArrayElement<T>;

static_assert(isElementType<bool, 1, 1>);
static_assert(isElementType<char16_t, 2, 2>);
static_assert(isElementType<double, 4, 8>);
static_assert(isElementType<float, 5, 4>);
static_assert(isElementType<std::int8_t, 6, 1>);
static_assert(isElementType<std::uint8_t, 7, 1>);
static_assert(isElementType<std::int16_t, 8, 2>);
static_assert(isElementType<std::uint16_t, 9, 2>);
static_assert(isElementType<std::int32_t, 10, 4>);
static_assert(isElementType<std::uint32_t, 11, 4>);
static_assert(isElementType<std::int64_t, 12, 8>);
static_assert(isElementType<std::uint64_t, 13, 8>);
static_assert(isElementType<std::complex<double>, 14, 16>);
static_assert(isElementType<std::complex<float>, 15, 8>);
static_assert(isElementType<std::complex<std::int8_t>, 16, 2>);
static_assert(isElementType<std::complex<std::uint8_t>, 17, 2>);
static_assert(isElementType<std::complex<std::int16_t>, 18, 4>);
static_assert(isElementType<std::complex<std::uint16_t>, 19, 4>);
static_assert(isElementType<std::complex<std::int32_t>, 20, 8>);
static_assert(isElementType<std::complex<std::uint32_t>, 21, 8>);
static_assert(isElementType<std::complex<std::int64_t>, 22, 16>);
static_assert(isElementType<std::complex<std::uint64_t>, 23, 16>);

#define X(name, number, type) +1
static_assert((0 VELMARDATA_FOR_EACH_ARRAY_TYPE(X)) == 22);
static_assert((0 VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)) == 21);
#undef X
static_assert(ArrayType::LOGICAL == arrayTypeOf<bool> && ArrayType::CHAR == arrayTypeOf<char16_t>);
static_assert(ArrayType::SINGLE == arrayTypeOf<float>);
static_assert(ArrayType::COMPLEX_SINGLE == arrayTypeOf<std::complex<float>>);
static_assert(!ArrayElement<std::complex<bool>> && !ArrayElement<char> && !ArrayElement<void>);
static_assert(!ArrayElement<long double> && !ArrayElement<const double>);
static_assert(static_cast<int>(velmar::data::MemoryLayout::Default) == 0);

// --- ArrayImpl: a program that only knows where the count is can raise it.

static_assert(std::is_standard_layout_v<ArrayImpl>);
static_assert(offsetof(ArrayImpl, m_referenceCount) == 0);
static_assert(std::same_as<decltype(ArrayImpl::m_referenceCount), std::atomic<std::uint64_t>>);
static_assert(sizeof(std::atomic<std::uint64_t>) == 8);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(!std::is_default_constructible_v<ArrayImpl>, "only the library creates contents");
static_assert(!std::is_destructible_v<ArrayImpl>, "the last reference deletes the contents");

// --- Array and its derived classes: a pointer to the virtual table and one to the contents.

static_assert(std::has_virtual_destructor_v<Array>);
static_assert(std::has_virtual_destructor_v<TypedArray<double>>);
static_assert(std::derived_from<CharArray, TypedArray<char16_t>>);
static_assert(sizeof(Array) == 2 * sizeof(void*));
static_assert(sizeof(TypedArray<double>) == sizeof(Array) && sizeof(CharArray) == sizeof(Array));
static_assert(std::is_nothrow_default_constructible_v<Array>);
static_assert(std::is_nothrow_copy_constructible_v<Array>);
static_assert(std::is_nothrow_copy_assignable_v<Array>);
static_assert(std::is_nothrow_move_constructible_v<TypedArray<bool>>);
static_assert(std::is_nothrow_move_assignable_v<TypedArray<bool>>);
static_assert(!std::convertible_to<ArrayImpl*, Array>, "adopting a reference is explicit");
static_assert(
    std::same_as<decltype(std::declval<Array>().getDimensions()), std::vector<unsigned long>>);
static_assert(std::same_as<decltype(std::declval<Array>().getNumberOfElements()), std::uint64_t>);
static_assert(noexcept(std::declval<const Array&>().getType()));
static_assert(noexcept(std::declval<const Array&>().getNumberOfElements()));

// --- Elements: 21 types can be written, characters can only be read.

template <class Handle>
constexpr bool canWriteThroughBegin = requires(Handle array) { *array.begin() = *array.begin(); };
template <class Handle>
constexpr bool canSubscript = requires(Handle array) { array[0]; };
template <class T>
constexpr bool canSetElement = requires(std::shared_ptr<velmar::data::detail::ReferenceImpl> impl,
                                        T value) { detail::setElement<T>(impl, value); };
template <class T>
constexpr bool canMakeScalar =
    requires(ArrayFactory factory, T value) { factory.createScalarInternal<T>(value); };
template <class T>
constexpr bool canMakeBuffer = requires(ArrayFactory factory) { factory.createBuffer<T>(1); };

template <class T>
constexpr bool isWritable = canWriteThroughBegin<TypedArray<T>> && canSubscript<TypedArray<T>> &&
                            canSetElement<T> && canMakeScalar<T> && canMakeBuffer<T>;
template <class T>
constexpr bool isReadable =
    !canWriteThroughBegin<const TypedArray<T>> && !canSubscript<const TypedArray<T>> &&
    std::same_as<decltype(std::declval<const TypedArray<T>&>().begin()), TypedIterator<const T>> &&
    std::same_as<decltype(std::declval<TypedArray<T>&>().end()), TypedIterator<const T>>;

#define X(name, number, type) static_assert(isReadable<type>);
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
#define X(name, number, type) static_assert(isWritable<type>);
VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X
static_assert(!canWriteThroughBegin<TypedArray<char16_t>> && !canWriteThroughBegin<CharArray>);
static_assert(!canSubscript<TypedArray<char16_t>> && !canSubscript<CharArray>);
static_assert(!canSetElement<char16_t> && !canMakeScalar<char16_t> && !canMakeBuffer<char16_t>);
static_assert(!canSetElement<std::complex<bool>> && !canMakeBuffer<char>);
static_assert(!std::is_copy_assignable_v<ElementReference<double>>);

// --- Only typed buffers of the ten real numeric types become arrays.

template <class T>
using Buffer = std::unique_ptr<T[], void (*)(void*)>;
template <class T>
constexpr bool canAdopt = requires(ArrayFactory factory, Buffer<T> buffer) {
  factory.createArrayFromBuffer<T>({1, 1}, std::move(buffer), velmar::data::MemoryLayout::Default);
};

#define X(name, number, enumerator, type, ...) static_assert(canAdopt<type>);
VELMARDATA_FOR_EACH_NUMERIC_TYPE(X)
#undef X
#define X(name, number, type) static_assert(!canAdopt<type>);
VELMARDATA_FOR_EACH_COMPLEX_TYPE(X)
#undef X
static_assert(!canAdopt<bool> && !canAdopt<char16_t>);
static_assert(
    std::same_as<decltype(std::declval<ArrayFactory>().createBuffer<bool>(1)), Buffer<bool>>);
static_assert(
    std::same_as<decltype(std::declval<TypedArray<char16_t>>().release()), Buffer<char16_t>>);
static_assert(std::same_as<velmar::data::GetReturnType<float>::type, float>);

// --- Iterators and factories.

static_assert(std::contiguous_iterator<TypedIterator<double>>);
static_assert(std::contiguous_iterator<TypedIterator<const bool>>);
static_assert(std::convertible_to<TypedIterator<int>, TypedIterator<const int>>);
static_assert(!std::convertible_to<TypedIterator<const int>, TypedIterator<int>>);
static_assert(!std::convertible_to<TypedIterator<int>, TypedIterator<const unsigned>>);
static_assert(sizeof(TypedIterator<double>) == 2 * sizeof(void*));
static_assert(std::is_nothrow_copy_constructible_v<TypedIterator<double>>);

static_assert(std::derived_from<standalone::ClientArrayFactory, ArrayFactory>);
static_assert(std::is_empty_v<standalone::ClientArrayFactory>);
static_assert(std::is_nothrow_default_constructible_v<standalone::ClientArrayFactory>);

// --- Exceptions.

static_assert(std::is_abstract_v<Exception> && std::derived_from<Exception, std::exception>);
static_assert(std::derived_from<EArrayUnknownDataType, Exception>);
static_assert(std::constructible_from<EArrayUnknownDataType, const std::string&>);
static_assert(!std::is_default_constructible_v<EArrayUnknownDataType>);

}  // namespace
