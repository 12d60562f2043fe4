/* Foundation of libzol_comm: the log writer, text formatting, memory handle, process, call-stack and
 * symbol utilities, and the diagnostic-log self-test. Plain C. */
#ifndef ZOL_FOUNDATION_H
#define ZOL_FOUNDATION_H

#include "zol_types.h"

ZOL_EXTERN_C_BEGIN

/* Where a record comes from and how it is reported; usually a constant of the call site. As one
 * little-endian 32-bit word byte 0 is the least significant: 0x012F011C is module 0x1C, class 1,
 * type 47, filtered. */
typedef struct {
    u8 ucModule;  /* reporting module; carried for the caller, not read by the writer */
    u8 ucClass;   /* 1 information, 2 error; not read by the writer */
    u8 ucLogType; /* index 0..47 of the log-type table */
    u8 ucFilter;  /* non-zero: at most one record per tag every 500 ms */
} ZOL_LogPoint;

#define ZOL_LOG_TYPE_NUM 48u
#define ZOL_LOG_FILTER_INTERVAL_MS 500u
#define ZOL_LOG_MSG_BUF_LEN 256u

/* Reports one record of log type pstPoint->ucLogType to the information-model agent: the reporter's
 * slot, CPU, process and thread, then the ulTextNum texts, then the formatted text (cut to 255
 * characters). Nothing is reported when ulTextNum + 1 differs from the type's parameter count, the type
 * is above 47, or the filter suppresses the tag. Never fails visibly; safe from any thread. */
ZOL_EXPORT void ZOL_WriteLog(const ZOL_LogPoint *pstPoint, const char *pcTag, const char *const *ppcTexts,
                             u32 ulTextNum, const char *pcFormat, ...) __attribute__((format(printf, 5, 6)));

/* Accepts an agent handle and does nothing: the writer asks the agent for its handle at every report. */
ZOL_EXPORT void ZOL_SetImAgentHandle(void *pHandle);

/* The library's memory handle "zol_mem", registered on first use. */
ZOL_EXPORT u32 ZOL_GetMemHandle(void);

/* Appends formatted text at offset *pulUsed (0 when pulUsed is null) and advances *pulUsed. Text that
 * does not fit is refused, logged with iLineNo, and *pulUsed is left unchanged. */
ZOL_EXPORT void ZOL_FormatToBuff(char *pcBuf, u32 ulBufSize, u32 *pulUsed, s32 iLineNo, const char *pcFormat, ...)
    __attribute__((format(printf, 5, 6)));

/* Name of a process from /proc/<pid>/comm without its line feed, or "Unknown". */
ZOL_EXPORT void ZOL_GetProcNameById(u32 ulPid, char *pcName, u32 ulSize);

/* The calling thread's call stack as text: "<CallStack>\r\n" then "[i]symbol\r\n" per frame. */
ZOL_EXPORT void ZOL_GetCurrStack(u32 ulSkip, u32 ulMaxDepth, char *pcBuf, u32 ulSize);

/* Bare function name of a code address ("-x10" style for an unnamed offset). */
ZOL_EXPORT void BDS_SymNameGetEx(void *pAddr, char *pcName, u32 ulSize);

/* Copies the identifier at the start of pcSrc (letters, digits, '_'); a leading '0' becomes '-'. */
ZOL_EXPORT void BDS_SymNameGetCheck(const char *pcSrc, char *pcName, u32 ulSize);

/* Self-test: one record of each information type (returns 19), of each error type (returns 29), and both
 * with a summary line in the system log. */
ZOL_EXPORT u32 ZOL_VerifyDiaglogInfo(void);
ZOL_EXPORT u32 ZOL_VerifyDiaglogError(void);
ZOL_EXPORT void ZOL_VerifyDiaglog(void);

ZOL_EXTERN_C_END

#endif /* ZOL_FOUNDATION_H */
