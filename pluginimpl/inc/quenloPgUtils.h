// Server-side helpers shared by every entry point: the error report, reading
// int4[] arguments in place, building int4[] and bytea results, and the memory
// context of an aggregate state.
//
// Entry-point sources reach the server's headers through this header (inside
// extern "C", postgres.h first); the server-free headers come before them,
// because the server's port.h redefines printf and friends for whatever follows.
#pragma once

#include "qnPgRangeArray.h"
#include "qnPgVector.h"
#include "quenloPgBitField.h"

extern "C" {
#include "postgres.h"

#include "quenloPgCompat.h"

#include "catalog/pg_type.h"
#include "fmgr.h"
#include "miscadmin.h"
#include "utils/array.h"
#include "utils/memutils.h"
}

// Declares an SQL-callable version-1 function with C linkage and exports both it
// and its information record (PG_FUNCTION_INFO_V1 of PostgreSQL 13 to 15 exports
// only the record).
#define QN_FUNCTION_INFO_V1(funcname)                      \
    extern "C" PGDLLEXPORT Datum funcname(PG_FUNCTION_ARGS); \
    extern "C" {                                           \
    PG_FUNCTION_INFO_V1(funcname);                         \
    }

namespace qn::pg {

template <typename T>
using PgVector = tVector<T, palloc, pfree>;
using RangeInt = qn::pgRangeArray::Range<int32>;
using PgRangeVector = PgVector<RangeInt>;

// The poll that the entry points hand to the kernels' long loops: a pending
// cancel or timeout raises its error here.
struct PollInterrupts {
    void operator()() const { CHECK_FOR_INTERRUPTS(); }
};

// memcpy and memset to zero in slices of a few megabytes, checking for
// interrupts between them: writing fresh memory costs its page faults, which for
// a large result add up to seconds.
void copyPolled(void* to, const void* from, size_t bytes);
void zeroPolled(void* to, size_t bytes);

// Raises an ERROR with the given SQLSTATE and message (none when fmt is null),
// reported from `file`, `line` and the function-name string `function`.
// Never returns: the server unwinds with longjmp, so no destructor between the
// call and the server's handler runs.
[[noreturn]] void raiseError(int sqlstate, const char* file, int line, const char* function, const char* fmt,
                             ...) pg_attribute_printf(5, 6);

// The elements of an int4[] argument, read in place. An array that is not
// one-dimensional, holds a NULL element, or whose payload is shorter than its
// declared length is read as empty. An array that merely carries a null bitmap
// without a NULL in it (a slice of one that had NULLs) is read as its elements:
// it equals the same array without the bitmap.
struct Int4Elements {
    const int32* data;
    int32 count;

