/* Entry points and reserved space for the platform's hot-patch service. Plain C.
 * The patchable functions below begin with four no-operation instructions (after a branch-target
 * marker where the build enables one) that the patch service overwrites to redirect them. */
#ifndef ZOL_PATCH_H
#define ZOL_PATCH_H

#include "zol_types.h"

ZOL_EXTERN_C_BEGIN

/* 0 at load; 1 after activation, 2 after deactivation, 3 after an unknown hook operation. */
ZOL_EXPORT extern u32 g_libzolCommPatLoadAndDelFlag;
/* Zero-filled data reserved for patches. */
#define ZOL_PATCH_RSV1_SIZE 80u
#define ZOL_PATCH_RSV2_SIZE 160u
ZOL_EXPORT extern u8 g_zolCommPatchRsv1[ZOL_PATCH_RSV1_SIZE];
ZOL_EXPORT extern u8 g_zolCommPatchRsv2[ZOL_PATCH_RSV2_SIZE];

/* Empty slots for patches: each returns 0. */
ZOL_EXPORT u32 ZolCommPatchRsv1(void);
ZOL_EXPORT u32 ZolCommPatchRsv2(void);
ZOL_EXPORT u32 ZolCommPatchRsv3(void);
ZOL_EXPORT u32 ZolCommPatchRsv4(void);
ZOL_EXPORT u32 ZolCommPatchRsv5(void);
ZOL_EXPORT u32 ZolCommPatchRsv6(void);
ZOL_EXPORT u32 ZolCommPatchRsv7(void);
ZOL_EXPORT u32 ZolCommPatchRsv8(void);
ZOL_EXPORT u32 ZolCommPatchRsv9(void);
ZOL_EXPORT u32 ZolCommPatchRsv10(void);

/* Record that a patch of this library was activated (flag 1) or deactivated (flag 2). */
ZOL_EXPORT void libzol_comm_ResPatchC2hActivefunc(void);
ZOL_EXPORT void libzol_comm_ResPatchC2hDeactivefunc(void);

/* Offset, in the patch service's information record, of the NUL-terminated file name of the library
 * the patch is for. */
#define ZOL_PATCH_INFO_LIB_NAME_OFFSET 397u
#define ZOL_PATCH_OPER_ACTIVATE 0
#define ZOL_PATCH_OPER_DEACTIVATE 1

/* Called by the patch service on a change. *pulHandled := 0, and the call returns 0, when pInfo names
 * another library than "libzol_comm.so" (or pInfo is null). For this library: operation 0 activates,
 * 1 deactivates (*pulHandled := 1, returns 0); any other operation sets the flag to 3, *pulHandled := 1
 * and returns 1. uArg is not used. pulHandled may be null. */
ZOL_EXPORT u32 libzol_comm_PAT_C2HSyncHookFunc(s32 iOperation, uintptr_t uArg, const void *pInfo, u32 *pulHandled);

/* Stubs kept for the processes that call them: a null pointer, and 0. */
ZOL_EXPORT void *VEC_VectorInit(void);
ZOL_EXPORT u32 ZOL_CmdInit(void);

ZOL_EXTERN_C_END

#endif /* ZOL_PATCH_H */
