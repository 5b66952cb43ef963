// The chain of subscripts: integers first, at most one slice behind them.
#include "storage/index_chain.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <utility>

#include "python_testing.hpp"

namespace {

using namespace python_testing;

TEST(Chain, IsEmptyAtFirst) {
  const IndexChain chain;
  EXPECT_TRUE(chain.isEmpty());
  EXPECT_EQ(chain.size(), 0U);
  EXPECT_TRUE(chain.integers().empty());
  EXPECT_EQ(chain.finalSlice(), nullptr);
}

TEST(Chain, OfPositionsHasIntegersThatAreNotNormalised) {
  const std::pair<Position, const char*> rows[] = {
      {{}, ""}, {{3}, "3?"}, {{3, 0, -7}, "3? 0? -7?"}};
  for (const auto& [positions, expected] : rows) {
    SCOPED_TRACE(expected);
    const IndexChain chain(positions);
    EXPECT_EQ(describe(chain), expected);
    EXPECT_EQ(chain.size(), positions.size());
    EXPECT_EQ(chain.isEmpty(), positions.empty());
    EXPECT_EQ(chain.finalSlice(), nullptr);
  }
}

TEST(Chain, TakesIntegersAndASliceBehindThem) {
  IndexChain chain;
  // More integers than fit without a heap block.
  for (std::int64_t i = 0; i < 4; ++i) {
    chain.append(IntegerIndexItem{i, true});
    EXPECT_EQ(chain.integers().size(), static_cast<std::size_t>(i) + 1);
    EXPECT_EQ(chain.integers().back().m_index, i);
    EXPECT_FALSE(chain.isEmpty());
  }
  EXPECT_EQ(describe(chain), "0 1 2 3");
  chain.append(slice(5, 1, -2, 2));
  EXPECT_EQ(describe(chain), "0 1 2 3 5:1:-2/2");
  EXPECT_EQ(chain.size(), 5U);
  EXPECT_EQ(chain.integers().size(), 4U);
  ASSERT_NE(chain.finalSlice(), nullptr);
  EXPECT_EQ(chain.finalSlice()->m_step, -2);
}

TEST(Chain, OfASliceAloneIsNotEmpty) {
  IndexChain chain;
  chain.append(slice(0, 2, 1, 2));
  EXPECT_FALSE(chain.isEmpty());
  EXPECT_EQ(chain.size(), 1U);
  EXPECT_TRUE(chain.integers().empty());
}

TEST(Chain, FinalSliceIsReplaced) {
  IndexChain chain(Position{4});
  chain.append(slice(0, 8, 1, 8));
  const IndexChain shorter(chain, slice(0, 8, 2, 4));
  EXPECT_EQ(describe(shorter), "4? 0:8:2/4");
  IndexChain fixed(shorter, IntegerIndexItem{6, true});
  EXPECT_EQ(describe(fixed), "4? 6");
  EXPECT_EQ(fixed.finalSlice(), nullptr);
  fixed.append(slice(1, 2, 1, 1));
  EXPECT_EQ(describe(fixed), "4? 6 1:2:1/1") << "there is room for a slice again";
  EXPECT_EQ(describe(chain), "4? 0:8:1/8");
}

TEST(Chain, CopiesAreIndependent) {
  IndexChain chain(Position{4, 5});
  chain.append(slice(0, 8, 1, 8));
  IndexChain copy = chain;
  copy = IndexChain(copy, IntegerIndexItem{6, true});
  EXPECT_EQ(describe(copy), "4? 5? 6");
  EXPECT_EQ(describe(chain), "4? 5? 0:8:1/8");
}

}  // namespace
