// `initializer` as a buffer of another object: elements, shape and order of correct exporters, and
// the errors for wrong fields.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "construct/external_buffer.hpp"
#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "exporter_testing.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::elementsOf;

constexpr const char* doesNotFit = "input does not fit evenly into output type.";

// The result of a construction from an exporter.
template <class T>
struct Parsed {
  bool isOk = false;
  Numbers dimensions;
  std::vector<T> elements;  // in storage order
};

template <class T>
Parsed<T> parse(const PyRef& exporter, const char* size = "None") {
  ConstructorArguments arguments;
  arguments.initializer = PyRef::borrow(exporter.get());
  arguments.size = evaluate(size);
  FinalConstructorParser<T> parser;
  Parsed<T> parsed;
  auto buffer = parser.processConstructorArgsAndKwargs(arguments);
  if (buffer == nullptr) return parsed;
  parsed.dimensions = numbersOf(parser.shape().getDimensions());
  const std::optional<Array> array =
      makeTypedArrayFromBuf(std::move(buffer), parser.shape().isBufferInStorageOrder(),
                            parsed.dimensions, parser.getNumberOfFlattenedElements());
  parsed.isOk = array.has_value();
  if (array) parsed.elements = elementsOf(TypedArray<T>(*array));
  return parsed;
}

// The samples of an exporter with that order of memory, in storage order.
template <class T>
std::vector<T> samplesInStorageOrder(const Sizes& shape, char order) {
  std::vector<T> elements;
  for (std::size_t k = 0; k < SampleExporter<T>::countOf(shape); ++k) {
    std::size_t left = k;
    std::size_t rowMajor = 0;
    for (const Py_ssize_t length : shape) {
      rowMajor =
          rowMajor * static_cast<std::size_t>(length) + left % static_cast<std::size_t>(length);
      left /= static_cast<std::size_t>(length);
    }
    elements.push_back(sample<T>(order == 'C' ? rowMajor : k));
  }
  return elements;
}

// Every construction requests one buffer and releases it.
void expectOneRequest(const Exports& exports) {
  EXPECT_EQ(exports.flags, contiguousWithFormat);
  EXPECT_EQ(exports.obtained, 1);
  EXPECT_EQ(exports.released, 1);
}

TYPED_SUITE(ExternalBuffer, WritableTypes, TypeWords);

// --- Correct exporters

struct ShapeRow {
  Sizes shape;
  char order;
  Numbers dimensions;
};
const ShapeRow shapeRows[] = {
    {{}, 'F', {1, 1}},           {{1}, 'F', {1, 1}},          {{6}, 'F', {1, 6}},
    {{0}, 'F', {0, 0}},          {{2, 3}, 'F', {2, 3}},       {{2, 3}, 'C', {2, 3}},
    {{1, 3}, 'F', {1, 3}},       {{1, 3}, 'C', {1, 3}},       {{3, 1}, 'F', {3, 1}},
    {{3, 1}, 'C', {3, 1}},       {{1, 1}, 'C', {1, 1}},       {{2, 2, 3}, 'F', {2, 2, 3}},
    {{2, 2, 3}, 'C', {2, 2, 3}}, {{2, 1, 3}, 'F', {2, 1, 3}}, {{2, 3, 1, 1}, 'F', {2, 3}},
    {{2, 3, 1, 1}, 'C', {2, 3}}, {{1, 1, 1}, 'C', {1, 1}},    {{0, 3}, 'F', {0, 3}},
    {{0, 3}, 'C', {0, 3}},       {{3, 0}, 'F', {3, 0}},       {{3, 0}, 'C', {3, 0}},
    {{2, 0, 4}, 'F', {2, 0, 4}},
};

TYPED_CASE(ExternalBuffer, GivesElementsShapeAndOrder) {
  for (const ShapeRow& row : shapeRows) {
    SCOPED_TRACE(testing::PrintToString(row.shape) + row.order);
    SampleExporter<TypeParam> exporter(row.shape, row.order);
    const Parsed<TypeParam> parsed = parse<TypeParam>(exporter.object);
    EXPECT_TRUE(raisedNothing());
    ASSERT_TRUE(parsed.isOk);
    EXPECT_EQ(parsed.dimensions, row.dimensions);
    EXPECT_EQ(parsed.elements, samplesInStorageOrder<TypeParam>(row.shape, row.order));
    expectOneRequest(exporter.exports);
  }
}

