// The helpers of the Python-facing functions: errors, references, guards, tests of a type.
#include "module/support.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "exporter_testing.hpp"
#include "module/py_ref.hpp"
#include "module/type_objects.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

TEST(SetError, TakesLiteralsAndStringsAndReplacesThePendingError) {
  setError(PyExc_ValueError, "first");
  setError(PyExc_TypeError, std::string("second"));
  EXPECT_TRUE(raised(PyExc_TypeError, "second"));
  EXPECT_TRUE(raisedNothing());
}

TEST(SetOutOfMemory, NamesCountAndType) {
  setOutOfMemory(7, "int8");
  EXPECT_TRUE(raised(PyExc_MemoryError,
                     "unable to allocate memory for array with number of elements = 7; "
                     "type = int8"));
  setOutOfMemory(std::nullopt, "double");
  EXPECT_TRUE(raised(PyExc_MemoryError,
                     "unable to allocate memory for array with number of elements = "
                     "18446744073709551615; type = double"));
}

TEST(PrintAndClearErrorIfAny, PrintsToTheErrorStreamOfPython) {
  const PyRef before = PyRef::borrow(PySys_GetObject("stderr"));
  const PyRef stream = evaluate("__import__('io').StringIO()");
  PySys_SetObject("stderr", stream.get());
  printAndClearErrorIfAny();
  const std::string withoutError = textOf(evaluate("s.getvalue()", {{"s", stream}}).get());
  setError(PyExc_ValueError, "printed text");
  printAndClearErrorIfAny();
  PySys_SetObject("stderr", before.get());

  EXPECT_EQ(withoutError, "");
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(textOf(evaluate("s.getvalue()", {{"s", stream}}).get()), "ValueError: printed text\n");
}

TEST(MakePyObjectFromLong, GivesInts) {
  for (const long value :
       {0L, 1L, -1L, 4096L, std::numeric_limits<long>::min(), std::numeric_limits<long>::max()}) {
    const PyRef number = PyRef::steal(makePyObjectFromLong(value));
    EXPECT_EQ(reprOf(number), std::to_string(value));
    EXPECT_EQ(Py_TYPE(number.get()), &PyLong_Type);
  }
}

TEST(ExceptionClasses, AreThoseOfTheModule) {
  const PyRef shapeError = evaluate("__import__('velmarmultidimarrayforpython').ShapeError");
  const PyRef sizeError = evaluate("__import__('velmarmultidimarrayforpython').SizeError");
  EXPECT_EQ(MCPyError::shapeErr, shapeError.get());
  EXPECT_EQ(MCPyError::sizeErr, sizeError.get());
  EXPECT_EQ(ArrayArray::s_arrayClass, evaluate("__import__('array').array").get());
  EXPECT_EQ(ArrayArray::s_arrayModule, nullptr);
}

// --- Tests of a type

struct TypeRow {
  const char* expression;
  bool isLong;
  bool isText;
  bool isEmpty;
};
constexpr TypeRow typeRows[] = {
    {"5", true, false, false},
    {"True", true, false, false},
    {"type('Int', (int,), {})(5)", true, false, false},
    {"2**70", true, false, false},
    {"type('Index', (), {'__index__': lambda self: 1})()", false, false, false},
    {"1.0", false, false, false},
    {"'text'", false, true, false},
    {"type('Text', (str,), {})('text')", false, true, false},
    {"b'bytes'", false, false, false},
    {"bytearray(b'bytes')", false, false, false},
    {"None", false, false, true},
    {"[]", false, false, false},
    {"0", true, false, false},
};

TEST(TypeTests, TellIntsTextsAndNone) {
  for (const TypeRow& row : typeRows) {
    SCOPED_TRACE(row.expression);
    const PyRef object = evaluate(row.expression);
    EXPECT_EQ(pyObjectIsLong(object.get()), row.isLong);
    EXPECT_EQ(pyObjectIsUnicodeOrString(object.get()), row.isText);
    EXPECT_EQ(pyObjectIsEmpty(object.get()), row.isEmpty);
  }
  EXPECT_TRUE(pyObjectIsEmpty(nullptr));
}

TEST(TypeTests, ReadOneFlag) {
  const PyRef list = evaluate("[]");
  EXPECT_TRUE(typeHasFlag(list.get(), Py_TPFLAGS_LIST_SUBCLASS));
  EXPECT_FALSE(typeHasFlag(list.get(), Py_TPFLAGS_DICT_SUBCLASS));
}

// --- References

class References : public ::testing::Test {
 protected:
  // The number of references to the object besides that of the fixture.
  Py_ssize_t others() const { return Py_REFCNT(m_object.get()) - 1; }

  PyRef m_object = evaluate("[]");
};

TEST_F(References, AreTakenAndReleased) {
  {
    const PyRef borrowed = PyRef::borrow(m_object.get());
    EXPECT_EQ(others(), 1);
    PyObject* raw = PyRef::borrow(m_object.get()).release();
    EXPECT_EQ(others(), 2);
    const PyRef stolen = PyRef::steal(raw);
    EXPECT_EQ(others(), 2);
    EXPECT_EQ(stolen.get(), m_object.get());
  }
  EXPECT_EQ(others(), 0);
}

TEST_F(References, MoveWithoutCounting) {
  PyRef first = PyRef::borrow(m_object.get());
  PyRef second = std::move(first);
  EXPECT_EQ(others(), 1);
  PyRef third;
  EXPECT_FALSE(third);
  third = std::move(second);
  EXPECT_TRUE(third);
  EXPECT_EQ(others(), 1);
  third = PyRef();
  EXPECT_EQ(others(), 0);
}

