/* Compiles the exported headers of the lists, hash table, checksum, wait list, application framework and
 * patch hooks as C, and reports the C view of their record layouts to the C++ test. */
#include <stddef.h>

#include "zol_app.h"
#include "zol_patch.h"
#include "zol_util.h"
#include "zol_waitlist.h"

static u32 NoInit(void) {
    return 0;
}

size_t ZolCHeadersLayout(size_t *pulValues, size_t ulMax) {
    SYS_AppInfo stApp = {0};
    WAITLIST_PROC_PF pfProc = 0;
    size_t aulLayout[8];
    size_t i;
    stApp.pfnInit = NoInit;
    aulLayout[0] = sizeof(SllHead);
    aulLayout[1] = offsetof(SllHead, count);
    aulLayout[2] = offsetof(DllHead, reserved);
    aulLayout[3] = offsetof(HashTable, buckets);
    aulLayout[4] = sizeof(DllHead);
    aulLayout[5] = sizeof(stApp) + (pfProc != 0);
    aulLayout[6] = offsetof(SYS_AppInfo, ulTaskId) + stApp.pfnInit();
    aulLayout[7] = ZOL_PATCH_RSV2_SIZE;
    for (i = 0; i < 8 && i < ulMax; ++i) {
        pulValues[i] = aulLayout[i];
    }
    return i;
}
