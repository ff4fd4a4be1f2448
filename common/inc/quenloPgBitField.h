// Bitfields: one bit per integer of a span [min, max], stored in a bytea.
//
//   bytes 0-3   varlena length word: 12 + nbytes
//   bytes 4-7   min (int32): the value of bit 0
//   bytes 8-11  max (int32): the last value covered
//   bytes 12-   the bits, in whole 64-bit words: nbytes = ceil(n / 64) * 8,
//               n = max - min + 1 (32-bit unsigned, so n = 0 is the empty bitfield)
//
// Value v sits at position p = v - min: byte p / 8, mask 0x80 >> (p % 8), that is
// most significant bit first. Bits past n - 1 are zero.
//
// Also the growable bit buffer that aggregate states keep their bits in.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "quenloPgBitField.h must not see server headers: include it before postgres.h");
#endif

#include <cstdint>
#include <cstring>

namespace qn::bitfield {

using AllocFn = void* (*)(size_t);
using FreeFn = void (*)(void*);

constexpr uint32_t kHeaderBytes = 12;  // length word, min, max
constexpr uint32_t kMinOffset = 4;
constexpr uint32_t kMaxOffset = 8;

// Single bit k of a byte, MSB first.
constexpr uint8_t kSingleBit[8] = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};
// Bits k to 7.
constexpr uint8_t kFromBit[8] = {0xFF, 0x7F, 0x3F, 0x1F, 0x0F, 0x07, 0x03, 0x01};
// Bits 0 to k.
constexpr uint8_t kToBit[8] = {0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE, 0xFF};

// Bits a to b of a byte (row a, column b); 0 when a > b.
struct RunTable {
    uint8_t entry[8][8];
    constexpr RunTable() : entry() {
        for (int a = 0; a < 8; ++a)
            for (int b = a; b < 8; ++b) entry[a][b] = static_cast<uint8_t>(kFromBit[a] & kToBit[b]);
    }
};
constexpr RunTable kRun{};

// n = max - min + 1 in 32-bit unsigned arithmetic; 0 for the empty bitfield (and
// for the full int32 span, which cannot be represented).
inline uint32_t spanWidth(int32_t min, int32_t max) {
    return static_cast<uint32_t>(max) - static_cast<uint32_t>(min) + 1u;
}

// Bytes of bits for n values: whole 64-bit words.
inline uint32_t bitBytes(uint32_t n) { return ((n >> 6) + ((n & 63) ? 1u : 0u)) * 8u; }

// Position of v in a span starting at min.
inline uint32_t positionOf(int32_t v, int32_t min) { return static_cast<uint32_t>(v) - static_cast<uint32_t>(min); }

// A non-empty bitfield read in place.
struct BitFieldView {
    const uint8_t* bits;
    const uint8_t* end;
    int32_t min;
    int32_t max;

    bool covers(int32_t v) const { return min <= v && v <= max; }
};

enum class BitFieldRead { Ok, Empty, Invalid };

// Reads a bitfield of `size` bytes (length word included). min and max are read
// whenever the value is at least 12 bytes long; an empty one is accepted at any
// size, a non-empty one must hold exactly its bytes of bits.
inline BitFieldRead readBitField(const uint8_t* value, uint64_t size, BitFieldView& view) {
    if (size < kHeaderBytes || size - kHeaderBytes > INT32_MAX) return BitFieldRead::Invalid;
    const auto nbytes = static_cast<uint32_t>(size - kHeaderBytes);
    std::memcpy(&view.min, value + kMinOffset, sizeof(int32_t));
    std::memcpy(&view.max, value + kMaxOffset, sizeof(int32_t));
    const uint32_t n = spanWidth(view.min, view.max);
    if (n == 0) return BitFieldRead::Empty;
    if (nbytes != bitBytes(n)) return BitFieldRead::Invalid;
    view.bits = value + kHeaderBytes;
    view.end = view.bits + nbytes;
    return BitFieldRead::Ok;
}

inline bool testBit(const uint8_t* bits, uint32_t p) { return bits[p >> 3] & kSingleBit[p & 7]; }

inline void setBit(uint8_t* bits, uint32_t p) { bits[p >> 3] |= kSingleBit[p & 7]; }

// Sets the positions s to e (s <= e): two masked bytes and one memset between.
inline void setRun(uint8_t* bits, uint32_t s, uint32_t e) {
    const uint32_t first = s >> 3, last = e >> 3;
    if (first == last) {
        bits[first] |= kRun.entry[s & 7][e & 7];
        return;
    }
    std::memset(bits + first + 1, 0xFF, last - first - 1);
    bits[first] |= kFromBit[s & 7];
    bits[last] |= kToBit[e & 7];
}

