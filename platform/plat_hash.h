/* The platform's hash service: fixed-size records kept in buckets chosen by a caller's hash function.
 * Not locked: the caller serialises the calls on one table. Records are never removed once added. */
#ifndef PLAT_HASH_H
#define PLAT_HASH_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bucket of a key; the result is taken modulo the bucket count. */
typedef u32 (*HASH_KEY_FUNC_PF)(const void *pKey);
/* Non-zero when the stored record pElmt matches the probe record pProbe. */
typedef u32 (*HASH_CMP_FUNC_PF)(const void *pElmt, const void *pProbe);

/* A table of records of ulElmtSize bytes in ulBucketNum buckets, or null. iFlags (pool options on the
 * device) and ulOwner (an accounting tag) are accepted and ignored. */
void *HASH_CreateNew(s32 iFlags, u32 ulElmtSize, u32 ulBucketNum, HASH_KEY_FUNC_PF pfHash, HASH_CMP_FUNC_PF pfCmp,
                     u32 ulOwner);

/* A new zero-filled record of the table's record size, not yet in the table; null on failure. */
void *HASH_NewData(void *pTable, u32 ulOwner);

/* Adds a record obtained from HASH_NewData to the bucket of pfHash(pKey). RUK_ERR_PARAM for null arguments. */
u32 HASH_AddNode(void *pTable, const void *pKey, void *pElmt, u32 ulOwner);

/* The first record of the probe's bucket (pfHash(pProbe)) that matches the probe, or null. */
void *HASH_FindElmtFromFirst(void *pTable, const void *pProbe);

/* Frees a record obtained from HASH_NewData that was not added. */
void HASH_FreeData(void *pTable, void *pElmt);

#ifdef __cplusplus
}
#endif

#endif /* PLAT_HASH_H */
