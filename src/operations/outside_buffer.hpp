// Buffers of other objects, for native clients.
#pragma once

#include "module/python.hpp"

// Obtains the buffer of an object for reading, contiguous in either order, and tells its element
// type: the number of the format's letter (see getArrayTypeEnumFromChar), the part's for a complex
// format. The caller releases the buffer after a result of 0 or above. Deliberate: the failures
// from -4 on leave a buffer that was obtained as it is.
//
// -1: no object, or no buffer interface; no error is set. The others come with one: -2 a null
// argument, -3 the object's own refusal, -4 no format, -5 an empty one, -6 no such element type.
int fillPyBuffer(PyObject* object, Py_buffer* buffer, bool* isComplex);
