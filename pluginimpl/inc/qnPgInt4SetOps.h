// qn::int4set: the set algebra, tests, order and hash on payloads as stored
// (qnPgInt4Set.h describes the format).
//
// Two range lists (or a range list and the empty set) are combined and tested
// by one merge pass over their ranges, as range arrays are; the result is
// written in the layout its sizes call for. Otherwise a range list is first
// written out in chunks (it has at most about 131,072 ranges, and the chunks
// of a range cost at most about 20 bytes), and the chunks are walked.
//
// Chunked payloads are walked chunk by chunk in key order. A chunk held by one
// side only is copied as it is (or dropped, or jumped over by key where the
// operation cannot keep it: an intersection of a small set with a large one
// costs the small one's entries times a search); spans of full chunks are cut
// against each other by key, never chunk by chunk; two containers of one chunk
// are combined by the cheapest of three paths: sorted places merged (arrays,
// or an array filtered by runs or a bitmap), run lists (runs with runs, arrays
// or a full chunk), or 1,024 bitmap words, and the result is written in its
// canonical container, or as a range list when that is smaller. Every result
// is canonical.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgInt4SetOps.h must not see server headers: include it before postgres.h");
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "qnPgInt4Set.h"

namespace qn::int4set {

namespace detail {

enum class Op { Or, And, AndNot };

template <Op op>
constexpr WordOp wordOp() {
    return op == Op::Or ? WordOp::Or : op == Op::And ? WordOp::And : WordOp::AndNot;
}

// A full chunk as a runs container of one run.
inline constexpr uint8_t kFullRun[4] = {0, 0, 0xff, 0xff};

struct Chunk {
    Kind kind;  // array, runs or bitmap
    const uint8_t* bytes;
    uint32_t count;
};

inline Chunk chunkOf(const Item& it) {
    if (it.span()) return Chunk{KindRuns, kFullRun, 1};
    return Chunk{it.kind, it.bytes, it.count};
}

// The working space of one operation: two chunks as run lists, the bitmaps of
// chunks that are not bitmaps, and the result as places or runs; a result in
// words is left to the writer, as the two bitmaps to combine (pa and pb).
struct Scratch {
    uint64_t a[kBitmapWords];
    uint64_t b[kBitmapWords];
    uint16_t values[2 * kArrayMax];
    Run ra[kArrayMax];
    Run rb[kArrayMax];
    Run out[2 * kArrayMax + 2];
    const uint8_t* pa;
    const uint8_t* pb;
};

enum class Form { Values, Runs, Words };

struct Result {
    Form form;
    uint32_t n;  // places in values, or runs in out
};

inline uint32_t toRuns(const Chunk& c, Run* out) {
    if (c.kind == KindRuns) {
        for (uint32_t i = 0; i < c.count; ++i) out[i] = Run{load16(c.bytes + 4 * i), load16(c.bytes + 4 * i + 2)};
        return c.count;
    }
    uint32_t m = 0;  // an array
    for (uint32_t i = 0; i < c.count; ++i) {
        const uint16_t v = load16(c.bytes + 2 * i);
        if (m && v == out[m - 1].last + 1)
            out[m - 1].last = v;
        else
            out[m++] = Run{v, v};
    }
    return m;
}

// Sets the chunk's places in the bitmap words w (native order).
inline void setPlaces(uint64_t* w, const Chunk& c) {
    if (c.kind == KindBitmap) {
        for (uint32_t i = 0; i < kBitmapWords; ++i) w[i] |= load64(c.bytes + 8 * i);
    } else if (c.kind == KindArray) {
        for (uint32_t i = 0; i < c.count; ++i) {
            const uint32_t v = load16(c.bytes + 2 * i);
            w[v >> 6] |= uint64_t{1} << (v & 63);
        }
    } else {
        for (uint32_t i = 0; i < c.count; ++i) setRun(w, load16(c.bytes + 4 * i), load16(c.bytes + 4 * i + 2));
    }
}

// The chunk as a bitmap in the stored byte order: a bitmap's own bytes, or the
// chunk's bits built in w.
inline const uint8_t* asBitmap(const Chunk& c, uint64_t* w) {
    if (c.kind == KindBitmap) return c.bytes;
    std::memset(w, 0, kBitmapBytes);
    setPlaces(w, c);
    auto* bytes = reinterpret_cast<uint8_t*>(w);
    for (uint32_t i = 0; i < kBitmapWords; ++i) store64(bytes + 8 * i, w[i]);  // in place: words to stored order
    return bytes;
}

inline bool testBit(const uint8_t* bitmap, uint32_t v) { return bitmap[v >> 3] >> (v & 7) & 1; }

// Two sorted arrays merged, without branches on the places (random places
// would mispredict half of them): each step writes its candidate and counts it
// or not.
template <Op op>
uint32_t mergeArrays(const Chunk& a, const Chunk& b, uint16_t* out) {
    uint32_t i = 0, j = 0, m = 0;
    while (i < a.count && j < b.count) {
        const uint16_t x = load16(a.bytes + 2 * i), y = load16(b.bytes + 2 * j);
        const bool le = x <= y, ge = y <= x;
        out[m] = op == Op::Or && !le ? y : x;
        m += op == Op::Or ? 1u : op == Op::And ? uint32_t{le && ge} : uint32_t{le && !ge};
        i += le;
        j += ge;
    }
    if (op != Op::And)
        for (; i < a.count; ++i) out[m++] = load16(a.bytes + 2 * i);
    if (op == Op::Or)
        for (; j < b.count; ++j) out[m++] = load16(b.bytes + 2 * j);
    return m;
}

// The places of array a that are (keep == true) or are not in chunk b, a runs
// container or a bitmap.
inline uint32_t filterArray(const Chunk& a, const Chunk& b, bool keep, uint16_t* out) {
    uint32_t m = 0, j = 0;
    for (uint32_t i = 0; i < a.count; ++i) {
        const uint16_t x = load16(a.bytes + 2 * i);
        bool in;
        if (b.kind == KindBitmap) {
            in = testBit(b.bytes, x);
        } else {
            while (j < b.count && load16(b.bytes + 4 * j + 2) < x) ++j;
            in = j < b.count && load16(b.bytes + 4 * j) <= x;
        }
        if (in == keep) out[m++] = x;
    }
    return m;
}

// Two sorted run lists combined into out (room for na + nb + 2), ascending and apart.
template <Op op>
uint32_t combineRuns(const Run* a, uint32_t na, const Run* b, uint32_t nb, Run* out) {
    const uint32_t cap = na + nb + 2;
    uint32_t m = 0, i = 0, j = 0;
    auto push = [&](uint32_t first, uint32_t last) {
        if (m && first <= uint32_t{out[m - 1].last} + 1) {
            if (last > out[m - 1].last) out[m - 1].last = static_cast<uint16_t>(last);
        } else if (m < cap) {
            out[m++] = Run{static_cast<uint16_t>(first), static_cast<uint16_t>(last)};
        }
    };
    if (op == Op::Or) {
        while (i < na || j < nb) {
            const Run r = j == nb || (i < na && a[i].first <= b[j].first) ? a[i++] : b[j++];
            push(r.first, r.last);
        }
    } else if (op == Op::And) {
        while (i < na && j < nb) {
            const uint32_t lo = a[i].first > b[j].first ? a[i].first : b[j].first;
            const uint32_t hi = a[i].last < b[j].last ? a[i].last : b[j].last;
            if (lo <= hi) push(lo, hi);
            if (a[i].last < b[j].last)
                ++i;
            else
                ++j;
        }
    } else {
        for (; i < na; ++i) {
            uint32_t cur = a[i].first;
            const uint32_t last = a[i].last;
            while (j < nb && b[j].last < cur) ++j;
            uint32_t k = j;
            while (k < nb && b[k].first <= last && cur <= last) {
                if (b[k].first > cur) push(cur, b[k].first - 1u);
                if (b[k].last >= last) {
                    cur = last + 1;
                    break;
                }
                if (b[k].last + 1u > cur) cur = b[k].last + 1u;
                ++k;
            }
            if (cur <= last) push(cur, last);
            j = k;
        }
    }
    return m;
}

// a op b for two containers of one chunk, into the scratch; `work` grows by
// about the units of work done.
template <Op op>
Result combineChunks(const Chunk& a, const Chunk& b, Scratch& s, uint64_t& work) {
    if (a.kind == KindArray && b.kind == KindArray) {
        work += a.count + b.count;
        return Result{Form::Values, mergeArrays<op>(a, b, s.values)};
    }
    if (a.kind == KindArray && op != Op::Or) {  // b: runs or bitmap
        work += a.count + (b.kind == KindRuns ? b.count : 0);
        return Result{Form::Values, filterArray(a, b, op == Op::And, s.values)};
    }
    if (b.kind == KindArray && op == Op::And) {
        work += b.count + (a.kind == KindRuns ? a.count : 0);
        return Result{Form::Values, filterArray(b, a, true, s.values)};
    }
    if (a.kind == KindBitmap || b.kind == KindBitmap) {
        work += 2 * kBitmapWords;
        s.pa = asBitmap(a, s.a);
        s.pb = asBitmap(b, s.b);
        return Result{Form::Words, 0};
    }
    const uint32_t na = toRuns(a, s.ra), nb = toRuns(b, s.rb);
    work += na + nb;
    return Result{Form::Runs, combineRuns<op>(s.ra, na, s.rb, nb, s.out)};
}

template <Op op>
bool resultEmpty(const Result& r, const Scratch& s) {
    return r.form == Form::Words ? !bitmapsMeet<wordOp<op>()>(s.pa, s.pb) : r.n == 0;
}

template <Op op, qn::pg::AllocFn A, qn::pg::FreeFn F>
void emit(Writer<A, F>& w, uint32_t key, const Result& r, const Scratch& s) {
    switch (r.form) {
        case Form::Values: return w.values(key, s.values, r.n);
        case Form::Runs: return w.runs(key, s.out, r.n);
        case Form::Words: return w.template bitmaps<wordOp<op>()>(key, s.pa, s.pb);
    }
}

// The scratch of one operation, taken from A when first needed.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
struct ScratchHolder {
    Scratch* s = nullptr;
    bool failed = false;
    ~ScratchHolder() {
        if (s) F(s);
    }
    Scratch* get() {
        if (!s && !failed) {
            s = static_cast<Scratch*>(A(sizeof(Scratch)));
            failed = !s;
        }
        return s;
    }
};

// Copies the walker's item and moves past it; when the item is a container,
// the entries after it up to the last container below key k go with it in bulk
// (at most 1,024 entries at a time, so that the caller polls in between).
// Returns the units of work done.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
uint64_t copyBefore(Writer<A, F>& w, const View& v, Walker& x, uint32_t k) {
    if (!x.item().span()) {
        const uint32_t i = x.index();
        uint32_t j = v.lowerBound(k, i);
        if (j - i > 1024) j = i + 1024;
        while (j > i + 1 && kindOf(v.info(j - 1)) >= KindFull) --j;
        if (j > i + 1) {
            size_t end = 0;
            w.bulk(v, i, j, x.offset(), end);
            const uint64_t units = j - i + (end - x.offset()) / 8;
            x.jump(j, end);
            return units;
        }
    }
    const uint64_t units = 1 + x.item().count;
    w.copy(x.item());
    x.next();
    return units;
}

inline Status openBoth(View& va, const uint8_t* a, size_t sa, View& vb, const uint8_t* b, size_t sb) {
    const Status st = va.open(a, sa);
    return st == Status::Ok ? vb.open(b, sb) : st;
}

// Both sides are range lists, or empty: the operation runs on the lists.
inline bool bothLists(const View& va, const View& vb) { return (va.isList() || va.empty()) && (vb.isList() || vb.empty()); }

// Two range lists (an empty set is one of no ranges) combined by one merge
// pass, the result written in its canonical layout. The ranges go straight
// into a range list with room for na + nb of them, sized in both layouts as
// they come; the room left over goes back when it is more than is used. Lists
// that are not canonical give Corrupt or some set, reading only their bytes:
// the merges write at most na + nb ranges whatever the lists hold.
template <Op op, qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
Status combineLists(const View& va, const View& vb, size_t headerRoom, Encoded& out, Poll& poll) {
    // Everything in locals, and no address of them passed to a call not inlined:
    // the stores into the list (bytes, which may alias anything) would make the
    // compiler reload fields after each.
    const uint8_t* const pa = va.list;
    const uint8_t* const pb = vb.list;
    const uint64_t na = va.ranges, nb = vb.ranges, room = na + nb;
    auto lower = [](const uint8_t* p, uint64_t i) { return static_cast<int32_t>(load32(p + 8 * i)); };
    auto upper = [](const uint8_t* p, uint64_t i) { return static_cast<int32_t>(load32(p + 8 * i + 4)); };
    if (room > (~size_t{0} - headerRoom - kListHeaderSize) / 8) return Status::OutOfMemory;
    uint8_t* buffer = static_cast<uint8_t*>(A(headerRoom + kListHeaderSize + 8 * room));
    if (!buffer) return Status::OutOfMemory;
    uint8_t* const list = buffer + headerRoom + kListHeaderSize;
    Ticker<Poll> tick{poll};
    uint64_t m = 0, i = 0, j = 0;
    // The next range of the result: written, counted, and sized in chunks from below.
    ChunkedFloor floor;
    uint64_t card = 0;
    auto emit = [list, &m, &floor, &card](int64_t lo, int64_t hi) {
        store32(list + 8 * m, static_cast<uint32_t>(lo));
        store32(list + 8 * m + 4, static_cast<uint32_t>(hi));
        ++m;
        floor.add(toUnsigned(static_cast<int32_t>(lo)), toUnsigned(static_cast<int32_t>(hi)));
        card += static_cast<uint64_t>(hi - lo + 1);
    };
    if (op == Op::Or) {
        // The next range is the one of lower start; it extends the range being
        // grown, [cl, ch], or starts a new one. (Taking it without a branch
        // measured slower: the loads then wait on the comparison before.)
        bool open = false;
        int32_t cl = 0, ch = 0;
        auto push = [&](const uint8_t* next) {
            const int32_t lo = static_cast<int32_t>(load32(next)), hi = static_cast<int32_t>(load32(next + 4));
            if (open && int64_t{lo} <= int64_t{ch} + 1) {
                if (hi > ch) ch = hi;
                return;
            }
            if (open) emit(cl, ch);
            open = true;
            cl = lo;
            ch = hi;
        };
        for (; i < na && j < nb; tick()) {
            if (lower(pa, i) <= lower(pb, j))
                push(pa + 8 * i++);
            else
                push(pb + 8 * j++);
        }
        const uint8_t* const rest = i < na ? pa : pb;
        for (uint64_t k = i < na ? i : j, n = i < na ? na : nb; k < n; ++k, tick()) push(rest + 8 * k);
        if (open) emit(cl, ch);
    } else if (op == Op::And) {
        // The overlap of the two ranges, when not empty; the one ending first moves on.
        for (; i < na && j < nb; tick()) {
            const int32_t al = lower(pa, i), ah = upper(pa, i), bl = lower(pb, j), bh = upper(pb, j);
            const int32_t lo = al > bl ? al : bl, hi = ah < bh ? ah : bh;
            if (lo <= hi) emit(lo, hi);
            if (ah < bh)
                ++i;
            else
                ++j;
        }
    } else {
        // Each range of a cut by the ranges of b that reach into it; a range of
        // b reaching past it is kept for the next.
        for (; i < na; ++i, tick()) {
            int64_t cur = lower(pa, i);
            const int64_t hi = upper(pa, i);
            while (j < nb && upper(pb, j) < cur) ++j, tick();
            for (; j < nb && lower(pb, j) <= hi; ++j, tick()) {
                const int64_t bl = lower(pb, j), bh = upper(pb, j);
                if (bl > cur) emit(cur, bl - 1);
                if (bh >= hi) {
                    cur = hi + 1;
                    break;
                }
                if (bh >= cur) cur = bh + 1;
            }
            if (cur <= hi) emit(cur, hi);
        }
    }
    const size_t size = kListHeaderSize + 8 * m;
    const auto written = [list](uint64_t k) {
        return Range32{static_cast<int32_t>(load32(list + 8 * k)), static_cast<int32_t>(load32(list + 8 * k + 4))};
    };
    if (!listSmaller(m, floor.bytes(), written, poll)) {
        const Status st = encodeChunks<A, F>(m, written, headerRoom, out, poll);
        F(buffer);
        return st == Status::NotNormalised ? Status::Corrupt : st;
    }
    uint8_t* p = buffer + headerRoom;
    p[0] = kFormatRanges;
    store64(p + 1, card);
    if (2 * m < room) {  // more room left than used
        uint8_t* exact = static_cast<uint8_t*>(A(headerRoom + size));
        if (!exact) {
            F(buffer);
            return Status::OutOfMemory;
        }
        std::memcpy(exact + headerRoom, p, size);
        F(buffer);
        buffer = exact;
        p = exact + headerRoom;
    }
    out = Encoded{buffer, p, size};
    return Status::Ok;
}

// A payload's view in the chunked layout, for the operations that walk chunks:
// a range list is written out in chunks first, into a buffer of its own.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
struct AsChunks {
    Encoded chunks;
    AsChunks() = default;
    AsChunks(const AsChunks&) = delete;
    AsChunks& operator=(const AsChunks&) = delete;
    ~AsChunks() {
        if (chunks.buffer) F(chunks.buffer);
    }
    template <typename Poll>
    Status convert(View& v, Poll& poll) {
        if (!v.isList()) return Status::Ok;
        const View list = v;
        const Status st = encodeChunks<A, F>(
            list.ranges, [&list](uint64_t i) { return Range32{list.lower(i), list.upper(i)}; }, 0, chunks, poll);
        if (st != Status::Ok) return st == Status::NotNormalised ? Status::Corrupt : st;
        return v.open(chunks.payload, chunks.size);
    }
};

// Opens both payloads; unless both are range lists, a range list is seen in
// chunks (through ca or cb). lists tells which.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
Status openForWalk(View& va, const uint8_t* a, size_t sa, View& vb, const uint8_t* b, size_t sb, AsChunks<A, F>& ca,
                   AsChunks<A, F>& cb, bool& lists, Poll& poll) {
    Status st = openBoth(va, a, sa, vb, b, sb);
    lists = st == Status::Ok && bothLists(va, vb);
    if (st != Status::Ok || lists) return st;
    st = ca.convert(va, poll);
    return st == Status::Ok ? cb.convert(vb, poll) : st;
}

template <Op op, qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
Status combine(const uint8_t* a, size_t sa, const uint8_t* b, size_t sb, size_t headerRoom, Encoded& out,
               Poll& poll) {
    out = Encoded{};
    View va, vb;
    AsChunks<A, F> ca, cb;
    bool lists = false;
    const Status st = openForWalk(va, a, sa, vb, b, sb, ca, cb, lists, poll);
    if (st != Status::Ok) return st;
    if (lists) return combineLists<op, A, F>(va, vb, headerRoom, out, poll);
    Writer<A, F> w;
    // The containers of the result take at most about as many bytes as those
    // of both sides (a union: taken at once, the untouched part costs nothing),
    // the smaller (an intersection) or a (a difference).
    w.reserve(op == Op::Or ? va.dataSize + vb.dataSize
              : op == Op::And ? (va.dataSize < vb.dataSize ? va.dataSize : vb.dataSize)
                              : va.dataSize);
    ScratchHolder<A, F> scratch;
    Walker x(va), y(vb);
    Ticker<Poll> tick{poll};
    uint64_t work = 0;
    while (!x.end() && !y.end()) {
        Item& p = x.item();
        Item& q = y.item();
        work = 1;
        if (p.hi < q.lo) {  // a's item lies wholly before b's
            if (op == Op::And)
                x.seek(q.lo);
            else
                work = copyBefore(w, va, x, q.lo);
        } else if (q.hi < p.lo) {
            if (op == Op::Or) {
                work = copyBefore(w, vb, y, p.lo);
            } else {
                y.seek(p.lo);
            }
        } else if (p.lo < q.lo) {  // a span of a's starts first
            if (op != Op::And) w.span(p.lo, q.lo - 1);
            p.lo = q.lo;
        } else if (q.lo < p.lo) {
            if (op == Op::Or) w.span(q.lo, p.lo - 1);
            q.lo = p.lo;
        } else if (p.span() && q.span()) {  // both from the same chunk on
            const uint32_t hi = p.hi < q.hi ? p.hi : q.hi;
            if (op != Op::AndNot) w.span(p.lo, hi);
            x.cutTo(hi + 1);
            y.cutTo(hi + 1);
        } else {  // one chunk, and at least one container (p and q change as the walkers move)
            const uint32_t key = p.lo;
            if (op == Op::Or && (p.span() || q.span())) {
                w.span(key, key);
            } else if (op == Op::And && (p.span() || q.span())) {
                w.copy(p.span() ? q : p);
            } else if (op != Op::AndNot || !q.span()) {
                Scratch* s = scratch.get();
                if (!s) return Status::OutOfMemory;
                emit<op>(w, key, combineChunks<op>(chunkOf(p), chunkOf(q), *s, work), *s);
            }
            x.cutTo(key + 1);
            y.cutTo(key + 1);
        }
        tick(work);
    }
    while (op != Op::And && !x.end()) tick(copyBefore(w, va, x, kChunkValues));
    while (op == Op::Or && !y.end()) tick(copyBefore(w, vb, y, kChunkValues));
    if (x.corrupt() || y.corrupt()) return Status::Corrupt;
    return w.finish(headerRoom, out, poll);
}

}  // namespace detail

// out := a ∪ b, a ∩ b, a \ b: a new payload in a buffer from A with headerRoom
// bytes before it.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status unite(const uint8_t* a, size_t sa, const uint8_t* b, size_t sb, size_t headerRoom, Encoded& out,
             Poll poll = {}) {
    return detail::combine<detail::Op::Or, A, F>(a, sa, b, sb, headerRoom, out, poll);
}
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status intersect(const uint8_t* a, size_t sa, const uint8_t* b, size_t sb, size_t headerRoom, Encoded& out,
                 Poll poll = {}) {
    return detail::combine<detail::Op::And, A, F>(a, sa, b, sb, headerRoom, out, poll);
}
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status subtract(const uint8_t* a, size_t sa, const uint8_t* b, size_t sb, size_t headerRoom, Encoded& out,
                Poll poll = {}) {
    return detail::combine<detail::Op::AndNot, A, F>(a, sa, b, sb, headerRoom, out, poll);
}

