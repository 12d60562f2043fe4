// The Internet checksum (RFC 1071) over one buffer or a vector of segments.
//
// The one's complement sum does not depend on how the additions are grouped, only on which byte of each
// 16-bit word a byte lands in. So every segment is summed on its own as if it began a word (a final odd
// byte padded with a zero byte after it), wide and fast, with carries kept in a 64-bit total and folded
// once at the end; a segment that begins at an odd position of the whole string has every byte in the
// other half of its word, which is the byte swap of its folded sum (RFC 1071, byte-order independence).
#include "util/util_internal.h"

#include <cstring>

namespace {

// Four 32-bit lanes; the compiler maps this onto SSE2 on x86-64 and NEON on AArch64 (both baseline).
typedef u32 V4u32 __attribute__((vector_size(16)));

constexpr size_t kBlockBytes = 64;
// Each block adds at most 4 x 0xFFFF to every lane, so 8192 blocks (512 KiB) stay below 2^31 per lane.
constexpr size_t kBlocksPerRun = 8192;

// One native word of type T from p (any alignment).
template <typename T>
inline T LoadWord(const u8 *p) {
    T word;
    std::memcpy(&word, p, sizeof word);
    return word;
}

typedef u64 V2u64 __attribute__((vector_size(16)));

// Sum of the four lanes of two accumulators, widened pairwise so nothing can carry out.
inline u64 LaneSum(V4u32 vA, V4u32 vB) {
    const V2u64 vMask32 = {0xFFFFFFFFu, 0xFFFFFFFFu};
    const V2u64 vWideA = reinterpret_cast<V2u64>(vA);
    const V2u64 vWideB = reinterpret_cast<V2u64>(vB);
    const V2u64 vSum = (vWideA & vMask32) + (vWideA >> 32) + (vWideB & vMask32) + (vWideB >> 32);
    return vSum[0] + vSum[1];
}

// Sum of the native 16-bit words of ulBlocks 64-byte blocks. Every 32-bit lane holds two words; the low
// and the high word are split into separate accumulators so no lane can carry out within a run.
u64 SumBlocks(const u8 *p, size_t ulBlocks) {
    const V4u32 vMask = {0xFFFFu, 0xFFFFu, 0xFFFFu, 0xFFFFu};
    u64 ullSum = 0;
    while (ulBlocks != 0) {
        const size_t ulRun = (ulBlocks < kBlocksPerRun) ? ulBlocks : kBlocksPerRun;
        V4u32 vLow = {0, 0, 0, 0};
        V4u32 vHigh = {0, 0, 0, 0};
        for (size_t i = 0; i < ulRun; ++i, p += kBlockBytes) {
            const V4u32 v0 = LoadWord<V4u32>(p), v1 = LoadWord<V4u32>(p + 16), v2 = LoadWord<V4u32>(p + 32),
                        v3 = LoadWord<V4u32>(p + 48);
            vLow += ((v0 & vMask) + (v1 & vMask)) + ((v2 & vMask) + (v3 & vMask));
            vHigh += ((v0 >> 16) + (v1 >> 16)) + ((v2 >> 16) + (v3 >> 16));
        }
        ullSum += LaneSum(vLow, vHigh);
        ulBlocks -= ulRun;
    }
    return ullSum;
}

// Sum of the native 16-bit words of n bytes (fewer than 64), the last odd byte padded with zero. A
// 32-bit word is two native 16-bit words, so summing 32-bit halves sums the same words.
u64 SumTail(const u8 *p, size_t n) {
    u64 ullSum = 0;
    for (; n >= 8; n -= 8, p += 8) {
        const u64 ullWord = LoadWord<u64>(p);
        ullSum += (ullWord & 0xFFFFFFFFu) + (ullWord >> 32);
    }
    if ((n & 4) != 0) {
        ullSum += LoadWord<u32>(p);
        p += 4;
    }
    if ((n & 2) != 0) {
        ullSum += LoadWord<u16>(p);
        p += 2;
    }
    if ((n & 1) != 0) {
        const u8 aucPad[2] = {*p, 0};
        ullSum += LoadWord<u16>(aucPad);
    }
    return ullSum;
}

// End-around carry down to 16 bits: the result is 0 only for a zero sum and otherwise in 1..0xFFFF.
u32 Fold16(u64 ullSum) {
    ullSum = (ullSum & 0xFFFFFFFFu) + (ullSum >> 32);
    ullSum = (ullSum & 0xFFFFFFFFu) + (ullSum >> 32);
    ullSum = (ullSum & 0xFFFFu) + (ullSum >> 16);
    ullSum = (ullSum & 0xFFFFu) + (ullSum >> 16);
    ullSum = (ullSum & 0xFFFFu) + (ullSum >> 16);
    return static_cast<u32>(ullSum);
}

// Folded one's complement sum of one segment taken as starting a word.
u32 SumSegment(const u8 *p, size_t n) {
    const size_t ulBlocks = n / kBlockBytes;
    const u64 ullSum = SumBlocks(p, ulBlocks) + SumTail(p + ulBlocks * kBlockBytes, n % kBlockBytes);
    return Fold16(ullSum);
}

} // namespace

namespace zol::util {

u16 INET_CksumVector(const CksumSegment *pstSegments, u32 ulCount, u32 ulTotal) {
    u64 ullSum = 0;
    bool bOddStart = false; // the next segment starts at an odd position of the whole string
    for (u32 i = 0; i < ulCount && ulTotal != 0; ++i) {
        const u32 ulLen = (pstSegments[i].length < ulTotal) ? pstSegments[i].length : ulTotal;
        if (ulLen == 0) {
            continue;
        }
        u32 ulPart = SumSegment(static_cast<const u8 *>(pstSegments[i].data), ulLen);
        if (bOddStart) {
            ulPart = ((ulPart & 0xFFu) << 8) | (ulPart >> 8);
        }
        ullSum += ulPart;
        ulTotal -= ulLen;
        bOddStart ^= (ulLen & 1u) != 0;
    }
    return static_cast<u16>(~Fold16(ullSum) & 0xFFFFu);
}

} // namespace zol::util

// One segment is the vector routine's case of a single even-start segment, taken directly: short
// packets are common enough that the segment loop's overhead shows.
extern "C" ZOL_EXPORT u16 INET_Cksum(const void *pData, u32 ulLength) {
    return static_cast<u16>(~SumSegment(static_cast<const u8 *>(pData), ulLength) & 0xFFFFu);
}
