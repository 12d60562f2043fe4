// Message contexts (the rendezvous of a waiting sender and the receiver of its answer) and the pending
// lists that hold them, over the platform's singly linked list.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "ipc/ipc_internal.h"

#include <cstddef>

#include "bounds_checked.h"
#include "ruk_sem.h"
#include "ruk_sll.h"

namespace zol::ipc {

// The pending list is handed to the platform's list removal, so both layouts must be the same.
static_assert(sizeof(IPC_MSG_LIST_NODE_S) == sizeof(RUK_SLL_NODE_S) && sizeof(IPC_MSG_LIST_NODE_S) == 16);
static_assert(offsetof(IPC_MSG_LIST_NODE_S, pNext) == offsetof(RUK_SLL_NODE_S, pNext));
static_assert(offsetof(IPC_MSG_LIST_NODE_S, pData) == offsetof(RUK_SLL_NODE_S, pData));
static_assert(sizeof(IPC_MSG_LIST_S) == sizeof(RUK_SLL_S));
static_assert(offsetof(IPC_MSG_LIST_S, stHead) == offsetof(RUK_SLL_S, stHead));
static_assert(offsetof(IPC_MSG_LIST_S, pTail) == offsetof(RUK_SLL_S, pTail));
static_assert(offsetof(IPC_MSG_LIST_S, ulCount) == offsetof(RUK_SLL_S, ulCount));

// Context head, 40 bytes (LP64), then 8-byte destination entries with the status at byte 4.
static_assert(sizeof(IPC_MSG_CTX_S) == 40);
static_assert(offsetof(IPC_MSG_CTX_S, ulMagic) == 0);
static_assert(offsetof(IPC_MSG_CTX_S, pMsg) == 8);
static_assert(offsetof(IPC_MSG_CTX_S, ulSemId) == 16);
static_assert(offsetof(IPC_MSG_CTX_S, ulSeqOrLen) == 20);
static_assert(offsetof(IPC_MSG_CTX_S, usDstNum) == 24);
static_assert(sizeof(IPC_MSG_CTX_DST_S) == 8 && offsetof(IPC_MSG_CTX_DST_S, ucSendStatus) == 4);

namespace {

constexpr const char *kSemName = "IPCS";
constexpr u32 kSemOption = 2;

// Semaphore of a context that waits: created unavailable, posted by the receive side. 0 on failure.
u32 CreateCtxSem() {
    u32 ulSemId = 0;
    const u32 ulRet = RUK_Sm_Create(kSemName, 0, kSemOption, &ulSemId);
    if (ulRet != RUK_OK || ulSemId == 0) {
        IPC_AddErrStat(IPC_CTX_SM_CREATE_FAIL);
        ZOL_LOG_MSG(log::kIpcPlatformInfo, "IPC_PCC", "sm create unsuccess", "ret:%u, ulSemId:%u", ulRet, ulSemId);
        return 0;
    }
    return ulSemId;
}

} // namespace

void IpcInitMsgList(IPC_MSG_LIST_S *pstList) {
    pstList->stHead.pNext = &pstList->stHead;
    pstList->stHead.pData = nullptr;
    pstList->pTail = &pstList->stHead;
    pstList->ulCount = 0;
}

} // namespace zol::ipc

using namespace zol::ipc;

