// The parser's work that does not depend on the element type, and its instances.
#include "construct/constructor_arguments_impl.hpp"
#include "construct/flattening_impl.hpp"
#include "construct/size_reconciliation_impl.hpp"
#include "construct/vector_route_impl.hpp"

namespace {

// Whether an object is a sequence, and its size if so: what the children of a level agree in.
struct Child {
  bool isSequence = false;
  Py_ssize_t size = 0;
  bool operator==(const Child&) const = default;
};

// False with an error set when the child cannot be asked.
bool describeChild(PyObject* parent, Py_ssize_t index, Child& child) {
  const PyRef item = PyRef::steal(PySequence_GetItem(parent, index));
  if (!item) {
    setError(PyExc_RuntimeError, messages::nullDataPointer);
    return false;
  }
  child.isSequence = PySequence_Check(item.get()) != 0;
  child.size = child.isSequence ? PySequence_Size(item.get()) : 0;
  return child.size >= 0;
}

}  // namespace

std::optional<std::int64_t> getLengthOfPySequence(PyObject* value) {
  if (PySequence_Check(value) == 0) return 1;
  const Py_ssize_t length = PySequence_Size(value);
  if (length < 2) return length;
  Child first;
  if (!describeChild(value, 0, first)) return std::nullopt;
  for (Py_ssize_t i = 1; i < length; ++i) {
    Child child;
    if (!describeChild(value, i, child) || child != first) return std::nullopt;
  }
  return length;
}

bool size_reconciliation::readDimension(PyObject* size, Py_ssize_t index,
                                        std::int64_t& dimension) {
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
