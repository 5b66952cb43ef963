// For native clients: RAII classes for the capsule's functions and for references. Example:
//
//   static std::optional<velmar::Client> client;           // set in PyInit_..., before any use
//   client = velmar::Client::load();
//   if (!client) return nullptr;                           // the Python error is set
//   ...
//   foundation::velmardata::Array array = client->fromPython(object);
//   if (array.impl() == nullptr) return nullptr;
//   return client->toPython(std::move(array));
//
// Call everything here with the interpreter's lock held. On failure, functions return null with a
// Python error set: MemoryError if memory is short. They throw nothing, and all existing objects
// stay valid.
#pragma once

#include <Python.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>
#include <velmar/capsule_table.hpp>
#include <velmardata/velmardata.hpp>

namespace velmar {

// Owns one reference to a Python object, or none.
class Reference {
 public:
  Reference() noexcept = default;
  // Takes over a reference that the caller owns, such as a new reference from a function.
  explicit Reference(PyObject* object) noexcept : m_object(object) {}
  Reference(const Reference&) = delete;
  Reference& operator=(const Reference&) = delete;
  Reference(Reference&& other) noexcept : m_object(other.release()) {}
  Reference& operator=(Reference&& other) noexcept {
    Reference old(std::exchange(m_object, other.release()));  // released last: may run Python code
    return *this;
  }
  ~Reference() { Py_DecRef(m_object); }  // null is allowed

  // The object, borrowed: this class keeps the reference.
  PyObject* get() const noexcept { return m_object; }
  // Gives the reference to the caller, to return it or to pass it to a function that steals it.
  [[nodiscard]] PyObject* release() noexcept { return std::exchange(m_object, nullptr); }
  explicit operator bool() const noexcept { return m_object != nullptr; }

 private:
  PyObject* m_object = nullptr;
};

// The capsule's functions. Copies are cheap and stay valid for the life of the process.
class Client {
 public:
  // Imports the extension module, if necessary, and its capsule and classes. Empty with a Python
  // error set on failure: ImportError if the module is not installed.
  static std::optional<Client> load() {
    const void* table = PyCapsule_Import(capsuleName, 0);
    if (table == nullptr) return std::nullopt;
    const Reference module(PyImport_ImportModule("velmarmultidimarrayforpython"));
    if (!module) return std::nullopt;
    Classes classes{};
    for (std::size_t i = 0; i < classes.size(); ++i) {
      // The reference is kept: the classes live as long as the process.
      classes[i] = PyObject_GetAttrString(module.get(), classNames[i]);
      if (classes[i] == nullptr) return std::nullopt;
    }
    return Client(static_cast<const MCPyArrayAPITable*>(table), classes);
  }

  // Returns a new reference to a Python array that shares the contents of `array`. Python does not
  // see later writes through other handles, because they copy the contents first. Null with
  // RuntimeError for an empty handle ("null data pointer.") and for characters ("invalid type.").
  // Linear in the number of elements, which are copied once into the memory that Python reads.
  [[nodiscard]] PyObject* toPython(foundation::velmardata::Array array) const {
    return m_table->MDAImplToMCPyArray(data::impl::addReference(array.impl()));
  }

  // Returns the contents of a Python array, which later changes in Python do not affect. For an
  // array without subscripts: shared contents, in constant time. For a view: a separate copy with
  // at least two dimensions, in linear time; the view keeps the copy and returns it again in the
  // next call. Only an array that was reshaped to one dimension has one.
  //
  // On failure the handle is empty (impl() is null), with TypeError for an object that is not an
  // array ("expected a velmar array, got <class 'list'>"), and RuntimeError for null ("object not
  // initialized.") and for a view whose storage no longer exists ("locked shared pointer is
  // null.").
  [[nodiscard]] foundation::velmardata::Array fromPython(PyObject* object) const {
    if (object != nullptr && !isArray(object)) {
      PyErr_Format(PyExc_TypeError, "expected a velmar array, got %R", Py_TYPE(object));
      return foundation::velmardata::Array();
    }
    return foundation::velmardata::Array(
        static_cast<data::impl::ArrayImpl*>(m_table->MCPyArrayToMDAImpl(object)));
  }

  // Returns a new reference to a Python array of the class for the buffer's format, with a copy of
  // its elements. Null with an error, or without one for an object without a buffer; call hasBuffer
  // first. Sets `*type` to 4 plus the number of the class (0 double, ..., 10 logical), plus 10 for
  // complex elements, or to 0 without such a class. This is not the library's ArrayType; getType()
  // of the array returns that.
  [[nodiscard]] PyObject* fromBuffer(PyObject* object, int* type) const {
    return m_table->BufferObjectToMCPyArray(object, type);
  }

  // Whether the object is an array or a view of one. False for null. Never sets an error.
  bool isArray(PyObject* object) const noexcept {
    if (object == nullptr) return false;
    // The classes have no subclasses.
    const auto* type = reinterpret_cast<const PyObject*>(Py_TYPE(object));
    return std::find(m_classes.begin(), m_classes.end(), type) != m_classes.end();
  }

  // Whether the object supports the buffer protocol, as arrays and views do. Never sets an error.
  bool hasBuffer(PyObject* object) const { return m_table->SatisfiesBufferProtocol(object); }

  // The table itself. Release the reference that MCPyArrayToMDAImpl returns with
  // data::impl::releaseReference.
  const MCPyArrayAPITable& table() const noexcept { return *m_table; }

 private:
  static constexpr std::array<const char*, 11> classNames = {"double", "single", "int8",   "uint8",
                                                             "int16",  "uint16", "int32",  "uint32",
                                                             "int64",  "uint64", "logical"};
  using Classes = std::array<PyObject*, classNames.size()>;

  Client(const MCPyArrayAPITable* table, const Classes& classes) noexcept
      : m_table(table), m_classes(classes) {}

  const MCPyArrayAPITable* m_table;
  Classes m_classes;
};

}  // namespace velmar
