// Test fixture that fails a test which leaves blocks of the library's memory handle allocated.
#ifndef ZOL_TEST_LEAK_CHECK_H
#define ZOL_TEST_LEAK_CHECK_H

#include <gtest/gtest.h>

#include "zol_foundation.h"

#include "standin_ctl.h"

namespace zol::test {

class LeakCheckedTest : public ::testing::Test {
  protected:
    void SetUp() override {
        PLAT_FaultClear();
        handle_ = ZOL_GetMemHandle();
        PLAT_MemStats(handle_, &startBlocks_, &startBytes_);
    }
    void TearDown() override {
        PLAT_FaultClear();
        u64 blocks = 0, bytes = 0;
        PLAT_MemStats(handle_, &blocks, &bytes);
        EXPECT_EQ(blocks, startBlocks_) << "blocks of \"zol_mem\" leaked by this test";
        EXPECT_EQ(bytes, startBytes_) << "bytes of \"zol_mem\" leaked by this test";
    }
    u32 handle_ = 0;
    u64 startBlocks_ = 0, startBytes_ = 0;
};

} // namespace zol::test

#endif // ZOL_TEST_LEAK_CHECK_H
