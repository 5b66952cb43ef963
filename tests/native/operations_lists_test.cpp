// Nested lists of the contents of views, and the texts that are made of them.
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "operations/handlers.hpp"
#include "operations/nested_lists.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

template <class T>
PyRef allContents(const MCppPyArray& view) {
  return PyRef::steal(getAllContentsAsPyList<T>(view));
}

PyRef contentsFrom(const MCppPyArray& view, Position& indices, std::uint64_t dimension) {
  return PyRef::steal(getPyListFromNormalizedIntIndicesWithoutTemplate(view, indices, dimension));
}

// --- Lists of all types

TYPED_SUITE(NestedList, AllTypes, TypeWords);

TYPED_CASE(NestedList, HoldsEachElementAtItsPlace) {
  const ViewPointer array = makeArray<TypeParam>({2, 3, 4});
  const MCppPyArray weak(*array, true);
  Position none;
  const PyRef lists[] = {allContents<TypeParam>(*array), allContents<TypeParam>(weak),
                         contentsFrom(*array, none, 0), contentsFrom(weak, none, 0)};
  for (const PyRef& list : lists) {
    ASSERT_TRUE(list);
    ASSERT_EQ(PyList_Size(list.get()), 2);
    for (std::int64_t i = 0; i < 2; ++i) {
      PyObject* const rows = PyList_GetItem(list.get(), i);
      ASSERT_EQ(PyList_Size(rows), 3);
      for (std::int64_t j = 0; j < 3; ++j) {
        PyObject* const row = PyList_GetItem(rows, j);
        ASSERT_EQ(PyList_Size(row), 4);
        for (std::int64_t k = 0; k < 4; ++k) {
          PyObject* const item = PyList_GetItem(row, k);
          const PyRef expected = PyRef::steal(
              array->wrapper()->getElementAsPyObjectFromElementOffset(i + 2 * j + 6 * k));
          ASSERT_EQ(textOf(item, PyObject_Repr), reprOf(expected)) << i << j << k;
          ASSERT_EQ(Py_TYPE(item), Py_TYPE(expected.get()));
        }
      }
    }
  }
  EXPECT_TRUE(none.empty());
}

TYPED_CASE(NestedList, OfARunHasItsOrder) {
  const ViewPointer array = makeArray<TypeParam>({2, 9});
  MCppPyArray row(*array, {1}, false);
  row.appendIndexItem(slice(7, 0, -3, 3));
  const PyRef list = allContents<TypeParam>(row);
  ASSERT_EQ(PyList_Size(list.get()), 3);
  for (std::int64_t k = 0; k < 3; ++k) {
    const PyRef expected =
        PyRef::steal(array->wrapper()->getElementAsPyObjectFromElementOffset(1 + 2 * (7 - 3 * k)));
    EXPECT_EQ(textOf(PyList_GetItem(list.get(), k), PyObject_Repr), reprOf(expected));
  }
}

TYPED_CASE(NestedList, StorageThatHasGoneIsReported) {
  const ViewPointer views[] = {makeExpiredView<TypeParam>({2, 3}),
                               makeViewWithoutStorage<TypeParam>({2, 3})};
  for (const ViewPointer& view : views) {
    Position none;
    EXPECT_FALSE(allContents<TypeParam>(*view));
    EXPECT_TRUE(raisedExpired());
    EXPECT_FALSE(contentsFrom(*view, none, 0));
    EXPECT_TRUE(raisedExpired());
    EXPECT_FALSE(contentsFrom(*view, none, 99));
    EXPECT_TRUE(raisedExpired());
    for (const SliceIndexItem& run : {slice(0, 2, 1, 2), slice(0, 0, 1, 0)}) {
      MCppPyArray part(*view, view->hasWeakPtrToWrapper());
      part.appendIndexItem(run);
      EXPECT_FALSE(allContents<TypeParam>(part));
      EXPECT_TRUE(raisedExpired());
    }
  }
}

// --- Shapes and parts

