// Memory for the small objects behind arrays and views.
#pragma once

#include <cstddef>
#include <new>

#include "module/python.hpp"

// Base of classes whose objects come from the interpreter's allocator: every subscript makes a view
// and every construction a storage, and most of them are dropped at once. Their release needs the
// interpreter's lock.
class SmallObject {
 public:
  // Throws std::bad_alloc.
  static void* operator new(std::size_t size) {
    void* memory = PyObject_Malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
  }
  static void operator delete(void* memory) { PyObject_Free(memory); }
};
