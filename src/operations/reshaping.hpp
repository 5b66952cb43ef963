// The argument of reshape().
#pragma once

#include <cstdint>
#include <vector>

#include "module/python.hpp"

// The dimensions that a sequence of ints names, without trailing ones behind the second. Empty with
// an error set.
std::vector<std::int64_t> getDimsFromReshapeArg(PyObject* argument);
