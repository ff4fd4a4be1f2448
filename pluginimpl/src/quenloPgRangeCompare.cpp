// Membership and overlap tests: values, packed ranges and range arrays against
// range arrays and packed ranges, and values, packed ranges and sets against
// bitfields. Nothing is allocated apart from detoasting; array and bitfield
// arguments stored out of line are detoasted once per call site.
#include "qnPgBitFieldSet.h"
#include "quenloPgUtils.h"

using qn::bitfield::BitFieldView;
using qn::pg::Int4Elements;
using qn::pg::RangeInt;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgRangeCompare";

struct PackedRange {
    int32 lower;
    int32 upper;
};

PackedRange packedArgument(FunctionCallInfo fcinfo, int argno) {
    const int64 packed = PG_GETARG_INT64(argno);
    return {qn::pgRangeArray::packedLower(packed), qn::pgRangeArray::packedUpper(packed)};
}

// A range array argument for the overlap tests: not one-dimensional or holding
// NULLs reads as empty; an odd length is refused.
Int4Elements rangeArrayArgument(FunctionCallInfo fcinfo, int argno, const char* function) {
    const Int4Elements e = qn::pg::readInt4Elements(qn::pg::arrayArgumentCached(fcinfo, argno));
    if (e.count & 1) QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "invalid range array");
    return e;
}

// Tests a set in any of the three forms against a bitfield, for overlap or inclusion.
Datum int4set_test_bitfield(FunctionCallInfo fcinfo, bool inclusion) {
    const char* function = "int4set_test_bitfield";
    const uint32 form = qn::pgRangeArray::ArrayDataTypeFromChar(PG_GETARG_CHAR(0));
    const ArrayType* set = qn::pg::arrayArgumentCached(fcinfo, 1);
    const bytea* bitfield = qn::pg::detoastArgumentCached(fcinfo, 2);
    if (ARR_ELEMTYPE(set) != INT4OID) QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "accept only int4[]");
    const Int4Elements e = qn::pg::readInt4Elements(set);
    if (e.count == 0) PG_RETURN_BOOL(false);
    BitFieldView bf;
    if (!qn::pg::getBitFieldInfo(bitfield, bf)) PG_RETURN_BOOL(false);
    bool result = false;
    switch (qn::bitfield::testSetAgainstBitField(form, e.data, e.count, bf, inclusion, result,
                                                 qn::pg::PollInterrupts{})) {
        case qn::bitfield::SetTestError::None: break;
        case qn::bitfield::SetTestError::OddRangeArray:
        case qn::bitfield::SetTestError::MixRangeWithoutUpper:
            QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, function, "invalid int4 count to represent a rangearray");
    }
    PG_RETURN_BOOL(result);
}

}  // namespace

namespace qn::pg {

bool getBitFieldInfo(const bytea* value, qn::bitfield::BitFieldView& view, const char* function) {
    switch (qn::bitfield::readBitField(reinterpret_cast<const uint8*>(value), VARSIZE(value), view)) {
        case qn::bitfield::BitFieldRead::Ok: return true;
        case qn::bitfield::BitFieldRead::Empty: return false;
        case qn::bitfield::BitFieldRead::Invalid: break;
    }
    QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "invalid bitfield array");
}

}  // namespace qn::pg

QN_FUNCTION_INFO_V1(qn_int4_in_rangearray)
QN_FUNCTION_INFO_V1(qn_rangearray_contains_int4)
QN_FUNCTION_INFO_V1(qn_rangearray_overlaps_rangepacked)
QN_FUNCTION_INFO_V1(qn_int4range_overlap_rangearray)
QN_FUNCTION_INFO_V1(qn_int4rangepacked_in_rangearray)
QN_FUNCTION_INFO_V1(qn_int4rangepacked_in_int4rangepacked)
QN_FUNCTION_INFO_V1(qn_int4rangepacked_included_in_int4rangepacked)
QN_FUNCTION_INFO_V1(qn_int4rangepacked_contains_int4rangepacked)
QN_FUNCTION_INFO_V1(qn_int4_in_packedrange)
QN_FUNCTION_INFO_V1(qn_int4rangepacked_contains_int4)
QN_FUNCTION_INFO_V1(qn_int4_in_rangebitfield)
QN_FUNCTION_INFO_V1(qn_int4rangepacked_in_rangebitfield)
QN_FUNCTION_INFO_V1(qn_int4set_overlap_bitfield)
QN_FUNCTION_INFO_V1(qn_int4set_included_in_bitfield)

// v lies in a range of the range array (binary search; an odd last element is ignored).
Datum qn_int4_in_rangearray(PG_FUNCTION_ARGS) {
    const Int4Elements e = qn::pg::readInt4Elements(qn::pg::arrayArgumentCached(fcinfo, 1));
    PG_RETURN_BOOL(qn::pgRangeArray::inRangeArray(e.rangesBegin(), e.rangesEnd(), PG_GETARG_INT32(0)));
}

// qn_int4_in_rangearray with the range array first: the function of
// int4[] ~@> int4, the commutator of int4 <@ int4[].
Datum qn_rangearray_contains_int4(PG_FUNCTION_ARGS) {
    const Int4Elements e = qn::pg::readInt4Elements(qn::pg::arrayArgumentCached(fcinfo, 0));
    PG_RETURN_BOOL(qn::pgRangeArray::inRangeArray(e.rangesBegin(), e.rangesEnd(), PG_GETARG_INT32(1)));
}

