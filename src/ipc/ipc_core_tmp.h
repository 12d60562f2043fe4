// Temporary: the OM service start that the initialisation calls, until the OM service is merged.
#ifndef ZOL_IPC_CORE_TMP_H
#define ZOL_IPC_CORE_TMP_H

#include "zol_types.h"

namespace zol::diag {
u32 ZOL_OmCmdStart(s32 iEpollFd);
}

#endif
