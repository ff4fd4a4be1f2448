// Union, intersection and exclusion of two range lists, and the merging append.
// Any two lists, normalised or not, must be read and written within their spans
// and the output vector, and the loops must end. On normalised lists the results
// must equal the set model's: the intersection always (it only compares bounds),
// the union and the exclusion when all bounds lie within INT32_MAX of each other,
// so that no wrapped difference comes into play.
#include "fuzz_common.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

void run(SetOp op, const Words& a, const Words& b, RV& out) {
    switch (op) {
        case SetOp::Union: computeUnion(a.rangesBegin(), a.rangesEnd(), b.rangesBegin(), b.rangesEnd(), out); break;
        case SetOp::Intersection:
            computeIntersection(a.rangesBegin(), a.rangesEnd(), b.rangesBegin(), b.rangesEnd(), out);
            break;
        case SetOp::Exclusion:
            computeExclusion(a.rangesBegin(), a.rangesEnd(), b.rangesBegin(), b.rangesEnd(), out);
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    bool normalisedA = false, normalisedB = false;
    const std::vector<R> a = someList(in, 200, normalisedA);
    const std::vector<R> b = someList(in, 200, normalisedB);
    const uint8_t shape = in.u8();
    const Words wa(flatten(a)), wb(flatten(b));
    const bool normalised = normalisedA && normalisedB;
    const bool modelled = normalised && withinOneSpan({&a, &b});
    const Intervals ma = canonical(a), mb = canonical(b);

    // The output starts small and holds leftovers, which every operation discards.
    RV out(shape & 3);
    for (int i = 0; i < (shape >> 2 & 7); ++i) out.push_back(R{i, -i});
    for (SetOp op : {SetOp::Union, SetOp::Intersection, SetOp::Exclusion}) {
        run(op, wa, wb, out);
        if (modelled || (normalised && op == SetOp::Intersection)) FZ_CHECK(asIntervals(out) == setOp(op, ma, mb));
    }

    // Union with an empty side is a copy of the other, as it is.
    const Words none({});
    run(SetOp::Union, wa, none, out);
    FZ_CHECK(asIntervals(out) == asIntervals(wa.rangesBegin(), wa.rangesEnd()));
    run(SetOp::Union, none, wb, out);
    FZ_CHECK(asIntervals(out) == asIntervals(wb.rangesBegin(), wb.rangesEnd()));

    // Appending B to A merges B's leading ranges into A's last: the union, as long
    // as B does not start below A's last range.
    out.clear();
    out.append(wa.rangesBegin(), wa.rangesEnd());
    pushOrMerge(out, wb.rangesBegin(), wb.rangesEnd());
    if (modelled && (a.empty() || b.empty() || b.front().lower >= a.back().lower))
        FZ_CHECK(asIntervals(out) == setOp(SetOp::Union, ma, mb));
    return 0;
}
