// Conversions between the set representations: packing a range into an int8 and
// taking it apart, building the bitfield of a set, converting a set between its
// int4[] forms, sorting and counting sets, and decoding packed bytea payloads.
#include "qnPgBitFieldSet.h"
#include "qnPgSetConversions.h"
#include "quenloPgUtils.h"

using qn::pg::Int4Elements;
using qn::pg::PollInterrupts;

namespace {

const char kSourceFile[] = "pluginimpl/src/quenloPgRangeConversions";

// A bitfield of nbytes bytes of bits with the given bounds, bits zeroed (up to
// 512 MB: cleared in slices, cancellable).
bytea* allocateBitField(int32 min, int32 max, uint32 nbytes) {
    auto* value = static_cast<bytea*>(
        palloc_extended(qn::bitfield::kHeaderBytes + static_cast<Size>(nbytes), MCXT_ALLOC_NO_OOM));
    if (!value) QN_ERROR(ERRCODE_OUT_OF_MEMORY, "qn_int4set2bitfield_int4", nullptr);
    SET_VARSIZE(value, qn::bitfield::kHeaderBytes + nbytes);
    qn::bitfield::writeBounds(reinterpret_cast<uint8*>(value), min, max);
    qn::pg::zeroPolled(reinterpret_cast<uint8*>(value) + qn::bitfield::kHeaderBytes, nbytes);
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

const char kConvFunction[] = "qn_int4setconv_int4";

// 's' to 'r': runs of consecutive values; the input must be non-decreasing.
ArrayType* setToRangeArray(const Int4Elements& e) {
    qn::pg::PgRangeVector ranges(1024);
    if (!qn::pgRangeArray::scalarsToRanges(e.data, e.data + e.count, ranges, PollInterrupts{}))
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, kConvFunction, "convertScalarToRangeArray input data is not sorted");
    return qn::pg::buildRangeArrayResult(ranges, kConvFunction);
}

// 's' to 'm': the raw input count as count word, then one item per run.
ArrayType* setToMixArray(const Int4Elements& e) {
    qn::pg::PgVector<int32> mix(1024);
    if (!qn::pgRangeArray::scalarsToMixArray(e.data, e.data + e.count, mix, PollInterrupts{}))
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, kConvFunction, "convertScalarToMixArrayInt4 input data is not sorted");
    qn::pg::checkResultElements(mix.size(), kConvFunction, "array overflow");
    return qn::pg::buildInt4Result(mix.data(), mix.size(), kConvFunction);
}

void requireEvenCount(const Int4Elements& e) {
    if (e.count & 1)
        QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, kConvFunction, "invalid int4 count to represent a rangearray");
}

// 'r' to 's': every member of every pair, in pair order; inverted pairs add
// nothing, overlapping pairs repeat their common members.
ArrayType* rangeArrayToSet(const Int4Elements& e) {
    requireEvenCount(e);
    return qn::pg::writeInt4Result(qn::pgRangeArray::countMembers(e.rangesBegin(), e.rangesEnd()), kConvFunction,
                                   [&](int32* out) {
                                       qn::pgRangeArray::writeMembers(e.rangesBegin(), e.rangesEnd(), out,
                                                                      PollInterrupts{});
                                   });
}

// 'r' to 'm': one item per pair, unchecked, after the wrapping member total.
ArrayType* rangeArrayToMixArray(const Int4Elements& e) {
    requireEvenCount(e);
    return qn::pg::writeInt4Result(qn::pgRangeArray::mixArrayWords(e.rangesBegin(), e.rangesEnd()), kConvFunction,
                                   [&](int32* out) {
                                       qn::pgRangeArray::writeMixArray(e.rangesBegin(), e.rangesEnd(), out,
                                                                       PollInterrupts{});
                                   });
}

// 'm' to 'r': one range per item, in item order.
ArrayType* mixArrayToRangeArray(const Int4Elements& e) {
    qn::pg::PgRangeVector ranges(1024);
    const char* error = nullptr;
    qn::pgRangeArray::convertMixToRangeArray(e.data, e.data + e.count, ranges, error, PollInterrupts{});
    if (error) QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, kConvFunction, "%s", error);
    return qn::pg::buildRangeArrayResult(ranges, kConvFunction);
}