namespace detail {

// Every place of array a is one of array b's: one merge pass, stopping at the
// first place missing.
inline bool arrayWithin(const Chunk& a, const Chunk& b) {
    if (a.count > b.count) return false;
    uint32_t j = 0;
    for (uint32_t i = 0; i < a.count; ++i, ++j) {
        const uint16_t x = load16(a.bytes + 2 * i);
        while (j < b.count && load16(b.bytes + 2 * j) < x) ++j;
        if (j == b.count || load16(b.bytes + 2 * j) != x) return false;
    }
    return true;
}

// Some place of lo to hi (lo <= hi) of a container.
inline bool containerMeets(const Chunk& c, uint32_t lo, uint32_t hi) {
    if (c.kind == KindBitmap) {
        for (uint32_t w = lo >> 6; w <= hi >> 6; ++w) {
            uint64_t x = load64(c.bytes + 8 * w);
            if (w == lo >> 6) x &= ~uint64_t{0} << (lo & 63);
            if (w == hi >> 6 && (hi & 63) != 63) x &= (uint64_t{1} << ((hi & 63) + 1)) - 1;
            if (x) return true;
        }
        return false;
    }
    const uint32_t stride = c.kind == KindArray ? 2 : 4, lastAt = c.kind == KindArray ? 0 : 2;
    // The first element whose last place is >= lo.
    const uint32_t first =
        partitionPoint<uint32_t>(0, c.count, [&](uint32_t i) { return load16(c.bytes + stride * i + lastAt) < lo; });
    return first < c.count && load16(c.bytes + stride * first) <= hi;
}

// Place x of a container.
inline bool containerHas(const Chunk& c, uint32_t x) {
    return c.kind == KindBitmap ? testBit(c.bytes, x) : containerMeets(c, x, x);
}

// Places lo to hi of a container, all of them.
inline bool containerHasAll(const Chunk& c, uint32_t lo, uint32_t hi) {
    if (c.kind == KindBitmap) {
        for (uint32_t x = lo; x <= hi; ++x) {
            if ((x & 63) == 0 && x + 63 <= hi) {
                if (load64(c.bytes + 8 * (x >> 6)) != ~uint64_t{0}) return false;
                x += 63;
            } else if (!testBit(c.bytes, x)) {
                return false;
            }
        }
        return true;
    }
    if (c.kind == KindRuns) {
        for (uint32_t i = 0; i < c.count; ++i)
            if (load16(c.bytes + 4 * i + 2) >= lo) return load16(c.bytes + 4 * i) <= lo && load16(c.bytes + 4 * i + 2) >= hi;
        return false;
    }
    // The first place >= lo.
    const uint32_t first = partitionPoint<uint32_t>(0, c.count, [&](uint32_t i) { return load16(c.bytes + 2 * i) < lo; });
    const uint32_t at = first + (hi - lo);
    return at < c.count && load16(c.bytes + 2 * first) == lo && load16(c.bytes + 2 * at) == hi;
}

}  // namespace detail

