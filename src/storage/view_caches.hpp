// What a view keeps of its own contents once something has asked for them as an array.
#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <velmardata/velmardata.hpp>

class MCppPyArray;

// The view's contents as a library array, and an array of Python's that exports them. Both are
// snapshots of the moment when they were first asked for and are never refreshed: what a view has
// exported must not change. Making one can run Python code that asks for the same one; callers keep
// the first that was made.
class ViewCaches {
 public:
  ViewCaches();
  ~ViewCaches();

  // Empty until one was kept.
  const std::optional<foundation::velmardata::Array>& indexedArrayAsMDA() const {
    return m_indexedArrayAsMDA;
  }
  void setIndexedArrayAsMDA(foundation::velmardata::Array&& array) {
    m_indexedArrayAsMDA = std::move(array);
  }

  // Null until one was kept. Owned by the cache.
  MCppPyArray* indexRestrictedMCppPyArray() const { return m_indexRestrictedMCppPyArray.get(); }
  // Null is allowed and keeps nothing.
  void keepIndexRestrictedMCppPyArray(std::unique_ptr<MCppPyArray> copy);

 private:
  // The exporting array goes first, before the array that it was made of.
  std::optional<foundation::velmardata::Array> m_indexedArrayAsMDA;
  std::unique_ptr<MCppPyArray> m_indexRestrictedMCppPyArray;
};
