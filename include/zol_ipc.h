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
/* Initialisation, node registry and channels.                                                          */
/* ===================================================================================================== */

/* Node id: bits 0..11 location index, bits 12..19 process index (0..23), bits 20..31 the caller's. */
#define IPC_NODE_LOC_MASK 0xFFFu
#define IPC_NODE_PROC_SHIFT 12u
#define IPC_NODE_PROC_MASK 0xFFu
#define IPC_NODE_GROUP_NUM 4096u  /* location indices */
#define IPC_CONN_NOTIFY_NUM 128u  /* connection-notify registrations */
#define IPC_SEND_WINDOW 0x7FEC00u /* 128 messages of IPC_MAX_MSG_LEN bytes */
#define IPC_ACK_QUE_LEN_MAX 5000u

/* Channel modes of IPC_Create. */
#define IPC_CHAN_MODE_QUEUE 1u    /* notifications are written into the owner's platform queue */
#define IPC_CHAN_MODE_CALLBACK 2u /* notifications call the owner's callback on the sending task */

/* Notification kinds. */
#define IPC_NOTIFY_RECV 1u        /* a message arrived on this channel */
#define IPC_NOTIFY_SEND_FINISH 2u /* a message this channel sent is handed back */

/* Send flags of IPC_Send (other bits are ignored). */
#define IPC_SEND_FLAG_SYNC 0x4u       /* keep the sent message; refused on the poll task */
#define IPC_SEND_FLAG_MULTICAST 0x10u /* not supported: refused */

/* Callback of a callback-mode channel, called on the sending task inside IPC_Send. For IPC_NOTIFY_RECV
 * ulOwnChan is the destination channel and the peer is the source; for IPC_NOTIFY_SEND_FINISH ulOwnChan
 * is the source channel and the peer is the destination. The callback owns pMsg (payload pointer, header
 * fields in host order) and releases it with IPC_FreeMsg, possibly before returning. The result is
 * ignored. */
typedef u32 (*IPC_CHAN_CALLBACK_PF)(u32 ulNotifyType, u32 ulOwnChan, u32 ulPeerNode, u32 ulPeerChan, void *pMsg,
                                    u32 ulLen);

/* What a queue-mode channel reads from its platform queue (one record of four 64-bit words). The reader
 * owns the message at ulMsgAddr (a payload pointer, header fields in host order) and releases it. */
typedef struct IPC_CHAN_NOTIFY_MSG_S {
    u64 ulNotifyType; /* IPC_NOTIFY_RECV or IPC_NOTIFY_SEND_FINISH */
    u64 ulMsgAddr;    /* payload pointer */
    u64 ulMsgLen;     /* payload length */
    u64 ulReserved;   /* 0 */
} IPC_CHAN_NOTIFY_MSG_S;

/* Connection-notify callback: stored by IPC_RegConnectNofity. This library connects to no other node and
 * never calls it; a connection layer would report (node id, link status: 0 down, 1 up). */
typedef void (*IPC_CONN_NOTIFY_PF)(u32 ulNodeId, u32 ulLinkStatus);

/* Makes this process the node ulNodeId: node registry with the own node's record, channel table, poll
 * task "IPCP" and the OM diagnostic service. Once per process. IPC_OK; IPC_ERR_ALREADY after a successful
 * call; IPC_ERR_PARAM for a process index above 23; IPC_ERR_NO_MEMORY (nothing kept); otherwise the sum
 * of the poll-task result (IPC_ERR_NO_POLL_SET or IPC_ERR_NO_POLL_TASK) and the OM service result (1),
 * after which the tables are released again and the call may be repeated. Tasks already started stay.
 * Registrations of IPC_RegConnectNofity made before this call are cleared. */
ZOL_EXPORT u32 IPC_Init(u32 ulNodeId);

/* Registers channel ulChanId (0..47) of the own node: ulMode IPC_CHAN_MODE_QUEUE delivers into the queue
 * ulQueId (created and read by the caller; IPC only writes to it), IPC_CHAN_MODE_CALLBACK calls
 * pfCallback. Checked in this order: IPC_ERR_NOT_INIT, IPC_ERR_CHAN, IPC_ERR_MODE, IPC_ERR_NO_CALLBACK,
 * IPC_ERR_NO_QUEUE, IPC_ERR_CHAN_REGISTERED; every refusal but the first counts IPC_PARAM_ERR. A channel
 * cannot be removed. Belongs to start-up: do not register a channel while another task sends to it. */
ZOL_EXPORT u32 IPC_Create(u32 ulChanId, u32 ulMode, u32 ulQueId, IPC_CHAN_CALLBACK_PF pfCallback);

