// The only door to Python.h: limited API, sizes as Py_ssize_t.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
