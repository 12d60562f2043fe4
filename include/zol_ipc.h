/* Inter-process communication of libzol_comm: messages with their 40-byte header, message contexts and
 * pending lists, the poll task that watches descriptors. Plain C. */
#ifndef ZOL_IPC_H
#define ZOL_IPC_H

#include "zol_types.h"

ZOL_EXTERN_C_BEGIN

/* ===================================================================================================== */
/* Status codes shared by the IPC operations (0 is success).                                             */
/* ===================================================================================================== */

#define IPC_OK 0u
#define IPC_ERR_ALREADY 1u          /* already done, or table full */
#define IPC_ERR_NOT_INIT 2u         /* not initialised, or record missing */
#define IPC_ERR_PARAM 3u            /* null argument, process index above 23 */
#define IPC_ERR_UNREACHABLE 5u      /* destination not reachable, or multicast asked */
#define IPC_ERR_MSG 6u              /* null message or length 0 */
#define IPC_ERR_CHAN 7u             /* channel above 47 */
#define IPC_ERR_NO_CALLBACK 8u      /* callback mode without callback */
#define IPC_ERR_NO_QUEUE 9u         /* queue mode without queue */
#define IPC_ERR_MODE 10u            /* unknown channel mode */
#define IPC_ERR_CHAN_REGISTERED 11u /* channel already registered */
#define IPC_ERR_NO_MEMORY 12u       /* out of memory */
#define IPC_ERR_CHAN_NOT_REG 13u    /* channel not registered */
#define IPC_ERR_MSG_OWNER 15u       /* message not owned by the caller, or too long */
#define IPC_ERR_DST_PROC 16u        /* destination process index above 23 */
#define IPC_ERR_NO_POLL_SET 22u     /* poll set not created */
#define IPC_ERR_EPOLL_ADD 28u       /* descriptor not added to the poll set */
#define IPC_ERR_SYNC_ON_POLL 32u    /* synchronous send on the poll task */
#define IPC_ERR_NO_POLL_TASK 33u    /* poll task not created */

/* ===================================================================================================== */
/* Messages: one block, a 40-byte header followed by the payload. Users hold the payload pointer; the    */
/* header lies in the 40 bytes just below it.                                                            */
/* ===================================================================================================== */

#define IPC_MSG_HEAD_LEN 40u
#define IPC_MAX_MSG_LEN 65496u /* largest payload: header + payload is exactly 64 KiB */
#define IPC_MOD_ID 0xC00B0000u /* module identifier of IPC's own allocations */
#define IPC_MAX_CHAN_NUM 48u   /* channels 0..47; 48 is the "invalid channel" value of the getters */
#define IPC_MAX_PROC_NUM 24u   /* process indices 0..23 (bits 12..19 of a node id) */
#define IPC_INVALID_NODE_ID 0xFFFFFFFFu

/* Ownership mark (ucMemFlag). */
#define IPC_MEM_USED 1u       /* held by a user */
#define IPC_MEM_SENDING 0x32u /* '2': inside IPC_Send */
#define IPC_MEM_FREED 0x66u   /* 'f': released */

/* ucSendFlag: bit 7 says a message context is attached; bits 0..6 are the delivery kind (1: own node). */
#define IPC_SEND_FLAG_CTX_ATTACHED 0x80u
#define IPC_SEND_KIND_MASK 0x7Fu
/* ucCtxFlag: IPC_CTX_FLAG_NONE from allocation and after a context is detached, '<' while attached. */
#define IPC_CTX_FLAG_NONE 1u
#define IPC_CTX_FLAG_ATTACHED 0x3Cu

struct IPC_MSG_CTX_S;

/* The header, 40 bytes, byte-packed because the context pointer sits unaligned at offset 30.
 * Offsets: 0 ulSrcNodeId, 4 ulDstNodeId, 8 usSrcChanId, 10 usDstChanId, 12 ulMsgLen, 16 ucMemFlag,
 * 17 reserved (11), 28 ucSendFlag, 29 ucCtxFlag, 30 pstMsgCtx (8), 38 reserved (2).
 * The five routing fields are in network byte order from the moment IPC_Send fills them until the message
 * is handed to a channel, and in host order in every message a user receives. */
