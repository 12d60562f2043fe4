/* The platform's singly linked list: circular, with a sentinel head node embedded in the list record. */
#ifndef RUK_SLL_H
#define RUK_SLL_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct RUK_SLL_NODE_S {
    struct RUK_SLL_NODE_S *pNext; /* next node; the last node points back at the head */
    void *pData;
} RUK_SLL_NODE_S;

/* Empty list: stHead.pNext == &stHead, pTail == &stHead, ulCount == 0. */
typedef struct {
    RUK_SLL_NODE_S stHead;
    RUK_SLL_NODE_S *pTail;
    u32 ulCount;
} RUK_SLL_S;

/* Unlinks pstNode from the list, keeping pTail and ulCount right; the node itself is not freed.
 * RUK_ERR_PARAM for null arguments or the head itself; RUK_ERR_NOT_FOUND when the node is not in the list. */
u32 RUK_SllDeleteSafe(RUK_SLL_S *pstList, RUK_SLL_NODE_S *pstNode);

#ifdef __cplusplus
}
#endif

#endif /* RUK_SLL_H */
