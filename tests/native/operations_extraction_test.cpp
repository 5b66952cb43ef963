// Real copies of the elements and their parts, toarray(), and the description of an array.
#include "operations/extraction.hpp"

#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "exporter_testing.hpp"
#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::addressOf;
using velmardata_testing::elementsOf;
using velmardata_testing::referenceCount;

constexpr const char* onlyReal = "noncomplex() must not be called on a complex array.";
constexpr const char* onlyComplex = "real() and imag() can be called only on a complex array.";

using Handler = PyObject* (*)(PyObject*, PyObject*);
using Getter = PyObject* (*)(PyObject*, void*);

// --- Contents

// The outputs that elements of a type have.
template <class T>
std::vector<OutputEnum> outputsOf() {
  if (isComplexElement<T>) return {OutputEnum::Real, OutputEnum::Imag};
  return {OutputEnum::Noncomplex};
}

template <class T>
Part<T> partOf(T element, OutputEnum output) {
  if constexpr (isComplexElement<T>) {
    return output == OutputEnum::Real ? element.real() : element.imag();
  } else {
    return element;
  }
}

template <class T>
std::vector<Part<T>> sampleParts(std::size_t count, OutputEnum output) {
  std::vector<Part<T>> parts;
  for (std::size_t i = 0; i < count; ++i) parts.push_back(partOf(sample<T>(i), output));
  return parts;
}

TYPED_SUITE(Extraction, AllTypes, TypeWords);

TYPED_CASE(Extraction, IsARealRowInStorageOrder) {
  using Number = Part<TypeParam>;
  const Dimensions shapes[] = {{2, 3}, {3, 2}, {6}, {1, 2, 3}, {1, 1}, {70, 3}};
  for (const Dimensions& shape : shapes) {
    const TypedArray<TypeParam> array = sampleArray<TypeParam>(shape);
    const std::size_t count = array.getNumberOfElements();
    for (const OutputEnum output : outputsOf<TypeParam>()) {
      SCOPED_TRACE(testing::PrintToString(shape));
      const TypedArray<Number> row(tryExtractContents(array, output));
      EXPECT_EQ(row.getType(), arrayTypeOf<Number>);
      EXPECT_EQ(row.getDimensions(), (Dimensions{1, count}));
      EXPECT_EQ(elementsOf(row), sampleParts<TypeParam>(count, output));
      EXPECT_EQ(referenceCount(row), 1U);
    }
    EXPECT_EQ(elementsOf(array), samples<TypeParam>(count));
    EXPECT_EQ(referenceCount(array), 1U);
  }
}

TYPED_CASE(Extraction, SharesNothingWithItsSource) {
  const TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  for (const OutputEnum output : outputsOf<TypeParam>()) {
    const TypedArray<Part<TypeParam>> row(tryExtractContents(array, output));
    EXPECT_NE(row.impl(), array.impl());
    EXPECT_NE(addressOf(row), addressOf(array));
  }
  EXPECT_EQ(referenceCount(array), 1U);
}

TYPED_CASE(Extraction, OfNothingIsOneEmptyRow) {
  const Array arrays[] = {sampleArray<TypeParam>({0, 0}), sampleArray<TypeParam>({0, 3}),
                          sampleArray<TypeParam>({3, 0, 2}),
                          ArrayFactory().createArray(arrayTypeOf<TypeParam>, {0, 0})};
  for (const Array& array : arrays) {
    for (const OutputEnum output : outputsOf<TypeParam>()) {
      const TypedArray<Part<TypeParam>> row(tryExtractContents(array, output));
      EXPECT_EQ(row.getDimensions(), (Dimensions{1, 0}));
      EXPECT_EQ(row.getNumberOfElements(), 0U);
    }
  }
}

TYPED_CASE(Extraction, ThrowsForAnOutputThatTheElementsDoNotHave) {
  const std::string kind = isComplexElement<TypeParam> ? "complex" : "noncomplex";
  const Array array = sampleArray<TypeParam>({2, 3});
  for (const int number : {0, 1, 2, 3, 9, -1}) {
    const bool isReal = number == 0;
    const bool isPart = number == 1 || number == 2;
    if (isComplexElement<TypeParam> ? isPart : isReal) continue;
    SCOPED_TRACE(number);
    std::string text = "nothing was thrown";
    try {
      tryExtractContents(array, static_cast<OutputEnum>(number));
    } catch (const std::runtime_error& error) {
      text = error.what();
    }
    EXPECT_EQ(text, "Invalid enum for " + kind + " array: " + std::to_string(number) + "\n");
  }
  EXPECT_EQ(referenceCount(array), 1U);
  EXPECT_TRUE(raisedNothing());
}

