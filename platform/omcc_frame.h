// Frame layer of the OM protocol (header layout in omcc.h), shared by the client library, the daemon
// zol_omd and the command zol_diag: encoding, incremental decoding and blocking writes.
#ifndef OMCC_FRAME_H
#define OMCC_FRAME_H

#include <cstddef>
#include <string>

#include "omcc.h"

namespace plat::omcc {

static_assert(sizeof(OMCC_FRAME_HEAD_S) == OMCC_FRAME_HEAD_LEN, "the frame header is 16 bytes on the wire");

struct Frame {
    u16 usType = 0;
    u32 ulId = 0;
    u32 ulArg = 0;
    std::string payload;
};

enum class Take { kNeedMore, kFrame, kBad };

// Appends one encoded frame to pOut.
void AppendFrame(std::string &out, u16 usType, u32 ulId, u32 ulArg, const void *pPayload, size_t zLen);

// Takes the first complete frame off the front of buf. kNeedMore leaves buf as it is; kBad means the
// stream is malformed (unknown type, non-zero flags, payload above the limit) and must be dropped.
Take TakeFrame(std::string &buf, Frame &out);

// Writes all of data on a blocking socket (no SIGPIPE). False when the peer is gone or the send timed out.
bool WriteAll(int iFd, const std::string &data);

// Path of the framework's socket: ZOL_OM_SOCKET, else the default.
const char *SocketPath();

// Connects a blocking stream socket to pcPath: the descriptor, or -1.
int ConnectUnix(const char *pcPath);

} // namespace plat::omcc

#endif // OMCC_FRAME_H
