/* The descriptor service: poll sets over Linux epoll. Results are negative on failure, and
 * MESH_GetErrorNo then tells the error number of the calling thread's last failure. */
#ifndef MESH_EPOLL_H
#define MESH_EPOLL_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Event bits, with the values of Linux. */
#define MESH_EPOLLIN 0x001u
#define MESH_EPOLLPRI 0x002u
#define MESH_EPOLLOUT 0x004u
#define MESH_EPOLLERR 0x008u
#define MESH_EPOLLHUP 0x010u

/* Operations of MESH_EpollCtl. */
#define MESH_EPOLL_CTL_ADD 0
#define MESH_EPOLL_CTL_MOD 1
#define MESH_EPOLL_CTL_DEL 2

typedef struct {
    u32 ulEvents; /* mask registered, or events that fired */
    void *pData;  /* the caller's value, returned unchanged by the wait */
} MESH_EPOLL_EVENT_S;

/* A new poll set (close-on-exec), or negative. */
s32 MESH_EpollCreate(void);
/* Adds, modifies or removes iFd in the poll set; pstEvent may be null for removal. 0 or negative. */
s32 MESH_EpollCtl(s32 iEpFd, s32 iOp, s32 iFd, MESH_EPOLL_EVENT_S *pstEvent);
/* Waits up to iTimeoutMs (negative: for ever) and fills at most iMax records; returns their number (0 on
 * time-out) or negative. An interrupted wait returns 0. */
s32 MESH_EpollWait(s32 iEpFd, MESH_EPOLL_EVENT_S *pstEvents, s32 iMax, s32 iTimeoutMs);
/* Closes a descriptor: 0 or negative. */
s32 MESH_Close(s32 iFd);
/* Error number of the calling thread's last failed MESH_ call. */
s32 MESH_GetErrorNo(void);

#ifdef __cplusplus
}
#endif

#endif /* MESH_EPOLL_H */
