// Set algebra over range arrays: the two-argument functions (union, intersection,
// exclusion, overlap, strict inclusion), the range expression aggregate and the
// int4set_agg aggregate. Thin entry points over the server-free kernels: arguments
// are read in place, never copied or sorted.
#include "qnPgRangeExpression.h"
#include "qnPgRangeSetBuilder.h"
#include "qnPgSetConversions.h"
#include "quenloPgUtils.h"

using qn::pg::AggCtxHelper;
using qn::pg::Int4Elements;
using qn::pg::PgRangeVector;
using qn::pg::PollInterrupts;
using qn::pg::RangeInt;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgRangeAggregators";

using RangeKernel = void (*)(const RangeInt*, const RangeInt*, const RangeInt*, const RangeInt*, PgRangeVector&,
                             PollInterrupts);

// Both range-array arguments, read in place; one parity test covers both.
struct RangeArguments {
    Int4Elements a;
    Int4Elements b;
};

RangeArguments readRangeArguments(FunctionCallInfo fcinfo, const char* function) {
    const Int4Elements a = qn::pg::readInt4Elements(qn::pg::arrayArgumentCached(fcinfo, 0));
    const Int4Elements b = qn::pg::readInt4Elements(qn::pg::arrayArgumentCached(fcinfo, 1));
    if ((a.count | b.count) & 1) QN_ERROR(ERRCODE_DATATYPE_MISMATCH, function, "array length should be even");
    return {a, b};
}

// The result for a null other argument: a copy of argument argno as it is (not
// normalised), or the empty array when it is not one-dimensional or holds nulls.
Datum copyRangeArgument(FunctionCallInfo fcinfo, int argno, const char* function) {
    const Int4Elements e = qn::pg::readInt4Elements(PG_GETARG_ARRAYTYPE_P(argno));
    if (e.count & 1) QN_ERROR(ERRCODE_DATATYPE_MISMATCH, function, "array length should be even");
    PG_RETURN_ARRAYTYPE_P(qn::pg::buildInt4Result(e.data, static_cast<uint64_t>(e.count), function));
}

// Runs a set kernel over both arguments into a vector sized for the larger input.
Datum computeRangeResult(FunctionCallInfo fcinfo, RangeKernel kernel, const char* function) {
    const RangeArguments args = readRangeArguments(fcinfo, function);
    const int32 largest = Max(args.a.count, args.b.count) / 2;
    PgRangeVector out(static_cast<PgRangeVector::tSize>(largest));
    kernel(args.a.rangesBegin(), args.a.rangesEnd(), args.b.rangesBegin(), args.b.rangesEnd(), out, {});
    PG_RETURN_ARRAYTYPE_P(qn::pg::buildRangeArrayResult(out, function));
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_int4range_union)
QN_FUNCTION_INFO_V1(qn_int4range_intersection)
QN_FUNCTION_INFO_V1(qn_int4range_exclusion)
QN_FUNCTION_INFO_V1(qn_int4range_is_overlap)
QN_FUNCTION_INFO_V1(qn_int4range_is_strictly_include)
QN_FUNCTION_INFO_V1(qn_int4range_contains)
QN_FUNCTION_INFO_V1(qn_int4range_is_overlap_commuted)

// A ∪ B; a null side gives a copy of the other, both null give null.
Datum qn_int4range_union(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4range_union";
    if (PG_ARGISNULL(0) && PG_ARGISNULL(1)) PG_RETURN_NULL();
    if (PG_ARGISNULL(0)) return copyRangeArgument(fcinfo, 1, function);
    if (PG_ARGISNULL(1)) return copyRangeArgument(fcinfo, 0, function);
    return computeRangeResult(fcinfo, qn::pgRangeArray::computeUnion<int32, palloc, pfree, PollInterrupts>, function);
}

// A ∩ B; null when either is null.
Datum qn_int4range_intersection(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    return computeRangeResult(fcinfo, qn::pgRangeArray::computeIntersection<int32, palloc, pfree, PollInterrupts>,
                              "qn_int4range_intersection");
}

// A \ B; null when A is null, a copy of A when only B is null.
Datum qn_int4range_exclusion(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4range_exclusion";
    if (PG_ARGISNULL(0)) PG_RETURN_NULL();
    if (PG_ARGISNULL(1)) return copyRangeArgument(fcinfo, 0, function);
    return computeRangeResult(fcinfo, qn::pgRangeArray::computeExclusion<int32, palloc, pfree, PollInterrupts>, function);
}

