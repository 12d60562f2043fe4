// The OM client: subscriptions, the connection to the framework, serving requests and the terminal a
// request handler prints on. Document parsing lives in omcc_doc.cpp.
#include "omcc.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include "omcc_frame.h"
#include "plat_fault.h"

using plat::omcc::Frame;
using plat::omcc::Take;

struct OmccClient {
    struct Sub {
        std::string path;
        OMCC_REQUEST_PF pfnRequest;
    };
    // Taken by every call on the client; request handlers run under it (inside omcc_run), which is why
    // the terminal functions do not take it again.
    std::mutex lock;
    std::string name;
    u32 ulKind = 0;
    std::vector<Sub> subs;
    int iFd = -1;
    std::string inbuf; // received bytes not yet forming a whole frame
};

struct OmccTty {
    bool borrowed = false;
};

namespace {

constexpr u32 kRequestMagic = 0x4F4D5251; // "OMRQ": marks the context handed to request handlers
constexpr size_t kReadChunk = 64 * 1024;
constexpr int kSendTimeoutSec = 5; // a stalled daemon must not hold the caller's thread for ever
constexpr u32 kNoSubscription = 0xFFFFFFFFu;

// What a request handler gets as pOmCtx: the request being served and its terminal.
struct RequestCtx {
    u32 ulMagic = kRequestMagic;
    OmccClient *pstClient = nullptr;
    u32 ulId = 0;
    OmccTty tty;
    bool bSendFailed = false;
};

RequestCtx *CtxOfTty(OMCC_TTY_S *pstTty) {
    return reinterpret_cast<RequestCtx *>(reinterpret_cast<char *>(pstTty) - offsetof(RequestCtx, tty));
}

bool Send(OmccClient &client, u16 usType, u32 ulId, u32 ulArg, const std::string &payload) {
    std::string frame;
    plat::omcc::AppendFrame(frame, usType, ulId, ulArg, payload.data(), payload.size());
    return plat::omcc::WriteAll(client.iFd, frame);
}

void CloseLocked(OmccClient &client) {
    if (client.iFd >= 0) {
        close(client.iFd);
        client.iFd = -1;
    }
    client.inbuf.clear();
}

// Runs the handler of one REQUEST frame and ends the request; false when the connection failed.
bool Serve(OmccClient &client, const Frame &frame) {
    u32 ulResult = kNoSubscription;
    bool bSendFailed = false;
    size_t idx = frame.ulArg < client.subs.size() ? frame.ulArg : 0;
    if (idx < client.subs.size()) {
        RequestCtx ctx;
        ctx.pstClient = &client;
        ctx.ulId = frame.ulId;
        OMCC_BYTES_S stBytes{reinterpret_cast<const u8 *>(frame.payload.data()), frame.payload.size()};
        ulResult = client.subs[idx].pfnRequest(&ctx, &stBytes);
        ctx.ulMagic = 0;
        bSendFailed = ctx.bSendFailed;
    }
    return !bSendFailed && Send(client, OMCC_FRAME_END, frame.ulId, ulResult, std::string());
}

// Serves every complete frame in the input buffer: the number served, or a negative status.
s32 ServeBuffered(OmccClient &client) {
    s32 served = 0;
    Frame frame;
    for (;;) {
        Take take = plat::omcc::TakeFrame(client.inbuf, frame);
        if (take == Take::kNeedMore) {
            return served;
        }
        if (take == Take::kBad) {
            return -OMCC_ERR_PROTOCOL;
        }
        if (frame.usType != OMCC_FRAME_REQUEST) {
            continue; // nothing else is meant for a client; ignore it
        }
        if (!Serve(client, frame)) {
            return -OMCC_ERR_IO;
        }
        ++served;
    }
}

// Every client ever created: there is no delete, and the list keeps them reachable for leak checkers.
struct Registry {
    std::mutex lock;
    std::vector<OmccClient *> all;
};

Registry &Clients() {
    static Registry *reg = new Registry(); // never destroyed: clients live until the process ends
    return *reg;
}

} // namespace

extern "C" OMCC_CLIENT_S *omcc_client_new(const char *pcName, u32 ulKind) {
    if (plat::FaultHit("omcc_client_new") || pcName == nullptr || std::strlen(pcName) > OMCC_NAME_MAX) {
        return nullptr;
    }
    auto *pstClient = new (std::nothrow) OmccClient();
    if (pstClient == nullptr) {
        return nullptr;
    }
    pstClient->name = pcName;
    pstClient->ulKind = ulKind;
    Registry &reg = Clients();
    std::lock_guard<std::mutex> guard(reg.lock);
    reg.all.push_back(pstClient);
    return pstClient;
}

extern "C" s32 omcc_subscribe(OMCC_CLIENT_S *pstClient, const OMCC_SUBSCRIPTION_S *pstSub) {
    if (plat::FaultHit("omcc_subscribe")) {
        return OMCC_ERR_INJECTED;
    }
    if (pstClient == nullptr || pstSub == nullptr || pstSub->pcPath == nullptr || pstSub->pfnRequest == nullptr ||
        pstSub->ullKind != OMCC_SUB_KIND_REQUEST) {
        return OMCC_ERR_PARAM;
    }
    size_t zLen = strnlen(pstSub->pcPath, OMCC_PATH_MAX + 1);
    if (zLen == 0 || zLen > OMCC_PATH_MAX) {
        return OMCC_ERR_PARAM;
    }
    std::lock_guard<std::mutex> guard(pstClient->lock);
    pstClient->subs.push_back({std::string(pstSub->pcPath, zLen), pstSub->pfnRequest});
    return OMCC_OK;
}

