// The storage that an array and all its views share: a library array, its description in the form
// of the buffer protocol, and a mirror of the elements for reads that cross no library boundary.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "module/export.hpp"
#include "module/python.hpp"
#include "storage/index_items.hpp"

// What is extracted from an array.
enum class OutputEnum {
  Noncomplex = 0,  // the elements of a real array
  Real = 1,        // the real parts of a complex array
  Imag = 2,        // the imaginary parts of a complex array
};

class MDArrayWrapper {
 public:
  // order: 'F' for column-major, the library's own, or 'C'. Throws EArrayUnknownDataType for an
  // array of an unsupported type. When memory for the mirror is short, buf() is null although
  // getBufferSizeInBytes() is not 0; the creator tests hasMirror() and reports.
  MDArrayWrapper(foundation::velmardata::Array&& array, char order);
  MDArrayWrapper(const foundation::velmardata::Array& array, char order);
  // Shallow and deliberately incomplete: the copy shares the array and has no mirror.
  MDArrayWrapper(const MDArrayWrapper& other);
  MDArrayWrapper& operator=(const MDArrayWrapper&) = delete;
  ~MDArrayWrapper();

  void init();

  const foundation::velmardata::Array& array() const { return m_array; }
  // The elements in storage order. The memory is there from construction on, the first look fills
  // it: an array that goes from hand to hand without being read is never copied. Null when memory
  // was short.
  std::byte* buf() const {
    if (!m_isMirrorFilled) fillMirror();
    return m_buf;
  }
  bool hasMirror() const { return m_buf != nullptr || m_bufferSizeInBytes == 0; }
  std::int64_t getBufferSizeInBytes() const { return m_bufferSizeInBytes; }
  std::int64_t getNumberOfElements() const { return m_numElems; }
  std::int64_t getElementSizeInBytes() const { return m_elemSizeInBytes; }
  int isReadOnly() const { return m_isReadOnly; }
  int getNumberOfDimensions() const { return m_nDim; }
  const std::vector<std::int64_t>& shape() const { return m_shape; }
  std::int64_t* bytewiseStrides() { return m_bytewiseStrides.data(); }
  char getOrder() const { return m_order; }
  std::int64_t* suboffsets() const { return nullptr; }
  char* format() const;

  void setOrder(char order) { m_order = order; }
  void setNumberOfDimensions(int numberOfDimensions) { m_nDim = numberOfDimensions; }
  void setNumberOfDimensions();
  void setShape(const std::vector<std::int64_t>& shape) { m_shape = shape; }
  void setShape();
  void setNumberOfElements();
  void setElementSizeInBytes();
  void setBufferSizeInBytes() { m_bufferSizeInBytes = m_numElems * m_elemSizeInBytes; }
  void setBytewiseStrides();
  // Room for a new mirror, to be filled with the array's elements.
  void setBuf();

  // Place of an element, counted in elements; missing trailing indices count as 0. -1, with no
  // error set, when there are more indices than dimensions. Indices are not range tested.
  std::int64_t getElementOffsetFromIndices(const Position& indices) const {
    return getElementOffset(indices.size(), [&](std::size_t i) { return indices[i]; });
  }
  // The same for a position whose entry i is indexAt(i); -1 also for a place beyond 64 bits.
  template <class IndexAt>
  std::int64_t getElementOffset(std::size_t count, IndexAt indexAt) const {
    std::int64_t bytes = 0;
    if (!findByteOffset(count, indexAt, bytes)) return -1;
    return bytes >> std::countr_zero(static_cast<std::uint64_t>(m_elemSizeInBytes));
  }
  // The index counted from the end if negative (and possibly still negative); -999 marks an index
  // past the end.
  std::int64_t normalizedIndex(std::int64_t index, std::int64_t dimension) const;
  // The address in the mirror of the element at a position, or null when it lies outside.
  const std::byte* addressOfElement(const Position& position) const {
    return addressOfElement(position.size(), [&](std::size_t i) { return position[i]; });
  }
  // The same for a position whose entry i is indexAt(i).
  template <class IndexAt>
  const std::byte* addressOfElement(std::size_t count, IndexAt indexAt) const;
  // A Python number from element `offset` of the array; null, with no error set, if out of range.
  PyObject* getElementAsPyObjectFromElementOffset(std::int64_t offset) const;

