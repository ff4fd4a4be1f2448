// The bracketed set expression, row by row as the aggregate feeds it: an operation
// word (operation, groups closed, groups opened) and an operand (NULL skips the row).
// Every input gives the model's error at the same row; while the operands are
// normalised with bounds within INT32_MAX, the depth and the closed value (asked at
// any row, as a final function may) equal the model's.
#include "fuzz_common.h"
#include "qnPgRangeExpression.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

using Expression = RangeExpression<malloc, free>;

// The evaluator's rules over model sets: levels[0] is the root group, each
// further level holds a group's value and the operation that joins it to the level below.
struct Model {
    std::vector<std::pair<Intervals, int32_t>> levels{{{}, RangeOpNone}};

    static bool apply(int32_t operation, Intervals& value, const Intervals& operand) {
        if (operation < RangeOpUnion || operation > RangeOpExclusion) return false;
        value = setOp(static_cast<SetOp>(operation), value, operand);
        return true;
    }
    int32_t depth() const { return static_cast<int32_t>(levels.size()) - 1; }

    ExpressionError add(uint32_t word, const Intervals& operand, bool odd) {
        const OperationWord w = OperationWord::decode(word);
        for (int32_t i = 0; i < w.closeCount; ++i) {
            if (depth() == 0) return ExpressionError::CloseRoot;
            const auto [value, operation] = levels.back();
            levels.pop_back();
            if (!apply(operation, levels.back().first, value)) return ExpressionError::UnknownOperation;
        }
        if (depth() + w.openCount > Expression::kMaxDepth) return ExpressionError::TooDeep;
        for (int32_t k = 0; k < w.openCount; ++k) levels.emplace_back(Intervals{}, k ? RangeOpUnion : w.operation);
        if (odd) return ExpressionError::OddOperand;
        const int32_t operation = w.openCount > 0 ? RangeOpUnion : w.operation;
        return apply(operation, levels.back().first, operand) ? ExpressionError::None : ExpressionError::UnknownOperation;
    }

    ExpressionError closed(Intervals& value) const {
        value = levels.back().first;
        for (int32_t level = depth(); level > 0; --level) {
            Intervals below = levels[level - 1].first;
            if (!apply(levels[level].second, below, value)) return ExpressionError::UnknownOperation;
            value = below;
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
        const uint32_t word = (control & 0x40) ? in.u32() : (control & 0xf) | (control >> 4 & 3) << 9;
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
        FZ_CHECK(expression.depth == model.depth());
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
