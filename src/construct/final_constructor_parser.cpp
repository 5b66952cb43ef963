// The constructor's arguments in the order in which they are looked at, `size` and `vector`; and
// the parser's instances.
#include "construct/final_constructor_parser.hpp"

#include <algorithm>
#include <array>
#include <cassert>
#include <string>

#include "construct/element_conversion_impl.hpp"
#include "construct/flattening_impl.hpp"
#include "construct/plain_sequence.hpp"
#include "elements/source.hpp"
#include "elements/transfer.hpp"
#include "module/dimensions.hpp"
#include "module/support.hpp"

namespace {

constexpr std::size_t numberOfArguments = 4;

// The names of the arguments as Python strings, made once and kept: names in a program's source are
// the same objects. Null entries when there was no memory for them.
const std::array<PyObject*, numberOfArguments>& argumentNames() {
  static const std::array<PyObject*, numberOfArguments> names = {
      PyUnicode_InternFromString("initializer"), PyUnicode_InternFromString("size"),
      PyUnicode_InternFromString("vector"), PyUnicode_InternFromString("is_complex")};
  return names;
}

bool isName(PyObject* key, PyObject* name) {
  if (key == name) return true;
  return name != nullptr && Py_TYPE(key) == &PyUnicode_Type && PyUnicode_Compare(key, name) == 0;
}

// Finds arguments that come as they should, by position or by name. False, with no error set, for
// all others; the interpreter's own function then decides, and finds the words.
bool tryParse(PyObject* args, PyObject* keywords,
              const std::array<PyRef*, numberOfArguments>& arguments) {
  const Py_ssize_t count = args != nullptr ? PyTuple_Size(args) : -1;
  if (count < 0 || count > static_cast<Py_ssize_t>(numberOfArguments)) return false;
  const auto given = static_cast<std::size_t>(count);
  for (std::size_t k = 0; k < given; ++k) {
    *arguments[k] = PyRef::borrow(PyTuple_GetItem(args, static_cast<Py_ssize_t>(k)));
  }
  if (keywords == nullptr) return true;
  const std::array<PyObject*, numberOfArguments>& names = argumentNames();
  Py_ssize_t position = 0;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  while (PyDict_Next(keywords, &position, &key, &value) != 0) {
    std::size_t k = given;
    while (k < numberOfArguments && !isName(key, names[k])) ++k;
    if (k == numberOfArguments) return false;
    *arguments[k] = PyRef::borrow(value);
  }
  return true;
}

}  // namespace

bool ConstructorArguments::parse(PyObject* args, PyObject* keywords) {
  kwargs = keywords;
  const std::array<PyRef*, numberOfArguments> found = {&initializer, &size, &vector, &isComplex};
  if (PyErr_Occurred() == nullptr && tryParse(args, keywords, found)) return true;
  static char initializerName[] = "initializer";
  static char sizeName[] = "size";
  static char vectorName[] = "vector";
  static char isComplexName[] = "is_complex";
  static char* names[] = {initializerName, sizeName, vectorName, isComplexName, nullptr};
  PyObject* borrowed[numberOfArguments] = {};
  if (PyArg_ParseTupleAndKeywords(args, keywords, "|OOOO", names, &borrowed[0], &borrowed[1],
                                  &borrowed[2], &borrowed[3]) == 0) {
    return false;
  }
  initializer = PyRef::borrow(borrowed[0]);
  size = PyRef::borrow(borrowed[1]);
  vector = PyRef::borrow(borrowed[2]);
  isComplex = PyRef::borrow(borrowed[3]);
  return true;
}

std::optional<bool> retrieveBoolKwarg(PyObject* value, const char* name) {
  if (value != nullptr && Py_TYPE(value) == &PyBool_Type) return value == Py_True;
  setError(PyExc_TypeError, std::string("value passed to '") + name +
                                (value == nullptr ? "' is null." : "' must be a bool."));
  return std::nullopt;
}

template <class T>
ElementBuffer<T> FinalConstructorParser<T>::processConstructorArgsAndKwargs(
    const ConstructorArguments& arguments) {
  static constexpr std::array<std::int64_t, 2> zeroByZero = {0, 0};
  PyObject* initializer = arguments.initializer.get();
  PyObject* size = arguments.size.get();
  PyObject* vector = arguments.vector.get();
  const bool hasInitializer = !pyObjectIsEmpty(initializer);
  const bool hasSize = !pyObjectIsEmpty(size);
  const bool hasVector = !pyObjectIsEmpty(vector);

  if (!hasVector && !hasInitializer && !hasSize) {
    m_shape.processSize(zeroByZero);
    return makeZeroFilledBuffer();
  }
  if (hasVector && hasInitializer) {
    const bool byKeyword =
        arguments.kwargs != nullptr && PyDict_GetItemString(arguments.kwargs, "vector") != nullptr;
    setError(PyExc_TypeError,
             byKeyword ? "initializer and 'vector' must not both be specified."
                       : "more than two positional arguments must not be specified. A third will "
                         "be treated as 'vector', which must not be specified when an initializer "
                         "is specified.");
    return noElementBuffer<T>();
  }
  if (hasSize && !m_shape.processSizeKwarg(size)) return noElementBuffer<T>();
  if (!hasVector && !hasInitializer) return makeZeroFilledBuffer();
  if (hasSize && !reserveBuffer(wrappedProduct(m_shape.getSpecifiedDimensions()))) {
    return noElementBuffer<T>();
  }

  ElementBuffer<T> buffer =
      hasVector ? processVectorKwarg(vector) : processInitializerKwarg(initializer);
  if (buffer == nullptr) return buffer;
  // Without `size`, the dimensions have been tested already, so no test detects a change of the
  // condition to `false`.
  if (!hasSize) return buffer;
  if (hasInitializer && !m_shape.specifiedAndCalculatedDimensionsMatch()) {
    return noElementBuffer<T>();
  }
  const std::uint64_t count =
      hasVector ? static_cast<std::uint64_t>(m_shape.getCalculatedDimensions().back())
                : flattenedElements.size();
  return dimensionsHold(count) ? std::move(buffer) : noElementBuffer<T>();
}

