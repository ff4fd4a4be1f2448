// The GiST kernels: union, penalty, the consistency tests and the page split,
// on keys from the input (well formed, lower <= upper, or any 64 bits).
// Checks, on well-formed keys:
// - the union is the smallest key covering both;
// - the penalty is defined, at least the growth, below growth + 1 (within float
//   precision), and below 1 exactly when the key needs no growth;
// - no consistency test rejects an inner key (the union of leaf keys) when it
//   accepts one of its leaves: an index scan cannot miss a row;
// - the range-array and bitfield tests equal the model on sorted lists;
// - the page split puts every entry on exactly one side, both sides non-empty,
//   neither above 70% of the entries, and each side's union covers its keys.
// Malformed keys must only be handled without a read or write out of bounds.
#include <cmath>

#include "fuzz_common.h"
#include "qnPgGistRange.h"

using namespace fz;
using namespace qn::gist;

namespace {

int64_t someKey(Reader& in, bool& wellFormed) {
    const uint8_t how = in.u8();
    if (how < 24) {
        const int64_t key = static_cast<int64_t>(in.u64());
        wellFormed = wellFormed && packedLower(key) <= packedUpper(key);
        return key;
    }
    static constexpr int64_t kScales[4] = {1, 10, 100003, 50000017};
    const int64_t base = how & 1 ? int64_t{in.i32()} : int64_t{static_cast<int8_t>(in.u8())};
    const int64_t lower = std::clamp<int64_t>(base, INT32_MIN, INT32_MAX);
    const int64_t upper = std::min<int64_t>(lower + in.u8() * kScales[how >> 1 & 3], INT32_MAX);
    return packRange(static_cast<int32_t>(lower), static_cast<int32_t>(upper));
}

bool contains(int64_t outer, int64_t inner) {
    return packedLower(outer) <= packedLower(inner) && packedUpper(inner) <= packedUpper(outer);
}

void checkPenalty(int64_t existing, int64_t added) {
    float penalty = -1;
    FZ_CHECK(computePenalty(existing, added, penalty));
    const int64_t growth = (int64_t{packedUpper(keyUnion(existing, added))} - packedLower(keyUnion(existing, added))) -
                           (int64_t{packedUpper(existing)} - packedLower(existing));
    FZ_CHECK(std::isfinite(penalty) && penalty >= 0);
    FZ_CHECK(penalty >= static_cast<float>(growth) && penalty <= static_cast<float>(growth + 1));
    FZ_CHECK((penalty < 1) == (growth == 0));
}

struct Query {
    int64_t packed;
    int32_t value;
    std::vector<R> list;  // sorted, disjoint
    std::vector<uint8_t> bitfield;
    qn::bitfield::BitFieldView bf;
};

// The consistency answer for strategy s (0 to 7 in the order below).
bool consistent(int s, int64_t key, const Query& q, const Words& list, bool leaf) {
    switch (s) {
        case 0: return keyOverlaps(key, q.packed);
        case 1: return keyIncludedIn(key, q.packed, leaf);
        case 2: return keyContains(key, q.packed);
        case 3: return keyContainsValue(key, q.value);
        case 4: return keyMeetsRangeArray(key, list.rangesBegin(), list.rangesEnd());
        default: return keyMeetsBitField(key, q.bf, leaf);
    }
}

void checkSplit(const std::vector<int64_t>& keys, bool wellFormed) {
    const auto maxoff = static_cast<uint16_t>(keys.size() - 1);  // keys[0] is unused, as offset 0 is
    std::vector<uint16_t> leftOffsets(maxoff + 1u), rightOffsets(maxoff + 1u);
    SplitSide left{leftOffsets.data(), 0, 0}, right{rightOffsets.data(), 0, 0};
    const SplitError e = pickSplit<malloc, free>(
        maxoff, [&](uint16_t offset) { return keys.at(offset); }, left, right);
    if (maxoff < 2) {
        FZ_CHECK(e == SplitError::InvalidSize);
        return;
    }
    if (!wellFormed && e != SplitError::None) return;
    FZ_CHECK(e == SplitError::None);
    FZ_CHECK(left.count > 0 && right.count > 0 && left.count + right.count == maxoff);
    const int mostPerSide = maxoff - std::max(1, maxoff * 3 / 10);
    FZ_CHECK(left.count <= mostPerSide && right.count <= mostPerSide);
    std::vector<int> seen(maxoff + 1u, 0);
    for (const SplitSide* side : {&left, &right}) {
        int64_t cover = keys.at(side->offsets[0]);
        for (int i = 0; i < side->count; ++i) {
            const uint16_t offset = side->offsets[i];
            FZ_CHECK(offset >= 1 && offset <= maxoff && seen[offset]++ == 0);
            cover = keyUnion(cover, keys[offset]);
        }
        FZ_CHECK(side->unionKey == cover);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    const uint8_t mode = in.u8();
    bool wellFormed = true;
    std::vector<int64_t> keys{0};
    const size_t count = (mode & 1) ? in.u16() % 700 : in.u8() % 12;
    for (size_t i = 0; i < count && !in.empty(); ++i) keys.push_back(someKey(in, wellFormed));

    if (mode & 2) {
        checkSplit(keys, wellFormed);
        return 0;
    }
    if (keys.size() < 2) return 0;

    // The inner key over the leaves, the penalties of adding each leaf to it and to each other.
    int64_t inner = keys[1];
    for (size_t i = 1; i < keys.size(); ++i) inner = keyUnion(inner, keys[i]);
    for (size_t i = 1; i < keys.size(); ++i) {
        const int64_t other = keys[i % (keys.size() - 1) + 1], u = keyUnion(keys[i], other);
        FZ_CHECK(packedLower(u) == std::min(packedLower(keys[i]), packedLower(other)) &&
                 packedUpper(u) == std::max(packedUpper(keys[i]), packedUpper(other)));
        float ignored;
        if (!wellFormed) {
            computePenalty(keys[i], keys[keys.size() - i], ignored);
            continue;
        }
        FZ_CHECK(contains(inner, keys[i]));
        checkPenalty(inner, keys[i]);
        checkPenalty(keys[i], keys[keys.size() - i]);
    }

    // A query of every kind.
    Query q;
    q.packed = someKey(in, wellFormed);
    q.value = in.i32();
    bool normalised = false;
    q.list = someList(in, 64, normalised);
    const int32_t min = in.i32();
    const uint32_t n = in.u16() % 2048 + 1;
    const int32_t max = static_cast<int32_t>(static_cast<uint32_t>(min) + n - 1);
    q.bitfield.assign(12 + qn::bitfield::bitBytes(n), 0);
    qn::bitfield::writeBounds(q.bitfield.data(), min, max);
    for (size_t i = 12; i < q.bitfield.size() && !in.empty(); ++i) q.bitfield[i] = in.u8() & in.u8();
    const Bytes bitfield(q.bitfield);
    if (qn::bitfield::readBitField(bitfield.get(), bitfield.count, q.bf) != qn::bitfield::BitFieldRead::Ok) return 0;
    const Words list(flatten(q.list));

    for (int s = 0; s < 6; ++s) {
        bool anyLeaf = false;
        for (size_t i = 1; i < keys.size(); ++i) anyLeaf = consistent(s, keys[i], q, list, true) || anyLeaf;
        const bool innerAnswer = consistent(s, inner, q, list, false);
        if (wellFormed && (s != 4 || normalised)) FZ_CHECK(!anyLeaf || innerAnswer);
    }
    if (normalised) {  // the range-array test against the model
        for (size_t i = 1; i < keys.size(); ++i) {
            const int64_t lo = packedLower(keys[i]), hi = packedUpper(keys[i]);
            bool meets = false;
            for (const R& r : q.list) meets = meets || (r.lower <= hi && lo <= r.upper);
            FZ_CHECK(keyMeetsRangeArray(keys[i], list.rangesBegin(), list.rangesEnd()) == meets);
        }
    }
    for (size_t i = 1; i < keys.size(); ++i) {  // the bitfield test of a leaf: its lower bound's bit
        const int32_t v = packedLower(keys[i]);
        const bool set = q.bf.covers(v) && bitAt(q.bf.bits, static_cast<uint32_t>(v) - static_cast<uint32_t>(min));
        FZ_CHECK(keyMeetsBitField(keys[i], q.bf, true) == set);
    }
    return 0;
}
