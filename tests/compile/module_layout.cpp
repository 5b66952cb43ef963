// Facts about the module that hold or do not compile: numbers, records, items, signatures, texts.
#include "module/python.hpp"

#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "construct/constructor_entry.hpp"
#include "construct/element_conversion.hpp"
#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "indexing/element_read.hpp"
#include "indexing/index_items.hpp"
#include "indexing/traversal.hpp"
#include "module/element_types.hpp"
#include "module/entry/type_specs.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/iterator.hpp"
#include "operations/text_forms.hpp"
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
  return typeWord<T> == word && classOf<T> == type;
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
static_assert(!std::is_convertible_v<PyObject*, PyRef>, "whose reference it is is written out");
static_assert(!std::is_copy_constructible_v<RecursionGuard>);

// --- Views and storage: plain classes

static_assert(!std::is_polymorphic_v<MCppPyArray> && !std::is_polymorphic_v<MDArrayWrapper>);
static_assert(!std::is_copy_constructible_v<MCppPyArray>, "whether it is weak is written out");
static_assert(!std::is_copy_assignable_v<MCppPyArray>);
static_assert(std::is_constructible_v<MCppPyArray, MCppPyArray&, bool>);
static_assert(std::is_copy_constructible_v<MDArrayWrapper>);
static_assert(!std::is_copy_assignable_v<MDArrayWrapper>);
static_assert(
    isSame<decltype(std::declval<const MCppPyArray&>().getRestrictingIndices()), IndexChain>);
static_assert(isSame<decltype(std::declval<MCppPyArray&>().getIndicesRef()), IndexChain&>);
static_assert(
    isSame<decltype(std::declval<const MCppPyArray&>().shape()), const std::vector<std::int64_t>&>);
static_assert(isSame<decltype(std::declval<const MCppPyArray&>().getOrder()), char>);
static_assert(isSame<decltype(std::declval<const MCppPyArray&>().getNumberOfDimensions()), int>);
static_assert(isSame<decltype(std::declval<const MCppPyArray&>().isReadOnly()), int>);

// --- Index items: flat values

static_assert(std::is_trivially_copyable_v<IntegerIndexItem>);
static_assert(std::is_trivially_copyable_v<SliceIndexItem>);
static_assert(std::is_trivially_copyable_v<IndexVariant>);
static_assert(std::variant_size_v<IndexVariant> == 2);
static_assert(isSame<std::variant_alternative_t<0, IndexVariant>, IntegerIndexItem>);
static_assert(isSame<std::variant_alternative_t<1, IndexVariant>, SliceIndexItem>);
static_assert(!IntegerIndexItem{}.m_isNormalized);
static_assert(!SliceIndexItem{}.m_isNormalized && !SliceIndexItem{}.m_start &&
              !SliceIndexItem{}.m_stop && !SliceIndexItem{}.m_step &&
              !SliceIndexItem{}.m_slice_len);
static_assert(isSame<decltype(SliceIndexItem::m_slice_len), std::optional<std::int64_t>>);
static_assert(
    isSame<decltype(getIntegerIndexFromIndexObject(nullptr)), std::optional<std::int64_t>>);

// --- Construction

template <class T>
constexpr bool isElementBuffer = isSame<ElementBuffer<T>, std::unique_ptr<T[], void (*)(void*)>>;
#define X(name, number, type) static_assert(isElementBuffer<type>);
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
static_assert(!std::is_copy_constructible_v<FinalConstructorParser<double>>);
static_assert(isSame<decltype(ConversionFailure::exceptionClass), PyObject*>);
static_assert(isSame<decltype(ConversionResult<bool>::value), std::optional<bool>>);
static_assert(isSame<decltype(ConversionResult<bool>::failure), std::optional<ConversionFailure>>);
static_assert(isSame<decltype(convertDoubleToFloat(1.0)), float>);

// --- Handlers promise nothing about exceptions: one that is no one's to catch has to get out.

static_assert(!noexcept(MCPyArray_Delete(nullptr)));
static_assert(!noexcept(MCPyArray_NumElemsInFirstDim(nullptr)));
static_assert(!noexcept(MCPyIter_GetIter(nullptr)));
#define X(name, number, enumerator, type, ...)                              \
  static_assert(!noexcept(MCPyArray_New<type>(nullptr, nullptr, nullptr))); \
  static_assert(!noexcept(MCPyArray_GetItem<type>(nullptr, 0)));            \
  static_assert(!noexcept(MCPyArray_GetViaIndex<type>(nullptr, nullptr)));  \
  static_assert(!noexcept(MCPyArray_GetStr<type>(nullptr)));                \
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
static_assert(reads(messages::noFinalSlice,
                    "unable to retrieve index values from slice in final position."));
static_assert(reads(messages::unexpectedSlice, "slice index unexpectedly found."));
static_assert(reads(messages::indexIsNoIndex, "index is not an integer or slice."));
static_assert(reads(messages::tooManyIndices, "too many indices."));
static_assert(reads(messages::zeroStep, "slice step cannot be zero."));

}  // namespace
