// int4set payloads against a model of canonical int64 intervals: the line's
// ends, each container kind and the moves between them, the choice of layout,
// canonical form (one set, one payload, and the validator refusing every
// other) and allocation failures. The algebra, the order and the text on random
// sets of every shape are fuzz_int4set's (text faults also int4set.sql's).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "qnPgInt4SetOps.h"
#include "qnPgInt4SetText.h"

namespace {

using namespace qn::int4set;
using Interval = std::pair<int64_t, int64_t>;
using Model = std::vector<Interval>;  // sorted, disjoint, not adjacent
using Bytes = std::vector<uint8_t>;

const int64_t kMin = INT32_MIN, kMax = INT32_MAX;

Model canonical(Model v) {
    std::sort(v.begin(), v.end());
    Model out;
    for (const Interval& i : v)
        if (!out.empty() && i.first <= out.back().second + 1)
            out.back().second = std::max(out.back().second, i.second);
        else
            out.push_back(i);
    return out;
}

bool has(const Model& m, int64_t v) {
    auto it = std::upper_bound(m.begin(), m.end(), Interval{v, INT64_MAX});
    return it != m.begin() && std::prev(it)->second >= v;
}

Bytes own(Encoded e) {
    Bytes b(e.payload, e.payload + e.size);
    std::free(e.buffer);
    return b;
}

Bytes encode(const Model& m) {
    std::vector<Range32> r;
    for (const Interval& i : m) r.push_back(Range32{static_cast<int32_t>(i.first), static_cast<int32_t>(i.second)});
    Encoded e;
    EXPECT_EQ((encodeRanges<malloc, free>(r.data(), r.data() + r.size(), 4, e)), Status::Ok);
    EXPECT_EQ(e.payload, e.buffer + 4);
    return own(e);
}

Model decode(const Bytes& b) {
    qn::pgRangeArray::RangeVector<int32_t, malloc, free> v;
    EXPECT_EQ(decodeRanges(b.data(), b.size(), v), Status::Ok);
    Model m;
    for (const Range32& r : v) m.emplace_back(r.lower, r.upper);
    return m;
}

std::string text(const Bytes& b) {
    Text t;
    EXPECT_EQ((formatText<malloc, free>(b.data(), b.size(), t)), Status::Ok);
    const std::string s(t.chars, t.length);
    std::free(t.chars);
    return s;
}

ParseResult parse(const std::string& s, Bytes& out) {
    Encoded e;
    const ParseResult r = parseText<malloc, free>(s.data(), s.size(), 0, e);
    if (r.error == TextError::None) out = own(e);
    return r;
}

Bytes op(int which, const Bytes& a, const Bytes& b) {
    Encoded e;
    auto f = which == 0 ? unite<malloc, free, NoPoll> : which == 1 ? intersect<malloc, free, NoPoll> : subtract<malloc, free, NoPoll>;
    EXPECT_EQ(f(a.data(), a.size(), b.data(), b.size(), 0, e, {}), Status::Ok);
    return own(e);
}

// The kinds of the directory entries, one letter each: a(rray) r(uns) b(itmap)
// F(ull) f(ill); "L" for a range list.
std::string kinds(const Bytes& b) {
    View v;
    EXPECT_EQ(v.open(b.data(), b.size()), Status::Ok);
    if (v.isList()) return "L";
    std::string s;
    for (uint32_t i = 0; i < v.n; ++i) s += "arbFf"[v.info(i) >> 12];
    return s;
}

// m in the chunked layout, whether or not the range list is smaller.
Bytes chunks(const Model& m) {
    std::vector<Range32> r;
    for (const Interval& i : m) r.push_back(Range32{static_cast<int32_t>(i.first), static_cast<int32_t>(i.second)});
    Encoded e;
    NoPoll none;
    EXPECT_EQ((detail::encodeChunks<malloc, free>(r.size(), [&](uint64_t i) { return r[i]; }, 0, e, none)), Status::Ok);
    return own(e);
}

// The payload of m: valid, decodes to m, its cardinality, least and greatest
// member, members at the ends, middle and sides of each range, and its text.
void expectSame(const Bytes& b, const Model& m) {
    ASSERT_EQ(validate(b.data(), b.size()), Status::Ok);
    ASSERT_EQ(decode(b), m);
    uint64_t card = 0, count = 0;
    cardinality(b.data(), b.size(), card);
    for (const Interval& i : m) count += static_cast<uint64_t>(i.second - i.first + 1);
    EXPECT_EQ(card, count);
    bool found = false, in = false;
    int32_t lo = 0, hi = 0;
    minMember(b.data(), b.size(), found, lo);
    EXPECT_EQ(found, !m.empty());
    maxMember(b.data(), b.size(), found, hi);
    EXPECT_TRUE(!found || Interval(lo, hi) == Interval(m.front().first, m.back().second));
    for (const Interval& i : m) {
        for (int64_t v : {i.first - 1, i.first, (i.first + i.second) / 2, i.second, i.second + 1})
            if (v >= INT32_MIN && v <= INT32_MAX) {
                EXPECT_EQ(containsValue(b.data(), b.size(), static_cast<int32_t>(v), in), Status::Ok);
                EXPECT_EQ(in, has(m, v)) << v;
            }
        const auto range = [&](int64_t lo, int64_t hi) {
            EXPECT_EQ(containsRange(b.data(), b.size(), static_cast<int32_t>(lo), static_cast<int32_t>(hi), in), Status::Ok);
            return in;
        };
        EXPECT_TRUE(range(i.first, i.second));
        EXPECT_TRUE(i.first == kMin || !range(i.first - 1, i.second));
        EXPECT_TRUE(i.second == kMax || !range(i.first, i.second + 1));
        const auto meets = [&](int64_t lo, int64_t hi) {
            EXPECT_EQ(meetsRange(b.data(), b.size(), static_cast<int32_t>(std::max(lo, kMin)),
                                 static_cast<int32_t>(std::min(hi, kMax)), in), Status::Ok);
            return in;
        };
        EXPECT_TRUE(meets(i.second, i.second) && meets(i.first - 70000, i.first) && meets(i.second, i.second + 70000));
        // The gap after the range, across chunks when it is long.
        const int64_t next = &i == &m.back() ? kMax + 1 : (&i)[1].first;
        EXPECT_TRUE(i.second + 1 > next - 1 || !meets(i.second + 1, next - 1));
    }
    Bytes again;
    ASSERT_EQ(parse(text(b), again).error, TextError::None);
    EXPECT_EQ(again, b);
}

TEST(Int4Set, LineEnds) {
    const Model whole{{kMin, kMax}};
    for (const Model& m : {Model{}, Model{{kMin, kMin}}, Model{{kMax, kMax}}, whole, Model{{kMin, kMin}, {kMax, kMax}},
                           Model{{kMin, kMin + 65535}}, Model{{kMax - 65535, kMax}}, Model{{kMin + 1, kMax - 1}},
                           Model{{-1, 0}}, Model{{kMin, -65537}, {-65535, kMax}}})
        expectSame(encode(m), m);
    EXPECT_EQ(encode(Model{}), Bytes{kFormatChunks});
    const Bytes all = encode(whole);
    EXPECT_EQ(all.size(), 17u);  // a range list of one range (19 bytes in chunks)
    EXPECT_EQ(text(all), "{-2147483648..2147483647}");
    const Bytes ends = encode({{kMin, kMin}, {kMax, kMax}});
    EXPECT_EQ(kinds(ends), "aa");
    EXPECT_EQ(op(2, all, ends), encode({{kMin + 1, kMax - 1}}));
    EXPECT_EQ(op(0, op(2, all, ends), ends), all);
    bool in = false;
    EXPECT_EQ(containsRange(all.data(), all.size(), kMin, kMax, in), Status::Ok);
    EXPECT_TRUE(in);
    containsRange(ends.data(), ends.size(), kMin, kMin + 1, in);
    EXPECT_FALSE(in);
    // A span of b's reaching past one of a's, though a has more members.
    const Bytes allButZero = op(2, all, encode({{0, 0}})), aroundZero = encode({{-131072, 131071}});
    EXPECT_EQ((containsSet<malloc, free>(allButZero.data(), allButZero.size(), aroundZero.data(), aroundZero.size(), in)),
              Status::Ok);
    EXPECT_FALSE(in);

    MemberCursor c(ends.data(), ends.size());
    int32_t v = 0, w = 0;
    EXPECT_TRUE(c.next(v) && c.next(w) && !c.next(w));
    EXPECT_EQ(Interval(v, w), Interval(kMin, kMax));
}

// Models of places; chunk 32768 holds 0..65535.
Model places(std::initializer_list<Interval> runs) { return canonical(Model(runs)); }
Model lone(int64_t from, int64_t n, int64_t step) {
    Model m;
    for (int64_t i = 0; i < n; ++i) m.emplace_back(from + i * step, from + i * step);
    return m;
}
Model spaced(int64_t from, int64_t runs, int64_t length, int64_t step) {
    Model m;
    for (int64_t i = 0; i < runs; ++i) m.emplace_back(from + i * step, from + i * step + length - 1);
    return m;
}

TEST(Int4Set, ContainerKindsAtTheirBounds) {
    const std::pair<Model, const char*> cases[] = {
        {lone(0, 4096, 2), "a"},                   // 8,192 bytes as an array: ties go to the array
        {lone(0, 4097, 2), "b"},                   // one more: a bitmap
        {spaced(0, 2, 2, 4), "a"},                 // array 8 bytes, runs 8 bytes
        {spaced(0, 2, 3, 5), "r"},                 // array 12, runs 8
        {spaced(0, 2047, 3, 5), "r"},              // runs 8,188 bytes
        {spaced(0, 2048, 3, 5), "b"},              // runs 8,192: the bitmap
        {places({{0, 65535}}), "F"},               // a full chunk
        {places({{0, 65535 * 3 + 2}}), "Ff"},      // full chunks 0..2
        {places({{-5, 65536 * 2 + 3}}), "rfr"},    // a partial chunk on each side
        {places({{-5, 65535}}), "rf"},             // the span ends at a chunk's end
        {places({{0, 65536 + 4}}), "Fr"},          // the span is a single full chunk
        {places({{-65537, -65537}, {0, 65535}}), "aF"},  // a gap between
    };
    for (const auto& [m, expected] : cases) {
        EXPECT_EQ(kinds(chunks(m)), expected) << text(encode(m));
        expectSame(encode(m), m);
    }
}

TEST(Int4Set, ChunksMoveBetweenKinds) {
    // 100 lone members far off keep every set here in chunks (the last entry, "a").
    const Model anchor = lone(1 << 24, 100, 2);
    auto with = [&](Model m) {
        m.insert(m.end(), anchor.begin(), anchor.end());
        return canonical(m);
    };
    const Bytes evens = encode(with(lone(0, 3000, 2))), odds = encode(with(lone(1, 3000, 2)));
    const Bytes both = op(0, evens, odds);  // two arrays make one run
    EXPECT_EQ(kinds(both), "ra");
    EXPECT_EQ(both, encode(with({{0, 5999}})));
    const Bytes sparse = encode(with(lone(0, 3000, 3))), dense = op(0, sparse, evens);  // 5,000 places: a bitmap
    EXPECT_EQ(kinds(dense), "ba");
    EXPECT_EQ(kinds(op(2, dense, encode({{100, 65535}}))), "aa");  // back to an array
    // A bitmap and its complement fill the chunk, which joins the full chunk after it.
    const Bytes rest = op(2, encode(with({{0, 65536 * 2 - 1}})), dense);
    EXPECT_EQ(kinds(rest), "bf");
    const Bytes full = op(0, rest, dense);
    EXPECT_EQ(kinds(full), "Ffa");
    EXPECT_EQ(full, encode(with({{0, 65536 * 2 - 1}})));
    // Cutting a place out of a full span leaves runs on one side of the fill.
    const Bytes cut = op(2, encode(with({{0, 65536 * 4 - 1}})), encode({{65536 + 7, 65536 + 7}}));
    EXPECT_EQ(kinds(cut), "Frfa");
    expectSame(cut, with({{0, 65536 + 6}, {65536 + 8, 65536 * 4 - 1}}));
    // Without the anchor the run is smaller as a range list.
    EXPECT_EQ(op(0, encode(lone(0, 3000, 2)), encode(lone(1, 3000, 2))), encode({{0, 5999}}));
}

// The range list when it is smaller than the chunks, by bytes; ties go to the
// chunks. Every writer makes the same choice.
TEST(Int4Set, RangeListWhenSmaller) {
    const int64_t x = 0, y = 65536 * 5;
    auto pairsAndSingles = [](int pairs, int singles) {  // one to a chunk
        Model m = spaced(0, singles, 1, 65536), p = spaced(65536 * singles, pairs, 2, 65536);
        m.insert(m.end(), p.begin(), p.end());
        return m;
    };
    const std::pair<Model, const char*> cases[] = {
        {{{x, x}}, "a"},                           // 17 bytes either way
        {{{x, x + 1}}, "L"},                       // 17 against 19
        {{{x, x}, {y, y + 1}}, "aa"},              // 25 either way
        {{{x, x + 1}, {y, y + 2}}, "L"},           // 25 against 27
        {{{x, x + 2}, {x + 4, x + 6}}, "r"},       // 25 against 23: two runs share a chunk
        {{{x, x + 65535}}, "F"},                   // 17 against 15
        {{{x, x + 65536 * 2 - 1}}, "L"},           // 17 against 19
        {{{kMin, kMax}}, "L"},                     // 17 against 19
        {pairsAndSingles(14, 2), "aaaaaaaaaaaaaaaa"},  // 137 against 135
        {pairsAndSingles(15, 2), "L"},             // 145 against 147: a 17th entry brings a checkpoint
    };
    for (const auto& [m, expected] : cases) {
        const Bytes b = encode(m);
        EXPECT_EQ(kinds(b), expected) << text(b);
        expectSame(b, m);
        std::vector<int32_t> members;
        for (const Interval& i : m)
            for (int64_t v = i.first; v <= i.second && members.size() < 300000; ++v) members.push_back(static_cast<int32_t>(v));
        Encoded e;
        if (members.size() < 300000) {
            ASSERT_EQ((buildFromMembers<malloc, free>(members.data(), members.size(), 0, e)), Status::Ok);
            EXPECT_EQ(own(e), b);
        }
        const Model two{{x - 5, x - 5}, {x - 3, x - 3}};  // in chunks
        Model u = m;
        u.insert(u.end(), two.begin(), two.end());
        EXPECT_EQ(op(0, b, encode({})), b);
        EXPECT_EQ(op(0, b, encode(two)), encode(canonical(u)));
    }
    // Two range lists whose intersection is lone members, smaller in chunks.
    const Bytes a = encode(spaced(0, 20, 2, 65536)), b = encode(spaced(1, 20, 2, 65536));
    EXPECT_EQ(kinds(a) + kinds(b), "LL");
    EXPECT_EQ(op(1, a, b), encode(lone(1, 20, 65536)));
    EXPECT_EQ(kinds(op(1, a, b)), std::string(20, 'a'));
}

// A bitmap's runs are counted only up to where they no longer choose its
// container; the layout then needs them all: counted again when the list
// could win with the part counted. A bitmap chunk of R runs (2 members each,
// far more than 2,048 runs) and K ranges over three chunks each (21 bytes in
// chunks, 8 in a list), made by the writer from a copied bitmap and from two
// bitmaps combined.
TEST(Int4Set, LayoutCountsEveryRunOfABitmap) {
    for (const auto& [runs, expected] : {std::pair<int64_t, bool>{2100, true}, {3000, false}}) {
        const Model bits = spaced(0, runs, 2, 4), wide = spaced(65536 * 2 + 65000, 1000, 65536 + 1000, 65536 * 4);
        Model all = bits;
        all.insert(all.end(), wide.begin(), wide.end());
        const Bytes want = encode(canonical(all));
        EXPECT_EQ(kinds(want) == "L", expected) << runs;
        EXPECT_EQ(kinds(encode(bits)), "b");
        EXPECT_EQ(op(0, encode(bits), encode(wide)), want);
        const Model even = spaced(0, runs / 2, 2, 8), odd = spaced(4, runs / 2, 2, 8);
        Model withEven = even;
        withEven.insert(withEven.end(), wide.begin(), wide.end());
        EXPECT_EQ(op(0, encode(canonical(withEven)), encode(odd)), want);
    }
}

// The bitmap passes (the baseline's, and on x86-64 those for popcnt and AVX2
// when the processor has them) against a count bit by bit, in every
// operation, counting all runs or stopping past kRunsCounted.
TEST(Int4Set, BitmapPassesCount) {
    using detail::BitStats;
    using detail::WordOp;
    using Pass = BitStats (*)(const uint8_t*, const uint8_t*, uint8_t*);
    std::mt19937_64 rng(7);
    Bytes a(kBitmapBytes), b(kBitmapBytes), out(kBitmapBytes), want(kBitmapBytes);
    auto check = [&](WordOp op, bool capped, std::initializer_list<Pass> passes) {
        for (size_t i = 0; i < kBitmapBytes; ++i)
            want[i] = static_cast<uint8_t>(op == WordOp::Only ? a[i] : op == WordOp::Or ? a[i] | b[i]
                                                                 : op == WordOp::And ? a[i] & b[i] : a[i] & ~b[i]);
        uint32_t n = 0, r = 0;
        for (uint32_t p = 0; p < kChunkValues; ++p) {
            const bool in = want[p >> 3] >> (p & 7) & 1;
            n += in;
            r += in && (p == 0 || !(want[(p - 1) >> 3] >> ((p - 1) & 7) & 1));
        }
        for (Pass pass : passes) {
            std::fill(out.begin(), out.end(), 0);
            const BitStats s = pass(a.data(), b.data(), out.data());
            EXPECT_EQ(out, want);
            EXPECT_EQ(s.members, n);
            if (capped)
                EXPECT_TRUE(s.runs == r || (s.runs >= detail::kRunsCounted && s.runs <= r)) << s.runs << " " << r;
            else
                EXPECT_EQ(s.runs, r);
        }
    };
    for (int round = 0; round < 12; ++round) {
        const int shape = round % 4;  // random, sparse, long runs, empty and full
        for (size_t i = 0; i < kBitmapBytes; ++i) {
            const uint8_t x = static_cast<uint8_t>(rng()), y = static_cast<uint8_t>(rng());
            a[i] = shape == 0 ? x : shape == 1 ? (x & y & static_cast<uint8_t>(rng())) : shape == 2 ? (i / 300 % 2 ? 0xff : 0) : 0;
            b[i] = shape == 3 ? 0xff : shape == 2 ? (i / 700 % 3 ? 0 : 0xff) : y;
        }
#if defined(__x86_64__)
#define QN_PASSES(op, capped)                                                                            \
    {detail::bitmapPassBaseline<op, true, capped>,                                                       \
     __builtin_cpu_supports("popcnt") ? detail::bitmapPassPopcnt<op, true, capped> : detail::bitmapPassBaseline<op, true, capped>, \
     __builtin_cpu_supports("avx2") ? detail::bitmapPassAvx2<op, true, capped> : detail::bitmapPassBaseline<op, true, capped>}
#else
#define QN_PASSES(op, capped) {detail::bitmapPassBaseline<op, true, capped>}
#endif
        check(WordOp::Only, false, QN_PASSES(WordOp::Only, false));
        check(WordOp::Or, false, QN_PASSES(WordOp::Or, false));
        check(WordOp::And, false, QN_PASSES(WordOp::And, false));
        check(WordOp::AndNot, false, QN_PASSES(WordOp::AndNot, false));
        check(WordOp::Only, true, QN_PASSES(WordOp::Only, true));
        check(WordOp::Or, true, QN_PASSES(WordOp::Or, true));
        check(WordOp::And, true, QN_PASSES(WordOp::And, true));
        check(WordOp::AndNot, true, QN_PASSES(WordOp::AndNot, true));
#undef QN_PASSES
    }
}

TEST(Int4Set, OneSetOnePayload) {
    std::mt19937 rng(7);
    const Model m{{-300000, -299000}, {-5, -5}, {0, 70000}, {131072, 131072 + 65535}, {1 << 20, (1 << 20) + 10}};
    const Bytes b = encode(m);
    // Members and ranges in any order, overlapping and repeated.
    std::vector<Range32> pieces;
    for (const Interval& i : m)
        for (int64_t lo = i.first, hi; lo <= i.second; lo += 1 + rng() % (hi - lo + 1)) {
            hi = std::min<int64_t>(i.second, lo + rng() % 7000);
            pieces.push_back(Range32{static_cast<int32_t>(lo), static_cast<int32_t>(hi)});
            if (rng() % 3 == 0) pieces.push_back(pieces.back());
        }
    pieces.push_back(Range32{5, 4});  // inverted: no members
    std::shuffle(pieces.begin(), pieces.end(), rng);
    Encoded e;
    ASSERT_EQ((buildFromRanges<malloc, free>(pieces.data(), pieces.size(), 0, e)), Status::Ok);
    EXPECT_EQ(own(e), b);
    std::vector<int32_t> members;
    for (const Interval& i : m)
        for (int64_t v = i.first; v <= i.second; ++v) members.push_back(static_cast<int32_t>(v));
    std::shuffle(members.begin(), members.end(), rng);
    ASSERT_EQ((buildFromMembers<malloc, free>(members.data(), members.size(), 0, e)), Status::Ok);
    EXPECT_EQ(own(e), b);
    // Sorted in place, with repeats and the line's ends added to a copy.
    std::vector<int32_t> values = members;
    values.insert(values.end(), members.begin(), members.begin() + 1000);
    ASSERT_EQ((buildFromValues<malloc, free>(values.data(), values.size(), 0, e)), Status::Ok);
    EXPECT_EQ(own(e), b);
    values = {INT32_MAX, INT32_MIN, 7, INT32_MAX, INT32_MIN};
    ASSERT_EQ((buildFromValues<malloc, free>(values.data(), values.size(), 0, e)), Status::Ok);
    EXPECT_EQ(own(e), encode({{kMin, kMin}, {7, 7}, {kMax, kMax}}));
    ASSERT_EQ((buildFromValues<malloc, free>(values.data(), 0, 0, e)), Status::Ok);
    EXPECT_EQ(own(e), encode(Model{}));
    Bytes parsed;
    ASSERT_EQ(parse("{ 1048576..1048586,131072 .. 196607,-5, 0..70000 , -300000..-299000,70000}", parsed).error,
              TextError::None);
    EXPECT_EQ(parsed, b);
    EXPECT_EQ(hash32(parsed.data(), parsed.size()), hash32(b.data(), b.size()));
}

// Payloads written by hand, each refused for its own reason.
TEST(Int4Set, ValidatorRefusesAllButTheCanonicalForm) {
    auto payload = [](uint64_t card, std::vector<std::pair<uint16_t, uint16_t>> dir, Bytes data) {
        Bytes p(kHeaderSize);
        p[0] = kFormatChunks;
        detail::store64(&p[1], card);
        detail::store16(&p[9], static_cast<uint16_t>(dir.size() - 1));
        for (auto [key, info] : dir) p.insert(p.end(), {uint8_t(key), uint8_t(key >> 8), uint8_t(info), uint8_t(info >> 8)});
        p.insert(p.end(), data.begin(), data.end());
        return p;
    };
    auto list = [](uint64_t card, std::vector<std::pair<int32_t, int32_t>> ranges) {
        Bytes p(kListHeaderSize);
        p[0] = kFormatRanges;
        detail::store64(&p[1], card);
        for (auto [lo, hi] : ranges)
            for (int32_t v : {lo, hi}) p.insert(p.end(), {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)});
        return p;
    };
    const uint16_t full = 3 << 12, fill = 4 << 12, run1 = 1 << 12;
    const Bytes oneRun{0, 0, 9, 0};  // places 0..9
    const Bytes valid = payload(20, {{5, run1 | 1}}, {0, 0, 9, 0, 20, 0, 29, 0});
    EXPECT_EQ(validate(valid.data(), valid.size()), Status::Ok);
    for (const Bytes& p : {list(2, {{0, 1}}), list(uint64_t{1} << 32, {{INT32_MIN, INT32_MAX}})})
        EXPECT_EQ(validate(p.data(), p.size()), Status::Ok);
    Bytes longer = list(2, {{0, 1}}), shorter = longer;
    longer.push_back(0);
    shorter.pop_back();
    const std::pair<Bytes, Status> cases[] = {
        {Bytes{}, Status::Truncated},
        {Bytes{3}, Status::BadVersion},
        {Bytes{2}, Status::Truncated},
        {list(0, {}), Status::Truncated},
        {shorter, Status::Truncated},
        {longer, Status::BadLength},
        {list(3, {{0, 1}}), Status::BadCardinality},
        {list(0, {{1, 0}}), Status::BadContainer},                  // inverted
        {list(4, {{0, 1}, {2, 3}}), Status::BadContainer},          // touching
        {list(4, {{0, 1}, {1, 2}}), Status::BadContainer},          // overlapping
        {list(4, {{5, 6}, {0, 1}}), Status::BadContainer},          // descending
        {list(1, {{5, 5}}), Status::NotCanonical},                  // 17 bytes in chunks too
        {list(2, {{5, 5}, {7, 7}}), Status::NotCanonical},          // 19 in chunks
        {payload(10, {{5, run1}}, oneRun), Status::NotCanonical},   // 17 as a range list
        {payload(10, {{5, run1}}, Bytes{0, 0, 9}), Status::BadLength},
        {payload(10, {{5, run1}}, Bytes{0, 0, 9, 0, 0}), Status::BadLength},
        {payload(11, {{5, run1}}, oneRun), Status::BadCardinality},
        {payload(0, {{5, 5 << 12}}, {}), Status::BadEntry},
        {payload(0, {{5, full | 1}}, {}), Status::BadEntry},
        {payload(131072, {{5, full}, {5, full}}, {}), Status::BadOrder},
        {payload(131072, {{5, full}, {6, full}}, {}), Status::NotCanonical},  // must be full, fill
        {payload(65546, {{4, run1}, {5, full}}, oneRun), Status::NotCanonical},  // must be runs, fill
        {payload(196608, {{5, full}, {6, fill}, {7, fill}}, {}), Status::NotCanonical},
        {payload(65536, {{5, fill}}, {}), Status::NotCanonical},
        {payload(65536, {{5, run1}}, {0, 0, 255, 255}), Status::NotCanonical},  // a full chunk as runs
        {payload(3, {{5, 2}}, {1, 0, 2, 0, 3, 0}), Status::NotCanonical},       // one run as an array
        {payload(2, {{5, run1 | 1}}, {1, 0, 1, 0, 2, 0, 2, 0}), Status::BadContainer},  // touching runs
        {payload(2, {{5, 1}}, {3, 0, 1, 0}), Status::BadContainer},
        {payload(2, {{5, 1}}, {1, 0, 1, 0}), Status::BadContainer},
        {payload(1, {{5, 2 << 12}}, [] { Bytes b(8192); b[9] = 1; return b; }()), Status::NotCanonical},
    };
    for (const auto& [p, expected] : cases) EXPECT_EQ(validate(p.data(), p.size()), expected) << testing::PrintToString(p);

