// PyRef, the only owner of strong references. Nothing else changes a reference count.
#pragma once

#include "module/python.hpp"

#include <utility>

class PyRef {
 public:
  PyRef() noexcept = default;
  static PyRef steal(PyObject* object) noexcept { return PyRef(object); }
  static PyRef borrow(PyObject* object) noexcept {
    Py_IncRef(object);
    return PyRef(object);
  }
  PyRef(const PyRef&) = delete;
  PyRef& operator=(const PyRef&) = delete;
  PyRef(PyRef&& other) noexcept : m_object(other.release()) {}
  PyRef& operator=(PyRef&& other) noexcept {
    PyRef old(std::exchange(m_object, other.release()));  // dies last: may run Python code
    return *this;
  }
  ~PyRef() { Py_DecRef(m_object); }  // null is allowed

  PyObject* get() const noexcept { return m_object; }
  [[nodiscard]] PyObject* release() noexcept { return std::exchange(m_object, nullptr); }
  explicit operator bool() const noexcept { return m_object != nullptr; }

 private:
  explicit PyRef(PyObject* object) noexcept : m_object(object) {}
  PyObject* m_object = nullptr;
};

// Gives up a reference without releasing it, so that the object lives as long as the process. Every
// use states its reason.
inline void keepForever(PyRef&& reference) noexcept {
  static_cast<void>(reference.release());
}
