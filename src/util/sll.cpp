// The exported intrusive singly linked list: circular through its head, which serves as the sentinel.
#include "util/list_core.h"

using zol::util::Next;
using zol::util::Sentinel;
using zol::util::SetNext;

extern "C" {

ZOL_EXPORT void SLL_Insert_In_Middle(SllHead *pstHead, SllNode *pstPrev, SllNode *pstNode, SllNode *pstNext) {
    ++pstHead->count;
    SetNext(pstNode, pstNext);
    SetNext(pstPrev, pstNode);
    if (pstNext == Sentinel(pstHead)) {
        pstHead->last = pstNode;
    }
}

ZOL_EXPORT void SLL_Delete_In_Middle(SllHead *pstHead, SllNode *pstPrev, SllNode *pstNode, SllNode *pstNext) {
    if (pstNext == Sentinel(pstHead)) {
        pstHead->last = pstPrev;
    }
    SetNext(pstPrev, pstNext);
    SetNext<SllNode>(pstNode, nullptr);
    --pstHead->count;
}

ZOL_EXPORT void SLL_Insert(SllHead *pstHead, SllNode *pstAfter, SllNode *pstNode) {
    SllNode *const pstPrev = (pstAfter == nullptr) ? Sentinel(pstHead) : pstAfter;
    SLL_Insert_In_Middle(pstHead, pstPrev, pstNode, Next<SllNode>(pstPrev));
}

ZOL_EXPORT SllNode *SLL_Previous(SllHead *pstHead, SllNode *pstNode) {
    if (pstHead->count == 0) {
        return nullptr;
    }
    if (pstNode == nullptr) {
        return pstHead->last;
    }
    // Without back links the predecessor is found by walking; stopping at `last` keeps a node that is
    // not in the list from walking round for ever.
    SllNode *pstCur = Sentinel(pstHead);
    while (Next<SllNode>(pstCur) != pstNode) {
        if (pstCur == pstHead->last) {
            return nullptr;
        }
        pstCur = Next<SllNode>(pstCur);
    }
    return (pstCur == Sentinel(pstHead)) ? nullptr : pstCur;
}

ZOL_EXPORT void SLL_Delete(SllHead *pstHead, SllNode *pstNode) {
    SllNode *const pstNext = Next<SllNode>(pstNode);
    if (pstNext == nullptr) {
        return; // not linked
    }
    SllNode *pstPrev = SLL_Previous(pstHead, pstNode);
    if (pstPrev == nullptr) {
        pstPrev = Sentinel(pstHead);
    }
    SLL_Delete_In_Middle(pstHead, pstPrev, pstNode, pstNext);
}

ZOL_EXPORT SllNode *SLL_Get(SllHead *pstHead) {
    return zol::util::TakeFirst<SllNode>(pstHead, SLL_Delete_In_Middle);
}

ZOL_EXPORT SllNode *SLL_Find(SllHead *pstHead, const void *pKey, SLL_CMP_PF pfCmp) {
    return zol::util::FindIn<SllNode>(pstHead, pKey, pfCmp);
}

ZOL_EXPORT u32 SLL_Walk(SllHead *pstHead, SLL_VISIT_PF pfVisit) {
    if (pstHead->count == 0) {
        return 0;
    }
    return zol::util::WalkFrom(Next<SllNode>(pstHead), Sentinel(pstHead), pfVisit);
}

ZOL_EXPORT void SLL_FreeAll(SllHead *pstHead, SLL_VISIT_PF pfRelease) {
    zol::util::FreeAllFrom<SllHead, SllNode>(pstHead, pfRelease);
}

} // extern "C"
