// qn::int4set: the stored form of the int4set type, a set of int4 values kept
// canonical (one set, one byte string), exact over the whole signed line: the
// set of every int4 has 4,294,967,296 members.
//
// A payload (the bytes after the varlena header; every multi-byte number
// little-endian, nothing aligned, so the payload may lie at any address) has
// one of two layouts, told by its first byte, the format byte; a new layout
// would get a new value:
//
//   the empty set: 1 byte
//     [0]        1
//   1, chunks: any other set (below)
//     [0]        1
//     ...
//   2, a range list: any other set
//     [0]        2
//     [1, 9)     cardinality, uint64, 1 to 2^32
//     then       n ranges, n >= 1, as (first, last) int32 pairs, both
//                included, ascending, each first > the last before + 1;
//                9 + 8n bytes in all
//
// The chunked layout. Values are mapped to unsigned order by flipping the sign
// bit (u = uint32(v) ^ 0x80000000, so -2147483648 is 0 and 2147483647 is
// 0xffffffff) and cut into 65,536 chunks of 65,536 values: the chunk's key is
// u >> 16, a member's place in its chunk u & 0xffff. Each chunk that holds
// members but not all of them has a container; chunks holding every value
// cost nothing but a directory entry for each maximal span of them.
//
//     [0]        1
//     [1, 9)     cardinality, uint64, 1 to 2^32
//     [9, 11)    n - 1, uint16: n directory entries, 1 to 65,536
//     [11, 11 + 4n)
//                the directory, strictly ascending by key, 4 bytes an entry:
//                  uint16 key    the chunk
//                  uint16 info   kind << 12 | (count - 1)
//     then       (n - 1) / 16 checkpoints, uint32: checkpoint g - 1 is where the
//                container of entry 16 g starts in the data area, so that a
//                container is found from its entry by adding up at most 15
//                container sizes
//     then       the data area: the containers of the entries, in entry order,
//                back to back, ending where the payload ends
//
// Kinds of entry (count is what the low 12 bits hold, plus one):
//   0 array   count members, 1 to 4,096: count uint16 places, ascending
//             (2 count bytes)
//   1 runs    count runs, 1 to 2,047: (first, last) uint16 pairs, both
//             included, ascending, at least one place apart (4 count bytes)
//   2 bitmap  8,192 bytes, place p at bit p & 7 of byte p >> 3; count field 0
//   3 full    the chunk holds all 65,536 values; no bytes; count field 0
//   4 fill    every chunk after the previous entry's, up to and including
//             this key, holds all its values; no bytes; count field 0
//
// Canonical form, which the validator demands and every writer here makes:
// - the layout is the range list of the set's maximal ranges when that is
//   smaller than the chunks (9 + 8 n bytes against the chunked size), else
//   the chunks: ties go to the chunks. The choice depends on the set alone;
// - in chunks, a chunk with members but not all of them has the smallest
//   container, ties going to array, then bitmap, then runs (array: 2 bytes a
//   member, up to 4,096; runs: 4 bytes a run; bitmap: 8,192 bytes);
// - in chunks, a maximal span of full chunks [a, b] is a fill at b when chunk
//   a - 1 has a container; otherwise a full at a, followed by a fill at b when
//   b > a. So a full entry never has an entry at the key before it, and a fill
//   never follows a fill;
// - the stored cardinality is the number of members; the empty set is the
//   single byte 1.
// Equal sets therefore have equal bytes: equality and hashing read the bytes.
//
// Sizes: in chunks, a run inside a chunk costs 8 bytes with its entry (4 when
// chunks hold several), a range over many chunks 20 at most (its two partial
// chunks and a fill), the whole line 19 with the header; a lone member costs 2
// bytes plus 4.25 for each chunk it alone occupies, so 1,000,000 random
// members over the whole line come to 2.28 bytes each; dense members one bit
// each. A range list costs 8 bytes a range, so it takes sets of ranges that
// seldom share a chunk and are not lone members: never many more than two
// ranges a chunk, about 131,072 ranges at most. Measured on the shapes of
// bench/int4set_kernels.cpp, stored with the 4-byte varlena header, against
// the int4[] of the set's ranges (24 bytes of header, 8 a range):
//   runs   1,000 runs of 1,000   chunks 8,339      stored 8,013 (list)  int4[] 8,024
//   lone   1,000,000 members     chunks 2,278,299  stored the same      int4[] 7,997,120
//   dense  30% of 10,000,000     chunks 1,254,039  stored the same      int4[] 16,809,728
//   huge   100 of 20,000,000     chunks 2,087      stored 813 (list)    int4[] 824
// In chunks, an offset in every entry would cost 4 bytes a chunk more (2.52
// bytes a lone member); a checkpoint every 64 entries saves 0.01 byte a lone
// member but made probes twice as slow; a span of full chunks as one entry
// with its length would not fit in 4 bytes.
//
// The readers never read outside the payload they are given, whatever its
// bytes; they check what they need as they go and report a payload they cannot
// read (Truncated, BadVersion, BadLength, Corrupt). validate() checks everything, for
// bytes from outside; on a payload that is readable but not canonical the
// readers' answers are unspecified, but they stay within the bytes given.
//
// The binary form on the wire is the payload itself: it is the same on every
// machine, and receiving it means validating it.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgInt4Set.h must not see server headers: include it before postgres.h");
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "qnPgRangeArray.h"
#include "qnPgRangeNormalise.h"
#include "qnPgVector.h"

