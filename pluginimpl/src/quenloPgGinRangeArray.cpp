// GIN support for int4[] range-array columns (qn_gin_rangearray_ops) and int4set
// columns (int4set_gin_ops): which rows' sets hold a value, meet a set or a
// range, contain a set or lie in one. Both key a stored set by its ranges and
// share every support function but extractValue and extractQuery. The keys and
// the plans of the queries are in qnPgGinRangeArray.h; these are their shims
// over GIN's calling conventions. Every answer of the index is rechecked by the
// operator, so the index only has to keep every row the operator could accept:
// it answers exactly as a sequential scan does, errors included.
#include "qnPgGinRangeArray.h"
#include "qnPgInt4Set.h"
#include "quenloPgInt4SetDatum.h"

// The reloptions header reaches the spinlock code, whose `register` C++17 refuses.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wregister"
extern "C" {
#include "access/gin.h"
#include "access/reloptions.h"
#include "access/stratnum.h"
}
#pragma GCC diagnostic pop

using qn::gin::QueryPlan;
using qn::pg::Int4Elements;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgGinRangeArray";

// Working buffers may pass palloc's 1 GB limit for the largest arrays.
void* allocateHuge(size_t bytes) { return MemoryContextAllocHuge(CurrentMemoryContext, bytes); }

// The operator class's option: the finest block of values a key stands for.
struct GinOptions {
    int32 vl_len_;
    int32 finestBlock;
};

// The finest level of the index whose support function is being called.
int finestLevelOf(FunctionCallInfo fcinfo) {
    const int32 block = PG_HAS_OPCLASS_OPTIONS()
                            ? reinterpret_cast<const GinOptions*>(PG_GET_OPCLASS_OPTIONS())->finestBlock
                            : qn::gin::kDefaultFinestBlock;
    return qn::gin::finestLevel(block);
}

// The range arguments of the set queries, as the test functions behind the
// operators read them.
struct SetQuery {
    Int4Elements elements;
    bool odd;  // the operator refuses it: every row must be rechecked
};

SetQuery readSetQuery(Datum query) {
    const Int4Elements e = qn::pg::readInt4Elements(DatumGetArrayTypeP(query));
    return {e, (e.count & 1) != 0};
}

// The plan of a query: the keys to look for, by strategy.
QueryPlan planQuery(Datum query, StrategyNumber strategy, int finest, bool& everyRow) {
    using namespace qn::gin;
    QueryPlan plan;
    everyRow = false;
    switch (strategy) {
        case HoldsValue: planHoldsValue<allocateHuge>(DatumGetInt32(query), finest, plan); break;
        case OverlapsPackedRange: {
            const int64 packed = DatumGetInt64(query);
            const Range32 r = spanOf({qn::pgRangeArray::packedLower(packed), qn::pgRangeArray::packedUpper(packed)});
            planMeets<allocateHuge>(&r, 1, finest, plan);
            break;
        }
        case OverlapsSet:
        case OverlappedBySet:
        case ContainedInSet:
        case ContainsSet: {
            const SetQuery q = readSetQuery(query);
            if (q.odd) {
                everyRow = true;
                break;
            }
            uint64_t n = static_cast<uint64_t>(q.elements.count / 2);
            if (strategy == ContainsSet) {
                planContains<allocateHuge>(q.elements.rangesBegin(), n, finest, plan);
                break;
            }
            const Range32* spans =
                coveringSpans<allocateHuge, pfree>(q.elements.rangesBegin(), n, kMaxQueryRanges, qn::pg::PollInterrupts{});
            planMeets<allocateHuge>(spans, n, finest, plan);
            break;
        }
        default:
            QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, "qn_gin_rangearray_extractquery",
                     "GIN unimplemented strategy %d", strategy);
    }
    return plan;
}

// The number of groups of a plan, from its entries (the plan itself is not
// passed back to the consistent functions).
int32 planGroups(Pointer* extra, int32 nkeys) {
    int32 groups = 0;
    for (int32 i = 0; i < nkeys; ++i) groups = Max(groups, reinterpret_cast<qn::gin::QueryEntry*>(extra[i])->group + 1);
    return groups;
}

