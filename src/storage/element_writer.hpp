// Writing of elements into shared storage: to the array first, then to its mirror.
#pragma once

#include <cassert>
#include <cstddef>
#include <cstring>
#include <new>
#include <optional>
#include <utility>
#include <velmardata/velmardata.hpp>

#include "storage/md_array_wrapper.hpp"

enum class WriteStatus { Stored, OutsideStorage, OutOfMemory };

// Sets the error of a write that failed. `count` and `typeWord` describe the elements of the
// storage, which all need memory when one of them cannot be written. No writer may be alive: making
// an exception can run code that looks at the storage.
void setErrorOfWrite(WriteStatus status, std::int64_t count, const char* typeWord);

// One writer serves all elements of an assignment. Where array and buf() are one memory, it writes
// there. Otherwise it takes the contents out of the wrapper, unshares them once and puts them back
// when it dies. No Python code may run while a writer lives. T is the element type of the storage.
template <class T>
class ElementWriter {
 public:
  explicit ElementWriter(MDArrayWrapper& wrapper) : m_wrapper(wrapper) {
    assert(wrapper.getType() == foundation::velmardata::arrayTypeOf<T>);
    if (wrapper.writesInPlace()) {
      m_elements = reinterpret_cast<T*>(wrapper.m_buf);
      return;
    }
    m_array.emplace(std::move(wrapper.m_array));
    try {
      m_elements = &*m_array->begin();
    } catch (const std::bad_alloc&) {
      m_elements = nullptr;  // there is no memory to copy the shared contents
    }
    m_mirror = reinterpret_cast<T*>(wrapper.m_buf);
  }
  ElementWriter(const ElementWriter&) = delete;
  ElementWriter& operator=(const ElementWriter&) = delete;
  ~ElementWriter() {
    if (m_array) m_wrapper.m_array = std::move(*m_array);
  }

  // Stores an element at an offset counted in elements. Nothing is written if that fails.
  WriteStatus write(std::int64_t offset, const T& element) {
    if (m_elements == nullptr) return WriteStatus::OutOfMemory;
    if (offset < 0 || offset >= m_wrapper.m_numElems) return WriteStatus::OutsideStorage;
    m_elements[offset] = element;
    if (m_mirror != nullptr) m_mirror[offset] = element;
    return WriteStatus::Stored;
  }

  // Calls store(memory) for each memory that holds the elements, with the address of the first.
  // If store() throws, which it must do before it writes, nothing is written.
  template <class Store>
  WriteStatus writeWith(Store store) {
    if (m_elements == nullptr) return WriteStatus::OutOfMemory;
    if (m_mirror != nullptr) store(reinterpret_cast<std::byte*>(m_mirror));
    try {
      store(reinterpret_cast<std::byte*>(m_elements));
    } catch (const std::bad_alloc&) {
      restoreMirror();
      throw;
    }
    return WriteStatus::Stored;
  }

 private:
  // The array still has the elements that were in both.
  void restoreMirror() {
    if (m_mirror == nullptr) return;
    std::memcpy(static_cast<void*>(m_mirror), m_elements,
                static_cast<std::size_t>(m_wrapper.m_bufferSizeInBytes));
  }

  MDArrayWrapper& m_wrapper;
  std::optional<foundation::velmardata::TypedArray<T>> m_array;  // taken out of the wrapper
  T* m_elements = nullptr;                                       // null when memory was short
  T* m_mirror = nullptr;  // null when there is one memory, or before the first look
};
