// The GiST key's kernels: penalty values, the page split's sweep and its
// invariants, and the inner/leaf asymmetries of the consistency tests.
#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>
#include <vector>

#include "qnPgGistRange.h"

namespace {

using namespace qn::gist;

int64_t key(int32_t lower, int32_t upper) { return packRange(lower, upper); }

float penalty(int64_t existing, int64_t added) {
    float p = -1;
    EXPECT_TRUE(computePenalty(existing, added, p));
    return p;
}

struct Split {
    SplitError error;
    std::vector<uint16_t> left, right;
    int64_t leftUnion, rightUnion;
};

// Splits keys given in offset order (offset 1 first).
Split split(const std::vector<int64_t>& keys) {
    std::vector<uint16_t> l(keys.size() + 1), r(keys.size() + 1);
    SplitSide left{l.data(), 0, 0}, right{r.data(), 0, 0};
    const auto n = static_cast<uint16_t>(keys.size());
    const SplitError e = pickSplit<malloc, free>(n, [&](uint16_t o) { return keys[o - 1]; }, left, right);
    return {e, {l.begin(), l.begin() + left.count}, {r.begin(), r.begin() + right.count}, left.unionKey, right.unionKey};
}

TEST(GistKey, ValueKeysAndUnion) {
    EXPECT_EQ(static_cast<uint64_t>(keyOfValue(-2)), 0xFFFFFFFEFFFFFFFEull);
    EXPECT_EQ(keyUnion(key(-5, 3), key(-2, 10)), key(-5, 10));
    EXPECT_EQ(keyUnion(key(-2147483647 - 1, -7), key(5, 2147483647)), key(-2147483647 - 1, 2147483647));
}

TEST(GistPenalty, GrowthPlusTieBreakingFraction) {
    EXPECT_FLOAT_EQ(penalty(key(0, 9), key(3, 4)), 0.8f);    // inside: 1 - 2/10
    EXPECT_FLOAT_EQ(penalty(key(0, 9), key(20, 29)), 20.99f); // outside: capped fraction
    EXPECT_FLOAT_EQ(penalty(key(5, 5), key(5, 5)), 0.0f);
    EXPECT_FLOAT_EQ(penalty(key(0, 9), key(5, 12)), 3.5f);   // growth 3, fraction 1 - (8 - 3)/10
}

// Keys 2^31 or more apart: the growth is exact, never a wrapped negative.
TEST(GistPenalty, ExtremesDoNotWrap) {
    EXPECT_FLOAT_EQ(penalty(key(0, 0), keyOfValue(-2147483647 - 1)), 2147483648.0f + 0.99f);
    EXPECT_FLOAT_EQ(penalty(key(-2147483647 - 1, -2147483647 - 1), keyOfValue(2147483647)), 4294967295.0f);
    EXPECT_FLOAT_EQ(penalty(key(-2147483647 - 1, 2147483647), key(0, 0)), 0.99f);  // 1 - 2^-32 rounds to 1: capped
}

TEST(GistSplit, PagesOfTheDocumentedShapes) {
    Split s = split({key(1, 2), key(10, 20)});
    EXPECT_EQ(s.left, std::vector<uint16_t>{1});
    EXPECT_EQ(s.right, std::vector<uint16_t>{2});
    EXPECT_EQ(s.leftUnion, key(1, 2));
    EXPECT_EQ(s.rightUnion, key(10, 20));

    s = split({key(5, 6), key(0, 100)});  // one entry holds both extremes: the right side seeds with the other
    EXPECT_EQ(s.left, std::vector<uint16_t>{2});
    EXPECT_EQ(s.right, std::vector<uint16_t>{1});

    s = split({key(0, 1), key(2, 3), key(100, 200)});  // penalties 2.99 and 98.99
    EXPECT_EQ(s.left, (std::vector<uint16_t>{1, 2}));
    EXPECT_EQ(s.right, std::vector<uint16_t>{3});
    EXPECT_EQ(s.leftUnion, key(0, 3));

    s = split(std::vector<int64_t>(9, key(7, 7)));  // equal penalties alternate towards the smaller side
    EXPECT_EQ(s.left.size(), 4u);
    EXPECT_EQ(s.right.size(), 5u);

    EXPECT_EQ(split({key(1, 1)}).error, SplitError::InvalidSize);
}

// Evenly spaced keys whose uppers step further than their lowers: every step's
// cheapest move is to the right, yet the left side keeps 30% of the page.
TEST(GistSplit, NoSideStarves) {
    std::vector<int64_t> keys;
    for (int i = 1; i <= 200; ++i) keys.push_back(key(i * 10, i * 10 + i % 7));
    const Split s = split(keys);
    EXPECT_EQ(s.left.size(), 60u);
    EXPECT_EQ(s.leftUnion, key(10, 604));
    EXPECT_EQ(s.rightUnion, key(610, 2004));
}

// Inner keys must let the search descend towards every leaf that can match.
TEST(GistConsistent, InnerKeysAdmitWhatLeavesBelowMayMatch) {
    EXPECT_TRUE(keyIncludedIn(key(0, 100), key(50, 60), false));
    EXPECT_FALSE(keyIncludedIn(key(0, 100), key(50, 60), true));
    EXPECT_TRUE(keyIncludedIn(key(50, 60), key(50, 60), true));
    EXPECT_TRUE(keyContainsValue(key(-3, 9), -3));
    EXPECT_TRUE(keyContainsValue(key(-3, 9), 9));
    EXPECT_FALSE(keyContainsValue(key(-3, 9), 10));

    // A bitfield over [100, 163] with only 150 set: a leaf tests its lower bound only,
    // an inner key any bit of its span.
    uint8_t bits[8] = {};
    qn::bitfield::setBit(bits, 50);
    const qn::bitfield::BitFieldView bf{bits, bits + 8, 100, 163};
    EXPECT_FALSE(keyMeetsBitField(key(140, 160), bf, true));
    EXPECT_TRUE(keyMeetsBitField(key(150, 150), bf, true));
    EXPECT_TRUE(keyMeetsBitField(key(140, 160), bf, false));
    EXPECT_TRUE(keyMeetsBitField(key(-2147483647 - 1, 2147483647), bf, false));
    EXPECT_FALSE(keyMeetsBitField(key(151, 2147483647), bf, false));
    EXPECT_FALSE(keyMeetsBitField(key(0, 99), bf, false));
}

}  // namespace
