// The int4set aggregates: int4set_build_agg (the set of an int4 column),
// int4set_union_agg and int4set_intersect_agg (of an int4set column). One
// state for the three, the accumulator of qnPgInt4SetAgg.h, in the aggregate
// context; its partial form between processes is the set's own payload after a
// flags byte. Final functions only read the state.
#include "qnPgInt4SetAgg.h"
#include "quenloPgInt4SetDatum.h"

namespace set = qn::int4set;
using qn::pg::AggCtxHelper;
using qn::pg::checkSet;
using qn::pg::PollInterrupts;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgInt4SetAgg";

void* allocateAggBytes(size_t bytes) { return MemoryContextAllocHuge(CurrentMemoryContext, bytes ? bytes : 1); }

using Accumulator = set::Accumulator<allocateAggBytes, pfree, PollInterrupts>;

struct SetAggState {
    MemoryContext memoryContext;
    Accumulator acc;
};

// The serialised state: a flags byte, then (when a row was seen) the payload.
constexpr uint8_t kSeen = 1, kIntersect = 2;

SetAggState* stateArgument(FunctionCallInfo fcinfo) {
    return PG_ARGISNULL(0) ? nullptr : reinterpret_cast<SetAggState*>(PG_GETARG_POINTER(0));
}

// Transition of the aggregates: a NULL row adds nothing; `add` puts a row into
// the state, which the first row makes, in the aggregate's context.
template <typename Add>
Datum addRow(FunctionCallInfo fcinfo, set::AggOp op, const char* function, Add add) {
    SetAggState* state = stateArgument(fcinfo);
    if (PG_ARGISNULL(1)) {
        qn::pg::aggregateContextOf(fcinfo, function);
        if (!state) PG_RETURN_NULL();
        PG_RETURN_POINTER(state);
    }
    AggCtxHelper<SetAggState> helper(state, fcinfo, function);
    if (helper.created) state->acc.init(op);
    checkSet(add(state->acc), function);
    PG_RETURN_POINTER(state);
}

// Transition of the set aggregates: the row's set, detoasted in the caller's
// per-row context (the accumulator copies what it keeps), so that a stored
// set's copy does not stay in the aggregate's context until the group ends.
Datum addSetRow(FunctionCallInfo fcinfo, set::AggOp op, const char* function) {
    const qn::pg::SetPayload row = PG_ARGISNULL(1) ? qn::pg::SetPayload{} : qn::pg::setPayload(PG_GETARG_DATUM(1));
    return addRow(fcinfo, op, function,
                  [&](Accumulator& acc) { return acc.addSet(row.data, row.size, PollInterrupts{}); });
}

// The result so far with `room` bytes before the payload.
set::Encoded resultOf(const SetAggState* state, size_t room, const char* function) {
    set::Encoded e;
    checkSet(state->acc.result(room, e, PollInterrupts{}), function);
    if (e.size > MaxAllocSize - room) QN_ERROR(ERRCODE_PROGRAM_LIMIT_EXCEEDED, function, "int4set too large");
    return e;
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_int4set_build_transfn)
QN_FUNCTION_INFO_V1(qn_int4set_union_transfn)
QN_FUNCTION_INFO_V1(qn_int4set_intersect_transfn)
QN_FUNCTION_INFO_V1(qn_int4set_aggregate_finalfn)
QN_FUNCTION_INFO_V1(qn_int4set_aggregate_combinefn)
QN_FUNCTION_INFO_V1(qn_int4set_aggregate_serialfn)
QN_FUNCTION_INFO_V1(qn_int4set_aggregate_deserialfn)

// int4set_build_agg: a NULL value adds nothing.
Datum qn_int4set_build_transfn(PG_FUNCTION_ARGS) {
    return addRow(fcinfo, set::AggOp::Union, "qn_int4set_build_transfn",
                  [&](Accumulator& acc) { return acc.addValue(PG_GETARG_INT32(1), PollInterrupts{}); });
}

Datum qn_int4set_union_transfn(PG_FUNCTION_ARGS) {
    return addSetRow(fcinfo, set::AggOp::Union, "qn_int4set_union_transfn");
}

Datum qn_int4set_intersect_transfn(PG_FUNCTION_ARGS) {
    return addSetRow(fcinfo, set::AggOp::Intersect, "qn_int4set_intersect_transfn");
}

// The set; NULL when no row was taken. The state is only read.
Datum qn_int4set_aggregate_finalfn(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4set_aggregate_finalfn";
    qn::pg::aggregateContextOf(fcinfo, function);
    const SetAggState* state = stateArgument(fcinfo);
    if (!state || !state->acc.seen()) PG_RETURN_NULL();
    const set::Encoded e = resultOf(state, VARHDRSZ, function);
    SET_VARSIZE(e.buffer, VARHDRSZ + e.size);
    PG_RETURN_POINTER(e.buffer);
}

// Merges the second state into the first, which it returns.
Datum qn_int4set_aggregate_combinefn(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4set_aggregate_combinefn";
    return qn::pg::combineInPlace<SetAggState>(fcinfo, function, [&](SetAggState* state, const SetAggState* second,
                                                                     bool created) {
        if (created) state->acc.init(second ? second->acc.op() : set::AggOp::Union);
        if (second) checkSet(state->acc.addAll(second->acc, PollInterrupts{}), function);
    });
}

Datum qn_int4set_aggregate_serialfn(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4set_aggregate_serialfn";
    qn::pg::aggregateContextOf(fcinfo, function);
    const SetAggState* state = stateArgument(fcinfo);
    const uint8_t flags = (state->acc.op() == set::AggOp::Intersect ? kIntersect : 0) | (state->acc.seen() ? kSeen : 0);
    set::Encoded e;
    if (flags & kSeen) {
        e = resultOf(state, VARHDRSZ + 1, function);
    } else {
        e.buffer = static_cast<uint8_t*>(palloc(VARHDRSZ + 1));
        e.payload = e.buffer + VARHDRSZ + 1;
    }
    e.buffer[VARHDRSZ] = flags;
    SET_VARSIZE(e.buffer, VARHDRSZ + 1 + e.size);
    PG_RETURN_BYTEA_P(reinterpret_cast<bytea*>(e.buffer));
}

// A state from its serialised form. The bytes are a serialise function's
// (only the executor holds the internal argument), so the set is not validated
// again, and the state borrows it: the combine function reads it while the
// serialised value lives, and copies what it keeps. Its readers stay within
// its bytes whatever they hold.
Datum qn_int4set_aggregate_deserialfn(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4set_aggregate_deserialfn";
    auto* state = qn::pg::newDeserialisedState<SetAggState>(fcinfo, function);
    const bytea* serialised = PG_GETARG_BYTEA_PP(0);
    const auto* bytes = reinterpret_cast<const uint8_t*>(VARDATA_ANY(serialised));
    const size_t size = VARSIZE_ANY_EXHDR(serialised);
    if (size == 0 || (bytes[0] & ~(kSeen | kIntersect)) || ((bytes[0] & kSeen) == 0) != (size == 1))
        QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, function, "invalid int4set aggregate state");
    state->acc.init(bytes[0] & kIntersect ? set::AggOp::Intersect : set::AggOp::Union);
    if (bytes[0] & kSeen) state->acc.borrowSet(bytes + 1, size - 1);
    PG_RETURN_POINTER(state);
}
