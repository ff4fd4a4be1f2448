// The int4set type: text and binary I/O, the set algebra and tests, the btree
// order and hash, its functions (cardinality, extremes, members and ranges as
// rows) and its casts to and from int4[] forms. Thin entry points over the
// server-free format (qnPgInt4Set.h): every argument is read where it lies (a
// short inline value in place, a toasted one expanded once per call site),
// every result is written straight into its varlena.
#include "qnPgInt4Set.h"
#include "qnPgInt4SetOps.h"
#include "qnPgInt4SetText.h"
#include "qnPgSetConversions.h"
#include "quenloPgInt4SetDatum.h"

// The tuple headers bring in the server's atomics, whose x86 code still
// declares a `register` variable, which C++17 no longer allows.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wregister"
extern "C" {
#include "access/htup_details.h"
#include "funcapi.h"
#include "libpq/pqformat.h"
#include "utils/builtins.h"
}
#pragma GCC diagnostic pop

#include <type_traits>

namespace set = qn::int4set;
using qn::pg::Int4Elements;
using qn::pg::PollInterrupts;
using qn::pg::RangeInt;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgInt4Set";

// Working memory of the kernels: scratch may pass palloc's 1 GB limit (a list
// of ranges from a large int4[]); results are checked against it before they
// become values. The server raises its own out-of-memory error.
void* allocateSetBytes(size_t bytes) { return MemoryContextAllocHuge(CurrentMemoryContext, bytes ? bytes : 1); }

using SetRanges = qn::pgRangeArray::RangeVector<int32_t, allocateSetBytes, pfree>;
using qn::pg::checkSet;
using qn::pg::raiseCorruptSet;
using qn::pg::SetPayload;
using qn::pg::setArgument;

// The varlena around a payload a writer made with VARHDRSZ bytes of room.
Datum setResult(const set::Encoded& e, const char* function) {
    if (e.size > MaxAllocSize - VARHDRSZ) QN_ERROR(ERRCODE_PROGRAM_LIMIT_EXCEEDED, function, "int4set too large");
    auto* value = reinterpret_cast<varlena*>(e.buffer);
    SET_VARSIZE(value, VARHDRSZ + e.size);
    PG_RETURN_POINTER(value);
}

Datum emptySetResult() {
    auto* value = static_cast<varlena*>(palloc(VARHDRSZ + 1));
    SET_VARSIZE(value, VARHDRSZ + 1);
    reinterpret_cast<uint8_t*>(VARDATA(value))[0] = set::kFormatChunks;
    PG_RETURN_POINTER(value);
}

// The set of normalised ranges (ascending, disjoint and apart).
Datum normalisedRangesResult(const RangeInt* first, const RangeInt* last, const char* function) {
    set::Encoded e;
    checkSet(set::encodeRanges<allocateSetBytes, pfree>(first, last, VARHDRSZ, e, PollInterrupts{}), function);
    return setResult(e, function);
}

// The set of ranges in any order, overlapping or repeated; n ranges at ranges,
// which it reorders.
Datum rangesResult(RangeInt* ranges, uint64 n, const char* function) {
    set::Encoded e;
    checkSet(set::buildFromRanges<allocateSetBytes, pfree>(ranges, n, VARHDRSZ, e, PollInterrupts{}), function);
    return setResult(e, function);
}

using Combine = set::Status (*)(const uint8_t*, size_t, const uint8_t*, size_t, size_t, set::Encoded&, PollInterrupts);

Datum combineArguments(FunctionCallInfo fcinfo, Combine combine, const char* function) {
    const SetPayload a = setArgument(fcinfo, 0), b = setArgument(fcinfo, 1);
    set::Encoded e;
    checkSet(combine(a.data, a.size, b.data, b.size, VARHDRSZ, e, PollInterrupts{}), function);
    return setResult(e, function);
}

// The three-way order of the btree operator class (by member sequence).
int compareArguments(FunctionCallInfo fcinfo) {
    const SetPayload a = setArgument(fcinfo, 0), b = setArgument(fcinfo, 1);
    int order = 0;
    checkSet(set::compare(a.data, a.size, b.data, b.size, order, PollInterrupts{}), "int4set_cmp");
    return order;
}

