// Statistics of an int4set column and the selectivities read from them: what
// ANALYZE gathers from its sample rows (the server side feeds the rows and
// stores the result in two slots of pg_statistic next to the ordinary MCVs and
// histogram of whole values), and the arithmetic of the estimates.
//
// What is gathered, and why. A set may hold up to 2^32 members, so nothing is
// counted member by member except short runs; a set is read as its maximal runs
// (ranges), of which a row has at most about 2^31. The operators ask:
//   value or range in the set       (@> int4, @> int4range, @> set)
//   set meets the operand           (&& set, && int4range)
//   set within the operand          (<@ set, <@ int4range)
//   least and greatest members      (<< >> &< &> -|-)
// A histogram of member density per bin answers the first question only for
// single values: whether a row holds a whole range depends on how long its runs
// are where the range lies. So the statistics describe the runs themselves,
// pooled over the rows: a run is its upper end and its width (upper - lower).
// Runs are split by width into 33 classes (width 0, then [2^k, 2^(k+1)));
// within a class, upper ends follow a histogram of their own (equal-population
// quantiles) and widths a few quantiles, drawn independently. The classes keep
// position and width tied where it matters (long ranges over one stretch of the
// line and lone members over another), and the histograms keep lone hot values
// (a value many rows hold as a short run is a repeated bound: a one-value
// bucket). The model of one class is that of a packed-range column
// (qnPgSelectivity.h): the share of its runs containing [a, b], lying inside
// [a, b] or meeting a run list. With R the average runs per row and runs of
// one row disjoint, R times the share of runs containing [a, b] is the share
// of rows containing it: exact in expectation, whatever the row's runs.
//
// Per row: the share of empty sets (non-null), the runs per row as quantiles
// over the non-empty rows (meeting and containment combine per-run chances
// over a row's runs: 1 - (1 - q)^k and p^k), and the least and greatest members
// as histograms (the positional operators compare exactly those; they also bound
// containment: a set within [a, b] has its least member >= a). The average
// cardinality is kept for reference.
//
// Most common members: a value held by many rows among many runs per row (a
// hot value among 1,000 lone members each) is too small a share of the runs to
// show in a histogram. Members of short runs (width < 4) are counted exactly
// over the sampled rows; those met clearly more often than the typical member
// (above 3 times the mean count plus 5 standard deviations, and at least 6
// times) become most common members with their frequency: the share of rows
// holding them, long runs included. A value probe or a small operand reads
// them first. Runs that are a most common member alone are left out of the
// classes, so that the values around a hot one do not take its weight.
//
// Sampling: every non-null sample row gives its extremes and run count; the
// runs themselves are kept up to a budget (kRunBudget): past it, every other
// row's runs are dropped and rows are taken at twice the stride, so the runs
// kept come from evenly spread rows. A row with more runs than a sixteenth of
// the budget gives every s-th of them, each weighing s.
//
// Storage: slot kKindRuns holds float4 numbers (layout below) and int4 values
// (each class's upper quantiles, then the quantiles of least and greatest
// members); slot kKindMembers the most common members (int4, ascending) and
// their frequencies. Numbers:
//   [0] layout version 1, [1] empty share, [2] runs per row (but those that
//   are a most common member alone: the classes leave them out), [3] average
//   cardinality, [4] extremes count E, [5] run-count quantiles K, [6] classes C,
//   then K run-count quantiles, then per class: id, share of the runs, upper
//   quantiles U, width quantiles W, and its W widths.
//   Values: the classes' U uppers in class order, E least members, E greatest.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgInt4SetStats.h must not see server headers: include it before postgres.h");
#endif

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "qnPgSelectivity.h"
#include "qnPgVector.h"