// v is a member: a binary search of the directory, then of the container.
inline Status containsValue(const uint8_t* data, size_t size, int32_t v, bool& out) {
    out = false;
    View view;
    const Status st = view.open(data, size);
    if (st != Status::Ok || view.empty()) return st;
    if (view.isList()) {
        const uint64_t i = view.rangeReaching(v);
        out = i < view.ranges && view.lower(i) <= v;
        return Status::Ok;
    }
    const uint32_t u = toUnsigned(v), key = u >> 16;
    const uint32_t i = view.lowerBound(key);
    if (i == view.n) return Status::Ok;
    const uint16_t info = view.info(i);
    const Kind kind = detail::kindOf(info);
    if (view.key(i) != key) {
        out = kind == KindFill;
        return Status::Ok;
    }
    if (kind == KindFull || kind == KindFill) {
        out = true;
        return Status::Ok;
    }
    size_t off = 0;
    const size_t bytes = detail::containerBytes(info);
    if (!view.offsetOf(i, off) || bytes == kBadSize || bytes > view.dataSize - off) return Status::Corrupt;
    out = detail::containerHas(detail::Chunk{kind, view.data + off, detail::countOf(info)}, u & 0xffff);
    return Status::Ok;
}

// Every value of [lo, hi] is a member (true when lo > hi: the empty range).
// Searches for lo's chunk, then walks the entries up to hi's.
inline Status containsRange(const uint8_t* data, size_t size, int32_t lo, int32_t hi, bool& out) {
    out = lo > hi;
    View view;
    const Status st = view.open(data, size);
    if (st != Status::Ok || lo > hi) return st;
    if (view.isList()) {  // ranges are maximal: one holds them all, or none
        const uint64_t i = view.rangeReaching(lo);
        out = i < view.ranges && view.lower(i) <= lo && view.upper(i) >= hi;
        return Status::Ok;
    }
    const uint32_t ulo = toUnsigned(lo), uhi = toUnsigned(hi), kl = ulo >> 16, kh = uhi >> 16;
    Walker x(view);
    x.seek(kl);
    for (uint32_t k = kl; !x.end();) {
        const Item& it = x.item();
        if (it.lo > k) break;
        if (it.span()) {
            if (it.hi >= kh) {
                out = true;
                break;
            }
            k = it.hi + 1;
        } else {
            const uint32_t from = k == kl ? ulo & 0xffff : 0, to = k == kh ? uhi & 0xffff : 0xffff;
            if (!detail::containerHasAll(detail::chunkOf(it), from, to)) break;
            if (k == kh) {
                out = true;
                break;
            }
            ++k;
        }
        x.next();
    }
    return x.corrupt() ? Status::Corrupt : Status::Ok;
}

