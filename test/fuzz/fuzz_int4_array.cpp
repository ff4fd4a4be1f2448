// Reading int4[] arguments: the server-side reader (readInt4Elements, compiled
// here against the server's headers) over every layout the server hands it --
// zero, one or more dimensions, with and without a null bitmap, with and
// without NULLs -- and the readers that take the elements in place as ranges
// (membership by binary search, overlap with one range and with another list).
// Each value sits in a heap buffer of exactly its length. Checks:
// - one dimension without NULLs reads as exactly its elements, bitmap or not;
//   anything else, and a value shorter than its declared length, reads as empty;
// - the in-place readers never read past count / 2 ranges, and on normalised
//   lists answer as the set model does.
#include "fuzz_common.h"
#include "quenloPgUtils.h"

using namespace fz;

// The server's test for a NULL among an array's elements, for the harness: bit i
// of the bitmap after the dimensions is clear when element i is NULL.
extern "C" bool array_contains_nulls(ArrayType* array) {
    if (!ARR_HASNULL(array)) return false;
    const bits8* bitmap = ARR_NULLBITMAP(array);
    int nitems = 1;
    for (int i = 0; i < ARR_NDIM(array); ++i) nitems *= ARR_DIMS(array)[i];
    for (int i = 0; i < nitems; ++i)
        if (!(bitmap[i / 8] & (1 << (i % 8)))) return true;
    return false;
}

namespace {

struct Layout {
    std::vector<uint8_t> bytes;
    std::vector<int32_t> elements;  // what the reader must give, or empty
    bool readable;
};

// An int4[] as the server lays it out: header, dimensions and lower bounds, the
// null bitmap when there is one (MAXALIGNed), then the non-NULL elements.
Layout layout(Reader& in, const std::vector<int32_t>& values) {
    const uint8_t shape = in.u8();
    static constexpr int kDims[8] = {1, 1, 1, 1, 0, 2, 3, 1};
    const int ndim = kDims[shape & 7];
    std::vector<int> dims(ndim);
    int nitems = ndim ? 1 : 0;
    for (int d = 0; d < ndim; ++d) {
        dims[d] = d == 0 ? static_cast<int>(values.size()) : 1 + in.u8() % 3;
        nitems *= dims[d];
    }
    const bool bitmap = shape & 8;
    std::vector<bool> isNull(nitems, false);
    bool anyNull = false;
    if (bitmap && (shape & 16))
        for (int i = 0; i < nitems; ++i) anyNull |= isNull[i] = in.u8() < 40;
    std::vector<int32_t> stored;
    for (int i = 0; i < nitems; ++i)
        if (!isNull[i]) stored.push_back(values.empty() ? 0 : values[i % values.size()]);

    const size_t dataOffset = bitmap ? ARR_OVERHEAD_WITHNULLS(ndim, nitems) : ARR_OVERHEAD_NONULLS(ndim);
    Layout l;
    l.bytes.assign(dataOffset + 4 * stored.size(), 0);
    auto* a = reinterpret_cast<ArrayType*>(l.bytes.data());
    a->ndim = ndim;
    a->dataoffset = bitmap ? static_cast<int32>(dataOffset) : 0;
    a->elemtype = INT4OID;
    for (int d = 0; d < ndim; ++d) {
        ARR_DIMS(a)[d] = dims[d];
        ARR_LBOUND(a)[d] = in.i32();
    }
    if (bitmap)
        for (int i = 0; i < nitems; ++i)
            if (!isNull[i]) ARR_NULLBITMAP(a)[i / 8] |= static_cast<bits8>(1 << (i % 8));
    if (!stored.empty()) std::memcpy(l.bytes.data() + dataOffset, stored.data(), 4 * stored.size());
    l.readable = ndim == 1 && !anyNull;
    if (l.readable) l.elements = stored;
    if (shape & 32 && ndim == 1 && !bitmap && !stored.empty()) {  // shorter than declared
        l.bytes.resize(l.bytes.size() - 1 - in.u8() % (4 * stored.size()));
        l.readable = false;
        l.elements.clear();
    }
    SET_VARSIZE(l.bytes.data(), l.bytes.size());
    return l;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    bool normalised = false;
    const std::vector<R> list = someList(in, 128, normalised);
    std::vector<int32_t> values = flatten(list);
    const bool odd = in.u8() == 0xff;
    if (odd) values.push_back(in.i32());
    const Layout l = layout(in, values);
    const Bytes value(l.bytes);

    const qn::pg::Int4Elements e = qn::pg::readInt4Elements(reinterpret_cast<const ArrayType*>(value.get()));
    FZ_CHECK(e.count == static_cast<int32>(l.elements.size()));
    if (e.count == 0) return 0;
    FZ_CHECK(std::equal(l.elements.begin(), l.elements.end(), e.data));
    FZ_CHECK(reinterpret_cast<const uint8_t*>(e.data + e.count) <= value.end());
    FZ_CHECK(e.rangesEnd() - e.rangesBegin() == e.count / 2);

    // The readers over the elements in place, taken as count / 2 ranges.
    const bool modelled = normalised && !odd && e.count == static_cast<int32>(values.size());
    const Intervals set = canonical(e.rangesBegin(), e.rangesEnd());
    for (int q = in.u8() % 8; q >= 0; --q) {
        const int32_t v = in.u8() < 128 && !list.empty()
                              ? list[in.u8() % list.size()].lower + static_cast<int8_t>(in.u8())
                              : in.i32();
        const bool member = qn::pgRangeArray::inRangeArray(e.rangesBegin(), e.rangesEnd(), v);
        if (modelled) FZ_CHECK(member == contains(set, v));
        const int32_t w = static_cast<int32_t>(static_cast<uint32_t>(v) + in.u8());
        const int32_t lo = std::min(v, w), hi = std::max(v, w);
        const bool meets = qn::pgRangeArray::rangeOverlapsList(lo, hi, e.rangesBegin(), e.rangesEnd());
        if (modelled) FZ_CHECK(meets == !setOp(SetOp::Intersection, set, Intervals{{lo, hi}}).empty());
    }
    bool otherNormalised = false;
    const std::vector<R> other = someList(in, 64, otherNormalised);
    const Words theirs(flatten(other));
    const bool overlap =
        qn::pgRangeArray::rangeListsOverlap(e.rangesBegin(), e.rangesEnd(), theirs.rangesBegin(), theirs.rangesEnd());
    if (modelled && otherNormalised) FZ_CHECK(overlap == !setOp(SetOp::Intersection, set, canonical(other)).empty());
    return 0;
}
