// Chain plumbing shared by the message-buffer operations: allocation with owner marks, descriptor release,
// block sharing queries, offset location and the invariant walker.
#include "foundation/foundation_internal.h"
#include "mbuf/mbuf_internal.h"

#include <cstring>

#include "ruk_mem.h"

namespace zol::mbuf {

DataBlockDescriptor *MBUF_CreateDataBlockDescriptor(u32 blockSize, u32 type, u32 moduleId) {
    DataBlockDescriptor *d = AllocDescriptorRecord(moduleId, __LINE__);
    if (d == nullptr) {
        return nullptr;
    }
    u8 *block = AllocBlock(blockSize, moduleId, __LINE__);
    if (block == nullptr) {
        Release(d, __LINE__);
        return nullptr;
    }
    d->type = type;
    d->blockSize = static_cast<u16>(blockSize);
    d->dataBlock = block;
    d->next = nullptr;
    return d;
}

void ReleaseDescriptor(DataBlockDescriptor *d, u32 line, const char *tag) {
    if (d->dataBlock != nullptr) {
        Release(d->dataBlock, line, tag);
    }
    Release(d, line, tag);
}

u32 ReleaseChain(DataBlockDescriptor *d, u32 line, const char *tag) {
    u32 released = 0;
    while (d != nullptr) {
        DataBlockDescriptor *next = d->next;
        ReleaseDescriptor(d, line, tag);
        ++released;
        d = next;
    }
    return released;
}

namespace {

// Thirty-two bytes moved at once, with no alignment asked of the address (two 16-byte moves where the
// target has no wider registers).
typedef u8 Chunk32 __attribute__((vector_size(32), aligned(1)));
static_assert(sizeof(MBUF::controlInfo) % sizeof(Chunk32) == 0);

} // namespace

// The control area is cleared and copied with plain vector stores, kept from being turned back into
// memset / memcpy: for an area this small the string instructions those pick cost more to start than the
// whole move. On x86-64 a second version uses 32-byte registers where the processor has them. The choice is
// made by a resolver that runs while the library is relocated, before a sanitizer's runtime is up, so
// sanitizer builds keep the one version.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define ZOL_CONTROL_AREA_MOVE                                                                                          \
    __attribute__((optimize("no-tree-loop-distribute-patterns"), target_clones("avx2", "default")))
#else
#define ZOL_CONTROL_AREA_MOVE __attribute__((optimize("no-tree-loop-distribute-patterns")))
#endif

ZOL_CONTROL_AREA_MOVE void PresetControlInfo(MBUF *mbuf) {
    for (size_t i = 0; i < sizeof mbuf->controlInfo; i += sizeof(Chunk32)) {
        *reinterpret_cast<Chunk32 *>(mbuf->controlInfo + i) = Chunk32{};
    }
    // Words are stored through memcpy: the area is a byte array with no alignment promise of its own.
    const u32 a = kControlWordA;
    const u32 b = kControlWordB;
    std::memcpy(mbuf->controlInfo + MBUF_CONTROL_WORD_A_OFFSET, &a, sizeof a);
    std::memcpy(mbuf->controlInfo + MBUF_CONTROL_WORD_B_OFFSET, &b, sizeof b);
}

ZOL_CONTROL_AREA_MOVE void CopyControlArea(MBUF *to, const MBUF *from) {
    for (size_t i = 0; i < sizeof to->controlInfo; i += sizeof(Chunk32)) {
        *reinterpret_cast<Chunk32 *>(to->controlInfo + i) = *reinterpret_cast<const Chunk32 *>(from->controlInfo + i);
    }
}

bool BlockUnshared(const DataBlockDescriptor *d) {
    u32 count = 0;
    return RUK_MemRefGet(d->dataBlock, &count) == 0 && count == 1;
}

DataBlockDescriptor *LastDescriptor(MBUF *mbuf) {
    DataBlockDescriptor *d = &mbuf->firstDescriptor;
    while (d->next != nullptr) {
        d = d->next;
    }
    return d;
}

void PushFront(MBUF *mbuf, DataBlockDescriptor *d) {
    const DataBlockDescriptor former = mbuf->firstDescriptor;
    mbuf->firstDescriptor = *d;
    *d = former;
    mbuf->firstDescriptor.next = d;
    ++mbuf->dataBlockCount;
}

namespace {

DataBlockDescriptor *Locate(MBUF *mbuf, u32 *offset, u32 *passed, bool strict) {
    DataBlockDescriptor *d = &mbuf->firstDescriptor;
    u32 n = 0;
    while (d != nullptr && (strict ? d->dataLength <= *offset : d->dataLength < *offset)) {
        *offset -= d->dataLength;
        d = d->next;
        ++n;
    }
    if (passed != nullptr) {
        *passed = n;
    }
    return d;
}

} // namespace

DataBlockDescriptor *LocateStrict(MBUF *mbuf, u32 *offset, u32 *passed) {
    return Locate(mbuf, offset, passed, true);
}

DataBlockDescriptor *LocateLenient(MBUF *mbuf, u32 *offset, u32 *passed) {
    return Locate(mbuf, offset, passed, false);
}

namespace {

bool DescriptorIsSound(const DataBlockDescriptor *d) {
    if (d->dataBlock == nullptr) {
        return d->dataLength == 0;
    }
    return d->dataBlock <= d->data && d->data + d->dataLength <= d->dataBlock + d->blockSize;
}

// Every block must carry at least one reference per descriptor of this buffer that uses it; other
// buffers may hold more. A failed query proves nothing and is skipped.
bool ReferencesCover(const MBUF *mbuf, const DataBlockDescriptor *d) {
    u32 users = 0;
    for (const DataBlockDescriptor *e = &mbuf->firstDescriptor; e != nullptr; e = e->next) {
        users += (e->dataBlock == d->dataBlock) ? 1 : 0;
    }
    u32 refs = 0;
    return RUK_MemRefGet(d->dataBlock, &refs) != 0 || refs >= users;
}

} // namespace

bool ChainIsSound(const MBUF *mbuf) {
    u64 total = 0;
    u32 count = 0;
    for (const DataBlockDescriptor *d = &mbuf->firstDescriptor; d != nullptr; d = d->next) {
        if (!DescriptorIsSound(d) || (d->dataBlock != nullptr && !ReferencesCover(mbuf, d))) {
            return false;
        }
        total += d->dataLength;
        ++count;
    }
    return total == mbuf->totalDataLength && count == mbuf->dataBlockCount;
}

} // namespace zol::mbuf
