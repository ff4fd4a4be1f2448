// qn::int4set: the accumulator of the int4set aggregates, which build a set
// from int4 rows, unite sets or intersect them (qnPgInt4Set.h describes the
// payloads it holds).
//
// Uniting one set at a time into a growing result would cost the result's size
// at every row. The accumulator keeps a result and a list of pending payloads
// instead, and unites the result and the pending ones in one walk over all
// their chunks side by side once the pending ones weigh twice as much as the
// result (or pairwise, a tree, when a payload is a range list or has full
// chunks); values wait in a buffer, up to twice the bytes held, that one radix
// sort builds into a payload. So memory stays within a small multiple of the
// result's size plus a few kilobytes, whatever the number of rows or groups,
// and the work is about the inputs' total size times a small factor. A result
// asked for is written where it goes, by the last union or by one copy.
//
// Every payload it holds comes from A and goes back to F, but for a set
// borrowed (borrowSet); it trusts the payloads it is given (the caller
// validates bytes from outside).
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgInt4SetAgg.h must not see server headers: include it before postgres.h");
#endif

#include "qnPgInt4Set.h"
#include "qnPgInt4SetOps.h"

namespace qn::int4set {

enum class AggOp : uint8_t { Union, Intersect };

// A payload owned by the accumulator.
struct OwnedPayload {
    uint8_t* buffer;  // from A, the payload at its start
    size_t size;
};

namespace detail {

// The working space of a union of many payloads: chunk places merged back and
// forth, and a chunk's bitmap as words and as stored.
struct ManyScratch {
    uint16_t merged[2][2 * kArrayMax];
    uint64_t words[kBitmapWords];
    uint8_t bitmap[kBitmapBytes];
};

// Where a walk over one payload's directory is: entry i, its container at off.
struct EntryCursor {
    const View* v;
    uint32_t i;
    size_t off;
};

// Array a (native places) merged with the stored array b into out.
inline uint32_t mergeWithStored(const uint16_t* a, uint32_t na, const Chunk& b, uint16_t* out) {
    uint32_t i = 0, j = 0, m = 0;
    while (i < na && j < b.count) {
        const uint16_t x = a[i], y = load16(b.bytes + 2 * j);
        const bool le = x <= y, ge = y <= x;
        out[m++] = le ? x : y;
        i += le;
        j += ge;
    }
    for (; i < na; ++i) out[m++] = a[i];
    for (; j < b.count; ++j) out[m++] = load16(b.bytes + 2 * j);
    return m;
}

// Writes chunk key as the union of the m containers c (reordered): up to 16
// arrays merged, smallest first, while they are small together, else
// everything set in one bitmap.
template <qn::pg::AllocFn A, qn::pg::FreeFn F>
void uniteContainers(Writer<A, F>& w, uint32_t key, Chunk* c, uint32_t m, ManyScratch& s, uint64_t& work) {
    uint32_t total = 0;
    bool arrays = true;
    for (uint32_t k = 0; k < m; ++k) {
        arrays = arrays && c[k].kind == KindArray;
        total += c[k].count;
    }
    work += total;
    if (arrays && m <= 16 && total <= 2 * kArrayMax) {
        // Smallest first, so that a large array is merged once, not once a part.
        for (uint32_t k = 1; k < m; ++k)
            for (uint32_t j = k; j > 0 && c[j].count < c[j - 1].count; --j) {
                const Chunk x = c[j];
                c[j] = c[j - 1];
                c[j - 1] = x;
            }
        uint32_t n = mergeArrays<Op::Or>(c[0], c[1], s.merged[0]);
        for (uint32_t k = 2; k < m; ++k) n = mergeWithStored(s.merged[k % 2], n, c[k], s.merged[1 - k % 2]);
        return w.values(key, s.merged[m % 2], n);
    }
    std::memset(s.words, 0, sizeof s.words);
    for (uint32_t k = 0; k < m; ++k) setPlaces(s.words, c[k]);
    work += kBitmapWords;
    storeWords(s.bitmap, s.words);
    w.template bitmaps<WordOp::Only>(key, s.bitmap, s.bitmap);
}

// out := the union of parts[0, n) in one walk over their directories side by
// side, a chunk that one part alone holds copied (with the entries after it,
// in bulk), one that several hold united once. Only for parts in the chunked
// layout without full chunks: otherwise walked is false and nothing is done.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
Status uniteMany(const OwnedPayload* parts, uint32_t n, size_t headerRoom, Encoded& out, bool& walked, Poll& poll) {
    out = Encoded{};
    walked = false;
    auto* views = static_cast<View*>(A(sizeof(View) * n));
    auto* at = static_cast<EntryCursor*>(A(sizeof(EntryCursor) * n));
    auto* chunks = static_cast<Chunk*>(A(sizeof(Chunk) * n));
    auto* s = static_cast<ManyScratch*>(A(sizeof(ManyScratch)));
    auto done = [&](Status st) {
        for (void* p : {static_cast<void*>(views), static_cast<void*>(at), static_cast<void*>(chunks),
                        static_cast<void*>(s)})
            if (p) F(p);
        return st;
    };
    if (!views || !at || !chunks || !s) return done(Status::OutOfMemory);
    size_t total = 0;
    uint32_t live = 0;
    Ticker<Poll> tick{poll};
    for (uint32_t k = 0; k < n; ++k) {
        const Status st = views[k].open(parts[k].buffer, parts[k].size);
        if (st != Status::Ok) return done(st);
        if (views[k].isList()) return done(Status::Ok);
        for (uint32_t i = 0; i < views[k].n; ++i)
            if (kindOf(views[k].info(i)) >= KindFull) return done(Status::Ok);
        tick(views[k].n);
        total += views[k].dataSize;
        if (views[k].n) at[live++] = EntryCursor{&views[k], 0, 0};
    }
    walked = true;
    Writer<A, F> w;
    w.reserve(total);
    while (live > 0) {
        uint32_t key = kChunkValues, after = kChunkValues, m = 0;
        for (uint32_t k = 0; k < live; ++k) {
            const uint32_t x = at[k].v->key(at[k].i);
            if (x < key) {
                after = key;
                key = x;
            } else if (x > key && x < after) {
                after = x;
            }
        }
        uint64_t work = 1;
        uint32_t alone = 0;
        for (uint32_t k = 0; k < live; ++k)
            if (at[k].v->key(at[k].i) == key) {
                alone = k;
                ++m;
            }
        if (m == 1) {
            // Alone up to the next key another part holds: its entries go in bulk.
            EntryCursor& c = at[alone];
            uint32_t j = c.v->lowerBound(after, c.i);
            if (j - c.i > 1024) j = c.i + 1024;
            size_t end = c.off;
            w.bulk(*c.v, c.i, j, c.off, end);
            if (end == c.off) {  // the writer refused the entries or ran out of memory: finish says which
                const Status st = w.finish(headerRoom, out, poll);
                if (out.buffer) F(out.buffer);
                out = Encoded{};
                return done(st == Status::Ok ? Status::Corrupt : st);
            }
            work += j - c.i + (end - c.off) / 8;
            c.i = j;
            c.off = end;
        } else {
            m = 0;
            for (uint32_t k = 0; k < live; ++k) {
                EntryCursor& c = at[k];
                if (c.v->key(c.i) != key) continue;
                const uint16_t info = c.v->info(c.i);
                const size_t bytes = containerBytes(info);
                if (bytes == kBadSize || c.off > c.v->dataSize || bytes > c.v->dataSize - c.off)
                    return done(Status::Corrupt);
                chunks[m++] = Chunk{kindOf(info), c.v->data + c.off, countOf(info)};
                c.off += bytes;
                ++c.i;
            }
            uniteContainers(w, key, chunks, m, *s, work);
        }
        for (uint32_t k = 0; k < live;)
            if (at[k].i >= at[k].v->n)
                at[k] = at[--live];
            else
                ++k;
        tick(work);
    }
    return done(w.finish(headerRoom, out, poll));
}

}  // namespace detail

template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
class Accumulator {
public:
    static constexpr uint32_t kFirstValues = 16;
    static constexpr size_t kPendingFloor = 64 * 1024;
    static constexpr uint32_t kPendingMax = 256;

