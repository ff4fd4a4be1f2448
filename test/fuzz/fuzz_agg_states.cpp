// The serialised states of the three aggregates, from any bytes in a heap copy of
// exactly their length. Each reader takes exactly the well-formed states (int4set_agg:
// lengths 6 + 8k; int4set_agg_optimized: bits within the capacity). For
// int4set_agg_optimized, rows (under a limit) and another state's bits change the
// bits as the bit model does, the buffer growing only as far as the values reach and
// within the limit's words; the three outputs list its members, runs and mix items,
// and the sizes for a largest value hold it and nothing past it. agg_keep_single
// hands out values inside the bytes and reads back the header it wrote.
#include "fuzz_common.h"
#include "qnPgBitSetBuilder.h"
#include "qnPgKeepSingleState.h"
#include "qnPgRangeSetBuilder.h"

using namespace fz;

namespace {

void setState(Reader& in) {
    using namespace qn::pgRangeArray;
    const Bytes state(in.bytes(in.u16() % 2048));
    int32_t inputType = 99, outputType = 99;
    uint64_t count = 99;
    const SetStateError e = readSetState(state.get(), state.count, inputType, outputType, count);
    const uint64_t payload = state.count - kSetStateRangesOffset;  // wraps when shorter
    FZ_CHECK(e == (state.count < kSetStateRangesOffset ? SetStateError::Empty
                   : payload % 8                       ? SetStateError::RaggedRanges
                                                       : SetStateError::None));
    FZ_CHECK(count == (e == SetStateError::None ? payload / 8 : 0));
}

using namespace qn::bitfield;
using qn::pgRangeArray::NoPoll;

bool holds(uint32_t size, int64_t v) { return v >= 0 && v / 8 < size; }

// addBitSetArray's rules over the model's bytes, which reach at least the limit
// (what it leaves after an error is not compared).
BitSetAddError modelAdd(std::vector<uint8_t>& bits, uint32_t limit, uint32_t form, const std::vector<int32_t>& e) {
    if (form == ArrayDataTypeRangeArray && e.size() % 2) return BitSetAddError::OddRangeArray;
    for (size_t i = 1; form == ArrayDataTypeMixArray && i < e.size(); ++i)
        if (e[i] < 0 && ++i == e.size()) return BitSetAddError::MixRangeWithoutUpper;
    for (const auto& [l, u] : runsOf(form, e)) {
        if (l > u) continue;
        if (!holds(limit, l) || !holds(limit, u)) return BitSetAddError::ScalarOutside;
        for (int64_t v = l; v <= u; ++v) bits[v >> 3] |= static_cast<uint8_t>(0x80 >> (v & 7));
    }
    return BitSetAddError::None;
}

// The buffer holds the model's bytes as far as it reaches, and the model has
// nothing set past that.
bool sameBits(const Buffer& bits, const std::vector<uint8_t>& model) {
    return bits.size <= model.size() && (bits.size == 0 || std::memcmp(bits.data, model.data(), bits.size) == 0) &&
           std::all_of(model.begin() + bits.size, model.end(), [](uint8_t b) { return b == 0; });
}

// The three outputs against the runs of the bit model.
void checkOutputs(const Buffer& bits) {
    if (bits.size > (1u << 13)) return;
    std::vector<R> members;
    for (uint64_t p = 0; p < uint64_t{bits.size} * 8; ++p)
        if (bitAt(bits.data, p)) members.push_back(R{static_cast<int32_t>(p), static_cast<int32_t>(p)});
    for (uint32_t form : {ArrayDataTypeSet, ArrayDataTypeRangeArray, ArrayDataTypeMixArray}) {
        std::vector<int32_t> expected = wordsOf(form, canonical(members), static_cast<int32_t>(members.size()));
        if (members.empty()) expected.clear();
        const uint64_t n = countBitSetElements(bits.data, bits.size, form, NoPoll{});
        std::unique_ptr<int32_t[]> out(new int32_t[n ? n : 1]);
        writeBitSetElements(bits.data, bits.size, form, out.get(), NoPoll{});
        FZ_CHECK(n == expected.size() && std::equal(expected.begin(), expected.end(), out.get()));
    }
}

void bitSetState(Reader& in) {
    const Bytes state(in.bytes(in.u16() % 4096));
    int32_t inputType = 0, outputType = 0;
    uint32_t capacity = 0, size = 0;
    const BitSetStateError e = readBitSetState(state.get(), state.count, inputType, outputType, capacity, size);
    FZ_CHECK((e == BitSetStateError::Empty) == (state.count < kBitSetStateBitsOffset));
    if (e == BitSetStateError::Empty) return;
    uint32_t declared;
    std::memcpy(&declared, state.get() + kBitSetStateCapacityOffset, 4);
    FZ_CHECK((e == BitSetStateError::Corrupted) == (state.count - kBitSetStateBitsOffset > declared));
    if (e != BitSetStateError::None) return;
    FZ_CHECK(capacity == declared && size == state.count - kBitSetStateBitsOffset);

    // Deserialised as the aggregate does; a capacity the buffer refuses raises there.
    Buffer bits{};
    try {
        if (capacity) {
            bits.reserve(capacity);
            if (size) std::memcpy(bits.data, state.get() + kBitSetStateBitsOffset, size);
            bits.size = size;
        }
    } catch (const BufferFailure&) {
        FZ_CHECK(capacity % 8 != 0 || capacity > (1u << 20));
        return;
    }
    // Rows under a limit of at least the bytes in use; the model holds every byte
    // up to it. Only or-ing another state's bits may grow the buffer past it.
    const uint32_t limit = std::max<uint32_t>(bits.size, in.u16() % 4096);
    std::vector<uint8_t> model(bits.data, bits.data + bits.size);
    model.resize(limit, 0);
    uint64_t most = std::max<uint64_t>(bits.capacity, (uint64_t{limit} + 7) & ~uint64_t{7});
    uint32_t floor = bits.size;  // the bytes in use whatever the rows
    while (!in.empty()) {
        const uint8_t op = in.u8();
        BitSetAddError got = BitSetAddError::None, expected = BitSetAddError::None;
        try {
            if (op % 4 == 0) {  // another state's bits or-ed in
                const std::vector<uint8_t> other = in.bytes(in.u16() % 1024);
                if (other.size() > bits.size) bits.resize(static_cast<uint32_t>(other.size()));
                orBitBytes(bits.data, Bytes(other).get(), static_cast<uint32_t>(other.size()));
                model.resize(std::max(model.size(), other.size()), 0);
                for (size_t i = 0; i < other.size(); ++i) model[i] |= other[i];
                most = std::max<uint64_t>(most, bits.capacity);
                floor = std::max<uint32_t>(floor, static_cast<uint32_t>(other.size()));
            } else if (op % 4 == 1) {  // a bounds row
                const int32_t lower = in.i32(), upper = in.i32();
                got = addBitSetBounds(bits, limit, lower, upper, NoPoll{});
                std::vector<int32_t> row{lower, upper};
                expected = lower > upper ? BitSetAddError::None : modelAdd(model, limit, ArrayDataTypeRangeArray, row);
                if (expected != BitSetAddError::None) expected = BitSetAddError::BoundsOutside;
            } else {  // an array row, members mostly near the limit
                const uint32_t form = ArrayDataTypeSet + op / 4 % 3;
                std::vector<int32_t> row;
                for (size_t k = in.u8() % 32; k > 0 && !in.empty(); --k) {
                    const uint8_t how = in.u8();
                    row.push_back(how < 200 ? static_cast<int32_t>(in.u16() % (limit * 8 + 8)) |
                                                  (how < 40 ? INT32_MIN : 0)
                                            : in.i32());
                }
                const Words words(row);
                got = addBitSetArray(bits, limit, form, words.begin(), static_cast<int32_t>(words.count), NoPoll{});
                expected = modelAdd(model, limit, form, row);
            }
        } catch (const BufferFailure&) {
            break;  // the aggregate has raised: nothing more happens to this state
        }
        FZ_CHECK(got == expected);
        if (got != BitSetAddError::None) break;  // so has it here
        // The bytes in use reach the last byte with a bit set, no further; the capacity, the limit's words.
        size_t reach = model.size();
        while (reach > 0 && model[reach - 1] == 0) --reach;
        FZ_CHECK(sameBits(bits, model) && bits.size <= std::max<size_t>(floor, reach));
        FZ_CHECK(bits.capacity % 8 == 0 && bits.capacity <= most);
    }
    checkOutputs(bits);
    bits.release();
}

// The buffer sizes for a largest value m.
void bitSetSizesFor(int32_t m) {
    const BitSetSizes sizes = bitSetSizes(m);
    FZ_CHECK(sizes.capacity % 8 == 0 && sizes.size <= sizes.capacity && sizes.size <= kMaxBitSetBytes);
    FZ_CHECK(bitSetHolds(sizes.size, m) && bitSetLast(sizes.size) >= m);
    if (bitSetLast(sizes.size) < INT32_MAX) FZ_CHECK(!bitSetHolds(sizes.size, bitSetLast(sizes.size) + 1));
    FZ_CHECK(!bitSetHolds(sizes.size, -1 - (m & 0xff)));
}

void keepSingleState(Reader& in) {
    using namespace qn::keepsingle;
    const uint8_t mode = in.u8();
    std::vector<uint8_t> state = in.bytes(in.u16() % 512);
    static constexpr uint32_t kTypes[] = {16, 20, 21, 23, 700, 701, 17, 25, 0, 9, 1043};
    const uint32_t type = (mode & 2) ? in.u32() : kTypes[in.u8() % (sizeof kTypes / sizeof kTypes[0])];
    const bool isNull = mode & 4, written = mode & 1;
    if (written) {  // by the serial function: header, then the Datum or the value's bytes
        if (isNull) state.clear();
        if (!keptAsVarlena(type)) state.resize(8, 0);
        state.insert(state.begin(), kValueOffset, 0);
        writeKeepSingleHeader(state.data(), isNull, type);
    }
    const Bytes bytes(state);
    KeepSingleStateView view{};
    const KeepSingleStateError e = readKeepSingleState(bytes.get(), bytes.count, view);
    if (e == KeepSingleStateError::None && view.data)
        FZ_CHECK(view.data >= bytes.begin() && view.data + view.dataBytes <= bytes.end());
    if (written) FZ_CHECK(e == KeepSingleStateError::None && view.isNull == isNull && view.typeOid == type);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    switch (in.u8() % 4) {
        case 0: setState(in); break;
        case 1: bitSetState(in); break;
        case 2: bitSetSizesFor(std::max<int32_t>(1, in.i32() & INT32_MAX)); break;
        default: keepSingleState(in); break;
    }
    return 0;
}