// --- Through views

TYPED_SUITE(ExtractionOf, WritableTypes, TypeWords);

TYPED_CASE(ExtractionOf, AViewIsThatOfTheStorageOrAnError) {
  ViewPointer owner = makeArray<TypeParam>({2, 3});
  MCppPyArray weakRow(*owner, Position{1}, true);
  const MCppPyArray rowsFirst(sampleArray<TypeParam>({2, 3}), classOfElement<TypeParam>(),
                              isComplexElement<TypeParam>, false, Contents::Own);
  const MCppPyArray* const views[] = {owner.get(), &weakRow, &rowsFirst};
  for (const MCppPyArray* view : views) {
    const auto check = [](const std::optional<Array>& array, OutputEnum output, const char* text) {
      if (text != nullptr) {
        EXPECT_FALSE(array);
        EXPECT_TRUE(raised(PyExc_ValueError, text));
        return;
      }
      ASSERT_TRUE(array);
      EXPECT_EQ(elementsOf(TypedArray<Part<TypeParam>>(*array)), sampleParts<TypeParam>(6, output));
    };
    constexpr bool isComplex = isComplexElement<TypeParam>;
    check(noncomplex(*view), OutputEnum::Noncomplex, isComplex ? onlyReal : nullptr);
    check(realOrImag(*view, true), OutputEnum::Real, isComplex ? nullptr : onlyComplex);
    check(realOrImag(*view, false), OutputEnum::Imag, isComplex ? nullptr : onlyComplex);
  }
  owner.reset();
  EXPECT_FALSE(isComplexElement<TypeParam> ? realOrImag(weakRow, true) : noncomplex(weakRow));
  EXPECT_TRUE(raisedExpired());
  EXPECT_FALSE(isComplexElement<TypeParam> ? noncomplex(weakRow) : realOrImag(weakRow, false));
  EXPECT_TRUE(raised(PyExc_ValueError, isComplexElement<TypeParam> ? onlyReal : onlyComplex))
      << "the kind is checked before the storage";
}

// Each of the three exists as a method and as an attribute.
PyObject* callHandler(OutputEnum output, bool isAttribute, PyObject* object) {
  const Handler handlers[] = {MCPyArray_Noncomplex, MCPyArray_Real, MCPyArray_Imag};
  const Getter getters[] = {MCPyArray_GetNoncomplexAsAttrib, MCPyArray_GetRealAsAttrib,
                            MCPyArray_GetImagAsAttrib};
  const auto place = static_cast<std::size_t>(output);
  return isAttribute ? getters[place](object, nullptr) : handlers[place](object, nullptr);
}

constexpr OutputEnum allOutputs[] = {OutputEnum::Noncomplex, OutputEnum::Real, OutputEnum::Imag};

TYPED_CASE(ExtractionOf, AnObjectIsTheViewOfTheRow) {
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  for (const OutputEnum output : outputsOf<TypeParam>()) {
    for (const bool isAttribute : {false, true}) {
      const PyRef row = PyRef::steal(callHandler(output, isAttribute, array.get()));
      ASSERT_TRUE(row);
      EXPECT_EQ(Py_TYPE(row.get()), Py_TYPE(array.get()));
      const MCppPyArray& view = viewOf(row);
      EXPECT_FALSE(view.isComplex());
      EXPECT_FALSE(view.hasWeakPtrToWrapper());
      EXPECT_EQ(view.getNumberOfIntegerIndicesSoFar(), 1);
      EXPECT_EQ(numbersOf(view.wrapper()->shape()), (std::vector<std::int64_t>{1, 6}));
      EXPECT_EQ(view.wrapper()->getOrder(), 'F');
      EXPECT_EQ(storedElements<Part<TypeParam>>(view), sampleParts<TypeParam>(6, output));
      EXPECT_EQ(reprOf(PyRef::steal(MCPyArray_GetArraySize(row.get(), nullptr))), "(6,)");
      EXPECT_EQ(PyRef::steal(MCPyArray_GetIsComplexAsAttrib(row.get(), nullptr)).get(), Py_False);
    }
  }
  EXPECT_EQ(PyRef::steal(MCPyArray_GetIsComplexAsAttrib(array.get(), nullptr)).get(),
            isComplexElement<TypeParam> ? Py_True : Py_False);
}