// Some value of [lo, hi] is a member (false when lo > hi). Searches for lo's
// chunk: the first item reaching it holds a member at or after lo, so at most
// two items decide.
inline Status meetsRange(const uint8_t* data, size_t size, int32_t lo, int32_t hi, bool& out) {
    out = false;
    View view;
    const Status st = view.open(data, size);
    if (st != Status::Ok || lo > hi || view.empty()) return st;
    if (view.isList()) {
        const uint64_t i = view.rangeReaching(lo);
        out = i < view.ranges && view.lower(i) <= hi;
        return Status::Ok;
    }
    const uint32_t ulo = toUnsigned(lo), uhi = toUnsigned(hi), kl = ulo >> 16, kh = uhi >> 16;
    Walker x(view);
    x.seek(kl);
    for (; !x.end() && !out; x.next()) {
        const Item& it = x.item();
        if (it.lo > kh) break;
        if (it.span()) {
            out = true;
            break;
        }
        const uint32_t from = it.lo == kl ? ulo & 0xffff : 0, to = it.lo == kh ? uhi & 0xffff : 0xffff;
        out = detail::containerMeets(detail::chunkOf(it), from, to);
        if (it.lo >= kh) break;
    }
    return x.corrupt() ? Status::Corrupt : Status::Ok;
}

