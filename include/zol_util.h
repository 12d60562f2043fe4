/* Exported small services: intrusive singly and doubly linked lists, a bucketed hash table over the
 * doubly linked list, and the Internet checksum. Plain C. */
#ifndef ZOL_UTIL_H
#define ZOL_UTIL_H

#include "zol_types.h"

ZOL_EXTERN_C_BEGIN

/* ---- Intrusive lists ------------------------------------------------------------------------------
 * Both lists are circular through a sentinel head that the caller embeds in its own records. The
 * caller owns every element and embeds a node in it; the operations only relink nodes, keep the count
 * and call the caller's callbacks. They never allocate, never release, never lock: a caller sharing a
 * list between threads serialises every operation on it, callbacks included.
 *
 * A node outside any list has null links: removal clears them, and SLL_Delete / DLL_Delete ignore a
 * node whose links are clear. An empty head has `first` and `last` pointing at the head itself and
 * `count` 0; the caller sets that up before first use (SLL_FreeAll / DLL_FreeAll leave a head so).
 * Where an operation takes a "previous" or "next" node, the head itself (cast to the node type)
 * stands for the front or the end of the list. */

typedef struct SllNode {
    struct SllNode *next;
} SllNode;

/* Layout fixed (LP64: 32 bytes): the head doubles as the sentinel node, its first word being the
 * sentinel's `next`. */
typedef struct SllHead {
    SllNode *first;     /* first element; the head itself when empty */
    uintptr_t reserved; /* never read or written by the list operations */
    SllNode *last;      /* last element; the head itself when empty */
    u32 count;          /* number of elements */
} SllHead;

typedef struct DllNode {
    struct DllNode *next;
    struct DllNode *prev;
} DllNode;

/* Layout fixed (LP64: 32 bytes): the first two words are the sentinel's `next` and `prev`. */
typedef struct DllHead {
    DllNode *first;     /* first element; the head itself when empty */
    DllNode *last;      /* last element; the head itself when empty */
    uintptr_t reserved; /* never read or written by the list operations */
    u32 count;          /* number of elements */
} DllHead;

/* Callbacks. compare: 0 means the node matches the key. visit / release: the result is ignored. */
typedef s32 (*SLL_CMP_PF)(const void *pKey, SllNode *pstNode);
typedef u32 (*SLL_VISIT_PF)(SllNode *pstNode);
typedef s32 (*DLL_CMP_PF)(const void *pKey, DllNode *pstNode);
typedef u32 (*DLL_VISIT_PF)(DllNode *pstNode);

/* Links pstNode between pstPrev (or the head) and pstNext (or the head), which must be neighbours. */
ZOL_EXPORT void SLL_Insert_In_Middle(SllHead *pstHead, SllNode *pstPrev, SllNode *pstNode, SllNode *pstNext);
/* Unlinks pstNode, which lies between pstPrev (or the head) and pstNext (or the head); clears its link. */
ZOL_EXPORT void SLL_Delete_In_Middle(SllHead *pstHead, SllNode *pstPrev, SllNode *pstNode, SllNode *pstNext);
/* Inserts pstNode after pstAfter, or at the front when pstAfter is null. */
ZOL_EXPORT void SLL_Insert(SllHead *pstHead, SllNode *pstAfter, SllNode *pstNode);
/* Unlinks pstNode (which must belong to this list); a node with a clear link is ignored. Walks the list
 * to find the predecessor. */
ZOL_EXPORT void SLL_Delete(SllHead *pstHead, SllNode *pstNode);
/* Removes and returns the first node; null when the list is empty. */
ZOL_EXPORT SllNode *SLL_Get(SllHead *pstHead);
/* The predecessor of pstNode; for a null pstNode the last node. Null for an empty list, for the first
 * node and for a node that is not in the list. */
ZOL_EXPORT SllNode *SLL_Previous(SllHead *pstHead, SllNode *pstNode);
/* The first node for which pfCmp(pKey, node) returns 0, or null. */
ZOL_EXPORT SllNode *SLL_Find(SllHead *pstHead, const void *pKey, SLL_CMP_PF pfCmp);
/* Calls pfVisit on every node in order and returns how many were visited. The callback must not unlink
 * or release the node it is given and cannot stop the walk. */
ZOL_EXPORT u32 SLL_Walk(SllHead *pstHead, SLL_VISIT_PF pfVisit);
/* Calls pfRelease on every node in order (the successor is read first, so the callback may release the
 * element), then leaves the head empty. pstHead must not be null. */
