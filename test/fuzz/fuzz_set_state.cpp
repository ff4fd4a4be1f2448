// The serialised int4set_agg state, from any bytes, through what the aggregate
// does with a deserialised state: rows inserted into it, another state combined
// with it, its result expanded, and serialised again. The state is read from a
// heap copy of exactly its length. Checks:
// - the reader takes exactly the lengths 6 + 8k and reads nothing past the value;
// - a deserialised (trusted, unchecked) list takes rows exactly as one
//   rangeArrayInsert per row makes them, whatever it holds;
// - expanding and re-serialising keep every range, and the mix output's counted
//   length is what pushIntoMixArray writes.
#include "fuzz_common.h"
#include "qnPgRangeSetBuilder.h"

using namespace fz;
using namespace qn::pgRangeArray;

namespace {

using Builder = RangeSetBuilder<malloc, free>;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    ExactBuffer serialised(in.bytes(in.u16() % 2048));

    int32_t inputType = 99, outputType = 99;
    uint64_t count = 99;
    const SetStateError e = readSetState(serialised.get(), serialised.size, inputType, outputType, count);
    if (serialised.size < kSetStateRangesOffset) {
        FZ_CHECK(e == SetStateError::Empty && count == 0);
        return 0;
    }
    if ((serialised.size - kSetStateRangesOffset) % 8 != 0) {
        FZ_CHECK(e == SetStateError::RaggedRanges && count == 0);
        return 0;
    }
    FZ_CHECK(e == SetStateError::None && count == (serialised.size - kSetStateRangesOffset) / 8);
    FZ_CHECK(inputType == static_cast<int8_t>(serialised.get()[4]) &&
             outputType == static_cast<int8_t>(serialised.get()[5]));

    // Deserialise as the aggregate does: a zero-filled state, the ranges copied in.
    alignas(Builder) unsigned char storage[sizeof(Builder)] = {};
    auto& builder = *reinterpret_cast<Builder*>(storage);
    if (count && builder.ranges.resize(count))
        std::memcpy(builder.ranges.data(), serialised.get() + kSetStateRangesOffset, count * sizeof(R));
    builder.direct = true;
    RV reference;
    reference.append(builder.ranges.begin(), builder.ranges.end());

    // Rows, flushes and a combine with another (unchecked) list.
    while (in.remaining() >= 9) {
        const uint8_t op = in.u8();
        const int32_t lower = in.i32(), upper = in.i32();
        if (op % 8 == 0) {
            builder.flush();
            FZ_CHECK(sameList(builder.ranges, reference));
        } else if (op % 8 == 1) {
            builder.flush();
            bool normalised = false;
            const std::vector<R> other = someList(in, 64, normalised);
            const ExactWords theirs(flatten(other));
            const auto sum = builder.ranges.size() + other.size();
            Builder::Vector merged(sum ? sum : 1);
            computeUnion(builder.ranges.begin(), builder.ranges.end(), theirs.rangesBegin(), theirs.rangesEnd(),
                         merged);
            builder.ranges.swap(merged);
            reference.clear();
            reference.append(builder.ranges.begin(), builder.ranges.end());
        } else {
            builder.insert(R{lower, upper});
            rangeArrayInsert(reference, R{lower, upper});
        }
    }
    builder.flush();
    FZ_CHECK(sameList(builder.ranges, reference));
    const RV& ranges = builder.ranges;

    // The final function's three outputs.
    const uint64_t members = countMembers(ranges.begin(), ranges.end());
    if (members <= kMaxExpanded) {
        std::unique_ptr<int32_t[]> out(new int32_t[members ? members : 1]);
        writeMembers(ranges.begin(), ranges.end(), out.get(), [] {});
        FZ_CHECK(holdsMembers(ranges.begin(), ranges.end(), out.get(), members));
    }
    uint64_t words = 1;
    for (const R& r : ranges) words += r.lower == r.upper ? 1 : 2;
    IV mix(words);
    mix.push_back(0);
    for (const R& r : ranges) pushIntoMixArray(mix, r.lower, r.upper);
    FZ_CHECK(mix.size() == words && mix.capacity() == words);

    // Serialised again, it reads back the same.
    ExactBuffer again(std::vector<uint8_t>(setStateSize(ranges.size()), 0));
    writeSetState(again.get(), static_cast<uint32_t>(inputType), static_cast<uint32_t>(outputType), ranges.begin(),
                  ranges.end());
    int32_t in2 = 0, out2 = 0;
    uint64_t count2 = 0;
    FZ_CHECK(readSetState(again.get(), again.size, in2, out2, count2) == SetStateError::None);
    FZ_CHECK(in2 == inputType && out2 == outputType && count2 == ranges.size());
    FZ_CHECK(ranges.empty() || std::memcmp(again.get() + kSetStateRangesOffset, ranges.data(), ranges.size() * 8) == 0);
    builder.release();
    return 0;
}
