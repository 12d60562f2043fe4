// IPC messages and contexts: the 40-byte header at its offsets, the ownership mark through the lifecycle,
// refused releases counted and logged, send status, and contexts in pending lists with and without semaphores.
#include "ipc/ipc_internal.h"

#include <chrono>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "zol_ipc.h"

#include "ruk_sem.h"
#include "standin_ctl.h"

#include "imagent_reader.h"
#include "leak_check.h"

namespace {

using namespace zol::ipc;
using zol::test::ImAgentCapture;
using zol::test::ImRecord;
using zol::test::kImFirstText;

// The single record of a tag, checked for its log id and first text.
ImRecord OnlyRecord(ImAgentCapture &agent, const char *tag, u32 logId, const char *text) {
    std::vector<ImRecord> records = agent.WithTag(tag);
    EXPECT_EQ(records.size(), 1u) << tag;
    records.resize(1);
    EXPECT_EQ(records[0].logId, logId) << tag;
    EXPECT_EQ(records[0].Text(kImFirstText + 1), text) << tag;
    return records[0];
}

class IpcMsgTest : public zol::test::LeakCheckedTest {
  protected:
    void SetUp() override {
        LeakCheckedTest::SetUp();
        IpcInitMsgList(&list_);
    }
    static u8 *Head(void *msg) { return static_cast<u8 *>(msg) - IPC_MSG_HEAD_LEN; }
    static std::vector<u8> HeadBytes(void *msg) { return {Head(msg), Head(msg) + IPC_MSG_HEAD_LEN}; }
    u64 Live() {
        u64 blocks = 0, size = 0;
        PLAT_MemStats(handle_, &blocks, &size);
        return blocks;
    }
    // The elements met by a walk from the head, checking the circular links, the tail and the count.
    std::vector<void *> Walk() {
        std::vector<void *> found;
        IPC_MSG_LIST_NODE_S *last = &list_.stHead;
        for (IPC_MSG_LIST_NODE_S *n = list_.stHead.pNext; n != &list_.stHead; n = n->pNext) {
            found.push_back(n->pData);
            last = n;
        }
        EXPECT_EQ(list_.pTail, last);
        EXPECT_EQ(list_.ulCount, found.size());
        return found;
    }
    IPC_MSG_LIST_S list_;
};

TEST_F(IpcMsgTest, FreshHeaderAccessorsAndAllocationBounds) {
    void *msg = IPC_AllocMsg_X(100, IPC_MOD_ID, "FreshHeader", __LINE__);
    const std::vector<u8> fresh = HeadBytes(msg);
    for (u32 i = 0; i < IPC_MSG_HEAD_LEN; ++i) {
        EXPECT_EQ(fresh[i], (i == 16 || i == 29) ? 1 : 0) << "byte " << i; // ucMemFlag IPC_MEM_USED, ucCtxFlag 1
    }
    IPC_SetSrcAndDstNodeId(msg, 0x00017001u, 0x00023002u);
    IPC_SetSrcAndDstChannelId(msg, 3, 47);
    const IPC_MSG_HEAD_S *h = MsgHead(msg); // stored as given: host order; the setters leave the mark alone
    const auto fields = std::make_tuple(0x00017001u, 0x00023002u, 3u, 47u, u8{IPC_MEM_USED});
    EXPECT_EQ(std::make_tuple(h->ulSrcNodeId, h->ulDstNodeId, u32{h->usSrcChanId}, u32{h->usDstChanId}, h->ucMemFlag),
              fields);
    EXPECT_EQ(std::make_tuple(IPC_GetSrcNodeId(msg), IPC_GetDstNodeId(msg), IPC_GetSrcChanId(msg),
                              IPC_GetDstChanId(msg), h->ucMemFlag),
              fields);
    EXPECT_EQ(IPC_GetDstNodeId(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(IPC_GetSrcChanId(nullptr), 48u);
    IPC_SetSrcAndDstNodeId(nullptr, 1, 2);
    IPC_SetSrcAndDstChannelId(nullptr, 1, 2);
    IPC_FreeMsg(nullptr);
    IPC_FreeMsg(msg);

    EXPECT_EQ(IPC_AllocMsg_X(0, IPC_MOD_ID, "Bounds", __LINE__), nullptr);
    EXPECT_EQ(IPC_AllocMsg_X(IPC_MAX_MSG_LEN + 1, IPC_MOD_ID, "Bounds", __LINE__), nullptr);
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 0, 1), 0u);
    EXPECT_EQ(IPC_AllocMsg_X(64, IPC_MOD_ID, "Bounds", __LINE__), nullptr);
    const u32 last = IpcErrStatCount(IPC_ERR_STAT_NUM - 1);
    IPC_AddErrStat(IPC_ERR_STAT_NUM); // ignored: must not land in the last counter
    EXPECT_EQ(IpcErrStatCount(IPC_ERR_STAT_NUM - 1), last);
}

// Refused releases: during sending (counted, not logged), repeated and unknown (which share the tag "IPC_FM"
// and therefore one filter record).
TEST_F(IpcMsgTest, RefusedReleasesAreCountedAndLoggedOncePerIntervalLeavingTheMessageAlone) {
    ImAgentCapture agent;
    void *msg = IPC_AllocMsg_X(32, IPC_MOD_ID, "Sending", __LINE__);
    IPC_SetSrcAndDstNodeId(msg, 5, 6);
    Head(msg)[16] = IPC_MEM_SENDING; // what the send does while it owns the message
    const std::vector<u8> snapshot = HeadBytes(msg);
    const u32 before = IpcErrStatCount(IPC_SEND_RELEASE_ERR);
    const u64 blocks = Live();
    IPC_FreeMsg(msg);
    EXPECT_EQ(IpcErrStatCount(IPC_SEND_RELEASE_ERR), before + 1);
    EXPECT_EQ(HeadBytes(msg), snapshot) << "the header is untouched";
    EXPECT_TRUE(Live() == blocks && agent.WithTag("IPC_FM").empty()) << "nothing released, not logged";

    Head(msg)[16] = IPC_MEM_USED; // the send hands it back
    IPC_FreeMsg(msg);
    EXPECT_EQ(IpcReadMemFlag(MsgHead(msg)), IPC_MEM_FREED);
    EXPECT_EQ(Live(), startBlocks_) << "the partition saw exactly one release";

    const u32 repeated = IpcErrStatCount(IPC_REPEATED_RELEASE_ERR);
    IPC_FreeMsg(msg); // refused: the block is known to be released
    IPC_FreeMsg(msg);
    EXPECT_EQ(IpcErrStatCount(IPC_REPEATED_RELEASE_ERR), repeated + 2);
    // The second report within 500 ms is filtered.
    const std::string first = OnlyRecord(agent, "IPC_FM", 0x0EA7100Fu, "Message check fail").Formatted();
    EXPECT_NE(first.find("Memory is free, stack:<CallStack>\r\n"), std::string::npos) << first;

    std::this_thread::sleep_for(std::chrono::milliseconds(550));
    void *odd = IPC_AllocMsg_X(16, IPC_MOD_ID, "Unknown", __LINE__);
    Head(odd)[16] = 0x55;
    const u32 others = IpcErrStatCount(IPC_OTHERS_RELEASE_ERR);
    IPC_FreeMsg(odd);
    EXPECT_EQ(IpcErrStatCount(IPC_OTHERS_RELEASE_ERR), others + 1);
    const auto records = agent.WithTag("IPC_FM");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].Formatted(), "callCnt:2,Memory is unexpected");
    Head(odd)[16] = IPC_MEM_USED;
    IPC_FreeMsg(odd);
}