// a ⊇ b for two arguments in the given order.
bool setContains(FunctionCallInfo fcinfo, int outer, int inner) {
    const SetPayload a = setArgument(fcinfo, outer), b = setArgument(fcinfo, inner);
    bool result = false;
    checkSet(set::containsSet<allocateSetBytes, pfree>(a.data, a.size, b.data, b.size, result, PollInterrupts{}),
          "int4set_contains");
    return result;
}

bool setHolds(FunctionCallInfo fcinfo, int setArg, int valueArg) {
    const SetPayload s = setArgument(fcinfo, setArg);
    bool result = false;
    checkSet(set::containsValue(s.data, s.size, PG_GETARG_INT32(valueArg), result), "int4set_contains_int4");
    return result;
}

// The least or greatest member, with found false for the empty set.
bool extremeOf(const SetPayload& s, bool highest, int32& out) {
    bool found = false;
    int32_t v = 0;
    checkSet(highest ? set::maxMember(s.data, s.size, found, v) : set::minMember(s.data, s.size, found, v),
          "int4set_extreme");
    out = v;
    return found;
}

// The positional tests of two sets: each compares one extreme of a with one of
// b; an empty set answers false.
enum class Position { Left, Right, NotRight, NotLeft, Adjacent };

bool positionOf(FunctionCallInfo fcinfo, Position position) {
    const SetPayload a = setArgument(fcinfo, 0), b = setArgument(fcinfo, 1);
    int32 aMin, aMax, bMin, bMax;
    if (!extremeOf(a, false, aMin) || !extremeOf(b, false, bMin)) return false;
    extremeOf(a, true, aMax);
    extremeOf(b, true, bMax);
    switch (position) {
        case Position::Left: return aMax < bMin;
        case Position::Right: return aMin > bMax;
        case Position::NotRight: return aMax <= bMax;
        case Position::NotLeft: return aMin >= bMin;
        case Position::Adjacent: return int64{aMax} + 1 == bMin || int64{bMax} + 1 == aMin;
    }
    return false;
}

// The soft-error context of an input function (PostgreSQL 16 and later): a
// malformed text is reported to it instead of raised, for pg_input_is_valid.
#if PG_VERSION_NUM >= 160000
#define QN_INPUT_ERROR(fcinfo, ...) ereturn((fcinfo)->context, (Datum)0, __VA_ARGS__)
#else
#define QN_INPUT_ERROR(fcinfo, ...) ereport(ERROR, __VA_ARGS__)
#endif

// The form letter of a conversion: 'r' or 's'.
char formArgument(FunctionCallInfo fcinfo, int argno, const char* function) {
    const char form = PG_NARGS() > argno ? PG_GETARG_CHAR(argno) : 'r';
    if (form != 'r' && form != 's')
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "int4set converts from and to forms 'r' and 's' only");
    return form;
}

// Cursor of the row functions, kept in the multi-call context with the value it reads.
struct RowsState {
    set::RangeCursor ranges;
    int64 next;  // members: the next member of the current range
    int64 last;
};
static_assert(std::is_trivially_copyable_v<RowsState>, "the cursor lives in palloc'd memory");

RowsState* startRows(FunctionCallInfo fcinfo, FuncCallContext* funcctx, const char* function) {
    MemoryContext caller = MemoryContextSwitchTo(funcctx->multi_call_memory_ctx);
    const auto* value = reinterpret_cast<const varlena*>(PG_DETOAST_DATUM_PACKED(PG_GETARG_DATUM(0)));
    auto* state = static_cast<RowsState*>(palloc(sizeof(RowsState)));
    *state = RowsState{set::RangeCursor(reinterpret_cast<const uint8_t*>(VARDATA_ANY(value)), VARSIZE_ANY_EXHDR(value)),
                       1, 0};
    checkSet(state->ranges.status(), function);
    funcctx->user_fctx = state;
    MemoryContextSwitchTo(caller);
    return state;
}

