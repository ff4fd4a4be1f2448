// Bitfields: reading a value of any length, testing values, runs and whole sets
// against it, building the bitfield of a set, and the growable bit buffer.
// Values are read from heap copies of exactly their length. Checks:
// - the reader accepts exactly the values of the format (empty at any length,
//   otherwise whole 64-bit words of bits) and never points past the value;
// - value and run tests equal the bit model; set tests on sorted sets equal it
//   too (overlap always, inclusion where it is a bit-per-member question or a
//   member lies outside the span);
// - a set whose bitfield is built has exactly its members' bits set, nothing
//   past the span, and the value reads back;
// - the bit buffer keeps its bytes through reserve and resize, fills new bytes,
//   and refuses what it must.
#include <stdexcept>

#include "fuzz_common.h"
#include "qnPgBitFieldSet.h"

using namespace fz;
using namespace qn::bitfield;

namespace {

constexpr uint32_t kMaxBits = 1u << 15;  // spans built or modelled in full

// Values near the span [min, max] (or anywhere, now and then).
int32_t valueNear(Reader& in, int32_t min, uint32_t n) {
    const uint8_t how = in.u8();
    if (how < 32) return in.i32();
    const int64_t off = static_cast<int64_t>(in.u16() % (uint64_t{n} + 16)) - 8;
    return static_cast<int32_t>(static_cast<uint32_t>(min) + static_cast<uint32_t>(off));
}

// A set in form 's', 'r' or 'm' with members around [min, min + n): sorted or not.
std::vector<int32_t> setNear(Reader& in, uint32_t form, int32_t min, uint32_t n, bool& sorted) {
    const uint8_t count = in.u8() % 24 + 1;
    sorted = in.u8() % 4 != 0;
    std::vector<int64_t> values;
    for (int i = 0; i < 2 * count; ++i) values.push_back(valueNear(in, min, n));
    if (sorted) {
        std::sort(values.begin(), values.end());
        values.erase(std::unique(values.begin(), values.end()), values.end());
    }
    std::vector<int32_t> w;
    if (form == ArrayDataTypeSet) {
        for (size_t i = 0; i < count && i < values.size(); ++i)
            w.push_back(static_cast<int32_t>(sorted ? values[i * values.size() / count] : values[i]));
        if (sorted) w.erase(std::unique(w.begin(), w.end()), w.end());
        return w;
    }
    // Pairs of consecutive values, apart by at least one missing integer when sorted.
    std::vector<std::pair<int64_t, int64_t>> runs;
    for (size_t i = 0; i + 1 < values.size(); i += 2) {
        if (sorted && !runs.empty() && values[i] <= runs.back().second + 1) continue;
        runs.emplace_back(values[i], values[i + 1]);
    }
    if (form == ArrayDataTypeRangeArray) {
        for (const auto& [l, u] : runs) {
            w.push_back(static_cast<int32_t>(l));
            w.push_back(static_cast<int32_t>(u));
        }
        if (in.u8() == 0xff && !w.empty()) w.pop_back();  // odd length
        return w;
    }
    w.push_back(static_cast<int32_t>(in.u8()));  // the count word, never read
    for (const auto& [l, u] : runs) {
        if (sorted && l < 0) continue;  // a mix array holds only 0 to INT32_MAX
        if (l == u) {
            w.push_back(static_cast<int32_t>(l));
        } else {
            w.push_back(static_cast<int32_t>(static_cast<uint32_t>(l) | 0x80000000u));
            w.push_back(static_cast<int32_t>(u));
        }
    }
    if (in.u8() == 0xff) w.push_back(INT32_MIN | 5);  // a range opener with no upper
    return w;
}

// The members of a set as [lower, upper] runs (int64, inverted runs kept as they are).
Intervals runsOf(uint32_t form, const std::vector<int32_t>& w) {
    Intervals runs;
    if (form == ArrayDataTypeSet) {
        for (int32_t v : w) runs.emplace_back(v, v);
    } else if (form == ArrayDataTypeRangeArray) {
        for (size_t i = 0; i + 1 < w.size(); i += 2) runs.emplace_back(w[i], w[i + 1]);
    } else {
        for (size_t i = 1; i < w.size(); ++i) {
            if (w[i] >= 0) {
                runs.emplace_back(w[i], w[i]);
            } else if (i + 1 < w.size()) {
                runs.emplace_back(w[i] & 0x7fffffff, w[i + 1]);
                ++i;
            }
        }
    }
    return runs;
}

bool wellFormed(uint32_t form, const std::vector<int32_t>& w) {
    if (form == ArrayDataTypeRangeArray) return w.size() % 2 == 0;
    if (form != ArrayDataTypeMixArray) return true;
    for (size_t i = 1; i < w.size(); ++i)
        if (w[i] < 0 && i++ + 1 >= w.size()) return false;
    return true;
}

void readAndTest(Reader& in) {
    const int32_t min = in.i32();
    const uint8_t shape = in.u8();
    const int32_t max = (shape & 1) ? in.i32() : static_cast<int32_t>(static_cast<uint32_t>(min) + in.u16() % kMaxBits);
    const uint32_t n = spanWidth(min, max);
    int64_t nbytes = bitBytes(n);
    if (shape & 2) nbytes += static_cast<int8_t>(in.u8()) % 10;  // a wrong length
    if (shape & 4) nbytes = in.u8() % 12 - 12;                   // shorter than the header
    if (nbytes > (int64_t{kMaxBits} >> 3) + 16) return;
    uint8_t header[12] = {};
    std::memcpy(header + 4, &min, 4);
    std::memcpy(header + 8, &max, 4);
    std::vector<uint8_t> value(static_cast<size_t>(12 + nbytes), 0);
    for (size_t i = 0; i < value.size(); ++i) value[i] = i < 12 ? header[i] : in.u8();
    ExactBuffer buffer(value);

    BitFieldView bf{};
    const BitFieldRead read = readBitField(buffer.get(), buffer.size, bf);
    if (buffer.size < 12)
        FZ_CHECK(read == BitFieldRead::Invalid);
    else if (n == 0)
        FZ_CHECK(read == BitFieldRead::Empty);
    else
        FZ_CHECK((read == BitFieldRead::Ok) == (nbytes == bitBytes(n)));
    if (read != BitFieldRead::Ok) return;
    FZ_CHECK(bf.min == min && bf.max == max && bf.bits == buffer.get() + 12 && bf.end == buffer.get() + buffer.size);

    // A span that wraps past INT32_MAX (min > max, read as n values all the same)
    // holds no value by the signed tests, while a run clipped to it covers all its
    // bits: the literal steps, kept as they are. Only the kernels' memory safety
    // is checked there; the model stands for spans with min <= max.
    const bool modelled = min <= max;
    auto anySet = [&](int64_t lo, int64_t hi) {
        for (int64_t v = std::max<int64_t>(lo, min); v <= std::min<int64_t>(hi, max); ++v)
            if (bitAt(bf.bits, static_cast<uint64_t>(v - min))) return true;
        return false;
    };
    auto allSet = [&](int64_t lo, int64_t hi) {
        if (lo < min || hi > max) return false;
        for (int64_t v = lo; v <= hi; ++v)
            if (!bitAt(bf.bits, static_cast<uint64_t>(v - min))) return false;
        return true;
    };

    for (int q = in.u8() % 8; q > 0; --q) {
        const int32_t v = valueNear(in, min, n);
        const bool present = bf.covers(v) && testBit(bf.bits, positionOf(v, min));
        if (modelled) FZ_CHECK(present == anySet(v, v));
        const int32_t w = valueNear(in, min, n);
        const int32_t lo = std::min(v, w), hi = std::max(v, w);
        const bool meets = runMeetsBitField(bf, lo, hi);
        if (modelled) FZ_CHECK(meets == anySet(lo, hi));
    }

    const uint32_t form = ArrayDataTypeSet + in.u8() % 3;
    bool sorted = false;
    const std::vector<int32_t> set = setNear(in, form, min, n, sorted);
    if (set.empty()) return;  // the server answers false before reading the bitfield
    const ExactWords words(set);
    const Intervals runs = runsOf(form, set);
    for (bool inclusion : {false, true}) {
        bool result = true;
        const SetTestError e =
            testSetAgainstBitField(form, words.begin(), static_cast<int32_t>(words.count), bf, inclusion, result);
        if (!modelled || !sorted || !wellFormed(form, set) || (form == ArrayDataTypeMixArray && runs.empty())) continue;
        FZ_CHECK(e == SetTestError::None);
        bool expected = inclusion;
        for (const auto& [l, u] : runs) {
            if (inclusion && l == u) expected = expected && allSet(l, u);
            if (!inclusion) expected = expected || anySet(l, u);
        }
        bool singles = true, outside = false;
        for (const auto& [l, u] : runs) {
            singles = singles && l == u;
            outside = outside || l < min || u > max;
        }
        if (!inclusion || singles) FZ_CHECK(result == expected);
        // A member outside the span is never included, whatever the bytes hold.
        if (inclusion && outside) FZ_CHECK(!result);
    }
}

void buildFromSet(Reader& in) {
    const uint32_t form = ArrayDataTypeSet + in.u8() % 3;
    const int32_t base = in.i32();
    bool sorted = false;
    const std::vector<int32_t> set = setNear(in, form, base, kMaxBits, sorted);
    if (set.empty() || (form == ArrayDataTypeMixArray && set.size() == 1)) return;  // the empty bitfield
    const ExactWords words(set);
    const auto count = static_cast<int32_t>(words.count);
    BitFieldPlan plan{};
    if (planBitField(form, words.begin(), count, plan) != SetBuildError::None) return;
    FZ_CHECK(plan.min <= plan.max && plan.nbytes == bitBytes(spanWidth(plan.min, plan.max)));
    if (plan.nbytes > kMaxBits / 8) return;
    std::vector<uint8_t> value(12 + plan.nbytes, 0);
    const uint32_t header = (12 + plan.nbytes) << 2;
    std::memcpy(value.data(), &header, 4);
    writeBounds(value.data(), plan.min, plan.max);
    ExactBuffer buffer(value);
    uint8_t* bits = buffer.get() + 12;
    if (fillBitField(form, words.begin(), count, plan, bits) != SetBuildError::None) return;

    const uint32_t n = spanWidth(plan.min, plan.max);
    std::vector<uint8_t> expected(plan.nbytes, 0);
    for (const auto& [l, u] : runsOf(form, set)) {
        FZ_CHECK(l <= u && l >= plan.min && u <= plan.max);
        for (int64_t v = l; v <= u; ++v) {
            const uint64_t p = static_cast<uint64_t>(v - plan.min);
            expected[p >> 3] |= static_cast<uint8_t>(0x80 >> (p & 7));
        }
    }
    FZ_CHECK(std::memcmp(bits, expected.data(), plan.nbytes) == 0);
    for (uint64_t p = n; p < uint64_t{plan.nbytes} * 8; ++p) FZ_CHECK(!bitAt(bits, p));
    BitFieldView bf{};
    FZ_CHECK(readBitField(buffer.get(), buffer.size, bf) == BitFieldRead::Ok);
}

void growBuffer(Reader& in) {
    Buffer buffer{};  // zero-filled: a valid empty buffer
    buffer.fill = in.u8();
    std::vector<uint8_t> model;
    for (int step = 0; step < 16 && !in.empty(); ++step) {
        const uint8_t op = in.u8();
        try {
            if (op & 1) {
                const uint32_t bytes = (op & 2) ? in.u32() : in.u16();
                buffer.reserve(bytes);
                FZ_CHECK(bytes % 8 == 0 && bytes <= (1u << 20));
                if (model.size() > bytes) model.resize(bytes);
                FZ_CHECK(buffer.capacity == bytes);
            } else {
                if (buffer.capacity == 0) continue;  // a first capacity is always reserved first
                const uint32_t bytes = (op & 2) ? in.u32() : in.u16();
                buffer.resize(bytes);
                FZ_CHECK(bytes <= buffer.capacity && buffer.capacity % 8 == 0);
                model.resize(bytes, buffer.fill);
            }
        } catch (const BufferFailure& f) {
            if (f.error == BitBufferError::InvalidCapacity) FZ_CHECK((op & 1) && buffer.capacity % 8 == 0);
            continue;
        }
        FZ_CHECK(buffer.size == model.size());
        FZ_CHECK(model.empty() || std::memcmp(buffer.data, model.data(), model.size()) == 0);
        if (!model.empty()) {  // vary the contents that later steps must keep
            const size_t i = in.u8() % model.size();
            buffer.data[i] = model[i] = in.u8();
        }
    }
    buffer.release();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    switch (in.u8() % 3) {
        case 0: readAndTest(in); break;
        case 1: buildFromSet(in); break;
        default: growBuffer(in); break;
    }
    return 0;
}
