/* Compiled as C: every exported header of the library (the generated list includes each one); reports the
 * C view of the records other programs embed, and formats through the library from C. */
#include <stddef.h>

#include "zol_all_headers.h"

#include "c_headers_test.h"

size_t ZolCLayout(size_t *pulValues);
void ZolCFormat(char *pcBuf, u32 ulSize);

size_t ZolCLayout(size_t *pulValues) {
    const size_t aulLayout[] = ZOL_TEST_LAYOUTS;
    size_t i;
    for (i = 0; i < sizeof(aulLayout) / sizeof(aulLayout[0]); ++i)
        pulValues[i] = aulLayout[i];
    return i;
}

void ZolCFormat(char *pcBuf, u32 ulSize) {
    u32 ulUsed = 0;
    ZOL_FormatToBuff(pcBuf, ulSize, &ulUsed, __LINE__, "C:%u", (unsigned)ZOL_LOG_TYPE_NUM);
}
