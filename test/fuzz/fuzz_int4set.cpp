// int4set payloads, by a selector byte:
// 0 any bytes, 1 a valid payload with bytes changed, cut or added, 4 a range
//   list of any ranges with a right or wrong cardinality: the validator and
//   every reader stay inside the bytes; the validator accepts exactly the
//   payloads that decode to a set whose encoding they are; what it accepts has
//   its stored cardinality and combines into payloads it accepts;
// 2 two sets of runs, lone members, dense stretches (bitmaps) and spans of
//   whole chunks, near either end of the line or anywhere, in either layout:
//   every operation, test, the order and the text against the interval model,
//   every result the one payload of its set, and each set in the layout its
//   sizes call for;
// 3 text: any bytes, and texts written from a known set, with a foreign byte
//   put in at a known position.
#include <string>

#include "fuzz_common.h"
#include "qnPgInt4SetOps.h"
#include "qnPgInt4SetText.h"

using namespace fz;
using namespace qn::int4set;

namespace {

using Payload = std::vector<uint8_t>;

Payload own(const Encoded& e) {
    Payload p(e.payload, e.payload + e.size);
    free(e.buffer);
    return p;
}

Payload encode(const Intervals& m) {
    std::vector<R> list;
    for (const Interval& i : m) list.push_back(R{static_cast<int32_t>(i.first), static_cast<int32_t>(i.second)});
    const Exact<R> exact(list);
    Encoded e;
    FZ_CHECK((encodeRanges<malloc, free>(exact.begin(), exact.end(), 0, e)) == Status::Ok);
    return own(e);
}

// Sorted, apart, none inverted: a model a payload may encode.
bool isCanonical(const Intervals& m) {
    for (size_t i = 0; i < m.size(); ++i)
        if (m[i].first > m[i].second || (i > 0 && m[i].first <= m[i - 1].second + 1)) return false;
    return true;
}

// Decoded as intervals; nullopt-like flag when unreadable.
bool decode(const Bytes& b, Intervals& out) {
    RV v;
    out.clear();
    if (decodeRanges(b.get(), b.count, v) != Status::Ok) return false;
    out = asIntervals(v);
    return true;
}

std::string modelText(const Intervals& m) {
    std::string s = "{";
    for (const Interval& i : m) {
        if (s.size() > 1) s += ',';
        s += std::to_string(i.first);
        if (i.second != i.first) s += ".." + std::to_string(i.second);
    }
    return s + "}";
}

// A set: a normalised list and up to three stretches of random bits.
Intervals someSet(Reader& in) {
    std::vector<R> list = normalisedList(in, 120);
    for (int k = in.u8() % 4; k > 0; --k) {
        const uint8_t mode = in.u8();
        const int64_t width = 64 + int64_t{in.u16() % 12288} * (mode & 4 ? 2 : 1);
        const int64_t base = (mode & 3) == 0 ? int64_t{INT32_MIN} + in.u16()
                             : (mode & 3) == 1 ? int64_t{INT32_MAX} - width - in.u8()
                                               : int64_t{in.i32()};
        uint64_t seed = in.u64();
        const int density = mode >> 3 & 7;  // 50%, 25%, 75%, 12%, 88%, 3%, 97%, a few
        for (int64_t w = 0; w < width; w += 64) {
            uint64_t bits = splitmix64(seed);
            const uint64_t r = splitmix64(seed), t = splitmix64(seed);
            bits = density == 1 ? bits & r : density == 2 ? bits | r : density == 3 ? bits & r & t
                 : density == 4 ? bits | r | t : density == 5 ? bits & r & t & splitmix64(seed)
                 : density == 6 ? bits | r | t | splitmix64(seed) : density == 7 ? bits & r & t & (t >> 7) & (r << 3) : bits;
            for (int i = 0; i < 64; ++i) {
                const int64_t v = base + w + i;
                if (!(bits >> i & 1) || v < INT32_MIN || v > INT32_MAX) continue;
                if (!list.empty() && list.back().upper == v - 1 && list.back().lower >= base)
                    list.back().upper = static_cast<int32_t>(v);
                else
                    list.push_back(R{static_cast<int32_t>(v), static_cast<int32_t>(v)});
            }
        }
    }
    return canonical(list);
}

// a op b in one pass: from each bound of either list to the next, both sets'
// membership is constant (the fuzz_common sweep is too slow for sets this large).
Intervals sweep(SetOp op, const Intervals& a, const Intervals& b) {
    Intervals out;
    size_t i = 0, j = 0;
    for (int64_t at = INT32_MIN;;) {
        while (i < a.size() && a[i].second < at) ++i;
        while (j < b.size() && b[j].second < at) ++j;
        if (i == a.size() && j == b.size()) return out;
        const bool x = i < a.size() && a[i].first <= at, y = j < b.size() && b[j].first <= at;
        int64_t next = INT64_MAX;
        if (i < a.size()) next = std::min(next, x ? a[i].second + 1 : a[i].first);
        if (j < b.size()) next = std::min(next, y ? b[j].second + 1 : b[j].first);
        if (op == SetOp::Union ? x || y : op == SetOp::Intersection ? x && y : x && !y) {
            if (!out.empty() && out.back().second + 1 == at)
                out.back().second = next - 1;
            else
                out.emplace_back(at, next - 1);
        }
        at = next;
    }
}

// The order by member sequences, from the least member in one set only.
int modelCompare(const Intervals& a, const Intervals& b, const Intervals& onlyA) {
    const Intervals onlyB = sweep(SetOp::Exclusion, b, a);
    if (onlyA.empty() && onlyB.empty()) return 0;
    const bool inA = onlyB.empty() || (!onlyA.empty() && onlyA[0].first < onlyB[0].first);
    const int64_t d = inA ? onlyA[0].first : onlyB[0].first;
    const Intervals& other = inA ? b : a;
    const bool otherGoesOn = !other.empty() && other.back().second > d;  // at d it has a greater member
    return (inA == otherGoesOn) ? -1 : 1;
}

// Every reader on a payload that may be anything: stays inside it and ends.
void readAll(const Bytes& b, const Bytes& other, Reader& in) {
    bool x = false, found = false;
    int32_t v = 0;
    int c = 0;
    uint64_t card = 0;
    cardinality(b.get(), b.count, card);
    minMember(b.get(), b.count, found, v);
    maxMember(b.get(), b.count, found, v);
    for (int k = 0; k < 4; ++k) containsValue(b.get(), b.count, in.i32(), x);
    const int32_t lo = in.i32();
    containsRange(b.get(), b.count, lo, static_cast<int32_t>(lo + in.u32() % 300000), x);
    meetsRange(b.get(), b.count, lo, static_cast<int32_t>(lo + in.u32() % 300000), x);
    overlaps<malloc, free>(b.get(), b.count, other.get(), other.count, x);
    containsSet<malloc, free>(b.get(), b.count, other.get(), other.count, x);
    containsSet<malloc, free>(other.get(), other.count, b.get(), b.count, x);
    compare(b.get(), b.count, other.get(), other.count, c);
    hash32(b.get(), b.count);
    Encoded e;
    for (auto f : {unite<malloc, free, NoPoll>, intersect<malloc, free, NoPoll>, subtract<malloc, free, NoPoll>}) {
        if (f(b.get(), b.count, other.get(), other.count, 0, e, {}) == Status::Ok) free(e.buffer);
        if (f(other.get(), other.count, b.get(), b.count, 0, e, {}) == Status::Ok) free(e.buffer);
    }
    Text t;
    if (formatText<malloc, free>(b.get(), b.count, t) == Status::Ok) free(t.chars);
    MemberCursor members(b.get(), b.count);
    for (int k = 0; k < 100 && members.next(v); ++k) {
    }
}

// The validator against the model: a payload is valid exactly when it decodes
// to a set whose encoding it is. Then it has its stored cardinality and
// combines into payloads the validator accepts.
void checkValid(const Payload& p, const Bytes& b, const Bytes& other, Reader& in) {
    const Status st = validate(b.get(), b.count);
    readAll(b, other, in);
    Intervals m;
    const bool readable = decode(b, m);
    FZ_CHECK((st == Status::Ok) == (readable && isCanonical(m) && encode(m) == p));
    if (st != Status::Ok) return;
    uint64_t card = 0, counted = 0;
    cardinality(b.get(), b.count, card);
    for (const Interval& i : m) counted += static_cast<uint64_t>(i.second - i.first + 1);
    FZ_CHECK(card == counted);
    Encoded e;
    FZ_CHECK((unite<malloc, free>(b.get(), b.count, other.get(), other.count, 0, e)) == Status::Ok);
    const Payload u = own(e);
    FZ_CHECK(validate(u.data(), u.size()) == Status::Ok);
}

// A range list of ranges in any order, overlapping or inverted, or
// normalised; its cardinality right or a little off; sometimes cut short.
void listBytes(Reader& in) {
    bool normalised = false;
    const std::vector<R> list = someList(in, 64, normalised);
    Payload p(kListHeaderSize + 8 * list.size());
    p[0] = kFormatRanges;
    uint64_t card = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        card += static_cast<uint64_t>(int64_t{list[i].upper} - list[i].lower + 1);
        detail::store32(&p[kListHeaderSize + 8 * i], static_cast<uint32_t>(list[i].lower));
        detail::store32(&p[kListHeaderSize + 8 * i + 4], static_cast<uint32_t>(list[i].upper));
    }
    const uint8_t how = in.u8();
    detail::store64(&p[1], how % 4 == 0 ? card + static_cast<int8_t>(in.u8()) : card);
    if (how % 16 == 1) p.resize(in.u16() % (p.size() + 1));
    checkValid(p, Bytes(p), Bytes(encode(someSet(in))), in);
}

