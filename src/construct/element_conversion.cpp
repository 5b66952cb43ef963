// Conversions that do not depend on the element type, and instances of those that do.
#include "construct/element_conversion_impl.hpp"

#include "module/element_types.hpp"

ConversionResult<unsigned long long> getUnsignedLongLongFromPyObject(PyObject* value,
                                                                     const char* typeWord) {
  if (!pyObjectIsLong(value)) return {};
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(value, &overflow);
  if (overflow == 0 && number >= 0) return {static_cast<unsigned long long>(number), std::nullopt};
  if (overflow == 0) {
    return {std::nullopt, ConversionFailure{PyExc_OverflowError, outOfRangeText(number, typeWord)}};
  }
  const unsigned long long large = PyLong_AsUnsignedLongLong(value);
  if (large != static_cast<unsigned long long>(-1) || PyErr_Occurred() == nullptr) {
    return {large, std::nullopt};
  }
  PyErr_Clear();
  // Deliberate: the text names the signed type here too, since one text serves all ints too large.
  return {std::nullopt, ConversionFailure{PyExc_OverflowError, intTooLarge}};
}

ConversionFailure makeRefusal(PyObject* value) {
  const char* message = "type does not match.";
  if (pyObjectIsUnicodeOrString(value)) {
    message = "value is not numeric.";
  } else if (PySequence_Check(value) != 0) {
    message = "sequence passed when scalar was expected.";
  } else if (value == Py_None) {
    message = "value must not be 'None'.";
  }
  return {PyExc_TypeError, message};
}

#define X(name, number, type) \
  template ConversionResult<type> convertPyObjectToElement<type>(PyObject*, bool);
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