// The array that a call of the class makes from an exporter.
template <class T>
PyRef construct(const PyRef& exporter) {
  const PyRef type = PyRef::borrow(reinterpret_cast<PyObject*>(typeObjectOf(classOf<Part<T>>)));
  return evaluate(isComplexElement<T> ? "c(x, is_complex=True)" : "c(x)",
                  {{"c", type}, {"x", exporter}});
}

TYPED_CASE(ExternalBuffer, BecomesAnArrayOfItsOwnFromEitherOrder) {
  PyRef columnsFirst;
  PyRef rowsFirst;
  {
    const SampleExporter<TypeParam> exporter({2, 3}, 'F');
    columnsFirst = construct<TypeParam>(exporter.object);
    const SampleExporter<TypeParam> other({2, 3}, 'C');
    rowsFirst = construct<TypeParam>(other.object);
    expectOneRequest(other.exports);
  }
  EXPECT_EQ(storedElements<TypeParam>(viewOf(columnsFirst)), samples<TypeParam>(6));
  EXPECT_EQ(storedElements<TypeParam>(viewOf(rowsFirst)),
            samplesInStorageOrder<TypeParam>({2, 3}, 'C'));
  for (const PyRef* array : {&columnsFirst, &rowsFirst}) {
    EXPECT_EQ(numbersOf(viewOf(*array).wrapper()->shape()), (Numbers{2, 3}));
    EXPECT_EQ(viewOf(*array).isComplex(), isComplexElement<TypeParam>);
  }
}

TYPED_CASE(ExternalBuffer, MayLieAtAnyAddress) {
  for (const char order : {'F', 'C'}) {
    SampleExporter<TypeParam> exporter({2, 3}, order);
    Exports& exports = exporter.exports;
    std::vector<std::byte> bytes(static_cast<std::size_t>(exports.len) + 1);
    std::memcpy(bytes.data() + 1, exports.buf, bytes.size() - 1);
    exports.buf = bytes.data() + 1;
    EXPECT_EQ(parse<TypeParam>(exporter.object).elements,
              samplesInStorageOrder<TypeParam>({2, 3}, order));
  }
}

TEST(ExternalBytes, AreTrueUnlessZeroAndStayBytesOtherwise) {
  std::array<std::uint8_t, 4> bytes = {0, 2, 0, 255};
  for (const char* format : {"?", "B", "?B"}) {
    for (const bool isFlat : {true, false}) {
      SCOPED_TRACE(format);
      Exports exports;
      exports.buf = bytes.data();
      exports.len = 4;
      exports.itemsize = 1;
      exports.format = format;
      exports.ndim = isFlat ? 1 : 2;
      exports.shape = {2, 2};
      exports.strides = {2, 1};
      const PyRef exporter = makeExporter(exports);
      EXPECT_EQ(parse<bool>(exporter).elements,
                (isFlat ? std::vector<bool>{false, true, false, true}
                        : std::vector<bool>{false, false, true, true}));
      EXPECT_EQ(parse<std::uint8_t>(exporter).elements,
                (isFlat ? std::vector<std::uint8_t>{0, 2, 0, 255}
                        : std::vector<std::uint8_t>{0, 0, 2, 255}));
      EXPECT_EQ(exports.released, 2);
    }
  }
}

TEST(ExternalBuffers, OfVectorAreNotRequested) {
  SampleExporter<double> exporter({6});
  ConstructorArguments arguments;
  arguments.vector = PyRef::borrow(exporter.object.get());
  FinalConstructorParser<double> parser;
  EXPECT_EQ(parser.processConstructorArgsAndKwargs(arguments), nullptr);
  EXPECT_TRUE(raised(PyExc_ValueError, "value of 'vector' must be a sequence."));
  EXPECT_EQ(exporter.exports.flags, -1);
}

// --- Formats

struct CompatibleRow {
  char input;
  char output;
  std::optional<bool> isOfFourBytes;  // empty: items of any size
};
constexpr CompatibleRow compatibleRows[] = {{'?', 'B', {}},   {'B', '?', {}},    {'l', 'q', false},
                                            {'l', 'i', true}, {'L', 'Q', false}, {'L', 'I', true}};

bool areCompatible(char input, char output, long itemsize) {
  for (const CompatibleRow& row : compatibleRows) {
    if (row.input == input && row.output == output &&
        row.isOfFourBytes.value_or(itemsize == 4) == (itemsize == 4)) {
      return true;
    }
  }
  return false;
}

