// reshape().
#include "operations/reshaping.hpp"

#include <string>

#include "module/dimensions.hpp"
#include "module/py_ref.hpp"
#include "module/signals.hpp"
#include "module/support.hpp"
#include "operations/handlers.hpp"
#include "storage/mcpy_array.hpp"

namespace {

constexpr const char* notDimensions =
    "reshape() must be passed a nonempty sequence of nonnegative integers.";

PyObject* refuse(PyObject* exceptionType, const std::string& message) {
  setError(exceptionType, message);
  return nullptr;
}

// A single argument is the sequence itself. Empty with an error set.
std::vector<std::int64_t> readArguments(PyObject* args) {
  // Empty arguments have no item 0, and the error below replaces that of reading it, so no
  // test detects a change of `0` to `1`.
  const Py_ssize_t count = pyObjectIsEmpty(args) ? 0 : PySequence_Size(args);
  if (count > 1) return getDimsFromReshapeArg(args);
  const PyRef only = PyRef::steal(count == 1 ? PySequence_GetItem(args, 0) : nullptr);
  if (only) return getDimsFromReshapeArg(only.get());
  setError(PyExc_ValueError, notDimensions);
  return {};
}

// False with ShapeError set. The message shows the product as it wraps around.
bool numberOfElementsMatches(const std::vector<std::int64_t>& dimensions, std::int64_t count) {
  if (count >= 0 && exactProduct(dimensions) == static_cast<std::uint64_t>(count)) return true;
  const auto product = static_cast<std::int64_t>(wrappedProduct(dimensions));
  setError(MCPyError::shapeErr, "number of elements specified by arguments to reshape() (" +
                                    std::to_string(product) + ") does not match current number (" +
                                    std::to_string(count) + ").");
  return false;
}

}  // namespace

std::vector<std::int64_t> getDimsFromReshapeArg(PyObject* argument) {
  const Py_ssize_t length = PySequence_Check(argument) != 0 ? PySequence_Size(argument) : 0;
  if (length <= 0) {
    setError(PyExc_ValueError, notDimensions);
    return {};
  }
  std::vector<std::int64_t> dimensions;
  // Throws when the list cannot be had, before an item is asked for.
  dimensions.reserve(static_cast<std::size_t>(length));
  SignalWatch signals;
  for (Py_ssize_t i = 0; i < length; ++i) {
    if (!signals.count()) return {};
    const PyRef item = PyRef::steal(PySequence_GetItem(argument, i));
    if (!item) {
      setError(PyExc_RuntimeError, "Item " + std::to_string(i) +
                                       " could not be retrieved from the value passed to "
                                       "reshape().");
      return {};
    }
    const Py_ssize_t dimension = pyObjectIsLong(item.get()) ? PyLong_AsSsize_t(item.get()) : -1;
    if (dimension < 0) {
      setError(PyExc_ValueError, notDimensions);
      return {};
    }
    dimensions.push_back(dimension);
  }
  dropTrailingOnes(dimensions);
  return dimensions;
}

PyObject* MCPyArray_Reshape(PyObject* self, PyObject* args, PyObject* kwargs) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  if (view->getNumberOfIntegerIndicesSoFar() > 0) {
    return refuse(PyExc_RuntimeError, "reshape() not supported for a partial array.");
  }
  const std::vector<std::int64_t> dimensions = readArguments(args);
  if (dimensions.empty()) return nullptr;
  MDArrayWrapper* storage = view->borrowWrapper();
  const std::int64_t count = storage != nullptr ? storage->getNumberOfElements() : -1;
  if (!numberOfElementsMatches(dimensions, count)) return nullptr;
  if (kwargs != nullptr) {
    return refuse(PyExc_ValueError, "reshape() does not accept keyword arguments.");
  }
  if (!storage->reshape(dimensions, 'F')) {
    setOutOfMemory(static_cast<std::uint64_t>(count), typeWordOf(view->getSupportedArrayEnum()));
    return nullptr;
  }
  return PyRef::borrow(self).release();
}
