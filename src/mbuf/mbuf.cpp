// Message buffers: record layout checks, creation of control packets, destruction and zeroing.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "mbuf/mbuf_internal.h"

#include <cstddef>

#include "bounds_checked.h"

// Processes read these records directly: their layout is part of the ABI (LP64: x86-64 and AArch64).
static_assert(sizeof(DataBlockDescriptor) == 32, "DataBlockDescriptor is 32 bytes");
static_assert(offsetof(DataBlockDescriptor, type) == 0);
static_assert(offsetof(DataBlockDescriptor, blockSize) == 4);
static_assert(offsetof(DataBlockDescriptor, dataLength) == 6);
static_assert(offsetof(DataBlockDescriptor, data) == 8);
static_assert(offsetof(DataBlockDescriptor, dataBlock) == 16);
static_assert(offsetof(DataBlockDescriptor, next) == 24);
static_assert(sizeof(MBUF) == 376, "MBUF header is 376 bytes");
static_assert(offsetof(MBUF, reserved0) == 0);
static_assert(offsetof(MBUF, totalDataLength) == 8);
static_assert(offsetof(MBUF, dataBlockCount) == 12);
static_assert(offsetof(MBUF, reserved1) == 16);
static_assert(offsetof(MBUF, controlInfo) == 24);
static_assert(offsetof(MBUF, firstDescriptor) == 344);

using namespace zol::mbuf;
using zol::log::kMbufErr;

extern "C" {

ZOL_EXPORT MBUF *MBUF_CreateForControlPacket(u32 headSpace, u32 length, u32 type, u32 moduleId) {
    if (headSpace > MBUF_MAX_HEAD_SPACE || length > MBUF_BLOCK_SIZE - MBUF_MAX_HEAD_SPACE) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CFCP", "Space greater than block!");
        return nullptr;
    }
    if (headSpace + length > MBUF_BLOCK_SIZE) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CFCP", "Reserve head space add input length is greater than blockSize!");
        return nullptr;
    }
    MBUF *mbuf = AllocHeader(moduleId, __LINE__);
    if (mbuf == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CFCP", "%s", "MBuf is null!");
        return nullptr;
    }
    // Everything but the block is filled in before the block is allocated, so that little has to be
    // kept across that call; a failure releases the header whatever it holds.
    DataBlockDescriptor &first = mbuf->firstDescriptor;
    first.type = type;
    first.blockSize = static_cast<u16>(MBUF_BLOCK_SIZE);
    first.dataLength = static_cast<u16>(length);
    first.next = nullptr;
    mbuf->totalDataLength = length;
    mbuf->dataBlockCount = 1;
    mbuf->reserved0 = 0;
    PresetControlInfo(mbuf);
    u8 *block = AllocBlock(MBUF_BLOCK_SIZE, moduleId, __LINE__);
    if (block == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CFCP", "%s", "Data block is null!");
        Release(mbuf, __LINE__);
        return nullptr;
    }
    first.dataBlock = block;
    first.data = block + headSpace;
    return mbuf;
}

ZOL_EXPORT u32 MBUF_Destroy_X(MBUF *mbuf, u32 line) {
    if (mbuf == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_DX", "MBuf is null!");
        return kFail;
    }
    // Releases here carry the caller's line, so leaks are charged to whoever destroyed too late.
    // The chain walk is out of line: most buffers have no standalone descriptors.
    if (mbuf->firstDescriptor.next != nullptr) {
        (void)ReleaseChain(mbuf->firstDescriptor.next, line, kDestroyFileTag);
    }
    if (mbuf->firstDescriptor.dataBlock != nullptr) {
        (void)zol::ZOL_MemFree(mbuf->firstDescriptor.dataBlock, kDestroyFileTag, line);
    }
    (void)zol::ZOL_MemFree(mbuf, kDestroyFileTag, line);
    return kOk;
}

ZOL_EXPORT u32 MBUF_Destroy(MBUF *mbuf) {
    return MBUF_Destroy_X(mbuf, __LINE__);
}

ZOL_EXPORT u32 MBUF_AssignZero(MBUF *mbuf) {
    if (mbuf == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_AZ", "MBuf is null!");
        return kFail;
    }
    for (DataBlockDescriptor *d = &mbuf->firstDescriptor; d != nullptr; d = d->next) {
        if (memset_s(d->data, d->dataLength, 0, d->dataLength) != 0) {
            ZOL_LOG_TAG(kMbufErr, "MBUF_AZ", "memset_s fail!");
            return kFail;
        }
    }
    return kOk;
}

} // extern "C"