    const RangeInt* rangesBegin() const { return reinterpret_cast<const RangeInt*>(data); }
    const RangeInt* rangesEnd() const { return rangesBegin() + count / 2; }
};

inline Int4Elements readInt4Elements(const ArrayType* array) {
    if (ARR_NDIM(array) != 1) return {nullptr, 0};
    if (ARR_HASNULL(array) && array_contains_nulls(const_cast<ArrayType*>(array))) return {nullptr, 0};
    const int32 count = ARR_DIMS(array)[0];
    const Size offset = ARR_DATA_OFFSET(array);
    const Size payload = VARSIZE(array) > offset ? VARSIZE(array) - offset : 0;
    if (count < 0 || static_cast<Size>(count) > payload / sizeof(int32)) return {nullptr, 0};
    return {reinterpret_cast<const int32*>(ARR_DATA_PTR(array)), count};
}

// The growable bit buffer of aggregate states, in the current memory context. A
// request that palloc cannot serve, or one larger than palloc's limit, raises
// 53200; an unaligned capacity and a capacity that cannot double raise 22015.
// Those errors report the buffer's header as their source.
void* allocateBitBufferBytes(size_t bytes);
[[noreturn]] void raiseBitBufferError(qn::bitfield::BitBufferError error);
using PgBitBuffer = qn::bitfield::BitBuffer<allocateBitBufferBytes, pfree, raiseBitBufferError>;

// Raises an error from the current source file: each entry-point source defines
// kSourceFile, the name its errors report.
#define QN_ERROR(sqlstate, function, ...) \
    qn::pg::raiseError(sqlstate, kSourceFile, __LINE__, function, __VA_ARGS__)

// Refuses, before anything is allocated, a result of n elements that PostgreSQL
// could not use as an array (more than MaxArraySize, 134,217,727 elements: it could
// be stored but never printed, copied or dumped): 22015 with `message` from
// `function`. Most paths report "array overflow ", a few "array overflow".
void checkResultElements(uint64_t n, const char* function, const char* message = "array overflow ");

// A one-dimensional int4[] of n elements (lower bound 1, no null bitmap),
// allocated in the current memory context, its elements zero-filled unless the
// caller overwrites them all (zeroed false); n = 0 gives the 24-byte empty array.
// Callers check n first; beyond MaxArraySize it raises "array overflow ".
// Raises 53200 with no message when no memory can be had.
ArrayType* allocateResultArray(int32 n, bool zeroed = true);

// An int4[] holding a copy of n elements; `function` names the caller in the
// "array overflow " error raised when n is more than an array can hold.
ArrayType* buildInt4Result(const int32* elements, uint64_t n, const char* function);

// An int4[] of n elements that write(int32* elements) fills, every one of them:
// n is checked first, as checkResultElements does, and nothing is zeroed.
template <typename Write>
ArrayType* writeInt4Result(uint64_t n, const char* function, Write write, const char* message = "array overflow ") {
    checkResultElements(n, function, message);
    ArrayType* result = allocateResultArray(static_cast<int32>(n), false);
    write(reinterpret_cast<int32*>(ARR_DATA_PTR(result)));
    return result;
}

// A range array ('r') holding the ranges of v, lower then upper.
inline ArrayType* buildRangeArrayResult(const PgRangeVector& v, const char* function) {
    return buildInt4Result(reinterpret_cast<const int32*>(v.data()), v.size() * 2, function);
}

// A bytea with room for n payload bytes after its 4-byte length word, allocated
// in the current memory context; the caller fills it from byte 4 on. Raises
// 53200 with no message when no memory can be had.
bytea* allocateBytea(uint64_t n);

// Argument argno, detoasted. A value stored out of line (TOAST) or compressed is
// expanded once per call site and kept while the same value keeps coming, known
// by its TOAST pointer or its compressed bytes: one large range array or bitfield
// tested against many rows is then expanded once, not once per row. The result
// must be neither freed nor modified.
const varlena* detoastArgumentCached(FunctionCallInfo fcinfo, int argno);

inline const ArrayType* arrayArgumentCached(FunctionCallInfo fcinfo, int argno) {
    return reinterpret_cast<const ArrayType*>(detoastArgumentCached(fcinfo, argno));
}

// Reads a detoasted bitfield: false for an empty one, else its view. min and max
// are stored whenever the value is long enough to hold them. A value shorter than
// 12 bytes, or a non-empty one whose bit string is not exactly its whole 64-bit
// words, raises 22023 "invalid bitfield array" from `function`.
bool getBitFieldInfo(const bytea* value, qn::bitfield::BitFieldView& view, const char* function = "getBitFieldInfo");

// The aggregate context of a call; refuses a call from outside an aggregate.
inline MemoryContext aggregateContextOf(FunctionCallInfo fcinfo, const char* identifier) {
    MemoryContext aggregateContext = nullptr;
    if (!AggCheckCallContext(fcinfo, &aggregateContext))
        raiseError(ERRCODE_INTERVAL_FIELD_OVERFLOW, "pluginimpl/inc/quenloPgUtils", __LINE__, identifier,
                   "%s called in non-aggregate context", identifier);
    return aggregateContext;
}

// Fetches or creates an aggregate's transition state and keeps the aggregate
// context current while it is in scope.
//
// T's first field is the MemoryContext that holds the state and everything
// allocated for it: the aggregate context itself, which the server resets with
// the group (or with a hashed aggregate's batch). A state has no context of its
// own and starts with empty buffers that grow with what it holds, so that many
// small groups (hashed, per partition, per worker) cost what their sets cost.
// A new state is allocated zeroed. The state lives as long as the aggregate
// context: final functions only read it, since the server may finalise one
// state several times (a hash table kept across rescans, a window frame that
// grows) and may go on adding rows after a final call.
// The caller's context comes back when the helper goes out of scope; an error
// leaves by longjmp without running the destructor, and the server's error
// recovery resets the current context itself.
// Refuses a call from outside an aggregate (a NULL::internal from SQL), so no
// state can be made with user data.
template <typename T>
class AggCtxHelper {
public:
    AggCtxHelper(T*& state, FunctionCallInfo fcinfo, const char* identifier)
        : created(state == nullptr),
          aggregateContext(aggregateContextOf(fcinfo, identifier)),
          previousContext(CurrentMemoryContext) {
        if (!created) {
            MemoryContextSwitchTo(state->memoryContext);
            return;
        }
        MemoryContextSwitchTo(aggregateContext);
        state = static_cast<T*>(palloc0(sizeof(T)));
        state->memoryContext = aggregateContext;
    }

