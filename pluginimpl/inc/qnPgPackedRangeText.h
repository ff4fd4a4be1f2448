// The text form of a packed range: "[lower,upper]", both bounds included, in
// decimal.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgPackedRangeText.h must not see server headers: include it before postgres.h");
#endif

#include <cstddef>
#include <cstdint>

namespace qn::pgRangeArray {

// The longest text: "[-2147483648,-2147483648]".
constexpr size_t kPackedRangeTextMax = 25;

// Writes the decimal digits of v, sign first, and returns their number.
inline size_t formatInt32(int32_t v, char* out) {
    char digits[10];
    size_t n = 0;
    uint32_t magnitude = v < 0 ? 0u - static_cast<uint32_t>(v) : static_cast<uint32_t>(v);
    do {
        digits[n++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    size_t length = 0;
    if (v < 0) out[length++] = '-';
    while (n) out[length++] = digits[--n];
    return length;
}

// Writes "[lower,upper]" (no terminating NUL) into out, which has room for
// kPackedRangeTextMax characters, and returns its length. The bounds are
// written as they are, even when upper < lower.
inline size_t formatPackedRange(int32_t lower, int32_t upper, char* out) {
    size_t length = 0;
    out[length++] = '[';
    length += formatInt32(lower, out + length);
    out[length++] = ',';
    length += formatInt32(upper, out + length);
    out[length++] = ']';
    return length;
}

enum class PackedRangeParse {
    Ok,
    Syntax,      // not "[lower,upper]"
    OutOfRange,  // a bound outside int4
    Inverted,    // upper < lower
};

namespace detail {

inline bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

inline void skipSpaces(const char*& p, const char* end) {
    while (p != end && isSpace(*p)) ++p;
}

// An optionally signed decimal integer at p; stops at the first non-digit.
inline PackedRangeParse parseBound(const char*& p, const char* end, int32_t& v) {
    bool negative = false;
    if (p != end && (*p == '-' || *p == '+')) negative = *p++ == '-';
    if (p == end || *p < '0' || *p > '9') return PackedRangeParse::Syntax;
    int64_t magnitude = 0;
    bool tooLarge = false;
    for (; p != end && *p >= '0' && *p <= '9'; ++p) {
        magnitude = magnitude * 10 + (*p - '0');
        if (magnitude > int64_t{INT32_MAX} + 1) {
            tooLarge = true;
            magnitude = int64_t{INT32_MAX} + 1;
        }
    }
    const int64_t value = negative ? -magnitude : magnitude;
    if (tooLarge || value > INT32_MAX || value < INT32_MIN) return PackedRangeParse::OutOfRange;
    v = static_cast<int32_t>(value);
    return PackedRangeParse::Ok;
}

inline bool expect(const char*& p, const char* end, char c) {
    skipSpaces(p, end);
    if (p == end || *p != c) return false;
    ++p;
    skipSpaces(p, end);
    return true;
}

}  // namespace detail

// Reads "[lower,upper]" from the n characters at text; blanks are allowed around
// the brackets, the comma and the bounds, a bound may carry a sign. A syntax
// error anywhere takes precedence over a bound out of range, and both over
// upper < lower. lower and upper are set only when the result is Ok.
inline PackedRangeParse parsePackedRange(const char* text, size_t n, int32_t& lower, int32_t& upper) {
    const char* p = text;
    const char* const end = text + n;
    int32_t lo = 0, hi = 0;
    if (!detail::expect(p, end, '[')) return PackedRangeParse::Syntax;
    const PackedRangeParse first = detail::parseBound(p, end, lo);
    if (first == PackedRangeParse::Syntax || !detail::expect(p, end, ',')) return PackedRangeParse::Syntax;
    const PackedRangeParse second = detail::parseBound(p, end, hi);
    if (second == PackedRangeParse::Syntax || !detail::expect(p, end, ']') || p != end) return PackedRangeParse::Syntax;
    if (first != PackedRangeParse::Ok || second != PackedRangeParse::Ok) return PackedRangeParse::OutOfRange;
    if (hi < lo) return PackedRangeParse::Inverted;
    lower = lo;
    upper = hi;
    return PackedRangeParse::Ok;
}

}  // namespace qn::pgRangeArray
