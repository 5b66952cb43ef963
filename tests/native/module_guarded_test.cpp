// The guard of the entry points: which Python error each C++ exception becomes, and what the
// functions of the tables then return.
#include "module/entry/guarded.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <velmardata/exceptions.hpp>

#include "module/element_types.hpp"
#include "module/support.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

template <class Exception>
struct Thrower {
  static Exception make() {
    if constexpr (std::is_constructible_v<Exception, const char*>) {
      return Exception("words of the exception");
    } else {
      return Exception();
    }
  }
  static PyObject* object(PyObject*) { throw make(); }
  static void* address(PyObject*, int*) { throw make(); }
  static int status(PyObject*, PyObject*, PyObject*) { throw make(); }
  static Py_ssize_t length(PyObject*) { throw make(); }
  static bool flag(PyObject*) { throw make(); }
  static void nothing(PyObject*) { throw make(); }
};

// Calls a function of each signature; the error of each has to be the one that `isRaised` tests.
template <class Exception, class IsRaised>
void expectFailures(IsRaised isRaised) {
  using Throws = Thrower<Exception>;
  EXPECT_EQ(guarded<Throws::object>(nullptr), nullptr);
  EXPECT_TRUE(isRaised());
  EXPECT_EQ(guarded<Throws::address>(nullptr, nullptr), nullptr);
  EXPECT_TRUE(isRaised());
  EXPECT_EQ(guarded<Throws::status>(nullptr, nullptr, nullptr), -1);
  EXPECT_TRUE(isRaised());
  EXPECT_EQ(guarded<Throws::length>(nullptr), -1);
  EXPECT_TRUE(isRaised());
  EXPECT_FALSE(guarded<Throws::flag>(nullptr));
  EXPECT_TRUE(isRaised());
  guarded<Throws::nothing>(nullptr);
  EXPECT_TRUE(isRaised());
}

TEST(Guarded, LackOfMemoryIsMemoryError) {
  const auto isRaised = [] { return raised(PyExc_MemoryError, ""); };
  expectFailures<std::bad_alloc>(isRaised);
  expectFailures<std::bad_array_new_length>(isRaised);
  expectFailures<std::length_error>(isRaised);
}

TEST(Guarded, OthersAreRuntimeErrorWithTheirText) {
  const auto isRaised = [] { return raised(PyExc_RuntimeError, "words of the exception"); };
  expectFailures<std::runtime_error>(isRaised);
  expectFailures<std::out_of_range>(isRaised);
  expectFailures<std::invalid_argument>(isRaised);
  expectFailures<foundation::velmardata::EArrayUnknownDataType>(
      [] { return raised(PyExc_RuntimeError, "Unknown DataType field in velmar::data::Array."); });
}

TEST(Guarded, ReplacesThePendingError) {
  setError(PyExc_OverflowError, "pending");
  EXPECT_EQ(guarded<Thrower<std::bad_alloc>::object>(nullptr), nullptr);
  EXPECT_TRUE(raised(PyExc_MemoryError, ""));
  setError(PyExc_OverflowError, "pending");
  EXPECT_EQ(guarded<Thrower<std::runtime_error>::object>(nullptr), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "words of the exception"));
}

int difference(int a, int b) {
  return a - b;
}

PyObject* failWithAnError(PyObject*) {
  setError(PyExc_ValueError, "set by the handler");
  return nullptr;
}

TEST(Guarded, PassesArgumentsResultsAndErrorsOn) {
  EXPECT_EQ(guarded<difference>(7, 9), -2);
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(guarded<failWithAnError>(nullptr), nullptr);
  EXPECT_TRUE(raised(PyExc_ValueError, "set by the handler"));
}

}  // namespace
