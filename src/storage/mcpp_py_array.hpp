// The view: a pointer to shared storage and the chain of subscripts that restricts it.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "module/element_types.hpp"
#include "module/export.hpp"
#include "module/python.hpp"
#include "module/support.hpp"
#include "storage/index_items.hpp"
#include "storage/md_array_wrapper.hpp"

// Access to a view's storage, for a stretch of code that runs no Python code. Keeps the storage of
// a weak view alive while it lives. Null when the storage has gone; RuntimeError is set then.
class WrapperAccess {
 public:
  explicit WrapperAccess(MDArrayWrapper* strong) : m_wrapper(strong) {}
  explicit WrapperAccess(std::shared_ptr<MDArrayWrapper>&& locked)
      : m_lock(std::move(locked)), m_wrapper(m_lock.get()) {}
  MDArrayWrapper* operator->() const { return m_wrapper; }
  MDArrayWrapper& operator*() const { return *m_wrapper; }
  explicit operator bool() const { return m_wrapper != nullptr; }

 private:
  std::shared_ptr<MDArrayWrapper> m_lock;  // of a weak view only
  MDArrayWrapper* m_wrapper;
};

class MCppPyArray {
 public:
  // A fresh array with storage of its own, held strongly. Test hasMirror() of the storage after.
  MCppPyArray(foundation::velmardata::Array&& array, SupportedArrayEnum type, bool isComplex,
              bool isColumnMajor);
  MCppPyArray(const foundation::velmardata::Array& array, SupportedArrayEnum type, bool isComplex,
              bool isColumnMajor);
  // A view with other's chain. Deliberate: with useWeakPtr false the strong pointer of `other` is
  // copied whatever kind `other` is, so that a weak parent gives a view without storage.
  MCppPyArray(MCppPyArray& other, bool useWeakPtr);
  // A view with a chain of the given positions alone; other's chain is not looked at.
  MCppPyArray(MCppPyArray& other, const Position& indices, bool useWeakPtr);
  MCppPyArray(const MCppPyArray&) = delete;
  MCppPyArray& operator=(const MCppPyArray&) = delete;
  ~MCppPyArray();

  // From the interpreter's allocator for small objects: every subscript makes a view and most are
  // dropped at once.
  static void* operator new(std::size_t size) {
    void* memory = PyObject_Malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
  }
  static void operator delete(void* memory) { PyObject_Free(memory); }

  // Records for Python. Null with RuntimeError set when the record cannot be had.
  PyObject* allocMCPyArrayFromMCppPyArray() const;
  PyObject* shallowCopyToMCPyArray();  // a weak view of the same part

  WrapperAccess wrapper() const {
    return m_wrapper != nullptr ? WrapperAccess(m_wrapper.get()) : lockWrapper();
  }
  // The storage without a hold on it, for one look that ends before any Python code can run. Null
  // with RuntimeError set when the storage has gone.
  const MDArrayWrapper* borrowWrapper() const {
    if (m_wrapper != nullptr) return m_wrapper.get();
    if (!m_weakWrapper.expired()) return m_borrowedWrapper;
    return lockWrapper().operator->();
  }

  // Forwarded to the storage. When it has gone, RuntimeError is set and the result is the value
  // behind the slash. References are valid until Python code may run.
  std::byte* buf() const;              // null
  int getNumberOfDimensions() const {  // -1
    const WrapperAccess storage = wrapper();
    return storage ? storage->getNumberOfDimensions() : -1;
  }
  const std::vector<std::int64_t>& shape() const;      // an empty vector
  char getOrder() const;                               // -1
  std::int64_t* bytewiseStrides() const;               // null
  std::int64_t getBufferSizeInBytes() const;           // -1
  std::int64_t getElementSizeInBytes() const;          // -1
  int isReadOnly() const;                              // -1
  std::int64_t* suboffsets() const;                    // null
  std::int64_t getNumberOfElements() const;            // -1
  const foundation::velmardata::Array& array() const;  // an empty handle
  char* format() const;                                // null
  char* getBufAsCharPtr() const { return reinterpret_cast<char*>(buf()); }

