// Includes the whole public interface of the data library. Example:
//
//   #include <velmardata/velmardata.hpp>
//   using namespace foundation::velmardata;
//
//   standalone::ClientArrayFactory factory;
//   auto block = factory.createBuffer<double>(6);        // uninitialised; null if out of memory
//   std::iota(block.get(), block.get() + 6, 1.0);        // column by column
//   TypedArray<double> a = factory.createArrayFromBuffer<double>(
//       {2, 3}, std::move(block), velmar::data::MemoryLayout::Default);
//   TypedArray<double> b = a;                            // shares the elements
//   *b.begin() = 0.0;                                    // b gets its own copy; a keeps 1.0
#pragma once

#include "velmardata/array.hpp"
#include "velmardata/array_factory.hpp"
#include "velmardata/array_impl.hpp"
#include "velmardata/block_hold.hpp"
#include "velmardata/char_array.hpp"
#include "velmardata/client_array_factory.hpp"
#include "velmardata/element_concepts.hpp"
#include "velmardata/element_reference.hpp"
#include "velmardata/element_types.hpp"
#include "velmardata/exceptions.hpp"
#include "velmardata/export.hpp"
#include "velmardata/memory_layout.hpp"
#include "velmardata/typed_array.hpp"
#include "velmardata/typed_iterator.hpp"
