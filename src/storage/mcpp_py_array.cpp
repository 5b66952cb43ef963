// Construction of views, and their caches.
#include "storage/mcpp_py_array.hpp"

#include <utility>

#include "module/support.hpp"

namespace vd = foundation::velmardata;

MCppPyArray::MCppPyArray(vd::Array&& array, SupportedArrayEnum type, bool isComplex,
                         bool isColumnMajor, Contents contents)
    : m_wrapper(
          std::make_shared<MDArrayWrapper>(std::move(array), isColumnMajor ? 'F' : 'C', contents)),
      m_supportedArrayEnum(type),
      m_isComplex(isComplex) {}

MCppPyArray::MCppPyArray(const MCppPyArray& other, bool useWeakPtr)
    : m_hasWeakPtrToWrapper(useWeakPtr),
      m_supportedArrayEnum(other.m_supportedArrayEnum),
      m_isComplex(other.m_isComplex),
      m_indices(other.m_indices) {
  takePointerOf(other);
}

MCppPyArray::MCppPyArray(const MCppPyArray& other, const Position& positions, bool useWeakPtr)
    : m_hasWeakPtrToWrapper(useWeakPtr),
      m_supportedArrayEnum(other.m_supportedArrayEnum),
      m_isComplex(other.m_isComplex),
      m_indices(positions) {
  takePointerOf(other);
}

MCppPyArray::~MCppPyArray() = default;

void MCppPyArray::takePointerOf(const MCppPyArray& other) {
  if (!m_hasWeakPtrToWrapper) {
    m_wrapper = other.m_wrapper;
  } else if (other.m_hasWeakPtrToWrapper) {
    m_weakWrapper = other.m_weakWrapper;
    m_borrowedWrapper = other.m_borrowedWrapper;
  } else {
    m_weakWrapper = other.m_wrapper;
    m_borrowedWrapper = other.m_wrapper.get();
  }
}

WrapperAccess MCppPyArray::lockWrapper() const {
  std::shared_ptr<MDArrayWrapper> locked = m_weakWrapper.lock();
  if (locked == nullptr) setError(PyExc_RuntimeError, messages::expiredStorage);
  return WrapperAccess(std::move(locked));
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
