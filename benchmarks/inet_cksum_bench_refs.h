// Reference loops the checksum benchmark compares INET_Cksum with, built from their own source file at a
// fixed -O2 so that the comparison does not move with the project's build flags.
#ifndef ZOL_BENCH_INET_CKSUM_REFS_H
#define ZOL_BENCH_INET_CKSUM_REFS_H

#include <cstddef>
#include <cstdint>

namespace zol::bench {

// The classic loop: 32-bit accumulator of two-byte loads from even addresses, the odd-start byte taken
// alone and the sum rotated, loops unrolled to 16 and then 4 words, folds only where needed.
uint16_t UnrolledWordCksum(const void *pData, uint32_t ulLen);

// The textbook RFC 1071 loop: one 16-bit word at a time into a 32-bit sum, folded at the end.
uint16_t NaiveWordCksum(const void *pData, uint32_t ulLen);

// Not a checksum: the same bytes summed as 64-bit words (plus the tail bytes), the cost of reading them.
uint64_t ReadFloorSum(const void *pData, uint32_t ulLen);

} // namespace zol::bench

#endif // ZOL_BENCH_INET_CKSUM_REFS_H
