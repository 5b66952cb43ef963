// The worker of one construction: from constructor arguments to a filled buffer.
#pragma once

#include <cstdint>
#include <optional>
#include <velmardata/velmardata.hpp>

#include "construct/construction_shape.hpp"
#include "construct/element_store.hpp"
#include "module/element_types.hpp"
#include "module/py_ref.hpp"

// The four arguments of a constructor call; absent ones are null. The references are strong,
// because reading one argument can run code that drops the others from the caller's dict.
struct ConstructorArguments {
  PyRef initializer;
  PyRef size;
  PyRef vector;
  PyRef isComplex;
  PyObject* kwargs = nullptr;  // borrowed

  // False with the interpreter's own error set.
  bool parse(PyObject* args, PyObject* keywords);
};

// The value of a bool argument. Empty with TypeError set for anything but True and False
// themselves.
std::optional<bool> retrieveBoolKwarg(PyObject* value, const char* name);

// One object for each construction or assignment, on the stack. T is one of the 22 element types;
// characters are for internal use. The parser converts and stores elements; what does not depend on
// T is in its shape.
template <class T>
class FinalConstructorParser {
 public:
  FinalConstructorParser() = default;
  FinalConstructorParser(const FinalConstructorParser&) = delete;
  FinalConstructorParser& operator=(const FinalConstructorParser&) = delete;

  // The elements that the arguments give; null with an error set. The dimensions are in the shape.
  ElementBuffer<T> processConstructorArgsAndKwargs(const ConstructorArguments& arguments);

  // Appends the nested elements of one Python object in nesting order, last level fastest. False
  // with an error set. allowFloatingPoint lets logical elements be made of floats.
  bool flattenWithUnspecifiedDimensions(PyObject* value, bool allowFloatingPoint);

  // The flattened elements in a block of their own; the parser keeps only their number. Null with
  // MemoryError set.
  ElementBuffer<T> getFilledBuffer();

  ConstructionShape& shape() { return m_shape; }
  // Null after getFilledBuffer().
  const T* getFlattenedElements() const { return flattenedElements.data(); }
  std::int64_t getNumberOfFlattenedElements() const {
    return static_cast<std::int64_t>(flattenedElements.size());
  }

 private:
  // size
  bool reserveBuffer(std::uint64_t count);
  bool growTo(std::uint64_t count);
  bool dimensionsHold(std::uint64_t count) const;
  ElementBuffer<T> takeReservedBuffer(std::uint64_t count);
  ElementBuffer<T> makeZeroFilledBuffer();

  // initializer
  ElementBuffer<T> processInitializerKwarg(PyObject* initializer);
  bool fillFromBufferOf(PyObject* exporter);
  bool fillVectorFromExternalBuffer(const Py_buffer& view);
  void takeElementsOf(const Py_buffer& view, std::uint64_t count);
  bool flattenSequence(PyObject* value, bool allowFloatingPoint);
  bool flattenItems(PyObject* value, std::int64_t length, bool allowFloatingPoint);
  bool tryFlattenPlainNumbers(PyObject* value, bool allowFloatingPoint);
  bool tryFlattenMemory(PyObject* value, bool allowFloatingPoint);
  bool tryTakeArray(PyObject* initializer);
  bool flattenLeaf(PyObject* value, bool allowFloatingPoint);
  bool prepareForLeaves(std::uint64_t count);

  // vector
  ElementBuffer<T> processVectorKwarg(PyObject* vector);
  bool fillFromVector(PyObject* vector, std::int64_t length, T* elements);

  ConstructionShape m_shape;
  SignalWatch m_signals;        // of all items that are not plain numbers in a plain sequence
  bool bufferReserved = false;  // a reservation is made at most once
  ElementStore<T> flattenedElements;
};