    // A zeroed accumulator is a valid empty one for union; init sets the op.
    void init(AggOp op) { op_ = op; }
    AggOp op() const { return op_; }
    bool seen() const { return seen_; }

    // One value (union of the values seen).
    Status addValue(int32_t v, Poll poll) {
        seen_ = true;
        if (nvalues_ == capValues_) {
            const Status s = makeRoomForValue(poll);
            if (s != Status::Ok) return s;
        }
        values_[nvalues_++] = v;
        return Status::Ok;
    }

    // One set, copied: united with or intersected into what is held.
    Status addSet(const uint8_t* data, size_t size, Poll poll) {
        if (op_ == AggOp::Intersect) return intersectWith(data, size, poll);
        seen_ = true;
        OwnedPayload copy{static_cast<uint8_t*>(A(size ? size : 1)), size};
        if (!copy.buffer) return Status::OutOfMemory;
        std::memcpy(copy.buffer, data, size);
        return addPending(copy, poll);
    }

    // A set whose bytes stay the caller's, in an empty accumulator: no copy.
    // The caller keeps them alive and unchanged while the accumulator lives;
    // they are never freed here, and a change to what is held replaces them.
    void borrowSet(const uint8_t* data, size_t size) {
        seen_ = hasSet_ = borrowed_ = true;
        set_ = OwnedPayload{const_cast<uint8_t*>(data), size};
    }