TEST(ExtractionFailure, IsReported) {
  const PyRef none;
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef expired = makeRecord(makeExpiredView<double>({2, 3}));
  const PyRef complexExpired = makeRecord(makeExpiredView<std::complex<double>>({2, 3}));
  for (const OutputEnum output : allOutputs) {
    for (const bool isAttribute : {false, true}) {
      for (const PyRef* object : {&none, &record}) {
        EXPECT_EQ(callHandler(output, isAttribute, object->get()), nullptr);
        EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized));
      }
      const bool isReal = output == OutputEnum::Noncomplex;
      const PyRef& suited = isReal ? expired : complexExpired;
      const PyRef& unsuited = isReal ? complexExpired : expired;
      EXPECT_EQ(callHandler(output, isAttribute, suited.get()), nullptr);
      EXPECT_TRUE(raisedExpired());
      EXPECT_EQ(callHandler(output, isAttribute, unsuited.get()), nullptr);
      EXPECT_TRUE(raised(PyExc_ValueError, isReal ? onlyReal : onlyComplex));
    }
  }
  PyTypeObject* const type = std::exchange(TypeObjectPointers[0], nullptr);
  PyObject* const row = MCPyArray_Noncomplex(array.get(), nullptr);
  const testing::AssertionResult isReported =
      raised(PyExc_RuntimeError, "unable to initialize C object.");
  TypeObjectPointers[0] = type;
  EXPECT_EQ(row, nullptr);
  EXPECT_TRUE(isReported);
}

TEST(ExtractionFailure, ShortMemoryIsReportedWithTheNumberOfElements) {
  constexpr unsigned long bytes = 256UL << 20;
  const PyRef array = makeRecord(
      std::make_unique<MCppPyArray>(ArrayFactory().createArray(ArrayType::INT8, {bytes, 1}),
                                    SupportedArrayEnum::Int8, false, true, Contents::Own));
  PyObject* row = array.get();
  bool isLimited = false;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited) row = MCPyArray_Noncomplex(array.get(), nullptr);
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_EQ(row, nullptr);
  EXPECT_TRUE(raised(PyExc_MemoryError,
                     "unable to allocate memory for array with number of elements = 268435456; "
                     "type = int8"));
  EXPECT_EQ(referenceCount(viewOf(array).wrapper()->array()), 1U);
}

// --- toarray()

TYPED_SUITE(ToArrayOf, ClassTypes, TypeWords);

TYPED_CASE(ToArrayOf, ARowHasTheLetterOfItsType) {
  const std::string format = formatOf<TypeParam>();
  const ViewPointer owner = makeArray<TypeParam>({2, 3});
  const PyRef rows[] = {makeRecord(std::make_unique<MCppPyArray>(*owner, Position{1}, false)),
                        makeRecord(std::make_unique<MCppPyArray>(*owner, Position{1}, true))};
  for (const PyRef& row : rows) {
    const PyRef array = PyRef::steal(MCPyArray_ToArrayArray(row.get(), nullptr));
    ASSERT_TRUE(array);
    EXPECT_EQ(reprOf(evaluate("a.typecode", {{"a", array}})),
              "'" + (format == "?" ? "B" : format) + "'");
    EXPECT_EQ(reprOf(evaluate("len(a), a.tolist() == list(r)", {{"a", array}, {"r", row}})),
              "(3, True)");
  }
}

TEST(ToArray, OfNothingAndWithoutTheClass) {
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  for (PyObject* object : {static_cast<PyObject*>(nullptr), record.get()}) {
    EXPECT_EQ(MCPyArray_ToArrayArray(object, nullptr), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized));
  }
  const PyRef gone[] = {makeRecord(makeExpiredView<double>({2, 3})),
                        makeRecord(makeViewWithoutStorage<double>({2, 3}))};
  for (const PyRef& object : gone) {
    EXPECT_EQ(MCPyArray_ToArrayArray(object.get(), nullptr), nullptr);
    EXPECT_TRUE(raisedExpired());
  }
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef row = evaluate("a[1]", {{"a", array}});
  PyObject* const arrayClass = std::exchange(ArrayArray::s_arrayClass, nullptr);
  EXPECT_EQ(MCPyArray_ToArrayArray(row.get(), nullptr), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "toarray() failed."));
  EXPECT_EQ(MCPyArray_ToArrayArray(array.get(), nullptr), nullptr);
  EXPECT_TRUE(
      raised(PyExc_RuntimeError, "toarray() can be called only on a one-dimensional sequence."));
  ArrayArray::s_arrayClass = arrayClass;
}

// --- Description

TYPED_CASE(Extraction, ItemsizeIsThatOfOneElement) {
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  const PyRef size = PyRef::steal(MCPyArray_GetElementSize(array.get(), nullptr));
  EXPECT_EQ(reprOf(size), std::to_string(sizeof(TypeParam)));
}

