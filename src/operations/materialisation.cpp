// Views as arrays of their own: the snapshot, and clones.
#include <utility>

#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "construct/memory_error.hpp"
#include "module/apply_visitor.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;
using velmar::data::MemoryLayout;

namespace {

// By design through Python values: the one road from nested values to an array serves views too.
struct MDAFromIndexedArrayVisitor {
  const MCppPyArray& view;
  MemoryLayout layout;  // for layouts to come; there is one
  bool makeTwoDimensional;

  template <class T>
  std::optional<vd::Array> operator()(const vd::TypedArray<T>& array) const {
    FinalConstructorParser<T> parser;
    if (!flattenContents(parser)) return std::nullopt;
    if (makeTwoDimensional) parser.makeTwoDimensional();
    ElementBuffer<T> buffer = parser.getFilledBuffer();
    const std::int64_t count = parser.calculateNumberOfElements();
    if (buffer == nullptr) {
      setOutOfMemory(static_cast<std::uint64_t>(count), typeWord<T>);
      return std::nullopt;
    }
    std::vector<std::int64_t> dimensions = parser.getCalculatedDimensions();
    if (count == 0) {
      // Deliberate: without elements the dimensions are those of the whole storage.
      const std::vector<unsigned long> all = array.getDimensions();
      if (all.empty()) {
        setError(PyExc_RuntimeError, "dimensions are unexpectedly empty.");
        return std::nullopt;
      }
      dimensions.assign(all.begin(), all.end());
      dimensions.front() = 0;
    }
    vd::standalone::ClientArrayFactory factory;
    return makeTypedArrayFromBuf(std::move(buffer), false, factory, dimensions, dimensions, count);
  }

 private:
  // The list is gone before the elements are laid out anew.
  template <class T>
  bool flattenContents(FinalConstructorParser<T>& parser) const {
    const PyRef list = PyRef::steal(view.getAllContentsAsPyList<T>());
    return list && PyErr_Occurred() == nullptr &&
           parser.flattenWithUnspecifiedDimensions(list.get(), false);
  }
};

}  // namespace

std::optional<vd::Array> MCppPyArray::getIndexedArrayAsMDA(MemoryLayout layout,
                                                           bool makeTwoDimensional) {
  if (m_indexedArrayAsMDA) return m_indexedArrayAsMDA;
  vd::Array stored;
  {
    const WrapperAccess storage = wrapper();
    if (!storage) return std::nullopt;
    stored = storage->array();  // of its own, since the walk makes objects
  }
  std::optional<vd::Array> made = applyVisitor(
      std::as_const(stored), MDAFromIndexedArrayVisitor{*this, layout, makeTwoDimensional});
  // The walk can run code that asks for the same snapshot; the first one made stays.
  if (made && !m_indexedArrayAsMDA) setIndexedArrayAsMDA(std::move(*made));
  return m_indexedArrayAsMDA;
}

void MCppPyArray::updateIndexRestrictedMCppPyArrayIfNecessary(MemoryLayout layout,
                                                              bool makeTwoDimensional) {
  if (indicesAreEmpty() || m_indexRestrictedMCppPyArray != nullptr) return;
  std::unique_ptr<MCppPyArray> copy = cloneAsMCppPyArrayUniquePtr(layout, makeTwoDimensional);
  // As for the snapshot; the memory of one made meanwhile may have gone out already.
  if (m_indexRestrictedMCppPyArray == nullptr) m_indexRestrictedMCppPyArray = std::move(copy);
}

std::unique_ptr<MCppPyArray> MCppPyArray::cloneAsMCppPyArrayUniquePtr(MemoryLayout layout,
                                                                      bool makeTwoDimensional) {
  const std::optional<vd::Array> array = getIndexedArrayAsMDA(layout, makeTwoDimensional);
  if (!array) return nullptr;
  const char order = getOrder();
  if (PyErr_Occurred() != nullptr) return nullptr;  // a snapshot outlives the storage
  auto clone =
      std::make_unique<MCppPyArray>(*array, m_supportedArrayEnum, m_isComplex, order == 'F');
  if (clone->wrapper()->hasMirror()) return clone;
  setOutOfMemory(array->getNumberOfElements(), typeWordOf(m_supportedArrayEnum));
  return nullptr;
}

PyObject* MCppPyArray::cloneAsMCPyArray(MemoryLayout layout, bool makeTwoDimensional) {
  PyRef record = PyRef::steal(allocMCPyArrayFromMCppPyArray());
  if (!record) return nullptr;
  MCppPyArray* clone = cloneAsMCppPyArrayUniquePtr(layout, makeTwoDimensional).release();
  // There was something to clone: the failure is the clone's own, and reported as any.
  if (clone == nullptr && m_indexedArrayAsMDA) return nullptr;
  getMCPyArrayFromPyObject(record.get())->mcppPyArray = clone;
  return record.release();
}
