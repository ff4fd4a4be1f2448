// Reading int4[] arguments: the server-side reader (readInt4Elements, compiled
// here against the server's headers) over every layout the server hands it --
// zero, one or more dimensions, with and without a null bitmap, with and
// without NULLs -- from a heap buffer of exactly the value's length. One dimension
// without NULLs reads as exactly its elements (count / 2 ranges in place), bitmap
// or not; anything else, and a value shorter than its declared length, reads as empty.
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
    const std::vector<int32_t> values = in.words(in.u8());
    const Layout l = layout(in, values);
    const Bytes value(l.bytes);
    const qn::pg::Int4Elements e = qn::pg::readInt4Elements(reinterpret_cast<const ArrayType*>(value.get()));
    FZ_CHECK(e.count == static_cast<int32>(l.elements.size()));
    if (e.count == 0) return 0;
    FZ_CHECK(std::equal(l.elements.begin(), l.elements.end(), e.data));
    FZ_CHECK(reinterpret_cast<const uint8_t*>(e.data + e.count) <= value.end());
    FZ_CHECK(e.rangesEnd() - e.rangesBegin() == e.count / 2);
    return 0;
}
