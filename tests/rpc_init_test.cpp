// RPC start-up through the exported API: its order with IPC_Init, what a second start does, sequence
// numbers from 0, and failures to create the receive task or queue (each in a fresh process).
#include <arpa/inet.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <vector>

#include "ruk_types.h"

#include "rpc_support.h"

namespace {

using namespace rpc_test;

constexpr u32 kSelf = 0x00005007u;

std::vector<u32> g_seqs;

u32 SeqCallback(u32, u32, void *req, u32, void **, u32 *) {
    g_seqs.push_back(ntohl(HeadOf(req)->ulSeq));
    return 0;
}

u32 Call(u32 src, u32 dst) {
    return IPC_RPC_SyncCall(src, kSelf, dst, 0, NewMsg("s"), 1, nullptr, nullptr, 10000);
}

// Runs in a child process: IPC up, the named platform call failing once during IPC_RPC_Init.
[[noreturn]] void InitWithFailing(const char *call) {
    int bad = IPC_Init(kSelf) != IPC_OK;
    PLAT_FaultInject(call, 0, 1);
    bad |= (IPC_RPC_Init() != RUK_ERR_INJECTED) << 1;
    bad |= (IPC_RPC_Init() != IPC_ERR_CHAN_REGISTERED) << 2; // channel 0 stays claimed
    std::exit(bad);
}

TEST(RpcInitDeathTest, TaskOrQueueCreationFailureGivesThePlatformStatus) {
    // "fast" forks without re-executing the program, which the AArch64 emulator cannot do; death tests
    // run first, while this process has no other thread, so the fork is safe.
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(InitWithFailing("RUK_TaskCreate"), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(InitWithFailing("RUK_Que_Create"), ::testing::ExitedWithCode(0), "");
}

TEST(RpcInitTest, StartsAfterIpcAndRestartsItsRegistryAndSequence) {
    if (IPC_GetSelfNodeId() != 0) {
        GTEST_SKIP() << "needs a process where IPC has not started yet";
    }
    EXPECT_EQ(IPC_RPC_Init(), IPC_ERR_NOT_INIT);
    EXPECT_EQ(Call(1, 2), IPC_RPC_ERR_NO_SRC);
    EXPECT_EQ(IPC_RPC_Register(1, SeqCallback), IPC_RPC_OK); // accepted before start, forgotten by it
    ASSERT_EQ(IPC_Init(kSelf), IPC_OK);
    ASSERT_EQ(IPC_RPC_Init(), IPC_RPC_OK);
    EXPECT_EQ(Call(1, 2), IPC_RPC_ERR_NO_SRC);

    ASSERT_EQ(IPC_RPC_Register(1, SeqCallback), IPC_RPC_OK);
    ASSERT_EQ(IPC_RPC_Register(2, SeqCallback), IPC_RPC_OK);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Call(1, 2), IPC_RPC_OK);
    }
    EXPECT_EQ(g_seqs, (std::vector<u32>{0, 1, 2}));
    // A refused send still uses up its sequence number.
    EXPECT_EQ(IPC_RPC_SyncCall(1, kSelf + 1, 2, 0, NewMsg("s"), 1, nullptr, nullptr, 100), IPC_ERR_UNREACHABLE);
    EXPECT_EQ(Call(1, 2), IPC_RPC_OK);
    EXPECT_EQ(g_seqs.back(), 4u);

    // A second start fails on channel 0 but has already emptied the registry and reset the sequence.
    EXPECT_EQ(IPC_RPC_Init(), IPC_ERR_CHAN_REGISTERED);
    EXPECT_EQ(Call(1, 2), IPC_RPC_ERR_NO_SRC);
    ASSERT_EQ(IPC_RPC_Register(1, SeqCallback), IPC_RPC_OK);
    ASSERT_EQ(IPC_RPC_Register(2, SeqCallback), IPC_RPC_OK);
    EXPECT_EQ(Call(1, 2), IPC_RPC_OK);
    EXPECT_EQ(g_seqs.back(), 0u);
}

} // namespace