PyRef* s_place = nullptr;
PyObject* objectInPlace(PyObject* /*module*/, PyObject* /*none*/) {
  return PyRef::borrow(s_place->get()).release();
}
PyMethodDef s_objectInPlace = {"objectInPlace", objectInPlace, METH_NOARGS, nullptr};

TEST_F(References, AssignmentReleasesTheOldObjectLast) {
  const PyRef seen = evaluate("[]");
  const PyRef look = PyRef::steal(PyCFunction_NewEx(&s_objectInPlace, nullptr, nullptr));
  PyRef place = evaluate("type('Ends', (), {'__del__': lambda self: seen.append(look())})()",
                         {{"seen", seen}, {"look", look}});
  s_place = &place;
  place = PyRef::borrow(m_object.get());
  EXPECT_EQ(PyList_GetItem(seen.get(), 0), m_object.get());
}

TEST_F(References, KeptForeverIsKept) {
  keepForever(PyRef::borrow(m_object.get()));
  EXPECT_EQ(others(), 1);
  const PyRef release = PyRef::steal(m_object.get());  // so that the test leaks nothing
}

TEST_F(References, NullIsAllowed) {
  EXPECT_FALSE(PyRef::steal(nullptr));
  EXPECT_FALSE(PyRef::borrow(nullptr));
  EXPECT_EQ(PyRef().release(), nullptr);
}

// --- Recursion

std::size_t depthReached() {
  const RecursionGuard guard(" in a test");
  return guard ? 1 + depthReached() : 0;
}

TEST(Recursion, TooDeepIsARecursionError) {
  const std::size_t depth = depthReached();
  EXPECT_GT(depth, 100U);
  const PythonError error = takeError();
  EXPECT_EQ(error.type.get(), PyExc_RecursionError);
  EXPECT_NE(error.text.find(" in a test"), std::string::npos) << error.text;
}

TEST(Recursion, LevelsAreReleased) {
  const std::size_t first = depthReached();
  EXPECT_TRUE(raisedOwn(PyExc_RecursionError));
  EXPECT_EQ(depthReached(), first);
  EXPECT_TRUE(raisedOwn(PyExc_RecursionError));
}

// --- Errors put aside

TEST(PutAside, NoErrorIsPendingMeanwhile) {
  setError(PyExc_ValueError, "first");
  {
    const ErrorPutAside aside;
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_EQ(reprOf(evaluate("1 + 1")), "2");
  }
  EXPECT_TRUE(raised(PyExc_ValueError, "first"));
}

TEST(PutAside, LaterErrorIsDropped) {
  for (const bool isPending : {true, false}) {
    if (isPending) setError(PyExc_ValueError, "first");
    {
      const ErrorPutAside aside;
      setError(PyExc_TypeError, "second");
    }
    EXPECT_TRUE(isPending ? raised(PyExc_ValueError, "first") : raisedNothing());
  }
}

// --- Buffers of other objects

TEST(BufferGuards, AreReleasedAtTheEndOfTheScope) {
  SampleExporter<double> exporter({2, 3});
  {
    BufferGuard buffer;
    EXPECT_TRUE(buffer.obtain(exporter.object.get(), PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT));
    EXPECT_EQ(buffer.view().buf, exporter.exports.buf);
    EXPECT_EQ(buffer.view().obj, exporter.object.get());
    EXPECT_EQ(exporter.exports.flags, PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT);
    EXPECT_EQ(exporter.exports.released, 0);
  }
  EXPECT_EQ(exporter.exports.obtained, 1);
  EXPECT_EQ(exporter.exports.released, 1);
  EXPECT_EQ(Py_REFCNT(exporter.object.get()), 1);
}

TEST(BufferGuards, ThatWereRefusedAreNotReleased) {
  SampleExporter<double> exporter({2, 3});
  exporter.exports.refuses = true;
  {
    BufferGuard buffer;
    EXPECT_FALSE(buffer.obtain(exporter.object.get(), PyBUF_SIMPLE));
  }
  EXPECT_TRUE(raised(PyExc_LookupError, "nothing to export."));
  EXPECT_EQ(exporter.exports.released, 0);
  EXPECT_EQ(Py_REFCNT(exporter.object.get()), 1);
}

TEST(BufferGuards, FilledInPlaceAreReleasedOnlyIfHeld) {
  SampleExporter<double> exporter({2, 3});
  Py_buffer kept = {};
  for (const bool isHeld : {true, false}) {
    BufferGuard buffer;
    EXPECT_EQ(buffer.place(), &buffer.view());
    ASSERT_EQ(PyObject_GetBuffer(exporter.object.get(), buffer.place(), PyBUF_SIMPLE), 0);
    if (isHeld) buffer.hold();
    if (!isHeld) kept = buffer.view();
  }
  EXPECT_EQ(exporter.exports.obtained, 2);
  EXPECT_EQ(exporter.exports.released, 1);
  PyBuffer_Release(&kept);
  EXPECT_EQ(exporter.exports.released, 2);
}

// The release may run Python code, which must not start with an error pending.
TEST(BufferGuards, PendingErrorIsPutAsideForTheRelease) {
  SampleExporter<double> exporter({2, 3});
  bool wasPending = true;
  exporter.exports.onRelease = [&wasPending] { wasPending = PyErr_Occurred() != nullptr; };
  {
    BufferGuard buffer;
    ASSERT_TRUE(buffer.obtain(exporter.object.get(), PyBUF_SIMPLE));
    setError(PyExc_ValueError, "pending");
  }
  EXPECT_FALSE(wasPending);
  EXPECT_TRUE(raised(PyExc_ValueError, "pending"));
  EXPECT_EQ(exporter.exports.released, 1);
}

}  // namespace
