// int4set_agg_optimized: int4set_agg for sets of small non-negative integers. The
// state is one bit per value from 0 to a limit fixed by the first row
// ('maxinput'), so adding a value is one bit operation whatever the order of the
// rows; the bits are allocated as far as the values seen reach, growing
// geometrically up to the limit. Part of the range aggregators family, whose
// name its errors report.
#include "qnPgBitSetBuilder.h"
#include "quenloPgUtils.h"

using qn::pg::AggCtxHelper;
using qn::pg::Int4Elements;
using qn::pg::PollInterrupts;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgRangeAggregators";

// Row forms besides the three array layouts.
enum InputForm : uint32 { InputValue = 1, InputBounds = 2 };

// A "char" argument; a NULL one is the character 0, which no form letter is.
char charArgument(FunctionCallInfo fcinfo, int argno) { return PG_ARGISNULL(argno) ? '\0' : PG_GETARG_CHAR(argno); }

struct Int4ToSetOpDataOptimized {
    MemoryContext memoryContext;
    uint32 inputType;   // the form of the rows, fixed by the first row; 0 = none yet
    uint32 outputType;  // the array layout of the result
    uint32 limit;          // the bytes values may use, up to the byte of the first row's 'maxinput'
    qn::pg::PgBitBuffer bits;  // the bytes the values seen so far reach; those past them are zero

    // Adds one row: (value | lower, upper | input form, array), maxinput, output form.
    void addRange(FunctionCallInfo fcinfo, bool isB);
    // Takes the forms and a copy of the bits of another state.
    void copyFrom(const Int4ToSetOpDataOptimized& other);
    // Adds the members of another state (the "addOtherCtx" step of combining).
    void merge(const Int4ToSetOpDataOptimized& other);
    // Some bit is set: the state saw a member, not only rows without one.
    bool hasMembers() const;
};

void Int4ToSetOpDataOptimized::addRange(FunctionCallInfo fcinfo, bool isB) {
    using namespace qn::bitfield;
    const char* function = "addRange";
    const int maxinputArg = PG_NARGS() == 4 ? 2 : 3;
    if (inputType == 0) {
        // Argument 2 is tested whatever the form: in the five-argument forms a NULL
        // upper bound or array on the first row cannot fix the state either.
        const int32 m = PG_ARGISNULL(maxinputArg) ? 0 : PG_GETARG_INT32(maxinputArg);
        if (m < 1 || PG_ARGISNULL(2))
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "int4set_agg_optimized invalid 'maxinput' value ");
        const uint32 in = isB ? qn::pgRangeArray::ArrayDataTypeFromChar(charArgument(fcinfo, 1))
                              : (PG_NARGS() == 4 ? InputValue : InputBounds);
        const uint32 out = qn::pgRangeArray::ArrayDataTypeFromChar(charArgument(fcinfo, maxinputArg + 1));
        bits.fill = 0;
        limit = bitSetSizes(m).size;
        inputType = in;
        outputType = out;
    }

    const int32 last = bitSetLast(limit);
    switch (inputType) {
        case InputValue: {
            if (PG_ARGISNULL(1)) return;
            const int32 v = PG_GETARG_INT32(1);
            qn::pgRangeArray::Poller<PollInterrupts> tick({});
            if (!addBitSetValue(bits, limit, v, tick))
                QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function,
                         "int4set_agg_optimized value %i is out of range [0;%i]", v, last);
            return;
        }
        case InputBounds:
            if (PG_ARGISNULL(1) || PG_ARGISNULL(2)) return;
            if (addBitSetBounds(bits, limit, PG_GETARG_INT32(1), PG_GETARG_INT32(2), PollInterrupts{}) !=
                BitSetAddError::None)
                QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function,
                         "int4set_agg_optimized value is out of range [0;%i]", last);
            return;
        case ArrayDataTypeSet:
        case ArrayDataTypeRangeArray:
        case ArrayDataTypeMixArray: {
            if (PG_ARGISNULL(2)) return;
            ArrayType* array = PG_GETARG_ARRAYTYPE_P(2);
            const Int4Elements e = qn::pg::readInt4Elements(array);
            const BitSetAddError error = addBitSetArray(bits, limit, inputType, e.data, e.count, PollInterrupts{});
            PG_FREE_IF_COPY(array, 2);
            switch (error) {
                case BitSetAddError::None:
                case BitSetAddError::BoundsOutside: return;
                case BitSetAddError::ScalarOutside:
                    QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function,
                             "int4set_agg_optimized input scalar is out of range [0;%i]", last);
                case BitSetAddError::OddRangeArray:
                case BitSetAddError::MixRangeWithoutUpper:
                    QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function,
                             "int4set_agg_optimized input is not a range array");
            }
            return;
        }
        default:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "qn_int4set_agg_optimized_transfn not implemented");
    }
}

