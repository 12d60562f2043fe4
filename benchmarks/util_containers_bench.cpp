// The exported hash table's find and the intrusive lists' insert/delete, in ns per operation, beside the
// standard containers doing the same job in the same program (baselines for the ratios).
#include <benchmark/benchmark.h>
#include <list>
#include <random>
#include <unordered_map>
#include <vector>

#include "zol_util.h"

namespace {

struct Elem {
    DllNode node; // first member
    u32 key;
};

constexpr u32 kBuckets = 1024;
constexpr u32 kElems = 4096;

s32 CmpKey(const void *k, DllNode *n) {
    return reinterpret_cast<Elem *>(n)->key == *static_cast<const u32 *>(k) ? 0 : 1;
}
u32 NoRelease(DllNode *) {
    return 0;
}

std::vector<u32> Probes() {
    std::mt19937 rng(4242u);
    std::vector<u32> v(8192);
    for (u32 &k : v) {
        k = static_cast<u32>(rng() % kElems) * 2654435761u; // present keys in random order
    }
    return v;
}

void BM_HashFind(benchmark::State &state) {
    HashTable *t = HASH_Create_Table(kBuckets, nullptr);
    if (t == nullptr) {
        state.SkipWithError("no table");
        return;
    }
    std::vector<Elem> elems(kElems);
    for (u32 i = 0; i < kElems; ++i) {
        elems[i].key = i * 2654435761u;
        HASH_Add_Node(t, &elems[i].node, elems[i].key % kBuckets, &elems[i].key);
    }
    const std::vector<u32> probes = Probes();
    size_t i = 0;
    for (auto _ : state) {
        const u32 k = probes[i++ & 8191];
        benchmark::DoNotOptimize(HASH_Find_Node(t, k % kBuckets, &k, CmpKey));
    }
    (void)HASH_Delete_Table(t, NoRelease);
}

void BM_StdUnorderedMapFind(benchmark::State &state) {
    std::unordered_map<u32, Elem *> map;
    std::vector<Elem> elems(kElems);
    for (u32 i = 0; i < kElems; ++i) {
        elems[i].key = i * 2654435761u;
        map.emplace(elems[i].key, &elems[i]);
    }
    const std::vector<u32> probes = Probes();
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(map.find(probes[i++ & 8191]));
    }
}

// One insert at the end and one delete of the first element per iteration, on a list of 64 elements.
void BM_DllInsertDelete(benchmark::State &state) {
    DllHead h;
    h.first = h.last = reinterpret_cast<DllNode *>(&h);
    h.count = 0;
    std::vector<Elem> elems(65);
    for (u32 i = 0; i < 64; ++i) {
        DLL_Insert(&h, h.count ? h.last : nullptr, &elems[i].node);
    }
    size_t next = 64;
    for (auto _ : state) {
        DLL_Insert(&h, h.last, &elems[next].node);
        DllNode *first = h.first;
        DLL_Delete(&h, first);
        next = static_cast<size_t>(reinterpret_cast<Elem *>(first) - elems.data());
    }
    benchmark::DoNotOptimize(h.count);
}

void BM_SllInsertGet(benchmark::State &state) {
    SllHead h;
    h.first = h.last = reinterpret_cast<SllNode *>(&h);
    h.count = 0;
    std::vector<SllNode> nodes(65);
    for (u32 i = 0; i < 64; ++i) {
        SLL_Insert(&h, h.count ? h.last : nullptr, &nodes[i]);
    }
    SllNode *spare = &nodes[64];
    for (auto _ : state) {
        SLL_Insert(&h, h.last, spare);
        spare = SLL_Get(&h);
    }
    benchmark::DoNotOptimize(h.count);
}

void BM_StdListPushPop(benchmark::State &state) {
    std::list<u32> l(64, 1u);
    for (auto _ : state) {
        l.push_back(2u);
        l.pop_front();
    }
    benchmark::DoNotOptimize(l.size());
}

BENCHMARK(BM_HashFind);
BENCHMARK(BM_StdUnorderedMapFind);
BENCHMARK(BM_DllInsertDelete);
BENCHMARK(BM_SllInsertGet);
BENCHMARK(BM_StdListPushPop);

} // namespace

BENCHMARK_MAIN();
