// The byte layout in which an agg_keep_single state travels between processes.
//
//   bytes 0-3    length word
//   byte  4      kind: 1 a value kept by value, 2 a bytea or text value
//   byte  5      the state holds no value (NULL)
//   bytes 6-9    the type's OID (uint32, native order, unaligned)
//   bytes 10-    kind 1: the Datum, 8 bytes (length 18 in all)
//                kind 2: the value's data bytes, without its length word; none
//                when the state holds no value
//
// The policy is not carried: a state read back always has the policy off.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgKeepSingleState.h must not see server headers: include it before postgres.h");
#endif

#include <cstdint>
#include <cstring>

namespace qn::keepsingle {

constexpr uint8_t kKindByValue = 1;
constexpr uint8_t kKindVarlena = 2;
constexpr uint32_t kKindOffset = 4;
constexpr uint32_t kNullOffset = 5;
constexpr uint32_t kTypeOffset = 6;
constexpr uint32_t kValueOffset = 10;
constexpr uint32_t kByValueBytes = kValueOffset + 8;

// bytea (17) and text (25) are kept as copies of their bytes; every other type
// travels by value.
inline bool keptAsVarlena(uint32_t typeOid) { return (typeOid & ~8u) == 17; }

// Fills bytes 4 to 9 of a serialised state.
inline void writeKeepSingleHeader(uint8_t* bytes, bool isNull, uint32_t typeOid) {
    bytes[kKindOffset] = keptAsVarlena(typeOid) ? kKindVarlena : kKindByValue;
    bytes[kNullOffset] = isNull ? 1 : 0;
    std::memcpy(bytes + kTypeOffset, &typeOid, sizeof typeOid);
}

enum class KeepSingleStateError {
    None,
    Empty,        // the length word alone
    BadSize,      // a kind 1 state not 18 bytes long, or a kind 2 one shorter than its header
    UnknownKind,  // a kind other than 1 or 2, or not the kind its type travels in
};

struct KeepSingleStateView {
    bool isNull;
    uint32_t typeOid;
    uint64_t word;        // kind 1: the Datum
    const uint8_t* data;  // kind 2: the value's data bytes
    uint32_t dataBytes;
};

// Reads a serialised state of `total` bytes (length word included). Nothing
// beyond `total` is read.
inline KeepSingleStateError readKeepSingleState(const uint8_t* bytes, uint64_t total, KeepSingleStateView& view) {
    view = {};
    if (total <= kKindOffset) return KeepSingleStateError::Empty;
    const uint8_t kind = bytes[kKindOffset];
    if (kind == kKindByValue && total != kByValueBytes) return KeepSingleStateError::BadSize;
    if (kind == kKindVarlena && total < kValueOffset) return KeepSingleStateError::BadSize;
    if (kind != kKindByValue && kind != kKindVarlena) return KeepSingleStateError::UnknownKind;
    view.isNull = bytes[kNullOffset] != 0;
    std::memcpy(&view.typeOid, bytes + kTypeOffset, sizeof view.typeOid);
    // A pointer never travels: a bytea or text state must carry its bytes.
    if ((kind == kKindVarlena) != keptAsVarlena(view.typeOid)) return KeepSingleStateError::UnknownKind;
    if (kind == kKindByValue) {
        std::memcpy(&view.word, bytes + kValueOffset, sizeof view.word);
    } else {
        view.data = bytes + kValueOffset;
        view.dataBytes = static_cast<uint32_t>(total - kValueOffset);
    }
    return KeepSingleStateError::None;
}

}  // namespace qn::keepsingle