/* Stores the own node's address (inet_addr of pcIpAddr; text that does not parse gives 255.255.255.255)
 * and port, both in network order. IPC_OK; IPC_ERR_NOT_INIT; IPC_ERR_PARAM for a null text. */
ZOL_EXPORT u32 IPC_SetServerPara(const char *pcIpAddr, u16 usPort);

/* Only the own node is reachable: IPC_OK for it (also before IPC_Init, when the own id is 0); any other
 * node is refused with IPC_ERR_UNREACHABLE and logged. */
ZOL_EXPORT u32 IPC_ConnectDstNode(u32 ulDstNode);

/* Stores pfNotify in the first free of IPC_CONN_NOTIFY_NUM entries. IPC_OK; IPC_ERR_PARAM for null;
 * IPC_ERR_ALREADY when all are taken (counted in IPC_MAX_REGISTER_ERR). Needs no initialisation. */
ZOL_EXPORT u32 IPC_RegConnectNofity(IPC_CONN_NOTIFY_PF pfNotify);

/* 1 when the link to the node is up, otherwise 0 (also before IPC_Init, for a process index above 23,
 * for an unknown node and for the own node). */
ZOL_EXPORT u32 IPC_GetConnectStatus(u32 ulNodeId);

/* Payload bytes that may still be sent to the node within the send window (IPC_SEND_WINDOW for the own
 * node). The result shares its values with the codes IPC_ERR_NOT_INIT (no IPC_Init, unknown node) and
 * IPC_ERR_PARAM (process index above 23). */
ZOL_EXPORT u32 IPC_AllowSndDataMaxLen(u32 ulNodeId);

/* The own node id; 0 before IPC_Init. */
ZOL_EXPORT u32 IPC_GetSelfNodeId(void);

/* Validates only: 1 for a null output, no IPC_Init or ulProcIdx above 23, otherwise 0. Writes nothing. */
ZOL_EXPORT u32 IPC_GetUpNodeByProcess(u32 ulProcIdx, void *pOut1, u8 *pOut2);

/* Group membership is not supported: both return IPC_OK and do nothing. */
ZOL_EXPORT u32 IPC_JoinGroup(u32 ulGroupId, u32 ulChanId);
ZOL_EXPORT u32 IPC_LeaveGroup(u32 ulGroupId, u32 ulChanId);

/* Stores the acknowledgement queue length (1..IPC_ACK_QUE_LEN_MAX; initially 800). IPC_OK, or
 * IPC_ERR_ALREADY (1) for a value out of range, which changes nothing. */
ZOL_EXPORT u32 IPC_SetAckMsgQueLen(u32 ulLen);

/* ===================================================================================================== */
/* Sending and delivery.                                                                                 */
/* ===================================================================================================== */

/* Sends ulLen payload bytes of the message pMsg (payload pointer, owned by the caller, allocated with at
 * least ulLen bytes) from the own channel ulSrcChan to channel ulDstChan of node ulDstNode. Only the own
 * node is reachable. Delivery happens inside the call: a copy goes to the destination channel (its queue
 * or its callback, kind IPC_NOTIFY_RECV), then pMsg itself goes back to the source channel (kind
 * IPC_NOTIFY_SEND_FINISH) unless ulFlag has IPC_SEND_FLAG_SYNC.
 * Results, checked in this order: IPC_ERR_NOT_INIT; IPC_ERR_DST_PROC; IPC_ERR_CHAN (either channel above
 * 47); IPC_ERR_MSG (null message or length 0); IPC_ERR_SYNC_ON_POLL; IPC_ERR_UNREACHABLE (multicast);
 * IPC_ERR_CHAN_NOT_REG (source channel); IPC_ERR_MSG_OWNER (message not owned by a user). These leave
 * pMsg untouched. Then, after the header was filled (network order): IPC_ERR_UNREACHABLE (another node),
 * IPC_ERR_CHAN_NOT_REG (destination channel), IPC_ERR_MSG_OWNER (ulLen above IPC_MAX_MSG_LEN),
 * IPC_ERR_NO_MEMORY (no copy); these count a send failure on the source channel.
 * Ownership: on any non-zero result the caller still owns pMsg. On IPC_OK the source channel owns it,
 * or with IPC_SEND_FLAG_SYNC the caller still does. A hand-over whose queue write fails releases the
 * message concerned, is counted and logged, and IPC_Send still returns IPC_OK. */
ZOL_EXPORT u32 IPC_Send(u32 ulSrcChan, u32 ulDstNode, u32 ulDstChan, u32 ulFlag, void *pMsg, u32 ulLen);

ZOL_EXTERN_C_END

#endif /* ZOL_IPC_H */
