// qn::pgRangeArray: closed integer ranges and the set algebra over normalised
// range lists.
//
// A normalised range list is ascending by lower bound, lower <= upper in each
// range, and consecutive ranges leave at least one integer out between them
// (next.lower >= previous.upper + 2): adjacent ranges are always one range.
// The algorithms read their inputs in place as half-open spans of Range<T>
// (usually straight from an int4[] payload) and write into a tVector that the
// caller owns. Inputs are trusted, not validated: a list that is not normalised
// gives whatever the steps below make of it, but never a read or write outside
// the spans and the output vector.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgRangeArray.h must not see server headers: include it before postgres.h");
#endif

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "qnPgVector.h"

namespace qn::pgRangeArray {

// A closed interval [lower, upper]; two consecutive ints, so an int4[] payload of
// 2n elements reads directly as n ranges.
template <typename T>
struct Range {
    T lower;
    T upper;
};
static_assert(sizeof(Range<int>) == 2 * sizeof(int), "a range is read in place from int4 pairs");

template <typename T, qn::pg::AllocFn A, qn::pg::FreeFn F>
using RangeVector = qn::pg::tVector<Range<T>, A, F>;

// Loops whose work grows with their input call a poll function every so
// often: in the server it checks for a cancel or a timeout and raises there, so
// that no statement goes deaf in a long loop. NoPoll is for callers without one.
struct NoPoll {
    void operator()() const {}
};

// The work between two polls: about a million elements read or written (a few
// milliseconds), or a megabyte set or scanned in bulk.
constexpr uint64_t kPollWork = uint64_t{1} << 20;

// Counts a loop's work and polls after each kPollWork units of it.
template <typename Poll>
class Poller {
public:
    explicit Poller(Poll poll) : poll_(poll) {}

