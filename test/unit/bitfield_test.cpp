// Bitfields: mask tables, run helpers, reading, sets tested against and built into
// bitfields (compared with plain bit-vector models), and the growable bit buffer.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <random>
#include <tuple>
#include <vector>

#include "qnPgBitFieldSet.h"

namespace {

using namespace qn::bitfield;
using Bytes = std::vector<uint8_t>;
using Words = std::vector<int32_t>;
using Bits = std::vector<bool>;
using Item = std::tuple<int32_t, int32_t, bool>;  // lower, upper, written as a run

int uni(std::mt19937& rng, int64_t lo, int64_t hi) {
    return static_cast<int>(std::uniform_int_distribution<int64_t>(lo, hi)(rng));
}
int32_t opener(int32_t lower) { return static_cast<int32_t>(static_cast<uint32_t>(lower) | 0x80000000u); }
uint32_t formCode(char form) { return qn::pgRangeArray::arrayDataTypeFromCharOrZero(form); }

// A bitfield value, header included, sized exactly for its bits.
Bytes makeValue(int32_t min, int32_t max, const Bits& m) {
    Bytes v(kHeaderBytes + bitBytes(spanWidth(min, max)));
    writeBounds(v.data(), min, max);
    for (size_t p = 0; p < m.size(); ++p)
        if (m[p]) v[kHeaderBytes + p / 8] |= static_cast<uint8_t>(0x80 >> (p % 8));
    return v;
}

BitFieldView viewOf(const Bytes& value) {
    BitFieldView view{};
    EXPECT_EQ(readBitField(value.data(), value.size(), view), BitFieldRead::Ok);
    return view;
}

// Plans and fills the bitfield value of a set, its bits sized exactly.
SetBuildError build(char form, const Words& w, Bytes& value) {
    BitFieldPlan plan{};
    const auto count = static_cast<int32_t>(w.size());
    if (const SetBuildError e = planBitField(formCode(form), w.data(), count, plan); e != SetBuildError::None) return e;
    value.assign(kHeaderBytes + plan.nbytes, 0);
    writeBounds(value.data(), plan.min, plan.max);
    return fillBitField(formCode(form), w.data(), count, plan, value.data() + kHeaderBytes);
}

// The inclusion rule for positions a..b, bit by bit: within one byte every bit is
// set; across bytes the first byte's bits from a on are set, and each later byte
// (the last one only up to b) holds exactly the first byte's mask.
bool ruleModel(const Bits& m, uint32_t a, uint32_t b) {
    const uint32_t first = a / 8, last = b / 8;
    for (uint32_t p = a; p <= (first == last ? b : first * 8 + 7); ++p)
        if (!m[p]) return false;
    for (uint32_t i = first + 1; i <= last; ++i)
        for (uint32_t k = 0; k < 8; ++k)
            if (((i < last || k <= b % 8) && m[i * 8 + k]) != (k >= a % 8)) return false;
    return true;
}

// n random bits: sparse, half, dense, all set, or every byte the same "from bit k"
// mask (the shape that lets runs starting inside a byte be included).
Bits randomBits(std::mt19937& rng, uint32_t n) {
    Bits m(n);
    const int shape = uni(rng, 0, 4), k = uni(rng, 0, 7);
    const double density[] = {0.02, 0.5, 0.95};
    for (uint32_t p = 0; p < n; ++p)
        m[p] = shape == 3 || (shape == 4 ? static_cast<int>(p % 8) >= k
                                         : shape < 3 && std::bernoulli_distribution(density[shape])(rng));
    return m;
}

// A random normalised set inside [lo, hi], never empty. Single values become
// scalars or runs of one as the form allows.
std::vector<Item> randomItems(std::mt19937& rng, char form, int64_t lo, int64_t hi) {
    std::vector<Item> items;
    for (int64_t cur = lo + uni(rng, 0, 10); cur <= hi && (items.empty() || uni(rng, 0, 6));) {
        const int64_t upper = std::min<int64_t>(hi, cur + (uni(rng, 0, 1) ? 0 : uni(rng, 1, 30)));
        if (form == 's')
            for (int64_t v = cur; v <= upper; ++v) items.emplace_back(v, v, false);
        else
            items.emplace_back(cur, upper, form == 'r' || upper > cur || uni(rng, 0, 1));
        cur = upper + 2 + uni(rng, 0, 12);
    }
    if (items.empty()) items.emplace_back(hi, hi, form == 'r');
    return items;
}

Words encode(char form, const std::vector<Item>& items) {
    Words w;
    if (form == 'm') w.push_back(static_cast<int32_t>(items.size()));
    for (const auto& [lo, hi, asRun] : items) {
        w.push_back(asRun && form == 'm' ? opener(lo) : lo);
        if (asRun) w.push_back(hi);
    }
    return w;
}

TEST(BitFieldRuns, SetRunMeetsAndFullAgainstModel) {
    std::mt19937 rng(11);
    uint32_t a, b;
    auto randomRun = [&](uint32_t nbits) {  // short or long, often on byte boundaries
        a = uni(rng, 0, nbits - 1);
        b = uni(rng, a, std::min<int64_t>(nbits - 1, a + (uni(rng, 0, 1) ? 12 : 300)));
        if (uni(rng, 0, 3) == 0) a &= ~7u;
        if (uni(rng, 0, 3) == 0) b = std::min<uint32_t>(b | 7u, nbits - 1);
    };
    for (int iter = 0; iter < 3000; ++iter) {
        const uint32_t nbytes = uni(rng, 1, 48), nbits = nbytes * 8;
        Bytes bits(nbytes);
        Bits model(nbits);
        for (int k = uni(rng, 1, 4); k > 0; --k) {
            randomRun(nbits);
            setRun(bits.data(), a, b);
            for (uint32_t p = a; p <= b; ++p) model[p] = true;
        }
        for (uint32_t p = 0; p < nbits; ++p) ASSERT_EQ(testBit(bits.data(), p), model[p]) << iter << '@' << p;

        const Bits m = randomBits(rng, nbits);
        const Bytes value = makeValue(0, static_cast<int32_t>(nbits - 1), m);
        for (int k = 0; k < 20; ++k) {
            randomRun(nbits);
            bool any = false;
            for (uint32_t p = a; p <= b; ++p) any = any || m[p];
            ASSERT_EQ(runMeets(value.data() + kHeaderBytes, a, b), any) << a << ".." << b;
            ASSERT_EQ(runFull(value.data() + kHeaderBytes, a, b), ruleModel(m, a, b)) << a << ".." << b;
        }
    }
}

TEST(BitFieldSetTest, AllFormsAgainstModel) {
    std::mt19937 rng(23);
    int included[3] = {};
    for (int iter = 0; iter < 6000; ++iter) {
        const char form = "srm"[iter % 3];
        const int32_t min = uni(rng, form == 'm' ? 0 : -40, 40), max = min + uni(rng, 0, 150);
        const Bits m = randomBits(rng, max - min + 1);
        const Bytes value = makeValue(min, max, m);
        const BitFieldView view = viewOf(value);
        // Members in a window that starts from 60 below the span to 20 into it.
        const int64_t lo = std::max<int64_t>(form == 'm' ? 0 : INT_MIN, int64_t{min} - uni(rng, -20, 60));
        const std::vector<Item> items = randomItems(rng, form, lo, lo + uni(rng, 0, 250));
        const Words w = encode(form, items);
        bool meets = false, inside = true;
        for (const auto& [l, h, asRun] : items) {
            for (int64_t v = std::max(l, min); v <= std::min(h, max); ++v) meets = meets || m[v - min];
            inside = inside && min <= l && h <= max && (asRun ? ruleModel(m, l - min, h - min) : m[l - min]);
        }
        for (const bool inclusion : {false, true}) {
            bool result = !inclusion;
            ASSERT_EQ(testSetAgainstBitField(formCode(form), w.data(), static_cast<int32_t>(w.size()), view,
                                             inclusion, result),
                      SetTestError::None);
            ASSERT_EQ(result, inclusion ? inside : meets) << form << " #" << iter << " inclusion " << inclusion;
        }
        included[iter % 3] += inside;
    }
    for (int f = 0; f < 3; ++f) EXPECT_GT(included[f], 20) << "srm"[f];  // the true branch gets exercised

    // Arrays out of order or malformed that get past the span checks, read no
    // further than their end. A member outside the span still fails inclusion.
    const Words odd = {3, 5, 7}, countOnly = {0}, open = {2, 5, -1}, unsortedS = {0, 100, 9};
    const Words unsortedR = {0, 7, 100, 100, 8, 15}, unsortedM = {3, 0, opener(100), 100, 9};
    for (const bool inclusion : {false, true}) {
        const Bytes value = makeValue(0, 63, Bits(64, true));
        bool r1 = true, r2 = true, r3 = true;
        for (const auto& [form, w] : {std::make_pair('s', &unsortedS), {'r', &unsortedR}, {'m', &unsortedM}}) {
            EXPECT_EQ(testSetAgainstBitField(formCode(form), w->data(), w->size(), viewOf(value), inclusion, r1),
                      SetTestError::None);
            EXPECT_NE(r1, inclusion) << form;
        }
        EXPECT_EQ(testSetAgainstBitField(formCode('r'), odd.data(), 3, viewOf(value), inclusion, r1),
                  SetTestError::OddRangeArray);
        EXPECT_EQ(testSetAgainstBitField(formCode('m'), countOnly.data(), 1, viewOf(value), inclusion, r2),
                  SetTestError::None);
        EXPECT_FALSE(r1 || r2);
        // The opener of the range from INT_MAX is the word -1, inside the span [-1, 10];
        // the member 5 leaves the answer open (unset for overlap, set for inclusion).
        Bits five(12);
        five[6] = inclusion;
        const Bytes around = makeValue(-1, 10, five);
        EXPECT_EQ(testSetAgainstBitField(formCode('m'), open.data(), 3, viewOf(around), inclusion, r3),
                  SetTestError::MixRangeWithoutUpper);
    }
}

TEST(BitFieldBuild, RoundTripsAndRefusals) {
    std::mt19937 rng(37);
    const int64_t windows[] = {INT_MIN, -40, INT_MAX - 300};
    for (int iter = 0; iter < 1500; ++iter) {
        const char form = "srm"[iter % 3];
        const int64_t lo = std::max<int64_t>(form == 'm' ? 0 : INT_MIN, windows[iter / 3 % 3]);
        const std::vector<Item> items = randomItems(rng, form, lo, lo + 300);
        Bytes value;
        ASSERT_EQ(build(form, encode(form, items), value), SetBuildError::None);
        const BitFieldView view = viewOf(value);
        ASSERT_EQ(view.min, std::get<0>(items.front()));
        ASSERT_EQ(view.max, std::get<1>(items.back()));
        Bits model(value.size() * 8);
        for (const auto& [l, h, asRun] : items)
            for (int64_t v = l; v <= h; ++v) model[v - view.min] = true;
        const int64_t from = std::max<int64_t>(INT_MIN, view.min - 2LL), to = std::min(INT_MAX + 0LL, view.max + 2LL);
        for (int64_t v = from; v <= to; ++v) {
            const bool inside = view.min <= v && v <= view.max;
            ASSERT_EQ(view.covers(v), inside) << v;
            ASSERT_EQ(inside && testBit(view.bits, positionOf(v, view.min)), inside && model[v - view.min]) << v;
        }
        for (uint32_t p = spanWidth(view.min, view.max); p < (value.size() - kHeaderBytes) * 8; ++p)
            ASSERT_FALSE(testBit(view.bits, p)) << "padding bit " << p;
    }

    const std::tuple<char, Words, SetBuildError> refusals[] = {
        {'s', {INT_MIN, INT_MAX}, SetBuildError::OutsideSpan},
        {'s', {5, 2, 9}, SetBuildError::OutsideSpan},  // the ones below are planned, then refused midway
        {'s', {5, 300, 9}, SetBuildError::OutsideSpan},
        {'r', {3, 1, 4, 9}, SetBuildError::OutsideSpan},
        {'r', {0, 10, 5, 300, 20, 20}, SetBuildError::OutsideSpan},
        {'m', {3, 10, opener(2), 5, 20}, SetBuildError::OutsideSpan},
        {'m', {2, opener(10), 400, 20}, SetBuildError::OutsideSpan},
    };
    for (const auto& [form, w, error] : refusals) {
        Bytes value;  // the bits are sized exactly: a stray write trips ASan
        EXPECT_EQ(build(form, w, value), error) << form << ' ' << w[1];
    }
    // A fill handed its plan directly still stops at a trailing opener.
    const Words open = {2, 3, opener(5)};
    Bytes bits(8);
    EXPECT_EQ(fillBitField(formCode('m'), open.data(), 3, BitFieldPlan{0, 63, 8}, bits.data()),
              SetBuildError::MixRangeWithoutUpper);
}

struct BufferFailure {
    BitBufferError error;
};
[[noreturn]] void throwFail(BitBufferError e) { throw BufferFailure{e}; }
size_t largestRequest = 0;
void* trackedAlloc(size_t n) {
    largestRequest = std::max(largestRequest, n);
    return n > (1u << 20) ? nullptr : std::malloc(n);
}
void* noMemory(size_t) { return nullptr; }
using Buffer = BitBuffer<trackedAlloc, std::free, throwFail>;

template <typename Op>
int failureOf(Op op) {  // the error reported, or -1
    try {
        op();
    } catch (const BufferFailure& f) {
        return static_cast<int>(f.error);
    }
    return -1;
}
#define EXPECT_FAILS(call, e) EXPECT_EQ(failureOf([&] { call; }), static_cast<int>(BitBufferError::e)) << #call

TEST(BitBufferTest, GrowsCopiesFillsAndFails) {
    Buffer b{};
    b.fill = 0xAA;
    b.resize(5);
    EXPECT_EQ(b.capacity, 8u);
    for (uint32_t i = 0; i < 5; ++i) b.data[i] = static_cast<uint8_t>(i + 1);
    b.reserve(24);  // keeps the bytes in use
    EXPECT_EQ(std::make_pair(b.capacity, b.size), std::make_pair(24u, 5u));
    b.reserve(8);
    b.fill = 0x0F;
    const std::pair<uint32_t, uint32_t> growth[] = {{9, 16}, {16, 16}, {17, 32}, {100, 128}};
    for (const auto& [bytes, capacity] : growth) {
        b.resize(bytes);
        EXPECT_EQ(b.capacity, capacity) << bytes;
    }
    for (uint32_t i = 0; i < 100; ++i) EXPECT_EQ(b.data[i], i < 5 ? i + 1 : 0x0Fu) << i;
    b.reserve(16);  // shrinking drops the bytes past the new capacity
    EXPECT_EQ(std::make_pair(b.capacity, b.size), std::make_pair(16u, 16u));
    b.fill = 0x55;
    b.resize(2);
    b.resize(4);  // bytes brought back into use take the fill again, the rest stay
    EXPECT_EQ(b.data[1] << 8 | b.data[2], 0x0255);

    EXPECT_FAILS(b.reserve(12), InvalidCapacity);
    EXPECT_EQ(b.capacity, 16u);
    b.release();
    EXPECT_EQ(b.data, nullptr);
    BitBuffer<noMemory, std::free, throwFail> s{};
    EXPECT_FAILS(s.reserve(8), OutOfMemory);
    EXPECT_FAILS(s.resize(1), OutOfMemory);

    // Capacities that cannot double again, set directly over a small real buffer.
    largestRequest = 0;
    const std::pair<uint32_t, uint32_t> stuck[] = {
        {0x80000000u, 0x80000001u}, {0x40000000u, 0x80000008u}, {24, 0xFFFFFFF8u}};
    for (const auto& [capacity, bytes] : stuck) {
        Buffer big{};
        big.data = static_cast<uint8_t*>(std::malloc(8));
        big.capacity = capacity;
        EXPECT_FAILS(big.resize(bytes), Overflow) << capacity;
        std::free(big.data);
    }
    EXPECT_EQ(largestRequest, 0u);  // no allocation was attempted
}

}  // namespace
