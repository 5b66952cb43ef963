// The table of functions for other native modules.
#pragma once

#include "module/python.hpp"

// New reference to the capsule that holds the table; null with an error set.
PyObject* makeCapsule();
