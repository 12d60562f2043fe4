// The RFC 1071 checksum computed the slow, obvious way, one byte at a time, as the tests' reference.
#ifndef ZOL_TEST_CKSUM_REFERENCE_H
#define ZOL_TEST_CKSUM_REFERENCE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zol::test {

// The checksum in network byte order: bytes at even positions are the high byte of their word.
inline uint16_t ReferenceCksum(const uint8_t *p, size_t n) {
    uint64_t sum = 0;
    for (size_t i = 0; i < n; ++i) {
        sum += (i % 2 == 0) ? (uint64_t{p[i]} << 8) : p[i];
    }
    while (sum >> 16) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum & 0xFFFF);
}

// The bytes a native result gives when stored into a packet, as a network-order value.
inline uint16_t StoredAsNetworkOrder(uint16_t native) {
    uint8_t b[2];
    std::memcpy(b, &native, 2);
    return static_cast<uint16_t>((b[0] << 8) | b[1]);
}

} // namespace zol::test

#endif // ZOL_TEST_CKSUM_REFERENCE_H
