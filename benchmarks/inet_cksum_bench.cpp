// INET_Cksum against three baselines built into this program at a fixed -O2: the classic unrolled 16-bit
// word loop, the textbook one-word-at-a-time loop, and the bare cost of reading the bytes. Each figure is
// bytes per second; the "ratio" benchmarks time INET_Cksum and the read floor alternately in the same
// loop and report their speed ratio, the goal being at least 0.5 at 1500 bytes.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstring>
#include <random>
#include <vector>

#include "zol_util.h"

#include "inet_cksum_bench_refs.h"

namespace {

using zol::bench::NaiveWordCksum;
using zol::bench::ReadFloorSum;
using zol::bench::UnrolledWordCksum;

// Random bytes (enough for the largest size) at a 64-byte-aligned start plus `offset`.
const uint8_t *Data(size_t offset) {
    static std::vector<uint8_t> buf = [] {
        std::vector<uint8_t> v((1u << 17) + 128);
        std::mt19937 rng(1500u);
        for (auto &b : v) {
            b = static_cast<uint8_t>(rng());
        }
        return v;
    }();
    auto base = reinterpret_cast<uintptr_t>(buf.data());
    return buf.data() + ((64 - base % 64) % 64) + offset;
}

// Every checksum in the comparison must agree with INET_Cksum, or the figures mean nothing.
bool SameResults(const uint8_t *p, uint32_t n) {
    const u16 ours = INET_Cksum(p, n);
    return UnrolledWordCksum(p, n) == ours && NaiveWordCksum(p, n) == ours;
}

template <typename Fn>
void RunBytes(benchmark::State &state, Fn fn) {
    const auto len = static_cast<uint32_t>(state.range(0));
    const uint8_t *p = Data(static_cast<size_t>(state.range(1)));
    if (!SameResults(p, len)) {
        state.SkipWithError("checksum results differ");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(p);
        benchmark::DoNotOptimize(fn(p, len));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * len);
}

void BM_InetCksum(benchmark::State &s) {
    RunBytes(s, INET_Cksum);
}
void BM_UnrolledWordLoop(benchmark::State &s) {
    RunBytes(s, UnrolledWordCksum);
}
void BM_NaiveWordLoop(benchmark::State &s) {
    RunBytes(s, NaiveWordCksum);
}
void BM_ReadFloor(benchmark::State &s) {
    RunBytes(s, ReadFloorSum);
}

// Times fn over `reps` calls, in seconds.
template <typename Fn>
double TimeReps(Fn fn, const uint8_t *p, uint32_t len, int reps) {
    const auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < reps; ++i) {
        benchmark::DoNotOptimize(p);
        benchmark::DoNotOptimize(fn(p, len));
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// INET_Cksum and one baseline timed alternately, so both see the same machine state; the counters give
// both speeds in GB/s and INET_Cksum's speed as a multiple of the baseline's.
template <typename Fn>
void RunRatio(benchmark::State &state, Fn baseline) {
    const auto len = static_cast<uint32_t>(state.range(0));
    const uint8_t *p = Data(static_cast<size_t>(state.range(1)));
    const int reps = static_cast<int>(std::max<uint32_t>(1, (1u << 20) / (len + 64)));
    double ours = 0, base = 0;
    for (auto _ : state) {
        ours += TimeReps(INET_Cksum, p, len, reps);
        base += TimeReps(baseline, p, len, reps);
    }
    const double bytes = static_cast<double>(state.iterations()) * reps * len;
    state.counters["ours_GBps"] = bytes / ours / 1e9;
    state.counters["base_GBps"] = bytes / base / 1e9;
    state.counters["ratio"] = base / ours;
}

void BM_RatioToReadFloor(benchmark::State &s) {
    RunRatio(s, ReadFloorSum);
}
void BM_RatioToUnrolledWordLoop(benchmark::State &s) {
    RunRatio(s, UnrolledWordCksum);
}
void BM_RatioToNaiveWordLoop(benchmark::State &s) {
    RunRatio(s, NaiveWordCksum);
}

// {length, start offset}: the three packet sizes at an aligned start, and 1500 at an odd one.
void Sizes(benchmark::internal::Benchmark *b) {
    b->Args({64, 0})->Args({1500, 0})->Args({65536, 0})->Args({1500, 1});
}

BENCHMARK(BM_InetCksum)->Apply(Sizes);
BENCHMARK(BM_UnrolledWordLoop)->Apply(Sizes);
BENCHMARK(BM_NaiveWordLoop)->Apply(Sizes);
BENCHMARK(BM_ReadFloor)->Apply(Sizes);
BENCHMARK(BM_RatioToReadFloor)->Apply(Sizes);
BENCHMARK(BM_RatioToUnrolledWordLoop)->Apply(Sizes);
BENCHMARK(BM_RatioToNaiveWordLoop)->Apply(Sizes);

} // namespace

BENCHMARK_MAIN();
