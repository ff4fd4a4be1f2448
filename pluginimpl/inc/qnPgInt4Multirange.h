// The stored layout of an int4multirange, written straight from a normalised
// range list: one pass, no intermediate int4range per range, nothing allocated
// but the result.
//
// The layout is PostgreSQL's on-disk format (fixed since multiranges appeared
// in 14, as pg_upgrade requires): a 4-byte varlena length word, the multirange
// type's OID, the range count, then one uint32 item for every range but the
// first (every fourth item the offset of the range's bounds with the top bit
// set, the others the length of the previous range's bounds), one flags byte
// per range, and from the next 4-byte boundary the ranges' stored bounds. An
// int4 range [lower, upper] is stored as the int4range '[lower, upper + 1)';
// an extreme bound (INT32_MIN below, INT32_MAX above) is an unbounded end and
// stores no value.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgInt4Multirange.h must not see server headers: include it before postgres.h");
#endif

#include <cstdint>
#include <cstring>

#include "qnPgRangeArray.h"

namespace qn::pgRangeArray {

// Range flags of the stored format.
constexpr uint8_t kMultirangeLowerInclusive = 0x02;
constexpr uint8_t kMultirangeLowerInfinite = 0x08;
constexpr uint8_t kMultirangeUpperInfinite = 0x10;
constexpr uint32_t kMultirangeItemHasOffset = 0x80000000u;
constexpr uint32_t kMultirangeOffsetStride = 4;
constexpr uint64_t kMultirangeHeaderBytes = 12;  // length word, type OID, range count

// The bytes of the stored bounds of [lower, upper]: a value per bounded end.
inline uint32_t int4MultirangeBoundBytes(const Range<int32_t>& r) {
    return (r.lower != INT32_MIN ? 4u : 0u) + (r.upper != INT32_MAX ? 4u : 0u);
}

// Where the bounds start in a multirange of n ranges.
inline uint64_t int4MultirangeBoundsOffset(uint64_t n) {
    const uint64_t unaligned = kMultirangeHeaderBytes + (n ? (n - 1) * 4 + n : 0);
    return (unaligned + 3) & ~uint64_t{3};
}

// The whole size, length word included, of the multirange of a normalised list.
inline uint64_t int4MultirangeSize(const Range<int32_t>* first, const Range<int32_t>* last) {
    uint64_t size = int4MultirangeBoundsOffset(static_cast<uint64_t>(last - first));
    for (; first != last; ++first) size += int4MultirangeBoundBytes(*first);
    return size;
}

// Writes the multirange of the normalised list [first, last) into `out`, which
// holds exactly int4MultirangeSize bytes, all but the length word (the caller's:
// its encoding is the server's). Calls poll() every 65536 ranges.
template <typename Poll>
void writeInt4Multirange(uint8_t* out, uint32_t typeOid, const Range<int32_t>* first, const Range<int32_t>* last,
                         Poll poll) {
    const uint64_t n = static_cast<uint64_t>(last - first);
    const uint32_t count = static_cast<uint32_t>(n);
    std::memcpy(out + 4, &typeOid, 4);
    std::memcpy(out + 8, &count, 4);
    uint8_t* const items = out + kMultirangeHeaderBytes;
    uint8_t* const flags = items + (n ? (n - 1) * 4 : 0);
    uint8_t* const bounds = out + int4MultirangeBoundsOffset(n);
    std::memset(flags, 0, static_cast<size_t>(bounds - flags));  // the flags and the alignment padding
    uint32_t offset = 0, previousOffset = 0;
    for (uint64_t i = 0; i < n; ++i) {
        if ((i & 0xffff) == 0xffff) poll();
        if (i > 0) {
            const uint32_t item = (i % kMultirangeOffsetStride) ? offset - previousOffset
                                                                : (offset | kMultirangeItemHasOffset);
            std::memcpy(items + (i - 1) * 4, &item, 4);
            previousOffset = offset;
        }
        const Range<int32_t>& r = first[i];
        uint8_t f = 0;
        if (r.lower == INT32_MIN) {
            f |= kMultirangeLowerInfinite;
        } else {
            f |= kMultirangeLowerInclusive;
            std::memcpy(bounds + offset, &r.lower, 4);
            offset += 4;
        }
        if (r.upper == INT32_MAX) {
            f |= kMultirangeUpperInfinite;
        } else {
            const int32_t exclusiveUpper = r.upper + 1;
            std::memcpy(bounds + offset, &exclusiveUpper, 4);
            offset += 4;
        }
        flags[i] = f;
    }
}

}  // namespace qn::pgRangeArray
