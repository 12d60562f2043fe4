// zol_omd: the OM framework daemon. Processes connect and subscribe their command paths; a requester
// (zol_diag) sends a request document, the daemon routes it to the process that subscribed a path the
// document names (or to the process id the requester gives), and relays the process's terminal output
// and end of request back. Malformed frames drop the sender; a request not ended in time is failed.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "omcc.h"
#include "omcc_frame.h"

namespace {

using Clock = std::chrono::steady_clock;
using plat::omcc::Frame;
using plat::omcc::Take;

constexpr size_t kMaxConns = 256;
constexpr size_t kMaxPending = 1024;
constexpr size_t kMaxPaths = 64;
constexpr size_t kMaxQueued = 8u * 1024u * 1024u; // a peer that reads nothing is dropped past this
constexpr size_t kReadBudget = 256u * 1024u;      // per connection and wake-up, so no peer starves others

volatile sig_atomic_t g_stop = 0;
bool g_verbose = false;

struct Conn {
    int fd = -1;
    std::string in, out;
    bool bClient = false; // sent HELLO: a process offering commands
    bool bDead = false;
    u32 pid = 0;
    std::string name;
    std::vector<std::string> paths;
};

struct Pending {
    u64 requester = 0;
    u32 requesterId = 0;
    u64 target = 0;
    Clock::time_point deadline;
};

struct Daemon {
    int listenFd = -1;
    std::string socketPath;
    std::chrono::milliseconds timeout{10000};
    std::map<u64, Conn> conns;
    u64 nextConn = 1;
    std::map<u32, Pending> pending;
    u32 nextId = 0;
};

void Log(const char *pcFormat, ...) __attribute__((format(printf, 1, 2)));
void Log(const char *pcFormat, ...) {
    if (!g_verbose) {
        return;
    }
    va_list ap;
    va_start(ap, pcFormat);
    std::fputs("zol_omd: ", stderr);
    std::vfprintf(stderr, pcFormat, ap);
    std::fputc('\n', stderr);
    va_end(ap);
}

void Flush(Conn &c) {
    while (!c.out.empty() && !c.bDead) {
        ssize_t n = send(c.fd, c.out.data(), c.out.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return;
        }
        if (n <= 0) {
            c.bDead = true;
            return;
        }
        c.out.erase(0, static_cast<size_t>(n));
    }
}

void Queue(Conn &c, u16 usType, u32 ulId, u32 ulArg, const std::string &payload) {
    if (c.bDead) {
        return;
    }
    plat::omcc::AppendFrame(c.out, usType, ulId, ulArg, payload.data(), payload.size());
    if (c.out.size() > kMaxQueued) {
        Log("dropping a peer that does not read (fd %d)", c.fd);
        c.bDead = true;
        return;
    }
    Flush(c);
}

void Fail(Daemon &d, u64 requester, u32 requesterId, u32 reason, const std::string &text) {
    auto it = d.conns.find(requester);
    if (it != d.conns.end()) {
        Queue(it->second, OMCC_FRAME_ERROR, requesterId, reason, text);
    }
}

// Index of the first of the client's paths that the document names, or -1.
int MatchPath(const Conn &c, OMCC_NODE_S *pstRoot) {
    for (size_t i = 0; pstRoot != nullptr && i < c.paths.size(); ++i) {
        if (omcc_find_node(pstRoot, c.paths[i].c_str()) != nullptr) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

// The connection that serves a request and the subscription index to hand it; false when none does.
// An explicit process id wins; otherwise the document decides.
bool Route(Daemon &d, u32 ulPid, const std::string &doc, u64 &target, u32 &subIndex) {
    OMCC_BYTES_S stBytes{reinterpret_cast<const u8 *>(doc.data()), doc.size()};
    OMCC_DOC_S *pstDoc = omcc_parse_bytes(nullptr, &stBytes);
    OMCC_NODE_S *pstRoot = omcc_doc_root(pstDoc);
    bool found = false;
    for (auto &[id, c] : d.conns) {
        if (!c.bClient || c.bDead || c.paths.empty() || (ulPid != 0 && c.pid != ulPid)) {
            continue;
        }
        int match = MatchPath(c, pstRoot);
        if (ulPid != 0 || match >= 0) {
            target = id;
            subIndex = match >= 0 ? static_cast<u32>(match) : 0;
            found = true;
            break;
        }
    }
    omcc_free_doc(pstDoc);
    return found;
}

void OnRequest(Daemon &d, u64 from, const Frame &f) {
    if (d.pending.size() >= kMaxPending) {
        Fail(d, from, f.ulId, OMCC_FAIL_BUSY, "the OM daemon has too many requests in progress.");
        return;
    }
    u64 target = 0;
    u32 subIndex = 0;
    if (!Route(d, f.ulArg, f.payload, target, subIndex)) {
        std::string text = f.ulArg != 0 ? "process " + std::to_string(f.ulArg) + " is not connected to the OM daemon."
                                        : "no connected process subscribes a path of this document.";
        Fail(d, from, f.ulId, OMCC_FAIL_NO_TARGET, text);
        return;
    }
    do {
        ++d.nextId;
    } while (d.nextId == 0 || d.pending.count(d.nextId) != 0);
    d.pending[d.nextId] = Pending{from, f.ulId, target, Clock::now() + d.timeout};
    Log("request %u -> pid %u (subscription %u)", d.nextId, d.conns[target].pid, subIndex);
    Queue(d.conns[target], OMCC_FRAME_REQUEST, d.nextId, subIndex, f.payload);
}

// OUTPUT or END from a process: relayed to the requester when the request is still waiting.
void OnAnswer(Daemon &d, u64 from, const Frame &f) {
    auto it = d.pending.find(f.ulId);
    if (it == d.pending.end() || it->second.target != from) {
        return; // late (timed out) or foreign: nobody waits for it
    }
    Pending p = it->second;
    if (f.usType == OMCC_FRAME_END) {
        d.pending.erase(it);
    }
    auto req = d.conns.find(p.requester);
    if (req != d.conns.end()) {
        Queue(req->second, f.usType, p.requesterId, f.ulArg, f.payload);
    }
}

void OnFrame(Daemon &d, u64 from, const Frame &f) {
    Conn &c = d.conns[from];
    switch (f.usType) {
    case OMCC_FRAME_HELLO:
        c.bClient = true;
        c.pid = f.ulArg;
        c.name = f.payload.substr(0, OMCC_NAME_MAX);
        Log("client \"%s\" pid %u connected", c.name.c_str(), c.pid);
        break;
    case OMCC_FRAME_SUBSCRIBE:
        if (c.bClient && c.paths.size() < kMaxPaths && f.payload.size() <= OMCC_PATH_MAX &&
            std::find(c.paths.begin(), c.paths.end(), f.payload) == c.paths.end()) {
            c.paths.push_back(f.payload);
        }
        break;
    case OMCC_FRAME_REQUEST:
        OnRequest(d, from, f);
        break;
    case OMCC_FRAME_OUTPUT:
    case OMCC_FRAME_END:
        OnAnswer(d, from, f);
        break;
    default:
        break; // ERROR frames are for requesters only
    }
}

void ReadConn(Daemon &d, u64 id) {
    char chunk[16384];
    for (size_t got = 0; got < kReadBudget && !d.conns[id].bDead;) {
        Conn &c = d.conns[id];
        ssize_t n = recv(c.fd, chunk, sizeof chunk, MSG_DONTWAIT);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return;
        }
        if (n <= 0) {
            c.bDead = true;
            return;
        }
        got += static_cast<size_t>(n);
        c.in.append(chunk, static_cast<size_t>(n));
        Frame f;
        Take t;
        while ((t = plat::omcc::TakeFrame(d.conns[id].in, f)) == Take::kFrame) {
            OnFrame(d, id, f);
        }
        if (t == Take::kBad) {
            Log("malformed frame from fd %d: dropping it", d.conns[id].fd);
            d.conns[id].bDead = true;
        }
    }
}

void Reap(Daemon &d) {
    for (auto it = d.conns.begin(); it != d.conns.end();) {
        if (!it->second.bDead) {
            ++it;
            continue;
        }
        u64 id = it->first;
        Log("fd %d closed", it->second.fd);
        close(it->second.fd);
        it = d.conns.erase(it);
        for (auto p = d.pending.begin(); p != d.pending.end();) {
            if (p->second.target == id) {
                Fail(d, p->second.requester, p->second.requesterId, OMCC_FAIL_GONE,
                     "the process hung up before answering.");
            }
            p = (p->second.target == id || p->second.requester == id) ? d.pending.erase(p) : std::next(p);
        }
    }
}

void Expire(Daemon &d) {
    Clock::time_point now = Clock::now();
    for (auto p = d.pending.begin(); p != d.pending.end();) {
        if (p->second.deadline > now) {
            ++p;
            continue;
        }
        Fail(d, p->second.requester, p->second.requesterId, OMCC_FAIL_TIMEOUT,
             "the process did not answer within " + std::to_string(d.timeout.count()) + " ms.");
        p = d.pending.erase(p);
    }
}

void Accept(Daemon &d) {
    int fd = accept4(d.listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        return;
    }
    if (d.conns.size() >= kMaxConns) {
        close(fd);
        return;
    }
    d.conns[d.nextConn++].fd = fd;
}

int PollTimeout(const Daemon &d) {
    int ms = 1000;
    Clock::time_point now = Clock::now();
    for (const auto &[id, p] : d.pending) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(p.deadline - now).count();
        ms = std::min<int>(ms, static_cast<int>(std::max<long long>(left + 1, 0)));
    }
    return ms;
}

void Loop(Daemon &d) {
    std::vector<pollfd> fds;
    std::vector<u64> ids;
    while (g_stop == 0) {
        fds.assign(1, pollfd{d.listenFd, POLLIN, 0});
        ids.assign(1, 0);
        for (const auto &[id, c] : d.conns) {
            fds.push_back(pollfd{c.fd, static_cast<short>(POLLIN | (c.out.empty() ? 0 : POLLOUT)), 0});
            ids.push_back(id);
        }
        if (poll(fds.data(), fds.size(), PollTimeout(d)) < 0 && errno != EINTR) {
            std::perror("zol_omd: poll");
            return;
        }
        for (size_t i = 1; i < fds.size(); ++i) {
            if ((fds[i].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
                ReadConn(d, ids[i]);
            }
            if ((fds[i].revents & POLLOUT) != 0) {
                Flush(d.conns[ids[i]]);
            }
        }
        if ((fds[0].revents & POLLIN) != 0) {
            Accept(d);
        }
        Expire(d);
        Reap(d);
    }
}

// Binds the listening socket; a socket file left by a dead daemon is replaced, a live daemon is not.
bool Listen(Daemon &d) {
    sockaddr_un addr{};
    if (d.socketPath.size() >= sizeof addr.sun_path) {
        std::fprintf(stderr, "zol_omd: socket path too long: %s\n", d.socketPath.c_str());
        return false;
    }
    int probe = plat::omcc::ConnectUnix(d.socketPath.c_str());
    if (probe >= 0) {
        close(probe);
        std::fprintf(stderr, "zol_omd: another daemon is listening on %s\n", d.socketPath.c_str());
        return false;
    }
    unlink(d.socketPath.c_str());
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, d.socketPath.c_str(), d.socketPath.size() + 1);
    d.listenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (d.listenFd < 0 || bind(d.listenFd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) < 0 ||
        listen(d.listenFd, 64) < 0) {
        std::fprintf(stderr, "zol_omd: cannot listen on %s: %s\n", d.socketPath.c_str(), std::strerror(errno));
        return false;
    }
    return true;
}

void Usage(FILE *out) {
    std::fprintf(out,
                 "Usage: zol_omd [--socket PATH] [--timeout MS] [--verbose]\n"
                 "The OM framework daemon: processes using libzol_comm connect and subscribe their\n"
                 "diagnostic commands; zol_diag sends requests through it.\n"
                 "  --socket PATH  listening socket (default: $%s, else %s)\n"
                 "  --timeout MS   time a process has to answer one request (default 10000)\n"
                 "  --verbose      report connections and requests on standard error\n"
                 "YANG modules for routing by document: $%s, else the build's yang/ directory.\n"
                 "Stops on SIGINT or SIGTERM and removes its socket.\n",
                 OMCC_SOCKET_ENV, OMCC_DEFAULT_SOCKET, OMCC_YANG_DIR_ENV);
}

bool ParseArgs(int argc, char **argv, Daemon &d) {
    d.socketPath = plat::omcc::SocketPath();
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--socket" && i + 1 < argc) {
            d.socketPath = argv[++i];
        } else if (a == "--timeout" && i + 1 < argc) {
            long ms = std::strtol(argv[++i], nullptr, 10);
            if (ms <= 0) {
                return false;
            }
            d.timeout = std::chrono::milliseconds(ms);
        } else if (a == "--verbose") {
            g_verbose = true;
        } else {
            return false;
        }
    }
    return true;
}

void OnSignal(int) {
    g_stop = 1;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        Usage(stdout);
        return 0;
    }
    Daemon d;
    if (!ParseArgs(argc, argv, d)) {
        Usage(stderr);
        return 2;
    }
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);
    if (!Listen(d)) {
        return 1;
    }
    Log("listening on %s", d.socketPath.c_str());
    Loop(d);
    for (auto &[id, c] : d.conns) {
        close(c.fd);
    }
    close(d.listenFd);
    unlink(d.socketPath.c_str());
    return 0;
}
