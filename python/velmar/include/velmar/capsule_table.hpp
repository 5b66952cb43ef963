// The table of functions that the module hands to native clients, exactly as it lies in memory.
#pragma once

// Python.h declares the same; a client includes it first.
struct _object;
typedef struct _object PyObject;

namespace velmar {

// The pointer of this capsule is a MCPyArrayAPITable that lives as long as the process.
inline constexpr const char* capsuleName = "velmarmultidimarrayforpython._capi";

// `impl` is a velmar::data::impl::ArrayImpl of the data library as an untyped pointer. All five
// functions are called with the interpreter's lock held and no error pending. A null result has a
// Python error set but where it is said otherwise. Exceptions of the C++ library, such as
// std::bad_alloc, are not caught on their way out.
struct MCPyArrayAPITable {
  // A Python array that holds the library array: a new reference. Takes over the caller's one
  // reference to `impl`, also when it fails. Null with RuntimeError for a null pointer ("null data
  // pointer.") and for an element type without a class ("invalid type."), such as characters.
  // Linear in the number of elements, which are copied once into the memory that Python reads.
  PyObject* (*MDAImplToMCPyArray)(void* impl);

  // The library array of a Python array: the array itself for one without subscripts, a separate
  // copy for a view, 1 by n for one of a single dimension. The caller owns one reference to it, and
  // gives it back with velmar::data::impl::releaseReference. Null with an error for an object that
  // is no array, and for a view whose storage has gone or cannot be copied.
  void* (*MCPyArrayToMDAImpl)(PyObject* object);

  // A Python array of the class that the object's buffer format asks for: a new reference. `*type`
  // becomes 4 plus the number of the class, 10 more for complex elements, and 0 if there is no such
  // class; so logical elements report 14, as complex doubles do. Null, with no error set, for an
  // object without a buffer. A call for complex elements leaves one small dict behind.
  PyObject* (*BufferObjectToMCPyArray)(PyObject* object, int* type);

  // Destroys an array at once, whatever its count: for whoever holds its only reference, instead of
  // Py_DecRef. Does nothing for null and for an object that is no array.
  void (*DestroyMCPyArray)(PyObject* object);

  // Whether an object has a buffer to ask for. False for null; never an error.
  bool (*SatisfiesBufferProtocol)(PyObject* object);
};

}  // namespace velmar
