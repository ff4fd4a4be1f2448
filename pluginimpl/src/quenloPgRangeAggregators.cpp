// Set algebra over two range arrays: union, intersection, exclusion, overlap and
// strict inclusion. Thin entry points over the kernels of qnPgRangeArray.h: the
// arguments are read in place, never copied or sorted.
#include "quenloPgUtils.h"

using qn::pg::Int4Elements;
using qn::pg::PgRangeVector;
using qn::pg::RangeInt;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgRangeAggregators";

#define QN_ERROR(sqlstate, function, ...) \
    qn::pg::raiseError(sqlstate, kSourceFile, __LINE__, function, __VA_ARGS__)

using RangeKernel = void (*)(const RangeInt*, const RangeInt*, const RangeInt*, const RangeInt*, PgRangeVector&);

// Both range-array arguments, read in place; one parity test covers both.
struct RangeArguments {
    Int4Elements a;
    Int4Elements b;
};

RangeArguments readRangeArguments(FunctionCallInfo fcinfo, const char* function) {
    const Int4Elements a = qn::pg::readInt4Elements(PG_GETARG_ARRAYTYPE_P(0));
    const Int4Elements b = qn::pg::readInt4Elements(PG_GETARG_ARRAYTYPE_P(1));
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
    kernel(args.a.rangesBegin(), args.a.rangesEnd(), args.b.rangesBegin(), args.b.rangesEnd(), out);
    PG_RETURN_ARRAYTYPE_P(qn::pg::buildRangeArrayResult(out, function));
}

// Some member is in both lists. Walks both lists once; adjacent ranges do not overlap.
bool rangeListsOverlap(const RangeInt* a, const RangeInt* aEnd, const RangeInt* b, const RangeInt* bEnd) {
    while (a != aEnd && b != bEnd) {
        if (b->lower > a->lower) {
            if (b->lower <= a->upper && Min(a->lower, a->upper) <= b->upper) return true;
            ++a;
        } else {
            if (a->lower <= b->upper && (a->lower == b->lower || Min(b->lower, b->upper) <= a->upper))
                return true;
            ++b;
        }
    }
    return false;
}

// Every range of A lies inside one range of B (B normalised); an empty A or B gives false.
bool rangeListIncluded(const RangeInt* a, const RangeInt* aEnd, const RangeInt* b, const RangeInt* bEnd) {
    if (a == aEnd || b == bEnd) return false;
    for (; a != aEnd; ++a) {
        while (b->upper < a->lower)
            if (++b == bEnd) return false;
        if (a->lower < b->lower || b->upper < a->upper) return false;
    }
    return true;
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_int4range_union)
QN_FUNCTION_INFO_V1(qn_int4range_intersection)
QN_FUNCTION_INFO_V1(qn_int4range_exclusion)
QN_FUNCTION_INFO_V1(qn_int4range_is_overlap)
QN_FUNCTION_INFO_V1(qn_int4range_is_strictly_include)

// A ∪ B; a null side gives a copy of the other, both null give null.
Datum qn_int4range_union(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4range_union";
    if (PG_ARGISNULL(0) && PG_ARGISNULL(1)) PG_RETURN_NULL();
    if (PG_ARGISNULL(0)) return copyRangeArgument(fcinfo, 1, function);
    if (PG_ARGISNULL(1)) return copyRangeArgument(fcinfo, 0, function);
    return computeRangeResult(fcinfo, qn::pgRangeArray::computeUnion<int32, palloc, pfree>, function);
}

// A ∩ B; null when either is null.
Datum qn_int4range_intersection(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    return computeRangeResult(fcinfo, qn::pgRangeArray::computeIntersection<int32, palloc, pfree>,
                              "qn_int4range_intersection");
}

// A \ B; null when A is null, a copy of A when only B is null.
Datum qn_int4range_exclusion(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4range_exclusion";
    if (PG_ARGISNULL(0)) PG_RETURN_NULL();
    if (PG_ARGISNULL(1)) return copyRangeArgument(fcinfo, 0, function);
    return computeRangeResult(fcinfo, qn::pgRangeArray::computeExclusion<int32, palloc, pfree>, function);
}

// Some member of A is in B; null when either is null.
Datum qn_int4range_is_overlap(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    const RangeArguments args = readRangeArguments(fcinfo, "qn_int4range_is_overlap");
    PG_RETURN_BOOL(rangeListsOverlap(args.a.rangesBegin(), args.a.rangesEnd(), args.b.rangesBegin(),
                                     args.b.rangesEnd()));
}

// A is a non-empty subset of B; null when either is null.
Datum qn_int4range_is_strictly_include(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    const RangeArguments args = readRangeArguments(fcinfo, "qn_int4range_is_strictly_include");
    PG_RETURN_BOOL(rangeListIncluded(args.a.rangesBegin(), args.a.rangesEnd(), args.b.rangesBegin(),
                                     args.b.rangesEnd()));
}
