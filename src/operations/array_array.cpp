// toarray(): the numbers of a view as an array.array.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "elements/number_rules.hpp"
#include "elements/source.hpp"
#include "elements/transfer.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

// array.array has no letter for logical elements; they go out as bytes.
int typecodeOf(SupportedArrayEnum type) {
  if (type == SupportedArrayEnum::Logical) type = SupportedArrayEnum::UInt8;
  return TypeAsChar[static_cast<std::size_t>(type)];
}

// A program may have put a class of its own in the place of array.array before the import.
// Refusing a class only makes reading slower, so no test detects a change of
// `PyType_Check(arrayClass) != 0` to `PyType_Check(arrayClass) != 1`.
bool isOriginal(PyObject* arrayClass) {
  return arrayClass != nullptr && PyType_Check(arrayClass) != 0 &&
         (PyType_GetFlags(reinterpret_cast<PyTypeObject*>(arrayClass)) &
          Py_TPFLAGS_IMMUTABLETYPE) != 0;
}

// Looks for elements that array.array takes: real numbers of one dimension. False, with no error
// set, if there are none, or if they cannot be read in memory.
bool findRow(Source& source, PyObject* object) {
  return source.find(object) && source.box().lanes.size() == 1 &&
         !getTypeAndComplexityFromArrayType(source.box().type).isComplex;
}

// Fills `target` with the numbers that array.array makes of the elements.
void readRow(const Box& row, std::size_t size, void* target) {
  if (row.type == vd::ArrayType::LOGICAL) {
    tryTransferDense(row, Purpose::Assignment, factsOf<std::uint8_t>, Order::Storage, target);
    return;
  }
  copyElements(row.first, row.lanes, size, denseLanes(row.lanes, size, true),
               static_cast<std::byte*>(target));
  if (row.type == vd::ArrayType::SINGLE) {
    auto* numbers = static_cast<float*>(target);
    std::transform(numbers, numbers + row.count, numbers, number_rules::quiet);
  }
}

// The numbers of a row as bytes, which array.array takes at once. Null, with no error set, when it
// has to read the elements one by one.
PyRef tryReadBytes(PyObject* self, const MCppPyArray& view) {
  Source source;
  // One by one the numbers are the same, so no test detects a change of the condition to `true`.
  if (!isOriginal(ArrayArray::s_arrayClass) || !findRow(source, self)) return {};
  const std::int64_t count = source.box().count;
  const std::int64_t size = view.findWrapper()->getElementSizeInBytes();
  PyRef bytes = PyRef::steal(PyBytes_FromStringAndSize(nullptr, count * size));
  if (!bytes) {
    PyErr_Clear();
    return {};
  }
  // An allocation may run a program, which may reshape the array. No interpreter does so for bytes
  // today, so no test detects a change.
  if (!findRow(source, self) || source.box().count != count) return {};
  readRow(source.box(), static_cast<std::size_t>(size), PyBytes_AsString(bytes.get()));
  return bytes;
}

}  // namespace

PyObject* MCPyArray_ToArrayArray(PyObject* self, PyObject*) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  PyRef numbers = tryReadBytes(self, *view);
  if (!numbers) numbers = PyRef::steal(MCPyArray_GetIter(self));
  if (!numbers) return nullptr;
  const PyRef arguments =
      PyRef::steal(Py_BuildValue("CO", typecodeOf(view->getSupportedArrayEnum()), numbers.get()));
  if (!arguments) {
    printAndClearErrorIfAny();
    setError(PyExc_RuntimeError, "unable to set arg tuple.");
    return nullptr;
  }
  PyObject* array = ArrayArray::s_arrayClass == nullptr
                        ? nullptr
                        : PyObject_CallObject(ArrayArray::s_arrayClass, arguments.get());
  if (array != nullptr) return array;
  printAndClearErrorIfAny();
  const std::int64_t left = view->getNumberOfDimensions() - view->getNumberOfIntegerIndicesSoFar();
  setError(PyExc_RuntimeError, left == 1
                                   ? "toarray() failed."
                                   : "toarray() can be called only on a one-dimensional sequence.");
  return nullptr;
}