namespace qn::int4setstats {

using qn::selectivity::clampProbability;
using qn::selectivity::IntHistogram;

// Statistic kinds in pg_statistic, from the range kept for private use.
constexpr int kKindRuns = 17301;
constexpr int kKindMembers = 17302;
constexpr float kLayoutVersion = 1;
constexpr int kHeaderNumbers = 7;

constexpr int kClasses = 33;
constexpr uint64_t kRunBudget = uint64_t{1} << 20;
constexpr int kWidthQuantiles = 16;
constexpr int kRunCountQuantiles = 32;
constexpr int kShortWidth = 3;          // runs up to this width count their members
constexpr uint64_t kMemberBudget = uint64_t{1} << 22;
constexpr double kMinMemberCount = 6;

// Defaults without statistics, as the server's for comparable range clauses.
constexpr double kDefaultContainment = qn::selectivity::kDefaultPieceSelectivity;
constexpr double kDefaultOverlap = qn::selectivity::kDefaultOverlapSelectivity;
constexpr double kDefaultPosition = qn::selectivity::kDefaultPieceSelectivity;

inline int widthClass(uint64_t width) { return width == 0 ? 0 : 64 - __builtin_clzll(width); }

struct Run {
    int32_t lo;
    int32_t hi;
};

// One run [lo, hi] as an operand (next(lo, hi) as every operand).
class SingleRun {
public:
    SingleRun(int64_t lo, int64_t hi) : lo_(lo), hi_(hi) {}
    bool next(int64_t& lo, int64_t& hi) {
        if (done_) return false;
        done_ = true;
        lo = lo_;
        hi = hi_;
        return true;
    }

private:
    int64_t lo_, hi_;
    bool done_ = false;
};

// ---- gathering

// What ANALYZE stores, as plain arrays (owned by the gatherer that made them).
struct Gathered {
    float* numbers = nullptr;
    int nnumbers = 0;
    int32_t* values = nullptr;
    int nvalues = 0;
    int32_t* members = nullptr;  // most common members, ascending
    float* memberFreqs = nullptr;
    int nmembers = 0;
};

template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
class Gatherer {
public:
    // target: the column's statistics target; rows: sample rows at most.
    Gatherer(int target, int rows, Poll poll, uint64_t runBudget = kRunBudget)
        : target_(std::max(target, 1)), budget_(std::max<uint64_t>(runBudget, 16)), poll_(poll),
          mins_(rows), maxs_(rows), runCounts_(rows) {}

    void addEmpty() {
        ++rows_;
        ++empty_;
        takeSegment(1);
    }

    // A non-empty row: its run count, extremes and cardinality; then its runs
    // are read from `runs` (next(lo, hi)) if the row is taken.
    template <typename Runs>
    bool addRow(uint64_t runCount, int32_t least, int32_t greatest, uint64_t card, Runs& runs) {
        ++rows_;
        totalRuns_ += static_cast<double>(runCount);
        totalCard_ += static_cast<double>(card);
        mins_.push_back(least);
        maxs_.push_back(greatest);
        runCounts_.push_back(static_cast<double>(runCount));
        const uint64_t rowCap = budget_ / 16;
        const uint64_t step = runCount > rowCap ? (runCount + rowCap - 1) / rowCap : 1;
        if (!takeSegment(step)) return true;
        const uint64_t begin = runs_.size();
        int64_t lo, hi;
        uint64_t i = 0;
        while (runs.next(lo, hi)) {
            if (i++ % step == 0) runs_.push_back(Run{static_cast<int32_t>(lo), static_cast<int32_t>(hi)});
            tick();
        }
        segs_[segs_.size() - 1].count = runs_.size() - begin;
        if (runs_.size() > budget_) halve();
        return true;
    }

