// The "get-rpc-info" tables: error counters ("error"), call outcomes ("packet") and the callback timing
// of each callback-mode module ("callback-time"). They only read, without stopping the counting tasks.
#include "foundation/foundation_internal.h"
#include "ipc/rpc_internal.h"

#include <ctime>

#include "bounds_checked.h"

namespace zol::rpc {

namespace {

constexpr u32 kCostTextLen = 20;
constexpr u32 kTimeTextLen = 20;
constexpr u32 kSymNameLen = 128;
constexpr int kSep64 = 64, kSep74 = 74, kSep95 = 95;
constexpr const char *kDashes =
    "-----------------------------------------------------------------------------------------------";
static_assert(
    sizeof("-----------------------------------------------------------------------------------------------") - 1 ==
        kSep95,
    "the longest separator");

// A separator: a line break and iWidth hyphens.
void PutSeparator(char *pcBuf, u32 ulBufLen, u32 *pulUsed, int iWidth) {
    ZOL_FormatToBuff(pcBuf, ulBufLen, pulUsed, __LINE__, "\r\n%.*s", iWidth, kDashes);
}

// A cost in microseconds as milliseconds with three decimals; left empty if it cannot be formatted.
void FormatCost(u32 ulCostUs, char *pcOut) {
    (void)memset_s(pcOut, kCostTextLen, 0, kCostTextLen);
    if (sprintf_s(pcOut, kCostTextLen, "%d.%03d", static_cast<int>(ulCostUs / 1000),
                  static_cast<int>(ulCostUs % 1000)) < 0) {
        (void)memset_s(pcOut, kCostTextLen, 0, kCostTextLen);
    }
}

void PutCallbackLine(char *pcBuf, u32 ulBufLen, u32 *pulUsed, const IPC_RPC_MOD_S *pstMod, u32 ulLastCost,
                     char *pcSymName) {
    char szLastTime[kTimeTextLen] = {}, szLongestTime[kTimeTextLen] = {};
    char szLastCost[kCostTextLen] = {}, szLongestCost[kCostTextLen] = {};
    IPC_RPC_FormatTime(__atomic_load_n(&pstMod->ullLastTime, __ATOMIC_RELAXED), szLastTime);
    IPC_RPC_FormatTime(__atomic_load_n(&pstMod->ullLongestTime, __ATOMIC_RELAXED), szLongestTime);
    FormatCost(ulLastCost, szLastCost);
    FormatCost(__atomic_load_n(&pstMod->ulLongestCost, __ATOMIC_RELAXED), szLongestCost);
    BDS_SymNameGetEx(reinterpret_cast<void *>(pstMod->pfCallback), pcSymName, kSymNameLen);
    ZOL_FormatToBuff(pcBuf, ulBufLen, pulUsed, __LINE__, "\r\n0x%-8x %10s  %-20s  %10s  %-20s %-18s", pstMod->ulModId,
                     szLastCost, szLastTime, szLongestCost, szLongestTime, pcSymName);
}

} // namespace

void IPC_RPC_FormatTime(u64 ullSec, char *pcOut) {
    const time_t tSec = static_cast<time_t>(ullSec);
    struct tm stTm = {};
    if (localtime_r(&tSec, &stTm) == nullptr || strftime(pcOut, kTimeTextLen, "%Y-%m-%d %H:%M:%S", &stTm) == 0) {
        pcOut[0] = '\0';
    }
}

void IPC_RPC_ShowError(char *pcBuf, u32 ulBufLen) {
    if (pcBuf == nullptr) {
        return;
    }
    u32 ulUsed = 0;
    bool bAny = false;
    for (u32 ulNo = 1; ulNo <= IPC_RPC_ERR_STAT_NUM; ++ulNo) {
        const u32 ulCount = RpcErrStatCount(ulNo - 1);
        if (ulCount == 0) {
            continue;
        }
        if (!bAny) {
            PutSeparator(pcBuf, ulBufLen, &ulUsed, kSep74);
            ZOL_FormatToBuff(pcBuf, ulBufLen, &ulUsed, __LINE__, "\r\n%-6s %-54s %s", "MsgId", "Error Info", "Count");
            PutSeparator(pcBuf, ulBufLen, &ulUsed, kSep74);
            bAny = true;
        }
        ZOL_FormatToBuff(pcBuf, ulBufLen, &ulUsed, __LINE__, "\r\n%5u  %-54s %5u", ulNo,
                         g_astRpcErrStat[ulNo - 1].pcName, ulCount);
    }
    if (bAny) {
        PutSeparator(pcBuf, ulBufLen, &ulUsed, kSep74);
    } else {
        ZOL_FormatToBuff(pcBuf, ulBufLen, &ulUsed, __LINE__,
                         "\r\nInfo: The numbers of error messages of all types are zero.");
    }
}

void IPC_RPC_ShowPacket(char *pcBuf, u32 ulBufLen) {
    u32 ulUsed = 0;
    const IPC_RPC_STAT_S *pstStat = g_pstRpcStat;
    if (pstStat == nullptr) {
        ZOL_FormatToBuff(pcBuf, ulBufLen, &ulUsed, __LINE__, "\r\nThe RPC function is not used in this process.");
        return;
    }
    PutSeparator(pcBuf, ulBufLen, &ulUsed, kSep64);
    ZOL_FormatToBuff(pcBuf, ulBufLen, &ulUsed, __LINE__,
                     "\r\nSNodeID    SendOK    SendFail    Timeout    NotReg    RcvOK");
    PutSeparator(pcBuf, ulBufLen, &ulUsed, kSep64);
    ZOL_FormatToBuff(pcBuf, ulBufLen, &ulUsed, __LINE__, "\r\n%-10x %-9u %-11u %-10u %-9u %-10u", IPC_GetSelfNodeId(),
                     RpcStatRead(&pstStat->ulSendOkNum), RpcStatRead(&pstStat->ulSendFailNum),
                     RpcStatRead(&pstStat->ulTimeoutNum), RpcStatRead(&pstStat->ulNotRegNum),
                     RpcStatRead(&pstStat->ulRcvOkNum));
}

void IPC_RPC_ShowCallbackTime(char *pcBuf, u32 ulBufLen) {
    u32 ulUsed = 0;
    PutSeparator(pcBuf, ulBufLen, &ulUsed, kSep95);
    ZOL_FormatToBuff(pcBuf, ulBufLen, &ulUsed, __LINE__, "\r\n%-10s %10s  %-20s  %10s  %-20s %-18s", "Mid", "NewCost",
                     "Last-called-time", "LongCost", "Longest-called-time", "RegFunc");
    PutSeparator(pcBuf, ulBufLen, &ulUsed, kSep95);
    char szSymName[kSymNameLen];
    (void)memset_s(szSymName, sizeof(szSymName), 0, sizeof(szSymName));
    bool bAny = false;
    RpcLock lock; // the registry is walked in registration order while modules may still register
    if (!lock.Held()) {
        return;
    }
    const IPC_MSG_LIST_NODE_S *pstHead = &g_stRpcModList.stHead;
    for (const IPC_MSG_LIST_NODE_S *pstNode = pstHead->pNext; pstNode != nullptr && pstNode != pstHead;
         pstNode = pstNode->pNext) {
        const auto *pstMod = static_cast<const IPC_RPC_MOD_S *>(pstNode->pData);
        const u32 ulLastCost = pstMod != nullptr ? __atomic_load_n(&pstMod->ulLastCost, __ATOMIC_RELAXED) : 0;
        if (pstMod == nullptr || pstMod->ulMode != IPC_RPC_MODE_CALLBACK || ulLastCost == 0) {
            continue;
        }
        PutCallbackLine(pcBuf, ulBufLen, &ulUsed, pstMod, ulLastCost, szSymName);
        bAny = true;
    }
    if (bAny) {
        PutSeparator(pcBuf, ulBufLen, &ulUsed, kSep95);
    }
}

} // namespace zol::rpc
