// Range lists, by a selector byte:
// 0 set algebra (union with its merging append, the combine's in-place union,
//   intersection, exclusion) and the readers in place (membership, overlap with
//   a range and with a list);
// 1 normaliseRanges (several normalised lists in a row reach the run merge, raw
//   pairs the radix sort) and isNormalised;
// 2 rangeArrayInsert and the set builder (batches from 256 ranges, so they reach
//   the radix sort; blocks of 8 ranges, so that a direct list of a few dozen
//   ranges spreads over many): the builder's list, whenever flushed, is the list
//   one rangeArrayInsert per range makes;
// 3 the packed range text: any bytes parse without passing their end, and any
//   two bounds format and read back the same.
// On normalised lists (bounds within INT32_MAX where a kernel takes 32-bit differences)
// results equal the set model's; raw pairs only have to be handled in bounds and end.
#include "fuzz_common.h"
#include "qnPgPackedRangeText.h"
#include "qnPgRangeNormalise.h"
#include "qnPgRangeSetBuilder.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

void algebra(Reader& in) {
    bool normalisedA = false, normalisedB = false;
    const std::vector<R> a = someList(in, 200, normalisedA), b = someList(in, 200, normalisedB);
    const Words wa(flatten(a)), wb(flatten(b));
    const R *a0 = wa.rangesBegin(), *a1 = wa.rangesEnd(), *b0 = wb.rangesBegin(), *b1 = wb.rangesEnd();
    const bool normalised = normalisedA && normalisedB, modelled = normalised && withinOneSpan({&a, &b});
    const Intervals ma = canonical(a), mb = canonical(b), both = setOp(SetOp::Intersection, ma, mb);

    // The output starts small and holds leftovers, which every operation discards.
    const uint8_t shape = in.u8();
    RV out(shape & 3);
    for (int i = 0; i < (shape >> 2 & 7); ++i) out.push_back(R{i, -i});
    computeUnion(a0, a1, b0, b1, out);
    if (modelled) FZ_CHECK(asIntervals(out) == setOp(SetOp::Union, ma, mb));
    if (normalised) {  // the combine's plain union: the set union at any distance, normalised, in place
        std::vector<R> buf(a);
        buf.resize(a.size() + b.size());
        buf.resize(uniteInPlace(buf.data(), a.size(), wb.rangesBegin(), b.size()));
        FZ_CHECK(isNormalised(buf.data(), buf.data() + buf.size()) &&
                 asIntervals(buf.data(), buf.data() + buf.size()) == setOp(SetOp::Union, ma, mb));
    }
    computeExclusion(a0, a1, b0, b1, out);
    if (modelled) FZ_CHECK(asIntervals(out) == setOp(SetOp::Exclusion, ma, mb));
    computeIntersection(a0, a1, b0, b1, out);
    if (normalised) FZ_CHECK(asIntervals(out) == both);
    const bool overlap = rangeListsOverlap(a0, a1, b0, b1);
    if (normalised) FZ_CHECK(overlap == !both.empty());

    // Membership and overlap with one range, mostly next to A's bounds.
    for (int q = in.u8() % 8; q >= 0; --q) {
        const uint8_t how = in.u8();
        const R near = a.empty() ? R{0, 0} : a[in.u8() % a.size()];
        const int32_t v = how < 128 ? (how & 1 ? near.upper : near.lower) + static_cast<int8_t>(in.u8()) : in.i32();
        const int32_t w = static_cast<int32_t>(static_cast<uint32_t>(v) + in.u8());
        const int32_t lo = std::min(v, w), hi = std::max(v, w);
        const bool member = inRangeArray(a0, a1, v), meets = rangeOverlapsList(lo, hi, a0, a1);
        if (normalisedA) FZ_CHECK(member == contains(ma, v));
        if (normalisedA) FZ_CHECK(meets == !setOp(SetOp::Intersection, ma, Intervals{{lo, hi}}).empty());
    }
}

void normalise(Reader& in, uint8_t mode) {
    std::vector<R> list;
    if (mode & 1) list = rawList(in, 255);
    for (int i = mode & 1 ? 0 : 1 + in.u8() % 12; i > 0 && !in.empty(); --i) {
        const std::vector<R> part = normalisedList(in, 60);
        list.insert(list.end(), part.begin(), part.end());
    }
    // Some neighbours made adjacent: the case the two tests must not confuse.
    if (mode & 2)
        for (size_t i = 1; i < list.size(); i += 1 + (mode >> 2) % 4)
            if (list[i - 1].upper < list[i].upper) list[i].lower = list[i - 1].upper + 1;
    Words words(flatten(list));
    R* data = reinterpret_cast<R*>(words.get());
    const Intervals model = canonical(list);
    FZ_CHECK(isNormalised(data, data + list.size()) == (asIntervals(data, data + list.size()) == model));
    const int64_t n = normaliseRanges<malloc, free>(data, list.size(), [] {});
    FZ_CHECK(n >= 0 && static_cast<size_t>(n) <= list.size() && asIntervals(data, data + n) == model);
}

