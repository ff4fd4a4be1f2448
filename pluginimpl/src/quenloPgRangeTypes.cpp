// The module's forms next to PostgreSQL's own: int4range values in and out of
// packed ranges, int4range[] (and int4multirange from PostgreSQL 14 on) in and
// out of range arrays; range arrays as rows and as members; packed ranges as
// text; and the normalisation, emptiness and equality of range arrays given in
// any shape.
//
// A closed range [lower, upper] of the module is the int4range
// '[lower,upper+1)'. An int4range cannot hold 2147483648, so a range ending at
// 2147483647 has no upper bound; both ways the int4 extremes -2147483648 and
// 2147483647 stand for an unbounded end. The module's forms come back from an
// int4range exactly; an int4range bounded at an extreme comes back unbounded,
// holding the same integers.
#include "qnPgInt4Multirange.h"
#include "qnPgPackedRangeText.h"
#include "qnPgRangeNormalise.h"
#include "quenloPgUtils.h"

// The range headers bring in the server's atomics, whose x86 code still declares
// a `register` variable, which C++17 no longer allows.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wregister"
extern "C" {
#include "access/htup_details.h"
#include "funcapi.h"
#include "utils/builtins.h"
#include "utils/rangetypes.h"
#include "utils/typcache.h"
#ifdef QN_HAVE_MULTIRANGES
#include "utils/multirangetypes.h"
#endif
}
#pragma GCC diagnostic pop

using qn::pg::Int4Elements;
using qn::pg::PollInterrupts;
using qn::pg::RangeInt;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgRangeTypes";

// A range array argument: not one-dimensional or holding NULLs reads as empty;
// an odd length is refused as by the set algebra.
Int4Elements rangeArrayArgument(FunctionCallInfo fcinfo, int argno, const char* function) {
    const Int4Elements e = qn::pg::readInt4Elements(PG_GETARG_ARRAYTYPE_P(argno));
    if (e.count & 1) QN_ERROR(ERRCODE_DATATYPE_MISMATCH, function, "array length should be even");
    return e;
}

// Working buffers of ranges may pass palloc's 1 GB limit; a request the server
// cannot serve raises its own out-of-memory error.
void* allocateHuge(size_t bytes) { return MemoryContextAllocHuge(CurrentMemoryContext, bytes); }

RangeInt* allocateRanges(uint64 n) {
    return static_cast<RangeInt*>(allocateHuge((n ? n : 1) * sizeof(RangeInt)));
}

// Normalises ranges[0, n) in place; returns the number of ranges left.
uint64 normaliseInPlace(RangeInt* ranges, uint64 n) {
    return static_cast<uint64>(
        qn::pgRangeArray::normaliseRanges<allocateHuge, pfree>(ranges, n, PollInterrupts{}));
}

// A range array of n ranges. More than MaxArraySize elements is refused before
// anything is allocated.
ArrayType* buildRangeArray(const RangeInt* ranges, uint64 n, const char* function) {
    if (n > MaxArraySize / 2) QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "array overflow ");
    return qn::pg::buildInt4Result(reinterpret_cast<const int32*>(ranges), n * 2, function);
}

// A copy of a range array argument's ranges, normalised; n receives their number.
RangeInt* normalisedCopy(const Int4Elements& e, uint64& n) {
    n = static_cast<uint64>(e.count / 2);
    RangeInt* ranges = allocateRanges(n);
    if (n) memcpy(ranges, e.rangesBegin(), n * sizeof(RangeInt));
    n = normaliseInPlace(ranges, n);
    return ranges;
}

TypeCacheEntry* int4RangeTypeCache() { return lookup_type_cache(INT4RANGEOID, TYPECACHE_RANGE_INFO); }

// The closed range of a non-empty int4range's bounds; an unbounded end is the
// int4 extreme.
RangeInt closedRange(const RangeBound& lower, const RangeBound& upper) {
    const int64 lo = lower.infinite ? PG_INT32_MIN : int64{DatumGetInt32(lower.val)} + (lower.inclusive ? 0 : 1);
    const int64 hi = upper.infinite ? PG_INT32_MAX : int64{DatumGetInt32(upper.val)} - (upper.inclusive ? 0 : 1);
    return {static_cast<int32>(lo), static_cast<int32>(hi)};
}

