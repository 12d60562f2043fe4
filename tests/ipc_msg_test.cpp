// IPC messages: the 40-byte header at its offsets, byte order, the ownership mark through the lifecycle,
// refused releases counted and logged, attached contexts, and the exported names.
#include "ipc/ipc_byteorder.h"
#include "ipc/ipc_internal.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "zol_ipc.h"

#include "standin_ctl.h"

#include "imagent_reader.h"
#include "leak_check.h"

extern "C" int IpcCHeaderRoundTrip(void); // ipc_msg_test_c_header.c

namespace {

using zol::ipc::IpcErrStatCount;
using zol::test::ImAgentCapture;

constexpr u32 kLogIdIpcMsgErr = 0x0EA7100F;
constexpr u32 kLogIdIpcRpcProcessErr = 0x0EA7100D;

class IpcMsgTest : public zol::test::LeakCheckedTest {};

std::array<u8, IPC_MSG_HEAD_LEN> HeadBytes(void *pMsg) {
    std::array<u8, IPC_MSG_HEAD_LEN> bytes{};
    std::memcpy(bytes.data(), static_cast<u8 *>(pMsg) - IPC_MSG_HEAD_LEN, bytes.size());
    return bytes;
}

u8 *Head(void *pMsg) {
    return static_cast<u8 *>(pMsg) - IPC_MSG_HEAD_LEN;
}

template <typename T>
T Read(const u8 *p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

u64 LiveBytes() {
    u64 bytes = 0;
    PLAT_MemStats(ZOL_GetMemHandle(), nullptr, &bytes);
    return bytes;
}

TEST_F(IpcMsgTest, FreshHeaderAndAccessorsAtTheirOffsets) {
    void *msg = IPC_AllocMsg_X(100, IPC_MOD_ID, "FreshHeader", __LINE__);
    ASSERT_NE(msg, nullptr);
    auto fresh = HeadBytes(msg);
    for (u32 i = 0; i < IPC_MSG_HEAD_LEN; ++i) {
        u8 expected = (i == 16 || i == 29) ? 1 : 0; // ucMemFlag = IPC_MEM_USED, ucCtxFlag = 1
        EXPECT_EQ(fresh[i], expected) << "header byte " << i;
    }

    IPC_SetSrcAndDstNodeId(msg, 0x00017001u, 0x00023002u);
    IPC_SetSrcAndDstChannelId(msg, 3, 47);
    const u8 *head = Head(msg);
    EXPECT_EQ(Read<u32>(head + 0), 0x00017001u); // stored as given: host order
    EXPECT_EQ(Read<u32>(head + 4), 0x00023002u);
    EXPECT_EQ(Read<u16>(head + 8), 3u);
    EXPECT_EQ(Read<u16>(head + 10), 47u);
    EXPECT_EQ(IPC_GetSrcNodeId(msg), 0x00017001u);
    EXPECT_EQ(IPC_GetDstNodeId(msg), 0x00023002u);
    EXPECT_EQ(IPC_GetSrcChanId(msg), 3u);
    EXPECT_EQ(IPC_GetDstChanId(msg), 47u);
    EXPECT_EQ(head[16], IPC_MEM_USED) << "setters leave the mark alone";

    EXPECT_EQ(IPC_GetDstNodeId(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(IPC_GetSrcChanId(nullptr), 48u);
    IPC_SetSrcAndDstNodeId(nullptr, 1, 2);
    IPC_SetSrcAndDstChannelId(nullptr, 1, 2);
    IPC_FreeMsg(nullptr);
    IPC_FreeMsg(msg);
}

TEST_F(IpcMsgTest, RoutingFieldsGoBigEndianOnTheWireAndBack) {
    void *msg = IPC_AllocMsg_X(8, IPC_MOD_ID, "ByteOrder", __LINE__);
    ASSERT_NE(msg, nullptr);
    auto *head = reinterpret_cast<IPC_MSG_HEAD_S *>(Head(msg));
    const zol::ipc::IpcRouting routing{0x01020304u, 0x0A0B0C0Du, 0x1122, 0x3344, 0x00010203u};
    zol::ipc::StoreRoutingNet(head, routing);
    const u8 *b = Head(msg);
    const u8 expected[16] = {0x01, 0x02, 0x03, 0x04, 0x0A, 0x0B, 0x0C, 0x0D,
                             0x11, 0x22, 0x33, 0x44, 0x00, 0x01, 0x02, 0x03};
    EXPECT_EQ(std::memcmp(b, expected, sizeof expected), 0);
    EXPECT_EQ(b[16], IPC_MEM_USED) << "single-byte fields have no byte order";

    zol::ipc::StoreRoutingHost(head, zol::ipc::LoadRoutingNet(head));
    EXPECT_EQ(IPC_GetSrcNodeId(msg), 0x01020304u);
    EXPECT_EQ(IPC_GetDstNodeId(msg), 0x0A0B0C0Du);
    EXPECT_EQ(IPC_GetSrcChanId(msg), 0x1122u);
    EXPECT_EQ(IPC_GetDstChanId(msg), 0x3344u);
    EXPECT_EQ(Read<u32>(b + 12), 0x00010203u) << "stored back in host order";
    IPC_FreeMsg(msg);
}

TEST_F(IpcMsgTest, AllocationBoundsAndFailure) {
    EXPECT_EQ(IPC_AllocMsg_X(0, IPC_MOD_ID, "Bounds", __LINE__), nullptr);
    EXPECT_EQ(IPC_AllocMsg_X(IPC_MAX_MSG_LEN + 1, IPC_MOD_ID, "Bounds", __LINE__), nullptr);
    const u64 before = LiveBytes();
    void *largest = IPC_AllocMsg_X(IPC_MAX_MSG_LEN, IPC_MOD_ID, "Bounds", __LINE__);
    ASSERT_NE(largest, nullptr);
    EXPECT_EQ(LiveBytes() - before, 65536u) << "header and payload in one 64 KiB block";
    IPC_FreeMsg(largest);

    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 0, 1), 0u);
    EXPECT_EQ(IPC_AllocMsg_X(64, IPC_MOD_ID, "Bounds", __LINE__), nullptr);
}

TEST_F(IpcMsgTest, ReleaseDuringSendingIsCountedAndLeavesTheMessageAlone) {
    ImAgentCapture agent;
    void *msg = IPC_AllocMsg_X(32, IPC_MOD_ID, "Sending", __LINE__);
    ASSERT_NE(msg, nullptr);
    IPC_SetSrcAndDstNodeId(msg, 5, 6);
    Head(msg)[16] = IPC_MEM_SENDING; // what the send does while it owns the message
    const auto snapshot = HeadBytes(msg);
    const u32 before = IpcErrStatCount(zol::ipc::IPC_SEND_RELEASE_ERR);
    u64 liveBlocks = 0, blocksAfter = 0;
    PLAT_MemStats(ZOL_GetMemHandle(), &liveBlocks, nullptr);

    IPC_FreeMsg(msg);

    EXPECT_EQ(IpcErrStatCount(zol::ipc::IPC_SEND_RELEASE_ERR), before + 1);
    EXPECT_EQ(HeadBytes(msg), snapshot) << "the header is untouched";
    PLAT_MemStats(ZOL_GetMemHandle(), &blocksAfter, nullptr);
    EXPECT_EQ(blocksAfter, liveBlocks) << "nothing released";
    EXPECT_TRUE(agent.WithTag("IPC_FM").empty()) << "a release during sending is not logged";

    Head(msg)[16] = IPC_MEM_USED; // the send hands it back
    IPC_FreeMsg(msg);
    EXPECT_EQ(zol::ipc::IpcReadMemFlag(reinterpret_cast<IPC_MSG_HEAD_S *>(Head(msg))), IPC_MEM_FREED);
}

// One test for both logged refusals: they share the tag "IPC_FM" and therefore one filter record.
TEST_F(IpcMsgTest, RepeatedAndUnknownReleasesAreCountedAndLoggedOncePerInterval) {
    ImAgentCapture agent;
    const u32 repeated = IpcErrStatCount(zol::ipc::IPC_REPEATED_RELEASE_ERR);
    u64 startBlocks = 0, blocks = 0;
    PLAT_MemStats(ZOL_GetMemHandle(), &startBlocks, nullptr);

    void *msg = IPC_AllocMsg_X(16, IPC_MOD_ID, "Repeated", __LINE__);
    ASSERT_NE(msg, nullptr);
    IPC_FreeMsg(msg);
    IPC_FreeMsg(msg); // the header is not read: the block is known to be released
    IPC_FreeMsg(msg);
    EXPECT_EQ(IpcErrStatCount(zol::ipc::IPC_REPEATED_RELEASE_ERR), repeated + 2);
    PLAT_MemStats(ZOL_GetMemHandle(), &blocks, nullptr);
    EXPECT_EQ(blocks, startBlocks) << "the partition saw exactly one release";

    auto records = agent.WithTag("IPC_FM");
    ASSERT_EQ(records.size(), 1u) << "the second report within 500 ms is filtered";
    EXPECT_EQ(records[0].logId, kLogIdIpcMsgErr);
    EXPECT_EQ(records[0].Text(zol::test::kImFirstText + 1), "Message check fail");
    EXPECT_NE(records[0].Formatted().find("Memory is free, stack:<CallStack>\r\n"), std::string::npos)
        << records[0].Formatted();

    std::this_thread::sleep_for(std::chrono::milliseconds(550));
    void *odd = IPC_AllocMsg_X(16, IPC_MOD_ID, "Unknown", __LINE__);
    ASSERT_NE(odd, nullptr);
    Head(odd)[16] = 0x55;
    const auto snapshot = HeadBytes(odd);
    const u32 others = IpcErrStatCount(zol::ipc::IPC_OTHERS_RELEASE_ERR);
    IPC_FreeMsg(odd);
    EXPECT_EQ(IpcErrStatCount(zol::ipc::IPC_OTHERS_RELEASE_ERR), others + 1);
    EXPECT_EQ(HeadBytes(odd), snapshot);
    records = agent.WithTag("IPC_FM");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].Formatted(), "callCnt:2,Memory is unexpected");
    Head(odd)[16] = IPC_MEM_USED;
    IPC_FreeMsg(odd);
}

