// Every mapping between the numberings of element types, compared with literal numbers.
#include "module/element_types.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

#include "python_testing.hpp"

namespace {

using namespace python_testing;
using foundation::velmardata::ArrayType;

struct ClassRow {
  const char* word;
  SupportedArrayEnum arrayClass;
  std::int8_t number;
  char letter;
  std::int32_t numberOfLetter;
  std::uint32_t arrayType;
  const char* format;
  const char* complexFormat;
};
constexpr ClassRow classRows[] = {
    {"double", SupportedArrayEnum::Double, 0, 'd', 4, 4, "d", "Zd"},
    {"single", SupportedArrayEnum::Single, 1, 'f', 5, 5, "f", "Zf"},
    {"int8", SupportedArrayEnum::Int8, 2, 'b', 6, 6, "b", "Zb"},
    {"uint8", SupportedArrayEnum::UInt8, 3, 'B', 7, 7, "B", "ZB"},
    {"int16", SupportedArrayEnum::Int16, 4, 'h', 8, 8, "h", "Zh"},
    {"uint16", SupportedArrayEnum::UInt16, 5, 'H', 9, 9, "H", "ZH"},
    {"int32", SupportedArrayEnum::Int32, 6, 'i', 10, 10, "i", "Zi"},
    {"uint32", SupportedArrayEnum::UInt32, 7, 'I', 11, 11, "I", "ZI"},
    {"int64", SupportedArrayEnum::Int64, 8, 'q', 12, 12, "q", "Zq"},
    {"uint64", SupportedArrayEnum::UInt64, 9, 'Q', 13, 13, "Q", "ZQ"},
    {"logical", SupportedArrayEnum::Logical, 10, '?', 14, 1, "?", nullptr},
};

TEST(ElementTypes, EveryMappingOfEachClass) {
  for (const ClassRow& row : classRows) {
    SCOPED_TRACE(row.word);
    EXPECT_STREQ(typeWordOf(row.arrayClass), row.word);
    EXPECT_EQ(static_cast<std::int8_t>(row.arrayClass), row.number);
    EXPECT_EQ(TypeAsChar.at(static_cast<std::size_t>(row.number)), row.letter);
    EXPECT_EQ(getArrayTypeEnumFromChar(row.letter), row.numberOfLetter);

    const auto type = static_cast<ArrayType>(row.arrayType);
    EXPECT_STREQ(classid2format(type), row.format);
    const TypeAndComplexity real = getTypeAndComplexityFromArrayType(type);
    EXPECT_TRUE(real.isValid);
    EXPECT_EQ(real.supportedArrayEnum, row.arrayClass);
    EXPECT_FALSE(real.isComplex);

    if (row.complexFormat == nullptr) continue;
    const auto complexType = static_cast<ArrayType>(row.arrayType + 10);
    EXPECT_STREQ(classid2format(complexType), row.complexFormat);
    const TypeAndComplexity complex = getTypeAndComplexityFromArrayType(complexType);
    EXPECT_TRUE(complex.isValid);
    EXPECT_EQ(complex.supportedArrayEnum, row.arrayClass);
    EXPECT_TRUE(complex.isComplex);
  }
  EXPECT_EQ(std::size(classRows), numberOfArrayClasses);
}

TEST(ElementTypes, LettersAreElevenWithoutATerminator) {
  EXPECT_EQ(std::string(TypeAsChar.begin(), TypeAsChar.end()), "dfbBhHiIqQ?");
}

TEST(ElementTypes, NumbersWithoutAClassGiveOneInvalidAnswer) {
  for (const std::uint32_t number : {0U, 2U, 3U, 24U, 25U, 255U, 0xFFFFFFFFU}) {
    SCOPED_TRACE(number);
    const TypeAndComplexity answer =
        getTypeAndComplexityFromArrayType(static_cast<ArrayType>(number));
    EXPECT_FALSE(answer.isValid);
    EXPECT_EQ(static_cast<int>(answer.supportedArrayEnum), 10);
    EXPECT_TRUE(answer.isComplex);
  }
}

TEST(ElementTypes, NumbersWithoutAFormatThrow) {
  for (const std::uint32_t number : {0U, 2U, 3U, 24U}) {
    SCOPED_TRACE(number);
    try {
      classid2format(static_cast<ArrayType>(number));
      ADD_FAILURE() << "has a format";
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "map::at");
    }
  }
}

TEST(ElementTypes, FormatsAreTheSameStringsInEachCall) {
  char* const first = classid2format(ArrayType::COMPLEX_UINT8);
  EXPECT_EQ(classid2format(ArrayType::COMPLEX_UINT8), first);
  EXPECT_NE(classid2format(ArrayType::UINT8), first + 1);
}

// Deliberate: the number of "?" is computed from its position, so it is not the ArrayType of
// logical.
TEST(ElementTypes, LetterOfLogicalHasTheNumberOfComplexDouble) {
  EXPECT_EQ(getArrayTypeEnumFromChar('?'), static_cast<int>(ArrayType::COMPLEX_DOUBLE));
}

TEST(ElementTypes, UnknownLettersAreReported) {
  for (const char letter : {'l', 'L', 'D', 'F', 'Z', 'x', ' ', '0'}) {
    SCOPED_TRACE(letter);
    EXPECT_EQ(getArrayTypeEnumFromChar(letter), std::nullopt);
    EXPECT_TRUE(
        raised(PyExc_RuntimeError, std::string("format character not supported: ") + letter));
  }
}

TEST(ElementTypes, FillingTheMapOverwritesOnlyItsLetters) {
  std::map<char, int> map = {{'d', 99}, {'x', 1}};
  initializeCharToArrayTypeEnumMap(map);
  const std::map<char, int> expected = {{'d', 4},  {'f', 5},  {'b', 6},  {'B', 7},
                                        {'h', 8},  {'H', 9},  {'i', 10}, {'I', 11},
                                        {'q', 12}, {'Q', 13}, {'?', 14}, {'x', 1}};
  EXPECT_EQ(map, expected);
}

}  // namespace