// The int4range of [lower, upper], canonical as the server makes it; lower >
// upper gives the empty range.
RangeType* int4Range(TypeCacheEntry* typcache, int32 lower, int32 upper) {
    RangeBound lo, hi;
    lo.val = Int32GetDatum(lower);
    lo.infinite = lower == PG_INT32_MIN;
    lo.inclusive = !lo.infinite;
    lo.lower = true;
    hi.infinite = upper == PG_INT32_MAX;
    hi.val = Int32GetDatum(hi.infinite ? 0 : upper + 1);
    hi.inclusive = false;
    hi.lower = false;
    return QN_RANGE_SERIALIZE(typcache, &lo, &hi, lower > upper);
}

// Cursor of the row functions over a range array argument, kept across calls.
struct RowsState {
    const RangeInt* ranges;
    qn::pgRangeArray::MemberCursor members;
};

// First call of a row function: reads the argument (detoasted into the
// multi-call context, so it lives as long as the cursor) and sets up the cursor.
RowsState* startRows(FunctionCallInfo fcinfo, FuncCallContext* funcctx, const char* function) {
    MemoryContext caller = MemoryContextSwitchTo(funcctx->multi_call_memory_ctx);
    const Int4Elements e = rangeArrayArgument(fcinfo, 0, function);
    auto* state = static_cast<RowsState*>(palloc(sizeof(RowsState)));
    state->ranges = e.rangesBegin();
    state->members = qn::pgRangeArray::MemberCursor(e.rangesBegin(), e.rangesEnd());
    funcctx->max_calls = static_cast<uint64>(e.count / 2);
    funcctx->user_fctx = state;
    MemoryContextSwitchTo(caller);
    return state;
}

}  // namespace

namespace qn::pg {

bool int4RangeArgument(FunctionCallInfo fcinfo, int argno, RangeInt& out) {
    return int4RangeValue(PG_GETARG_DATUM(argno), out);
}

bool int4RangeValue(Datum value, RangeInt& out) {
    const RangeType* range = DatumGetRangeTypeP(value);
    RangeBound lower, upper;
    bool empty = false;
    range_deserialize(int4RangeTypeCache(), range, &lower, &upper, &empty);
    if (!empty) out = closedRange(lower, upper);
    return !empty;
}

Datum int4RangeDatum(int32 lower, int32 upper) { PG_RETURN_RANGE_P(int4Range(int4RangeTypeCache(), lower, upper)); }

}  // namespace qn::pg

QN_FUNCTION_INFO_V1(qn_rangepacked_from_int4range)
QN_FUNCTION_INFO_V1(qn_rangepacked_to_int4range)
QN_FUNCTION_INFO_V1(qn_rangearray_from_int4ranges)
QN_FUNCTION_INFO_V1(qn_rangearray_to_int4ranges)
QN_FUNCTION_INFO_V1(qn_rangearray_unnest)
QN_FUNCTION_INFO_V1(qn_rangearray_members)
QN_FUNCTION_INFO_V1(qn_rangepacked_to_text)
QN_FUNCTION_INFO_V1(qn_rangepacked_from_text)
QN_FUNCTION_INFO_V1(qn_rangearray_normalise)
QN_FUNCTION_INFO_V1(qn_rangearray_count)
QN_FUNCTION_INFO_V1(qn_rangearray_is_normalised)
QN_FUNCTION_INFO_V1(qn_rangearray_is_empty)
QN_FUNCTION_INFO_V1(qn_rangearray_equal)

// The packed range of a non-empty int4range; an empty one has none.
Datum qn_rangepacked_from_int4range(PG_FUNCTION_ARGS) {
    RangeInt r;
    if (!qn::pg::int4RangeArgument(fcinfo, 0, r))
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, "qn_rangepacked_from_int4range", "an empty range cannot be packed");
    PG_RETURN_INT64(qn::pgRangeArray::packRange(r.lower, r.upper));
}

