// GiST support for int4 columns (qn_gist_int4_ops) and packed-range int8
// columns (qn_gist_rangepacked_ops). Both store one packed range per key and
// share every support function except compress; the kernels live in
// qnPgGistRange.h, these are their shims over the GiST structures.
#include "qnPgGistRange.h"
#include "qnPgInt4SetOps.h"
#include "quenloPgInt4SetDatum.h"

extern "C" {
#include "access/gist.h"
#include "access/stratnum.h"
#include "utils/lsyscache.h"
}

using qn::pg::Int4Elements;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgGistRange";

// A new leaf entry holding `key`, at the position of `entry`.
GISTENTRY* compressedEntry(const GISTENTRY* entry, int64 key) {
    auto* out = static_cast<GISTENTRY*>(palloc(sizeof(GISTENTRY)));
    gistentryinit(*out, Int64GetDatum(key), entry->rel, entry->page, entry->offset, false);
    return out;
}

// The penalty's refusal of a negative growth, which only a malformed key can have.
[[noreturn]] void raiseNegativeGrowth() {
    QN_ERROR(ERRCODE_INDEX_CORRUPTED, "computePenalty", "GIST compute penalty new range is smaller than original one");
}

// Strategies 1 and 11: the query is a range array. One that is not
// one-dimensional or holds NULLs matches nothing. An odd last element is read as
// the operators read it: `v <@ array` ignores it, and `packed && array` refuses
// the array on every row it tests, so every key is a candidate and each live row
// reaches the operator, which raises its error just as a sequential scan does
// (and a scan that finds no live row raises nothing, like a sequential one).
// Sets *maybe when the key can only be kept as a candidate for the operator.
bool consistentWithRangeArray(FunctionCallInfo fcinfo, StrategyNumber strategy, int64 key, bool leaf, bool* maybe) {
    const ArrayType* query = qn::pg::arrayArgumentCached(fcinfo, 1);
    if (ARR_ELEMTYPE(query) != INT4OID)
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, "qn_gist_range_consistent", "accept only int4[] with an even size");
    const Int4Elements e = qn::pg::readInt4Elements(query);
    if (strategy == qn::gist::ValueInRangeArray)
        return qn::gist::keyMayHoldMember(key, e.rangesBegin(), e.rangesEnd(), leaf);
    if (e.count & 1) {
        *maybe = true;
        return true;
    }
    return qn::gist::keyMeetsRangeArray(key, e.rangesBegin(), e.rangesEnd());
}

// Strategy 4: the query is an int4set. A leaf key [v; v] passes when v is a
// member, exactly as `v <@ set` answers; an inner key when some member lies in
// its span. A payload the readers cannot read raises XX001, as the operator does.
bool consistentWithInt4Set(FunctionCallInfo fcinfo, int64 key, bool leaf) {
    const qn::pg::SetPayload query = qn::pg::setArgument(fcinfo, 1);
    const int32 lower = qn::gist::packedLower(key), upper = qn::gist::packedUpper(key);
    bool result = false;
    const qn::int4set::Status status = leaf ? qn::int4set::containsValue(query.data, query.size, lower, result)
                                            : qn::int4set::meetsRange(query.data, query.size, lower, upper, result);
    if (status != qn::int4set::Status::Ok) qn::pg::raiseCorruptSet(status, "qn_gist_range_consistent");
    return result;
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_gist_range_consistent)
QN_FUNCTION_INFO_V1(qn_gist_range_union)
QN_FUNCTION_INFO_V1(qn_gist_range_compress_int4)
QN_FUNCTION_INFO_V1(qn_gist_range_compress_int8)
QN_FUNCTION_INFO_V1(qn_gist_range_decompress)
QN_FUNCTION_INFO_V1(qn_gist_range_fetch_int4)
QN_FUNCTION_INFO_V1(qn_gist_range_fetch_int8)
QN_FUNCTION_INFO_V1(qn_gist_range_penalty)
QN_FUNCTION_INFO_V1(qn_gist_range_picksplit)
QN_FUNCTION_INFO_V1(qn_gist_range_same)