  // Need no storage.
  SupportedArrayEnum getSupportedArrayEnum() const { return m_supportedArrayEnum; }
  bool isComplex() const { return m_isComplex; }
  std::int64_t getNumberOfIntegerIndicesSoFar() const { return m_numberOfIntegerIndicesSoFar; }
  bool hasWeakPtrToWrapper() const { return m_hasWeakPtrToWrapper; }
  bool indicesAreEmpty() const { return m_indices.empty(); }
  IndexChain& getIndicesRef() { return m_indices; }
  IndexChain getRestrictingIndices() const { return m_indices; }
  bool sliceInFinalPreexistingPosition() const { return finalSlice() != nullptr; }
  // The slice that ends the chain, or null. No error is set.
  const SliceIndexItem* finalSlice() const {
    return m_indices.empty() ? nullptr : std::get_if<SliceIndexItem>(&m_indices.back());
  }
  MCppPyArray* getIndexRestrictedMCppPyArray() const { return m_indexRestrictedMCppPyArray.get(); }
  void setIndexedArrayAsMDA(foundation::velmardata::Array&& array);

  // Composition: a new subscript is resolved against a final slice into storage coordinates.
  // False results have an error set, but for a parent slice of negative length.
  Position getIntegerIndicesSoFar(bool& success) const;
  bool getReplacementIndexForSliceAndInt(IntegerIndexItem& item, std::int64_t length) const;
  bool convertSliceAndIntegerToInteger(IntegerIndexItem& item) const;
  bool getReplacementIndexForSliceAndSlice(SliceIndexItem& item, std::int64_t length) const;
  bool convertSliceAndSliceToSlice(SliceIndexItem& item) const;
  bool appendIndexItem(IntegerIndexItem& item);
  bool appendIndexItem(SliceIndexItem& item);

  // Traversal of the view's positions.
  bool incrementIndices(Position& position) const;
  bool containsElementWithIndices(const Position& position, std::int64_t numberOfDimensions) const;
  Position getIndicesOfStartElement(std::int64_t length) const;
  std::int64_t getLengthOfActiveDimension() const;  // -1 on failure
  Position getIntIndicesOfElementFromStoredIntIndicesAndNewIntIndex(std::int64_t newIndex,
                                                                    bool& success) const;
  // Null with RuntimeError set when there is no element at the position.
  const std::byte* getAddressOfElementFromNormalizedIntIndices(const Position& position) const {
    const MDArrayWrapper* storage = borrowWrapper();
    return storage != nullptr ? orNullDataPointer(storage->addressOfElement(position)) : nullptr;
  }
  // The same for the position that the chain's integers and one more index denote.
  const std::byte* getAddressOfElementFromNewIntIndex(std::int64_t newIndex) const;

  // One element as a Python number; null with an error set.
  template <class T>
  PyObject* getNumericPyObjectFromNormalizedIntIndices(const Position& position) const;
  PyObject* getNumericPyObjectFromNormalizedIntIndicesWithoutTemplate(
      const Position& position) const;

  // Writes. The value is read completely before the first element is stored; elements stored before
  // a failure stay. 0, or -1 with an error set.
  template <class T>
  int setItemsFromFinalOrNonFinalIntegerIndex(std::int64_t index, std::int64_t length,
                                              PyObject* value);
  template <class T>
  int setItemViaFinalIntegerIndex(std::int64_t index, PyObject* value);
  template <class T>
  int setMultipleElementsFromNonFinalIntegerIndex(std::int64_t index, PyObject* value);
  template <class T>
  int setMultipleElementsFromNonFinalSliceIndex(SliceIndexItem& slice, PyObject* value,
                                                std::int64_t length);
  template <class T>
  int setIndividualElementsFromFlatSeqOfMultipleIntegerIndices(
      const std::vector<std::int64_t>& indices, PyObject* value);
  template <class T>
  bool setElementFromIndices(const Position& position, T element);

