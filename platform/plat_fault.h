// Internal to the stand-in platform: the hook through which every failable call asks whether a test
// has told it to fail (see PLAT_FaultInject in standin_ctl.h).
#ifndef PLAT_FAULT_H
#define PLAT_FAULT_H

#include <atomic>

namespace plat {

// Every platform function that a test may make fail, by its C name. PLAT_FaultInject refuses others.
inline constexpr const char *kInjectableCalls[] = {
    "RUK_TaskCreate",
    "RUK_Ev_Write",
    "RUK_Ev_Read",
    "RUK_Que_Create",
    "RUK_Que_Write",
    "RUK_Que_Read",
    "RUK_Sm_Create",
    "RUK_Sm_Delete",
    "RUK_Sm_P",
    "RUK_Sm_V",
    "RUK_MutexInit",
    "RUK_MutexLock",
    "RUK_MutexUnlock",
    "RUK_HandleInitialize",
    "RUK_MemAlloc_F",
    "RUK_MemReAlloc_F",
    "RUK_MemFree_F",
    "RUK_MemRefInc",
    "RUK_MemRefGet",
    "RUK_SllDeleteSafe",
    "RUK_IpAddrToStr",
    "RUK_TzLocalTimeGet",
    "RUK_SystimeSecSince1970",
    "RUK_CallStackSelfGet",
    "RUK_SymNameGet",
    "MESH_EpollCreate",
    "MESH_EpollCtl",
    "MESH_EpollWait",
    "MESH_Close",
    "DEVM_GetSelfSlotId",
    "DEVM_GetSelfCpuId",
    "IM_Agent_ObjCreate",
    "IM_Agent_AddPara",
    "IM_Agent_Send",
    "HASH_CreateNew",
    "HASH_NewData",
    "HASH_AddNode",
    "memcpy_s",
    "memmove_s",
    "memset_s",
    "strcpy_s",
    "strncpy_s",
    "sprintf_s",
    "vsprintf_s",
    "vsnprintf_truncated_s",
    "omcc_client_new",
    "omcc_subscribe",
    "omcc_connect",
    "omcc_activate",
    "omcc_run",
    "omcc_parse_bytes",
    "omcc_tty_borrow",
};

// Number of call names with failures pending; zero in every process that injects nothing.
// Hidden: read on every pool call, so one load and no indirection through the symbol table.
extern std::atomic<unsigned> g_faultPendingNames __attribute__((visibility("hidden")));

// Slow path of FaultHit: looks the name up under the table's lock.
__attribute__((visibility("hidden"))) bool FaultHitSlow(const char *pcCall);

// True when this call of the named function must fail. Inline and one relaxed load when nothing is
// injected, so it can sit on every hot path of the platform. A test injects before the calls it
// targets, in the same thread or ordered by its own synchronisation, so relaxed order is enough.
inline bool FaultHit(const char *pcCall) {
    if (__builtin_expect(g_faultPendingNames.load(std::memory_order_relaxed) == 0, 1)) {
        return false;
    }
    return FaultHitSlow(pcCall);
}

} // namespace plat

#endif // PLAT_FAULT_H
