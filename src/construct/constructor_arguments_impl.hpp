// The order in which the constructor's arguments are looked at.
#pragma once

#include "construct/final_constructor_parser.hpp"
#include "construct/size_reconciliation_impl.hpp"
#include "module/support.hpp"

template <class T>
ElementBuffer<T> FinalConstructorParser<T>::processConstructorArgsAndKwargs(
    const ConstructorArguments& arguments, bool& ok) {
  static const std::vector<std::int64_t> zeroByZero(2, 0);
  PyObject* initializer = arguments.initializer.get();
  PyObject* size = arguments.size.get();
  PyObject* vector = arguments.vector.get();
  const bool hasInitializer = !pyObjectIsEmpty(initializer);
  const bool hasSize = !pyObjectIsEmpty(size);
  const bool hasVector = !pyObjectIsEmpty(vector);

  if (!hasVector && !hasInitializer && !hasSize) {
    ok = processSize(zeroByZero);
    return createElementBuffer<T>(arrayFactory, 0);
  }
  ok = false;
  if (hasVector && hasInitializer) {
    const bool byKeyword =
        arguments.kwargs != nullptr && PyDict_GetItemString(arguments.kwargs, "vector") != nullptr;
    setError(PyExc_TypeError,
             byKeyword ? "initializer and 'vector' must not both be specified."
                       : "more than two positional arguments must not be specified. A third will "
                         "be treated as 'vector', which must not be specified when an initializer "
                         "is specified.");
    return noBuffer();
  }
  if (hasSize && !processSizeKwarg(size)) return noBuffer();
  if (!hasVector && !hasInitializer) return makeZeroFilledBuffer(ok);

  ElementBuffer<T> buffer =
      hasVector ? processVectorKwarg(vector, ok) : processInitializerKwarg(initializer, ok);
  if (ok && hasInitializer && size != nullptr) ok = specifiedAndCalculatedDimensionsMatch();
  if (!ok) return noBuffer();
  const std::uint64_t count = hasVector ? static_cast<std::uint64_t>(calculatedDimensions.back())
                                        : flattenedElements.size();
  ok = dimensionsHold(count);
  return ok ? std::move(buffer) : noBuffer();
}
