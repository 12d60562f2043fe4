// Tests of the stand-in's memory service through its C API: handles, blocks, reference counts, bad
// frees, resizing, fault injection, live counters and cross-thread use.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

#include "ruk_mem.h"
#include "ruk_queue.h"
#include "standin_ctl.h"

namespace {

#define ALLOC(handle, size) RUK_MemAlloc_F((handle), g_ucSysMemPtNo, (size), __FILE__, __LINE__)
#define FREE(handle, block) RUK_MemFree_F((handle), (block), __FILE__, __LINE__)

u32 Handle(const char *name) {
    u32 handle = 0;
    EXPECT_EQ(RUK_HandleInitialize(name, &handle), RUK_OK);
    return handle;
}

void ExpectLive(u32 handle, u64 blocks, u64 bytes) {
    u64 liveBlocks = 99, liveBytes = 99;
    PLAT_MemStats(handle, &liveBlocks, &liveBytes);
    EXPECT_EQ(liveBlocks, blocks);
    EXPECT_EQ(liveBytes, bytes);
}

u8 Pattern(const void *block, size_t i) {
    return static_cast<u8>((reinterpret_cast<uintptr_t>(block) >> 4) + i);
}

void Fill(void *block, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        static_cast<u8 *>(block)[i] = Pattern(block, i);
    }
}

bool Intact(const void *block, size_t size, const void *origin) {
    for (size_t i = 0; i < size; ++i) {
        if (static_cast<const u8 *>(block)[i] != Pattern(origin, i)) {
            return false;
        }
    }
    return true;
}

TEST(PlatformMem, HandlesAreNamed) {
    u32 a = Handle("platform_mem_a");
    EXPECT_NE(a, 0u);
    EXPECT_EQ(Handle("platform_mem_a"), a);
    EXPECT_NE(Handle("platform_mem_b"), a);
    u32 handle = 0;
    EXPECT_EQ(RUK_HandleInitialize(nullptr, &handle), RUK_ERR_PARAM);
    EXPECT_EQ(RUK_HandleInitialize("", &handle), RUK_ERR_PARAM);
    EXPECT_EQ(RUK_HandleInitialize("x", nullptr), RUK_ERR_PARAM);
    ASSERT_EQ(PLAT_FaultInject("RUK_HandleInitialize", 0, 1), RUK_OK);
    EXPECT_EQ(RUK_HandleInitialize("platform_mem_a", &handle), RUK_ERR_INJECTED);
    EXPECT_EQ(RUK_HandleInitialize("platform_mem_a", &handle), RUK_OK);
    ExpectLive(0, 0, 0);
    ExpectLive(0xFFFFFFFFu, 0, 0);
    PLAT_MemStats(a, nullptr, nullptr); // null outputs are skipped
}

TEST(PlatformMem, BlocksOfEverySizeAreAlignedUsableAndCounted) {
    u32 handle = Handle("platform_mem_sizes");
    const u32 sizes[] = {1, 31, 32, 33, 100, 1000, 4096, 65535, 65536, 65537, 1u << 20};
    std::vector<void *> blocks;
    u64 bytes = 0;
    for (u32 size : sizes) {
        void *block = ALLOC(handle, size);
        ASSERT_NE(block, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u) << size;
        Fill(block, size);
        u32 refs = 0;
        EXPECT_EQ(RUK_MemRefGet(block, &refs), RUK_OK);
        EXPECT_EQ(refs, 1u);
        blocks.push_back(block);
        bytes += size;
    }
    ExpectLive(handle, blocks.size(), bytes);
    for (size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_TRUE(Intact(blocks[i], sizes[i], blocks[i])) << "blocks overlap at size " << sizes[i];
        EXPECT_EQ(FREE(handle, blocks[i]), RUK_OK);
    }
    ExpectLive(handle, 0, 0);
    EXPECT_EQ(ALLOC(handle, 0), nullptr);
    EXPECT_EQ(ALLOC(0, 16), nullptr);
    EXPECT_EQ(ALLOC(0xFFFFFFF0u, 16), nullptr);
}

