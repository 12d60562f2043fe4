/* Compiles the RPC header as C: the layout the C compiler sees is the C++ one. */
#include <stddef.h>

#include "zol_rpc.h"

_Static_assert(sizeof(IPC_RPC_MSG_HEAD_S) == IPC_RPC_HEAD_LEN, "RPC header is 24 bytes in C too");
_Static_assert(offsetof(IPC_RPC_MSG_HEAD_S, ulSeq) == 4, "sequence at 4");
_Static_assert(offsetof(IPC_RPC_MSG_HEAD_S, ulDstMod) == 12, "called module at 12");
_Static_assert(sizeof(IPC_RPC_DELIVER_MSG_S) == 32, "module record is four words");
