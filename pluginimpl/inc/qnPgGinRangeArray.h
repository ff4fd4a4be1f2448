// The GIN keys of a range array column, and the kernels of its support
// functions: which keys a stored set gives, which keys a query looks for, and
// how the keys found decide whether a row is a candidate.
//
// A key names a block of the int4 line: at level l the line is cut into blocks
// of 2^l values twice, by grid 0 from the line's start and by grid 1 offset by
// half a block (level 0 is single values and has grid 0 only; level 32 is the
// whole line). A range is keyed by one block, the narrowest that holds it in
// either grid: a range of length w fits in one of the two grids once blocks
// reach 2w, so its key covers less than 4 times its length, and every range
// has exactly one key, which keeps the index small and its build fast. An
// index may start at a coarser finest level (its finest_block option): fewer
// distinct keys, more false candidates among short ranges. Every value a range
// holds lies in its key's block, so a query finds every row whose set meets it
// by looking, at each level and in each grid, for the blocks its own members
// lie in; rows whose blocks merely meet the query's are false candidates,
// which the operator rechecks.
//
// A pair is keyed by the span of its two bounds whatever their order, and a set
// of more than kMaxKeyedRanges ranges by a covering of that many ranges made by
// closing its smallest gaps: whenever a test function is true of a stored pair
// and the query, they share a member in that span. An array of odd length is
// keyed by its pairs and the recheck key, which every query looks for: its row
// is always a candidate, so the operator raises its error on it as it would
// without the index.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgGinRangeArray.h must not see server headers: include it before postgres.h");
#endif

#include <algorithm>
#include <cstdint>

#include "qnPgRangeArray.h"
#include "qnPgRangeNormalise.h"
#include "qnPgVector.h"

