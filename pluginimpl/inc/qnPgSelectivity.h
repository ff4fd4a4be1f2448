// Selectivity of the membership and overlap operators: the fraction of a
// column's rows that a clause `column <op> operand` keeps, from the statistics
// ANALYZE gathers for any int4 or int8 column: the null fraction, the most
// common values (MCVs) with their frequencies, and a histogram whose bounds cut
// the other values, sorted, into buckets of equal population. This header holds
// the arithmetic; the server side reads the statistics and the operand.
//
// int4 column against a set (a range array, a bitfield or one packed range):
// the MCVs are tested one by one, as the operator would; the other rows are
// spread over the histogram. A bucket holds 1/B of them, evenly over the
// integers from its lower bound up to the next bound (the last bucket includes
// the last bound; equal bounds make a bucket of that one value), so the set's
// members within a bucket give the bucket's share. When the column holds fewer
// distinct values than its buckets span integers (sparse data), every run of
// the set that meets a bucket counts at least one of the bucket's distinct
// values, as an equality with a value of the column would.
//
// Packed-range column (int8): its statistics are of int8 values, whose order
// is that of the upper bound (the high 32 bits) first, not the order of the
// ranges. The histogram bounds are therefore quantiles of the upper bounds, and
// each bound is also one sampled range of the column. The model: the upper
// bounds follow the histogram as above, and a range's width (upper - lower) is
// one of the sampled bounds' widths, drawn independently of where the range
// lies. With F(x) the fraction of upper bounds <= x and the sum taken over the
// sampled widths w, each weighted by its share:
//   range inside [a, b]      sum over w <= b - a of  F(b) - F(a + w - 1)
//   range contains [a, b]    sum over w >= b - a of  F(a + w) - F(b - 1)
//   range above x            sum over w of  1 - F(x + w)
//   range meets a run list   1 - (below the first run) - (inside each gap
//                            between runs) - (above the last run)
// The MCVs, exact ranges, are tested as the operator would.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgSelectivity.h must not see server headers: include it before postgres.h");
#endif

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "qnPgRangeArray.h"
#include "qnPgVector.h"
#include "quenloPgBitField.h"

namespace qn::selectivity {

using RangeInt = qn::pgRangeArray::Range<int32_t>;

// Fallbacks where statistics say nothing, the server's own for comparable
// clauses: an equality or a range comparison (0.5%), two ranges overlapping
// (1%), and the cap of a default (an inequality's third).
constexpr double kDefaultPieceSelectivity = 0.005;
constexpr double kDefaultOverlapSelectivity = 0.01;
constexpr double kDefaultCap = 1.0 / 3.0;

// p within [0, 1]; NaN gives 0.
inline double clampProbability(double p) {
    if (!(p >= 0.0)) return 0.0;
    return p > 1.0 ? 1.0 : p;
}

// A histogram over integers: bounds ascending, n >= 2, B = n - 1 buckets of
// equal population. Bucket i holds the integers start(i) to end(i) evenly:
// from bounds[i] to bounds[i + 1] - 1, the last bucket to bounds[n - 1]
// included, and a bucket whose two bounds are equal holds that value alone.
// Ends never decrease, and only one-value buckets share an integer with
// another bucket.
class IntHistogram {
public:
    IntHistogram(const int64_t* bounds, int n) : bounds_(bounds), buckets_(n - 1) {}

    // Whether bounds[0, n) can serve: at least two, ascending.
    static bool usable(const int64_t* bounds, int n) {
        if (bounds == nullptr || n < 2) return false;
        for (int i = 1; i < n; ++i)
            if (bounds[i] < bounds[i - 1]) return false;
        return true;
    }

    int buckets() const { return buckets_; }
    int64_t start(int i) const { return bounds_[i]; }
    int64_t end(int i) const {
        const int64_t next = bounds_[i + 1];
        return next == bounds_[i] || i == buckets_ - 1 ? next : next - 1;
    }
    int64_t width(int i) const { return end(i) - start(i) + 1; }

    // The first bucket whose end is >= x, or buckets() when none.
    int firstEndingAtOrAbove(int64_t x) const {
        int lo = 0, hi = buckets_;
        while (lo < hi) {
            const int mid = lo + (hi - lo) / 2;
            if (end(mid) < x)
                lo = mid + 1;
            else
                hi = mid;
        }
        return lo;
    }

