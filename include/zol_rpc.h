/* Synchronous remote calls between modules of the own node, carried on IPC channel 0: module registry,
 * RPC messages with their 24-byte header, the blocking call and the answers. Plain C. */
#ifndef ZOL_RPC_H
#define ZOL_RPC_H

#include "zol_types.h"

ZOL_EXTERN_C_BEGIN

/* ===================================================================================================== */
/* Status codes of the RPC operations (0 is success). IPC_RPC_Init and IPC_RPC_SyncCall also pass IPC's   */
/* and the platform's codes through, as stated with each.                                                */
/* ===================================================================================================== */

#define IPC_RPC_OK 0u
#define IPC_RPC_ERR_PARAM 1u     /* bad mode or arguments; null request or length 0 */
#define IPC_RPC_ERR_EXIST 2u     /* module id already registered */
#define IPC_RPC_ERR_NO_SRC 3u    /* the calling module is not registered */
#define IPC_RPC_ERR_NOT_REG 4u   /* the called module is not registered */
#define IPC_RPC_ERR_NO_MEMORY 5u /* no memory (or no semaphore) for a record or a call */

/* ===================================================================================================== */
/* RPC messages: an IPC message whose payload starts with the 24-byte RPC header. Users hold a pointer   */
/* to their data, IPC_RPC_HEAD_LEN bytes after the IPC payload start.                                    */
/* ===================================================================================================== */

#define IPC_RPC_HEAD_LEN 24u
#define IPC_RPC_MAX_DATA_LEN 65472u /* IPC's largest payload less the RPC header */
#define IPC_RPC_MOD_ID 0xC00C0000u  /* module identifier of RPC's own allocations */

/* usMsgType. */
#define IPC_RPC_MSG_NEW 0u         /* as allocated */
#define IPC_RPC_MSG_REQUEST 1u     /* a call */
#define IPC_RPC_MSG_REPLY 2u       /* an answer with data */
#define IPC_RPC_MSG_REPLY_EMPTY 3u /* an answer without data */
#define IPC_RPC_MSG_NOT_REG 4u     /* the called module is not registered */

/* The RPC header, 24 bytes: 0 usMsgType, 2 ucUserFlag, 3 ucHeadFlag, 4 ulSeq, 8 ulSrcMod, 12 ulDstMod,
 * 16 reserved (8). Multi-byte fields are in network byte order at all times, also after delivery. A
 * request names the calling module in ulSrcMod and the called one in ulDstMod; a reply swaps them and
 * keeps the request's ulSeq and ucUserFlag. */
typedef struct IPC_RPC_MSG_HEAD_S {
    u16 usMsgType;
    u8 ucUserFlag; /* the caller's byte, carried by every reply */
    u8 ucHeadFlag; /* 1 from allocation */
    u32 ulSeq;
    u32 ulSrcMod;
    u32 ulDstMod;
    u8 aucReserved[8];
} IPC_RPC_MSG_HEAD_S;

/* ===================================================================================================== */
/* Modules.                                                                                              */
/* ===================================================================================================== */

#define IPC_RPC_MODE_QUEUE 1u    /* requests go into the module's platform queue, then an event to its task */
#define IPC_RPC_MODE_CALLBACK 2u /* the module's callback is called on the receive task "RPCR" */

/* Callback of a callback-mode module, called on "RPCR", one call at a time. ulSrcNode and ulSrcMod name
 * the caller; pReq / ulReqLen are the request's data, valid during the call only (do not release or keep
 * them). To answer with data, set *ppRsp to a message from IPC_RPC_AllocMsg_X and *pulRspLen to its data
 * length: RPC sends it and owns it from then on. Leaving *ppRsp null (as preset) answers without data.
 * The result is ignored. A callback must not call IPC_RPC_SyncCall: "RPCR" delivers the replies, so such
 * a call can only time out. */
typedef u32 (*IPC_RPC_CALLBACK_PF)(u32 ulSrcNode, u32 ulSrcMod, void *pReq, u32 ulReqLen, void **ppRsp, u32 *pulRspLen);

/* What a queue-mode module reads from its queue (one record of four 64-bit words). The module's task owns
 * the request from then on and must answer it with IPC_RPC_SendAckMsg(reply, length, ulData, ulSrcNode),
 * which also releases it. */
#define IPC_RPC_DELIVER_MSG_TYPE 0x1111u
typedef struct IPC_RPC_DELIVER_MSG_S {
    u64 ulMsgType; /* IPC_RPC_DELIVER_MSG_TYPE */
    u64 ulData;    /* the request's data pointer */
    u64 ulDataLen; /* its length */
    u64 ulSrcNode; /* the caller's node, to be given back to IPC_RPC_SendAckMsg */
} IPC_RPC_DELIVER_MSG_S;