// Some member of A is in B; null when either is null.
Datum qn_int4range_is_overlap(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    const RangeArguments args = readRangeArguments(fcinfo, "qn_int4range_is_overlap");
    // This function's walk is the range-array overlap walk with the lists' roles
    // swapped: on equal lowers B's range is the one passed over.
    PG_RETURN_BOOL(qn::pgRangeArray::rangeListsOverlap(args.b.rangesBegin(), args.b.rangesEnd(),
                                                       args.a.rangesBegin(), args.a.rangesEnd()));
}

// qn_int4range_is_overlap(B, A), and its errors: the function of int4[] &&~
// int4[], the commutator of ~&&. The overlap walk reads its two lists in
// different roles, so on lists that are not normalised (inverted pairs) the
// two orders can differ, and ~&& cannot be its own commutator.
Datum qn_int4range_is_overlap_commuted(PG_FUNCTION_ARGS) {
    const RangeArguments args = readRangeArguments(fcinfo, "qn_int4range_is_overlap");
    PG_RETURN_BOOL(qn::pgRangeArray::rangeListsOverlap(args.a.rangesBegin(), args.a.rangesEnd(),
                                                       args.b.rangesBegin(), args.b.rangesEnd()));
}

// A is a non-empty subset of B; null when either is null.
Datum qn_int4range_is_strictly_include(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    const RangeArguments args = readRangeArguments(fcinfo, "qn_int4range_is_strictly_include");
    PG_RETURN_BOOL(qn::pgRangeArray::rangeListIncluded(args.a.rangesBegin(), args.a.rangesEnd(),
                                                       args.b.rangesBegin(), args.b.rangesEnd()));
}

// B is a non-empty subset of A: qn_int4range_is_strictly_include with the
// arguments swapped, and its errors (the function of int4[] ~@> int4[]); null
// when either is null.
Datum qn_int4range_contains(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    const RangeArguments args = readRangeArguments(fcinfo, "qn_int4range_is_strictly_include");
    PG_RETURN_BOOL(qn::pgRangeArray::rangeListIncluded(args.b.rangesBegin(), args.b.rangesEnd(),
                                                       args.a.rangesBegin(), args.a.rangesEnd()));
}

// ---------------------------------------------------------------------------
// Range expression aggregate: one operand per row, joined by the operation word.

namespace {

struct Int4RangeOpData {
    MemoryContext memoryContext;
    qn::pgRangeArray::RangeExpression<palloc, pfree, PollInterrupts> expression;
};

// Raises the error of an evaluation step, if any.
void raiseExpressionError(qn::pgRangeArray::ExpressionError error, int32 badOperation) {
    using qn::pgRangeArray::ExpressionError;
    switch (error) {
        case ExpressionError::None: return;
        case ExpressionError::CloseRoot:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "closeGroup", "try to close root parenthesis group");
        case ExpressionError::TooDeep:
            QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, "addValue", "reach max parenthesis group depth");
        case ExpressionError::OddOperand:
            QN_ERROR(ERRCODE_DATATYPE_MISMATCH, "addValue", "array length should be even");
        case ExpressionError::UnknownOperation:
            QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, "addToCurrentGroup", "Unknown operation id %i", badOperation);
    }
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_int4range_op_transfn)
QN_FUNCTION_INFO_V1(qn_int4range_op_finalfn)

// Transition: (state, operation word, operand). A NULL word is an error; a NULL
// operand skips the row, its closes and opens included. Rows must arrive in
// expression order.
Datum qn_int4range_op_transfn(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(1))
        QN_ERROR(ERRCODE_NO_DATA, "qn_int4range_op_transfn", "null operation is not now allowed");
    auto* state = PG_ARGISNULL(0) ? nullptr : reinterpret_cast<Int4RangeOpData*>(PG_GETARG_POINTER(0));
    AggCtxHelper<Int4RangeOpData> helper(state, fcinfo, "qn_int4range_op_transfn");
    if (helper.created) state->expression.init();
    if (PG_ARGISNULL(2)) PG_RETURN_POINTER(state);

    ArrayType* operand = PG_GETARG_ARRAYTYPE_P(2);
    const Int4Elements e = qn::pg::readInt4Elements(operand);
    raiseExpressionError(state->expression.addOperand(static_cast<uint32>(PG_GETARG_INT32(1)), e.data, e.count),
                         state->expression.badOperation);
    PG_FREE_IF_COPY(operand, 2);
    PG_RETURN_POINTER(state);
}