TEST(PlatformMem, ReferenceCountsAndBadFrees) {
    u32 handle = Handle("platform_mem_refs");
    for (u32 size : {64u, 200000u}) { // a pool block and a block straight from malloc
        void *block = ALLOC(handle, size);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(RUK_MemRefInc(block), RUK_OK);
        EXPECT_EQ(RUK_MemRefInc(block), RUK_OK);
        u32 refs = 0;
        EXPECT_EQ(RUK_MemRefGet(block, &refs), RUK_OK);
        EXPECT_EQ(refs, 3u);
        EXPECT_EQ(FREE(handle, block), RUK_OK);
        EXPECT_EQ(FREE(handle, block), RUK_OK);
        ExpectLive(handle, 1, size);
        EXPECT_EQ(RUK_MemRefGet(block, &refs), RUK_OK);
        EXPECT_EQ(refs, 1u);
        EXPECT_EQ(FREE(handle, block), RUK_OK);
        ExpectLive(handle, 0, 0);
        EXPECT_EQ(FREE(handle, block), RUK_ERR_BAD_BLOCK) << "double free of " << size;
        EXPECT_EQ(RUK_MemRefInc(block), RUK_ERR_BAD_BLOCK);
        EXPECT_EQ(RUK_MemRefGet(block, &refs), RUK_ERR_BAD_BLOCK);
    }
    void *live = ALLOC(handle, 100);
    int onStack = 0;
    void *fromMalloc = std::malloc(64);
    EXPECT_EQ(FREE(handle, nullptr), RUK_ERR_BAD_BLOCK);
    EXPECT_EQ(FREE(handle, &onStack), RUK_ERR_BAD_BLOCK);
    EXPECT_EQ(FREE(handle, fromMalloc), RUK_ERR_BAD_BLOCK);
    EXPECT_EQ(FREE(handle, static_cast<char *>(live) + 16), RUK_ERR_BAD_BLOCK) << "interior pointer";
    EXPECT_EQ(RUK_MemRefGet(live, nullptr), RUK_ERR_PARAM);
    std::free(fromMalloc);
    ExpectLive(handle, 1, 100);
    EXPECT_EQ(FREE(handle, live), RUK_OK);
}

TEST(PlatformMem, ReallocKeepsContentsAndRefusesSharedBlocks) {
    u32 handle = Handle("platform_mem_realloc");
    void *block = RUK_MemReAlloc_F(handle, g_ucSysMemPtNo, nullptr, 40, __FILE__, __LINE__);
    ASSERT_NE(block, nullptr);
    Fill(block, 40);
    void *origin = block;
    for (u32 size : {48u, 1000u, 100000u, 3000u, 20u}) {
        u32 kept = size < 40 ? size : 40;
        void *moved = RUK_MemReAlloc_F(handle, g_ucSysMemPtNo, block, size, __FILE__, __LINE__);
        ASSERT_NE(moved, nullptr) << size;
        EXPECT_TRUE(Intact(moved, kept, origin)) << size;
        ExpectLive(handle, 1, size);
        block = moved;
    }
    ASSERT_EQ(RUK_MemRefInc(block), RUK_OK);
    EXPECT_EQ(RUK_MemReAlloc_F(handle, g_ucSysMemPtNo, block, 5000, __FILE__, __LINE__), nullptr);
    EXPECT_EQ(RUK_MemReAlloc_F(handle, g_ucSysMemPtNo, block, 0, __FILE__, __LINE__), nullptr);
    EXPECT_TRUE(Intact(block, 20, origin)) << "a refused resize leaves the block untouched";
    ExpectLive(handle, 1, 20);
    EXPECT_EQ(FREE(handle, block), RUK_OK);
    EXPECT_EQ(FREE(handle, block), RUK_OK);
    ExpectLive(handle, 0, 0);
    int onStack = 0;
    EXPECT_EQ(RUK_MemReAlloc_F(handle, g_ucSysMemPtNo, &onStack, 8, __FILE__, __LINE__), nullptr);
}

