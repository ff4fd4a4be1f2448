// Shared by the libFuzzer targets: a reader of the fuzzer's bytes, range lists from
// them, exactly sized heap copies (ASan sees any read past a value), and the models:
// integer sets as canonical int64 intervals, and bit vectors.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "qnPgRangeArray.h"
#include "quenloPgBitField.h"

namespace fz {

using R = qn::pgRangeArray::Range<int32_t>;
using RV = qn::pgRangeArray::RangeVector<int32_t, malloc, free>;
using IV = qn::pg::tVector<int32_t, malloc, free>;

// A finding: prints what failed and aborts, which libFuzzer reports with the input.
[[noreturn]] inline void fail(const char* what, const char* file, int line) {
    std::fprintf(stderr, "fuzz check failed at %s:%d: %s\n", file, line, what);
    std::abort();
}
#define FZ_CHECK(cond)                                    \
    do {                                                  \
        if (!(cond)) fz::fail(#cond, __FILE__, __LINE__); \
    } while (0)

// Consumes the input front to back; past its end every read gives zeros.
class Reader {
public:
    Reader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}

    size_t remaining() const { return static_cast<size_t>(end_ - p_); }
    bool empty() const { return p_ == end_; }

    uint8_t u8() { return p_ != end_ ? *p_++ : 0; }
    uint16_t u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }
    uint32_t u32() { return u16() | (uint32_t{u16()} << 16); }
    int32_t i32() { return static_cast<int32_t>(u32()); }
    uint64_t u64() { return u32() | (uint64_t{u32()} << 32); }

    // The next n bytes (fewer at the end of the input).
    std::vector<uint8_t> bytes(size_t n) {
        n = std::min(n, remaining());
        std::vector<uint8_t> v(p_, p_ + n);
        p_ += n;
        return v;
    }

    // Little-endian int32 words: n of them, or all that are left when n is larger.
    std::vector<int32_t> words(size_t n) {
        n = std::min(n, remaining() / 4);
        std::vector<int32_t> v(n);
        for (auto& w : v) w = i32();
        return v;
    }

private:
    const uint8_t* p_;
    const uint8_t* end_;
};

// The next number of a splitmix64 sequence whose state is s: many values from a
// few bytes of input.
inline uint64_t splitmix64(uint64_t& s) {
    uint64_t x = (s += 0x9e3779b97f4a7c15ull);
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
    return x ^ (x >> 31);
}

// Values in a heap array of exactly their number: a read one past it is an ASan report.
template <typename T>
struct Exact {
    std::unique_ptr<T[]> data;
    size_t count;

    explicit Exact(const std::vector<T>& v) : data(new T[v.empty() ? 1 : v.size()]), count(v.size()) {
        std::copy(v.begin(), v.end(), data.get());
    }
    T* get() const { return count ? data.get() : nullptr; }
    const T* begin() const { return data.get(); }
    const T* end() const { return data.get() + count; }
    const R* rangesBegin() const { return reinterpret_cast<const R*>(data.get()); }
    const R* rangesEnd() const { return rangesBegin() + count * sizeof(T) / sizeof(R); }
};
using Bytes = Exact<uint8_t>;
using Words = Exact<int32_t>;

inline std::vector<int32_t> flatten(const std::vector<R>& list) {
    std::vector<int32_t> w;
    for (const R& r : list) w.insert(w.end(), {r.lower, r.upper});
    return w;
}

// A normalised list: a start anywhere on the int32 line, then gaps and lengths
// scaled by a per-list factor, so lists reach from dense runs of single values
// to ranges that span most of the line. Stops before a bound would pass INT32_MAX.
inline std::vector<R> normalisedList(Reader& in, size_t maxRanges) {
    static constexpr int64_t kScales[4] = {1, 97, 65537, 16777259};
    const uint8_t head = in.u8();
    const int64_t scale = kScales[head & 3];
    const size_t n = std::min<size_t>(in.u8(), maxRanges);
    int64_t next = (head & 4) ? int64_t{INT32_MIN} + in.u8() : int64_t{in.i32()};
    std::vector<R> list;
    for (size_t i = 0; i < n && !in.empty(); ++i) {
        const uint8_t g = in.u8(), l = in.u8();
        const int64_t lower = next + (g & 0x80 ? (g & 0x7f) * scale : g);
        const int64_t upper = lower + (l & 0x80 ? (l & 0x7f) * scale : l);
        if (upper > INT32_MAX) break;
        list.push_back(R{static_cast<int32_t>(lower), static_cast<int32_t>(upper)});
        next = upper + 2;
    }
    return list;
}

// Arbitrary pairs: unsorted, overlapping, inverted, anything.
inline std::vector<R> rawList(Reader& in, size_t maxRanges) {
    const size_t n = std::min<size_t>(in.u8(), maxRanges);
    std::vector<R> list;
    for (size_t i = 0; i < n && in.remaining() >= 8; ++i) {
        const int32_t lower = in.i32();
        list.push_back(R{lower, in.i32()});
    }
    return list;
}

// One of the two, by a selector byte: mostly normalised.
inline std::vector<R> someList(Reader& in, size_t maxRanges, bool& normalised) {
    normalised = in.u8() % 4 != 0;
    return normalised ? normalisedList(in, maxRanges) : rawList(in, maxRanges);
}

// The set model: canonical int64 intervals (sorted, disjoint, not adjacent).
using Interval = std::pair<int64_t, int64_t>;
using Intervals = std::vector<Interval>;

