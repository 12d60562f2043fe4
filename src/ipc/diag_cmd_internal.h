// The OM diagnostic command service: the command table answered through the OM client, its request
// handler and dispatcher, and the connection to the OM framework kept alive by "Zol_CONN_OMCC".
#ifndef ZOL_DIAG_CMD_INTERNAL_H
#define ZOL_DIAG_CMD_INTERNAL_H

#include "zol_types.h"

#include "omcc.h"

namespace zol::diag {

inline constexpr u32 kOmCmdNum = 2;         // "get-ipc-info", "get-rpc-info"
inline constexpr u32 kOmSubCmdNum = 4;      // rows per command
inline constexpr u32 kOmPathLen = 147;      // subscription path buffer
inline constexpr u32 kOmProcPathLen = 115;  // process node path buffer
inline constexpr u32 kOmResultSize = 32768; // display output buffer
inline constexpr u32 kOmClientNameLen = 21; // "Zol_" + process name, 20 characters at most
inline constexpr u32 kOmConnRetrySec = 3;   // between connection attempts
inline constexpr u32 kOmFdEvents = 0x11;    // readable and hang-up
inline constexpr const char *kOmConnTaskName = "Zol_CONN_OMCC";
inline constexpr const char *kOmProcPathFmt =
    "/korvex-diagnose:diagnose/korvex-diagnose-zol:zol/processes/process[process-id=%u]";
inline constexpr const char *kOmSubPathFmt =
    "/korvex-diagnose:diagnose/korvex-diagnose-zol:zol/processes/process[process-id=%u]/%s";

// A display writes a NUL-terminated text of at most ulSize bytes into pcBuf (zero-filled beforehand).
typedef void (*OM_DISPLAY_PF)(char *pcBuf, u32 ulSize);

// One sub-command row: both null for a row without a sub-command.
struct OM_SUB_CMD_S {
    const char *pcSubCmd;
    OM_DISPLAY_PF pfDisplay;
};

struct OM_CMD_S {
    const char *pcCmdName;
    char szPath[kOmPathLen];   // subscription path, filled by ZOL_OmCmdStart
    OMCC_SUBSCRIPTION_S stSub; // handed to omcc_subscribe; pcPath points to szPath once filled
    OM_SUB_CMD_S astSubCmd[kOmSubCmdNum];
};

// Written once by ZOL_OmCmdStart (paths), read by the poll task afterwards. The display function
// pointers of the rows are the only part that later subsystems fill in.
extern OM_CMD_S g_astOmCmdTable[kOmCmdNum];

// OM agent state, see diag_conn.cpp for who writes what when.
struct OM_AGENT_S {
    OMCC_CLIENT_S *pClient; // null when creation or subscription failed
    s32 iFd;                // the connection's descriptor, -1 while not connected
    s32 iPollFd;            // the IPC poll set handed over at start
};
extern OM_AGENT_S g_stOmAgent;

// Request handler of both subscriptions (called from omcc_run on the poll task): 0 when a command was
// dispatched; 1 when the request could not be processed (path, parse or terminal failure, no known
// command node); the non-zero code of omcc_parse_str when the "type" argument is missing.
u32 ZOL_OmCmdRequestProc(void *pOmCtx, const OMCC_BYTES_S *pstRequest);

// Runs sub-command pcType of command ulCmdIndex and prints its output (or why not) on pstTty.
void ZOL_OmCmdDispatch(OMCC_TTY_S *pstTty, u32 ulCmdIndex, const char *pcType);

// Fills the subscription paths of the table with this process's id; false when one cannot be formatted
// (the second is then left alone).
bool ZOL_OmCmdBuildPaths(u32 ulPid);

// Starts the service once from IPC initialisation: client "Zol_" + process name, the two subscriptions,
// and the connection task. 1 only when the client name cannot be formatted, else 0 (failures of the
// client or the subscriptions are logged and leave the agent without a client).
u32 ZOL_OmCmdStart(s32 iPollFd);

} // namespace zol::diag

#endif // ZOL_DIAG_CMD_INTERNAL_H
