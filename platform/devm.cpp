// Stand-in device management: chassis, slot and CPU of this process, from the environment.
#include "devm.h"

#include <cerrno>
#include <cstdlib>

#include "plat_fault.h"

namespace {

constexpr u32 kDefaultChassisId = 1;
constexpr u32 kDefaultSlotId = 1;
constexpr u32 kDefaultCpuId = 0;

// Reads a decimal 32-bit value from the environment, or the default when the variable is unset.
// Read at every call (not cached) so that a test can move the process to another slot.
// False when the variable holds anything but a decimal number that fits in 32 bits.
bool ReadEnvId(const char *pcName, u32 ulDefault, u32 *pulValue) {
    const char *text = std::getenv(pcName);
    if (text == nullptr) {
        *pulValue = ulDefault;
        return true;
    }
    if (*text < '0' || *text > '9') {
        return false; // also refuses "", signs and leading blanks, which strtoul would accept
    }
    errno = 0;
    char *end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (errno != 0 || *end != '\0' || value > 0xFFFFFFFFul) {
        return false;
    }
    *pulValue = static_cast<u32>(value);
    return true;
}

// The failable id queries: injectable by their own name, refused for a null pointer or a bad value.
u32 GetSelfId(const char *pcCall, const char *pcEnvName, u32 ulDefault, u32 *pulId) {
    if (plat::FaultHit(pcCall)) {
        return RUK_ERR_INJECTED;
    }
    if (pulId == nullptr || !ReadEnvId(pcEnvName, ulDefault, pulId)) {
        return RUK_ERR_PARAM;
    }
    return RUK_OK;
}

} // namespace

extern "C" u32 DEVM_GetChassisId(void) {
    // This call has no way to fail, so a malformed value falls back to the default.
    u32 id = kDefaultChassisId;
    return ReadEnvId("ZOL_CHASSIS_ID", kDefaultChassisId, &id) ? id : kDefaultChassisId;
}

extern "C" u32 DEVM_GetSelfSlotId(u32 *pulSlotId) {
    return GetSelfId("DEVM_GetSelfSlotId", "ZOL_SLOT_ID", kDefaultSlotId, pulSlotId);
}

extern "C" u32 DEVM_GetSelfCpuId(u32 *pulCpuId) {
    return GetSelfId("DEVM_GetSelfCpuId", "ZOL_CPU_ID", kDefaultCpuId, pulCpuId);
}