// consistent(entry, query, strategy, subtype, recheck): can the key, or a key
// below it, satisfy `column <op> query`? Leaf keys are the indexed values
// themselves and each leaf test is the operator's own test, so a leaf answer is
// exact and recheck ends false, except where the operator would raise (an odd
// range array for &&, a malformed bitfield): the key is then a candidate with
// recheck, so the operator raises on the rows that reach it and nowhere else. On
// inner pages GiST ignores recheck. Strategy 2 tests only a leaf key's lower
// bound, which is the whole key for an int4 column. The subtype (the operator's
// right-hand type) serves only to refuse an operator class that maps a by-value
// operand to a strategy whose query is an array or a bitfield, which would be
// read as a pointer.
Datum qn_gist_range_consistent(PG_FUNCTION_ARGS) {
    using namespace qn::gist;
    const char* function = "qn_gist_range_consistent";
    const auto* entry = reinterpret_cast<const GISTENTRY*>(PG_GETARG_POINTER(0));
    const StrategyNumber strategy = PG_GETARG_UINT16(2);
    bool* recheck = reinterpret_cast<bool*>(PG_GETARG_POINTER(4));
    *recheck = true;
    if (!isImplementedStrategy(strategy))
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "GIST consistent unimplemented strategy");
    const Oid subtype = PG_GETARG_OID(3);
    const bool arrayQuery = strategy == ValueInRangeArray || strategy == RangeOverlapsRangeArray;
    if (arrayQuery && OidIsValid(subtype) && subtype != INT4ARRAYOID)
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "accept only int4[] with an even size");
    if (strategy == ValueInInt4Set && OidIsValid(subtype) && get_typlen(subtype) != -1)
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "accept only int4set");
    if (strategy == ValueInBitField && OidIsValid(subtype) && subtype != BYTEAOID)
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "invalid bitfield array");
    const bool leaf = GIST_LEAF(entry);
    const int64 key = DatumGetInt64(entry->key);
    bool result = false;
    bool maybe = false;
    switch (strategy) {
        case ValueInRangeArray:
        case RangeOverlapsRangeArray: result = consistentWithRangeArray(fcinfo, strategy, key, leaf, &maybe); break;
        case ValueInBitField: {
            const varlena* value = qn::pg::detoastArgumentCached(fcinfo, 1);
            qn::bitfield::BitFieldView bf;
            switch (qn::bitfield::readBitField(reinterpret_cast<const uint8*>(value), VARSIZE(value), bf)) {
                case qn::bitfield::BitFieldRead::Ok: result = keyMeetsBitField(key, bf, leaf); break;
                case qn::bitfield::BitFieldRead::Empty: result = false; break;
                case qn::bitfield::BitFieldRead::Invalid: result = maybe = true; break;
            }
            break;
        }
        case ValueInInt4Set: result = consistentWithInt4Set(fcinfo, key, leaf); break;
        case ValueInPackedRange:
        case RangeOverlapsRange: result = keyOverlaps(key, PG_GETARG_INT64(1)); break;
        case RangeIncludedInRange: result = keyIncludedIn(key, PG_GETARG_INT64(1), leaf); break;
        case RangeContainsRange: result = keyContains(key, PG_GETARG_INT64(1)); break;
        case RangeContainsValue: result = keyContainsValue(key, PG_GETARG_INT32(1)); break;
    }
    *recheck = !leaf || maybe;
    PG_RETURN_BOOL(result);
}

// union(entryvec, size): the smallest key covering all n (>= 1) entries.
Datum qn_gist_range_union(PG_FUNCTION_ARGS) {
    const auto* entries = reinterpret_cast<const GistEntryVector*>(PG_GETARG_POINTER(0));
    int64 key = DatumGetInt64(entries->vector[0].key);
    for (int i = 1; i < entries->n; ++i) key = qn::gist::keyUnion(key, DatumGetInt64(entries->vector[i].key));
    *reinterpret_cast<int*>(PG_GETARG_POINTER(1)) = sizeof(int64);
    PG_RETURN_INT64(key);
}

// compress for int4 columns: a leaf value v becomes the key [v; v]; inner keys
// are already packed ranges and pass unchanged.
Datum qn_gist_range_compress_int4(PG_FUNCTION_ARGS) {
    auto* entry = reinterpret_cast<GISTENTRY*>(PG_GETARG_POINTER(0));
    if (!entry->leafkey) PG_RETURN_POINTER(entry);
    PG_RETURN_POINTER(compressedEntry(entry, qn::gist::keyOfValue(DatumGetInt32(entry->key))));
}

// compress for packed-range columns: a leaf value is its own key once checked,
// since an inverted range would break every cover above it.
Datum qn_gist_range_compress_int8(PG_FUNCTION_ARGS) {
    auto* entry = reinterpret_cast<GISTENTRY*>(PG_GETARG_POINTER(0));
    if (!entry->leafkey) PG_RETURN_POINTER(entry);
    const int64 key = DatumGetInt64(entry->key);
    const int32 lower = qn::gist::packedLower(key), upper = qn::gist::packedUpper(key);
    if (upper < lower)
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, "qn_gist_range_compress_int8", "GIST invalid input packed range [%d;%d]",
                 lower, upper);
    PG_RETURN_POINTER(compressedEntry(entry, key));
}

