// Construction of views, and their caches.
#include "storage/mcpp_py_array.hpp"

#include <utility>

#include "module/support.hpp"

namespace vd = foundation::velmardata;

MCppPyArray::MCppPyArray(vd::Array&& array, SupportedArrayEnum type, bool isComplex,
                         bool isColumnMajor, Contents contents,
                         std::span<const std::int64_t> dimensions)
    : m_storage(
          StorageLink::make(std::move(array), isColumnMajor ? 'F' : 'C', contents, dimensions)),
      m_supportedArrayEnum(type),
      m_isComplex(isComplex) {}

MCppPyArray::MCppPyArray(const MCppPyArray& other, bool useWeakPtr)
    : m_storage(linkTo(other, useWeakPtr)),
      m_hasWeakPtrToWrapper(useWeakPtr),
      m_supportedArrayEnum(other.m_supportedArrayEnum),
      m_isComplex(other.m_isComplex),
      m_indices(other.m_indices) {}

MCppPyArray::MCppPyArray(const MCppPyArray& other, const Position& positions, bool useWeakPtr)
    : m_storage(linkTo(other, useWeakPtr)),
      m_hasWeakPtrToWrapper(useWeakPtr),
      m_supportedArrayEnum(other.m_supportedArrayEnum),
      m_isComplex(other.m_isComplex),
      m_indices(positions) {}

MCppPyArray::~MCppPyArray() = default;

StorageLink MCppPyArray::lockWrapper() const {
  StorageLink locked = m_storage.lock();
  if (locked.find() == nullptr) setError(PyExc_RuntimeError, messages::expiredStorage);
  return locked;
}

Position MCppPyArray::getIntegerIndicesSoFar() const {
  Position indices;
  indices.reserve(m_indices.integers().size() + 1);
  for (const IntegerIndexItem& item : m_indices.integers()) indices.push_back(item.m_index);
  return indices;
}

void MCppPyArray::setIndexedArrayAsMDA(vd::Array&& array) {
  caches().setIndexedArrayAsMDA(std::move(array));
}

ViewCaches::ViewCaches() = default;
ViewCaches::~ViewCaches() = default;

void ViewCaches::keepIndexRestrictedMCppPyArray(std::unique_ptr<MCppPyArray> copy) {
  if (m_indexRestrictedMCppPyArray == nullptr) m_indexRestrictedMCppPyArray = std::move(copy);
}