namespace qn::int4set {

using qn::pgRangeArray::Range;
using Range32 = Range<int32_t>;

// Values in unsigned order: the sign bit flipped.
inline uint32_t toUnsigned(int32_t v) { return static_cast<uint32_t>(v) ^ 0x80000000u; }
inline int32_t fromUnsigned(uint32_t u) { return static_cast<int32_t>(u ^ 0x80000000u); }

// Loops whose work grows with their input call a poll function after about a
// million units of work (members, runs, bytes or entries); the server passes
// one that checks for a cancel. NoPoll is for callers without one.
struct NoPoll {
    void operator()() const {}
};

// Byte 0 of every payload, the format byte: the layout that follows. A new
// layout gets a new value.
constexpr uint8_t kFormatChunks = 1;  // the chunked layout, and the empty set
constexpr uint8_t kFormatRanges = 2;  // the range list
constexpr size_t kHeaderSize = 11;       // of the chunked layout
constexpr size_t kListHeaderSize = 9;    // of the range list
constexpr uint32_t kGroup = 16;           // entries per checkpoint
constexpr uint32_t kChunkValues = 65536;  // values per chunk
constexpr uint32_t kArrayMax = 4096;      // members of the largest array
constexpr uint32_t kBitmapWords = 1024;
constexpr size_t kBitmapBytes = 8192;
constexpr size_t kBadSize = ~size_t{0};
constexpr uint64_t kPollWork = uint64_t{1} << 20;

enum Kind : uint8_t { KindArray = 0, KindRuns = 1, KindBitmap = 2, KindFull = 3, KindFill = 4 };

enum class Status : uint8_t {
    Ok,
    OutOfMemory,
    Truncated,       // shorter than its header, directory and checkpoints
    BadVersion,      // a format byte this code does not read
    BadEntry,        // an entry of no known kind, or with a count its kind forbids
    BadOrder,        // keys not strictly ascending
    BadCheckpoint,   // a checkpoint that is not where its entry's container starts
    BadContainer,    // members, runs or ranges out of order, overlapping or touching
    NotCanonical,    // a readable payload, but not this set's one encoding
    BadLength,       // the containers do not end where the payload ends
    BadCardinality,  // the stored cardinality is not the number of members
    Corrupt,         // (readers) a payload they cannot read
    NotNormalised,   // (encoder) ranges not ascending, disjoint and apart
};

inline const char* statusMessage(Status s) {
    switch (s) {
        case Status::Ok: return "ok";
        case Status::OutOfMemory: return "out of memory";
        case Status::Truncated: return "int4set payload truncated";
        case Status::BadVersion: return "int4set payload of an unknown format";
        case Status::BadEntry: return "int4set directory entry of an unknown kind";
        case Status::BadOrder: return "int4set directory not in ascending order";
        case Status::BadCheckpoint: return "int4set checkpoint does not match its container";
        case Status::BadContainer: return "int4set container out of order";
        case Status::NotCanonical: return "int4set payload not in canonical form";
        case Status::BadLength: return "int4set containers do not fill the payload";
        case Status::BadCardinality: return "int4set stored cardinality is wrong";
        case Status::Corrupt: return "int4set payload is corrupt";
        case Status::NotNormalised: return "ranges not normalised";
    }
    return "unknown int4set status";
}

// A payload made by a writer: buffer comes from the allocation function and
// goes back to the matching release function; the payload starts headerRoom
// bytes into it (room the caller asked for, such as a varlena header).
struct Encoded {
    uint8_t* buffer = nullptr;
    uint8_t* payload = nullptr;
    size_t size = 0;  // of the payload
};

// One run of places inside a chunk, both ends included.
struct Run {
    uint16_t first;
    uint16_t last;
};

namespace detail {

// Counts a loop's work and polls after each kPollWork units of it.
template <typename Poll>
struct Ticker {
    Poll& poll;
    uint64_t done = 0;
    void operator()(uint64_t units = 1) {
        done += units;
        if (done >= kPollWork) {
            done = 0;
            poll();
        }
    }
};

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
inline uint16_t le(uint16_t v) { return __builtin_bswap16(v); }
inline uint32_t le(uint32_t v) { return __builtin_bswap32(v); }
inline uint64_t le(uint64_t v) { return __builtin_bswap64(v); }
#else
inline uint16_t le(uint16_t v) { return v; }
inline uint32_t le(uint32_t v) { return v; }
inline uint64_t le(uint64_t v) { return v; }
#endif

// The first index of [first, first + count) where `below` is false, for a
// predicate true up to some index and false after it (first + count when none).
template <typename I, typename Below>
I partitionPoint(I first, I count, Below below) {
    while (count > 0) {
        const I half = count / 2;
        if (below(first + half)) {
            first += half + 1;
            count -= half + 1;
        } else {
            count = half;
        }
    }
    return first;
}

inline uint16_t load16(const uint8_t* p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return le(v);
}
inline uint32_t load32(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return le(v);
}
inline uint64_t load64(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return le(v);
}
inline void store16(uint8_t* p, uint16_t v) {
    v = le(v);
    std::memcpy(p, &v, 2);
}
inline void store32(uint8_t* p, uint32_t v) {
    v = le(v);
    std::memcpy(p, &v, 4);
}
inline void store64(uint8_t* p, uint64_t v) {
    v = le(v);
    std::memcpy(p, &v, 8);
}

// Without a popcount instruction: the module is built for the baseline of its
// architecture, which on x86-64 has none (the bitmap kernels below take it
// when the processor has it).
inline uint32_t popcount(uint64_t x) {
    x = x - ((x >> 1) & 0x5555555555555555ull);
    x = (x & 0x3333333333333333ull) + ((x >> 2) & 0x3333333333333333ull);
    x = (x + (x >> 4)) & 0x0f0f0f0f0f0f0f0full;
    return static_cast<uint32_t>((x * 0x0101010101010101ull) >> 56);
}

inline void loadWords(const uint8_t* p, uint64_t* w) {
    for (uint32_t i = 0; i < kBitmapWords; ++i) w[i] = load64(p + 8 * i);
}
inline void storeWords(uint8_t* p, const uint64_t* w) {
    for (uint32_t i = 0; i < kBitmapWords; ++i) store64(p + 8 * i, w[i]);
}

// Sets places [first, last] of a bitmap in words.
inline void setRun(uint64_t* w, uint32_t first, uint32_t last) {
    if (first > last) return;
    const uint32_t a = first >> 6, b = last >> 6;
    const uint64_t head = ~uint64_t{0} << (first & 63), tail = ~uint64_t{0} >> (63 - (last & 63));
    if (a == b) {
        w[a] |= head & tail;
        return;
    }
    w[a] |= head;
    for (uint32_t i = a + 1; i < b; ++i) w[i] = ~uint64_t{0};
    w[b] |= tail;
}

struct BitStats {
    uint32_t members;
    uint32_t runs;
};

// How a bitmap pass makes each word of its result from a word of each bitmap.
enum class WordOp : uint8_t { Only, Or, And, AndNot };

template <WordOp op>
inline uint64_t wordOf(uint64_t a, uint64_t b) {
    return op == WordOp::Only ? a : op == WordOp::Or ? a | b : op == WordOp::And ? a & b : a & ~b;
}

// A chunk of this many runs or more never takes a runs container: the bitmap
// is no larger. Counting a bitmap's runs may stop there.
constexpr uint32_t kRunsCounted = kBitmapBytes / 4;

// One pass over bitmaps a and b as stored (b unread for Only): the words of
// a op b written to out when `write`, their members and runs counted (a run
// starts at each set bit whose lower neighbour is clear). With `capped` the
// runs are counted only until they reach kRunsCounted (most of the cost of a
// dense bitmap's pass): runs is exact below it, a lower bound from it on. hw:
// popcount by the instruction, only inside a function compiled for it.
template <WordOp op, bool write, bool capped, bool hw>
__attribute__((always_inline)) inline BitStats bitmapPassWith(const uint8_t* a, const uint8_t* b, uint8_t* out) {
    const auto count = [](uint64_t x) -> uint64_t {
        return hw ? static_cast<uint64_t>(__builtin_popcountll(x)) : popcount(x);
    };
    const auto word = [a, b, out](uint32_t i) {
        const uint64_t x = wordOf<op>(load64(a + 8 * i), op == WordOp::Only ? 0 : load64(b + 8 * i));
        if (write) store64(out + 8 * i, x);
        return x;
    };
    constexpr uint32_t kBlock = 64;  // words between looks at the run count
    uint64_t n = 0, r = 0, carry = 0;
    uint32_t i = 0;
    while (i < kBitmapWords) {
        for (const uint32_t end = i + kBlock; i < end; ++i) {
            const uint64_t x = word(i);
            n += count(x);
            r += count(x & ~((x << 1) | carry));
            carry = x >> 63;
        }
        if (capped && r >= kRunsCounted) break;
    }
    for (; i < kBitmapWords; ++i) n += count(word(i));
    return BitStats{static_cast<uint32_t>(n), static_cast<uint32_t>(r)};
}

template <WordOp op, bool write, bool capped>
BitStats bitmapPassBaseline(const uint8_t* a, const uint8_t* b, uint8_t* out) {
    return bitmapPassWith<op, write, capped, false>(a, b, out);
}

#if defined(__x86_64__)
// The same pass for processors with popcnt, chosen at run time: it counts
// several times faster than the baseline's arithmetic.
template <WordOp op, bool write, bool capped>
__attribute__((target("popcnt"))) BitStats bitmapPassPopcnt(const uint8_t* a, const uint8_t* b, uint8_t* out) {
    return bitmapPassWith<op, write, capped, true>(a, b, out);
}

// And for processors with AVX2, four words at a time: the bits of each byte
// counted by table lookup (pshufb), the bytes added up by psadbw; a word's
// lower neighbour bit comes from the word before it, across lanes by vpermq.
// (Helpers rather than lambdas: a lambda does not take its function's target.)
#define QN_AVX2 __attribute__((target("avx2"), always_inline)) inline
QN_AVX2 __m256i avx2Count(__m256i x) {  // the bits of each 64-bit lane
    const __m256i table = _mm256_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4,
                                           0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
    const __m256i nibble = _mm256_set1_epi8(0x0f);
    const __m256i lo = _mm256_shuffle_epi8(table, _mm256_and_si256(x, nibble));
    const __m256i hi = _mm256_shuffle_epi8(table, _mm256_and_si256(_mm256_srli_epi16(x, 4), nibble));
    return _mm256_sad_epu8(_mm256_add_epi8(lo, hi), _mm256_setzero_si256());
}
QN_AVX2 uint64_t avx2Sum(__m256i v) {
    const __m128i s = _mm_add_epi64(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    return static_cast<uint64_t>(_mm_cvtsi128_si64(s)) + static_cast<uint64_t>(_mm_extract_epi64(s, 1));
}
// Words i to i + 3 of a op b, written to out when `write` (the bytes are little-endian: x86).
template <WordOp op, bool write>
QN_AVX2 __m256i avx2Word(const uint8_t* a, const uint8_t* b, uint8_t* out, uint32_t i) {
    __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a + 8 * i));
    if (op != WordOp::Only) {
        const __m256i y = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b + 8 * i));
        x = op == WordOp::Or ? _mm256_or_si256(x, y) : op == WordOp::And ? _mm256_and_si256(x, y) : _mm256_andnot_si256(y, x);
    }
    if (write) _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 8 * i), x);
    return x;
}
#undef QN_AVX2

template <WordOp op, bool write, bool capped>
__attribute__((target("avx2"))) BitStats bitmapPassAvx2(const uint8_t* a, const uint8_t* b, uint8_t* out) {
    constexpr uint32_t kBlock = 64;
    __m256i n = _mm256_setzero_si256(), r = n, last = n;  // last: the top bits of the words before, a lane up
    uint32_t i = 0;
    while (i < kBitmapWords) {
        for (const uint32_t end = i + kBlock; i < end; i += 4) {
            const __m256i x = avx2Word<op, write>(a, b, out, i);
            const __m256i top = _mm256_permute4x64_epi64(_mm256_srli_epi64(x, 63), 0x93);  // lanes 3, 0, 1, 2
            const __m256i below = _mm256_blend_epi32(top, last, 0x03);
            last = top;
            n = _mm256_add_epi64(n, avx2Count(x));
            r = _mm256_add_epi64(r, avx2Count(_mm256_andnot_si256(_mm256_or_si256(_mm256_slli_epi64(x, 1), below), x)));
        }
        if (capped && avx2Sum(r) >= kRunsCounted) break;
    }
    for (; i < kBitmapWords; i += 4) n = _mm256_add_epi64(n, avx2Count(avx2Word<op, write>(a, b, out, i)));
    return BitStats{static_cast<uint32_t>(avx2Sum(n)), static_cast<uint32_t>(avx2Sum(r))};
}

// The fastest pass the processor has, looked up once.
inline int bitmapLevel() {
    static const int level = (__builtin_cpu_init(), __builtin_cpu_supports("avx2")     ? 2
                                                    : __builtin_cpu_supports("popcnt") ? 1
                                                                                       : 0);
    return level;
}
#endif

