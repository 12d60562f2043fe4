/* Message buffers: a header with a client control area and a chain of data-block descriptors over
 * reference-counted 2048-byte blocks, and the operations that build, copy, cut, join and reshape them. Plain C. */
#ifndef ZOL_MBUF_H
#define ZOL_MBUF_H

#include "zol_types.h"

ZOL_EXTERN_C_BEGIN

#define MBUF_BLOCK_SIZE 2048u       /* capacity of every block the library allocates (except by compression) */
#define MBUF_MAX_HEAD_SPACE 300u    /* largest head room MBUF_CreateForControlPacket accepts */
#define MBUF_MERGE_LIMIT 499u       /* largest descriptor MBUF_NeatConcatenate folds into its predecessor */
#define MBUF_CONTROL_INFO_SIZE 320u /* bytes of the client control area */

/* One piece of a buffer's data inside a data block. Size LP64: 32 bytes.
 * Invariant: dataBlock <= data and data + dataLength <= dataBlock + blockSize; the bytes before data are head
 * room, the bytes after data + dataLength tail room. Each descriptor holds one reference on its block, so a
 * block's reference count equals the number of descriptors (of all buffers) that point into it. 16-bit
 * fields wrap modulo 65,536: one descriptor holds at most 65,535 bytes. */
typedef struct DataBlockDescriptor {
    u32 type;                         /* block type tag; blocks added to a buffer take its first descriptor's */
    u16 blockSize;                    /* capacity of the block */
    u16 dataLength;                   /* valid bytes, possibly 0 */
    u8 *data;                         /* first valid byte, inside the block */
    u8 *dataBlock;                    /* start of the block allocation */
    struct DataBlockDescriptor *next; /* next descriptor of the chain, null at its end */
} DataBlockDescriptor;

/* The buffer header. Size LP64: 376 bytes. Processes read these fields directly.
 * Invariant: totalDataLength == sum of dataLength along the chain from firstDescriptor, and dataBlockCount ==
 * number of descriptors in the chain, the embedded firstDescriptor included (so at least 1). The header and
 * every standalone descriptor belong to the buffer alone; only blocks are shared. */
typedef struct MBUF {
    u64 reserved0;                          /* 0 whenever the library makes a header */
    u32 totalDataLength;                    /* valid bytes in the whole chain */
    u32 dataBlockCount;                     /* descriptors in the chain */
    u64 reserved1;                          /* neither set nor read by the library */
    u8 controlInfo[MBUF_CONTROL_INFO_SIZE]; /* the client's; fresh: zero but for the two words below */
    DataBlockDescriptor firstDescriptor;    /* embedded head of the chain; its next starts the rest */
} MBUF;

/* Preset words of a fresh control area (byte offsets into controlInfo). */
#define MBUF_CONTROL_WORD_A_OFFSET 276u /* holds 0xFFFFFFFF */
#define MBUF_CONTROL_WORD_B_OFFSET 296u /* holds 255 */

/* All statuses: 0 success, 1 any failure. A failed argument check never changes a buffer. Every logged
 * failure is an error record with the operation's tag. The buffers are not thread-safe: one thread at a time
 * per buffer; buffers sharing a block may live in different threads. */

/* ---- creation and destruction ---- */

/* A one-block buffer of `length` uninitialised data bytes after `headSpace` bytes of head room, with a fresh
 * control area. Null when headSpace > 300, length > 1748 or their sum > 2048, or on allocation failure; a
 * failed creation leaves nothing allocated. The caller owns the result and destroys it. */
ZOL_EXPORT MBUF *MBUF_CreateForControlPacket(u32 headSpace, u32 length, u32 type, u32 moduleId);

/* Releases the header, every descriptor and one reference on every block (a block shared with another
 * buffer lives on). `line` is the caller's, for memory accounting. 1 for a null buffer. The pointer is
 * dangling afterwards. */
ZOL_EXPORT u32 MBUF_Destroy_X(MBUF *mbuf, u32 line);
ZOL_EXPORT u32 MBUF_Destroy(MBUF *mbuf);

/* Zeroes every valid data byte (head and tail room untouched); writes into shared blocks too. 1 for a null
 * buffer or a failing fill, which stops at once (earlier descriptors stay zeroed). */
ZOL_EXPORT u32 MBUF_AssignZero(MBUF *mbuf);

/* ---- copies ---- */

/* Reads `length` bytes from `offset` into dest. The buffer is never changed. 1 for null arguments or a range
 * beyond the data; a failing move leaves the bytes read so far in dest. */
ZOL_EXPORT u32 MBUF_CopyDataFromMBufToBuffer(MBUF *mbuf, u32 offset, u32 length, u8 *dest);

/* Overwrites the data from `offset` (at most totalDataLength; equal appends) with `length` bytes of src. A
 * write past the end first fills the tail room of the last block when it is not shared, then appends new
 * 2048-byte blocks of the first descriptor's type. Writes inside the data never change the chain. Not
 * all-or-nothing: when a block cannot be allocated the blocks appended by this call are released, the chain
 * ends where it ended before (its last block possibly extended into its tail room) and 1 is returned; bytes
 * written into the kept descriptors stay. A failing move also returns 1 after the whole walk. */
ZOL_EXPORT u32 MBUF_CopyDataFromBufferToMBuf(MBUF *mbuf, u32 offset, u32 length, const u8 *src, u32 moduleId);