// Final: the root's range array with the groups left open closed, innermost
// first (the empty array when no row came). The state is only read: the groups
// are closed on copies, so the final function can run again, and rows can follow.
Datum qn_int4range_op_finalfn(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4range_op_finalfn";
    auto* state = PG_ARGISNULL(0) ? nullptr : reinterpret_cast<Int4RangeOpData*>(PG_GETARG_POINTER(0));
    if (!state) PG_RETURN_ARRAYTYPE_P(qn::pg::allocateResultArray(0));
    PgRangeVector value(1024), spare(1024);
    const PgRangeVector* result = nullptr;
    int32 badOperation = 0;
    raiseExpressionError(state->expression.closedValue(value, spare, result, badOperation), badOperation);
    PG_RETURN_ARRAYTYPE_P(qn::pg::buildRangeArrayResult(*result, function));
}

// ---------------------------------------------------------------------------
// int4set_agg: integers, bound pairs or whole sets from many rows into one set.

namespace {

// Row forms besides the three array layouts.
enum InputForm : uint32 { InputValue = 1, InputBounds = 2 };

using SetBuilder = qn::pgRangeArray::RangeSetBuilder<palloc, pfree, PollInterrupts>;

struct Int4ToSetOpDataSet {
    MemoryContext memoryContext;
    uint32 inputType;   // the form of the rows, fixed by the first row; 0 = none yet
    uint32 outputType;  // the array layout of the result
    SetBuilder set;
};

Int4ToSetOpDataSet* setStateArgument(FunctionCallInfo fcinfo, int argno) {
    return PG_ARGISNULL(argno) ? nullptr : reinterpret_cast<Int4ToSetOpDataSet*>(PG_GETARG_POINTER(argno));
}

// Merges pending insertions inside the state's own context, before the set is
// read whole.
void flushSetState(Int4ToSetOpDataSet* state) {
    MemoryContext caller = MemoryContextSwitchTo(state->memoryContext);
    state->set.settle();
    MemoryContextSwitchTo(caller);
}

// Adds the members of one array row. Arrays that are not one-dimensional or hold
// NULLs are skipped; the element type is not checked.
void addArrayRow(SetBuilder& set, uint32 inputType, const ArrayType* array) {
    using namespace qn::pgRangeArray;
    const Int4Elements e = qn::pg::readInt4Elements(array);
    const int32* p = e.data;
    const int32* const end = e.data + e.count;
    switch (inputType) {
        case ArrayDataTypeSet:
            for (; p != end; ++p) set.insert({*p, *p});
            return;
        case ArrayDataTypeRangeArray:
            if (e.count & 1)
                QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "addRange",
                         "qn_int4set_agg_transfn input is not a range array");
            for (; p != end; p += 2) set.insert({p[0], p[1]});
            return;
        case ArrayDataTypeMixArray:
            if (p == end) return;
            for (++p; p != end;) {  // the count word is skipped unread
                if (*p >= 0) {
                    set.insert({*p, *p});
                    ++p;
                    continue;
                }
                if (p + 1 == end)  // a range opener with no upper bound after it
                    QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "addRange",
                             "qn_int4set_agg_transfn input is not a range array");
                set.insert({*p & 0x7fffffff, p[1]});
                p += 2;
            }
            return;
        default:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "addRange", "qn_int4set_agg_transfn not implemented");
    }
}

// Transition shared by both entry points. The first row fixes the input form
// (A: value or bounds by the argument count; B: argument 1's letter) and the output
// form (the last argument's letter); later rows' letters are not read again.
Datum int4setAggTransition(FunctionCallInfo fcinfo, bool isB) {
    Int4ToSetOpDataSet* state = setStateArgument(fcinfo, 0);
    AggCtxHelper<Int4ToSetOpDataSet> helper(state, fcinfo, "qn_int4set_agg_transfn");
    const bool threeArguments = PG_NARGS() == 3;
    if (state->inputType == 0) {
        state->inputType = isB ? qn::pgRangeArray::ArrayDataTypeFromChar(PG_GETARG_CHAR(1))
                               : (threeArguments ? InputValue : InputBounds);
        state->outputType = qn::pgRangeArray::ArrayDataTypeFromChar(PG_GETARG_CHAR(threeArguments ? 2 : 3));
    }
    switch (state->inputType) {
        case InputValue:
            if (!PG_ARGISNULL(1)) state->set.insert({PG_GETARG_INT32(1), PG_GETARG_INT32(1)});
            break;
        case InputBounds:
            if (!PG_ARGISNULL(1) && !PG_ARGISNULL(2)) state->set.insert({PG_GETARG_INT32(1), PG_GETARG_INT32(2)});
            break;
        default:
            if (!PG_ARGISNULL(2)) {
                ArrayType* array = PG_GETARG_ARRAYTYPE_P(2);
                addArrayRow(state->set, state->inputType, array);
                PG_FREE_IF_COPY(array, 2);
            }
            break;
    }
    PG_RETURN_POINTER(state);
}