TEST(CompatibleLetters, AreTheseAndNoOthers) {
  for (const long itemsize : {-1L, 0L, 1L, 2L, 4L, 8L, 16L}) {
    for (int input = 0; input < 128; ++input) {
      for (int output = 0; output < 128; ++output) {
        const char from = static_cast<char>(input);
        const char to = static_cast<char>(output);
        ASSERT_EQ(areDifferentButCompatible(from, to, itemsize), areCompatible(from, to, itemsize))
            << from << " to " << to << " in items of " << itemsize;
      }
    }
  }
}

// The message that refuses a format; empty if it is accepted.
template <class T>
std::string refusalOf(const std::string& format) {
  const std::string start = "input buffer format ('" + format;
  if (isComplexElement<T> && format.front() != 'Z') {
    return start + "') does not begin with 'Z', but output type is complex";
  }
  const std::string own = formatOf<T>();
  const std::size_t place = isComplexElement<T> ? 1 : 0;
  const char letter = format.c_str()[place];
  if (letter == own[place] || areCompatible(letter, own[place], sizeof(T))) return "";
  return start + "') is not compatible with output format ('" + own +
         "'); use a different input or output type";
}

TYPED_CASE(ExternalBuffer, FormatsOfOtherTypesAreRefused) {
  const std::string formats[] = {
      "d",   "f",    "b",  "B",  "h",   "H",   "i",
      "I",   "q",    "Q",  "?",  "l",   "L",   "c",
      "e",   "x",    "<d", "=q", "@b",  "!?",  ">H",
      "2d",  "T{d}", "Z",  "Zd", "Zf",  "Zb",  "ZB",
      "Zh",  "ZH",   "Zi", "ZI", "Zq",  "ZQ",  "Z?",
      "Zl",  "ZL",   "Zc", "ZZ", "z",   "zd",  "D",
      "Z<d", "ZZd",  "dZ", "lZ", "Zdf", "Zlx", formatOf<TypeParam>() + "(2,3)d"};
  int refused = 0;
  for (const std::string& format : formats) {
    SCOPED_TRACE(format);
    SampleExporter<TypeParam> exporter({2, 3});
    exporter.exports.format = format;
    const std::string refusal = refusalOf<TypeParam>(format);
    const Parsed<TypeParam> parsed = parse<TypeParam>(exporter.object);
    EXPECT_EQ(parsed.isOk, refusal.empty());
    if (refusal.empty()) {
      EXPECT_EQ(parsed.elements, samples<TypeParam>(6));
    } else {
      EXPECT_TRUE(raised(PyExc_BufferError, refusal));
      ++refused;
    }
    EXPECT_TRUE(raisedNothing());
    expectOneRequest(exporter.exports);
  }
  EXPECT_GT(refused, 40);
}

TEST(ExternalBuffers, AreRefusedForCharacters) {
  for (const char* format : {"H", "d", "u", "Z"}) {
    SCOPED_TRACE(format);
    SampleExporter<std::uint16_t> exporter({2, 3});
    exporter.exports.format = format;
    EXPECT_FALSE(parse<char16_t>(exporter.object).isOk);
    EXPECT_TRUE(raisedOwn(PyExc_BufferError));
    expectOneRequest(exporter.exports);
  }
}

// --- Wrong fields

constexpr Py_ssize_t huge = Py_ssize_t{1} << 32;