// The keys or the plan's entries as GIN takes them back from extractValue
// (keys, no partial flags or extra data) and extractQuery.
Datum keysResult(const int64* keys, uint64_t count, int32* nkeys) {
    auto* datums = static_cast<Datum*>(palloc(sizeof(Datum) * (count ? count : 1)));
    for (uint64_t i = 0; i < count; ++i) datums[i] = Int64GetDatum(keys[i]);
    *nkeys = static_cast<int32>(count);
    PG_RETURN_POINTER(datums);
}

Datum planResult(const QueryPlan& plan, bool everyRow, FunctionCallInfo fcinfo) {
    auto* nkeys = reinterpret_cast<int32*>(PG_GETARG_POINTER(1));
    auto** partialMatch = reinterpret_cast<bool**>(PG_GETARG_POINTER(3));
    auto** extraData = reinterpret_cast<Pointer**>(PG_GETARG_POINTER(4));
    auto* searchMode = reinterpret_cast<int32*>(PG_GETARG_POINTER(6));
    if (everyRow) {
        *nkeys = 0;
        *searchMode = GIN_SEARCH_MODE_ALL;
        PG_RETURN_POINTER(nullptr);
    }
    auto* keys = static_cast<Datum*>(palloc(sizeof(Datum) * plan.n));
    auto* partial = static_cast<bool*>(palloc(sizeof(bool) * plan.n));
    auto* extra = static_cast<Pointer*>(palloc(sizeof(Pointer) * plan.n));
    for (int32 i = 0; i < plan.n; ++i) {
        keys[i] = Int64GetDatum(plan.entries[i].key);
        partial[i] = plan.entries[i].partial;
        extra[i] = reinterpret_cast<Pointer>(&plan.entries[i]);
    }
    *nkeys = plan.n;
    *partialMatch = partial;
    *extraData = extra;
    PG_RETURN_POINTER(keys);
}

// The ranges of an int4set datum, one per call, polling; a payload the cursor
// cannot read raises XX001 (data corrupted), as the operators do.
class SetRanges {
public:
    explicit SetRanges(Datum value) : cursor_(open(value)) {
        if (cursor_.status() != qn::int4set::Status::Ok) qn::pg::raiseCorruptSet(cursor_.status(), "int4set_gin");
    }
    bool operator()(qn::gin::Range32& r) {
        if (cursor_.next(r)) return true;
        if (cursor_.status() != qn::int4set::Status::Ok) qn::pg::raiseCorruptSet(cursor_.status(), "int4set_gin");
        return false;
    }

private:
    static qn::int4set::RangeCursor open(Datum value) {
        const qn::pg::SetPayload p = qn::pg::setPayload(value);
        return qn::int4set::RangeCursor(p.data, p.size);
    }
    qn::int4set::RangeCursor cursor_;
};