struct ListedRow {
  Dimensions dimensions;
  const char* expression;
  const char* expected;
};
const ListedRow listedRows[] = {
    {{1, 3}, "a", "[[1.0, 2.0, 3.0]]"},
    {{3, 1}, "a", "[[1.0], [2.0], [3.0]]"},
    {{2, 3}, "a", "[[1.0, 3.0, 5.0], [2.0, 4.0, 6.0]]"},
    {{2, 3, 2},
     "a",
     "[[[1.0, 7.0], [3.0, 9.0], [5.0, 11.0]], [[2.0, 8.0], [4.0, 10.0], [6.0, 12.0]]]"},
    {{0, 0}, "a", "[]"},
    {{0, 3}, "a", "[]"},
    {{1, 0}, "a", "[[]]"},
    {{3, 0}, "a", "[[], [], []]"},
    {{2, 0, 4}, "a", "[[], []]"},
    {{2, 2, 0}, "a", "[[[], []], [[], []]]"},
    {{4}, "a", "[1.0, 2.0, 3.0, 4.0]"},
    {{}, "a", "[]"},
    {{2, 3}, "a[0]", "[1.0, 3.0, 5.0]"},
    {{2, 3}, "a[-1]", "[2.0, 4.0, 6.0]"},
    {{2, 3}, "a[1][1:]", "[4.0, 6.0]"},
    {{2, 3}, "a[1][::-1]", "[6.0, 4.0, 2.0]"},
    {{2, 3}, "a[1][2:0:-1]", "[6.0, 4.0]"},
    {{3, 2}, "a[0:2]", "[[1.0, 4.0], [2.0, 5.0]]"},
    {{3, 2}, "a[::-2]", "[[3.0, 6.0], [1.0, 4.0]]"},
    {{3, 2}, "a[::-2][::-1]", "[[1.0, 4.0], [3.0, 6.0]]"},
    {{3, 2}, "a[1:1]", "[]"},
    {{3, 2}, "a[0][1:1]", "[]"},
    {{3, 0}, "a[0:2]", "[[], []]"},
    {{3, 0}, "a[0]", "[]"},
    {{3, 0}, "a[0][:]", "[]"},
    {{2, 2, 2}, "a[1]", "[[2.0, 6.0], [4.0, 8.0]]"},
    {{2, 2, 2}, "a[1][0:1]", "[[2.0, 6.0]]"},
    {{2, 2, 2}, "a[1][1][0:1]", "[4.0]"},
    {{2, 2, 2}, "a[1:]", "[[[2.0, 6.0], [4.0, 8.0]]]"},
};

TEST(NestedListOf, APartShowsThatPartOnly) {
  for (const ListedRow& row : listedRows) {
    SCOPED_TRACE(testing::PrintToString(row.dimensions) + row.expression);
    const PyRef array = makeRecord(makeArray<double>(row.dimensions));
    const PyRef part = evaluate(row.expression, {{"a", array}});
    EXPECT_EQ(reprOf(allContents<double>(viewOf(part))), row.expected);
    EXPECT_TRUE(raisedNothing());
  }
}

TEST(NestedListOf, LongRowsIsWhole) {
  for (const unsigned long length : {255UL, 256UL, 257UL, 512UL, 1000UL}) {
    SCOPED_TRACE(length);
    const PyRef array = makeRecord(makeArray<std::int64_t>({3, length}));
    const PyRef count = PyRef::steal(PyLong_FromUnsignedLong(length));
    for (const char* check :
         {"[[(i + 3 * j) % 50 + 1 for j in range(n)] for i in range(3)] == [list(r) for r in l]",
          "all(l[i][j] == a[i][j] for i in range(3) for j in range(n))"}) {
      const PyRef list = allContents<std::int64_t>(viewOf(array));
      EXPECT_EQ(reprOf(evaluate(std::string("(lambda a, l, n: ") + check + ")(a, l, n)",
                                {{"a", array}, {"l", list}, {"n", count}})),
                "True");
    }
    const PyRef backwards = evaluate("a[1][::-1]", {{"a", array}});
    const PyRef list = allContents<std::int64_t>(viewOf(backwards));
    EXPECT_EQ(reprOf(evaluate("(lambda l, n: l == [(1 + 3 * j) % 50 + 1 for j in range(n)][::-1])"
                              "(l, n)",
                              {{"l", list}, {"n", count}})),
              "True");
  }
}

TEST(ContentsFromADimension, WalkTheDimensionsBehindTheGivenPositions) {
  const ViewPointer array = makeArray<double>({2, 3});
  Position indices = {1};
  EXPECT_EQ(reprOf(contentsFrom(*array, indices, 1)), "[2.0, 4.0, 6.0]");
  EXPECT_EQ(entriesOf(indices), (std::vector<std::int64_t>{1}));
}

