/* Proves the message-buffer header is plain C: a C program reads the fields as processes do. */
#include "zol_mbuf.h"

u32 MbufTestCHeaderFirstLength(const MBUF *m);

u32 MbufTestCHeaderFirstLength(const MBUF *m) {
    const DataBlockDescriptor *d = &m->firstDescriptor;
    return (u32)d->dataLength + (m->controlInfo[0] & 0u);
}