    void operator()(uint64_t units = 1) {
        done_ += units;
        if (done_ >= kPollWork) {
            done_ = 0;
            poll_();
        }
    }

private:
    Poll poll_;
    uint64_t done_ = 0;
};

// Array layouts of an int4[] set, with the codes kept in aggregate states.
enum ArrayDataType : uint32_t {
    ArrayDataTypeSet = 3,         // 's': one member per element
    ArrayDataTypeRangeArray = 4,  // 'r': [lower, upper] pairs
    ArrayDataTypeMixArray = 5,    // 'm': count word, then scalars and sign-flagged ranges
};

// The layout named by a form letter, or 0 for any other character (exact match:
// upper case is not accepted). The server side turns 0 into an error.
inline uint32_t arrayDataTypeFromCharOrZero(char c) {
    switch (c) {
        case 'r': return ArrayDataTypeRangeArray;
        case 's': return ArrayDataTypeSet;
        case 'm': return ArrayDataTypeMixArray;
        default: return 0;
    }
}

// Two's complement arithmetic on bounds, wrapping in the width of T on purpose.
template <typename T>
inline T wrapAdd(T a, T b) {
    using U = std::make_unsigned_t<T>;
    return static_cast<T>(static_cast<U>(static_cast<U>(a) + static_cast<U>(b)));
}
template <typename T>
inline T wrapSub(T a, T b) {
    using U = std::make_unsigned_t<T>;
    return static_cast<T>(static_cast<U>(static_cast<U>(a) - static_cast<U>(b)));
}

// Upper-bound search predicate: e starts beyond r and does not touch it.
template <typename T>
inline bool rangeArrayInsertPredUpper(const Range<T>& r, const Range<T>& e) {
    return e.lower > wrapAdd<T>(r.upper, 1);
}

// Lower-bound search predicate: e ends before r and does not touch it.
template <typename T>
inline bool rangeArrayInsertPredLower(const Range<T>& e, const Range<T>& r) {
    return wrapAdd<T>(e.upper, 1) < r.lower;
}

// Lower-bound search predicate for membership: e ends below v.
template <typename T>
inline bool inRangeArrayPredLower(const Range<T>& e, T v) {
    return e.upper < v;
}

// First element of [first, last) for which pred(element) is false, assuming the
// span is partitioned (true then false). On a span that is not partitioned the
// result is still an element of the span or last.
template <typename T, typename Pred>
inline const Range<T>* partitionPoint(const Range<T>* first, const Range<T>* last, Pred pred) {
    auto count = last - first;
    while (count > 0) {
        const auto half = count / 2;
        const Range<T>* middle = first + half;
        if (pred(*middle)) {
            first = middle + 1;
            count -= half + 1;
        } else {
            count = half;
        }
    }
    return first;
}

// True when r leaves at least one integer out after out's last range: the gap
// r.lower - last.upper, wrapped to 32 bits and read as signed, exceeds 1.
template <typename T, qn::pg::AllocFn A, qn::pg::FreeFn F>
inline bool standsApart(const RangeVector<T, A, F>& out, const Range<T>& r) {
    return out.empty() || wrapSub<T>(r.lower, out.back().upper) > 1;
}

// Merging append: r is appended when it stands apart, else it extends out's last
// range (whose lower never changes).
template <typename T, qn::pg::AllocFn A, qn::pg::FreeFn F>
inline void mergeAppend(RangeVector<T, A, F>& out, const Range<T>& r) {
    if (standsApart(out, r)) {
        out.push_back(r);
    } else if (r.upper > out.back().upper) {
        out.back().upper = r.upper;
    }
}

// Appends a normalised span to out. Only the leading ranges are merge-tested:
// once one stands apart, the rest is copied, kPollWork ranges at a time.
template <typename T, qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
void pushOrMerge(RangeVector<T, A, F>& out, const Range<T>* first, const Range<T>* last, Poll poll = {}) {
    while (first != last) {
        const bool apart = standsApart(out, *first);
        mergeAppend(out, *first++);
        if (apart) break;
    }
    while (first != last) {
        const Range<T>* const stop = static_cast<uint64_t>(last - first) > kPollWork ? first + kPollWork : last;
        out.append(first, stop);
        first = stop;
        poll();
    }
}

// out := A ∪ B. Inputs normalised. The next range is chosen by the sign of the
// wrapped difference of the lowers (A first on equal lowers); an empty side
// leaves the other copied as it is (pushOrMerge into the empty out copies it).
template <typename T, qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
void computeUnion(const Range<T>* aFirst, const Range<T>* aLast, const Range<T>* bFirst,
                  const Range<T>* bLast, RangeVector<T, A, F>& out, Poll poll = {}) {
    out.clear();
    Poller<Poll> tick(poll);
    while (aFirst != aLast && bFirst != bLast) {
        if (wrapSub<T>(bFirst->lower, aFirst->lower) < 0)
            mergeAppend(out, *bFirst++);
        else
            mergeAppend(out, *aFirst++);
        tick();
    }
    if (aFirst != aLast)
        pushOrMerge(out, aFirst, aLast, poll);
    else
        pushOrMerge(out, bFirst, bLast, poll);
}

// out := A ∩ B. Inputs sorted, disjoint; pieces come out ascending and are
// appended without merging.
template <typename T, qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
void computeIntersection(const Range<T>* aFirst, const Range<T>* aLast, const Range<T>* bFirst,
                         const Range<T>* bLast, RangeVector<T, A, F>& out, Poll poll = {}) {
    out.clear();
    Poller<Poll> tick(poll);
    while (aFirst != aLast && bFirst != bLast) {
        tick();
        if (aFirst->lower >= bFirst->lower) {
            const Range<T> b = *bFirst;
            while (aFirst->upper <= b.upper) {  // a lies inside b
                out.push_back(*aFirst);
                tick();
                if (++aFirst == aLast) return;
            }
            if (aFirst->lower <= b.upper) out.push_back(Range<T>{aFirst->lower, b.upper});
            ++bFirst;
        } else {
            const Range<T> a = *aFirst;
            while (bFirst->upper <= a.upper) {  // b lies inside a
                out.push_back(*bFirst);
                tick();
                if (++bFirst == bLast) return;
            }
            if (bFirst->lower <= a.upper) out.push_back(Range<T>{bFirst->lower, a.upper});
            ++aFirst;
        }
    }
}

// out := A \ B. Inputs sorted, disjoint. For each range a of A, the ranges of B
// that reach into it cut it into the pieces between them; the rest of A after
// the last range of B is finished with pushOrMerge.
template <typename T, qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
void computeExclusion(const Range<T>* aFirst, const Range<T>* aLast, const Range<T>* bFirst,
                      const Range<T>* bLast, RangeVector<T, A, F>& out, Poll poll = {}) {
    out.clear();
    if (aFirst == aLast) return;
    if (bFirst == bLast) {
        pushOrMerge(out, aFirst, aLast, poll);  // into the empty out: A as it is
        return;
    }
    Poller<Poll> tick(poll);
    const Range<T>* const bBegin = bFirst;
    const Range<T>* b = bFirst;
    while (aFirst != aLast && b != bLast) {
        const Range<T> a = *aFirst++;
        tick();
        if (a.upper < b->lower) {  // a lies wholly before b
            out.push_back(a);
            continue;
        }
        for (;;) {
            const bool hasNext = b + 1 != bLast;
            if (b->upper >= a.lower) {  // b reaches into a
                if (a.lower < b->lower) {
                    T headLower = a.lower;
                    if (b != bBegin) {
                        const T afterPrev = wrapAdd<T>((b - 1)->upper, 1);
                        if (afterPrev > headLower) headLower = afterPrev;
                    }
                    out.push_back(Range<T>{headLower, wrapSub<T>(b->lower, 1)});
                }
                if (b->upper > a.upper) break;  // b reaches past a: keep it for the next a
                if (hasNext) {
                    if ((b + 1)->lower > a.upper && b->upper < a.upper)
                        out.push_back(Range<T>{wrapAdd<T>(b->upper, 1), a.upper});
                } else {
                    if (b->upper >= a.upper) {
                        pushOrMerge(out, aFirst, aLast, poll);
                        return;
                    }
                    out.push_back(Range<T>{wrapAdd<T>(b->upper, 1), a.upper});
                }
            } else if (!(hasNext && (b + 1)->lower <= a.upper)) {
                out.push_back(a);  // b lies wholly before a and nothing else of B reaches a
            }
            if (!hasNext) {
                pushOrMerge(out, aFirst, aLast, poll);
                return;
            }
            ++b;
            tick();
            if (b->lower > a.upper) break;  // b belongs to a later range of A
        }
    }
    pushOrMerge(out, aFirst, aLast, poll);
}

// Inserts r before position index, moving the tail up by one.
template <typename T, qn::pg::AllocFn A, qn::pg::FreeFn F>
void insertAt(RangeVector<T, A, F>& out, uint64_t index, const Range<T>& r) {
    const uint64_t oldSize = out.size();
    if (!out.resize(oldSize + 1)) return;
    std::memmove(out.data() + index + 1, out.data() + index, (oldSize - index) * sizeof(Range<T>));
    out[index] = r;
}

// Inserts r into the normalised list out, merging every range it overlaps or
// touches; out stays normalised. Two binary searches and one memmove.
template <typename T, qn::pg::AllocFn A, qn::pg::FreeFn F>
void rangeArrayInsert(RangeVector<T, A, F>& out, const Range<T>& r) {
    if (out.empty()) {
        out.push_back(r);
        return;
    }
    const Range<T>* begin = out.begin();
    const Range<T>* end = out.end();
    const Range<T>* hi =
        partitionPoint(begin, end, [&](const Range<T>& e) { return !rangeArrayInsertPredUpper(r, e); });
    const Range<T>* lo =
        partitionPoint(begin, hi, [&](const Range<T>& e) { return rangeArrayInsertPredLower(e, r); });
    const auto loIndex = static_cast<uint64_t>(lo - begin);
    const auto hiIndex = static_cast<uint64_t>(hi - begin);
    if (hiIndex == 0) {
        insertAt(out, 0, r);
    } else if (loIndex == out.size()) {
        out.push_back(r);
    } else if (loIndex < hiIndex) {
        Range<T>& merged = out[loIndex];
        if (r.lower < merged.lower) merged.lower = r.lower;
        const T lastUpper = out[hiIndex - 1].upper;
        merged.upper = lastUpper > r.upper ? lastUpper : r.upper;
        const uint64_t removed = hiIndex - loIndex - 1;
        if (removed) {
            std::memmove(out.data() + loIndex + 1, out.data() + hiIndex,
                         (out.size() - hiIndex) * sizeof(Range<T>));
            out.resize(out.size() - removed);
        }
    } else {
        insertAt(out, loIndex, r);
    }
}

// A range packed into an int8: lower in the low 32 bits, upper in the high 32
// bits, each two's complement. On a little-endian machine its bytes are those of
// the int4[] payload {lower, upper}.
inline int64_t packRange(int32_t lower, int32_t upper) {
    return static_cast<int64_t>((uint64_t{static_cast<uint32_t>(upper)} << 32) | static_cast<uint32_t>(lower));
}
inline int32_t packedLower(int64_t packed) { return static_cast<int32_t>(static_cast<uint32_t>(packed)); }
inline int32_t packedUpper(int64_t packed) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(packed) >> 32));
}

