// Conversions between the set representations: packing a range into an int8 and
// taking it apart, and building the bitfield of a set.
#include "qnPgBitFieldSet.h"
#include "quenloPgUtils.h"

using qn::pg::Int4Elements;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgRangeConversions";

// A bitfield of nbytes bytes of bits with the given bounds, bits zeroed.
bytea* allocateBitField(int32 min, int32 max, uint32 nbytes) {
    auto* value = static_cast<bytea*>(
        palloc_extended(qn::bitfield::kHeaderBytes + static_cast<Size>(nbytes), MCXT_ALLOC_ZERO | MCXT_ALLOC_NO_OOM));
    if (!value) QN_ERROR(ERRCODE_OUT_OF_MEMORY, "qn_int4set2bitfield_int4", nullptr);
    SET_VARSIZE(value, qn::bitfield::kHeaderBytes + nbytes);
    qn::bitfield::writeBounds(reinterpret_cast<uint8*>(value), min, max);
    return value;
}

// Raises the error of a failed bitfield build.
void raiseBuildError(qn::bitfield::SetBuildError error) {
    const char* function = "qn_int4set2bitfield_int4";
    switch (error) {
        case qn::bitfield::SetBuildError::None: return;
        case qn::bitfield::SetBuildError::OddRangeArray:
        case qn::bitfield::SetBuildError::MixRangeWithoutUpper:
            QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, function, "invalid int4 count to represent a rangearray");
        case qn::bitfield::SetBuildError::OutsideSpan:
            QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, function, "unsuported conversion");
    }
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_range_pack)
QN_FUNCTION_INFO_V1(qn_rangepacked_lower)
QN_FUNCTION_INFO_V1(qn_rangepacked_upper)
QN_FUNCTION_INFO_V1(qn_int4set2bitfield_int4)

// Packs (lower, upper), or an int4[] of exactly those two, into an int8.
Datum qn_range_pack(PG_FUNCTION_ARGS) {
    const char* function = "qn_range_pack";
    int32 lower = 0, upper = 0;
    if (PG_NARGS() == 1) {
        const ArrayType* pair = PG_GETARG_ARRAYTYPE_P(0);
        if (ARR_ELEMTYPE(pair) != INT4OID || ARR_NDIM(pair) != 1 || ARR_HASNULL(pair) || ARR_DIMS(pair)[0] != 2)
            QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "accept only int4[] with a size of 2 ");
        const auto* bounds = reinterpret_cast<const int32*>(ARR_DATA_PTR(pair));
        lower = bounds[0];
        upper = bounds[1];
    } else if (PG_NARGS() == 2) {
        lower = PG_GETARG_INT32(0);
        upper = PG_GETARG_INT32(1);
    } else {
        QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "accept only int4[] with a size of 2 or 2 int4");
    }
    if (upper < lower) QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "invalid range");
    PG_RETURN_INT64(qn::pgRangeArray::packRange(lower, upper));
}

// The lower bound of a packed range (its low 32 bits); not validated.
Datum qn_rangepacked_lower(PG_FUNCTION_ARGS) { PG_RETURN_INT32(qn::pgRangeArray::packedLower(PG_GETARG_INT64(0))); }

// The upper bound of a packed range (its high 32 bits); not validated.
Datum qn_rangepacked_upper(PG_FUNCTION_ARGS) { PG_RETURN_INT32(qn::pgRangeArray::packedUpper(PG_GETARG_INT64(0))); }

// The bitfield of a set given in form 's', 'r' or 'm', spanning its first to its
// last value. NULL for a NULL argument. A set that is not one-dimensional, holds
// NULLs or has no members gives an empty bitfield (13 bytes for 'r', 20 for 's'
// and 'm'). Members must lie within [first, last]: anything else is refused
// rather than written outside the value.
Datum qn_int4set2bitfield_int4(PG_FUNCTION_ARGS) {
    using namespace qn::pgRangeArray;
    const char* function = "qn_int4set2bitfield_int4";
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    const uint32 form = ArrayDataTypeFromChar(PG_GETARG_CHAR(0));
    const ArrayType* set = PG_GETARG_ARRAYTYPE_P(1);
    if (ARR_ELEMTYPE(set) != INT4OID) QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "accept only int4[]");
    const Int4Elements e = qn::pg::readInt4Elements(set);
    if (e.count == 0 || (form == ArrayDataTypeMixArray && e.count == 1))
        PG_RETURN_BYTEA_P(allocateBitField(0, -1, form == ArrayDataTypeRangeArray ? 1 : 8));
    qn::bitfield::BitFieldPlan plan{};
    raiseBuildError(qn::bitfield::planBitField(form, e.data, e.count, plan));
    if (form == ArrayDataTypeMixArray && e.data[0] == 0)  // a declared count of 0: empty, sized from the items
        PG_RETURN_BYTEA_P(allocateBitField(0, -1, plan.nbytes));
    bytea* value = allocateBitField(plan.min, plan.max, plan.nbytes);
    auto* bits = reinterpret_cast<uint8*>(value) + qn::bitfield::kHeaderBytes;
    raiseBuildError(qn::bitfield::fillBitField(form, e.data, e.count, plan, bits));
    PG_RETURN_BYTEA_P(value);
}
