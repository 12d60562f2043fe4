// Message buffers: new buffers made from a range of another one, either as an independent copy of its bytes
// or as a reference copy that shares the source's blocks.
#include "foundation/log_points.h"
#include "mbuf/mbuf_internal.h"

#include <algorithm>

#include "bounds_checked.h"
#include "ruk_mem.h"

using namespace zol::mbuf;
using zol::log::kMbufErr;

namespace {

u32 CopyControlInfo(MBUF *to, const MBUF *from) {
    return static_cast<u32>(
        memmove_s(to->controlInfo, MBUF_CONTROL_INFO_SIZE, from->controlInfo, MBUF_CONTROL_INFO_SIZE));
}

// Appends n bytes of each source descriptor from d (offset into the first) to result, at its end.
bool CopyRangeInto(MBUF *result, DataBlockDescriptor *d, u32 offset, u32 length, u32 moduleId) {
    u32 q = 0;
    for (u32 remaining = length; remaining > 0 && d != nullptr; d = d->next, offset = 0) {
        const u32 n = std::min(static_cast<u32>(d->dataLength - offset), remaining);
        if (MBUF_CopyDataFromBufferToMBuf(result, q, n, d->data + offset, moduleId) != kOk) {
            return false;
        }
        q += n;
        remaining -= n;
    }
    return true;
}

// Builds result's chain for length bytes from d (offset into the first): one descriptor and one block
// reference per source descriptor, the first held in the header itself, which saves the temporary record
// that would only be copied there. On failure drops what it built (and the references it took).
bool ReferenceChain(MBUF *result, DataBlockDescriptor *d, u32 offset, u32 length, u32 moduleId) {
    DataBlockDescriptor *first = &result->firstDescriptor;
    first->dataBlock = nullptr;
    first->next = nullptr;
    DataBlockDescriptor *tail = nullptr;
    u32 count = 0;
    for (u32 remaining = length; remaining > 0 && d != nullptr; d = d->next, offset = 0) {
        DataBlockDescriptor *rec = (tail == nullptr) ? first : AllocDescriptorRecord(moduleId, __LINE__);
        if (rec == nullptr) {
            break;
        }
        const u32 n = std::min(static_cast<u32>(d->dataLength - offset), remaining);
        // The block is recorded only once its reference is taken, so a cleanup never drops one not held.
        *rec = DataBlockDescriptor{d->type, d->blockSize, static_cast<u16>(n), d->data + offset, nullptr, nullptr};
        if (tail != nullptr) {
            tail->next = rec;
        }
        tail = rec;
        ++count;
        if (RUK_MemRefInc(d->dataBlock) != 0) {
            break;
        }
        rec->dataBlock = d->dataBlock;
        remaining -= n;
        if (remaining == 0) {
            result->dataBlockCount = count;
            return true;
        }
    }
    (void)ReleaseChain(first->next, __LINE__);
    if (first->dataBlock != nullptr) {
        Release(first->dataBlock, __LINE__);
    }
    return false;
}

// The range lies inside one descriptor d (the usual case): one block reference and no chain to build. The
// reference is taken before the fresh header is written, so the locked update does not wait for those
// stores; a header that cannot be had gives the reference back.
MBUF *SingleReferenceCopy(const MBUF *src, const DataBlockDescriptor *d, u32 offset, u32 length, u32 moduleId) {
    if (RUK_MemRefInc(d->dataBlock) != 0) {
        return nullptr;
    }
    MBUF *result = AllocHeader(moduleId, __LINE__);
    if (result == nullptr) {
        Release(d->dataBlock, __LINE__);
        return nullptr;
    }
    result->reserved0 = 0;
    result->totalDataLength = length;
    result->dataBlockCount = 1;
    result->firstDescriptor =
        DataBlockDescriptor{d->type, d->blockSize, static_cast<u16>(length), d->data + offset, d->dataBlock, nullptr};
    CopyControlArea(result, src);
    return result;
}

MBUF *EmptyReferenceCopy(MBUF *src, u32 moduleId) {
    MBUF *result = MBUF_CreateForControlPacket(0, 0, src->firstDescriptor.type, moduleId);
    if (result != nullptr && CopyControlInfo(result, src) != 0) {
        (void)MBUF_Destroy(result);
        return nullptr;
    }
    return result;
}

} // namespace

extern "C" {

ZOL_EXPORT MBUF *MBUF_RawCopy(MBUF *src, u32 offset, u32 length, u32 headSpace, u32 moduleId) {
    const char *error = nullptr;
    if (src == nullptr) {
        error = "MBuf is null!";
    } else if (src->totalDataLength == 0) {
        error = "Total data length is 0!";
    } else if (offset > src->totalDataLength) {
        error = "Offset is greater than totalDataLength!";
    } else if (src->totalDataLength - offset < length) {
        error = "Input Length is greater than the difference between totalDataLength and offset!";
    } else if (headSpace > MBUF_BLOCK_SIZE) {
        error = "Reserve head space is greater than blockSize!";
    }
    if (error != nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_RCY", "%s", error);
        return nullptr;
    }
    MBUF *result = MBUF_CreateForControlPacket(headSpace, 0, src->firstDescriptor.type, moduleId);
    if (result == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_RCY", "MBufCopy is null!");
        return nullptr;
    }
    if (CopyControlInfo(result, src) != 0) {
        error = "memmove_s fail!";
    } else if (length == 0) {
        return result;
    } else {
        DataBlockDescriptor *d = LocateStrict(src, &offset, nullptr);
        if (d == nullptr) {
            error = "Data block descriptor is null!";
        } else if (!CopyRangeInto(result, d, offset, length, moduleId)) {
            error = "Copy data from buffer to mbuf fail!";
        }
    }
    if (error != nullptr) {
        (void)MBUF_Destroy(result);
        ZOL_LOG_TAG(kMbufErr, "MBUF_RCY", "%s", error);
        return nullptr;
    }
    ZOL_MBUF_ASSERT_SOUND(result);
    return result;
}

ZOL_EXPORT MBUF *MBUF_ReferenceCopy(MBUF *src, u32 offset, u32 length, u32 moduleId) {
    if (src == nullptr || offset > src->totalDataLength || src->totalDataLength - offset < length) {
        return nullptr;
    }
    if (length == 0) {
        return EmptyReferenceCopy(src, moduleId);
    }
    DataBlockDescriptor *d = &src->firstDescriptor; // where most ranges start, found without a walk
    if (offset >= d->dataLength && (d = LocateStrict(src, &offset, nullptr)) == nullptr) {
        return nullptr;
    }
    if (length <= static_cast<u32>(d->dataLength - offset)) {
        return SingleReferenceCopy(src, d, offset, length, moduleId);
    }
    MBUF *result = AllocHeader(moduleId, __LINE__);
    if (result == nullptr) {
        return nullptr;
    }
    result->reserved0 = 0;
    result->totalDataLength = length;
    CopyControlArea(result, src); // two whole headers: a plain copy cannot fail
    if (!ReferenceChain(result, d, offset, length, moduleId)) {
        Release(result, __LINE__);
        return nullptr;
    }
    ZOL_MBUF_ASSERT_SOUND(result);
    return result;
}

} // extern "C"