// Some member is in both.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status overlaps(const uint8_t* a, size_t sa, const uint8_t* b, size_t sb, bool& out, Poll poll = {}) {
    out = false;
    View va, vb;
    detail::AsChunks<A, F> ca, cb;
    bool lists = false;
    const Status st = detail::openForWalk(va, a, sa, vb, b, sb, ca, cb, lists, poll);
    if (st != Status::Ok) return st;
    detail::Ticker<Poll> tick{poll};
    if (lists) {  // a range of one ending before the other's ends out of the race
        for (uint64_t i = 0, j = 0; i < va.ranges && j < vb.ranges; tick()) {
            if (va.upper(i) < vb.lower(j)) {
                ++i;
            } else if (vb.upper(j) < va.lower(i)) {
                ++j;
            } else {
                out = true;
                break;
            }
        }
        return Status::Ok;
    }
    detail::ScratchHolder<A, F> scratch;
    Walker x(va), y(vb);
    while (!x.end() && !y.end()) {
        const Item& p = x.item();
        const Item& q = y.item();
        uint64_t work = 1;
        if (p.hi < q.lo) {
            x.seek(q.lo);
        } else if (q.hi < p.lo) {
            y.seek(p.lo);
        } else if (p.span() || q.span()) {  // meet in a chunk that one holds whole
            out = true;
            break;
        } else {
            detail::Scratch* s = scratch.get();
            if (!s) return Status::OutOfMemory;
            const detail::Result r = detail::combineChunks<detail::Op::And>(detail::chunkOf(p), detail::chunkOf(q), *s, work);
            if (!detail::resultEmpty<detail::Op::And>(r, *s)) {
                out = true;
                break;
            }
            x.next();
            y.next();
        }
        tick(work);
    }
    return x.corrupt() || y.corrupt() ? Status::Corrupt : Status::Ok;
}