template <WordOp op, bool write, bool capped>
BitStats bitmapPass(const uint8_t* a, const uint8_t* b, uint8_t* out) {
#if defined(__x86_64__)
    switch (bitmapLevel()) {
        case 2: return bitmapPassAvx2<op, write, capped>(a, b, out);
        case 1: return bitmapPassPopcnt<op, write, capped>(a, b, out);
        default: break;
    }
#endif
    return bitmapPassBaseline<op, write, capped>(a, b, out);
}

// Members and runs of a bitmap as stored; runs counted up to kRunsCounted
// only when capped.
inline BitStats bitStats(const uint8_t* c, bool capped = false) {
    return capped ? bitmapPass<WordOp::Only, false, true>(c, nullptr, nullptr)
                  : bitmapPass<WordOp::Only, false, false>(c, nullptr, nullptr);
}

// Some word of a op b is not zero: a pass that stops at the first.
template <WordOp op>
bool bitmapsMeet(const uint8_t* a, const uint8_t* b) {
    for (uint32_t i = 0; i < kBitmapWords; i += 8) {
        uint64_t any = 0;
        for (uint32_t k = i; k < i + 8; ++k) any |= wordOf<op>(load64(a + 8 * k), load64(b + 8 * k));
        if (any) return true;
    }
    return false;
}

// The container kind of the canonical form for a chunk of n members in r runs
// (0 < n < 65536): the smallest, ties to array, then bitmap, then runs.
inline Kind chooseKind(uint32_t n, uint32_t r) {
    Kind best = KindBitmap;
    uint64_t size = kBitmapBytes;
    if (uint64_t{4} * r < size) {
        best = KindRuns;
        size = uint64_t{4} * r;
    }
    if (n <= kArrayMax && uint64_t{2} * n <= size) best = KindArray;
    return best;
}

inline uint16_t makeInfo(Kind kind, uint32_t count) { return static_cast<uint16_t>(kind << 12 | (count - 1)); }
inline Kind kindOf(uint16_t info) { return static_cast<Kind>(info >> 12); }
inline uint32_t countOf(uint16_t info) { return (info & 0xfffu) + 1; }

// The bytes of an entry's container, or kBadSize for an entry no reader accepts.
inline size_t containerBytes(uint16_t info) {
    const uint32_t low = info & 0xfffu;
    switch (kindOf(info)) {
        case KindArray: return 2 * size_t{low + 1};
        case KindRuns: return 4 * size_t{low + 1};
        case KindBitmap: return low == 0 ? kBitmapBytes : kBadSize;
        case KindFull:
        case KindFill: return low == 0 ? 0 : kBadSize;
        default: return kBadSize;
    }
}

inline uint32_t runLength(uint32_t first, uint32_t last) { return last >= first ? last - first + 1 : 0; }

// The bytes of the canonical container of a chunk of n members in r runs.
inline uint64_t canonicalBytes(uint32_t n, uint32_t r) {
    const uint64_t runsOrBitmap = 4 * uint64_t{r} < kBitmapBytes ? 4 * uint64_t{r} : kBitmapBytes;
    return n <= kArrayMax && 2 * uint64_t{n} <= runsOrBitmap ? 2 * uint64_t{n} : runsOrBitmap;
}

// The size of a payload in the chunked layout from its entries and data bytes.
inline uint64_t chunkedBytes(uint64_t entries, uint64_t data) {
    return entries == 0 ? 1 : kHeaderSize + 4 * entries + 4 * ((entries - 1) / kGroup) + data;
}

// The size of a set's payload in the chunked layout, from its maximal ranges
// given one by one in ascending unsigned order, at least one value apart; in
// constant space and time a range. A range adds a piece to the chunk of each
// end that it holds in part and a span of the chunks it holds whole, so the
// containers and entries of the canonical form come out as the writer would
// make them.
class ChunkedSize {
public:
    __attribute__((always_inline)) void add(uint32_t lo, uint32_t hi) {
        const uint32_t kl = lo >> 16;
        if (kl == hi >> 16 && ((lo & 0xffff) != 0 || (hi & 0xffff) != 0xffff))
            piece(kl, hi - lo + 1);  // the common case: part of one chunk
        else
            addAcross(lo, hi);
    }

    uint64_t bytes() const { return chunkedBytes(entries_ + (members_ != 0), data_ + canonicalBytes(members_, runs_)); }

private:
    void addAcross(uint32_t lo, uint32_t hi) {
        const uint32_t kl = lo >> 16, kh = hi >> 16;
        const int64_t fa = int64_t{kl} + ((lo & 0xffff) != 0), fb = int64_t{kh} - ((hi & 0xffff) != 0xffff);
        if (fa > fb) {  // in part two chunks, next to each other
            piece(kl, kChunkValues - (lo & 0xffff));
            return piece(kh, (hi & 0xffff) + 1);
        }
        if (kl < fa) piece(kl, kChunkValues - (lo & 0xffff));
        close();
        // A span is a fill after a container in the chunk before it; else a full, and a fill when longer.
        entries_ += fa - 1 == key_ || fa == fb ? 1 : 2;
        if (kh > fb) piece(kh, (hi & 0xffff) + 1);
    }

    __attribute__((always_inline)) void piece(uint32_t key, uint32_t members) {
        if (int64_t{key} != key_) {
            close();
            key_ = key;
        }
        members_ += members;
        ++runs_;
    }
    __attribute__((always_inline)) void close() {
        entries_ += members_ != 0;
        data_ += canonicalBytes(members_, runs_);
        members_ = runs_ = 0;
    }

    uint64_t entries_ = 0, data_ = 0;
    int64_t key_ = -2;                 // the last chunk given a piece: it has a container
    uint32_t members_ = 0, runs_ = 0;  // of chunk key_ so far (none once it is closed)
};

// A lower bound of the chunked size, for the same ranges as ChunkedSize but
// cheaper, without adding up chunks: a range that starts in a chunk where the
// range before it did not end has an entry of its own and, unless it is whole
// chunks only, 4 bytes of containers at least (2 for a lone member); a range
// that starts where the one before ended is taken to cost nothing. When the
// bound already exceeds the range list's size, the range list is the smaller;
// only otherwise is the exact size needed.
class ChunkedFloor {
public:
    __attribute__((always_inline)) void add(uint32_t lo, uint32_t hi) {
        const uint32_t kl = lo >> 16;
        const bool own = int64_t{kl} != last_;
        const bool whole = ((lo & 0xffff) | (~hi & 0xffff)) == 0;
        const uint64_t cost = kEntry | (whole ? 4 : hi > lo ? 8 : 6);
        sum_ += own ? cost : 0;
        last_ = hi >> 16;
    }

    uint64_t bytes() const {
        const uint64_t entries = sum_ >> 40;
        return chunkedBytes(entries, (sum_ & (kEntry - 1)) - 4 * entries);
    }

private:
    static constexpr uint64_t kEntry = uint64_t{1} << 40;
    uint64_t sum_ = 0;   // entries above bit 40, bytes below
    int64_t last_ = -1;  // the chunk where the last range ended
};

// The range list of n maximal ranges, range(i) the i-th, is smaller than the
// chunked layout: from the floor of that size (ChunkedFloor::bytes) when it
// decides, else from a pass over them. It takes the floor's bytes and ticks a
// ticker of its own: a caller's local whose address went to a call not inlined
// would live in memory in the caller's loops.
template <typename RangeAt, typename Poll>
bool listSmaller(uint64_t n, uint64_t floor, RangeAt range, Poll& poll) {
    const uint64_t list = kListHeaderSize + 8 * n;
    if (n == 0 || list < floor) return n != 0;
    ChunkedSize exact;
    Ticker<Poll> tick{poll};
    for (uint64_t i = 0; i < n; ++i, tick()) {
        const Range32 r = range(i);
        exact.add(toUnsigned(r.lower), toUnsigned(r.upper));
    }
    return list < exact.bytes();
}

// A growable byte buffer on A and F; a failed allocation is remembered, and
// later writes go nowhere.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
class ByteBuffer {
public:
    ByteBuffer() = default;
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;
    ~ByteBuffer() {
        if (p_) F(p_);
    }

    // Room for k more bytes at the end, or null after a failure.
    uint8_t* extend(size_t k) {
        if (cap_ - size_ < k && !grow(k)) return nullptr;
        uint8_t* r = p_ + size_;
        size_ += k;
        return r;
    }
    // Room for k more bytes at the end, not yet taken: extend(k) takes it
    // without moving the bytes; null after a failure.
    uint8_t* room(size_t k) {
        if (cap_ - size_ < k && !grow(k)) return nullptr;
        return p_ + size_;
    }
    // Capacity for k more bytes, taken now rather than grown into.
    void reserve(size_t k) {
        if (cap_ - size_ < k) grow(k);
    }
    size_t size() const { return size_; }
    uint8_t* data() { return p_; }
    bool failed() const { return failed_; }

    // Hands the bytes over to the caller, who frees them with F.
    uint8_t* release() {
        uint8_t* r = p_;
        p_ = nullptr;
        size_ = cap_ = 0;
        return r;
    }

private:
    bool grow(size_t k) {
        if (failed_) return false;
        const size_t want = size_ + k;
        size_t c = cap_ ? cap_ : 256;
        while (c < want) c = c > ~size_t{0} / 2 ? want : 2 * c;
        uint8_t* q = want < size_ ? nullptr : static_cast<uint8_t*>(A(c));
        if (!q) {
            failed_ = true;
            return false;
        }
        if (size_) std::memcpy(q, p_, size_);
        if (p_) F(p_);
        p_ = q;
        cap_ = c;
        return true;
    }

