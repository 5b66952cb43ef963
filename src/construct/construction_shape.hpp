// The dimensions of one construction: those of `size`, those of the data, and whether they agree.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "elements/box.hpp"
#include "module/dimensions.hpp"
#include "module/python.hpp"
#include "module/signals.hpp"

// Bookkeeping that does not depend on the element type. One object for each construction or
// assignment, on the stack.
//
// Two lists of dimensions are kept apart: specifiedDimensions come from `size` and are empty
// without it, calculatedDimensions come from the data. A walk through nested sequences enters and
// leaves one level for each sequence and a leaf for each element; the first path down gives the
// lengths that all others must agree with.
class ConstructionShape {
 public:
  // --- size

  // Reads, normalises and stores the dimensions of the argument, which must not be None. False with
  // an error set.
  bool processSizeKwarg(PyObject* size);
  // Stores dimensions that are normalised already.
  void processSize(std::span<const std::int64_t> dimensions);

  // --- data

  // A vector of n elements: 1 by n, or n alone if there is a `size` to fill.
  void takeLengthOfVector(std::int64_t length);
  // The dimensions of a buffer that holds `count` elements. False with BufferError set.
  bool takeDimensionsOf(const Py_buffer& view, std::uint64_t count);
  // One more level of nesting, of the given length.
  void enterLevel(std::int64_t length);
  // The end of a level. False with ValueError set when its length is not that of earlier ones.
  bool leaveLevel();
  // Takes back the last enterLevel().
  void forgetLevel() { --currentDepth; }
  // Whether levels of these lengths with elements behind them can be entered and left without an
  // error.
  bool takesLevels(std::span<const Lane> lanes) const;
  // The dimensions of an array that is the whole data.
  void takeDimensionsOf(std::span<const Lane> lanes);
  // Elements at the current depth. False with ValueError set when earlier ones were not at this
  // depth.
  bool enterLeaf();
  // The product of the lengths along the path to the current leaf.
  std::uint64_t numberOfElementsByLengths() const;

  // --- both

  // Whether the dimensions of the data fit those of `size`, without which they always do. A flat
  // list fills any shape of its length in storage order. False with ShapeError or SizeError set.
  bool specifiedAndCalculatedDimensionsMatch();
  // A single calculated dimension n becomes 1 and n (0 and 0 for no elements) unless there is a
  // `size`; the number of flattened elements must agree with `size` then. False with ShapeError
  // set.
  bool handleSingleSingletonDimensionEdgeCase(std::int64_t numberOfFlattenedElements);
  // Brings the calculated dimensions into the form of every array.
  void makeTwoDimensional();
  void dropTrailingOnes();
  // The product of getDimensions(), 1 for none; 0 stays 0. The first positive product is kept,
  // later changes of the dimensions do not change it.
  std::int64_t calculateNumberOfElements();

  // Borrowed from this object until the next change of its dimensions.
  std::span<const std::int64_t> getCalculatedDimensions() const {
    return spanOf(calculatedDimensions);
  }
  std::span<const std::int64_t> getSpecifiedDimensions() const {
    return spanOf(specifiedDimensions);
  }
  // Those of `size` if there are any.
  std::span<const std::int64_t> getDimensions() const {
    return specifiedDimensions.empty() ? getCalculatedDimensions() : getSpecifiedDimensions();
  }
  // Whether the elements need no reordering.
  bool isBufferInStorageOrder() const { return bufferInStorageOrder; }
  void setBufferInStorageOrder() { bufferInStorageOrder = true; }

 private:
  void setMismatch(PyObject* exceptionClass) const;

  Lengths specifiedDimensions;
  Lengths calculatedDimensions;
  std::int64_t numberOfElements = 0;  // 0 while not calculated
  bool bufferInStorageOrder = false;
  std::uint64_t currentDepth = 0;
  std::int64_t leafDepth = 0;  // depth of the first element, 0 before it
  Lengths sequenceLengths;     // of the sequence being walked at each depth
};

// The length of a sequence, or 1 for an object that is not a sequence. Empty with an error set:
// ValueError when its items do not agree in being sequences and in length, the error of the
// sequence or item when one cannot be asked, that of a signal's handler. Linear in the length.
std::optional<std::int64_t> getLengthOfPySequence(PyObject* value, SignalWatch& signals);