// v lies in some range of a list ascending by upper bound: a binary search for the
// first range whose upper is at least v.
template <typename T>
bool inRangeArray(const Range<T>* first, const Range<T>* last, T v) {
    const Range<T>* hit = partitionPoint(first, last, [&](const Range<T>& e) { return inRangeArrayPredLower(e, v); });
    return hit != last && v >= hit->lower;
}

// [lower, upper] overlaps some range of a sorted, disjoint list. Stops at once when
// the list ends below lower, and at the first range that starts above upper.
template <typename T>
bool rangeOverlapsList(T lower, T upper, const Range<T>* first, const Range<T>* last) {
    if (first == last || (last - 1)->upper < lower) return false;
    for (; first != last; ++first) {
        if (first->lower > upper) return false;
        if (lower <= first->upper) return true;
    }
    return false;
}

// Every range of a lies inside one range of b (b normalised): a non-empty subset.
// An empty a or b gives false. One forward pass over each list.
template <typename T>
bool rangeListIncluded(const Range<T>* a, const Range<T>* aEnd, const Range<T>* b, const Range<T>* bEnd) {
    if (a == aEnd || b == bEnd) return false;
    for (; a != aEnd; ++a) {
        while (b->upper < a->lower)
            if (++b == bEnd) return false;
        if (a->lower < b->lower || b->upper < a->upper) return false;
    }
    return true;
}

