// Test-side view of message buffers, written from the exported record layout alone: the flat bytes of a
// buffer, snapshots of it, the chain invariant across a set of buffers (reference counts included),
// builders of chains with chosen descriptor lengths, and the allocation-failure sweep.
#ifndef ZOL_MBUF_TEST_MODEL_H
#define ZOL_MBUF_TEST_MODEL_H

#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <vector>

#include "zol_mbuf.h"

#include "ruk_mem.h"
#include "standin_ctl.h"

namespace zol::test {

constexpr u32 kMod = 0xC00D0000u; // module id the tests allocate under
constexpr u32 kType = 7;

using Bytes = std::vector<u8>;

#define ZOL_FOR_EACH_DESCRIPTOR(d, m) for (auto *d = &(m)->firstDescriptor; d != nullptr; d = d->next)

// The buffer's data as one flat array, read straight from the descriptors.
inline Bytes Flat(const MBUF *m) {
    Bytes out;
    ZOL_FOR_EACH_DESCRIPTOR(d, m) {
        out.insert(out.end(), d->data, d->data + d->dataLength);
    }
    return out;
}

inline Bytes Pattern(size_t n, u32 seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i)
        b[i] = static_cast<u8>((i * 131u + seed * 17u + (i >> 8)) & 0xFF);
    return b;
}

// Writes bytes over the buffer's data directly, as a process does through the fields.
inline void Fill(MBUF *m, const Bytes &bytes) {
    size_t pos = 0;
    ZOL_FOR_EACH_DESCRIPTOR(d, m) {
        if (d->dataLength > 0) { // an empty pattern has no data pointer at all
            std::memcpy(d->data, bytes.data() + pos, d->dataLength);
            pos += d->dataLength;
        }
    }
}

inline std::vector<u16> Lengths(const MBUF *m) {
    std::vector<u16> out;
    ZOL_FOR_EACH_DESCRIPTOR(d, m) {
        out.push_back(d->dataLength);
    }
    return out;
}

inline u32 RefCount(const void *block) {
    u32 count = 0;
    EXPECT_EQ(RUK_MemRefGet(const_cast<void *>(block), &count), 0u);
    return count;
}

// Every descriptor record (next pointers included: the same records must stay linked), the header fields,
// the control area and the data, to prove that a failed operation changed nothing.
inline Bytes Take(const MBUF *m) {
    Bytes s(reinterpret_cast<const u8 *>(&m->totalDataLength), reinterpret_cast<const u8 *>(&m->firstDescriptor));
    ZOL_FOR_EACH_DESCRIPTOR(d, m) {
        s.insert(s.end(), reinterpret_cast<const u8 *>(d), reinterpret_cast<const u8 *>(d + 1));
    }
    const Bytes flat = Flat(m);
    s.insert(s.end(), flat.begin(), flat.end());
    return s;
}

// The chain invariant over every live buffer of a test: per buffer the total is the sum of the lengths,
// the count is the number of descriptors and each descriptor's data lies inside its block; across the
// buffers each block's reference count equals the number of descriptors pointing into it.
inline void ExpectSound(const std::vector<const MBUF *> &buffers) {
    std::map<const u8 *, u32> users;
    for (const MBUF *m : buffers) {
        u64 total = 0;
        u32 count = 0;
        ZOL_FOR_EACH_DESCRIPTOR(d, m) {
            ASSERT_NE(d->dataBlock, nullptr) << "descriptor " << count;
            EXPECT_LE(d->dataBlock, d->data) << "descriptor " << count;
            EXPECT_LE(d->data + d->dataLength, d->dataBlock + d->blockSize) << "descriptor " << count;
            ++users[d->dataBlock];
            total += d->dataLength;
            ++count;
        }
        EXPECT_EQ(total, m->totalDataLength);
        EXPECT_EQ(count, m->dataBlockCount);
    }
    for (const auto &[block, n] : users)
        EXPECT_EQ(RefCount(block), n) << "references of a block";
}

inline void ExpectSoundThenDestroy(std::initializer_list<MBUF *> buffers) {
    ExpectSound(std::vector<const MBUF *>(buffers.begin(), buffers.end()));
    for (MBUF *m : buffers)
        EXPECT_EQ(MBUF_Destroy(m), 0u);
}

// A buffer whose descriptors hold the given lengths, each in its own block after `headSpace` bytes of head
// room, filled with a pattern.
inline MBUF *Chain(const std::vector<u32> &lengths, u32 headSpace = 100, u32 seed = 1) {
    MBUF *head = nullptr;
    for (u32 len : lengths) {
        MBUF *piece = MBUF_CreateForControlPacket(headSpace, len, kType, kMod);
        EXPECT_NE(piece, nullptr);
        if (head == nullptr) {
            head = piece;
        } else {
            EXPECT_EQ(MBUF_Concatenate(head, piece, kMod), 0u);
        }
    }
    Fill(head, Pattern(head->totalDataLength, seed));
    return head;
}

// Runs op, which must refuse (returning true when it did), with `fault` failing its first call after `skip`
// (nothing injected when null), and checks that it left `m` exactly as it was.
template <typename Op>
void ExpectRefusedUnchanged(const MBUF *m, Op op, const char *fault = nullptr, u32 skip = 0) {
    const Bytes before = Take(m);
    if (fault != nullptr) {
        PLAT_FaultInject(fault, skip, 1);
    }
    EXPECT_TRUE(op()) << (fault != nullptr ? fault : "refusal");
    PLAT_FaultClear();
    EXPECT_EQ(Take(m), before) << (fault != nullptr ? fault : "refusal");
}

// Runs op with the k-th allocation failing, for k = 0, 1, ... until op succeeds with the injection still
// pending (so every allocation step has been failed once), then checks that every failure left `m` as it
// was (when given). op returns true on success. Returns the number of failing steps seen.
template <typename Op>
u32 SweepAllocFailures(Op op, const MBUF *m = nullptr) {
    const Bytes before = m != nullptr ? Take(m) : Bytes();
    for (u32 k = 0; k < 1000; ++k) {
        PLAT_FaultInject("RUK_MemAlloc_F", k, 1);
        const bool ok = op();
        PLAT_FaultClear();
        if (ok) {
            return k;
        }
        if (m != nullptr) {
            EXPECT_EQ(Take(m), before) << "allocation step " << k << " failed and changed the buffer";
        }
    }
    ADD_FAILURE() << "operation never succeeded";
    return 0;
}

} // namespace zol::test

#endif // ZOL_MBUF_TEST_MODEL_H
