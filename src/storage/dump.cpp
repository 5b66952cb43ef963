// The diagnostic dump: everything known about a view and its storage, for debugging.
#include <complex>
#include <exception>
#include <ostream>
#include <span>
#include <string>

#include "module/apply_visitor.hpp"
#include "storage/mcpp_py_array.hpp"

namespace vd = foundation::velmardata;

namespace {

// The stream's width must not apply to it.
void endLine(std::ostream& os) {
  os.put(os.widen('\n'));
}

void endLineAndFlush(std::ostream& os) {
  endLine(os);
  os.flush();
}

template <class T>
void writeLine(std::ostream& os, const char* label, const T& value) {
  os << label << value;
  endLine(os);
}

// The lines of the storage are flushed one by one, so that a crash while it is read shows where.
template <class T>
void writeStorageLine(std::ostream& os, const char* label, const T& value) {
  os << label << value;
  endLineAndFlush(os);
}

// Streams write bytes as characters.
template <class T>
void writeElements(std::ostream& os, const T* elements, std::int64_t count) {
  for (std::int64_t k = 0; k < count; ++k) os << elements[k] << " ";
}

void writeCharacters(std::ostream& os, const vd::CharArray& array) {
  std::string text;
  try {
    text = array.toAscii();
  } catch (const std::exception&) {
    os << "Output contains non-ASCII characters and cannot be written";
    endLine(os);
    return;
  }
  for (char character : text) os << character << " ";
}

// Writes the elements that the data library holds.
struct ArrayOstreamVisitor {
  std::ostream& os;

  template <class T>
  void operator()(const vd::TypedArray<T>& array) const {
    const auto first = array.begin();
    const auto count = static_cast<std::int64_t>(array.getNumberOfElements());
    if (count > 0) writeElements(os, &*first, count);
  }
  void operator()(const vd::CharArray& array) const { writeCharacters(os, array); }
};

// Writes the elements that the mirror holds. The array only gives their type.
struct BufOstreamVisitor {
  std::ostream& os;
  const std::byte* elements;
  std::int64_t count;

  template <class T>
  void operator()(const vd::TypedArray<T>&) const {
    writeElements(os, reinterpret_cast<const T*>(elements), count);
  }
  void operator()(const vd::CharArray& array) const { writeCharacters(os, array); }
};

void writeNumbers(std::ostream& os, const char* label, std::span<const std::int64_t> numbers) {
  os << label;
  for (const std::int64_t number : numbers) os << number << " ";
  endLineAndFlush(os);
}

void writeItem(std::ostream& os, const IntegerIndexItem& item) {
  writeLine(os, "m_index: ", item.m_index);
  writeLine(os, "m_isNormalized: ", item.m_isNormalized);
}

void writeItem(std::ostream& os, const SliceIndexItem& item) {
  const auto write = [&os](const char* label, const std::optional<std::int64_t>& number) {
    if (number) {
      writeLine(os, label, *number);
    } else {
      writeLine(os, label, "None");
    }
  };
  write("m_start: ", item.m_start);
  write("m_stop: ", item.m_stop);
  write("m_step: ", item.m_step);
  write("m_slice_len: ", item.m_slice_len);
  writeLine(os, "m_isNormalized: ", item.m_isNormalized);
}

}  // namespace

std::ostream& MDArrayWrapper::writeToOstream(std::ostream& os) const {
  os << "MDA buffer: ";
  applyVisitor(m_array, ArrayOstreamVisitor{os});
  endLineAndFlush(os);
  writeNumbers(os, "m_shape: ", shape());
  writeNumbers(os, "m_bytewiseStrides: ", bytewiseStrides());
  writeStorageLine(os, "m_order: ", m_order);
  writeStorageLine(os, "m_isReadOnly: ", m_isReadOnly);
  writeStorageLine(os, "m_nDim: ", m_nDim);
  writeStorageLine(os, "m_numElems: ", m_numElems);
  writeStorageLine(os, "m_bufferSizeInBytes: ", m_bufferSizeInBytes);
  writeStorageLine(os, "m_elemSizeInBytes: ", m_elemSizeInBytes);
  os << "m_buf: ";
  applyVisitor(m_array, BufOstreamVisitor{os, buf(), m_numElems});
  endLineAndFlush(os);
  return os;
}

std::ostream& MCppPyArray::writeToOstream(std::ostream& os) const {
  os << "MDArrayWrapper: ";
  endLine(os);
  const StorageLink locked = m_storage.lock();
  if (const MDArrayWrapper* storage = locked.find()) storage->writeToOstream(os);
  endLine(os);
  writeLine(os, "m_supportedArrayEnum: ", static_cast<int>(m_supportedArrayEnum));
  writeLine(os, "m_isComplex: ", m_isComplex);
  for (const IntegerIndexItem& item : m_indices.integers()) writeItem(os, item);
  if (const SliceIndexItem* slice = m_indices.finalSlice()) writeItem(os, *slice);
  writeLine(os, "m_numberOfIntegerIndicesSoFar: ", getNumberOfIntegerIndicesSoFar());
  os << "m_indexedArrayAsMDA: ";
  if (m_caches != nullptr && m_caches->indexedArrayAsMDA()) {
    applyVisitor(*m_caches->indexedArrayAsMDA(), ArrayOstreamVisitor{os});
  } else {
    os << "None";
  }
  endLine(os);
  endLineAndFlush(os);
  return os;
}