    // Fraction of the population with a value <= x: the buckets ending at or
    // below x, and the part of the next one up to x.
    double atMost(int64_t x) const {
        const int i = firstEndingAtOrAbove(x + 1);
        double whole = i;
        if (i < buckets_ && start(i) <= x) whole += static_cast<double>(x - start(i) + 1) / static_cast<double>(width(i));
        return whole / buckets_;
    }

private:
    const int64_t* bounds_;
    int buckets_;
};

// The runs (maximal ranges of members) of an operand, ascending, one by one:
// next(lo, hi) gives the next run or returns false at the end.

// A range array's pairs; inverted pairs hold no member and are skipped.
class RangeListRuns {
public:
    RangeListRuns(const RangeInt* first, const RangeInt* last) : p_(first), end_(last) {}
    bool next(int64_t& lo, int64_t& hi) {
        while (p_ != end_) {
            const RangeInt r = *p_++;
            if (r.lower <= r.upper) {
                lo = r.lower;
                hi = r.upper;
                return true;
            }
        }
        return false;
    }

private:
    const RangeInt* p_;
    const RangeInt* end_;
};

// The runs of set bits of a non-empty bitfield, found a byte (or, over zeros
// and ones, eight bytes) at a time.
class BitFieldRuns {
public:
    explicit BitFieldRuns(const qn::bitfield::BitFieldView& view)
        : bits_(view.bits), bytes_(static_cast<uint64_t>(view.end - view.bits)), min_(view.min),
          n_(qn::bitfield::spanWidth(view.min, view.max)), pos_(0) {}

    bool next(int64_t& lo, int64_t& hi) {
        const uint64_t s = find(pos_, true);
        if (s >= n_) {
            pos_ = n_;
            return false;
        }
        const uint64_t e = find(s, false);
        pos_ = e;
        lo = min_ + static_cast<int64_t>(s);
        hi = min_ + static_cast<int64_t>(e) - 1;
        return true;
    }

private:
    // The first position >= p whose bit is `set`, or n_ when none.
    uint64_t find(uint64_t p, bool set) const {
        if (p >= n_) return n_;
        uint64_t k = p >> 3;
        const uint8_t flip = set ? 0x00 : 0xFF;
        uint8_t b = static_cast<uint8_t>((bits_[k] ^ flip) & qn::bitfield::kFromBit[p & 7]);
        if (!b) {
            for (++k; k + 8 <= bytes_; k += 8) {
                uint64_t word;
                std::memcpy(&word, bits_ + k, sizeof word);
                if (word != (set ? 0 : ~uint64_t{0})) break;
            }
            while (k < bytes_ && bits_[k] == flip) ++k;
            if (k >= bytes_) return n_;
            b = static_cast<uint8_t>(bits_[k] ^ flip);
        }
        const uint64_t found = k * 8 + static_cast<uint64_t>(__builtin_clz(b) - 24);
        return found < n_ ? found : n_;
    }

    const uint8_t* bits_;
    uint64_t bytes_;
    int64_t min_;
    uint64_t n_;
    uint64_t pos_;
};

// A range array operand: membership by the operator's binary search.
struct RangeListSet {
    const RangeInt* first;
    const RangeInt* last;
    bool contains(int32_t v) const { return qn::pgRangeArray::inRangeArray(first, last, v); }
    RangeListRuns runs() const { return {first, last}; }
};

// A non-empty bitfield operand.
struct BitFieldSet {
    qn::bitfield::BitFieldView view;
    bool contains(int32_t v) const {
        return view.covers(v) && qn::bitfield::testBit(view.bits, qn::bitfield::positionOf(v, view.min));
    }
    BitFieldRuns runs() const { return BitFieldRuns(view); }
};

// A column's statistics as plain arrays. MCVs are int4 values or packed ranges;
// the bounds are the histogram's, as stored (int8 order for packed ranges).
struct ColumnStats {
    double nullfrac = 0;
    const int64_t* mcv = nullptr;
    const double* mcvFreq = nullptr;
    int nmcv = 0;
    const int64_t* bounds = nullptr;
    int nbounds = 0;
    double distinct = 0;  // distinct non-null values of the column; 0 when unknown
    // Called, when set, now and then in the walks over an operand, which may hold
    // millions of runs (the server checks for a cancel there).
    void (*poll)() = nullptr;

