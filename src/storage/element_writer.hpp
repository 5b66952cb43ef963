// Writing of elements into shared storage: to the array first, then to its mirror.
#pragma once

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <utility>
#include <velmardata/velmardata.hpp>

#include "storage/md_array_wrapper.hpp"

enum class WriteStatus { Stored, OutsideStorage, OutOfMemory };

// True for a write that did not fail; false with the error of the failure set. No writer may be
// alive: making an exception can run code that looks at the storage.
bool reportUnlessStored(WriteStatus status);

// One writer serves all elements of an assignment. It takes the contents out of the wrapper,
// unshares them once and puts them back when it dies. Contents that an earlier write unshared and
// that no other handle shares stay in the wrapper. No Python code may run while a writer lives.
template <class T>
class ElementWriter {
 public:
  explicit ElementWriter(MDArrayWrapper& wrapper) : m_wrapper(wrapper) {
    constexpr auto type = foundation::velmardata::arrayTypeOf<T>;
    if (wrapper.m_writable.isGoodFor(wrapper.m_array, type)) {
      m_elements = static_cast<T*>(wrapper.m_writable.elements);
      return;
    }
    if (wrapper.array().getType() != type) return;
    m_array.emplace(std::move(wrapper.m_array));
    try {
      m_elements = &*m_array->begin();
      wrapper.m_writable = {m_array->impl(), type, m_elements};
    } catch (const std::bad_alloc&) {  // there is no memory to copy the shared contents
      m_isOutOfMemory = true;
    }
  }
  ElementWriter(const ElementWriter&) = delete;
  ElementWriter& operator=(const ElementWriter&) = delete;
  ~ElementWriter() {
    if (m_array) m_wrapper.m_array = std::move(*m_array);
  }

  // Stores an element at an offset counted in elements. Nothing is written if that fails.
  WriteStatus write(std::int64_t offset, const T& element) {
    if (m_isOutOfMemory) return WriteStatus::OutOfMemory;
    if (offset < 0 || offset >= m_wrapper.m_numElems) return WriteStatus::OutsideStorage;
    if (m_elements != nullptr) m_elements[offset] = element;
    // A mirror that is not filled yet copies the element with all others when it is.
    if (m_wrapper.m_isMirrorFilled && m_wrapper.m_buf != nullptr) {
      const auto size = static_cast<std::size_t>(m_wrapper.m_elemSizeInBytes);
      std::memcpy(m_wrapper.m_buf + offset * m_wrapper.m_elemSizeInBytes, &element,
                  std::min(size, sizeof(T)));
    }
    return WriteStatus::Stored;
  }

 private:
  MDArrayWrapper& m_wrapper;
  std::optional<foundation::velmardata::TypedArray<T>> m_array;  // empty for another element type
  T* m_elements = nullptr;
  bool m_isOutOfMemory = false;
};
