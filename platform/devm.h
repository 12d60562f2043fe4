/* Device management: where this process runs. The stand-in answers from the environment variables
 * ZOL_CHASSIS_ID (default 1), ZOL_SLOT_ID (default 1) and ZOL_CPU_ID (default 0), read at each call. */
#ifndef DEVM_H
#define DEVM_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

u32 DEVM_GetChassisId(void);
/* RUK_OK and the slot in *pulSlotId; RUK_ERR_PARAM for a null pointer or a value that is not a number. */
u32 DEVM_GetSelfSlotId(u32 *pulSlotId);
/* RUK_OK and the CPU in *pulCpuId; RUK_ERR_PARAM for a null pointer or a value that is not a number. */
u32 DEVM_GetSelfCpuId(u32 *pulCpuId);

#ifdef __cplusplus
}
#endif

#endif /* DEVM_H */
