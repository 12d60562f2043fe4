// Message contexts and pending lists: creation with and without semaphore, order in the list, removal,
// failures of the platform leaving nothing behind, and the semaphore rendezvous between two tasks.
#include "ipc/ipc_internal.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "zol_ipc.h"

#include "ruk_sem.h"
#include "standin_ctl.h"

#include "imagent_reader.h"
#include "leak_check.h"

namespace {

using zol::ipc::IpcErrStatCount;
using zol::test::ImAgentCapture;

constexpr u32 kLogIdMelvaInfo = 0x0EA71033;
constexpr u32 kLogIdIpcRpcProcessErr = 0x0EA7100D;

class IpcCtxTest : public zol::test::LeakCheckedTest {
  protected:
    void SetUp() override {
        LeakCheckedTest::SetUp();
        zol::ipc::IpcInitMsgList(&list_);
    }
    // The elements met by a walk from the head, checking the circular links and the tail on the way.
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
    u64 LiveBytes() {
        u64 bytes = 0;
        PLAT_MemStats(handle_, nullptr, &bytes);
        return bytes;
    }
    IPC_MSG_LIST_S list_;
};

TEST_F(IpcCtxTest, CreateFindAndDeleteWithSemaphores) {
    int marker = 0;
    const u64 before = LiveBytes();
    IPC_MSG_CTX_S *first = IPC_ProcCreateCtx(1, &marker, 3, &list_, 1);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(LiveBytes() - before, 64u + 16u) << "40 + 3 x 8 bytes of context and one 16-byte list node";
    EXPECT_EQ(first->ulMagic, IPC_MSG_CTX_MAGIC);
    EXPECT_EQ(first->pMsg, &marker);
    EXPECT_EQ(first->usDstNum, 3u);
    EXPECT_EQ(first->ulSeqOrLen, 0u);
    EXPECT_NE(first->ulSemId, 0u);
    EXPECT_EQ(zol::ipc::CtxDstEntries(first)[2].ucSendStatus, 0u) << "entries zeroed";
    EXPECT_EQ(RUK_Sm_P(first->ulSemId, RUK_NOWAIT, 0), RUK_ERR_EMPTY) << "the semaphore starts unavailable";

    IPC_MSG_CTX_S *second = IPC_ProcCreateCtx(1, nullptr, 0, &list_, 1);
    IPC_MSG_CTX_S *third = IPC_ProcCreateCtx(1, nullptr, 1, &list_, 1);
    ASSERT_NE(second, nullptr);
    ASSERT_NE(third, nullptr);
    EXPECT_NE(second->ulSemId, first->ulSemId);
    EXPECT_EQ(Walk(), (std::vector<void *>{first, second, third}));

    IPC_RemoveMsgCtx(&list_, second);
    EXPECT_EQ(Walk(), (std::vector<void *>{first, third}));
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
}

TEST_F(IpcCtxTest, WithoutSemaphoreAndWithoutList) {
    const u64 before = LiveBytes();
    IPC_MSG_CTX_S *ctx = IPC_ProcCreateCtx(0, nullptr, 0, &list_, 0);
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(LiveBytes() - before, 40u);
    EXPECT_EQ(ctx->ulSemId, 0u);
    EXPECT_TRUE(Walk().empty()) << "not inserted";
    IPC_DeleteMsgCtx(ctx, 1); // no semaphore to delete

    // Deleting with ulWithSem 0 keeps the semaphore for whoever still waits on it.
    IPC_MSG_CTX_S *kept = IPC_ProcCreateCtx(1, nullptr, 0, nullptr, 0);
    ASSERT_NE(kept, nullptr);
    const u32 sem = kept->ulSemId;
    IPC_DeleteMsgCtx(kept, 0);
    EXPECT_EQ(RUK_Sm_V(sem), RUK_OK);
    EXPECT_EQ(RUK_Sm_Delete(sem), RUK_OK);
}

TEST_F(IpcCtxTest, FailedCreationLeavesNothingBehind) {
    ImAgentCapture agent;
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 0, 1), 0u);
    EXPECT_EQ(IPC_ProcCreateCtx(1, nullptr, 2, &list_, 1), nullptr);
    EXPECT_TRUE(Walk().empty());

    const u32 smFails = IpcErrStatCount(zol::ipc::IPC_CTX_SM_CREATE_FAIL);
    ASSERT_EQ(PLAT_FaultInject("RUK_Sm_Create", 0, 1), 0u);
    EXPECT_EQ(IPC_ProcCreateCtx(1, nullptr, 2, &list_, 1), nullptr);
    EXPECT_EQ(IpcErrStatCount(zol::ipc::IPC_CTX_SM_CREATE_FAIL), smFails + 1);
    EXPECT_TRUE(Walk().empty());
    auto records = agent.WithTag("IPC_PCC");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].logId, kLogIdMelvaInfo);
    EXPECT_EQ(records[0].Text(zol::test::kImFirstText + 1), "sm create unsuccess");
    EXPECT_EQ(records[0].Formatted(), "ret:" + std::to_string(RUK_ERR_INJECTED) + ", ulSemId:0");

    // The context block is allocated, the list node is not: the semaphore made meanwhile goes too.
    const u32 insertFails = IpcErrStatCount(zol::ipc::IPC_CTX_INSERT_MSG_FAIL);
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 1, 1), 0u);
    EXPECT_EQ(IPC_ProcCreateCtx(1, nullptr, 2, &list_, 1), nullptr);
    EXPECT_EQ(IpcErrStatCount(zol::ipc::IPC_CTX_INSERT_MSG_FAIL), insertFails + 1);
    EXPECT_TRUE(Walk().empty());
    agent.Clear();
    std::this_thread::sleep_for(std::chrono::milliseconds(550)); // same tag: let the filter interval pass
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 1, 1), 0u);
    EXPECT_EQ(IPC_ProcCreateCtx(0, nullptr, 2, &list_, 1), nullptr);
    records = agent.WithTag("IPC_PCC");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].logId, kLogIdIpcRpcProcessErr);
    EXPECT_EQ(records[0].Text(zol::test::kImFirstText + 1), "Insert message fail");
    EXPECT_NE(records[0].Formatted().find("ret:12"), std::string::npos) << records[0].Formatted();
}

