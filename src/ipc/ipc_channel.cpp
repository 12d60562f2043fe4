// The channel table of the own node: 48 channel records, registration by IPC_Create and the lookups the
// send path and the displays use.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "ipc/ipc_chan_internal.h"

#include "bounds_checked.h"

namespace zol::ipc {

IPC_CHAN_S *g_pstIpcChanTbl = nullptr;

u32 IPC_ChanTblInit() {
    const u32 ulSize = IPC_MAX_CHAN_NUM * static_cast<u32>(sizeof(IPC_CHAN_S));
    auto *pstTbl = static_cast<IPC_CHAN_S *>(ZOL_MemAlloc(kModIpc, ulSize, kFileIpc, __LINE__));
    if (pstTbl == nullptr) {
        return IPC_ERR_NO_MEMORY;
    }
    (void)memset_s(pstTbl, ulSize, 0, ulSize);
    g_pstIpcChanTbl = pstTbl;
    return IPC_OK;
}

IPC_CHAN_TRAFFIC_S IPC_ReadChanTraffic(u32 ulChanId) {
    u64 aullCell[kTrafficCells] = {};
    for (u32 i = 0; ulChanId < IPC_MAX_CHAN_NUM && i < kTrafficCells; ++i) {
        aullCell[i] = IpcTraffic::Read(ulChanId * kTrafficCells + i);
    }
    return IPC_CHAN_TRAFFIC_S{static_cast<u32>(aullCell[0]), static_cast<u32>(aullCell[2]), aullCell[1], aullCell[3],
                              static_cast<u32>(aullCell[4]), static_cast<u32>(aullCell[6]), aullCell[5], aullCell[7]};
}

void IPC_ChanTblDestroy() {
    if (g_pstIpcChanTbl != nullptr) {
        (void)ZOL_MemFree(g_pstIpcChanTbl, kFileIpc, __LINE__);
        g_pstIpcChanTbl = nullptr;
    }
}

void IPC_LogBadChanId(u32 ulChanId) {
    ZOL_LOG_MSG(log::kIpcMsgErr, "IPC_GCRC", "ChanId is invalid", "ChanId(%u)", ulChanId);
}

namespace {

u32 IPC_CheckCreatePara(u32 ulChanId, u32 ulMode, u32 ulQueId, IPC_CHAN_CALLBACK_PF pfCallback) {
    if (ulChanId >= IPC_MAX_CHAN_NUM) {
        return IPC_ERR_CHAN;
    }
    if (ulMode != IPC_CHAN_MODE_QUEUE && ulMode != IPC_CHAN_MODE_CALLBACK) {
        return IPC_ERR_MODE;
    }
    if (ulMode == IPC_CHAN_MODE_CALLBACK && pfCallback == nullptr) {
        return IPC_ERR_NO_CALLBACK;
    }
    if (ulMode == IPC_CHAN_MODE_QUEUE && ulQueId == 0) {
        return IPC_ERR_NO_QUEUE;
    }
    if (IPC_GetChanRegFlag(ulChanId) == 1) {
        return IPC_ERR_CHAN_REGISTERED;
    }
    return IPC_OK;
}

} // namespace
} // namespace zol::ipc

using namespace zol::ipc;

extern "C" ZOL_EXPORT u32 IPC_Create(u32 ulChanId, u32 ulMode, u32 ulQueId, IPC_CHAN_CALLBACK_PF pfCallback) {
    if (!IPC_IsInit()) {
        return IPC_ERR_NOT_INIT;
    }
    const u32 ulRet = IPC_CheckCreatePara(ulChanId, ulMode, ulQueId, pfCallback);
    if (ulRet != IPC_OK) {
        IPC_AddErrStat(IPC_PARAM_ERR);
        return ulRet;
    }
    IPC_CHAN_S *pstChan = &g_pstIpcChanTbl[ulChanId];
    pstChan->usMode = static_cast<u16>(ulMode);
    pstChan->ulQueId = ulQueId;
    pstChan->pfCallback = pfCallback;
    // Publishes the fields above to senders on other tasks.
    __atomic_store_n(&pstChan->ulRegFlag, 1u, __ATOMIC_RELEASE);
    return IPC_OK;
}
