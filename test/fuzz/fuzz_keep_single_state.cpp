// The serialised agg_keep_single state, from any bytes, read from a heap copy of
// exactly its length, and the states the serial function writes. Checks:
// - the reader's verdict follows the layout (length, kind, and the kind the
//   type travels in), and a value it hands out lies inside the bytes;
// - every state written for a type, NULL or not, reads back as written.
#include "fuzz_common.h"
#include "qnPgKeepSingleState.h"

using namespace fz;
using namespace qn::keepsingle;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    const uint8_t mode = in.u8();
    if (mode & 1) {
        ExactBuffer bytes(in.bytes(size));
        KeepSingleStateView view{};
        const KeepSingleStateError e = readKeepSingleState(bytes.get(), bytes.size, view);
        if (bytes.size <= kKindOffset) {
            FZ_CHECK(e == KeepSingleStateError::Empty);
            return 0;
        }
        const uint8_t kind = bytes.get()[kKindOffset];
        if (e == KeepSingleStateError::None) {
            uint32_t type;
            std::memcpy(&type, bytes.get() + kTypeOffset, 4);
            FZ_CHECK(view.typeOid == type && view.isNull == (bytes.get()[kNullOffset] != 0));
            FZ_CHECK((kind == kKindVarlena) == keptAsVarlena(type) && (kind == kKindByValue || kind == kKindVarlena));
            if (kind == kKindByValue) {
                FZ_CHECK(bytes.size == kByValueBytes && view.data == nullptr);
            } else {
                FZ_CHECK(view.data == bytes.get() + kValueOffset && kValueOffset + view.dataBytes == bytes.size);
                std::vector<uint8_t> copy(view.data, view.data + view.dataBytes);  // in bounds, or ASan says so
            }
        } else if (kind == kKindByValue) {
            FZ_CHECK(bytes.size != kByValueBytes || e == KeepSingleStateError::UnknownKind);
        }
        return 0;
    }

    // Written by the serial function: header, then the Datum or the value's bytes.
    static constexpr uint32_t kTypes[] = {16, 20, 21, 23, 700, 701, 17, 25, 0, 9, 1043};
    const uint32_t type = (mode & 2) ? in.u32() : kTypes[in.u8() % (sizeof kTypes / sizeof kTypes[0])];
    const bool isNull = mode & 4;
    std::vector<uint8_t> state;
    const std::vector<uint8_t> value = in.bytes(in.u16() % 512);
    if (keptAsVarlena(type)) {
        state.resize(kValueOffset + (isNull ? 0 : value.size()));
        if (!isNull && !value.empty()) std::memcpy(state.data() + kValueOffset, value.data(), value.size());
    } else {
        state.resize(kByValueBytes);
        const uint64_t word = isNull ? 0 : in.u64();
        std::memcpy(state.data() + kValueOffset, &word, 8);
    }
    writeKeepSingleHeader(state.data(), isNull, type);
    ExactBuffer bytes(state);
    KeepSingleStateView view{};
    FZ_CHECK(readKeepSingleState(bytes.get(), bytes.size, view) == KeepSingleStateError::None);
    FZ_CHECK(view.isNull == isNull && view.typeOid == type);
    if (keptAsVarlena(type))
        FZ_CHECK(view.dataBytes == bytes.size - kValueOffset &&
                 (view.dataBytes == 0 || std::memcmp(view.data, value.data(), view.dataBytes) == 0));
    else
        FZ_CHECK(std::memcmp(&view.word, bytes.get() + kValueOffset, 8) == 0);
    return 0;
}