TEST_F(IpcCtxTest, NodeThatCannotBeUnlinkedIsCountedAndKept) {
    ImAgentCapture agent;
    IPC_MSG_LIST_S other;
    zol::ipc::IpcInitMsgList(&other);
    int element = 0;
    ASSERT_EQ(IPC_InsertMsgCtx(&list_, &element), IPC_OK);
    IPC_MSG_LIST_NODE_S *node = list_.stHead.pNext;
    const u32 fails = IpcErrStatCount(zol::ipc::IPC_REMOVE_NODE_FAIL);

    IPC_RemoveNodeFromList(&other, node);          // not a node of that list
    IPC_RemoveNodeFromList(&list_, &list_.stHead); // the head is never unlinked nor released
    EXPECT_EQ(IpcErrStatCount(zol::ipc::IPC_REMOVE_NODE_FAIL), fails + 2);
    EXPECT_EQ(Walk(), (std::vector<void *>{&element}));
    EXPECT_EQ(node->pData, &element);
    auto records = agent.WithTag("IPC_RNFL");
    ASSERT_EQ(records.size(), 1u) << "filtered to one record per interval";
    EXPECT_EQ(records[0].Text(zol::test::kImFirstText + 1), "remove node unsuccess");
    EXPECT_EQ(records[0].Formatted(), "ret=" + std::to_string(RUK_ERR_NOT_FOUND));

    IPC_RemoveNodeFromList(&list_, node);
    EXPECT_TRUE(Walk().empty());
    EXPECT_EQ(IPC_InsertMsgCtx(nullptr, &element), IPC_ERR_PARAM);
}

// The use the contexts exist for: a waiter blocks on the context's semaphore, another task finds the
// context in the pending list by its sequence word, leaves the answer and posts.
TEST_F(IpcCtxTest, SemaphoreOrdersAnswerBetweenTasks) {
    constexpr u32 kCalls = 50;
    int answers[kCalls];
    for (u32 seq = 0; seq < kCalls; ++seq) {
        IPC_MSG_CTX_S *ctx = IPC_ProcCreateCtx(1, nullptr, 0, &list_, 1);
        ASSERT_NE(ctx, nullptr);
        ctx->ulSeqOrLen = seq;
        std::thread receiver([&, seq] {
            for (IPC_MSG_LIST_NODE_S *n = list_.stHead.pNext; n != &list_.stHead; n = n->pNext) {
                auto *found = static_cast<IPC_MSG_CTX_S *>(n->pData);
                if (found->ulMagic == IPC_MSG_CTX_MAGIC && found->ulSeqOrLen == seq) {
                    found->pMsg = &answers[seq];
                    found->ulSeqOrLen = 100 + seq;
                    EXPECT_EQ(RUK_Sm_V(found->ulSemId), RUK_OK);
                }
            }
        });
        EXPECT_EQ(RUK_Sm_P(ctx->ulSemId, RUK_WAIT, 10000), RUK_OK);
        EXPECT_EQ(ctx->pMsg, &answers[seq]);
        EXPECT_EQ(ctx->ulSeqOrLen, 100 + seq);
        receiver.join();
        IPC_RemoveMsgCtx(&list_, ctx);
        IPC_DeleteMsgCtx(ctx, 1);
    }
    EXPECT_TRUE(Walk().empty());
}

} // namespace