// The int4range of a packed range; upper < lower is refused as qn_range_pack does.
Datum qn_rangepacked_to_int4range(PG_FUNCTION_ARGS) {
    const int64 packed = PG_GETARG_INT64(0);
    const int32 lower = qn::pgRangeArray::packedLower(packed);
    const int32 upper = qn::pgRangeArray::packedUpper(packed);
    if (upper < lower) QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, "qn_rangepacked_to_int4range", "invalid range");
    return qn::pg::int4RangeDatum(lower, upper);
}

// The normalised range array of the int4ranges of an array of any shape: NULL
// elements and empty ranges add nothing; the rest are sorted and merged.
Datum qn_rangearray_from_int4ranges(PG_FUNCTION_ARGS) {
    const char* function = "qn_rangearray_from_int4ranges";
    ArrayType* ranges = PG_GETARG_ARRAYTYPE_P(0);
    TypeCacheEntry* typcache = int4RangeTypeCache();
    RangeInt* closed = allocateRanges(static_cast<uint64>(ArrayGetNItems(ARR_NDIM(ranges), ARR_DIMS(ranges))));
    uint64 n = 0;
    ArrayIterator it = array_create_iterator(ranges, 0, nullptr);
    Datum value;
    bool isNull = false;
    for (uint64 seen = 1; array_iterate(it, &value, &isNull); ++seen) {
        if ((seen & 0xffff) == 0) CHECK_FOR_INTERRUPTS();
        if (isNull) continue;
        const RangeType* range = DatumGetRangeTypeP(value);
        RangeBound lower, upper;
        bool empty = false;
        range_deserialize(typcache, range, &lower, &upper, &empty);
        if (!empty) closed[n++] = closedRange(lower, upper);
        if (reinterpret_cast<Pointer>(const_cast<RangeType*>(range)) != DatumGetPointer(value))
            pfree(const_cast<RangeType*>(range));
    }
    array_free_iterator(it);
    n = normaliseInPlace(closed, n);
    PG_RETURN_ARRAYTYPE_P(buildRangeArray(closed, n, function));
}

// The bytes of the int4range of [lower, upper] as range_serialize makes it: the
// header (length word, type OID), a value per bounded end of a non-empty range,
// and the flags byte.
Size int4RangeBytes(const RangeInt& r) {
    const Size bounds = r.lower > r.upper ? 0 : (r.lower != PG_INT32_MIN ? 4 : 0) + (r.upper != PG_INT32_MAX ? 4 : 0);
    return sizeof(RangeType) + bounds + 1;
}

// One int4range per pair of a range array, in pair order, neither sorted nor
// merged; a pair with lower > upper is the empty range. The empty range array
// gives PostgreSQL's empty array. The result is sized first and each range is
// serialised straight into it (through a small context, reset as it goes), as
// construct_array would lay it out: no array of datums, no range kept apart.
Datum qn_rangearray_to_int4ranges(PG_FUNCTION_ARGS) {
    const char* function = "qn_rangearray_to_int4ranges";
    const Int4Elements e = rangeArrayArgument(fcinfo, 0, function);
    const uint64 n = static_cast<uint64>(e.count / 2);
    if (n == 0) PG_RETURN_ARRAYTYPE_P(construct_empty_array(INT4RANGEOID));
    TypeCacheEntry* typcache = int4RangeTypeCache();
    const char align = typcache->typalign;
    const RangeInt* const ranges = e.rangesBegin();
    Size bytes = ARR_OVERHEAD_NONULLS(1);
    for (uint64 i = 0; i < n; ++i) bytes = att_align_nominal(bytes + int4RangeBytes(ranges[i]), align);
    if (n > MaxArraySize || bytes > MaxAllocSize) QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "array overflow ");
    auto* result = static_cast<ArrayType*>(palloc(bytes));
    SET_VARSIZE(result, bytes);
    result->ndim = 1;
    result->dataoffset = 0;
    result->elemtype = INT4RANGEOID;
    ARR_DIMS(result)[0] = static_cast<int>(n);
    ARR_LBOUND(result)[0] = 1;
    char* out = ARR_DATA_PTR(result);
    MemoryContext scratch = AllocSetContextCreate(CurrentMemoryContext, "qn_rangearray_to_int4ranges", ALLOCSET_SMALL_SIZES);
    MemoryContext caller = MemoryContextSwitchTo(scratch);
    for (uint64 i = 0; i < n; ++i) {
        if ((i & 0xffff) == 0xffff) {
            MemoryContextReset(scratch);
            CHECK_FOR_INTERRUPTS();
        }
        const RangeType* range = int4Range(typcache, ranges[i].lower, ranges[i].upper);
        const Size size = VARSIZE(range);
        if (size != int4RangeBytes(ranges[i]))
            QN_ERROR(ERRCODE_INTERNAL_ERROR, function, "unexpected int4range of %zu bytes", static_cast<size_t>(size));
        const Size padded = att_align_nominal(size, align);
        memcpy(out, range, size);
        memset(out + size, 0, padded - size);
        out += padded;
    }
    MemoryContextSwitchTo(caller);
    MemoryContextDelete(scratch);
    PG_RETURN_ARRAYTYPE_P(result);
}

