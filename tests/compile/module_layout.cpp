// Static assertions about the module: numbers, records, index items, signatures, texts.
#include "module/python.hpp"

#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "construct/construction_shape.hpp"
#include "construct/constructor_entry.hpp"
#include "construct/element_conversion.hpp"
#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "indexing/element_read.hpp"
#include "indexing/element_write.hpp"
#include "indexing/subscripts.hpp"
#include "module/element_types.hpp"
#include "module/entry/type_specs.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "operations/iterator.hpp"
#include "storage/element_buffer.hpp"
#include "storage/element_writer.hpp"
#include "storage/index_chain.hpp"
#include "storage/index_items.hpp"
#include "storage/mcpp_py_array.hpp"
#include "storage/mcpy_array.hpp"
#include "storage/md_array_wrapper.hpp"

namespace {

template <class A, class B>
constexpr bool isSame = std::is_same_v<A, B>;

// --- Element types

static_assert(isSame<std::underlying_type_t<SupportedArrayEnum>, std::int8_t>);
static_assert(static_cast<int>(SupportedArrayEnum::Double) == 0);
static_assert(static_cast<int>(SupportedArrayEnum::Single) == 1);
static_assert(static_cast<int>(SupportedArrayEnum::Int8) == 2);
static_assert(static_cast<int>(SupportedArrayEnum::UInt8) == 3);
static_assert(static_cast<int>(SupportedArrayEnum::Int16) == 4);
static_assert(static_cast<int>(SupportedArrayEnum::UInt16) == 5);
static_assert(static_cast<int>(SupportedArrayEnum::Int32) == 6);
static_assert(static_cast<int>(SupportedArrayEnum::UInt32) == 7);
static_assert(static_cast<int>(SupportedArrayEnum::Int64) == 8);
static_assert(static_cast<int>(SupportedArrayEnum::UInt64) == 9);
static_assert(static_cast<int>(SupportedArrayEnum::Logical) == 10);
static_assert(numberOfArrayClasses == 11);
static_assert(sizeof(TypeAsChar) == 11);
static_assert(std::string_view(TypeAsChar.data(), TypeAsChar.size()) == "dfbBhHiIqQ?");

template <class T>
constexpr bool isCalled(std::string_view word, SupportedArrayEnum type) {
  return typeWord<T> == word && typeWordOf(type) == word && classOf<T> == type;
}
static_assert(isCalled<double>("double", SupportedArrayEnum::Double));
static_assert(isCalled<float>("single", SupportedArrayEnum::Single));
static_assert(isCalled<std::int8_t>("int8", SupportedArrayEnum::Int8));
static_assert(isCalled<std::uint8_t>("uint8", SupportedArrayEnum::UInt8));
static_assert(isCalled<std::int16_t>("int16", SupportedArrayEnum::Int16));
static_assert(isCalled<std::uint16_t>("uint16", SupportedArrayEnum::UInt16));
static_assert(isCalled<std::int32_t>("int32", SupportedArrayEnum::Int32));
static_assert(isCalled<std::uint32_t>("uint32", SupportedArrayEnum::UInt32));
static_assert(isCalled<std::int64_t>("int64", SupportedArrayEnum::Int64));
static_assert(isCalled<std::uint64_t>("uint64", SupportedArrayEnum::UInt64));
static_assert(isCalled<bool>("logical", SupportedArrayEnum::Logical));
static_assert(typeWord<std::complex<float>> == std::string_view("single"));
static_assert(typeWord<std::complex<std::uint64_t>> == std::string_view("uint64"));
static_assert(typeWord<char16_t> == std::string_view("double"));

static_assert(isComplexElement<std::complex<double>> && !isComplexElement<double>);
static_assert(isSame<Part<std::complex<float>>, float> && isSame<Part<bool>, bool>);

template <class T>
constexpr bool hasItsFacts = factsOf<T>.type == foundation::velmardata::arrayTypeOf<T> &&
                             factsOf<T>.size == sizeof(T) && factsOf<T>.word == typeWord<T>;
#define X(name, number, type) static_assert(hasItsFacts<type>);
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X

static_assert(isSame<decltype(TypeAndComplexity::isValid), bool>);
static_assert(isSame<decltype(TypeAndComplexity::supportedArrayEnum), SupportedArrayEnum>);
static_assert(isSame<decltype(TypeAndComplexity::isComplex), bool>);
static_assert(isSame<decltype(getArrayTypeEnumFromChar('d')), std::optional<std::int32_t>>);
static_assert(isSame<decltype(classid2format(foundation::velmardata::ArrayType::INT8)), char*>);

static_assert(std::tuple_size_v<decltype(TypeObjectPointers)> == 11);
static_assert(std::tuple_size_v<std::remove_cv_t<decltype(TypeSpecPointers)>> == 11);
static_assert(std::tuple_size_v<std::remove_cv_t<decltype(MCPyArrayTypeNames)>> == 12);

// --- Records: the object header and one owning pointer

static_assert(std::is_standard_layout_v<MCPyArray> && std::is_trivial_v<MCPyArray>);
static_assert(offsetof(MCPyArray, mcppPyArray) == sizeof(PyObject));
static_assert(sizeof(MCPyArray) == sizeof(PyObject) + sizeof(void*));
static_assert(isSame<decltype(MCPyArray::mcppPyArray), MCppPyArray*>);
static_assert(std::is_standard_layout_v<MCPyIter> && std::is_trivial_v<MCPyIter>);
static_assert(offsetof(MCPyIter, mcppPyIter) == sizeof(PyObject));
static_assert(sizeof(MCPyIter) == sizeof(PyObject) + sizeof(void*));

// --- References

static_assert(sizeof(PyRef) == sizeof(PyObject*));
static_assert(!std::is_copy_constructible_v<PyRef> && !std::is_copy_assignable_v<PyRef>);
static_assert(std::is_nothrow_move_constructible_v<PyRef>);
static_assert(std::is_nothrow_move_assignable_v<PyRef>);
static_assert(!std::is_convertible_v<PyObject*, PyRef>, "the code says steal or borrow");

// --- Guards: one scope each

template <class T>
constexpr bool isCopiedOrMoved =
    std::is_copy_constructible_v<T> || std::is_move_constructible_v<T> ||
    std::is_copy_assignable_v<T> || std::is_move_assignable_v<T>;
static_assert(!isCopiedOrMoved<RecursionGuard> && !isCopiedOrMoved<ErrorPutAside>);
static_assert(!isCopiedOrMoved<BufferGuard> && !isCopiedOrMoved<ElementWriter<double>>);

// --- Views and storage: plain classes

static_assert(!std::is_polymorphic_v<MCppPyArray> && !std::is_polymorphic_v<MDArrayWrapper>);
static_assert(!isCopiedOrMoved<MCppPyArray>, "the code says whether a copy is weak");
static_assert(std::is_constructible_v<MCppPyArray, const MCppPyArray&, bool>);
static_assert(std::is_constructible_v<MCppPyArray, const MCppPyArray&, const Position&, bool>);
static_assert(!isCopiedOrMoved<MDArrayWrapper>, "the mirror has one owner");
static_assert(
    std::is_constructible_v<MDArrayWrapper, foundation::velmardata::Array&&, char, Contents>);
static_assert(
    !std::is_constructible_v<MDArrayWrapper, const foundation::velmardata::Array&, char, Contents>,
    "an array is moved into its storage");
static_assert(isSame<decltype(std::declval<const MCppPyArray&>().chain()), const IndexChain&>,
              "a chain that Python has seen does not change");
static_assert(isSame<decltype(std::declval<const MCppPyArray&>().wrapper()), WrapperAccess>);
static_assert(
    isSame<decltype(std::declval<const MCppPyArray&>().borrowWrapper()), MDArrayWrapper*>);
static_assert(isSame<decltype(std::declval<const MCppPyArray&>().getNumberOfDimensions()), int>);
static_assert(
    isSame<decltype(std::declval<const MDArrayWrapper&>().shape()), std::span<const std::int64_t>>);
static_assert(isSame<decltype(std::declval<const MDArrayWrapper&>().getOrder()), char>);
static_assert(isSame<decltype(std::declval<const MDArrayWrapper&>().isReadOnly()), int>);

// --- Index items and chains: values

static_assert(std::is_trivially_copyable_v<IntegerIndexItem>);
static_assert(std::is_trivially_copyable_v<SliceIndexItem>);
static_assert(std::is_copy_constructible_v<IndexChain> && std::is_copy_assignable_v<IndexChain>);
static_assert(!std::is_convertible_v<Position, IndexChain>);
static_assert(!IntegerIndexItem{}.m_isNormalized);
static_assert(!SliceIndexItem{}.m_isNormalized && !SliceIndexItem{}.m_start &&
              !SliceIndexItem{}.m_stop && !SliceIndexItem{}.m_step &&
              !SliceIndexItem{}.m_slice_len);
static_assert(isSame<decltype(SliceIndexItem::m_slice_len), std::optional<std::int64_t>>);
static_assert(
    isSame<decltype(getIntegerIndexFromIndexObject(nullptr)), std::optional<std::int64_t>>);
static_assert(isSame<decltype(getSliceData(nullptr, 0)), std::optional<SliceIndexItem>>);

// --- Construction

template <class T>
constexpr bool isElementBuffer = isSame<ElementBuffer<T>, std::unique_ptr<T[], void (*)(void*)>>;
#define X(name, number, type) static_assert(isElementBuffer<type>);
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
static_assert(!isCopiedOrMoved<FinalConstructorParser<double>>);
static_assert(
    isSame<decltype(std::declval<FinalConstructorParser<bool>&>().shape()), ConstructionShape&>);
static_assert(isSame<decltype(ConversionFailure::exceptionClass), PyObject*>);
static_assert(isSame<decltype(ConversionResult<bool>::value), std::optional<bool>>);
static_assert(isSame<decltype(ConversionResult<bool>::failure), std::optional<ConversionFailure>>);
static_assert(isSame<decltype(convertDoubleToFloat(1.0)), float>);

// --- Handlers are not noexcept: exceptions leave them for the guard around the functions of the
// tables. Those that cannot fail have no guard.

static_assert(noexcept(MCPyArray_Delete(nullptr)));
static_assert(noexcept(MCPyIter_Delete(nullptr)));
static_assert(noexcept(MCPyArray_ReleaseBuffer(nullptr, nullptr)));
static_assert(!noexcept(MCPyArray_NumElemsInFirstDim(nullptr)));
static_assert(!noexcept(MCPyIter_GetIter(nullptr)));
#define X(name, number, enumerator, type, ...)                                      \
  static_assert(!noexcept(MCPyArray_New<type>(nullptr, nullptr, nullptr)));         \
  static_assert(!noexcept(MCPyArray_GetItem<type>(nullptr, 0)));                    \
  static_assert(!noexcept(MCPyArray_GetViaIndex<type>(nullptr, nullptr)));          \
  static_assert(!noexcept(MCPyArray_SetViaIndex<type>(nullptr, nullptr, nullptr))); \
  static_assert(!noexcept(MCPyArray_GetStr<type>(nullptr)));                        \
  static_assert(!noexcept(MCPyArray_GetRepr<type>(nullptr)));
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X

// --- Texts that more than one place reports

constexpr bool reads(std::string_view message, std::string_view text) {
  return message == text;
}
static_assert(reads(messages::objectNotInitialized, "object not initialized."));
static_assert(reads(messages::cannotInitializeObject, "unable to initialize C object."));
static_assert(reads(messages::nullDataPointer, "null data pointer."));
static_assert(reads(messages::expiredStorage, "locked shared pointer is null."));
static_assert(reads(messages::unequalShapes,
                    "unable to perform assignment because the left and right sides have a "
                    "different shape."));
static_assert(reads(messages::invalidIndex, "index has an invalid value: "));
static_assert(reads(messages::indexIsNoIndex, "index is not an integer or slice."));
static_assert(reads(messages::tooManyIndices, "too many indices."));
static_assert(reads(messages::zeroStep, "slice step cannot be zero."));

}  // namespace
