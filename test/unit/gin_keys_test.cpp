// GIN keys of range arrays: whenever a test function is true of a stored array
// and a query, the query's plan finds the row by its keys, for arrays of any
// order and with inverted pairs (odd lengths and empty queries: gin.sql);
// coverings keep the largest gaps. (int4set keys: int4set_index.sql, every
// operator by index against a sequential scan.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>
#include <vector>

#include "qnPgGinRangeArray.h"

namespace {

using namespace qn::gin;
using qn::pgRangeArray::inRangeArray;
using qn::pgRangeArray::rangeListIncluded;
using qn::pgRangeArray::rangeListsOverlap;
using qn::pgRangeArray::rangeOverlapsList;

void* allocate(size_t n) { return std::malloc(n); }
void release(void* p) { std::free(p); }
auto noPoll = [] {};

std::set<int64_t> keysOf(const std::vector<Range32>& pairs, int finest) {
    uint64_t count = 0;
    int64_t* keys = storedKeys<allocate, release>(pairs.data(), pairs.size(), false, finest, count, noPoll);
    std::set<int64_t> out(keys, keys + count);
    release(keys);
    return out;
}

// The plan lets the row through, given the row's keys.
bool found(const QueryPlan& plan, const std::set<int64_t>& keys) {
    return mayPass(plan.entries, plan.n, plan.groups, [&](int32_t i) {
        const QueryEntry& e = plan.entries[i];
        auto it = keys.lower_bound(e.key);
        return it != keys.end() && *it <= e.last ? Found::Yes : Found::No;
    });
}

// Bounds near each other, near the extremes, or anywhere, so that pairs meet often.
int32_t bound(std::mt19937& rng) {
    switch (rng() % 4) {
        case 0: return static_cast<int32_t>(rng() % 2000) - 1000;
        case 1: return INT32_MIN + static_cast<int32_t>(rng() % 50);
        case 2: return INT32_MAX - static_cast<int32_t>(rng() % 50);
        default: return static_cast<int32_t>(rng());
    }
}

std::vector<Range32> randomPairs(std::mt19937& rng, size_t most) {
    std::vector<Range32> pairs(rng() % (most + 1));
    for (Range32& r : pairs) {
        const int32_t lo = bound(rng);
        const int64_t hi = int64_t{lo} + (rng() % 3 == 0 ? static_cast<int64_t>(rng() % 100000) : rng() % 5);
        r = {lo, static_cast<int32_t>(std::min<int64_t>(hi, INT32_MAX))};
        if (rng() % 8 == 0) std::swap(r.lower, r.upper);  // inverted
    }
    if (rng() % 2) std::sort(pairs.begin(), pairs.end(), [](Range32 a, Range32 b) { return a.lower < b.lower; });
    return pairs;
}

TEST(GinKeys, EveryRowATestAcceptsIsACandidate) {
    std::mt19937 rng(7);
    for (int round = 0; round < 20000; ++round) {
        const int finest = round % 9;  // blocks of 1 to 256 values at the finest
        const std::vector<Range32> stored = randomPairs(rng, round % 50 == 0 ? 3000 : 8);
        const std::set<int64_t> keys = keysOf(stored, finest);
        const Range32* s = stored.data();
        const Range32* sEnd = s + stored.size();
        std::vector<Range32> query = randomPairs(rng, round % 40 == 0 ? 200 : 4);
        const Range32* q = query.data();
        const Range32* qEnd = q + query.size();

        const int32_t v = query.empty() ? bound(rng) : query[0].lower;
        QueryPlan plan;
        ASSERT_TRUE(planHoldsValue<allocate>(v, finest, plan));
        if (inRangeArray(s, sEnd, v)) {
            EXPECT_TRUE(found(plan, keys)) << "value " << v;
        }
        release(plan.entries);

        if (!query.empty()) {
            const Range32 r = spanOf(query[0]);
            ASSERT_TRUE(planMeets<allocate>(&r, 1, finest, plan));
            if (rangeOverlapsList(query[0].lower, query[0].upper, s, sEnd)) {
                EXPECT_TRUE(found(plan, keys)) << "packed";
            }
            release(plan.entries);
        }

        uint64_t n = query.size();
        Range32* spans = coveringSpans<allocate, release>(q, n, kMaxQueryRanges, noPoll);
        ASSERT_TRUE(planMeets<allocate>(spans, n, finest, plan));
        if (rangeListsOverlap(q, qEnd, s, sEnd)) {
            EXPECT_TRUE(found(plan, keys)) << "overlap";
        }
        if (rangeListIncluded(s, sEnd, q, qEnd)) {
            EXPECT_TRUE(found(plan, keys)) << "contained";
        }
        release(plan.entries);
        release(spans);

        ASSERT_TRUE(planContains<allocate>(q, query.size(), finest, plan));
        if (rangeListIncluded(q, qEnd, s, sEnd)) {
            EXPECT_TRUE(found(plan, keys)) << "contains";
        }
        release(plan.entries);
        if (::testing::Test::HasFailure()) return;
    }
}

TEST(GinKeys, ARangeHasOneKeyLessThanFourTimesItsLength) {
    std::mt19937 rng(3);
    for (int i = 0; i < 100000; ++i) {
        const int32_t lo = static_cast<int32_t>(rng());
        const int64_t hi = std::min<int64_t>(int64_t{lo} + (rng() >> (rng() % 32)), INT32_MAX);
        const Range32 r{lo, static_cast<int32_t>(hi)};
        const int finest = i % 8;
        const int64_t key = keyOfRange(r, finest);
        const int level = static_cast<int>((key >> 32) / kGrids), grid = static_cast<int>((key >> 32) % kGrids);
        const uint64_t block = static_cast<uint64_t>(key) & 0xffffffffu;
        ASSERT_GE(level, finest);
        ASSERT_TRUE(blockOf(r.lower, level, grid) == block && blockOf(r.upper, level, grid) == block);  // it holds the range
        for (int g = 0; level > finest && g < gridsAt(level - 1); ++g)  // the narrowest block that holds it
            EXPECT_NE(blockOf(r.lower, level - 1, g), blockOf(r.upper, level - 1, g)) << lo << " " << hi;
        const uint64_t length = static_cast<uint64_t>(hi - lo) + 1;
        EXPECT_LE(uint64_t{1} << level, std::max<uint64_t>(uint64_t{1} << finest, 4 * length)) << lo << " " << hi;
    }
}

TEST(GinKeys, CoveringClosesTheSmallestGaps) {
    std::mt19937 rng(11);
    for (int round = 0; round < 2000; ++round) {
        std::vector<Range32> list;  // normalised, with gaps of 1 to 3 * 2^23 values
        const size_t size = rng() % 300;
        for (int64_t lower = INT32_MIN + rng() % 1000; list.size() < size && lower + 1000 < INT32_MAX;) {
            const int64_t upper = lower + rng() % 1000;
            list.push_back({static_cast<int32_t>(lower), static_cast<int32_t>(upper)});
            lower = upper + 2 + ((rng() % 4) << (rng() % 24));  // many equal gaps
        }
        const uint64_t k = 1 + rng() % 20;
        std::vector<Range32> covered = list;
        std::vector<uint32_t> gaps(list.size() + 1);
        const uint64_t n = coverWithFewer(covered.data(), covered.size(), k, gaps.data());
        covered.resize(n);
        ASSERT_EQ(n, std::min<uint64_t>(k, list.size()));
        // Every original range lies in one covering range, and the covering's gaps are
        // gaps of the list at least as wide as any gap it closed.
        uint32_t narrowestOpen = UINT32_MAX, widestClosed = 0;
        size_t c = 0;
        for (size_t i = 0; i < list.size(); ++i) {
            while (c < n && covered[c].upper < list[i].lower) ++c;
            ASSERT_LT(c, n);
            ASSERT_LE(covered[c].lower, list[i].lower);
            ASSERT_GE(covered[c].upper, list[i].upper);
            if (i + 1 < list.size()) {
                const auto gap = static_cast<uint32_t>(int64_t{list[i + 1].lower} - list[i].upper);
                if (covered[c].upper == list[i].upper)
                    narrowestOpen = std::min(narrowestOpen, gap);
                else
                    widestClosed = std::max(widestClosed, gap);
            }
        }
        if (n > 1 && n < list.size()) {
            EXPECT_LE(widestClosed, narrowestOpen);
        }
    }
}

}  // namespace
