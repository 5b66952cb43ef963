// The constructor of the classes: real or complex, then parser, typed array, view and record.
#include "construct/constructor_entry.hpp"

#include <complex>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "construct/memory_error.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

// A leading dict without keywords stands for the keywords: the form that pickles have. False with
// an error set; `rest` owns the remaining positional arguments.
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

// The array that the arguments describe; nothing with an exception set.
template <class T>
std::optional<vd::Array> parseAndMakeTypedArray(const ConstructorArguments& arguments) {
  FinalConstructorParser<T> parser;
  bool ok = false;
  ElementBuffer<T> buffer = parser.processConstructorArgsAndKwargs(arguments, ok);
  if (!ok) return std::nullopt;
  vd::standalone::ClientArrayFactory factory;
  const std::vector<std::int64_t> dimensions = parser.getDimensions();
  return makeTypedArrayFromBuf(std::move(buffer), parser.isBufferInStorageOrder(), factory,
                               dimensions, dimensions, parser.getNumberOfFlattenedElements());
}

template <class T>
std::optional<vd::Array> makeArray(const ConstructorArguments& arguments, bool isComplex) {
  if constexpr (std::is_same_v<T, bool>) {
    if (isComplex) {
      setError(PyExc_TypeError, "logical arrays must not be complex.");
      return std::nullopt;
    }
  } else if (isComplex) {
    return parseAndMakeTypedArray<std::complex<T>>(arguments);
  }
  return parseAndMakeTypedArray<T>(arguments);
}

// The view of a new array; null with an exception set.
template <class T>
std::unique_ptr<MCppPyArray> makeViewFromArguments(PyObject* args, PyObject* kwargs) {
  ConstructorArguments arguments;
  if (!arguments.parse(args, kwargs)) return nullptr;
  bool isComplex = false;
  if (arguments.isComplex) {
    bool ok = false;
    isComplex = retrieveBoolKwarg(arguments.isComplex.get(), "is_complex", ok);
    if (!ok) return nullptr;
  }
  std::optional<vd::Array> array = makeArray<T>(arguments, isComplex);
  if (!array) return nullptr;
  const std::uint64_t count = array->getNumberOfElements();
  auto view = std::make_unique<MCppPyArray>(std::move(*array), classOf<T>, isComplex, true);
  if (view->wrapper()->hasMirror()) return view;
  setOutOfMemory(count, typeWord<T>);
  return nullptr;
}

}  // namespace

template <class T>
PyObject* MCPyArray_New(PyTypeObject* type, PyObject* args, PyObject* kwargs) {
  PyRef rest;
  if (!takeLeadingDictAsKeywords(args, kwargs, rest)) return nullptr;
  PyRef record = PyRef::steal(allocMCPyArray(type));
  if (!record) return nullptr;
  std::unique_ptr<MCppPyArray> view = makeViewFromArguments<T>(args, kwargs);
  if (view == nullptr) {
    keepForever(
        std::move(record));  // deliberate: the record of a failed construction is not given back
    return nullptr;
  }
  getMCPyArrayFromPyObject(record.get())->mcppPyArray = view.release();
  return record.release();
}

#define X(name, number, enumerator, type, ...) \
  template PyObject* MCPyArray_New<type>(PyTypeObject*, PyObject*, PyObject*);
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