// The plan of an int4set query, by strategy: a value, a set (by its ranges,
// beyond kMaxQueryRanges by a covering) or an int4range.
QueryPlan planInt4SetQuery(FunctionCallInfo fcinfo, StrategyNumber strategy, int finest, bool& everyRow) {
    using namespace qn::gin;
    QueryPlan plan;
    everyRow = false;
    switch (strategy) {
        case HoldsValue: planHoldsValue<allocateHuge>(PG_GETARG_INT32(0), finest, plan); break;
        case OverlapsSet:
        case ContainsSet:
        case ContainedInSet: {
            StreamCovering<allocateHuge, pfree> covering(kMaxQueryRanges);
            SetRanges next(PG_GETARG_DATUM(0));
            qn::pgRangeArray::Poller<qn::pg::PollInterrupts> tick(qn::pg::PollInterrupts{});
            for (Range32 r; next(r); tick()) covering.add(r);
            uint64_t n = 0;
            const Range32* ranges = covering.finish(n);
            qn::gin::planSetQuery<allocateHuge>(static_cast<Strategy>(strategy), ranges, n, finest, plan, everyRow);
            break;
        }
        case OverlapsRange:
        case ContainsRange:
        case ContainedInRange: {
            qn::pg::RangeInt r;
            const bool some = qn::pg::int4RangeArgument(fcinfo, 0, r);
            const Range32 range{r.lower, r.upper};
            qn::gin::planSetQuery<allocateHuge>(static_cast<Strategy>(strategy), &range, some ? 1 : 0, finest, plan,
                                                everyRow);
            break;
        }
        default:
            QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, "int4set_gin_extractquery", "GIN unimplemented strategy %d",
                     strategy);
    }
    return plan;
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_gin_int4set_extractvalue)
QN_FUNCTION_INFO_V1(qn_gin_int4set_extractquery)
QN_FUNCTION_INFO_V1(qn_gin_rangearray_extractvalue)
QN_FUNCTION_INFO_V1(qn_gin_rangearray_extractquery)
QN_FUNCTION_INFO_V1(qn_gin_rangearray_consistent)
QN_FUNCTION_INFO_V1(qn_gin_rangearray_triconsistent)
QN_FUNCTION_INFO_V1(qn_gin_rangearray_comparepartial)
QN_FUNCTION_INFO_V1(qn_gin_rangearray_options)

// extractValue(range array, internal nkeys, internal nullFlags): the keys of a
// stored set. An array read as empty (none of its pairs, or not one-dimensional,
// or holding NULLs) has none: no operator accepts it.
Datum qn_gin_rangearray_extractvalue(PG_FUNCTION_ARGS) {
    const Int4Elements e = qn::pg::readInt4Elements(PG_GETARG_ARRAYTYPE_P(0));
    auto* nkeys = reinterpret_cast<int32*>(PG_GETARG_POINTER(1));
    uint64_t count = 0;
    int64* keys = qn::gin::storedKeys<allocateHuge, pfree>(e.rangesBegin(), static_cast<uint64_t>(e.count / 2),
                                                          (e.count & 1) != 0, finestLevelOf(fcinfo), count,
                                                          qn::pg::PollInterrupts{});
    const Datum result = keysResult(keys, count, nkeys);
    pfree(keys);
    return result;
}

// extractQuery(query, internal nkeys, strategy, internal partialMatch,
// internal extraData, internal nullFlags, internal searchMode): the keys a
// query looks for, each entry's plan record as its extra data. A set query the
// operator refuses (odd length) looks at every row, for the recheck to raise
// the operator's error where a sequential scan would.
Datum qn_gin_rangearray_extractquery(PG_FUNCTION_ARGS) {
    bool everyRow = false;
    const QueryPlan plan = planQuery(PG_GETARG_DATUM(0), PG_GETARG_UINT16(2), finestLevelOf(fcinfo), everyRow);
    return planResult(plan, everyRow, fcinfo);
}

// int4set_gin_ops: extractValue(int4set, internal nkeys, internal nullFlags):
// the keys of a stored set's ranges, as a range array of the same ranges has
// them (beyond kMaxKeyedRanges ranges, of a covering made as they are read);
// the empty set has the one key of empty sets, which only `<@` looks for.
// Never a recheck key: every int4set is well formed or raises XX001 here.
Datum qn_gin_int4set_extractvalue(PG_FUNCTION_ARGS) {
    uint64_t count = 0;
    int64* keys = qn::gin::storedSetKeys<allocateHuge, pfree>(SetRanges(PG_GETARG_DATUM(0)), finestLevelOf(fcinfo),
                                                              count, qn::pg::PollInterrupts{});
    const Datum result = keysResult(keys, count, reinterpret_cast<int32*>(PG_GETARG_POINTER(1)));
    pfree(keys);
    return result;
}