// 'm' to 's': the items must hold exactly the count word's number of integers.
// They are counted and checked before anything is allocated, so a wrong count
// word costs one pass over the input, whatever it claims; the result is then
// sized once and filled. An empty mix array (no count word) is the empty set.
ArrayType* mixArrayToSet(const Int4Elements& e) {
    const int32 declared = e.count ? e.data[0] : 0;
    if (declared < 0) QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, kConvFunction, "%s", "Output array is too small");
    const int32* items = e.count ? e.data + 1 : e.data;
    uint64 members = 0;
    if (!qn::pgRangeArray::countMixMembers(items, e.data + e.count, members))
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, kConvFunction, "%s", "Invalid range definition");
    if (members != static_cast<uint64>(declared))
        QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, kConvFunction, "%s", "Conversion error");
    return qn::pg::writeInt4Result(members, kConvFunction, [&](int32* out) {
        qn::pgRangeArray::expandMixArray(items, e.data + e.count, out, members, PollInterrupts{});
    });
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_range_pack)
QN_FUNCTION_INFO_V1(qn_rangepacked_lower)
QN_FUNCTION_INFO_V1(qn_rangepacked_upper)
QN_FUNCTION_INFO_V1(qn_int4set2bitfield_int4)
QN_FUNCTION_INFO_V1(qn_int4setconv_int4)
QN_FUNCTION_INFO_V1(qn_sort_int4)
QN_FUNCTION_INFO_V1(qn_count_scalar_in_int4set)
QN_FUNCTION_INFO_V1(qn_bytea2floatarray)
QN_FUNCTION_INFO_V1(qn_bytea2mix2rangearray)

// Packs (lower, upper), or an int4[] of exactly those two, into an int8.
Datum qn_range_pack(PG_FUNCTION_ARGS) {
    const char* function = "qn_range_pack";
    int32 lower = 0, upper = 0;
    if (PG_NARGS() == 1) {
        const ArrayType* pair = PG_GETARG_ARRAYTYPE_P(0);
        const Int4Elements e = qn::pg::readInt4Elements(pair);
        if (ARR_ELEMTYPE(pair) != INT4OID || e.count != 2)
            QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "accept only int4[] with a size of 2 ");
        lower = e.data[0];
        upper = e.data[1];
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
    raiseBuildError(qn::bitfield::fillBitField(form, e.data, e.count, plan, bits, PollInterrupts{}));
    PG_RETURN_BYTEA_P(value);
}

// Converts a set between its int4[] forms (input form, set, output form; each
// 'r', 's' or 'm'). NULL for a NULL input form or set; a NULL output form is no
// form letter. Both letters are checked before the set. A form converted to
// itself is refused. 's' input must be non-decreasing; 'r' pairs and 'm' items
// are taken as they come. A set that is not one-dimensional or holds NULLs is
// read as empty.
Datum qn_int4setconv_int4(PG_FUNCTION_ARGS) {
    using namespace qn::pgRangeArray;
    if (PG_ARGISNULL(0)) PG_RETURN_NULL();
    const uint32 from = ArrayDataTypeFromChar(PG_GETARG_CHAR(0));
    const uint32 to = ArrayDataTypeFromChar(PG_ARGISNULL(2) ? '\0' : PG_GETARG_CHAR(2));
    if (PG_ARGISNULL(1)) PG_RETURN_NULL();
    const ArrayType* set = PG_GETARG_ARRAYTYPE_P(1);
    if (ARR_ELEMTYPE(set) != INT4OID) QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, kConvFunction, "accept only int4[]");
    const Int4Elements e = qn::pg::readInt4Elements(set);
    if (from == ArrayDataTypeSet && to == ArrayDataTypeRangeArray) PG_RETURN_ARRAYTYPE_P(setToRangeArray(e));
    if (from == ArrayDataTypeSet && to == ArrayDataTypeMixArray) PG_RETURN_ARRAYTYPE_P(setToMixArray(e));
    if (from == ArrayDataTypeRangeArray && to == ArrayDataTypeSet) PG_RETURN_ARRAYTYPE_P(rangeArrayToSet(e));
    if (from == ArrayDataTypeRangeArray && to == ArrayDataTypeMixArray) PG_RETURN_ARRAYTYPE_P(rangeArrayToMixArray(e));
    if (from == ArrayDataTypeMixArray && to == ArrayDataTypeRangeArray) PG_RETURN_ARRAYTYPE_P(mixArrayToRangeArray(e));
    if (from == ArrayDataTypeMixArray && to == ArrayDataTypeSet) PG_RETURN_ARRAYTYPE_P(mixArrayToSet(e));
    QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, kConvFunction, "unsuported conversion");
}