// The members of a list of ranges as canonical intervals; inverted ranges hold nothing.
inline Intervals canonical(const R* first, const R* last) {
    Intervals v;
    for (; first != last; ++first)
        if (first->lower <= first->upper) v.emplace_back(first->lower, first->upper);
    std::sort(v.begin(), v.end());
    Intervals out;
    for (const Interval& i : v) {
        if (!out.empty() && i.first <= out.back().second + 1)
            out.back().second = std::max(out.back().second, i.second);
        else
            out.push_back(i);
    }
    return out;
}
inline Intervals canonical(const std::vector<R>& list) { return canonical(list.data(), list.data() + list.size()); }

inline bool contains(const Intervals& s, int64_t v) {
    auto it = std::upper_bound(s.begin(), s.end(), Interval{v, INT64_MAX});
    return it != s.begin() && std::prev(it)->second >= v;
}

enum class SetOp { Union = 1, Intersection = 2, Exclusion = 3 };

// a OP b, decided per elementary segment between the bounds of both sets.
inline Intervals setOp(SetOp op, const Intervals& a, const Intervals& b) {
    std::vector<int64_t> cuts;
    for (const Intervals* s : {&a, &b})
        for (const Interval& i : *s) cuts.insert(cuts.end(), {i.first, i.second + 1});
    std::sort(cuts.begin(), cuts.end());
    cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());
    Intervals out;
    for (size_t k = 0; k + 1 < cuts.size(); ++k) {
        const bool inA = contains(a, cuts[k]), inB = contains(b, cuts[k]);
        const bool keep = op == SetOp::Union ? inA || inB : op == SetOp::Intersection ? inA && inB : inA && !inB;
        if (!keep) continue;
        if (!out.empty() && out.back().second + 1 == cuts[k])
            out.back().second = cuts[k + 1] - 1;
        else
            out.emplace_back(cuts[k], cuts[k + 1] - 1);
    }
    return out;
}

// A list read back as intervals exactly as it stands (no merging).
inline Intervals asIntervals(const R* first, const R* last) {
    Intervals v;
    for (; first != last; ++first) v.emplace_back(first->lower, first->upper);
    return v;
}
inline Intervals asIntervals(const RV& list) { return asIntervals(list.begin(), list.end()); }

// All bounds lie within INT32_MAX of each other: no difference of two bounds wraps
// in 32 bits, so the kernels' deliberate wrap-around never comes into play.
inline bool withinOneSpan(std::initializer_list<const std::vector<R>*> lists) {
    int64_t lo = INT64_MAX, hi = INT64_MIN;
    for (const auto* l : lists)
        for (const R& r : *l) {
            lo = std::min<int64_t>({lo, r.lower, r.upper});
            hi = std::max<int64_t>({hi, r.lower, r.upper});
        }
    return lo > hi || hi - lo <= INT32_MAX;
}

// The int4[] forms of a set: 's' members, 'r' [lower, upper] pairs, 'm' a count
// word, then members and ranges whose lower bound carries the sign bit.
using qn::pgRangeArray::ArrayDataTypeMixArray;
using qn::pgRangeArray::ArrayDataTypeRangeArray;
using qn::pgRangeArray::ArrayDataTypeSet;

// The runs the words stand for, as they stand (unsorted and inverted runs kept); an
// odd last word of 'r' and a mix range without its upper are left out.
inline Intervals runsOf(uint32_t form, const std::vector<int32_t>& w) {
    Intervals runs;
    const size_t first = form == ArrayDataTypeMixArray ? 1 : 0;
    for (size_t i = first; i < w.size(); ++i) {
        if (form == ArrayDataTypeSet || (form == ArrayDataTypeMixArray && w[i] >= 0))
            runs.emplace_back(w[i], w[i]);
        else if (i + 1 < w.size()) {
            const int32_t lower = form == ArrayDataTypeMixArray ? w[i] & 0x7fffffff : w[i];
            runs.emplace_back(lower, w[++i]);
        }
    }
    return runs;
}

// The words of the runs in form `form` ('s' lists every member); `count` is a mix array's count word.
inline std::vector<int32_t> wordsOf(uint32_t form, const Intervals& runs, int32_t count) {
    std::vector<int32_t> w;
    if (form == ArrayDataTypeMixArray) w.push_back(count);
    for (const auto& [l, u] : runs) {
        if (form == ArrayDataTypeSet) {
            for (int64_t v = l; v <= u; ++v) w.push_back(static_cast<int32_t>(v));
        } else if (form == ArrayDataTypeMixArray && l == u) {
            w.push_back(static_cast<int32_t>(l));
        } else {
            w.push_back(static_cast<int32_t>(form == ArrayDataTypeMixArray ? (l | 0x80000000u) : l));
            w.push_back(static_cast<int32_t>(u));
        }
    }
    return w;
}

// The bit buffer as the server has it: a failure does not return (here it
// throws), and the allocator refuses what it would not give (here above 1 MB).

struct BufferFailure {
    qn::bitfield::BitBufferError error;
};
inline void failBuffer(qn::bitfield::BitBufferError e) { throw BufferFailure{e}; }
inline void* cappedAlloc(size_t bytes) { return bytes > (1u << 20) ? nullptr : malloc(bytes); }
using Buffer = qn::bitfield::BitBuffer<cappedAlloc, free, failBuffer>;

// The bit model: bit p of a bit string, most significant bit of each byte first.

inline bool bitAt(const uint8_t* bits, uint64_t p) { return (bits[p >> 3] >> (7 - (p & 7))) & 1; }

}  // namespace fz
