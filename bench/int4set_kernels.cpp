// The int4set kernels against the range-array kernels on the same sets: stored
// size, and the time of each operation, on four shapes of set, each with two
// different sets (A and B) for the binary operations:
//   runs    1,000 runs of 1,000 values at random over the whole line
//   lone    1,000,000 random members over the whole line
//   dense   30% of [0, 10,000,000), each value drawn alone
//   huge    100 ranges of 20,000,000 over the whole line
// Not part of the tests; built on demand, with the module's code-generation
// flags, from the checkout:
//   g++ -O2 -std=c++17 -fwrapv -fno-strict-aliasing -Ipluginimpl/inc bench/int4set_kernels.cpp -o /tmp/int4set_kernels
//   /tmp/int4set_kernels [runs|lone|dense|huge]
// Times are the best of 7 runs (the machine is shared), in microseconds;
// "contains" is A ⊇ (A \ B) (true, so a full walk), "probes" 1,000 membership
// tests (half of them members of A), "text" the canonical text of A (for range
// arrays, the same text written from the list with snprintf), "validate" the
// check of untrusted bytes. Sizes are as stored, with the 4-byte varlena
// header: the int4set in the layout it takes, the same set in the chunked
// layout alone, and the int4[] of its ranges (24 bytes of header, 8 a range).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "qnPgInt4SetOps.h"
#include "qnPgInt4SetText.h"

