// The stand-in platform's fixed C API compiles as written from C (companion file), links and works from C.
#include <gtest/gtest.h>

#include "ruk_task.h"

extern "C" int plat_c_api_check(void);
extern "C" u32 plat_c_task_prio(u32 index);

TEST(PlatformCApi, FixedDeclarationsCompileFromCAndResolve) {
    EXPECT_EQ(plat_c_api_check(), 0);
    EXPECT_EQ(plat_c_task_prio(7), m_aulTaskPrio[7]);
}