    // Everything another accumulator of the same op holds, which stays as it is.
    Status addAll(const Accumulator& other, Poll poll) {
        if (!other.seen_) return Status::Ok;
        if (op_ == AggOp::Intersect) return intersectWith(other.set_.buffer, other.set_.size, poll);
        Status s = Status::Ok;
        if (other.hasSet_) s = addSet(other.set_.buffer, other.set_.size, poll);
        for (uint32_t i = 0; s == Status::Ok && i < other.npending_; ++i)
            s = addSet(other.pending_[i].buffer, other.pending_[i].size, poll);
        for (uint32_t i = 0; s == Status::Ok && i < other.nvalues_; ++i) s = addValue(other.values_[i], poll);
        return s;
    }

    // Frees everything held (the server lets the aggregate context go instead).
    void release() {
        if (hasSet_ && !borrowed_) F(set_.buffer);
        for (uint32_t i = 0; i < npending_; ++i) F(pending_[i].buffer);
        if (pending_) F(pending_);
        if (values_) F(values_);
        hasSet_ = borrowed_ = false;
        pending_ = nullptr;
        values_ = nullptr;
        npending_ = capPending_ = nvalues_ = capValues_ = 0;
        pendingBytes_ = 0;
    }

    // The set held, in a new buffer from A with headerRoom bytes before the
    // payload; the accumulator does not change (a result may be asked for
    // again, and rows may follow).
    Status result(size_t headerRoom, Encoded& out, Poll poll) const {
        out = Encoded{};
        const uint32_t n = (hasSet_ ? 1 : 0) + npending_ + (nvalues_ ? 1 : 0);
        auto* parts = static_cast<OwnedPayload*>(A(sizeof(OwnedPayload) * (n ? n : 1)));
        if (!parts) return Status::OutOfMemory;
        auto* owned = static_cast<bool*>(A(n ? n : 1));
        if (!owned) {
            F(parts);
            return Status::OutOfMemory;
        }
        uint32_t k = 0;
        auto take = [&](const OwnedPayload& p, bool isOwned) {
            owned[k] = isOwned;
            parts[k++] = p;
        };
        if (hasSet_) take(set_, false);
        for (uint32_t i = 0; i < npending_; ++i) take(pending_[i], false);
        Status s = Status::Ok;
        if (nvalues_) {
            OwnedPayload built;
            s = buildValues(built, poll);
            if (s == Status::Ok) take(built, true);
        }
        // The last union writes the result where it goes; one part is copied.
        if (s == Status::Ok && k > 1) s = uniteTree(parts, owned, k, poll, headerRoom, &out);
        if (s == Status::Ok && k <= 1) s = copyOut(k ? parts[0].buffer : kEmptySet, k ? parts[0].size : 1, headerRoom, out);
        if (k == 1 && owned[0]) F(parts[0].buffer);
        F(owned);
        F(parts);
        return s;
    }

private:
    static constexpr uint8_t kEmptySet[1] = {kFormatChunks};

