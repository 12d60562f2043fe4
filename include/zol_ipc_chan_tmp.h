/* Initialisation, channels, sending and delivery of IPC (to be merged into zol_ipc.h). Plain C. */
#ifndef ZOL_IPC_CHAN_TMP_H
#define ZOL_IPC_CHAN_TMP_H

#include "zol_ipc.h"

ZOL_EXTERN_C_BEGIN

/* ===================================================================================================== */
/* Initialisation, node registry and channels.                                                           */
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

#endif /* ZOL_IPC_CHAN_TMP_H */