void bytes(Reader& in, bool mutate) {
    Payload p;
    if (mutate) {
        p = encode(someSet(in));
        for (int k = in.u8() % 4; k >= 0 && !p.empty(); --k) {
            const uint8_t how = in.u8();
            const size_t at = in.u16() % p.size();
            const uint8_t x = in.u8();
            if (how < 200)
                p[at] ^= x ? x : 0x70;  // 0x70: a fill entry's info byte into a full's
            else if (how < 230)
                p.resize(at);
            else
                p.insert(p.begin() + at, x);
        }
    } else {
        p = in.bytes(in.u16() % 2048);
    }
    checkValid(p, Bytes(p), Bytes(encode(someSet(in))), in);
}

// The payload p of set m is in the range list exactly when that is smaller
// than the chunked layout, whose size ChunkedSize gives and ChunkedFloor does
// not exceed.
void checkLayout(const Intervals& m, const Payload& p) {
    std::vector<R> list;
    detail::ChunkedSize exact;
    detail::ChunkedFloor floor;
    for (const Interval& i : m) {
        list.push_back(R{static_cast<int32_t>(i.first), static_cast<int32_t>(i.second)});
        exact.add(toUnsigned(list.back().lower), toUnsigned(list.back().upper));
        floor.add(toUnsigned(list.back().lower), toUnsigned(list.back().upper));
    }
    Encoded e;
    NoPoll none;
    FZ_CHECK((detail::encodeChunks<malloc, free>(list.size(), [&](uint64_t i) { return list[i]; }, 0, e, none)) ==
             Status::Ok);
    const Payload chunks = own(e);
    FZ_CHECK(exact.bytes() == chunks.size() && floor.bytes() <= chunks.size());
    const bool ranges = !m.empty() && kListHeaderSize + 8 * m.size() < chunks.size();
    if (ranges) {
        FZ_CHECK(p[0] == kFormatRanges && p.size() == kListHeaderSize + 8 * m.size());
        FZ_CHECK(validate(chunks.data(), chunks.size()) == Status::NotCanonical);
    } else {
        FZ_CHECK(p == chunks);
    }
}