// int4set_gin_ops: extractQuery(query, internal nkeys, strategy, internal
// partialMatch, internal extraData, internal nullFlags, internal searchMode):
// the keys a value, a set or an int4range looks for, as for range arrays; a set
// or a range containing nothing: `@>` takes every row (searchMode ALL, each
// rechecked), `&&` none, `<@` the empty sets by their key.
Datum qn_gin_int4set_extractquery(PG_FUNCTION_ARGS) {
    bool everyRow = false;
    const QueryPlan plan = planInt4SetQuery(fcinfo, PG_GETARG_UINT16(2), finestLevelOf(fcinfo), everyRow);
    return planResult(plan, everyRow, fcinfo);
}

// consistent(check, strategy, query, nkeys, extraData, recheck, queryKeys,
// nullFlags), of both operator classes (the query is not read, only the plan
// passed as extra data): whether a row with the keys found may pass. Always
// rechecked: the keys name blocks, not members, and a set beyond the key
// budget is keyed by a covering. A query that looks at every row (no keys)
// lets every row through to the recheck.
Datum qn_gin_rangearray_consistent(PG_FUNCTION_ARGS) {
    const bool* check = reinterpret_cast<bool*>(PG_GETARG_POINTER(0));
    const int32 nkeys = PG_GETARG_INT32(3);
    auto* extra = reinterpret_cast<Pointer*>(PG_GETARG_POINTER(4));
    *reinterpret_cast<bool*>(PG_GETARG_POINTER(5)) = true;
    if (nkeys == 0) PG_RETURN_BOOL(true);
    const auto* entries = reinterpret_cast<const qn::gin::QueryEntry*>(extra[0]);
    PG_RETURN_BOOL(qn::gin::mayPass(entries, nkeys, planGroups(extra, nkeys), [check](int32 i) {
        return check[i] ? qn::gin::Found::Yes : qn::gin::Found::No;
    }));
}

// triConsistent(check, strategy, query, nkeys, extraData, queryKeys,
// nullFlags), of both operator classes: the same with keys that may or may not
// be there; never GIN_TRUE, since every row is rechecked.
Datum qn_gin_rangearray_triconsistent(PG_FUNCTION_ARGS) {
    const auto* check = reinterpret_cast<const GinTernaryValue*>(PG_GETARG_POINTER(0));
    const int32 nkeys = PG_GETARG_INT32(3);
    auto* extra = reinterpret_cast<Pointer*>(PG_GETARG_POINTER(4));
    if (nkeys == 0) PG_RETURN_GIN_TERNARY_VALUE(GIN_MAYBE);
    const auto* entries = reinterpret_cast<const qn::gin::QueryEntry*>(extra[0]);
    const bool may = qn::gin::mayPass(entries, nkeys, planGroups(extra, nkeys), [check](int32 i) {
        return check[i] == GIN_FALSE ? qn::gin::Found::No : qn::gin::Found::Maybe;
    });
    PG_RETURN_GIN_TERNARY_VALUE(may ? GIN_MAYBE : GIN_FALSE);
}

// comparePartial(partial key, key, strategy, extraData), of both operator
// classes: 0 while the key lies within the entry's run of blocks, 1 past it
// (the scan starts at the partial key, so nothing before it is met).
Datum qn_gin_rangearray_comparepartial(PG_FUNCTION_ARGS) {
    const int64 key = PG_GETARG_INT64(1);
    const auto* entry = reinterpret_cast<const qn::gin::QueryEntry*>(PG_GETARG_POINTER(3));
    PG_RETURN_INT32(key > entry->last ? 1 : 0);
}

// options(internal), of both operator classes: finest_block, the finest block
// of values a key stands for (rounded down to a power of 2). Smaller blocks
// find fewer false candidates among short ranges and lone members, larger ones
// build faster and smaller.
Datum qn_gin_rangearray_options(PG_FUNCTION_ARGS) {
    auto* relopts = reinterpret_cast<local_relopts*>(PG_GETARG_POINTER(0));
    init_local_reloptions(relopts, sizeof(GinOptions));
    add_local_int_reloption(relopts, "finest_block",
                            "finest block of values a key stands for, rounded down to a power of 2",
                            qn::gin::kDefaultFinestBlock, 1, 1 << 16, offsetof(GinOptions, finestBlock));
    PG_RETURN_VOID();
}
