// Hot-patch hooks: empty patch slots, the activation records and the patch service's synchronisation hook.
#include <cstring>

#include "zol_patch.h"

// The four leading no-operation instructions are the interface: the patch service overwrites them. The
// compiler emits them from the attribute (inline assembly could land after the prologue); noipa keeps the
// identical slot bodies from being merged into one function or a thunk without the slots.
#define ZOL_PATCHABLE __attribute__((patchable_function_entry(4, 0), noipa))

extern "C" {

ZOL_EXPORT u32 g_libzolCommPatLoadAndDelFlag = 0;
ZOL_EXPORT u8 g_zolCommPatchRsv1[ZOL_PATCH_RSV1_SIZE] = {0};
ZOL_EXPORT u8 g_zolCommPatchRsv2[ZOL_PATCH_RSV2_SIZE] = {0};

#define ZOL_PATCH_SLOT(n)                                                                                              \
    ZOL_PATCHABLE ZOL_EXPORT u32 ZolCommPatchRsv##n(void) {                                                            \
        return 0;                                                                                                      \
    }
ZOL_PATCH_SLOT(1)
ZOL_PATCH_SLOT(2)
ZOL_PATCH_SLOT(3)
ZOL_PATCH_SLOT(4)
ZOL_PATCH_SLOT(5)
ZOL_PATCH_SLOT(6)
ZOL_PATCH_SLOT(7)
ZOL_PATCH_SLOT(8)
ZOL_PATCH_SLOT(9)
ZOL_PATCH_SLOT(10)
#undef ZOL_PATCH_SLOT

ZOL_PATCHABLE ZOL_EXPORT void libzol_comm_ResPatchC2hActivefunc(void) {
    g_libzolCommPatLoadAndDelFlag = 1;
}

ZOL_PATCHABLE ZOL_EXPORT void libzol_comm_ResPatchC2hDeactivefunc(void) {
    g_libzolCommPatLoadAndDelFlag = 2;
}

ZOL_EXPORT u32 libzol_comm_PAT_C2HSyncHookFunc(s32 iOperation, uintptr_t uArg, const void *pInfo, u32 *pulHandled) {
    (void)uArg;
    u32 ulIgnored = 0;
    u32 *const pulOut = (pulHandled != nullptr) ? pulHandled : &ulIgnored;
    *pulOut = 0;
    if (pInfo == nullptr ||
        std::strcmp(static_cast<const char *>(pInfo) + ZOL_PATCH_INFO_LIB_NAME_OFFSET, "libzol_comm.so") != 0) {
        return 0; // a change for another library
    }
    *pulOut = 1;
    switch (iOperation) {
    case ZOL_PATCH_OPER_ACTIVATE:
        libzol_comm_ResPatchC2hActivefunc();
        return 0;
    case ZOL_PATCH_OPER_DEACTIVATE:
        libzol_comm_ResPatchC2hDeactivefunc();
        return 0;
    default:
        g_libzolCommPatLoadAndDelFlag = 3;
        return 1;
    }
}

ZOL_EXPORT void *VEC_VectorInit(void) {
    return nullptr;
}

ZOL_EXPORT u32 ZOL_CmdInit(void) {
    return 0;
}

} // extern "C"
