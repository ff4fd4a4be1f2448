// agg_keep_single: the one value of a column that is expected to hold a single
// value per group, returned with the column's own type. With the policy on, every
// row must carry the same value (NULL-ness included); with it off the first row's
// value is kept and later rows are not looked at.
#include "qnPgKeepSingleState.h"
#include "quenloPgUtils.h"

using qn::pg::AggCtxHelper;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgAggKeepSingle";

struct AggKeepSingleContext {
    MemoryContext memoryContext;
    bool isNull;   // no value kept: the first row was NULL, or no row yet
    bool policy;   // every row must match the kept value
    Datum value;   // by-value types: the value; bytea and text: a detoasted copy in the state's context
    Oid typeOid;   // the type of the values; 0 = no row yet
};

enum class KeptAs { Unsupported, ByValue, Varlena };

KeptAs keptAs(Oid type) {
    switch (type) {
        case BOOLOID:
        case INT8OID:
        case INT2OID:
        case INT4OID:
        case FLOAT4OID:
        case FLOAT8OID: return KeptAs::ByValue;
        case BYTEAOID:
        case TEXTOID: return KeptAs::Varlena;
        default: return KeptAs::Unsupported;
    }
}

// A row, or a state being merged, as the rules see it.
struct KeepSingleInput {
    Oid typeOid;
    bool policy;
    bool isNull;
    Datum value;  // not read when isNull
};

AggKeepSingleContext* keepSingleStateArgument(FunctionCallInfo fcinfo, int argno) {
    return PG_ARGISNULL(argno) ? nullptr : reinterpret_cast<AggKeepSingleContext*>(PG_GETARG_POINTER(argno));
}

// The row's value equals the kept one (the state holds a value). By-value types
// compare as 64-bit words, a NULL row as the word 0; bytea and text compare their
// bytes, and a NULL row never matches them.
bool sameValue(const AggKeepSingleContext* state, const KeepSingleInput& in) {
    switch (keptAs(state->typeOid)) {
        case KeptAs::ByValue: return (in.isNull ? Datum{0} : in.value) == state->value;
        case KeptAs::Varlena: {
            if (in.isNull) return false;
            auto* raw = reinterpret_cast<varlena*>(DatumGetPointer(in.value));
            const varlena* row = pg_detoast_datum(raw);
            const auto* kept = reinterpret_cast<const varlena*>(DatumGetPointer(state->value));
            const bool same = VARSIZE(row) == VARSIZE(kept) &&
                              memcmp(VARDATA(row), VARDATA(kept), VARSIZE(kept) - VARHDRSZ) == 0;
            if (row != raw) pfree(const_cast<varlena*>(row));
            return same;
        }
        case KeptAs::Unsupported: break;
    }
    QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "addValue", "agg_keep_singleunsuported type");
}

// Applies one row (or a state being merged) to the state, in the state's context.
// The first one fixes the type, the policy and the value; later ones must keep
// type and policy, and under the policy their value.
void addValue(AggKeepSingleContext* state, const KeepSingleInput& in) {
    const char* function = "addValue";
    if (state->typeOid == 0) {
        state->typeOid = in.typeOid;
        state->isNull = in.isNull;
        state->policy = in.policy;
        if (in.isNull) return;
        switch (keptAs(in.typeOid)) {
            case KeptAs::ByValue: state->value = in.value; return;
            case KeptAs::Varlena:
                state->value = PointerGetDatum(pg_detoast_datum_copy(reinterpret_cast<varlena*>(DatumGetPointer(in.value))));
                return;
            case KeptAs::Unsupported: break;
        }
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "agg_keep_single unsuported type");
    }
    if (in.typeOid != state->typeOid || in.policy != state->policy)
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "agg_keep_single type or policy changed");
    if (!state->policy) return;
    if (state->isNull ? !in.isNull : !sameValue(state, in))
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "agg_keep_single value missmatch");
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_agg_keep_single_transfn)
QN_FUNCTION_INFO_V1(qn_agg_keep_single_finalfn)
QN_FUNCTION_INFO_V1(qn_agg_keep_single_combinefn)
QN_FUNCTION_INFO_V1(qn_agg_keep_single_serialfn)
QN_FUNCTION_INFO_V1(qn_agg_keep_single_deserialfn)

// Transition: (state, value) with the policy on, or (state, value, policy). The
// value's type comes from the call expression.
Datum qn_agg_keep_single_transfn(PG_FUNCTION_ARGS) {
    AggKeepSingleContext* state = keepSingleStateArgument(fcinfo, 0);
    AggCtxHelper<AggKeepSingleContext> helper(state, fcinfo, "qn_agg_keep_single_transfn");
    if (helper.created) state->isNull = true;
    KeepSingleInput in;
    in.typeOid = get_fn_expr_argtype(fcinfo->flinfo, 1);
    in.policy = PG_NARGS() == 2 || (!PG_ARGISNULL(2) && PG_GETARG_DATUM(2) != 0);
    in.isNull = PG_ARGISNULL(1);
    in.value = in.isNull ? Datum{0} : PG_GETARG_DATUM(1);
    addValue(state, in);
    PG_RETURN_POINTER(state);
}

