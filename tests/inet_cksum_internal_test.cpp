// The Internet checksum against a byte-by-byte RFC 1071 reference: INET_Cksum for every length at every
// start alignment and for long buffers; the segment routine under it for any segmentation, segments at
// any alignment, zero-length segments and the byte limit (reached through the static twin).
#include "util/util_internal.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "zol_util.h"

namespace {

using zol::util::CksumSegment;
using zol::util::INET_CksumVector;
using Bytes = std::vector<uint8_t>;

// The reference in network byte order: bytes at even positions are the high byte of their word.
uint16_t Reference(const uint8_t *p, size_t n) {
    uint64_t sum = 0;
    for (size_t i = 0; i < n; ++i)
        sum += (i % 2 == 0) ? (uint64_t{p[i]} << 8) : p[i];
    while (sum >> 16)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum & 0xFFFF);
}

// The bytes a native result gives when stored into a packet, as a network-order value.
uint16_t Stored(uint16_t native) {
    uint8_t b[2];
    std::memcpy(b, &native, 2);
    return static_cast<uint16_t>((b[0] << 8) | b[1]);
}

Bytes RandomBytes(size_t n, std::mt19937 &rng) {
    Bytes v(n);
    std::generate(v.begin(), v.end(), [&] { return static_cast<uint8_t>(rng()); });
    return v;
}

TEST(InetCksumTest, EveryLengthAtEveryAlignmentAndLongBuffersMatchReference) {
    constexpr size_t kMaxLen = 2200;
    std::mt19937 rng(1071u);
    // Runs of 0xFF and 0x00 show carries and the zero/0xFFFF ambiguity of one's complement.
    for (const Bytes &bytes : {RandomBytes(kMaxLen + 8, rng), Bytes(kMaxLen + 8, 0xFF), Bytes(kMaxLen + 8, 0)}) {
        for (size_t off = 0; off < 8; ++off) {
            for (size_t len = 0; len <= kMaxLen; ++len) {
                if (Stored(INET_Cksum(bytes.data() + off, static_cast<u32>(len))) != Reference(bytes.data() + off, len))
                    FAIL() << "length " << len << " offset " << off;
            }
        }
    }
    // Beyond what a 32-bit accumulator (or one run of lanes) can hold of 0xFF bytes, at odd starts.
    for (size_t n : {size_t{600001}, size_t{3u << 20}}) {
        const Bytes ones(n + 1, 0xFF), random = RandomBytes(n + 3, rng);
        EXPECT_EQ(Stored(INET_Cksum(ones.data() + 1, static_cast<u32>(n))), Reference(ones.data() + 1, n)) << n;
        EXPECT_EQ(Stored(INET_Cksum(random.data() + 3, static_cast<u32>(n))), Reference(random.data() + 3, n)) << n;
    }
    EXPECT_EQ(INET_Cksum(nullptr, 0), 0xFFFF);
    uint8_t ip[20] = {0x45, 0x00, 0x00, 0x1C, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
                      0x00, 0x00, 0x0A, 0x00, 0x00, 0x01, 0x0A, 0x00, 0x00, 0x02};
    const u16 sum = INET_Cksum(ip, sizeof ip);
    EXPECT_EQ(Stored(sum), 0x26CF);
    std::memcpy(ip + 10, &sum, 2); // stored into the header's checksum field, the header sums to 0
    EXPECT_EQ(INET_Cksum(ip, sizeof ip), 0);
}

// Copies each piece of `whole` into its own buffer at a random start alignment, so segment boundaries
// and address parity vary independently; stray bytes around each piece must not count.
struct Scattered {
    std::vector<Bytes> storage;
    std::vector<CksumSegment> segments;
    Scattered(const Bytes &whole, const std::vector<u32> &lengths, std::mt19937 &rng) : storage(lengths.size()) {
        size_t pos = 0;
        for (size_t i = 0; i < lengths.size(); pos += lengths[i++]) {
            const size_t pad = rng() % 8;
            storage[i].assign(pad + lengths[i] + 1, 0xEE);
            std::copy_n(whole.begin() + pos, lengths[i], storage[i].begin() + pad);
            segments.push_back(CksumSegment{storage[i].data() + pad, lengths[i]});
        }
    }
    u16 Sum(u32 limit) const { return INET_CksumVector(segments.data(), static_cast<u32>(segments.size()), limit); }
};

TEST(InetCksumVectorTest, RandomSegmentationsMatchTheWholeStringUpToTheTotal) {
    std::mt19937 rng(5381u);
    for (int round = 0; round < 3000; ++round) {
        const size_t total = rng() % 3000;
        Bytes whole = round % 5 == 0 ? Bytes(total, 0xFF) : RandomBytes(total, rng);
        std::vector<u32> lengths;
        for (size_t left = total; left > 0; left -= lengths.back()) {
            const u32 pick = (rng() % 4 == 0) ? rng() % 4 : rng() % 200; // many tiny and empty pieces
            lengths.push_back(static_cast<u32>(std::min<size_t>(pick, left)));
        }
        lengths.push_back(0); // trailing empty segment
        ASSERT_EQ(Stored(Scattered(whole, lengths, rng).Sum(static_cast<u32>(total))), Reference(whole.data(), total))
            << "round " << round;
    }
    // The total limits the bytes summed; one above the bytes present sums what there is.
    const Bytes whole = RandomBytes(301, rng);
    const Scattered s(whole, {7, 0, 100, 33, 161}, rng);
    for (u32 limit : {0u, 1u, 7u, 8u, 107u, 140u, 301u, 100000u})
        EXPECT_EQ(Stored(s.Sum(limit)), Reference(whole.data(), std::min(limit, 301u))) << limit;
    EXPECT_EQ(INET_CksumVector(nullptr, 0, 10), 0xFFFF);
}

} // namespace
