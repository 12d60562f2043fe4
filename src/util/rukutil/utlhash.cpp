// The exported bucketed hash table: a fixed array of doubly linked lists of caller-owned nodes; the
// caller hashes, the table only keeps each bucket in insertion order or in the order callback's order.
#include "foundation/foundation_internal.h"
#include "util/list_core.h"

#include <cstddef>

namespace {

// Owner tag and file tag under which the tables are allocated (the tag is for accounting only).
constexpr u32 kHashModId = 0xC0010107u;
constexpr const char *kHashFile = "src/util/rukutil/utlhash";

constexpr u32 kOrderBefore = 1;
constexpr u32 kOrderAfter = 2;

DllHead *Bucket(HashTable *pstTable, u32 ulIndex) {
    return &pstTable->buckets[ulIndex];
}

} // namespace

using zol::util::Next;
using zol::util::Prev;
using zol::util::Sentinel;
using zol::util::SetNext;

extern "C" {

ZOL_EXPORT HashTable *HASH_Create_Table(u32 ulBucketCount, HASH_ORDER_PF pfOrder) {
    constexpr u64 ullHeader = offsetof(HashTable, buckets);
    const u64 ullSize = ullHeader + static_cast<u64>(ulBucketCount) * sizeof(DllHead);
    if (ullSize > UINT32_MAX) {
        return nullptr; // the allocator takes a 32-bit size
    }
    auto *pstTable =
        static_cast<HashTable *>(zol::ZOL_MemAlloc(kHashModId, static_cast<u32>(ullSize), kHashFile, __LINE__));
    if (pstTable == nullptr) {
        return nullptr;
    }
    pstTable->bucketCount = ulBucketCount;
    pstTable->orderCallback = pfOrder;
    for (u32 i = 0; i < ulBucketCount; ++i) {
        DllHead *const pstBucket = Bucket(pstTable, i);
        SetNext(pstBucket, Sentinel(pstBucket));
        pstBucket->last = Sentinel(pstBucket);
        pstBucket->reserved = 0;
        pstBucket->count = 0;
    }
    return pstTable;
}

ZOL_EXPORT void HASH_Add_Node(HashTable *pstTable, DllNode *pstNode, u32 ulIndex, const void *pKey) {
    DllHead *const pstBucket = Bucket(pstTable, ulIndex);
    DllNode *const pstSentinel = Sentinel(pstBucket);
    if (pstTable->orderCallback != nullptr) {
        DllNode *pstPrev = pstSentinel;
        for (DllNode *pstCur = Next<DllNode>(pstBucket); pstCur != pstSentinel; pstCur = Next<DllNode>(pstCur)) {
            const u32 ulWhere = pstTable->orderCallback(pstCur, pKey);
            if (ulWhere == kOrderBefore) {
                DLL_Insert_In_Middle(pstBucket, pstPrev, pstNode, pstCur);
                return;
            }
            if (ulWhere == kOrderAfter) {
                DLL_Insert_In_Middle(pstBucket, pstCur, pstNode, Next<DllNode>(pstCur));
                return;
            }
            pstPrev = pstCur;
        }
    }
    DLL_Insert_In_Middle(pstBucket, Prev(pstBucket), pstNode, pstSentinel);
}

ZOL_EXPORT DllNode *HASH_Find_Node(HashTable *pstTable, u32 ulIndex, const void *pKey, DLL_CMP_PF pfCmp) {
    return DLL_Find(Bucket(pstTable, ulIndex), pKey, pfCmp);
}

ZOL_EXPORT void HASH_Delete_Node(HashTable *pstTable, DllNode *pstNode, u32 ulIndex) {
    DLL_Delete(Bucket(pstTable, ulIndex), pstNode);
}

ZOL_EXPORT void HASH_Walk_Table(HashTable *pstTable, DLL_VISIT_PF pfVisit) {
    for (u32 i = 0; i < pstTable->bucketCount; ++i) {
        DllHead *const pstBucket = Bucket(pstTable, i);
        if (pstBucket->count != 0) {
            (void)zol::util::WalkFrom(Next<DllNode>(pstBucket), Sentinel(pstBucket), pfVisit);
        }
    }
}

ZOL_EXPORT u32 HASH_Delete_Table(HashTable *pstTable, DLL_VISIT_PF pfRelease) {
    if (pstTable != nullptr) {
        for (u32 i = 0; i < pstTable->bucketCount; ++i) {
            DLL_FreeAll(Bucket(pstTable, i), pfRelease);
        }
    }
    return zol::ZOL_MemFree(pstTable, kHashFile, __LINE__);
}

} // extern "C"
