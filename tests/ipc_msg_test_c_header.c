/* Compiles the IPC header as C and uses it from C: the layout the C compiler sees is the C++ one. */
#include <stddef.h>

#include "zol_ipc.h"

_Static_assert(sizeof(IPC_MSG_HEAD_S) == 40, "IPC header is 40 bytes in C too");
_Static_assert(offsetof(IPC_MSG_HEAD_S, ucMemFlag) == 16, "mark at 16");
_Static_assert(offsetof(IPC_MSG_HEAD_S, pstMsgCtx) == 30, "context pointer at 30");
_Static_assert(sizeof(IPC_MSG_CTX_S) == 40, "context head is 40 bytes");

int IpcCHeaderRoundTrip(void);

/* 0 when a message allocated, addressed and released from C behaves as documented. */
int IpcCHeaderRoundTrip(void) {
    void *pMsg = IPC_AllocMsg_X(10, IPC_MOD_ID, "IpcCHeaderRoundTrip", __LINE__);
    if (pMsg == NULL) {
        return 1;
    }
    IPC_SetSrcAndDstChannelId(pMsg, 1, 2);
    const IPC_MSG_HEAD_S *pstHead = (const IPC_MSG_HEAD_S *)((const char *)pMsg - IPC_MSG_HEAD_LEN);
    int iBad = IPC_GetSrcChanId(pMsg) != 1 || IPC_GetDstChanId(pMsg) != 2 || pstHead->ucMemFlag != IPC_MEM_USED;
    IPC_FreeMsg(pMsg);
    return iBad;
}
