// Who reports a record: the process identity (slot, CPU, process), filled once per process, and the
// thread identity, filled once per thread.
#include "foundation/log_internal.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "bounds_checked.h"
#include "devm.h"
#include "ruk_task.h"

namespace zol::log {
namespace {

constexpr u32 kUnknownId = 65535; // slot or CPU whose query failed
constexpr u32 kThreadIdentLen = 32;
constexpr u32 kThreadNameLen = 16; // what PR_GET_NAME writes at most, terminator included

LogIdentity g_stLogIdentity{};
// Claimed by the one thread that fills g_stLogIdentity; the others wait for ulInited.
std::atomic<bool> g_bIdentityClaimed{false};

// Zero at thread start; filled by the thread's first report.
thread_local char g_szThreadIdent[kThreadIdentLen];

void FillThreadIdent() {
    long lTid = syscall(SYS_gettid);
    int iLen = sprintf_s(g_szThreadIdent, sizeof(g_szThreadIdent), "%u,", static_cast<u32>(lTid));
    // "4294967295," leaves 21 bytes, more than the 16 the kernel writes.
    static_assert(kThreadIdentLen - 11 >= kThreadNameLen, "room for the thread name");
    if (iLen > 0) {
        (void)prctl(PR_GET_NAME, g_szThreadIdent + iLen, 0, 0, 0);
    }
}

void FillProcessIdentity(LogIdentity &stId) {
    u32 ulChassis = DEVM_GetChassisId();
    u32 ulSlot = 0;
    if (DEVM_GetSelfSlotId(&ulSlot) != 0) {
        ulSlot = kUnknownId;
    }
    (void)sprintf_s(stId.szSlot, sizeof(stId.szSlot), "%u/%u", ulChassis, ulSlot);
    if (DEVM_GetSelfCpuId(&stId.ulCpuId) != 0) {
        stId.ulCpuId = kUnknownId;
    }
    u32 ulPid = static_cast<u32>(getpid());
    int iLen = sprintf_s(stId.szProcess, sizeof(stId.szProcess), "%u,", ulPid);
    if (iLen > 0) {
        ZOL_GetProcNameById(ulPid, stId.szProcess + iLen, static_cast<u32>(sizeof(stId.szProcess)) - iLen);
    }
}

} // namespace

const LogIdentity &ZOL_LogIdentityInit() {
    if (g_szThreadIdent[0] == '\0') {
        FillThreadIdent();
    }
    // One thread fills the identity; concurrent first reports wait for it rather than fill it again,
    // so every record of the process carries the same identity.
    while (g_stLogIdentity.ulInited.load(std::memory_order_acquire) == 0) {
        if (!g_bIdentityClaimed.exchange(true, std::memory_order_acq_rel)) {
            FillProcessIdentity(g_stLogIdentity);
            g_stLogIdentity.ulInited.store(1, std::memory_order_release);
            break;
        }
        (void)RUK_TaskDelay(0);
    }
    return g_stLogIdentity;
}

const char *ZOL_LogThreadIdent() {
    return g_szThreadIdent;
}

} // namespace zol::log
