// A limit on the interpreter's recursion, for tests of code that runs out of levels.
#pragma once

#include "module/python.hpp"

namespace python_testing {

// While it lives, only this many more levels of recursion can be entered. It is not set where the
// interpreter lets a million levels through; the tests that need it are skipped there.
class RecursionLimit {
 public:
  explicit RecursionLimit(int levels) {
    constexpr int most = 1000000;
    while (m_entered < most && Py_EnterRecursiveCall("") == 0) ++m_entered;
    m_isSet = m_entered < most;
    PyErr_Clear();
    for (; levels > 0 && m_entered > 0; --levels, --m_entered) Py_LeaveRecursiveCall();
  }
  RecursionLimit(const RecursionLimit&) = delete;
  RecursionLimit& operator=(const RecursionLimit&) = delete;
  ~RecursionLimit() {
    for (; m_entered > 0; --m_entered) Py_LeaveRecursiveCall();
  }
  bool isSet() const { return m_isSet; }

 private:
  int m_entered = 0;
  bool m_isSet = false;
};

}  // namespace python_testing