// The next range of the cursor; false at the end.
bool nextRange(RowsState* state, RangeInt& r, const char* function) {
    set::Range32 range;
    if (state->ranges.next(range)) {
        r = RangeInt{range.lower, range.upper};
        return true;
    }
    checkSet(state->ranges.status(), function);
    return false;
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_int4set_in)
QN_FUNCTION_INFO_V1(qn_int4set_out)
QN_FUNCTION_INFO_V1(qn_int4set_recv)
QN_FUNCTION_INFO_V1(qn_int4set_send)
QN_FUNCTION_INFO_V1(qn_int4set_union)
QN_FUNCTION_INFO_V1(qn_int4set_intersection)
QN_FUNCTION_INFO_V1(qn_int4set_difference)
QN_FUNCTION_INFO_V1(qn_int4set_contains)
QN_FUNCTION_INFO_V1(qn_int4set_contained)
QN_FUNCTION_INFO_V1(qn_int4set_overlaps)
QN_FUNCTION_INFO_V1(qn_int4set_contains_int4)
QN_FUNCTION_INFO_V1(qn_int4set_int4_contained)
QN_FUNCTION_INFO_V1(qn_int4set_left)
QN_FUNCTION_INFO_V1(qn_int4set_right)
QN_FUNCTION_INFO_V1(qn_int4set_not_right)
QN_FUNCTION_INFO_V1(qn_int4set_not_left)
QN_FUNCTION_INFO_V1(qn_int4set_adjacent)
QN_FUNCTION_INFO_V1(qn_int4set_eq)
QN_FUNCTION_INFO_V1(qn_int4set_ne)
QN_FUNCTION_INFO_V1(qn_int4set_lt)
QN_FUNCTION_INFO_V1(qn_int4set_le)
QN_FUNCTION_INFO_V1(qn_int4set_gt)
QN_FUNCTION_INFO_V1(qn_int4set_ge)
QN_FUNCTION_INFO_V1(qn_int4set_cmp)
QN_FUNCTION_INFO_V1(qn_int4set_hash)
QN_FUNCTION_INFO_V1(qn_int4set_hash_extended)
QN_FUNCTION_INFO_V1(qn_int4set_cardinality)
QN_FUNCTION_INFO_V1(qn_int4set_is_empty)
QN_FUNCTION_INFO_V1(qn_int4set_min)
QN_FUNCTION_INFO_V1(qn_int4set_max)
QN_FUNCTION_INFO_V1(qn_int4set_members)
QN_FUNCTION_INFO_V1(qn_int4set_ranges)
QN_FUNCTION_INFO_V1(qn_int4set_from_array)
QN_FUNCTION_INFO_V1(qn_int4set_to_array)
QN_FUNCTION_INFO_V1(qn_int4set_from_range)
QN_FUNCTION_INFO_V1(qn_int4set_to_range)
QN_FUNCTION_INFO_V1(qn_int4set_contains_range)
QN_FUNCTION_INFO_V1(qn_int4set_within_range)
QN_FUNCTION_INFO_V1(qn_int4set_overlaps_range)

#ifdef QN_HAVE_MULTIRANGES
QN_FUNCTION_INFO_V1(qn_int4set_from_multirange)
QN_FUNCTION_INFO_V1(qn_int4set_to_multirange)
#endif

// ---- input and output

// Text in: members and ranges "a..b" in any order, normalised. A malformed text
// is 22P02 (a number outside int4 22003) with the character where it goes wrong.
Datum qn_int4set_in(PG_FUNCTION_ARGS) {
    const char* text = PG_GETARG_CSTRING(0);
    const size_t length = strlen(text);
    set::Encoded e;
    const set::ParseResult parsed =
        set::parseText<allocateSetBytes, pfree>(text, length, VARHDRSZ, e, PollInterrupts{});
    switch (parsed.error) {
        case set::TextError::None: return setResult(e, "int4set_in");
        case set::TextError::OutOfMemory:
            QN_ERROR(ERRCODE_PROGRAM_LIMIT_EXCEEDED, "int4set_in", "int4set too large");
        case set::TextError::OutOfRange:
            QN_INPUT_ERROR(fcinfo, (errcode(ERRCODE_NUMERIC_VALUE_OUT_OF_RANGE),
                                    errmsg("malformed int4set literal: \"%s\"", text),
                                    errdetail("Value out of range for type integer at character %zu.",
                                              parsed.position + 1)));
            return (Datum)0;
        default: {
            const char* message = set::textErrorMessage(parsed.error);
            QN_INPUT_ERROR(fcinfo, (errcode(ERRCODE_INVALID_TEXT_REPRESENTATION),
                                    errmsg("malformed int4set literal: \"%s\"", text),
                                    errdetail("%c%s at character %zu.", pg_toupper(message[0]), message + 1,
                                              parsed.position + 1)));
            return (Datum)0;
        }
    }
}