TEST_F(IpcMsgTest, AttachedContextGivesSendStatusAndIsReleasedWithTheMessage) {
    u8 status[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(IPC_GetSendStatus(status, nullptr), IPC_ERR_PARAM);
    void *msg = IPC_AllocMsg_X(24, IPC_MOD_ID, "Ctx", __LINE__);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(IPC_GetSendStatus(status, msg), IPC_OK);
    EXPECT_EQ(status[0], 0xEE) << "nothing written without a context";

    IPC_MSG_CTX_S *ctx = IPC_ProcCreateCtx(0, nullptr, 3, nullptr, 0);
    ASSERT_NE(ctx, nullptr);
    IPC_MSG_CTX_DST_S *dst = zol::ipc::CtxDstEntries(ctx);
    for (u8 i = 0; i < 3; ++i) {
        dst[i].ucSendStatus = static_cast<u8>(10 + i);
    }
    auto *head = reinterpret_cast<IPC_MSG_HEAD_S *>(Head(msg));
    head->ucSendFlag = IPC_SEND_FLAG_CTX_ATTACHED | 1;
    head->ucCtxFlag = IPC_CTX_FLAG_ATTACHED;
    head->pstMsgCtx = ctx;
    EXPECT_EQ(IPC_GetSendStatus(status, msg), IPC_OK);
    EXPECT_EQ(status[0], 10);
    EXPECT_EQ(status[1], 11);
    EXPECT_EQ(status[2], 12);
    EXPECT_EQ(status[3], 0xEE) << "one byte per destination, no more";

    IPC_FreeMsg(msg); // detaches and releases the context too; the leak check sees both blocks back
}

TEST_F(IpcMsgTest, ContextMarksWithoutPointerAreLoggedAndTheMessageStillReleased) {
    ImAgentCapture agent;
    void *msg = IPC_AllocMsg_X(24, IPC_MOD_ID, "CtxNull", __LINE__);
    ASSERT_NE(msg, nullptr);
    Head(msg)[28] = IPC_SEND_FLAG_CTX_ATTACHED | 1;
    Head(msg)[29] = IPC_CTX_FLAG_ATTACHED;
    IPC_FreeMsg(msg);
    auto records = agent.WithTag("IPC_FMCL");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].logId, kLogIdIpcRpcProcessErr);
    EXPECT_EQ(records[0].Text(zol::test::kImFirstText + 1), "Message check fail");
    EXPECT_EQ(records[0].Formatted(), "pstMsgCtx is zero");
}

TEST(IpcErrStat, TableNamesAndBounds) {
    EXPECT_EQ(zol::ipc::IPC_ERR_STAT_NUM, 51u);
    EXPECT_STREQ(zol::ipc::g_astIpcErrStat[19].pcName, "IPC_REPEATED_RELEASE_ERR");
    EXPECT_STREQ(zol::ipc::g_astIpcErrStat[50].pcName, "IPC_SEND_MC_NOT_SUPPORT");
    const u32 mc = IpcErrStatCount(50);
    zol::ipc::IPC_AddErrStat(51); // ignored: must not land in the last counter nor anywhere else
    zol::ipc::IPC_AddErrStat(50);
    EXPECT_EQ(IpcErrStatCount(50), mc + 1);
}

// The exported names themselves are checked by the exports test over the whole library.
TEST(IpcCHeader, HeaderCompilesAsCAndWorksFromC) {
    EXPECT_EQ(IpcCHeaderRoundTrip(), 0);
}

} // namespace