extern "C" s32 omcc_connect(OMCC_CLIENT_S *pstClient, s32 iFlags) {
    if (plat::FaultHit("omcc_connect")) {
        return -OMCC_ERR_INJECTED;
    }
    if (pstClient == nullptr || iFlags != 0) {
        return -OMCC_ERR_PARAM;
    }
    std::lock_guard<std::mutex> guard(pstClient->lock);
    if (pstClient->iFd >= 0) {
        return -OMCC_ERR_STATE;
    }
    int iFd = plat::omcc::ConnectUnix(plat::omcc::SocketPath());
    if (iFd < 0) {
        return -OMCC_ERR_IO;
    }
    timeval tv{kSendTimeoutSec, 0};
    setsockopt(iFd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    pstClient->iFd = iFd;
    if (!Send(*pstClient, OMCC_FRAME_HELLO, 0, static_cast<u32>(getpid()), pstClient->name)) {
        CloseLocked(*pstClient);
        return -OMCC_ERR_IO;
    }
    return iFd;
}

extern "C" s32 omcc_activate(OMCC_CLIENT_S *pstClient, s32 iArg1, s32 iArg2, s32 iArg3) {
    if (plat::FaultHit("omcc_activate")) {
        return OMCC_ERR_INJECTED;
    }
    if (pstClient == nullptr || iArg1 != 0 || iArg2 != 0 || iArg3 != 0) {
        return OMCC_ERR_PARAM;
    }
    std::lock_guard<std::mutex> guard(pstClient->lock);
    if (pstClient->iFd < 0) {
        return OMCC_ERR_STATE;
    }
    for (const OmccClient::Sub &sub : pstClient->subs) {
        if (!Send(*pstClient, OMCC_FRAME_SUBSCRIBE, 0, 0, sub.path)) {
            return OMCC_ERR_IO;
        }
    }
    return OMCC_OK;
}

extern "C" s32 omcc_run(OMCC_CLIENT_S *pstClient, s32 iFlags) {
    if (plat::FaultHit("omcc_run")) {
        return -OMCC_ERR_INJECTED;
    }
    if (pstClient == nullptr || iFlags != 0) {
        return -OMCC_ERR_PARAM;
    }
    std::lock_guard<std::mutex> guard(pstClient->lock);
    if (pstClient->iFd < 0) {
        return -OMCC_ERR_STATE;
    }
    s32 served = 0;
    char chunk[4096];
    for (size_t got = 0; got < kReadChunk;) {
        ssize_t n = recv(pstClient->iFd, chunk, sizeof chunk, MSG_DONTWAIT);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        }
        if (n <= 0) {
            return -OMCC_ERR_IO; // hang-up or a failed socket
        }
        got += static_cast<size_t>(n);
        pstClient->inbuf.append(chunk, static_cast<size_t>(n));
        s32 rc = ServeBuffered(*pstClient);
        if (rc < 0) {
            return rc;
        }
        served += rc;
    }
    return served;
}

extern "C" void omcc_disconnect(OMCC_CLIENT_S *pstClient) {
    if (pstClient != nullptr) {
        std::lock_guard<std::mutex> guard(pstClient->lock);
        CloseLocked(*pstClient);
    }
}

extern "C" OMCC_TTY_S *omcc_tty_borrow(void *pOmCtx, s32 iMode) {
    if (plat::FaultHit("omcc_tty_borrow") || pOmCtx == nullptr || iMode != 1) {
        return nullptr;
    }
    auto *pstCtx = static_cast<RequestCtx *>(pOmCtx);
    if (pstCtx->ulMagic != kRequestMagic || pstCtx->tty.borrowed) {
        return nullptr;
    }
    pstCtx->tty.borrowed = true;
    return &pstCtx->tty;
}

extern "C" s32 omcc_tty_printf(OMCC_TTY_S *pstTty, const char *pcFormat, ...) {
    if (pstTty == nullptr || pcFormat == nullptr || !pstTty->borrowed) {
        return -OMCC_ERR_PARAM;
    }
    va_list ap;
    va_start(ap, pcFormat);
    va_list ap2;
    va_copy(ap2, ap);
    int len = std::vsnprintf(nullptr, 0, pcFormat, ap);
    va_end(ap);
    std::string text(len > 0 ? static_cast<size_t>(len) : 0, '\0');
    if (len > 0) {
        std::vsnprintf(text.data(), text.size() + 1, pcFormat, ap2);
    }
    va_end(ap2);
    RequestCtx *pstCtx = CtxOfTty(pstTty);
    for (size_t off = 0; off < text.size() && !pstCtx->bSendFailed; off += OMCC_FRAME_MAX_PAYLOAD) {
        std::string part = text.substr(off, OMCC_FRAME_MAX_PAYLOAD);
        pstCtx->bSendFailed = !Send(*pstCtx->pstClient, OMCC_FRAME_OUTPUT, pstCtx->ulId, 0, part);
    }
    return pstCtx->bSendFailed ? -OMCC_ERR_IO : len;
}

extern "C" void omcc_tty_return(OMCC_TTY_S *pstTty) {
    if (pstTty != nullptr) {
        pstTty->borrowed = false;
    }
}
