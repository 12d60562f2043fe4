// IPC message allocation and release against malloc+free of the same block size (payload + 40-byte
// header), and large copies between two messages against the same copy between page-aligned buffers
// and between buffers placed in the 4 KiB aliasing trap (destination 1..15 bytes past a 4096-byte
// multiple of the source), which makes such copies many times slower on x86-64.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>

#include "zol_ipc.h"

namespace {

constexpr u32 kModId = 0xC00B0000u;

void BM_MallocFree(benchmark::State &state) {
    const size_t size = static_cast<size_t>(state.range(0)) + IPC_MSG_HEAD_LEN;
    for (auto _ : state) {
        void *p = std::malloc(size);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}

void BM_IpcAllocFree(benchmark::State &state) {
    const u32 len = static_cast<u32>(state.range(0));
    for (auto _ : state) {
        void *msg = IPC_AllocMsg_X(len, kModId, "bench", __LINE__);
        benchmark::DoNotOptimize(msg);
        IPC_FreeMsg(msg);
    }
}

void CopyLoop(benchmark::State &state, unsigned char *dst, const unsigned char *src, size_t len) {
    for (auto _ : state) {
        std::memcpy(dst, src, len);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(len));
}

void BM_CopyBetweenMessages(benchmark::State &state) {
    auto *src = static_cast<unsigned char *>(IPC_AllocMsg_X(IPC_MAX_MSG_LEN, kModId, "bench", __LINE__));
    auto *dst = static_cast<unsigned char *>(IPC_AllocMsg_X(IPC_MAX_MSG_LEN, kModId, "bench", __LINE__));
    std::memset(src, 0x5A, IPC_MAX_MSG_LEN);
    state.counters["distance_mod_4096"] = static_cast<double>((dst - src) & 4095);
    CopyLoop(state, dst, src, IPC_MAX_MSG_LEN);
    IPC_FreeMsg(src);
    IPC_FreeMsg(dst);
}

// Baseline (aligned: distance 0 modulo 4096) and the trap (distance 8 modulo 4096).
void BM_CopyPlaced(benchmark::State &state) {
    const size_t skew = static_cast<size_t>(state.range(0));
    const size_t span = 2 * 65536 + 8192;
    auto *base = static_cast<unsigned char *>(std::aligned_alloc(4096, span));
    unsigned char *src = base;
    unsigned char *dst = base + 65536 + 4096 + skew;
    std::memset(src, 0x5A, IPC_MAX_MSG_LEN);
    CopyLoop(state, dst, src, IPC_MAX_MSG_LEN);
    std::free(base);
}

} // namespace

BENCHMARK(BM_MallocFree)->Arg(64)->Arg(1024)->Arg(IPC_MAX_MSG_LEN);
BENCHMARK(BM_IpcAllocFree)->Arg(64)->Arg(1024)->Arg(IPC_MAX_MSG_LEN);
BENCHMARK(BM_CopyBetweenMessages);
BENCHMARK(BM_CopyPlaced)->Arg(0)->Arg(8);

BENCHMARK_MAIN();