    double mcvSum() const {
        double s = 0;
        for (int i = 0; i < nmcv; ++i) s += mcvFreq[i];
        return s;
    }
    // The share of the rows that the histogram describes: neither NULL nor an MCV.
    double rest() const { return clampProbability(1.0 - nullfrac - mcvSum()); }
};

// Sum of the frequencies of the MCVs that pass `test` (each test may walk the
// whole operand).
template <typename Test>
double mcvFraction(const ColumnStats& c, Test test) {
    double s = 0;
    for (int i = 0; i < c.nmcv; ++i) {
        if (c.poll) c.poll();
        if (test(c.mcv[i])) s += c.mcvFreq[i];
    }
    return s;
}

// A poll function that may be unset (the unit tests estimate without one).
struct OptionalPoll {
    void (*fn)();
    void operator()() const {
        if (fn) fn();
    }
};

// Runs of an operand that poll through the kernels' shared counter as they are read.
template <typename Runs>
class PolledRuns {
public:
    PolledRuns(Runs runs, void (*poll)()) : runs_(runs), tick_(OptionalPoll{poll}) {}
    bool next(int64_t& lo, int64_t& hi) {
        tick_();
        return runs_.next(lo, hi);
    }

private:
    Runs runs_;
    qn::pgRangeArray::Poller<OptionalPoll> tick_;
};

// Without statistics: 0.5% per run of the set, at most a third; 1 for a set
// holding every int4.
template <typename Runs>
double defaultSetSelectivity(Runs runs) {
    int64_t lo = 0, hi = 0, pieces = 0;
    uint64_t members = 0;
    while (runs.next(lo, hi)) {
        members += static_cast<uint64_t>(hi - lo + 1);
        ++pieces;
    }
    if (members >= (uint64_t{1} << 32)) return 1.0;
    return std::min(kDefaultCap, static_cast<double>(pieces) * kDefaultPieceSelectivity);
}

// Fraction of a histogram's population lying in the set whose runs are given
// (ascending, disjoint; anything else gives a bounded, meaningless answer).
// Bucket by bucket: the members of the set within it over its width, or, with
// distinctPerBucket > 0, at least 1/distinctPerBucket per run meeting it; at
// most the whole bucket.
template <typename Runs>
double histogramFraction(const IntHistogram& h, Runs runs, double distinctPerBucket) {
    int64_t lo = 0, hi = 0;
    bool have = runs.next(lo, hi);
    double total = 0;
    for (int i = 0; i < h.buckets() && have; ++i) {
        const int64_t s = h.start(i), e = h.end(i);
        while (have && hi < s) have = runs.next(lo, hi);
        int64_t members = 0, pieces = 0;
        while (have && lo <= e) {
            if (hi >= s) {
                members += std::min(hi, e) - std::max(lo, s) + 1;
                ++pieces;
            }
            if (hi >= e) break;  // the run goes on into the next bucket: keep it
            have = runs.next(lo, hi);
        }
        if (pieces == 0) continue;
        double share = static_cast<double>(members) / static_cast<double>(h.width(i));
        if (distinctPerBucket > 0) share = std::max(share, static_cast<double>(pieces) / distinctPerBucket);
        total += std::min(share, 1.0);
    }
    return total / h.buckets();
}

// Selectivity of `int4 column <@ set`: the MCVs tested, the rest by the
// histogram, or by the defaults when there is none.
template <typename Set>
double int4Selectivity(const ColumnStats& c, const Set& set) {
    const double common = mcvFraction(c, [&](int64_t v) { return set.contains(static_cast<int32_t>(v)); });
    double other;
    if (IntHistogram::usable(c.bounds, c.nbounds)) {
        const IntHistogram h(c.bounds, c.nbounds);
        const double perBucket = c.distinct > 0 ? std::max(1.0, (c.distinct - c.nmcv) / h.buckets()) : 0.0;
        other = histogramFraction(h, PolledRuns(set.runs(), c.poll), perBucket);
    } else {
        other = defaultSetSelectivity(PolledRuns(set.runs(), c.poll));
    }
    return clampProbability(common + c.rest() * other);
}

// The model of a packed-range column built from its histogram bounds: the
// histogram of the upper bounds and the weighted widths of the sampled ranges
// (inverted ranges count as width 0). At most kMaxWidths widths are kept: more
// distinct widths are merged, in order, into groups of equal weight, each at
// its mean width. Storage comes from A and goes back to F.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
class PackedRangeModel {
public:
    static constexpr int kMaxWidths = 128;

    // From the n packed ranges of a histogram; false (and unusable) when n < 2.
    bool build(const int64_t* packed, int n) {
        if (packed == nullptr || n < 2) return false;
        if (!uppers_.resize(n) || !widths_.resize(n)) return false;
        for (int i = 0; i < n; ++i) {
            const int64_t lower = qn::pgRangeArray::packedLower(packed[i]);
            const int64_t upper = qn::pgRangeArray::packedUpper(packed[i]);
            uppers_[i] = upper;
            widths_[i] = upper > lower ? upper - lower : 0;
        }
        return finish(n);
    }

