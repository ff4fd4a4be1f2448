// The int4set aggregates' accumulator against a std::set model, on enough rows
// to fold the value buffer and reduce the pending list many times, with states
// merged as parallel plans merge them (every plan's answers: aggregate_plans.sql).
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <set>
#include <vector>

#include "qnPgInt4SetAgg.h"

namespace {

using namespace qn::int4set;
using Acc = Accumulator<malloc, free, NoPoll>;
using Members = std::set<int32_t>;

std::vector<uint8_t> payloadOf(const Members& m) {
    std::vector<int32_t> v(m.begin(), m.end());
    Encoded e;
    const Status s = buildFromMembers<malloc, free>(v.data(), v.size(), 0, e);
    EXPECT_EQ(s, Status::Ok);
    std::vector<uint8_t> out(e.payload, e.payload + e.size);
    free(e.buffer);
    return out;
}

// The accumulator's result equals the model's set, and asking leaves it as it was.
void expectHolds(const Acc& acc, const Members& model) {
    for (int twice = 0; twice < 2; ++twice) {
        Encoded e;
        ASSERT_EQ(acc.result(4, e, NoPoll{}), Status::Ok);
        EXPECT_EQ(std::vector<uint8_t>(e.payload, e.payload + e.size), payloadOf(model));
        free(e.buffer);
    }
}

Members randomSet(std::mt19937& rng, int n, int32_t spread) {
    Members m;
    std::uniform_int_distribution<int32_t> start(INT32_MIN, INT32_MAX - spread);
    const int32_t base = start(rng);
    for (int i = 0; i < n; ++i) m.insert(base + static_cast<int32_t>(rng() % static_cast<uint32_t>(spread)));
    return m;
}

// Many states merged as a parallel plan's leader merges its workers': chunks
// that one state alone holds, arrays that several hold (merged, or past 8,192
// places together set in a bitmap), runs and bitmaps; then again with a full
// chunk in one state, which the walk over all of them leaves to pairwise unions.
TEST(Int4SetAgg, ManyStatesUniteInOneWalk) {
    for (bool withFullChunk : {false, true}) {
        std::mt19937 rng(withFullChunk ? 17 : 13);
        Acc parts[5]{}, merged{};
        Members model;
        merged.init(AggOp::Union);
        for (int p = 0; p < 5; ++p) {
            parts[p].init(AggOp::Union);
            for (int i = 0; i < 30000; ++i) {
                const uint32_t r = rng();
                int32_t v;
                switch (i % 4) {
                    case 0: v = static_cast<int32_t>(r); break;               // lone members anywhere
                    case 1: v = static_cast<int32_t>(r % (1 << 20)); break;   // arrays that states share
                    case 2: v = (1 << 24) + static_cast<int32_t>(r % 20000); break;  // dense: bitmaps
                    default: v = -(1 << 24) + p * 100 + static_cast<int32_t>(r % 50);  // runs
                }
                ASSERT_EQ(parts[p].addValue(v, NoPoll{}), Status::Ok);
                model.insert(v);
            }
        }
        if (withFullChunk)
            for (int32_t v = 1 << 26; v < (1 << 26) + 65536; ++v) {
                ASSERT_EQ(parts[3].addValue(v, NoPoll{}), Status::Ok);
                model.insert(v);
            }
        for (const Acc& a : parts) ASSERT_EQ(merged.addAll(a, NoPoll{}), Status::Ok);
        expectHolds(merged, model);
        for (Acc& a : parts) a.release();
        merged.release();
    }
}

// A state read in place (as the deserialise function makes it) merges like one
// that owns its set, and nothing changes or frees the borrowed bytes, not even
// rows added to the borrowing state itself.
TEST(Int4SetAgg, BorrowedSetsAreReadNotTaken) {
    std::mt19937 rng(5);
    const Members a = randomSet(rng, 5000, 1 << 24), b = randomSet(rng, 5000, 1 << 24);
    const std::vector<uint8_t> pa = payloadOf(a), pb = payloadOf(b);
    const std::vector<uint8_t> keptA = pa, keptB = pb;
    Acc borrowing{}, merged{};
    borrowing.init(AggOp::Union);
    merged.init(AggOp::Union);
    borrowing.borrowSet(pa.data(), pa.size());
    ASSERT_EQ(merged.addAll(borrowing, NoPoll{}), Status::Ok);
    expectHolds(merged, a);
    Members model = a;
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(borrowing.addSet(pb.data(), pb.size(), NoPoll{}), Status::Ok);
        ASSERT_EQ(borrowing.addValue(i * 1000, NoPoll{}), Status::Ok);
        model.insert(i * 1000);
    }
    model.insert(b.begin(), b.end());
    expectHolds(borrowing, model);
    Acc intersecting{};
    intersecting.init(AggOp::Intersect);
    intersecting.borrowSet(pa.data(), pa.size());
    ASSERT_EQ(intersecting.addSet(pb.data(), pb.size(), NoPoll{}), Status::Ok);
    Members both;
    for (int32_t v : a)
        if (b.count(v)) both.insert(v);
    expectHolds(intersecting, both);
    EXPECT_EQ(pa, keptA);
    EXPECT_EQ(pb, keptB);
    borrowing.release();
    merged.release();
    intersecting.release();
}

TEST(Int4SetAgg, IntersectionKeepsWhatEveryRowHolds) {
    std::mt19937 rng(3);
    Acc acc{}, other{};
    acc.init(AggOp::Intersect);
    other.init(AggOp::Intersect);
    Members model;
    for (int32_t v = -500; v < 500; ++v) model.insert(v);
    for (int i = 0; i < 40; ++i) {
        Members m = randomSet(rng, 3000, 1 << 16);
        for (int32_t v = -500; v < 500; ++v)
            if (rng() % 64) m.insert(v);
        const std::vector<uint8_t> p = payloadOf(m);
        ASSERT_EQ((i % 2 ? acc : other).addSet(p.data(), p.size(), NoPoll{}), Status::Ok);
        Members kept;
        for (int32_t v : model)
            if (m.count(v)) kept.insert(v);
        model.swap(kept);
    }
    ASSERT_EQ(acc.addAll(other, NoPoll{}), Status::Ok);
    expectHolds(acc, model);
    acc.release();
    other.release();
}

}  // namespace