// `count` ranges around `base`, spread over `width` values, each up to `length` long;
// `odd` in 256 of them are inverted or end at INT32_MAX.
std::vector<R> generated(uint64_t s, int64_t base, int64_t width, int64_t length, size_t count, unsigned odd) {
    std::vector<R> v;
    for (size_t i = 0; i < count; ++i) {
        const uint64_t x = splitmix64(s);
        const int64_t lower = std::clamp<int64_t>(base + static_cast<int64_t>(x % static_cast<uint64_t>(width)),
                                                  INT32_MIN, INT32_MAX - 1);
        const int64_t upper = std::min<int64_t>(lower + static_cast<int64_t>((x >> 32) % length), INT32_MAX - 1);
        R r{static_cast<int32_t>(lower), static_cast<int32_t>(upper)};
        if ((x >> 24 & 0xff) < odd) r = (x & 1) ? R{r.upper, r.lower} : R{r.lower, INT32_MAX};
        v.push_back(r);
    }
    return v;
}

void insert(Reader& in, uint8_t mode) {
    using Builder = RangeSetBuilder<malloc, free, NoPoll, 256, 8>;
    const uint64_t flushes = in.u64();  // bit i: flush and compare after range i (cycling)
    std::vector<R> initial;
    bool initialNormalised = true;
    if (mode & 4) initial = someList(in, 64, initialNormalised);
    std::vector<R> arrivals;
    if (mode & 3) {
        static constexpr int64_t kWidths[4] = {64, 5000, 1000000, int64_t{1} << 32};
        const uint64_t seed = in.u64();
        const int64_t width = kWidths[in.u8() & 3], length = int64_t{1} + in.u16();
        const size_t count = in.u16() % 1500;
        const unsigned odd = (mode & 3) == 3 ? in.u8() : 0;
        const int64_t base = (mode & 8) ? int64_t{INT32_MAX} - width : int64_t{in.i32()};
        arrivals = generated(seed, std::max<int64_t>(base, INT32_MIN), width, length, count, odd);
    } else {
        arrivals = rawList(in, 255);
    }

    RV reference(mode & 16 ? 1 : 1024);
    reference.append(initial.data(), initial.data() + initial.size());
    // The builder as an aggregate state holds it: zero-filled memory, then room reserved.
    alignas(Builder) unsigned char storage[sizeof(Builder)] = {};
    auto& builder = *reinterpret_cast<Builder*>(storage);
    builder.ranges.reserve(1024);
    if (!initial.empty() || (mode & 32)) builder.assign(initial.data(), initial.data() + initial.size());

    auto same = [&] {
        return builder.ranges.size() == reference.size() &&
               std::memcmp(builder.ranges.data(), reference.data(), reference.size() * sizeof(R)) == 0;
    };
    // A normalised start and no upper at 2147483647 (whose upper + 1 wraps, deliberately): the model's union.
    bool plain = initialNormalised && std::none_of(initial.begin(), initial.end(), [](R r) { return r.upper == INT32_MAX; });
    for (size_t i = 0; i < arrivals.size(); ++i) {
        const R r = arrivals[i];
        plain = plain && r.lower <= r.upper && r.upper < INT32_MAX;
        rangeArrayInsert(reference, r);
        builder.insert(r);
        if (flushes >> (i % 64) & 1 && i % 7 == 0) {
            builder.flush();
            FZ_CHECK(same());
        }
    }
    builder.flush();
    FZ_CHECK(same());
    initial.insert(initial.end(), arrivals.begin(), arrivals.end());
    if (plain) FZ_CHECK(asIntervals(reference) == canonical(initial));
    builder.release();
}

void text(Reader& in) {
    const Bytes bytes(in.bytes(in.u8() % 48));
    int32_t lo = 0, hi = 0;
    if (parsePackedRange(reinterpret_cast<const char*>(bytes.get()), bytes.count, lo, hi) == PackedRangeParse::Ok)
        FZ_CHECK(lo <= hi);
    // Any two bounds format within the maximum and read back, or are refused as inverted.
    char out[kPackedRangeTextMax];
    const int32_t lower = in.i32(), upper = in.i32();
    const size_t length = formatPackedRange(lower, upper, out);
    FZ_CHECK(length <= kPackedRangeTextMax);
    const PackedRangeParse parsed = parsePackedRange(out, length, lo, hi);
    FZ_CHECK(parsed == (upper < lower ? PackedRangeParse::Inverted : PackedRangeParse::Ok));
    if (parsed == PackedRangeParse::Ok) FZ_CHECK(lo == lower && hi == upper);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    const uint8_t selector = in.u8();
    switch (selector & 3) {
        case 0: algebra(in); break;
        case 1: normalise(in, selector >> 2); break;
        case 2: insert(in, selector >> 2); break;
        default: text(in); break;
    }
    return 0;
}