    uint8_t* p_ = nullptr;
    size_t size_ = 0;
    size_t cap_ = 0;
    bool failed_ = false;
};

}  // namespace detail

// A payload opened for reading: the header read and, in the chunked layout,
// the directory and checkpoints known to lie inside the bytes; in the range
// list, its length a whole number of ranges (nothing else checked).
struct View {
    uint32_t n = 0;     // directory entries; 0 for the empty set and a range list
    uint64_t card = 0;  // as stored
    const uint8_t* dir = nullptr;
    const uint8_t* checks = nullptr;
    const uint8_t* data = nullptr;
    size_t dataSize = 0;
    const uint8_t* list = nullptr;  // a range list's first range
    uint64_t ranges = 0;            // and how many it has

    Status open(const uint8_t* p, size_t size) {
        *this = View{};
        if (size == 0) return Status::Truncated;
        if (p[0] == kFormatRanges) {
            if (size < kListHeaderSize + 8) return Status::Truncated;
            if ((size - kListHeaderSize) % 8) return Status::BadLength;
            card = detail::load64(p + 1);
            list = p + kListHeaderSize;
            ranges = (size - kListHeaderSize) / 8;
            return Status::Ok;
        }
        if (p[0] != kFormatChunks) return Status::BadVersion;
        if (size == 1) return Status::Ok;
        if (size < kHeaderSize) return Status::Truncated;
        card = detail::load64(p + 1);
        const uint32_t entries = uint32_t{detail::load16(p + 9)} + 1;
        const size_t head = kHeaderSize + 4 * size_t{entries} + 4 * size_t{(entries - 1) / kGroup};
        if (size < head) return Status::Truncated;
        n = entries;
        dir = p + kHeaderSize;
        checks = dir + 4 * size_t{n};
        data = p + head;
        dataSize = size - head;
        return Status::Ok;
    }

    bool isList() const { return list != nullptr; }
    bool empty() const { return n == 0 && !list; }
    // Both ends of range i of a range list.
    int32_t lower(uint64_t i) const { return static_cast<int32_t>(detail::load32(list + 8 * i)); }
    int32_t upper(uint64_t i) const { return static_cast<int32_t>(detail::load32(list + 8 * i + 4)); }

    // The first range of a range list whose upper end is at least v (ranges when none).
    uint64_t rangeReaching(int32_t v) const {
        return detail::partitionPoint<uint64_t>(0, ranges, [&](uint64_t i) { return upper(i) < v; });
    }

    uint16_t key(uint32_t i) const { return detail::load16(dir + 4 * size_t{i}); }
    uint16_t info(uint32_t i) const { return detail::load16(dir + 4 * size_t{i} + 2); }

    // Where entry i's container starts in the data area, from its checkpoint;
    // false when an entry before it has no size or the offset leaves the data.
    bool offsetOf(uint32_t i, size_t& off) const {
        const uint32_t g = i / kGroup;
        off = g ? detail::load32(checks + 4 * size_t{g - 1}) : 0;
        for (uint32_t t = g * kGroup; t < i; ++t) {
            const size_t b = detail::containerBytes(info(t));
            if (b == kBadSize) return false;
            off += b;
        }
        return off <= dataSize;
    }

    // The first entry at or after `from` whose key is at least k (n when none):
    // a gallop from `from`, then a binary search.
    uint32_t lowerBound(uint32_t k, uint32_t from = 0) const {
        if (from >= n || key(from) >= k) return from;
        uint32_t below = from, step = 1;  // key(below) < k
        while (below + step < n && key(below + step) < k) {
            below += step;
            step *= 2;
        }
        const uint32_t count = (below + step < n ? below + step : n) - below - 1;
        return detail::partitionPoint<uint32_t>(below + 1, count, [&](uint32_t i) { return key(i) < k; });
    }
};

// One step of a walk over the chunks: a span of full chunks [lo, hi] (kind full
// or fill), or the container of chunk lo == hi.
struct Item {
    uint32_t lo;
    uint32_t hi;
    Kind kind;
    const uint8_t* bytes;
    uint32_t count;
    bool span() const { return kind == KindFull || kind == KindFill; }
};

// Walks a payload chunk by chunk, in key order, and jumps ahead by key. A full
// entry and the fill after it are one span. A container outside the data, an
// entry of no known kind, a fill first or keys that do not ascend end the walk
// with corrupt() set.
class Walker {
public:
    // A range list has no chunks to walk: the walk ends at once, corrupt.
    explicit Walker(const View& v) : v_(v) {
        if (v.isList())
            fail();
        else
            load(0, 0);
    }

    bool end() const { return end_; }
    bool corrupt() const { return corrupt_; }
    Item& item() { return item_; }

    void next() {
        if (!end_) load(i_ + used_, nextOff_);
    }

    // Leaves out what lies below key k: moves on to the first item that reaches
    // k (a span starting below k is cut to start at k).
    void seek(uint32_t k) {
        if (end_) return;
        if (item_.hi < k) {
            const uint32_t from = i_ + used_, j = v_.lowerBound(k, from);
            size_t off = nextOff_;
            if (j - from <= j % kGroup) {  // nearer than j's checkpoint: add up the sizes on the way
                for (uint32_t t = from; t < j; ++t) {
                    const size_t b = detail::containerBytes(v_.info(t));
                    if (b == kBadSize) return fail();
                    off += b;
                }
            } else if (j < v_.n && !v_.offsetOf(j, off)) {
                return fail();
            }
            load(j, off);
            if (end_) return;
        }
        if (item_.lo < k) item_.lo = k;
    }

    // The current entry, and where its container starts (for a bulk copy of
    // the entries from it; meaningful for a container item).
    uint32_t index() const { return i_; }
    size_t offset() const { return static_cast<size_t>(item_.bytes - v_.data); }

    // Moves on to entry j (> index()), whose container starts at off, past
    // entries copied in bulk.
    void jump(uint32_t j, size_t off) {
        lastHi_ = v_.key(j - 1);
        load(j, off);
    }

    // Drops the part of the current item below key k, or the item when k lies past it.
    void cutTo(uint32_t k) {
        if (k > item_.hi)
            next();
        else
            item_.lo = k;
    }

private:
    void fail() {
        end_ = true;
        corrupt_ = true;
    }

    void load(uint32_t i, size_t off) {
        if (i >= v_.n) {
            end_ = true;
            return;
        }
        const uint16_t info = v_.info(i);
        const uint32_t key = v_.key(i);
        const size_t bytes = detail::containerBytes(info);
        if (bytes == kBadSize || off > v_.dataSize || bytes > v_.dataSize - off) return fail();
        const Kind kind = detail::kindOf(info);
        item_ = Item{key, key, kind, v_.data + off, detail::countOf(info)};
        used_ = 1;
        nextOff_ = off + bytes;
        if (kind == KindFull && i + 1 < v_.n && v_.info(i + 1) == detail::makeInfo(KindFill, 1)) {
            item_.hi = v_.key(i + 1);
            used_ = 2;
        } else if (kind == KindFill) {
            if (i == 0) return fail();
            item_.lo = uint32_t{v_.key(i - 1)} + 1;
        }
        if (item_.lo > item_.hi || int64_t{item_.lo} <= lastHi_) return fail();
        lastHi_ = item_.hi;
        i_ = i;
    }

    const View& v_;
    uint32_t i_ = 0;
    uint32_t used_ = 0;  // entries the item takes
    size_t nextOff_ = 0;
    Item item_{};
    int64_t lastHi_ = -1;
    bool end_ = false;
    bool corrupt_ = false;
};

namespace detail {

// The lowest (or highest) place of a container; false when it has none.
inline bool containerEnd(Kind kind, const uint8_t* c, uint32_t count, bool highest, uint32_t& place) {
    switch (kind) {
        case KindArray: place = load16(c + (highest ? 2 * (count - 1) : 0)); return true;
        case KindRuns: place = load16(c + (highest ? 4 * (count - 1) + 2 : 0)); return true;
        case KindBitmap:
            for (uint32_t k = 0; k < kBitmapWords; ++k) {
                const uint32_t i = highest ? kBitmapWords - 1 - k : k;
                const uint64_t x = load64(c + 8 * i);
                if (!x) continue;
                place = 64 * i + (highest ? 63 - static_cast<uint32_t>(__builtin_clzll(x))
                                          : static_cast<uint32_t>(__builtin_ctzll(x)));
                return true;
            }
            return false;
        case KindFull:
        case KindFill: place = highest ? 0xffff : 0; return true;
        default: return false;
    }
}

// What a container holds: members, maximal runs, its lowest and highest place.
// A bitmap's runs are counted up to kRunsCounted only: from there on, a lower
// bound. (Of a container that is readable but not canonical: some numbers,
// read from its bytes only.)
struct Shape {
    uint32_t members = 0, runs = 0, first = 0, last = 0;
};

inline Shape shapeOf(Kind kind, const uint8_t* c, uint32_t count) {
    Shape s;
    switch (kind) {
        case KindArray:
            s.members = count;
            s.runs = 1;
            for (uint32_t k = 1; k < count; ++k) s.runs += load16(c + 2 * k) != load16(c + 2 * k - 2) + 1u;
            break;
        case KindRuns:
            for (uint32_t k = 0; k < count; ++k) s.members += runLength(load16(c + 4 * k), load16(c + 4 * k + 2));
            s.runs = count;
            break;
        case KindBitmap: {
            const BitStats st = bitStats(c, true);
            s.members = st.members;
            s.runs = st.runs;
            break;
        }
        default: return s;
    }
    containerEnd(kind, c, count, false, s.first);
    containerEnd(kind, c, count, true, s.last);
    return s;
}

// Counts the maximal runs of a set given as pieces (runs of a container, spans
// of full chunks) in ascending order: a piece that starts where the one before
// ended joins its run.
struct RunCounter {
    uint64_t runs = 0;
    int64_t end = -2;  // the last value of the last piece
    void add(uint32_t lo, uint32_t hi, uint32_t pieces = 1) {
        if (!pieces) return;
        runs += pieces - (int64_t{lo} == end + 1);
        end = hi;
    }
};

}  // namespace detail

