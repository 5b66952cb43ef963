// Entry points, tables and specs of the classes, made from the table of element types.
#include "module/entry/type_specs.hpp"

#include "construct/constructor_entry.hpp"
#include "indexing/element_read.hpp"
#include "indexing/element_write.hpp"
#include "module/entry/guarded.hpp"
#include "module/export.hpp"
#include "operations/handlers.hpp"
#include "operations/iterator.hpp"
#include "storage/mcpy_array.hpp"

extern "C" {
// The two slots of the buffer protocol, for clients that make a type around an array.
MODULE_EXPORT PyType_Slot MCPyArray_Buffer_Type_Slot[] = {
    {Py_bf_getbuffer, reinterpret_cast<void*>(guarded<MCPyArray_GetBuffer>)},
    {Py_bf_releasebuffer, reinterpret_cast<void*>(MCPyArray_ReleaseBuffer)},
    {0, nullptr}};
}

namespace {

// The entry points of each class.
#define X(name, number, enumerator, type, suffix, ...)                                    \
  constexpr auto MCPyArray_GetItem_##suffix = guarded<MCPyArray_GetItem<type>>;           \
  constexpr auto MCPyArray_GetRepr_##suffix = guarded<MCPyArray_GetRepr<type>>;           \
  constexpr auto MCPyArray_GetViaIndex_##suffix = guarded<MCPyArray_GetViaIndex<type>>;   \
  constexpr auto MCPyArray_SetViaIndex_##suffix = guarded<MCPyArray_SetViaIndex<type>>;   \
  constexpr auto MCPyArray_GetStr_##suffix = guarded<MCPyArray_GetStr<type>>;             \
  constexpr auto MCPyArray_RichCompare_##suffix = guarded<MCPyArray_RichCompare<double>>; \
  constexpr auto MCPyArray_New_##suffix = guarded<MCPyArray_New<type>>;
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X

template <class Function>
PyType_Slot slot(int number, Function* function) {
  return {number, reinterpret_cast<void*>(function)};
}

PyMethodDef MCPyArray_Methods[] = {
    {"reshape",
     reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(guarded<MCPyArray_Reshape>)),
     METH_VARARGS | METH_KEYWORDS,
     "reshape changes the dimensions of an N-dimensional array while preserving the values"},
    {"buffer_info", guarded<MCPyArray_BufferInfo>, METH_NOARGS,
     "buffer_info returns a two-element tuple containing the address of the buffer and the number "
     "of elements"},
    {"get_bytewise_strides", guarded<MCPyArray_GetBytewiseStrides>, METH_NOARGS,
     "get_bytewise_strides returns a tuple containing the bytewise strides"},
    {"clone", guarded<MCPyArray_Clone>, METH_NOARGS,
     "clone returns an independent copy of the input object"},
    {"real", guarded<MCPyArray_Real>, METH_NOARGS,
     "real returns the real part of the input object as a 1-by-N array"},
    {"imag", guarded<MCPyArray_Imag>, METH_NOARGS,
     "imag returns the imaginary part of the input object as a 1-by-N array"},
    {"noncomplex", guarded<MCPyArray_Noncomplex>, METH_NOARGS,
     "noncomplex returns the the input object (which must be noncomplex) as a 1-by-N array"},
    {"toarray", guarded<MCPyArray_ToArrayArray>, METH_NOARGS,
     "toarray returns an array.array initialized from the input object"},
    {"tomemoryview", guarded<MCPyArray_ToMemoryView>, METH_NOARGS,
     "tomemoryview returns a memoryview initialized from the input object"},
    {"__reduce__", guarded<MCPyArray_Reduce>, METH_NOARGS, "__reduce__ pickles the input object"},
    {nullptr, nullptr, 0, nullptr}};

// All read-only. The size has two names, because programs use both.
PyGetSetDef MCPyArray_GetSetMethods[] = {
    {"size", guarded<MCPyArray_GetArraySize>, nullptr, "dimensions", nullptr},
    {"_size", guarded<MCPyArray_GetArraySize>, nullptr, "dimensions", nullptr},
    {"itemsize", guarded<MCPyArray_GetElementSize>, nullptr, "size of an element in bytes",
     nullptr},
    {"_real", guarded<MCPyArray_GetRealAsAttrib>, nullptr,
     "real part of elements; equivalent to real()", nullptr},
    {"_imag", guarded<MCPyArray_GetImagAsAttrib>, nullptr,
     "imaginary part of elements; equivalent to imag()", nullptr},
    {"_data", guarded<MCPyArray_GetNoncomplexAsAttrib>, nullptr,
     "elements in storage order; equivalent to noncomplex()", nullptr},
    {"_is_complex", guarded<MCPyArray_GetIsComplexAsAttrib>, nullptr, "whether array is complex",
     nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

#define X(name, number, enumerator, type, suffix, word, letter)                                   \
  PyType_Slot slotsOf##enumerator[] = {slot(Py_bf_getbuffer, guarded<MCPyArray_GetBuffer>),       \
                                       slot(Py_bf_releasebuffer, MCPyArray_ReleaseBuffer),        \
                                       slot(Py_tp_dealloc, MCPyArray_Delete),                     \
                                       slot(Py_sq_length, guarded<MCPyArray_NumElemsInFirstDim>), \
                                       slot(Py_sq_item, MCPyArray_GetItem_##suffix),              \
                                       slot(Py_tp_repr, MCPyArray_GetRepr_##suffix),              \
                                       slot(Py_mp_length, guarded<MCPyArray_NumElemsInFirstDim>), \
                                       slot(Py_mp_subscript, MCPyArray_GetViaIndex_##suffix),     \
                                       slot(Py_mp_ass_subscript, MCPyArray_SetViaIndex_##suffix), \
                                       slot(Py_tp_str, MCPyArray_GetStr_##suffix),                \
                                       slot(Py_tp_richcompare, MCPyArray_RichCompare_##suffix),   \
                                       slot(Py_tp_iter, guarded<MCPyArray_GetIter>),              \
                                       {Py_tp_methods, MCPyArray_Methods},                        \
                                       {Py_tp_getset, MCPyArray_GetSetMethods},                   \
                                       slot(Py_tp_new, MCPyArray_New_##suffix),                   \
                                       {0, nullptr}};                                             \
  PyType_Spec specOf##enumerator = {"velmar." word, sizeof(MCPyArray), 0, 0, slotsOf##enumerator};
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X

char iteratorDoc[] = "Internal iterator object";
PyType_Slot iteratorSlots[] = {slot(Py_tp_dealloc, MCPyIter_Delete),
                               slot(Py_tp_iter, guarded<MCPyIter_GetIter>),
                               slot(Py_tp_iternext, guarded<MCPyIter_GetIterNext>),
                               {Py_tp_doc, iteratorDoc},
                               {0, nullptr}};

}  // namespace

const std::array<PyType_Spec*, numberOfArrayClasses> TypeSpecPointers = {
#define X(name, number, enumerator, ...) &specOf##enumerator,
    VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
};

const std::array<const char*, numberOfArrayClasses + 1> MCPyArrayTypeNames = {
#define X(name, number, enumerator, type, suffix, word, letter) word,
    VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
        nullptr};

PyType_Spec MCPyIterTypeSpec = {"velmar.MCPyIter", sizeof(MCPyIter), 0, 0, iteratorSlots};
