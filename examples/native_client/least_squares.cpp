// A native client of the arrays: a Python module for linear least squares with LAPACK.
#include <velmar/client.hpp>  // first, since it includes Python.h

#include <lapacke.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>
#include <velmardata/velmardata.hpp>

namespace vd = foundation::velmardata;

namespace {

std::optional<velmar::Client> client;  // set once, when the module is imported

// A matrix stored column by column, as arrays and LAPACK store it.
struct Matrix {
  lapack_int rows;
  lapack_int columns;
  std::unique_ptr<double[], void (*)(void*)> elements;  // owned: LAPACK writes into them
};

// Releases the interpreter's lock for its lifetime, so that other threads can run.
class WithoutInterpreterLock {
 public:
  WithoutInterpreterLock() : m_state(PyEval_SaveThread()) {}
  WithoutInterpreterLock(const WithoutInterpreterLock&) = delete;
  WithoutInterpreterLock& operator=(const WithoutInterpreterLock&) = delete;
  ~WithoutInterpreterLock() { PyEval_RestoreThread(m_state); }

 private:
  PyThreadState* m_state;
};

// Returns the library array of an array, or of an array made from another object's buffer. Empty
// with the Python error set on failure.
vd::Array takeArray(PyObject* object, const char* name) {
  if (client->isArray(object)) return client->fromPython(object);
  if (!client->hasBuffer(object)) {
    PyErr_Format(PyExc_TypeError,
                 "%s must be a velmar.double or have a buffer of doubles; it is %R", name,
                 Py_TYPE(object));
    return vd::Array();
  }
  int type = 0;
  const velmar::Reference copy(client->fromBuffer(object, &type));
  return copy ? client->fromPython(copy.get()) : vd::Array();
}

// Converts an argument to a matrix that owns its elements. Empty with the Python error set on
// failure.
std::optional<Matrix> takeMatrix(PyObject* object, const char* name) {
  vd::Array array = takeArray(object, name);
  if (array.impl() == nullptr) return std::nullopt;
  if (array.getType() != vd::ArrayType::DOUBLE) {
    PyErr_Format(PyExc_TypeError, "%s must hold real numbers of double precision", name);
    return std::nullopt;
  }
  const std::vector<unsigned long> dimensions = array.getDimensions();
  if (dimensions.size() != 2) {
    PyErr_Format(PyExc_ValueError, "%s must have two dimensions, not %zu", name, dimensions.size());
    return std::nullopt;
  }
  const auto [fewest, most] = std::minmax(dimensions[0], dimensions[1]);
  if (fewest == 0) {
    PyErr_Format(PyExc_ValueError, "%s must not be empty", name);
    return std::nullopt;
  }
  if (most > static_cast<unsigned long>(std::numeric_limits<lapack_int>::max())) {
    PyErr_Format(PyExc_OverflowError, "%s is too large for LAPACK", name);
    return std::nullopt;
  }
  const std::uint64_t count = array.getNumberOfElements();
  // The array's own block if this is the only handle, as for an array from a buffer; else a copy.
  auto elements = vd::TypedArray<double>(std::move(array)).release();
  const auto isFinite = [](double element) { return std::isfinite(element); };
  if (!std::all_of(elements.get(), elements.get() + count, isFinite)) {
    PyErr_Format(PyExc_ValueError, "%s holds an infinity or a NaN", name);
    return std::nullopt;
  }
  return Matrix{static_cast<lapack_int>(dimensions[0]), static_cast<lapack_int>(dimensions[1]),
                std::move(elements)};
}

// Whether the shapes match. False with the Python error set if not.
bool shapesAgree(const Matrix& design, const Matrix& observations) {
  if (observations.rows != design.rows) {
    PyErr_Format(PyExc_ValueError, "design has %d rows, but observations have %d", int{design.rows},
                 int{observations.rows});
    return false;
  }
  if (design.rows < design.columns) {
    PyErr_Format(PyExc_ValueError, "%d observations cannot determine %d coefficients",
                 int{design.rows}, int{design.columns});
    return false;
  }
  return true;
}

// Overwrites both matrices. The first rows of the observations become the coefficients; the squares
// of the other rows sum to the residual sums. False with the Python error set on failure.
bool solve(Matrix& design, Matrix& observations) {
  std::vector<double> singularValues(static_cast<std::size_t>(design.columns));
  const double precision = std::numeric_limits<double>::epsilon() * design.rows;
  lapack_int rank = 0;
  lapack_int info = 0;
  {
    // Both matrices own their elements, so other threads cannot change them.
    const WithoutInterpreterLock unlocked;
    info = LAPACKE_dgelsd(LAPACK_COL_MAJOR, design.rows, design.columns, observations.columns,
                          design.elements.get(), design.rows, observations.elements.get(),
                          observations.rows, singularValues.data(), precision, &rank);
  }
  if (info == LAPACK_WORK_MEMORY_ERROR) throw std::bad_alloc();
  if (info != 0) {
    PyErr_Format(PyExc_ArithmeticError, "LAPACK found no solution (dgelsd: %d)", int{info});
    return false;
  }
  if (rank < design.columns) {
    PyErr_Format(PyExc_ValueError, "the %d columns of design depend on each other: rank %d",
                 int{design.columns}, int{rank});
    return false;
  }
  return true;
}

// Returns a new reference to a Python array of rows by columns, filled by fill(first element). Null
// with the Python error set on failure; throws std::bad_alloc.
template <class Fill>
PyObject* makeArray(lapack_int rows, lapack_int columns, Fill fill) {
  const auto height = static_cast<unsigned long>(rows);
  const auto width = static_cast<unsigned long>(columns);
  vd::standalone::ClientArrayFactory factory;
  auto block = factory.createBuffer<double>(height * width);
  if (block == nullptr) throw std::bad_alloc();
  fill(block.get());
  return client->toPython(factory.createArrayFromBuffer<double>(
      {height, width}, std::move(block), velmar::data::MemoryLayout::Default));
}

// Returns a new tuple (coefficients, residual sums). Null with the Python error set on failure.
PyObject* fitArrays(PyObject* designObject, PyObject* observationsObject) {
  std::optional<Matrix> design = takeMatrix(designObject, "design");
  if (!design) return nullptr;
  std::optional<Matrix> observations = takeMatrix(observationsObject, "observations");
  if (!observations) return nullptr;
  // A flat sequence becomes a row; it has the same memory layout as a column.
  const bool isRow = observations->rows == 1 && design->rows != 1;
  if (isRow) std::swap(observations->rows, observations->columns);
  if (!shapesAgree(*design, *observations) || !solve(*design, *observations)) return nullptr;

  const lapack_int unknowns = design->columns;
  const lapack_int fits = observations->columns;
  const auto columnOf = [&](lapack_int fit) {
    return observations->elements.get() + std::ptrdiff_t{fit} * observations->rows;
  };
  const velmar::Reference coefficients(
      makeArray(isRow ? 1 : unknowns, isRow ? unknowns : fits, [&](double* element) {
        for (lapack_int fit = 0; fit < fits; ++fit) {
          element = std::copy_n(columnOf(fit), unknowns, element);
        }
      }));
  if (!coefficients) return nullptr;
  const velmar::Reference residualSums(makeArray(1, fits, [&](double* element) {
    for (lapack_int fit = 0; fit < fits; ++fit) {
      const double* first = columnOf(fit) + unknowns;
      const double* last = columnOf(fit) + observations->rows;
      *element++ = std::inner_product(first, last, first, 0.0);
    }
  }));
  if (!residualSums) return nullptr;
  return PyTuple_Pack(2, coefficients.get(), residualSums.get());
}

// The Python function. Turns C++ exceptions into Python errors.
PyObject* fit(PyObject*, PyObject* arguments) {
  PyObject* design = nullptr;
  PyObject* observations = nullptr;
  if (!PyArg_UnpackTuple(arguments, "fit", 2, 2, &design, &observations)) return nullptr;
  try {
    return fitArrays(design, observations);
  } catch (const std::bad_alloc&) {
    return PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
    return nullptr;
  }
}

PyMethodDef functions[] = {{"fit", fit, METH_VARARGS,
                            "fit(design, observations) -> (coefficients, residual_sums)\n\n"
                            "The coefficients for which design * coefficients is closest to the "
                            "observations. design has a\n"
                            "row an observation and a column a coefficient. observations is a row, "
                            "or has one column a fit.\n"
                            "Both are velmar.double, views of it, or objects with a buffer of "
                            "doubles; so are the results."},
                           {nullptr, nullptr, 0, nullptr}};

PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                          "least_squares",
                          "Linear least squares for velmar.double.",
                          -1,
                          functions,
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

}  // namespace

PyMODINIT_FUNC PyInit_least_squares() {
  client = velmar::Client::load();
  if (!client) return nullptr;
  return PyModule_Create(&definition);
}