// Text out: "{}" or maximal ranges ascending, "a..b" where a < b.
Datum qn_int4set_out(PG_FUNCTION_ARGS) {
    const SetPayload s = setArgument(fcinfo, 0);
    set::Text text;
    checkSet(set::formatText<allocateSetBytes, pfree>(s.data, s.size, text, PollInterrupts{}), "int4set_out");
    if (text.length >= MaxAllocSize)
        QN_ERROR(ERRCODE_PROGRAM_LIMIT_EXCEEDED, "int4set_out", "int4set text form too long");
    PG_RETURN_CSTRING(text.chars);
}

// Binary in: the payload as stored, every byte of it validated (22P03 otherwise).
Datum qn_int4set_recv(PG_FUNCTION_ARGS) {
    StringInfo buf = reinterpret_cast<StringInfo>(PG_GETARG_POINTER(0));
    const size_t size = static_cast<size_t>(buf->len - buf->cursor);
    const auto* data = reinterpret_cast<const uint8_t*>(buf->data + buf->cursor);
    const set::Status status = set::validate(data, size, PollInterrupts{});
    if (status != set::Status::Ok)
        QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, "int4set_recv", "invalid int4set binary data: %s",
                 set::statusMessage(status));
    auto* value = static_cast<varlena*>(palloc(VARHDRSZ + size));
    SET_VARSIZE(value, VARHDRSZ + size);
    memcpy(VARDATA(value), data, size);
    buf->cursor = buf->len;
    PG_RETURN_POINTER(value);
}

Datum qn_int4set_send(PG_FUNCTION_ARGS) {
    const SetPayload s = setArgument(fcinfo, 0);
    StringInfoData buf;
    pq_begintypsend(&buf);
    pq_sendbytes(&buf, reinterpret_cast<const char*>(s.data), static_cast<int>(s.size));
    PG_RETURN_BYTEA_P(pq_endtypsend(&buf));
}

// ---- set algebra: + * -

Datum qn_int4set_union(PG_FUNCTION_ARGS) {
    return combineArguments(fcinfo, set::unite<allocateSetBytes, pfree, PollInterrupts>, "int4set_union");
}

Datum qn_int4set_intersection(PG_FUNCTION_ARGS) {
    return combineArguments(fcinfo, set::intersect<allocateSetBytes, pfree, PollInterrupts>, "int4set_intersection");
}

Datum qn_int4set_difference(PG_FUNCTION_ARGS) {
    return combineArguments(fcinfo, set::subtract<allocateSetBytes, pfree, PollInterrupts>, "int4set_difference");
}

// ---- containment and overlap

Datum qn_int4set_contains(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(setContains(fcinfo, 0, 1)); }
Datum qn_int4set_contained(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(setContains(fcinfo, 1, 0)); }

Datum qn_int4set_overlaps(PG_FUNCTION_ARGS) {
    const SetPayload a = setArgument(fcinfo, 0), b = setArgument(fcinfo, 1);
    bool result = false;
    checkSet(set::overlaps<allocateSetBytes, pfree>(a.data, a.size, b.data, b.size, result, PollInterrupts{}),
          "int4set_overlaps");
    PG_RETURN_BOOL(result);
}

Datum qn_int4set_contains_int4(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(setHolds(fcinfo, 0, 1)); }
Datum qn_int4set_int4_contained(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(setHolds(fcinfo, 1, 0)); }

// ---- position: << >> &< &> -|-

Datum qn_int4set_left(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(positionOf(fcinfo, Position::Left)); }
Datum qn_int4set_right(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(positionOf(fcinfo, Position::Right)); }
Datum qn_int4set_not_right(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(positionOf(fcinfo, Position::NotRight)); }
Datum qn_int4set_not_left(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(positionOf(fcinfo, Position::NotLeft)); }
Datum qn_int4set_adjacent(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(positionOf(fcinfo, Position::Adjacent)); }

// ---- btree order and hash: equal sets have equal payloads

