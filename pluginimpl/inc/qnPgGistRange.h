// The GiST key over int4 and packed-range int8 columns, and the kernels of its
// support functions: union, penalty, the consistency tests and the page split.
//
// Every key is a packed range (lower in the low 32 bits, upper in the high 32
// bits, both inclusive): [v; v] for an int4 value, the value itself for a packed
// range; an inner key is the smallest range covering every key below it. Bounds
// compare as signed 32-bit numbers.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgGistRange.h must not see server headers: include it before postgres.h");
#endif

#include <algorithm>
#include <cstdint>

#include "qnPgRangeArray.h"
#include "qnPgVector.h"
#include "quenloPgBitField.h"

namespace qn::gist {

using qn::pgRangeArray::packedLower;
using qn::pgRangeArray::packedUpper;
using qn::pgRangeArray::packRange;

// The key of an int4 value: [v; v], v taken as 32 unsigned bits in both halves.
inline int64_t keyOfValue(int32_t v) { return packRange(v, v); }

// The smallest key covering both.
inline int64_t keyUnion(int64_t a, int64_t b) {
    return packRange(std::min(packedLower(a), packedLower(b)), std::max(packedUpper(a), packedUpper(b)));
}

// The cost of adding key `added` under key `existing`: the integer part is the
// number of values by which `existing` must grow; the fraction (below 1) breaks
// ties, 1 - newSpan/origSpan for a key that already fits, so the tightest cover
// wins, and at most 0.99 otherwise, so that it never reaches the next unit of
// growth. Spans and growth are counted exactly in 64 bits: keys at opposite ends
// of the int4 line are 2^32 - 1 apart, and 32-bit arithmetic would wrap there.
// Returns false for a negative growth (a malformed key); penalty is then unset.
inline bool computePenalty(int64_t existing, int64_t added, float& penalty) {
    const int64_t ol = packedLower(existing), oh = packedUpper(existing);
    const int64_t nl = packedLower(added), nh = packedUpper(added);
    const int64_t growth = (std::max(oh, nh) - std::min(ol, nl)) - (oh - ol);
    if (growth < 0) return false;
    const int64_t newSpan = nh - nl + 1, origSpan = oh - ol + 1;
    const float ratio = newSpan > growth ? static_cast<float>(newSpan - growth) / static_cast<float>(origSpan)
                                         : 0.0f / static_cast<float>(origSpan);
    float fraction = 1.0f - ratio;
    fraction = fraction < 0.99f ? std::max(fraction, 0.0f) : 0.99f;
    penalty = fraction + static_cast<float>(growth);
    return true;
}

// The strategies the operator classes give their operators; every other number
// is refused by the consistent function.
enum Strategy : uint16_t {
    ValueInRangeArray = 1,        // int4 <@ int4[]
    ValueInBitField = 2,          // int4 <@ bytea
    ValueInPackedRange = 3,       // int4 <@ int8
    ValueInInt4Set = 4,           // int4 <@ int4set
    RangeOverlapsRangeArray = 11, // int8 && int4[]
    RangeOverlapsRange = 13,      // int8 && int8
    RangeIncludedInRange = 14,    // int8 <@ int8
    RangeContainsRange = 15,      // int8 @> int8
    RangeContainsValue = 16,      // int8 @> int4
};

inline bool isImplementedStrategy(uint16_t s) {
    return s == 1 || s == 2 || s == 3 || s == 4 || s == 11 || s == 13 || s == 14 || s == 15 || s == 16;
}

// Key [kl; kh] meets a packed range query (strategies 3 and 13): they overlap.
inline bool keyOverlaps(int64_t key, int64_t query) {
    return packedUpper(query) >= packedLower(key) && packedUpper(key) >= packedLower(query);
}

// Strategy 14. A leaf key must lie inside the query; an inner key only needs
// to overlap it, since a key inside the query may lie below any overlapping cover.
inline bool keyIncludedIn(int64_t key, int64_t query, bool leaf) {
    if (!leaf) return keyOverlaps(key, query);
    return packedLower(key) >= packedLower(query) && packedUpper(key) <= packedUpper(query);
}

// Strategy 15: the key contains the query; a cover of a containing key contains it too.
inline bool keyContains(int64_t key, int64_t query) {
    return packedLower(query) >= packedLower(key) && packedUpper(key) >= packedUpper(query);
}

// Strategy 16: the key contains the value.
inline bool keyContainsValue(int64_t key, int32_t v) { return packedLower(key) <= v && v <= packedUpper(key); }

// Strategy 11: the packed range test itself, a forward scan that stops early on
// the assumption that the list is sorted. Whatever the list's order, a key that
// covers a range it accepts is accepted too, so it serves inner keys as well.
inline bool keyMeetsRangeArray(int64_t key, const qn::pgRangeArray::Range<int32_t>* first,
                               const qn::pgRangeArray::Range<int32_t>* last) {
    return qn::pgRangeArray::rangeOverlapsList(packedLower(key), packedUpper(key), first, last);
}

// Strategy 1. At a leaf, the key [v; v] answers exactly as `v <@ array` does: the
// same binary search, which on an unsorted list may miss a range that holds v.
// Whatever the search finds holds v, so an inner key needs some range of the list,
// in any order, to meet it: every range is looked at.
inline bool keyMayHoldMember(int64_t key, const qn::pgRangeArray::Range<int32_t>* first,
                             const qn::pgRangeArray::Range<int32_t>* last, bool leaf) {
    const int32_t kl = packedLower(key), kh = packedUpper(key);
    if (leaf) return qn::pgRangeArray::inRangeArray(first, last, kl);
    for (; first != last; ++first)
        if (first->lower <= kh && kl <= first->upper && first->lower <= first->upper) return true;
    return false;
}

// Strategy 2 over a non-empty bitfield. At a leaf only the key's lower bound is
// tested (leaf keys of int4 columns are single values); an inner key meets the
// bitfield when any bit of its span clipped to the bitfield's is set.
inline bool keyMeetsBitField(int64_t key, const qn::bitfield::BitFieldView& bf, bool leaf) {
    const int32_t kl = packedLower(key), kh = packedUpper(key);
    if (leaf) return bf.covers(kl) && qn::bitfield::testBit(bf.bits, qn::bitfield::positionOf(kl, bf.min));
    if (bf.min > kh || bf.max < kl) return false;
    const uint32_t a = qn::bitfield::positionOf(std::max(bf.min, kl), bf.min);
    const uint32_t b = qn::bitfield::positionOf(std::min(bf.max, kh), bf.min);
    return qn::bitfield::runMeets(bf.bits, a, b);
}

// One entry of a page being split: its key and its offset in the entry vector.
struct PackedRangeWithSplitOffset {
    int64_t range;
    uint16_t offset;
};

// Ascending lower bound, then ascending upper bound.
inline bool PackedRangeWithSplitOffsetSortLower(const PackedRangeWithSplitOffset& a,
                                                const PackedRangeWithSplitOffset& b) {
    const int32_t al = packedLower(a.range), bl = packedLower(b.range);
    return al < bl || (al == bl && packedUpper(a.range) < packedUpper(b.range));
}

// Descending upper bound, then descending lower bound.
inline bool PackedRangeWithSplitOffsetSortUpper(const PackedRangeWithSplitOffset& a,
                                                const PackedRangeWithSplitOffset& b) {
    const int32_t au = packedUpper(a.range), bu = packedUpper(b.range);
    return au > bu || (au == bu && packedLower(a.range) > packedLower(b.range));
}

enum class SplitError { None, InvalidSize, LowerOutOfBound, UpperOutOfBound, AlreadyTagged, NegativeGrowth, OutOfMemory };

// One side of a split: the offsets given to it (room for every entry, provided
// by the caller) and the union of their keys.
struct SplitSide {
    uint16_t* offsets;
    int count;
    int64_t unionKey;
};

// Splits the entries at offsets 1 to maxoff, whose keys keyAt(offset) returns,
// into a left and a right side by a two-ended greedy sweep: the left side grows
// from the smallest lower bounds, the right side from the largest upper bounds,
// and each step moves the candidate whose move costs less (computePenalty), a
// tie going to the smaller side, as long as neither side passes 70% of the
// entries. Both sides end non-empty and every entry is on exactly one. The working arrays come from A and go back to F on every return.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename KeyAt>
SplitError pickSplit(uint16_t maxoff, KeyAt keyAt, SplitSide& left, SplitSide& right) {
    if (maxoff < 2) return SplitError::InvalidSize;
    auto* byLower = static_cast<PackedRangeWithSplitOffset*>(A(sizeof(PackedRangeWithSplitOffset) * maxoff));
    auto* byUpper = static_cast<PackedRangeWithSplitOffset*>(A(sizeof(PackedRangeWithSplitOffset) * maxoff));
    auto* tagged = static_cast<uint8_t*>(A(maxoff + 1u));
    auto finish = [&](SplitError e) {
        if (byLower) F(byLower);
        if (byUpper) F(byUpper);
        if (tagged) F(tagged);
        return e;
    };
    if (!byLower || !byUpper || !tagged) {
        qn::pg::reportToStdout("Out of memory");
        return finish(SplitError::OutOfMemory);
    }
    std::fill(tagged, tagged + maxoff + 1, uint8_t{0});
    for (uint16_t i = 1; i <= maxoff; ++i) byLower[i - 1] = byUpper[i - 1] = {keyAt(i), i};
    std::sort(byLower, byLower + maxoff, PackedRangeWithSplitOffsetSortLower);
    std::sort(byUpper, byUpper + maxoff, PackedRangeWithSplitOffsetSortUpper);

    left.count = right.count = 0;
    auto push = [&](SplitSide& side, const PackedRangeWithSplitOffset& r) {
        if (tagged[r.offset]) return false;
        tagged[r.offset] = 1;
        side.unionKey = side.count ? keyUnion(side.unionKey, r.range) : r.range;
        side.offsets[side.count++] = r.offset;
        return true;
    };
    push(left, byLower[0]);
    uint32_t lowerCursor = 1, upperCursor = tagged[byUpper[0].offset] ? 1 : 0;
    push(right, byUpper[upperCursor++]);

    // The penalties alone can starve a side: on evenly spaced keys every step's
    // cheapest move may land on the same side, and a page of n entries splits into
    // 1 and n - 1, so that ascending inserts leave pages of one entry each. Each
    // side therefore keeps at least 30% of the entries.
    const int mostPerSide = maxoff - std::max(1, maxoff * 3 / 10);
    while (left.count + right.count < maxoff) {
        while (lowerCursor < maxoff && tagged[byLower[lowerCursor].offset]) ++lowerCursor;
        if (lowerCursor >= maxoff) return finish(SplitError::LowerOutOfBound);
        while (upperCursor < maxoff && tagged[byUpper[upperCursor].offset]) ++upperCursor;
        if (upperCursor >= maxoff) return finish(SplitError::UpperOutOfBound);
        const PackedRangeWithSplitOffset& l = byLower[lowerCursor];
        const PackedRangeWithSplitOffset& r = byUpper[upperCursor];
        float leftCost = 0, rightCost = 0;
        if (!computePenalty(left.unionKey, l.range, leftCost) || !computePenalty(right.unionKey, r.range, rightCost))
            return finish(SplitError::NegativeGrowth);
        bool toLeft = leftCost < rightCost || (leftCost == rightCost && left.count < right.count);
        if (right.count >= mostPerSide) toLeft = true;
        if (left.count >= mostPerSide) toLeft = false;
        if (!(toLeft ? push(left, l) : push(right, r))) return finish(SplitError::AlreadyTagged);
    }
    return finish(SplitError::None);
}

}  // namespace qn::gist