    // The statistics, or false when no row was seen (or memory ran out).
    bool finish(Gathered& out) {
        out = Gathered();
        if (rows_ == 0) return false;
        const uint64_t nonEmpty = mins_.size();
        // Run-count quantiles over the non-empty rows, at the middles of K equal shares.
        const int K = nonEmpty ? static_cast<int>(std::min<uint64_t>(kRunCountQuantiles, nonEmpty)) : 0;
        std::sort(runCounts_.begin(), runCounts_.end());
        // The most common members first: the runs that are one of them alone are
        // theirs, and left out of the classes.
        commonMembers(out);
        // Classes: total weight, and the (upper, weight) and (width, weight) of their runs.
        double classWeight[kClasses] = {}, common = 0;
        for (const Segment& s : segs_)
            for (uint64_t r = s.begin; r < s.begin + s.count; ++r) {
                tick();
                if (isCommon(runs_[r], out))
                    common += s.weight;
                else
                    classWeight[widthClass(widthOf(runs_[r]))] += s.weight;
            }
        double total = 0;
        int present = 0;
        for (double w : classWeight) {
            total += w;
            present += w > 0;
        }
        const int E =
            nonEmpty ? static_cast<int>(std::min<uint64_t>(10 * uint64_t(target_) + 1, std::max<uint64_t>(nonEmpty, 2))) : 0;
        int uppersTotal = 0, numbersTotal = kHeaderNumbers + K;
        int uppersOf[kClasses] = {}, widthsOf[kClasses] = {};
        for (int c = 0; c < kClasses; ++c) {
            if (classWeight[c] <= 0) continue;
            const double share = classWeight[c] / total;
            uppersOf[c] = std::clamp(static_cast<int>(std::lround(share * 10 * target_)), 8, 10 * target_) + 1;
            widthsOf[c] = kWidthQuantiles;
            uppersTotal += uppersOf[c];
            numbersTotal += 4 + widthsOf[c];
        }
        out.nnumbers = numbersTotal;
        // At least one value: the server stores no values as NULL, which it then refuses to read.
        out.nvalues = std::max(uppersTotal + 2 * E, 1);
        out.numbers = static_cast<float*>(A(sizeof(float) * numbersTotal));
        out.values = static_cast<int32_t*>(A(sizeof(int32_t) * std::max(out.nvalues, 1)));
        if (!out.numbers || !out.values) return false;
        float* n = out.numbers;
        out.values[0] = 0;
        n[0] = kLayoutVersion;
        n[1] = static_cast<float>(static_cast<double>(empty_) / rows_);
        n[2] = static_cast<float>(total + common > 0 ? totalRuns_ / rows_ * total / (total + common) : 0);
        n[3] = static_cast<float>(totalCard_ / rows_);
        n[4] = static_cast<float>(E);
        n[5] = static_cast<float>(K);
        n[6] = static_cast<float>(present);
        for (int j = 0; j < K; ++j) n[kHeaderNumbers + j] = static_cast<float>(runCounts_[(2 * j + 1) * nonEmpty / (2 * K)]);
        int at = kHeaderNumbers + K, v = 0;
        qn::pg::tVector<Weighted, A, F> items(1);
        for (int c = 0; c < kClasses; ++c) {
            if (classWeight[c] <= 0) continue;
            n[at++] = static_cast<float>(c);
            n[at++] = static_cast<float>(classWeight[c] / total);
            n[at++] = static_cast<float>(uppersOf[c]);
            n[at++] = static_cast<float>(widthsOf[c]);
            collect(c, true, out, items);
            weightedQuantiles(items, uppersOf[c], false, [&](int, int64_t x) { out.values[v++] = static_cast<int32_t>(x); });
            collect(c, false, out, items);
            weightedQuantiles(items, widthsOf[c], true, [&](int, int64_t x) { n[at++] = static_cast<float>(x); });
        }
        if (E) {
            std::sort(mins_.begin(), mins_.end());
            std::sort(maxs_.begin(), maxs_.end());
            for (int i = 0; i < E; ++i) out.values[v + i] = mins_[(nonEmpty - 1) * i / (E - 1)];
            for (int i = 0; i < E; ++i) out.values[v + E + i] = maxs_[(nonEmpty - 1) * i / (E - 1)];
        }
        return true;
    }

private:
    struct Segment {
        uint64_t ordinal;
        uint64_t begin;
        uint64_t count;
        double weight;
    };
    struct Weighted {
        int64_t x;
        double w;
    };

    static uint64_t widthOf(const Run& r) {
        return static_cast<uint64_t>(static_cast<int64_t>(r.hi) - static_cast<int64_t>(r.lo));
    }

    void tick() {
        if (++work_ >= (uint64_t{1} << 16)) {
            work_ = 0;
            poll_();
        }
    }

    // Whether row rows_ - 1 is taken at the present stride; if so, its segment.
    bool takeSegment(uint64_t step) {
        const uint64_t ordinal = rows_ - 1;
        if (ordinal % stride_) return false;
        segs_.push_back(Segment{ordinal, runs_.size(), 0, static_cast<double>(step)});
        return true;
    }