Datum qn_int4set_eq(PG_FUNCTION_ARGS) {
    const SetPayload a = setArgument(fcinfo, 0), b = setArgument(fcinfo, 1);
    PG_RETURN_BOOL(set::equals(a.data, a.size, b.data, b.size));
}

Datum qn_int4set_ne(PG_FUNCTION_ARGS) {
    const SetPayload a = setArgument(fcinfo, 0), b = setArgument(fcinfo, 1);
    PG_RETURN_BOOL(!set::equals(a.data, a.size, b.data, b.size));
}

Datum qn_int4set_lt(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(compareArguments(fcinfo) < 0); }
Datum qn_int4set_le(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(compareArguments(fcinfo) <= 0); }
Datum qn_int4set_gt(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(compareArguments(fcinfo) > 0); }
Datum qn_int4set_ge(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(compareArguments(fcinfo) >= 0); }
Datum qn_int4set_cmp(PG_FUNCTION_ARGS) { PG_RETURN_INT32(compareArguments(fcinfo)); }

// The standard hash is the low 32 bits of the extended hash with seed 0, as the
// hash operator class requires.
Datum qn_int4set_hash(PG_FUNCTION_ARGS) {
    const SetPayload s = setArgument(fcinfo, 0);
    PG_RETURN_UINT32(static_cast<uint32>(set::hash64(s.data, s.size, 0, PollInterrupts{})));
}

Datum qn_int4set_hash_extended(PG_FUNCTION_ARGS) {
    const SetPayload s = setArgument(fcinfo, 0);
    PG_RETURN_UINT64(set::hash64(s.data, s.size, static_cast<uint64_t>(PG_GETARG_INT64(1)), PollInterrupts{}));
}

// ---- functions

namespace {

// The stored member count, read from the value's first bytes: a set stored
// out of line or compressed is neither fetched nor expanded past them.
uint64_t cardinalityArgument(FunctionCallInfo fcinfo, const char* function) {
    auto* raw = reinterpret_cast<varlena*>(PG_GETARG_POINTER(0));
    if (VARATT_IS_EXTERNAL(raw) || VARATT_IS_COMPRESSED(raw))
        raw = pg_detoast_datum_slice(raw, 0, static_cast<int32>(set::kCardinalityPrefix));
    uint64_t n = 0;
    checkSet(set::prefixCardinality(reinterpret_cast<const uint8_t*>(VARDATA_ANY(raw)), VARSIZE_ANY_EXHDR(raw), n),
          function);
    return n;
}

}  // namespace

Datum qn_int4set_cardinality(PG_FUNCTION_ARGS) {
    PG_RETURN_INT64(static_cast<int64>(cardinalityArgument(fcinfo, "int4set_cardinality")));
}

Datum qn_int4set_is_empty(PG_FUNCTION_ARGS) { PG_RETURN_BOOL(cardinalityArgument(fcinfo, "int4set_is_empty") == 0); }

// The least and greatest member; NULL for the empty set.
Datum qn_int4set_min(PG_FUNCTION_ARGS) {
    int32 v = 0;
    if (!extremeOf(setArgument(fcinfo, 0), false, v)) PG_RETURN_NULL();
    PG_RETURN_INT32(v);
}

Datum qn_int4set_max(PG_FUNCTION_ARGS) {
    int32 v = 0;
    if (!extremeOf(setArgument(fcinfo, 0), true, v)) PG_RETURN_NULL();
    PG_RETURN_INT32(v);
}

// The members ascending, one row per call: constant memory whatever the set holds.
Datum qn_int4set_members(PG_FUNCTION_ARGS) {
    const char* function = "int4set_members";
    if (SRF_IS_FIRSTCALL()) startRows(fcinfo, SRF_FIRSTCALL_INIT(), function);
    FuncCallContext* funcctx = SRF_PERCALL_SETUP();
    CHECK_FOR_INTERRUPTS();
    auto* state = static_cast<RowsState*>(funcctx->user_fctx);
    if (state->next > state->last) {
        RangeInt r;
        if (!nextRange(state, r, function)) SRF_RETURN_DONE(funcctx);
        state->next = r.lower;
        state->last = r.upper;
    }
    SRF_RETURN_NEXT(funcctx, Int32GetDatum(static_cast<int32>(state->next++)));
}