// Every member of b is one of a (a ⊇ b; true for an empty b).
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
Status containsSet(const uint8_t* a, size_t sa, const uint8_t* b, size_t sb, bool& out, Poll poll = {}) {
    out = false;
    View va, vb;
    const Status st = detail::openBoth(va, a, sa, vb, b, sb);
    if (st != Status::Ok) return st;
    if (vb.card > va.card) return Status::Ok;
    detail::Ticker<Poll> tick{poll};
    if (detail::bothLists(va, vb)) {  // ranges are maximal: each of b's lies in one of a's
        uint64_t i = 0;
        for (uint64_t j = 0; j < vb.ranges; ++j, tick()) {
            const int32_t lo = vb.lower(j);
            while (i < va.ranges && va.upper(i) < lo) ++i, tick();
            if (i == va.ranges || va.lower(i) > lo || va.upper(i) < vb.upper(j)) return Status::Ok;
        }
        out = true;
        return Status::Ok;
    }
    detail::AsChunks<A, F> ca, cb;
    Status converted = ca.convert(va, poll);
    if (converted == Status::Ok) converted = cb.convert(vb, poll);
    if (converted != Status::Ok) return converted;
    detail::ScratchHolder<A, F> scratch;
    Walker x(va), y(vb);
    bool held = true;
    for (; held && !y.end(); y.next()) {
        const Item& q = y.item();
        x.seek(q.lo);
        if (x.end()) {
            held = false;
            break;
        }
        const Item& p = x.item();
        uint64_t work = 1;
        if (p.lo > q.lo) {
            held = false;
        } else if (q.span()) {  // spans are maximal: one of a's must cover it
            held = p.span() && p.hi >= q.hi;
        } else if (p.kind == KindArray && q.kind == KindArray) {
            held = detail::arrayWithin(detail::chunkOf(q), detail::chunkOf(p));
            work += q.count;
        } else if (!p.span()) {
            detail::Scratch* s = scratch.get();
            if (!s) return Status::OutOfMemory;
            held = detail::resultEmpty<detail::Op::AndNot>(
                detail::combineChunks<detail::Op::AndNot>(detail::chunkOf(q), detail::chunkOf(p), *s, work), *s);
        }
        tick(work);
    }
    if (x.corrupt() || y.corrupt()) return Status::Corrupt;
    out = held;
    return Status::Ok;
}

