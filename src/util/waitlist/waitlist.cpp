// The exported wait-list operations: registration, removal, value access and the walk that calls the
// procedures of the registrations holding a given value. Every step after the argument checks runs
// under the wait-list mutex.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "util/waitlist/waitlist_internal.h"

using namespace zol::waitlist;

namespace {

// Calls the procedures of the main node's registrations that hold ullValue; false on a damaged node.
bool CallMatching(WAITLIST_MAIN_NODE_S *pstMain, u64 ullValue) {
    // One new-context slot per walk, cleared once: a procedure that leaves it alone hands on the
    // context written by the procedure before it.
    u64 ullNewContext = 0;
    for (WAITLIST_SUB_NODE_S *pstSub = pstMain->pstFirstSub; pstSub != nullptr; pstSub = pstSub->pstNextSub) {
        if (pstSub->ulMagic != WAITLIST_MAGIC) {
            ZOL_LOG_MSG(zol::log::kWaitListCheckErr, "RUK_WLDFL", "Check sub magic fail", "magic num is invalid");
            return false;
        }
        if (pstSub->ullValue == ullValue) {
            pstSub->ullValue = pstSub->pfProc(pstSub->ullContext, &ullNewContext);
            pstSub->ullContext = ullNewContext;
        }
    }
    return true;
}

} // namespace

extern "C" {

ZOL_EXPORT u32 RUK_WaitListRegister(u32 ulListId, u32 *pulHandle, WAITLIST_PROC_PF pfProc) {
    if (pulHandle == nullptr || pfProc == nullptr) {
        return WAITLIST_ERR_PARAM;
    }
    *pulHandle = 0;
    auto *pstSub = static_cast<WAITLIST_SUB_NODE_S *>(
        zol::ZOL_MemAlloc(WaitList_ModId(ulListId), sizeof(WAITLIST_SUB_NODE_S), WAITLIST_FILE, __LINE__));
    if (pstSub == nullptr) {
        return WAITLIST_ERR_FAILED;
    }
    pstSub->ulMagic = WAITLIST_MAGIC;
    if (!WaitList_Lock()) {
        WaitList_FreeNode(pstSub, &pstSub->ulMagic);
        return WAITLIST_ERR_FAILED;
    }
    WAITLIST_MAIN_NODE_S *const pstMain = WaitList_FindOrAddMain(ulListId);
    if (pstMain == nullptr || !WaitList_AddSub(pstMain, pstSub, pfProc)) {
        WaitList_FreeNode(pstSub, &pstSub->ulMagic);
        WaitList_Unlock();
        return WAITLIST_ERR_FAILED;
    }
    // On failure the registration is removed again, and with it a main node it brought into being.
    const u32 ulRet = WaitList_AssignHandle(pstSub, pulHandle);
    WaitList_Unlock();
    return ulRet;
}

ZOL_EXPORT u32 RUK_WaitListUnregister(u32 ulHandle) {
    if (ulHandle == 0) {
        ZOL_LOG_MSG(zol::log::kWaitListCheckErr, "RUK_WLUR", "Check handle fail", "handle is null");
        return WAITLIST_ERR_PARAM;
    }
    if (!WaitList_Lock()) {
        return WAITLIST_ERR_HANDLE;
    }
    WAITLIST_SUB_NODE_S *const pstSub = WaitList_FindByHandle(ulHandle);
    if (pstSub == nullptr) {
        WaitList_Unlock();
        ZOL_LOG_MSG(zol::log::kWaitListCheckErr, "RUK_WLUR", "Find son node fail", "sub node is null, handle:%u",
                    ulHandle);
        return WAITLIST_ERR_HANDLE;
    }
    const u32 ulRet = WaitList_DelSub(pstSub);
    WaitList_ClearIndex(ulHandle);
    WaitList_Unlock();
    return ulRet;
}

ZOL_EXPORT u32 RUK_WaitListSet(u32 ulHandle, u64 ullValue, u64 ullContext) {
    if (!WaitList_Lock()) {
        return WAITLIST_ERR_HANDLE;
    }
    WAITLIST_SUB_NODE_S *const pstSub = WaitList_FindByHandle(ulHandle);
    if (pstSub != nullptr) {
        pstSub->ullValue = ullValue;
        pstSub->ullContext = ullContext;
    }
    WaitList_Unlock();
    return (pstSub != nullptr) ? WAITLIST_OK : WAITLIST_ERR_HANDLE;
}

ZOL_EXPORT u32 RUK_WaitListGet(u32 ulHandle, u64 *pullValue) {
    if (!WaitList_Lock()) {
        return WAITLIST_ERR_HANDLE;
    }
    WAITLIST_SUB_NODE_S *const pstSub = WaitList_FindByHandle(ulHandle);
    if (pstSub != nullptr) {
        *pullValue = pstSub->ullValue;
    }
    WaitList_Unlock();
    return (pstSub != nullptr) ? WAITLIST_OK : WAITLIST_ERR_HANDLE;
}

ZOL_EXPORT u32 RUK_WaitListDelFromList(u32 ulListId, u64 ullValue) {
    if (!WaitList_Lock()) {
        return WAITLIST_ERR_NOT_FOUND;
    }
    WAITLIST_MAIN_NODE_S *pstMain = nullptr;
    WAITLIST_MAIN_NODE_S *pstPrev = nullptr;
    u32 ulRet = WAITLIST_ERR_NOT_FOUND;
    if (WaitList_WalkMains(ulListId, &pstMain, &pstPrev, "RUK_WLDFL", "Check magic fail") == MainWalk::kFound &&
        CallMatching(pstMain, ullValue)) {
        ulRet = WAITLIST_OK;
    }
    WaitList_Unlock();
    return ulRet;
}

ZOL_EXPORT u32 RUK_VFS_PureNameIsTooLong(const char *pcName) {
    (void)pcName;
    return 0;
}

} // extern "C"
