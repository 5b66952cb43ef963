// Snapshots of views, and clones.
#include "operations/materialisation.hpp"

#include <utility>

#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "module/apply_visitor.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "operations/nested_lists.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

// Goes through Python values: one way from nested values to an array serves constructions and
// views.
struct MDAFromIndexedArrayVisitor {
  const MCppPyArray& view;

  template <class T>
  std::optional<vd::Array> operator()(const vd::TypedArray<T>& array) const {
    FinalConstructorParser<T> parser;
    if (!flattenContents(parser)) return std::nullopt;
    ConstructionShape& shape = parser.shape();
    shape.makeTwoDimensional();
    ElementBuffer<T> buffer = parser.getFilledBuffer();
    if (buffer == nullptr) return std::nullopt;
    const std::int64_t count = shape.calculateNumberOfElements();
    std::vector<std::int64_t> dimensions = shape.getCalculatedDimensions();
    if (count == 0) {
      // Deliberate: without elements the dimensions are those of the whole storage, because the
      // list tells only the lengths before the first 0.
      const std::vector<unsigned long> all = array.getDimensions();
      if (all.empty()) {
        setError(PyExc_RuntimeError, "dimensions are unexpectedly empty.");
        return std::nullopt;
      }
      dimensions.assign(all.begin(), all.end());
      dimensions.front() = 0;
    }
    return makeTypedArrayFromBuf(std::move(buffer), false, dimensions, count);
  }

 private:
  // The list is freed before the elements are reordered. False with an error set.
  template <class T>
  bool flattenContents(FinalConstructorParser<T>& parser) const {
    const PyRef list = PyRef::steal(getAllContentsAsPyList<T>(view));
    return list && PyErr_Occurred() == nullptr &&
           parser.flattenWithUnspecifiedDimensions(list.get(), false);
  }
};

}  // namespace

std::optional<vd::Array> getIndexedArrayAsMDA(MCppPyArray& view) {
  if (view.caches().indexedArrayAsMDA()) return view.caches().indexedArrayAsMDA();
  vd::Array stored;
  {
    const WrapperAccess storage = view.wrapper();
    if (!storage) return std::nullopt;
    stored = storage->array();  // a handle of its own, because the walk makes objects
  }
  std::optional<vd::Array> made =
      applyVisitor(std::as_const(stored), MDAFromIndexedArrayVisitor{view});
  if (made && !view.caches().indexedArrayAsMDA()) view.setIndexedArrayAsMDA(std::move(*made));
  return view.caches().indexedArrayAsMDA();
}

void updateIndexRestrictedMCppPyArrayIfNecessary(MCppPyArray& view) {
  if (view.indicesAreEmpty() || view.caches().indexRestrictedMCppPyArray() != nullptr) return;
  view.caches().keepIndexRestrictedMCppPyArray(cloneAsMCppPyArrayUniquePtr(view));
}

std::unique_ptr<MCppPyArray> cloneAsMCppPyArrayUniquePtr(MCppPyArray& view) {
  std::optional<vd::Array> array = getIndexedArrayAsMDA(view);
  if (!array) return nullptr;
  const MDArrayWrapper* storage = view.borrowWrapper();  // may be gone: a snapshot outlives it
  if (storage == nullptr || PyErr_Occurred() != nullptr) return nullptr;
  return makeNewView(std::move(*array), view.getSupportedArrayEnum(), view.isComplex(),
                     storage->getOrder() == 'F');
}

PyObject* cloneAsMCPyArray(MCppPyArray& view) {
  PyRef record = PyRef::steal(allocMCPyArrayFromMCppPyArray(view));
  if (!record) return nullptr;
  MCppPyArray* clone = cloneAsMCppPyArrayUniquePtr(view).release();
  if (clone == nullptr && view.caches().indexedArrayAsMDA()) return nullptr;
  getMCPyArrayFromPyObject(record.get())->mcppPyArray = clone;
  return record.release();
}
