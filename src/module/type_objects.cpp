// Storage of the tables of Python objects, and the slots of the classes.
#include "module/type_objects.hpp"

namespace {

struct ItemSlots {
  void* item = nullptr;
  void* length = nullptr;

  bool operator==(const ItemSlots&) const = default;
};
std::array<ItemSlots, numberOfArrayClasses> itemSlots;

ItemSlots slotsOf(SupportedArrayEnum arrayClass) {
  PyTypeObject* type = typeObjectOf(arrayClass);
  return {PyType_GetSlot(type, Py_sq_item), PyType_GetSlot(type, Py_sq_length)};
}

}  // namespace

void rememberItems(SupportedArrayEnum arrayClass) {
  itemSlots[static_cast<std::size_t>(arrayClass)] = slotsOf(arrayClass);
}

bool hasOwnItems(SupportedArrayEnum arrayClass) {
  return itemSlots[static_cast<std::size_t>(arrayClass)] == slotsOf(arrayClass);
}

std::array<PyTypeObject*, numberOfArrayClasses> TypeObjectPointers = {};
PyTypeObject* MCPyIterTypeObj = nullptr;
PyObject* ArrayArray::s_arrayClass = nullptr;
PyObject* ArrayArray::s_arrayModule = nullptr;