// The pairs of a range array as (lower, upper) rows, in pair order, one row per
// call; nothing is validated.
Datum qn_rangearray_unnest(PG_FUNCTION_ARGS) {
    if (SRF_IS_FIRSTCALL()) {
        FuncCallContext* funcctx = SRF_FIRSTCALL_INIT();
        // The row descriptor is kept for every later call: it is made in the
        // multi-call context, not in the caller's, which is reset between calls.
        MemoryContext caller = MemoryContextSwitchTo(funcctx->multi_call_memory_ctx);
        TupleDesc desc;
        if (get_call_result_type(fcinfo, nullptr, &desc) != TYPEFUNC_COMPOSITE)
            QN_ERROR(ERRCODE_FEATURE_NOT_SUPPORTED, "qn_rangearray_unnest",
                     "function returning record called in context that cannot accept type record");
        funcctx->tuple_desc = BlessTupleDesc(desc);
        MemoryContextSwitchTo(caller);
        startRows(fcinfo, funcctx, "qn_rangearray_unnest");
    }
    FuncCallContext* funcctx = SRF_PERCALL_SETUP();
    CHECK_FOR_INTERRUPTS();
    if (funcctx->call_cntr >= funcctx->max_calls) SRF_RETURN_DONE(funcctx);
    const RangeInt r = static_cast<RowsState*>(funcctx->user_fctx)->ranges[funcctx->call_cntr];
    Datum values[2] = {Int32GetDatum(r.lower), Int32GetDatum(r.upper)};
    bool nulls[2] = {false, false};
    SRF_RETURN_NEXT(funcctx, HeapTupleGetDatum(heap_form_tuple(funcctx->tuple_desc, values, nulls)));
}

// Every integer of every pair of a range array, pair by pair, one per call;
// pairs with lower > upper add nothing, overlapping pairs repeat members.
Datum qn_rangearray_members(PG_FUNCTION_ARGS) {
    if (SRF_IS_FIRSTCALL()) startRows(fcinfo, SRF_FIRSTCALL_INIT(), "qn_rangearray_members");
    FuncCallContext* funcctx = SRF_PERCALL_SETUP();
    CHECK_FOR_INTERRUPTS();
    int32 member = 0;
    if (!static_cast<RowsState*>(funcctx->user_fctx)->members.advance(member)) SRF_RETURN_DONE(funcctx);
    SRF_RETURN_NEXT(funcctx, Int32GetDatum(member));
}

// "[lower,upper]" of a packed range, bounds as stored (not validated).
Datum qn_rangepacked_to_text(PG_FUNCTION_ARGS) {
    const int64 packed = PG_GETARG_INT64(0);
    char text[qn::pgRangeArray::kPackedRangeTextMax];
    const size_t length = qn::pgRangeArray::formatPackedRange(qn::pgRangeArray::packedLower(packed),
                                                              qn::pgRangeArray::packedUpper(packed), text);
    PG_RETURN_TEXT_P(cstring_to_text_with_len(text, static_cast<int>(length)));
}