struct WrongRow {
  const char* label;
  void (*change)(Exports&);
  const char* message;
};
const WrongRow wrongRows[] = {
    {"no format", [](Exports& e) { e.format.reset(); }, "input 'format' field is null."},
    {"empty format", [](Exports& e) { e.format = ""; }, "input 'format' field is null."},
    {"no format, and a length that does not fit",
     [](Exports& e) {
       e.format.reset();
       e.len = -1;
     },
     "input 'format' field is null."},
    {"no shape", [](Exports& e) { e.shape.reset(); }, "shape is null."},
    {"neither shape nor strides",
     [](Exports& e) {
       e.shape.reset();
       e.strides.reset();
     },
     "shape is null."},
    {"no strides", [](Exports& e) { e.strides.reset(); }, doesNotFit},
    {"items of no size", [](Exports& e) { e.itemsize = 0; }, doesNotFit},
    {"items of negative size",
     [](Exports& e) {
       e.itemsize = -1;
       e.strides = {std::numeric_limits<Py_ssize_t>::min(), 8};
     },
     doesNotFit},
    {"all lengths negative", [](Exports& e) { e.shape = {-2, -3}; }, doesNotFit},
    {"a negative length", [](Exports& e) { e.shape = {-6, -1}; }, doesNotFit},
    {"one negative length", [](Exports& e) { e.shape = {2, -3}; }, doesNotFit},
    {"too few by the shape", [](Exports& e) { e.shape = {2, 2}; }, doesNotFit},
    {"too many by the shape", [](Exports& e) { e.shape = {2, 4}; }, doesNotFit},
    {"none by the shape", [](Exports& e) { e.shape = {0, 3}; }, doesNotFit},
    {"a negative length beside none", [](Exports& e) { e.shape = {0, -3}; }, doesNotFit},
    {"a product beyond 64 bits", [](Exports& e) { e.shape = {huge, huge}; }, doesNotFit},
    {"a product that wraps to the count", [](Exports& e) { e.shape = {9, 6148914691236517206}; },
     doesNotFit},
    {"a byte too few", [](Exports& e) { --e.len; }, doesNotFit},
    {"negative length in bytes", [](Exports& e) { e.len = -e.len; }, doesNotFit},
    {"minus one byte", [](Exports& e) { e.len = -1; }, doesNotFit},
    {"many elements without dimensions", [](Exports& e) { e.ndim = 0; }, doesNotFit},
    {"no elements without dimensions",
     [](Exports& e) {
       e.ndim = 0;
       e.len = 0;
     },
     doesNotFit},
};

TYPED_CASE(ExternalBuffer, WrongFieldsAreRefused) {
  for (const WrongRow& row : wrongRows) {
    SCOPED_TRACE(row.label);
    SampleExporter<TypeParam> exporter({2, 3});
    row.change(exporter.exports);
    EXPECT_FALSE(parse<TypeParam>(exporter.object).isOk);
    EXPECT_TRUE(raised(PyExc_BufferError, row.message));
    expectOneRequest(exporter.exports);
  }
}

TYPED_CASE(ExternalBuffer, LengthsInBytesFitTheElements) {
  constexpr auto size = static_cast<Py_ssize_t>(sizeof(TypeParam));
  for (Py_ssize_t length = 0; length <= 2 * size; ++length) {
    SCOPED_TRACE(length);
    SampleExporter<TypeParam> exporter({6});
    exporter.exports.len = length;
    const Parsed<TypeParam> parsed = parse<TypeParam>(exporter.object);
    EXPECT_EQ(parsed.isOk, length % size == 0);
    if (parsed.isOk) {
      EXPECT_EQ(parsed.elements, samples<TypeParam>(static_cast<std::size_t>(length / size)));
    } else {
      EXPECT_TRUE(raised(PyExc_BufferError, doesNotFit));
    }
    expectOneRequest(exporter.exports);
  }
}

TYPED_CASE(ExternalBuffer, ElementsAtANullAddressAreRefused) {
  for (const Sizes& shape : {Sizes{}, Sizes{6}, Sizes{2, 3}}) {
    SampleExporter<TypeParam> exporter(shape);
    exporter.exports.buf = nullptr;
    EXPECT_FALSE(parse<TypeParam>(exporter.object).isOk);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
    expectOneRequest(exporter.exports);
  }
  SampleExporter<TypeParam> empty({0});
  empty.exports.buf = nullptr;
  EXPECT_EQ(parse<TypeParam>(empty.object).dimensions, (Numbers{0, 0}));
  EXPECT_TRUE(raisedNothing());
}

// Deliberate: with one dimension or none, shape, strides and item size are not read.
TYPED_CASE(ExternalBuffer, FlatMemoryNeedsNoDescription) {
  const WrongRow rows[] = {
      {"only the length",
       [](Exports& e) {
         e.shape.reset();
         e.strides.reset();
         e.itemsize = 0;
       },
       nullptr},
      {"fields without meaning",
       [](Exports& e) {
         e.shape = {-99};
         e.strides = {7};
         e.suboffsets = {3};
         e.itemsize = -1;
       },
       nullptr},
      {"a negative number of dimensions", [](Exports& e) { e.ndim = -3; }, nullptr},
  };
  for (const WrongRow& row : rows) {
    SCOPED_TRACE(row.label);
    SampleExporter<TypeParam> exporter({6});
    row.change(exporter.exports);
    const Parsed<TypeParam> parsed = parse<TypeParam>(exporter.object);
    EXPECT_TRUE(raisedNothing());
    EXPECT_EQ(parsed.dimensions, (Numbers{1, 6}));
    EXPECT_EQ(parsed.elements, samples<TypeParam>(6));
  }
}

