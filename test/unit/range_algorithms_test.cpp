// Hand-picked range-list cases with known answers, including the deliberate
// 32-bit wrap-around behaviour at the int extremes.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "KelvarnPgRangeOperators4_0Version.h"
#include "range_test_util.h"

namespace {

using namespace rt;
using namespace qn::pgRangeArray;
using MixVec = qn::pg::tVector<int, malloc, free>;

constexpr int kMin = INT_MIN;
constexpr int kMax = INT_MAX;

TEST(RangeUnion, EmptySidesAndWrappedOrder) {
    // An empty side hands the other over unchanged, even when it is not normalised.
    EXPECT_EQ(compute(Op::Union, {{4, 6}, {1, 2}}, {}), (Pairs{{4, 6}, {1, 2}}));
    EXPECT_EQ(compute(Op::Union, {}, {{4, 6}, {1, 2}}), (Pairs{{4, 6}, {1, 2}}));
    // Lowers more than 2^31 apart: the wrapped difference picks B first.
    EXPECT_EQ(compute(Op::Union, {{-2000000000, -1999999990}}, {{2000000000, 2000000001}}),
              (Pairs{{2000000000, 2000000001}, {-2000000000, -1999999990}}));
}

TEST(RangePushOrMerge, MergesOnlyLeadingTouchingRanges) {
    auto push = [](const Pairs& out0, const Pairs& span) {
        RV out;
        for (const R& r : ranges(out0)) out.push_back(r);
        const std::vector<R> s = ranges(span);
        pushOrMerge(out, s.data(), s.data() + s.size());
        return pairs(out);
    };
    EXPECT_EQ(push({{kMin, kMin}}, {{kMax, kMax}}), (Pairs{{kMin, kMax}}));  // wrapped gap -1
    EXPECT_EQ(push({{1, 5}}, {{3, 7}, {9, 10}}), (Pairs{{1, 7}, {9, 10}}));
    EXPECT_EQ(push({{1, 5}}, {{7, 8}}), (Pairs{{1, 5}, {7, 8}}));
    EXPECT_EQ(push({{1, 5}}, {{6, 8}}), (Pairs{{1, 8}}));
    EXPECT_EQ(push({{1, 5}}, {{2, 3}, {6, 6}, {8, 9}}), (Pairs{{1, 6}, {8, 9}}));
    EXPECT_EQ(push({{1, 5}}, {}), (Pairs{{1, 5}}));
    // Once a range stands apart the rest is copied as is, without merge tests.
    EXPECT_EQ(push({{1, 5}}, {{7, 8}, {9, 10}}), (Pairs{{1, 5}, {7, 8}, {9, 10}}));
    EXPECT_EQ(push({}, {{1, 2}, {4, 5}}), (Pairs{{1, 2}, {4, 5}}));
}

TEST(RangeCompute, OutputReplacesPreviousContents) {
    const std::vector<R> a = ranges({{1, 10}});
    const std::vector<R> b = ranges({{3, 4}});
    const Pairs expected[] = {{{1, 10}}, {{3, 4}}, {{1, 2}, {5, 10}}};
    const Op ops[] = {Op::Union, Op::Intersection, Op::Exclusion};
    for (int i = 0; i < 3; ++i) {
        RV out;
        for (int k = 0; k < 5; ++k) out.push_back(R{100 * k, 100 * k + 1});
        computeInto(ops[i], a, b, out);
        EXPECT_EQ(pairs(out), expected[i]) << "operation " << i;
        computeInto(ops[i], {}, {}, out);  // empty inputs leave an empty result too
        EXPECT_TRUE(out.empty()) << "operation " << i;
    }
}

TEST(RangeExclusion, AtTheExtremes) {
    EXPECT_EQ(compute(Op::Exclusion, {{kMin, kMax}}, {{0, 0}}), (Pairs{{kMin, -1}, {1, kMax}}));
    EXPECT_EQ(compute(Op::Exclusion, {{kMin, kMax}}, {{kMin, kMin}, {kMax, kMax}}), (Pairs{{kMin + 1, kMax - 1}}));
    EXPECT_EQ(compute(Op::Exclusion, {{kMin, kMin + 5}}, {{kMin + 1, kMin + 1}, {kMin + 3, kMax}}),
              (Pairs{{kMin, kMin}, {kMin + 2, kMin + 2}}));
    // The rest of A after B's last range is merged by the wrapped gap: ranges more than
    // 2^31 apart join, as the merge test is defined.
    EXPECT_EQ(compute(Op::Exclusion, {{-2, -2}, {kMax, kMax}}, {{-5, -5}}), (Pairs{{-2, kMax}}));
}

TEST(RangeArrayInsert, MergesAndWrapsAtTheTop) {
    auto insert = [](const Pairs& start, std::pair<int, int> r) {
        RV out;
        for (const R& e : ranges(start)) out.push_back(e);
        rangeArrayInsert(out, R{r.first, r.second});
        return pairs(out);
    };
    EXPECT_EQ(insert({{1, 3}, {5, 5}, {7, 9}, {12, 13}, {20, 21}}, {2, 8}), (Pairs{{1, 9}, {12, 13}, {20, 21}}));
    // r.upper + 1 wraps to INT_MIN, so every range counts as "beyond" r: r goes to the front.
    EXPECT_EQ(insert({{1, 3}}, {5, kMax}), (Pairs{{5, kMax}, {1, 3}}));
}

TEST(MixArray, ConvertReadsItemsInOrder) {
    auto convert = [](std::vector<int> words, const char*& error) {
        RV out;
        out.push_back(R{99, 99});  // stale contents are dropped
        convertMixToRangeArray(words.data(), words.data() + words.size(), out, error);
        return pairs(out);
    };
    const int f7 = static_cast<int>(0x80000007u);
    const char* error = "unset";
    EXPECT_EQ(convert({0, 5, f7, 9}, error), (Pairs{{5, 5}, {7, 9}}));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(convert({7, 5}, error), (Pairs{{5, 5}}));  // the count word is skipped unread
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(convert({0, 5, f7, 9, static_cast<int>(0x80000001u), 2}, error), (Pairs{{5, 5}, {7, 9}, {1, 2}}));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(convert({}, error), Pairs{});
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(convert({3}, error), Pairs{});
    EXPECT_EQ(error, nullptr);

    const std::vector<std::vector<int>> bad = {
        {0, f7}, {0, static_cast<int>(0x80000009u), 7}, {0, static_cast<int>(0x80000003u), static_cast<int>(0x80000005u)}};
    for (const auto& words : bad) {
        error = nullptr;
        EXPECT_EQ(convert(words, error), Pairs{});
        ASSERT_NE(error, nullptr);
        EXPECT_STREQ(error, "Invalid range definition");
    }
    error = nullptr;
    EXPECT_EQ(convert({0, 5, 6, f7}, error), (Pairs{{5, 5}, {6, 6}}));  // keeps what was read
    EXPECT_STREQ(error, "Invalid range definition");

    // Round trip through pushIntoMixArray.
    MixVec mix;
    mix.push_back(0);
    const Pairs items{{5, 5}, {7, 9}, {0, 0}, {0, 3}, {kMax - 1, kMax}};
    for (const auto& [lo, hi] : items) pushIntoMixArray(mix, lo, hi);
    std::vector<int> words(mix.begin(), mix.end());
    EXPECT_EQ(convert(words, error), items);
    EXPECT_EQ(error, nullptr);
}

// The accessors' bool arguments are ignored, and the dated string does not pad the month.
TEST(ModuleVersion, DescriptionStrings) {
    using V = KelvarnPgRangeOperators4_0::Version;
    EXPECT_STREQ(V::GetDescStringMajorMinor(true), V::GetDescStringMajorMinor(false));
    EXPECT_STREQ(V::GetDescStringMajorMinorRelease(true), "3.3.16");
    EXPECT_STREQ(V::GetDescStringMajorMinorReleaseRevisionDate(), "3.3.16.765 #5c1e07a94b2d38f6 2025-6");
    EXPECT_EQ(V::GetMajor() * 10000 + V::GetMinor() * 100 + V::GetRelease(), 30316);
}

}  // namespace