// Equal sets have equal payloads.
inline bool equals(const uint8_t* a, size_t sa, const uint8_t* b, size_t sb) {
    return sa == sb && std::memcmp(a, b, sa) == 0;
}

// The total order of the btree operator class: by the ascending sequence of
// members, compared lexicographically (the first member that differs decides;
// a set that begins another comes first). So {} < {1} < {1,2} < {1,3} < {2},
// and {-5..0} < {-5..10} < {-4}. out is -1, 0 or 1.
template <typename Poll = NoPoll>
Status compare(const uint8_t* a, size_t sa, const uint8_t* b, size_t sb, int& out, Poll poll = {}) {
    out = 0;
    if (equals(a, sa, b, sb)) return Status::Ok;
    RangeCursor ca(a, sa), cb(b, sb);
    detail::Ticker<Poll> tick{poll};
    Range32 p{}, q{};
    bool hasP = ca.next(p), hasQ = cb.next(q);
    for (;; tick()) {
        if (!hasP || !hasQ) {
            out = hasP ? 1 : hasQ ? -1 : 0;
            break;
        }
        if (p.lower != q.lower) {
            out = p.lower < q.lower ? -1 : 1;
            break;
        }
        if (p.upper == q.upper) {
            hasP = ca.next(p);
            hasQ = cb.next(q);
            continue;
        }
        // The shorter range's set goes on past a gap (it is greater) or ends (it is less).
        if (p.upper < q.upper)
            out = ca.next(p) ? 1 : -1;
        else
            out = cb.next(q) ? -1 : 1;
        break;
    }
    if (ca.status() != Status::Ok || cb.status() != Status::Ok) {
        out = 0;
        return Status::Corrupt;
    }
    return Status::Ok;
}

