// qn::int4set: the text form of an int4set.
//
// "{}" is the empty set; otherwise "{" items "}", the items separated by
// commas, each a member or an inclusive range "a..b". Output is canonical:
// maximal ranges ascending, "a..b" only where a < b, no blanks, so that
// {-10..-5,3,7..9} reads back to the same payload. Input takes members and
// ranges in any order, overlapping and repeated, blanks around every token and
// a sign before a number, and normalises them; "a..a" is a; "a..b" with a > b
// is an error.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgInt4SetText.h must not see server headers: include it before postgres.h");
#endif

#include <cstddef>
#include <cstdint>

#include "qnPgInt4Set.h"

namespace qn::int4set {

enum class TextError : uint8_t {
    None,
    ExpectedOpenBrace,    // the text does not start with "{"
    ExpectedInteger,      // no number where an item or a range's end must be
    ExpectedSeparator,    // after a member: not ",", "}" or ".."
    ExpectedCommaOrEnd,   // after a range: not "," or "}"
    TrailingText,         // something after the closing "}"
    OutOfRange,           // a number outside int4
    InvertedRange,        // "a..b" with a > b
    OutOfMemory,
};

inline const char* textErrorMessage(TextError e) {
    switch (e) {
        case TextError::None: return "ok";
        case TextError::ExpectedOpenBrace: return "expected \"{\"";
        case TextError::ExpectedInteger: return "expected an integer";
        case TextError::ExpectedSeparator: return "expected \",\", \"}\" or \"..\"";
        case TextError::ExpectedCommaOrEnd: return "expected \",\" or \"}\"";
        case TextError::TrailingText: return "unexpected text after \"}\"";
        case TextError::OutOfRange: return "value out of range for type integer";
        case TextError::InvertedRange: return "range lower bound exceeds its upper bound";
        case TextError::OutOfMemory: return "out of memory";
    }
    return "unknown error";
}

// position: the byte offset (from 0) of the fault: the first byte that cannot
// continue a valid text (the length when the text ends too soon), or the first
// byte of a number out of range or of an inverted range.
struct ParseResult {
    TextError error;
    size_t position;
};

// Text from A, NUL-terminated; length does not count the NUL.
struct Text {
    char* chars = nullptr;
    size_t length = 0;
};

namespace detail {

inline bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// Writes the decimal digits of v, sign first; returns how many (at most 11).
inline size_t writeInt(int32_t v, char* out) {
    char digits[10];
    size_t n = 0, length = 0;
    uint32_t magnitude = v < 0 ? 0u - static_cast<uint32_t>(v) : static_cast<uint32_t>(v);
    do {
        digits[n++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    if (v < 0) out[length++] = '-';
    while (n) out[length++] = digits[--n];
    return length;
}

}  // namespace detail

// Reads the text of length bytes at text (a NUL inside is a fault like any
// other byte) into a payload, as parseText's caller would store it.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
ParseResult parseText(const char* text, size_t length, size_t headerRoom, Encoded& out, Poll poll = {}) {
    out = Encoded{};
    const char* p = text;
    const char* const end = text + length;
    auto at = [&](const char* q) { return static_cast<size_t>(q - text); };
    detail::Ticker<Poll> tick{poll};
    auto blanks = [&] {
        const char* const from = p;
        while (p != end && detail::isBlank(*p)) ++p;
        tick(static_cast<uint64_t>(p - from));
    };
    // A number at p; on a fault, where it is.
    auto number = [&](int32_t& v, ParseResult& fault) {
        const char* const start = p;
        bool negative = false;
        if (p != end && (*p == '-' || *p == '+')) negative = *p++ == '-';
        if (p == end || *p < '0' || *p > '9') {
            fault = ParseResult{TextError::ExpectedInteger, at(p)};
            return false;
        }
        int64_t magnitude = 0;
        for (; p != end && *p >= '0' && *p <= '9'; ++p)
            if (magnitude <= int64_t{INT32_MAX} + 1) magnitude = magnitude * 10 + (*p - '0');
        tick(static_cast<uint64_t>(p - start));
        const int64_t value = negative ? -magnitude : magnitude;
        if (value < INT32_MIN || value > INT32_MAX) {
            fault = ParseResult{TextError::OutOfRange, at(start)};
            return false;
        }
        v = static_cast<int32_t>(value);
        return true;
    };

    // Growable list of the items read.
    Range32* items = nullptr;
    uint64_t n = 0, cap = 0;
    auto fail = [&](ParseResult r) {
        if (items) F(items);
        return r;
    };
    auto push = [&](Range32 r) {
        if (n == cap) {
            const uint64_t c = cap ? 2 * cap : 64;
            auto* grown = c > ~size_t{0} / sizeof(Range32) ? nullptr : static_cast<Range32*>(A(c * sizeof(Range32)));
            if (!grown) return false;
            if (n) std::memcpy(grown, items, n * sizeof(Range32));
            if (items) F(items);
            items = grown;
            cap = c;
        }
        items[n++] = r;
        return true;
    };

    blanks();
    if (p == end || *p != '{') return fail(ParseResult{TextError::ExpectedOpenBrace, at(p)});
    ++p;
    blanks();
    if (p != end && *p == '}') {
        ++p;
    } else {
        for (;; tick()) {
            blanks();
            const char* const start = p;
            ParseResult fault{TextError::None, 0};
            int32_t lo = 0, hi = 0;
            if (!number(lo, fault)) return fail(fault);
            hi = lo;
            blanks();
            const bool range = end - p >= 2 && p[0] == '.' && p[1] == '.';
            if (range) {
                p += 2;
                blanks();
                if (!number(hi, fault)) return fail(fault);
                if (hi < lo) return fail(ParseResult{TextError::InvertedRange, at(start)});
                blanks();
            }
            if (!push(Range32{lo, hi})) return fail(ParseResult{TextError::OutOfMemory, at(p)});
            if (p != end && *p == ',') {
                ++p;
                continue;
            }
            if (p != end && *p == '}') {
                ++p;
                break;
            }
            return fail(ParseResult{range ? TextError::ExpectedCommaOrEnd : TextError::ExpectedSeparator, at(p)});
        }
    }
    blanks();
    if (p != end) return fail(ParseResult{TextError::TrailingText, at(p)});
    const Status st = buildFromRanges<A, F>(items, n, headerRoom, out, poll);
    if (items) F(items);
    if (st != Status::Ok) return ParseResult{TextError::OutOfMemory, length};
    return ParseResult{TextError::None, 0};
}

// The canonical text of a payload.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status formatText(const uint8_t* data, size_t size, Text& out, Poll poll = {}) {
    out = Text{};
    RangeCursor cursor(data, size);
    if (cursor.status() != Status::Ok) return cursor.status();
    detail::ByteBuffer<A, F> buffer;
    detail::Ticker<Poll> tick{poll};
    Range32 r;
    char* head = reinterpret_cast<char*>(buffer.extend(1));
    if (head) *head = '{';
    bool first = true;
    while (cursor.next(r)) {
        char item[26];
        size_t k = 0;
        if (!first) item[k++] = ',';
        first = false;
        k += detail::writeInt(r.lower, item + k);
        if (r.upper != r.lower) {
            item[k++] = '.';
            item[k++] = '.';
            k += detail::writeInt(r.upper, item + k);
        }
        uint8_t* dst = buffer.extend(k);
        if (!dst) break;
        std::memcpy(dst, item, k);
        tick();
    }
    if (cursor.status() != Status::Ok) return Status::Corrupt;
    uint8_t* tail = buffer.extend(2);
    if (!tail || buffer.failed()) return Status::OutOfMemory;
    tail[0] = '}';
    tail[1] = '\0';
    const size_t length = buffer.size() - 1;
    out = Text{reinterpret_cast<char*>(buffer.release()), length};
    return Status::Ok;
}

}  // namespace qn::int4set
