// Mix arrays read back: convertMixToRangeArray (the int4[] and bytea decoders),
// countMixMembers and expandMixArray (the conversion to a set), over any words,
// read from a heap copy of exactly their number. Checks:
// - the three agree on which arrays are malformed;
// - decoded ranges have 0 <= lower <= upper, their widths sum to the counted
//   members, and encoding them again with pushIntoMixArray decodes to the same;
// - the expansion writes exactly the members, in item order, when the declared
//   count is right, and never more than the declared count whatever it says.
#include "fuzz_common.h"
#include "qnPgSetConversions.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

// Words from the input: raw, or a count word and the items of a list, now and
// then with one word replaced.
std::vector<int32_t> mixWords(Reader& in) {
    const uint8_t mode = in.u8();
    if (mode & 1) return in.words(512);
    bool normalised = false;
    const std::vector<R> list = someList(in, 128, normalised);
    IV mix;
    mix.push_back(in.i32());
    for (const R& r : list) pushIntoMixArray(mix, r.lower & 0x7fffffff, r.upper);
    std::vector<int32_t> w(mix.begin(), mix.end());
    if ((mode & 6) == 6 && !w.empty()) w[in.u16() % w.size()] = in.i32();
    if (mode & 8 && !w.empty()) w.pop_back();
    return w;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    const std::vector<int32_t> w = mixWords(in);
    const ExactWords words(w);

    RV ranges(in.u8() % 4);
    ranges.push_back(R{7, 3});  // leftovers are discarded
    const char* error = "unset";
    convertMixToRangeArray(words.begin(), words.end(), ranges, error);
    FZ_CHECK(ranges.size() <= (w.empty() ? 0 : w.size() - 1));
    uint64_t widths = 0;
    for (const R& r : ranges) {
        FZ_CHECK(0 <= r.lower && r.lower <= r.upper);
        widths += uint64_t(int64_t{r.upper} - r.lower) + 1;
    }

    const int32_t* items = w.empty() ? words.begin() : words.begin() + 1;
    uint64_t members = 0;
    const bool counted = countMixMembers(items, words.end(), members);
    FZ_CHECK(counted == (error == nullptr));
    if (error) FZ_CHECK(std::strcmp(error, "Invalid range definition") == 0);
    if (counted) FZ_CHECK(members == widths);

    if (!error) {
        IV again;
        again.push_back(0);
        for (const R& r : ranges) pushIntoMixArray(again, r.lower, r.upper);
        RV decoded;
        const char* error2 = "unset";
        convertMixToRangeArray(again.begin(), again.end(), decoded, error2);
        FZ_CHECK(error2 == nullptr && decoded.size() == ranges.size());
        FZ_CHECK(std::memcmp(decoded.data(), ranges.data(), ranges.size() * sizeof(R)) == 0);
    }

    // Declared counts: the right one when it is small enough to expand, or a wrong one.
    const uint8_t pick = in.u8();
    uint64_t declared = pick % 3 == 0 && counted && members <= kMaxExpanded ? members : in.u16() % 300;
    if (pick % 3 == 1 && counted && members > 0 && members <= kMaxExpanded) declared = members - 1;
    std::unique_ptr<int32_t[]> out(new int32_t[declared ? declared : 1]);
    const MixExpandError e = expandMixArray(items, words.end(), out.get(), declared, [] {});
    if (!counted) {
        FZ_CHECK(e == MixExpandError::InvalidRange);
    } else {
        FZ_CHECK((e == MixExpandError::None) == (declared == members));
        FZ_CHECK(e == MixExpandError::None || e == MixExpandError::CountMismatch);
    }
    if (e == MixExpandError::None) FZ_CHECK(holdsMembers(ranges.begin(), ranges.end(), out.get(), declared));
    return 0;
}