// setRun over s to e (s <= e) a megabyte of bits at a time, calling tick(bytes)
// after each slice: a run may cover half a gigabyte.
template <typename Tick>
void setRunInSlices(uint8_t* bits, uint32_t s, uint32_t e, Tick& tick) {
    constexpr uint64_t kSlice = uint64_t{1} << 23;
    for (uint64_t p = s;; p += kSlice) {
        const uint64_t stop = e - p < kSlice ? e : p + kSlice - 1;
        setRun(bits, static_cast<uint32_t>(p), static_cast<uint32_t>(stop));
        tick(1 + (stop - p) / 8);
        if (stop == e) return;
    }
}

// Some position from a to b is set: the first byte's masked bits, the last
// byte's, then the bytes between, eight at a time where they can be.
inline bool runMeets(const uint8_t* bits, uint32_t a, uint32_t b) {
    const uint32_t first = a >> 3, last = b >> 3;
    if (first == last) return bits[first] & kRun.entry[a & 7][b & 7];
    if (bits[first] & kFromBit[a & 7]) return true;
    if (bits[last] & kToBit[b & 7]) return true;
    const uint8_t* p = bits + first + 1;
    const uint8_t* const stop = bits + last;
    for (; stop - p >= 8; p += 8) {
        uint64_t word;
        std::memcpy(&word, p, sizeof word);
        if (word) return true;
    }
    for (; p < stop; ++p)
        if (*p) return true;
    return false;
}

// The inclusion rule for a run a to b. Within one byte, every bit of the run is
// set. Across bytes, the first byte's bits from a on are all set, and the last
// byte masked up to b, as well as every byte between, must equal the first
// byte's mask: a run starting on a byte boundary needs whole 0xFF bytes, and one
// starting inside a byte is never included.
inline bool runFull(const uint8_t* bits, uint32_t a, uint32_t b) {
    const uint32_t first = a >> 3, last = b >> 3;
    if (first == last) {
        const uint8_t run = kRun.entry[a & 7][b & 7];
        return (bits[first] & run) == run;
    }
    const uint8_t head = kFromBit[a & 7];
    if ((bits[first] & head) != head) return false;
    if ((bits[last] & kToBit[b & 7]) != head) return false;
    for (uint32_t i = first + 1; i < last; ++i)
        if (bits[i] != head) return false;
    return true;
}

// Writes min and max of a bitfield whose length word the caller sets.
inline void writeBounds(uint8_t* value, int32_t min, int32_t max) {
    std::memcpy(value + kMinOffset, &min, sizeof min);
    std::memcpy(value + kMaxOffset, &max, sizeof max);
}

enum class BitBufferError {
    InvalidCapacity,  // a capacity that is not whole 64-bit words
    OutOfMemory,
    Overflow,         // the capacity cannot double any more
};

// A growable byte buffer of bits. Capacity is in bytes, always a multiple of 8;
// bytes brought into use by resize take the fill byte. Fail reports an error and
// does not return (in the server it raises). Zero-filled memory is a valid
// empty buffer; reserve a first capacity before resizing.
template <AllocFn A, FreeFn F, void (*Fail)(BitBufferError)>
struct BitBuffer {
    uint32_t capacity;
    uint32_t size;
    uint8_t* data;
    uint8_t fill;

    // Moves the bytes in use into a buffer of exactly `bytes` bytes.
    void reserve(uint32_t bytes) {
        if (bytes % 8 != 0) return Fail(BitBufferError::InvalidCapacity);
        auto* fresh = static_cast<uint8_t*>(A(bytes));
        if (!fresh) return Fail(BitBufferError::OutOfMemory);
        if (size > bytes) size = bytes;
        if (size) std::memcpy(fresh, data, size);
        if (data) F(data);
        data = fresh;
        capacity = bytes;
    }

    // Sets the bytes in use to `bytes`, doubling the capacity as needed.
    void resize(uint32_t bytes) {
        if (bytes > capacity) {
            uint32_t c = capacity ? capacity : 8;
            while (c < bytes) {
                if (static_cast<int32_t>(c) < 0) return Fail(BitBufferError::Overflow);
                c *= 2;
            }
            reserve(c);
        }
        if (bytes > size) std::memset(data + size, fill, bytes - size);
        size = bytes;
    }

    void release() {
        if (data) F(data);
        data = nullptr;
        capacity = size = 0;
    }
};

}  // namespace qn::bitfield
