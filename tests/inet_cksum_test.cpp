// Tests of INET_Cksum through the exported API: bit-exact with a byte-by-byte RFC 1071 reference for every
// length and start alignment, for long buffers, and on the classic worked examples.
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "zol_util.h"

#include "cksum_reference.h"

namespace {

using zol::test::ReferenceCksum;
using zol::test::StoredAsNetworkOrder;

std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto &b : v) {
        b = static_cast<uint8_t>(rng());
    }
    return v;
}

TEST(InetCksumTest, EveryLengthAtEveryAlignmentMatchesReference) {
    constexpr size_t kMaxLen = 2200;
    std::vector<uint8_t> buf = RandomBytes(kMaxLen + 16, 1071u);
    // Also runs of 0xFF and 0x00, where carries and the zero/0xFFFF ambiguity of one's complement show.
    std::vector<uint8_t> ones(kMaxLen + 16, 0xFF), zeros(kMaxLen + 16, 0x00);
    for (const auto *data : {&buf, &ones, &zeros}) {
        for (size_t off = 0; off < 8; ++off) {
            for (size_t len = 0; len <= kMaxLen; ++len) {
                const uint8_t *p = data->data() + off;
                const u16 got = INET_Cksum(p, static_cast<u32>(len));
                if (StoredAsNetworkOrder(got) != ReferenceCksum(p, len)) {
                    FAIL() << "length " << len << " offset " << off << ": got 0x" << std::hex << got;
                }
            }
        }
    }
}

TEST(InetCksumTest, LongBuffersMatchReference) {
    // Well beyond what a 32-bit accumulator folded only at the end could hold of 0xFF bytes.
    for (size_t n : {size_t{131072}, size_t{131073}, size_t{600000}, size_t{3u << 20}}) {
        std::vector<uint8_t> ones(n + 1, 0xFF);
        EXPECT_EQ(StoredAsNetworkOrder(INET_Cksum(ones.data() + 1, static_cast<u32>(n))),
                  ReferenceCksum(ones.data() + 1, n))
            << n;
        std::vector<uint8_t> rnd = RandomBytes(n + 3, static_cast<uint32_t>(n));
        EXPECT_EQ(StoredAsNetworkOrder(INET_Cksum(rnd.data() + 3, static_cast<u32>(n))),
                  ReferenceCksum(rnd.data() + 3, n))
            << n;
    }
}

TEST(InetCksumTest, WorkedExamples) {
    EXPECT_EQ(INET_Cksum(nullptr, 0), 0xFFFF);

    uint8_t ip[20] = {0x45, 0x00, 0x00, 0x1C, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
                      0x00, 0x00, 0x0A, 0x00, 0x00, 0x01, 0x0A, 0x00, 0x00, 0x02};
    const u16 sum = INET_Cksum(ip, sizeof ip);
    EXPECT_EQ(StoredAsNetworkOrder(sum), 0x26CF);
    // Stored into the header's checksum field, the header sums to 0.
    std::memcpy(ip + 10, &sum, 2);
    EXPECT_EQ(INET_Cksum(ip, sizeof ip), 0);

    const uint8_t five[5] = {0x01, 0x02, 0x03, 0x04, 0x05};
    EXPECT_EQ(StoredAsNetworkOrder(INET_Cksum(five, 5)), 0xF6F9);
}

} // namespace
