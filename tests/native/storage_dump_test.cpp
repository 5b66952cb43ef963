// The diagnostic dump: its exact text for every element type and every state of a view.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "memory_limit.hpp"
#include "module/support.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::newBuffer;
using velmardata_testing::referenceCount;
using velmardata_testing::storageLayout;

template <class Dumped>
std::string dumpOf(const Dumped& dumped) {
  std::ostringstream os;
  EXPECT_EQ(&dumped.writeToOstream(os), &os);
  return os.str();
}

// The text that a dump writes before it throws.
template <class Dumped>
std::string dumpUntilUnknownType(const Dumped& dumped) {
  std::ostringstream os;
  EXPECT_THROW(dumped.writeToOstream(os), EArrayUnknownDataType);
  return os.str();
}

// A 1-by-n array of the elements.
template <class T>
Array rowOf(const std::vector<T>& elements) {
  auto buffer = newBuffer(arrayTypeOf<T>, elements.size());
  std::copy(elements.begin(), elements.end(), static_cast<T*>(buffer.get()));
  return ArrayFactory().createArrayFromBuffer({1, elements.size()}, arrayTypeOf<T>,
                                              std::move(buffer), storageLayout);
}
Array textRow(const std::u16string& text) {
  return rowOf(std::vector<char16_t>(text.begin(), text.end()));
}

// The lines of a wrapper of a 1-by-n array.
std::string wrapperLines(const std::string& elements, std::size_t count, std::size_t size,
                         const std::string& mirror) {
  const std::string s = std::to_string(size);
  return "MDA buffer: " + elements + "\nm_shape: 1 " + std::to_string(count) +
         " \nm_bytewiseStrides: " + s + " " + s + " \nm_order: F\nm_isReadOnly: 1\nm_nDim: 2\n" +
         "m_numElems: " + std::to_string(count) +
         "\nm_bufferSizeInBytes: " + std::to_string(count * size) + "\nm_elemSizeInBytes: " + s +
         "\nm_buf: " + mirror + "\n";
}

// The lines of a wrapper of 2 by 3 doubles, which are samples.
const char* const sampleLines =
    "MDA buffer: 1 2 3 4 5 6 \n"
    "m_shape: 2 3 \n"
    "m_bytewiseStrides: 8 16 \n"
    "m_order: F\n"
    "m_isReadOnly: 1\n"
    "m_nDim: 2\n"
    "m_numElems: 6\n"
    "m_bufferSizeInBytes: 48\n"
    "m_elemSizeInBytes: 8\n"
    "m_buf: 1 2 3 4 5 6 \n";

// The dump of a view: `storage` is the lines of its storage, `items` those of its chain.
std::string viewLines(const std::string& storage, const std::string& items = "",
                      const std::string& integers = "0", const std::string& snapshot = "None") {
  return "MDArrayWrapper: \n" + storage + "\nm_supportedArrayEnum: 0\nm_isComplex: 0\n" + items +
         "m_numberOfIntegerIndicesSoFar: " + integers + "\nm_indexedArrayAsMDA: " + snapshot +
         "\n\n";
}

// --- Element types

template <class T>
void expectElements(const std::vector<T>& elements, const std::string& text,
                    const std::string& typeNumber) {
  SCOPED_TRACE(text);
  const auto count = elements.size();
  const bool isComplex = isComplexElement<T>;
  MCppPyArray view(rowOf(elements), classOfElement<T>(), isComplex, true, Contents::Own);
  const std::string storage = wrapperLines(text, count, sizeof(T), text);
  EXPECT_EQ(dumpOf(*view.wrapper()), storage);
  EXPECT_EQ(dumpOf(view), "MDArrayWrapper: \n" + storage + "\nm_supportedArrayEnum: " + typeNumber +
                              "\nm_isComplex: " + (isComplex ? "1" : "0") +
                              "\nm_numberOfIntegerIndicesSoFar: 0\nm_indexedArrayAsMDA: None\n\n");
  view.setIndexedArrayAsMDA(rowOf(elements));
  EXPECT_EQ(dumpOf(view), "MDArrayWrapper: \n" + storage + "\nm_supportedArrayEnum: " + typeNumber +
                              "\nm_isComplex: " + (isComplex ? "1" : "0") +
                              "\nm_numberOfIntegerIndicesSoFar: 0\nm_indexedArrayAsMDA: " + text +
                              "\n\n");
}

