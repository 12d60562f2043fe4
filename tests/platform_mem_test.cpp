// Stand-in memory service: handles, blocks, reference counts, bad frees, resizing, fault injection, live
// counters back to zero, blocks freed on another thread.
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

#include "ruk_mem.h"
#include "ruk_queue.h"
#include "standin_ctl.h"

namespace {

#define ALLOC(handle, size) RUK_MemAlloc_F((handle), g_ucSysMemPtNo, (size), __FILE__, __LINE__)
#define REALLOC(handle, block, size) RUK_MemReAlloc_F((handle), g_ucSysMemPtNo, (block), (size), __FILE__, __LINE__)
#define FREE(handle, block) RUK_MemFree_F((handle), (block), __FILE__, __LINE__)

u32 Handle(const char *name) {
    u32 handle = 0;
    EXPECT_EQ(RUK_HandleInitialize(name, &handle), RUK_OK);
    return handle;
}

void ExpectLive(u32 handle, u64 blocks, u64 bytes) {
    u64 live[2] = {99, 99};
    PLAT_MemStats(handle, &live[0], &live[1]);
    EXPECT_EQ(live[0], blocks);
    EXPECT_EQ(live[1], bytes);
}

// Bytes derived from where the block was first filled, so overlap and lost contents both show.
u8 ByteAt(const void *origin, size_t i) {
    return static_cast<u8>((reinterpret_cast<uintptr_t>(origin) >> 4) + i);
}
void Fill(void *block, size_t size) {
    for (size_t i = 0; i < size; ++i)
        static_cast<u8 *>(block)[i] = ByteAt(block, i);
}
bool Intact(const void *block, size_t size, const void *origin) {
    size_t i = 0;
    while (i < size && static_cast<const u8 *>(block)[i] == ByteAt(origin, i))
        ++i;
    return i == size;
}

// Two blocks of each size, so a pointer a few bytes off a payload start may fall in a neighbour's header.
TEST(PlatformMem, BlocksOfEverySizeAreAlignedDistinctCountedAndKnownOnlyByTheirStart) {
    u32 handle = Handle("platform_mem_sizes");
    EXPECT_EQ(Handle("platform_mem_sizes"), handle) << "a name maps to one handle";
    std::vector<std::pair<void *, u32>> blocks;
    u64 bytes = 0;
    for (u32 size : {1u, 32u, 33u, 1000u, 4096u, 65535u, 65536u, 65537u, 1u << 20}) {
        for (int twice = 0; twice < 2; ++twice, bytes += size) {
            blocks.emplace_back(ALLOC(handle, size), size);
            ASSERT_NE(blocks.back().first, nullptr) << size;
            EXPECT_EQ(reinterpret_cast<uintptr_t>(blocks.back().first) % 16, 0u) << size;
            Fill(blocks.back().first, size);
        }
    }
    ExpectLive(handle, blocks.size(), bytes);
    for (auto [block, size] : blocks) {
        for (int offset = -48; offset <= 48; offset += 8) {
            EXPECT_TRUE(offset == 0 || FREE(handle, static_cast<char *>(block) + offset) == RUK_ERR_BAD_BLOCK)
                << size << " " << offset;
        }
    }
    for (auto [block, size] : blocks) {
        EXPECT_TRUE(Intact(block, size, block)) << "blocks overlap at size " << size;
        EXPECT_EQ(FREE(handle, block), RUK_OK);
    }
    ExpectLive(handle, 0, 0);
    EXPECT_EQ(ALLOC(handle, 0), nullptr);
    EXPECT_EQ(ALLOC(0xFFFFFFF0u, 16), nullptr);
}

TEST(PlatformMem, ReferenceCountsBadFreesAndInjection) {
    u32 handle = Handle("platform_mem_refs");
    u32 refs = 0;
    for (u32 size : {64u, 200000u}) { // a pool block and a block straight from malloc
        void *block = ALLOC(handle, size);
        ASSERT_TRUE(RUK_MemRefInc(block) == RUK_OK && RUK_MemRefInc(block) == RUK_OK);
        EXPECT_EQ(RUK_MemRefGet(block, &refs), RUK_OK);
        EXPECT_EQ(refs, 3u);
        EXPECT_TRUE(FREE(handle, block) == RUK_OK && FREE(handle, block) == RUK_OK);
        ExpectLive(handle, 1, size);
        EXPECT_EQ(FREE(handle, block), RUK_OK);
        ExpectLive(handle, 0, 0);
        EXPECT_EQ(FREE(handle, block), RUK_ERR_BAD_BLOCK) << "double free of " << size;
        EXPECT_EQ(RUK_MemRefInc(block), RUK_ERR_BAD_BLOCK);
    }
    void *live = ALLOC(handle, 100), *fromMalloc = std::malloc(64);
    int onStack = 0;
    for (void *bad : {static_cast<void *>(nullptr), static_cast<void *>(&onStack), fromMalloc})
        EXPECT_EQ(FREE(handle, bad), RUK_ERR_BAD_BLOCK) << bad;
    std::free(fromMalloc);

    // Injected failures hit exactly the calls asked for and change nothing.
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 1, 2), RUK_OK);
    void *blocks[4];
    for (void *&block : blocks)
        block = ALLOC(handle, 64);
    EXPECT_TRUE(blocks[0] != nullptr && blocks[1] == nullptr && blocks[2] == nullptr && blocks[3] != nullptr);
    ASSERT_EQ(PLAT_FaultInject("RUK_MemFree_F", 0, 1), RUK_OK);
    EXPECT_EQ(FREE(handle, live), RUK_ERR_INJECTED);
    EXPECT_EQ(RUK_MemRefGet(live, &refs), RUK_OK);
    EXPECT_EQ(refs, 1u) << "an injected free must not drop the reference";
    for (void *block : {live, blocks[0], blocks[3]})
        EXPECT_EQ(FREE(handle, block), RUK_OK);
    ExpectLive(handle, 0, 0);
}

