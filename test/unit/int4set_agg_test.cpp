// The int4set aggregates' accumulator against a std::set model, on enough rows
// to fold the value buffer and reduce the pending list many times, with states
// merged as parallel plans merge them and results asked for between rows.
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

TEST(Int4SetAgg, ValuesFoldIntoTheSet) {
    std::mt19937 rng(7);
    Acc acc{};
    acc.init(AggOp::Union);
    Members model;
    for (int i = 0; i < 200000; ++i) {
        const int32_t v = i % 3 == 0 ? static_cast<int32_t>(rng()) : static_cast<int32_t>(rng() % 50000);
        ASSERT_EQ(acc.addValue(v, NoPoll{}), Status::Ok);
        model.insert(v);
        if (i % 40000 == 0) expectHolds(acc, model);
    }
    expectHolds(acc, model);
    acc.release();
}

TEST(Int4SetAgg, SetsUniteAndStatesMerge) {
    std::mt19937 rng(11);
    Acc parts[3]{};
    Members model;
    for (Acc& a : parts) a.init(AggOp::Union);
    for (int i = 0; i < 600; ++i) {
        const Members m = randomSet(rng, 1 + static_cast<int>(rng() % 200), i % 2 ? 1 << 20 : 1000);
        const std::vector<uint8_t> p = payloadOf(m);
        ASSERT_EQ(parts[i % 3].addSet(p.data(), p.size(), NoPoll{}), Status::Ok);
        ASSERT_EQ(parts[i % 3].addValue(-i, NoPoll{}), Status::Ok);
        model.insert(m.begin(), m.end());
        model.insert(-i);
    }
    Acc merged{};
    merged.init(AggOp::Union);
    for (const Acc& a : parts) ASSERT_EQ(merged.addAll(a, NoPoll{}), Status::Ok);
    expectHolds(merged, model);
    for (Acc& a : parts) a.release();
    merged.release();
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
