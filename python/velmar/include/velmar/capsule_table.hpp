// MCPyArrayAPITable: the functions of the module's capsule, in their binary layout.
#pragma once

// The same declaration as in Python.h, which this header does not include.
struct _object;
typedef struct _object PyObject;

namespace velmar {

// The capsule contains a pointer to a MCPyArrayAPITable that lives as long as the process.
inline constexpr const char* capsuleName = "velmarmultidimarrayforpython._capi";

// `impl` is an untyped pointer to a velmar::data::impl::ArrayImpl of the data library. Call all
// functions with the interpreter's lock held and no error pending. A null result has a Python error
// set unless stated otherwise. No function throws: C++ exceptions become Python errors.
struct MCPyArrayAPITable {
  // Returns a new reference to a Python array with the contents `impl`. Takes over the caller's
  // reference to `impl`, also on failure. Null with RuntimeError for a null pointer ("null data
  // pointer.") and for an element type without a class, such as characters ("invalid type.").
  // Linear in the number of elements, which are copied once into the memory that Python reads.
  PyObject* (*MDAImplToMCPyArray)(void* impl);

  // Returns the contents of a Python array: shared for an array without subscripts, a separate copy
  // for a view, 1 by n for a view of one dimension. The caller owns one reference and releases it
  // with velmar::data::impl::releaseReference. Null with an error for an object that is not an
  // array, and for a view whose storage no longer exists or cannot be copied.
  void* (*MCPyArrayToMDAImpl)(PyObject* object);

  // Returns a new reference to a Python array of the class for the object's buffer format, with a
  // copy of the elements. Sets `*type` to 4 plus the number of the class, plus 10 for complex
  // elements, or to 0 without such a class; logical elements give 14, as complex doubles do. Null
  // without an error for an object without a buffer. Each call with complex elements leaks one
  // small dict.
  PyObject* (*BufferObjectToMCPyArray)(PyObject* object, int* type);

  // Destroys an array at once and ignores its reference count. For the owner of the only reference,
  // in place of Py_DecRef. Does nothing for null and for an object that is not an array.
  void (*DestroyMCPyArray)(PyObject* object);

  // Whether the object supports the buffer protocol. False for null. Never sets an error.
  bool (*SatisfiesBufferProtocol)(PyObject* object);
};

}  // namespace velmar