// The ranges of a payload, ascending, each maximal (ranges that meet across
// chunks come out as one), one per call in constant space.
class RangeCursor {
public:
    // status() tells whether the payload could be opened.
    RangeCursor(const uint8_t* data, size_t size) { status_ = v_.open(data, size); }
    // A payload already opened (the writer's own chunks, say).
    explicit RangeCursor(const View& v) : v_(v), status_(Status::Ok) {}

    Status status() const { return status_; }

    // The next range; false at the end (and at a payload it cannot read: then
    // status() is Corrupt).
    bool next(Range32& r) {
        if (status_ != Status::Ok) return false;
        if (v_.isList()) {  // as stored
            if (at_ >= v_.ranges) return false;
            r = Range32{v_.lower(at_), v_.upper(at_)};
            if (r.upper < r.lower) r.upper = r.lower;
            ++at_;
            return true;
        }
        uint32_t lo, hi;
        while (piece(lo, hi)) {
            if (pending_ && uint64_t{lo} == uint64_t{pendHi_} + 1) {
                pendHi_ = hi;
                continue;
            }
            const bool had = pending_;
            const Range32 out{fromUnsigned(pendLo_), fromUnsigned(pendHi_)};
            pending_ = true;
            pendLo_ = lo;
            pendHi_ = hi;
            if (had) {
                r = out;
                return true;
            }
        }
        if (!pending_) return false;
        pending_ = false;
        r = Range32{fromUnsigned(pendLo_), fromUnsigned(pendHi_)};
        return true;
    }

private:
    // The next piece in unsigned order: a run of a container or a span.
    bool piece(uint32_t& lo, uint32_t& hi) {
        while (i_ < v_.n) {
            const uint16_t info = v_.info(i_);
            const uint32_t base = uint32_t{v_.key(i_)} << 16, count = detail::countOf(info);
            const size_t bytes = detail::containerBytes(info);
            if (bytes == kBadSize || off_ > v_.dataSize || bytes > v_.dataSize - off_) return fail();
            const uint8_t* c = v_.data + off_;
            uint32_t first = 0, last = 0;
            bool found = true;
            switch (detail::kindOf(info)) {
                case KindArray:
                    if ((found = pos_ < count)) {
                        first = last = detail::load16(c + 2 * pos_);
                        while (++pos_ < count && detail::load16(c + 2 * pos_) == last + 1) ++last;
                    }
                    break;
                case KindRuns:
                    if ((found = pos_ < count)) {
                        first = detail::load16(c + 4 * pos_);
                        last = detail::load16(c + 4 * pos_ + 2);
                        if (last < first) last = first;
                        ++pos_;
                    }
                    break;
                case KindBitmap:
                    first = bitFrom(c, pos_, true);
                    if ((found = first < kChunkValues)) {
                        pos_ = bitFrom(c, first, false);
                        last = pos_ - 1;
                    }
                    break;
                case KindFull:
                    if ((found = pos_ == 0)) {
                        last = 0xffff;
                        pos_ = 1;
                    }
                    break;
                default:  // fill
                    if (i_ == 0) return fail();
                    if ((found = pos_ == 0)) {
                        lo = (uint32_t{v_.key(i_ - 1)} + 1) << 16;
                        hi = base | 0xffff;
                        pos_ = 1;
                        return true;
                    }
            }
            if (found) {
                lo = base | first;
                hi = base | last;
                return true;
            }
            ++i_;
            off_ += bytes;
            pos_ = 0;
        }
        return false;
    }

    // The first place at or after pos whose bit is `set`; 65536 when none.
    static uint32_t bitFrom(const uint8_t* c, uint32_t pos, bool set) {
        if (pos >= kChunkValues) return kChunkValues;
        uint32_t w = pos >> 6;
        uint64_t x = detail::load64(c + 8 * w);
        x = (set ? x : ~x) & (~uint64_t{0} << (pos & 63));
        while (!x) {
            if (++w == kBitmapWords) return kChunkValues;
            x = detail::load64(c + 8 * w);
            if (!set) x = ~x;
        }
        return 64 * w + static_cast<uint32_t>(__builtin_ctzll(x));
    }

    bool fail() {
        status_ = Status::Corrupt;
        i_ = v_.n;
        return false;
    }

    View v_;
    Status status_;
    uint64_t at_ = 0;  // the next range of a range list
    uint32_t i_ = 0;
    size_t off_ = 0;
    uint32_t pos_ = 0;  // in the container: next member or run index, or bit place
    bool pending_ = false;
    uint32_t pendLo_ = 0, pendHi_ = 0;
};

// The members of a payload, ascending, one per call in constant space.
class MemberCursor {
public:
    MemberCursor(const uint8_t* data, size_t size) : ranges_(data, size) {}

    Status status() const { return ranges_.status(); }

    bool next(int32_t& v) {
        if (next_ > hi_) {
            Range32 r;
            if (!ranges_.next(r)) return false;
            next_ = r.lower;
            hi_ = r.upper;
        }
        v = static_cast<int32_t>(next_++);
        return true;
    }

private:
    RangeCursor ranges_;
    int64_t next_ = 1;
    int64_t hi_ = 0;
};

// Builds a payload from chunks given in ascending key order: spans of full
// chunks (adjacent spans merge), containers copied as they are, or chunks
// computed as sorted places, runs or bitmap words, which it writes in their
// canonical container (none when empty, a span when full). It counts the
// set's maximal runs as it goes, and finish() writes the range list instead
// when that is smaller. Out-of-order input makes finish() report Corrupt.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
class Writer {
public:
    // Chunks lo to hi are full.
    void span(uint32_t lo, uint32_t hi) {
        if (!ordered(lo) || hi < lo || hi >= kChunkValues) {
            bad_ = true;
            return;
        }
        covered_ = hi;
        runs_.add(lo << 16, hi << 16 | 0xffff);
        if (spanOpen_ && lo == spanHi_ + 1) {
            spanHi_ = hi;
            return;
        }
        flushSpan();
        spanOpen_ = true;
        spanLo_ = lo;
        spanHi_ = hi;
    }

    // A container of a walked payload, copied as it is.
    void copy(const Item& it) {
        if (it.span()) return span(it.lo, it.hi);
        const size_t bytes = detail::containerBytes(detail::makeInfo(it.kind, it.count));
        uint8_t* p = begin(it.lo, detail::makeInfo(it.kind, it.count), bytes);
        if (!p) return;
        std::memcpy(p, it.bytes, bytes);
        note(it.lo, detail::shapeOf(it.kind, it.bytes, it.count));
    }

    // Entries [i, j) of a payload whose containers start at off, copied as they
    // are. Entries i and j - 1 must be containers: then none of them depends on
    // what was written before, and nothing written after depends on them but
    // through lastKey_. end is set to where entry j's container starts.
    void bulk(const View& v, uint32_t i, uint32_t j, size_t off, size_t& end) {
        end = off;
        if (!ordered(v.key(i))) return;
        flushSpan();
        size_t bytes = 0;
        uint64_t members = 0;
        for (uint32_t t = i; t < j; ++t) {
            const uint16_t info = v.info(t);
            const size_t b = detail::containerBytes(info);
            const Kind kind = detail::kindOf(info);
            if (b == kBadSize || b > v.dataSize - off - bytes || (t > i && v.key(t) <= v.key(t - 1)) ||
                (t == i && kind >= KindFull)) {
                bad_ = true;
                return;
            }
            if ((n_ + t - i) % kGroup == 0 && n_ + t - i > 0) {
                uint8_t* c = checks_.extend(4);
                if (!c) return;
                detail::store32(c, static_cast<uint32_t>(data_.size() + bytes));
            }
            const uint32_t key = v.key(t);
            if (kind == KindFull) {
                members += kChunkValues;
                runs_.add(key << 16, key << 16 | 0xffff);
            } else if (kind == KindFill) {
                members += uint64_t{key - uint32_t{v.key(t - 1)}} * kChunkValues;
                runs_.add((uint32_t{v.key(t - 1)} + 1) << 16, key << 16 | 0xffff);
            } else {
                const detail::Shape sh = detail::shapeOf(kind, v.data + off + bytes, detail::countOf(info));
                members += sh.members;
                runs_.add(key << 16 | sh.first, key << 16 | sh.last, sh.runs);
                runsBound_ |= sh.runs >= detail::kRunsCounted;
            }
            bytes += b;
        }
        uint8_t* e = dir_.extend(4 * size_t{j - i});
        uint8_t* d = data_.extend(bytes);
        if (!e || (bytes && !d)) return;
        std::memcpy(e, v.dir + 4 * size_t{i}, 4 * size_t{j - i});
        if (bytes) std::memcpy(d, v.data + off, bytes);
        n_ += j - i;
        card_ += members;
        lastKey_ = covered_ = v.key(j - 1);
        end = off + bytes;
    }