// The set of a state in its output layout, built in the current context.
ArrayType* buildSetResult(const Int4ToSetOpDataSet* state) {
    using namespace qn::pgRangeArray;
    const char* function = "qn_int4set_agg_finalfn";
    const auto& ranges = state->set.ranges;
    switch (state->outputType) {
        case ArrayDataTypeRangeArray:
            return qn::pg::buildRangeArrayResult(ranges, function);
        case ArrayDataTypeSet: {
            return qn::pg::writeInt4Result(
                countMembers(ranges.begin(), ranges.end()), function,
                [&](int32* out) { writeMembers(ranges.begin(), ranges.end(), out, PollInterrupts{}); },
                "array overflow");
        }
        case ArrayDataTypeMixArray: {
            // The count word (the number of integers, a wrapping 32-bit total), then the
            // items: one word for a single value, two for a range, counted first.
            if (ranges.empty()) return qn::pg::allocateResultArray(0);
            return qn::pg::writeInt4Result(
                mixArrayWords(ranges.begin(), ranges.end()), function,
                [&](int32* out) { writeMixArray(ranges.begin(), ranges.end(), out, PollInterrupts{}); },
                "array overflow");
        }
        default:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "qn_int4set_agg_finalfn not implemented");
    }
}

// Grows a palloc'd block in place where it can (realloc keeps a large block's
// pages), for the in-place union.
void* resizeChunk(void* chunk, size_t bytes) { return repalloc(chunk, bytes); }

// s's set becomes the union of its own and x's; x must have s's forms
// ("addOtherCtx" raises otherwise). Two plain lists (what the builder keeps
// while no row was inverted or ended at INT32_MAX) give their set union, as
// one builder fed both sets' rows would: merged in place into s's list, grown
// where it lies, so that merging many states into one touches no memory but the
// result's. Any other list is united as the range algebra unites, into the
// state's spare buffer, which then takes the old list.
void uniteSetStates(Int4ToSetOpDataSet* s, const Int4ToSetOpDataSet* x) {
    if (x->inputType != s->inputType || x->outputType != s->outputType)
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "addOtherCtx", "fail to combine Int4ToSetOpDataSet");
    SetBuilder::Vector& ours = s->set.ranges;
    const SetBuilder::Vector& theirs = x->set.ranges;
    if (!s->set.direct && !x->set.direct) {
        const uint64 a = ours.size(), b = theirs.size();
        if (!ours.reserveByResizing<resizeChunk>(a + b)) QN_ERROR(ERRCODE_OUT_OF_MEMORY, "addOtherCtx", nullptr);
        ours.resize(qn::pgRangeArray::uniteInPlace(ours.data(), a, theirs.data(), b, PollInterrupts{}));
        return;
    }
    SetBuilder::Vector& merged = s->set.scratch;
    merged.clear();  // its old contents need not move when it grows
    merged.reserve(ours.size() + theirs.size());
    qn::pgRangeArray::computeUnion(ours.begin(), ours.end(), theirs.begin(), theirs.end(), merged, PollInterrupts{});
    ours.swap(merged);
    s->set.direct = true;  // a union of lists from elsewhere is trusted as it is
}

// Merges state x into s (the "addOtherCtx" step of combining), with s's context
// current; x's set is only read. A state without ranges (one that saw only rows
// without members: NULLs, skipped arrays) adds nothing and lends its forms only
// to a state that has none, so such partial states combine alike in every plan.
// Otherwise s takes x's forms and a copy of its set when s holds no range yet,
// or the forms must agree and s becomes the union of both sets.
void mergeSetState(Int4ToSetOpDataSet* s, Int4ToSetOpDataSet* x) {
    s->set.flush();
    flushSetState(x);
    const auto& theirs = x->set.ranges;
    if (theirs.empty() && s->inputType != 0) return;
    if (s->set.ranges.empty()) {
        s->inputType = x->inputType;
        s->outputType = x->outputType;
        s->set.assign(theirs.begin(), theirs.end());
        s->set.direct = x->set.direct;  // a plain list stays plain
        return;
    }
    uniteSetStates(s, x);
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_int4set_agg_transfn_A)
QN_FUNCTION_INFO_V1(qn_int4set_agg_transfn_B)
QN_FUNCTION_INFO_V1(qn_int4set_agg_finalfn)
QN_FUNCTION_INFO_V1(qn_int4set_agg_combinefn)
QN_FUNCTION_INFO_V1(qn_int4set_agg_serialfn)
QN_FUNCTION_INFO_V1(qn_int4set_agg_deserialfn)