TEST(DumpElements, RealTypes) {
  expectElements<double>({0.5, -2, 1e300, 1.0 / 3}, "0.5 -2 1e+300 0.333333 ", "0");
  expectElements<float>({0.5F, 0.1F}, "0.5 0.1 ", "1");
  expectElements<std::int16_t>({-32768, 32767}, "-32768 32767 ", "4");
  expectElements<std::uint16_t>({0, 65535}, "0 65535 ", "5");
  expectElements<std::int32_t>({-2147483647 - 1, 65}, "-2147483648 65 ", "6");
  expectElements<std::uint32_t>({0, 4294967295}, "0 4294967295 ", "7");
  expectElements<std::int64_t>({std::numeric_limits<std::int64_t>::min(), 1},
                               "-9223372036854775808 1 ", "8");
  expectElements<std::uint64_t>({std::numeric_limits<std::uint64_t>::max()},
                                "18446744073709551615 ", "9");
  expectElements<bool>({true, false, true}, "1 0 1 ", "10");
}

TEST(DumpElements, BytesAreCharacters) {
  expectElements<std::int8_t>({65, 10, -1}, "A \n \xff ", "2");
  expectElements<std::uint8_t>({66, 0, 200}, std::string("B \0 \xc8 ", 6), "3");
}

TEST(DumpElements, ComplexTypes) {
  expectElements<std::complex<double>>({{0.5, -2}, {1, 0}}, "(0.5,-2) (1,0) ", "0");
  expectElements<std::complex<float>>({{0.1F, 2}}, "(0.1,2) ", "1");
  expectElements<std::complex<std::int8_t>>({{65, 66}, {-1, 10}}, "(A,B) (\xff,\n) ", "2");
  expectElements<std::complex<std::uint8_t>>({{67, 0}}, std::string("(C,\0) ", 6), "3");
  expectElements<std::complex<std::int16_t>>({{-32768, 1}}, "(-32768,1) ", "4");
  expectElements<std::complex<std::uint16_t>>({{65535, 1}}, "(65535,1) ", "5");
  expectElements<std::complex<std::int32_t>>({{-2147483647 - 1, 1}}, "(-2147483648,1) ", "6");
  expectElements<std::complex<std::uint32_t>>({{4294967295, 1}}, "(4294967295,1) ", "7");
  expectElements<std::complex<std::int64_t>>({{std::numeric_limits<std::int64_t>::min(), 1}},
                                             "(-9223372036854775808,1) ", "8");
  expectElements<std::complex<std::uint64_t>>({{1, std::numeric_limits<std::uint64_t>::max()}},
                                              "(1,18446744073709551615) ", "9");
}

TEST(DumpElements, CharactersAreText) {
  expectElements<char16_t>({u'a', u'Z', u'\x7f', u'\0'}, std::string("a Z \x7f \0 ", 8), "0");
  expectElements<char16_t>({}, "", "0");
}

TEST(DumpElements, CharactersOutsideAsciiHideTheWholeText) {
  const std::string refusal = "Output contains non-ASCII characters and cannot be written\n";
  for (const char16_t* text : {u"ab\u00e4", u"\u0080", u"\uffff"}) {
    const MDArrayWrapper wrapper(textRow(text), 'F', Contents::Client);
    const auto count = static_cast<std::size_t>(wrapper.getNumberOfElements());
    EXPECT_EQ(dumpOf(wrapper), wrapperLines(refusal, count, 2, refusal));
    const ViewPointer view = makeArray<double>({2, 3});
    view->setIndexedArrayAsMDA(textRow(text));
    EXPECT_EQ(dumpOf(*view), viewLines(sampleLines, "", "0", refusal));
  }
  EXPECT_TRUE(raisedNothing());
}

// --- Storage

TEST(DumpStorage, ArrayAndMirrorAreTwoThings) {
  const MDArrayWrapper wrapper(rowOf<double>({1, 2}), 'F', Contents::Client);
  const double other = 9;
  std::memcpy(wrapper.buf(), &other, sizeof other);
  EXPECT_EQ(dumpOf(wrapper), wrapperLines("1 2 ", 2, 8, "9 2 "));
}

