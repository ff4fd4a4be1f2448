// Selectivity estimation: statistics built from known populations the way
// ANALYZE builds them (MCVs, then histogram quantiles of the rest), and the
// estimates of int4 columns checked against the true fractions (a set given as
// ranges and as a bitfield alike). The packed-range estimates are checked
// against actual rows by the planner SQL test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <random>
#include <vector>

#include "qnPgSelectivity.h"

namespace {

using namespace qn::selectivity;

// Statistics of a population: the values met more than `mcvShare` of the time
// as MCVs, and 101 quantiles of the others (sorted as int8 values) as bounds.
struct Stats {
    std::vector<int64_t> mcv, bounds;
    std::vector<double> freq;
    ColumnStats column;
};

Stats analyze(std::vector<int64_t> values, double mcvShare, double distinct = 0) {
    Stats s;
    std::map<int64_t, int> counts;
    for (int64_t v : values) ++counts[v];
    std::vector<int64_t> rest;
    for (int64_t v : values) {
        const double share = static_cast<double>(counts[v]) / values.size();
        if (share <= mcvShare) rest.push_back(v);
    }
    for (const auto& [v, n] : counts)
        if (static_cast<double>(n) / values.size() > mcvShare) {
            s.mcv.push_back(v);
            s.freq.push_back(static_cast<double>(n) / values.size());
        }
    std::sort(rest.begin(), rest.end());
    for (int i = 0; i <= 100; ++i) s.bounds.push_back(rest[(rest.size() - 1) * i / 100]);
    s.column.mcv = s.mcv.data();
    s.column.mcvFreq = s.freq.data();
    s.column.nmcv = static_cast<int>(s.mcv.size());
    s.column.bounds = s.bounds.data();
    s.column.nbounds = static_cast<int>(s.bounds.size());
    s.column.distinct = distinct;
    return s;
}

template <typename Test>
double truth(const std::vector<int64_t>& values, Test test) {
    return static_cast<double>(std::count_if(values.begin(), values.end(), test)) / values.size();
}

// A bitfield over [min, max] holding the members of the ranges (bytes after the length word included).
std::vector<uint8_t> bitfield(int32_t min, int32_t max, const std::vector<RangeInt>& ranges) {
    const uint32_t n = qn::bitfield::spanWidth(min, max);
    std::vector<uint8_t> value(qn::bitfield::kHeaderBytes + qn::bitfield::bitBytes(n), 0);
    qn::bitfield::writeBounds(value.data(), min, max);
    for (const RangeInt& r : ranges)
        qn::bitfield::setRun(value.data() + qn::bitfield::kHeaderBytes, qn::bitfield::positionOf(r.lower, min),
                             qn::bitfield::positionOf(r.upper, min));
    return value;
}

BitFieldSet bitfieldSet(const std::vector<uint8_t>& value) {
    qn::bitfield::BitFieldView view{};
    EXPECT_EQ(qn::bitfield::readBitField(value.data(), value.size(), view), qn::bitfield::BitFieldRead::Ok);
    return BitFieldSet{view};
}

// int4 column: 20% one value, the rest spread over [0, 100000).
TEST(Selectivity, Int4SetsAgainstTheirTrueFractions) {
    std::vector<int64_t> values;
    std::mt19937 rng(3);
    for (int i = 0; i < 200000; ++i) values.push_back(i % 5 == 0 ? 77777 : static_cast<int64_t>(rng() % 100000));
    const Stats s = analyze(values, 0.01);
    ASSERT_EQ(s.mcv.size(), 1u);
    struct Case {
        std::vector<RangeInt> ranges;
    };
    std::vector<Case> cases = {
        {{{1000, 1999}}},                        // 1% of the spread
        {{{0, 49999}}},                          // half of it
        {{{77777, 77777}}},                      // the heavy value
        {{{50, 50}, {77000, 78000}}},            // a point, and a range holding the heavy value
        {{{-5000, -1}, {100000, 200000}}},       // outside the data
    };
    Case many;
    for (int32_t v = 0; v < 100000; v += 1000) many.ranges.push_back({v, v + 99});  // 100 ranges, 10%
    cases.push_back(many);
    for (const Case& c : cases) {
        const RangeListSet set{c.ranges.data(), c.ranges.data() + c.ranges.size()};
        const double actual =
            truth(values, [&](int64_t v) { return set.contains(static_cast<int32_t>(v)); });
        const double estimate = int4Selectivity(s.column, set);
        EXPECT_NEAR(estimate, actual, 0.1 * actual + 0.0005) << c.ranges.size() << " ranges from " << c.ranges[0].lower;
        // The same members as a bitfield give the same estimate.
        if (c.ranges.front().lower >= 0 && c.ranges.back().upper < 200000) {
            const std::vector<uint8_t> bf = bitfield(c.ranges.front().lower, c.ranges.back().upper, c.ranges);
            EXPECT_DOUBLE_EQ(int4Selectivity(s.column, bitfieldSet(bf)), estimate);
        }
    }
}

// Sparse data (multiples of 1000): a query for one present value counts one of
// the bucket's distinct values, not the value's share of the integers.
TEST(Selectivity, Int4SparseValuesCountAsDistinctValues) {
    std::vector<int64_t> values;
    for (int i = 0; i < 100000; ++i) values.push_back(static_cast<int64_t>(i % 5000) * 1000);
    const Stats s = analyze(values, 0.01, 5000);
    const RangeInt point{42000, 42000};
    const double estimate = int4Selectivity(s.column, RangeListSet{&point, &point + 1});
    EXPECT_NEAR(estimate, 1.0 / 5000, 0.5 / 5000);
    const RangeInt wide{0, 2499999};
    EXPECT_NEAR(int4Selectivity(s.column, RangeListSet{&wide, &wide + 1}), 0.5, 0.02);
}

}  // namespace
