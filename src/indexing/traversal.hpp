// Walking the part of an index space that a chain of subscripts leaves open. Pure functions over a
// shape and a chain; nothing is allocated per step.
#pragma once

#include <cstdint>
#include <vector>

#include "storage/index_items.hpp"

// The range of dimension k: that of the chain's item, or the whole dimension behind the chain. The
// step of a dimension fixed by an integer is 0.
std::int64_t getStartFromShapeDimsAndRestrictingIndices(std::int64_t k,
                                                        const std::vector<std::int64_t>& shape,
                                                        const IndexChain& chain);
std::int64_t getStopFromShapeDimsAndRestrictingIndices(std::int64_t k,
                                                       const std::vector<std::int64_t>& shape,
                                                       const IndexChain& chain);
std::int64_t getStepFromShapeDimsAndRestrictingIndices(std::int64_t k,
                                                       const std::vector<std::int64_t>& shape,
                                                       const IndexChain& chain);

bool indexIsContainedWithinHalfOpenRange(std::int64_t index, std::int64_t start, std::int64_t stop,
                                         std::int64_t step);
bool indexIsAtLastPositionWithinHalfOpenRange(std::int64_t index, std::int64_t stop,
                                              std::int64_t step);

// Moves to the next position, last entry fastest. False: the walk is over and the position stays.
bool incrementIndices(Position& position, const std::vector<std::int64_t>& shape,
                      const IndexChain& chain);
// Whether the first entries of a position lie in the ranges; positions between two of a slice count
// as contained.
bool containsElementWithIndices(const Position& position, std::int64_t numberOfDimensions,
                                const std::vector<std::int64_t>& shape, const IndexChain& chain);
// The first position, with `length` entries; entries past the shape are 0.
Position getStartElement(const std::vector<std::int64_t>& shape, const IndexChain& chain,
                         std::int64_t length);
