// Error report and result builders shared by every entry point.
#include "quenloPgUtils.h"

extern "C" {
#include "lib/stringinfo.h"
}

namespace {
const char kUtilsSource[] = "pluginimpl/inc/quenloPgUtils";
}

namespace qn::pg {

void raiseError(int sqlstate, const char* file, int line, const char* function, const char* fmt, ...) {
    if (errstart(ERROR, nullptr)) {
        errcode(sqlstate);
        if (fmt) {
            StringInfoData message;
            initStringInfo(&message);
            for (;;) {
                va_list args;
                va_start(args, fmt);
                const int needed = appendStringInfoVA(&message, fmt, args);
                va_end(args);
                if (needed == 0) break;
                enlargeStringInfo(&message, needed);
            }
            errmsg("%s", message.data);
        }
        errfinish(file, line, function);
    }
    pg_unreachable();
}

ArrayType* allocateResultArray(int32 n) {
    const Size bytes = ARR_OVERHEAD_NONULLS(1) + static_cast<Size>(n) * sizeof(int32);
    auto* result = static_cast<ArrayType*>(palloc_extended(bytes, MCXT_ALLOC_ZERO | MCXT_ALLOC_NO_OOM));
    if (!result) raiseError(ERRCODE_OUT_OF_MEMORY, kUtilsSource, __LINE__, "allocateResultArray", nullptr);
    SET_VARSIZE(result, bytes);
    result->ndim = 1;
    result->dataoffset = 0;
    result->elemtype = INT4OID;
    ARR_DIMS(result)[0] = n;
    ARR_LBOUND(result)[0] = 1;
    return result;
}

ArrayType* buildInt4Result(const int32* elements, uint64_t n, const char* function) {
    if (n > static_cast<uint64_t>(PG_INT32_MAX))
        raiseError(ERRCODE_INTERVAL_FIELD_OVERFLOW, kUtilsSource, __LINE__, function, "array overflow ");
    ArrayType* result = allocateResultArray(static_cast<int32>(n));
    if (n) memcpy(ARR_DATA_PTR(result), elements, n * sizeof(int32));
    return result;
}

bytea* allocateBytea(uint64_t n) {
    auto* result = static_cast<bytea*>(palloc_extended(VARHDRSZ + n, MCXT_ALLOC_NO_OOM));
    if (!result) raiseError(ERRCODE_OUT_OF_MEMORY, kUtilsSource, __LINE__, "allocateBytea", nullptr);
    SET_VARSIZE(result, VARHDRSZ + n);
    return result;
}

}  // namespace qn::pg

namespace qn::pgRangeArray {

uint32_t ArrayDataTypeFromChar(char c) {
    const uint32_t type = arrayDataTypeFromCharOrZero(c);
    if (type == 0)
        qn::pg::raiseError(ERRCODE_INTERVAL_FIELD_OVERFLOW, kUtilsSource, __LINE__, "ArrayDataTypeFromChar",
                           "int4_agg array type should be 'r','s' or 'm'");
    return type;
}

}  // namespace qn::pgRangeArray
