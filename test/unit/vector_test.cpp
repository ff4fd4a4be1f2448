// Failure reporting of qn::pg::tVector: out of memory and unrepresentable sizes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "qnPgVector.h"

namespace {

using IntVec = qn::pg::tVector<int, malloc, free>;

// Allocator whose calls are counted and which returns nullptr once `gBudget`
// successful allocations have been handed out.
int gBudget = 0;
int gLive = 0;
int gFrees = 0;
void* budgetAlloc(size_t n) {
    if (gBudget <= 0) return nullptr;
    --gBudget;
    ++gLive;
    return std::malloc(n);
}
void budgetFree(void* p) {
    --gLive;
    ++gFrees;
    std::free(p);
}
using BudgetVec = qn::pg::tVector<int, budgetAlloc, budgetFree>;

std::vector<int> contents(const IntVec& v) { return std::vector<int>(v.begin(), v.end()); }

TEST(VectorFailure, OutOfMemoryInConstructorAndGrowth) {
    gLive = gFrees = 0;
    {
        gBudget = 0;  // the constructor's allocation already fails
        testing::internal::CaptureStdout();
        BudgetVec v;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Out of memory\n");
        EXPECT_EQ(v.data(), nullptr);
        EXPECT_EQ(v.size(), 0u);
        EXPECT_EQ(v.capacity(), 0u);
        testing::internal::CaptureStdout();
        v.push_back(1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Out of memory\n");
        EXPECT_EQ(v.size(), 0u);
        gBudget = 1;  // allocation works again: the vector recovers
        v.push_back(5);
        ASSERT_EQ(v.size(), 1u);
        EXPECT_EQ(v[0], 5);
    }
    EXPECT_EQ(gLive, 0);
    {
        gBudget = 2;  // constructor + first growth succeed, the second growth fails
        BudgetVec v;
        v.push_back(1);
        v.push_back(2);
        EXPECT_EQ(v.capacity(), 2u);
        testing::internal::CaptureStdout();
        v.push_back(3);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Out of memory\n");
        EXPECT_EQ(v.size(), 0u);
        EXPECT_EQ(v.capacity(), 0u);
        EXPECT_EQ(v.data(), nullptr);
        EXPECT_EQ(gLive, 0) << "the old buffer is released on failure";
        const int src[] = {1, 2};
        testing::internal::CaptureStdout();
        v.append(src, src + 2);
        EXPECT_FALSE(v.reserve(8));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Out of memory\nOut of memory\n");
        EXPECT_EQ(v.size(), 0u);
    }
    EXPECT_EQ(gLive, 0);
    EXPECT_GT(gFrees, 0) << "buffers go back through the Free parameter";
}

TEST(VectorFailure, UnrepresentableSizeReportsOverflow) {
    IntVec v;
    for (int i = 0; i < 5; ++i) v.push_back(i);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(v.resize(UINT64_MAX / 2));
    EXPECT_FALSE(v.reserve(UINT64_MAX / 2));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "tSize overflow\ntSize overflow\n");
    EXPECT_EQ(v.size(), 5u);
    EXPECT_EQ(v.capacity(), 8u);
    EXPECT_EQ(contents(v), (std::vector<int>{0, 1, 2, 3, 4}));

    // One-byte elements: the doubling itself would wrap past 2^63.
    qn::pg::tVector<char, malloc, free> c;
    c.push_back('a');
    testing::internal::CaptureStdout();
    EXPECT_FALSE(c.resize(UINT64_MAX));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "tSize overflow\n");
    EXPECT_EQ(c.size(), 1u);
    EXPECT_EQ(c[0], 'a');
}

}  // namespace
