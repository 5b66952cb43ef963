// Shared by the tests of buffers: an exporter whose fields the test chooses, valid or not.
#pragma once

#include "module/python.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "module/py_ref.hpp"
#include "velmardata_testing.hpp"

namespace python_testing {

// The format string of the elements in the buffer protocol.
template <class T>
std::string formatOf() {
  using Number = typename velmardata_testing::PartOf<T>::type;
  const std::string start = std::is_same_v<T, Number> ? "" : "Z";
  if constexpr (std::is_same_v<Number, bool>) {
    return start + '?';
  } else if constexpr (std::is_floating_point_v<Number>) {
    return start + (sizeof(Number) == 8 ? 'd' : 'f');
  } else {
    return start + (std::is_signed_v<Number> ? "bhiq" : "BHIQ")[std::countr_zero(sizeof(Number))];
  }
}

using Sizes = std::vector<Py_ssize_t>;

// The flags of requests for buffers: contiguous in any order, with a format.
constexpr int contiguousWithFormat = 0x9C;

// The fields of the buffers that are exported, and counts of requests. An empty optional is a null
// field.
struct Exports {
  void* buf = nullptr;
  Py_ssize_t len = 0;
  Py_ssize_t itemsize = 0;
  std::optional<std::string> format;
  int ndim = 0;
  std::optional<Sizes> shape;
  std::optional<Sizes> strides;
  std::optional<Sizes> suboffsets;
  bool refuses = false;  // with LookupError "nothing to export."
  std::function<void()> onRelease;

  int flags = -1;  // of the last request
  int obtained = 0;
  int released = 0;
};

struct ExporterRecord {
  PyObject_HEAD Exports* exports;  // borrowed from the test
};

inline Exports& exportsOf(PyObject* exporter) {
  return *reinterpret_cast<ExporterRecord*>(exporter)->exports;
}

inline int exportBuffer(PyObject* self, Py_buffer* buffer, int flags) {
  Exports& exports = exportsOf(self);
  exports.flags = flags;
  *buffer = {};
  if (exports.refuses) {
    PyErr_SetString(PyExc_LookupError, "nothing to export.");
    return -1;
  }
  ++exports.obtained;
  const auto first = [](std::optional<Sizes>& numbers) {
    return numbers ? numbers->data() : nullptr;
  };
  buffer->buf = exports.buf;
  buffer->obj = PyRef::borrow(self).release();
  buffer->len = exports.len;
  buffer->itemsize = exports.itemsize;
  buffer->readonly = 1;
  buffer->ndim = exports.ndim;
  buffer->format = exports.format ? exports.format->data() : nullptr;
  buffer->shape = first(exports.shape);
  buffer->strides = first(exports.strides);
  buffer->suboffsets = first(exports.suboffsets);
  return 0;
}

inline void releaseBuffer(PyObject* self, Py_buffer* /*buffer*/) {
  Exports& exports = exportsOf(self);
  ++exports.released;
  if (exports.onRelease) exports.onRelease();
}

// An object that exports the fields in `exports` at the time of the request. `exports` must outlive
// it.
inline PyRef makeExporter(Exports& exports) {
  static PyType_Slot slots[] = {{Py_bf_getbuffer, reinterpret_cast<void*>(exportBuffer)},
                                {Py_bf_releasebuffer, reinterpret_cast<void*>(releaseBuffer)},
                                {0, nullptr}};
  static PyType_Spec spec = {"velmar_tests.Exporter", sizeof(ExporterRecord), 0, Py_TPFLAGS_DEFAULT,
                             slots};
  static PyObject* const type = PyType_FromSpec(&spec);  // kept for the life of the process
  PyRef exporter = PyRef::steal(PyType_GenericAlloc(reinterpret_cast<PyTypeObject*>(type), 0));
  reinterpret_cast<ExporterRecord*>(exporter.get())->exports = &exports;
  return exporter;
}

// An exporter of samples, numbered in the order of memory, with correct fields. A test that wants
// wrong ones changes `exports`. order: 'F' or 'C'.
template <class T>
struct SampleExporter {
  explicit SampleExporter(const Sizes& shape, char order = 'F')
      : memory(velmardata_testing::sampleBuffer<T>(countOf(shape))) {
    exports.buf = memory.get();
    exports.itemsize = sizeof(T);
    exports.len = static_cast<Py_ssize_t>(countOf(shape) * sizeof(T));
    exports.format = formatOf<T>();
    exports.ndim = static_cast<int>(shape.size());
    exports.shape = shape;
    exports.strides = Sizes(shape.size());
    PyBuffer_FillContiguousStrides(exports.ndim, exports.shape->data(), exports.strides->data(),
                                   static_cast<int>(sizeof(T)), order);
    object = makeExporter(exports);
  }
  SampleExporter(const SampleExporter&) = delete;
  SampleExporter& operator=(const SampleExporter&) = delete;

  static unsigned long countOf(const Sizes& shape) {
    unsigned long count = 1;
    for (const Py_ssize_t length : shape) count *= static_cast<unsigned long>(length);
    return count;
  }

  velmardata_testing::UntypedBuffer memory;
  Exports exports;
  PyRef object;
};

}  // namespace python_testing