// The packed range written "[lower,upper]".
Datum qn_rangepacked_from_text(PG_FUNCTION_ARGS) {
    const char* function = "qn_rangepacked_from_text";
    const text* input = PG_GETARG_TEXT_PP(0);
    int32 lower = 0, upper = 0;
    switch (qn::pgRangeArray::parsePackedRange(VARDATA_ANY(input), VARSIZE_ANY_EXHDR(input), lower, upper)) {
        case qn::pgRangeArray::PackedRangeParse::Ok: break;
        case qn::pgRangeArray::PackedRangeParse::Syntax:
            QN_ERROR(ERRCODE_INVALID_TEXT_REPRESENTATION, function, "invalid input syntax for a packed range: \"%s\"",
                     text_to_cstring(input));
        case qn::pgRangeArray::PackedRangeParse::OutOfRange:
            QN_ERROR(ERRCODE_NUMERIC_VALUE_OUT_OF_RANGE, function, "packed range bound out of range for int4: \"%s\"",
                     text_to_cstring(input));
        case qn::pgRangeArray::PackedRangeParse::Inverted:
            QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "invalid range");
    }
    PG_RETURN_INT64(qn::pgRangeArray::packRange(lower, upper));
}

// The normalised form of any range array: sorted, inverted pairs dropped,
// overlapping and adjacent ranges merged. Linear on a normalised input.
Datum qn_rangearray_normalise(PG_FUNCTION_ARGS) {
    const char* function = "qn_rangearray_normalise";
    uint64 n = 0;
    const RangeInt* ranges = normalisedCopy(rangeArrayArgument(fcinfo, 0, function), n);
    PG_RETURN_ARRAYTYPE_P(buildRangeArray(ranges, n, function));
}

// The number of integers a range array holds, in 64 bits: at most 2^32, so it
// cannot wrap. Another than a normalised array is normalised first, so
// overlapping pairs count once and inverted pairs count nothing.
Datum qn_rangearray_count(PG_FUNCTION_ARGS) {
    const Int4Elements e = rangeArrayArgument(fcinfo, 0, "qn_rangearray_count");
    uint64 n = static_cast<uint64>(e.count / 2);
    const RangeInt* ranges = e.rangesBegin();
    if (!qn::pgRangeArray::isNormalised(ranges, ranges + n)) ranges = normalisedCopy(e, n);
    int64 members = 0;
    for (uint64 i = 0; i < n; ++i) members += int64{ranges[i].upper} - ranges[i].lower + 1;
    PG_RETURN_INT64(members);
}

// The range array is normalised: ascending, lower <= upper, ranges neither
// overlapping nor adjacent. Arrays read as empty are.
Datum qn_rangearray_is_normalised(PG_FUNCTION_ARGS) {
    const Int4Elements e = rangeArrayArgument(fcinfo, 0, "qn_rangearray_is_normalised");
    PG_RETURN_BOOL(qn::pgRangeArray::isNormalised(e.rangesBegin(), e.rangesEnd()));
}

// The range array holds no integer: both '{}' forms, arrays read as empty, and
// arrays of inverted pairs only.
Datum qn_rangearray_is_empty(PG_FUNCTION_ARGS) {
    const Int4Elements e = rangeArrayArgument(fcinfo, 0, "qn_rangearray_is_empty");
    PG_RETURN_BOOL(!qn::pgRangeArray::hasMembers(e.rangesBegin(), e.rangesEnd()));
}

