// Link access shared by the singly and doubly linked lists and the hash table's buckets.
#ifndef ZOL_UTIL_LIST_CORE_H
#define ZOL_UTIL_LIST_CORE_H

#include <cstring>

#include "zol_util.h"

namespace zol::util {

// A list head doubles as its sentinel node: the first word of SllHead / DllHead is the sentinel's
// `next` and the second word of DllHead its `prev`. Links are therefore read and written as words at
// fixed offsets through memcpy, which is valid whichever of the two record types the storage really
// holds, so the compiler's type-based aliasing cannot reorder a head update past a node update.
template <typename Node>
inline Node *LinkGet(const void *pRecord, unsigned uiSlot) {
    Node *p;
    std::memcpy(&p, static_cast<const char *>(pRecord) + uiSlot * sizeof(void *), sizeof p);
    return p;
}

template <typename Node>
inline void LinkSet(void *pRecord, unsigned uiSlot, Node *p) {
    std::memcpy(static_cast<char *>(pRecord) + uiSlot * sizeof(void *), &p, sizeof p);
}

constexpr unsigned kNextSlot = 0;
constexpr unsigned kPrevSlot = 1;

template <typename Node>
inline Node *Next(const void *pRecord) {
    return LinkGet<Node>(pRecord, kNextSlot);
}
template <typename Node>
inline void SetNext(void *pRecord, Node *p) {
    LinkSet<Node>(pRecord, kNextSlot, p);
}
inline DllNode *Prev(const void *pRecord) {
    return LinkGet<DllNode>(pRecord, kPrevSlot);
}
inline void SetPrev(void *pRecord, DllNode *p) {
    LinkSet<DllNode>(pRecord, kPrevSlot, p);
}

// The head seen as its sentinel node: only ever compared or handed to the link accessors.
inline SllNode *Sentinel(SllHead *pstHead) {
    return reinterpret_cast<SllNode *>(pstHead);
}
inline DllNode *Sentinel(DllHead *pstHead) {
    return reinterpret_cast<DllNode *>(pstHead);
}

// The first node from pstFrom on for which pfCmp returns 0; the walk ends at the sentinel or at a
// broken (null) link.
template <typename Node, typename Cmp>
inline Node *FindFrom(Node *pstFrom, const Node *pstSentinel, const void *pKey, Cmp pfCmp) {
    for (Node *pstCur = pstFrom; pstCur != pstSentinel && pstCur != nullptr; pstCur = Next<Node>(pstCur)) {
        if (pfCmp(pKey, pstCur) == 0) {
            return pstCur;
        }
    }
    return nullptr;
}

// Visits every node from pstFrom on, reading the successor after the callback returns; returns the
// number of nodes visited.
template <typename Node, typename Visit>
inline u32 WalkFrom(Node *pstFrom, const Node *pstSentinel, Visit pfVisit) {
    u32 ulVisited = 0;
    for (Node *pstCur = pstFrom; pstCur != pstSentinel && pstCur != nullptr; pstCur = Next<Node>(pstCur)) {
        (void)pfVisit(pstCur);
        ++ulVisited;
    }
    return ulVisited;
}

// The first node of a non-empty list, unlinked by the list's own middle removal; null when empty.
template <typename Node, typename Head, typename DeleteInMiddle>
inline Node *TakeFirst(Head *pstHead, DeleteInMiddle pfDelete) {
    if (pstHead->count == 0) {
        return nullptr;
    }
    Node *const pstFirst = Next<Node>(pstHead);
    pfDelete(pstHead, Sentinel(pstHead), pstFirst, Next<Node>(pstFirst));
    return pstFirst;
}

// The first node of the list for which pfCmp returns 0; null for an empty list or no match.
template <typename Node, typename Head, typename Cmp>
inline Node *FindIn(Head *pstHead, const void *pKey, Cmp pfCmp) {
    if (pstHead->count == 0) {
        return nullptr;
    }
    return FindFrom(Next<Node>(pstHead), Sentinel(pstHead), pKey, pfCmp);
}

// Releases every node from pstFrom on, reading the successor before the callback (which may free the
// element), then resets the head to empty.
template <typename Head, typename Node, typename Release>
inline void FreeAllFrom(Head *pstHead, Release pfRelease) {
    Node *const pstSentinel = Sentinel(pstHead);
    Node *pstCur = Next<Node>(pstHead);
    while (pstCur != pstSentinel && pstCur != nullptr) {
        Node *const pstNext = Next<Node>(pstCur);
        (void)pfRelease(pstCur);
        pstCur = pstNext;
    }
    SetNext<Node>(pstHead, pstSentinel);
    pstHead->last = pstSentinel;
    pstHead->count = 0;
}

} // namespace zol::util

#endif // ZOL_UTIL_LIST_CORE_H
