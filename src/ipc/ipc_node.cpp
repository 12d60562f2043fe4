// The node registry of IPC: a 4,096-entry first-level table by location index, a group of 24 process
// slots per used location, free/used bitmaps for both levels, and the node records.
#include "foundation/foundation_internal.h"
#include "ipc/ipc_chan_internal.h"

#include "bounds_checked.h"

namespace zol::ipc {

namespace {

void *IPC_UtilAllocZero(u32 ulSize, u32 ulLine) {
    void *pMem = ZOL_MemAlloc(kModIpc, ulSize, kFileIpcUtil, ulLine);
    if (pMem != nullptr && memset_s(pMem, ulSize, 0, ulSize) != BC_EOK) {
        (void)ZOL_MemFree(pMem, kFileIpcUtil, ulLine);
        return nullptr;
    }
    return pMem;
}

void IPC_UtilFree(void *pMem, u32 ulLine) {
    if (pMem != nullptr) {
        (void)ZOL_MemFree(pMem, kFileIpcUtil, ulLine);
    }
}

IPC_NODE_GROUP_S *IPC_CreateNodeGroup(u32 ulLocIdx) {
    auto *pstGroup = static_cast<IPC_NODE_GROUP_S *>(IPC_UtilAllocZero(sizeof(IPC_NODE_GROUP_S), __LINE__));
    if (pstGroup == nullptr) {
        return nullptr;
    }
    pstGroup->pstSlotBitmap = IPC_BitmapCreate(IPC_MAX_PROC_NUM);
    if (pstGroup->pstSlotBitmap == nullptr) {
        IPC_UtilFree(pstGroup, __LINE__);
        return nullptr;
    }
    g_ppstIpcNodeTbl[ulLocIdx] = pstGroup;
    IPC_BitmapSetUsed(g_pstIpcGroupBitmap, ulLocIdx);
    return pstGroup;
}

} // namespace

IPC_NODE_GROUP_S **g_ppstIpcNodeTbl = nullptr;
IPC_BITMAP_S *g_pstIpcGroupBitmap = nullptr;

IPC_BITMAP_S *IPC_BitmapCreate(u32 ulBitNum) {
    const u32 ulWordNum = (ulBitNum + 31u) / 32u;
    const u32 ulSize = (2u + ulWordNum) * static_cast<u32>(sizeof(u32));
    auto *pstBitmap = static_cast<IPC_BITMAP_S *>(ZOL_MemAlloc(kModIpc, ulSize, kFileIpcUtil, __LINE__));
    if (pstBitmap == nullptr) {
        return nullptr;
    }
    if (memset_s(pstBitmap, ulSize, 0xFF, ulSize) != BC_EOK) {
        IPC_UtilFree(pstBitmap, __LINE__);
        return nullptr;
    }
    if (ulBitNum % 32u != 0) {
        pstBitmap->aulBits[ulWordNum - 1] &= (1u << (ulBitNum % 32u)) - 1u;
    }
    pstBitmap->ulBitNum = ulBitNum;
    pstBitmap->ulWordNum = ulWordNum;
    return pstBitmap;
}

void IPC_BitmapDestroy(IPC_BITMAP_S *pstBitmap) {
    IPC_UtilFree(pstBitmap, __LINE__);
}

void IPC_BitmapSetUsed(IPC_BITMAP_S *pstBitmap, u32 ulBit) {
    if (pstBitmap != nullptr && ulBit < pstBitmap->ulBitNum) {
        pstBitmap->aulBits[ulBit / 32u] &= ~(1u << (ulBit % 32u));
    }
}

void IPC_BitmapSetFree(IPC_BITMAP_S *pstBitmap, u32 ulBit) {
    if (pstBitmap != nullptr && ulBit < pstBitmap->ulBitNum) {
        pstBitmap->aulBits[ulBit / 32u] |= 1u << (ulBit % 32u);
    }
}

bool IPC_BitmapIsFree(const IPC_BITMAP_S *pstBitmap, u32 ulBit) {
    return pstBitmap != nullptr && ulBit < pstBitmap->ulBitNum &&
           (pstBitmap->aulBits[ulBit / 32u] & (1u << (ulBit % 32u))) != 0;
}

IPC_NODE_S *IPC_CreateNode(u32 ulNodeId) {
    if (g_ppstIpcNodeTbl == nullptr || IPC_NodeProcIdx(ulNodeId) >= IPC_MAX_PROC_NUM) {
        return nullptr;
    }
    const u32 ulLocIdx = IPC_NodeLocIdx(ulNodeId);
    const u32 ulProcIdx = IPC_NodeProcIdx(ulNodeId);
    IPC_NODE_GROUP_S *pstGroup = g_ppstIpcNodeTbl[ulLocIdx];
    if (pstGroup == nullptr && (pstGroup = IPC_CreateNodeGroup(ulLocIdx)) == nullptr) {
        return nullptr;
    }
    if (pstGroup->apstNode[ulProcIdx] != nullptr) {
        return pstGroup->apstNode[ulProcIdx];
    }
    auto *pstNode = static_cast<IPC_NODE_S *>(IPC_UtilAllocZero(sizeof(IPC_NODE_S), __LINE__));
    if (pstNode == nullptr) {
        return nullptr;
    }
    IPC_BitmapSetUsed(pstGroup->pstSlotBitmap, ulProcIdx);
    pstGroup->apstNode[ulProcIdx] = pstNode;
    IpcInitMsgList(&pstNode->stSendMsgList);
    IpcInitMsgList(&pstNode->stRecvMsgList);
    pstNode->ulNodeId = ulNodeId;
    pstNode->ulSendSeq = 1;
    pstNode->ulAckSeq = 1;
    pstNode->ulRecvSeq = 1;
    pstNode->iSockFd = -1;
    return pstNode;
}

void IPC_FreeNodeGroup(u32 ulNodeId) {
    const u32 ulLocIdx = IPC_NodeLocIdx(ulNodeId);
    if (g_ppstIpcNodeTbl == nullptr || g_ppstIpcNodeTbl[ulLocIdx] == nullptr) {
        return;
    }
    IPC_NODE_GROUP_S *pstGroup = g_ppstIpcNodeTbl[ulLocIdx];
    IPC_BitmapDestroy(pstGroup->pstSlotBitmap);
    IPC_UtilFree(pstGroup, __LINE__);
    g_ppstIpcNodeTbl[ulLocIdx] = nullptr;
    IPC_BitmapSetFree(g_pstIpcGroupBitmap, ulLocIdx);
}

u32 IPC_NodeTblInit(u32 ulSelfNodeId) {
    const u32 ulTblSize = IPC_NODE_GROUP_NUM * static_cast<u32>(sizeof(IPC_NODE_GROUP_S *));
    g_ppstIpcNodeTbl = static_cast<IPC_NODE_GROUP_S **>(ZOL_MemAlloc(kModIpc, ulTblSize, kFileIpc, __LINE__));
    if (g_ppstIpcNodeTbl == nullptr) {
        return IPC_ERR_NO_MEMORY;
    }
    (void)memset_s(g_ppstIpcNodeTbl, ulTblSize, 0, ulTblSize);
    g_pstIpcGroupBitmap = IPC_BitmapCreate(IPC_NODE_GROUP_NUM);
    if (g_pstIpcGroupBitmap == nullptr || IPC_CreateNode(ulSelfNodeId) == nullptr) {
        // The own record's group holds nothing else yet, so releasing it undoes a half-made record.
        IPC_FreeNodeGroup(ulSelfNodeId);
        IPC_NodeTblDestroy();
        return IPC_ERR_NO_MEMORY;
    }
    return IPC_OK;
}

void IPC_NodeTblDestroy() {
    if (g_ppstIpcNodeTbl != nullptr) {
        for (u32 ulLoc = 0; ulLoc < IPC_NODE_GROUP_NUM; ulLoc++) {
            IPC_NODE_GROUP_S *pstGroup = g_ppstIpcNodeTbl[ulLoc];
            if (pstGroup == nullptr) {
                continue;
            }
            for (IPC_NODE_S *pstNode : pstGroup->apstNode) {
                IPC_UtilFree(pstNode, __LINE__);
            }
            IPC_BitmapDestroy(pstGroup->pstSlotBitmap);
            IPC_UtilFree(pstGroup, __LINE__);
            g_ppstIpcNodeTbl[ulLoc] = nullptr;
        }
        (void)ZOL_MemFree(g_ppstIpcNodeTbl, kFileIpc, __LINE__);
    }
    IPC_BitmapDestroy(g_pstIpcGroupBitmap);
    g_ppstIpcNodeTbl = nullptr;
    g_pstIpcGroupBitmap = nullptr;
}

IPC_NODE_S *IPC_GetNode(u32 ulNodeId) {
    const u32 ulProcIdx = IPC_NodeProcIdx(ulNodeId);
    if (g_ppstIpcNodeTbl == nullptr || ulProcIdx >= IPC_MAX_PROC_NUM) {
        return nullptr;
    }
    IPC_NODE_GROUP_S *pstGroup = g_ppstIpcNodeTbl[IPC_NodeLocIdx(ulNodeId)];
    return pstGroup == nullptr ? nullptr : pstGroup->apstNode[ulProcIdx];
}

} // namespace zol::ipc