// --- size

// Room for the whole array, asked for once: the first count wins, and later growth is by doubling.
// False with MemoryError set.
template <class T>
bool FinalConstructorParser<T>::reserveBuffer(std::uint64_t count) {
  if (bufferReserved) return true;
  bufferReserved = growTo(count);
  return bufferReserved;
}

// False with MemoryError set.
template <class T>
bool FinalConstructorParser<T>::growTo(std::uint64_t count) {
  if (flattenedElements.tryReserve(count)) return true;
  setOutOfMemory(count, typeWord<T>);
  return false;
}

// Whether the dimensions really multiply to the number of elements, which a product that wraps
// around only seems to do. False with MemoryError set.
template <class T>
bool FinalConstructorParser<T>::dimensionsHold(std::uint64_t count) const {
  const std::optional<std::uint64_t> exact = exactProduct(m_shape.getDimensions());
  if (exact == count) return true;
  setOutOfMemory(exact, typeWord<T>);
  return false;
}

// A block for `count` elements of any value. Null with MemoryError set.
template <class T>
ElementBuffer<T> FinalConstructorParser<T>::takeReservedBuffer(std::uint64_t count) {
  ElementBuffer<T> buffer = flattenedElements.tryTakeReserved(count);
  if (buffer == nullptr) setOutOfMemory(count, typeWord<T>);
  return buffer;
}

// Null with MemoryError set.
template <class T>
ElementBuffer<T> FinalConstructorParser<T>::makeZeroFilledBuffer() {
  const auto count = static_cast<std::uint64_t>(m_shape.calculateNumberOfElements());
  if (!dimensionsHold(count)) return noElementBuffer<T>();
  ElementBuffer<T> buffer = tryCreateZeros<T>(count);
  if (buffer == nullptr) setOutOfMemory(count, typeWord<T>);
  m_shape.setBufferInStorageOrder();
  return buffer;
}

// --- vector

// Null with an error set. The elements go straight into a block in storage order.
template <class T>
ElementBuffer<T> FinalConstructorParser<T>::processVectorKwarg(PyObject* vector) {
  if (PySequence_Check(vector) == 0) {
    setError(PyExc_ValueError, "value of 'vector' must be a sequence.");
    return noElementBuffer<T>();
  }
  if (pyObjectIsUnicodeOrString(vector)) {
    setError(PyExc_ValueError, "value passed to 'vector' must be numeric.");
    return noElementBuffer<T>();
  }
  const Py_ssize_t length = PySequence_Size(vector);
  if (length < 0) return noElementBuffer<T>();
  m_shape.takeLengthOfVector(length);
  if (!m_shape.specifiedAndCalculatedDimensionsMatch()) return noElementBuffer<T>();

  ElementBuffer<T> buffer = takeReservedBuffer(static_cast<std::uint64_t>(length));
  if (buffer == nullptr) return buffer;
  return fillFromVector(vector, length, buffer.get()) ? std::move(buffer) : noElementBuffer<T>();
}

namespace {

// False, with no error set, when the items have to be converted one by one.
bool tryFillFromMemory(PyObject* vector, std::int64_t length, const ElementFacts& element,
                       void* elements) {
  Source source;
  if (PlainSequence::matches(vector) || !source.find(vector)) return false;
  const Box& box = source.box();
  return box.lanes.size() == 1 && box.count == length &&
         tryTransferDense(box, Purpose::Construction, element, Order::Storage, elements);
}

}  // namespace

template <class T>
bool FinalConstructorParser<T>::fillFromVector(PyObject* vector, std::int64_t length, T* elements) {
  const bool isPlain = PlainSequence::matches(vector);
  if (tryFillFromMemory(vector, length, factsOf<T>, elements)) return true;
  const PlainSequence sequence(vector);
  for (std::int64_t i = 0; i < length; ++i) {
    if (!isPlain && !m_signals.count()) return false;
    // Items of a plain sequence can be borrowed, because no conversion runs Python code.
    const PyRef owned = isPlain ? PyRef() : PyRef::steal(PySequence_GetItem(vector, i));
    PyObject* item = isPlain ? sequence.borrowedItem(i) : owned.get();
    if (item == nullptr) {
      setError(PyExc_RuntimeError, "item " + std::to_string(i) + " could not be retrieved.");
      return false;
    }
    if (!isPlainNumber(item) && PySequence_Check(item) != 0) {
      setError(PyExc_TypeError, "value of 'vector' must be an unnested sequence.");
      return false;
    }
    const ConversionResult<T> element = convertPyObjectToElement<T>(item, true);
    if (!element.value) {
      // Deliberate: ValueError whatever class the failure names, since the fault is the argument's.
      setError(PyExc_ValueError, element.failure->message);
      return false;
    }
    elements[i] = *element.value;
  }
  return true;
}

#define X(name, number, type) template class FinalConstructorParser<type>;
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
