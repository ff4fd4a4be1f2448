// Error report and result builders shared by every entry point.
#include "quenloPgUtils.h"

extern "C" {
#include "access/detoast.h"
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

void checkResultElements(uint64_t n, const char* function, const char* message) {
    if (n > static_cast<uint64_t>(MaxArraySize))
        raiseError(ERRCODE_INTERVAL_FIELD_OVERFLOW, kUtilsSource, __LINE__, function, "%s", message);
}

ArrayType* allocateResultArray(int32 n, bool zeroed) {
    checkResultElements(n < 0 ? UINT64_MAX : static_cast<uint64_t>(n), "allocateResultArray");
    const Size bytes = ARR_OVERHEAD_NONULLS(1) + static_cast<Size>(n) * sizeof(int32);
    auto* result = static_cast<ArrayType*>(palloc_extended(bytes, (zeroed ? MCXT_ALLOC_ZERO : 0) | MCXT_ALLOC_NO_OOM));
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
    return writeInt4Result(n, function, [&](int32* out) { copyPolled(out, elements, n * sizeof(int32)); });
}

namespace {

// Writes `bytes` bytes at `to` in slices, from `from` (null: zeros).
void writePolled(char* to, const char* from, size_t bytes) {
    constexpr size_t kSlice = size_t{4} << 20;
    while (bytes > 0) {
        const size_t n = bytes < kSlice ? bytes : kSlice;
        if (from) {
            memcpy(to, from, n);
            from += n;
        } else {
            memset(to, 0, n);
        }
        to += n;
        bytes -= n;
        CHECK_FOR_INTERRUPTS();
    }
}

}  // namespace

void copyPolled(void* to, const void* from, size_t bytes) {
    writePolled(static_cast<char*>(to), static_cast<const char*>(from), bytes);
}

void zeroPolled(void* to, size_t bytes) { writePolled(static_cast<char*>(to), nullptr, bytes); }

namespace {

// The toasted arguments last expanded at one call site, by argument number: an
// out-of-line value is known by its TOAST pointer, a compressed inline one by
// its compressed bytes (comparing them costs far less than decompressing).
struct DetoastCache {
    static constexpr int kArguments = 4;
    struct Slot {
        varatt_external pointer;
        varlena* compressed;  // a copy of the compressed inline value, else null
        varlena* value;
    } slots[kArguments];
};

bool slotHolds(const DetoastCache::Slot& slot, const varlena* raw, const varatt_external& pointer) {
    if (!slot.value) return false;
    if (VARATT_IS_EXTERNAL_ONDISK(raw)) return !slot.compressed && memcmp(&slot.pointer, &pointer, sizeof pointer) == 0;
    return slot.compressed && VARSIZE(slot.compressed) == VARSIZE(raw) && memcmp(slot.compressed, raw, VARSIZE(raw)) == 0;
}

}  // namespace

const varlena* detoastArgumentCached(FunctionCallInfo fcinfo, int argno) {
    auto* raw = reinterpret_cast<varlena*>(PG_GETARG_POINTER(argno));
    const bool external = VARATT_IS_EXTERNAL_ONDISK(raw);
    if (!(external || VARATT_IS_COMPRESSED(raw)) || !fcinfo->flinfo || argno >= DetoastCache::kArguments)
        return pg_detoast_datum(raw);
    auto* cache = static_cast<DetoastCache*>(fcinfo->flinfo->fn_extra);
    if (!cache) {
        cache = static_cast<DetoastCache*>(MemoryContextAllocZero(fcinfo->flinfo->fn_mcxt, sizeof(DetoastCache)));
        fcinfo->flinfo->fn_extra = cache;
    }
    varatt_external pointer{};
    if (external) VARATT_EXTERNAL_GET_POINTER(pointer, raw);
    DetoastCache::Slot& slot = cache->slots[argno];
    if (slotHolds(slot, raw, pointer)) return slot.value;
    if (slot.value) pfree(slot.value);
    if (slot.compressed) pfree(slot.compressed);
    slot.value = slot.compressed = nullptr;
    MemoryContext caller = MemoryContextSwitchTo(fcinfo->flinfo->fn_mcxt);
    varlena* value = pg_detoast_datum(raw);
    if (!external) {
        slot.compressed = static_cast<varlena*>(palloc(VARSIZE(raw)));
        memcpy(slot.compressed, raw, VARSIZE(raw));
    }
    MemoryContextSwitchTo(caller);
    slot.pointer = pointer;
    slot.value = value;
    return value;
}

bytea* allocateBytea(uint64_t n) {
    auto* result = static_cast<bytea*>(palloc_extended(VARHDRSZ + n, MCXT_ALLOC_NO_OOM));
    if (!result) raiseError(ERRCODE_OUT_OF_MEMORY, kUtilsSource, __LINE__, "allocateBytea", nullptr);
    SET_VARSIZE(result, VARHDRSZ + n);
    return result;
}

void* allocateBitBufferBytes(size_t bytes) {
    if (!AllocSizeIsValid(bytes)) return nullptr;
    return palloc_extended(bytes, MCXT_ALLOC_NO_OOM);
}

void raiseBitBufferError(qn::bitfield::BitBufferError error) {
    const char* file = "common/inc/quenloPgBitField";
    switch (error) {
        case qn::bitfield::BitBufferError::InvalidCapacity:
            raiseError(ERRCODE_INTERVAL_FIELD_OVERFLOW, file, __LINE__, "reserve", "bitfield invalid capacity");
        case qn::bitfield::BitBufferError::OutOfMemory:
            raiseError(ERRCODE_OUT_OF_MEMORY, file, __LINE__, "reserve", nullptr);
        case qn::bitfield::BitBufferError::Overflow:
            raiseError(ERRCODE_INTERVAL_FIELD_OVERFLOW, file, __LINE__, "resize", "tSize overflow ");
    }
    pg_unreachable();
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