/* A new buffer holding a copy of `length` bytes of buffer with exactly `headSpace` (at most 2048) bytes of
 * head room in its first block, then further 2048-byte blocks. Null for a null source, too large a head room
 * or any failure, with nothing left allocated. */
ZOL_EXPORT MBUF *MBUF_CreateByCopyBuffer(u32 headSpace, u32 length, const u8 *buffer, u32 type, u32 moduleId);

/* A new independent buffer holding a copy of the source range and its control area, with `headSpace` bytes
 * of head room (only up to 300 succeeds). Null when the source is null or empty, the range exceeds the data,
 * or on any failure, with nothing left allocated. The source is never changed. */
ZOL_EXPORT MBUF *MBUF_RawCopy(MBUF *src, u32 offset, u32 length, u32 headSpace, u32 moduleId);

/* A new buffer whose descriptors point into the source's blocks for the range (one reference added per
 * descriptor) and which carries a copy of the source's control area. Writes through either buffer change the
 * shared bytes. Length 0 gives an empty buffer of its own block. Null on bad arguments or any failure, with
 * nothing left allocated and no reference left behind; the source's data is never changed. No logging. */
ZOL_EXPORT MBUF *MBUF_ReferenceCopy(MBUF *src, u32 offset, u32 length, u32 moduleId);

/* ---- cutting, joining and splitting ---- */

/* Links src's chain after dst's and releases the src header: on success src no longer exists and its blocks
 * belong to dst (its control area is dropped). On failure (null buffer, no memory) both are unchanged and the
 * caller still owns both. */
ZOL_EXPORT u32 MBUF_Concatenate(MBUF *dst, MBUF *src, u32 moduleId);

/* Joins like MBUF_Concatenate, then folds each descriptor of at most 499 bytes and the same type into the
 * unshared tail room of the descriptor before it, from dst's former last descriptor on. Stores the chain's
 * last descriptor in *last. On failure both buffers are unchanged. No logging. */
ZOL_EXPORT u32 MBUF_NeatConcatenate(MBUF *dst, MBUF *src, DataBlockDescriptor **last, u32 moduleId);

/* Splits at `offset`: mbuf keeps bytes [0, offset), the returned new buffer (with a copy of the control area)
 * gets the rest; a block cut inside is shared by both. At offset == totalDataLength the result is a fresh
 * empty buffer and mbuf is unchanged. Null on bad arguments or failure, mbuf unchanged. No logging. */
ZOL_EXPORT MBUF *MBUF_Fragment(MBUF *mbuf, u32 offset, u32 moduleId);

/* Removes `length` bytes at `offset`. Bytes behind a cut inside one descriptor move down; fully covered
 * descriptors stay in the chain with 0 bytes; nothing is allocated or released. */
ZOL_EXPORT u32 MBUF_CutPart(MBUF *mbuf, u32 offset, u32 length);

/* Removes the last `length` bytes and releases the descriptors behind the new end; the first descriptor is
 * never released (cutting everything leaves it empty). */
ZOL_EXPORT u32 MBUF_CutTail(MBUF *mbuf, u32 length);

/* Removes the first `length` bytes and releases the descriptors this empties (and empty ones that directly
 * follow the first); the first block is replaced by the next non-empty one when it empties. A buffer cut to
 * 0 bytes keeps its first descriptor and block. The full 32-bit length is honoured. */
ZOL_EXPORT u32 MBUF_CutAndFreeHead(MBUF *mbuf, u32 length);

/* Removes `length` bytes from the head, leaving emptied descriptors in the chain. Checks nothing: the caller
 * passes a valid buffer and length <= totalDataLength. */
ZOL_EXPORT void MBUF_CutHeadInMultiDataBlock(MBUF *mbuf, u32 length);

/* ---- reshaping ---- */

/* Moves the first `length` (at most 2048 and totalDataLength) bytes into a new first block of their own, at
 * its end (2048 - length bytes of head room). Emptied descriptors are released, except the former first
 * one when everything was pulled up. On failure the buffer is unchanged. */
ZOL_EXPORT u32 MBUF_PullUp(MBUF *mbuf, u32 length, u32 moduleId);

/* Keeps the first count - 1 descriptors and gathers everything after them into one new block (count 1:
 * everything into one block of 2048, 4096 or exactly totalDataLength bytes). The caller guarantees a valid
 * buffer and count <= dataBlockCount + 1. 1 for count 0, a gathered size above 65,535 bytes (a descriptor
 * cannot hold it) or on failure, with the buffer unchanged. No logging. */
ZOL_EXPORT u32 MBUF_Compress(MBUF *mbuf, u32 count, u32 moduleId);

/* Reserves `length` (at most 2048) contiguous bytes at the end of the data and returns where they start
 * (content left to the caller): in the last block's tail room when it fits and the block is not shared,
 * otherwise in a new 2048-byte block. Length 0 returns the end of data and changes nothing. Null on bad
 * arguments or allocation failure, with the buffer unchanged. */
ZOL_EXPORT u8 *MBUF_AppendMemorySpace(MBUF *mbuf, u32 length, u32 moduleId);

/* Puts a new 2048-byte block in front whose last `length` (at most 2048) uninitialised bytes become the first
 * bytes of the data; the rest of the block is head room. Length 0 changes nothing. On failure the buffer is
 * unchanged. No logging. */
ZOL_EXPORT u32 MBUF_PrependDataBlock(MBUF *mbuf, u32 length, u32 moduleId);

ZOL_EXTERN_C_END

#endif /* ZOL_MBUF_H */
