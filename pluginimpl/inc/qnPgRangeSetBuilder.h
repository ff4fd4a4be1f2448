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
#include "qnPgRangeBlocks.h"
#include "qnPgRangeNormalise.h"

namespace qn::pgRangeArray {

// Sorts a batch of n ranges by lower bound: std::sort for short batches, where
// clearing the digit counts would cost more than the sort (and batches beyond
// the radix sort's 2^32), else the radix sort; returns the buffer (data or
// scratch, room for n) that holds the result.
template <typename Poll>
Range<int32_t>* sortBatchByLower(Range<int32_t>* data, Range<int32_t>* scratch, uint64_t n, Poll poll) {
    if (n < 256 || n > UINT32_MAX) {
        std::sort(data, data + n, [](const Range<int32_t>& a, const Range<int32_t>& b) { return a.lower < b.lower; });
        return data;
    }
    return radixSortByLower(data, scratch, n, poll);
}

// Accumulates ranges into a range list; the list is exactly what one
// rangeArrayInsert per range, in arrival order, would have made of them.
//
// rangeArrayInsert costs two binary searches and a memmove of the list's tail,
// which makes rows in random order quadratic. For ranges with
// lower <= upper < INT32_MAX it keeps the list normalised and computes the plain
// set union, which does not depend on order. So such a range that starts at or
// after the list's last range joins the list's end at once, and the others wait
// in `pending` and are merged in sorted batches (a radix sort, then one linear
// merge: O(1) per range amortised). A batch is at most kBatchFactor times as
// long as the list (or kMinBatch), so the memory follows the set, not the rows.
// A range outside that domain (inverted bounds, or an upper of INT32_MAX, where
// "upper + 1" wraps) makes the builder merge what is pending and insert directly
// from then on, so the list evolves step by step as rangeArrayInsert makes it:
// into the flat list while it is short, then into a RangeBlockList, where each
// insertion costs O(log^2 n + BlockCap) instead of moving the tail.
//
// Poll (default-constructed, called) is called every kInsertsPerPoll ranges and
// in the long loops of merging. Zero-filled memory is a valid empty builder.
// MinBatch and BlockCap are lowered only by tests, to merge many batches and
// use many blocks with few ranges.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll, uint64_t MinBatch = 4096,
          uint32_t BlockCap = 1024>
struct RangeSetBuilder {
    using Vector = RangeVector<int32_t, A, F>;
    using R = Range<int32_t>;

    Vector ranges;   // merged ranges; normalised while `direct` is false; empty while in blocks
    Vector pending;  // arrivals not merged yet, in arrival order
    bool direct;     // every range goes straight through rangeArrayInsert
    Vector scratch;  // the batch sort's second buffer
    RangeBlockList<A, F, BlockCap> blocks;  // a direct list of kBlocksFrom ranges or more
    uint32_t sincePoll;

    static constexpr uint64_t kMinBatch = MinBatch;
    static constexpr uint64_t kBatchFactor = 2;
    static constexpr uint64_t kBlocksFrom = 4 * BlockCap;  // below, moving the tail costs less
    static constexpr uint32_t kInsertsPerPoll = 1u << 14;

    void insert(const R& r) {
        if (++sincePoll >= kInsertsPerPoll) {
            sincePoll = 0;
            Poll{}();
        }
        if (!direct) {
            if (r.lower <= r.upper && r.upper != INT32_MAX) {
                if (ranges.empty() || r.lower >= ranges.back().lower) {
                    appendInOrder(r);
                    return;
                }
                pending.push_back(r);
                if (pending.size() >= batchLimit()) {
                    flush();
                    pending.reserve(batchLimit());  // room for the next batch while the buffer is empty
                }
                return;
            }
            flush();
            direct = true;
        }
        if (!blocks.active()) {
            if (ranges.size() < kBlocksFrom || !blocks.assign(ranges.begin(), ranges.end(), Poll{})) {
                rangeArrayInsert(ranges, r);
                return;
            }
            ranges.release();
        }
        blocks.insert(r);
    }

