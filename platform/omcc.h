/* The OM client: a process offers diagnostic commands to the OM framework (the daemon zol_omd here)
 * over a Unix-domain stream socket, and answers each request by printing on a borrowed terminal.
 * Request documents are YANG-modelled data (JSON or XML), parsed and queried through this header.
 *
 * Socket: the path in the environment variable ZOL_OM_SOCKET, else OMCC_DEFAULT_SOCKET.
 * YANG modules: the directory in ZOL_YANG_DIR, else the yang/ directory of the source tree the platform
 * was built from (compiled in). The modules korvex-diagnose and korvex-diagnose-zol are loaded.
 *
 * Wire format: every message is one frame, a 16-byte header followed by ulLen payload bytes, all header
 * words in network byte order (see OMCC_FRAME_HEAD_S and omcc_frame.h). Frames:
 *   HELLO     client -> daemon   ulArg = process id, payload = client name
 *   SUBSCRIBE client -> daemon   payload = subscribed path (no NUL)
 *   REQUEST   anyone -> daemon   ulId = requester's id, ulArg = target process id or 0 (route by the
 *                                document), payload = request document
 *             daemon -> client   ulId = daemon's id, ulArg = index of the subscription it matched
 *   OUTPUT    client -> daemon -> requester: ulId, payload = terminal text
 *   END       client -> daemon -> requester: ulId, ulArg = the request handler's result
 *   ERROR     daemon -> requester: ulId, ulArg = OMCC_FAIL_*, payload = text for the user
 * A payload above OMCC_FRAME_MAX_PAYLOAD or an unknown type is a protocol error: the receiver drops the
 * connection. */
#ifndef OMCC_H
#define OMCC_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define OMCC_DEFAULT_SOCKET "/tmp/zol_om.sock"
#define OMCC_SOCKET_ENV "ZOL_OM_SOCKET"
#define OMCC_YANG_DIR_ENV "ZOL_YANG_DIR"

/* Status codes of the omcc_ calls that return one (0 is success). */
#define OMCC_OK 0
#define OMCC_ERR_PARAM 1     /* null or malformed argument */
#define OMCC_ERR_NOT_FOUND 2 /* the leaf or node asked for is not in the document */
#define OMCC_ERR_STATE 3     /* the call does not fit the client's state (not connected, ...) */
#define OMCC_ERR_IO 4        /* the socket failed or the peer hung up */
#define OMCC_ERR_PROTOCOL 5  /* a malformed frame arrived */
#define OMCC_ERR_INJECTED 6  /* failure forced by PLAT_FaultInject */

/* Kind value of a request subscription (the only kind this client knows). */
#define OMCC_SUB_KIND_REQUEST 2u
/* Longest subscription path and client name accepted. */
#define OMCC_PATH_MAX 512u
#define OMCC_NAME_MAX 64u

/* Frame layer (shared with the daemon and the diagnostic command). */
#define OMCC_FRAME_HEAD_LEN 16u
#define OMCC_FRAME_MAX_PAYLOAD (1024u * 1024u)
enum {
    OMCC_FRAME_HELLO = 1,
    OMCC_FRAME_SUBSCRIBE = 2,
    OMCC_FRAME_REQUEST = 3,
    OMCC_FRAME_OUTPUT = 4,
    OMCC_FRAME_END = 5,
    OMCC_FRAME_ERROR = 6,
};
/* Reasons carried by an ERROR frame. */
enum {
    OMCC_FAIL_NO_TARGET = 1, /* no connected process subscribed what the request names */
    OMCC_FAIL_TIMEOUT = 2,   /* the process did not end the request in time */
    OMCC_FAIL_GONE = 3,      /* the process hung up before ending the request */
    OMCC_FAIL_BUSY = 4,      /* the daemon cannot take more requests */
};

/* Frame header as it travels (all words big-endian). Size 16. */
typedef struct {
    u32 ulLen;   /* payload bytes that follow, at most OMCC_FRAME_MAX_PAYLOAD */
    u16 usType;  /* OMCC_FRAME_* */
    u16 usFlags; /* 0 */
    u32 ulId;    /* request id (REQUEST, OUTPUT, END, ERROR), else 0 */
    u32 ulArg;   /* per type, see above */
} OMCC_FRAME_HEAD_S;

typedef struct OmccClient OMCC_CLIENT_S; /* opaque */
typedef struct OmccDoc OMCC_DOC_S;       /* opaque: a parsed request document */
typedef struct OmccNode OMCC_NODE_S;     /* opaque: a node of a document, valid while the document lives */
typedef struct OmccTty OMCC_TTY_S;       /* opaque: the terminal of one request */

/* A request as the client hands it to a handler: the document bytes, valid during the handler only. */
typedef struct {
    const u8 *pucData;
    size_t zLen;
} OMCC_BYTES_S;

/* Request handler: pOmCtx identifies the request (for omcc_tty_borrow); its result travels back to the
 * requester in the END frame. Called on the thread that runs omcc_run. */
typedef u32 (*OMCC_REQUEST_PF)(void *pOmCtx, const OMCC_BYTES_S *pstRequest);