// Transition for value rows (state, v, out) and bound rows (state, lower, upper, out).
Datum qn_int4set_agg_transfn_A(PG_FUNCTION_ARGS) { return int4setAggTransition(fcinfo, false); }

// Transition for array rows (state, input form, array, output form).
Datum qn_int4set_agg_transfn_B(PG_FUNCTION_ARGS) { return int4setAggTransition(fcinfo, true); }

// Final: the set in the first row's output layout. No member at all gives the
// empty array: no state, or under partial aggregation a state combined only
// from partial states without members (its forms never fixed). Pending rows are
// merged into the set, which changes how the state holds the set, not what it
// holds: the final function can run again, and rows can follow.
Datum qn_int4set_agg_finalfn(PG_FUNCTION_ARGS) {
    Int4ToSetOpDataSet* state = setStateArgument(fcinfo, 0);
    if (!state) PG_RETURN_ARRAYTYPE_P(qn::pg::allocateResultArray(0));
    flushSetState(state);
    PG_RETURN_ARRAYTYPE_P(state->inputType == 0 ? qn::pg::allocateResultArray(0) : buildSetResult(state));
}

// Combine: the union of both arguments (either may be NULL), merged into the
// first in place (see combineInPlace); the second is only read.
Datum qn_int4set_agg_combinefn(PG_FUNCTION_ARGS) {
    return qn::pg::combineInPlace<Int4ToSetOpDataSet>(fcinfo, "qn_int4set_agg_combinefn",
                                                      [](Int4ToSetOpDataSet* state, Int4ToSetOpDataSet* second, bool) {
                                                          if (second) mergeSetState(state, second);
                                                      });
}

// Serialise: the forms and the ranges as a bytea (NULL for no state).
Datum qn_int4set_agg_serialfn(PG_FUNCTION_ARGS) {
    Int4ToSetOpDataSet* state = setStateArgument(fcinfo, 0);
    if (!state) PG_RETURN_NULL();
    flushSetState(state);
    const auto& ranges = state->set.ranges;
    const uint64 size = qn::pgRangeArray::setStateSize(ranges.size());
    bytea* result = qn::pg::allocateBytea(size - VARHDRSZ);
    qn::pgRangeArray::writeSetState(reinterpret_cast<uint8*>(result), state->inputType, state->outputType,
                                    ranges.begin(), ranges.end());
    PG_RETURN_BYTEA_P(result);
}

// Deserialise: a new state from a serialised one; only argument 0 is read.
Datum qn_int4set_agg_deserialfn(PG_FUNCTION_ARGS) {
    using qn::pgRangeArray::SetStateError;
    auto* state = qn::pg::newDeserialisedState<Int4ToSetOpDataSet>(fcinfo, "qn_int4set_agg_deserialfn");
    if (PG_ARGISNULL(0)) PG_RETURN_POINTER(state);
    bytea* serialised = PG_GETARG_BYTEA_P(0);
    const auto* bytes = reinterpret_cast<const uint8*>(serialised);
    int32 inputType = 0, outputType = 0;
    uint64 count = 0;
    switch (qn::pgRangeArray::readSetState(bytes, VARSIZE(serialised), inputType, outputType, count)) {
        case SetStateError::None: break;
        case SetStateError::Empty:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "fromBytea", "qn_int4set_agg_deserialfn empty bytea");
        case SetStateError::RaggedRanges:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "fromBytea",
                     "qn_int4set_agg_deserialfn invalid range array size");
    }
    state->inputType = static_cast<uint32>(inputType);
    state->outputType = static_cast<uint32>(outputType);
    auto& ranges = state->set.ranges;
    if (count && ranges.resize(count))
        memcpy(ranges.data(), bytes + qn::pgRangeArray::kSetStateRangesOffset, count * sizeof(RangeInt));
    // A list from elsewhere is trusted as it is; a plain one is combined as the
    // builder would have combined its rows.
    state->set.direct = !qn::pgRangeArray::isPlainList(ranges.begin(), ranges.end());
    PG_FREE_IF_COPY(serialised, 0);
    PG_RETURN_POINTER(state);
}