TEST_F(IpcMsgTest, AttachedContextGivesSendStatusAndIsReleasedWithTheMessage) {
    ImAgentCapture agent;
    u8 status[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(IPC_GetSendStatus(status, nullptr), IPC_ERR_PARAM);
    void *msg = IPC_AllocMsg_X(24, IPC_MOD_ID, "Ctx", __LINE__);
    EXPECT_EQ(IPC_GetSendStatus(status, msg), IPC_OK);
    EXPECT_EQ(status[0], 0xEE) << "nothing written without a context";
    IPC_MSG_CTX_S *ctx = IPC_ProcCreateCtx(0, nullptr, 3, nullptr, 0);
    for (u8 i = 0; i < 3; ++i) {
        CtxDstEntries(ctx)[i].ucSendStatus = static_cast<u8>(10 + i);
    }
    IPC_MSG_HEAD_S *head = MsgHead(msg);
    head->ucSendFlag = IPC_SEND_FLAG_CTX_ATTACHED | 1;
    head->ucCtxFlag = IPC_CTX_FLAG_ATTACHED;
    head->pstMsgCtx = ctx;
    EXPECT_EQ(IPC_GetSendStatus(status, msg), IPC_OK);
    EXPECT_EQ(std::vector<u8>(status, status + 4), (std::vector<u8>{10, 11, 12, 0xEE})) << "one byte a destination";
    IPC_FreeMsg(msg); // detaches and releases the context too; the leak check sees both blocks back

    // The marks without a context pointer: logged, and the message is still released.
    msg = IPC_AllocMsg_X(24, IPC_MOD_ID, "CtxNull", __LINE__);
    Head(msg)[28] = IPC_SEND_FLAG_CTX_ATTACHED | 1;
    Head(msg)[29] = IPC_CTX_FLAG_ATTACHED;
    IPC_FreeMsg(msg);
    EXPECT_EQ(OnlyRecord(agent, "IPC_FMCL", 0x0EA7100Du, "Message check fail").Formatted(), "pstMsgCtx is zero");
}

TEST_F(IpcMsgTest, ContextsCreatedFoundAndDeletedWithAndWithoutSemaphores) {
    int marker = 0;
    IPC_MSG_CTX_S *first = IPC_ProcCreateCtx(1, &marker, 3, &list_, 1);
    EXPECT_EQ(std::make_tuple(first->pMsg, u32{first->usDstNum}, CtxDstEntries(first)[2].ucSendStatus),
              std::make_tuple(static_cast<void *>(&marker), 3u, u8{0}));
    EXPECT_EQ(RUK_Sm_P(first->ulSemId, RUK_NOWAIT, 0), RUK_ERR_EMPTY) << "the semaphore starts unavailable";
    IPC_MSG_CTX_S *second = IPC_ProcCreateCtx(1, nullptr, 0, &list_, 1);
    IPC_MSG_CTX_S *third = IPC_ProcCreateCtx(1, nullptr, 1, &list_, 1);
    EXPECT_EQ(Walk(), (std::vector<void *>{first, second, third}));

    IPC_RemoveMsgCtx(&list_, second);
    IPC_RemoveMsgCtx(&list_, &marker); // not in the list
    EXPECT_EQ(Walk(), (std::vector<void *>{first, third}));
    const u32 sem = second->ulSemId;
    IPC_DeleteMsgCtx(second, 1);
    EXPECT_EQ(RUK_Sm_V(sem), RUK_ERR_NOT_FOUND) << "the semaphore is deleted with its context";
    for (IPC_MSG_CTX_S *ctx : {third, first}) {
        IPC_RemoveMsgCtx(&list_, ctx);
        IPC_DeleteMsgCtx(ctx, 1);
    }
    EXPECT_TRUE(Walk().empty());
    IPC_RemoveMsgCtx(&list_, first); // empty list: nothing happens
    IPC_DeleteMsgCtx(nullptr, 1);

    IPC_MSG_CTX_S *bare = IPC_ProcCreateCtx(0, nullptr, 0, &list_, 0);
    EXPECT_TRUE(bare->ulSemId == 0 && Walk().empty()) << "no semaphore, not inserted";
    IPC_DeleteMsgCtx(bare, 1);
    // Deleting with ulWithSem 0 keeps the semaphore for whoever still waits on it.
    IPC_MSG_CTX_S *kept = IPC_ProcCreateCtx(1, nullptr, 0, nullptr, 0);
    const u32 keptSem = kept->ulSemId;
    IPC_DeleteMsgCtx(kept, 0);
    EXPECT_EQ(RUK_Sm_V(keptSem), RUK_OK);
    EXPECT_EQ(RUK_Sm_Delete(keptSem), RUK_OK);
}

TEST_F(IpcMsgTest, FailedCreationOrUnlinkingLeavesNothingBehind) {
    ImAgentCapture agent;
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 0, 1), 0u);
    EXPECT_EQ(IPC_ProcCreateCtx(1, nullptr, 2, &list_, 1), nullptr);
    const u32 smFails = IpcErrStatCount(IPC_CTX_SM_CREATE_FAIL);
    ASSERT_EQ(PLAT_FaultInject("RUK_Sm_Create", 0, 1), 0u);
    EXPECT_EQ(IPC_ProcCreateCtx(1, nullptr, 2, &list_, 1), nullptr);
    EXPECT_EQ(IpcErrStatCount(IPC_CTX_SM_CREATE_FAIL), smFails + 1);
    EXPECT_EQ(OnlyRecord(agent, "IPC_PCC", 0x0EA71033u, "sm create unsuccess").Formatted(),
              "ret:" + std::to_string(RUK_ERR_INJECTED) + ", ulSemId:0");
    // The context block is allocated, the list node is not: the semaphore made meanwhile goes too.
    const u32 insertFails = IpcErrStatCount(IPC_CTX_INSERT_MSG_FAIL);
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 1, 1), 0u);
    EXPECT_EQ(IPC_ProcCreateCtx(1, nullptr, 2, &list_, 1), nullptr);
    EXPECT_EQ(IpcErrStatCount(IPC_CTX_INSERT_MSG_FAIL), insertFails + 1);
    EXPECT_TRUE(Walk().empty());

    // A node that cannot be unlinked is counted and kept.
    IPC_MSG_LIST_S other;
    IpcInitMsgList(&other);
    int element = 0;
    ASSERT_EQ(IPC_InsertMsgCtx(&list_, &element), IPC_OK);
    EXPECT_EQ(IPC_InsertMsgCtx(nullptr, &element), IPC_ERR_PARAM);
    IPC_MSG_LIST_NODE_S *node = list_.stHead.pNext;
    const u32 fails = IpcErrStatCount(IPC_REMOVE_NODE_FAIL);
    IPC_RemoveNodeFromList(&other, node);          // not a node of that list
    IPC_RemoveNodeFromList(&list_, &list_.stHead); // the head is never unlinked nor released
    EXPECT_EQ(IpcErrStatCount(IPC_REMOVE_NODE_FAIL), fails + 2);
    EXPECT_EQ(Walk(), (std::vector<void *>{&element}));
    EXPECT_EQ(OnlyRecord(agent, "IPC_RNFL", 0x0EA71033u, "remove node unsuccess").Formatted(),
              "ret=" + std::to_string(RUK_ERR_NOT_FOUND))
        << "filtered to one record per interval";
    IPC_RemoveNodeFromList(&list_, node);
    EXPECT_TRUE(Walk().empty());
}

} // namespace