    // Brings the list into `ranges`: merges the pending ranges, or gathers a
    // direct list from its blocks. Merging: both are plain (non-wrapping) sets
    // here, ranges normalised, pending with lower <= upper < INT32_MAX.
    void flush() {
        if (blocks.active()) {
            Vector flat(blocks.size());
            if (!flat.resize(blocks.size())) return;  // reported by the vector
            blocks.copyTo(flat.data(), Poll{});
            blocks.release();
            ranges.swap(flat);  // flat now owns the released list's empty buffer
            return;
        }
        const uint64_t n = pending.size();
        if (n == 0) return;
        if (!scratch.resize(n)) return;  // reported by the vector
        const R* b = sortBatchByLower(pending.data(), scratch.data(), n, Poll{});
        const R* const bEnd = b + n;
        const R* a = ranges.begin();
        const R* const aEnd = ranges.end();
        Vector merged(ranges.size() + n);
        if (!merged.resize(ranges.size() + n)) return;
        R* const out = merged.data();
        R* w = out;
        Poller<Poll> tick(Poll{});
        auto emit = [&w, out, &tick](const R& next) {
            if (w == out || int64_t{next.lower} > int64_t{w[-1].upper} + 1)
                *w++ = next;
            else if (next.upper > w[-1].upper)
                w[-1].upper = next.upper;
            tick();
        };
        while (a != aEnd && b != bEnd) {
            const bool fromA = a->lower <= b->lower;
            const R next = fromA ? *a : *b;
            a += fromA;
            b += !fromA;
            emit(next);
        }
        for (; a != aEnd; ++a) emit(*a);
        for (; b != bEnd; ++b) emit(*b);
        merged.resize(static_cast<uint64_t>(w - out));
        ranges.swap(merged);  // merged now owns the old buffer and frees it
        pending.clear();
    }

    // Merges what is pending and frees the batch buffers: the set is about to be
    // read whole (a result, a serialised state), usually as the last thing done
    // with it, and that memory can serve the reader. Rows may still follow.
    void settle() {
        flush();
        pending.release();
        scratch.release();
    }

    // Replaces the contents with a copy of a list that came from elsewhere (another
    // state, a serialised state); it is trusted, not checked, so later ranges go
    // straight through rangeArrayInsert.
    void assign(const R* first, const R* last) {
        blocks.release();
        pending.clear();
        ranges.clear();
        ranges.append(first, last);
        direct = true;
    }

    void release() {
        ranges.release();
        pending.release();
        scratch.release();
        blocks.release();
    }

private:
    // The longest batch: kBatchFactor times the list, or kMinBatch.
    uint64_t batchLimit() const { return std::max(kMinBatch, kBatchFactor * ranges.size()); }

    // r starts at or after the last range of the normalised list: it extends that
    // range when it overlaps or touches it, else it follows it.
    void appendInOrder(const R& r) {
        if (ranges.empty() || int64_t{r.lower} > int64_t{ranges.back().upper} + 1)
            ranges.push_back(r);
        else if (r.upper > ranges.back().upper)
            ranges.back().upper = r.upper;
    }
};

// A plain list: normalised, and no range ends at INT32_MAX. The builder keeps
// such a list while it computes the plain set union (while not `direct`).
inline bool isPlainList(const Range<int32_t>* first, const Range<int32_t>* last) {
    return isNormalised(first, last) && (first == last || last[-1].upper != INT32_MAX);
}

// buf[0, a) := buf[0, a) ∪ b[0, nb), the plain set union, normalised; returns
// its length. Both lists are normalised and buf has room for a + nb ranges. The
// union is merged from the back into the end of buf, where it never overtakes
// the unread part of buf's own list, then moved to the front: nothing is
// allocated, so merging many lists into one touches no memory but the result's.
template <typename Poll = NoPoll>
uint64_t uniteInPlace(Range<int32_t>* buf, uint64_t a, const Range<int32_t>* b, uint64_t nb, Poll poll = {}) {
    using R = Range<int32_t>;
    R* w = buf + a + nb;  // the union so far is [w, buf + a + nb), lowest range first
    const R* end = w;
    uint64_t i = a, j = nb;
    Poller<Poll> tick(poll);
    while (i > 0 || j > 0) {
        tick();
        // Ranges come by descending upper bound; each joins the lowest range so
        // far when it overlaps or touches it.
        const bool fromA = j == 0 || (i > 0 && buf[i - 1].upper >= b[j - 1].upper);
        const R next = fromA ? buf[--i] : b[--j];
        if (w != end && int64_t{next.upper} + 1 >= int64_t{w->lower}) {
            if (next.lower < w->lower) w->lower = next.lower;
        } else {
            *--w = next;
        }
    }
    const uint64_t n = static_cast<uint64_t>(end - w);
    if (w != buf) std::memmove(buf, w, n * sizeof(R));
    return n;
}

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