    // From n upper bounds and nw widths (upper - lower, >= 0) given apart, each
    // set of equal weight: quantiles of the two, which the model takes as
    // independent anyway. False (and unusable) when n < 2 or nw < 1.
    bool build(const int64_t* uppers, int n, const int64_t* widths, int nw) {
        if (uppers == nullptr || widths == nullptr || n < 2 || nw < 1) return false;
        if (!uppers_.resize(n) || !widths_.resize(nw)) return false;
        std::memcpy(uppers_.data(), uppers, sizeof(int64_t) * n);
        std::memcpy(widths_.data(), widths, sizeof(int64_t) * nw);
        return finish(n);
    }

private:
    bool finish(int n) {
        const int nw = static_cast<int>(widths_.size());
        std::sort(uppers_.begin(), uppers_.end());
        std::sort(widths_.begin(), widths_.end());
        int distinct = 1;
        for (int i = 1; i < nw; ++i) distinct += widths_[i] != widths_[i - 1];
        const int groups = std::min(distinct, kMaxWidths);
        if (!cumWeight_.resize(groups + 1) || !cumWidth_.resize(groups + 1)) return false;
        cumWeight_[0] = cumWidth_[0] = 0;
        int g = 0;
        for (int i = 0; i < nw;) {
            // One group: equal widths, or, when merging, the next nw / groups of them.
            int j = i + 1;
            if (distinct <= kMaxWidths) {
                while (j < nw && widths_[j] == widths_[i]) ++j;
            } else {
                j = std::max(j, static_cast<int>(static_cast<int64_t>(g + 1) * nw / groups));
            }
            double sum = 0;
            for (int k = i; k < j; ++k) sum += static_cast<double>(widths_[k]);
            const double share = static_cast<double>(j - i) / nw;
            widths_[g] = static_cast<int64_t>(sum / (j - i) + 0.5);
            cumWeight_[g + 1] = cumWeight_[g] + share;
            cumWidth_[g + 1] = cumWidth_[g] + share * static_cast<double>(widths_[g]);
            ++g;
            i = j;
        }
        widths_.resize(g);
        hist_ = IntHistogram(uppers_.data(), n);
        return true;
    }

public:

    // F(x): share of the ranges whose upper bound is <= x.
    double atMost(int64_t x) const { return hist_.atMost(x); }

    int upperCount() const { return static_cast<int>(uppers_.size()); }
    int64_t upper(int i) const { return uppers_[i]; }
    int widthCount() const { return static_cast<int>(widths_.size()); }
    int64_t width(int k) const { return widths_[k]; }
    double weight(int k) const { return cumWeight_[k + 1] - cumWeight_[k]; }

    // Share of the ranges whose lower bound is above x.
    double above(int64_t x) const {
        double s = 0;
        for (int k = 0; k < widthCount(); ++k) s += weight(k) * (1.0 - atMost(x + widths_[k]));
        return s;
    }

    // Share of the ranges lying inside [a, b]. When F is linear over [a - 1, b]
    // (both inside one bucket of several values) the sum has a closed form.
    double inside(int64_t a, int64_t b) const {
        if (b < a) return 0.0;
        const int64_t gap = b - a;
        const int k = static_cast<int>(std::upper_bound(widths_.begin(), widths_.end(), gap) - widths_.begin());
        if (k == 0) return 0.0;
        const int j = hist_.firstEndingAtOrAbove(a - 1);
        if (j < hist_.buckets() && hist_.start(j) <= a - 1 && b <= hist_.end(j))
            return (cumWeight_[k] * static_cast<double>(gap + 1) - cumWidth_[k]) /
                   (static_cast<double>(hist_.buckets()) * static_cast<double>(hist_.width(j)));
        const double fb = atMost(b);
        double s = 0;
        for (int i = 0; i < k; ++i) s += weight(i) * std::max(0.0, fb - atMost(a + widths_[i] - 1));
        return s;
    }

    // Share of the ranges containing [a, b].
    double containing(int64_t a, int64_t b) const {
        const int first =
            static_cast<int>(std::lower_bound(widths_.begin(), widths_.end(), b - a) - widths_.begin());
        const double below = atMost(b - 1);
        double s = 0;
        for (int k = first; k < widthCount(); ++k) s += weight(k) * std::max(0.0, atMost(a + widths_[k]) - below);
        return s;
    }

