// The view: a pointer to shared storage and the chain of subscripts that restricts it.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <span>
#include <utility>
#include <velmardata/velmardata.hpp>

#include "module/element_types.hpp"
#include "module/export.hpp"
#include "module/python.hpp"
#include "module/support.hpp"
#include "storage/index_chain.hpp"
#include "storage/md_array_wrapper.hpp"
#include "storage/small_object.hpp"
#include "storage/storage_link.hpp"
#include "storage/view_caches.hpp"

// Access to a view's storage, for a stretch of code that runs no Python code. While it lives it
// keeps the storage of a weak view alive. Null with RuntimeError set when the storage has expired.
class WrapperAccess {
 public:
  explicit WrapperAccess(MDArrayWrapper* strong) : m_wrapper(strong) {}
  explicit WrapperAccess(StorageLink&& locked)
      : m_lock(std::move(locked)), m_wrapper(m_lock.find()) {}
  MDArrayWrapper* operator->() const { return m_wrapper; }
  MDArrayWrapper& operator*() const { return *m_wrapper; }
  explicit operator bool() const { return m_wrapper != nullptr; }

 private:
  StorageLink m_lock;  // of a weak view only
  MDArrayWrapper* m_wrapper;
};

// Ownership. A strong view owns a share of the storage; a weak view owns nothing of it and finds it
// expired once the last strong view is gone. Each view owns its chain and its caches. The Python
// record (MCPyArray) owns the view.
// Borrowed: whatever wrapper() and borrowWrapper() give is valid until Python code may run.
//
// Invariants. m_storage is strong, weak, or nothing in a strong copy of a weak view. The chain
// never changes once Python has the view. Class and complexity agree with the element type of the
// storage.
//
// Kept for Python programs: a strong copy of a weak view has no storage (rows from loops take
// integers, not slices), and the caches are never refreshed, so that what a view has exported does
// not change.
class MCppPyArray : public SmallObject {
 public:
  // A new array with storage of its own, held strongly. The caller tests hasMirror() of the
  // storage; makeNewView() does both. The dimensions are those that MDArrayWrapper takes.
  MCppPyArray(foundation::velmardata::Array&& array, SupportedArrayEnum type, bool isComplex,
              bool isColumnMajor, Contents contents, std::span<const std::int64_t> dimensions = {});
  // A view with other's chain and empty caches. With useWeakPtr false it takes other's strong
  // pointer even if that is empty.
  MCppPyArray(const MCppPyArray& other, bool useWeakPtr);
  // A view with other's chain and one subscript more, in coordinates of the storage, which takes
  // the place of a slice at the end.
  template <class Item>
  MCppPyArray(const MCppPyArray& other, const Item& item, bool useWeakPtr)
      : m_storage(linkTo(other, useWeakPtr)),
        m_hasWeakPtrToWrapper(useWeakPtr),
        m_supportedArrayEnum(other.m_supportedArrayEnum),
        m_isComplex(other.m_isComplex),
        m_indices(other.m_indices, item) {}
  // A view of other's storage at the given positions; other's chain is not used.
  MCppPyArray(const MCppPyArray& other, const Position& positions, bool useWeakPtr);
  MCppPyArray(const MCppPyArray&) = delete;
  MCppPyArray& operator=(const MCppPyArray&) = delete;
  ~MCppPyArray();

  WrapperAccess wrapper() const {
    if (m_hasWeakPtrToWrapper) return WrapperAccess(lockWrapper());
    return WrapperAccess(borrowWrapper());
  }
  // The storage without a hold on it, for one look that ends before Python code can run. Null, with
  // no error set, when the storage has expired.
  MDArrayWrapper* findWrapper() const { return m_storage.find(); }
  // The same with RuntimeError set when the storage has expired.
  MDArrayWrapper* borrowWrapper() const {
    MDArrayWrapper* storage = findWrapper();
    if (storage == nullptr) [[unlikely]]
      setError(PyExc_RuntimeError, messages::expiredStorage);
    return storage;
  }
  bool hasWeakPtrToWrapper() const { return m_hasWeakPtrToWrapper; }
  // -1 with RuntimeError set when the storage has expired.
  int getNumberOfDimensions() const {
    const MDArrayWrapper* storage = borrowWrapper();
    return storage != nullptr ? storage->getNumberOfDimensions() : -1;
  }

  SupportedArrayEnum getSupportedArrayEnum() const { return m_supportedArrayEnum; }
  bool isComplex() const { return m_isComplex; }

  const IndexChain& chain() const { return m_indices; }
  bool indicesAreEmpty() const { return m_indices.isEmpty(); }
  std::int64_t getNumberOfIntegerIndicesSoFar() const {
    return static_cast<std::int64_t>(m_indices.integers().size());
  }
  // The positions that the chain's integers fix.
  Position getIntegerIndicesSoFar() const;

  // Narrows a view that Python does not have yet, whose chain must not end in a slice.
  template <class Item>
  void appendIndexItem(const Item& item) {
    m_indices.append(item);
  }

  // Made at the first use, because most views are never copied. Throws std::bad_alloc.
  ViewCaches& caches() {
    if (m_caches == nullptr) m_caches = std::make_unique<ViewCaches>();
    return *m_caches;
  }
  // Replaces the cached array.
  void setIndexedArrayAsMDA(foundation::velmardata::Array&& array);

  // Labelled lines of everything known about the view and its storage, for debugging. The lines of
  // expired storage are left out; no error is set.
  MODULE_EXPORT std::ostream& writeToOstream(std::ostream& os) const;

 private:
  static StorageLink linkTo(const MCppPyArray& other, bool useWeakPtr) {
    return useWeakPtr ? other.m_storage.weak() : other.m_storage.strong();
  }
  StorageLink lockWrapper() const;

  StorageLink m_storage;
  bool m_hasWeakPtrToWrapper = false;
  SupportedArrayEnum m_supportedArrayEnum;
  bool m_isComplex;
  IndexChain m_indices;
  std::unique_ptr<ViewCaches> m_caches;  // null until used
};
