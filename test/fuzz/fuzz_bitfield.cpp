// Bitfields, from heap copies of exactly their length: the reader accepts exactly
// the well-formed values (empty, or whole 64-bit words of bits) and never points past
// them; value, run and sorted-set overlap tests equal the bit model, and a set with a
// member outside the span is not included; a set's built bitfield has exactly its
// members' bits.
#include "fuzz_common.h"
#include "qnPgBitFieldSet.h"

using namespace fz;
using namespace qn::bitfield;

namespace {

constexpr uint32_t kMaxBits = 1u << 15;  // spans built or modelled in full

// Values near the span [min, min + n) (or anywhere, now and then).
int32_t valueNear(Reader& in, int32_t min, uint32_t n) {
    if (in.u8() < 32) return in.i32();
    const int64_t off = static_cast<int64_t>(in.u16() % (uint64_t{n} + 16)) - 8;
    return static_cast<int32_t>(static_cast<uint32_t>(min) + static_cast<uint32_t>(off));
}

// A set in form `form` with members around [min, min + n). `modelled` when it is
// sorted and well formed (disjoint ascending runs); otherwise unsorted, inverted,
// or with an odd last word / a mix range without its upper.
std::vector<int32_t> setNear(Reader& in, uint32_t form, int32_t min, uint32_t n, bool& modelled) {
    modelled = in.u8() % 4 != 0;
    std::vector<int32_t> v;
    for (int i = in.u8() % 48 + 2; i > 0; --i) v.push_back(valueNear(in, min, n));
    if (modelled) std::sort(v.begin(), v.end());
    const size_t step = form == ArrayDataTypeSet ? 1 : 2;
    Intervals runs;
    for (size_t i = 0; i + step <= v.size(); i += step) {
        const int64_t l = v[i], u = v[i + step - 1], gap = step - 1;
        if (modelled && ((!runs.empty() && l <= runs.back().second + gap) || (form == ArrayDataTypeMixArray && l < 0)))
            continue;  // a mix array holds only 0 to INT32_MAX
        runs.emplace_back(l, u);
    }
    std::vector<int32_t> w = wordsOf(form, runs, in.u8());
    if (form != ArrayDataTypeSet && in.u8() == 0xff) {
        w.push_back(INT32_MIN | 5);  // a range without its upper
        modelled = false;
    }
    return w;
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
    std::vector<uint8_t> value(12, 0), bits = in.bytes(static_cast<size_t>(std::max<int64_t>(nbytes, 0)));
    writeBounds(value.data(), min, max);
    bits.resize(static_cast<size_t>(std::max<int64_t>(nbytes, 0)));
    value.insert(value.end(), bits.begin(), bits.end());
    value.resize(static_cast<size_t>(12 + nbytes));
    Bytes buffer(value);

    BitFieldView bf{};
    const BitFieldRead read = readBitField(buffer.get(), buffer.count, bf);
    FZ_CHECK(read == (nbytes < 0 ? BitFieldRead::Invalid
                      : n == 0   ? BitFieldRead::Empty
                                 : (nbytes == bitBytes(n) ? BitFieldRead::Ok : BitFieldRead::Invalid)));
    if (read != BitFieldRead::Ok) return;
    FZ_CHECK(bf.min == min && bf.max == max && bf.bits == buffer.get() + 12 && bf.end == buffer.end());

    // A span that wraps past INT32_MAX (min > max) holds no value by the signed
    // tests, while a run clipped to it covers all its bits: the kernels are kept
    // as they are there, and only their memory safety is checked.
    const bool spanModelled = min <= max;
    auto count = [&](int64_t lo, int64_t hi) {
        int64_t set = 0;
        for (int64_t v = std::max<int64_t>(lo, min); v <= std::min<int64_t>(hi, max); ++v)
            set += bitAt(bf.bits, static_cast<uint64_t>(v - min));
        return set;
    };
    for (int q = in.u8() % 8; q > 0; --q) {
        const int32_t v = valueNear(in, min, n), w = valueNear(in, min, n);
        const bool present = bf.covers(v) && testBit(bf.bits, positionOf(v, min));
        const bool meets = runMeetsBitField(bf, std::min(v, w), std::max(v, w));
        if (spanModelled) FZ_CHECK(present == (count(v, v) > 0) && meets == (count(std::min(v, w), std::max(v, w)) > 0));
    }

    const uint32_t form = ArrayDataTypeSet + in.u8() % 3;
    bool modelled = false;
    const std::vector<int32_t> set = setNear(in, form, min, n, modelled);
    const Intervals runs = runsOf(form, set);
    if (set.empty()) return;  // the server answers false before reading the bitfield
    const Words words(set);
    for (bool inclusion : {false, true}) {
        bool result = true;
        const SetTestError e =
            testSetAgainstBitField(form, words.begin(), static_cast<int32_t>(words.count), bf, inclusion, result);
        if (!spanModelled || !modelled || runs.empty()) continue;
        FZ_CHECK(e == SetTestError::None);
        bool any = false, outside = false;
        for (const auto& [l, u] : runs) {
            any = any || count(l, u) > 0;
            outside = outside || l < min || u > max;
        }
        if (!inclusion) FZ_CHECK(result == any);
        if (inclusion && outside) FZ_CHECK(!result);  // whatever the bytes hold
    }
}

void buildFromSet(Reader& in) {
    const uint32_t form = ArrayDataTypeSet + in.u8() % 3;
    bool modelled = false;
    const std::vector<int32_t> set = setNear(in, form, in.i32(), kMaxBits, modelled);
    if (set.empty() || (form == ArrayDataTypeMixArray && set.size() == 1)) return;  // the empty bitfield
    const Words words(set);
    const auto count = static_cast<int32_t>(words.count);
    BitFieldPlan plan{};
    if (planBitField(form, words.begin(), count, plan) != SetBuildError::None) return;
    FZ_CHECK(plan.min <= plan.max && plan.nbytes == bitBytes(spanWidth(plan.min, plan.max)));
    if (plan.nbytes > kMaxBits / 8) return;
    std::vector<uint8_t> value(12 + plan.nbytes, 0);
    const uint32_t header = (12 + plan.nbytes) << 2;
    std::memcpy(value.data(), &header, 4);
    writeBounds(value.data(), plan.min, plan.max);
    Bytes buffer(value);
    uint8_t* bits = buffer.get() + 12;
    if (fillBitField(form, words.begin(), count, plan, bits) != SetBuildError::None) return;

    std::vector<uint8_t> expected(plan.nbytes, 0);
    for (const auto& [l, u] : runsOf(form, set)) {
        FZ_CHECK(l <= u && l >= plan.min && u <= plan.max);
        for (int64_t p = l - plan.min; p <= u - plan.min; ++p) expected[p >> 3] |= static_cast<uint8_t>(0x80 >> (p & 7));
    }
    FZ_CHECK(std::memcmp(bits, expected.data(), plan.nbytes) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    if (in.u8() & 1)
        readAndTest(in);
    else
        buildFromSet(in);
    return 0;
}
