// int4set values at the entry points of the type, its aggregates, indexes and
// estimators: a value's payload (the bytes after its length word) and the
// errors of the readers and writers, which report this header as their source.
#pragma once

#include "qnPgInt4Set.h"
#include "quenloPgUtils.h"

namespace qn::pg {

constexpr char kSetDatumSource[] = "pluginimpl/inc/quenloPgInt4SetDatum";

struct SetPayload {
    const uint8_t* data;
    size_t size;
};

// The payload of an int4set datum, detoasted (a copy when it was stored
// compressed or out of line).
inline SetPayload setPayload(Datum d) {
    const varlena* v = PG_DETOAST_DATUM_PACKED(d);
    return {reinterpret_cast<const uint8_t*>(VARDATA_ANY(v)), VARSIZE_ANY_EXHDR(v)};
}

// Argument argno's payload, detoasted once per query where it was stored
// compressed or out of line.
inline SetPayload setArgument(FunctionCallInfo fcinfo, int argno) {
    const auto* raw = reinterpret_cast<const varlena*>(PG_GETARG_POINTER(argno));
    if (VARATT_IS_EXTERNAL(raw) || VARATT_IS_COMPRESSED(raw)) raw = detoastArgumentCached(fcinfo, argno);
    return {reinterpret_cast<const uint8_t*>(VARDATA_ANY(raw)), VARSIZE_ANY_EXHDR(raw)};
}

// A stored value the readers cannot read: XX001 (data corrupted).
[[noreturn]] inline void raiseCorruptSet(qn::int4set::Status status, const char* function) {
    raiseError(ERRCODE_DATA_CORRUPTED, kSetDatumSource, __LINE__, function, "int4set value is corrupt: %s",
               qn::int4set::statusMessage(status));
}

// A reader's or writer's status: out of memory is a set too large to build
// (54000), any other failure a value the readers cannot read.
inline void checkSet(qn::int4set::Status status, const char* function) {
    if (status == qn::int4set::Status::Ok) return;
    if (status == qn::int4set::Status::OutOfMemory)
        raiseError(ERRCODE_PROGRAM_LIMIT_EXCEEDED, kSetDatumSource, __LINE__, function, "int4set too large");
    raiseCorruptSet(status, function);
}

}  // namespace qn::pg