// Final: the kept value, copied into the caller's context, or NULL. The state
// is only read.
Datum qn_agg_keep_single_finalfn(PG_FUNCTION_ARGS) {
    const AggKeepSingleContext* state = keepSingleStateArgument(fcinfo, 0);
    if (!state || state->isNull) PG_RETURN_NULL();
    switch (keptAs(state->typeOid)) {
        case KeptAs::ByValue: PG_RETURN_DATUM(state->value);
        case KeptAs::Varlena:
            PG_RETURN_POINTER(pg_detoast_datum_copy(reinterpret_cast<varlena*>(DatumGetPointer(state->value))));
        case KeptAs::Unsupported: break;
    }
    QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "qn_agg_keep_single_finalfn", "agg_keep_singleunsuported type");
}

// Combine: the second argument merged into the first by the transition's rules,
// in place (see combineInPlace); either may be NULL, the second is only read.
Datum qn_agg_keep_single_combinefn(PG_FUNCTION_ARGS) {
    return qn::pg::combineInPlace<AggKeepSingleContext>(
        fcinfo, "qn_agg_keep_single_combinefn", [](AggKeepSingleContext* state, AggKeepSingleContext* other, bool created) {
            if (created) state->isNull = true;
            if (other) addValue(state, {other->typeOid, other->policy, other->isNull, other->value});
        });
}

// Serialise: NULL for no state; the policy is not carried.
Datum qn_agg_keep_single_serialfn(PG_FUNCTION_ARGS) {
    using namespace qn::keepsingle;
    const AggKeepSingleContext* state = keepSingleStateArgument(fcinfo, 0);
    if (!state) PG_RETURN_NULL();
    bytea* result;
    if (keptAsVarlena(state->typeOid)) {
        // A state without a value has nothing to detoast and carries no bytes.
        const varlena* value =
            state->isNull ? nullptr : pg_detoast_datum(reinterpret_cast<varlena*>(DatumGetPointer(state->value)));
        const uint32 bytes = value ? VARSIZE(value) - VARHDRSZ : 0;
        result = qn::pg::allocateBytea(kValueOffset - VARHDRSZ + uint64{bytes});
        if (bytes) memcpy(reinterpret_cast<uint8*>(result) + kValueOffset, VARDATA(value), bytes);
    } else {
        result = qn::pg::allocateBytea(kByValueBytes - VARHDRSZ);
        const uint64 word = state->value;
        memcpy(reinterpret_cast<uint8*>(result) + kValueOffset, &word, sizeof word);
    }
    writeKeepSingleHeader(reinterpret_cast<uint8*>(result), state->isNull, state->typeOid);
    PG_RETURN_BYTEA_P(result);
}

// Deserialise: a new state, policy off, from a serialised one; only argument 0 is read.
Datum qn_agg_keep_single_deserialfn(PG_FUNCTION_ARGS) {
    using namespace qn::keepsingle;
    auto* state = qn::pg::newDeserialisedState<AggKeepSingleContext>(fcinfo, "qn_agg_keep_single_deserialfn");
    state->isNull = true;
    if (PG_ARGISNULL(0)) PG_RETURN_POINTER(state);
    bytea* serialised = PG_GETARG_BYTEA_P(0);
    KeepSingleStateView view;
    switch (readKeepSingleState(reinterpret_cast<const uint8*>(serialised), VARSIZE(serialised), view)) {
        case KeepSingleStateError::None: break;
        case KeepSingleStateError::Empty:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "fromBytea", "qn_agg_keep_single_deserialfn empty bytea");
        case KeepSingleStateError::BadSize:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "fromBytea", "qn_agg_keep_single_deserialfn unexpected bytea size");
        case KeepSingleStateError::UnknownKind:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "fromBytea",
                     "qn_agg_keep_single_deserialfn not implemented bytea");
    }
    state->isNull = view.isNull;
    state->typeOid = view.typeOid;
    if (!view.data) {
        state->value = static_cast<Datum>(view.word);
    } else if (!view.isNull) {
        auto* value = static_cast<varlena*>(palloc(VARHDRSZ + static_cast<Size>(view.dataBytes)));
        SET_VARSIZE(value, VARHDRSZ + view.dataBytes);
        memcpy(VARDATA(value), view.data, view.dataBytes);
        state->value = PointerGetDatum(value);
    }
    PG_FREE_IF_COPY(serialised, 0);
    PG_RETURN_POINTER(state);
}
