// The set builder against one rangeArrayInsert per range, its batch sort, the
// member writer, and the byte layout of a serialised set state.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <climits>
#include <cstring>
#include <random>
#include <tuple>

#include "qnPgRangeSetBuilder.h"
#include "range_test_util.h"

namespace {

using namespace rt;
using namespace qn::pgRangeArray;
// Batches of a few hundred ranges: every run merges many, most of them radix-sorted.
using Builder = RangeSetBuilder<malloc, free, 300>;

constexpr int kMin = INT_MIN;
constexpr int kMax = INT_MAX;

int uniform(std::mt19937& rng, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

// Proper ranges with upper < INT_MAX: mostly short ones scattered over [-domain, domain]
// so that they overlap and touch, plus ascending runs, repeats, and ranges at both
// ends of the int domain.
R nextRange(std::mt19937& rng, int domain, R& last) {
    R r;
    const int kind = uniform(rng, 0, 9);
    if (kind < 6) {
        const int lo = uniform(rng, -domain, domain);
        r = R{lo, lo + (uniform(rng, 0, 1) ? 0 : uniform(rng, 1, 12))};
    } else if (kind < 8) {
        const int lo = last.upper < domain ? last.upper + uniform(rng, 0, 3) : -domain;
        r = R{lo, lo + uniform(rng, 0, 20)};
    } else if (kind == 8) {
        r = last;
    } else if (uniform(rng, 0, 1)) {
        r = R{kMin + uniform(rng, 0, 30), kMin + uniform(rng, 30, 40)};
    } else {
        r = R{kMax - uniform(rng, 10, 40), kMax - 1 - uniform(rng, 0, 9)};
    }
    return last = r;
}

// The server hands the builder zero-filled memory and uses it without construction.
struct ZeroFilled {
    Builder* b = static_cast<Builder*>(calloc(1, sizeof(Builder)));
    ~ZeroFilled() {
        b->release();
        free(b);
    }
};

// Feeds `count` ranges to the builder and to a list grown by rangeArrayInsert, and
// compares them after flushes at random checkpoints and at the end. From index
// `switchAt` on, a few ranges that force direct insertion are mixed in (an upper of
// INT_MAX, inverted bounds, an INT_MIN upper). Returns the flushes the builder made itself.
int feedAndCompare(Builder& b, std::mt19937& rng, int count, int domain, int switchAt) {
    RV model;
    R last{0, 0};
    int flushes = 0;
    for (int i = 0; i < count; ++i) {
        R r = nextRange(rng, domain, last);
        if (i == switchAt || (i > switchAt && uniform(rng, 0, 499) == 0)) {
            switch (uniform(rng, 0, 2)) {
                case 0: r.upper = kMax; break;
                case 1: r = R{r.upper + 1, r.lower}; break;
                default: r = R{r.lower == kMin ? 0 : r.lower, kMin}; break;
            }
        }
        const uint64_t pendingBefore = b.pending.size();
        b.insert(r);
        rangeArrayInsert(model, r);
        if (b.pending.size() < pendingBefore) ++flushes;
        if (uniform(rng, 0, 2999) == 0 || i + 1 == count) {
            b.flush();
            EXPECT_TRUE(b.pending.empty());
            if (pairs(b.ranges) != pairs(model)) {
                ADD_FAILURE() << "differs from rangeArrayInsert after " << i + 1 << " ranges";
                return flushes;
            }
        }
    }
    return flushes;
}

// Plain runs (several batch merges each), then runs where ranges that force direct
// insertion arrive at a random point, the builder in never-constructed memory.
TEST(RangeSetBuilder, MatchesOneInsertPerRange) {
    const int domains[] = {3000, 20000, 200000};
    for (unsigned seed = 0; seed < 40; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        const int count = uniform(rng, 5000, 15000);
        ZeroFilled z;
        const bool unusual = seed % 2;
        const int flushes = feedAndCompare(*z.b, rng, count, domains[seed % 3], unusual ? uniform(rng, 0, count - 1) : INT_MAX);
        if (unusual) EXPECT_TRUE(z.b->direct);
        else EXPECT_GE(flushes, 2);
    }
}

// Rows in ascending order of their lower bounds never wait in `pending`: each
// is merged into the list's end at once, touching ranges joining the last one.
TEST(RangeSetBuilder, AscendingRowsMatchOneInsertPerRange) {
    for (unsigned seed = 0; seed < 10; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        std::vector<R> in;
        R last{0, 0};
        for (int i = 0; i < 3000; ++i) in.push_back(nextRange(rng, 5000, last));
        std::sort(in.begin(), in.end(), [](const R& a, const R& b) { return a.lower < b.lower; });
        ZeroFilled z;
        RV model;
        for (const R& r : in) {
            z.b->insert(r);
            rangeArrayInsert(model, r);
        }
        EXPECT_TRUE(z.b->pending.empty());
        EXPECT_EQ(pairs(z.b->ranges), pairs(model));
    }
}

// The batch sort against std::sort, on spans around the radix threshold and on
// keys that share digits (whose passes are skipped), cross the sign, or sit at
// both ends of the int domain. Uppers tag the arrivals, so a lost or doubled
// range shows.
TEST(RangeSetBuilder, SortByLowerMatchesStdSort) {
    std::mt19937 rng(11);
    using Draw = int (*)(std::mt19937&, int);
    const struct {
        const char* name;
        Draw draw;
    } cases[] = {
        {"anywhere", [](std::mt19937& g, int) { return uniform(g, kMin, kMax); }},
        {"shared top digits", [](std::mt19937& g, int) { return uniform(g, 0, 2047); }},
        {"shared low digit", [](std::mt19937& g, int) { return uniform(g, -4, 4) * 2048 + 7; }},
        {"around zero", [](std::mt19937& g, int) { return uniform(g, -1000, 1000); }},
        {"extremes", [](std::mt19937& g, int) { return std::array{kMin, kMin + 1, -1, 0, kMax - 1, kMax}[uniform(g, 0, 5)]; }},
        {"all equal", [](std::mt19937&, int) { return -5; }},
        {"descending", [](std::mt19937&, int i) { return 1000000 - 3 * i; }},
    };
    for (const auto& c : cases) {
        for (int n : {1, 255, 256, 257, 5000}) {
            SCOPED_TRACE(std::string(c.name) + " n=" + std::to_string(n));
            std::vector<R> data(n), scratch(n);
            for (int i = 0; i < n; ++i) data[i] = R{c.draw(rng, i), i};
            std::vector<R> expected = data;
            const R* sorted = sortByLower(data.data(), scratch.data(), static_cast<uint64_t>(n));
            Pairs got, want;
            for (int i = 0; i < n; ++i) got.emplace_back(sorted[i].lower, sorted[i].upper);
            for (const R& r : expected) want.emplace_back(r.lower, r.upper);
            EXPECT_TRUE(std::is_sorted(got.begin(), got.end(), [](auto& a, auto& b) { return a.first < b.first; }));
            std::sort(got.begin(), got.end());
            std::sort(want.begin(), want.end());
            EXPECT_EQ(got, want);
        }
    }
}

TEST(SetMembers, CountAndWriteAtTheExtremes) {
    const std::vector<R> list = ranges({{kMax - 2, kMax}, {5, 3}, {kMin, kMin + 1}, {0, 0}});
    ASSERT_EQ(countMembers(list.data(), list.data() + list.size()), 6u);
    std::vector<int> out(6);  // exactly sized: a write past it stops the run
    writeMembers(list.data(), list.data() + list.size(), out.data(), [] {});
    EXPECT_EQ(out, (std::vector<int>{kMax - 2, kMax - 1, kMax, kMin, kMin + 1, 0}));
    const std::vector<R> all = ranges({{kMin, kMax}});
    EXPECT_EQ(countMembers(all.data(), all.data() + 1), uint64_t{1} << 32);
    EXPECT_EQ(countMembers(all.data(), all.data()), 0u);

    // Three million values: poll() runs between chunks, and no value is skipped or
    // repeated at a chunk seam.
    const std::vector<R> big = ranges({{-1500000, 1500000}});
    std::vector<int> values(countMembers(big.data(), big.data() + 1));
    ASSERT_EQ(values.size(), 3000001u);
    int polls = 0;
    writeMembers(big.data(), big.data() + 1, values.data(), [&] { ++polls; });
    EXPECT_GE(polls, 2);
    for (size_t i = 0; i < values.size(); ++i)
        if (values[i] != -1500000 + static_cast<int>(i)) {
            ADD_FAILURE() << "value " << values[i] << " at index " << i;
            break;
        }
}

TEST(SetState, LayoutAndRoundTrip) {
    EXPECT_EQ(setStateSize(3), 30u);
    std::mt19937 rng(5);
    for (int round = 0; round < 200; ++round) {
        Pairs p(static_cast<size_t>(uniform(rng, 0, 10)));
        for (auto& [lo, hi] : p) lo = uniform(rng, kMin, kMax), hi = uniform(rng, kMin, kMax);
        const std::vector<R> v = ranges(p);
        const int inForm = p.empty() ? 0 : uniform(rng, -128, 127);
        const int outForm = uniform(rng, -128, 127);
        std::vector<uint8_t> bytes(setStateSize(v.size()), 0xA5);
        writeSetState(bytes.data(), static_cast<uint32_t>(inForm), static_cast<uint32_t>(outForm), v.data(),
                      v.data() + v.size());
        EXPECT_EQ(std::count(bytes.begin(), bytes.begin() + 4, 0xA5), 4) << "the length word is the caller's";
        EXPECT_EQ(bytes[4], static_cast<uint8_t>(inForm));
        EXPECT_EQ(bytes[5], static_cast<uint8_t>(outForm));
        RV stored;
        for (size_t i = 0; i < p.size(); ++i) {
            R r;
            std::memcpy(&r, bytes.data() + 6 + 8 * i, 8);  // unaligned, native order
            stored.push_back(r);
        }
        EXPECT_EQ(pairs(stored), p);

        int32_t in = 99, out = 99;
        uint64_t count = 99;
        ASSERT_EQ(readSetState(bytes.data(), bytes.size(), in, out, count), SetStateError::None);
        EXPECT_EQ(std::make_tuple(in, out, count), std::make_tuple(inForm, outForm, uint64_t{p.size()}));
    }
}

TEST(SetState, ReadRejectsMalformedSizes) {
    int32_t in = 0, out = 0;
    uint64_t count = 0;
    // The buffer is exactly `size` bytes: AddressSanitizer stops any read past it.
    auto read = [&](size_t size, uint8_t inForm, uint8_t outForm) {
        std::vector<uint8_t> bytes(size, 0);
        if (size > 4) bytes[4] = inForm;
        if (size > 5) bytes[5] = outForm;
        count = 99;
        return readSetState(bytes.data(), size, in, out, count);
    };
    for (size_t size = 0; size < 6; ++size) {
        EXPECT_EQ(read(size, 1, 1), SetStateError::Empty) << size;
        EXPECT_EQ(count, 0u);
    }
    EXPECT_EQ(read(6, 0xFF, 0), SetStateError::None);  // forms, no ranges: rows without members
    EXPECT_EQ(std::make_tuple(in, count), std::make_tuple(-1, uint64_t{0}));
    for (size_t size : {6 + 1, 6 + 7, 6 + 9, 6 + 8 * 5 + 4}) {
        EXPECT_EQ(read(size, 4, 4), SetStateError::RaggedRanges) << size;
        EXPECT_EQ(count, 0u);
    }
    EXPECT_EQ(read(6 + 16, 0xFE, 0x80), SetStateError::None);
    EXPECT_EQ(std::make_tuple(in, out, count), std::make_tuple(-2, -128, uint64_t{2}));
}

}  // namespace
