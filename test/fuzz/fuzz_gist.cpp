// The GiST kernels on keys from the input (lower <= upper, or any 64 bits). On
// well-formed keys: the union covers its keys; the penalty lies in [growth, growth + 1]
// and is below 1 exactly without growth; no consistency test rejects an inner key when
// it accepts one of its leaves (a scan cannot miss a row); the page split puts every
// entry on one side, neither side empty nor above 70%, each side's union covering its
// keys. Malformed keys are only checked for memory safety.
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
    const int64_t lower = how & 1 ? int64_t{in.i32()} : int64_t{static_cast<int8_t>(in.u8())};
    const int64_t upper = std::min<int64_t>(lower + in.u8() * kScales[how >> 1 & 3], INT32_MAX);
    return packRange(static_cast<int32_t>(lower), static_cast<int32_t>(upper));
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
        float ignored;
        if (!wellFormed) {
            computePenalty(keys[i], keys[keys.size() - i], ignored);
            continue;
        }
        FZ_CHECK(keyUnion(inner, keys[i]) == inner);
        checkPenalty(inner, keys[i]);
        checkPenalty(keys[i], keys[keys.size() - i]);
    }

    // A query of every kind: a range, a value, a range list, a bitfield of 1 to 2,048 bits.
    const int64_t packed = someKey(in, wellFormed);
    const int32_t value = in.i32();
    bool normalised = false;
    const std::vector<R> list = someList(in, 64, normalised);
    const int32_t min = in.i32();
    const Words words(flatten(list));
    const uint32_t n = in.u16() % 2048 + 1;
    std::vector<uint8_t> bitfield(12 + qn::bitfield::bitBytes(n), 0);
    qn::bitfield::writeBounds(bitfield.data(), min, static_cast<int32_t>(static_cast<uint32_t>(min) + n - 1));
    for (size_t i = 12; i < bitfield.size() && !in.empty(); ++i) bitfield[i] = in.u8() & in.u8();
    const Bytes bytes(bitfield);
    qn::bitfield::BitFieldView bf{};
    FZ_CHECK(qn::bitfield::readBitField(bytes.get(), bytes.count, bf) == qn::bitfield::BitFieldRead::Ok);
    auto consistent = [&](int s, int64_t key, bool leaf) {
        switch (s) {
            case 0: return keyOverlaps(key, packed);
            case 1: return keyIncludedIn(key, packed, leaf);
            case 2: return keyContains(key, packed);
            case 3: return keyContainsValue(key, value);
            case 4: return keyMeetsRangeArray(key, words.rangesBegin(), words.rangesEnd());
            case 5: return keyMayHoldMember(key, words.rangesBegin(), words.rangesEnd(), leaf);
            default: return keyMeetsBitField(key, bf, leaf);
        }
    };
    // Range lists in any order: the index must find what the operators find on them.
    for (int s = 0; s < 7; ++s) {
        bool anyLeaf = false;
        for (size_t i = 1; i < keys.size(); ++i) anyLeaf = consistent(s, keys[i], true) || anyLeaf;
        if (wellFormed) FZ_CHECK(!anyLeaf || consistent(s, inner, false));
    }
    return 0;
}
