// Shared helpers for the range-list tests: malloc-backed vectors and a
// std::pair view of their contents for readable comparisons.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "qnPgRangeArray.h"

namespace rt {

using R = qn::pgRangeArray::Range<int>;
using RV = qn::pgRangeArray::RangeVector<int, malloc, free>;
using Pairs = std::vector<std::pair<int, int>>;
using I64Pairs = std::vector<std::pair<int64_t, int64_t>>;

enum class Op { Union, Intersection, Exclusion };

inline Pairs pairs(const RV& v) {
    Pairs p;
    for (const R& r : v) p.emplace_back(r.lower, r.upper);
    return p;
}

inline std::vector<R> ranges(const Pairs& p) {
    std::vector<R> v;
    for (const auto& [lo, hi] : p) v.push_back(R{lo, hi});
    return v;
}

// Runs one set operation into `out` (whose previous contents are left to the kernel).
inline void computeInto(Op op, const std::vector<R>& a, const std::vector<R>& b, RV& out) {
    const R* a0 = a.data();
    const R* a1 = a0 + a.size();
    const R* b0 = b.data();
    const R* b1 = b0 + b.size();
    switch (op) {
        case Op::Union: qn::pgRangeArray::computeUnion(a0, a1, b0, b1, out); break;
        case Op::Intersection: qn::pgRangeArray::computeIntersection(a0, a1, b0, b1, out); break;
        case Op::Exclusion: qn::pgRangeArray::computeExclusion(a0, a1, b0, b1, out); break;
    }
}

inline Pairs compute(Op op, const Pairs& a, const Pairs& b) {
    RV out;
    computeInto(op, ranges(a), ranges(b), out);
    return pairs(out);
}

// Sorted, lower <= upper, and at least one integer left out between neighbours.
inline bool isNormalised(const Pairs& p) {
    for (size_t i = 0; i < p.size(); ++i) {
        if (p[i].first > p[i].second) return false;
        if (i && static_cast<long long>(p[i].first) < static_cast<long long>(p[i - 1].second) + 2) return false;
    }
    return true;
}

// Canonical result of op on two range lists, computed in int64 over the elementary
// segments between all bounds, so no value expansion or 32-bit arithmetic is involved.
inline I64Pairs segmentModel(Op op, const Pairs& a, const Pairs& b) {
    auto contains = [](const Pairs& p, int64_t v) {
        for (const auto& [lo, hi] : p)
            if (lo <= v && v <= hi) return true;
        return false;
    };
    std::vector<int64_t> cuts;
    for (const Pairs* p : {&a, &b})
        for (const auto& [lo, hi] : *p) {
            cuts.push_back(lo);
            cuts.push_back(int64_t{hi} + 1);
        }
    std::sort(cuts.begin(), cuts.end());
    cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());
    I64Pairs r;
    for (size_t i = 0; i + 1 < cuts.size(); ++i) {
        const bool inA = contains(a, cuts[i]), inB = contains(b, cuts[i]);
        const bool keep = op == Op::Union ? inA || inB : op == Op::Intersection ? inA && inB : inA && !inB;
        if (!keep) continue;
        if (!r.empty() && r.back().second + 1 == cuts[i])
            r.back().second = cuts[i + 1] - 1;
        else
            r.emplace_back(cuts[i], cuts[i + 1] - 1);
    }
    return r;
}

}  // namespace rt