namespace qn::gin {

using Range32 = qn::pgRangeArray::Range<int32_t>;

constexpr int kLevels = 33;                           // level 32: one block of 2^32 values
constexpr int kGrids = 2;                             // grid 1 is offset by half a block
constexpr uint64_t kExactRunBlocks = 2;               // a query looks up runs of this many blocks one by one
constexpr int kDefaultFinestBlock = 64;               // values in the finest block a key stands for
constexpr uint64_t kMaxKeyedRanges = 1024;            // a stored set beyond this is keyed by a covering
constexpr uint64_t kMaxQueryRanges = 64;              // a query set beyond this is widened to a covering
constexpr int kMaxContainedBounds = 8;                // bounds a containment query looks up
constexpr int64_t kRecheckKey = int64_t{kLevels * kGrids} << 32;  // rows every query takes as candidates
constexpr int64_t kEmptyKey = int64_t{kLevels * kGrids + 1} << 32;  // an empty int4set, which `<@` looks for

// The strategies of the operator class.
enum Strategy : uint16_t {
    HoldsValue = 1,         // int4[] ~@> int4
    OverlapsSet = 2,        // int4[] ~&& int4[]
    ContainsSet = 3,        // int4[] ~@> int4[]
    ContainedInSet = 4,     // int4[] ~<@ int4[]
    OverlapsPackedRange = 5, // int4[] ~&& int8
    OverlappedBySet = 6,     // int4[] &&~ int4[]: ~&& with the operands swapped
    // int4set_gin_ops: 1 to 4 as above with int4set for int4[] (@>, &&, @>, <@)
    OverlapsRange = 7,       // int4set && int4range
    ContainsRange = 8,       // int4set @> int4range
    ContainedInRange = 9     // int4set <@ int4range
};

// The block of value v at level l in grid g (grid 1 only from level 1 on).
inline uint64_t blockOf(int32_t v, int level, int grid) {
    const uint64_t offset = grid == 0 ? 0 : uint64_t{1} << (level - 1);
    return (uint64_t{static_cast<uint32_t>(v) ^ 0x80000000u} + offset) >> level;
}

// Keys sort by level, then grid, then block: a run of blocks is a run of keys.
inline int64_t keyOf(int level, int grid, uint64_t block) {
    return (int64_t{level * kGrids + grid} << 32) | static_cast<int64_t>(block);
}

// The grids of a level.
inline int gridsAt(int level) { return level == 0 ? 1 : kGrids; }

// The range from the smaller to the larger bound of a pair.
inline Range32 spanOf(Range32 r) { return r.lower <= r.upper ? r : Range32{r.upper, r.lower}; }

// The finest level of an index whose keys stand for blocks of at least
// `finestBlock` values (rounded down to a power of 2; 1 or more).
inline int finestLevel(int32_t finestBlock) {
    int level = 0;
    while (level + 1 < kLevels && (int64_t{1} << (level + 1)) <= finestBlock) ++level;
    return level;
}

// The key of a range (lower <= upper): the narrowest block, from level
// `finest` up, that holds it in either grid (grid 0 first). Blocks narrower
// than the range are not tried; level 32's grid 0 holds every range.
inline int64_t keyOfRange(Range32 r, int finest) {
    const uint64_t width = uint64_t{static_cast<uint32_t>(r.upper) - static_cast<uint32_t>(r.lower)} + 1;
    const int widthLevel = width == 1 ? 0 : 64 - __builtin_clzll(width - 1);  // 2^widthLevel >= width
    for (int level = std::max(finest, widthLevel);; ++level)
        for (int grid = 0; grid < gridsAt(level); ++grid)
            if (blockOf(r.lower, level, grid) == blockOf(r.upper, level, grid))
                return keyOf(level, grid, blockOf(r.lower, level, grid));
}

// Reduces a normalised list of n ranges to at most k (k >= 1) ranges covering
// it, by closing its smallest gaps; gaps is scratch room for n - 1 values.
// Returns the number of ranges left at the front of r.
inline uint64_t coverWithFewer(Range32* r, uint64_t n, uint64_t k, uint32_t* gaps) {
    if (n <= k) return n;
    auto gapAfter = [r](uint64_t i) { return static_cast<uint32_t>(int64_t{r[i + 1].lower} - r[i].upper); };
    const uint64_t open = k - 1;  // gaps left open
    uint32_t threshold = UINT32_MAX;
    uint64_t openAtThreshold = 0;
    if (open > 0) {
        for (uint64_t i = 0; i + 1 < n; ++i) gaps[i] = gapAfter(i);
        const uint64_t nth = n - 1 - open;  // from here on: the `open` largest gaps
        std::nth_element(gaps, gaps + nth, gaps + (n - 1));
        threshold = gaps[nth];
        openAtThreshold = open;
        for (uint64_t i = nth; i + 1 < n; ++i)
            if (gaps[i] > threshold) --openAtThreshold;
    }
    uint64_t out = 0;
    for (uint64_t i = 1; i < n; ++i) {
        const uint32_t gap = gapAfter(i - 1);
        const bool keepOpen = gap > threshold || (gap == threshold && openAtThreshold > 0 && open > 0);
        if (keepOpen && gap == threshold) --openAtThreshold;
        if (keepOpen)
            r[++out] = r[i];
        else
            r[out].upper = r[i].upper;
    }
    return out + 1;
}

// A list of ranges as spans of its pairs, normalised and, beyond `most` ranges,
// covered by `most`: a superset of every member of every pair. Takes ranges
// from A (returned; nullptr when A gives nothing) and n receives the count.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
Range32* coveringSpans(const Range32* first, uint64_t& n, uint64_t most, Poll poll) {
    auto* spans = static_cast<Range32*>(A((n ? n : 1) * sizeof(Range32)));
    if (!spans) return nullptr;
    qn::pgRangeArray::Poller<Poll> tick(poll);
    for (uint64_t i = 0; i < n; ++i, tick()) spans[i] = spanOf(first[i]);
    const int64_t merged = qn::pgRangeArray::normaliseRanges<A, F>(spans, n, poll);
    if (merged < 0) return nullptr;
    n = static_cast<uint64_t>(merged);
    if (n > most) {
        auto* gaps = static_cast<uint32_t*>(A(n * sizeof(uint32_t)));
        if (!gaps) return nullptr;
        n = coverWithFewer(spans, n, most, gaps);
        F(gaps);
    }
    return spans;
}

// A covering of at most `most` ranges (most >= 1) of a normalised list given
// range by range, ascending and apart, in constant room: whenever 2 most ranges
// are held they are covered by `most`, closing the smallest gaps among them.
// Up to `most` ranges, the covering is the list itself; beyond, every member
// of the list lies in it and each of its bounds is a bound of the list. Takes
// its room from A; ok() is false when A gave nothing.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
class StreamCovering {
public:
    explicit StreamCovering(uint64_t most)
        : most_(most),
          ranges_(static_cast<Range32*>(A(2 * most * sizeof(Range32)))),
          gaps_(static_cast<uint32_t*>(A(2 * most * sizeof(uint32_t)))) {}
    ~StreamCovering() {
        if (ranges_) F(ranges_);
        if (gaps_) F(gaps_);
    }
    StreamCovering(const StreamCovering&) = delete;
    StreamCovering& operator=(const StreamCovering&) = delete;