TEST(DumpStorage, WithoutElements) {
  const std::string start = "MDA buffer: \nm_shape: ";
  const std::string end = "m_numElems: 0\nm_bufferSizeInBytes: 0\nm_elemSizeInBytes: ";
  EXPECT_EQ(dumpOf(MDArrayWrapper(sampleArray<double>({0, 3}), 'F', Contents::Client)),
            start + "0 3 \nm_bytewiseStrides: 8 0 \nm_order: F\nm_isReadOnly: 1\nm_nDim: 2\n" +
                end + "8\nm_buf: \n");
  EXPECT_EQ(dumpOf(MDArrayWrapper(sampleArray<char16_t>({0, 0}), 'F', Contents::Client)),
            start + "0 0 \nm_bytewiseStrides: 2 0 \nm_order: F\nm_isReadOnly: 1\nm_nDim: 2\n" +
                end + "2\nm_buf: \n");
}

TEST(DumpStorage, OtherNumbersOfDimensionsAndOrders) {
  EXPECT_EQ(dumpOf(MDArrayWrapper(sampleArray<std::int16_t>({2, 1, 2}), 'C', Contents::Client)),
            "MDA buffer: 1 2 3 4 \nm_shape: 2 1 2 \nm_bytewiseStrides: 4 4 2 \nm_order: C\n"
            "m_isReadOnly: 1\nm_nDim: 3\nm_numElems: 4\nm_bufferSizeInBytes: 8\n"
            "m_elemSizeInBytes: 2\nm_buf: 1 2 3 4 \n");
  EXPECT_EQ(dumpOf(MDArrayWrapper(sampleArray<double>({}), 'F', Contents::Client)),
            "MDA buffer: 1 \nm_shape: \nm_bytewiseStrides: \nm_order: F\nm_isReadOnly: 1\n"
            "m_nDim: 0\nm_numElems: 1\nm_bufferSizeInBytes: 8\nm_elemSizeInBytes: 8\n"
            "m_buf: 1 \n");
}

TYPED_SUITE(DumpStorageOf, AllTypes, TypeWords);

TYPED_CASE(DumpStorageOf, ChangesNothing) {
  const Array array = sampleArray<TypeParam>({2, 3});
  const MCppPyArray view(Array(array), classOfElement<TypeParam>(), isComplexElement<TypeParam>,
                         true, Contents::Client);
  const std::string first = dumpOf(view);
  EXPECT_EQ(dumpOf(view), first);
  EXPECT_EQ(referenceCount(array), 2U);
  EXPECT_EQ(view.wrapper()->array().impl(), array.impl());
  EXPECT_EQ(storedElements<TypeParam>(view), samples<TypeParam>(6));
  EXPECT_TRUE(raisedNothing());
}

TEST(DumpStorage, ThrowsForUnknownTypesAfterTheLabel) {
  std::vector<Array> unknown(1);  // an empty handle
  for (const std::uint32_t number : {0U, 3U, 24U, 1000U}) {
    unknown.push_back(ArrayFactory().createArray(static_cast<ArrayType>(number), {0, 3}));
  }
  for (const Array& array : unknown) {
    SCOPED_TRACE(static_cast<std::uint32_t>(array.getType()));
    const ViewPointer view = makeArray<double>({2, 3});
    view->setIndexedArrayAsMDA(Array(array));
    const std::string whole = viewLines(sampleLines);
    EXPECT_EQ(dumpUntilUnknownType(*view), whole.substr(0, whole.find("None\n")));
    // Storage cannot be made of such an array, so it replaces the array of existing storage.
    const_cast<Array&>(view->wrapper()->array()) = array;
    EXPECT_EQ(dumpUntilUnknownType(*view->wrapper()), "MDA buffer: ");
    EXPECT_EQ(dumpUntilUnknownType(*view), "MDArrayWrapper: \nMDA buffer: ");
  }
}

// --- Views

TEST(DumpView, WithoutSubscripts) {
  const ViewPointer array = makeArray<double>({2, 2});
  EXPECT_EQ(dumpOf(*array),
            "MDArrayWrapper: \nMDA buffer: 1 2 3 4 \nm_shape: 2 2 \nm_bytewiseStrides: 8 16 \n"
            "m_order: F\nm_isReadOnly: 1\nm_nDim: 2\nm_numElems: 4\nm_bufferSizeInBytes: 32\n"
            "m_elemSizeInBytes: 8\nm_buf: 1 2 3 4 \n\nm_supportedArrayEnum: 0\nm_isComplex: 0\n"
            "m_numberOfIntegerIndicesSoFar: 0\nm_indexedArrayAsMDA: None\n\n");
}