// The two range arrays share a member; a single-range side is scanned against the other.
Datum qn_int4range_overlap_rangearray(PG_FUNCTION_ARGS) {
    const char* function = "qn_int4range_overlap_rangearray";
    const Int4Elements a = rangeArrayArgument(fcinfo, 0, function);
    const Int4Elements b = rangeArrayArgument(fcinfo, 1, function);
    if (a.count == 2)
        PG_RETURN_BOOL(qn::pgRangeArray::rangeOverlapsList(a.data[0], a.data[1], b.rangesBegin(), b.rangesEnd()));
    if (b.count == 2)
        PG_RETURN_BOOL(qn::pgRangeArray::rangeOverlapsList(b.data[0], b.data[1], a.rangesBegin(), a.rangesEnd()));
    PG_RETURN_BOOL(qn::pgRangeArray::rangeListsOverlap(a.rangesBegin(), a.rangesEnd(), b.rangesBegin(), b.rangesEnd()));
}

// The packed range shares a member with the range array.
Datum qn_int4rangepacked_in_rangearray(PG_FUNCTION_ARGS) {
    const PackedRange r = packedArgument(fcinfo, 0);
    const Int4Elements e = rangeArrayArgument(fcinfo, 1, "qn_int4rangepacked_in_rangearray");
    PG_RETURN_BOOL(qn::pgRangeArray::rangeOverlapsList(r.lower, r.upper, e.rangesBegin(), e.rangesEnd()));
}

// qn_int4rangepacked_in_rangearray with the range array first, and its error:
// the function of int4[] ~&& int8, the commutator of int8 && int4[].
Datum qn_rangearray_overlaps_rangepacked(PG_FUNCTION_ARGS) {
    const PackedRange r = packedArgument(fcinfo, 1);
    const Int4Elements e = rangeArrayArgument(fcinfo, 0, "qn_int4rangepacked_in_rangearray");
    PG_RETURN_BOOL(qn::pgRangeArray::rangeOverlapsList(r.lower, r.upper, e.rangesBegin(), e.rangesEnd()));
}

// The packed ranges A and B share a member.
Datum qn_int4rangepacked_in_int4rangepacked(PG_FUNCTION_ARGS) {
    const PackedRange a = packedArgument(fcinfo, 0);
    const PackedRange b = packedArgument(fcinfo, 1);
    PG_RETURN_BOOL(b.upper >= a.lower && b.lower <= a.upper);
}

// A lies within B.
Datum qn_int4rangepacked_included_in_int4rangepacked(PG_FUNCTION_ARGS) {
    const PackedRange a = packedArgument(fcinfo, 0);
    const PackedRange b = packedArgument(fcinfo, 1);
    PG_RETURN_BOOL(a.lower >= b.lower && a.upper <= b.upper);
}

// B lies within A.
Datum qn_int4rangepacked_contains_int4rangepacked(PG_FUNCTION_ARGS) {
    const PackedRange a = packedArgument(fcinfo, 0);
    const PackedRange b = packedArgument(fcinfo, 1);
    PG_RETURN_BOOL(b.lower >= a.lower && b.upper <= a.upper);
}

// v lies in the packed range (value first).
Datum qn_int4_in_packedrange(PG_FUNCTION_ARGS) {
    const int32 v = PG_GETARG_INT32(0);
    const PackedRange r = packedArgument(fcinfo, 1);
    PG_RETURN_BOOL(r.lower <= v && v <= r.upper);
}

// v (argument 1) lies in the packed range (argument 2); argument 0 is not read.
// Called with two arguments (packed range, v), the operator form, it reads those.
Datum qn_int4rangepacked_contains_int4(PG_FUNCTION_ARGS) {
    const int32 v = PG_GETARG_INT32(1);
    const PackedRange r = packedArgument(fcinfo, PG_NARGS() == 2 ? 0 : 2);
    PG_RETURN_BOOL(r.lower <= v && v <= r.upper);
}

// v is inside the bitfield's span and its bit is set.
Datum qn_int4_in_rangebitfield(PG_FUNCTION_ARGS) {
    const int32 v = PG_GETARG_INT32(0);
    BitFieldView bf;
    if (!qn::pg::getBitFieldInfo(qn::pg::detoastArgumentCached(fcinfo, 1), bf) || !bf.covers(v)) PG_RETURN_BOOL(false);
    PG_RETURN_BOOL(qn::bitfield::testBit(bf.bits, qn::bitfield::positionOf(v, bf.min)));
}

// Some value of the packed range has its bit set; an inverted range meets nothing.
Datum qn_int4rangepacked_in_rangebitfield(PG_FUNCTION_ARGS) {
    const PackedRange r = packedArgument(fcinfo, 0);
    BitFieldView bf;
    if (!qn::pg::getBitFieldInfo(qn::pg::detoastArgumentCached(fcinfo, 1), bf,
                                 "qn_int4rangepacked_in_rangebitfield") ||
        r.lower > r.upper)
        PG_RETURN_BOOL(false);
    PG_RETURN_BOOL(qn::bitfield::runMeetsBitField(bf, r.lower, r.upper));
}

// Some member of the set ('s', 'r' or 'm') has its bit set.
Datum qn_int4set_overlap_bitfield(PG_FUNCTION_ARGS) { return int4set_test_bitfield(fcinfo, false); }

// Every member of the set lies in the bitfield, runs by the bitfield's inclusion rule.
Datum qn_int4set_included_in_bitfield(PG_FUNCTION_ARGS) { return int4set_test_bitfield(fcinfo, true); }
