/* The foundation's exported header compiles as plain C, and every exported name of the family links
 * from C (unmangled, visible). */
#include "zol_foundation.h"

typedef char ZolLogPointIsFourBytes[(sizeof(ZOL_LogPoint) == 4) ? 1 : -1];

typedef void (*ZolAnyFunc)(void);

/* Formats through the library from C and counts the family's functions that resolved. */
int ZolFoundationUseFromC(char *pcBuf, u32 ulSize) {
    u32 ulUsed = 0;
    const ZolAnyFunc apfNames[] = {
        (ZolAnyFunc)ZOL_WriteLog,          (ZolAnyFunc)ZOL_SetImAgentHandle,   (ZolAnyFunc)ZOL_GetMemHandle,
        (ZolAnyFunc)ZOL_FormatToBuff,      (ZolAnyFunc)ZOL_GetProcNameById,    (ZolAnyFunc)ZOL_GetCurrStack,
        (ZolAnyFunc)BDS_SymNameGetEx,      (ZolAnyFunc)BDS_SymNameGetCheck,    (ZolAnyFunc)ZOL_VerifyDiaglog,
        (ZolAnyFunc)ZOL_VerifyDiaglogInfo, (ZolAnyFunc)ZOL_VerifyDiaglogError,
    };
    int iResolved = 0;
    unsigned i;
    for (i = 0; i < sizeof(apfNames) / sizeof(apfNames[0]); ++i) {
        iResolved += (apfNames[i] != 0);
    }
    ZOL_FormatToBuff(pcBuf, ulSize, &ulUsed, __LINE__, "C:%u", (unsigned)ZOL_LOG_TYPE_NUM);
    return iResolved;
}
