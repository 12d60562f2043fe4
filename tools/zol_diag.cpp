// zol_diag: the diagnostic command. Builds a request document (or takes one as written), sends it
// through the OM daemon to the process and prints the process's answer.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <poll.h>
#include <sstream>
#include <string>
#include <unistd.h>

#include "omcc.h"
#include "omcc_frame.h"

namespace {

using Clock = std::chrono::steady_clock;
using plat::omcc::Frame;
using plat::omcc::Take;

// Exit codes, documented in the usage text.
enum Exit : int {
    kExitOk = 0,
    kExitCmdFailed = 1,
    kExitUsage = 2,
    kExitNoDaemon = 3,
    kExitUnknownProcess = 4,
    kExitTimeout = 5,
    kExitProcessGone = 6,
};

struct Options {
    std::string socketPath = plat::omcc::SocketPath();
    long timeoutMs = 15000;
    u32 pid = 0;
    std::string command, type, docFile;
    bool bHasType = false;
};

void Usage(FILE *out) {
    std::fprintf(out,
                 "Usage: zol_diag [OPTIONS] PID COMMAND [TYPE]\n"
                 "       zol_diag [OPTIONS] [--pid PID] --doc FILE\n"
                 "Asks a process that uses libzol_comm for a diagnostic display, through the OM daemon\n"
                 "zol_omd, and prints the answer.\n"
                 "  COMMAND        get-ipc-info or get-rpc-info\n"
                 "  TYPE           the display, e.g. connect-info, error, node-detail, packet (IPC) or\n"
                 "                 callback-time, error, packet (RPC); left out, the request has no type\n"
                 "  --doc FILE     send FILE (JSON or XML request document, '-' for standard input) as it is;\n"
                 "                 the daemon routes it by its content, or to PID when --pid is given\n"
                 "  --socket PATH  the daemon's socket (default: $%s, else %s)\n"
                 "  --timeout MS   give up after MS milliseconds (default 15000)\n"
                 "Exit status: 0 answered, 1 the process refused the request, 2 usage, 3 the daemon is not\n"
                 "running, 4 no such process is connected, 5 timed out, 6 the process went away.\n",
                 OMCC_SOCKET_ENV, OMCC_DEFAULT_SOCKET);
}

bool ParsePid(const char *pcText, u32 &pid) {
    char *end = nullptr;
    errno = 0;
    unsigned long v = std::strtoul(pcText, &end, 10);
    if (errno != 0 || end == pcText || *end != '\0' || v == 0 || v > 0xFFFFFFFFul || pcText[0] == '-') {
        return false;
    }
    pid = static_cast<u32>(v);
    return true;
}

bool ParseOptions(int argc, char **argv, Options &o) {
    int i = 1;
    for (; i < argc && argv[i][0] == '-' && argv[i][1] == '-'; ++i) {
        std::string a = argv[i];
        if (i + 1 >= argc) {
            return false;
        }
        if (a == "--socket") {
            o.socketPath = argv[++i];
        } else if (a == "--timeout") {
            o.timeoutMs = std::strtol(argv[++i], nullptr, 10);
        } else if (a == "--pid") {
            if (!ParsePid(argv[++i], o.pid)) {
                return false;
            }
        } else if (a == "--doc") {
            o.docFile = argv[++i];
        } else {
            return false;
        }
    }
    if (!o.docFile.empty()) {
        return i == argc && o.timeoutMs > 0;
    }
    if (argc - i < 2 || argc - i > 3 || !ParsePid(argv[i], o.pid)) {
        return false;
    }
    o.command = argv[i + 1];
    o.bHasType = argc - i == 3;
    o.type = o.bHasType ? argv[i + 2] : "";
    return (o.command == "get-ipc-info" || o.command == "get-rpc-info") && o.timeoutMs > 0;
}

std::string JsonString(const std::string &text) {
    std::string out = "\"";
    for (unsigned char ch : text) {
        if (ch == '"' || ch == '\\') {
            out += '\\';
            out += static_cast<char>(ch);
        } else if (ch < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", ch);
            out += esc;
        } else {
            out += static_cast<char>(ch);
        }
    }
    return out + "\"";
}

std::string BuildDocument(const Options &o) {
    std::string cmd = "{" + (o.bHasType ? "\"type\":" + JsonString(o.type) : std::string()) + "}";
    return "{\"korvex-diagnose:diagnose\":{\"korvex-diagnose-zol:zol\":{\"processes\":{\"process\":[{\"process-id\":" +
           std::to_string(o.pid) + "," + JsonString(o.command) + ":" + cmd + "}]}}}}";
}

bool ReadDocument(const std::string &file, std::string &doc) {
    std::stringstream ss;
    if (file == "-") {
        ss << std::cin.rdbuf();
    } else {
        std::ifstream in(file, std::ios::binary);
        if (!in) {
            return false;
        }
        ss << in.rdbuf();
    }
    doc = ss.str();
    return doc.size() <= OMCC_FRAME_MAX_PAYLOAD;
}

int ExitOfError(const Frame &f) {
    std::fprintf(stderr, "zol_diag: %s\n", f.payload.c_str());
    switch (f.ulArg) {
    case OMCC_FAIL_NO_TARGET:
        return kExitUnknownProcess;
    case OMCC_FAIL_TIMEOUT:
        return kExitTimeout;
    default:
        return kExitProcessGone;
    }
}

// Prints OUTPUT frames until END or ERROR; returns the exit code.
int Receive(int fd, long timeoutMs) {
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string in;
    bool bEndsWithNewline = true;
    for (;;) {
        Frame f;
        Take t;
        while ((t = plat::omcc::TakeFrame(in, f)) == Take::kFrame) {
            if (f.usType == OMCC_FRAME_OUTPUT && !f.payload.empty()) {
                std::fwrite(f.payload.data(), 1, f.payload.size(), stdout);
                bEndsWithNewline = f.payload.back() == '\n';
            } else if (f.usType == OMCC_FRAME_END) {
                std::fputs(bEndsWithNewline ? "" : "\n", stdout);
                return f.ulArg == 0 ? kExitOk : kExitCmdFailed;
            } else if (f.usType == OMCC_FRAME_ERROR) {
                return ExitOfError(f);
            }
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd p{fd, POLLIN, 0};
        if (t == Take::kBad || left <= 0 || poll(&p, 1, static_cast<int>(left)) == 0) {
            std::fprintf(stderr, "zol_diag: %s\n", t == Take::kBad ? "malformed answer." : "no answer in time.");
            return t == Take::kBad ? kExitProcessGone : kExitTimeout;
        }
        char chunk[16384];
        ssize_t n = read(fd, chunk, sizeof chunk);
        if (n <= 0 && !(n < 0 && errno == EINTR)) {
            std::fprintf(stderr, "zol_diag: the OM daemon closed the connection.\n");
            return kExitNoDaemon;
        }
        in.append(chunk, n > 0 ? static_cast<size_t>(n) : 0);
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        Usage(stdout);
        return kExitOk;
    }
    Options o;
    std::string doc;
    if (!ParseOptions(argc, argv, o)) {
        Usage(stderr);
        return kExitUsage;
    }
    if (!o.docFile.empty() ? !ReadDocument(o.docFile, doc) : (doc = BuildDocument(o), false)) {
        std::fprintf(stderr, "zol_diag: cannot read %s (or it exceeds 1 MiB)\n", o.docFile.c_str());
        return kExitUsage;
    }
    int fd = plat::omcc::ConnectUnix(o.socketPath.c_str());
    if (fd < 0) {
        std::fprintf(stderr, "zol_diag: the OM daemon is not running (nothing listens on %s).\n", o.socketPath.c_str());
        return kExitNoDaemon;
    }
    std::string frame;
    plat::omcc::AppendFrame(frame, OMCC_FRAME_REQUEST, 1, o.pid, doc.data(), doc.size());
    int rc = plat::omcc::WriteAll(fd, frame) ? Receive(fd, o.timeoutMs) : kExitNoDaemon;
    close(fd);
    std::fflush(stdout);
    return rc;
}