TEST(ContentsFromADimension, PastTheShapeAreAnEmptyList) {
  const ViewPointer array = makeArray<double>({2, 3});
  Position indices = {1, 1};
  for (const std::uint64_t dimension :
       {std::uint64_t{2}, std::uint64_t{3}, std::numeric_limits<std::uint64_t>::max()}) {
    SCOPED_TRACE(dimension);
    EXPECT_EQ(reprOf(contentsFrom(*array, indices, dimension)), "[]");
  }
  EXPECT_TRUE(raisedNothing());
}

TEST(ContentsFromADimension, IgnoreTheChain) {
  const ViewPointer array = makeArray<double>({2, 3});
  MCppPyArray view(*array, {1}, false);
  Position none;
  EXPECT_EQ(reprOf(contentsFrom(view, none, 0)), "[[1.0, 3.0, 5.0], [2.0, 4.0, 6.0]]");
}

// --- Elements outside the storage

constexpr const char* cannotSet = "unable to set list item.";

// Deliberate: the walk goes on, the item is null, and the error stays pending.
TEST(ElementOutOfReach, IsANullItemOfTheList) {
  struct Row {
    Dimensions dimensions;
    Position position;
    const char* expected;
  };
  const Row rows[] = {{{2, 3}, {5}, "[6.0, <NULL>, <NULL>]"},
                      {{2, 3}, {-2}, "[<NULL>, 1.0, 3.0]"},
                      {{2, 3}, {99}, "[<NULL>, <NULL>, <NULL>]"},
                      {{2, 2, 2}, {7}, "[[8.0, <NULL>], [<NULL>, <NULL>]]"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.expected);
    const ViewPointer array = makeArray<double>(row.dimensions);
    const PyRef record = makeRecord(std::make_unique<MCppPyArray>(*array, row.position, false));
    const PyRef list = allContents<double>(viewOf(record));
    EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
    EXPECT_EQ(reprOf(list), row.expected);
    for (PyObject* (*form)(PyObject*) : {PyObject_Str, PyObject_Repr}) {
      EXPECT_EQ(form(record.get()), nullptr);
      EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
    }
  }
}

TEST(ElementOutOfReach, StopsTheRunThatEndsTheChain) {
  for (const SliceIndexItem& run : {slice(0, 4, 1, 4), slice(2, -2, -1, 4), slice(9, 10, 1, 1)}) {
    SCOPED_TRACE(describe(run));
    const ViewPointer array = makeArray<double>({2, 3});
    const PyRef record = makeRecord(std::make_unique<MCppPyArray>(*array, Position{0}, false));
    viewOf(record).appendIndexItem(run);
    EXPECT_FALSE(allContents<double>(viewOf(record)));
    EXPECT_TRUE(raised(PyExc_RuntimeError, cannotSet));
    EXPECT_EQ(MCPyArray_GetStr<double>(record.get()), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, cannotSet));
  }
}

TEST(ElementOutOfReach, BelowTheRunThatEndsTheChainIsANullItem) {
  const ViewPointer view = makeArray<double>({2, 3});
  view->appendIndexItem(slice(3, 5, 1, 2));
  const PyRef list = allContents<double>(*view);
  EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
  EXPECT_EQ(reprOf(list), "[[4.0, 6.0, <NULL>], [5.0, <NULL>, <NULL>]]");
}

// --- Other failures

TEST(ListFailure, TooManyDimensions) {
  const ViewPointer array = makeArray<double>(Dimensions(200000, 1));
  EXPECT_FALSE(allContents<double>(*array));
  EXPECT_TRUE(raisedOwn(PyExc_RecursionError));
  MCppPyArray view(*array, false);
  view.appendIndexItem(slice(0, 1, 1, 1));
  EXPECT_FALSE(allContents<double>(view));
  EXPECT_TRUE(raised(PyExc_RuntimeError, cannotSet)) << "replaces the error of the inner list";
}

// --- Signals

// As Ctrl-C does it: the handler raises at the next look for signals. A process that runs in the
// background may ignore Ctrl-C, so the handler is set first.
void interrupt() {
  evaluate("(lambda s: s.signal(s.SIGINT, s.default_int_handler))(__import__('signal'))");
  PyErr_SetInterrupt();
}

