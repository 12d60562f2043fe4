// Test helpers of the OM suites: run the tools zol_omd and zol_diag from the build tree (through the
// cross emulator when there is one), and a framework played by the test itself.
#ifndef OM_SUPPORT_H
#define OM_SUPPORT_H

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <random>
#include <spawn.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "omcc_frame.h"

extern char **environ;

namespace om_test {

// Full path of a tool, or empty when the build tree is unknown or the tool was not built.
inline std::string ToolPath(const char *pcName) {
    const char *pcDir = std::getenv("ZOL_TEST_BINARY_DIR");
    std::string path = pcDir != nullptr ? std::string(pcDir) + "/tools/" + pcName : "";
    return access(path.c_str(), X_OK) == 0 ? path : "";
}

// A shell command running a tool (full path) with its arguments (each quoted), through the emulator of a cross build.
inline std::string CommandLine(const std::string &tool, const std::vector<std::string> &args) {
#ifdef ZOL_TEST_EMULATOR
    std::string cmd = ZOL_TEST_EMULATOR " '" + tool + "'";
#else
    std::string cmd = "'" + tool + "'";
#endif
    for (const std::string &arg : args)
        cmd += " '" + arg + "'";
    return cmd;
}

// Runs a tool to its end; its exit status (-1 when it did not exit), its output and errors in out.
inline int Run(const std::string &tool, const std::vector<std::string> &args, std::string &out) {
    FILE *pipe = popen((CommandLine(tool, args) + " 2>&1").c_str(), "r");
    char buf[4096];
    for (size_t n; pipe != nullptr && (n = fread(buf, 1, sizeof buf, pipe)) > 0;) {
        out.append(buf, n);
    }
    int status = pipe != nullptr ? pclose(pipe) : -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline std::string ReadFile(const std::string &path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A socket path unique to this test process and tag.
inline std::string TempSocket(const char *pcTag) {
    return "/tmp/zol_om_test_" + std::to_string(getpid()) + "_" + pcTag + ".sock";
}

// One frame of the protocol as bytes.
inline std::string FrameOf(u16 usType, u32 ulId, u32 ulArg, const std::string &payload) {
    std::string out;
    plat::omcc::AppendFrame(out, usType, ulId, ulArg, payload.data(), payload.size());
    return out;
}

// Input no peer may be hurt by: n random bytes, and a frame header announcing a 4 GiB payload.
inline std::string RandomBytes(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::string out(n, '\0');
    std::generate(out.begin(), out.end(), [&] { return static_cast<char>(rng()); });
    return out;
}
inline const std::string kHugeFrame = std::string("\xff\xff\xff\xff\x00\x03\x00\x00", 8) + std::string(8, '\0');

// zol_omd on its own socket, up once it accepts connections; stopped (SIGTERM) when the object goes away.
class Daemon {
  public:
    explicit Daemon(const std::string &socketPath, const std::vector<std::string> &extra = {}) {
        std::vector<std::string> args{"--socket", socketPath};
        args.insert(args.end(), extra.begin(), extra.end());
        std::string cmd = "exec " + CommandLine(ToolPath("zol_omd"), args);
        char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"), cmd.data(), nullptr};
        if (ToolPath("zol_omd").empty() || posix_spawn(&pid_, "/bin/sh", nullptr, nullptr, argv, environ) != 0) {
            pid_ = -1;
        }
        for (int i = 0; i < 200 && pid_ > 0 && !up_; ++i) { // up to 10 s
            int fd = plat::omcc::ConnectUnix(socketPath.c_str());
            up_ = fd >= 0;
            fd >= 0 ? close(fd) : usleep(50 * 1000);
        }
    }
    ~Daemon() { Stop(); }
    bool Up() const { return up_; }
    int Stop() { // the daemon's exit status
        int status = 0;
        if (pid_ <= 0 || kill(pid_, SIGTERM) != 0 || waitpid(pid_, &status, 0) != pid_) {
            return -1;
        }
        pid_ = -1;
        up_ = false;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    pid_t pid_ = -1;
    bool up_ = false;
};

// A framework played by the test: a listening socket named by the client's environment, and raw frames.
class FakeFramework {
  public:
    FakeFramework() : path_(TempSocket("fake")) {
        unlink(path_.c_str());
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path_.c_str());
        listen_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        bind(listen_, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
        listen(listen_, 4);
        setenv(OMCC_SOCKET_ENV, path_.c_str(), 1);
    }
    ~FakeFramework() {
        HangUp();
        close(listen_);
        unlink(path_.c_str());
        unsetenv(OMCC_SOCKET_ENV);
    }
    void Accept() { peer_ = accept(listen_, nullptr, nullptr); }
    void SendRaw(const std::string &bytes) { ASSERT_TRUE(plat::omcc::WriteAll(peer_, bytes)); }
    void HangUp() {
        close(peer_);
        peer_ = -1;
    }
    // The next frame from the client (waits up to 5 s); type 0 when none came.
    plat::omcc::Frame Next() {
        plat::omcc::Frame f;
        for (int i = 0; plat::omcc::TakeFrame(in_, f) != plat::omcc::Take::kFrame; ++i) {
            if (i == 50) {
                return plat::omcc::Frame{};
            }
            pollfd p{peer_, POLLIN, 0};
            char buf[4096];
            ssize_t n = poll(&p, 1, 100) > 0 ? read(peer_, buf, sizeof buf) : 0;
            in_.append(buf, n > 0 ? static_cast<size_t>(n) : 0);
        }
        return f;
    }

  private:
    std::string path_;
    int listen_ = -1, peer_ = -1;
    std::string in_;
};

inline std::string Dashes(size_t n) {
    return std::string(n, '-');
}

// A JSON request document with one process entry; body adds members after its "process-id".
inline std::string Doc(u32 pid, const std::string &body) {
    return "{\"korvex-diagnose:diagnose\":{\"korvex-diagnose-zol:zol\":{\"processes\":{\"process\":[{\"process-id\":" +
           std::to_string(pid) + body + "}]}}}}";
}

// The absolute path of a process entry, as subscriptions and lookups name it.
inline std::string ProcPath(u32 pid) {
    return "/korvex-diagnose:diagnose/korvex-diagnose-zol:zol/processes/process[process-id=" + std::to_string(pid) +
           "]";
}

// Fixture of the end-to-end suites: a private daemon socket named in the environment, and zol_diag runs.
class DiagFixture : public ::testing::Test {
  protected:
    struct Result {
        int rc = -1;
        std::string out;
    };
    void SetUp() override {
        if (ToolPath("zol_omd").empty() || ToolPath("zol_diag").empty()) {
            GTEST_SKIP() << "tools not built or ZOL_TEST_BINARY_DIR not set";
        }
        sock_ = TempSocket("diag");
        setenv(OMCC_SOCKET_ENV, sock_.c_str(), 1);
        pid_ = std::to_string(getpid());
    }
    Result RunDiag(std::vector<std::string> args) {
        args.insert(args.begin(), {"--socket", sock_});
        Result r;
        r.rc = om_test::Run(ToolPath("zol_diag"), args, r.out);
        return r;
    }
    // Repeated until the daemon knows the process (exit code 4 before), for up to 30 s.
    Result RunDiagConnected(const std::vector<std::string> &args) {
        Result r = RunDiag(args);
        for (int i = 0; i < 300 && r.rc == 4; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            r = RunDiag(args);
        }
        return r;
    }
    // A request to this process that must succeed; its output.
    std::string Ask(const char *command, const char *type) {
        Result r = RunDiagConnected({pid_, command, type});
        EXPECT_EQ(r.rc, 0) << r.out;
        return r.out;
    }
    std::string sock_, pid_;
};

} // namespace om_test

#endif // OM_SUPPORT_H
