// Evaluation of a bracketed set expression over range lists, one operand at a time.
//
// Each operand comes with an operation word: bits 0-1 the operation joining it to
// what came before (1 union, 2 intersection, 3 exclusion), bits 2-8 how many open
// groups close before it, bits 9-15 how many groups open before it. Higher bits
// are ignored. Within a group, operations apply strictly left to right.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgRangeExpression.h must not see server headers: include it before postgres.h");
#endif

#include <cstdint>

#include "qnPgRangeArray.h"

namespace qn::pgRangeArray {

enum RangeOperation : int32_t { RangeOpNone = 0, RangeOpUnion = 1, RangeOpIntersection = 2, RangeOpExclusion = 3 };

// The fields of an operation word.
struct OperationWord {
    int32_t operation;
    int32_t closeCount;
    int32_t openCount;

    static OperationWord decode(uint32_t word) {
        return {static_cast<int32_t>(word & 0x3), static_cast<int32_t>((word >> 2) & 0x7f),
                static_cast<int32_t>((word >> 9) & 0x7f)};
    }
};

enum class ExpressionError {
    None,
    CloseRoot,         // more groups closed than are open
    TooDeep,           // a group beyond the fifth nesting level
    OddOperand,        // an operand with an odd number of bounds
    UnknownOperation,  // operation 0 had to be applied; see badOperation
};

// The evaluator's state: the root group (level 0) plus five nested levels, each
// holding its value in one of seven vectors, the seventh being scratch for the
// next result. Results are never copied: a computation writes into the scratch
// vector, whose index is then swapped with the receiving level's.
// Call init() once before use; release() frees the vectors. The set operations
// call Poll (default-constructed) in their long loops.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, typename Poll = NoPoll>
struct RangeExpression {
    using Vector = RangeVector<int32_t, A, F>;
    using R = Range<int32_t>;
    static constexpr int32_t kVectors = 7;
    static constexpr int32_t kMaxDepth = 5;

    struct Level {
        int32_t vector;            // index of the vector holding this level's value
        int32_t pendingOperation;  // joins this level's value with the group opened from it
    };

    Vector vectors[kVectors];
    int32_t scratch;
    Level levels[kMaxDepth + 1];
    int32_t depth;
    int32_t badOperation;  // the operation id behind the last UnknownOperation

    void init() {
        scratch = kVectors - 1;
        for (int32_t k = 0; k <= kMaxDepth; ++k) levels[k] = Level{k, RangeOpNone};
        depth = 0;
        badOperation = 0;
    }

    void release() {
        for (Vector& v : vectors) v.release();
    }

    // The value of the root group.
    const Vector& result() const { return vectors[levels[0].vector]; }

    // Adds one operand: `count` bounds (pairs of a normalised range list) at `bounds`.
    ExpressionError addOperand(uint32_t word, const int32_t* bounds, int32_t count) {
        const OperationWord w = OperationWord::decode(word);
        for (int32_t i = 0; i < w.closeCount; ++i)
            if (const ExpressionError e = closeGroup(); e != ExpressionError::None) return e;
        int32_t operation = w.operation;
        if (w.openCount > 0) {
            if (depth + w.openCount > kMaxDepth) return ExpressionError::TooDeep;
            levels[depth].pendingOperation = w.operation;
            for (int32_t k = depth + 1; k < depth + w.openCount; ++k) levels[k].pendingOperation = RangeOpUnion;
            for (int32_t k = depth + 1; k <= depth + w.openCount; ++k) vectors[levels[k].vector].clear();
            depth += w.openCount;
            operation = RangeOpUnion;  // the operand starts the innermost new group
        }
        if (count & 1) return ExpressionError::OddOperand;
        const R* first = reinterpret_cast<const R*>(bounds);
        return combineInto(depth, operation, first, first + count / 2);
    }

    // The value of the whole expression, with the groups still open closed innermost
    // first as if the rows had ended here. The evaluator is left as it was, so the
    // value can be asked for again and more operands can follow. The closes are
    // computed into `value` and `spare`; `result` ends pointing at the root's own
    // list (no group open) or at one of those two. On UnknownOperation, `bad`
    // holds the pending operation id that could not be applied.
    ExpressionError closedValue(Vector& value, Vector& spare, const Vector*& result, int32_t& bad) const {
        result = &vectors[levels[depth].vector];
        Vector* out = &value;
        Vector* other = &spare;
        for (int32_t level = depth - 1; level >= 0; --level) {
            const int32_t operation = levels[level].pendingOperation;
            if (!apply(operation, vectors[levels[level].vector], result->begin(), result->end(), *out)) {
                bad = operation;
                return ExpressionError::UnknownOperation;
            }
            result = out;
            Vector* const written = out;
            out = other;
            other = written;
        }
        return ExpressionError::None;
    }

private:
    // The innermost open group's value joins its parent's with the parent's pending operation.
    ExpressionError closeGroup() {
        if (depth == 0) return ExpressionError::CloseRoot;
        --depth;
        const Vector& closed = vectors[levels[depth + 1].vector];
        return combineInto(depth, levels[depth].pendingOperation, closed.begin(), closed.end());
    }

    // out := value OP [first, last); false for an operation id other than 1 to 3.
    static bool apply(int32_t operation, const Vector& value, const R* first, const R* last, Vector& out) {
        switch (operation) {
            case RangeOpUnion: computeUnion(value.begin(), value.end(), first, last, out, Poll{}); return true;
            case RangeOpIntersection:
                computeIntersection(value.begin(), value.end(), first, last, out, Poll{});
                return true;
            case RangeOpExclusion: computeExclusion(value.begin(), value.end(), first, last, out, Poll{}); return true;
            default: return false;
        }
    }

    // level's value := level's value OP [first, last).
    ExpressionError combineInto(int32_t level, int32_t operation, const R* first, const R* last) {
        if (!apply(operation, vectors[levels[level].vector], first, last, vectors[scratch])) {
            badOperation = operation;
            return ExpressionError::UnknownOperation;
        }
        const int32_t previous = levels[level].vector;
        levels[level].vector = scratch;
        scratch = previous;
        return ExpressionError::None;
    }
};

}  // namespace qn::pgRangeArray
