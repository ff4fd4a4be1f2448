// The bracketed set-expression evaluator against direct composition of the set kernels.
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <random>
#include <utility>

#include "qnPgRangeExpression.h"
#include "range_test_util.h"

namespace {

using namespace rt;
using namespace qn::pgRangeArray;
using E = ExpressionError;

int uniform(std::mt19937& rng, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

uint32_t word(int op, int close = 0, int open = 0) {
    return static_cast<uint32_t>(op) | static_cast<uint32_t>(close) << 2 | static_cast<uint32_t>(open) << 9;
}

// A fresh evaluator, released on scope exit.
struct Eval {
    RangeExpression<malloc, free> e{};
    Eval() { e.init(); }
    ~Eval() { e.release(); }
    E add(uint32_t w, const Pairs& p) {
        std::vector<int32_t> bounds;
        for (const auto& [lo, hi] : p) bounds.insert(bounds.end(), {lo, hi});
        return e.addOperand(w, bounds.data(), static_cast<int32_t>(bounds.size()));
    }
    // The value with the open groups closed; the evaluator is left as it was.
    E close(Pairs& out, int32_t* bad = nullptr) const {
        RV value, spare;
        const RV* result = nullptr;
        int32_t b = -1;
        const E error = e.closedValue(value, spare, result, b);
        if (bad) *bad = b;
        if (error == E::None) out = pairs(*result);
        return error;
    }
};

// An expression tree: each node joins its predecessor in its group with `op`; a
// node is an operand unless it holds a group.
struct Node {
    Op op;
    Pairs operand;
    std::vector<Node> group;
};

Pairs randomList(std::mt19937& rng) {
    Pairs p;
    for (int cur = uniform(rng, 0, 10), n = uniform(rng, 0, 5); n > 0 && cur < 60; --n) {
        const int hi = cur + uniform(rng, 0, 6);
        p.emplace_back(cur, hi);
        cur = hi + uniform(rng, 2, 8);
    }
    return p;
}

std::vector<Node> randomGroup(std::mt19937& rng, int levelsLeft) {
    std::vector<Node> g(static_cast<size_t>(uniform(rng, 1, 4)));
    for (Node& n : g) {
        n.op = static_cast<Op>(uniform(rng, 0, 2));
        if (levelsLeft > 0 && uniform(rng, 0, 4) < 2)
            n.group = randomGroup(rng, levelsLeft - 1);
        else
            n.operand = randomList(rng);
    }
    return g;
}

// The root starts empty and applies its first node's operation to it; a nested
// group starts as its first node's value.
Pairs evaluate(const std::vector<Node>& g, bool root) {
    Pairs v;
    for (size_t i = 0; i < g.size(); ++i) {
        const Pairs x = g[i].group.empty() ? g[i].operand : evaluate(g[i].group, false);
        v = compute(i == 0 && !root ? Op::Union : g[i].op, v, x);
    }
    return v;
}

// Flattens a tree into rows: the groups opened before an operand are counted on its
// row, the outermost one's operation in the op field; groups that end are closed on
// the next row, or left open for the final close.
struct Encoder {
    std::vector<std::pair<uint32_t, Pairs>> rows;
    int close = 0, open = 0, openOp = 0;
    void encode(const std::vector<Node>& g) {
        for (const Node& n : g) {
            const int op = static_cast<int>(n.op) + 1;
            if (n.group.empty()) {
                rows.emplace_back(word(open ? openOp : op, close, open), n.operand);
                close = open = 0;
            } else {
                if (open++ == 0) openOp = op;
                encode(n.group);
                ++close;
            }
        }
    }
};

TEST(RangeExpression, RandomTreesMatchDirectComposition) {
    std::mt19937 rng(2024);
    int deepest = 0, leftOpen = 0;
    for (int round = 0; round < 3000; ++round) {
        const std::vector<Node> tree = randomGroup(rng, 5);
        Encoder enc;
        enc.encode(tree);
        leftOpen += enc.close > 0;
        if (enc.close && uniform(rng, 0, 1)) enc.rows.emplace_back(word(1, enc.close), Pairs{});  // ∪ ∅
        Eval ev;
        for (const auto& [w, operand] : enc.rows) {
            const uint32_t high = uniform(rng, 0, 1) ? static_cast<uint32_t>(rng()) << 16 : 0;  // ignored bits
            ASSERT_EQ(ev.add(w | high, operand), E::None) << "round " << round;
            deepest = std::max(deepest, ev.e.depth);
        }
        Pairs first, again;
        ASSERT_EQ(ev.close(first), E::None) << "round " << round;
        ASSERT_EQ(first, evaluate(tree, true)) << "round " << round;
        ASSERT_EQ(ev.close(again), E::None) << "round " << round;  // closing left the groups open
        ASSERT_EQ(again, first) << "round " << round;
    }
    EXPECT_EQ(deepest, 5);
    EXPECT_GT(leftOpen, 100);
}

// Feeds rows, each with the operand {[1,5]}, then closes the open groups: the first
// error and the number of rows accepted before it.
std::pair<E, int> run(std::initializer_list<uint32_t> words, int32_t* badOperation = nullptr) {
    Eval ev;
    ev.e.badOperation = -1;
    int accepted = 0;
    E error = E::None;
    for (uint32_t w : words) {
        if ((error = ev.add(w, {{1, 5}})) != E::None) break;
        ++accepted;
    }
    int32_t bad = ev.e.badOperation;
    Pairs ignored;
    if (error == E::None) error = ev.close(ignored, &bad);
    if (badOperation) *badOperation = bad;
    return {error, accepted};
}

TEST(RangeExpression, Errors) {
    using P = std::pair<E, int>;
    EXPECT_EQ(run({word(1, 1)}), P(E::CloseRoot, 0));
    EXPECT_EQ(run({word(1, 0, 1), word(1, 2)}), P(E::CloseRoot, 1));
    // Five levels below the root, counted across rows; a row closes before it opens.
    EXPECT_EQ(run({word(1, 0, 5), word(1, 1, 1)}), P(E::None, 2));
    EXPECT_EQ(run({word(1, 0, 6)}), P(E::TooDeep, 0));
    EXPECT_EQ(run({word(1, 0, 5), word(1, 1, 1), word(1, 0, 1)}), P(E::TooDeep, 2));
    EXPECT_EQ(run({word(2, 0, 2), word(2, 0, 3), word(2, 0, 1)}), P(E::TooDeep, 2));
    Eval ev;
    const int32_t bounds[] = {1, 5, 7};
    EXPECT_EQ(ev.e.addOperand(word(1), bounds, 3), E::OddOperand);

    // Operation 0 fails only when applied: at once without an open group, else when
    // the group it joins closes (here the outer of two; the inner one joins by union).
    int32_t bad = -1;
    EXPECT_EQ(run({word(0)}, &bad), P(E::UnknownOperation, 0));
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(run({0xFFFF0000u}), P(E::UnknownOperation, 0));  // high bits make no operation
    bad = -1;
    EXPECT_EQ(run({word(1), word(0, 0, 2), word(1, 1)}, &bad), P(E::UnknownOperation, 3));
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(run({word(0, 0, 1), word(1), word(1, 1)}), P(E::UnknownOperation, 2));
}

}  // namespace
