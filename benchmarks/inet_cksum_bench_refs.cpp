// Reference loops for the checksum benchmark (compiled at a fixed -O2).
#include "inet_cksum_bench_refs.h"

#include <cstring>

namespace zol::bench {
namespace {

inline uint32_t Load16(const uint8_t *p) {
    uint16_t w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

// A byte as the first byte of a native word whose second byte is zero.
inline uint32_t PaddedByte(uint8_t b) {
    const uint8_t pad[2] = {b, 0};
    return Load16(pad);
}

inline uint32_t Reduce(uint32_t sum) {
    sum = (sum >> 16) + (sum & 0xFFFF);
    return (sum > 0xFFFF) ? sum - 0xFFFF : sum;
}

} // namespace

uint16_t UnrolledWordCksum(const void *pData, uint32_t ulLen) {
    const uint8_t *w = static_cast<const uint8_t *>(pData);
    uint32_t sum = 0;
    int32_t m = static_cast<int32_t>(ulLen);
    bool swapped = false;
    uint8_t held[2] = {0, 0};
    if ((reinterpret_cast<uintptr_t>(w) & 1) != 0 && m > 0) {
        sum = Reduce(sum) << 8;
        held[0] = *w++;
        --m;
        swapped = true;
    }
    while ((m -= 32) >= 0) {
        sum += Load16(w) + Load16(w + 2) + Load16(w + 4) + Load16(w + 6) + Load16(w + 8) + Load16(w + 10) +
               Load16(w + 12) + Load16(w + 14) + Load16(w + 16) + Load16(w + 18) + Load16(w + 20) + Load16(w + 22) +
               Load16(w + 24) + Load16(w + 26) + Load16(w + 28) + Load16(w + 30);
        w += 32;
    }
    m += 32;
    while ((m -= 8) >= 0) {
        sum += Load16(w) + Load16(w + 2) + Load16(w + 4) + Load16(w + 6);
        w += 8;
    }
    m += 8;
    if (m != 0 || swapped) {
        sum = Reduce(sum);
        while ((m -= 2) >= 0) {
            sum += Load16(w);
            w += 2;
        }
        if (swapped) {
            sum = Reduce(sum) << 8;
            if (m == -1) {
                held[1] = *w;
                sum += Load16(held);
                m = 0;
            } else {
                m = -1;
            }
        } else if (m == -1) {
            held[0] = *w;
        }
    }
    if (m == -1) {
        held[1] = 0;
        sum += Load16(held);
    }
    return static_cast<uint16_t>(~Reduce(sum) & 0xFFFF);
}

uint16_t NaiveWordCksum(const void *pData, uint32_t ulLen) {
    const uint8_t *p = static_cast<const uint8_t *>(pData);
    uint32_t sum = 0;
    for (; ulLen > 1; ulLen -= 2, p += 2) {
        sum += Load16(p);
    }
    if (ulLen > 0) {
        sum += PaddedByte(*p);
    }
    while ((sum >> 16) != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum & 0xFFFF);
}

uint64_t ReadFloorSum(const void *pData, uint32_t ulLen) {
    const uint8_t *p = static_cast<const uint8_t *>(pData);
    uint64_t sum = 0;
    for (; ulLen >= 8; ulLen -= 8, p += 8) {
        uint64_t w;
        std::memcpy(&w, p, sizeof w);
        sum += w;
    }
    for (; ulLen > 0; --ulLen) {
        sum += *p++;
    }
    return sum;
}

} // namespace zol::bench
