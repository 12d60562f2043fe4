// The wait list's node lists: main nodes per list id, each with its chain of registrations.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "util/waitlist/waitlist_internal.h"

namespace zol::waitlist {

WAITLIST_MAIN_NODE_S *g_pstWaitListHead = nullptr;

namespace {

void LogCheck(const char *pcTag, const char *pcMsg, const char *pcText) {
    ZOL_LOG_MSG(log::kWaitListCheckErr, pcTag, pcMsg, "%s", pcText);
}

} // namespace

// Marks a node dead before releasing it, so a stale pointer to it fails every magic check.
void WaitList_FreeNode(void *pNode, u32 *pulMagic) {
    *pulMagic = 0;
    (void)ZOL_MemFree(pNode, WAITLIST_FILE, __LINE__);
}

MainWalk WaitList_WalkMains(u32 ulListId, WAITLIST_MAIN_NODE_S **ppstMain, WAITLIST_MAIN_NODE_S **ppstPrev,
                            const char *pcTag, const char *pcMsg) {
    *ppstMain = nullptr;
    *ppstPrev = nullptr;
    for (WAITLIST_MAIN_NODE_S *pstMain = g_pstWaitListHead; pstMain != nullptr; pstMain = pstMain->pstNextMain) {
        if (pstMain->ulMagic != WAITLIST_MAGIC) {
            LogCheck(pcTag, pcMsg, "magic num is invalid");
            return MainWalk::kDamaged;
        }
        if (pstMain->ulListId == ulListId) {
            *ppstMain = pstMain;
            return MainWalk::kFound;
        }
        *ppstPrev = pstMain;
    }
    return MainWalk::kMissing;
}

WAITLIST_MAIN_NODE_S *WaitList_FindOrAddMain(u32 ulListId) {
    WAITLIST_MAIN_NODE_S *pstMain = nullptr;
    WAITLIST_MAIN_NODE_S *pstLast = nullptr;
    const MainWalk eWalk = WaitList_WalkMains(ulListId, &pstMain, &pstLast, "RUK_WLAMN", "Magic number error");
    if (eWalk != MainWalk::kMissing) {
        return pstMain; // found, or null for a damaged list
    }
    auto *pstNew = static_cast<WAITLIST_MAIN_NODE_S *>(
        ZOL_MemAlloc(WaitList_ModId(ulListId), sizeof(WAITLIST_MAIN_NODE_S), WAITLIST_FILE, __LINE__));
    if (pstNew == nullptr) {
        LogCheck("RUK_WLAMN", "Malloc memory failed", "point is null");
        return nullptr;
    }
    *pstNew = WAITLIST_MAIN_NODE_S{WAITLIST_MAGIC, ulListId, nullptr, nullptr};
    if (pstLast == nullptr) {
        g_pstWaitListHead = pstNew;
    } else {
        pstLast->pstNextMain = pstNew;
    }
    return pstNew;
}

bool WaitList_AddSub(WAITLIST_MAIN_NODE_S *pstMain, WAITLIST_SUB_NODE_S *pstSub, WAITLIST_PROC_PF pfProc) {
    WAITLIST_SUB_NODE_S *pstLast = nullptr;
    for (WAITLIST_SUB_NODE_S *pstCur = pstMain->pstFirstSub; pstCur != nullptr; pstCur = pstCur->pstNextSub) {
        if (pstCur->ulMagic != WAITLIST_MAGIC) {
            LogCheck("RUK_WLSNI", "Magic number error", "magic num is invalid");
            return false;
        }
        pstLast = pstCur;
    }
    *pstSub = WAITLIST_SUB_NODE_S{WAITLIST_MAGIC, 0, pfProc, 0, nullptr, pstMain};
    if (pstLast == nullptr) {
        pstMain->pstFirstSub = pstSub;
    } else {
        pstLast->pstNextSub = pstSub;
    }
    return true;
}

namespace {

// Unlinks pstSub from its main node's chain; 0, or the removal's code when it is not there.
u32 UnlinkSub(WAITLIST_MAIN_NODE_S *pstMain, WAITLIST_SUB_NODE_S *pstSub) {
    WAITLIST_SUB_NODE_S *pstPrev = nullptr;
    for (WAITLIST_SUB_NODE_S *pstCur = pstMain->pstFirstSub; pstCur != nullptr; pstCur = pstCur->pstNextSub) {
        if (pstCur->ulMagic != WAITLIST_MAGIC) {
            LogCheck("RUK_WLDS", "Check sub node magic fail", "magic num is invalid");
            return WAITLIST_ERR_NOT_FOUND;
        }
        if (pstCur == pstSub) {
            if (pstPrev == nullptr) {
                pstMain->pstFirstSub = pstCur->pstNextSub;
            } else {
                pstPrev->pstNextSub = pstCur->pstNextSub;
            }
            return WAITLIST_OK;
        }
        pstPrev = pstCur;
    }
    return WAITLIST_ERR_HANDLE;
}

} // namespace

u32 WaitList_DelSub(WAITLIST_SUB_NODE_S *pstSub) {
    if (pstSub == nullptr) {
        return WAITLIST_ERR_PARAM;
    }
    WAITLIST_MAIN_NODE_S *pstMain = nullptr;
    WAITLIST_MAIN_NODE_S *pstPrevMain = nullptr;
    const MainWalk eWalk =
        WaitList_WalkMains(pstSub->pstMain->ulListId, &pstMain, &pstPrevMain, "RUK_WLDS", "Check main node magic fail");
    if (eWalk != MainWalk::kFound) {
        return (eWalk == MainWalk::kDamaged) ? WAITLIST_ERR_PARAM : WAITLIST_ERR_NOT_FOUND;
    }
    const u32 ulRet = UnlinkSub(pstMain, pstSub);
    if (ulRet != WAITLIST_OK) {
        return ulRet;
    }
    WaitList_FreeNode(pstSub, &pstSub->ulMagic);
    if (pstMain->pstFirstSub == nullptr) {
        if (pstPrevMain == nullptr) {
            g_pstWaitListHead = pstMain->pstNextMain;
        } else {
            pstPrevMain->pstNextMain = pstMain->pstNextMain;
        }
        WaitList_FreeNode(pstMain, &pstMain->ulMagic);
    }
    return WAITLIST_OK;
}

} // namespace zol::waitlist
