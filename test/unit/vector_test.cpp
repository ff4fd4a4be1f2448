// Failure reporting of qn::pg::tVector: out of memory and unrepresentable sizes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>

#include "qnPgVector.h"

namespace {

// Allocator that hands out `gBudget` allocations, then returns nullptr; live blocks are counted.
int gBudget = 0;
int gLive = 0;
void* budgetAlloc(size_t n) {
    if (gBudget <= 0) return nullptr;
    --gBudget;
    ++gLive;
    return std::malloc(n);
}
void budgetFree(void* p) {
    --gLive;
    std::free(p);
}
using BudgetVec = qn::pg::tVector<int, budgetAlloc, budgetFree>;

// What `step` prints on standard output.
std::string printed(const std::function<void()>& step) {
    testing::internal::CaptureStdout();
    step();
    return testing::internal::GetCapturedStdout();
}

TEST(VectorFailure, OutOfMemoryLeavesAnEmptyVectorThatRecovers) {
    gLive = 0;
    {
        gBudget = 0;  // the constructor's allocation already fails
        std::optional<BudgetVec> v;
        EXPECT_EQ(printed([&] { v.emplace(); }), "Out of memory\n");
        EXPECT_TRUE(v->data() == nullptr && v->size() == 0 && v->capacity() == 0);
        EXPECT_EQ(printed([&] { v->push_back(1); }), "Out of memory\n");
        gBudget = 1;  // allocation works again
        v->push_back(5);
        ASSERT_EQ(v->size(), 1u);
        EXPECT_EQ((*v)[0], 5);
    }
    {
        gBudget = 2;  // the constructor and the first growth succeed, the second growth fails
        BudgetVec v;
        v.push_back(1);
        v.push_back(2);
        EXPECT_EQ(printed([&] { v.push_back(3); }), "Out of memory\n");
        EXPECT_TRUE(v.data() == nullptr && v.size() == 0 && v.capacity() == 0);
        EXPECT_EQ(gLive, 0) << "the old buffer is released through Free on failure";
        const int src[] = {1, 2};
        bool reserved = true;
        EXPECT_EQ(printed([&] { v.append(src, src + 2), reserved = v.reserve(8); }), "Out of memory\nOut of memory\n");
        EXPECT_FALSE(reserved);
        EXPECT_EQ(v.size(), 0u);
    }
    EXPECT_EQ(gLive, 0);
}

TEST(VectorFailure, UnrepresentableSizeReportsOverflowAndKeepsTheContents) {
    qn::pg::tVector<int, malloc, free> v;
    for (int i = 0; i < 5; ++i) v.push_back(i);
    bool grown = true;
    EXPECT_EQ(printed([&] { grown = v.resize(UINT64_MAX / 2); }), "tSize overflow\n");
    EXPECT_EQ(printed([&] { grown = grown || v.reserve(UINT64_MAX / 2); }), "tSize overflow\n");
    EXPECT_FALSE(grown);
    ASSERT_EQ(v.size(), 5u);
    EXPECT_EQ(v.capacity(), 8u);
    EXPECT_TRUE(v[0] == 0 && v[4] == 4);

    // One-byte elements: the doubling itself would wrap past 2^63.
    qn::pg::tVector<char, malloc, free> c;
    c.push_back('a');
    EXPECT_EQ(printed([&] { grown = c.resize(UINT64_MAX); }), "tSize overflow\n");
    EXPECT_TRUE(!grown && c.size() == 1 && c[0] == 'a');
}

}  // namespace
