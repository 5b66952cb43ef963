// The look for signals.
#include "module/signals.hpp"

#include "module/py_ref.hpp"

bool SignalWatch::look() {
  m_untilLook = elementsPerLook;
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_Fetch(&type, &value, &traceback);
  PyRef pending[] = {PyRef::steal(type), PyRef::steal(value), PyRef::steal(traceback)};
  m_hasRaised = PyErr_CheckSignals() != 0;
  if (m_hasRaised) return false;
  PyErr_Restore(pending[0].release(), pending[1].release(), pending[2].release());
  return true;
}