    static Status copyOut(const uint8_t* data, size_t size, size_t headerRoom, Encoded& out) {
        auto* buffer = static_cast<uint8_t*>(A(headerRoom + size));
        if (!buffer) return Status::OutOfMemory;
        std::memcpy(buffer + headerRoom, data, size);
        out = Encoded{buffer, buffer + headerRoom, size};
        return Status::Ok;
    }

    // Keeps the payload of an Encoded at the start of its own buffer.
    static Status own(const Encoded& e, OwnedPayload& out) {
        if (e.payload == e.buffer) {
            out = OwnedPayload{e.buffer, e.size};
            return Status::Ok;
        }
        out = OwnedPayload{static_cast<uint8_t*>(A(e.size)), e.size};
        if (out.buffer) std::memcpy(out.buffer, e.payload, e.size);
        F(e.buffer);
        return out.buffer ? Status::Ok : Status::OutOfMemory;
    }

    // Unites parts[0, n) into parts[0], freeing the owned ones it replaces;
    // parts[0] is owned afterwards when n > 1. With last, the union goes there
    // instead, with lastRoom bytes before it, and every owned part is freed.
    // One walk over all of them where it can (detail::uniteMany), else pairwise.
    static Status uniteTree(OwnedPayload* parts, bool* owned, uint32_t n, Poll poll, size_t lastRoom = 0,
                            Encoded* last = nullptr) {
        if (n < 2) return Status::Ok;
        Encoded e;
        bool walked = false;
        Status s = detail::uniteMany<A, F>(parts, n, last ? lastRoom : 0, last ? *last : e, walked, poll);
        if (walked || s != Status::Ok) {
            for (uint32_t i = 0; i < n; ++i)
                if (owned[i]) F(parts[i].buffer);
            for (uint32_t i = 0; i < n; ++i) owned[i] = false;
            if (s != Status::Ok || last) return s;
            s = own(e, parts[0]);
            owned[0] = s == Status::Ok;
            return s;
        }
        return unitePairwise(parts, owned, n, poll, lastRoom, last);
    }

    static Status unitePairwise(OwnedPayload* parts, bool* owned, uint32_t n, Poll poll, size_t lastRoom,
                                Encoded* last) {
        for (uint32_t width = 1; width < n; width *= 2) {
            for (uint32_t i = 0; i + width < n; i += 2 * width) {
                const bool toLast = last && 2 * width >= n;
                Encoded e;
                Status s = unite<A, F>(parts[i].buffer, parts[i].size, parts[i + width].buffer, parts[i + width].size,
                                       toLast ? lastRoom : 0, toLast ? *last : e, poll);
                if (owned[i]) F(parts[i].buffer);
                if (owned[i + width]) F(parts[i + width].buffer);
                owned[i] = owned[i + width] = false;
                if (s != Status::Ok || toLast) return s;
                s = own(e, parts[i]);
                owned[i] = s == Status::Ok;
                if (s != Status::Ok) return s;
            }
        }
        return Status::Ok;
    }

    // The payload of the values waiting; sorting them reorders the buffer,
    // which holds the same values after.
    Status buildValues(OwnedPayload& out, Poll poll) const {
        Encoded e;
        const Status s = buildFromValues<A, F>(values_, nvalues_, 0, e, poll);
        return s == Status::Ok ? own(e, out) : s;
    }

    size_t heldBytes() const { return (hasSet_ ? set_.size : 0) + pendingBytes_; }

