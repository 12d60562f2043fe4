// The exported headers compile as plain C (see the companion C file) and agree with C++ on layouts.
#include <gtest/gtest.h>

#include "zol_foundation.h"

extern "C" size_t zol_c_log_point_size(void);

TEST(CHeaders, CompileAsCAndAgreeOnLayout) {
    EXPECT_EQ(zol_c_log_point_size(), sizeof(ZOL_LogPoint));
    EXPECT_EQ(sizeof(ZOL_LogPoint), 4u);
}