    // Keeps the rows at twice the stride, their runs moved down in place.
    void halve() {
        while (runs_.size() > budget_) {
            stride_ *= 2;
            uint64_t to = 0, kept = 0;
            for (uint64_t i = 0; i < segs_.size(); ++i) {
                Segment s = segs_[i];
                tick();
                if (s.ordinal % stride_) continue;
                std::memmove(runs_.data() + to, runs_.data() + s.begin, sizeof(Run) * s.count);
                s.begin = to;
                to += s.count;
                segs_[kept++] = s;
            }
            runs_.resize(to);
            segs_.resize(kept);
        }
    }

    // A run that is one most common member alone.
    static bool isCommon(const Run& r, const Gathered& out) {
        return r.lo == r.hi && std::binary_search(out.members, out.members + out.nmembers, r.lo);
    }

    // The kept runs of class c as (upper, weight) or (width, weight), sorted.
    void collect(int c, bool uppers, const Gathered& out, qn::pg::tVector<Weighted, A, F>& items) {
        items.resize(0);
        for (const Segment& s : segs_)
            for (uint64_t r = s.begin; r < s.begin + s.count; ++r) {
                tick();
                const uint64_t w = widthOf(runs_[r]);
                if (widthClass(w) == c && !isCommon(runs_[r], out)) items.push_back(Weighted{uppers ? runs_[r].hi : static_cast<int64_t>(w), s.weight});
            }
        std::sort(items.begin(), items.end(), [](const Weighted& a, const Weighted& b) { return a.x < b.x; });
    }

    // q weighted quantiles of sorted items: from the least to the greatest
    // (ends), or at the middles of q equal shares.
    template <typename Out>
    void weightedQuantiles(const qn::pg::tVector<Weighted, A, F>& items, int q, bool middles, Out out) {
        double total = 0;
        for (const Weighted& it : items) total += it.w;
        uint64_t i = 0;
        double below = 0;  // weight of items before i
        for (int k = 0; k < q; ++k) {
            const double at = middles ? total * (2 * k + 1) / (2.0 * q) : (q > 1 ? total * k / (q - 1) : 0);
            while (i + 1 < items.size() && below + items[i].w <= at) {
                below += items[i].w;
                ++i;
                tick();
            }
            out(k, items[i].x);
        }
    }

    // Most common members from the short runs of the rows kept whole (weight 1),
    // then their frequencies with the long runs of those rows added.
    void commonMembers(Gathered& out) {
        qn::pg::tVector<int32_t, A, F> members(1);
        uint64_t rows = 0;
        for (const Segment& s : segs_) {
            if (s.weight != 1) continue;
            if (members.size() + (kShortWidth + 1) * s.count > kMemberBudget) break;
            ++rows;
            for (uint64_t r = s.begin; r < s.begin + s.count; ++r) {
                tick();
                const Run run = runs_[r];
                if (widthOf(run) <= kShortWidth)
                    for (int64_t m = run.lo; m <= run.hi; ++m) members.push_back(static_cast<int32_t>(m));
            }
        }
        if (members.empty() || rows == 0) return;
        std::sort(members.begin(), members.end());
        qn::pg::tVector<Weighted, A, F> counts(1);  // (value, count)
        for (uint64_t i = 0; i < members.size();) {
            uint64_t j = i + 1;
            while (j < members.size() && members[j] == members[i]) ++j;
            counts.push_back(Weighted{members[i], static_cast<double>(j - i)});
            i = j;
            tick();
        }
        const double mean = static_cast<double>(members.size()) / counts.size();
        const double cut = std::max(kMinMemberCount, 3 * mean + 5 * std::sqrt(mean));
        uint64_t keep = 0;
        for (uint64_t i = 0; i < counts.size(); ++i)
            if (counts[i].w >= cut) counts[keep++] = counts[i];
        counts.resize(keep);
        if (keep == 0) return;
        std::sort(counts.begin(), counts.end(), [](const Weighted& a, const Weighted& b) {
            return a.w != b.w ? a.w > b.w : a.x < b.x;
        });
        const int n = static_cast<int>(std::min<uint64_t>(keep, static_cast<uint64_t>(target_)));
        counts.resize(n);
        std::sort(counts.begin(), counts.end(), [](const Weighted& a, const Weighted& b) { return a.x < b.x; });
        // Long runs of the same rows holding a member (each row at most once: its runs are disjoint).
        uint64_t seen = 0;
        for (const Segment& s : segs_) {
            if (s.weight != 1) continue;
            if (seen++ == rows) break;
            for (uint64_t r = s.begin; r < s.begin + s.count; ++r) {
                tick();
                const Run run = runs_[r];
                if (widthOf(run) <= kShortWidth) continue;
                Weighted* p = std::lower_bound(counts.begin(), counts.end(), int64_t{run.lo},
                                               [](const Weighted& a, int64_t x) { return a.x < x; });
                for (; p != counts.end() && p->x <= run.hi; ++p) p->w += 1;
            }
        }
        out.members = static_cast<int32_t*>(A(sizeof(int32_t) * n));
        out.memberFreqs = static_cast<float*>(A(sizeof(float) * n));
        if (!out.members || !out.memberFreqs) return;
        for (int i = 0; i < n; ++i) {
            out.members[i] = static_cast<int32_t>(counts[i].x);
            out.memberFreqs[i] = static_cast<float>(std::min(1.0, counts[i].w / rows));
        }
        out.nmembers = n;
    }

