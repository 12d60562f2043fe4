// Message buffers: pulling the first bytes into one contiguous block and compressing a chain into fewer
// blocks. Both copy the payload once into a freshly sized block and leave the buffer unchanged on failure.
#include "foundation/log_points.h"
#include "mbuf/mbuf_internal.h"

#include "bounds_checked.h"

using namespace zol::mbuf;
using zol::log::kMbufErr;

namespace {

// Block size for gathering n bytes: the standard size, the double size, or exactly n.
u32 GatherSize(u32 n) {
    if (n <= MBUF_BLOCK_SIZE) {
        return MBUF_BLOCK_SIZE;
    }
    return n <= kBigBlockSize ? kBigBlockSize : n;
}

u32 CompressToOne(MBUF *mbuf, u32 moduleId) {
    const u32 total = mbuf->totalDataLength;
    const u32 size = GatherSize(total);
    u8 *block = AllocBlock(size, moduleId, __LINE__);
    if (block == nullptr) {
        return kFail;
    }
    if (MBUF_CopyDataFromMBufToBuffer(mbuf, 0, total, block) != kOk) {
        Release(block, __LINE__);
        return kFail;
    }
    DataBlockDescriptor &first = mbuf->firstDescriptor;
    (void)ReleaseChain(first.next, __LINE__);
    Release(first.dataBlock, __LINE__);
    first.blockSize = static_cast<u16>(size);
    first.dataLength = static_cast<u16>(total);
    first.data = block;
    first.dataBlock = block;
    first.next = nullptr;
    mbuf->dataBlockCount = 1;
    return kOk;
}

// Keeps `kept` descriptors and gathers the rest into one new descriptor behind them.
u32 CompressTail(MBUF *mbuf, u32 kept, u32 moduleId) {
    DataBlockDescriptor *k = nullptr;
    DataBlockDescriptor *d = &mbuf->firstDescriptor;
    u32 sum = 0;
    for (u32 i = 0; i < kept; ++i, d = d->next) {
        if (d == nullptr) {
            return kFail; // more descriptors asked to stay than the chain has
        }
        sum += d->dataLength;
        k = d;
    }
    const u32 rest = mbuf->totalDataLength - sum;
    if (rest > kMaxDescriptorBytes) {
        return kFail;
    }
    DataBlockDescriptor *g = MBUF_CreateDataBlockDescriptor(GatherSize(rest), mbuf->firstDescriptor.type, moduleId);
    if (g == nullptr) {
        return kFail;
    }
    g->data = g->dataBlock;
    g->dataLength = static_cast<u16>(rest);
    u32 pos = 0;
    for (DataBlockDescriptor *e = k->next; e != nullptr; e = e->next) {
        if (memmove_s(g->data + pos, e->dataLength, e->data, e->dataLength) != 0) {
            ReleaseDescriptor(g, __LINE__);
            return kFail;
        }
        pos += e->dataLength;
    }
    (void)ReleaseChain(k->next, __LINE__);
    k->next = g;
    mbuf->dataBlockCount = kept + 1;
    return kOk;
}

} // namespace

extern "C" {

ZOL_EXPORT u32 MBUF_PullUp(MBUF *mbuf, u32 length, u32 moduleId) {
    if (mbuf == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_PU", "%s", "pstMBuf is null!");
        return kFail;
    }
    if (length > mbuf->totalDataLength || length > MBUF_BLOCK_SIZE) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_PU", "Input Length is greater than totalDataLength or blockSize!");
        return kFail;
    }
    DataBlockDescriptor *d = MBUF_CreateDataBlockDescriptor(MBUF_BLOCK_SIZE, mbuf->firstDescriptor.type, moduleId);
    if (d == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_PU", "%s", "pstDataBlockDescriptor is null!");
        return kFail;
    }
    // The bytes sit at the block's end, leaving head room for headers to be prepended in place.
    d->dataLength = static_cast<u16>(length);
    d->data = d->dataBlock + MBUF_BLOCK_SIZE - length;
    if (MBUF_CopyDataFromMBufToBuffer(mbuf, 0, length, d->data) != kOk) {
        ReleaseDescriptor(d, __LINE__);
        ZOL_LOG_TAG(kMbufErr, "MBUF_PU", "Copy data from MBuf to buffer fail!");
        return kFail;
    }
    (void)MBUF_CutAndFreeHead(mbuf, length);
    mbuf->totalDataLength += length;
    PushFront(mbuf, d);
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    return kOk;
}

ZOL_EXPORT u32 MBUF_Compress(MBUF *mbuf, u32 count, u32 moduleId) {
    if (count == 0) {
        return kFail;
    }
    if (count == 1 && mbuf->totalDataLength > kMaxDescriptorBytes) {
        return kFail; // a 16-bit dataLength cannot describe the gathered block
    }
    const u32 status = (count == 1) ? CompressToOne(mbuf, moduleId) : CompressTail(mbuf, count - 1, moduleId);
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    return status;
}

} // extern "C"