typedef struct __attribute__((packed)) IPC_MSG_HEAD_S {
    u32 ulSrcNodeId;
    u32 ulDstNodeId;
    u16 usSrcChanId;
    u16 usDstChanId;
    u32 ulMsgLen; /* payload bytes, header not included */
    u8 ucMemFlag; /* ownership mark, IPC_MEM_* */
    u8 aucReserved1[11];
    u8 ucSendFlag;
    u8 ucCtxFlag;
    struct IPC_MSG_CTX_S *pstMsgCtx; /* attached context or null (unaligned) */
    u8 aucReserved2[2];
} IPC_MSG_HEAD_S;

/* A message of ulLen payload bytes (1..65,496), owned by the caller (mark IPC_MEM_USED); header zeroed
 * apart from the marks, payload not cleared. ulModId is the caller's module (accounting only); pcFuncName
 * and ulLine tag the block for allocation tracking. Null when ulLen is out of range or memory runs out. */
ZOL_EXPORT void *IPC_AllocMsg_X(u32 ulLen, u32 ulModId, const char *pcFuncName, u32 ulLine);

/* Releases a message owned by the caller; any attached context is detached and released first. A message
 * already released, one being sent or one with an unknown mark is not released: the attempt is counted
 * (and, except while sending, logged) and the block is left as it is. Null is ignored. */
ZOL_EXPORT void IPC_FreeMsg(void *pMsg);

/* Header fields as stored (no byte-order conversion). Node ids are IPC_INVALID_NODE_ID and channels
 * IPC_MAX_CHAN_NUM for a null message. */
ZOL_EXPORT u32 IPC_GetSrcNodeId(void *pMsg);
ZOL_EXPORT u32 IPC_GetDstNodeId(void *pMsg);
ZOL_EXPORT u32 IPC_GetSrcChanId(void *pMsg);
ZOL_EXPORT u32 IPC_GetDstChanId(void *pMsg);

/* Write both fields as given (no byte-order conversion); a null message is ignored. IPC_Send overwrites
 * them from its own arguments. */
ZOL_EXPORT void IPC_SetSrcAndDstNodeId(void *pMsg, u32 ulSrcNode, u32 ulDstNode);
ZOL_EXPORT void IPC_SetSrcAndDstChannelId(void *pMsg, u16 usSrcChan, u16 usDstChan);

/* With a context attached, copies the status byte of each of its destinations into pucStatus[0..n-1]
 * (the buffer must hold one byte per destination); without one writes nothing. IPC_ERR_PARAM for a null
 * message, otherwise IPC_OK. */
ZOL_EXPORT u32 IPC_GetSendStatus(u8 *pucStatus, void *pMsg);

/* ===================================================================================================== */
/* Message contexts and pending lists.                                                                   */
/* ===================================================================================================== */

#define IPC_MSG_CTX_MAGIC 0x2E32C73Au

/* A pending list: circular, singly linked, with a sentinel head embedded in its owner. It has the layout
 * of the platform's singly linked list, whose removal operates on it. Empty: stHead.pNext == &stHead,
 * pTail == &stHead, ulCount == 0. List nodes are 16-byte blocks owned by the list. */
typedef struct IPC_MSG_LIST_NODE_S {
    struct IPC_MSG_LIST_NODE_S *pNext; /* the last node points back at the head */
    void *pData;
} IPC_MSG_LIST_NODE_S;

typedef struct IPC_MSG_LIST_S {
    IPC_MSG_LIST_NODE_S stHead;
    IPC_MSG_LIST_NODE_S *pTail;
    u32 ulCount;
} IPC_MSG_LIST_S;

/* One destination entry of a context, 8 bytes: byte 4 is that destination's send status. */
typedef struct IPC_MSG_CTX_DST_S {
    u8 aucReserved1[4];
    u8 ucSendStatus;
    u8 aucReserved2[3];
} IPC_MSG_CTX_DST_S;

/* The rendezvous of a task that sends and waits with the task that receives the answer. The head is 40
 * bytes and is followed in the same block by usDstNum IPC_MSG_CTX_DST_S entries. */
typedef struct IPC_MSG_CTX_S {
    u32 ulMagic;    /* IPC_MSG_CTX_MAGIC while live, 0 once deleted */
    void *pMsg;     /* the creator's message (RPC: null); the receiver leaves the answer here */
    u32 ulSemId;    /* semaphore "IPCS", 0 when created without one */
    u32 ulSeqOrLen; /* owner's sequence number; overwritten with the answer's length */
    u16 usDstNum;   /* destination entries following the head */
    u8 aucReserved[14];
} IPC_MSG_CTX_S;

