// Selectivity estimation: statistics built from known populations the way
// ANALYZE builds them (MCVs, then histogram quantiles of the rest), and the
// estimates of an int4 column checked against the true fractions, more tightly
// than the planner SQL test checks estimates against actual rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <vector>

#include "qnPgSelectivity.h"

namespace {

using namespace qn::selectivity;

// Statistics of a population: the values met more than `mcvShare` of the time
// as MCVs, 101 quantiles of the others (sorted as int8 values) as bounds, and
// the number of distinct values.
struct Stats {
    std::vector<int64_t> mcv, bounds;
    std::vector<double> freq;
    ColumnStats column;
};

Stats analyze(const std::vector<int64_t>& values, double mcvShare) {
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
    s.column.distinct = static_cast<double>(counts.size());
    return s;
}

// int4 column: one value in five is 77777 (an MCV), the others multiples of 1000 in
// [0, 5000000), 4,000 distinct values spread over five million integers. A query for
// one present value counts one of its bucket's distinct values, not the value's share
// of the integers; the heavy value counts as its MCV frequency.
TEST(Selectivity, Int4SparseValuesAndAnMcv) {
    std::vector<int64_t> values;
    for (int i = 0; i < 100000; ++i) values.push_back(i % 5 == 0 ? 77777 : static_cast<int64_t>(i % 5000) * 1000);
    const Stats s = analyze(values, 0.01);
    ASSERT_EQ(s.mcv.size(), 1u);
    struct Case {
        std::vector<RangeInt> ranges;
        double fraction;
    };
    const Case cases[] = {
        {{{42000, 42000}}, 0.0002},                // one of the 4,000 other values
        {{{0, 2499999}}, 0.6},                     // half of them, and the heavy value
        {{{77777, 77777}}, 0.2},                   // the heavy value
        {{{-5000, 999}, {77001, 77999}}, 0.2},     // the heavy value inside a range, and no stored value
        {{{-5000, -1}, {5000000, 6000000}}, 0},    // outside the data
    };
    for (const Case& c : cases) {
        const RangeListSet set{c.ranges.data(), c.ranges.data() + c.ranges.size()};
        EXPECT_NEAR(int4Selectivity(s.column, set), c.fraction, 0.2 * c.fraction + 0.0001) << c.ranges[0].lower;
    }
}

}  // namespace