    int target_;
    uint64_t budget_;
    Poll poll_;
    uint64_t work_ = 0;
    uint64_t rows_ = 0, empty_ = 0, stride_ = 1;
    double totalRuns_ = 0, totalCard_ = 0;
    qn::pg::tVector<int32_t, A, F> mins_, maxs_;
    qn::pg::tVector<double, A, F> runCounts_;
    qn::pg::tVector<Run, A, F> runs_;
    qn::pg::tVector<Segment, A, F> segs_;
};

// ---- estimating

// The statistics read back. Values as int64 (quantiles), numbers as double.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
class SetColumn {
public:
    using Model = qn::selectivity::PackedRangeModel<A, F>;

    // From the stored slots; false (and unusable) when they do not read as the
    // layout. members may be null (no most common members).
    bool load(const float* numbers, int nnumbers, const int32_t* values, int nvalues, const int32_t* members,
              const float* memberFreqs, int nmembers) {
        usable_ = false;
        if (numbers == nullptr || nnumbers < kHeaderNumbers || numbers[0] != kLayoutVersion) return false;
        emptyFrac_ = clampProbability(numbers[1]);
        runsPerRow_ = std::max(0.0, static_cast<double>(numbers[2]));
        avgCard_ = numbers[3];
        const int E = count(numbers[4]), K = count(numbers[5]), C = count(numbers[6]);
        if (E < 0 || K < 0 || C < 0 || C > kClasses || kHeaderNumbers + K > nnumbers) return false;
        runCounts_.resize(K);
        for (int j = 0; j < K; ++j) runCounts_[j] = std::max(0.0, static_cast<double>(numbers[kHeaderNumbers + j]));
        int at = kHeaderNumbers + K, v = 0;
        nClasses_ = 0;
        qn::pg::tVector<int64_t, A, F> ups(1), ws(1);
        for (int c = 0; c < C; ++c) {
            if (at + 4 > nnumbers) return false;
            const int id = count(numbers[at]), U = count(numbers[at + 2]), W = count(numbers[at + 3]);
            const double share = clampProbability(numbers[at + 1]);
            at += 4;
            if (id < 0 || U < 2 || W < 1 || at + W > nnumbers || values == nullptr || v + U > nvalues) return false;
            ups.resize(U);
            ws.resize(W);
            for (int i = 0; i < U; ++i) ups[i] = values[v + i];
            for (int i = 0; i < W; ++i) ws[i] = std::max<int64_t>(0, std::llround(numbers[at + i]));
            at += W;
            v += U;
            share_[nClasses_] = share;
            if (!models_[nClasses_].build(ups.data(), U, ws.data(), W)) return false;
            ++nClasses_;
        }
        if (v + 2 * E > nvalues) return false;
        mins_.resize(E);
        maxs_.resize(E);
        for (int i = 0; i < E; ++i) {
            mins_[i] = values[v + i];
            maxs_[i] = values[v + E + i];
        }
        members_ = members;
        memberFreqs_ = memberFreqs;
        nmembers_ = members && memberFreqs ? nmembers : 0;
        usable_ = true;
        return true;
    }