    // Checkpoints: 65 chunks with one member each; the last checkpoint is the 65th container's.
    const Bytes many = encode(spaced(0, 65, 1, 65536));
    EXPECT_EQ(validate(many.data(), many.size()), Status::Ok);
    const size_t last = kHeaderSize + 4 * 65 + 4 * (64 / kGroup - 1);
    EXPECT_EQ(detail::load32(&many[last]), 128u);
    Bytes wrong = many;
    wrong[last] ^= 2;
    EXPECT_EQ(validate(wrong.data(), wrong.size()), Status::BadCheckpoint);
    bool in = true;
    EXPECT_EQ(containsValue(many.data(), many.size(), 64 * 65536, in), Status::Ok);
    EXPECT_TRUE(in);
    // The readers stay inside a payload whose checkpoint points past its end.
    wrong[last + 2] = 0x7f;
    EXPECT_EQ(containsValue(wrong.data(), wrong.size(), 64 * 65536, in), Status::Corrupt);
}

// Each allocation in turn fails: the operation says so and leaks nothing.
int allocations = 0, failAt = -1;
void* flaky(size_t n) { return allocations++ == failAt ? nullptr : std::malloc(n); }

TEST(Int4Set, AllocationFailures) {
    const Model ma = spaced(0, 3000, 3, 10), mb = lone(1, 5000, 7);
    const Bytes a = encode(ma), b = encode(mb);
    for (failAt = 0;; ++failAt) {
        allocations = 0;
        Encoded u, p;
        Text t;
        int32_t values[] = {5, -1, 70000, 5};
        const Status su = unite<flaky, free>(a.data(), a.size(), b.data(), b.size(), 0, u);
        const Status st = formatText<flaky, free>(a.data(), a.size(), t);
        const TextError sp = parseText<flaky, free>("{1,5,3}", 7, 0, p).error;
        std::free(u.buffer), std::free(p.buffer), std::free(t.chars);
        const Status sv = buildFromValues<flaky, free>(values, 4, 0, u);
        std::free(u.buffer);
        if (su == Status::Ok && st == Status::Ok && sp == TextError::None && sv == Status::Ok) break;
        EXPECT_TRUE((su == Status::Ok || su == Status::OutOfMemory) && (st == Status::Ok || st == Status::OutOfMemory) &&
                    (sp == TextError::None || sp == TextError::OutOfMemory) &&
                    (sv == Status::Ok || sv == Status::OutOfMemory));
    }
    EXPECT_GT(failAt, 3);
}

TEST(Int4Set, LongLoopsPoll) {
    std::vector<int32_t> members(1500000);
    std::mt19937 rng(3);
    for (int32_t& v : members) v = static_cast<int32_t>(rng());
    int polls = 0;
    auto poll = [&] { ++polls; };
    Encoded e, u;
    ASSERT_EQ((buildFromMembers<malloc, free>(members.data(), members.size(), 0, e, poll)), Status::Ok);
    const int building = polls;
    ASSERT_EQ((unite<malloc, free>(e.payload, e.size, e.payload, e.size, 0, u, poll)), Status::Ok);
    EXPECT_TRUE(building > 0 && polls > building + 1 && equals(u.payload, u.size, e.payload, e.size));
    std::free(u.buffer);
    polls = 0;
    ASSERT_EQ((buildFromValues<malloc, free>(members.data(), members.size(), 0, u, poll)), Status::Ok);
    EXPECT_TRUE(polls > 2 && equals(u.payload, u.size, e.payload, e.size));
    std::free(u.buffer), std::free(e.buffer);
}

}  // namespace
