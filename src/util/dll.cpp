// The exported intrusive doubly linked list: circular through its head, which serves as the sentinel.
#include "util/list_core.h"

using zol::util::Next;
using zol::util::Prev;
using zol::util::Sentinel;
using zol::util::SetNext;
using zol::util::SetPrev;

extern "C" {

ZOL_EXPORT void DLL_Insert_In_Middle(DllHead *pstHead, DllNode *pstPrev, DllNode *pstNode, DllNode *pstNext) {
    ++pstHead->count;
    SetNext(pstNode, pstNext);
    SetPrev(pstNode, pstPrev);
    SetNext(pstPrev, pstNode);
    SetPrev(pstNext, pstNode);
}

ZOL_EXPORT void DLL_Delete_In_Middle(DllHead *pstHead, DllNode *pstPrev, DllNode *pstNode, DllNode *pstNext) {
    SetNext(pstPrev, pstNext);
    SetPrev(pstNext, pstPrev);
    SetNext<DllNode>(pstNode, nullptr);
    SetPrev(pstNode, nullptr);
    --pstHead->count;
}

ZOL_EXPORT void DLL_Insert(DllHead *pstHead, DllNode *pstAfter, DllNode *pstNode) {
    DllNode *const pstPrev = (pstAfter == nullptr) ? Sentinel(pstHead) : pstAfter;
    DLL_Insert_In_Middle(pstHead, pstPrev, pstNode, Next<DllNode>(pstPrev));
}

ZOL_EXPORT void DLL_Delete(DllHead *pstHead, DllNode *pstNode) {
    DllNode *const pstNext = Next<DllNode>(pstNode);
    DllNode *const pstPrev = Prev(pstNode);
    // Only a node whose neighbours point back at it is unlinked: a cleared or stale node is left alone
    // rather than corrupting the list.
    if (pstNext == nullptr || pstPrev == nullptr || Prev(pstNext) != pstNode || Next<DllNode>(pstPrev) != pstNode) {
        return;
    }
    DLL_Delete_In_Middle(pstHead, pstPrev, pstNode, pstNext);
}

ZOL_EXPORT DllNode *DLL_Get(DllHead *pstHead) {
    return zol::util::TakeFirst<DllNode>(pstHead, DLL_Delete_In_Middle);
}

ZOL_EXPORT DllNode *DLL_Find(DllHead *pstHead, const void *pKey, DLL_CMP_PF pfCmp) {
    return zol::util::FindIn<DllNode>(pstHead, pKey, pfCmp);
}

ZOL_EXPORT void DLL_FreeAll(DllHead *pstHead, DLL_VISIT_PF pfRelease) {
    if (pstHead == nullptr) {
        return;
    }
    zol::util::FreeAllFrom<DllHead, DllNode>(pstHead, pfRelease);
}

} // extern "C"
