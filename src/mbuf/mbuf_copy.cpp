// Message buffers: reading a range out into flat memory, writing flat bytes into a buffer (growing it past
// its end), and creating a buffer from flat bytes.
#include "foundation/log_points.h"
#include "mbuf/mbuf_internal.h"

#include <algorithm>

#include "bounds_checked.h"

using namespace zol::mbuf;
using zol::log::kMbufErr;

namespace {

// State of one write walk of MBUF_CopyDataFromBufferToMBuf.
struct WriteWalk {
    MBUF *mbuf;
    const u8 *src;
    u32 remaining;
    u32 pos; // data bytes of the descriptors walked so far, up to the end of the write inside them
    u32 type;
    u32 moduleId;
    DataBlockDescriptor *formerLast;
    bool failed;
};

// Writes into d from offset and returns the bytes taken. Only an unshared last block may grow into its tail
// room: another holder of a shared block may keep data there.
u32 WriteInto(WriteWalk &w, DataBlockDescriptor *d, u32 offset) {
    const bool unshared = BlockUnshared(d);
    u32 n = 0;
    if (d->next == nullptr && unshared) {
        const u32 room = static_cast<u32>((d->dataBlock + d->blockSize) - (d->data + offset));
        n = std::min(w.remaining, room);
        if (offset + n > d->dataLength) {
            d->dataLength = static_cast<u16>(offset + n);
        }
    } else {
        n = std::min(w.remaining, static_cast<u32>(d->dataLength - offset));
    }
    if (n > 0 && memmove_s(d->data + offset, n, w.src, n) != 0) {
        w.failed = true; // the walk goes on; the caller learns of it at the end
    }
    return n;
}

// Drops the blocks this write appended and ends the chain where it ended before the write.
void UndoAppends(WriteWalk &w) {
    u32 bytes = 0;
    u32 count = 0;
    DataBlockDescriptor *d = w.formerLast->next;
    while (d != nullptr) {
        DataBlockDescriptor *next = d->next;
        bytes += d->dataLength;
        ReleaseDescriptor(d, __LINE__);
        ++count;
        d = next;
    }
    w.formerLast->next = nullptr;
    w.mbuf->totalDataLength = w.pos - bytes;
    w.mbuf->dataBlockCount -= count;
}

// Links a fresh block after the last descriptor d; false (after undoing this write's appends) when none
// can be had.
bool AppendBlock(WriteWalk &w, DataBlockDescriptor *d) {
    if (w.formerLast == nullptr) {
        w.formerLast = d;
    }
    d->next = MBUF_CreateDataBlockDescriptor(MBUF_BLOCK_SIZE, w.type, w.moduleId);
    if (d->next == nullptr) {
        UndoAppends(w);
        return false;
    }
    d->next->data = d->next->dataBlock;
    d->next->dataLength = static_cast<u16>(std::min(w.remaining, MBUF_BLOCK_SIZE));
    ++w.mbuf->dataBlockCount;
    return true;
}

} // namespace

extern "C" {

ZOL_EXPORT u32 MBUF_CopyDataFromMBufToBuffer(MBUF *mbuf, u32 offset, u32 length, u8 *dest) {
    if (mbuf == nullptr || dest == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CDFMBTB", "fail is 1!");
        return kFail;
    }
    if (offset > mbuf->totalDataLength) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CDFMBTB", "Offset is greater than total data length!");
        return kFail;
    }
    if (mbuf->totalDataLength - offset < length) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CDFMBTB",
                    "Input Length is greater than the difference between totalDataLength and offset!");
        return kFail;
    }
    if (length == 0) {
        return kOk;
    }
    DataBlockDescriptor *d = LocateStrict(mbuf, &offset, nullptr);
    if (d == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CDFMBTB", "Data block descriptor is null!");
        return kFail;
    }
    for (u32 remaining = length; remaining > 0 && d != nullptr; d = d->next, offset = 0) {
        const u32 n = std::min(static_cast<u32>(d->dataLength - offset), remaining);
        if (memmove_s(dest, n, d->data + offset, n) != 0) {
            ZOL_LOG_TAG(kMbufErr, "MBUF_CDFMBTB", "memmove_s fail!");
            return kFail;
        }
        dest += n;
        remaining -= n;
    }
    return kOk;
}

