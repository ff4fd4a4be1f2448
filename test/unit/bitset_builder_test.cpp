// Sets built as bits (int4set_agg_optimized's kernel) against a plain bit-vector
// model, and the readers of serialised aggregate states on malformed bytes.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "qnPgBitSetBuilder.h"
#include "qnPgKeepSingleState.h"

namespace {

using namespace qn::bitfield;
using Words = std::vector<int32_t>;

int uni(std::mt19937& rng, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

// The elements of the model's set in form `form`, built value by value.
Words expected(const std::vector<bool>& m, uint32_t form) {
    Words out, runs;
    uint32_t members = 0;
    for (size_t p = 0; p < m.size(); ++p) {
        if (!m[p]) continue;
        ++members;
        out.push_back(static_cast<int32_t>(p));
        if (runs.empty() || runs.back() + 1 != static_cast<int32_t>(p)) runs.insert(runs.end(), {int32_t(p), int32_t(p)});
        else runs.back() = static_cast<int32_t>(p);
    }
    if (form == ArrayDataTypeSet) return out;
    if (form == ArrayDataTypeRangeArray) return runs;
    Words mix;
    if (members) mix.push_back(static_cast<int32_t>(members));
    for (size_t i = 0; i < runs.size(); i += 2) {
        if (runs[i] == runs[i + 1]) mix.push_back(runs[i]);
        else mix.insert(mix.end(), {static_cast<int32_t>(runs[i] | 0x80000000u), runs[i + 1]});
    }
    return mix;
}

// Random rows of every form, some reaching outside: the bits match the model for
// every row accepted, and the three outputs (counted, then written) match it too.
TEST(BitSetBuilder, RandomRowsMatchModel) {
    std::mt19937 rng(7);
    for (int round = 0; round < 400; ++round) {
        const BitSetSizes sizes = bitSetSizes(uni(rng, 1, 330));
        std::vector<uint8_t> bits(sizes.capacity, 0);
        std::vector<bool> model(sizes.size * 8);
        const int32_t last = bitSetLast(sizes.size), density = uni(rng, 1, 40);
        for (int row = 0; row < density; ++row) {
            const int32_t lo = uni(rng, -2, last + 2), hi = lo + uni(rng, -2, 70);
            std::vector<bool> next = model;
            bool inside = true;
            for (int32_t v = lo; v <= hi; ++v)
                if (v < 0 || v > last) inside = false;
                else next[v] = true;
            if (row % 2) {
                EXPECT_EQ(addBitSetBounds(bits.data(), sizes.size, lo, hi) == BitSetAddError::None, inside);
            } else {
                const Words mix = {0, lo == hi ? lo : static_cast<int32_t>(static_cast<uint32_t>(lo) | 0x80000000u), hi};
                const BitSetAddError e = addBitSetArray(bits.data(), sizes.size, ArrayDataTypeMixArray, mix.data(),
                                                        lo == hi ? 2 : 3);
                if (lo < 0) continue;  // no mix item: an inverted run or a trailing opener, nothing set
                EXPECT_EQ(e == BitSetAddError::None, inside);
            }
            if (inside) model = next;
        }
        for (uint32_t form : {ArrayDataTypeSet, ArrayDataTypeRangeArray, ArrayDataTypeMixArray}) {
            const Words want = expected(model, form);
            ASSERT_EQ(countBitSetElements(bits.data(), sizes.size, form), want.size());
            Words got(want.size() + 1, 12345);
            writeBitSetElements(bits.data(), sizes.size, form, got.data());
            EXPECT_EQ(got.back(), 12345);  // nothing written past the count
            got.pop_back();
            EXPECT_EQ(got, want) << "form " << form << " round " << round;
        }
    }
}

TEST(BitSetBuilder, ArrayShapesAreCheckedWithoutReadingPastTheEnd) {
    std::vector<uint8_t> bits(8, 0);
    const Words odd = {1, 2, 3}, opener = {0, 99, static_cast<int32_t>(0x80000001u)};
    EXPECT_EQ(addBitSetArray(bits.data(), 2, ArrayDataTypeRangeArray, odd.data(), 3), BitSetAddError::OddRangeArray);
    // A member outside comes first, but the row is malformed: that is what is reported.
    EXPECT_EQ(addBitSetArray(bits.data(), 2, ArrayDataTypeMixArray, opener.data(), 3),
              BitSetAddError::MixRangeWithoutUpper);
    EXPECT_EQ(addBitSetArray(bits.data(), 2, ArrayDataTypeMixArray, opener.data(), 2), BitSetAddError::ScalarOutside);
}

TEST(SerialisedStates, MalformedBytesAreRefused) {
    std::vector<uint8_t> bytes(40, 0);
    int32_t in, out;
    uint32_t capacity = 8, size;
    std::memcpy(bytes.data() + kBitSetStateCapacityOffset, &capacity, 4);
    EXPECT_EQ(readBitSetState(bytes.data(), 9, in, out, capacity, size), BitSetStateError::Empty);
    EXPECT_EQ(readBitSetState(bytes.data(), 18, in, out, capacity, size), BitSetStateError::None);
    EXPECT_EQ(readBitSetState(bytes.data(), 19, in, out, capacity, size), BitSetStateError::Corrupted);

    using namespace qn::keepsingle;
    KeepSingleStateView view;
    const uint32_t text = 25, int4 = 23;
    writeKeepSingleHeader(bytes.data(), false, text);
    EXPECT_EQ(readKeepSingleState(bytes.data(), 4, view), KeepSingleStateError::Empty);
    EXPECT_EQ(readKeepSingleState(bytes.data(), 9, view), KeepSingleStateError::BadSize);
    ASSERT_EQ(readKeepSingleState(bytes.data(), 13, view), KeepSingleStateError::None);
    EXPECT_EQ(view.dataBytes, 3u);
    bytes[kKindOffset] = kKindByValue;  // a text state cannot travel by value
    EXPECT_EQ(readKeepSingleState(bytes.data(), 18, view), KeepSingleStateError::UnknownKind);
    writeKeepSingleHeader(bytes.data(), false, int4);
    EXPECT_EQ(readKeepSingleState(bytes.data(), 17, view), KeepSingleStateError::BadSize);
    bytes[kKindOffset] = 3;
    EXPECT_EQ(readKeepSingleState(bytes.data(), 18, view), KeepSingleStateError::UnknownKind);
}

}  // namespace