// Some member is in both lists (inputs sorted, disjoint). Walks both lists once,
// advancing the side whose range starts first; adjacent ranges do not overlap.
// The comparisons hold as written for malformed ranges (lower > upper) too.
template <typename T>
bool rangeListsOverlap(const Range<T>* a, const Range<T>* aEnd, const Range<T>* b, const Range<T>* bEnd) {
    while (a != aEnd && b != bEnd) {
        if (b->lower < a->lower) {
            if (a->lower <= b->upper && (b->lower < b->upper ? b->lower : b->upper) <= a->upper) return true;
            ++b;
        } else {
            if (b->lower <= a->upper && (b->lower == a->lower || (a->lower < a->upper ? a->lower : a->upper) <= b->upper))
                return true;
            ++a;
        }
    }
    return false;
}

// Writes the words of one mix item: a scalar word when lower == upper, else
// lower with its sign bit set followed by upper. Returns how many (1 or 2).
inline int writeMixItem(int lower, int upper, int* words) {
    if (lower == upper) {
        words[0] = lower;
        return 1;
    }
    words[0] = static_cast<int>(static_cast<uint32_t>(lower) | 0x80000000u);
    words[1] = upper;
    return 2;
}

// Appends one item to a mix array. Writes no count word.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
void pushIntoMixArray(qn::pg::tVector<int, A, F>& mix, int lower, int upper) {
    int words[2];
    mix.append(words, words + writeMixItem(lower, upper, words));
}

// The range of a mix item opened by the word at p (sign bit set), whose upper is
// the next word before last; false when there is none, it has its sign bit set, or
// it lies below the lower.
inline bool mixItemRange(const int* p, const int* last, Range<int>& r) {
    r = Range<int>{*p & 0x7fffffff, p + 1 != last ? p[1] : -1};
    return r.upper >= 0 && r.lower <= r.upper;
}

// Reads the items of a mix array (words [begin, end), the first being the count
// word, skipped unread) into out, in item order, without sorting or merging.
// On a malformed range item (no upper word, an upper with its sign bit set, or
// lower > upper) sets error to "Invalid range definition" and stops, keeping the
// ranges read so far; otherwise error is null.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
void convertMixToRangeArray(const int* begin, const int* end, RangeVector<int, A, F>& out,
                            const char*& error, Poll poll = {}) {
    error = nullptr;
    out.clear();
    if (begin >= end || end - begin == 1) return;
    Poller<Poll> tick(poll);
    for (const int* p = begin + 1; p < end;) {
        tick();
        const int v = *p;
        if (v >= 0) {
            out.push_back(Range<int>{v, v});
            ++p;
            continue;
        }
        Range<int> r;
        if (!mixItemRange(p, end, r)) {
            error = "Invalid range definition";
            return;
        }
        out.push_back(r);
        p += 2;
    }
}

}  // namespace qn::pgRangeArray