// The maximal ranges ascending as (first, last) rows, both included.
Datum qn_int4set_ranges(PG_FUNCTION_ARGS) {
    const char* function = "int4set_ranges";
    if (SRF_IS_FIRSTCALL()) {
        FuncCallContext* funcctx = SRF_FIRSTCALL_INIT();
        MemoryContext caller = MemoryContextSwitchTo(funcctx->multi_call_memory_ctx);
        TupleDesc desc;
        if (get_call_result_type(fcinfo, nullptr, &desc) != TYPEFUNC_COMPOSITE)
            QN_ERROR(ERRCODE_FEATURE_NOT_SUPPORTED, function,
                     "function returning record called in context that cannot accept type record");
        funcctx->tuple_desc = BlessTupleDesc(desc);
        MemoryContextSwitchTo(caller);
        startRows(fcinfo, funcctx, function);
    }
    FuncCallContext* funcctx = SRF_PERCALL_SETUP();
    CHECK_FOR_INTERRUPTS();
    RangeInt r;
    if (!nextRange(static_cast<RowsState*>(funcctx->user_fctx), r, function)) SRF_RETURN_DONE(funcctx);
    Datum values[2] = {Int32GetDatum(r.lower), Int32GetDatum(r.upper)};
    bool nulls[2] = {false, false};
    SRF_RETURN_NEXT(funcctx, HeapTupleGetDatum(heap_form_tuple(funcctx->tuple_desc, values, nulls)));
}

// ---- int4[] forms

// The set of an int4[] in form 'r' (pairs in any order, overlapping or
// repeated; a pair with lower > upper is refused) or 's' (members in any
// order, repeats allowed). The array must be one-dimensional (or empty) and
// without NULLs.
Datum qn_int4set_from_array(PG_FUNCTION_ARGS) {
    const char* function = "int4set_from_array";
    const ArrayType* array = PG_GETARG_ARRAYTYPE_P(0);
    const char form = formArgument(fcinfo, 1, function);
    if (ARR_NDIM(array) > 1)
        QN_ERROR(ERRCODE_ARRAY_SUBSCRIPT_ERROR, function, "int4set needs a one-dimensional array");
    if (ARR_HASNULL(array) && array_contains_nulls(const_cast<ArrayType*>(array)))
        QN_ERROR(ERRCODE_NULL_VALUE_NOT_ALLOWED, function, "int4set cannot hold NULL");
    const Int4Elements e = qn::pg::readInt4Elements(array);
    const uint64 n = static_cast<uint64>(e.count);
    set::Encoded out;
    if (form == 's') {
        checkSet(set::buildFromMembers<allocateSetBytes, pfree>(e.data, n, VARHDRSZ, out, PollInterrupts{}), function);
        return setResult(out, function);
    }
    if (n & 1)
        QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, function, "invalid int4 count to represent a rangearray");
    const RangeInt* ranges = e.rangesBegin();
    for (uint64 i = 0; i < n / 2; ++i)
        if (ranges[i].lower > ranges[i].upper)
            QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function,
                     "range array pair %d..%d has its lower bound above its upper bound", ranges[i].lower,
                     ranges[i].upper);
    if (qn::pgRangeArray::isNormalised(ranges, ranges + n / 2))
        return normalisedRangesResult(ranges, ranges + n / 2, function);
    auto* copy = static_cast<RangeInt*>(allocateSetBytes(n / 2 * sizeof(RangeInt)));
    memcpy(copy, ranges, n / 2 * sizeof(RangeInt));
    return rangesResult(copy, n / 2, function);
}

// The normalised range array ('r', the default) or the members ascending ('s').
Datum qn_int4set_to_array(PG_FUNCTION_ARGS) {
    const char* function = "int4set_to_array";
    const SetPayload s = setArgument(fcinfo, 0);
    const char form = formArgument(fcinfo, 1, function);
    if (form == 's') {
        uint64_t n = 0;
        checkSet(set::cardinality(s.data, s.size, n), function);
        return PointerGetDatum(qn::pg::writeInt4Result(n, function, [&](int32* out) {
            set::MemberCursor cursor(s.data, s.size);
            qn::pgRangeArray::Poller<PollInterrupts> tick(PollInterrupts{});
            for (uint64_t i = 0; i < n && cursor.next(out[i]); ++i) tick();
            checkSet(cursor.status(), function);
        }));
    }
    SetRanges ranges(1);
    checkSet(set::decodeRanges(s.data, s.size, ranges, PollInterrupts{}), function);
    return PointerGetDatum(
        qn::pg::buildInt4Result(reinterpret_cast<const int32*>(ranges.data()), ranges.size() * 2, function));
}

