// The kernels behind the range-type conversions, the member rows and the packed
// range text. normaliseRanges takes any list (several normalised lists one
// after another reach the run merge, raw pairs the radix sort) and must give
// the canonical form of the model; isNormalised must agree with the model's
// test; the member walk must give the model's members in order. The text
// parser reads any bytes without passing their end, and what it accepts
// formats back to text that parses to the same range.
#include "fuzz_common.h"
#include "qnPgPackedRangeText.h"
#include "qnPgRangeNormalise.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

std::vector<R> concatenatedLists(Reader& in) {
    std::vector<R> list;
    const int lists = 1 + in.u8() % 12;
    for (int i = 0; i < lists && !in.empty(); ++i) {
        const std::vector<R> part = normalisedList(in, 60);
        list.insert(list.end(), part.begin(), part.end());
    }
    return list;
}

void checkNormalise(const std::vector<R>& input) {
    std::unique_ptr<R[]> buffer(new R[input.empty() ? 1 : input.size()]);
    R* data = buffer.get();
    std::copy(input.begin(), input.end(), data);
    const Intervals model = canonical(input);
    FZ_CHECK(isNormalised(data, data + input.size()) == (asIntervals(data, data + input.size()) == model));
    const int64_t n = normaliseRanges<malloc, free>(data, input.size(), [] {});
    FZ_CHECK(n >= 0 && static_cast<size_t>(n) <= input.size() && asIntervals(data, data + n) == model);

    // The members, in order, as far as the first few thousand.
    MemberCursor cursor(data, data + n);
    int32_t v = 0;
    size_t seen = 0;
    for (const Interval& i : model) {
        for (int64_t m = i.first; m <= i.second && seen < 5000; ++m, ++seen) FZ_CHECK(cursor.advance(v) && v == m);
    }
    if (seen < 5000) FZ_CHECK(!cursor.advance(v));
}

void checkText(const std::vector<uint8_t>& bytes, int32_t lower, int32_t upper) {
    const Bytes text(bytes);
    int32_t lo = 0, hi = 0;
    char out[kPackedRangeTextMax];
    if (parsePackedRange(reinterpret_cast<const char*>(text.get()), text.count, lo, hi) == PackedRangeParse::Ok) {
        FZ_CHECK(lo <= hi);
        int32_t lo2 = 0, hi2 = 0;
        FZ_CHECK(parsePackedRange(out, formatPackedRange(lo, hi, out), lo2, hi2) == PackedRangeParse::Ok);
        FZ_CHECK(lo2 == lo && hi2 == hi);
    }
    // Any two bounds format within the maximum and read back, or are refused as inverted.
    const size_t length = formatPackedRange(lower, upper, out);
    FZ_CHECK(length <= kPackedRangeTextMax);
    const PackedRangeParse parsed = parsePackedRange(out, length, lo, hi);
    FZ_CHECK(parsed == (upper < lower ? PackedRangeParse::Inverted : PackedRangeParse::Ok));
    if (parsed == PackedRangeParse::Ok) FZ_CHECK(lo == lower && hi == upper);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    const uint8_t mode = in.u8();
    if (mode & 1) {
        checkText(in.bytes(in.u8() % 48), in.i32(), in.i32());
        return 0;
    }
    std::vector<R> list = mode & 2 ? rawList(in, 255) : concatenatedLists(in);
    // Some neighbours made adjacent: the case the two tests must not confuse.
    if (mode & 4)
        for (size_t i = 1; i < list.size(); i += 1 + (mode >> 3) % 4)
            if (list[i - 1].upper < list[i].upper) list[i].lower = list[i - 1].upper + 1;
    checkNormalise(list);
    return 0;
}
