/* Compiles the IPC header as C: the layout the C compiler sees is the C++ one. */
#include <stddef.h>

#include "zol_ipc.h"

_Static_assert(sizeof(IPC_MSG_HEAD_S) == 40, "IPC header is 40 bytes in C too");
_Static_assert(offsetof(IPC_MSG_HEAD_S, ucMemFlag) == 16, "mark at 16");
_Static_assert(offsetof(IPC_MSG_HEAD_S, pstMsgCtx) == 30, "context pointer at 30");
_Static_assert(sizeof(IPC_MSG_CTX_S) == 40, "context head is 40 bytes");
