// Internals shared by the message-buffer operations: allocation with owner marks, descriptor release,
// block sharing queries, offset location and the chain invariant check.
#ifndef ZOL_MBUF_INTERNAL_H
#define ZOL_MBUF_INTERNAL_H

#include "foundation/foundation_internal.h"

#include <cassert>

#include "zol_mbuf.h"

namespace zol::mbuf {

constexpr u32 kOk = 0;
constexpr u32 kFail = 1;

// File tag of every allocation and release except those of MBUF_Destroy_X.
constexpr const char *kFileTag = "src/mbuf/mbuf";
constexpr const char *kDestroyFileTag = "mbuf";

// Owner marks or-ed into the caller's module id (accounting only).
constexpr u32 kOwnerHeader = 0x100;
constexpr u32 kOwnerDescriptor = 0x101;
constexpr u32 kOwnerBlock = 0x2;

constexpr u32 kBigBlockSize = 4096;         // compression's middle size
constexpr u32 kMaxDescriptorBytes = 0xFFFF; // what a 16-bit dataLength can hold
constexpr u32 kControlWordA = 0xFFFFFFFFu;
constexpr u32 kControlWordB = 255;

// Raw allocations of the three kinds; null on failure, nothing logged. Inline: creation and destruction
// of a buffer are little more than these.
inline MBUF *AllocHeader(u32 moduleId, u32 line) {
    return static_cast<MBUF *>(ZOL_MemAlloc(moduleId | kOwnerHeader, sizeof(MBUF), kFileTag, line));
}
inline DataBlockDescriptor *AllocDescriptorRecord(u32 moduleId, u32 line) {
    return static_cast<DataBlockDescriptor *>(
        ZOL_MemAlloc(moduleId | kOwnerDescriptor, sizeof(DataBlockDescriptor), kFileTag, line));
}
inline u8 *AllocBlock(u32 size, u32 moduleId, u32 line) {
    return static_cast<u8 *>(ZOL_MemAlloc(moduleId | kOwnerBlock, size, kFileTag, line));
}
inline void Release(void *p, u32 line, const char *tag = kFileTag) {
    (void)ZOL_MemFree(p, tag, line);
}

// A standalone descriptor with a fresh block of blockSize bytes; data and dataLength are left to the
// caller. Null on failure with nothing allocated. Logs nothing.
DataBlockDescriptor *MBUF_CreateDataBlockDescriptor(u32 blockSize, u32 type, u32 moduleId);

// Drops the block reference of a standalone descriptor (when it has a block) and frees its record.
void ReleaseDescriptor(DataBlockDescriptor *d, u32 line, const char *tag = kFileTag);
// ReleaseDescriptor for d and every descriptor after it; returns how many were released.
u32 ReleaseChain(DataBlockDescriptor *d, u32 line, const char *tag = kFileTag);

// Clears the control area and sets its two preset words.
void PresetControlInfo(MBUF *mbuf);

// Copies the whole control area between two distinct headers (plain stores, like the clear above).
void CopyControlArea(MBUF *to, const MBUF *from);

// True only when the platform reports exactly one reference on d's block; a failed query means shared.
bool BlockUnshared(const DataBlockDescriptor *d);

// Bytes between the end of d's data and the end of its block.
inline u32 TailRoom(const DataBlockDescriptor *d) {
    return static_cast<u32>((d->dataBlock + d->blockSize) - (d->data + d->dataLength));
}

DataBlockDescriptor *LastDescriptor(MBUF *mbuf);

// Makes the standalone descriptor d the buffer's first: the two records are exchanged whole, and d's record,
// which now holds the former first descriptor and its chain, follows the embedded one. Counts d.
void PushFront(MBUF *mbuf, DataBlockDescriptor *d);

// Walks from the first descriptor, subtracting each passed descriptor's dataLength from *offset. Strict
// passes while dataLength <= *offset (stops at the descriptor holding that byte); lenient passes while
// dataLength < *offset (an offset at a descriptor's end stops there). *passed counts the descriptors passed.
// Null when the chain ends first.
DataBlockDescriptor *LocateStrict(MBUF *mbuf, u32 *offset, u32 *passed);
DataBlockDescriptor *LocateLenient(MBUF *mbuf, u32 *offset, u32 *passed);

// The chain invariant of one buffer: lengths and count agree with the chain, every descriptor's data lies
// inside its block, and every block has at least as many references as descriptors of this buffer use it.
bool ChainIsSound(const MBUF *mbuf);

} // namespace zol::mbuf

// Debug builds check the invariant after each operation that edits a chain.
#ifdef NDEBUG
#define ZOL_MBUF_ASSERT_SOUND(m) ((void)0)
#else
#define ZOL_MBUF_ASSERT_SOUND(m) assert(::zol::mbuf::ChainIsSound(m))
#endif

#endif // ZOL_MBUF_INTERNAL_H
