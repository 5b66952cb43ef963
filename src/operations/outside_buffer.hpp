// Buffers of other objects, for native clients.
#pragma once

#include "module/python.hpp"

// Obtains the buffer of an object for reading, contiguous in either order, and returns its element
// type: the number of the format's letter (getArrayTypeEnumFromChar), that of the part for a
// complex format. The caller releases the buffer after a result of 0 or above. Deliberate: the
// failures from -4 on do not release a buffer that was obtained, because clients release it
// themselves.
//
// -1: no object, or no buffer interface; no error is set. The others set one: -2 a null argument,
// -3 the object's own refusal, -4 no format, -5 an empty format, -6 no such element type.
int fillPyBuffer(PyObject* object, Py_buffer* buffer, bool* isComplex);
