// rangeArrayInsert and the set builder. Ranges arrive in any order and shape:
// from the input as they are, clustered around a start with overlaps and
// neighbours, or thousands at a time from a generator the input seeds (so that
// a batch of pending ranges reaches the radix sort before it is merged). Checks:
// - the builder's list, whenever it is flushed, is exactly the list that one
//   rangeArrayInsert per range in arrival order makes (whatever the ranges,
//   after a trusted list was assigned or not);
// - when every range has lower <= upper < INT32_MAX (where "upper + 1" does not
//   wrap) and the list started normalised, that list is the set model's union.
#include "fuzz_common.h"
#include "qnPgRangeSetBuilder.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

using Builder = RangeSetBuilder<malloc, free>;

struct SplitMix {
    uint64_t s;
    uint64_t next() {
        uint64_t z = (s += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
};

int32_t clampToInt32(int64_t v) { return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX)); }

// Ranges around `base`, spread over `width` values, each up to `length` long;
// `odd` in 256 of them are inverted or end at INT32_MAX.
std::vector<R> generated(uint64_t seed, int64_t base, int64_t width, int64_t length, size_t count, unsigned odd) {
    SplitMix rng{seed};
    std::vector<R> v;
    for (size_t i = 0; i < count; ++i) {
        const uint64_t x = rng.next();
        const int64_t lower = base + static_cast<int64_t>(x % static_cast<uint64_t>(width));
        const int64_t upper = lower + static_cast<int64_t>((x >> 32) % static_cast<uint64_t>(length));
        R r{clampToInt32(lower), clampToInt32(std::min<int64_t>(upper, INT32_MAX - 1))};
        if ((x >> 24 & 0xff) < odd) r = (x & 1) ? R{r.upper, r.lower} : R{r.lower, INT32_MAX};
        v.push_back(r);
    }
    return v;
}

// Ranges clustered around a start: signed offsets and lengths in units of `scale`.
std::vector<R> clustered(Reader& in) {
    static constexpr int64_t kScales[4] = {1, 3, 1000, 10000019};
    const int64_t scale = kScales[in.u8() & 3];
    const int64_t base = in.i32();
    std::vector<R> v;
    while (in.remaining() >= 2) {
        const int64_t lower = base + static_cast<int8_t>(in.u8()) * scale;
        const int64_t upper = lower + (in.u8() & 0x3f) * scale;
        v.push_back(R{clampToInt32(lower), clampToInt32(std::min<int64_t>(upper, INT32_MAX - 1))});
    }
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    const uint8_t mode = in.u8();
    const uint64_t flushes = in.u64();  // bit i: flush and compare after range i (cycling)

    std::vector<R> initial;
    bool initialNormalised = true;
    if (mode & 4) initial = someList(in, 64, initialNormalised);

    std::vector<R> arrivals;
    switch (mode & 3) {
        case 0: arrivals = rawList(in, 255); break;
        case 1: arrivals = clustered(in); break;
        default: {
            static constexpr int64_t kWidths[4] = {64, 5000, 1000000, int64_t{1} << 32};
            const uint64_t seed = in.u64();
            const int64_t width = kWidths[in.u8() & 3];
            const int64_t length = int64_t{1} + in.u16();
            const size_t count = in.u16() % 4000;
            const unsigned odd = (mode & 3) == 3 ? in.u8() : 0;
            const int64_t base = (mode & 8) ? int64_t{INT32_MAX} - width : int64_t{in.i32()};
            arrivals = generated(seed, std::max<int64_t>(base, INT32_MIN), width, length, count, odd);
            break;
        }
    }

    // The reference: one rangeArrayInsert per range.
    RV reference(mode & 16 ? 1 : 1024);
    reference.append(initial.data(), initial.data() + initial.size());

    // The builder as an aggregate state holds it: zero-filled memory, then room reserved.
    alignas(Builder) unsigned char storage[sizeof(Builder)] = {};
    auto& builder = *reinterpret_cast<Builder*>(storage);
    builder.ranges.reserve(1024);
    if (!initial.empty() || (mode & 32)) builder.assign(initial.data(), initial.data() + initial.size());

    bool plain = initialNormalised;
    for (size_t i = 0; i < arrivals.size(); ++i) {
        const R r = arrivals[i];
        plain = plain && r.lower <= r.upper && r.upper < INT32_MAX;
        rangeArrayInsert(reference, r);
        builder.insert(r);
        if (flushes >> (i % 64) & 1 && i % 7 == 0) {
            builder.flush();
            FZ_CHECK(sameList(builder.ranges, reference));
        }
    }
    builder.flush();
    FZ_CHECK(sameList(builder.ranges, reference));

    if (plain) {
        std::vector<R> all = initial;
        all.insert(all.end(), arrivals.begin(), arrivals.end());
        FZ_CHECK(asIntervals(reference) == canonical(all));
    }
    builder.release();
    return 0;
}