ZOL_EXPORT u32 MBUF_CopyDataFromBufferToMBuf(MBUF *mbuf, u32 offset, u32 length, const u8 *src, u32 moduleId) {
    if (mbuf == nullptr || src == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CDFBTM", "MBuf or buffer is null!");
        return kFail;
    }
    if (offset > mbuf->totalDataLength) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CDFBTM", "Offset is greater than total data length!");
        return kFail;
    }
    const u32 start = offset;
    DataBlockDescriptor *d = LocateLenient(mbuf, &offset, nullptr);
    if (d == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CDFBTM", "Data block descriptor is null!");
        return kFail;
    }
    WriteWalk w{mbuf, src, length, start - offset, mbuf->firstDescriptor.type, moduleId, nullptr, false};
    while (w.remaining > 0) {
        const u32 n = WriteInto(w, d, offset);
        w.pos += offset + n;
        w.src += n;
        w.remaining -= n;
        if (w.remaining == 0) {
            break;
        }
        if (d->next == nullptr && !AppendBlock(w, d)) {
            ZOL_LOG_TAG(kMbufErr, "MBUF_CDFBTM", "Next data block descriptor is null!");
            return kFail;
        }
        offset = 0;
        d = d->next;
    }
    mbuf->totalDataLength = std::max(mbuf->totalDataLength, w.pos);
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    if (w.failed) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CDFBTM", "fail is 1!");
        return kFail;
    }
    return kOk;
}

ZOL_EXPORT MBUF *MBUF_CreateByCopyBuffer(u32 headSpace, u32 length, const u8 *buffer, u32 type, u32 moduleId) {
    if (buffer == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CBCB", "Buffer is null!");
        return nullptr;
    }
    if (headSpace > MBUF_BLOCK_SIZE) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CBCB", "Reserve head space is greater than blockSize!");
        return nullptr;
    }
    MBUF *mbuf = AllocHeader(moduleId, __LINE__);
    if (mbuf == nullptr) {
        ZOL_LOG_TAG(kMbufErr, "MBUF_CBCB", "MBuf is null!");
        return nullptr;
    }
    u8 *block = AllocBlock(MBUF_BLOCK_SIZE, moduleId, __LINE__);
    if (block == nullptr) {
        Release(mbuf, __LINE__);
        ZOL_LOG_TAG(kMbufErr, "MBUF_CBCB", "Data block descriptor data block is null!");
        return nullptr;
    }
    // The first block starts full up to the end of the write (head space included) so that the write below
    // lands at offset headSpace; the head space is then cut off the front.
    const u32 firstLength = static_cast<u32>(std::min<u64>(u64{headSpace} + length, MBUF_BLOCK_SIZE));
    DataBlockDescriptor &first = mbuf->firstDescriptor;
    first = DataBlockDescriptor{type,   static_cast<u16>(MBUF_BLOCK_SIZE), static_cast<u16>(firstLength), block, block,
                                nullptr};
    mbuf->totalDataLength = firstLength;
    mbuf->dataBlockCount = 1;
    mbuf->reserved0 = 0;
    PresetControlInfo(mbuf);
    if (MBUF_CopyDataFromBufferToMBuf(mbuf, headSpace, length, buffer, moduleId) != kOk) {
        (void)MBUF_Destroy(mbuf);
        ZOL_LOG_TAG(kMbufErr, "MBUF_CBCB", "Mbuf copy data from buffer to Mbuf fail!");
        return nullptr;
    }
    first.data += headSpace;
    first.dataLength = static_cast<u16>(first.dataLength - headSpace);
    mbuf->totalDataLength -= headSpace;
    ZOL_MBUF_ASSERT_SOUND(mbuf);
    return mbuf;
}

} // extern "C"
