// Conversions between the int4[] forms of a set: scalars to ranges and to a mix
// array, ranges to a mix array, counting and expanding ranges into members.
// Inputs are sorted scalar lists (with repeats), raw words, normalised or raw
// range lists. Checks:
// - unsorted scalars are refused by both scalar conversions, sorted ones never;
// - the runs of sorted scalars are the set model's (while no step between two
//   of them wraps in 32 bits, as the format deliberately lets it), and the mix
//   array has the input count and decodes to the same runs;
// - strictly ascending non-negative scalars come back from the mix array as they were;
// - ranges survive the trip through a mix array (0 <= lower <= upper), and the
//   counts and expansions equal the model's.
#include "fuzz_common.h"
#include "qnPgSetConversions.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

std::vector<int32_t> scalars(Reader& in) {
    const uint8_t mode = in.u8();
    if (mode & 1) return in.words(256);
    static constexpr int64_t kScales[4] = {1, 2, 1001, 70000001};
    const int64_t scale = kScales[mode >> 1 & 3];
    int64_t v = (mode & 8) ? int64_t{in.u16()} : int64_t{in.i32()};
    std::vector<int32_t> w;
    for (size_t n = in.u8(); n > 0 && !in.empty(); --n) {
        w.push_back(static_cast<int32_t>(v));
        v += (in.u8() % 4) * scale;  // repeats, neighbours, gaps
        if (v > INT32_MAX) break;
    }
    return w;
}

void checkScalars(Reader& in) {
    const std::vector<int32_t> w = scalars(in);
    const ExactWords words(w);
    const bool sorted = std::is_sorted(w.begin(), w.end());

    RV ranges(1);
    FZ_CHECK(scalarsToRanges(words.begin(), words.end(), ranges) == sorted);
    IV mix(1);
    FZ_CHECK(scalarsToMixArray(words.begin(), words.end(), mix) == sorted);
    if (!sorted) return;
    if (w.empty()) {
        FZ_CHECK(ranges.empty() && mix.empty());
        return;
    }
    if (int64_t{w.back()} - w.front() <= INT32_MAX) {
        std::vector<R> singles;
        for (int32_t v : w) singles.push_back(R{v, v});
        FZ_CHECK(asIntervals(ranges) == canonical(singles));
    }
    FZ_CHECK(mix[0] == static_cast<int32_t>(w.size()));
    if (w.front() < 0) return;  // negative members read back as range openers, by design

    RV decoded;
    const char* error = "unset";
    convertMixToRangeArray(mix.begin(), mix.end(), decoded, error);
    FZ_CHECK(error == nullptr);
    FZ_CHECK(asIntervals(decoded) == asIntervals(ranges));
    if (std::adjacent_find(w.begin(), w.end()) != w.end()) return;  // repeats count in the count word
    uint64_t members = 0;
    FZ_CHECK(countMixMembers(mix.begin() + 1, mix.end(), members) && members == w.size());
    std::unique_ptr<int32_t[]> out(new int32_t[w.size()]);
    FZ_CHECK(expandMixArray(mix.begin() + 1, mix.end(), out.get(), w.size(), [] {}) == MixExpandError::None);
    FZ_CHECK(std::equal(w.begin(), w.end(), out.get()));
}

void checkRanges(Reader& in) {
    bool normalised = false;
    const std::vector<R> list = someList(in, 200, normalised);
    const ExactWords words(flatten(list));

    IV mix(1);
    rangesToMixArray(words.rangesBegin(), words.rangesEnd(), mix);
    uint32_t total = 0;
    uint64_t members = 0;
    bool wellFormed = true, fitsInt32 = true;
    for (const R& r : list) {
        total += static_cast<uint32_t>(r.upper) - static_cast<uint32_t>(r.lower) + 1u;
        wellFormed = wellFormed && 0 <= r.lower && r.lower <= r.upper;
        const int64_t width = int64_t{r.upper} - r.lower + 1;
        if (width > 0) members += static_cast<uint64_t>(width);
        fitsInt32 = fitsInt32 && width > 0 && width <= INT32_MAX;
    }
    FZ_CHECK(mix[0] == static_cast<int32_t>(total));
    if (wellFormed) {
        RV decoded;
        const char* error = "unset";
        convertMixToRangeArray(mix.begin(), mix.end(), decoded, error);
        FZ_CHECK(error == nullptr && asIntervals(decoded) == asIntervals(words.rangesBegin(), words.rangesEnd()));
    }

    const int32_t count32 = rangeArrayCount32(words.rangesBegin(), words.rangesEnd());
    if (fitsInt32 && members <= INT32_MAX) FZ_CHECK(count32 == static_cast<int32_t>(members));
    FZ_CHECK(countMembers(words.rangesBegin(), words.rangesEnd()) == members);
    if (members > kMaxExpanded) return;
    std::unique_ptr<int32_t[]> out(new int32_t[members ? members : 1]);
    writeMembers(words.rangesBegin(), words.rangesEnd(), out.get(), [] {});
    FZ_CHECK(holdsMembers(words.rangesBegin(), words.rangesEnd(), out.get(), members));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    if (in.u8() & 1)
        checkScalars(in);
    else
        checkRanges(in);
    return 0;
}
