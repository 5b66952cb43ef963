// Text forms: the nested list as Python prints it, without blanks.
#include <complex>
#include <optional>
#include <string>
#include <type_traits>

#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "operations/handlers.hpp"
#include "operations/nested_lists.hpp"
#include "storage/mcpy_array.hpp"

namespace {

// The list of what the view shows; null with an error set. T is the element type of the class.
template <class T>
PyRef listOf(const MCppPyArray& view) {
  PyObject* list = nullptr;
  if constexpr (std::is_same_v<T, bool>) {
    list = getAllContentsAsPyList<T>(view);
  } else {
    list = view.isComplex() ? getAllContentsAsPyList<std::complex<T>>(view)
                            : getAllContentsAsPyList<T>(view);
  }
  PyRef owned = PyRef::steal(list);
  // A list can come with null items where elements were out of reach, and the error set.
  return PyErr_Occurred() == nullptr ? std::move(owned) : PyRef();
}

// Empty with an error set.
std::optional<std::string> getStrAsStdString(const MCppPyArray& view, const PyRef& list,
                                             bool useConstructorForm) {
  const PyRef text = PyRef::steal(PyObject_Str(list.get()));
  if (!text) return std::nullopt;
  const char* bytes = PyUnicode_AsUTF8AndSize(text.get(), nullptr);
  if (bytes == nullptr) return std::nullopt;
  std::string form;
  if (useConstructorForm) {
    form = std::string("velmar.") + typeWordOf(view.getSupportedArrayEnum()) + "(";
  }
  form += bytes;
  std::erase(form, ' ');
  if (useConstructorForm) form += view.isComplex() ? ", is_complex=True)" : ")";
  return form;
}

template <class T>
PyObject* getStr(PyObject* self, bool useConstructorForm) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  const PyRef list = listOf<T>(*view);
  if (!list) return nullptr;
  const std::optional<std::string> text = getStrAsStdString(*view, list, useConstructorForm);
  if (!text) return nullptr;
  return PyUnicode_Decode(text->data(), static_cast<Py_ssize_t>(text->size()), nullptr, nullptr);
}

}  // namespace

template <class T>
PyObject* MCPyArray_GetStr(PyObject* self) {
  return getStr<T>(self, false);
}

template <class T>
PyObject* MCPyArray_GetRepr(PyObject* self) {
  return getStr<T>(self, true);
}

#define X(name, number, enumerator, type, ...)          \
  template PyObject* MCPyArray_GetStr<type>(PyObject*); \
  template PyObject* MCPyArray_GetRepr<type>(PyObject*);
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
