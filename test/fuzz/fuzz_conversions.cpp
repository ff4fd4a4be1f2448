// Conversions between the int4[] forms of a set, from heap copies of exactly their
// length. Scalars: unsorted ones are refused, sorted ones give the model's runs (while
// no step wraps in 32 bits) and a mix array with their count. Ranges: a mix array with
// their member count that decodes back (0 <= lower <= upper), the model's member count.
// Mix arrays (a list's items, one word replaced or the last cut, or any words): the
// decoders agree on which are malformed, decoded ranges are well formed with widths
// summing to the count, and the expansion with the right count writes their members.
// Values: sorted as std::sort sorts them.
#include "fuzz_common.h"
#include "qnPgSetConversions.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

// Expansions into members are checked member by member up to this many.
constexpr uint64_t kMaxExpanded = 1u << 16;

// out holds the members of [first, last), range by range, and exactly `count` of them.
bool holdsMembers(const R* first, const R* last, const int32_t* out, uint64_t count) {
    uint64_t k = 0;
    for (; first != last; ++first)
        for (int64_t v = first->lower; v <= first->upper; ++v)
            if (k >= count || out[k++] != v) return false;
    return k == count;
}

std::vector<int32_t> scalars(Reader& in) {
    const uint8_t mode = in.u8();
    if (mode & 1) return in.words(256);
    static constexpr int64_t kScales[4] = {1, 2, 1001, 70000001};
    const int64_t scale = kScales[mode >> 1 & 3];
    int64_t v = (mode & 8) ? int64_t{in.u16()} : int64_t{in.i32()};
    std::vector<int32_t> w;
    for (size_t n = in.u8(); n > 0 && !in.empty() && v <= INT32_MAX; --n) {
        w.push_back(static_cast<int32_t>(v));
        v += (in.u8() % 4) * scale;  // repeats, neighbours, gaps
    }
    return w;
}

// The ranges of a mix array, which must decode without error.
Intervals decodeMix(const IV& mix) {
    RV decoded;
    const char* error = "unset";
    convertMixToRangeArray(mix.begin(), mix.end(), decoded, error);
    FZ_CHECK(error == nullptr);
    return asIntervals(decoded);
}

void checkScalars(Reader& in) {
    const std::vector<int32_t> w = scalars(in);
    const Words words(w);
    const bool sorted = std::is_sorted(w.begin(), w.end());
    RV ranges(1);
    IV mix(1);
    FZ_CHECK(scalarsToRanges(words.begin(), words.end(), ranges) == sorted);
    FZ_CHECK(scalarsToMixArray(words.begin(), words.end(), mix) == sorted);
    if (!sorted || w.empty()) return;
    if (int64_t{w.back()} - w.front() <= INT32_MAX) {
        std::vector<R> singles;
        for (int32_t v : w) singles.push_back(R{v, v});
        FZ_CHECK(asIntervals(ranges) == canonical(singles));
    }
    FZ_CHECK(mix[0] == static_cast<int32_t>(w.size()));
    if (w.front() >= 0) FZ_CHECK(decodeMix(mix) == asIntervals(ranges));  // negatives read as openers
}

void checkRanges(Reader& in) {
    bool normalised = false;
    const std::vector<R> list = someList(in, 200, normalised);
    const Words words(flatten(list));
    const uint64_t n = mixArrayWords(words.rangesBegin(), words.rangesEnd());
    IV mix(n);  // exactly its words: ASan sees a write past them
    FZ_CHECK(mix.resize(n));
    writeMixArray(words.rangesBegin(), words.rangesEnd(), mix.data(), NoPoll{});
    uint32_t total = 0;
    uint64_t members = 0;
    bool wellFormed = true;
    for (const R& r : list) {
        total += static_cast<uint32_t>(r.upper) - static_cast<uint32_t>(r.lower) + 1u;
        wellFormed = wellFormed && 0 <= r.lower && r.lower <= r.upper;
        const int64_t width = int64_t{r.upper} - r.lower + 1;
        if (width > 0) members += static_cast<uint64_t>(width);
    }
    FZ_CHECK(mix[0] == static_cast<int32_t>(total));
    if (wellFormed) FZ_CHECK(decodeMix(mix) == asIntervals(words.rangesBegin(), words.rangesEnd()));
    FZ_CHECK(countMembers(words.rangesBegin(), words.rangesEnd()) == members);
}

