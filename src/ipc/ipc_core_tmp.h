// Temporary: what this branch expects from the IPC core and the OM service until they are merged.
#ifndef ZOL_IPC_CORE_TMP_H
#define ZOL_IPC_CORE_TMP_H

#include "zol_ipc.h"

namespace zol::ipc {

enum IpcErrStatIndex : u32 {
    IPC_EVENT_PARA_INVALID = 1,
    IPC_PARAM_ERR = 15,
    IPC_CHAN_ERR = 16,
    IPC_MSG_ERR = 17,
    IPC_SEND_MEMORY_ERR = 20,
    IPC_MAX_REGISTER_ERR = 21,
    IPC_MEMORY_RELEASED = 43,
    IPC_MEMORY_SEND = 44,
    IPC_NOTIFY_CB_NULL = 45,
    IPC_MEMORY_OTHERS = 46,
    IPC_NOTIFY_QUE_FAIL = 49,
    IPC_SEND_MC_NOT_SUPPORT = 50,
    IPC_ERR_STAT_NUM = 51,
};
struct IPC_ERR_STAT_S {
    u32 ulCount;
    const char *pcName;
};
extern IPC_ERR_STAT_S g_astIpcErrStat[IPC_ERR_STAT_NUM];
void IPC_AddErrStat(u32 ulIndex);
void IPC_ReleaseMsgCtx(IPC_MSG_HEAD_S *pstHead);
extern s32 g_iIpcEpollFd;
extern u32 g_ulIpcPollTaskId;

} // namespace zol::ipc

namespace zol::diag {
u32 ZOL_OmServiceStart(s32 iEpollFd);
}

#endif
