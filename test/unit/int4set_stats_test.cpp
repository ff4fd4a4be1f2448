// int4set statistics: populations of sets gathered as ANALYZE gathers them,
// stored and read back through the stored layout, and the estimates checked
// against the true shares counted on the population itself, where the server
// cannot be led (mixed width classes, the run budget, heavy rows, damaged
// statistics). The shapes the estimates are built for: int4set_estimates.sql.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "qnPgInt4SetStats.h"

namespace {

using namespace qn::int4setstats;
using SetRun = qn::int4setstats::Run;

using Set = std::vector<SetRun>;  // ascending, disjoint, apart

struct VectorRuns {
    const Set* s;
    size_t i = 0;
    bool next(int64_t& lo, int64_t& hi) {
        if (i >= s->size()) return false;
        lo = (*s)[i].lo;
        hi = (*s)[i].hi;
        ++i;
        return true;
    }
};

struct CountPolls {
    int* n;
    void operator()() const { ++*n; }
};

// The set of possibly overlapping ranges, normalised.
Set normalise(std::vector<SetRun> r) {
    std::sort(r.begin(), r.end(), [](const SetRun& a, const SetRun& b) { return a.lo < b.lo; });
    Set out;
    for (const SetRun& x : r) {
        if (!out.empty() && int64_t{x.lo} <= int64_t{out.back().hi} + 1)
            out.back().hi = std::max(out.back().hi, x.hi);
        else
            out.push_back(x);
    }
    return out;
}

bool holds(const Set& s, int64_t lo, int64_t hi) {
    for (const SetRun& r : s)
        if (r.lo <= lo && hi <= r.hi) return true;
    return false;
}
bool meets(const Set& s, const Set& q) {
    for (const SetRun& a : s)
        for (const SetRun& b : q)
            if (a.lo <= b.hi && b.lo <= a.hi) return true;
    return false;
}

// The statistics of a population, read back as the planner reads them.
struct Analyzed {
    Gathered g;
    SetColumn<malloc, free> column;
    int polls = 0;