    bool usable() const { return usable_; }
    void setPoll(void (*poll)()) { poll_ = poll; }
    double emptyFraction() const { return emptyFrac_; }
    double runsPerRow() const { return runsPerRow_; }

    // Shares of the non-null rows. ---------------------------------------

    // Rows holding every integer of [a, b] (a <= b).
    double containsRange(int64_t a, int64_t b) const {
        if (a == b) {
            const int m = memberIndex(a);
            if (m >= 0) return memberFreqs_[m];
        }
        return std::min(modelRange(a, b), reaching(a, b));
    }

    // Rows holding every member of a set given by its runs (copyable, next(lo, hi)):
    // the runs taken as independent, or the hull when that is more likely, at most
    // the least likely run, and within the extremes' bounds.
    template <typename Runs>
    double containsSet(Runs runs) const {
        int64_t first = 0, last = 0;
        double product = 1, least = 1;
        const bool any = walk(runs, first, last, [&](int64_t lo, int64_t hi) {
            const double p = containsRange(lo, hi);
            product *= p;
            least = std::min(least, p);
        });
        if (!any) return 1.0;
        return clampProbability(std::min({least, std::max(product, containsRange(first, last)), reaching(first, last)}));
    }

    // Rows meeting a set given by its runs (copyable).
    template <typename Runs>
    double meets(Runs runs) const {
        int64_t lo, hi, first = 0, last = 0;
        if (!walk(runs, first, last, [](int64_t, int64_t) {})) return 0.0;
        double q = 0;
        for (int c = 0; c < nClasses_; ++c) q += share_[c] * models_[c].meeting(polled(runs));
        double p = std::min((1.0 - emptyFrac_) * atLeastOne(clampProbability(q)), reaching(last, first));
        // Most common members in the operand, beyond what the classes give them:
        // one walk over the operand and the members together.
        double miss = 1;
        int i = 0;
        while (i < nmembers_ && runs.next(lo, hi)) {
            tick();
            while (i < nmembers_ && members_[i] < lo) ++i;
            for (; i < nmembers_ && members_[i] <= hi; ++i)
                miss *= 1.0 - std::max(0.0, memberFreqs_[i] - modelValue(members_[i]));
        }
        return clampProbability(1.0 - (1.0 - p) * miss);
    }

    // Rows lying within a set given by its runs (copyable); empty rows count.
    template <typename Runs>
    double within(Runs runs) const {
        int64_t first = 0, last = 0;
        double q = 0;
        const bool any = walk(runs, first, last, [&](int64_t lo, int64_t hi) {
            for (int c = 0; c < nClasses_; ++c) q += share_[c] * models_[c].inside(lo, hi);
        });
        if (!any) return emptyFrac_;
        double p = allOf(clampProbability(q));
        if (hasExtremes()) p = std::min(p, std::min(1.0 - minAtMost(first - 1), maxAtMost(last)));
        return clampProbability(emptyFrac_ + (1.0 - emptyFrac_) * p);
    }

    // Positional shares over the non-empty rows' least and greatest members
    // (an empty row answers false). False when there are none.
    bool hasExtremes() const { return mins_.size() >= 2; }
    double minAtMost(int64_t x) const { return IntHistogram(mins_.data(), static_cast<int>(mins_.size())).atMost(x); }
    double maxAtMost(int64_t x) const { return IntHistogram(maxs_.data(), static_cast<int>(maxs_.size())).atMost(x); }
    double nonEmpty(double p) const { return (1.0 - emptyFrac_) * clampProbability(p); }
    int extremeCount() const { return static_cast<int>(mins_.size()); }
    int64_t leastQuantile(int i) const { return mins_[i]; }
    int64_t greatestQuantile(int i) const { return maxs_[i]; }

    // The value's share without its entry among the most common members.
    double modelValue(int64_t v) const { return std::min(modelRange(v, v), reaching(v, v)); }

    // Rows whose least member is at most a and greatest at least b: a bound of
    // holding [a, b], or (a > b) of meeting what lies between b and a.
    double reaching(int64_t a, int64_t b) const {
        if (!hasExtremes()) return 1.0 - emptyFrac_;
        return (1.0 - emptyFrac_) * std::min(minAtMost(a), 1.0 - maxAtMost(b - 1));
    }