    // Doubles the value buffer while it weighs less than twice what is held
    // (and at least 16 kB may always wait); else builds it into a pending
    // payload and empties it.
    Status makeRoomForValue(Poll poll) {
        const size_t bytes = size_t{capValues_} * sizeof(int32_t);
        if (capValues_ == 0 || bytes < 16 * 1024 || bytes < 2 * heldBytes()) {
            const uint32_t cap = capValues_ ? capValues_ * 2 : kFirstValues;
            auto* grown = static_cast<int32_t*>(A(size_t{cap} * sizeof(int32_t)));
            if (!grown) return Status::OutOfMemory;
            if (nvalues_) std::memcpy(grown, values_, size_t{nvalues_} * sizeof(int32_t));
            if (values_) F(values_);
            values_ = grown;
            capValues_ = cap;
            return Status::Ok;
        }
        OwnedPayload built;
        Status s = buildValues(built, poll);
        if (s != Status::Ok) return s;
        nvalues_ = 0;
        return addPending(built, poll);
    }

    // Takes an owned payload into the pending list; unites the list into the
    // result when it weighs twice as much as the result (or is long).
    Status addPending(OwnedPayload p, Poll poll) {
        if (npending_ == capPending_) {
            const uint32_t cap = capPending_ ? capPending_ * 2 : 8;
            auto* grown = static_cast<OwnedPayload*>(A(sizeof(OwnedPayload) * cap));
            if (!grown) {
                F(p.buffer);
                return Status::OutOfMemory;
            }
            if (npending_) std::memcpy(grown, pending_, sizeof(OwnedPayload) * npending_);
            if (pending_) F(pending_);
            pending_ = grown;
            capPending_ = cap;
        }
        pending_[npending_++] = p;
        pendingBytes_ += p.size;
        const size_t result = hasSet_ ? set_.size : 0;
        if (npending_ < kPendingMax && (pendingBytes_ < kPendingFloor || pendingBytes_ < 2 * result)) return Status::Ok;
        return reduce(poll);
    }

    // result := result ∪ every pending payload; the list empties.
    Status reduce(Poll poll) {
        const uint32_t n = (hasSet_ ? 1 : 0) + npending_;
        auto* owned = static_cast<bool*>(A(n));
        auto* parts = static_cast<OwnedPayload*>(A(sizeof(OwnedPayload) * n));
        if (!owned || !parts) {
            if (owned) F(owned);
            if (parts) F(parts);
            return Status::OutOfMemory;
        }
        uint32_t k = 0;
        if (hasSet_) parts[k++] = set_;
        for (uint32_t i = 0; i < npending_; ++i) parts[k++] = pending_[i];
        for (uint32_t i = 0; i < k; ++i) owned[i] = i > 0 || !hasSet_ || !borrowed_;
        npending_ = 0;
        pendingBytes_ = 0;
        hasSet_ = borrowed_ = false;
        const Status s = uniteTree(parts, owned, k, poll);
        if (s == Status::Ok) {
            set_ = parts[0];
            hasSet_ = true;
            borrowed_ = !owned[0];
        }
        F(owned);
        F(parts);
        return s;
    }

    Status intersectWith(const uint8_t* data, size_t size, Poll poll) {
        if (!seen_) {
            seen_ = true;
            set_ = OwnedPayload{static_cast<uint8_t*>(A(size ? size : 1)), size};
            if (!set_.buffer) return Status::OutOfMemory;
            std::memcpy(set_.buffer, data, size);
            hasSet_ = true;
            return Status::Ok;
        }
        Encoded e;
        const Status s = intersect<A, F>(set_.buffer, set_.size, data, size, 0, e, poll);
        if (s != Status::Ok) return s;
        if (!borrowed_) F(set_.buffer);
        borrowed_ = false;
        return own(e, set_);
    }

    AggOp op_;
    bool seen_;    // a row (value or set) was taken
    bool hasSet_;  // set_ holds the result so far
    bool borrowed_;  // set_ is the caller's (borrowSet)
    OwnedPayload set_;
    OwnedPayload* pending_;
    uint32_t npending_, capPending_;
    size_t pendingBytes_;
    int32_t* values_;
    uint32_t nvalues_, capValues_;
};

}  // namespace qn::int4set
