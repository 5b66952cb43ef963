// Text forms: the nested list as Python prints it, without blanks.
#include <algorithm>
#include <complex>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "module/py_ref.hpp"
#include "module/signals.hpp"
#include "module/support.hpp"
#include "operations/handlers.hpp"
#include "operations/nested_lists.hpp"
#include "storage/mcpy_array.hpp"

namespace {

// The list of what the view shows; null with an error set. T is the element type of the class.
template <class T>
PyRef listOf(const MCppPyArray& view, SignalWatch& signals) {
  PyObject* list = nullptr;
  if constexpr (std::is_same_v<T, bool>) {
    list = getAllContentsAsPyList<T>(view, &signals);
  } else {
    list = view.isComplex() ? getAllContentsAsPyList<std::complex<T>>(view, &signals)
                            : getAllContentsAsPyList<T>(view, &signals);
  }
  PyRef owned = PyRef::steal(list);
  // A list can come with null items where elements were out of reach, and the error set.
  return PyErr_Occurred() == nullptr ? std::move(owned) : PyRef();
}

bool isList(PyObject* object) {
  return Py_TYPE(object) == &PyList_Type;
}

// Python's text of a nested list without its blanks. A long list is turned into text part by part:
// then there is one text of it at a time, and signals are seen between two parts. Other code may
// change the list meanwhile.
class TextBuilder {
 public:
  explicit TextBuilder(SignalWatch& signals) : m_signals(signals) {}

  void appendAscii(const char* text) { m_end += text; }

  // False with an error set.
  bool appendList(PyObject* list) {
    const Py_ssize_t length = PyList_Size(list);
    const Py_ssize_t below = length > 0 ? elementsBelow(PyList_GetItem(list, 0)) : 1;
    // The size of a part affects only memory and speed, so no test detects a change of
    // `elementsOfPart / below`.
    const Py_ssize_t itemsOfPart = below < elementsOfPart ? elementsOfPart / below : 0;
    if (length <= itemsOfPart) return appendText(list, Brackets::Keep);
    m_end += '[';
    const bool isAppended =
        itemsOfPart > 0 ? appendInSlices(list, length, itemsOfPart) : appendItems(list, length);
    m_end += ']';
    return isAppended;
  }

  // New reference; null with an error set. The builder is empty afterwards.
  PyObject* take() {
    if (!m_text) return makeEnd();
    return moveEnd() ? m_text.release() : nullptr;
  }

 private:
  enum class Brackets { Keep, Drop };

  static constexpr Py_ssize_t elementsOfPart = 4096;
  static constexpr std::size_t longestEnd = std::size_t{1} << 16;

  // How many elements an item of a list has, by the first path down; never less than 1. Stops
  // counting at a part.
  static Py_ssize_t elementsBelow(PyObject* item) {
    Py_ssize_t count = 1;
    while (isList(item) && count < elementsOfPart) {
      const Py_ssize_t length = PyList_Size(item);
      if (length == 0) break;
      count *= length;
      item = PyList_GetItem(item, 0);
    }
    return std::min(count, elementsOfPart);
  }

  bool appendInSlices(PyObject* list, Py_ssize_t length, Py_ssize_t step) {
    for (Py_ssize_t i = 0; i < length; i += step) {
      if (i > 0) m_end += ',';
      const PyRef slice = PyRef::steal(PyList_GetSlice(list, i, i + step));
      if (!slice || !appendText(slice.get(), Brackets::Drop)) return false;
    }
    return true;
  }

  bool appendItems(PyObject* list, Py_ssize_t length) {
    const RecursionGuard guard(" while making a nested list of an array");
    if (!guard) return false;
    for (Py_ssize_t i = 0; i < length; ++i) {
      if (i > 0) m_end += ',';
      const PyRef item = PyRef::borrow(PyList_GetItem(list, i));
      if (!item) return false;
      if (!(isList(item.get()) ? appendList(item.get()) : appendText(item.get(), Brackets::Keep))) {
        return false;
      }
    }
    return true;
  }

  bool appendText(PyObject* object, Brackets brackets) {
    const PyRef text = PyRef::steal(PyObject_Str(object));
    Py_ssize_t size = 0;
    const char* bytes = text ? PyUnicode_AsUTF8AndSize(text.get(), &size) : nullptr;
    if (bytes == nullptr) return false;
    std::string_view part(bytes, static_cast<std::size_t>(size));
    if (brackets == Brackets::Drop) part = part.substr(1, part.size() - 2);
    const std::size_t before = m_end.size();
    m_end.append(part);
    m_end.erase(std::remove(m_end.begin() + static_cast<std::ptrdiff_t>(before), m_end.end(), ' '),
                m_end.end());
    if (m_end.size() < longestEnd) return true;
    return moveEnd() && m_signals.count(elementsOfPart);
  }

  PyObject* makeEnd() const {
    return PyUnicode_FromStringAndSize(m_end.data(), static_cast<Py_ssize_t>(m_end.size()));
  }

  // Moves the end to the text, which grows in place. False with an error set.
  bool moveEnd() {
    const PyRef end = PyRef::steal(makeEnd());
    m_end.clear();
    if (!end) return false;
    PyObject* text = m_text ? m_text.release() : PyUnicode_FromStringAndSize("", 0);
    if (text != nullptr) PyUnicode_Append(&text, end.get());
    m_text = PyRef::steal(text);
    return static_cast<bool>(m_text);
  }

  SignalWatch& m_signals;
  PyRef m_text;       // without its end; null while everything is in the end
  std::string m_end;  // of bounded length
};

template <class T>
PyObject* getStr(PyObject* self, bool useConstructorForm) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  SignalWatch signals;
  const PyRef list = listOf<T>(*view, signals);
  if (!list) return nullptr;
  TextBuilder text(signals);
  if (useConstructorForm) {
    text.appendAscii("velmar.");
    text.appendAscii(typeWordOf(view->getSupportedArrayEnum()));
    text.appendAscii("(");
  }
  if (!text.appendList(list.get())) return nullptr;
  if (useConstructorForm) text.appendAscii(view->isComplex() ? ", is_complex=True)" : ")");
  return text.take();
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