    int memberCount() const { return nmembers_; }
    int64_t member(int i) const { return members_[i]; }
    double memberFreq(int i) const { return memberFreqs_[i]; }

    // Chance that a non-empty row meets an operand each of whose runs it meets
    // with chance q, and that all its runs lie within one, given p per run.
    double atLeastOne(double q) const { return averageOverRows([q](double k) { return 1.0 - std::pow(1.0 - q, k); }); }
    double allOf(double p) const { return averageOverRows([p](double k) { return std::pow(p, k); }); }

    // A few runs standing for the column's runs, with their weights (summing to 1):
    // for each class, up to `perClass` uppers spread over its quantiles, each with
    // a handful of its widths.
    template <typename Visit>
    void representativeRuns(int perClass, Visit visit) const {
        for (int c = 0; c < nClasses_; ++c) {
            const Model& m = models_[c];
            const int U = m.upperCount(), nu = std::min(perClass, U), W = m.widthCount();
            for (int i = 0; i < nu; ++i) {
                const int64_t up = m.upper(nu > 1 ? static_cast<int64_t>(i) * (U - 1) / (nu - 1) : U / 2);
                for (int k = 0; k < W; ++k) visit(up - m.width(k), up, share_[c] * m.weight(k) / nu);
            }
        }
    }

    // fn(k) averaged over the non-empty rows' run counts k.
    template <typename Fn>
    double averageOverRows(Fn fn) const {
        if (runCounts_.empty()) return fn(std::max(1.0, runsPerRow_));
        double s = 0;
        for (double k : runCounts_) s += fn(k);
        return s / runCounts_.size();
    }

    int classCount() const { return nClasses_; }
    double classShare(int c) const { return share_[c]; }
    const Model& classModel(int c) const { return models_[c]; }

private:
    static int count(float x) { return x >= 0 && x < 1e9f ? static_cast<int>(x) : -1; }

    void tick() const {
        if (poll_) poll_();
    }

    template <typename Runs>
    qn::selectivity::PolledRuns<Runs> polled(Runs runs) const {
        return qn::selectivity::PolledRuns<Runs>(runs, poll_);
    }

    // Calls visit(lo, hi) on each run of a copy of `runs`; false when there is
    // none, else the operand's least and greatest members in first and last.
    template <typename Runs, typename Visit>
    bool walk(Runs runs, int64_t& first, int64_t& last, Visit visit) const {
        int64_t lo, hi;
        bool any = false;
        while (runs.next(lo, hi)) {
            tick();
            if (!any) first = lo;
            any = true;
            last = hi;
            visit(lo, hi);
        }
        return any;
    }

    // Rows holding [a, b] by the classes' models alone.
    double modelRange(int64_t a, int64_t b) const {
        double s = 0;
        for (int c = 0; c < nClasses_; ++c) s += share_[c] * models_[c].containing(a, b);
        return std::min(runsPerRow_ * s, 1.0 - emptyFrac_);
    }

    int memberIndex(int64_t v) const {
        const int32_t* end = members_ + nmembers_;
        const int32_t* p = std::lower_bound(members_, end, v, [](int32_t a, int64_t x) { return a < x; });
        return p != end && *p == v ? static_cast<int>(p - members_) : -1;
    }

