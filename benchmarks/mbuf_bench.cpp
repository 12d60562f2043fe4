// Message-buffer hot paths, each beside the baseline its goal is a ratio to: packet create + destroy and
// reference copies against malloc + free, header prepend/append cycles against a small malloc + free, raw
// copy and pull-up against memcpy of the same bytes.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zol_mbuf.h"

namespace {

constexpr u32 kMod = 0xC00E0000u;

MBUF *Packet(u32 length) {
    std::vector<u8> bytes(length, 0x5A);
    return MBUF_CreateByCopyBuffer(0, length, bytes.data(), 1, kMod);
}

void BM_MallocFree2048(benchmark::State &state) {
    for (auto _ : state) {
        void *p = std::malloc(2048);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}
BENCHMARK(BM_MallocFree2048);

void BM_MallocFree64(benchmark::State &state) {
    for (auto _ : state) {
        void *p = std::malloc(64);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}
BENCHMARK(BM_MallocFree64);

void BM_CreateDestroyControlPacket(benchmark::State &state) {
    for (auto _ : state) {
        MBUF *m = MBUF_CreateForControlPacket(0, 1500, 1, kMod);
        benchmark::DoNotOptimize(m);
        MBUF_Destroy(m);
    }
}
BENCHMARK(BM_CreateDestroyControlPacket);

void BM_ReferenceCopyDestroy(benchmark::State &state) {
    MBUF *m = Packet(1500);
    for (auto _ : state) {
        MBUF *c = MBUF_ReferenceCopy(m, 0, 1500, kMod);
        benchmark::DoNotOptimize(c);
        MBUF_Destroy(c);
    }
    MBUF_Destroy(m);
}
BENCHMARK(BM_ReferenceCopyDestroy);

void BM_PrependAndCutHead(benchmark::State &state) {
    MBUF *m = Packet(1500);
    for (auto _ : state) {
        MBUF_PrependDataBlock(m, 20, kMod);
        MBUF_CutAndFreeHead(m, 20);
    }
    MBUF_Destroy(m);
}
BENCHMARK(BM_PrependAndCutHead);

void BM_AppendAndCutTail(benchmark::State &state) {
    MBUF *m = Packet(1500);
    for (auto _ : state) {
        benchmark::DoNotOptimize(MBUF_AppendMemorySpace(m, 64, kMod));
        MBUF_CutTail(m, 64);
    }
    MBUF_Destroy(m);
}
BENCHMARK(BM_AppendAndCutTail);

void BM_Memcpy(benchmark::State &state) {
    const size_t n = static_cast<size_t>(state.range(0));
    std::vector<u8> src(n, 0x5A), dst(n);
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), n);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Memcpy)->Arg(9000)->Arg(2048);

void BM_RawCopy9000(benchmark::State &state) {
    MBUF *m = Packet(9000);
    for (auto _ : state) {
        MBUF *c = MBUF_RawCopy(m, 0, 9000, 0, kMod);
        benchmark::DoNotOptimize(c);
        MBUF_Destroy(c);
    }
    MBUF_Destroy(m);
}
BENCHMARK(BM_RawCopy9000);

// Each round pulls the first 2048 bytes of the 9000-byte chain into a fresh block; the block of the
// previous round empties and is released, so the chain keeps its shape.
void BM_PullUp2048Of9000(benchmark::State &state) {
    MBUF *m = Packet(9000);
    for (auto _ : state) {
        MBUF_PullUp(m, 2048, kMod);
    }
    MBUF_Destroy(m);
}
BENCHMARK(BM_PullUp2048Of9000);

} // namespace

BENCHMARK_MAIN();
