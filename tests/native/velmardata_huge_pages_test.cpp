// Blocks on huge pages: alignment, size, zeros, and the freed region that is kept for the next
// block.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <utility>
#include <vector>

#include "velmardata_testing.hpp"

namespace {

using namespace velmardata_testing;

constexpr std::size_t megabyte = std::size_t{1} << 20;
constexpr std::size_t hugePage = 2 * megabyte;
constexpr std::size_t inFront = 4096;  // bytes of the region in front of the elements

// The block with this many bytes of elements, which begin on a huge page.
UntypedBuffer blockOfRegion(std::size_t bytes) {
  return newBuffer(ArrayType::UINT8, bytes);
}

unsigned char& byteAt(const UntypedBuffer& block, std::size_t place) {
  return static_cast<unsigned char*>(block.get())[place];
}

// Marks a region and frees it.
void leaveMarked(std::size_t bytes) {
  const UntypedBuffer block = blockOfRegion(bytes);
  ASSERT_NE(block, nullptr);
  byteAt(block, megabyte) = 0x5a;
}

// New memory from the system is zero.
bool isMarked(const UntypedBuffer& block) {
  return byteAt(block, megabyte) == 0x5a;
}

// Every test starts without a kept region.
class HugePages : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "no block is on huge pages under the sanitizer";
#endif
    addressSpaceInUse();  // the first call allocates memory of its own
    for (std::size_t bytes = 4 * megabyte; bytes <= 32 * megabyte; bytes += hugePage) {
      m_ofEachSize.push_back(blockOfRegion(bytes));
    }
  }

 private:
  std::vector<UntypedBuffer> m_ofEachSize;  // they take the region that was kept
};

TEST_F(HugePages, RegionsBeginOnThem) {
  for (const std::size_t bytes : {6 * megabyte, 7 * megabyte + 1, 22 * megabyte}) {
    const UntypedBuffer block = blockOfRegion(bytes);
    ASSERT_NE(block, nullptr);
    const auto address = reinterpret_cast<std::uintptr_t>(block.get());
    EXPECT_EQ(address % hugePage, 0U) << bytes;
  }
}

// Smaller blocks also have the allocator's header in front.
TEST_F(HugePages, AreForFourMegabytesOfElementsAndMore) {
  const auto beginsOnOne = [](std::size_t bytes) {
    const UntypedBuffer block = newBuffer(ArrayType::UINT8, bytes);
    return reinterpret_cast<std::uintptr_t>(block.get()) % hugePage == 0;
  };
  EXPECT_TRUE(beginsOnOne(4 * megabyte));
  EXPECT_FALSE(beginsOnOne(4 * megabyte - 1));
}

TEST_F(HugePages, TakeTheRoundedSize) {
  const struct {
    std::size_t bytes;
    std::size_t rounded;
  } rows[] = {{38 * megabyte, 38 * megabyte},
              {38 * megabyte + 1, 40 * megabyte},
              {40 * megabyte - 1, 40 * megabyte},
              {34 * megabyte + 2, 36 * megabyte}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.bytes);
    const std::size_t before = addressSpaceInUse();
    {
      const UntypedBuffer block = blockOfRegion(row.bytes);
      ASSERT_NE(block, nullptr);
      EXPECT_EQ(addressSpaceInUse() - before, row.rounded + inFront);
      byteAt(block, row.bytes - 1) = 1;  // the last byte is usable
    }
    EXPECT_EQ(addressSpaceInUse(), before);
  }
}

TEST_F(HugePages, TheLastRegionIsKept) {
  for (const std::size_t bytes : {6 * megabyte, 16 * megabyte, 32 * megabyte}) {
    SCOPED_TRACE(bytes);
    leaveMarked(bytes);
    const UntypedBuffer again = blockOfRegion(bytes - 5);  // the same size after rounding
    EXPECT_TRUE(isMarked(again));
    EXPECT_FALSE(isMarked(blockOfRegion(bytes))) << "only one region is kept";
  }
}

TEST_F(HugePages, LargerOnesAreNotKept) {
  const std::size_t before = addressSpaceInUse();
  leaveMarked(32 * megabyte + 1);
  EXPECT_EQ(addressSpaceInUse(), before);
  EXPECT_FALSE(isMarked(blockOfRegion(34 * megabyte)));
}

