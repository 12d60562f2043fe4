// IPC before and during initialisation: every call refused (and nothing counted) before IPC_Init, and
// IPC_Init's own refusals and failures, which keep nothing and may be repeated. IPC_Init succeeds once
// per process, so the tests run in this order and the last one initialises.
#include "ipc/ipc_chan_internal.h"

#include <cstring>

#include "zol_ipc.h"

#include "standin_ctl.h"

#include "leak_check.h"

using namespace zol::ipc;

namespace {

constexpr u32 kSelf = 0x00017001u; // location 1, process 23: the highest index allowed

u32 CountSum() {
    u32 sum = 0;
    for (u32 i = 0; i < IPC_ERR_STAT_NUM; i++) {
        sum += IpcErrStatCount(i);
    }
    return sum;
}

u32 NoopCallback(u32, u32, u32, u32, void *msg, u32) {
    IPC_FreeMsg(msg);
    return 0;
}
void NotifyStub(u32, u32) {}

class IpcInitTest : public zol::test::LeakCheckedTest {};

TEST_F(IpcInitTest, EveryCallBeforeInitIsRefusedAndCountsNothing) {
    ASSERT_EQ(g_ulIpcInitFlag, 0u) << "must run in a process that has not initialised IPC";
    const u32 counted = CountSum();
    void *msg = IPC_AllocMsg_X(16, IPC_MOD_ID, "test", __LINE__);
    EXPECT_EQ(IPC_Create(5, IPC_CHAN_MODE_QUEUE, 7, nullptr), IPC_ERR_NOT_INIT);
    EXPECT_EQ(IPC_Create(48, 3, 0, nullptr), IPC_ERR_NOT_INIT);
    EXPECT_EQ(IPC_Send(0, 0, 0, 0, msg, 16), IPC_ERR_NOT_INIT);
    EXPECT_EQ(IPC_Send(48, 0x18000, 48, IPC_SEND_FLAG_MULTICAST, nullptr, 0), IPC_ERR_NOT_INIT);
    EXPECT_EQ(IPC_GetSelfNodeId(), 0u);
    EXPECT_EQ(IPC_SetServerPara("1.2.3.4", 1), IPC_ERR_NOT_INIT);
    EXPECT_EQ(IPC_AllowSndDataMaxLen(0), IPC_ERR_NOT_INIT);
    EXPECT_EQ(IPC_GetConnectStatus(0), 0u);
    EXPECT_EQ(IPC_ConnectDstNode(1), IPC_ERR_UNREACHABLE);
    u8 out2 = 0;
    EXPECT_EQ(IPC_GetUpNodeByProcess(0, &out2, &out2), 1u);
    EXPECT_EQ(IPC_RegConnectNofity(NotifyStub), IPC_OK); // needs no initialisation
    EXPECT_EQ(CountSum(), counted);
    EXPECT_EQ(IPC_EpollAddFd(0, 0, nullptr, 1), IPC_ERR_EPOLL_ADD) << "no poll set yet; the record is released";
    EXPECT_EQ(MsgHead(msg)->ucMemFlag, IPC_MEM_USED);
    IPC_FreeMsg(msg);
}

TEST_F(IpcInitTest, RefusedOrFailedInitKeepsNothingAndMayBeRepeated) {
    ASSERT_EQ(g_ulIpcInitFlag, 0u) << "must run in a process that has not initialised IPC";
    EXPECT_EQ(IPC_Init(0x18000), IPC_ERR_PARAM);
    EXPECT_EQ(IPC_Init(0xFF000), IPC_ERR_PARAM);

    // Each of the seven blocks of the tables (node table, group bitmap, group, slot bitmap, node record,
    // channel table, reserve message) failing in turn: 12, with everything built so far released.
    for (u32 skip = 0; skip < 7; skip++) {
        ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", skip, 1), 0u);
        EXPECT_EQ(IPC_Init(kSelf), IPC_ERR_NO_MEMORY) << "allocation " << skip;
        EXPECT_TRUE(!g_ppstIpcNodeTbl && !g_pstIpcGroupBitmap && !g_pstIpcChanTbl && !g_pstIpcReserveMsg) << skip;
        u64 blocks = 0, bytes = 0;
        PLAT_MemStats(handle_, &blocks, &bytes);
        EXPECT_TRUE(blocks == startBlocks_ && bytes == startBytes_) << "allocation " << skip;
    }
    PLAT_FaultClear();
    // The own id is kept from the attempt.
    EXPECT_EQ(IPC_GetSelfNodeId(), kSelf);
    EXPECT_EQ(IPC_Create(0, IPC_CHAN_MODE_CALLBACK, 0, NoopCallback), IPC_ERR_NOT_INIT);
}

TEST(IpcInitPollTest, PollSetFailureIsReportedAndInitSucceedsOnce) {
    ASSERT_EQ(g_ulIpcInitFlag, 0u) << "must run in a process that has not initialised IPC";
    ASSERT_EQ(PLAT_FaultInject("MESH_EpollCreate", 0, 1), 0u);
    EXPECT_EQ(IPC_Init(kSelf), IPC_ERR_NO_POLL_SET);
    // A retry reuses the OM service started above, so the one task created is the poll task.
    ASSERT_EQ(PLAT_FaultInject("RUK_TaskCreate", 0, 1), 0u);
    EXPECT_EQ(IPC_Init(kSelf), IPC_ERR_NO_POLL_TASK);
    EXPECT_EQ(zol::ipc::g_iIpcEpollFd.load(), -1) << "the poll set is closed again";
    EXPECT_EQ(g_pstIpcChanTbl, nullptr);
    PLAT_FaultClear();

    ASSERT_EQ(IPC_RegConnectNofity(NotifyStub), IPC_OK);
    EXPECT_EQ(IPC_Init(kSelf), IPC_OK);
    EXPECT_EQ(IPC_Init(kSelf), IPC_ERR_ALREADY);
    // Registrations made before IPC_Init are cleared by it: all 128 entries are free again.
    EXPECT_EQ(IPC_RegConnectNofity(nullptr), IPC_ERR_PARAM);
    const u32 maxErr = IpcErrStatCount(IPC_MAX_REGISTER_ERR);
    for (u32 i = 0; i < IPC_CONN_NOTIFY_NUM; i++) {
        ASSERT_EQ(IPC_RegConnectNofity(NotifyStub), IPC_OK) << i;
    }
    EXPECT_EQ(IPC_RegConnectNofity(NotifyStub), IPC_ERR_ALREADY);
    EXPECT_EQ(IpcErrStatCount(IPC_MAX_REGISTER_ERR), maxErr + 1);

    EXPECT_EQ(IPC_Create(0, IPC_CHAN_MODE_CALLBACK, 0, NoopCallback), IPC_OK);
}

} // namespace
