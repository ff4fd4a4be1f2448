// Conversions between the int4[] forms of a set: scalar set ('s'), range array
// ('r') and mix array ('m'), counting a set's members without expanding it, and
// sorting a list of values.
//
// Inputs are read through [first, last) spans and never past them; outputs go to
// a tVector the caller owns, or to a buffer whose capacity the caller states and
// which is never written past. Free of server headers on purpose: include it
// before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgSetConversions.h must not see server headers: include it before postgres.h");
#endif

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "qnPgRangeArray.h"
#include "qnPgRangeSetBuilder.h"

namespace qn::pgRangeArray {

// Calls emit(start, end) for each run of consecutive values of a non-decreasing
// scalar list, in order; duplicates fold into their run. A value continues the
// run when value - previous, wrapped to 32 bits, is at most 1, so a step of 2^31
// or more wraps negative and continues it too (kept as the format has always
// read it). Returns false, after emitting the runs before it, at the first value
// below its predecessor.
template <typename Emit, typename Poll = NoPoll>
bool forEachScalarRun(const int32_t* first, const int32_t* last, Emit emit, Poll poll = {}) {
    if (first == last) return true;
    Poller<Poll> tick(poll);
    int32_t start = *first;
    int32_t previous = start;
    for (const int32_t* p = first + 1; p != last; ++p) {
        const int32_t v = *p;
        if (v < previous) return false;
        if (wrapSub<int32_t>(v, previous) > 1) {
            emit(start, previous);
            start = v;
        }
        previous = v;
        tick();
    }
    emit(start, previous);
    return true;
}

// 's' to 'r': the runs of a sorted scalar list as ranges. False when unsorted.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
bool scalarsToRanges(const int32_t* first, const int32_t* last, RangeVector<int32_t, A, F>& out, Poll poll = {}) {
    out.clear();
    return forEachScalarRun(first, last, [&](int32_t s, int32_t e) { out.push_back(Range<int32_t>{s, e}); }, poll);
}

// 's' to 'm': the count word holds the number of input values (duplicates
// included), then one item per run. An empty list gives no words at all, not
// even the count word. False when unsorted.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
bool scalarsToMixArray(const int32_t* first, const int32_t* last, qn::pg::tVector<int, A, F>& mix, Poll poll = {}) {
    mix.clear();
    if (first == last) return true;
    const auto count = static_cast<uint64_t>(last - first);
    mix.reserve(count / 2 + 2);
    mix.push_back(static_cast<int>(count));
    return forEachScalarRun(first, last, [&](int32_t s, int32_t e) { pushIntoMixArray(mix, s, e); }, poll);
}

// The words of the mix array of a list of ranges: the count word, then one word
// per range of one value and two per other range.
inline uint64_t mixArrayWords(const Range<int32_t>* first, const Range<int32_t>* last) {
    uint64_t words = 1;
    for (; first != last; ++first) words += first->lower == first->upper ? 1 : 2;
    return words;
}

// Writes the mixArrayWords words of the mix array of a list of ranges into out:
// one item per range, in order and unchecked (lower alone, or lower with its
// sign bit set and upper), after a count word that holds the 32-bit wrapping
// total of upper - lower + 1. An empty list gives the count word 0 alone.
template <typename Poll>
void writeMixArray(const Range<int32_t>* first, const Range<int32_t>* last, int32_t* out, Poll poll) {
    Poller<Poll> tick(poll);
    int32_t* const countWord = out++;
    uint32_t total = 0;
    for (; first != last; ++first) {
        total += static_cast<uint32_t>(first->upper) - static_cast<uint32_t>(first->lower) + 1u;
        out += writeMixItem(first->lower, first->upper, out);
        tick();
    }
    *countWord = static_cast<int32_t>(total);
}

// Sorts the values src[0, n) ascending into out (room for n), duplicates kept.
// Short lists go through std::sort; longer ones through a stable LSD radix sort
// (linear, polling as it goes) with scratch (room for n) as its second buffer,
// its passes arranged to end in out.
template <typename Poll>
void sortValuesInto(const int32_t* src, int32_t* out, int32_t* scratch, uint64_t n, Poll poll) {
    if (n < 256 || n > UINT32_MAX) {
        if (n) std::memcpy(out, src, n * sizeof(int32_t));
        std::sort(out, out + n);
        return;
    }
    auto key = [](int32_t v) { return static_cast<uint32_t>(v) ^ 0x80000000u; };
    RadixDigits digits;
    digits.count(src, n, key, poll);
    if (digits.passes == 0) {  // one value throughout
        Poller<Poll> tick(poll);
        for (uint64_t i = 0; i < n; ++i, tick()) out[i] = src[i];
        return;
    }
    const bool odd = digits.passes % 2 != 0;
    digits.distribute(src, odd ? out : scratch, odd ? scratch : out, n, key, poll);
}

// The member count of a range array as the count function reports it: each pair
// adds upper - lower + 1 computed in 32 bits (an inverted pair adds zero or a
// negative number), summed in 64 bits, truncated to 32.
inline int32_t rangeArrayCount32(const Range<int32_t>* first, const Range<int32_t>* last) {
    int64_t total = 0;
    for (; first != last; ++first)
        total += wrapAdd<int32_t>(wrapSub<int32_t>(first->upper, first->lower), 1);
    return static_cast<int32_t>(static_cast<uint64_t>(total));
}

enum class MixExpandError {
    None,
    InvalidRange,   // a range opener without an upper word, an upper with its sign bit set, or lower > upper
    CountMismatch,  // the items hold more or fewer integers than `capacity`
};

// Counts the integers of the mix items [first, last) (the words after the count
// word) without writing anything: false at the first malformed range item, else
// true with their total in `members`.
inline bool countMixMembers(const int32_t* first, const int32_t* last, uint64_t& members) {
    members = 0;
    for (const int32_t* p = first; p != last;) {
        if (*p >= 0) {
            ++members;
            ++p;
            continue;
        }
        Range<int32_t> r;
        if (!mixItemRange(p, last, r)) return false;
        members += static_cast<uint64_t>(int64_t{r.upper} - r.lower) + 1;
        p += 2;
    }
    return true;
}

// 'm' to 's': writes every integer of the mix items [first, last) (the words after
// the count word) into out, which has room for exactly `capacity` values, the
// declared count. Never writes past capacity: once the items overflow it, the
// rest are still checked for malformed ranges (which take precedence) but only
// counted. Calls poll() at least once per range item and between chunks of a
// long one, so that a long expansion can be cancelled.
template <typename Poll>
MixExpandError expandMixArray(const int32_t* first, const int32_t* last, int32_t* out, uint64_t capacity, Poll poll) {
    uint64_t written = 0;
    for (const int32_t* p = first; p != last;) {
        if (*p >= 0) {
            if (written < capacity) out[written] = *p;
            ++written;
            ++p;
            continue;
        }
        Range<int32_t> r;
        if (!mixItemRange(p, last, r)) return MixExpandError::InvalidRange;
        const uint64_t width = static_cast<uint64_t>(int64_t{r.upper} - r.lower) + 1;
        if (written <= capacity && width <= capacity - written) writeMembers(&r, &r + 1, out + written, poll);
        written += width;
        p += 2;
    }
    return written == capacity ? MixExpandError::None : MixExpandError::CountMismatch;
}

}  // namespace qn::pgRangeArray