/* Subscription record as omcc_subscribe takes it. Size 48 on LP64. */
typedef struct {
    const char *pcPath;         /* path of the command node, at most OMCC_PATH_MAX characters */
    u64 ullKind;                /* OMCC_SUB_KIND_REQUEST */
    OMCC_REQUEST_PF pfnRequest; /* called for every request routed to this path */
    u8 aucReserved[24];         /* zero */
} OMCC_SUBSCRIPTION_S;

/* A new client named pcName (copied; at most OMCC_NAME_MAX characters) of kind ulKind (accepted and
 * kept; 2 for a command server). Null for a null or too long name, out of memory, or injection. The
 * client lives until the process ends (there is no delete). */
OMCC_CLIENT_S *omcc_client_new(const char *pcName, u32 ulKind);

/* Adds a subscription. The path is copied and the handler kept; the record itself may go away. The
 * path is announced to the framework at every omcc_activate, so subscriptions made while connected
 * take effect at the next connection. 0, or OMCC_ERR_PARAM (null client or record, empty or too long
 * path, null handler, kind other than OMCC_SUB_KIND_REQUEST), OMCC_ERR_INJECTED. */
s32 omcc_subscribe(OMCC_CLIENT_S *pstClient, const OMCC_SUBSCRIPTION_S *pstSub);

/* Connects to the framework's socket and introduces the client (HELLO). iFlags must be 0. Returns the
 * connection's descriptor (owned by the client: close it with omcc_disconnect only) or a negative
 * value: -OMCC_ERR_PARAM, -OMCC_ERR_STATE (already connected), -OMCC_ERR_IO (no daemon listening),
 * -OMCC_ERR_INJECTED. Blocks for the connect and the first write only. */
s32 omcc_connect(OMCC_CLIENT_S *pstClient, s32 iFlags);

/* Announces every subscription on the connection. The arguments after the client must be 0. 0, or
 * OMCC_ERR_PARAM, OMCC_ERR_STATE (not connected), OMCC_ERR_IO, OMCC_ERR_INJECTED. */
s32 omcc_activate(OMCC_CLIENT_S *pstClient, s32 iArg1, s32 iArg2, s32 iArg3);

/* Processes what has arrived on the connection without waiting for more: every complete REQUEST frame
 * is handed to its subscription's handler, then answered with END; a partial frame is kept for the
 * next call. Returns the number of requests served (0 or more), or a negative value when the peer hung
 * up (-OMCC_ERR_IO), a malformed frame arrived (-OMCC_ERR_PROTOCOL; the connection is unusable), the
 * client is not connected (-OMCC_ERR_STATE) or on injection. iFlags must be 0. */
s32 omcc_run(OMCC_CLIENT_S *pstClient, s32 iFlags);

/* Closes the connection, if any, and forgets partial input. Subscriptions stay. Null is ignored. */
void omcc_disconnect(OMCC_CLIENT_S *pstClient);

/* Parses a request document strictly against the loaded YANG modules: JSON, or XML when its first
 * non-blank byte is '<'. Unknown nodes, wrong types and unknown modules are refused. pSchema must be
 * null (the modules of ZOL_YANG_DIR). Returns a document the caller releases with omcc_free_doc, or null
 * (also when the modules cannot be loaded, or on injection). */
OMCC_DOC_S *omcc_parse_bytes(void *pSchema, const OMCC_BYTES_S *pstBytes);

/* First top-level node of a document, null for a null or empty document. */
OMCC_NODE_S *omcc_doc_root(OMCC_DOC_S *pstDoc);

/* A node by path: an absolute path ("/module:node/.../list[key=value]") searched in the whole document
 * of pstNode, or a relative one (a child name such as "get-ipc-info") below pstNode. Null when there is
 * no such node, the path is not valid for the modules, or an argument is null. */
OMCC_NODE_S *omcc_find_node(OMCC_NODE_S *pstNode, const char *pcPath);

/* Text of the leaf pcLeaf below pstNode: 0 and *ppcText (valid while the document lives), or
 * OMCC_ERR_NOT_FOUND when the leaf is missing, OMCC_ERR_PARAM for a null argument; *ppcText is then
 * left unchanged. */
s32 omcc_parse_str(OMCC_NODE_S *pstNode, const char *pcLeaf, const char **ppcText);

/* Releases a document and every node and text taken from it. Null is ignored. */
void omcc_free_doc(OMCC_DOC_S *pstDoc);

/* The terminal of the request pOmCtx (the handler's first argument), for the duration of the handler.
 * iMode must be 1 (text). Null for a null or foreign context, a terminal already borrowed, or injection. */
OMCC_TTY_S *omcc_tty_borrow(void *pOmCtx, s32 iMode);

/* Prints formatted text on the terminal; the text is sent as OUTPUT frames (long texts are split).
 * Returns the number of characters printed, or a negative value for a null terminal or a failed send. */
s32 omcc_tty_printf(OMCC_TTY_S *pstTty, const char *pcFormat, ...) __attribute__((format(printf, 2, 3)));

/* Gives the terminal back. Null is ignored. */
void omcc_tty_return(OMCC_TTY_S *pstTty);

#ifdef __cplusplus
}
#endif

#endif /* OMCC_H */
