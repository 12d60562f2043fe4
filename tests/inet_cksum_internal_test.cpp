// White-box tests of the checksum's segment routine: any segmentation of a byte string, with segments at
// any alignment, gives the checksum of the whole string; zero-length segments and the byte limit.
#include "util/util_internal.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "cksum_reference.h"

namespace {

using zol::test::ReferenceCksum;
using zol::test::StoredAsNetworkOrder;
using zol::util::CksumSegment;
using zol::util::INET_CksumVector;

// Copies each piece of `whole` into its own buffer at a random start alignment, so segment boundaries and
// address parity vary independently.
struct Scattered {
    std::vector<std::vector<uint8_t>> storage;
    std::vector<CksumSegment> segments;
};

Scattered Scatter(const std::vector<uint8_t> &whole, const std::vector<u32> &lengths, std::mt19937 &rng) {
    Scattered s;
    size_t pos = 0;
    for (u32 len : lengths) {
        const size_t pad = rng() % 8;
        s.storage.emplace_back(pad + len + 1, 0xEE); // stray bytes around each piece must not count
        std::copy(whole.begin() + pos, whole.begin() + pos + len, s.storage.back().begin() + pad);
        pos += len;
    }
    for (size_t i = 0; i < lengths.size(); ++i) {
        const size_t pad = s.storage[i].size() - lengths[i] - 1;
        s.segments.push_back(CksumSegment{s.storage[i].data() + pad, lengths[i]});
    }
    return s;
}

TEST(InetCksumVectorTest, RandomSegmentationsMatchTheWholeString) {
    std::mt19937 rng(5381u);
    for (int round = 0; round < 3000; ++round) {
        const size_t total = rng() % 3000;
        std::vector<uint8_t> whole(total);
        const bool ones = round % 5 == 0;
        for (auto &b : whole) {
            b = ones ? 0xFF : static_cast<uint8_t>(rng());
        }
        std::vector<u32> lengths;
        for (size_t left = total; left > 0;) {
            const u32 pick = (rng() % 4 == 0) ? rng() % 4 : rng() % 200; // many tiny and empty pieces
            const u32 len = static_cast<u32>(std::min<size_t>(pick, left));
            lengths.push_back(len);
            left -= len;
        }
        if (rng() % 2) {
            lengths.push_back(0); // trailing empty segment
        }
        Scattered s = Scatter(whole, lengths, rng);
        const u16 got =
            INET_CksumVector(s.segments.data(), static_cast<u32>(s.segments.size()), static_cast<u32>(total));
        ASSERT_EQ(StoredAsNetworkOrder(got), ReferenceCksum(whole.data(), total)) << "round " << round;
    }
}

TEST(InetCksumVectorTest, TotalLimitsTheBytesSummed) {
    std::mt19937 rng(99u);
    std::vector<uint8_t> whole(301);
    for (auto &b : whole) {
        b = static_cast<uint8_t>(rng());
    }
    Scattered s = Scatter(whole, {7, 0, 100, 33, 161}, rng);
    for (u32 limit : {0u, 1u, 7u, 8u, 106u, 107u, 140u, 300u, 301u}) {
        EXPECT_EQ(StoredAsNetworkOrder(INET_CksumVector(s.segments.data(), 5, limit)),
                  ReferenceCksum(whole.data(), limit))
            << limit;
    }
    // A total above the bytes present sums what there is; no segments at all is the empty string.
    EXPECT_EQ(StoredAsNetworkOrder(INET_CksumVector(s.segments.data(), 5, 100000)),
              ReferenceCksum(whole.data(), whole.size()));
    EXPECT_EQ(INET_CksumVector(nullptr, 0, 10), 0xFFFF);

    // The five-byte example split at every point, one odd piece at a time.
    const uint8_t five[5] = {1, 2, 3, 4, 5};
    for (u32 cut = 0; cut <= 5; ++cut) {
        const CksumSegment two[2] = {{five, cut}, {five + cut, 5 - cut}};
        EXPECT_EQ(StoredAsNetworkOrder(INET_CksumVector(two, 2, 5)), 0xF6F9) << cut;
    }
}

} // namespace