// The values of an int4[] in ascending order, duplicates kept, so that any list
// can serve as a scalar set. NULL for NULL; an array that is not one-dimensional
// or holds NULLs gives the empty array. The argument is not modified.
Datum qn_sort_int4(PG_FUNCTION_ARGS) {
    const char* function = "qn_sort_int4";
    if (PG_ARGISNULL(0)) PG_RETURN_NULL();
    const ArrayType* values = PG_GETARG_ARRAYTYPE_P(0);
    if (ARR_ELEMTYPE(values) != INT4OID) QN_ERROR(ERRCODE_INVALID_PARAMETER_VALUE, function, "accept only int4[]");
    const Int4Elements e = qn::pg::readInt4Elements(values);
    const auto n = static_cast<uint64>(e.count);
    auto* scratch = static_cast<int32*>(palloc((n ? n : 1) * sizeof(int32)));
    ArrayType* result = qn::pg::writeInt4Result(
        n, function, [&](int32* out) { qn::pgRangeArray::sortValuesInto(e.data, out, scratch, n, PollInterrupts{}); });
    pfree(scratch);
    PG_RETURN_ARRAYTYPE_P(result);
}

// The number of integers a set in form 'r', 's' or 'm' stands for, read without
// expanding it: the sum of the pair widths, the element count, or the mix array's
// count word as stored. Pairs are not checked, so overlapping pairs count twice.
// NULL for a NULL argument and for an array of another element type. An array
// that is not one-dimensional or holds NULLs counts 0.
Datum qn_count_scalar_in_int4set(PG_FUNCTION_ARGS) {
    using namespace qn::pgRangeArray;
    const char* function = "qn_count_scalar_in_int4set";
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    const ArrayType* set = PG_GETARG_ARRAYTYPE_P(1);
    if (ARR_ELEMTYPE(set) != INT4OID) PG_RETURN_NULL();
    const uint32 form = ArrayDataTypeFromChar(PG_GETARG_CHAR(0));
    const Int4Elements e = qn::pg::readInt4Elements(set);
    switch (form) {
        case ArrayDataTypeRangeArray:
            if (e.count & 1)
                QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, function, "invalid int4 count to represent a rangearray");
            PG_RETURN_INT32(rangeArrayCount32(e.rangesBegin(), e.rangesEnd()));
        case ArrayDataTypeMixArray: PG_RETURN_INT32(e.count ? e.data[0] : 0);
        case ArrayDataTypeSet: PG_RETURN_INT32(e.count);
        default: QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, function, "Unsuported input type");
    }
}

// A bytea of native-order 4-byte floats as a float4[], bit for bit. NULL for NULL.
Datum qn_bytea2floatarray(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(0)) PG_RETURN_NULL();
    const bytea* payload = PG_GETARG_BYTEA_PP(0);
    const Size n = VARSIZE_ANY_EXHDR(payload);
    if (n % sizeof(float4))
        QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, "qn_bytea2floatarray",
                 "invalid byte count to represent a float array");
    ArrayType* result = qn::pg::writeInt4Result(n / sizeof(float4), "qn_bytea2floatarray",
                                                [&](int32* out) { qn::pg::copyPolled(out, VARDATA_ANY(payload), n); });
    result->elemtype = FLOAT4OID;
    PG_RETURN_ARRAYTYPE_P(result);
}

// A bytea holding a mix array as native-order int4 words, as a range array: one
// range per item, in item order, neither sorted nor merged; the count word is
// not read. NULL for NULL.
Datum qn_bytea2mix2rangearray(PG_FUNCTION_ARGS) {
    const char* function = "qn_bytea2mix2rangearray";
    if (PG_ARGISNULL(0)) PG_RETURN_NULL();
    const bytea* payload = PG_GETARG_BYTEA_P(0);  // 4-byte header: the words are int4-aligned
    const Size n = VARSIZE(payload) - VARHDRSZ;
    if (n % sizeof(int32))
        QN_ERROR(ERRCODE_INVALID_BINARY_REPRESENTATION, function, "invalid byte count to represent an int4 mixarray");
    const auto* words = reinterpret_cast<const int32*>(VARDATA(payload));
    qn::pg::PgRangeVector ranges(1024);
    const char* error = nullptr;
    qn::pgRangeArray::convertMixToRangeArray(words, words + n / sizeof(int32), ranges, error, PollInterrupts{});
    if (error) QN_ERROR(ERRCODE_INTERVAL_FIELD_OVERFLOW, function, "%s", error);
    PG_RETURN_ARRAYTYPE_P(qn::pg::buildRangeArrayResult(ranges, function));
}