void differential(Reader& in) {
    const Intervals ma = someSet(in), mb = in.u8() % 8 == 0 ? ma : someSet(in);
    const Payload pa = encode(ma), pb = encode(mb);
    const Bytes a(pa), b(pb);
    Intervals got;
    for (const Bytes* p : {&a, &b}) FZ_CHECK(validate(p->get(), p->count) == Status::Ok);
    FZ_CHECK(decode(a, got) && got == ma);
    checkLayout(ma, pa);

    const SetOp ops[3] = {SetOp::Union, SetOp::Intersection, SetOp::Exclusion};
    Intervals results[3];
    for (int k = 0; k < 3; ++k) {
        Encoded e;
        auto f = k == 0 ? unite<malloc, free, NoPoll> : k == 1 ? intersect<malloc, free, NoPoll> : subtract<malloc, free, NoPoll>;
        FZ_CHECK(f(a.get(), a.count, b.get(), b.count, 0, e, {}) == Status::Ok);
        results[k] = sweep(ops[k], ma, mb);
        const Payload r = own(e);
        FZ_CHECK(validate(r.data(), r.size()) == Status::Ok);
        FZ_CHECK(r == encode(results[k]));
        checkLayout(results[k], r);
    }
    bool x = false;
    FZ_CHECK((overlaps<malloc, free>(a.get(), a.count, b.get(), b.count, x)) == Status::Ok);
    FZ_CHECK(x == !results[1].empty());
    FZ_CHECK((containsSet<malloc, free>(a.get(), a.count, b.get(), b.count, x)) == Status::Ok);
    FZ_CHECK(x == sweep(SetOp::Exclusion, mb, ma).empty());
    FZ_CHECK((containsSet<malloc, free>(b.get(), b.count, a.get(), a.count, x)) == Status::Ok);
    FZ_CHECK(x == results[2].empty());
    int c = 2, back = 2;
    FZ_CHECK(compare(a.get(), a.count, b.get(), b.count, c) == Status::Ok);
    FZ_CHECK(compare(b.get(), b.count, a.get(), a.count, back) == Status::Ok);
    FZ_CHECK(c == modelCompare(ma, mb, results[2]) && back == -c);
    FZ_CHECK(equals(a.get(), a.count, b.get(), b.count) == (ma == mb));
    if (ma == mb) FZ_CHECK(hash32(a.get(), a.count) == hash32(b.get(), b.count));

    // Probes next to the bounds of a's runs, and anywhere.
    for (int q = in.u8() % 16; q >= 0; --q) {
        const uint8_t how = in.u8();
        const Interval near = ma.empty() ? Interval{0, 0} : ma[in.u16() % ma.size()];
        const int64_t v = std::clamp<int64_t>(how < 160 ? (how & 1 ? near.second : near.first) + static_cast<int8_t>(in.u8())
                                                        : in.i32(), INT32_MIN, INT32_MAX);
        FZ_CHECK(containsValue(a.get(), a.count, static_cast<int32_t>(v), x) == Status::Ok && x == contains(ma, v));
        const int64_t hi = std::min<int64_t>(INT32_MAX, v + (how & 2 ? in.u8() : int64_t{in.u32() % (1u << 20)}));
        FZ_CHECK(containsRange(a.get(), a.count, static_cast<int32_t>(v), static_cast<int32_t>(hi), x) == Status::Ok);
        const auto in = std::upper_bound(ma.begin(), ma.end(), Interval{v, INT64_MAX});
        FZ_CHECK(x == (in != ma.begin() && std::prev(in)->second >= hi));
        FZ_CHECK(meetsRange(a.get(), a.count, static_cast<int32_t>(v), static_cast<int32_t>(hi), x) == Status::Ok);
        FZ_CHECK(x == std::any_of(ma.begin(), ma.end(), [&](const Interval& r) { return r.first <= hi && r.second >= v; }));
    }
    bool found = false;
    int32_t lo = 0, hi = 0;
    FZ_CHECK(minMember(a.get(), a.count, found, lo) == Status::Ok && found == !ma.empty());
    FZ_CHECK(maxMember(a.get(), a.count, found, hi) == Status::Ok);
    if (found) FZ_CHECK(lo == ma.front().first && hi == ma.back().second);

    Text t;
    FZ_CHECK((formatText<malloc, free>(a.get(), a.count, t)) == Status::Ok);
    const std::string s(t.chars, t.length);
    free(t.chars);
    FZ_CHECK(s == modelText(ma));
    const Bytes chars(std::vector<uint8_t>(s.begin(), s.end()));
    Encoded e;
    FZ_CHECK((parseText<malloc, free>(reinterpret_cast<const char*>(chars.get()), chars.count, 0, e)).error ==
             TextError::None);
    FZ_CHECK(own(e) == pa);
}