TEST(DumpView, FromPythonShowsTheStorageAndTheChain) {
  struct Row {
    const char* view;
    const char* items;
    const char* integers;
  };
  const Row rows[] = {
      {"a[1]", "m_index: 1\nm_isNormalized: 1\n", "1"},
      {"a[-2]", "m_index: 0\nm_isNormalized: 1\n", "1"},
      {"a[0:1]", "m_start: 0\nm_stop: 1\nm_step: 1\nm_slice_len: 1\nm_isNormalized: 1\n", "0"},
      {"a[::-1]", "m_start: 1\nm_stop: -1\nm_step: -1\nm_slice_len: 2\nm_isNormalized: 1\n", "0"},
      {"a[1][0:3:2]",
       "m_index: 1\nm_isNormalized: 1\n"
       "m_start: 0\nm_stop: 3\nm_step: 2\nm_slice_len: 2\nm_isNormalized: 1\n",
       "1"},
  };
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  for (const Row& row : rows) {
    SCOPED_TRACE(row.view);
    const PyRef view = evaluate(row.view, {{"a", array}});
    EXPECT_EQ(dumpOf(viewOf(view)), viewLines(sampleLines, row.items, row.integers));
  }
}

struct ItemsRow {
  std::vector<IntegerIndexItem> integers;
  SliceIndexItem slice;
  const char* items;
};

TEST(DumpView, ItemsAreWrittenAsTheyAre) {
  constexpr auto largest = std::numeric_limits<std::int64_t>::max();
  constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
  constexpr std::nullopt_t none = std::nullopt;
  const ItemsRow rows[] = {
      {{{-2, false}, {largest, true}},
       SliceIndexItem{},
       "m_index: -2\nm_isNormalized: 0\n"
       "m_index: 9223372036854775807\nm_isNormalized: 1\n"
       "m_start: None\nm_stop: None\nm_step: None\nm_slice_len: None\nm_isNormalized: 0\n"},
      {{},
       SliceIndexItem{3, none, -1, none, false},
       "m_start: 3\nm_stop: None\nm_step: -1\nm_slice_len: None\nm_isNormalized: 0\n"},
      {{},
       SliceIndexItem{none, 0, none, smallest, false},
       "m_start: None\nm_stop: 0\nm_step: None\nm_slice_len: -9223372036854775808\n"
       "m_isNormalized: 0\n"},
  };
  for (const ItemsRow& row : rows) {
    const ViewPointer view = makeArray<double>({2, 3});
    for (const IntegerIndexItem& item : row.integers) view->appendIndexItem(item);
    view->appendIndexItem(row.slice);
    EXPECT_EQ(dumpOf(*view),
              viewLines(sampleLines, row.items, std::to_string(row.integers.size())));
  }
}

TEST(DumpView, IntegersAreCounted) {
  const ViewPointer array = makeArray<double>({2, 3});
  const MCppPyArray view(*array, {1, 2}, false);
  EXPECT_EQ(dumpOf(view), viewLines(sampleLines,
                                    "m_index: 1\nm_isNormalized: 0\n"
                                    "m_index: 2\nm_isNormalized: 0\n",
                                    "2"));
}

TEST(DumpView, AfterACloneTheSourceShowsItsSnapshot) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef row = evaluate("a[1]", {{"a", array}});
  const char* const item = "m_index: 1\nm_isNormalized: 1\n";
  const PyRef clone = evaluate("a.clone()", {{"a", array}});
  const PyRef rowClone = evaluate("r.clone()", {{"r", row}});
  EXPECT_EQ(dumpOf(viewOf(array)), viewLines(sampleLines, "", "0", "1 2 3 4 5 6 "));
  EXPECT_EQ(dumpOf(viewOf(row)), viewLines(sampleLines, item, "1", "2 4 6 "));
  EXPECT_EQ(dumpOf(viewOf(clone)), viewLines(sampleLines));
  EXPECT_EQ(dumpOf(viewOf(rowClone)), viewLines(wrapperLines("2 4 6 ", 3, 8, "2 4 6 ")));

  ASSERT_TRUE(setElement<double>(viewOf(array), {1, 1}, 99.0));
  std::string written = sampleLines;
  for (int line = 0; line < 2; ++line) written.replace(written.rfind(" 4 5"), 2, " 99");
  // The first replacement is in the line of the mirror, the second in that of the array.
  EXPECT_EQ(dumpOf(viewOf(row)), viewLines(written, item, "1", "2 4 6 "));
}