    // Chunk key holds the n places v, ascending.
    void values(uint32_t key, const uint16_t* v, uint32_t n) {
        if (n == 0) return;
        uint32_t r = 1;
        for (uint32_t i = 1; i < n; ++i) r += v[i] != v[i - 1] + 1;
        const Kind kind = detail::chooseKind(n, r);
        if (kind == KindArray) {
            uint8_t* p = begin(key, detail::makeInfo(KindArray, n), 2 * size_t{n});
            if (!p) return;
            for (uint32_t i = 0; i < n; ++i) detail::store16(p + 2 * i, v[i]);
        } else if (kind == KindRuns) {
            uint8_t* p = begin(key, detail::makeInfo(KindRuns, r), 4 * size_t{r});
            if (!p) return;
            uint32_t first = v[0];
            for (uint32_t i = 1; i <= n; ++i) {
                if (i < n && v[i] == v[i - 1] + 1) continue;
                detail::store16(p, static_cast<uint16_t>(first));
                detail::store16(p + 2, v[i - 1]);
                p += 4;
                if (i < n) first = v[i];
            }
        } else {
            uint8_t* p = begin(key, detail::makeInfo(KindBitmap, 1), kBitmapBytes);
            if (!p) return;
            std::memset(p, 0, kBitmapBytes);
            for (uint32_t i = 0; i < n; ++i) p[v[i] >> 3] |= static_cast<uint8_t>(1u << (v[i] & 7));
        }
        note(key, detail::Shape{n, r, v[0], v[n - 1]});
    }

    // Chunk key holds the nr runs r, ascending and apart.
    void runs(uint32_t key, const Run* r, uint32_t nr) {
        uint64_t n = 0;
        for (uint32_t i = 0; i < nr; ++i) n += detail::runLength(r[i].first, r[i].last);
        if (n == 0) return;
        if (n >= kChunkValues) return span(key, key);
        const Kind kind = detail::chooseKind(static_cast<uint32_t>(n), nr);
        if (kind == KindArray) {
            uint8_t* p = begin(key, detail::makeInfo(KindArray, static_cast<uint32_t>(n)), 2 * n);
            if (!p) return;
            for (uint32_t i = 0; i < nr; ++i)
                for (uint32_t x = r[i].first; x <= r[i].last; ++x, p += 2) detail::store16(p, static_cast<uint16_t>(x));
        } else if (kind == KindRuns) {
            uint8_t* p = begin(key, detail::makeInfo(KindRuns, nr), 4 * size_t{nr});
            if (!p) return;
            for (uint32_t i = 0; i < nr; ++i, p += 4) {
                detail::store16(p, r[i].first);
                detail::store16(p + 2, r[i].last);
            }
        } else {
            uint8_t* p = begin(key, detail::makeInfo(KindBitmap, 1), kBitmapBytes);
            if (!p) return;
            uint64_t w[kBitmapWords] = {};
            for (uint32_t i = 0; i < nr; ++i) detail::setRun(w, r[i].first, r[i].last);
            detail::storeWords(p, w);
        }
        note(key, detail::Shape{static_cast<uint32_t>(n), nr, r[0].first, r[nr - 1].last});
    }

    // Chunk key holds a op b, of two bitmaps as stored (b unread for Only):
    // one pass writes the words straight into the data area, where they stay
    // when they are the canonical container, and counts members and runs.
    template <detail::WordOp op>
    void bitmaps(uint32_t key, const uint8_t* a, const uint8_t* b) {
        uint8_t* const room = data_.room(kBitmapBytes);
        if (!room) return;
        const detail::BitStats st = detail::bitmapPass<op, true, true>(a, b, room);
        if (st.members == 0) return;
        if (st.members == kChunkValues) return span(key, key);
        detail::Shape sh{st.members, st.runs, 0, 0};
        detail::containerEnd(KindBitmap, room, 1, false, sh.first);
        detail::containerEnd(KindBitmap, room, 1, true, sh.last);
        const Kind kind = detail::chooseKind(st.members, st.runs);
        if (kind == KindBitmap) {
            // The room is where the container goes: begin() takes it without growing.
            if (begin(key, detail::makeInfo(KindBitmap, 1), kBitmapBytes)) note(key, sh);
            return;
        }
        uint64_t w[kBitmapWords];
        detail::loadWords(room, w);
        if (kind == KindArray) {
            uint8_t* p = begin(key, detail::makeInfo(KindArray, st.members), 2 * size_t{st.members});
            if (!p) return;
            for (uint32_t i = 0; i < kBitmapWords; ++i)
                for (uint64_t x = w[i]; x; x &= x - 1, p += 2)
                    detail::store16(p, static_cast<uint16_t>(64 * i + static_cast<uint32_t>(__builtin_ctzll(x))));
        } else {
            uint8_t* p = begin(key, detail::makeInfo(KindRuns, st.runs), 4 * size_t{st.runs});
            if (!p) return;
            uint32_t pos = 0;
            for (uint32_t k = 0; k < st.runs; ++k, p += 4) {
                const uint32_t first = nextBit(w, pos, false), last = nextBit(w, first, true) - 1;
                detail::store16(p, static_cast<uint16_t>(first));
                detail::store16(p + 2, static_cast<uint16_t>(last));
                pos = last + 1;
            }
        }
        note(key, sh);
    }

    // Room for about `bytes` of containers, taken at once rather than grown into.
    void reserve(size_t bytes) { data_.reserve(bytes); }

    // The payload, in a buffer of exactly headerRoom + its size from A: the
    // smaller layout, ties to the chunks, or the chunked layout when
    // chooseLayout is false.
    template <typename Poll = NoPoll>
    Status finish(size_t headerRoom, Encoded& out, Poll poll = {}, bool chooseLayout = true) {
        flushSpan();
        out = Encoded{};
        if (bad_) return Status::Corrupt;
        if (dir_.failed() || data_.failed() || checks_.failed()) return Status::OutOfMemory;
        const size_t size = n_ == 0 ? 1 : kHeaderSize + dir_.size() + checks_.size() + data_.size();
        // When runs_ may fall short of the set's runs, the list can still lose:
        // its size then needs them all, read back from the chunks.
        if (chooseLayout && n_ && kListHeaderSize + 8 * runs_.runs < size &&
            (!runsBound_ || kListHeaderSize + 8 * countRuns(poll) < size)) {
            const Status st = finishList(headerRoom, out, poll);
            if (st != Status::Corrupt) return st;
        }
        uint8_t* buffer = static_cast<uint8_t*>(A(headerRoom + size));
        if (!buffer) return Status::OutOfMemory;
        uint8_t* p = buffer + headerRoom;
        p[0] = kFormatChunks;
        if (n_) {
            detail::store64(p + 1, card_);
            detail::store16(p + 9, static_cast<uint16_t>(n_ - 1));
            size_t at = kHeaderSize;
            for (auto* b : {&dir_, &checks_, &data_}) {
                if (b->size()) std::memcpy(p + at, b->data(), b->size());
                at += b->size();
            }
        }
        out = Encoded{buffer, p, size};
        return Status::Ok;
    }

private:
    // The range list of the chunks written, read back from them. Corrupt when
    // they hold another number of runs than counted (chunks copied from a
    // payload that is not canonical): then the chunks are kept.
    template <typename Poll>
    Status finishList(size_t headerRoom, Encoded& out, Poll& poll) {
        RangeCursor cursor(written());
        const uint64_t n = runs_.runs;
        const size_t size = kListHeaderSize + 8 * n;
        uint8_t* buffer = static_cast<uint8_t*>(A(headerRoom + size));
        if (!buffer) return Status::OutOfMemory;
        uint8_t* p = buffer + headerRoom;
        p[0] = kFormatRanges;
        detail::store64(p + 1, card_);
        detail::Ticker<Poll> tick{poll};
        Range32 r;
        uint64_t k = 0;
        for (uint8_t* at = p + kListHeaderSize; k < n && cursor.next(r); ++k, at += 8, tick()) {
            detail::store32(at, static_cast<uint32_t>(r.lower));
            detail::store32(at + 4, static_cast<uint32_t>(r.upper));
        }
        if (k != n || cursor.next(r)) {
            F(buffer);
            return Status::Corrupt;
        }
        out = Encoded{buffer, p, size};
        return Status::Ok;
    }

    // The chunks written so far, as a payload's view.
    View written() {
        static const uint8_t none = 0;
        View v;
        v.n = n_;
        v.dir = dir_.data();
        v.checks = checks_.size() ? checks_.data() : &none;
        v.data = data_.size() ? data_.data() : &none;
        v.dataSize = data_.size();
        return v;
    }

    // The maximal runs of the chunks written, counted one by one into runs_
    // (as many as can be read of chunks that are not canonical).
    template <typename Poll>
    uint64_t countRuns(Poll& poll) {
        RangeCursor cursor(written());
        detail::Ticker<Poll> tick{poll};
        Range32 r;
        uint64_t k = 0;
        while (cursor.next(r)) ++k, tick();
        runs_.runs = k;
        runsBound_ = false;
        return k;
    }

