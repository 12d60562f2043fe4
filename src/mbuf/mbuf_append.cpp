// Message buffers: reserving contiguous space at the end of the data and prepending a fresh block whose end
// becomes the start of the data. Neither copies payload.
#include "foundation/log_points.h"
#include "mbuf/mbuf_internal.h"

using namespace zol::mbuf;
using zol::log::kMbufErr;

extern "C" {

ZOL_EXPORT u8 *MBUF_AppendMemorySpace(MBUF *mbuf, u32 length, u32 moduleId) {
    if (mbuf == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_AMS", "pstMBuf is null!");
        return nullptr;
    }
    if (length > MBUF_BLOCK_SIZE) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_AMS", "Input length is greater than blockSize!");
        return nullptr;
    }
    DataBlockDescriptor *last = LastDescriptor(mbuf);
    u8 *start = last->data + last->dataLength;
    if (length == 0) {
        return start;
    }
    // A shared last block may hold the other holder's data in its tail room: only an unshared one grows.
    if (BlockUnshared(last) && length <= TailRoom(last)) {
        last->dataLength = static_cast<u16>(last->dataLength + length);
        mbuf->totalDataLength += length;
        ZOL_MBUF_ASSERT_SOUND(mbuf);
        return start;
    }
    DataBlockDescriptor *d = MBUF_CreateDataBlockDescriptor(MBUF_BLOCK_SIZE, mbuf->firstDescriptor.type, moduleId);
    if (d == nullptr) {
        return nullptr;
    }
    d->data = d->dataBlock;
    d->dataLength = static_cast<u16>(length);
    last->next = d;
    ++mbuf->dataBlockCount;
    mbuf->totalDataLength += length;
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    return d->data;
}

ZOL_EXPORT u32 MBUF_PrependDataBlock(MBUF *mbuf, u32 length, u32 moduleId) {
    if (mbuf == nullptr || length > MBUF_BLOCK_SIZE) {
        return kFail;
    }
    if (length == 0) {
        return kOk;
    }
    DataBlockDescriptor *d = MBUF_CreateDataBlockDescriptor(MBUF_BLOCK_SIZE, mbuf->firstDescriptor.type, moduleId);
    if (d == nullptr) {
        return kFail;
    }
    d->dataLength = 0;
    d->data = d->dataBlock + MBUF_BLOCK_SIZE;
    PushFront(mbuf, d);
    DataBlockDescriptor &first = mbuf->firstDescriptor;
    first.data -= length;
    first.dataLength = static_cast<u16>(first.dataLength + length);
    mbuf->totalDataLength += length;
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    return kOk;
}

} // extern "C"