TEST(DumpView, CachesWithoutASnapshotAreNotShown) {
  const ViewPointer array = makeArray<double>({2, 3});
  array->caches();
  EXPECT_EQ(dumpOf(*array), viewLines(sampleLines));
}

TEST(DumpView, WeakViewsShowTheStorageWhileItIsThere) {
  ViewPointer owner = makeArray<double>({2, 3});
  const MCppPyArray weak(*owner, true);
  EXPECT_EQ(dumpOf(weak), viewLines(sampleLines));
  owner.reset();
  EXPECT_EQ(dumpOf(weak), viewLines("")) << "the dump kept the storage";
  EXPECT_TRUE(raisedNothing());
}

TEST(DumpView, WithoutStorageItsLinesAreLeftOutAndNoErrorIsSet) {
  EXPECT_EQ(dumpOf(*makeExpiredView<double>({2, 3})), viewLines(""));
  EXPECT_EQ(dumpOf(*makeViewWithoutStorage<double>({2, 3})), viewLines(""));
  EXPECT_TRUE(raisedNothing());
  const ViewPointer view = makeExpiredView<double>({2, 3});
  view->appendIndexItem(IntegerIndexItem{1, true});
  view->setIndexedArrayAsMDA(rowOf<float>({0.5F}));
  EXPECT_EQ(dumpOf(*view), viewLines("", "m_index: 1\nm_isNormalized: 1\n", "1", "0.5 "));
}

TEST(DumpView, AnErrorThatIsPendingStays) {
  setError(PyExc_KeyError, "earlier");
  dumpOf(*makeExpiredView<double>({2, 3}));
  dumpOf(*makeArray<double>({2, 3}));
  EXPECT_TRUE(raised(PyExc_KeyError, "'earlier'"));
}

// --- The stream

TEST(DumpStream, SettingsAreRespectedAndStay) {
  std::ostringstream os;
  os << std::hex << std::boolalpha << std::showbase << std::left << std::uppercase;
  os.precision(10);
  os.fill('*');
  const auto flags = os.flags();
  const ViewPointer array = makeArray<std::int16_t>({2, 10});
  array->appendIndexItem(IntegerIndexItem{-1, true});
  array->setIndexedArrayAsMDA(rowOf<std::int32_t>({-1, 255}));
  array->writeToOstream(os);
  const std::string text = os.str();
  for (const char* line :
       {"\nm_shape: 0X2 0XA \n", "\nm_bytewiseStrides: 0X2 0X4 \n", "\nm_numElems: 0X14\n",
        "\nm_bufferSizeInBytes: 0X28\n", "\nm_order: F\n", "\nm_isReadOnly: 0X1\n",
        "\nm_supportedArrayEnum: 0X4\n", "\nm_isComplex: false\n", "\nm_isNormalized: true\n",
        "\nm_index: 0XFFFFFFFFFFFFFFFF\n", "\nm_indexedArrayAsMDA: 0XFFFFFFFF 0XFF \n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << "is missing in\n" << text;
  }
  EXPECT_EQ(os.flags(), flags);
  EXPECT_EQ(os.precision(), 10);
  EXPECT_EQ(os.fill(), '*');
  EXPECT_EQ(os.width(), 0);
}

template <class T>
std::string elementsWith(std::ostream& (*set)(std::ostream&), const std::vector<T>& elements) {
  std::ostringstream os;
  set(os);
  MDArrayWrapper(rowOf(elements), 'F', Contents::Client).writeToOstream(os);
  const std::string text = os.str();
  const std::string array = text.substr(0, text.find('\n'));
  EXPECT_EQ("MDA buffer" + text.substr(text.rfind(": ")), array + "\n") << "the mirror differs";
  return array.substr(std::string("MDA buffer: ").size());
}

TEST(DumpStream, SettingsReachTheElements) {
  const auto tenDigits = [](std::ostream& os) -> std::ostream& {
    os.precision(10);
    return os;
  };
  EXPECT_EQ(elementsWith<double>(tenDigits, {1.0 / 3, 0.5}), "0.3333333333 0.5 ");
  EXPECT_EQ(elementsWith<float>(tenDigits, {0.1F}), "0.1000000015 ");
  EXPECT_EQ(elementsWith<std::complex<float>>(tenDigits, {{0.1F, 2}}), "(0.1000000015,2) ");
  const auto words = [](std::ostream& os) -> std::ostream& { return os << std::boolalpha; };
  EXPECT_EQ(elementsWith<bool>(words, {true, false}), "true false ");
  const auto hexadecimal = [](std::ostream& os) -> std::ostream& { return os << std::hex; };
  EXPECT_EQ(elementsWith<std::int16_t>(hexadecimal, {-1, 10}), "ffff a ");
  EXPECT_EQ(elementsWith<std::uint16_t>(hexadecimal, {65535}), "ffff ");
  EXPECT_EQ(elementsWith<std::int32_t>(hexadecimal, {-1}), "ffffffff ");
  EXPECT_EQ(elementsWith<std::int64_t>(hexadecimal, {-1}), "ffffffffffffffff ");
  EXPECT_EQ(elementsWith<std::complex<std::int32_t>>(hexadecimal, {{-1, 10}}), "(ffffffff,a) ");
  EXPECT_EQ(elementsWith<std::int8_t>(hexadecimal, {65}), "A ");
}

struct CommaForPoint : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
};