void checkMix(Reader& in) {
    const uint8_t mode = in.u8();
    std::vector<int32_t> w;
    if (mode & 1) {
        w = in.words(512);
    } else {
        bool normalised = false;
        Intervals items;
        for (const R& r : someList(in, 128, normalised)) items.emplace_back(r.lower & 0x7fffffff, r.upper);
        w = wordsOf(ArrayDataTypeMixArray, items, in.i32());
        if ((mode & 6) == 6) w[in.u16() % w.size()] = in.i32();
        if (mode & 8) w.pop_back();
    }
    const Words words(w);
    RV ranges(in.u8() % 4);
    ranges.push_back(R{7, 3});  // leftovers are discarded
    const char* error = "unset";
    convertMixToRangeArray(words.begin(), words.end(), ranges, error);
    const int32_t* items = w.empty() ? words.begin() : words.begin() + 1;
    uint64_t members = 0, widths = 0;
    const bool counted = countMixMembers(items, words.end(), members);
    FZ_CHECK(counted == (error == nullptr));
    if (!counted) ranges.clear();
    for (const R& r : ranges) {
        FZ_CHECK(0 <= r.lower && r.lower <= r.upper);
        widths += uint64_t(int64_t{r.upper} - r.lower) + 1;
    }
    FZ_CHECK(!counted || members == widths);

    // A declared count that is right, when it is small enough to expand, or any.
    uint64_t declared = in.u16() % 300;
    if (counted && members <= kMaxExpanded && in.u8() & 1) declared = members;
    std::unique_ptr<int32_t[]> out(new int32_t[declared ? declared : 1]);
    const MixExpandError e = expandMixArray(items, words.end(), out.get(), declared, [] {});
    FZ_CHECK(e == (!counted                ? MixExpandError::InvalidRange
                   : declared == members ? MixExpandError::None
                                         : MixExpandError::CountMismatch));
    if (e == MixExpandError::None) FZ_CHECK(holdsMembers(ranges.begin(), ranges.end(), out.get(), declared));
}

// Sorting values gives std::sort's list, for raw words or for up to thousands
// generated from a few bytes: one value throughout, or spread over a few low
// bits, over 22 or over all 32, so that each digit of the radix sort is needed
// or skipped.
void checkSort(Reader& in) {
    const uint8_t mode = in.u8();
    std::vector<int32_t> w;
    if (mode & 1) {
        w = in.words(1024);
    } else {
        static constexpr uint32_t kSpreads[4] = {0, 0x7ff, 0x3fffff, 0xffffffff};
        const uint32_t spread = kSpreads[mode >> 1 & 3];
        uint64_t s = in.u64();
        const auto base = static_cast<uint32_t>(in.i32());
        for (size_t n = in.u16() % 5000; n > 0; --n)
            w.push_back(static_cast<int32_t>(base + (static_cast<uint32_t>(splitmix64(s)) & spread)));
    }
    const Words src(w), out(w), scratch(w);
    sortValuesInto(src.begin(), out.get(), scratch.get(), w.size(), NoPoll{});
    std::sort(w.begin(), w.end());
    FZ_CHECK(std::equal(w.begin(), w.end(), out.begin()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    switch (in.u8() % 4) {
        case 0: checkRanges(in); break;
        case 1: checkScalars(in); break;
        case 2: checkMix(in); break;
        default: checkSort(in); break;
    }
    return 0;
}
