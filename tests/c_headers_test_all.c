/* Compiled as C: every exported header of the library (the generated list includes each one). */
#include "zol_all_headers.h"

size_t zol_c_log_point_size(void);

size_t zol_c_log_point_size(void) {
    ZOL_LogPoint point = {0x1C, 2, 29, 1};
    return sizeof(point);
}