/* Starts RPC, once per process, after IPC_Init and before any call: claims IPC channel 0 in callback
 * mode and creates the receive task and its queue, both named "RPCR". The registry is emptied each time
 * this runs (registrations made before are lost). Returns IPC_RPC_OK; IPC_Create's status when channel 0
 * cannot be claimed (2 before IPC_Init, 11 on a second call); the platform's status when the task or the
 * queue cannot be created (nothing is undone: channel 0 stays claimed). */
ZOL_EXPORT u32 IPC_RPC_Init(void);

/* Registers module ulModId. ulMode IPC_RPC_MODE_CALLBACK needs pfCallback; IPC_RPC_MODE_QUEUE needs a
 * non-zero ulQueId, and an event when a task is given (task 0 with event 0 is allowed). All arguments
 * are stored whatever the mode. A module cannot be removed. Returns IPC_RPC_OK; IPC_RPC_ERR_PARAM for a
 * mode other than 1 or 2 or missing arguments; IPC_RPC_ERR_EXIST when the id is taken (the existing
 * registration is kept); IPC_RPC_ERR_NO_MEMORY. */
ZOL_EXPORT u32 IPC_RPC_RegisterEnhance(u32 ulModId, IPC_RPC_CALLBACK_PF pfCallback, u32 ulQueId, u32 ulMode,
                                       u32 ulTaskId, u32 ulEvent);
/* IPC_RPC_RegisterEnhance(ulModId, pfCallback, 0, IPC_RPC_MODE_CALLBACK, 0, 0). */
ZOL_EXPORT u32 IPC_RPC_Register(u32 ulModId, IPC_RPC_CALLBACK_PF pfCallback);
/* IPC_RPC_RegisterEnhance(ulModId, pfCallback, ulQueId, ulMode, 0, 0). */
ZOL_EXPORT u32 IPC_RPC_RegisterEx(u32 ulModId, IPC_RPC_CALLBACK_PF pfCallback, u32 ulQueId, u32 ulMode);

/* ===================================================================================================== */
/* Messages, calls and answers.                                                                          */
/* ===================================================================================================== */

/* A message with ulLen data bytes (1..IPC_RPC_MAX_DATA_LEN), owned by the caller; returns the data
 * pointer or null (length 0 or too large, no memory). The data is not cleared. ulModId, pcFuncName and
 * ulLine tag the block for allocation tracking. */
ZOL_EXPORT void *IPC_RPC_AllocMsg_X(u32 ulLen, u32 ulModId, const char *pcFuncName, u32 ulLine);

/* Releases a message by its data pointer (a reply handed out by IPC_RPC_SyncCall, or an allocated message
 * never sent). Null is ignored. A message whose type reads above 4 is not an RPC message: it is counted,
 * logged and left alone. */
ZOL_EXPORT void IPC_RPC_FreeMsg(void *pMsg);

/* Calls module ulDstMod on node ulDstNode (only the own node is reachable) on behalf of the registered
 * module ulSrcMod and blocks until the answer or the time-out. pReq / ulReqLen are the request (a data
 * pointer from IPC_RPC_AllocMsg_X and its length); ucFlag travels in the header and comes back in the
 * answer; ulTimeout is handed to the platform's semaphore wait (milliseconds; 0 waits for ever).
 * The request is consumed in every outcome except a null pReq.
 * Outputs: ppRsp and pulRspLen are optional (pulRspLen may be given alone, ppRsp not). On a data answer
 * *ppRsp is its data pointer, owned by the caller (release it with IPC_RPC_FreeMsg), and *pulRspLen its
 * length; an answer without data, or from an unregistered module, gives null and 0. On other results
 * the outputs are not written.
 * Returns IPC_RPC_OK when answered; IPC_RPC_ERR_PARAM for a null pReq, length 0 or ppRsp without
 * pulRspLen; IPC_RPC_ERR_NO_SRC when ulSrcMod is not registered; IPC_RPC_ERR_NO_MEMORY when the call
 * cannot be set up; IPC_Send's status when the request is refused; the platform's wait status when no
 * answer came in time (an answer that arrives later is released); IPC_RPC_ERR_NOT_REG when ulDstMod is
 * not registered and ppRsp was given (IPC_RPC_OK without ppRsp). */
ZOL_EXPORT u32 IPC_RPC_SyncCall(u32 ulSrcMod, u32 ulDstNode, u32 ulDstMod, u8 ucFlag, void *pReq, u32 ulReqLen,
                                void **ppRsp, u32 *pulRspLen, u32 ulTimeout);

/* Answers the request pReq (the data pointer of a record read from a queue-mode module's queue) with the
 * message pRsp of ulRspLen data bytes, or without data when pRsp is null, to node ulDstNode (the record's
 * ulSrcNode). Consumes both pRsp and pReq in every outcome; a null pReq only releases pRsp. */
ZOL_EXPORT void IPC_RPC_SendAckMsg(void *pRsp, u32 ulRspLen, void *pReq, u32 ulDstNode);

ZOL_EXTERN_C_END

#endif /* ZOL_RPC_H */
