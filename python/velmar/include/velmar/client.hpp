// For native clients: the functions of the capsule, with owners that neither leak nor free twice.
//
//   static std::optional<velmar::Client> client;           // set in PyInit_..., before any use
//   client = velmar::Client::load();
//   if (!client) return nullptr;                           // the Python error is set
//   ...
//   foundation::velmardata::Array array = client->fromPython(object);
//   if (array.impl() == nullptr) return nullptr;
//   return client->toPython(std::move(array));
//
// Everything here is called with the interpreter's lock held. Failures are null results with a
// Python error set. The data library and the standard library may throw std::bad_alloc through any
// of these calls; what they were given and what they hold is then in order.
#pragma once

#include <Python.h>

#include <optional>
#include <utility>
#include <velmar/capsule_table.hpp>
#include <velmardata/velmardata.hpp>

namespace velmar {

// The owner of one reference to a Python object, or of none.
class Reference {
 public:
  Reference() noexcept = default;
  // Takes over a reference that the caller owns, such as a new one that a function returned.
  explicit Reference(PyObject* object) noexcept : m_object(object) {}
  Reference(const Reference&) = delete;
  Reference& operator=(const Reference&) = delete;
  Reference(Reference&& other) noexcept : m_object(other.release()) {}
  Reference& operator=(Reference&& other) noexcept {
    Reference old(std::exchange(m_object, other.release()));  // goes last: that may run Python code
    return *this;
  }
  ~Reference() { Py_DecRef(m_object); }  // null is allowed

  // The object; the owner keeps its reference.
  PyObject* get() const noexcept { return m_object; }
  // The object with its reference, for a caller or for a function that steals it.
  [[nodiscard]] PyObject* release() noexcept { return std::exchange(m_object, nullptr); }
  explicit operator bool() const noexcept { return m_object != nullptr; }

 private:
  PyObject* m_object = nullptr;
};

// The capsule's functions. Copies are cheap, and good for as long as the process lives.
class Client {
 public:
  // Imports the module of the arrays, if that has not been done, and takes its capsule. Empty with
  // a Python error set: ImportError if it is not installed.
  static std::optional<Client> load() {
    const void* table = PyCapsule_Import(capsuleName, 0);
    if (table == nullptr) return std::nullopt;
    return Client(static_cast<const MCPyArrayAPITable*>(table));
  }

  // A Python array that shares the contents of `array`: a new reference. Who writes through another
  // handle later gets contents of his own, so Python never sees it. Null with RuntimeError for an
  // empty handle ("null data pointer.") and for characters ("invalid type."). Linear in the number
  // of elements, which are copied once into the memory that Python reads.
  [[nodiscard]] PyObject* toPython(foundation::velmardata::Array array) const {
    return m_table->MDAImplToMCPyArray(data::impl::addReference(array.impl()));
  }

  // The library array of a Python array: constant time for an array without subscripts, a separate
  // copy of what it shows for a view, which takes time and keeps the copy for the next call. A copy
  // has two dimensions or more; an array has one after a reshape to one. It stays as it is whatever
  // Python does to the object meanwhile. An empty handle, whose impl() is null, with RuntimeError
  // for anything but an array ("object not initialized.") and for a view whose storage has gone
  // ("locked shared pointer is null.").
  [[nodiscard]] foundation::velmardata::Array fromPython(PyObject* object) const {
    return foundation::velmardata::Array(
        static_cast<data::impl::ArrayImpl*>(m_table->MCPyArrayToMDAImpl(object)));
  }

  // A Python array of the class that the buffer's format asks for, with a copy of its elements: a
  // new reference. Null with an error, or with none for an object without a buffer, so ask
  // hasBuffer first. `*type` becomes 4 plus the number of the class (0 double, ..., 10 logical) and
  // 10 more for complex elements, or 0; type numbers of the library are what getType() of the array
  // tells.
  [[nodiscard]] PyObject* fromBuffer(PyObject* object, int* type) const {
    return m_table->BufferObjectToMCPyArray(object, type);
  }

  // Whether an object has a buffer to ask for; arrays and views have one. Never an error.
  bool hasBuffer(PyObject* object) const { return m_table->SatisfiesBufferProtocol(object); }

  // The functions as they are. The reference that MCPyArrayToMDAImpl gives is handed back with
  // data::impl::releaseReference.
  const MCPyArrayAPITable& table() const noexcept { return *m_table; }

 private:
  explicit Client(const MCPyArrayAPITable* table) noexcept : m_table(table) {}

  const MCPyArrayAPITable* m_table;
};

}  // namespace velmar
