// Text forms: the nested list as Python prints it, without blanks.
#include "operations/text_forms.hpp"

#include <complex>
#include <optional>
#include <string>

#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

template <class T>
std::optional<std::string> MCppPyArray::getStrAsStdString(bool useConstructorForm,
                                                          bool keepSpaces) const {
  const PyRef list = PyRef::steal(getAllContentsAsPyList<T>());
  // A list can come with null items in it, where an element was out of reach; the error says so.
  if (!list || PyErr_Occurred() != nullptr) return std::nullopt;
  const PyRef text = PyRef::steal(PyObject_Str(list.get()));
  if (!text) return std::nullopt;
  const char* bytes = PyUnicode_AsUTF8AndSize(text.get(), nullptr);
  if (bytes == nullptr) return std::nullopt;

  std::string form;
  if (useConstructorForm) form = std::string("velmar.") + typeWord<T> + "(";
  form += bytes;
  if (!keepSpaces) std::erase(form, ' ');
  if (useConstructorForm) form += isComplex() ? ", is_complex=True)" : ")";
  return form;
}

template <class T>
PyObject* MCppPyArray::getStr(bool useConstructorForm, bool keepSpaces) const {
  const std::optional<std::string> text = getStrAsStdString<T>(useConstructorForm, keepSpaces);
  if (!text) return nullptr;
  return PyUnicode_Decode(text->data(), static_cast<Py_ssize_t>(text->size()), nullptr, nullptr);
}

namespace {

template <class T>
PyObject* getText(PyObject* self, bool useConstructorForm) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  return view->isComplex() ? view->getStr<std::complex<T>>(useConstructorForm, false)
                           : view->getStr<T>(useConstructorForm, false);
}

}  // namespace

template <class T>
PyObject* MCPyArray_GetStr(PyObject* self) {
  return getText<T>(self, false);
}

template <class T>
PyObject* MCPyArray_GetRepr(PyObject* self) {
  return getText<T>(self, true);
}

#define X(name, number, enumerator, type, ...)          \
  template PyObject* MCPyArray_GetStr<type>(PyObject*); \
  template PyObject* MCPyArray_GetRepr<type>(PyObject*);
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
#define X(type)                                                                               \
  template std::optional<std::string> MCppPyArray::getStrAsStdString<type>(bool, bool) const; \
  template PyObject* MCppPyArray::getStr<type>(bool, bool) const;
#define X_REAL_AND_COMPLEX(name, number, enumerator, type, ...) X(type) X(std::complex<type>)
VELMARDATA_FOR_EACH_CLASS_TYPE(X_REAL_AND_COMPLEX)
#undef X_REAL_AND_COMPLEX
#undef X
