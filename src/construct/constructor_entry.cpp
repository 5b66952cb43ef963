// The constructor of the classes: arguments, parser, library array, record.
#include "construct/constructor_entry.hpp"

#include <complex>
#include <optional>
#include <type_traits>
#include <utility>

#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

// Without keywords, a leading dict stands for them: that is the form which pickles have. False with
// an error set. `rest` owns the remaining positional arguments.
bool takeLeadingDictAsKeywords(PyObject*& args, PyObject*& kwargs, PyRef& rest) {
  if (args == nullptr || kwargs != nullptr) return true;
  const Py_ssize_t count = PyTuple_Size(args);
  if (count < 1) return true;
  PyObject* first = PyTuple_GetItem(args, 0);
  if (!typeHasFlag(first, Py_TPFLAGS_DICT_SUBCLASS)) return true;
  rest = PyRef::steal(PyTuple_GetSlice(args, 1, count));
  kwargs = first;
  args = rest.get();
  return static_cast<bool>(rest);
}

// Gives the record an array of such elements. False with an error set.
template <class T>
bool parseAndMakeTypedArray(PyObject* record, const ConstructorArguments& arguments) {
  FinalConstructorParser<T> parser;
  ElementBuffer<T> buffer = parser.processConstructorArgsAndKwargs(arguments);
  if (buffer == nullptr) return false;
  const ConstructionShape& shape = parser.shape();
  std::optional<vd::Array> array =
      makeTypedArrayFromBuf(std::move(buffer), shape.isBufferInStorageOrder(),
                            shape.getDimensions(), parser.getNumberOfFlattenedElements());
  return array && giveNewView(record, std::move(*array), classOf<Part<T>>, isComplexElement<T>,
                              Contents::Own, shape.getDimensions()) != nullptr;
}

template <class T>
bool makeArray(PyObject* record, const ConstructorArguments& arguments, bool isComplex) {
  if constexpr (std::is_same_v<T, bool>) {
    if (isComplex) {
      setError(PyExc_TypeError, "logical arrays must not be complex.");
      return false;
    }
  } else if (isComplex) {
    return parseAndMakeTypedArray<std::complex<T>>(record, arguments);
  }
  return parseAndMakeTypedArray<T>(record, arguments);
}

// Gives the record the array that the arguments describe. False with an error set.
template <class T>
bool construct(PyObject* record, PyObject* args, PyObject* kwargs) {
  ConstructorArguments arguments;
  if (!arguments.parse(args, kwargs)) return false;
  std::optional<bool> isComplex = false;
  if (arguments.isComplex) isComplex = retrieveBoolKwarg(arguments.isComplex.get(), "is_complex");
  return isComplex && makeArray<T>(record, arguments, *isComplex);
}

}  // namespace

template <class T>
PyObject* MCPyArray_New(PyTypeObject* type, PyObject* args, PyObject* kwargs) {
  PyRef rest;
  if (!takeLeadingDictAsKeywords(args, kwargs, rest)) return nullptr;
  PyRef record = PyRef::steal(allocMCPyArray(type));
  if (!record) return nullptr;
  if (construct<T>(record.get(), args, kwargs)) return record.release();
  // Deliberate: the record of a failed construction is not given back, because its release would be
  // seen in the counts of references that programs check.
  keepForever(std::move(record));
  return nullptr;
}

#define X(name, number, enumerator, type, ...) \
  template PyObject* MCPyArray_New<type>(PyTypeObject*, PyObject*, PyObject*);
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
