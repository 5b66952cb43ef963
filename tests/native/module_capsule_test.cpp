// Functions of the capsule, and handlers, with what only code inside the module can give them.
#include <gtest/gtest.h>

#include <utility>
#include <velmar/capsule_table.hpp>

#include "exporter_testing.hpp"
#include "module/entry/capsule.hpp"
#include "module/type_objects.hpp"
#include "operations/pickling.hpp"
#include "operations/reshaping.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

const velmar::MCPyArrayAPITable& capsuleTable() {
  static const PyRef capsule = PyRef::steal(makeCapsule());
  return *static_cast<const velmar::MCPyArrayAPITable*>(
      PyCapsule_GetPointer(capsule.get(), velmar::capsuleName));
}

TEST(CapsuleGuards, WholeArrayWhoseStorageHasGone) {
  const PyRef expired = makeRecord(makeExpiredView<double>({2, 3}));
  EXPECT_EQ(capsuleTable().MCPyArrayToMDAImpl(expired.get()), nullptr);
  EXPECT_TRUE(raisedExpired());
}

TEST(CapsuleGuards, ClassThatCouldNotBeMade) {
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

TEST(HandlerGuards, PickleOfAChainWithASliceAmongTheIntegers) {
  const PyRef view = makeRecord(makeArray<double>({10, 2}));
  viewOf(view).getIndicesRef().emplace_back(slice(1, 3, 1, 2));
  IntegerIndexItem item{0, true};
  ASSERT_TRUE(viewOf(view).appendIndexItem(item));
  EXPECT_FALSE(PyRef::steal(MCPyArray_Reduce(view.get(), nullptr)));
  EXPECT_TRUE(raised(PyExc_RuntimeError, "slice index unexpectedly found."));
}

TEST(HandlerGuards, ReshapeOfAnArrayWhoseStorageHasGone) {
  const PyRef expired = makeRecord(makeExpiredView<double>({2, 3}));
  const PyRef arguments = evaluate("(3, 2)");
  EXPECT_FALSE(PyRef::steal(MCPyArray_Reshape(expired.get(), arguments.get(), nullptr)));
  EXPECT_TRUE(raised(MCPyError::shapeErr,
                     "number of elements specified by arguments to reshape() (6) does not match "
                     "current number (-1)."));
}

}  // namespace
