/* Compiled as C: every exported header of the library (the generated list includes each one); reports the
 * C view of the records other programs embed, and formats through the library from C. */
#include <stddef.h>

#include "zol_all_headers.h"

size_t ZolCLayout(size_t *pulValues);
void ZolCFormat(char *pcBuf, u32 ulSize);

size_t ZolCLayout(size_t *pulValues) {
    const size_t aulLayout[] = {sizeof(ZOL_LogPoint),
                                sizeof(SllHead),
                                offsetof(SllHead, count),
                                offsetof(DllHead, reserved),
                                sizeof(DllHead),
                                offsetof(HashTable, buckets),
                                sizeof(SYS_AppInfo),
                                offsetof(SYS_AppInfo, ulTaskId),
                                offsetof(SYS_AppInfo, pfnInit),
                                ZOL_PATCH_RSV2_SIZE};
    size_t i;
    for (i = 0; i < sizeof(aulLayout) / sizeof(aulLayout[0]); ++i) {
        pulValues[i] = aulLayout[i];
    }
    return i;
}

void ZolCFormat(char *pcBuf, u32 ulSize) {
    u32 ulUsed = 0;
    ZOL_FormatToBuff(pcBuf, ulSize, &ulUsed, __LINE__, "C:%u", (unsigned)ZOL_LOG_TYPE_NUM);
}