// The two range arrays hold the same integers. Normalised arrays are compared
// as they are (linear); any other is normalised first.
Datum qn_rangearray_equal(PG_FUNCTION_ARGS) {
    const char* function = "qn_rangearray_equal";
    const Int4Elements a = qn::pg::readInt4Elements(PG_GETARG_ARRAYTYPE_P(0));
    const Int4Elements b = qn::pg::readInt4Elements(PG_GETARG_ARRAYTYPE_P(1));
    if ((a.count | b.count) & 1) QN_ERROR(ERRCODE_DATATYPE_MISMATCH, function, "array length should be even");
    uint64 na = static_cast<uint64>(a.count / 2), nb = static_cast<uint64>(b.count / 2);
    const RangeInt* ra = a.rangesBegin();
    const RangeInt* rb = b.rangesBegin();
    if (!qn::pgRangeArray::isNormalised(ra, ra + na)) ra = normalisedCopy(a, na);
    if (!qn::pgRangeArray::isNormalised(rb, rb + nb)) rb = normalisedCopy(b, nb);
    PG_RETURN_BOOL(na == nb && (na == 0 || memcmp(ra, rb, na * sizeof(RangeInt)) == 0));
}

#ifdef QN_HAVE_MULTIRANGES

QN_FUNCTION_INFO_V1(qn_rangearray_from_int4multirange)
QN_FUNCTION_INFO_V1(qn_rangearray_to_int4multirange)

// The range array of an int4multirange: its ranges are already sorted, disjoint
// and apart, so they are written as they come.
Datum qn_rangearray_from_int4multirange(PG_FUNCTION_ARGS) {
    uint64 n = 0;
    const RangeInt* ranges = qn::pg::int4MultirangeRanges(fcinfo, 0, n);
    PG_RETURN_ARRAYTYPE_P(buildRangeArray(ranges, n, "qn_rangearray_from_int4multirange"));
}

static_assert(qn::pgRangeArray::kMultirangeLowerInclusive == RANGE_LB_INC &&
                  qn::pgRangeArray::kMultirangeLowerInfinite == RANGE_LB_INF &&
                  qn::pgRangeArray::kMultirangeUpperInfinite == RANGE_UB_INF,
              "the stored range flags are the server's");
static_assert(sizeof(MultirangeType) == qn::pgRangeArray::kMultirangeHeaderBytes, "the stored multirange header");

// The int4multirange of a range array of any order; inverted pairs add nothing.
// Written straight in the stored layout: a normalised argument is read in place
// and nothing but the result is allocated; another is normalised into one copy
// first. Cancellable while it writes.
Datum qn_rangearray_to_int4multirange(PG_FUNCTION_ARGS) {
    const char* function = "qn_rangearray_to_int4multirange";
    const Int4Elements e = rangeArrayArgument(fcinfo, 0, function);
    uint64 n = static_cast<uint64>(e.count / 2);
    const RangeInt* ranges = e.rangesBegin();
    if (!qn::pgRangeArray::isNormalised(ranges, ranges + n)) ranges = normalisedCopy(e, n);
    return qn::pg::int4MultirangeDatum(ranges, ranges + n, function);
}

namespace qn::pg {

RangeInt* int4MultirangeRanges(FunctionCallInfo fcinfo, int argno, uint64& n) {
    const MultirangeType* multirange = PG_GETARG_MULTIRANGE_P(argno);
    TypeCacheEntry* rangeType = lookup_type_cache(INT4MULTIRANGEOID, TYPECACHE_MULTIRANGE_INFO)->rngtype;
    n = multirange->rangeCount;
    RangeInt* out = allocateRanges(n);
    for (uint32 i = 0; i < n; ++i) {
        if ((i & 0xffff) == 0xffff) CHECK_FOR_INTERRUPTS();
        RangeBound lower, upper;
        multirange_get_bounds(rangeType, multirange, i, &lower, &upper);
        out[i] = closedRange(lower, upper);
    }
    return out;
}

Datum int4MultirangeDatum(const RangeInt* first, const RangeInt* last, const char* function) {
    const uint64 size = qn::pgRangeArray::int4MultirangeSize(first, last);
    if (size > MaxAllocSize) QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "array overflow ");
    auto* result = static_cast<MultirangeType*>(palloc(size));
    SET_VARSIZE(result, size);
    qn::pgRangeArray::writeInt4Multirange(reinterpret_cast<uint8*>(result), INT4MULTIRANGEOID, first, last,
                                          PollInterrupts{});
    PG_RETURN_MULTIRANGE_P(result);
}

}  // namespace qn::pg

#endif