TEST(PlatformMem, ReallocKeepsContentsAndRefusesSharedBlocks) {
    u32 handle = Handle("platform_mem_realloc");
    void *block = REALLOC(handle, nullptr, 40), *origin = block;
    ASSERT_NE(block, nullptr);
    Fill(block, 40);
    for (u32 size : {48u, 100000u, 3000u, 20u}) {
        block = REALLOC(handle, block, size);
        ASSERT_NE(block, nullptr) << size;
        EXPECT_TRUE(Intact(block, size < 40 ? size : 40, origin)) << size;
        ExpectLive(handle, 1, size);
    }
    ASSERT_EQ(RUK_MemRefInc(block), RUK_OK);
    EXPECT_EQ(REALLOC(handle, block, 5000), nullptr);
    EXPECT_TRUE(Intact(block, 20, origin)) << "a refused resize leaves the block untouched";
    EXPECT_TRUE(FREE(handle, block) == RUK_OK && FREE(handle, block) == RUK_OK);
    ExpectLive(handle, 0, 0);
}

// Producers allocate and fill blocks, some shared (one more reference, dropped by the producer), pass them
// through a queue and end; consumers check and free them. Meanwhile the live count is read while blocks
// change hands (a race here shows under the thread sanitizer); at the end it is back at zero although the
// allocating threads ended with their blocks still out.
TEST(PlatformMem, BlocksAllocatedOnOneThreadAreFreedOnAnother) {
    constexpr int kThreads = 2, kPerProducer = 20000;
    u32 handle = Handle("platform_mem_cross"), queue = 0;
    ASSERT_EQ(RUK_Que_Create("memx", 128, 0, &queue), RUK_OK);
    std::atomic<int> damaged{0};
    std::vector<std::thread> consumers, producers;
    for (int c = 0; c < kThreads; ++c) {
        consumers.emplace_back([&] {
            u64 rec[4];
            while (RUK_Que_Read(queue, rec, RUK_WAIT, 0) == RUK_OK && rec[0] != 0) {
                void *block = reinterpret_cast<void *>(rec[0]);
                damaged += Intact(block, rec[1], block) && FREE(handle, block) == RUK_OK ? 0 : 1;
            }
        });
        producers.emplace_back([&, c] {
            std::mt19937 random(c);
            for (int i = 0; i < kPerProducer; ++i) {
                u32 size = 1 + random() % (i % 100 == 0 ? 100000 : 3000);
                void *block = ALLOC(handle, size);
                ASSERT_NE(block, nullptr);
                Fill(block, size);
                bool shared = i % 3 == 0 && RUK_MemRefInc(block) == RUK_OK;
                const u64 rec[4] = {reinterpret_cast<u64>(block), size, 0, 0};
                ASSERT_EQ(RUK_Que_Write(queue, rec, RUK_WAIT, 0), RUK_OK);
                damaged += shared && FREE(handle, block) != RUK_OK ? 1 : 0;
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        u64 live[2] = {0, 0};
        PLAT_MemStats(handle, &live[0], &live[1]);
        EXPECT_LE(live[0], u64{kThreads} * kPerProducer);
        EXPECT_LE(live[1], live[0] * 100000);
    }
    for (auto &t : producers)
        t.join();
    const u64 stop[4] = {0, 0, 0, 0};
    for (int i = 0; i < kThreads; ++i)
        ASSERT_EQ(RUK_Que_Write(queue, stop, RUK_WAIT, 0), RUK_OK);
    for (auto &t : consumers)
        t.join();
    EXPECT_EQ(damaged.load(), 0);
    ExpectLive(handle, 0, 0);
}

#if defined(__SANITIZE_ADDRESS__)
// Pool blocks are recycled, not returned to malloc, so the pool itself must poison freed payloads and the
// unrequested end of a block for the address sanitizer to see misuse.
TEST(PlatformMemDeathTest, SanitizerSeesUseAfterFreeAndOverrunInPoolBlocks) {
    u32 handle = Handle("platform_mem_asan");
    volatile char *block = static_cast<char *>(ALLOC(handle, 100));
    EXPECT_DEATH(block[100] = 1, "use-after-poison");
    FREE(handle, const_cast<char *>(block));
    EXPECT_DEATH(block[10] = 1, "use-after-poison");
}
#endif

} // namespace