// A hash of the payload's bytes, equal for equal sets: 8 bytes at a time, each
// folded in by a 64 x 64 -> 128-bit multiply.
template <typename Poll = NoPoll>
uint64_t hash64(const uint8_t* data, size_t size, uint64_t seed, Poll poll = {}) {
    constexpr uint64_t kMul = 0x9e3779b97f4a7c15ull, kMix = 0xd6e8feb86659fd93ull;
    auto fold = [](uint64_t x, uint64_t y) {
        const unsigned __int128 p = static_cast<unsigned __int128>(x) * y;
        return static_cast<uint64_t>(p) ^ static_cast<uint64_t>(p >> 64);
    };
    uint64_t h = fold(seed ^ kMul, size ^ kMix);
    detail::Ticker<Poll> tick{poll};
    size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        h = fold(h ^ detail::load64(data + i), kMix) + kMul;
        tick(8);
    }
    uint64_t tail = 0;
    for (size_t k = 0; i + k < size; ++k) tail |= uint64_t{data[i + k]} << (8 * k);
    h = fold(h ^ tail, kMix);
    return fold(h, kMul ^ seed);
}

template <typename Poll = NoPoll>
uint32_t hash32(const uint8_t* data, size_t size, Poll poll = {}) {
    const uint64_t h = hash64(data, size, 0, poll);
    return static_cast<uint32_t>(h ^ (h >> 32));
}

}  // namespace qn::int4set
