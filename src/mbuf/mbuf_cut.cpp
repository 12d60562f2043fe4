// Message buffers: removing bytes at the head, in the middle and at the tail of a chain.
#include "foundation/log_points.h"
#include "mbuf/mbuf_internal.h"

#include <algorithm>

#include "bounds_checked.h"

using namespace zol::mbuf;
using zol::log::kMbufErr;

namespace {

// Removes the cut's bytes from the descriptor e where a cut of n bytes at r ends; f is where it began.
// Inside f the bytes behind the cut move down, since f keeps bytes on both sides; anywhere else the cut
// starts at e's first byte and only e's start moves.
bool CutEnd(DataBlockDescriptor *f, DataBlockDescriptor *e, u32 r, u32 n) {
    if (e == f && r > 0) {
        const u32 behind = f->dataLength - r - n;
        if (memmove_s(f->data + r, behind, f->data + r + n, behind) != 0) {
            return false;
        }
        f->dataLength = static_cast<u16>(f->dataLength - n);
        return true;
    }
    e->data += n;
    e->dataLength = static_cast<u16>(e->dataLength - n);
    return true;
}

// Drops the empty standalone descriptors right behind the first and returns the first non-empty one.
DataBlockDescriptor *ReleaseEmptyAfterFirst(MBUF *mbuf) {
    DataBlockDescriptor *n = mbuf->firstDescriptor.next;
    while (n != nullptr && n->dataLength == 0) {
        DataBlockDescriptor *next = n->next;
        ReleaseDescriptor(n, __LINE__);
        --mbuf->dataBlockCount;
        n = next;
    }
    return n;
}

} // namespace

extern "C" {

ZOL_EXPORT u32 MBUF_CutPart(MBUF *mbuf, u32 offset, u32 length) {
    if (mbuf == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CP", "MBuf is null!");
        return kFail;
    }
    if (offset > mbuf->totalDataLength) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CP", "Offset is greater than totalDataLength!");
        return kFail;
    }
    if (mbuf->totalDataLength - offset < length) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CP",
                    "Input Length is greater than the difference between totalDataLength and offset!");
        return kFail;
    }
    if (length == 0) {
        return kOk;
    }
    u32 r = offset;
    DataBlockDescriptor *f = LocateStrict(mbuf, &r, nullptr);
    if (f == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CP", "First data block descriptor is null!");
        return kFail;
    }
    DataBlockDescriptor *d = f;
    u32 at = r;
    u32 remaining = length;
    u32 n = std::min(static_cast<u32>(d->dataLength - at), remaining);
    while (remaining > n) {
        // d keeps only its bytes before the cut; the cut goes on in the next descriptor.
        d->dataLength = static_cast<u16>(d->dataLength - n);
        remaining -= n;
        d = d->next;
        at = 0;
        if (d == nullptr) {
            ZOL_LOG_TAG(kMbufErr, "MBUF_CP", "Second data block descriptor is null!");
            return kFail;
        }
        n = std::min(static_cast<u32>(d->dataLength), remaining);
    }
    if (!CutEnd(f, d, r, n)) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CP", "memmove_s fail!");
        return kFail;
    }
    mbuf->totalDataLength -= length;
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    return kOk;
}

ZOL_EXPORT u32 MBUF_CutTail(MBUF *mbuf, u32 length) {
    if (mbuf == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CT", "MBuf fail!");
        return kFail;
    }
    if (length > mbuf->totalDataLength) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CT", "Input Length is greater than totalDataLength!");
        return kFail;
    }
    const u32 total = mbuf->totalDataLength - length;
    u32 keep = total;
    DataBlockDescriptor *d = &mbuf->firstDescriptor;
    while (d != nullptr && d->dataLength < keep) {
        keep -= d->dataLength;
        d = d->next;
    }
    if (d == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CT", "Data block descriptor fail!");
        return kFail;
    }
    mbuf->totalDataLength = total;
    d->dataLength = static_cast<u16>(keep);
    mbuf->dataBlockCount -= ReleaseChain(d->next, __LINE__);
    d->next = nullptr;
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    return kOk;
}

ZOL_EXPORT void MBUF_CutHeadInMultiDataBlock(MBUF *mbuf, u32 length) {
    u32 remaining = length;
    for (DataBlockDescriptor *d = &mbuf->firstDescriptor; d != nullptr; d = d->next) {
        if (d->dataLength > remaining) {
            d->data += remaining;
            d->dataLength = static_cast<u16>(d->dataLength - remaining);
            remaining = 0;
            break;
        }
        d->data += d->dataLength;
        remaining -= d->dataLength;
        d->dataLength = 0;
    }
    mbuf->totalDataLength -= length - remaining;
}

ZOL_EXPORT u32 MBUF_CutAndFreeHead(MBUF *mbuf, u32 length) {
    if (mbuf == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CAFH", "MBuf is null!");
        return kFail;
    }
    if (length > mbuf->totalDataLength) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CAFH", "Input Length is greater than totalDataLength!");
        return kFail;
    }
    DataBlockDescriptor *first = &mbuf->firstDescriptor;
    if (first->dataLength >= length) {
        first->data += length;
        first->dataLength = static_cast<u16>(first->dataLength - length);
        mbuf->totalDataLength -= length;
    } else {
        MBUF_CutHeadInMultiDataBlock(mbuf, length);
    }
    DataBlockDescriptor *n = ReleaseEmptyAfterFirst(mbuf);
    if (n == nullptr || first->dataLength > 0) {
        first->next = n;
    } else {
        // The first descriptor emptied: the next non-empty one takes its place inside the header.
        Release(first->dataBlock, __LINE__);
        --mbuf->dataBlockCount;
        *first = *n;
        Release(n, __LINE__);
    }
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    return kOk;
}

} // extern "C"
