// Building a set of integers from rows, writing its members out as a scalar set,
// and the byte layout in which a set-building aggregate state travels between
// processes.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgRangeSetBuilder.h must not see server headers: include it before postgres.h");
#endif

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "qnPgRangeArray.h"

namespace qn::pgRangeArray {

// Accumulates ranges into a range list; the list is exactly what one
// rangeArrayInsert per range, in arrival order, would have made of them.
//
// rangeArrayInsert costs a memmove of the list's tail, which makes rows in random
// order quadratic. For ranges with lower <= upper < INT32_MAX it keeps the list
// normalised and computes the plain set union, which does not depend on order, so
// those ranges are buffered in `pending` when they arrive out of order and merged
// in sorted batches (O(log n) per range, amortised). A range outside that domain
// (inverted bounds, or an upper of INT32_MAX, where "upper + 1" wraps) makes the
// builder merge what is pending and insert directly from then on, so the list
// evolves step by step as rangeArrayInsert makes it.
//
// Zero-filled memory is a valid empty builder.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
struct RangeSetBuilder {
    using Vector = RangeVector<int32_t, A, F>;
    using R = Range<int32_t>;

    Vector ranges;   // merged ranges; normalised while `direct` is false
    Vector pending;  // arrivals not merged yet, in arrival order
    bool direct;     // every range goes straight through rangeArrayInsert

    static constexpr uint64_t kMinBatch = 1024;

    void insert(const R& r) {
        if (!direct && (r.lower > r.upper || r.upper == INT32_MAX)) {
            flush();
            direct = true;
        }
        if (direct || (pending.empty() && (ranges.empty() || r.lower >= ranges.back().lower))) {
            rangeArrayInsert(ranges, r);  // lands at or near the end: no long memmove
            return;
        }
        pending.push_back(r);
        if (pending.size() >= std::max(kMinBatch, ranges.size())) flush();
    }

    // Merges the pending ranges into `ranges`. Both are plain (non-wrapping)
    // sets here: ranges normalised, pending with lower <= upper < INT32_MAX.
    void flush() {
        if (pending.empty()) return;
        std::sort(pending.begin(), pending.end(), [](const R& a, const R& b) { return a.lower < b.lower; });
        Vector merged(ranges.size() + pending.size());
        const R* a = ranges.begin();
        const R* const aEnd = ranges.end();
        const R* b = pending.begin();
        const R* const bEnd = pending.end();
        while (a != aEnd || b != bEnd) {
            const R next = (b == bEnd || (a != aEnd && a->lower <= b->lower)) ? *a++ : *b++;
            if (merged.empty() || int64_t{next.lower} > int64_t{merged.back().upper} + 1)
                merged.push_back(next);
            else if (next.upper > merged.back().upper)
                merged.back().upper = next.upper;
        }
        ranges.swap(merged);  // merged now owns the old buffer and frees it
        pending.clear();
    }

    // Replaces the contents with a copy of a list that came from elsewhere (another
    // state, a serialised state); it is trusted, not checked, so later ranges go
    // straight through rangeArrayInsert.
    void assign(const R* first, const R* last) {
        pending.clear();
        ranges.clear();
        ranges.append(first, last);
        direct = true;
    }

    void release() {
        ranges.release();
        pending.release();
    }
};

// The number of integers in a list of ranges; inverted ranges count for nothing.
inline uint64_t countMembers(const Range<int32_t>* first, const Range<int32_t>* last) {
    uint64_t total = 0;
    for (; first != last; ++first)
        if (first->lower <= first->upper) total += uint64_t(int64_t{first->upper} - first->lower) + 1;
    return total;
}

// Writes every integer of each range, range by range, into out (room for
// countMembers). Calls poll() between chunks of about a million values, so that a
// long expansion can be cancelled.
template <typename Poll>
void writeMembers(const Range<int32_t>* first, const Range<int32_t>* last, int32_t* out, Poll poll) {
    constexpr int64_t kChunk = int64_t{1} << 20;
    for (; first != last; ++first) {
        for (int64_t v = first->lower; v <= first->upper;) {
            const int64_t stop = std::min<int64_t>(first->upper, v + kChunk - 1);
            for (; v <= stop; ++v) *out++ = static_cast<int32_t>(v);
            poll();
        }
    }
}

// Serialised set state, a bytea: the 4-byte length word, the input form and the
// output form as one signed byte each, then the ranges as unaligned native-order
// int32 pairs. Offsets below count from the start of the bytea.
constexpr uint64_t kSetStateFormsOffset = 4;
constexpr uint64_t kSetStateRangesOffset = 6;

inline uint64_t setStateSize(uint64_t rangeCount) { return kSetStateRangesOffset + rangeCount * sizeof(Range<int32_t>); }

// Fills bytes [4, setStateSize) of a serialised state.
inline void writeSetState(uint8_t* bytes, uint32_t inputType, uint32_t outputType, const Range<int32_t>* first,
                          const Range<int32_t>* last) {
    bytes[kSetStateFormsOffset] = static_cast<uint8_t>(inputType);
    bytes[kSetStateFormsOffset + 1] = static_cast<uint8_t>(outputType);
    if (first != last) std::memcpy(bytes + kSetStateRangesOffset, first, (last - first) * sizeof(Range<int32_t>));
}

enum class SetStateError {
    None,
    Empty,         // shorter than the two form bytes
    RaggedRanges,  // the ranges do not come in whole 8-byte pairs
};

// Reads the header of a serialised state of `size` bytes (its whole length,
// length word included): the two forms, sign-extended, and the number of ranges
// that follow at kSetStateRangesOffset. A state with forms and no ranges (one
// that saw only rows without members) is read as such. Nothing beyond `size` is
// read.
inline SetStateError readSetState(const uint8_t* bytes, uint64_t size, int32_t& inputType, int32_t& outputType,
                                  uint64_t& rangeCount) {
    rangeCount = 0;
    if (size < kSetStateRangesOffset) return SetStateError::Empty;
    inputType = static_cast<int8_t>(bytes[kSetStateFormsOffset]);
    outputType = static_cast<int8_t>(bytes[kSetStateFormsOffset + 1]);
    const uint64_t payload = size - kSetStateRangesOffset;
    if (payload % sizeof(Range<int32_t>) != 0) return SetStateError::RaggedRanges;
    rangeCount = payload / sizeof(Range<int32_t>);
    return SetStateError::None;
}

}  // namespace qn::pgRangeArray
