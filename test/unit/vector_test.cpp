// Growth, bulk copy and failure reporting of qn::pg::tVector.
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

// Capacity doubles from the hint (1 for none or 0) only when exceeded; resize,
// clear and append keep the buffer and the elements; swap exchanges everything.
TEST(VectorGrowth, DoublesOnlyWhenExceededAndKeepsElements) {
    IntVec v(0);
    std::vector<uint64_t> caps;
    for (int i = 0; i < 5; ++i) {
        v.push_back(i);
        caps.push_back(v.capacity());
    }
    EXPECT_EQ(caps, (std::vector<uint64_t>{1, 2, 4, 4, 8}));
    const int src[] = {5, 6, 7, 8};
    v.append(src, src);  // empty span
    v.append(src, src + 4);
    EXPECT_EQ(contents(v), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(v.capacity(), 16u);
    int* data = v.data();
    EXPECT_TRUE(v.resize(3));
    EXPECT_TRUE(v.resize(5));  // regrowing within capacity keeps the old elements
    v.clear();
    EXPECT_TRUE(v.resize(2));
    EXPECT_EQ(contents(v), (std::vector<int>{0, 1}));
    EXPECT_EQ(v.data(), data);

    IntVec big(1024);
    for (int i = 0; i < 1025; ++i) big.push_back(i);
    EXPECT_EQ(big.capacity(), 2048u);
    for (int i = 0; i < 1025; ++i) ASSERT_EQ(big[i], i) << "element " << i << " lost during growth";
    big.swap(v);
    EXPECT_EQ(std::make_pair(big.size(), v.size()), std::make_pair(uint64_t{2}, uint64_t{1025}));
    EXPECT_EQ(std::make_pair(big.data(), big.capacity()), std::make_pair(data, uint64_t{16}));
}

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
