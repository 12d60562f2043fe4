// Test controls of the stand-in: fault injection by call name. Memory statistics live with the
// memory service (ruk_mem.cpp), which owns the counters.
#include "standin_ctl.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>

#include "plat_fault.h"

namespace plat {
namespace {

struct Injection {
    u32 skip;  // calls that still succeed before the failures start
    u32 count; // failures still to deliver
};

struct FaultTable {
    std::mutex lock;
    std::unordered_map<std::string, Injection> byName;
};

FaultTable &Table() {
    static FaultTable *table = new FaultTable(); // never destroyed: platform calls may run at exit
    return *table;
}


bool IsKnown(const char *pcCall) {
    for (const char *name : kInjectableCalls) {
        if (std::strcmp(name, pcCall) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace

std::atomic<unsigned> g_faultPendingNames{0};

bool FaultHitSlow(const char *pcCall) {
    FaultTable &table = Table();
    std::lock_guard<std::mutex> guard(table.lock);
    auto it = table.byName.find(pcCall);
    if (it == table.byName.end()) {
        return false;
    }
    if (it->second.skip > 0) {
        --it->second.skip;
        return false;
    }
    if (--it->second.count == 0) {
        table.byName.erase(it);
        g_faultPendingNames.fetch_sub(1, std::memory_order_release);
    }
    return true;
}

} // namespace plat

extern "C" u32 PLAT_FaultInject(const char *pcCall, u32 ulSkip, u32 ulCount) {
    if (pcCall == nullptr || !plat::IsKnown(pcCall)) {
        return RUK_ERR_NOT_FOUND;
    }
    plat::FaultTable &table = plat::Table();
    std::lock_guard<std::mutex> guard(table.lock);
    bool existed = table.byName.erase(pcCall) > 0;
    if (ulCount == 0) {
        if (existed) {
            plat::g_faultPendingNames.fetch_sub(1, std::memory_order_release);
        }
        return RUK_OK;
    }
    table.byName[pcCall] = plat::Injection{ulSkip, ulCount};
    if (!existed) {
        plat::g_faultPendingNames.fetch_add(1, std::memory_order_release);
    }
    return RUK_OK;
}

extern "C" void PLAT_FaultClear(void) {
    plat::FaultTable &table = plat::Table();
    std::lock_guard<std::mutex> guard(table.lock);
    table.byName.clear();
    plat::g_faultPendingNames.store(0, std::memory_order_release);
}
