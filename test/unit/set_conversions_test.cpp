// Expanding a mix array into an output buffer of exactly the declared size: the
// buffer is never written past, whatever the items hold (checked by ASan on
// exactly sized buffers).
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "qnPgSetConversions.h"

namespace {

using qn::pgRangeArray::expandMixArray;
using qn::pgRangeArray::MixExpandError;

constexpr int kOpen = INT_MIN;  // sign bit: the word opens a range

// Expands items into a heap buffer of exactly `declared` values.
MixExpandError expand(const std::vector<int>& items, size_t declared, std::vector<int>& out) {
    out.assign(declared, -1);
    return expandMixArray(items.data(), items.data() + items.size(), out.data(), declared, [] {});
}

TEST(MixExpansion, StaysInsideTheDeclaredSize) {
    std::vector<int> out;
    EXPECT_EQ(expand({5, kOpen | 7, 9}, 4, out), MixExpandError::None);
    EXPECT_EQ(out, (std::vector<int>{5, 7, 8, 9}));

    // More integers than declared, by a scalar or by a range that does not fit.
    EXPECT_EQ(expand({5, 6, 7}, 2, out), MixExpandError::CountMismatch);
    EXPECT_EQ(expand({5, kOpen | 0, 1000000}, 3, out), MixExpandError::CountMismatch);
    EXPECT_EQ(expand({5}, 2, out), MixExpandError::CountMismatch);

    // A malformed range is reported even after the declared size is passed.
    EXPECT_EQ(expand({5, 6, kOpen | 1}, 1, out), MixExpandError::InvalidRange);
}

}  // namespace
