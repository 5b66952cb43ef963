// Real copies of the elements, or of one part of each, in storage order.
#include "operations/extraction.hpp"

#include <algorithm>
#include <complex>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "construct/element_store.hpp"
#include "construct/layout_conversion.hpp"
#include "construct/memory_error.hpp"
#include "module/apply_visitor.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

[[noreturn]] void refuseOutput(const char* kind, OutputEnum output) {
  throw std::runtime_error(std::string("Invalid enum for ") + kind +
                           " array: " + std::to_string(static_cast<int>(output)) + "\n");
}

struct NonComplexVisitor {
  const std::vector<std::int64_t>& dimensions;  // of the array; the result has 1 and n
  vd::standalone::ClientArrayFactory& factory;
  OutputEnum output;

  template <class T>
  vd::Array operator()(const vd::TypedArray<T>& array) const {
    if (output != OutputEnum::Noncomplex) refuseOutput("noncomplex", output);
    return make<T>(array, [](const T* from, std::size_t count, T* to) {
      if (count > 0) std::memcpy(to, from, count * sizeof(T));
    });
  }

  template <class T>
  vd::Array operator()(const vd::TypedArray<std::complex<T>>& array) const {
    if (output != OutputEnum::Real && output != OutputEnum::Imag) refuseOutput("complex", output);
    // A complex number is its two parts, one behind the other.
    const std::size_t part = output == OutputEnum::Real ? 0 : 1;
    return make<T>(array, [part](const std::complex<T>* from, std::size_t count, T* to) {
      const T* parts = reinterpret_cast<const T*>(from) + part;
      for (std::size_t k = 0; k < count; ++k) to[k] = parts[2 * k];
    });
  }

 private:
  template <class Result, class T, class Fill>
  vd::Array make(const vd::TypedArray<T>& array, Fill fill) const {
    const unsigned long count = array.getNumberOfElements();
    ElementBuffer<Result> buffer = createElementBuffer<Result>(factory, count);
    if (buffer == nullptr) return {};
    const auto first = array.begin();
    fill(&*first, count, buffer.get());
    const auto deleter = buffer.get_deleter();
    return factory.createArrayFromBuffer(
        {1, count}, vd::arrayTypeOf<Result>,
        std::unique_ptr<void, void (*)(void*)>(buffer.release(), deleter),
        velmar::data::MemoryLayout::Default);
  }
};

// The wrapper's extraction, with its errors.
std::optional<vd::Array> extractFrom(const MCppPyArray& view, OutputEnum output) {
  vd::standalone::ClientArrayFactory factory;
  vd::Array array;
  std::int64_t count = 0;
  {
    const WrapperAccess storage = view.wrapper();
    if (!storage) return std::nullopt;
    count = storage->getNumberOfElements();
    array = storage->extractContents(factory, output);
  }
  if (array.impl() != nullptr) return array;
  setOutOfMemory(static_cast<std::uint64_t>(count), typeWordOf(view.getSupportedArrayEnum()));
  return std::nullopt;
}

// What was extracted, as the view of its row: a sequence of numbers in Python's eyes.
PyObject* makeRow(PyObject* self, OutputEnum output) {
  const MCppPyArray* source = getInitializedView(self);
  if (source == nullptr) return nullptr;
  const SupportedArrayEnum type = source->getSupportedArrayEnum();
  PyRef record = PyRef::steal(source->allocMCPyArrayFromMCppPyArray());
  if (!record) return nullptr;
  std::optional<vd::Array> array = output == OutputEnum::Noncomplex
                                       ? source->noncomplex()
                                       : source->realOrImag(output == OutputEnum::Real);
  if (!array) return nullptr;
  const unsigned long count = array->getNumberOfElements();
  auto view = std::make_unique<MCppPyArray>(std::move(*array), type, false, true);
  if (!view->wrapper()->hasMirror()) {
    setOutOfMemory(count, typeWordOf(type));
    return nullptr;
  }
  IntegerIndexItem row{0, false};
  view->appendIndexItem(row);
  getMCPyArrayFromPyObject(record.get())->mcppPyArray = view.release();
  return record.release();
}

}  // namespace

vd::Array MDArrayWrapper::extractContents(vd::standalone::ClientArrayFactory& factory,
                                          OutputEnum output) const {
  return applyVisitor(m_array, NonComplexVisitor{m_shape, factory, output});
}

std::optional<vd::Array> MCppPyArray::noncomplex() const {
  if (m_isComplex) {
    setError(PyExc_ValueError, "noncomplex() must not be called on a complex array.");
    return std::nullopt;
  }
  return extractFrom(*this, OutputEnum::Noncomplex);
}

std::optional<vd::Array> MCppPyArray::realOrImag(bool wantReal) const {
  if (!m_isComplex) {
    setError(PyExc_ValueError, "real() and imag() can be called only on a complex array.");
    return std::nullopt;
  }
  return extractFrom(*this, wantReal ? OutputEnum::Real : OutputEnum::Imag);
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