    Analyzed(const std::vector<Set>& rows, int target = 100, uint64_t budget = kRunBudget) {
        Gatherer<malloc, free, CountPolls> gatherer(target, static_cast<int>(rows.size()), CountPolls{&polls}, budget);
        for (const Set& s : rows) {
            if (s.empty()) {
                gatherer.addEmpty();
                continue;
            }
            uint64_t card = 0;
            for (const SetRun& r : s) card += static_cast<uint64_t>(int64_t{r.hi} - r.lo + 1);
            VectorRuns runs{&s};
            gatherer.addRow(s.size(), s.front().lo, s.back().hi, card, runs);
        }
        EXPECT_TRUE(gatherer.finish(g));
        EXPECT_TRUE(column.load(g.numbers, g.nnumbers, g.values, g.nvalues, g.members, g.memberFreqs, g.nmembers));
    }
    ~Analyzed() {
        free(g.numbers);
        free(g.values);
        free(g.members);
        free(g.memberFreqs);
    }
};

template <typename Pred>
double share(const std::vector<Set>& rows, Pred pred) {
    double n = 0;
    for (const Set& s : rows) n += pred(s);
    return n / rows.size();
}

// Within a factor of `q` of the truth, both floored at `floor` (a share of rows).
void expectNear(double estimate, double truth, double q, double floor, const char* what) {
    const double e = std::max(estimate, floor), t = std::max(truth, floor);
    EXPECT_LE(std::max(e / t, t / e), q) << what << ": estimate " << estimate << ", truth " << truth;
}

// Rows of 10 ranges over [0, 10^6) of widths below 5,000; one in ten empty.
std::vector<Set> rangeRows(int n, std::mt19937& rng) {
    std::vector<Set> rows;
    for (int i = 0; i < n; ++i) {
        std::vector<SetRun> r;
        if (i % 10 != 0)
            for (int k = 0; k < 10; ++k) {
                const int32_t lo = static_cast<int32_t>(rng() % 1000000);
                r.push_back(SetRun{lo, lo + static_cast<int32_t>(rng() % 5000)});
            }
        rows.push_back(normalise(r));
    }
    return rows;
}

// A population mixing long ranges over one stretch of the line with lone members
// over another: position and width must stay tied.
TEST(Int4SetStats, WidthClassesKeepPositionAndWidthTogether) {
    std::mt19937 rng(11);
    std::vector<Set> rows;
    for (int i = 0; i < 4000; ++i) {
        std::vector<SetRun> r;
        if (i % 2) {
            const int32_t lo = static_cast<int32_t>(rng() % 10000000);
            r.push_back(SetRun{lo, lo + 100000});
        } else {
            for (int k = 0; k < 500; ++k) {
                const int32_t v = 20000000 + static_cast<int32_t>(rng() % 10000000);
                r.push_back(SetRun{v, v});
            }
        }
        rows.push_back(normalise(r));
    }
    Analyzed a(rows);
    for (int64_t v : {5000000, 25000000})
        expectNear(a.column.containsRange(v, v), share(rows, [&](const Set& s) { return holds(s, v, v); }), 1.5,
                   0.001, "value");
    expectNear(a.column.containsRange(5000000, 5000100),
               share(rows, [&](const Set& s) { return holds(s, 5000000, 5000100); }), 2, 0.001, "range");
}

// Past the run budget, every other row's runs are dropped, again and again:
// the rows kept are spread evenly and the estimates hold.
TEST(Int4SetStats, RunBudgetThinsRowsEvenly) {
    std::mt19937 rng(5);
    const std::vector<Set> rows = rangeRows(3000, rng);
    Analyzed thin(rows, 100, 8192);  // a quarter of the rows
    for (int64_t v : {200000, 700000})
        expectNear(thin.column.containsRange(v, v), share(rows, [&](const Set& s) { return holds(s, v, v); }), 1.6,
                   0.002, "value");
    const Set q{{300000, 310000}};
    expectNear(thin.column.meets(VectorRuns{&q}), share(rows, [&](const Set& s) { return meets(s, q); }), 1.3, 0.002,
               "meets");
    EXPECT_GT(thin.polls, 0);
}

// A row with more runs than a sixteenth of the budget gives every s-th run at
// weight s: one row in three holds 4,000 runs of 5 members every 10 integers
// over [2000000, 2040000), and counts in full.
TEST(Int4SetStats, HeavyRowsCountAtTheirWeight) {
    std::vector<Set> rows;
    for (int i = 0; i < 30; ++i) {
        Set s;
        if (i % 3 == 0)
            for (int k = 0; k < 4000; ++k) s.push_back(SetRun{2000000 + 10 * k, 2000000 + 10 * k + 4});
        else
            for (int k = 0; k < 10; ++k) s.push_back(SetRun{100 * i + 5 * k, 100 * i + 5 * k + 1});
        rows.push_back(s);
    }
    Analyzed a(rows, 100, 16384);
    double members = 0;
    for (int64_t v = 2020000; v < 2020100; ++v) members += a.column.containsRange(v, v);
    expectNear(members, 50.0 / 3, 1.3, 0, "heavy rows");
    expectNear(a.column.runsPerRow(), (10 * 4000 + 20 * 10) / 30.0, 1.001, 0, "runs per row");
}

// Stored statistics that do not read as the layout are refused, never read
// past their arrays; the smallest populations still give usable statistics.
TEST(Int4SetStats, LayoutChecks) {
    std::mt19937 rng(9);
    const std::vector<Set> rows = rangeRows(200, rng);
    Analyzed a(rows);
    SetColumn<malloc, free> c;
    std::vector<float> numbers(a.g.numbers, a.g.numbers + a.g.nnumbers);
    for (int cut = 0; cut < a.g.nnumbers; ++cut) {
        std::vector<float> shorter(numbers.begin(), numbers.begin() + cut);
        EXPECT_FALSE(c.load(shorter.data(), cut, a.g.values, a.g.nvalues, nullptr, nullptr, 0)) << cut;
    }
    EXPECT_FALSE(c.load(a.g.numbers, a.g.nnumbers, a.g.values, a.g.nvalues - 1, nullptr, nullptr, 0));
    numbers[0] = 2;  // another layout
    EXPECT_FALSE(c.load(numbers.data(), a.g.nnumbers, a.g.values, a.g.nvalues, nullptr, nullptr, 0));
    numbers[0] = kLayoutVersion;
    numbers[6] = 40;  // more classes than there are
    EXPECT_FALSE(c.load(numbers.data(), a.g.nnumbers, a.g.values, a.g.nvalues, nullptr, nullptr, 0));

    // Only empty sets: nothing is met, everything lies within.
    Analyzed empty(std::vector<Set>(10));
    const Set q{{1, 5}};
    EXPECT_EQ(empty.column.meets(VectorRuns{&q}), 0.0);
    EXPECT_EQ(empty.column.within(VectorRuns{&q}), 1.0);
    EXPECT_EQ(empty.column.containsRange(3, 3), 0.0);
    EXPECT_FALSE(empty.column.hasExtremes());
    // One row of one member at each end of the line.
    Analyzed ends(std::vector<Set>{Set{{INT32_MIN, INT32_MIN}, {INT32_MAX, INT32_MAX}}});
    EXPECT_NEAR(ends.column.containsRange(INT32_MAX, INT32_MAX), 1.0, 1e-6);
    EXPECT_NEAR(ends.column.containsRange(0, 0), 0.0, 1e-6);
}

}  // namespace