TEST(InterruptedList, IsGivenUpAtTheNextLook) {
  struct Row {
    Dimensions dimensions;
    Position position;
    std::optional<SliceIndexItem> run;
  };
  const Row rows[] = {
      {{1, 5000}, {}, std::nullopt},
      {{3000, 1}, {}, std::nullopt},
      {{2, 3, 700}, {}, std::nullopt},
      {{1, 5000}, {0}, slice(4999, -1, -1, 5000)},
      {{3000, 2}, {}, slice(1, 3000, 1, 2999)},
      {{2, 5000}, {}, slice(1, 2, 1, 1)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.dimensions) + (row.run ? describe(*row.run) : ""));
    const ViewPointer array = makeArray<double>(row.dimensions);
    MCppPyArray view(*array, row.position, false);
    if (row.run) view.appendIndexItem(*row.run);
    SignalWatch signals;
    interrupt();
    EXPECT_EQ(getAllContentsAsPyList<double>(view, &signals), nullptr);
    EXPECT_TRUE(signals.hasRaised());
    EXPECT_TRUE(raised(PyExc_KeyboardInterrupt, ""));
  }
}

TEST(InterruptedList, LooksOnlyAtLongWalksAndOnlyIfAsked) {
  const ViewPointer longRow = makeArray<double>({1, 5000});
  const ViewPointer shortRow = makeArray<double>({1, 1000});
  SignalWatch signals;
  interrupt();
  const PyRef whole = allContents<double>(*longRow);
  const PyRef first = PyRef::steal(getAllContentsAsPyList<double>(*shortRow, &signals));
  EXPECT_FALSE(signals.hasRaised());
  EXPECT_EQ(PyErr_CheckSignals(), -1) << "has waited until now";
  EXPECT_TRUE(raised(PyExc_KeyboardInterrupt, ""));
  EXPECT_TRUE(whole && first);
}

// --- Texts

TEST(Text, HasTheFormOfItsHandlerAndNoBlanksInTheList) {
  const PyRef real = makeRecord(makeArray<std::int8_t>({2, 2}));
  const PyRef complex = makeRecord(makeArray<std::complex<std::int8_t>>({2, 2}));
  const auto str = [](const PyRef& record) {
    return textOf(PyRef::steal(MCPyArray_GetStr<std::int8_t>(record.get())).get());
  };
  const auto repr = [](const PyRef& record) {
    return textOf(PyRef::steal(MCPyArray_GetRepr<std::int8_t>(record.get())).get());
  };
  EXPECT_EQ(str(real), "[[1,3],[2,4]]");
  EXPECT_EQ(str(complex), "[[(1+61j),(3+63j)],[(2+62j),(4+64j)]]");
  EXPECT_EQ(repr(real), "velmar.int8([[1,3],[2,4]])");
  EXPECT_EQ(repr(complex), "velmar.int8([[(1+61j),(3+63j)],[(2+62j),(4+64j)]], is_complex=True)");
}

TYPED_SUITE(TextOfClass, ClassTypes, TypeWords);

TYPED_CASE(TextOfClass, IsThatOfItsListAndNamesTheClass) {
  const ViewPointer array = makeArray<TypeParam>({2, 2});
  std::string expected = reprOf(allContents<TypeParam>(*array));
  std::erase(expected, ' ');
  const std::string word = typeWord<TypeParam>;
  const PyRef record = makeRecord(std::make_unique<MCppPyArray>(*array, false));
  EXPECT_EQ(textOf(record.get()), expected);
  EXPECT_EQ(reprOf(record), "velmar." + word + "(" + expected + ")");
}

TYPED_CASE(TextOfClass, OfAComplexArray) {
  if constexpr (!std::is_same_v<TypeParam, bool>) {
    const PyRef record = makeRecord(makeArray<std::complex<TypeParam>>({1, 2}));
    EXPECT_EQ(textOf(record.get()), "[[(1+61j),(2+62j)]]");
    EXPECT_EQ(reprOf(record), std::string("velmar.") + typeWord<TypeParam> +
                                  "([[(1+61j),(2+62j)]], is_complex=True)");
  }
}

TYPED_CASE(TextOfClass, StorageThatHasGoneIsReported) {
  const PyRef record = makeRecord(makeExpiredView<TypeParam>({2, 2}));
  for (PyObject* (*form)(PyObject*) : {PyObject_Str, PyObject_Repr}) {
    EXPECT_EQ(form(record.get()), nullptr);
    EXPECT_TRUE(raisedExpired());
  }
}

}  // namespace
