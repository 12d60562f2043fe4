/* Compiles the RPC header as C: the layout the C compiler sees is the C++ one. */
#include <stddef.h>

#include "zol_rpc.h"

_Static_assert(sizeof(IPC_RPC_MSG_HEAD_S) == IPC_RPC_HEAD_LEN, "RPC header is 24 bytes in C too");
_Static_assert(offsetof(IPC_RPC_MSG_HEAD_S, ulSeq) == 4, "sequence at 4");
_Static_assert(offsetof(IPC_RPC_MSG_HEAD_S, ulDstMod) == 12, "called module at 12");
_Static_assert(sizeof(IPC_RPC_DELIVER_MSG_S) == 32, "module record is four words");

u32 RpcCHeaderCallback(u32 ulSrcNode, u32 ulSrcMod, void *pReq, u32 ulReqLen, void **ppRsp, u32 *pulRspLen);

u32 RpcCHeaderCallback(u32 ulSrcNode, u32 ulSrcMod, void *pReq, u32 ulReqLen, void **ppRsp, u32 *pulRspLen) {
    IPC_RPC_CALLBACK_PF pf = RpcCHeaderCallback;
    (void)pf;
    (void)ulSrcNode;
    (void)ulSrcMod;
    (void)pReq;
    (void)ulReqLen;
    *ppRsp = NULL;
    *pulRspLen = 0;
    return IPC_RPC_OK;
}
