/* Compiles the message-buffer header as C: processes written in C read the fields at these offsets. */
#include <stddef.h>

#include "zol_mbuf.h"

_Static_assert(sizeof(DataBlockDescriptor) == 32 && offsetof(DataBlockDescriptor, blockSize) == 4, "descriptor");
_Static_assert(offsetof(DataBlockDescriptor, dataLength) == 6 && offsetof(DataBlockDescriptor, data) == 8, "data");
_Static_assert(offsetof(DataBlockDescriptor, dataBlock) == 16 && offsetof(DataBlockDescriptor, next) == 24, "links");
_Static_assert(sizeof(MBUF) == 376 && offsetof(MBUF, totalDataLength) == 8, "header");
_Static_assert(offsetof(MBUF, dataBlockCount) == 12 && offsetof(MBUF, controlInfo) == 24, "control area");
_Static_assert(offsetof(MBUF, firstDescriptor) == 344, "first descriptor in the header");