ZOL_EXPORT void SLL_FreeAll(SllHead *pstHead, SLL_VISIT_PF pfRelease);

/* Links pstNode between the neighbours pstPrev and pstNext (either may be the head). */
ZOL_EXPORT void DLL_Insert_In_Middle(DllHead *pstHead, DllNode *pstPrev, DllNode *pstNode, DllNode *pstNext);
/* Unlinks pstNode from between pstPrev and pstNext and clears both its links. */
ZOL_EXPORT void DLL_Delete_In_Middle(DllHead *pstHead, DllNode *pstPrev, DllNode *pstNode, DllNode *pstNext);
/* Inserts pstNode after pstAfter, or at the front when pstAfter is null. */
ZOL_EXPORT void DLL_Insert(DllHead *pstHead, DllNode *pstAfter, DllNode *pstNode);
/* Unlinks pstNode only when both its links are set and both neighbours point back at it; otherwise
 * does nothing. */
ZOL_EXPORT void DLL_Delete(DllHead *pstHead, DllNode *pstNode);
/* Removes and returns the first node; null when the list is empty. */
ZOL_EXPORT DllNode *DLL_Get(DllHead *pstHead);
/* The first node for which pfCmp(pKey, node) returns 0, or null. */
ZOL_EXPORT DllNode *DLL_Find(DllHead *pstHead, const void *pKey, DLL_CMP_PF pfCmp);
/* As SLL_FreeAll; a null head is ignored. */
ZOL_EXPORT void DLL_FreeAll(DllHead *pstHead, DLL_VISIT_PF pfRelease);

/* ---- Hash table -----------------------------------------------------------------------------------
 * A fixed number of buckets, each a DllHead of caller-owned nodes. The caller hashes and passes the
 * bucket index (below bucketCount, not checked) to every operation. No locks, no resizing. */

/* Where HASH_Add_Node puts a new node: 1 = before pstExisting, 2 = after it, other = look further.
 * Note the argument order, reversed against the compare callback. */
typedef u32 (*HASH_ORDER_PF)(DllNode *pstExisting, const void *pKey);

/* One allocation: the header then bucketCount bucket heads. */
typedef struct HashTable {
    u32 bucketCount;             /* fixed at creation */
    HASH_ORDER_PF orderCallback; /* may be null: nodes are appended */
    DllHead buckets[];           /* bucket i holds the nodes added with index i */
} HashTable;

/* A new table with empty buckets (ulBucketCount may be 0), or null when memory runs out. The caller owns
 * it until HASH_Delete_Table. */
ZOL_EXPORT HashTable *HASH_Create_Table(u32 ulBucketCount, HASH_ORDER_PF pfOrder);
/* Adds pstNode to bucket ulIndex: appended without an order callback, otherwise where the callback says
 * (appended when it never says). Duplicates are not checked. */
ZOL_EXPORT void HASH_Add_Node(HashTable *pstTable, DllNode *pstNode, u32 ulIndex, const void *pKey);
/* The first node of bucket ulIndex for which pfCmp(pKey, node) returns 0, or null. */
ZOL_EXPORT DllNode *HASH_Find_Node(HashTable *pstTable, u32 ulIndex, const void *pKey, DLL_CMP_PF pfCmp);
/* Unlinks pstNode from bucket ulIndex; a node that is not linked is ignored. The node is not released. */
ZOL_EXPORT void HASH_Delete_Node(HashTable *pstTable, DllNode *pstNode, u32 ulIndex);
/* Calls pfVisit on every node, buckets in index order, nodes in bucket order. The callback must not
 * unlink or release the node it is given. */
ZOL_EXPORT void HASH_Walk_Table(HashTable *pstTable, DLL_VISIT_PF pfVisit);
/* Calls pfRelease on every node (as DLL_FreeAll, buckets in index order), then frees the table.
 * Returns the status of freeing the table (0 on success). */
ZOL_EXPORT u32 HASH_Delete_Table(HashTable *pstTable, DLL_VISIT_PF pfRelease);

/* ---- Internet checksum ----------------------------------------------------------------------------
 * The RFC 1071 checksum (one's complement of the one's complement sum of 16-bit words) of ulLength bytes
 * at pData, any alignment. The result is in native byte order: stored as a native u16 into a packet's
 * checksum field it gives the checksum in network byte order. A length of 0 gives 0xFFFF; recomputing
 * over data that holds its correct checksum gives 0. */
ZOL_EXPORT u16 INET_Cksum(const void *pData, u32 ulLength);

ZOL_EXTERN_C_END

#endif /* ZOL_UTIL_H */
