// qn::int4set: the accumulator of the int4set aggregates, which build a set
// from int4 rows, unite sets or intersect them (qnPgInt4Set.h describes the
// payloads it holds).
//
// Uniting one set at a time into a growing result would cost the result's size
// at every row. The accumulator keeps a result and a list of pending payloads
// instead, and unites the pending ones pairwise (a tree, each byte taking part
// in about log k unions) into the result once they weigh as much as it does;
// values wait in a buffer that is built into a payload when it outgrows a
// fixed share of what is held. So memory stays within a small multiple of the
// result's size plus a few kilobytes, whatever the number of rows or groups,
// and the work is about the inputs' total size times a logarithm.
//
// Every payload it holds comes from A and goes back to F; it trusts the
// payloads it is given (the caller validates bytes from outside).
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

template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll>
class Accumulator {
public:
    static constexpr uint32_t kFirstValues = 16;
    static constexpr size_t kPendingFloor = 64 * 1024;
    static constexpr uint32_t kPendingMax = 64;

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
        if (hasSet_) F(set_.buffer);
        for (uint32_t i = 0; i < npending_; ++i) F(pending_[i].buffer);
        if (pending_) F(pending_);
        if (values_) F(values_);
        hasSet_ = false;
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
        if (s == Status::Ok) s = uniteTree(parts, owned, k, poll);
        if (s == Status::Ok) s = copyOut(k ? parts[0].buffer : kEmptySet, k ? parts[0].size : 1, headerRoom, out);
        if (k && owned[0]) F(parts[0].buffer);
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

    // Unites parts[0, n) pairwise into parts[0], freeing the owned ones it
    // replaces; parts[0] is owned afterwards when n > 1.
    static Status uniteTree(OwnedPayload* parts, bool* owned, uint32_t n, Poll poll) {
        for (uint32_t width = 1; width < n; width *= 2) {
            for (uint32_t i = 0; i + width < n; i += 2 * width) {
                Encoded e;
                Status s = unite<A, F>(parts[i].buffer, parts[i].size, parts[i + width].buffer, parts[i + width].size,
                                       0, e, poll);
                if (owned[i]) F(parts[i].buffer);
                if (owned[i + width]) F(parts[i + width].buffer);
                owned[i + width] = false;
                if (s == Status::Ok) s = own(e, parts[i]);
                owned[i] = s == Status::Ok;
                if (s != Status::Ok) return s;
            }
        }
        return Status::Ok;
    }

    Status buildValues(OwnedPayload& out, Poll poll) const {
        Encoded e;
        const Status s = buildFromMembers<A, F>(values_, nvalues_, 0, e, poll);
        return s == Status::Ok ? own(e, out) : s;
    }

    size_t heldBytes() const { return (hasSet_ ? set_.size : 0) + pendingBytes_; }

    // Doubles the value buffer while it weighs less than a quarter of what is
    // held (and at least 16 kB may always wait); else builds it into a
    // pending payload and empties it.
    Status makeRoomForValue(Poll poll) {
        const size_t bytes = size_t{capValues_} * sizeof(int32_t);
        if (capValues_ == 0 || bytes < 16 * 1024 || bytes * 4 < heldBytes()) {
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
    // result when it weighs as much as the result (or is long).
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
        if (npending_ < kPendingMax && (pendingBytes_ < kPendingFloor || pendingBytes_ < result)) return Status::Ok;
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
        for (uint32_t i = 0; i < k; ++i) owned[i] = true;
        npending_ = 0;
        pendingBytes_ = 0;
        hasSet_ = false;
        const Status s = uniteTree(parts, owned, k, poll);
        if (s == Status::Ok) {
            set_ = parts[0];
            hasSet_ = true;
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
        F(set_.buffer);
        return own(e, set_);
    }

    AggOp op_;
    bool seen_;    // a row (value or set) was taken
    bool hasSet_;  // set_ holds the result so far
    OwnedPayload set_;
    OwnedPayload* pending_;
    uint32_t npending_, capPending_;
    size_t pendingBytes_;
    int32_t* values_;
    uint32_t nvalues_, capValues_;
};

}  // namespace qn::int4set
