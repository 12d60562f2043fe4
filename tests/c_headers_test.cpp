// The exported headers compile as plain C (see the companion C file), agree with C++ on the layouts of
// the records other programs embed, and the library is callable from C.
#include "c_headers_test.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <iterator>

#include "zol_app.h"
#include "zol_foundation.h"
#include "zol_patch.h"
#include "zol_util.h"

extern "C" size_t ZolCLayout(size_t *pulValues);
extern "C" void ZolCFormat(char *pcBuf, u32 ulSize);

TEST(CHeaders, CompileAsCAgreeOnLayoutsAndCallFromC) {
    size_t c[16] = {};
    const size_t cxx[] = ZOL_TEST_LAYOUTS;
    ASSERT_EQ(ZolCLayout(c), std::size(cxx));
    for (size_t i = 0; i < std::size(cxx); ++i)
        EXPECT_EQ(c[i], cxx[i]) << "layout value " << i;
    EXPECT_EQ(sizeof(ZOL_LogPoint), 4u);
    if (sizeof(void *) == 8) { // the 64-bit layouts other programs are built against
        EXPECT_EQ(sizeof(SllHead), 32u);
        EXPECT_EQ(sizeof(SYS_AppInfo), 104u);
        EXPECT_EQ(offsetof(SYS_AppInfo, pfnInit), 88u);
    }
    char buf[16] = {0};
    ZolCFormat(buf, sizeof(buf));
    EXPECT_STREQ(buf, "C:48");
}
