// Instances of the subscript handlers, and reads that find the element type at run time.
#include "indexing/element_read_impl.hpp"
#include "module/apply_visitor.hpp"

namespace vd = foundation::velmardata;

namespace {

struct PyObjScalarFromIndicesVisitor {
  const MCppPyArray& view;
  const Position& position;

  template <class T>
  PyObject* operator()(const vd::TypedArray<T>&) const {
    return view.getNumericPyObjectFromNormalizedIntIndices<T>(position);
  }
};

struct ElementAtOffsetVisitor {
  std::int64_t offset;

  template <class T>
  PyObject* operator()(const vd::TypedArray<T>& array) const {
    const T element = array.begin()[offset];
    return makeNumber(element);
  }
};

}  // namespace

extern "C" Py_ssize_t MCPyArray_NumElemsInFirstDim(PyObject* self) {
  const MCppPyArray* view = getInitializedView(self);
  return view != nullptr ? view->getLengthOfActiveDimension() : -1;
}

PyObject* MCppPyArray::getNumericPyObjectFromNormalizedIntIndicesWithoutTemplate(
    const Position& position) const {
  const WrapperAccess storage = wrapper();
  if (!storage) return nullptr;
  return applyVisitor(storage->array(), PyObjScalarFromIndicesVisitor{*this, position});
}

PyObject* MDArrayWrapper::getElementAsPyObjectFromElementOffset(std::int64_t offset) const {
  if (offset < 0 || offset >= m_numElems) return nullptr;
  return applyVisitor(m_array, ElementAtOffsetVisitor{offset});
}

#define X(name, number, enumerator, type, ...)                       \
  template PyObject* MCPyArray_GetItem<type>(PyObject*, Py_ssize_t); \
  template PyObject* MCPyArray_GetViaIndex<type>(PyObject*, PyObject*);
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