    bool usable_ = false;
    double emptyFrac_ = 0, runsPerRow_ = 0, avgCard_ = 0;
    qn::pg::tVector<double, A, F> runCounts_;
    qn::pg::tVector<int64_t, A, F> mins_, maxs_;
    Model models_[kClasses];
    double share_[kClasses] = {};
    int nClasses_ = 0;
    const int32_t* members_ = nullptr;
    const float* memberFreqs_ = nullptr;
    int nmembers_ = 0;
    void (*poll_)() = nullptr;
};

// The share of a's rows meeting the span of a row of b, over b's non-empty
// rows: spans made of b's least and greatest members paired quantile by
// quantile (up to 64 of them).
template <typename Column>
double spanMeeting(const Column& a, const Column& b) {
    const int E = b.extremeCount(), n = std::min(E, 64);
    if (n < 2) return 1.0;
    double s = 0;
    for (int i = 0; i < n; ++i) {
        const int j = i * (E - 1) / (n - 1);
        s += a.meets(SingleRun(b.leastQuantile(j), std::max(b.leastQuantile(j), b.greatestQuantile(j))));
    }
    return s / n;
}

// Join of two set columns by &&: the share of row pairs that meet. The runs of
// `b` are stood for by representative runs; q is the chance that a run of a
// and one of b meet, and a pair of rows with k and l runs meets with chance
// 1 - (1 - q)^(k l). Runs of one row are not placed independently, though: a
// row of a can only meet a row of b within its span, so the share of pairs
// where either row meets the other's span bounds the result. Shares of the
// non-null pairs.
template <typename Column>
double overlapJoin(const Column& a, const Column& b) {
    double q = 0;
    b.representativeRuns(32, [&](int64_t lo, int64_t hi, double w) {
        qn::selectivity::RangeInt r{static_cast<int32_t>(lo), static_cast<int32_t>(hi)};
        double s = 0;
        for (int c = 0; c < a.classCount(); ++c) s += a.classShare(c) * a.classModel(c).meeting(qn::selectivity::RangeListRuns(&r, &r + 1));
        q += w * s;
    });
    q = clampProbability(q);
    const double pairs = a.averageOverRows(
        [&](double k) { return b.averageOverRows([&](double l) { return 1.0 - std::pow(1.0 - q, k * l); }); });
    const double bound = std::min((1.0 - b.emptyFraction()) * spanMeeting(a, b),
                                  (1.0 - a.emptyFraction()) * spanMeeting(b, a));
    return clampProbability(std::min((1.0 - a.emptyFraction()) * (1.0 - b.emptyFraction()) * pairs, bound));
}

// Join of a set column with an int4 column by membership: the share `share`
// (qnPgSelectivity.h: of the pairs, or of the outer rows with a match among
// `inner` rows in a semi or anti join) over the int4 column's sampled values,
// each held by a set row with chance s (times setNonNull, the set column's
// non-null share). The int4 column's most common values are probed one by
// one; each histogram bucket by up to 8 points spread over it, each with the
// set column's most common members lying in the bucket at their excess over
// the model, spread over the bucket's width.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
double membershipJoin(const SetColumn<A, F>& set, const qn::selectivity::ColumnStats& ints, double setNonNull,
                      qn::selectivity::JoinShare share, double inner) {
    const bool haveHistogram = IntHistogram::usable(ints.bounds, ints.nbounds);
    if (!haveHistogram && ints.nmcv == 0) return qn::selectivity::kDefaultPieceSelectivity;
    const int buckets = haveHistogram ? ints.nbounds - 1 : 0;
    qn::pg::tVector<double, A, F> s(1), w(1);
    if (!s.reserve(ints.nmcv + 8 * buckets) || !w.reserve(ints.nmcv + 8 * buckets))
        return qn::selectivity::kDefaultPieceSelectivity;
    for (int i = 0; i < ints.nmcv; ++i) {
        if (ints.poll) ints.poll();
        s.push_back(setNonNull * set.containsRange(ints.mcv[i], ints.mcv[i]));
        w.push_back(ints.mcvFreq[i]);
    }
    if (haveHistogram) {
        const IntHistogram h(ints.bounds, ints.nbounds);
        int m = 0;
        for (int i = 0; i < h.buckets(); ++i) {
            if (ints.poll) ints.poll();
            const int64_t start = h.start(i), width = h.width(i);
            double excess = 0;
            while (m < set.memberCount() && set.member(m) < start) ++m;
            for (int j = m; j < set.memberCount() && set.member(j) <= h.end(i); ++j)
                excess += std::max(0.0, set.memberFreq(j) - set.modelValue(set.member(j)));
            const int points = static_cast<int>(std::min<int64_t>(8, width));
            for (int k = 0; k < points; ++k) {
                const double p = set.modelValue(start + (2 * k + 1) * width / (2 * points)) + excess / width;
                s.push_back(setNonNull * std::min(p, 1.0));
                w.push_back(ints.rest() / (h.buckets() * points));
            }
        }
    }
    return qn::selectivity::joinSelectivity(share, s.data(), w.data(), static_cast<int>(s.size()), inner);
}

}  // namespace qn::int4setstats
