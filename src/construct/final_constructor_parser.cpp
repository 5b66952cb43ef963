// The parser's work that does not depend on the element type, and its instances.
#include "construct/constructor_arguments_impl.hpp"
#include "construct/flattening_impl.hpp"
#include "construct/size_reconciliation_impl.hpp"
#include "construct/vector_route_impl.hpp"

namespace {

PyRef childOf(PyObject* parent, Py_ssize_t index) {
  PyRef child = PyRef::steal(PySequence_GetItem(parent, index));
  if (!child) setError(PyExc_RuntimeError, messages::nullDataPointer);
  return child;
}

// The size of a sequence, 0 for an object that is none; -1 with an error set.
Py_ssize_t sizeIfSequence(PyObject* object) {
  return PySequence_Check(object) != 0 ? PySequence_Size(object) : 0;
}

}  // namespace

std::optional<std::int64_t> getLengthOfPySequence(PyObject* value) {
  if (PySequence_Check(value) == 0) return 1;
  const Py_ssize_t length = PySequence_Size(value);
  if (length < 2) return length;
  const PyRef first = childOf(value, 0);
  if (!first) return std::nullopt;
  const bool isSequence = PySequence_Check(first.get()) != 0;
  const Py_ssize_t size = sizeIfSequence(first.get());
  if (size < 0) return std::nullopt;
  for (Py_ssize_t i = 1; i < length; ++i) {
    const PyRef child = childOf(value, i);
    // No size is asked of a child that disagrees already.
    if (!child || (PySequence_Check(child.get()) != 0) != isSequence ||
        sizeIfSequence(child.get()) != size) {
      return std::nullopt;
    }
  }
  return length;
}

bool areDifferentButCompatible(char input, char output, long itemsize) {
  switch (input) {
    case '?':
      return output == 'B';
    case 'B':
      return output == '?';
    case 'l':
      return output == (itemsize == 4 ? 'i' : 'q');
    case 'L':
      return output == (itemsize == 4 ? 'I' : 'Q');
    default:
      return false;
  }
}

bool size_reconciliation::readDimension(PyObject* size, Py_ssize_t index, std::int64_t& dimension) {
  const PyRef item = PyRef::steal(PySequence_GetItem(size, index));
  if (!item) {
    setError(PyExc_RuntimeError,
             "Item " + std::to_string(index) +
                 " could not be retrieved from the value associated with the 'size' keyword.");
    return false;
  }
  if (!pyObjectIsLong(item.get())) {
    setError(PyExc_TypeError, "dimensions must be nonnegative integers.");
    return false;
  }
  dimension = PyLong_AsSsize_t(item.get());
  if (dimension >= 0) return true;
  // Deliberate: an int too large to read gets these words too.
  setError(PyExc_ValueError,
           "size cannot contain negative dimensions. Use nonnegative integers for dimensions.");
  return false;
}

template <class Index>
std::string getDimensionsAsStdString(const std::vector<Index>& dimensions) {
  std::string text;
  for (Index dimension : dimensions) {
    if (!text.empty()) text += ", ";
    text += std::to_string(dimension);
  }
  return text;
}
template std::string getDimensionsAsStdString<long>(const std::vector<long>&);

bool ConstructorArguments::parse(PyObject* args, PyObject* keywords) {
  static char initializerName[] = "initializer";
  static char sizeName[] = "size";
  static char vectorName[] = "vector";
  static char isComplexName[] = "is_complex";
  static char* names[] = {initializerName, sizeName, vectorName, isComplexName, nullptr};
  PyObject* found[4] = {};
  if (PyArg_ParseTupleAndKeywords(args, keywords, "|OOOO", names, &found[0], &found[1], &found[2],
                                  &found[3]) == 0) {
    return false;
  }
  initializer = PyRef::borrow(found[0]);
  size = PyRef::borrow(found[1]);
  vector = PyRef::borrow(found[2]);
  isComplex = PyRef::borrow(found[3]);
  kwargs = keywords;
  return true;
}

bool retrieveBoolKwarg(PyObject* value, const char* name, bool& ok) {
  ok = value != nullptr && Py_TYPE(value) == &PyBool_Type;
  if (ok) return value == Py_True;
  setError(PyExc_TypeError, std::string("value passed to '") + name +
                                (value == nullptr ? "' is null." : "' must be a bool."));
  return true;
}

#define X(name, number, type) template class FinalConstructorParser<type>;
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
