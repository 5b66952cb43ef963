// Real copies of the elements, or of one part of each, in storage order.
#include "operations/extraction.hpp"

#include <array>
#include <complex>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "module/apply_visitor.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "operations/handlers.hpp"
#include "storage/element_buffer.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

[[noreturn]] void refuseOutput(const char* kind, OutputEnum output) {
  throw std::runtime_error(std::string("Invalid enum for ") + kind +
                           " array: " + std::to_string(static_cast<int>(output)) + "\n");
}

struct NonComplexVisitor {
  OutputEnum output;

  template <class T>
  vd::Array operator()(const vd::TypedArray<T>& array) const {
    if (output != OutputEnum::Noncomplex) refuseOutput("noncomplex", output);
    return makeArray<T>(array, [](const T* from, std::size_t count, T* to) {
      if (count > 0) std::memcpy(to, from, count * sizeof(T));
    });
  }

  template <class T>
  vd::Array operator()(const vd::TypedArray<std::complex<T>>& array) const {
    if (output != OutputEnum::Real && output != OutputEnum::Imag) refuseOutput("complex", output);
    // The two parts of a complex element lie one behind the other.
    const std::size_t part = output == OutputEnum::Real ? 0 : 1;
    return makeArray<T>(array, [part](const std::complex<T>* from, std::size_t count, T* to) {
      const T* parts = reinterpret_cast<const T*>(from) + part;
      for (std::size_t k = 0; k < count; ++k) to[k] = parts[2 * k];
    });
  }

 private:
  template <class Result, class T, class Fill>
  static vd::Array makeArray(const vd::TypedArray<T>& array, Fill fill) {
    const unsigned long count = array.getNumberOfElements();
    ElementBuffer<Result> buffer = tryCreateElementBuffer<Result>(count);
    if (buffer == nullptr) return {};
    const auto first = array.begin();
    fill(&*first, count, buffer.get());
    return makeArrayFromBuffer(std::move(buffer),
                               std::array<std::int64_t, 2>{1, static_cast<std::int64_t>(count)});
  }
};

// The extracted part of the view's whole storage. Empty with an error set.
std::optional<vd::Array> extractFrom(const MCppPyArray& view, OutputEnum output) {
  vd::Array array;
  std::int64_t count = 0;  // Assigned before it is read, so no test detects a change.
  {
    const WrapperAccess storage = view.wrapper();
    if (!storage) return std::nullopt;
    count = storage->getNumberOfElements();
    array = tryExtractContents(storage->array(), output);
  }
  if (array.impl() != nullptr) return array;
  setOutOfMemory(static_cast<std::uint64_t>(count), typeWordOf(view.getSupportedArrayEnum()));
  return std::nullopt;
}

// A record with the 1-by-N result as the view of its row 0, which Python sees as a flat sequence.
// Null with an error set.
PyObject* makeRow(PyObject* self, OutputEnum output) {
  const MCppPyArray* source = getInitializedView(self);
  if (source == nullptr) return nullptr;
  const SupportedArrayEnum type = source->getSupportedArrayEnum();
  PyRef record = PyRef::steal(allocMCPyArrayFromMCppPyArray(*source));
  if (!record) return nullptr;
  std::optional<vd::Array> array = output == OutputEnum::Noncomplex
                                       ? noncomplex(*source)
                                       : realOrImag(*source, output == OutputEnum::Real);
  if (!array) return nullptr;
  MCppPyArray* view = giveNewView(record.get(), std::move(*array), type, false, Contents::Own);
  if (view == nullptr) return nullptr;
  view->appendIndexItem(IntegerIndexItem{0, false});
  return record.release();
}

}  // namespace

vd::Array tryExtractContents(const vd::Array& array, OutputEnum output) {
  return applyVisitor(array, NonComplexVisitor{output});
}

std::optional<vd::Array> noncomplex(const MCppPyArray& view) {
  if (view.isComplex()) {
    setError(PyExc_ValueError, "noncomplex() must not be called on a complex array.");
    return std::nullopt;
  }
  return extractFrom(view, OutputEnum::Noncomplex);
}

std::optional<vd::Array> realOrImag(const MCppPyArray& view, bool wantReal) {
  if (!view.isComplex()) {
    setError(PyExc_ValueError, "real() and imag() can be called only on a complex array.");
    return std::nullopt;
  }
  return extractFrom(view, wantReal ? OutputEnum::Real : OutputEnum::Imag);
}

PyObject* MCPyArray_Real(PyObject* self, PyObject*) {
  return makeRow(self, OutputEnum::Real);
}

PyObject* MCPyArray_Imag(PyObject* self, PyObject*) {
  return makeRow(self, OutputEnum::Imag);
}

PyObject* MCPyArray_Noncomplex(PyObject* self, PyObject*) {
  return makeRow(self, OutputEnum::Noncomplex);
}

PyObject* MCPyArray_GetRealAsAttrib(PyObject* self, void*) {
  return MCPyArray_Real(self, nullptr);
}

PyObject* MCPyArray_GetImagAsAttrib(PyObject* self, void*) {
  return MCPyArray_Imag(self, nullptr);
}

PyObject* MCPyArray_GetNoncomplexAsAttrib(PyObject* self, void*) {
  return MCPyArray_Noncomplex(self, nullptr);
}
