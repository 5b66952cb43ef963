// The Python record of an array, and the functions through which every handler reaches it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "module/python.hpp"
#include "module/support.hpp"
#include "storage/mcpp_py_array.hpp"

// Ownership: the record owns its view, and Python counts the references to the record.
// Invariant: mcppPyArray is null between allocation and the end of construction only. Python can
// see such a record in one case: the clone of a view whose elements could not be read. Kept for
// clients: the record is freed without giving back its reference on the class, as the counts of the
// classes have always been.
struct MCPyArray {
  PyObject_HEAD MCppPyArray* mcppPyArray;
};

// A zeroed record of the class; null with RuntimeError set.
PyObject* allocMCPyArray(PyTypeObject* type);
// The same for the class that a view belongs to.
PyObject* allocMCPyArrayFromMCppPyArray(const MCppPyArray& view);

// Whether an object, which must not be null, belongs to one of the eleven classes.
bool MCPyArray_Check(PyObject* object);

// An unchecked cast.
inline MCPyArray* getMCPyArrayFromPyObject(PyObject* object) {
  return reinterpret_cast<MCPyArray*>(object);
}

// The guard of the handlers: the view of a record. Null with RuntimeError set when the record or
// its view is missing.
inline MCppPyArray* getInitializedView(PyObject* object) {
  MCPyArray* record = getMCPyArrayFromPyObject(object);
  if (record != nullptr && record->mcppPyArray != nullptr) return record->mcppPyArray;
  setError(PyExc_RuntimeError, messages::objectNotInitialized);
  return nullptr;
}

// The one way to make an array: a view with storage of its own around the elements. Null with
// MemoryError set when there is no memory for the mirror. The dimensions are those that
// MDArrayWrapper takes.
std::unique_ptr<MCppPyArray> makeNewView(foundation::velmardata::Array&& array,
                                         SupportedArrayEnum type, bool isComplex, Contents contents,
                                         bool isColumnMajor = true,
                                         std::span<const std::int64_t> dimensions = {});
// Gives a record without a view such a view, and returns the view, which the record owns. Null with
// MemoryError set.
MCppPyArray* giveNewView(PyObject* record, foundation::velmardata::Array&& array,
                         SupportedArrayEnum type, bool isComplex, Contents contents,
                         std::span<const std::int64_t> dimensions = {});

// The destructor slot of the classes, and thereby the mark by which MCPyArray_Check knows them.
extern "C" void MCPyArray_Delete(PyObject* object) noexcept;