    // Share of the ranges meeting a set given by its runs (ascending, disjoint):
    // all but those lying below it, inside one of its gaps, or above it.
    template <typename Runs>
    double meeting(Runs runs) const {
        int64_t lo = 0, hi = 0;
        if (!runs.next(lo, hi)) return 0.0;
        double outside = atMost(lo - 1);
        int64_t reached = hi;
        while (runs.next(lo, hi)) {
            outside += inside(reached + 1, lo - 1);
            reached = std::max(reached, hi);
        }
        outside += above(reached);
        return clampProbability(1.0 - outside);
    }

private:
    qn::pg::tVector<int64_t, A, F> uppers_;
    qn::pg::tVector<int64_t, A, F> widths_;     // ascending; the group widths once built
    qn::pg::tVector<double, A, F> cumWeight_;  // [k]: total weight of groups 0 to k - 1
    qn::pg::tVector<double, A, F> cumWidth_;   // [k]: total weight * width of groups 0 to k - 1
    IntHistogram hist_{nullptr, 1};
};

// What a packed-range column is tested for: meeting a run list (a range array
// or one range), lying inside one range, or containing one range (or value).
enum class PackedTest { Meets, LiesIn, Contains };

// Selectivity of a packed-range column's test against the operand [first,
// last) (one range for LiesIn and Contains): the MCVs tested as the operator
// would, the rest by the model, or by the defaults when there is none.
template <typename Model>
double packedSelectivity(const ColumnStats& c, const Model* model, PackedTest test, const RangeInt* first,
                         const RangeInt* last) {
    using qn::pgRangeArray::packedLower;
    using qn::pgRangeArray::packedUpper;
    if (first == last) return 0.0;
    const RangeInt q = *first;
    const double common = mcvFraction(c, [&](int64_t packed) {
        const int32_t l = packedLower(packed), u = packedUpper(packed);
        switch (test) {
            case PackedTest::Meets: return qn::pgRangeArray::rangeOverlapsList(l, u, first, last);
            case PackedTest::LiesIn: return l >= q.lower && u <= q.upper;
            case PackedTest::Contains: return l <= q.lower && u >= q.upper;
        }
        return false;
    });
    double other = 0.0;
    if (model != nullptr) {
        switch (test) {
            case PackedTest::Meets: other = model->meeting(PolledRuns(RangeListRuns(first, last), c.poll)); break;
            case PackedTest::LiesIn: other = model->inside(q.lower, q.upper); break;
            case PackedTest::Contains: other = model->containing(q.lower, q.upper); break;
        }
    } else if (test == PackedTest::Meets) {
        PolledRuns runs(RangeListRuns(first, last), c.poll);
        int64_t lo, hi, pieces = 0;
        while (runs.next(lo, hi)) ++pieces;
        other = std::min(kDefaultCap, static_cast<double>(pieces) * kDefaultOverlapSelectivity);
    } else {
        other = test == PackedTest::LiesIn && q.lower > q.upper ? 0.0 : kDefaultPieceSelectivity;
    }
    return clampProbability(common + c.rest() * other);
}

// The middle of a packed range, as a value a query typical of the column
// would ask for.
inline int32_t packedMiddle(int64_t packed) {
    const int64_t l = qn::pgRangeArray::packedLower(packed), u = qn::pgRangeArray::packedUpper(packed);
    return static_cast<int32_t>(l + (u >= l ? (u - l) / 2 : 0));
}

// Of a join, or of a clause whose operand varies from row to row: the share of
// the rows matched, given the selectivities s[j] of each sampled operand j of
// the other side and their weights w[j] (summing to that side's non-NULL share).
//   pairs         each pair of rows matches with probability sum w[j] s[j]
//   outer rows    (semi and anti joins, the sampled side inner, `inner` rows)
//                 a row finds no match among the inner rows with probability
//                 prod (1 - s[j]) ^ (inner w[j])
//   sampled rows  (semi and anti joins, the sampled side outer) a sampled row j
//                 finds no match among `inner` rows with probability (1 - s[j]) ^ inner
enum class JoinShare { Pairs, OuterRows, SampledRows };

inline double joinSelectivity(JoinShare share, const double* s, const double* w, int n, double inner) {
    // log(1 - s) stays finite: a certain match counts as all but certain.
    auto logMiss = [](double p) { return std::log1p(-std::min(clampProbability(p), 1.0 - 1e-15)); };
    double result = 0;
    switch (share) {
        case JoinShare::Pairs:
            for (int j = 0; j < n; ++j) result += w[j] * s[j];
            break;
        case JoinShare::OuterRows: {
            double logNone = 0;
            for (int j = 0; j < n; ++j) logNone += inner * w[j] * logMiss(s[j]);
            result = 1.0 - std::exp(logNone);
            break;
        }
        case JoinShare::SampledRows:
            for (int j = 0; j < n; ++j) result += w[j] * (1.0 - std::exp(inner * logMiss(s[j])));
            break;
    }
    return clampProbability(result);
}

}  // namespace qn::selectivity