// ---- int4range

// The set of an int4range's integers (an unbounded end reaches the line's end).
Datum qn_int4set_from_range(PG_FUNCTION_ARGS) {
    RangeInt r;
    if (!qn::pg::int4RangeArgument(fcinfo, 0, r)) return emptySetResult();
    return normalisedRangesResult(&r, &r + 1, "int4set_from_range");
}

// The int4range of a set that is one range or empty; 22023 otherwise. A set
// reaching 2147483647 has an unbounded upper end.
Datum qn_int4set_to_range(PG_FUNCTION_ARGS) {
    const char* function = "int4set_to_range";
    const SetPayload s = setArgument(fcinfo, 0);
    set::RangeCursor cursor(s.data, s.size);
    checkSet(cursor.status(), function);
    set::Range32 r{1, 0}, more;
    cursor.next(r);
    if (cursor.next(more))
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "int4set of more than one range is not an int4range");
    checkSet(cursor.status(), function);
    return qn::pg::int4RangeDatum(r.lower, r.upper);
}

// set @> range: every integer of the range is a member (true for the empty range).
Datum qn_int4set_contains_range(PG_FUNCTION_ARGS) {
    RangeInt r;
    if (!qn::pg::int4RangeArgument(fcinfo, 1, r)) PG_RETURN_BOOL(true);
    const SetPayload s = setArgument(fcinfo, 0);
    bool result = false;
    checkSet(set::containsRange(s.data, s.size, r.lower, r.upper, result), "int4set_contains_range");
    PG_RETURN_BOOL(result);
}

// set <@ range: every member lies in the range (the empty set lies in any).
Datum qn_int4set_within_range(PG_FUNCTION_ARGS) {
    const SetPayload s = setArgument(fcinfo, 0);
    int32 lo, hi;
    if (!extremeOf(s, false, lo)) PG_RETURN_BOOL(true);
    extremeOf(s, true, hi);
    RangeInt r;
    PG_RETURN_BOOL(qn::pg::int4RangeArgument(fcinfo, 1, r) && r.lower <= lo && hi <= r.upper);
}

// set && range: some member lies in the range.
Datum qn_int4set_overlaps_range(PG_FUNCTION_ARGS) {
    RangeInt r;
    if (!qn::pg::int4RangeArgument(fcinfo, 1, r)) PG_RETURN_BOOL(false);
    const SetPayload s = setArgument(fcinfo, 0);
    set::Encoded range;
    checkSet(set::encodeRanges<allocateSetBytes, pfree>(&r, &r + 1, 0, range), "int4set_overlaps_range");
    bool result = false;
    checkSet(set::overlaps<allocateSetBytes, pfree>(s.data, s.size, range.payload, range.size, result, PollInterrupts{}),
          "int4set_overlaps_range");
    PG_RETURN_BOOL(result);
}

#ifdef QN_HAVE_MULTIRANGES

// ---- int4multirange (PostgreSQL 14 and later)

// The set of an int4multirange: its ranges are already ascending and apart.
Datum qn_int4set_from_multirange(PG_FUNCTION_ARGS) {
    uint64 n = 0;
    const RangeInt* ranges = qn::pg::int4MultirangeRanges(fcinfo, 0, n);
    return normalisedRangesResult(ranges, ranges + n, "int4set_from_multirange");
}

// The int4multirange of a set; a range reaching 2147483647 is unbounded above.
Datum qn_int4set_to_multirange(PG_FUNCTION_ARGS) {
    const SetPayload s = setArgument(fcinfo, 0);
    SetRanges ranges(1);
    checkSet(set::decodeRanges(s.data, s.size, ranges, PollInterrupts{}), "int4set_to_multirange");
    return qn::pg::int4MultirangeDatum(ranges.data(), ranges.data() + ranges.size(), "int4set_to_multirange");
}

#endif
