// The set builder against one rangeArrayInsert per range, the member and mix-array
// writers, and the byte layout of a serialised set state.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <tuple>

#include "qnPgRangeSetBuilder.h"
#include "range_test_util.h"

namespace {

using namespace rt;
using namespace qn::pgRangeArray;
using Builder = RangeSetBuilder<malloc, free>;

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

TEST(RangeSetBuilder, BatchesMatchOneInsertPerRange) {
    const int domains[] = {3000, 20000, 200000};
    for (unsigned seed = 0; seed < 30; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        Builder b{};
        EXPECT_GE(feedAndCompare(b, rng, uniform(rng, 5000, 20000), domains[seed % 3], INT_MAX), 2);
        b.release();
    }
}

TEST(RangeSetBuilder, UnusualRangesSwitchToDirectInsertion) {
    for (unsigned seed = 100; seed < 130; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        const int count = uniform(rng, 5000, 12000);
        ZeroFilled z;
        feedAndCompare(*z.b, rng, count, seed % 2 ? 3000 : 50000, uniform(rng, 0, count - 1));
        EXPECT_TRUE(z.b->direct);
    }
}

// An assigned list is taken as it is, even unsorted: later ranges go through
// rangeArrayInsert on it, and what was pending before is dropped.
TEST(RangeSetBuilder, AssignThenInsertsDirectly) {
    std::mt19937 rng(7);
    for (int round = 0; round < 20; ++round) {
        Builder b{};
        R last{0, 0};
        for (int i = 0; i < 1500; ++i) b.insert(nextRange(rng, 5000, last));
        b.insert(R{kMin, kMin});
        ASSERT_FALSE(b.pending.empty());
        RV model;
        for (int i = uniform(rng, 0, 30); i > 0; --i) {
            const int lo = uniform(rng, -100, 100);
            model.push_back(R{lo, lo + uniform(rng, 0, 5)});
        }
        b.assign(model.begin(), model.end());
        EXPECT_EQ(pairs(b.ranges), pairs(model));
        for (int i = 0; i < 300; ++i) {
            const R r = nextRange(rng, 200, last);
            b.insert(r);
            rangeArrayInsert(model, r);
        }
        b.flush();
        EXPECT_EQ(pairs(b.ranges), pairs(model)) << "round " << round;
        b.release();
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

std::vector<int> mixOf(const Pairs& p) {
    const std::vector<R> v = ranges(p);
    std::vector<int> out(mixArrayLength(v.data(), v.data() + v.size()));
    if (!p.empty()) writeMixArray(v.data(), v.data() + v.size(), out.data());
    return out;
}

TEST(SetMixArray, KnownAnswersAndWrappingCount) {
    EXPECT_EQ(mixOf({{3, 5}}), (std::vector<int>{3, static_cast<int>(0x80000003u), 5}));
    EXPECT_EQ(mixOf({{7, 7}}), (std::vector<int>{1, 7}));
    EXPECT_EQ(mixOf({}), std::vector<int>{});
    EXPECT_EQ(mixOf({{kMin, kMax}}), (std::vector<int>{0, kMin, kMax}));  // 2^32 wraps to 0
    EXPECT_EQ(mixOf({{kMin, kMax}, {9, 9}}), (std::vector<int>{1, kMin, kMax, 9}));
    // An inverted range is written as a range and counts upper - lower + 1, wrapped.
    EXPECT_EQ(mixOf({{5, 3}, {9, 9}}), (std::vector<int>{0, static_cast<int>(0x80000005u), 3, 9}));

    // Non-negative lists read back item for item; the count word is the member count mod 2^32.
    std::mt19937 rng(11);
    for (int round = 0; round < 300; ++round) {
        Pairs p;
        for (int i = uniform(rng, 1, 8); i > 0; --i) {
            const int lo = uniform(rng, 0, kMax);
            p.emplace_back(lo, uniform(rng, 0, 2) ? lo : uniform(rng, lo, kMax));
        }
        const std::vector<int> words = mixOf(p);
        const std::vector<R> v = ranges(p);
        EXPECT_EQ(static_cast<uint32_t>(words[0]), static_cast<uint32_t>(countMembers(v.data(), v.data() + v.size())));
        RV back;
        const char* error = "unset";
        convertMixToRangeArray(words.data(), words.data() + words.size(), back, error);
        EXPECT_EQ(error, nullptr);
        EXPECT_EQ(pairs(back), p);
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
    EXPECT_EQ(read(6, 0xFF, 0), SetStateError::FormsWithoutRanges);
    EXPECT_EQ(in, -1);
    EXPECT_EQ(read(6, 0, 0), SetStateError::None);
    EXPECT_EQ(count, 0u);
    for (size_t size : {6 + 1, 6 + 7, 6 + 9, 6 + 8 * 5 + 4}) {
        EXPECT_EQ(read(size, 4, 4), SetStateError::RaggedRanges) << size;
        EXPECT_EQ(count, 0u);
    }
    EXPECT_EQ(read(6 + 16, 0xFE, 0x80), SetStateError::None);
    EXPECT_EQ(std::make_tuple(in, out, count), std::make_tuple(-2, -128, uint64_t{2}));
}

}  // namespace
