// Range arrays of any shape made normalised, tested for being normalised and
// for emptiness, and walked member by member.
//
// Unlike the set algebra, these read their input as a plain set of integers:
// bounds are compared in 64 bits (nothing wraps), a range with lower > upper
// stands for no integer, and ranges may come in any order and overlap.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgRangeNormalise.h must not see server headers: include it before postgres.h");
#endif

#include <cstdint>
#include <cstring>

#include "qnPgRangeArray.h"

namespace qn::pgRangeArray {

// Ascending by lower bound, lower <= upper in each range, and at least one
// integer left out between neighbours. One pass, stopping at the first fault.
inline bool isNormalised(const Range<int32_t>* first, const Range<int32_t>* last) {
    for (const Range<int32_t>* p = first; p != last; ++p) {
        if (p->lower > p->upper) return false;
        if (p != first && int64_t{p->lower} < int64_t{p[-1].upper} + 2) return false;
    }
    return true;
}

// Some range holds an integer (lower <= upper). On a normalised list the first
// range answers.
inline bool hasMembers(const Range<int32_t>* first, const Range<int32_t>* last) {
    for (; first != last; ++first)
        if (first->lower <= first->upper) return true;
    return false;
}

// Index one past the ascending run (by lower bound) that starts at `from`.
inline uint64_t ascendingRunEnd(const Range<int32_t>* data, uint64_t from, uint64_t n) {
    uint64_t i = from + 1;
    while (i < n && data[i].lower >= data[i - 1].lower) ++i;
    return i;
}

namespace detail {

// Merges the ascending runs of data pairwise into scratch, pass after pass,
// until one is left; returns the buffer that holds it.
template <typename Poll>
Range<int32_t>* mergeRuns(Range<int32_t>* data, Range<int32_t>* scratch, uint64_t n, Poll& poll) {
    uint64_t moved = 0;
    for (;;) {
        uint64_t runs = 0;
        for (uint64_t i = 0; i < n; ++runs) {
            const uint64_t middle = ascendingRunEnd(data, i, n);
            const uint64_t end = middle < n ? ascendingRunEnd(data, middle, n) : n;
            const Range<int32_t>* a = data + i;
            const Range<int32_t>* b = data + middle;
            Range<int32_t>* out = scratch + i;
            while (a != data + middle && b != data + end) *out++ = b->lower < a->lower ? *b++ : *a++;
            while (a != data + middle) *out++ = *a++;
            while (b != data + end) *out++ = *b++;
            moved += end - i;
            if (moved >= kPollWork) {
                poll();
                moved = 0;
            }
            i = end;
        }
        Range<int32_t>* const merged = scratch;
        scratch = data;
        data = merged;
        if (runs == 1) return data;
    }
}

}  // namespace detail

// The digits of an LSD radix sort by a 32-bit unsigned key: 11, 11 and 10 bits,
// all counted in one scan; a digit that every key shares needs no pass.
struct RadixDigits {
    static constexpr int kDigits = 3;
    static constexpr int kShift[kDigits] = {0, 11, 22};
    static constexpr uint32_t kMask[kDigits] = {2047, 2047, 1023};

    uint32_t counts[kDigits][2048];
    bool needed[kDigits];
    int passes;

    static uint32_t digit(uint32_t key, int d) { return (key >> kShift[d]) & kMask[d]; }

    // Counts the digits of the keys of src[0, n), n >= 1, polling as it reads.
    template <typename T, typename Key, typename Poll>
    void count(const T* src, uint64_t n, Key key, Poll& poll) {
        std::memset(counts, 0, sizeof counts);
        for (uint64_t i = 0; i < n;) {
            const uint64_t stop = n - i > kPollWork ? i + kPollWork : n;
            for (; i < stop; ++i) {
                const uint32_t k = key(src[i]);
                for (int d = 0; d < kDigits; ++d) ++counts[d][digit(k, d)];
            }
            poll();
        }
        passes = 0;
        for (int d = 0; d < kDigits; ++d) {
            needed[d] = counts[d][digit(key(src[0]), d)] != n;
            passes += needed[d];
        }
    }