TEST(DumpStream, TheLocaleReachesTheElements) {
  const auto withComma = [](std::ostream& os) -> std::ostream& {
    os.imbue(std::locale(os.getloc(), new CommaForPoint));
    return os;
  };
  EXPECT_EQ(elementsWith<double>(withComma, {0.5, 2}), "0,5 2 ");
}

// Counts the flushes and keeps the text of the last one.
class FlushedText : public std::stringbuf {
 public:
  int times = 0;
  std::string flushed;

 protected:
  int sync() override {
    ++times;
    flushed = str();
    return 0;
  }
};

TEST(DumpStream, AWidthPadsTheFirstWords) {
  const ViewPointer array = makeArray<double>({2, 3});
  std::ostringstream os;
  os << std::setfill('.') << std::setw(20);
  array->writeToOstream(os);
  EXPECT_EQ(os.str(), "...." + viewLines(sampleLines));
  EXPECT_EQ(os.width(), 0);
  std::ostringstream ofStorage;
  ofStorage << std::setfill('.') << std::setw(14);
  array->wrapper()->writeToOstream(ofStorage);
  EXPECT_EQ(ofStorage.str(), std::string("..") + sampleLines);
}

TEST(DumpStream, EveryLineOfTheStorageIsFlushed) {
  FlushedText buffer;
  std::ostream os(&buffer);
  const ViewPointer array = makeArray<double>({2, 3});
  array->wrapper()->writeToOstream(os);
  EXPECT_EQ(buffer.times, 10);
  EXPECT_EQ(buffer.flushed, sampleLines);
  FlushedText whole;
  std::ostream wholeStream(&whole);
  array->writeToOstream(wholeStream);
  EXPECT_EQ(whole.flushed, viewLines(sampleLines)) << "nothing is left in the stream";
  EXPECT_EQ(whole.times, 11) << "the lines of the view are flushed at the end only";
}

TEST(DumpStream, ARefusalOfTextIsNotFlushedByItself) {
  FlushedText buffer;
  std::ostream os(&buffer);
  const MDArrayWrapper wrapper(textRow(u"\u00e4"), 'F', Contents::Client);
  wrapper.writeToOstream(os);
  EXPECT_EQ(buffer.times, 10);
  FlushedText whole;
  std::ostream wholeStream(&whole);
  const ViewPointer view = makeExpiredView<double>({2, 3});
  view->appendIndexItem(SliceIndexItem{});
  view->setIndexedArrayAsMDA(textRow(u"\u00e4"));
  view->writeToOstream(wholeStream);
  EXPECT_EQ(whole.times, 1);
}

}  // namespace
