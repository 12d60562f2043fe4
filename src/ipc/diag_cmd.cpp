// The OM diagnostic command table and its request handler: parse the request, find this process's
// command node and its "type", run the sub-command's display and print the result on the terminal.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "ipc/ipc_chan_internal.h"
#include "ipc/rpc_internal.h"

#include <cstring>
#include <unistd.h>

#include "bounds_checked.h"

#include "diag_cmd_internal.h"

namespace zol::diag {

// The rows name every sub-command; a row whose display is still null answers "not implement" like an
// unknown type. Filling a display pointer here is all it takes to offer its table.
OM_CMD_S g_astOmCmdTable[kOmCmdNum] = {
    {"get-ipc-info",
     {},
     {nullptr, OMCC_SUB_KIND_REQUEST, ZOL_OmCmdRequestProc, {}},
     {{"connect-info", ipc::IPC_ShowConnectInfo},
      {"error", ipc::IPC_ShowError},
      {"node-detail", ipc::IPC_ShowNodeDetail},
      {"packet", ipc::IPC_ShowPacket}}},
    {"get-rpc-info",
     {},
     {nullptr, OMCC_SUB_KIND_REQUEST, ZOL_OmCmdRequestProc, {}},
     {{"callback-time", rpc::IPC_RPC_ShowCallbackTime},
      {"error", rpc::IPC_RPC_ShowError},
      {"packet", rpc::IPC_RPC_ShowPacket},
      {nullptr, nullptr}}},
};

namespace {

constexpr u32 kRequestFailed = 1;
constexpr const char *kLeafType = "type";

// The command node below the process node: "get-ipc-info" first, then "get-rpc-info".
OMCC_NODE_S *FindCommand(OMCC_NODE_S *pstProc, u32 &ulCmdIndex) {
    for (ulCmdIndex = 0; pstProc != nullptr && ulCmdIndex < kOmCmdNum; ++ulCmdIndex) {
        OMCC_NODE_S *pstCmd = omcc_find_node(pstProc, g_astOmCmdTable[ulCmdIndex].pcCmdName);
        if (pstCmd != nullptr) {
            return pstCmd;
        }
    }
    return nullptr;
}

// Finds the command in the parsed request and runs it: the handler's result.
u32 ServeDocument(OMCC_TTY_S *pstTty, OMCC_DOC_S *pstDoc, const char *pcProcPath) {
    u32 ulCmdIndex = 0;
    OMCC_NODE_S *pstCmd = FindCommand(omcc_find_node(omcc_doc_root(pstDoc), pcProcPath), ulCmdIndex);
    if (pstCmd == nullptr) {
        omcc_tty_printf(pstTty, "[Error]:Not support action node.");
        return kRequestFailed;
    }
    const char *pcType = nullptr;
    s32 iRet = omcc_parse_str(pstCmd, kLeafType, &pcType);
    if (iRet != 0) {
        omcc_tty_printf(pstTty, "[Error]:Parse cmd argument type failed, return value is %d.", iRet);
        return static_cast<u32>(iRet);
    }
    ZOL_OmCmdDispatch(pstTty, ulCmdIndex, pcType);
    return 0;
}

} // namespace

bool ZOL_OmCmdBuildPaths(u32 ulPid) {
    for (OM_CMD_S &stCmd : g_astOmCmdTable) {
        if (sprintf_s(stCmd.szPath, sizeof stCmd.szPath, kOmSubPathFmt, ulPid, stCmd.pcCmdName) < 0) {
            return false;
        }
        stCmd.stSub.pcPath = stCmd.szPath;
    }
    return true;
}

u32 ZOL_OmCmdRequestProc(void *pOmCtx, const OMCC_BYTES_S *pstRequest) {
    char szProcPath[kOmProcPathLen] = {};
    if (sprintf_s(szProcPath, sizeof szProcPath, kOmProcPathFmt, static_cast<u32>(getpid())) < 0) {
        return kRequestFailed;
    }
    OMCC_DOC_S *pstDoc = omcc_parse_bytes(nullptr, pstRequest);
    if (pstDoc == nullptr) {
        bool bHasByte = pstRequest != nullptr && pstRequest->pucData != nullptr && pstRequest->zLen > 0;
        ZOL_LOG_MSG(log::kRpcMsgErr, "ZCPC", "Parse input to doc failed.", "code:%u length:%zu",
                    bHasByte ? static_cast<u32>(pstRequest->pucData[0]) : 0u,
                    pstRequest != nullptr ? pstRequest->zLen : 0);
        return kRequestFailed;
    }
    OMCC_TTY_S *pstTty = omcc_tty_borrow(pOmCtx, 1);
    if (pstTty == nullptr) {
        ZOL_LOG_MSG(log::kRpcMsgErr, "ZCPC", "Get tty failed.", "tty is Null");
        omcc_free_doc(pstDoc);
        return kRequestFailed;
    }
    u32 ulResult = ServeDocument(pstTty, pstDoc, szProcPath);
    omcc_tty_return(pstTty);
    omcc_free_doc(pstDoc);
    return ulResult;
}

void ZOL_OmCmdDispatch(OMCC_TTY_S *pstTty, u32 ulCmdIndex, const char *pcType) {
    char *pcBuf = static_cast<char *>(ZOL_MEM_ALLOC(kModRpc, kOmResultSize));
    if (pcBuf == nullptr) {
        omcc_tty_printf(pstTty, "[Error]:Malloc buff for result failed.");
        return;
    }
    (void)memset_s(pcBuf, kOmResultSize, 0, kOmResultSize);
    bool bFound = false;
    for (u32 i = 0; ulCmdIndex < kOmCmdNum && pcType != nullptr && i < kOmSubCmdNum && !bFound; ++i) {
        const OM_SUB_CMD_S &stRow = g_astOmCmdTable[ulCmdIndex].astSubCmd[i];
        if (stRow.pcSubCmd != nullptr && stRow.pfDisplay != nullptr && std::strcmp(stRow.pcSubCmd, pcType) == 0) {
            stRow.pfDisplay(pcBuf, kOmResultSize);
            pcBuf[kOmResultSize - 1] = '\0'; // a display that fills the buffer still prints a bounded text
            bFound = true;
        }
    }
    const char *pcText = pcBuf;
    while (*pcText == '\n' || *pcText == '\r') {
        ++pcText;
    }
    omcc_tty_printf(pstTty, "%s", pcText);
    if (!bFound) {
        omcc_tty_printf(pstTty, "[Error]:Cmd type (%u,%s) not implement.", ulCmdIndex, pcType != nullptr ? pcType : "");
    }
    (void)ZOL_MEM_FREE(pcBuf);
}

} // namespace zol::diag
