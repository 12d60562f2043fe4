// Frame encoding and decoding of the OM protocol, and the socket helpers its three users share.
#include "omcc_frame.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace plat::omcc {
namespace {

void PutU32(char *p, u32 v) {
    v = htonl(v);
    std::memcpy(p, &v, sizeof v);
}

void PutU16(char *p, u16 v) {
    v = htons(v);
    std::memcpy(p, &v, sizeof v);
}

u32 GetU32(const char *p) {
    u32 v;
    std::memcpy(&v, p, sizeof v);
    return ntohl(v);
}

u16 GetU16(const char *p) {
    u16 v;
    std::memcpy(&v, p, sizeof v);
    return ntohs(v);
}

bool KnownType(u16 usType) {
    return usType >= OMCC_FRAME_HELLO && usType <= OMCC_FRAME_ERROR;
}

} // namespace

void AppendFrame(std::string &out, u16 usType, u32 ulId, u32 ulArg, const void *pPayload, size_t zLen) {
    char head[OMCC_FRAME_HEAD_LEN];
    PutU32(head + offsetof(OMCC_FRAME_HEAD_S, ulLen), static_cast<u32>(zLen));
    PutU16(head + offsetof(OMCC_FRAME_HEAD_S, usType), usType);
    PutU16(head + offsetof(OMCC_FRAME_HEAD_S, usFlags), 0);
    PutU32(head + offsetof(OMCC_FRAME_HEAD_S, ulId), ulId);
    PutU32(head + offsetof(OMCC_FRAME_HEAD_S, ulArg), ulArg);
    out.append(head, sizeof head);
    if (zLen > 0) {
        out.append(static_cast<const char *>(pPayload), zLen);
    }
}

Take TakeFrame(std::string &buf, Frame &out) {
    if (buf.size() < OMCC_FRAME_HEAD_LEN) {
        return Take::kNeedMore;
    }
    const char *p = buf.data();
    u32 ulLen = GetU32(p + offsetof(OMCC_FRAME_HEAD_S, ulLen));
    u16 usType = GetU16(p + offsetof(OMCC_FRAME_HEAD_S, usType));
    if (ulLen > OMCC_FRAME_MAX_PAYLOAD || !KnownType(usType) || GetU16(p + offsetof(OMCC_FRAME_HEAD_S, usFlags)) != 0) {
        return Take::kBad;
    }
    if (buf.size() - OMCC_FRAME_HEAD_LEN < ulLen) {
        return Take::kNeedMore;
    }
    out.usType = usType;
    out.ulId = GetU32(p + offsetof(OMCC_FRAME_HEAD_S, ulId));
    out.ulArg = GetU32(p + offsetof(OMCC_FRAME_HEAD_S, ulArg));
    out.payload.assign(p + OMCC_FRAME_HEAD_LEN, ulLen);
    buf.erase(0, OMCC_FRAME_HEAD_LEN + ulLen);
    return Take::kFrame;
}

bool WriteAll(int iFd, const std::string &data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = send(iFd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

const char *SocketPath() {
    const char *pcPath = std::getenv(OMCC_SOCKET_ENV);
    return (pcPath != nullptr && pcPath[0] != '\0') ? pcPath : OMCC_DEFAULT_SOCKET;
}

int ConnectUnix(const char *pcPath) {
    sockaddr_un addr{};
    if (std::strlen(pcPath) >= sizeof addr.sun_path) {
        return -1;
    }
    addr.sun_family = AF_UNIX;
    std::strcpy(addr.sun_path, pcPath);
    int iFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        return -1;
    }
    int rc;
    do {
        rc = connect(iFd, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    } while (rc < 0 && errno == EINTR);
    if (rc < 0) {
        close(iFd);
        return -1;
    }
    return iFd;
}

} // namespace plat::omcc
