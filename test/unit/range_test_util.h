// Shared helpers for the range-list tests: malloc-backed vectors and a
// std::pair view of their contents for readable comparisons.
#pragma once

#include <cstdlib>
#include <utility>
#include <vector>

#include "qnPgRangeArray.h"

namespace rt {

using R = qn::pgRangeArray::Range<int>;
using RV = qn::pgRangeArray::RangeVector<int, malloc, free>;
using Pairs = std::vector<std::pair<int, int>>;

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

}  // namespace rt