    // A container written to chunk key: its members and runs counted.
    void note(uint32_t key, const detail::Shape& sh) {
        card_ += sh.members;
        runs_.add(key << 16 | sh.first, key << 16 | sh.last, sh.runs);
        runsBound_ |= sh.runs >= detail::kRunsCounted;
    }

    // The first place at or after pos whose bit is clear (set == true) or set
    // (set == false); 65536 when none.
    static uint32_t nextBit(const uint64_t* w, uint32_t pos, bool set) {
        if (pos >= kChunkValues) return kChunkValues;
        uint32_t i = pos >> 6;
        uint64_t x = (set ? ~w[i] : w[i]) & (~uint64_t{0} << (pos & 63));
        while (!x) {
            if (++i == kBitmapWords) return kChunkValues;
            x = set ? ~w[i] : w[i];
        }
        return 64 * i + static_cast<uint32_t>(__builtin_ctzll(x));
    }

    bool ordered(uint32_t lo) {
        if (int64_t{lo} > covered_ && lo < kChunkValues) return true;
        bad_ = true;
        return false;
    }

    bool entry(uint32_t key, uint16_t info) {
        if (n_ % kGroup == 0 && n_ > 0) {
            uint8_t* c = checks_.extend(4);
            if (!c) return false;
            detail::store32(c, static_cast<uint32_t>(data_.size()));
        }
        uint8_t* e = dir_.extend(4);
        if (!e) return false;
        detail::store16(e, static_cast<uint16_t>(key));
        detail::store16(e + 2, info);
        ++n_;
        lastKey_ = key;
        return true;
    }

    // Starts the container of chunk key: its entry, and room for its bytes.
    uint8_t* begin(uint32_t key, uint16_t info, size_t bytes) {
        if (!ordered(key)) return nullptr;
        flushSpan();
        covered_ = key;
        if (!entry(key, info)) return nullptr;
        return data_.extend(bytes);
    }

    void flushSpan() {
        if (!spanOpen_) return;
        spanOpen_ = false;
        if (lastKey_ >= 0 && uint32_t(lastKey_) + 1 == spanLo_) {
            entry(spanHi_, detail::makeInfo(KindFill, 1));
        } else {
            entry(spanLo_, detail::makeInfo(KindFull, 1));
            if (spanHi_ > spanLo_) entry(spanHi_, detail::makeInfo(KindFill, 1));
        }
        card_ += uint64_t{spanHi_ - spanLo_ + 1} * kChunkValues;
    }

    detail::ByteBuffer<A, F> dir_, checks_, data_;
    uint32_t n_ = 0;
    uint64_t card_ = 0;
    detail::RunCounter runs_;
    bool runsBound_ = false;  // runs_ may be below the runs (bitmaps counted in part)
    int64_t lastKey_ = -1;  // of the last entry written
    int64_t covered_ = -1;  // the highest chunk given so far
    bool spanOpen_ = false;
    uint32_t spanLo_ = 0, spanHi_ = 0;
    bool bad_ = false;
};

// Checks untrusted bytes: every length, offset and checkpoint, the order of
// keys, places, runs and ranges, the canonical form (of the layout, and the
// layout itself) and the stored cardinality. Reads nothing outside
// [data, data + size). Ok means every reader here accepts it and it is the one
// encoding of its set.
template <typename Poll = NoPoll>
Status validate(const uint8_t* data, size_t size, Poll poll = {}) {
    View v;
    const Status opened = v.open(data, size);
    if (opened != Status::Ok || v.empty()) return opened;
    detail::Ticker<Poll> tick{poll};
    uint64_t total = 0;
    if (v.isList()) {
        detail::ChunkedFloor floor;
        for (uint64_t i = 0; i < v.ranges; ++i, tick()) {
            const int32_t lo = v.lower(i), hi = v.upper(i);
            if (hi < lo || (i > 0 && int64_t{lo} < int64_t{v.upper(i - 1)} + 2)) return Status::BadContainer;
            floor.add(toUnsigned(lo), toUnsigned(hi));
            total += static_cast<uint64_t>(int64_t{hi} - lo + 1);
        }
        if (total != v.card) return Status::BadCardinality;
        const auto range = [&v](uint64_t i) { return Range32{v.lower(i), v.upper(i)}; };
        return detail::listSmaller(v.ranges, floor.bytes(), range, poll) ? Status::Ok : Status::NotCanonical;  // ties go to the chunks
    }
    size_t off = 0;
    detail::RunCounter maximal;
    for (uint32_t i = 0; i < v.n; ++i) {
        if (i % kGroup == 0 && i > 0 && detail::load32(v.checks + 4 * size_t{i / kGroup - 1}) != off)
            return Status::BadCheckpoint;
        const uint16_t info = v.info(i);
        const uint32_t key = v.key(i), count = detail::countOf(info);
        const Kind kind = detail::kindOf(info);
        const size_t bytes = detail::containerBytes(info);
        if (bytes == kBadSize) return Status::BadEntry;
        if (i > 0 && key <= v.key(i - 1)) return Status::BadOrder;
        if (bytes > v.dataSize - off) return Status::BadLength;
        const uint8_t* c = v.data + off;
        uint32_t members = 0, runs = 0;
        switch (kind) {
            case KindArray:
                for (uint32_t k = 1; k < count; ++k) {
                    const uint32_t prev = detail::load16(c + 2 * k - 2), cur = detail::load16(c + 2 * k);
                    if (cur <= prev) return Status::BadContainer;
                    runs += cur != prev + 1;
                }
                members = count;
                ++runs;
                break;
            case KindRuns:
                for (uint32_t k = 0; k < count; ++k) {
                    const uint32_t first = detail::load16(c + 4 * k), last = detail::load16(c + 4 * k + 2);
                    if (last < first || (k > 0 && first < uint32_t{detail::load16(c + 4 * k - 2)} + 2))
                        return Status::BadContainer;
                    members += last - first + 1;
                }
                runs = count;
                if (members == kChunkValues) return Status::NotCanonical;
                break;
            case KindBitmap: {
                const detail::BitStats st = detail::bitStats(c);
                if (st.members == 0 || st.members == kChunkValues) return Status::NotCanonical;
                members = st.members;
                runs = st.runs;
                break;
            }
            case KindFull:
                if (i > 0 && uint32_t{v.key(i - 1)} + 1 == key) return Status::NotCanonical;
                total += kChunkValues;
                maximal.add(key << 16, key << 16 | 0xffff);
                break;
            default:  // fill
                if (i == 0 || detail::kindOf(v.info(i - 1)) == KindFill) return Status::NotCanonical;
                total += uint64_t{key - v.key(i - 1)} * kChunkValues;
                maximal.add((uint32_t{v.key(i - 1)} + 1) << 16, key << 16 | 0xffff);
                break;
        }
        if (kind <= KindBitmap) {
            if (detail::chooseKind(members, runs) != kind) return Status::NotCanonical;
            total += members;
            uint32_t first = 0, last = 0;
            detail::containerEnd(kind, c, count, false, first);
            detail::containerEnd(kind, c, count, true, last);
            maximal.add(key << 16 | first, key << 16 | last, runs);
        }
        off += bytes;
        tick(bytes / 8 + 1);
    }
    if (off != v.dataSize) return Status::BadLength;
    if (total != v.card) return Status::BadCardinality;
    // The range list when smaller: ties go to the chunks.
    return kListHeaderSize + 8 * maximal.runs < size ? Status::NotCanonical : Status::Ok;
}