std::string sizeOf(const PyRef& array) {
  return reprOf(PyRef::steal(MCPyArray_GetArraySize(array.get(), nullptr)));
}

TEST(Size, IsThatOfTheOpenDimensions) {
  const std::pair<const char*, const char*> rows[] = {
      {"a", "(2, 3, 4)"},      {"a[1]", "(3, 4)"},       {"a[1][2]", "(4,)"},
      {"a[0:1]", "(1, 3, 4)"}, {"a[1:1]", "(0, 3, 4)"},  {"a[1][::-1]", "(3, 4)"},
      {"a[1][1:]", "(2, 4)"},  {"a[1][2][1:3]", "(2,)"},
  };
  const PyRef array = makeRecord(makeArray<double>({2, 3, 4}));
  for (const auto& [part, expected] : rows) {
    SCOPED_TRACE(part);
    EXPECT_EQ(sizeOf(evaluate(part, {{"a", array}})), expected);
  }
  EXPECT_EQ(sizeOf(makeRecord(makeArray<double>({}))), "()");
  const PyRef element =
      makeRecord(std::make_unique<MCppPyArray>(viewOf(array), Position{1, 2, 3}, false));
  EXPECT_EQ(sizeOf(element), "()");
}

TEST(Size, OfMoreIntegersThanDimensionsIsRefused) {
  const ViewPointer owner = makeArray<double>({2, 3, 4});
  const PyRef array =
      makeRecord(std::make_unique<MCppPyArray>(*owner, Position{1, 2, 3, 0}, false));
  EXPECT_EQ(MCPyArray_GetArraySize(array.get(), nullptr), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "too many indices."));
}

TEST(Size, OfAViewOfStorageThatWasReshaped) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef row = evaluate("a[1]", {{"a", array}});
  const PyRef part = evaluate("a[1][0:2]", {{"a", array}});
  const PyRef element =
      makeRecord(std::make_unique<MCppPyArray>(viewOf(array), Position{1, 2}, false));
  ASSERT_TRUE(viewOf(array).wrapper()->reshape(std::array<std::int64_t, 1>{6}, 'F'));
  EXPECT_EQ(sizeOf(row), "()");
  for (const PyRef* beyond : {&part, &element}) {
    EXPECT_EQ(sizeOf(*beyond), "null");
    EXPECT_TRUE(raised(PyExc_RuntimeError, "too many indices."));
  }
}

TEST(Description, OfNothingIsAnError) {
  const Getter getters[] = {
      MCPyArray_GetArraySize, MCPyArray_GetElementSize,
      [](PyObject* self, void*) { return MCPyArray_GetBytewiseStrides(self, nullptr); }};
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  const PyRef gone[] = {makeRecord(makeExpiredView<double>({2, 3})),
                        makeRecord(makeViewWithoutStorage<double>({2, 3}))};
  for (const Getter getter : getters) {
    for (PyObject* object : {static_cast<PyObject*>(nullptr), record.get()}) {
      EXPECT_EQ(getter(object, nullptr), nullptr);
      EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized));
    }
    for (const PyRef& object : gone) {
      EXPECT_EQ(getter(object.get(), nullptr), nullptr);
      EXPECT_TRUE(raisedExpired());
    }
  }
  for (PyObject* object : {static_cast<PyObject*>(nullptr), record.get()}) {
    EXPECT_EQ(MCPyArray_GetIsComplexAsAttrib(object, nullptr), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized));
  }
}

TEST(BytewiseStrides, AreThoseOfTheWholeStorage) {
  const auto stridesOf = [](const PyRef& array) {
    return reprOf(PyRef::steal(MCPyArray_GetBytewiseStrides(array.get(), nullptr)));
  };
  const PyRef array = makeRecord(makeArray<double>({2, 3, 4}));
  for (const char* part : {"a", "a[1]", "a[1][2]", "a[0:1]"}) {
    SCOPED_TRACE(part);
    EXPECT_EQ(stridesOf(evaluate(part, {{"a", array}})), "(8, 16, 48)");
  }
  EXPECT_EQ(stridesOf(makeRecord(makeArray<double>({}))), "()");
  const PyRef rowsFirst = makeRecord(std::make_unique<MCppPyArray>(
      sampleArray<std::int16_t>({2, 3}), SupportedArrayEnum::Int16, false, false, Contents::Own));
  EXPECT_EQ(stridesOf(rowsFirst), "(6, 2)");
}

}  // namespace