void Int4ToSetOpDataOptimized::copyFrom(const Int4ToSetOpDataOptimized& other) {
    inputType = other.inputType;
    outputType = other.outputType;
    limit = other.limit;
    bits.fill = other.bits.fill;
    bits.size = 0;
    if (other.bits.capacity) bits.reserve(other.bits.capacity);
    if (other.bits.size) memcpy(bits.data, other.bits.data, other.bits.size);
    bits.size = other.bits.size;
}

// A state without members adds nothing and lends its forms only to a state that
// has none; otherwise the forms must agree and the bits are OR-ed together.
void Int4ToSetOpDataOptimized::merge(const Int4ToSetOpDataOptimized& other) {
    if (inputType == 0 || (!hasMembers() && other.hasMembers())) {
        copyFrom(other);
        return;
    }
    if (!other.hasMembers()) return;
    if (other.inputType != inputType || other.outputType != outputType)
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "addOtherCtx", "fail to combine Int4ToSetOpDataSet");
    if (other.bits.size > bits.size) bits.resize(other.bits.size);
    qn::bitfield::orBitBytes(bits.data, other.bits.data, other.bits.size);
    limit = Max(limit, other.limit);
}

bool Int4ToSetOpDataOptimized::hasMembers() const { return qn::bitfield::anyBitSet(bits.data, bits.size); }

Int4ToSetOpDataOptimized* optimizedStateArgument(FunctionCallInfo fcinfo, int argno) {
    return PG_ARGISNULL(argno) ? nullptr : reinterpret_cast<Int4ToSetOpDataOptimized*>(PG_GETARG_POINTER(argno));
}

// Transition shared by both entry points, in the state's own context.
Datum qn_int4set_agg_optimized_transfn_impl(FunctionCallInfo fcinfo, bool isB) {
    Int4ToSetOpDataOptimized* state = optimizedStateArgument(fcinfo, 0);
    AggCtxHelper<Int4ToSetOpDataOptimized> helper(state, fcinfo, "qn_int4set_agg_optimized_transfn_impl");
    state->addRange(fcinfo, isB);
    PG_RETURN_POINTER(state);
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_int4set_agg_optimized_transfn_A)
QN_FUNCTION_INFO_V1(qn_int4set_agg_optimized_transfn_B)
QN_FUNCTION_INFO_V1(qn_int4set_agg_optimized_finalfn)
QN_FUNCTION_INFO_V1(qn_int4set_agg_optimized_combinefn)
QN_FUNCTION_INFO_V1(qn_int4set_agg_optimized_serialfn)
QN_FUNCTION_INFO_V1(qn_int4set_agg_optimized_deserialfn)

// Transition for value rows (state, v, maxinput, out) and bound rows
// (state, lower, upper, maxinput, out).
Datum qn_int4set_agg_optimized_transfn_A(PG_FUNCTION_ARGS) {
    return qn_int4set_agg_optimized_transfn_impl(fcinfo, false);
}

// Transition for array rows (state, input form, array, maxinput, out).
Datum qn_int4set_agg_optimized_transfn_B(PG_FUNCTION_ARGS) {
    return qn_int4set_agg_optimized_transfn_impl(fcinfo, true);
}

