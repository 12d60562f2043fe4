// Speed of the stand-in's pool allocator against malloc/free, and of a queue
// write+read round trip against a mutex-protected deque, in the same program.
#include <array>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <deque>
#include <mutex>

#include "ruk_mem.h"
#include "ruk_queue.h"

namespace {

// Registered before any benchmark runs, so that the loops read a plain variable as a caller would.
const u32 kBenchHandle = [] {
    u32 h = 0;
    RUK_HandleInitialize("platform_bench", &h);
    return h;
}();

struct Pool {
    static void *Alloc(u32 size) { return RUK_MemAlloc_F(kBenchHandle, g_ucSysMemPtNo, size, __FILE__, __LINE__); }
    static void Free(void *block) { RUK_MemFree_F(kBenchHandle, block, __FILE__, __LINE__); }
};

struct Malloc {
    static void *Alloc(u32 size) { return std::malloc(size); }
    static void Free(void *block) { std::free(block); }
};

// One block allocated, touched and freed per iteration.
template <class A>
void BM_AllocFree(benchmark::State &state) {
    u32 size = static_cast<u32>(state.range(0));
    for (auto _ : state) {
        void *block = A::Alloc(size);
        benchmark::DoNotOptimize(block);
        static_cast<char *>(block)[0] = 1;
        A::Free(block);
    }
}

// Bursts: 32 blocks allocated, then all freed, as a message burst does.
template <class A>
void BM_AllocFreeBurst(benchmark::State &state) {
    u32 size = static_cast<u32>(state.range(0));
    void *blocks[32];
    for (auto _ : state) {
        for (void *&block : blocks) {
            block = A::Alloc(size);
            benchmark::DoNotOptimize(block);
        }
        for (void *block : blocks) {
            A::Free(block);
        }
    }
    state.SetItemsProcessed(state.iterations() * 32);
}

void Sizes(benchmark::internal::Benchmark *bench) {
    bench->Arg(64)->Arg(256)->Arg(1024)->Arg(2048)->Arg(16384);
}

BENCHMARK_TEMPLATE(BM_AllocFree, Malloc)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_AllocFree, Pool)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_AllocFree, Malloc)->Apply(Sizes)->Threads(2);
BENCHMARK_TEMPLATE(BM_AllocFree, Pool)->Apply(Sizes)->Threads(2);
BENCHMARK_TEMPLATE(BM_AllocFreeBurst, Malloc)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_AllocFreeBurst, Pool)->Apply(Sizes);

// Baseline for the queue: the obvious locked deque of four-word records.
void BM_QueueRoundTrip_Deque(benchmark::State &state) {
    std::mutex lock;
    std::deque<std::array<u64, 4>> records;
    std::array<u64, 4> rec{1, 2, 3, 4};
    for (auto _ : state) {
        {
            std::lock_guard<std::mutex> guard(lock);
            records.push_back(rec);
        }
        {
            std::lock_guard<std::mutex> guard(lock);
            rec = records.front();
            records.pop_front();
        }
        benchmark::DoNotOptimize(rec);
    }
}
BENCHMARK(BM_QueueRoundTrip_Deque);

void BM_QueueRoundTrip_Ruk(benchmark::State &state) {
    static u32 queue = [] {
        u32 id = 0;
        RUK_Que_Create("bench", 1024, 0, &id);
        return id;
    }();
    u64 rec[4] = {1, 2, 3, 4};
    for (auto _ : state) {
        RUK_Que_Write(queue, rec, RUK_NOWAIT, 0);
        RUK_Que_Read(queue, rec, RUK_NOWAIT, 0);
        benchmark::DoNotOptimize(rec);
    }
}
BENCHMARK(BM_QueueRoundTrip_Ruk);

} // namespace

BENCHMARK_MAIN();