namespace {

using namespace qn::int4set;
namespace ra = qn::pgRangeArray;
using RV = ra::RangeVector<int32_t, malloc, free>;
using Ranges = std::vector<Range32>;

// Normalised: sorted, merged, apart.
Ranges normalised(Ranges v) {
    const int64_t n = ra::normaliseRanges<malloc, free>(v.data(), v.size(), NoPoll{});
    v.resize(static_cast<size_t>(n));
    return v;
}

Ranges shape(const std::string& name, uint32_t seed) {
    std::mt19937_64 rng(seed);
    Ranges v;
    if (name == "runs") {
        while (v.size() < 1000) {
            for (int i = 0; i < 1000; ++i) {
                const int64_t lo = static_cast<int64_t>(rng() % ((uint64_t{1} << 32) - 1000)) + INT32_MIN;
                v.push_back(Range32{static_cast<int32_t>(lo), static_cast<int32_t>(lo + 999)});
            }
            v = normalised(v);
            v.resize(std::min<size_t>(v.size(), 1000));  // rarely two meet: draw again
        }
    } else if (name == "lone") {
        for (int i = 0; i < 1000000; ++i) {
            const int32_t x = static_cast<int32_t>(rng());
            v.push_back(Range32{x, x});
        }
        v = normalised(v);
    } else if (name == "dense") {
        std::bernoulli_distribution in(0.3);
        for (int32_t x = 0; x < 10000000; ++x)
            if (in(rng)) v.push_back(Range32{x, x});
        v = normalised(v);
    } else {  // huge: one range in each hundredth of the line
        const int64_t slot = (int64_t{1} << 32) / 100;
        for (int64_t i = 0; i < 100; ++i) {
            const int64_t lo = INT32_MIN + i * slot + static_cast<int64_t>(rng() % (slot - 20000000));
            v.push_back(Range32{static_cast<int32_t>(lo), static_cast<int32_t>(lo + 19999999)});
        }
    }
    return v;
}

struct Payload {
    Encoded e;
    explicit Payload(const Ranges& r) {
        if (encodeRanges<malloc, free>(r.data(), r.data() + r.size(), 0, e) != Status::Ok) std::abort();
    }
    ~Payload() { std::free(e.buffer); }
    const uint8_t* p() const { return e.payload; }
    size_t n() const { return e.size; }
};

template <typename Fn>
double micros(Fn fn) {
    std::vector<double> t;
    for (int k = 0; k < 7; ++k) {
        const auto start = std::chrono::steady_clock::now();
        fn();
        t.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    return *std::min_element(t.begin(), t.end());
}

volatile uint64_t sink;

void run(const std::string& name) {
    const Ranges a = shape(name, 1), b = shape(name, 2);
    const Payload pa(a), pb(b);
    uint64_t members = 0;
    cardinality(pa.p(), pa.n(), members);

    std::mt19937 rng(3);
    std::vector<int32_t> probes;
    for (int i = 0; i < 1000; ++i) {
        const Range32& r = a[rng() % a.size()];
        probes.push_back(i % 2 ? static_cast<int32_t>(rng()) : r.lower + static_cast<int32_t>(rng() % (int64_t{r.upper} - r.lower + 1)));
    }
    RV rest;
    ra::computeExclusion(a.data(), a.data() + a.size(), b.data(), b.data() + b.size(), rest);
    Encoded sub;
    subtract<malloc, free>(pa.p(), pa.n(), pb.p(), pb.n(), 0, sub);

    auto drop = [](Encoded& e) { std::free(e.buffer); };
    double s[9], r[9];
    s[0] = micros([&] { Encoded e; unite<malloc, free>(pa.p(), pa.n(), pb.p(), pb.n(), 0, e); drop(e); });
    s[1] = micros([&] { Encoded e; intersect<malloc, free>(pa.p(), pa.n(), pb.p(), pb.n(), 0, e); drop(e); });
    s[2] = micros([&] { Encoded e; subtract<malloc, free>(pa.p(), pa.n(), pb.p(), pb.n(), 0, e); drop(e); });
    s[3] = micros([&] { bool x; overlaps<malloc, free>(pa.p(), pa.n(), pb.p(), pb.n(), x); sink = x; });
    s[4] = micros([&] { bool x; containsSet<malloc, free>(pa.p(), pa.n(), sub.payload, sub.size, x); sink = x; });
    s[5] = micros([&] {
        bool x;
        uint64_t hits = 0;
        for (int32_t v : probes) hits += containsValue(pa.p(), pa.n(), v, x) == Status::Ok && x;
        sink = hits;
    });
    s[6] = micros([&] { uint64_t c; cardinality(pa.p(), pa.n(), c); sink = c; });
    s[7] = micros([&] { Text t; formatText<malloc, free>(pa.p(), pa.n(), t); std::free(t.chars); });
    s[8] = micros([&] { sink = validate(pa.p(), pa.n()) == Status::Ok; });

    const Range32 *a0 = a.data(), *a1 = a0 + a.size(), *b0 = b.data(), *b1 = b0 + b.size();
    RV out;
    r[0] = micros([&] { ra::computeUnion(a0, a1, b0, b1, out); });
    r[1] = micros([&] { ra::computeIntersection(a0, a1, b0, b1, out); });
    r[2] = micros([&] { ra::computeExclusion(a0, a1, b0, b1, out); });
    r[3] = micros([&] { sink = ra::rangeListsOverlap(a0, a1, b0, b1); });
    r[4] = micros([&] { sink = ra::rangeListIncluded(rest.begin(), rest.end(), a0, a1); });
    r[5] = micros([&] {
        uint64_t hits = 0;
        for (int32_t v : probes) hits += ra::inRangeArray(a0, a1, v);
        sink = hits;
    });
    r[6] = micros([&] {
        uint64_t c = 0;
        for (const Range32& x : a) c += static_cast<uint64_t>(int64_t{x.upper} - x.lower + 1);
        sink = c;
    });
    r[7] = micros([&] {
        std::string t = "{";
        char buf[32];
        for (const Range32& x : a)
            t.append(buf, x.lower == x.upper ? std::snprintf(buf, sizeof buf, "%d,", x.lower)
                                             : std::snprintf(buf, sizeof buf, "%d..%d,", x.lower, x.upper));
        sink = t.size();
    });
    r[8] = 0;

    Encoded chunks;
    NoPoll none;
    if (detail::encodeChunks<malloc, free>(a.size(), [&](uint64_t i) { return a[i]; }, 0, chunks, none) != Status::Ok)
        std::abort();
    const size_t stored = 4 + pa.n(), chunked = 4 + chunks.size, array = 24 + 8 * a.size();
    drop(chunks);
    std::printf("%-6s %10llu members %9zu ranges: int4set %9zu bytes as %s (%.2f a member, %.1f a range), "
                "chunked %9zu, range array %9zu\n",
                name.c_str(), static_cast<unsigned long long>(members), a.size(), stored,
                pa.p()[0] == kFormatRanges ? "range list" : "chunks", double(stored) / double(members),
                double(stored) / double(a.size()), chunked, array);
    const char* ops[9] = {"union", "intersection", "difference", "overlap", "contains", "probes", "cardinality", "text", "validate"};
    for (int k = 0; k < 9; ++k)
        std::printf("  %-13s int4set %10.1f us   range array %10.1f us\n", ops[k], s[k], r[k]);
    drop(sub);
}

}  // namespace

int main(int argc, char** argv) {
    for (const char* name : {"runs", "lone", "dense", "huge"})
        if (argc < 2 || name == std::string(argv[1])) run(name);
}
