// Building a set of small non-negative integers as one bit per value, writing it
// out in its int4[] forms ('s', 'r', 'm'), and the byte layout in which such an
// aggregate state travels between processes.
//
// Bits are numbered as in a bitfield whose min is 0: value v is the bit
// 0x80 >> (v % 8) of byte v / 8. A largest expected value m admits the values
// of the bytes up to its own, the limit: m is rounded up to the end of its byte
// (m = 10 admits 0 to 15). Negative values never fit. The buffer itself holds
// only the bytes that the values seen so far reach (its size); the bytes past
// it, up to the limit, are zero.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgBitSetBuilder.h must not see server headers: include it before postgres.h");
#endif

#include <cstdint>
#include <cstring>

#include "qnPgRangeArray.h"
#include "quenloPgBitField.h"

namespace qn::bitfield {

using qn::pgRangeArray::ArrayDataTypeMixArray;
using qn::pgRangeArray::ArrayDataTypeRangeArray;
using qn::pgRangeArray::ArrayDataTypeSet;

// The most bytes a set ever uses: values up to 2^31 - 1.
constexpr uint32_t kMaxBitSetBytes = 1u << 28;

// The buffer for the values 0 to m (m >= 1): `size`, the bytes that values may
// use, reaches the byte of m; `capacity` is those bytes in whole 64-bit words,
// the most the buffer ever takes.
struct BitSetSizes {
    uint32_t capacity;
    uint32_t size;
};
inline BitSetSizes bitSetSizes(int32_t m) {
    const auto top = static_cast<uint32_t>(m);
    return {bitBytes(top + 1u), top / 8u + 1u};
}

// The largest value a buffer of `size` bytes holds (-1 for none).
inline int32_t bitSetLast(uint32_t size) { return static_cast<int32_t>(size * 8u - 1u); }

inline bool bitSetHolds(uint32_t size, int32_t v) { return static_cast<uint32_t>(v) / 8u < size; }

// Makes the first `need` bytes of a buffer (fill byte 0) usable, the new ones
// zero, for values that may use `limit` bytes (need <= limit): the buffer holds
// what the values seen so far need, and its capacity grows geometrically, from
// 64 bytes up to the limit's whole words. New bytes are cleared a slice at a time.
template <typename Buffer, typename Tick>
void growBitSet(Buffer& bits, uint32_t need, uint32_t limit, Tick& tick) {
    if (need <= bits.size) return;
    if (need > bits.capacity) {
        const uint64_t most = (uint64_t{limit} + 7) & ~uint64_t{7};
        uint64_t c = uint64_t{bits.capacity} * 2;
        if (c < 64) c = 64;
        if (c < need) c = (uint64_t{need} + 7) & ~uint64_t{7};
        bits.reserve(static_cast<uint32_t>(c < most ? c : most));
    }
    constexpr uint32_t kSlice = 1u << 20;
    while (bits.size < need) {
        bits.resize(need - bits.size > kSlice ? bits.size + kSlice : need);
        tick(kSlice);
    }
}

enum class BitSetAddError {
    None,
    BoundsOutside,         // a [lower, upper] row reaching outside the limit
    ScalarOutside,         // an array member or run outside the limit
    OddRangeArray,         // an 'r' row of odd length
    MixRangeWithoutUpper,  // an 'm' row ending in a range opener
};

// Adds v when it lies inside the limit; false otherwise.
template <typename Buffer, typename Tick>
bool addBitSetValue(Buffer& bits, uint32_t limit, int32_t v, Tick& tick) {
    if (!bitSetHolds(limit, v)) return false;
    growBitSet(bits, static_cast<uint32_t>(v) / 8u + 1u, limit, tick);
    setBit(bits.data, static_cast<uint32_t>(v));
    return true;
}

// Adds lower to upper (lower <= upper) when both lie inside the limit; nothing otherwise.
template <typename Buffer, typename Tick>
bool addBitSetRun(Buffer& bits, uint32_t limit, int32_t lower, int32_t upper, Tick& tick) {
    if (!bitSetHolds(limit, lower) || !bitSetHolds(limit, upper)) return false;
    growBitSet(bits, static_cast<uint32_t>(upper) / 8u + 1u, limit, tick);
    setRunInSlices(bits.data, static_cast<uint32_t>(lower), static_cast<uint32_t>(upper), tick);
    return true;
}

// A bounds row: an inverted pair adds nothing. Polls through poll.
template <typename Buffer, typename Poll>
BitSetAddError addBitSetBounds(Buffer& bits, uint32_t limit, int32_t lower, int32_t upper, Poll poll) {
    qn::pgRangeArray::Poller<Poll> tick(poll);
    if (lower > upper || addBitSetRun(bits, limit, lower, upper, tick)) return BitSetAddError::None;
    return BitSetAddError::BoundsOutside;
}

// An array row e[0, count) in form `form`. Inverted pairs and items are skipped.
// A member outside stops the adding of members; the row's shape is still checked
// to its end, so a malformed row is reported as such whatever its values. No
// element past count is read. Polls through poll.
template <typename Buffer, typename Poll>
BitSetAddError addBitSetArray(Buffer& bits, uint32_t limit, uint32_t form, const int32_t* e, int32_t count,
                              Poll poll) {
    qn::pgRangeArray::Poller<Poll> tick(poll);
    const int32_t* const end = e + count;
    bool outside = false;
    auto run = [&](int32_t lower, int32_t upper) {
        tick();
        if (!outside && lower <= upper) outside = !addBitSetRun(bits, limit, lower, upper, tick);
    };
    switch (form) {
        case ArrayDataTypeSet:
            for (const int32_t* p = e; p != end; ++p, tick())
                if (!addBitSetValue(bits, limit, *p, tick)) return BitSetAddError::ScalarOutside;
            return BitSetAddError::None;
        case ArrayDataTypeRangeArray:
            if (count & 1) return BitSetAddError::OddRangeArray;
            for (const int32_t* p = e; p != end && !outside; p += 2) run(p[0], p[1]);
            break;
        default:  // mix array: the count word first, skipped
            if (count == 0) return BitSetAddError::None;
            for (const int32_t* p = e + 1; p != end;) {
                if (*p >= 0) {
                    run(*p, *p);
                    ++p;
                    continue;
                }
                if (p + 1 == end) return BitSetAddError::MixRangeWithoutUpper;
                run(*p & 0x7fffffff, p[1]);
                p += 2;
            }
            break;
    }
    return outside ? BitSetAddError::ScalarOutside : BitSetAddError::None;
}

// Eight bytes of bits as one word, byte 0 most significant, so that a position
// p of the word is bit 63 - p; fewer than eight bytes are padded with zeros.
inline uint64_t loadBitWord(const uint8_t* p, uint32_t n) {
    uint8_t bytes[8] = {};
    std::memcpy(bytes, p, n);
    uint64_t w;
    std::memcpy(&w, bytes, sizeof w);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    w = __builtin_bswap64(w);
#endif
    return w;
}

// Some bit of the first `size` bytes is set.
inline bool anyBitSet(const uint8_t* bits, uint32_t size) {
    for (uint32_t byte = 0; byte < size; byte += 8)
        if (loadBitWord(bits + byte, size - byte < 8 ? size - byte : 8)) return true;
    return false;
}

// Calls fn(first, last) for every maximal run of set positions of the first
// `size` bytes, ascending; runs cross bytes and words freely. Whole words of
// zeros (outside a run) or of ones (inside one) cost one comparison. Counts a
// unit of work per word on tick.
template <typename Fn, typename Tick>
inline void forEachBitRun(const uint8_t* bits, uint32_t size, Fn fn, Tick& tick) {
    bool inRun = false;
    uint64_t start = 0;
    for (uint32_t byte = 0; byte < size; byte += 8, tick()) {
        const uint64_t w = loadBitWord(bits + byte, size - byte < 8 ? size - byte : 8);
        if (w == (inRun ? ~uint64_t{0} : 0)) continue;
        const uint64_t base = uint64_t{byte} * 8;
        for (unsigned pos = 0; pos < 64;) {
            const uint64_t rest = (inRun ? ~w : w) << pos;  // the next change of state is its top set bit
            if (!rest) break;
            pos += static_cast<unsigned>(__builtin_clzll(rest));
            if (inRun) fn(start, base + pos - 1);
            else start = base + pos;
            inRun = !inRun;
        }
    }
    if (inRun) fn(start, uint64_t{size} * 8 - 1);
}

template <typename Poll>
uint64_t countBitSetMembers(const uint8_t* bits, uint32_t size, Poll poll) {
    qn::pgRangeArray::Poller<Poll> tick(poll);
    uint64_t n = 0;
    for (uint32_t byte = 0; byte < size; byte += 8, tick())
        n += static_cast<uint64_t>(__builtin_popcountll(loadBitWord(bits + byte, size - byte < 8 ? size - byte : 8)));
    return n;
}

// The number of int4 elements of the set in form `form`, counted in 64 bits: the
// members ('s'), two per run ('r'), or the count word and one or two words per
// run ('m'; none at all for an empty set).
template <typename Poll>
uint64_t countBitSetElements(const uint8_t* bits, uint32_t size, uint32_t form, Poll poll) {
    if (form == ArrayDataTypeSet) return countBitSetMembers(bits, size, poll);
    qn::pgRangeArray::Poller<Poll> tick(poll);
    uint64_t n = 0;
    forEachBitRun(
        bits, size, [&](uint64_t s, uint64_t e) { n += form == ArrayDataTypeRangeArray || s != e ? 2 : 1; }, tick);
    return form == ArrayDataTypeMixArray && n ? n + 1 : n;
}

// Writes the countBitSetElements(bits, size, form) elements of the set into out.
// The mix array's count word is the number of members, wrapping in 32 bits.
template <typename Poll>
void writeBitSetElements(const uint8_t* bits, uint32_t size, uint32_t form, int32_t* out, Poll poll) {
    if (form == ArrayDataTypeMixArray) {
        const uint64_t members = countBitSetMembers(bits, size, poll);
        if (members == 0) return;  // no count word either
        *out++ = static_cast<int32_t>(static_cast<uint32_t>(members));
    }
    qn::pgRangeArray::Poller<Poll> tick(poll);
    forEachBitRun(
        bits, size,
        [&](uint64_t s, uint64_t e) {
            const auto first = static_cast<int32_t>(s), last = static_cast<int32_t>(e);
            if (form == ArrayDataTypeSet) {
                for (int64_t v = first; v <= last; ++v, tick()) *out++ = static_cast<int32_t>(v);
            } else if (form == ArrayDataTypeRangeArray) {
                *out++ = first;
                *out++ = last;
            } else {
                out += qn::pgRangeArray::writeMixItem(first, last, out);
            }
        },
        tick);
}

// dst[i] |= src[i] for i < n, sixteen bytes at a time where it can.
inline void orBitBytes(uint8_t* dst, const uint8_t* src, uint32_t n) {
    uint32_t i = 0;
    for (; n - i >= 16; i += 16) {
        uint64_t a[2], b[2];
        std::memcpy(a, dst + i, 16);
        std::memcpy(b, src + i, 16);
        a[0] |= b[0];
        a[1] |= b[1];
        std::memcpy(dst + i, a, 16);
    }
    for (; i < n; ++i) dst[i] |= src[i];
}

// The serialised state: the length word, the input and output forms (one byte
// each), the buffer's capacity (uint32, native order, unaligned), then its bytes
// in use, as far as the values seen reach. A state whose forms are not fixed
// yet carries capacity 0 and no bytes, and so does one that saw no value.
constexpr uint32_t kBitSetStateFormsOffset = 4;
constexpr uint32_t kBitSetStateCapacityOffset = 6;
constexpr uint32_t kBitSetStateBitsOffset = 10;

// Fills bytes [4, 10 + size) of a serialised state.
inline void writeBitSetState(uint8_t* bytes, uint32_t inputType, uint32_t outputType, uint32_t capacity,
                             const uint8_t* bits, uint32_t size) {
    bytes[kBitSetStateFormsOffset] = static_cast<uint8_t>(inputType);
    bytes[kBitSetStateFormsOffset + 1] = static_cast<uint8_t>(outputType);
    std::memcpy(bytes + kBitSetStateCapacityOffset, &capacity, sizeof capacity);
    if (size) std::memcpy(bytes + kBitSetStateBitsOffset, bits, size);
}

enum class BitSetStateError {
    None,
    Empty,      // too short to hold the header
    Corrupted,  // more bytes than the capacity, or more than any set uses
};

// Reads the header of a serialised state of `total` bytes (length word included):
// the forms, sign-extended, the capacity, and the number of bytes of bits that
// follow at kBitSetStateBitsOffset. Nothing beyond `total` is read.
inline BitSetStateError readBitSetState(const uint8_t* bytes, uint64_t total, int32_t& inputType,
                                        int32_t& outputType, uint32_t& capacity, uint32_t& size) {
    if (total < kBitSetStateBitsOffset) return BitSetStateError::Empty;
    const uint64_t n = total - kBitSetStateBitsOffset;
    inputType = static_cast<int8_t>(bytes[kBitSetStateFormsOffset]);
    outputType = static_cast<int8_t>(bytes[kBitSetStateFormsOffset + 1]);
    std::memcpy(&capacity, bytes + kBitSetStateCapacityOffset, sizeof capacity);
    if (n > capacity || n > kMaxBitSetBytes) return BitSetStateError::Corrupted;
    size = static_cast<uint32_t>(n);
    return BitSetStateError::None;
}

}  // namespace qn::bitfield