TEST(PlatformMem, CallsFailExactlyAsInjected) {
    u32 handle = Handle("platform_mem_inject");
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 1, 2), RUK_OK);
    void *blocks[4];
    for (void *&block : blocks) {
        block = ALLOC(handle, 64);
    }
    EXPECT_NE(blocks[0], nullptr);
    EXPECT_EQ(blocks[1], nullptr);
    EXPECT_EQ(blocks[2], nullptr);
    EXPECT_NE(blocks[3], nullptr);
    ExpectLive(handle, 2, 128);

    ASSERT_EQ(PLAT_FaultInject("RUK_MemFree_F", 0, 1), RUK_OK);
    ASSERT_EQ(PLAT_FaultInject("RUK_MemRefGet", 0, 1), RUK_OK);
    EXPECT_EQ(FREE(handle, blocks[0]), RUK_ERR_INJECTED);
    u32 refs = 0;
    EXPECT_EQ(RUK_MemRefGet(blocks[0], &refs), RUK_ERR_INJECTED);
    EXPECT_EQ(RUK_MemRefGet(blocks[0], &refs), RUK_OK);
    EXPECT_EQ(refs, 1u) << "an injected free must not drop the reference";
    EXPECT_EQ(FREE(handle, blocks[0]), RUK_OK);
    EXPECT_EQ(FREE(handle, blocks[3]), RUK_OK);
    ExpectLive(handle, 0, 0);
    PLAT_FaultClear();
}

// Producers allocate and fill blocks, some shared (one more reference, dropped by the producer), and
// pass them through a queue; consumers check and free them. Nothing may be lost or damaged.
TEST(PlatformMem, BlocksAllocatedOnOneThreadAreFreedOnAnother) {
    constexpr int kProducers = 2, kConsumers = 2, kPerProducer = 20000;
    u32 handle = Handle("platform_mem_cross");
    u32 queue = 0;
    ASSERT_EQ(RUK_Que_Create("memx", 128, 0, &queue), RUK_OK);
    std::atomic<int> damaged{0};
    std::vector<std::thread> threads;
    for (int c = 0; c < kConsumers; ++c) {
        threads.emplace_back([&] {
            u64 rec[4];
            while (RUK_Que_Read(queue, rec, RUK_WAIT, 0) == RUK_OK && rec[0] != 0) {
                void *block = reinterpret_cast<void *>(rec[0]);
                damaged += Intact(block, rec[1], block) ? 0 : 1;
                damaged += FREE(handle, block) == RUK_OK ? 0 : 1;
            }
        });
    }
    for (int p = 0; p < kProducers; ++p) {
        threads.emplace_back([&, p] {
            std::mt19937 random(p);
            for (int i = 0; i < kPerProducer; ++i) {
                u32 size = 1 + random() % (i % 100 == 0 ? 100000 : 3000);
                void *block = ALLOC(handle, size);
                ASSERT_NE(block, nullptr);
                Fill(block, size);
                bool shared = i % 3 == 0 && RUK_MemRefInc(block) == RUK_OK;
                const u64 rec[4] = {reinterpret_cast<u64>(block), size, 0, 0};
                ASSERT_EQ(RUK_Que_Write(queue, rec, RUK_WAIT, 0), RUK_OK);
                if (shared) {
                    damaged += FREE(handle, block) == RUK_OK ? 0 : 1;
                }
            }
        });
    }
    for (int p = 0; p < kProducers; ++p) {
        threads[kConsumers + p].join();
    }
    for (int c = 0; c < kConsumers; ++c) {
        const u64 stop[4] = {0, 0, 0, 0};
        ASSERT_EQ(RUK_Que_Write(queue, stop, RUK_WAIT, 0), RUK_OK);
    }
    for (int c = 0; c < kConsumers; ++c) {
        threads[c].join();
    }
    EXPECT_EQ(damaged.load(), 0);
    ExpectLive(handle, 0, 0);
}

#if defined(__SANITIZE_ADDRESS__)
// Pool blocks are recycled rather than returned to malloc, so the pool itself must make freed payloads
// and the unrequested end of a block unaddressable for the address sanitizer to see misuse.
TEST(PlatformMemDeathTest, SanitizerSeesUseAfterFreeAndOverrunInPoolBlocks) {
    u32 handle = Handle("platform_mem_asan");
    EXPECT_DEATH(
        {
            volatile char *block = static_cast<char *>(ALLOC(handle, 100));
            FREE(handle, const_cast<char *>(block));
            block[10] = 1;
        },
        "use-after-poison");
    EXPECT_DEATH(
        {
            volatile char *block = static_cast<char *>(ALLOC(handle, 100));
            block[100] = 1;
        },
        "use-after-poison");
}
#endif

} // namespace
