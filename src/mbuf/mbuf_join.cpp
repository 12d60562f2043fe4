// Message buffers: joining one buffer onto another (plainly or folding small pieces into tail room) and
// splitting one buffer in two at an offset.
#include "foundation/log_points.h"
#include "mbuf/mbuf_internal.h"

#include "bounds_checked.h"
#include "ruk_mem.h"

using namespace zol::mbuf;
using zol::log::kMbufErr;

namespace {

// Moves src's chain behind dst's last descriptor through a new record for src's embedded first descriptor,
// then frees the src header. Returns dst's former last descriptor, or null (nothing changed) without memory.
DataBlockDescriptor *Join(MBUF *dst, MBUF *src, u32 moduleId) {
    DataBlockDescriptor *head = AllocDescriptorRecord(moduleId, __LINE__);
    if (head == nullptr) {
        return nullptr;
    }
    *head = src->firstDescriptor;
    DataBlockDescriptor *formerLast = LastDescriptor(dst);
    formerLast->next = head;
    dst->totalDataLength += src->totalDataLength;
    dst->dataBlockCount += src->dataBlockCount;
    Release(src, __LINE__);
    return formerLast;
}

// Folds n = c->next into c's tail room when that is safe and small; false leaves both as they were.
bool MergeNext(MBUF *mbuf, DataBlockDescriptor *c) {
    DataBlockDescriptor *n = c->next;
    if (c->type != n->type || !BlockUnshared(c) || n->dataLength > TailRoom(c) || n->dataLength > MBUF_MERGE_LIMIT ||
        memmove_s(c->data + c->dataLength, n->dataLength, n->data, n->dataLength) != 0) {
        return false;
    }
    c->dataLength = static_cast<u16>(c->dataLength + n->dataLength);
    c->next = n->next;
    ReleaseDescriptor(n, __LINE__);
    --mbuf->dataBlockCount;
    return true;
}

} // namespace

extern "C" {

ZOL_EXPORT u32 MBUF_Concatenate(MBUF *dst, MBUF *src, u32 moduleId) {
    if (dst == nullptr || src == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CTE", "Destination MBuf or source MBuf is null!");
        return kFail;
    }
    if (Join(dst, src, moduleId) == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CTE", "Data block descriptor temp is null!");
        return kFail;
    }
    ZOL_MBUF_ASSERT_SOUND(dst);
    return kOk;
}

ZOL_EXPORT u32 MBUF_NeatConcatenate(MBUF *dst, MBUF *src, DataBlockDescriptor **last, u32 moduleId) {
    if (dst == nullptr || src == nullptr || last == nullptr) {
        return kFail;
    }
    DataBlockDescriptor *c = Join(dst, src, moduleId);
    if (c == nullptr) {
        return kFail;
    }
    // The pass starts at dst's old end, so the source's first piece may land in dst's last block, and it
    // continues through the source's descriptors, which may fold among themselves.
    while (c->next != nullptr) {
        if (!MergeNext(dst, c)) {
            c = c->next;
        }
    }
    *last = c;
    ZOL_MBUF_ASSERT_SOUND(dst);
    return kOk;
}

ZOL_EXPORT MBUF *MBUF_Fragment(MBUF *mbuf, u32 offset, u32 moduleId) {
    if (mbuf == nullptr || offset > mbuf->totalDataLength) {
        return nullptr;
    }
    if (offset == mbuf->totalDataLength) {
        return MBUF_CreateForControlPacket(0, 0, mbuf->firstDescriptor.type, moduleId);
    }
    u32 r = offset;
    u32 k = 0;
    DataBlockDescriptor *d = LocateLenient(mbuf, &r, &k);
    if (d == nullptr) {
        return nullptr;
    }
    MBUF *result = AllocHeader(moduleId, __LINE__);
    if (result == nullptr) {
        return nullptr;
    }
    result->reserved0 = 0;
    result->totalDataLength = mbuf->totalDataLength - offset;
    result->dataBlockCount = mbuf->dataBlockCount - k;
    if (memmove_s(result->controlInfo, MBUF_CONTROL_INFO_SIZE, mbuf->controlInfo, MBUF_CONTROL_INFO_SIZE) != 0) {
        Release(result, __LINE__);
        return nullptr;
    }
    if (r < d->dataLength) {
        // The split falls inside d: both buffers use its block from now on.
        if (RUK_MemRefInc(d->dataBlock) != 0) {
            Release(result, __LINE__);
            return nullptr;
        }
        result->firstDescriptor = DataBlockDescriptor{d->type,     d->blockSize, static_cast<u16>(d->dataLength - r),
                                                      d->data + r, d->dataBlock, d->next};
        d->dataLength = static_cast<u16>(r);
    } else {
        // The split falls at d's end: the next descriptor moves into the result's header.
        --result->dataBlockCount;
        DataBlockDescriptor *next = d->next;
        result->firstDescriptor = *next;
        Release(next, __LINE__);
    }
    d->next = nullptr;
    mbuf->totalDataLength = offset;
    mbuf->dataBlockCount = k + 1;
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    ZOL_MBUF_ASSERT_SOUND(result);
    return result;
}

} // extern "C"
