// Sets in their int4[] forms ('s', 'r', 'm') against bitfields: testing a set
// against a bitfield, and building the bitfield of a set.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgBitFieldSet.h must not see server headers: include it before postgres.h");
#endif

#include <cstdint>

#include "qnPgRangeArray.h"
#include "quenloPgBitField.h"

namespace qn::bitfield {

using qn::pgRangeArray::ArrayDataTypeMixArray;
using qn::pgRangeArray::ArrayDataTypeRangeArray;
using qn::pgRangeArray::ArrayDataTypeSet;

// The range item of a mix array that starts at word w (sign bit set): its lower bound.
inline int32_t mixLower(int32_t w) { return w & 0x7fffffff; }

// The positions a to b of [lower, upper] clipped to the bitfield's span.
struct ClippedRun {
    uint32_t a;
    uint32_t b;
};
inline ClippedRun clipRun(const BitFieldView& bf, int32_t lower, int32_t upper) {
    return {positionOf(lower > bf.min ? lower : bf.min, bf.min), positionOf(upper < bf.max ? upper : bf.max, bf.min)};
}

// [lower, upper] meets the bitfield: some value of it inside the span has its bit set.
inline bool runMeetsBitField(const BitFieldView& bf, int32_t lower, int32_t upper) {
    if (bf.min > upper || bf.max < lower) return false;
    const ClippedRun r = clipRun(bf, lower, upper);
    return runMeets(bf.bits, r.a, r.b);
}

enum class SetTestError { None, OddRangeArray, MixRangeWithoutUpper };

// Tests the set e[0, count) in form `form` (count >= 1) against a non-empty
// bitfield: overlap (some member has its bit set) or inclusion (each member
// inside the span with its bit set, runs by the runFull rule). Sets `result`.
// Members and runs outside the span are skipped by overlap and fail inclusion.
// Elements are never read past count: a mix range opener with no upper word is
// an error, as is an 'r' set of odd length. Polls as it goes: each run may
// scan the whole bitfield.
template <typename Poll = qn::pgRangeArray::NoPoll>
SetTestError testSetAgainstBitField(uint32_t form, const int32_t* e, int32_t count, const BitFieldView& bf,
                                    bool inclusion, bool& result, Poll poll = {}) {
    qn::pgRangeArray::Poller<Poll> tick(poll);
    result = false;
    const int32_t* const end = e + count;
    const int32_t* items = e;
    if (form == ArrayDataTypeMixArray) {
        if (count < 2) return SetTestError::None;  // the count word alone: no members
        ++items;
    }
    const int32_t first = form == ArrayDataTypeMixArray && *items < 0 ? mixLower(*items) : *items;
    const int32_t last = end[-1];
    if (bf.max < first || bf.min > last) return SetTestError::None;
    if (inclusion && (bf.min > first || bf.max < last)) return SetTestError::None;

    // Each item decides the answer when it meets (overlap) or fails (inclusion).
    auto valueDecides = [&](int32_t v) {
        tick();
        const bool set = bf.covers(v) && testBit(bf.bits, positionOf(v, bf.min));
        return inclusion ? !set : set;
    };
    auto runDecides = [&](int32_t lower, int32_t upper) {
        const bool outside = upper < bf.min || lower > bf.max;
        if (outside) {
            tick();
            return inclusion;
        }
        const ClippedRun r = clipRun(bf, lower, upper);
        tick(1 + (r.b > r.a ? (r.b - r.a) / 8 : 0));  // the bytes it may scan
        return inclusion ? !runFull(bf.bits, r.a, r.b) : runMeets(bf.bits, r.a, r.b);
    };

    bool decided = false;
    switch (form) {
        case ArrayDataTypeSet:
            for (const int32_t* p = items; p != end && !decided; ++p) decided = valueDecides(*p);
            break;
        case ArrayDataTypeRangeArray:
            if (count & 1) return SetTestError::OddRangeArray;
            for (const int32_t* p = items; p != end && !decided; p += 2) decided = runDecides(p[0], p[1]);
            break;
        default:  // mix array
            for (const int32_t* p = items; p != end && !decided;) {
                if (*p >= 0) {
                    decided = valueDecides(*p++);
                    continue;
                }
                if (p + 1 == end) return SetTestError::MixRangeWithoutUpper;
                decided = runDecides(mixLower(p[0]), p[1]);
                p += 2;
            }
            break;
    }
    result = decided != inclusion;
    return SetTestError::None;
}

// The span of the bitfield of a set: from its first value to its last.
struct BitFieldPlan {
    int32_t min;
    int32_t max;
    uint32_t nbytes;
};

enum class SetBuildError {
    None,
    OddRangeArray,         // an 'r' set of odd length
    MixRangeWithoutUpper,  // a mix array ending in a range opener
    OutsideSpan,           // a member outside [first, last], an inverted run, or the full int32 span
};

// The span of the set e[0, count) in form `form`. For 's' and 'r' count >= 1, for
// 'm' count >= 2 (the count word and at least one word of items).
inline SetBuildError planBitField(uint32_t form, const int32_t* e, int32_t count, BitFieldPlan& plan) {
    if (form == ArrayDataTypeRangeArray && (count & 1)) return SetBuildError::OddRangeArray;
    const int32_t* items = form == ArrayDataTypeMixArray ? e + 1 : e;
    const int32_t last = e[count - 1];
    if (form == ArrayDataTypeMixArray && last < 0) return SetBuildError::MixRangeWithoutUpper;
    plan.min = form == ArrayDataTypeMixArray && *items < 0 ? mixLower(*items) : *items;
    plan.max = last;
    const uint32_t n = spanWidth(plan.min, plan.max);
    if (plan.max < plan.min || n == 0) return SetBuildError::OutsideSpan;
    plan.nbytes = bitBytes(n);
    return SetBuildError::None;
}

// Sets the bits of every member into a zeroed bit string planned by planBitField.
// Stops at the first member or run outside the plan's span, or inverted, and
// reports it: nothing is ever written outside the span. Polls as it goes.
template <typename Poll = qn::pgRangeArray::NoPoll>
SetBuildError fillBitField(uint32_t form, const int32_t* e, int32_t count, const BitFieldPlan& plan, uint8_t* bits,
                           Poll poll = {}) {
    qn::pgRangeArray::Poller<Poll> tick(poll);
    const int32_t* const end = e + count;
    auto value = [&](int32_t v) {
        if (v < plan.min || v > plan.max) return false;
        setBit(bits, positionOf(v, plan.min));
        tick();
        return true;
    };
    auto run = [&](int32_t lower, int32_t upper) {
        if (lower > upper || lower < plan.min || upper > plan.max) return false;
        setRunInSlices(bits, positionOf(lower, plan.min), positionOf(upper, plan.min), tick);
        return true;
    };
    switch (form) {
        case ArrayDataTypeSet:
            for (const int32_t* p = e; p != end; ++p)
                if (!value(*p)) return SetBuildError::OutsideSpan;
            break;
        case ArrayDataTypeRangeArray:
            for (const int32_t* p = e; p != end; p += 2)
                if (!run(p[0], p[1])) return SetBuildError::OutsideSpan;
            break;
        default:  // mix array, from the word after the count
            for (const int32_t* p = e + 1; p != end;) {
                if (*p >= 0) {
                    if (!value(*p)) return SetBuildError::OutsideSpan;
                    ++p;
                    continue;
                }
                if (p + 1 == end) return SetBuildError::MixRangeWithoutUpper;
                if (!run(mixLower(p[0]), p[1])) return SetBuildError::OutsideSpan;
                p += 2;
            }
            break;
    }
    return SetBuildError::None;
}

}  // namespace qn::bitfield