    bool ok() const { return ranges_ && gaps_; }
    void add(Range32 r) {
        if (n_ == 2 * most_) n_ = coverWithFewer(ranges_, n_, most_, gaps_);
        ranges_[n_++] = r;
    }
    // The covering: n ranges at the returned address, valid while this lives.
    const Range32* finish(uint64_t& n) {
        n_ = coverWithFewer(ranges_, n_, most_, gaps_);
        n = n_;
        return ranges_;
    }

private:
    uint64_t most_;
    Range32* ranges_;
    uint32_t* gaps_;
    uint64_t n_ = 0;
};

// The keys of n ranges (each keyed by its span), with `extra` added when
// withExtra, sorted and without repeats, in a buffer from A; count receives
// their number. nullptr when A gives nothing.
template <qn::pg::AllocFn A>
int64_t* keysOfRanges(const Range32* ranges, uint64_t n, bool withExtra, int64_t extra, int finest, uint64_t& count) {
    auto* keys = static_cast<int64_t*>(A((n + 1) * sizeof(int64_t)));
    if (!keys) return nullptr;
    count = 0;
    for (uint64_t i = 0; i < n; ++i) keys[count++] = keyOfRange(spanOf(ranges[i]), finest);
    if (withExtra) keys[count++] = extra;
    // Sorted and unique: the server sorts them again with a call per comparison,
    // which costs next to nothing on sorted keys.
    std::sort(keys, keys + count);
    count = static_cast<uint64_t>(std::unique(keys, keys + count) - keys);
    return keys;
}

// The keys of a stored range array of n pairs (oddTail: one more element
// follows them), sorted and without repeats, in a buffer from A; count receives
// their number. nullptr when A gives nothing.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
int64_t* storedKeys(const Range32* pairs, uint64_t n, bool oddTail, int finest, uint64_t& count, Poll poll) {
    const Range32* keyed = pairs;
    Range32* covering = nullptr;
    if (n > kMaxKeyedRanges) {
        covering = coveringSpans<A, F>(pairs, n, kMaxKeyedRanges, poll);
        if (!covering) return nullptr;
        keyed = covering;
    }
    int64_t* keys = keysOfRanges<A>(keyed, n, oddTail, kRecheckKey, finest, count);
    if (covering) F(covering);
    return keys;
}

// The keys of a stored int4set whose maximal ranges `next(Range32&)` gives in
// ascending order (false at the end), polling as it goes: the keys of its
// ranges, beyond kMaxKeyedRanges of a covering of them; the empty set has the
// one key kEmptyKey. nullptr when A gives nothing.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Next, typename Poll>
int64_t* storedSetKeys(Next next, int finest, uint64_t& count, Poll poll) {
    StreamCovering<A, F> covering(kMaxKeyedRanges);
    if (!covering.ok()) return nullptr;
    qn::pgRangeArray::Poller<Poll> tick(poll);
    for (Range32 r; next(r); tick()) covering.add(r);
    uint64_t n = 0;
    const Range32* ranges = covering.finish(n);
    return keysOfRanges<A>(ranges, n, n == 0, kEmptyKey, finest, count);
}

// One key a query looks for. A partial entry matches every key from its own up
// to `last` (one level); group is the bound of a containment query the key
// stands for, or -1 for the recheck key.
struct QueryEntry {
    int64_t key;
    int64_t last;
    bool partial;
    int32_t group;
};

// The keys a query looks for: n entries, groups = number of groups (>= 0).
struct QueryPlan {
    QueryEntry* entries = nullptr;
    int32_t n = 0;
    int32_t groups = 0;
};

namespace detail {

inline void add(QueryPlan& plan, int64_t key, int64_t last, bool partial, int32_t group) {
    plan.entries[plan.n++] = QueryEntry{key, last, partial, group};
}

// The keys of value v at every level from `finest`, in both grids, in group g.
inline void addValue(QueryPlan& plan, int32_t v, int32_t group, int finest) {
    for (int level = finest; level < kLevels; ++level)
        for (int grid = 0; grid < gridsAt(level); ++grid) {
            const int64_t key = keyOf(level, grid, blockOf(v, level, grid));
            add(plan, key, key, false, group);
        }
}

// Starts an empty plan with room for `capacity` entries.
template <qn::pg::AllocFn A>
bool allocate(QueryPlan& plan, uint64_t capacity) {
    plan = QueryPlan();
    plan.entries = static_cast<QueryEntry*>(A(capacity * sizeof(QueryEntry)));
    return plan.entries != nullptr;
}

}  // namespace detail

// A set holding the value: the value's block at every level, in both grids.
template <qn::pg::AllocFn A>
bool planHoldsValue(int32_t v, int finest, QueryPlan& plan) {
    if (!detail::allocate<A>(plan, kLevels * kGrids + 1)) return false;
    detail::addValue(plan, v, 0, finest);
    detail::add(plan, kRecheckKey, kRecheckKey, false, -1);
    plan.groups = 1;
    return true;
}

// A set meeting the normalised ranges [first, first + n): at every level and
// in both grids, the blocks the ranges touch, those of ranges touching the
// same or next blocks merged; a run of more than kExactRunBlocks blocks is one
// partial entry. withEmpty: the empty set's key is looked for too (a set
// lying in the ranges).
template <qn::pg::AllocFn A>
bool planMeets(const Range32* first, uint64_t n, int finest, QueryPlan& plan, bool withEmpty = false) {
    if (!detail::allocate<A>(plan, uint64_t{kLevels} * kGrids * n * kExactRunBlocks + 2)) return false;
    if (withEmpty) detail::add(plan, kEmptyKey, kEmptyKey, false, -1);
    for (int level = finest; level < kLevels && n > 0; ++level)
        for (int grid = 0; grid < gridsAt(level); ++grid) {
            auto flush = [&](uint64_t from, uint64_t to) {
                if (to - from < kExactRunBlocks) {
                    for (uint64_t b = from; b <= to; ++b)
                        detail::add(plan, keyOf(level, grid, b), keyOf(level, grid, b), false, 0);
                } else {
                    detail::add(plan, keyOf(level, grid, from), keyOf(level, grid, to), true, 0);
                }
            };
            uint64_t from = blockOf(first[0].lower, level, grid), to = blockOf(first[0].upper, level, grid);
            for (uint64_t i = 1; i < n; ++i) {
                const uint64_t b = blockOf(first[i].lower, level, grid), e = blockOf(first[i].upper, level, grid);
                if (b <= to + 1) {
                    to = std::max(to, e);
                } else {
                    flush(from, to);
                    from = b;
                    to = e;
                }
            }
            flush(from, to);
        }
    detail::add(plan, kRecheckKey, kRecheckKey, false, -1);
    plan.groups = n > 0 ? 1 : 0;
    return true;
}

// A set containing every pair of [first, first + n), in any order: each of up
// to kMaxContainedBounds bounds, spread over the pairs, must be held, the lower
// bound of every pair and the upper bound of a pair that is not inverted.
template <qn::pg::AllocFn A>
bool planContains(const Range32* first, uint64_t n, int finest, QueryPlan& plan) {
    if (!detail::allocate<A>(plan, uint64_t{kLevels} * kGrids * kMaxContainedBounds + 1)) return false;
    const uint64_t pairsUsed = std::min<uint64_t>(n, kMaxContainedBounds / 2);
    for (uint64_t j = 0; j < pairsUsed; ++j) {
        const Range32 r = first[j * n / pairsUsed];
        detail::addValue(plan, r.lower, plan.groups++, finest);
        if (r.lower < r.upper) detail::addValue(plan, r.upper, plan.groups++, finest);
    }
    detail::add(plan, kRecheckKey, kRecheckKey, false, -1);
    return true;
}

// The plan of an int4set query other than a value, over the query set's
// ranges (ascending and apart; beyond kMaxQueryRanges, a covering of them,
// whose bounds are members): a set meeting them, lying in them (or empty), or
// containing them. everyRow is set, and no plan made, when every row passes:
// every set contains the empty set.
template <qn::pg::AllocFn A>
bool planSetQuery(Strategy strategy, const Range32* ranges, uint64_t n, int finest, QueryPlan& plan, bool& everyRow) {
    everyRow = false;
    switch (strategy) {
        case ContainsSet:
        case ContainsRange:
            if (n == 0) {
                everyRow = true;
                return true;
            }
            return planContains<A>(ranges, n, finest, plan);
        case ContainedInSet:
        case ContainedInRange: return planMeets<A>(ranges, n, finest, plan, true);
        default: return planMeets<A>(ranges, n, finest, plan);
    }
}

// Whether a row whose keys were found as `found(i)` says (No, Maybe or Yes for
// each entry i of the plan) can pass: its recheck key was found, or some key of
// every group.
enum class Found { No, Maybe, Yes };

template <typename FoundFn>
bool mayPass(const QueryEntry* entries, int32_t n, int32_t groups, FoundFn found) {
    constexpr int32_t kMaxGroups = kMaxContainedBounds;
    bool seen[kMaxGroups] = {};
    int32_t groupsSeen = 0;
    for (int32_t i = 0; i < n; ++i) {
        if (found(i) == Found::No) continue;
        const int32_t g = entries[i].group;
        if (g < 0) return true;
        if (g < kMaxGroups && !seen[g]) {
            seen[g] = true;
            ++groupsSeen;
        }
    }
    return groups > 0 && groupsSeen == groups;
}

}  // namespace qn::gin
