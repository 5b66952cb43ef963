// Writing elements into shared storage: the array first, then its mirror.
#pragma once

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <utility>
#include <velmardata/velmardata.hpp>

#include "storage/md_array_wrapper.hpp"

enum class WriteStatus { Stored, OutsideStorage, OutOfMemory };

// Sets the error of a failed write. Not while a writer lives: making an exception can run code that
// looks at the storage. True for a write that did not fail.
bool reportUnlessStored(WriteStatus status);

// One writer serves all the elements of an assignment: the contents are taken out of the wrapper
// and unshared once, and put back when the writer dies. Contents that were unshared before and are
// still the wrapper's alone stay where they are. No Python code may run meanwhile.
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
    } catch (const std::bad_alloc&) {  // shared contents, and no memory for a copy of them
      m_isOutOfMemory = true;
    }
  }
  ElementWriter(const ElementWriter&) = delete;
  ElementWriter& operator=(const ElementWriter&) = delete;
  ~ElementWriter() {
    if (m_array) m_wrapper.m_array = std::move(*m_array);
  }

  // Stores an element at its place, counted in elements; nothing is written if that fails.
  WriteStatus write(std::int64_t offset, const T& element) {
    if (m_isOutOfMemory) return WriteStatus::OutOfMemory;
    if (offset < 0 || offset >= m_wrapper.m_numElems) return WriteStatus::OutsideStorage;
    if (m_elements != nullptr) m_elements[offset] = element;
    // A mirror that nobody has looked at takes the element over when it is filled.
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
