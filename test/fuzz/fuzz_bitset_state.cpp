// The serialised int4set_agg_optimized state, from any bytes, through what the
// aggregate does with it: the bit buffer rebuilt, rows added, another state's
// bits or-ed in, the three output forms written, and serialised again. Checks:
// - the reader accepts exactly the states whose bytes fit their capacity and the
//   largest set, and reads nothing past the value;
// - rows set exactly the bits the bit model sets, and report the same error;
// - the outputs count exactly the elements they write, and list the members,
//   the runs, and the mix items of the bit model;
// - the buffer sizes of a largest value hold it and nothing past their last byte.
#include "fuzz_common.h"
#include "qnPgBitSetBuilder.h"

using namespace fz;
using namespace qn::bitfield;

namespace {

constexpr uint32_t kMaxWritten = 1u << 13;  // bytes of bits whose outputs are written and checked

bool holds(uint32_t size, int64_t v) { return v >= 0 && v / 8 < size; }

void setModelRun(std::vector<uint8_t>& bits, int64_t lower, int64_t upper) {
    for (int64_t v = lower; v <= upper; ++v) bits[v >> 3] |= static_cast<uint8_t>(0x80 >> (v & 7));
}

// addBitSetArray's rules over the model's bytes.
BitSetAddError modelAdd(std::vector<uint8_t>& bits, uint32_t form, const std::vector<int32_t>& e) {
    const auto size = static_cast<uint32_t>(bits.size());
    bool outside = false;
    auto run = [&](int64_t l, int64_t u) {
        if (outside || l > u) return;
        if (!holds(size, l) || !holds(size, u))
            outside = true;
        else
            setModelRun(bits, l, u);
    };
    if (form == ArrayDataTypeSet) {
        for (int32_t v : e) {
            if (!holds(size, v)) return BitSetAddError::ScalarOutside;
            setModelRun(bits, v, v);
        }
        return BitSetAddError::None;
    }
    if (form == ArrayDataTypeRangeArray) {
        if (e.size() & 1) return BitSetAddError::OddRangeArray;
        for (size_t i = 0; i < e.size(); i += 2) run(e[i], e[i + 1]);
    } else {
        for (size_t i = 1; i < e.size(); ++i) {
            if (e[i] >= 0) {
                run(e[i], e[i]);
                continue;
            }
            if (i + 1 == e.size()) return BitSetAddError::MixRangeWithoutUpper;
            run(e[i] & 0x7fffffff, e[i + 1]);
            ++i;
        }
    }
    return outside ? BitSetAddError::ScalarOutside : BitSetAddError::None;
}

// The elements of the set in form `form`, from the bit model.
std::vector<int32_t> modelElements(const uint8_t* bits, uint32_t size, uint32_t form) {
    std::vector<int32_t> members;
    for (uint64_t p = 0; p < uint64_t{size} * 8; ++p)
        if (bitAt(bits, p)) members.push_back(static_cast<int32_t>(p));
    if (form == ArrayDataTypeSet) return members;
    std::vector<R> singles;
    for (int32_t v : members) singles.push_back(R{v, v});
    std::vector<int32_t> out;
    if (form == ArrayDataTypeMixArray && !members.empty()) out.push_back(static_cast<int32_t>(members.size()));
    for (const Interval& run : canonical(singles)) {
        const auto l = static_cast<int32_t>(run.first), u = static_cast<int32_t>(run.second);
        if (form == ArrayDataTypeRangeArray) {
            out.push_back(l);
            out.push_back(u);
        } else if (l == u) {
            out.push_back(l);
        } else {
            out.push_back(static_cast<int32_t>(static_cast<uint32_t>(l) | 0x80000000u));
            out.push_back(u);
        }
    }
    return out;
}

void checkOutputs(const Buffer& bits) {
    if (bits.size > kMaxWritten) return;
    for (uint32_t form : {ArrayDataTypeSet, ArrayDataTypeRangeArray, ArrayDataTypeMixArray}) {
        const uint64_t n = countBitSetElements(bits.data, bits.size, form);
        std::unique_ptr<int32_t[]> out(new int32_t[n ? n : 1]);
        writeBitSetElements(bits.data, bits.size, form, out.get());
        const std::vector<int32_t> expected = modelElements(bits.data, bits.size, form);
        FZ_CHECK(n == expected.size() && std::equal(expected.begin(), expected.end(), out.get()));
    }
}

void run(Reader& in) {
    ExactBuffer serialised(in.bytes(in.u16() % 4096));
    int32_t inputType = 0, outputType = 0;
    uint32_t capacity = 0, size = 0;
    const BitSetStateError e =
        readBitSetState(serialised.get(), serialised.size, inputType, outputType, capacity, size);
    if (serialised.size < kBitSetStateBitsOffset) {
        FZ_CHECK(e == BitSetStateError::Empty);
        return;
    }
    const uint64_t n = serialised.size - kBitSetStateBitsOffset;
    uint32_t declared;
    std::memcpy(&declared, serialised.get() + kBitSetStateCapacityOffset, 4);
    FZ_CHECK((e == BitSetStateError::Corrupted) == (n > declared));
    if (e != BitSetStateError::None) return;
    FZ_CHECK(capacity == declared && size == n);

    // Deserialise as the aggregate does; a capacity the buffer refuses raises there.
    Buffer bits{};
    try {
        if (capacity) {
            bits.reserve(capacity);
            if (size) std::memcpy(bits.data, serialised.get() + kBitSetStateBitsOffset, size);
            bits.size = size;
        }
    } catch (const BufferFailure&) {
        FZ_CHECK(capacity % 8 != 0 || capacity > (1u << 20));
        bits.release();
        return;
    }
    std::vector<uint8_t> model(bits.data, bits.data + bits.size);
    checkOutputs(bits);

    while (!in.empty()) {
        const uint8_t op = in.u8();
        try {
            if (op % 4 == 0) {  // another state's bits or-ed in
                const std::vector<uint8_t> other = in.bytes(in.u16() % 1024);
                const ExactBuffer theirs(other);
                if (other.size() > bits.size) bits.resize(static_cast<uint32_t>(other.size()));
                orBitBytes(bits.data, theirs.data.get(), static_cast<uint32_t>(other.size()));
                if (other.size() > model.size()) model.resize(other.size(), 0);
                for (size_t i = 0; i < other.size(); ++i) model[i] |= other[i];
            } else if (op % 4 == 1) {  // a bounds row
                const int32_t lower = in.i32(), upper = in.i32();
                const BitSetAddError got = addBitSetBounds(bits.data, bits.size, lower, upper);
                const bool inside = lower > upper || (holds(bits.size, lower) && holds(bits.size, upper));
                FZ_CHECK(got == (inside ? BitSetAddError::None : BitSetAddError::BoundsOutside));
                if (inside && lower <= upper) setModelRun(model, lower, upper);
            } else {  // an array row
                const uint32_t form = ArrayDataTypeSet + op / 4 % 3;
                const uint32_t limit = bits.size * 8 + 8;
                std::vector<int32_t> row;
                for (size_t k = in.u8() % 32; k > 0 && !in.empty(); --k) {
                    const uint8_t how = in.u8();
                    row.push_back(how < 200 ? static_cast<int32_t>(in.u16() % limit) | (how < 40 ? INT32_MIN : 0)
                                            : in.i32());
                }
                const ExactWords words(row);
                const BitSetAddError got =
                    addBitSetArray(bits.data, bits.size, form, words.begin(), static_cast<int32_t>(words.count));
                FZ_CHECK(got == modelAdd(model, form, row));
            }
        } catch (const BufferFailure&) {
            break;  // the aggregate has raised: nothing more happens to this state
        }
        FZ_CHECK(bits.size == model.size() &&
                 (model.empty() || std::memcmp(bits.data, model.data(), model.size()) == 0));
    }
    checkOutputs(bits);

    ExactBuffer again(std::vector<uint8_t>(kBitSetStateBitsOffset + bits.size, 0));
    writeBitSetState(again.get(), static_cast<uint32_t>(inputType), static_cast<uint32_t>(outputType), bits.capacity,
                     bits.data, bits.size);
    int32_t in2 = 0, out2 = 0;
    uint32_t capacity2 = 0, size2 = 0;
    FZ_CHECK(readBitSetState(again.get(), again.size, in2, out2, capacity2, size2) == BitSetStateError::None);
    FZ_CHECK(in2 == inputType && out2 == outputType && capacity2 == bits.capacity && size2 == bits.size);
    FZ_CHECK(bits.size == 0 || std::memcmp(again.get() + kBitSetStateBitsOffset, bits.data, bits.size) == 0);
    bits.release();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    if (in.u8() != 0xff) {
        run(in);
        return 0;
    }
    // The buffer sizes for a largest value m.
    const int32_t m = std::max<int32_t>(1, in.i32() & INT32_MAX);
    const BitSetSizes sizes = bitSetSizes(m);
    FZ_CHECK(sizes.capacity % 8 == 0 && sizes.size <= sizes.capacity && sizes.size <= kMaxBitSetBytes);
    FZ_CHECK(bitSetHolds(sizes.size, m) && bitSetLast(sizes.size) >= m);
    if (bitSetLast(sizes.size) < INT32_MAX) FZ_CHECK(!bitSetHolds(sizes.size, bitSetLast(sizes.size) + 1));
    FZ_CHECK(!bitSetHolds(sizes.size, -1 - (m & 0xff)));
    return 0;
}