namespace detail {

// Gives a writer the chunks of n normalised ranges, range(i) the i-th
// (NotNormalised when they are not).
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename RangeAt, typename Poll>
Status writeChunks(uint64_t n, RangeAt range, Writer<A, F>& w, Poll& poll) {
    // A chunk holds at most 32,768 runs of a normalised list, and one more than its ranges.
    const uint64_t room = n < kChunkValues / 2 ? n + 1 : kChunkValues / 2;
    Run* runs = n == 0 ? nullptr : static_cast<Run*>(A(sizeof(Run) * room));
    if (n && !runs) return Status::OutOfMemory;
    uint32_t nr = 0, key = 0;
    auto flush = [&] {
        w.runs(key, runs, nr);
        nr = 0;
    };
    auto add = [&](uint32_t k, uint32_t lo, uint32_t hi) {
        if (k != key) flush();
        key = k;
        runs[nr++] = Run{static_cast<uint16_t>(lo), static_cast<uint16_t>(hi)};
    };
    Ticker<Poll> tick{poll};
    Range32 prev{0, 0};
    for (uint64_t i = 0; i < n; ++i, tick()) {
        const Range32 r = range(i);
        if (r.lower > r.upper || (i > 0 && int64_t{r.lower} < int64_t{prev.upper} + 2)) {
            F(runs);
            return Status::NotNormalised;
        }
        prev = r;
        const uint32_t lo = toUnsigned(r.lower), hi = toUnsigned(r.upper);
        const uint32_t kl = lo >> 16, kh = hi >> 16;
        if (kl == kh) {
            add(kl, lo & 0xffff, hi & 0xffff);
        } else {
            add(kl, lo & 0xffff, 0xffff);
            if (kh > kl + 1) {
                flush();
                w.span(kl + 1, kh - 1);
            }
            add(kh, 0, hi & 0xffff);
        }
    }
    if (nr) flush();
    if (runs) F(runs);
    return Status::Ok;
}

// The payload of n normalised ranges in the chunked layout, whether or not
// the range list would be smaller: for the algorithms that walk chunks.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename RangeAt, typename Poll>
Status encodeChunks(uint64_t n, RangeAt range, size_t headerRoom, Encoded& out, Poll& poll) {
    out = Encoded{};
    Writer<A, F> w;
    const Status st = writeChunks<A, F>(n, range, w, poll);
    return st == Status::Ok ? w.finish(headerRoom, out, poll, false) : st;
}

// The canonical payload of n ranges, range(i) the i-th: a pass over the
// ranges checks that they are normalised, counts their members and sizes the
// chunked layout (listSmaller), then the smaller layout is written.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename RangeAt, typename Poll>
Status encodeCanonical(uint64_t n, RangeAt range, size_t headerRoom, Encoded& out, Poll& poll) {
    out = Encoded{};
    ChunkedFloor floor;
    uint64_t card = 0;
    Ticker<Poll> tick{poll};
    int64_t prevUpper = 0;
    for (uint64_t i = 0; i < n; ++i, tick()) {
        const Range32 r = range(i);
        if (r.lower > r.upper || (i > 0 && int64_t{r.lower} < prevUpper + 2)) return Status::NotNormalised;
        prevUpper = r.upper;
        floor.add(toUnsigned(r.lower), toUnsigned(r.upper));
        card += static_cast<uint64_t>(int64_t{r.upper} - r.lower + 1);
    }
    if (!listSmaller(n, floor.bytes(), range, poll)) return encodeChunks<A, F>(n, range, headerRoom, out, poll);
    const size_t size = kListHeaderSize + 8 * n;
    auto* buffer = static_cast<uint8_t*>(A(headerRoom + size));
    if (!buffer) return Status::OutOfMemory;
    uint8_t* p = buffer + headerRoom;
    p[0] = kFormatRanges;
    store64(p + 1, card);
    uint8_t* at = p + kListHeaderSize;
    for (uint64_t i = 0; i < n; ++i, at += 8, tick()) {
        const Range32 r = range(i);
        store32(at, static_cast<uint32_t>(r.lower));
        store32(at + 4, static_cast<uint32_t>(r.upper));
    }
    out = Encoded{buffer, p, size};
    return Status::Ok;
}

}  // namespace detail

// The payload of a normalised range list: ascending, lower <= upper, and at
// least one integer left out between neighbours (NotNormalised otherwise).
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status encodeRanges(const Range32* first, const Range32* last, size_t headerRoom, Encoded& out, Poll poll = {}) {
    return detail::encodeCanonical<A, F>(static_cast<uint64_t>(last - first), [first](uint64_t i) { return first[i]; },
                                         headerRoom, out, poll);
}

// The payload of ranges in any order, overlapping, repeated or inverted (an
// inverted range holds nothing); the list is normalised in place first.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status buildFromRanges(Range32* ranges, uint64_t n, size_t headerRoom, Encoded& out, Poll poll = {}) {
    out = Encoded{};
    const int64_t kept = qn::pgRangeArray::normaliseRanges<A, F>(ranges, n, poll);
    if (kept < 0) return Status::OutOfMemory;
    return encodeRanges<A, F>(ranges, ranges + kept, headerRoom, out, poll);
}

// The payload of members in any order, repeats allowed.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status buildFromMembers(const int32_t* members, uint64_t n, size_t headerRoom, Encoded& out, Poll poll = {}) {
    out = Encoded{};
    if (n > ~size_t{0} / sizeof(Range32)) return Status::OutOfMemory;
    auto* ranges = static_cast<Range32*>(A(n ? n * sizeof(Range32) : 1));
    if (!ranges) return Status::OutOfMemory;
    detail::Ticker<Poll> tick{poll};
    for (uint64_t i = 0; i < n; ++i) {
        ranges[i] = Range32{members[i], members[i]};
        tick();
    }
    const Status s = buildFromRanges<A, F>(ranges, n, headerRoom, out, poll);
    F(ranges);
    return s;
}

// The payload of n members in any order, repeats allowed, 1 <= n < 2^32 (n = 0
// gives the empty set), reordering them in place: one radix sort of the values
// themselves (4 bytes each, against 8 for a range of each), then each chunk's
// distinct places straight into its container. Needs 4 n bytes of scratch and
// 128 kB for the places of a chunk.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status buildFromValues(int32_t* values, uint64_t n, size_t headerRoom, Encoded& out, Poll poll = {}) {
    out = Encoded{};
    Writer<A, F> w;
    if (n == 0) return w.finish(headerRoom, out, poll);
    if (n > uint64_t{UINT32_MAX} || n > ~size_t{0} / sizeof(uint32_t)) return Status::OutOfMemory;
    auto* scratch = static_cast<uint32_t*>(A(n * sizeof(uint32_t)));
    auto* places = static_cast<uint16_t*>(A(kChunkValues * sizeof(uint16_t)));
    if (!scratch || !places) {
        if (scratch) F(scratch);
        if (places) F(places);
        return Status::OutOfMemory;
    }
    // int32_t and uint32_t may alias: the keys are the values' bits in unsigned order.
    auto* bits = reinterpret_cast<uint32_t*>(values);
    auto key = [](uint32_t b) { return b ^ 0x80000000u; };
    qn::pgRangeArray::RadixDigits digits;
    digits.count(bits, n, key, poll);
    const uint32_t* sorted = digits.distribute(bits, scratch, bits, n, key, poll);
    detail::Ticker<Poll> tick{poll};
    uint32_t chunk = key(sorted[0]) >> 16, m = 0;
    auto flush = [&] {
        if (m == kChunkValues) {
            w.span(chunk, chunk);
        } else {
            w.values(chunk, places, m);
        }
        m = 0;
    };
    for (uint64_t i = 0; i < n; ++i, tick()) {
        const uint32_t u = key(sorted[i]);
        if (u >> 16 != chunk) {
            flush();
            chunk = u >> 16;
        }
        const auto place = static_cast<uint16_t>(u);
        if (m == 0 || places[m - 1] != place) places[m++] = place;
    }
    flush();
    F(places);
    F(scratch);
    return w.finish(headerRoom, out, poll);
}

// Appends the ranges of a payload to out (normalised, ascending).
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status decodeRanges(const uint8_t* data, size_t size, qn::pgRangeArray::RangeVector<int32_t, A, F>& out,
                    Poll poll = {}) {
    RangeCursor cursor(data, size);
    detail::Ticker<Poll> tick{poll};
    Range32 r;
    while (cursor.next(r)) {
        const uint64_t before = out.size();
        out.push_back(r);
        if (out.size() != before + 1) return Status::OutOfMemory;
        tick();
    }
    return cursor.status();
}

// The stored cardinality (the validator checks it; nothing is counted here).
inline Status cardinality(const uint8_t* data, size_t size, uint64_t& out) {
    View v;
    const Status s = v.open(data, size);
    out = v.card;
    return s;
}

// The cardinality from the first bytes of a payload alone (at least 9 of them,
// or the whole payload when it is shorter): what a caller reads of a large
// stored value without fetching the rest. Nothing else is checked.
constexpr size_t kCardinalityPrefix = 9;
inline Status prefixCardinality(const uint8_t* prefix, size_t size, uint64_t& out) {
    out = 0;
    if (size == 0) return Status::Truncated;
    if (prefix[0] != kFormatChunks && prefix[0] != kFormatRanges) return Status::BadVersion;
    if (size == 1) return prefix[0] == kFormatChunks ? Status::Ok : Status::Truncated;
    if (size < kCardinalityPrefix) return Status::Truncated;
    out = detail::load64(prefix + 1);
    return Status::Ok;
}

inline Status isEmpty(const uint8_t* data, size_t size, bool& out) {
    View v;
    const Status s = v.open(data, size);
    out = v.empty();
    return s;
}

namespace detail {

inline Status extreme(const uint8_t* data, size_t size, bool highest, bool& found, int32_t& out) {
    View v;
    found = false;
    const Status s = v.open(data, size);
    if (s != Status::Ok || v.empty()) return s;
    if (v.isList()) {
        out = highest ? v.upper(v.ranges - 1) : v.lower(0);
        found = true;
        return Status::Ok;
    }
    const uint32_t i = highest ? v.n - 1 : 0;
    const uint16_t info = v.info(i);
    const size_t bytes = containerBytes(info);
    if (bytes == kBadSize || bytes > v.dataSize || (!highest && kindOf(info) == KindFill)) return Status::Corrupt;
    const uint8_t* c = v.data + (highest ? v.dataSize - bytes : 0);
    uint32_t place = 0;
    if (!containerEnd(kindOf(info), c, countOf(info), highest, place)) return Status::Corrupt;
    out = fromUnsigned(uint32_t{v.key(i)} << 16 | place);
    found = true;
    return Status::Ok;
}

}  // namespace detail

// The least and the greatest member; found is false for the empty set.
inline Status minMember(const uint8_t* data, size_t size, bool& found, int32_t& out) {
    return detail::extreme(data, size, false, found, out);
}
inline Status maxMember(const uint8_t* data, size_t size, bool& found, int32_t& out) {
    return detail::extreme(data, size, true, found, out);
}

}  // namespace qn::int4set
