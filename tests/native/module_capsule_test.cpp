// Functions of the capsule, and handlers, with arguments that only code inside the module can make.
#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <velmar/capsule_table.hpp>

#include "exporter_testing.hpp"
#include "memory_limit.hpp"
#include "module/entry/capsule.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

const velmar::MCPyArrayAPITable& capsuleTable() {
  static const PyRef capsule = PyRef::steal(makeCapsule());
  return *static_cast<const velmar::MCPyArrayAPITable*>(
      PyCapsule_GetPointer(capsule.get(), velmar::capsuleName));
}

TEST(CapsuleGuards, WholeArrayWhoseStorageHasExpired) {
  const PyRef expired = makeRecord(makeExpiredView<double>({2, 3}));
  EXPECT_EQ(capsuleTable().MCPyArrayToMDAImpl(expired.get()), nullptr);
  EXPECT_TRUE(raisedExpired());
}

// After a look at the elements, a client gets a copy of them.
TEST(CapsuleGuards, WholeArrayThatCannotBeCopied) {
  const PyRef array = makeRecord(
      std::make_unique<MCppPyArray>(foundation::velmardata::ArrayFactory().createArray(
                                        foundation::velmardata::ArrayType::INT8, {256UL << 20, 1}),
                                    SupportedArrayEnum::Int8, false, true, Contents::Own));
  const auto* const impl = viewOf(array).borrowWrapper()->array().impl();
  viewOf(array).borrowWrapper()->buf();
  void* handedOut = nullptr;
  bool isLimited = false;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited) handedOut = capsuleTable().MCPyArrayToMDAImpl(array.get());
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_EQ(handedOut, nullptr);
  EXPECT_TRUE(raised(PyExc_MemoryError,
                     "unable to allocate memory for array with number of elements = 268435456; "
                     "type = int8"));
  EXPECT_EQ(viewOf(array).borrowWrapper()->array().impl(), impl);
  EXPECT_EQ(velmardata_testing::referenceCount(viewOf(array).borrowWrapper()->array()), 1U);
}

TEST(CapsuleGuards, MissingClass) {
  const SampleExporter<double> exporter({3});
  int type = -99;
  PyTypeObject* const kept = std::exchange(TypeObjectPointers[0], nullptr);
  const PyRef array =
      PyRef::steal(capsuleTable().BufferObjectToMCPyArray(exporter.object.get(), &type));
  TypeObjectPointers[0] = kept;
  EXPECT_FALSE(array);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to initialize C object."));
  EXPECT_EQ(type, 4);
  EXPECT_EQ(exporter.exports.released, 1);
}

TEST(HandlerGuards, ReshapeOfAnArrayWhoseStorageHasExpired) {
  const PyRef expired = makeRecord(makeExpiredView<double>({2, 3}));
  const PyRef arguments = evaluate("(3, 2)");
  EXPECT_FALSE(PyRef::steal(MCPyArray_Reshape(expired.get(), arguments.get(), nullptr)));
  EXPECT_TRUE(raised(MCPyError::shapeErr,
                     "number of elements specified by arguments to reshape() (6) does not match "
                     "current number (-1)."));
}

}  // namespace
