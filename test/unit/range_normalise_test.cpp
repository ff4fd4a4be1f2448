// Normalising range lists of any order against an int64 model, the sort by
// lower bound, and the packed range text form.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <string>
#include <vector>

#include "qnPgPackedRangeText.h"
#include "qnPgRangeNormalise.h"
#include "range_test_util.h"

namespace {

using namespace qn::pgRangeArray;
using rt::Pairs;
using rt::R;

int uniform(std::mt19937& rng, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

// A bound near zero or near either int4 extreme.
int randomBound(std::mt19937& rng) {
    const int v = uniform(rng, -12, 12);
    switch (uniform(rng, 0, 5)) {
        case 0: return INT_MIN + 12 + v;
        case 1: return INT_MAX - 12 + v;
        default: return v;
    }
}

Pairs normalised(const Pairs& input, int* polls = nullptr) {
    std::vector<R> data = rt::ranges(input);
    const int64_t n = normaliseRanges<malloc, free>(data.data(), data.size(), [&] {
        if (polls) ++*polls;
    });
    Pairs out;
    for (int64_t i = 0; i < n; ++i) out.emplace_back(data[i].lower, data[i].upper);
    return out;
}

// Any pairs, in any order, overlapping, inverted or repeated, give the normalised
// union of the integers they hold; a normalised input is recognised as such.
TEST(Normalise, AnyInputGivesTheModelsUnion) {
    std::mt19937 rng(20251123u);
    for (int iter = 0; iter < 4000; ++iter) {
        Pairs input;
        const int n = uniform(rng, 0, 10);
        for (int i = 0; i < n; ++i) {
            const int a = randomBound(rng), b = uniform(rng, 0, 4) ? randomBound(rng) : a;
            if (uniform(rng, 0, 5) == 0)
                input.emplace_back(std::max(a, b), std::min(a, b));  // inverted (or a single value)
            else
                input.emplace_back(std::min(a, b), std::max(a, b));
        }
        const Pairs got = normalised(input);
        const rt::I64Pairs model = rt::segmentModel(rt::Op::Union, input, {});
        ASSERT_EQ(rt::I64Pairs(got.begin(), got.end()), model);
        const std::vector<R> in = rt::ranges(input);
        ASSERT_EQ(isNormalised(in.data(), in.data() + in.size()), input == got);
        ASSERT_EQ(hasMembers(in.data(), in.data() + in.size()), !got.empty());
    }
}

// Inputs made of k sorted runs come out sorted and whole, whatever k (merged
// for a few runs, radix sorted for many); a million and more ranges are polled
// on the way.
TEST(SortByLower, MergesTheRunsOfTheInput) {
    std::mt19937 rng(7u);
    for (int runs : {1, 2, 3, 8, 9, 1000}) {
        std::vector<R> data;
        for (int r = 0; r < runs; ++r) {
            const int length = uniform(rng, 0, 2000);
            int lower = uniform(rng, -1000000, 1000000);
            for (int i = 0; i < length; ++i) data.push_back(R{lower += uniform(rng, 0, 50), uniform(rng, -5, 5)});
        }
        std::vector<R> expected = data, scratch(data.size());
        std::stable_sort(expected.begin(), expected.end(), [](const R& a, const R& b) { return a.lower < b.lower; });
        const R* sorted = sortByLower(data.data(), scratch.data(), data.size(), [] {});
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), sorted, [](const R& a, const R& b) {
            return a.lower == b.lower && a.upper == b.upper;
        })) << runs << " runs";
    }
    std::vector<R> reversed, scratch(1100000);
    for (int i = 1100000; i > 0; --i) reversed.push_back(R{i, i});
    int polls = 0;
    const R* sorted = sortByLower(reversed.data(), scratch.data(), reversed.size(), [&] { ++polls; });
    EXPECT_EQ(sorted[0].lower, 1);
    EXPECT_EQ(sorted[1099999].lower, 1100000);
    EXPECT_GE(polls, 3);
}

std::string format(int lower, int upper) {
    char text[kPackedRangeTextMax];
    return std::string(text, formatPackedRange(lower, upper, text));
}

// Parses a heap copy of exactly the text's length, so that a read past it fails the test.
PackedRangeParse parse(const std::string& text, int& lower, int& upper) {
    const std::vector<char> exact(text.begin(), text.end());
    return parsePackedRange(exact.data(), exact.size(), lower, upper);
}

TEST(PackedRangeText, FormatsAndParsesBack) {
    EXPECT_EQ(format(INT_MIN, INT_MIN), "[-2147483648,-2147483648]");
    EXPECT_EQ(format(INT_MIN, INT_MIN).size(), kPackedRangeTextMax);
    EXPECT_EQ(format(0, INT_MAX), "[0,2147483647]");
    EXPECT_EQ(format(7, -3), "[7,-3]");
    std::mt19937 rng(99u);
    for (int iter = 0; iter < 20000; ++iter) {
        int a = randomBound(rng), b = uniform(rng, 0, 1) ? randomBound(rng) : static_cast<int>(rng());
        if (a > b) std::swap(a, b);
        const std::string text = format(a, b);
        int lower = 0, upper = 0;
        ASSERT_EQ(parse(text, lower, upper), PackedRangeParse::Ok) << text;
        ASSERT_EQ(lower, a);
        ASSERT_EQ(upper, b);
        // A text cut short anywhere is refused.
        ASSERT_EQ(parse(text.substr(0, iter % text.size()), lower, upper), PackedRangeParse::Syntax) << text;
    }
}

}  // namespace
