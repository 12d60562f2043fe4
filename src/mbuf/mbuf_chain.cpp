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

void ReleaseDescriptor(DataBlockDescriptor *d, u32 line) {
    if (d->dataBlock != nullptr) {
        Release(d->dataBlock, line);
    }
    Release(d, line);
}

u32 ReleaseChain(DataBlockDescriptor *d, u32 line) {
    u32 released = 0;
    while (d != nullptr) {
        DataBlockDescriptor *next = d->next;
        ReleaseDescriptor(d, line);
        ++released;
        d = next;
    }
    return released;
}

namespace {

// Sixteen bytes stored at once, with no alignment asked of the address.
typedef u8 Chunk16 __attribute__((vector_size(16), aligned(1)));
static_assert(sizeof(MBUF::controlInfo) % sizeof(Chunk16) == 0);

} // namespace

// The clear is written as plain 16-byte stores and kept from being turned back into memset: for an area
// this small the string instruction memset picks costs more to start than the whole clear.
__attribute__((optimize("no-tree-loop-distribute-patterns"))) void PresetControlInfo(MBUF *mbuf) {
    for (size_t i = 0; i < sizeof mbuf->controlInfo; i += sizeof(Chunk16)) {
        *reinterpret_cast<Chunk16 *>(mbuf->controlInfo + i) = Chunk16{};
    }
    // Words are stored through memcpy: the area is a byte array with no alignment promise of its own.
    const u32 a = kControlWordA;
    const u32 b = kControlWordB;
    std::memcpy(mbuf->controlInfo + MBUF_CONTROL_WORD_A_OFFSET, &a, sizeof a);
    std::memcpy(mbuf->controlInfo + MBUF_CONTROL_WORD_B_OFFSET, &b, sizeof b);
}

__attribute__((optimize("no-tree-loop-distribute-patterns"))) void CopyControlArea(MBUF *to, const MBUF *from) {
    for (size_t i = 0; i < sizeof to->controlInfo; i += sizeof(Chunk16)) {
        *reinterpret_cast<Chunk16 *>(to->controlInfo + i) = *reinterpret_cast<const Chunk16 *>(from->controlInfo + i);
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