TEST_F(HugePages, BlockOfAnotherSizeDoesNotUseTheKeptRegion) {
  leaveMarked(8 * megabyte);
  {
    const UntypedBuffer other = blockOfRegion(12 * megabyte);
    EXPECT_FALSE(isMarked(other));
    EXPECT_TRUE(isMarked(blockOfRegion(8 * megabyte)));
    const UntypedBuffer larger = blockOfRegion(46 * megabyte);
    EXPECT_FALSE(isMarked(larger));
    EXPECT_TRUE(isMarked(blockOfRegion(8 * megabyte)));
  }
}

TEST_F(HugePages, TheRegionFreedLastReplacesTheKeptOne) {
  const std::size_t before = addressSpaceInUse();
  leaveMarked(8 * megabyte);
  EXPECT_EQ(addressSpaceInUse() - before, 8 * megabyte + inFront);
  leaveMarked(6 * megabyte);
  EXPECT_EQ(addressSpaceInUse() - before, 6 * megabyte + inFront);
  EXPECT_FALSE(isMarked(blockOfRegion(8 * megabyte)));
}

// --- Zeros

bool areZeros(const Array& array) {
  const TypedArray<std::uint8_t> elements(array);
  const auto* const first = static_cast<const unsigned char*>(addressOf(elements));
  const std::size_t count = array.getNumberOfElements();
  return std::all_of(first, first + count, [](unsigned char byte) { return byte == 0; });
}

void leaveDirty(std::size_t bytes) {
  const UntypedBuffer block = blockOfRegion(bytes);
  ASSERT_NE(block, nullptr);
  std::memset(block.get(), 0x5a, bytes);
}

TEST_F(HugePages, ZerosAreZeroInNewAndInKeptRegions) {
  for (const std::size_t bytes :
       {4 * megabyte, 5 * megabyte + 3, 16 * megabyte, 16 * megabyte + 1, 32 * megabyte}) {
    SCOPED_TRACE(bytes);
    for (const bool isDirty : {false, true}) {
      if (isDirty) leaveDirty(bytes);
      const Array zeros = ArrayFactory().createArray(ArrayType::UINT8, {bytes, 1});
      EXPECT_TRUE(areZeros(zeros));
    }
  }
}

// The kept region is a little larger than the array, and the array after it uses all of it.
TEST_F(HugePages, ZerosOfOneRegionAreZeroForLaterArraysToo) {
  leaveDirty(6 * megabyte);
  for (const std::size_t bytes : {4 * megabyte + 1, 5 * megabyte, 6 * megabyte}) {
    EXPECT_TRUE(areZeros(ArrayFactory().createArray(ArrayType::UINT8, {1, bytes}))) << bytes;
  }
}

// Clearing a large region takes longer than mapping a new one.
TEST_F(HugePages, ZerosUseTheKeptRegionUpToSixteenMegabytes) {
  for (const std::size_t bytes : {16 * megabyte, 18 * megabyte}) {
    SCOPED_TRACE(bytes);
    leaveMarked(bytes);
    const Array zeros = ArrayFactory().createArray(ArrayType::UINT8, {bytes, 1});
    EXPECT_EQ(isMarked(blockOfRegion(bytes)), bytes > 16 * megabyte) << "the region is still kept";
  }
}

// Bytes of memory that the process has touched.
std::size_t memoryInUse() {
  std::size_t pages = 0;
  std::size_t touched = 0;
  std::ifstream("/proc/self/statm") >> pages >> touched;
  return touched * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// The header in front of the elements lies on a small page of its own.
TEST_F(HugePages, ZerosUseNoMemoryBeforeTheyAreTouched) {
  memoryInUse();  // the first call allocates memory of its own
  const std::size_t before = memoryInUse();
  const Array zeros = ArrayFactory().createArray(ArrayType::DOUBLE, {8 * megabyte, 1});
  const std::size_t after = memoryInUse();
  EXPECT_LT(after, before + megabyte);
  ASSERT_EQ(zeros.getNumberOfElements(), 8 * megabyte);
}

TEST_F(HugePages, HeaderIsInFrontOfTheElements) {
  const TypedArray<double> zeros(ArrayFactory().createArray(ArrayType::DOUBLE, {megabyte, 1}));
  const auto address = reinterpret_cast<std::uintptr_t>(addressOf(zeros));
  EXPECT_EQ(address % hugePage, 0U);
  // The hold of an iterator is counted in the header.
  const auto* const header = reinterpret_cast<const std::byte*>(address) - inFront;
  std::vector<std::byte> before(header, header + inFront);
  const TypedIterator<const double> hold = std::as_const(zeros).begin();
  EXPECT_NE(std::memcmp(before.data(), header, inFront), 0);
}

}  // namespace
