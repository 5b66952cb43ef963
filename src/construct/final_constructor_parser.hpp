// The short-lived worker of one construction: from constructor arguments to a filled buffer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "construct/element_store.hpp"
#include "module/element_types.hpp"
#include "module/py_ref.hpp"

// "2, 3" of {2, 3}.
template <class Index>
std::string getDimensionsAsStdString(const std::vector<Index>& dimensions);

// The four arguments of a constructor call, absent ones null. Strong references: reading one
// argument can run code that drops the others from the caller's dict.
struct ConstructorArguments {
  PyRef initializer;
  PyRef size;
  PyRef vector;
  PyRef isComplex;
  PyObject* kwargs = nullptr;  // borrowed

  // False with the interpreter's exception set.
  bool parse(PyObject* args, PyObject* keywords);
};

// A bool argument. With `ok` false TypeError is set: only True and False themselves will do.
bool retrieveBoolKwarg(PyObject* value, const char* name, bool& ok);

// The length of a sequence level, 1 for an object that is no sequence; nothing when its children
// do not agree in being sequences and in length, or with an error set when they cannot be asked.
std::optional<std::int64_t> getLengthOfPySequence(PyObject* value);

// Whether two different letters of the buffer protocol denote the same representation in an item
// of that many bytes: a long by its width, a byte and a bool.
bool areDifferentButCompatible(char input, char output, long itemsize);

// One object a call, on the stack. T is one of the 22 element types; characters are for
// internal use. A false or empty result has a Python exception set.
template <class T>
class FinalConstructorParser {
 public:
  FinalConstructorParser() = default;
  FinalConstructorParser(const FinalConstructorParser&) = delete;
  FinalConstructorParser& operator=(const FinalConstructorParser&) = delete;

  // The elements that the arguments give. With `ok` false the buffer is a null one.
  ElementBuffer<T> processConstructorArgsAndKwargs(const ConstructorArguments& arguments, bool& ok);

  // The nested elements of one Python object, appended in nesting order, last level fastest.
  bool flattenWithUnspecifiedDimensions(PyObject* value, bool allowFloatingPoint);

  // The flattened elements in a block of their own; the parser keeps their number only.
  ElementBuffer<T> getFilledBuffer();

  // The product of the dimensions, cached once it is positive.
  std::int64_t calculateNumberOfElements();

  const std::vector<std::int64_t>& getCalculatedDimensions() const { return calculatedDimensions; }
  const std::vector<std::int64_t>& getDimensions() const {
    return specifiedDimensions.empty() ? calculatedDimensions : specifiedDimensions;
  }
  const T* getFlattenedElements() const { return flattenedElements.data(); }
  // A single calculated dimension n becomes 1 and n.
  void makeTwoDimensional() {
    if (calculatedDimensions.size() == 1) {
      calculatedDimensions.insert(calculatedDimensions.begin(), 1);
    }
  }
  bool isBufferInStorageOrder() const { return bufferInStorageOrder; }
  std::int64_t getNumberOfFlattenedElements() const {
    return static_cast<std::int64_t>(flattenedElements.size());
  }

 private:
  // size
  bool processSizeKwarg(PyObject* size);
  bool processSize(const std::vector<std::int64_t>& dimensions);
  bool reserveBuffer(std::uint64_t count);
  bool growTo(std::uint64_t count);
  bool specifiedAndCalculatedDimensionsMatch();
  bool handleSingleSingletonDimensionEdgeCase(bool expandSingleDimension, bool copyToSpecified);
  void setMismatch(PyObject* exceptionClass) const;
  bool dimensionsHold(std::uint64_t count) const;
  ElementBuffer<T> makeZeroFilledBuffer(bool& ok);

  // initializer
  ElementBuffer<T> processInitializerKwarg(PyObject* initializer, bool& ok);
  bool fillFromBufferOf(PyObject* exporter);
  bool fillVectorFromExternalBuffer(const Py_buffer& view);
  bool takeDimensionsOf(const Py_buffer& view, std::uint64_t count);
  bool takeElementsOf(const Py_buffer& view, std::uint64_t count);
  bool flattenSequence(PyObject* value, bool allowFloatingPoint);
  bool flattenItems(PyObject* value, std::int64_t length, bool allowFloatingPoint);
  bool flattenPlainNumbers(PyObject* value, bool allowFloatingPoint);
  bool flattenLeaf(PyObject* value, bool allowFloatingPoint);
  bool prepareForLeaves(std::uint64_t count);
  bool enterLevel(std::int64_t length);
  bool leaveLevel();

  // vector
  ElementBuffer<T> processVectorKwarg(PyObject* vector, bool& ok);
  bool fillFromVector(PyObject* vector, std::int64_t length, T* elements);

  static ElementBuffer<T> noBuffer() {
    return ElementBuffer<T>(nullptr, [](void*) {});
  }

  std::vector<std::int64_t> specifiedDimensions;   // from `size`, empty without it
  std::vector<std::int64_t> calculatedDimensions;  // from the data
  foundation::velmardata::standalone::ClientArrayFactory arrayFactory;
  std::int64_t numberOfElements = 0;  // 0 while not yet calculated
  bool bufferInStorageOrder = false;  // elements need no reordering
  bool bufferReserved = false;        // done at most once
  ElementStore<T> flattenedElements{arrayFactory};
  std::uint64_t currentDepth = 0;
  std::int64_t leafDepth = 0;                 // of the first scalar, 0 before it
  std::vector<std::int64_t> sequenceLengths;  // of the sequence being walked at each depth
};