    ~AggCtxHelper() { MemoryContextSwitchTo(previousContext); }

    AggCtxHelper(const AggCtxHelper&) = delete;
    AggCtxHelper& operator=(const AggCtxHelper&) = delete;

    const bool created;  // this call made the state: the caller initialises its own fields
    MemoryContext aggregateContext;
    const MemoryContext previousContext;
};

// A state for a deserialise function to fill: zeroed, in the caller's context,
// which is the server's per-input-tuple memory. A hashed aggregate deserialises
// a tuple's partial states before it knows whether it will spill the tuple, so
// a state that is never combined must go with the tuple, costing no more than
// its bytes meanwhile; combineInPlace copies what it keeps.
template <typename T>
T* newDeserialisedState(FunctionCallInfo fcinfo, const char* identifier) {
    aggregateContextOf(fcinfo, identifier);
    T* state = static_cast<T*>(palloc0(sizeof(T)));
    state->memoryContext = CurrentMemoryContext;
    return state;
}

// Combining in place. A combine function merges its second state into its first
// and returns the first, as PostgreSQL allows: the group's state grows to the
// result instead of a new state being made at each step. The second state is
// only read: its owner keeps it (a partial aggregate below, whose hash table may
// be read again on a rescan), or it is a deserialised state that the server
// frees with the input tuple.
//
// merge(state, second, created) runs with the state's context current; second
// is null when the second argument is, and created tells that the state is new.
template <typename T, typename Merge>
Datum combineInPlace(FunctionCallInfo fcinfo, const char* identifier, Merge merge) {
    T* state = PG_ARGISNULL(0) ? nullptr : reinterpret_cast<T*>(PG_GETARG_POINTER(0));
    T* second = PG_ARGISNULL(1) ? nullptr : reinterpret_cast<T*>(PG_GETARG_POINTER(1));
    AggCtxHelper<T> helper(state, fcinfo, identifier);
    merge(state, second, helper.created);
    PG_RETURN_POINTER(state);
}

// int4range and int4multirange values as closed ranges (an unbounded end is the
// int4 extreme) and back (a range ending at 2147483647 is unbounded above).
// int4RangeArgument is false for the empty range; int4RangeDatum of lower >
// upper is the empty range. int4MultirangeRanges gives n ranges, ascending and
// apart, in a new allocation; int4MultirangeDatum takes normalised ranges.
bool int4RangeArgument(FunctionCallInfo fcinfo, int argno, RangeInt& out);
bool int4RangeValue(Datum value, RangeInt& out);  // the same of a value (detoasted here)
Datum int4RangeDatum(int32 lower, int32 upper);
#ifdef QN_HAVE_MULTIRANGES
RangeInt* int4MultirangeRanges(FunctionCallInfo fcinfo, int argno, uint64& n);
Datum int4MultirangeDatum(const RangeInt* first, const RangeInt* last, const char* function);
#endif

}  // namespace qn::pg

namespace qn::pgRangeArray {

// The layout code of a form letter: 'r' 4, 's' 3, 'm' 5; any other character
// raises 22015 "int4_agg array type should be 'r','s' or 'm'".
uint32_t ArrayDataTypeFromChar(char c);

}  // namespace qn::pgRangeArray
