// Internals of the small exported services: the checksum's segment routine, reachable by white-box tests.
#ifndef ZOL_UTIL_INTERNAL_H
#define ZOL_UTIL_INTERNAL_H

#include "zol_util.h"

namespace zol::util {

// One piece of a byte string that is checksummed as a whole.
struct CksumSegment {
    const void *data; // first byte, any alignment
    u32 length;       // byte count
};

// The RFC 1071 checksum (native byte order, as INET_Cksum) of the concatenation of the ulCount segments,
// limited to the first ulTotal bytes. Segments of length 0 are skipped; a segment that starts at an odd
// position of the concatenated string pairs its first byte with the last byte of the string before it.
u16 INET_CksumVector(const CksumSegment *pstSegments, u32 ulCount, u32 ulTotal);

} // namespace zol::util

#endif // ZOL_UTIL_INTERNAL_H