  // Lays another shape over the elements, as many as there are: none moves, and the mirror stays
  // where it is. False, with nothing changed and no error set, when contents shared with another
  // handle could not be copied. Constant time otherwise.
  bool reshape(const std::vector<std::int64_t>& dimensions,
               foundation::velmardata::standalone::ClientArrayFactory& factory, char order,
               velmar::data::MemoryLayout layout);
  // To be called when the addresses of shape and strides go out: their numbers then stay readable
  // for as long as the wrapper lives, reshaped or not.
  void keepDescription() { m_isDescriptionKept = true; }

  // The elements, or one part of each, in storage order as a real 1-by-N array. An empty handle
  // when memory is short. Throws std::runtime_error for an output that the elements do not have.
  foundation::velmardata::Array extractContents(
      foundation::velmardata::standalone::ClientArrayFactory& factory, OutputEnum output) const;
  foundation::velmardata::Array noncomplex(
      foundation::velmardata::standalone::ClientArrayFactory& factory) const {
    return extractContents(factory, OutputEnum::Noncomplex);
  }
  foundation::velmardata::Array real(
      foundation::velmardata::standalone::ClientArrayFactory& factory) const {
    return extractContents(factory, OutputEnum::Real);
  }
  foundation::velmardata::Array imag(
      foundation::velmardata::standalone::ClientArrayFactory& factory) const {
    return extractContents(factory, OutputEnum::Imag);
  }

  // Labelled lines of everything above, for debugging. Throws EArrayUnknownDataType for an array of
  // an unsupported type.
  MODULE_EXPORT std::ostream& writeToOstream(std::ostream& os) const;

  // Stores an element in the array and in the mirror. False with RuntimeError set for a position
  // outside the storage.
  template <class T>
  bool setElementFromIndices(const Position& position, T element);

 private:
  template <class T>
  friend class ElementWriter;

  // Bytes from the first element to the one at a position. False for more indices than dimensions
  // and for a place beyond 64 bits.
  template <class IndexAt>
  bool findByteOffset(std::size_t count, IndexAt indexAt, std::int64_t& bytes) const;
  void fillMirror() const;  // one copy of the elements

  struct Description {
    std::vector<std::int64_t> shape;
    std::vector<std::int64_t> bytewiseStrides;
  };

  // Where the elements were written last.
  struct WritablePlace {
    const velmar::data::impl::ArrayImpl* contents = nullptr;
    foundation::velmardata::ArrayType type{};
    void* elements = nullptr;

    // Whether the array still has those contents, and nobody else does.
    bool isGoodFor(const foundation::velmardata::Array& array,
                   foundation::velmardata::ArrayType wanted) const {
      return contents != nullptr && contents == array.impl() && type == wanted &&
             contents->m_referenceCount.load(std::memory_order_acquire) == 1;
    }
  };

  foundation::velmardata::Array m_array;
  WritablePlace m_writable;
  std::vector<std::int64_t> m_shape;            // first dimension first
  std::vector<std::int64_t> m_bytewiseStrides;  // bytes to step, one entry a dimension
  char m_order;
  std::int32_t m_isReadOnly = 1;  // towards the buffer protocol, for every array
  std::int32_t m_nDim = 0;
  std::int64_t m_numElems = 0;
  std::int64_t m_bufferSizeInBytes = 0;
  std::int64_t m_elemSizeInBytes = 0;
  std::byte* m_buf = nullptr;  // the mirror, from malloc, owned
  mutable bool m_isMirrorFilled = false;
  bool m_isDescriptionKept = false;
  std::vector<Description> m_keptDescriptions;  // of shapes that are no longer the array's
};

// In the header since every element that is read or written comes through here.
template <class IndexAt>
bool MDArrayWrapper::findByteOffset(std::size_t count, IndexAt indexAt, std::int64_t& bytes) const {
  if (count > static_cast<std::size_t>(m_nDim)) return false;
  bytes = 0;
  for (std::size_t i = 0; i < count; ++i) {
    std::int64_t step = 0;
    if (__builtin_mul_overflow(indexAt(i), m_bytewiseStrides[i], &step) ||
        __builtin_add_overflow(bytes, step, &bytes)) {
      return false;
    }
  }
  return true;
}

template <class IndexAt>
const std::byte* MDArrayWrapper::addressOfElement(std::size_t count, IndexAt indexAt) const {
  const std::byte* elements = buf();
  std::int64_t offset = 0;
  if (elements == nullptr || !findByteOffset(count, indexAt, offset)) return nullptr;
  if (offset < 0 || offset > m_bufferSizeInBytes - m_elemSizeInBytes) return nullptr;
  return elements + offset;
}