TYPED_CASE(ExternalBuffer, FirstStrideAloneTellsTheOrder) {
  constexpr auto size = static_cast<Py_ssize_t>(sizeof(TypeParam));
  for (const Py_ssize_t first : {size, 3 * size, -size, Py_ssize_t{0}}) {
    SCOPED_TRACE(first);
    SampleExporter<TypeParam> exporter({2, 3});
    exporter.exports.strides = {first, -999};
    const Parsed<TypeParam> parsed = parse<TypeParam>(exporter.object);
    EXPECT_TRUE(raisedNothing());
    EXPECT_EQ(parsed.elements, samplesInStorageOrder<TypeParam>({2, 3}, first == size ? 'F' : 'C'));
  }
}

TYPED_CASE(ExternalBuffer, ShortMemoryIsReportedWithTypeAndCount) {
  SampleExporter<TypeParam> exporter({6});
  exporter.exports.len = Py_ssize_t{1} << 62;
  EXPECT_FALSE(parse<TypeParam>(exporter.object).isOk);
  const auto count = (std::uint64_t{1} << 62) / sizeof(TypeParam);
  EXPECT_TRUE(
      raised(PyExc_MemoryError, "unable to allocate memory for array with number of elements = " +
                                    std::to_string(count) + "; type = " + typeWord<TypeParam>));
  expectOneRequest(exporter.exports);
}

TYPED_CASE(ExternalBuffer, RefusalOfTheExporterStaysSet) {
  SampleExporter<TypeParam> exporter({2, 3});
  exporter.exports.refuses = true;
  EXPECT_FALSE(parse<TypeParam>(exporter.object).isOk);
  EXPECT_TRUE(raised(PyExc_LookupError, "nothing to export."));
  EXPECT_EQ(exporter.exports.released, 0);
}

// --- With a size

struct SizeRow {
  Sizes shape;
  char order;
  const char* size;
  Numbers dimensions;
  PyObject** exceptionClass;  // of a failure
  const char* dimensionsNamed;
};

TYPED_CASE(ExternalBuffer, MustAgreeWithTheSize) {
  const SizeRow rows[] = {
      {{6}, 'F', "(2, 3)", {2, 3}, nullptr, nullptr},
      {{6}, 'F', "(6,)", {1, 6}, nullptr, nullptr},
      {{1}, 'F', "(1, 1)", {1, 1}, nullptr, nullptr},
      {{}, 'F', "(1, 1)", {1, 1}, nullptr, nullptr},
      {{0}, 'F', "(0, 5)", {0, 5}, nullptr, nullptr},
      {{2, 3}, 'F', "(2, 3)", {2, 3}, nullptr, nullptr},
      {{2, 3}, 'C', "(2, 3)", {2, 3}, nullptr, nullptr},
      {{2, 3, 1}, 'C', "(2, 3, 1)", {2, 3}, nullptr, nullptr},
      // More elements than `size` reserved.
      {{6}, 'F', "(1, 1)", {}, &MCPyError::shapeErr, "6"},
      {{2, 3}, 'C', "(1, 7)", {}, &MCPyError::shapeErr, "2, 3"},
      {{2, 3}, 'F', "(3, 2)", {}, &MCPyError::sizeErr, "2, 3"},
  };
  for (const SizeRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.shape) + row.order + row.size);
    SampleExporter<TypeParam> exporter(row.shape, row.order);
    const Parsed<TypeParam> parsed = parse<TypeParam>(exporter.object, row.size);
    EXPECT_EQ(parsed.isOk, row.exceptionClass == nullptr);
    if (row.exceptionClass != nullptr) {
      EXPECT_TRUE(raised(*row.exceptionClass,
                         std::string("dimensions of initializer (") + row.dimensionsNamed +
                             ") do not match dimensions specified by 'size' " + row.size + "."));
    } else {
      EXPECT_EQ(parsed.dimensions, row.dimensions);
      EXPECT_EQ(parsed.elements, samplesInStorageOrder<TypeParam>(row.shape, row.order));
    }
    EXPECT_TRUE(raisedNothing());
    expectOneRequest(exporter.exports);
  }
}

}  // namespace
