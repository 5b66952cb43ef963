// Recognition of objects with elements in memory.
#include "elements/source.hpp"

#include <cassert>
#include <cstdint>

#include "module/type_objects.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

// The element type whose elements are read as the same Python numbers as items of a format of one
// letter; ArrayType{} for other formats.
vd::ArrayType typeOfItems(const char* format, Py_ssize_t itemsize) {
  assert(format != nullptr);  // a memoryview of bytes says "B"
  if (format[0] == '\0' || format[1] != '\0') return vd::ArrayType{};
  char letter = format[0];
  if (letter == 'l' || letter == 'L') {
    if (itemsize != 4 && itemsize != 8) return vd::ArrayType{};
    letter = letter == 'l' ? (itemsize == 4 ? 'i' : 'q') : (itemsize == 4 ? 'I' : 'Q');
  }
#define X(name, number, enumerator, type, suffix, word, ours)                \
  if (letter == (ours)) {                                                    \
    return itemsize == sizeof(type) ? vd::ArrayType::name : vd::ArrayType{}; \
  }
  VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
  return vd::ArrayType{};
}

// For items of a known type, which have at least one byte.
bool isAligned(const Py_buffer& view) {
  assert(view.itemsize > 0);
  const auto size = static_cast<std::uintptr_t>(view.itemsize);
  return reinterpret_cast<std::uintptr_t>(view.buf) % size == 0 &&
         view.strides[0] % view.itemsize == 0;
}

}  // namespace

// Here, so that the release of a buffer is compiled once.
Source::Source() = default;
Source::~Source() = default;

bool Source::find(PyObject* object) {
  PyTypeObject* type = Py_TYPE(object);
  if (PyErr_Occurred() != nullptr) return false;
  if (reinterpret_cast<PyObject*>(type) == ArrayArray::s_arrayClass || type == &PyMemoryView_Type) {
    return findInBuffer(object);
  }
  return MCPyArray_Check(object) && findInArray(object);
}

bool Source::findInArray(PyObject* object) {
  const MCppPyArray* view = getMCPyArrayFromPyObject(object)->mcppPyArray;
  if (view == nullptr || !hasOwnItems(view->getSupportedArrayEnum())) return false;
  std::optional<Box> box = findBox(*view);
  if (!box) return false;
  m_box = std::move(*box);
  return true;
}

bool Source::findInBuffer(PyObject* object) {
  if (!m_buffer.obtain(object, PyBUF_FULL_RO)) {
    PyErr_Clear();
    return false;
  }
  const Py_buffer& view = m_buffer.view();
  if (view.ndim != 1) return false;
  // These two classes always tell both when they are asked.
  assert(view.shape != nullptr);
  assert(view.strides != nullptr);
  if (view.shape[0] == 0 || view.suboffsets != nullptr) return false;
  m_box.type = typeOfItems(view.format, view.itemsize);
  if (m_box.type == vd::ArrayType{} || !isAligned(view)) return false;
  m_box.first = static_cast<const std::byte*>(view.buf);
  m_box.lanes = {{view.shape[0], view.strides[0]}};
  m_box.count = view.shape[0];
  return true;
}
