// Stand-in removal from the platform's circular singly linked list.
#include "ruk_sll.h"

#include "plat_fault.h"

extern "C" u32 RUK_SllDeleteSafe(RUK_SLL_S *pstList, RUK_SLL_NODE_S *pstNode) {
    if (plat::FaultHit("RUK_SllDeleteSafe")) {
        return RUK_ERR_INJECTED;
    }
    if (pstList == nullptr || pstNode == nullptr || pstNode == &pstList->stHead) {
        return RUK_ERR_PARAM;
    }
    // A singly linked list has no back link, so the predecessor is found by walking from the head.
    // The walk is bounded by ulCount so that a node of another list (or a damaged ring) cannot make
    // it loop for ever.
    RUK_SLL_NODE_S *pPrev = &pstList->stHead;
    for (u32 i = 0; i < pstList->ulCount && pPrev->pNext != nullptr && pPrev->pNext != &pstList->stHead; ++i) {
        if (pPrev->pNext == pstNode) {
            pPrev->pNext = pstNode->pNext;
            if (pstList->pTail == pstNode) {
                pstList->pTail = pPrev;
            }
            --pstList->ulCount;
            pstNode->pNext = nullptr;
            return RUK_OK;
        }
        pPrev = pPrev->pNext;
    }
    return RUK_ERR_NOT_FOUND;
}
