// Internals of the wait list: its node records, the handle index table and the process-wide state,
// all guarded by the wait-list mutex.
#ifndef ZOL_WAITLIST_INTERNAL_H
#define ZOL_WAITLIST_INTERNAL_H

#include "zol_waitlist.h"

namespace zol::waitlist {

constexpr u32 WAITLIST_MAGIC = 0x5DF9C706u;  // first word of every live node; 0 once released
constexpr u32 WAITLIST_MOD_ID = 0xF8010000u; // | (list id & 0xFFFF) for the nodes
constexpr u32 WAITLIST_INDEX_MOD_ID = 0xF801FFFFu;
constexpr u32 WAITLIST_INDEX_INIT_NUM = 20;
constexpr u32 WAITLIST_MAX_INDEX = 0xFFFFu; // the index is the handle's low 16 bits
constexpr u32 WAITLIST_BAD_INDEX = 0xFFFFFFFFu;
constexpr const char *WAITLIST_FILE = "src/util/waitlist/waitlist";

struct WAITLIST_SUB_NODE_S;

// One per list id; released with its last registration.
struct WAITLIST_MAIN_NODE_S {
    u32 ulMagic;
    u32 ulListId;
    WAITLIST_MAIN_NODE_S *pstNextMain; // null at the end; main nodes in order of creation
    WAITLIST_SUB_NODE_S *pstFirstSub;
};

// One per registration.
struct WAITLIST_SUB_NODE_S {
    u32 ulMagic;
    u64 ullValue; // 0 at registration
    WAITLIST_PROC_PF pfProc;
    u64 ullContext;                  // 0 at registration
    WAITLIST_SUB_NODE_S *pstNextSub; // null at the end; registrations in order
    WAITLIST_MAIN_NODE_S *pstMain;
};

// One entry of the handle index table; {0, null} when free. Entry 0 is never used.
struct WAITLIST_INDEX_S {
    u32 ulHandle;
    WAITLIST_SUB_NODE_S *pstSub;
};

// Process-wide state, read and written only with the wait-list mutex held.
extern WAITLIST_MAIN_NODE_S *g_pstWaitListHead;
extern WAITLIST_INDEX_S *g_pstWaitListIndex;
extern u32 g_ulWaitListIndexNum; // 0, then 20, doubling whenever full; never shrinks

// The mutex, set up lazily. False when it could not be set up or taken (logged); the caller then
// refuses the operation instead of running unserialised.
bool WaitList_Lock();
void WaitList_Unlock();

// Node lists (lock held).
enum class MainWalk { kFound, kMissing, kDamaged };
// Finds the main node of ulListId and its predecessor (on kMissing: the last main node). A main node
// with a wrong magic number stops the walk with kDamaged, logged with the caller's tag and message.
MainWalk WaitList_WalkMains(u32 ulListId, WAITLIST_MAIN_NODE_S **ppstMain, WAITLIST_MAIN_NODE_S **ppstPrev,
                            const char *pcTag, const char *pcMsg);
WAITLIST_MAIN_NODE_S *WaitList_FindOrAddMain(u32 ulListId);
bool WaitList_AddSub(WAITLIST_MAIN_NODE_S *pstMain, WAITLIST_SUB_NODE_S *pstSub, WAITLIST_PROC_PF pfProc);
u32 WaitList_DelSub(WAITLIST_SUB_NODE_S *pstSub);
void WaitList_FreeNode(void *pNode, u32 *pulMagic);

// Handle index (lock held).
u32 WaitList_AssignHandle(WAITLIST_SUB_NODE_S *pstSub, u32 *pulHandle);
WAITLIST_SUB_NODE_S *WaitList_FindByHandle(u32 ulHandle);
void WaitList_ClearIndex(u32 ulHandle);

inline u32 WaitList_ModId(u32 ulListId) {
    return (ulListId & 0xFFFFu) | WAITLIST_MOD_ID;
}

} // namespace zol::waitlist

#endif // ZOL_WAITLIST_INTERNAL_H