    // The passes: src into `first`, then back and forth between `second` and
    // `first`; returns the buffer written last (src when no pass is needed).
    // Stable. Polls after every kPollWork elements moved.
    template <typename T, typename Key, typename Poll>
    const T* distribute(const T* src, T* first, T* second, uint64_t n, Key key, Poll& poll) {
        int done = 0;
        for (int d = 0; d < kDigits; ++d) {
            if (!needed[d]) continue;
            T* const to = done++ % 2 == 0 ? first : second;
            uint32_t* const count = counts[d];
            uint32_t offset = 0;
            for (uint32_t value = 0; value <= kMask[d]; ++value) {
                const uint32_t c = count[value];
                count[value] = offset;
                offset += c;
            }
            for (uint64_t i = 0; i < n;) {
                const uint64_t stop = n - i > kPollWork ? i + kPollWork : n;
                for (; i < stop; ++i) to[count[digit(key(src[i]), d)]++] = src[i];
                poll();
            }
            src = to;
        }
        return src;
    }
};

// Stable LSD radix sort of data[0, n) by lower bound, 1 <= n < 2^32, on the
// lower bound with its sign bit flipped (so that the digits' unsigned order is
// the bounds' signed order). `scratch` has room for n ranges; returns the
// buffer that holds the result. Calls poll() after every million or so ranges
// read or moved.
template <typename Poll>
Range<int32_t>* radixSortByLower(Range<int32_t>* data, Range<int32_t>* scratch, uint64_t n, Poll&& poll) {
    auto key = [](const Range<int32_t>& r) { return static_cast<uint32_t>(r.lower) ^ 0x80000000u; };
    RadixDigits digits;
    digits.count(data, n, key, poll);
    return const_cast<Range<int32_t>*>(digits.distribute(data, scratch, data, n, key, poll));
}

// Sorts data[0, n) by lower bound, using scratch (room for n) as the second
// buffer, and returns the buffer that holds the result. A sorted input costs one
// scan; an input of a few ascending runs (such as normalised arrays put one
// after another) is merged run by run; anything else is radix sorted in linear
// time. Calls poll() after every million or so ranges moved.
template <typename Poll>
Range<int32_t>* sortByLower(Range<int32_t>* data, Range<int32_t>* scratch, uint64_t n, Poll poll) {
    constexpr uint64_t kMergedRuns = 8;
    uint64_t runs = 0;
    for (uint64_t i = 0; i < n && runs <= kMergedRuns; ++runs) i = ascendingRunEnd(data, i, n);
    if (runs <= 1) return data;
    if (runs <= kMergedRuns) return detail::mergeRuns(data, scratch, n, poll);
    return radixSortByLower(data, scratch, n, poll);
}

// Writes the normalised form of [first, last), sorted by lower bound, to out:
// inverted ranges dropped, overlapping and adjacent ones merged. out may be
// first (it never gets ahead of the reading). Returns the number written.
inline uint64_t mergeSortedRanges(const Range<int32_t>* first, const Range<int32_t>* last, Range<int32_t>* out) {
    Range<int32_t>* const begin = out;
    for (; first != last; ++first) {
        const Range<int32_t> r = *first;
        if (r.lower > r.upper) continue;
        if (out != begin && int64_t{r.lower} <= int64_t{out[-1].upper} + 1) {
            if (r.upper > out[-1].upper) out[-1].upper = r.upper;
        } else {
            *out++ = r;
        }
    }
    return static_cast<uint64_t>(out - begin);
}

// Normalises data[0, n) in place and returns the number of ranges it now holds.
// A normalised input is recognised in one pass and left as it is; otherwise a
// scratch buffer of n ranges comes from A for the sort and goes back to F.
// Returns -1, with data unchanged, when A gives no buffer.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
int64_t normaliseRanges(Range<int32_t>* data, uint64_t n, Poll poll) {
    if (isNormalised(data, data + n)) return static_cast<int64_t>(n);
    auto* scratch = static_cast<Range<int32_t>*>(A(n * sizeof(Range<int32_t>)));
    if (!scratch) return -1;
    const Range<int32_t>* sorted = sortByLower(data, scratch, n, poll);
    const uint64_t count = mergeSortedRanges(sorted, sorted + n, data);
    F(scratch);
    return static_cast<int64_t>(count);
}

// Walks the members of a list of ranges in list order, one per call, in O(1)
// space; ranges with lower > upper yield nothing, and a range ending at
// 2147483647 ends the walk of that range without wrapping.
struct MemberCursor {
    const Range<int32_t>* range;
    const Range<int32_t>* end;
    int64_t next;

    MemberCursor(const Range<int32_t>* first, const Range<int32_t>* last)
        : range(first), end(last), next(first != last ? first->lower : 0) {}

    // Stores the next member in v; false once the list is exhausted.
    bool advance(int32_t& v) {
        while (range != end && next > range->upper) {
            if (++range != end) next = range->lower;
        }
        if (range == end) return false;
        v = static_cast<int32_t>(next++);
        return true;
    }
};

}  // namespace qn::pgRangeArray