extern "C" {

ZOL_EXPORT IPC_MSG_CTX_S *IPC_ProcCreateCtx(u32 ulWithSem, void *pMsg, u16 usDstNum, IPC_MSG_LIST_S *pstList,
                                            u32 ulInsert) {
    const u32 ulSize = sizeof(IPC_MSG_CTX_S) + sizeof(IPC_MSG_CTX_DST_S) * usDstNum;
    auto *pstCtx = static_cast<IPC_MSG_CTX_S *>(zol::ZOL_MemAlloc(zol::kModIpc, ulSize, kFileIpcUtil, __LINE__));
    if (pstCtx == nullptr) {
        return nullptr;
    }
    if (memset_s(pstCtx, ulSize, 0, ulSize) != 0) {
        (void)zol::ZOL_MemFree(pstCtx, kFileIpcUtil, __LINE__);
        return nullptr;
    }
    if (ulWithSem != 0) {
        pstCtx->ulSemId = CreateCtxSem();
        if (pstCtx->ulSemId == 0) {
            (void)zol::ZOL_MemFree(pstCtx, kFileIpcUtil, __LINE__);
            return nullptr;
        }
    }
    if (ulInsert != 0) {
        const u32 ulRet = IPC_InsertMsgCtx(pstList, pstCtx);
        if (ulRet != IPC_OK) {
            IPC_AddErrStat(IPC_CTX_INSERT_MSG_FAIL);
            ZOL_LOG_MSG(zol::log::kIpcRpcProcessErr, "IPC_PCC", "Insert message fail", "ret:%u", ulRet);
            IPC_DeleteMsgCtx(pstCtx, 1);
            return nullptr;
        }
    }
    pstCtx->usDstNum = usDstNum;
    pstCtx->pMsg = pMsg;
    pstCtx->ulMagic = IPC_MSG_CTX_MAGIC; // last: a context with its magic is complete
    return pstCtx;
}

ZOL_EXPORT void IPC_DeleteMsgCtx(IPC_MSG_CTX_S *pstCtx, u32 ulWithSem) {
    if (pstCtx == nullptr) {
        return;
    }
    if (ulWithSem == 1 && pstCtx->ulSemId != 0) {
        (void)RUK_Sm_Delete(pstCtx->ulSemId);
        pstCtx->ulSemId = 0;
    }
    pstCtx->ulMagic = 0;
    (void)zol::ZOL_MemFree(pstCtx, kFileIpcUtil, __LINE__);
}

ZOL_EXPORT u32 IPC_InsertMsgCtx(IPC_MSG_LIST_S *pstList, void *pData) {
    if (pstList == nullptr) {
        return IPC_ERR_PARAM;
    }
    auto *pstNode = static_cast<IPC_MSG_LIST_NODE_S *>(
        zol::ZOL_MemAlloc(zol::kModIpc, sizeof(IPC_MSG_LIST_NODE_S), kFileIpcUtil, __LINE__));
    if (pstNode == nullptr) {
        return IPC_ERR_NO_MEMORY;
    }
    pstNode->pNext = &pstList->stHead;
    pstNode->pData = pData;
    pstList->pTail->pNext = pstNode; // the head itself when the list is empty
    pstList->pTail = pstNode;
    ++pstList->ulCount;
    return IPC_OK;
}

ZOL_EXPORT void IPC_RemoveMsgCtx(IPC_MSG_LIST_S *pstList, void *pData) {
    if (pstList == nullptr || pstList->ulCount == 0 || pstList->stHead.pNext == nullptr) {
        return;
    }
    for (IPC_MSG_LIST_NODE_S *pstNode = pstList->stHead.pNext; pstNode != nullptr && pstNode != &pstList->stHead;
         pstNode = pstNode->pNext) {
        if (pstNode->pData == pData) {
            IPC_RemoveNodeFromList(pstList, pstNode);
            return;
        }
    }
}

ZOL_EXPORT void IPC_RemoveNodeFromList(IPC_MSG_LIST_S *pstList, IPC_MSG_LIST_NODE_S *pstNode) {
    const u32 ulRet = RUK_SllDeleteSafe(AsPlatformList(pstList), AsPlatformNode(pstNode));
    if (ulRet != RUK_OK) {
        IPC_AddErrStat(IPC_REMOVE_NODE_FAIL);
        ZOL_LOG_MSG(zol::log::kIpcPlatformInfo, "IPC_RNFL", "remove node unsuccess", "ret=%u", ulRet);
        return;
    }
    if (pstNode != &pstList->stHead) {
        pstNode->pData = nullptr;
        (void)zol::ZOL_MemFree(pstNode, kFileIpcUtil, __LINE__);
    }
}

} // extern "C"