// Text. Any bytes parse within their length, and what is accepted writes out
// a text that reads back the same. A text written from items in any order,
// with blanks, signs and leading zeros, reads as the items' set; a byte foreign
// to the grammar put at any token boundary of it is the fault, at its position.
void text(Reader& in) {
    Encoded e;
    const Bytes raw(in.bytes(in.u8()));
    if (parseText<malloc, free>(reinterpret_cast<const char*>(raw.get()), raw.count, 0, e).error == TextError::None) {
        const Payload p = own(e);
        Text t;
        FZ_CHECK(validate(p.data(), p.size()) == Status::Ok && (formatText<malloc, free>(p.data(), p.size(), t)) == Status::Ok);
        FZ_CHECK((parseText<malloc, free>(t.chars, t.length, 0, e)).error == TextError::None);
        free(t.chars);
        FZ_CHECK(own(e) == p);
    }
    std::vector<R> items;
    std::string s;
    std::vector<size_t> boundaries;
    auto blank = [&] {
        boundaries.push_back(s.size());
        for (uint8_t k = in.u8() % 4; k > 0; --k) s += " \t\n "[k], boundaries.push_back(s.size());
    };
    auto number = [&](int32_t v) {
        const uint8_t style = in.u8();
        if (v >= 0 && style & 1) s += '+';
        if (v < 0) s += '-';
        s += std::string(style >> 6, '0') + std::to_string(v < 0 ? -int64_t{v} : int64_t{v});
    };
    blank();
    s += '{';
    for (int n = in.u8() % 12; n > 0; --n) {
        const uint8_t how = in.u8();
        const int32_t lo = how & 1 ? in.i32() : static_cast<int8_t>(in.u8());
        const int32_t hi = static_cast<int32_t>(std::min<int64_t>(INT32_MAX, int64_t{lo} + (how & 2 ? in.u16() : 0)));
        items.push_back(R{lo, hi});
        blank();
        number(lo);
        if (hi != lo || how & 4) {
            blank();
            s += "..";
            blank();
            number(hi);
        }
        blank();
        if (n > 1) s += ',';
    }
    blank();
    s += '}';
    blank();
    const Bytes good(std::vector<uint8_t>(s.begin(), s.end()));
    FZ_CHECK((parseText<malloc, free>(reinterpret_cast<const char*>(good.get()), good.count, 0, e)).error == TextError::None);
    Intervals m;
    FZ_CHECK(decode(Bytes(own(e)), m) && m == canonical(items));
    const size_t at = boundaries[in.u16() % boundaries.size()];
    s.insert(at, 1, "x#:;\0"[in.u8() % 5]);
    const Bytes bad(std::vector<uint8_t>(s.begin(), s.end()));
    const ParseResult r = parseText<malloc, free>(reinterpret_cast<const char*>(bad.get()), bad.count, 0, e);
    FZ_CHECK(r.error != TextError::None && r.error != TextError::OutOfRange && r.error != TextError::InvertedRange);
    FZ_CHECK(r.position == at);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    switch (in.u8() % 5) {
        case 0: bytes(in, false); break;
        case 1: bytes(in, true); break;
        case 2: differential(in); break;
        case 3: text(in); break;
        default: listBytes(in); break;
    }
    return 0;
}