/* A zeroed context with usDstNum destination entries, with a fresh semaphore when ulWithSem is non-zero,
 * appended to pstList when ulInsert is non-zero. Null on failure, with nothing left behind (no block,
 * no semaphore, no list node). The caller owns the context and deletes it with IPC_DeleteMsgCtx after
 * removing it from its list. */
ZOL_EXPORT IPC_MSG_CTX_S *IPC_ProcCreateCtx(u32 ulWithSem, void *pMsg, u16 usDstNum, IPC_MSG_LIST_S *pstList,
                                            u32 ulInsert);

/* Deletes the semaphore (when ulWithSem is 1 and the context has one), clears the magic and releases the
 * block. Does not unlink the context from a list: remove it first. Null is ignored. */
ZOL_EXPORT void IPC_DeleteMsgCtx(IPC_MSG_CTX_S *pstCtx, u32 ulWithSem);

/* Appends pData at the end of the list. IPC_OK, IPC_ERR_NO_MEMORY when no list node can be allocated, or
 * IPC_ERR_PARAM for a null list. */
ZOL_EXPORT u32 IPC_InsertMsgCtx(IPC_MSG_LIST_S *pstList, void *pData);

/* Unlinks and releases the first list node whose pData is pData; nothing happens when there is none. The
 * element itself is left to its owner. */
ZOL_EXPORT void IPC_RemoveMsgCtx(IPC_MSG_LIST_S *pstList, void *pData);

/* Unlinks one list node and releases it (the head is never released). A node the platform cannot unlink
 * is counted, logged and left as it is. */
ZOL_EXPORT void IPC_RemoveNodeFromList(IPC_MSG_LIST_S *pstList, IPC_MSG_LIST_NODE_S *pstNode);

/* ===================================================================================================== */
/* Poll task "IPCP" and descriptor events.                                                               */
/* ===================================================================================================== */

#define IPC_EPOLL_MAGIC 0x49504345u /* 'I' 'P' 'C' 'E' */

struct IPC_EPOLL_HANDLER_S;
/* Called on the poll task with the registration record and the events that fired; the result is ignored. */
typedef u32 (*IPC_EPOLL_HANDLER_PF)(struct IPC_EPOLL_HANDLER_S *pstRec, u32 ulEvents);

/* Registration record: ties a descriptor to its handler; travels as the user data of the poll event. */
typedef struct IPC_EPOLL_HANDLER_S {
    u32 ulMagic;    /* IPC_EPOLL_MAGIC */
    u32 ulUserData; /* the caller's value, not interpreted */
    u32 ulFd;
    u32 ulEvents; /* mask registered */
    IPC_EPOLL_HANDLER_PF pfHandler;
} IPC_EPOLL_HANDLER_S;

/* Creates the poll set and the task "IPCP" that waits on it and calls the handlers. Called once by the
 * layer's initialisation. IPC_OK; IPC_ERR_NO_POLL_SET when the poll set cannot be created;
 * IPC_ERR_NO_POLL_TASK when the task cannot be created (the poll set is closed again). */
ZOL_EXPORT u32 IPC_PollTaskCreate(void);

/* Watches ulFd for ulEvents (MESH_EPOLL* bits); pfHandler runs on "IPCP" each time some fire. IPC_OK;
 * IPC_ERR_NO_MEMORY when the record cannot be allocated; IPC_ERR_EPOLL_ADD when the poll set refuses the
 * descriptor. The descriptor stays the caller's. A registration without a handler is removed the first
 * time its descriptor fires: the descriptor is closed and the record released. */
ZOL_EXPORT u32 IPC_EpollAddFd(u32 ulFd, u32 ulUserData, IPC_EPOLL_HANDLER_PF pfHandler, u32 ulEvents);

/* Stops watching ulFd. Neither closes the descriptor nor releases the record: that is the handler's
 * business (it is usually the handler that stops the watch). */
ZOL_EXPORT void IPC_EpollDelFd(u32 ulFd);

/* ===================================================================================================== */
/* Initialisation, channels, sending and delivery: added with the layer's initialisation.                */
/* ===================================================================================================== */

ZOL_EXTERN_C_END

#endif /* ZOL_IPC_H */