// Final: the set in the first row's output layout, counted in 64 bits before the
// array is allocated. The state is only read. No state gives the empty array.
Datum qn_int4set_agg_optimized_finalfn(PG_FUNCTION_ARGS) {
    using namespace qn::pgRangeArray;
    const char* function = "qn_int4set_agg_optimized_finalfn";
    const Int4ToSetOpDataOptimized* state = optimizedStateArgument(fcinfo, 0);
    if (!state) PG_RETURN_ARRAYTYPE_P(qn::pg::allocateResultArray(0));
    const uint32 form = state->outputType;
    if (form != ArrayDataTypeSet && form != ArrayDataTypeRangeArray && form != ArrayDataTypeMixArray)
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "qn_int4set_agg_optimized_finalfn not implemented");
    const auto& bits = state->bits;
    PG_RETURN_ARRAYTYPE_P(qn::pg::writeInt4Result(
        qn::bitfield::countBitSetElements(bits.data, bits.size, form, PollInterrupts{}), function,
        [&](int32* out) { qn::bitfield::writeBitSetElements(bits.data, bits.size, form, out, PollInterrupts{}); }));
}

// Combine: the bits of both arguments (either may be NULL), merged into the
// first in place (see combineInPlace) by the rules of merge(); the second is
// only read.
Datum qn_int4set_agg_optimized_combinefn(PG_FUNCTION_ARGS) {
    return qn::pg::combineInPlace<Int4ToSetOpDataOptimized>(
        fcinfo, "qn_int4set_agg_optimized_combinefn",
        [](Int4ToSetOpDataOptimized* state, Int4ToSetOpDataOptimized* other, bool) {
            if (other) state->merge(*other);
        });
}

// Serialise: the forms, the capacity and the bytes in use (NULL for no state).
Datum qn_int4set_agg_optimized_serialfn(PG_FUNCTION_ARGS) {
    const Int4ToSetOpDataOptimized* state = optimizedStateArgument(fcinfo, 0);
    if (!state) PG_RETURN_NULL();
    const bool fixed = state->inputType != 0;
    const uint32 size = fixed ? state->bits.size : 0;
    bytea* result = qn::pg::allocateBytea(qn::bitfield::kBitSetStateBitsOffset - VARHDRSZ + uint64{size});
    qn::bitfield::writeBitSetState(reinterpret_cast<uint8*>(result), state->inputType, state->outputType,
                                   fixed ? state->bits.capacity : 0, state->bits.data, size);
    PG_RETURN_BYTEA_P(result);
}

// Deserialise: a new state from a serialised one; only argument 0 is read.
Datum qn_int4set_agg_optimized_deserialfn(PG_FUNCTION_ARGS) {
    using qn::bitfield::BitSetStateError;
    auto* state =
        qn::pg::newDeserialisedState<Int4ToSetOpDataOptimized>(fcinfo, "qn_int4set_agg_optimized_deserialfn");
    if (PG_ARGISNULL(0)) PG_RETURN_POINTER(state);
    bytea* serialised = PG_GETARG_BYTEA_P(0);
    const auto* bytes = reinterpret_cast<const uint8*>(serialised);
    int32 inputType = 0, outputType = 0;
    uint32 capacity = 0, size = 0;
    switch (qn::bitfield::readBitSetState(bytes, VARSIZE(serialised), inputType, outputType, capacity, size)) {
        case BitSetStateError::None: break;
        case BitSetStateError::Empty:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "fromBytea", "qn_int4set_agg_optimized_deserialfn empty bytea");
        case BitSetStateError::Corrupted:
            QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, "fromBytea", "qn_int4set_agg_optimized_deserialfn corrupted");
    }
    state->inputType = static_cast<uint32>(inputType);
    state->outputType = static_cast<uint32>(outputType);
    state->limit = size;
    if (capacity) {
        state->bits.reserve(capacity);
        if (size) memcpy(state->bits.data, bytes + qn::bitfield::kBitSetStateBitsOffset, size);
        state->bits.size = size;
    }
    PG_FREE_IF_COPY(serialised, 0);
    PG_RETURN_POINTER(state);
}