  // The view as an array of its own, made once and kept: a snapshot that later writes do not reach.
  // With the flag, a single dimension n becomes 1 by n. Empty with an error set.
  std::optional<foundation::velmardata::Array> getIndexedArrayAsMDA(
      velmar::data::MemoryLayout layout, bool makeTwoDimensional);
  void updateIndexRestrictedMCppPyArrayIfNecessary(velmar::data::MemoryLayout layout,
                                                   bool makeTwoDimensional);
  std::unique_ptr<MCppPyArray> cloneAsMCppPyArrayUniquePtr(velmar::data::MemoryLayout layout,
                                                           bool makeTwoDimensional);
  // A record in any case if it can be had; without a view, and with the error left pending, when
  // there is nothing to clone.
  PyObject* cloneAsMCPyArray(velmar::data::MemoryLayout layout, bool makeTwoDimensional);

  // Another shape for the storage, and so for all that share it. False, with nothing changed and no
  // error set, when memory is short. Deliberate: when the storage has gone the error is set, and
  // the result is true.
  bool reshape(const std::vector<std::int64_t>& dimensions,
               foundation::velmardata::standalone::ClientArrayFactory& factory, char order,
               velmar::data::MemoryLayout layout);

  // The elements of the whole storage, whatever the view shows, as a real 1-by-N array. Empty with
  // an error set.
  std::optional<foundation::velmardata::Array> noncomplex() const;
  std::optional<foundation::velmardata::Array> realOrImag(bool wantReal) const;

  // Labelled lines of everything known about the view and its storage, for debugging; the lines of
  // storage that has gone are left out.
  MODULE_EXPORT std::ostream& writeToOstream(std::ostream& os) const;

  // Whether two walks yield the same. Empty with an error set.
  template <class T>
  std::optional<bool> isEqualTo(MCppPyArray& other);

  // Nested lists. `indices` holds the positions fixed so far and comes back as it was.
  template <class T>
  PyObject* getContentsAsPyList(Position& indices, std::uint64_t dimension) const;
  template <class T>
  PyObject* getAllContentsAsPyList() const;
  PyObject* getPyListFromNormalizedIntIndicesWithoutTemplate(Position& indices,
                                                             std::int64_t dimension);

  // Text of the nested list; in the constructor form, a call that makes the array anew.
  template <class T>
  std::optional<std::string> getStrAsStdString(bool useConstructorForm, bool keepSpaces) const;
  template <class T>
  PyObject* getStr(bool useConstructorForm, bool keepSpaces) const;

 private:
  void takePointerOf(const MCppPyArray& other);
  static const std::byte* orNullDataPointer(const std::byte* address) {
    if (address == nullptr) [[unlikely]]
      setError(PyExc_RuntimeError, messages::nullDataPointer);
    return address;
  }
  // Whether the chain begins with the integers that were counted; RuntimeError is set if not.
  bool integersComeFirst() const;
  // The position that the chain's integers and one more index denote, entry by entry.
  auto positionBehindIntegers(std::int64_t newIndex) const {
    return [this, newIndex](std::size_t k) {
      return k < static_cast<std::size_t>(m_numberOfIntegerIndicesSoFar)
                 ? std::get_if<IntegerIndexItem>(&m_indices[k])->m_index
                 : newIndex;
    };
  }
  WrapperAccess lockWrapper() const;

  bool m_hasWeakPtrToWrapper = false;
  std::shared_ptr<MDArrayWrapper> m_wrapper;          // empty in a weak view
  std::weak_ptr<MDArrayWrapper> m_weakWrapper;        // empty in a strong view
  const MDArrayWrapper* m_borrowedWrapper = nullptr;  // valid until m_weakWrapper expires
  SupportedArrayEnum m_supportedArrayEnum;
  bool m_isComplex;
  IndexChain m_indices;
  std::int64_t m_numberOfIntegerIndicesSoFar = 0;
  // Snapshots of the view as an array of its own, made on demand and never refreshed.
  std::optional<foundation::velmardata::Array> m_indexedArrayAsMDA;
  std::unique_ptr<MCppPyArray> m_indexRestrictedMCppPyArray;
};