// decompress: keys are stored as they are used.
Datum qn_gist_range_decompress(PG_FUNCTION_ARGS) { PG_RETURN_POINTER(PG_GETARG_POINTER(0)); }

// fetch for int4 columns, which lets index-only scans return the column: the
// leaf key [v; v] gives v back. Called on leaf entries only.
Datum qn_gist_range_fetch_int4(PG_FUNCTION_ARGS) {
    const auto* entry = reinterpret_cast<const GISTENTRY*>(PG_GETARG_POINTER(0));
    auto* out = static_cast<GISTENTRY*>(palloc(sizeof(GISTENTRY)));
    gistentryinit(*out, Int32GetDatum(qn::gist::packedLower(DatumGetInt64(entry->key))), entry->rel, entry->page,
                  entry->offset, false);
    PG_RETURN_POINTER(out);
}

// fetch for packed-range columns: a leaf key is the indexed packed range itself.
Datum qn_gist_range_fetch_int8(PG_FUNCTION_ARGS) { PG_RETURN_POINTER(PG_GETARG_POINTER(0)); }

// penalty(existing, new, penalty): how much the existing key must grow to cover
// the new one, with a fraction below 1 preferring the tightest cover.
Datum qn_gist_range_penalty(PG_FUNCTION_ARGS) {
    const auto* existing = reinterpret_cast<const GISTENTRY*>(PG_GETARG_POINTER(0));
    const auto* added = reinterpret_cast<const GISTENTRY*>(PG_GETARG_POINTER(1));
    auto* penalty = reinterpret_cast<float*>(PG_GETARG_POINTER(2));
    if (!qn::gist::computePenalty(DatumGetInt64(existing->key), DatumGetInt64(added->key), *penalty))
        raiseNegativeGrowth();
    PG_RETURN_POINTER(penalty);
}

// picksplit(entryvec, splitvec): divides the entries at offsets 1 to n - 1 into
// two groups, filling both offset lists and both unions.
Datum qn_gist_range_picksplit(PG_FUNCTION_ARGS) {
    using qn::gist::SplitError;
    const char* function = "qn_gist_range_picksplit";
    const auto* entries = reinterpret_cast<const GistEntryVector*>(PG_GETARG_POINTER(0));
    auto* split = reinterpret_cast<GIST_SPLITVEC*>(PG_GETARG_POINTER(1));
    const auto maxoff = static_cast<uint16>(entries->n - 1);
    split->spl_left = static_cast<OffsetNumber*>(palloc(sizeof(OffsetNumber) * maxoff));
    split->spl_right = static_cast<OffsetNumber*>(palloc(sizeof(OffsetNumber) * maxoff));
    qn::gist::SplitSide left{split->spl_left, 0, 0}, right{split->spl_right, 0, 0};
    auto keyAt = [entries](uint16 offset) { return DatumGetInt64(entries->vector[offset].key); };
    switch (qn::gist::pickSplit<palloc, pfree>(maxoff, keyAt, left, right)) {
        case SplitError::None: break;
        case SplitError::InvalidSize:
            QN_ERROR(ERRCODE_INDEX_CORRUPTED, function, "GIST picksplit input vector has an invalid size");
        case SplitError::LowerOutOfBound:
            QN_ERROR(ERRCODE_INDEX_CORRUPTED, function, "GIST picksplit internal error (lower list out of bound)");
        case SplitError::UpperOutOfBound:
            QN_ERROR(ERRCODE_INDEX_CORRUPTED, function, "GIST picksplit internal error (upper list out of bound)");
        case SplitError::AlreadyTagged:
            QN_ERROR(ERRCODE_INDEX_CORRUPTED, "pushRange", "GIST picksplit internal error (range already tagged)");
        case SplitError::NegativeGrowth: raiseNegativeGrowth();
        case SplitError::OutOfMemory: QN_ERROR(ERRCODE_OUT_OF_MEMORY, function, nullptr);
    }
    split->spl_nleft = left.count;
    split->spl_nright = right.count;
    split->spl_ldatum = Int64GetDatum(left.unionKey);
    split->spl_rdatum = Int64GetDatum(right.unionKey);
    PG_RETURN_POINTER(split);
}

// same(a, b, result): the keys are equal as 64-bit values.
Datum qn_gist_range_same(PG_FUNCTION_ARGS) {
    bool* result = reinterpret_cast<bool*>(PG_GETARG_POINTER(2));
    *result = PG_GETARG_INT64(0) == PG_GETARG_INT64(1);
    PG_RETURN_POINTER(result);
}
