// The bracketed set expression, fed row by row as the aggregate feeds it: an
// operation word (the operation, groups closed before, groups opened before)
// and an operand per row; a NULL operand skips its row. Every input must give
// the model's error at the same row (the first error ends the aggregate), and,
// while every operand is a normalised list and all bounds lie within INT32_MAX
// of each other, the value of each level and the closed value of the whole
// expression (asked for at any row, as a final function may be) must equal the
// model's.
#include "fuzz_common.h"
#include "qnPgRangeExpression.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

using Expression = RangeExpression<malloc, free>;

// The evaluator's rules over model sets.
struct Model {
    struct Level {
        Intervals value;
        int32_t pending = RangeOpNone;
    };
    Level levels[Expression::kMaxDepth + 1];
    int32_t depth = 0;

    static bool apply(int32_t operation, const Intervals& value, const Intervals& operand, Intervals& out) {
        if (operation < RangeOpUnion || operation > RangeOpExclusion) return false;
        out = setOp(static_cast<SetOp>(operation), value, operand);
        return true;
    }

    ExpressionError add(uint32_t word, const Intervals& operand, bool odd) {
        const OperationWord w = OperationWord::decode(word);
        for (int32_t i = 0; i < w.closeCount; ++i) {
            if (depth == 0) return ExpressionError::CloseRoot;
            --depth;
            Intervals out;
            if (!apply(levels[depth].pending, levels[depth].value, levels[depth + 1].value, out))
                return ExpressionError::UnknownOperation;
            levels[depth].value = out;
        }
        int32_t operation = w.operation;
        if (w.openCount > 0) {
            if (depth + w.openCount > Expression::kMaxDepth) return ExpressionError::TooDeep;
            levels[depth].pending = w.operation;
            for (int32_t k = depth + 1; k < depth + w.openCount; ++k) levels[k].pending = RangeOpUnion;
            for (int32_t k = depth + 1; k <= depth + w.openCount; ++k) levels[k].value.clear();
            depth += w.openCount;
            operation = RangeOpUnion;
        }
        if (odd) return ExpressionError::OddOperand;
        Intervals out;
        if (!apply(operation, levels[depth].value, operand, out)) return ExpressionError::UnknownOperation;
        levels[depth].value = out;
        return ExpressionError::None;
    }

    ExpressionError closed(Intervals& value) const {
        value = levels[depth].value;
        for (int32_t level = depth - 1; level >= 0; --level) {
            Intervals out;
            if (!apply(levels[level].pending, levels[level].value, value, out))
                return ExpressionError::UnknownOperation;
            value = out;
        }
        return ExpressionError::None;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    // The aggregate's state: zero-filled memory, then init().
    alignas(Expression) unsigned char storage[sizeof(Expression)] = {};
    auto& expression = *reinterpret_cast<Expression*>(storage);
    expression.init();
    Model model;
    std::vector<R> all;
    bool modelled = true;

    for (int row = 0; row < 64 && !in.empty(); ++row) {
        // Control byte: bits 0-1 operation, 2-3 groups closed, 4-5 groups opened;
        // bit 6: a raw 32-bit word instead; bit 7: a NULL operand (the row is skipped).
        const uint8_t control = in.u8();
        const uint32_t word =
            (control & 0x40) ? in.u32() : (control & 3) | (control >> 2 & 3) << 2 | (control >> 4 & 3) << 9;
        bool normalised = false;
        const std::vector<R> operand = someList(in, 24, normalised);
        if (control & 0x80) continue;
        std::vector<int32_t> bounds = flatten(operand);
        const bool odd = !bounds.empty() && (in.u8() == 0xff);
        if (odd) bounds.pop_back();
        const Words words(bounds);
        modelled = modelled && normalised;
        all.insert(all.end(), operand.begin(), operand.end());
        modelled = modelled && withinOneSpan({&all});

        const ExpressionError got = expression.addOperand(word, words.begin(), static_cast<int32_t>(words.count));
        const ExpressionError expected = model.add(word, canonical(operand), odd);
        FZ_CHECK(got == expected);
        if (got != ExpressionError::None) break;  // the error ends the aggregate
        FZ_CHECK(expression.depth == model.depth);
        if (in.u8() & 1) {  // a final call here: the state must stay as it was
            RV value(1024), spare(1024);
            const RV* result = nullptr;
            int32_t bad = 0;
            Intervals closed;
            const ExpressionError e = expression.closedValue(value, spare, result, bad);
            FZ_CHECK(e == model.closed(closed));
            if (e == ExpressionError::None && modelled) FZ_CHECK(asIntervals(*result) == closed);
        }
    }
    expression.release();
    return 0;
}
