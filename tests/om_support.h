// Test helpers of the OM suites: run the tools zol_omd and zol_diag from the build tree (through the
// cross emulator when there is one) and capture their output; a framework played by the test itself.
#ifndef OM_SUPPORT_H
#define OM_SUPPORT_H

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
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
    if (pcDir == nullptr) {
        return std::string();
    }
    std::string path = std::string(pcDir) + "/tools/" + pcName;
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? path : std::string();
}

// The command line prefix that runs a target binary: the emulator of a cross build, else nothing.
inline std::vector<std::string> EmulatorPrefix() {
    std::vector<std::string> out;
#ifdef ZOL_TEST_EMULATOR
    std::istringstream words(ZOL_TEST_EMULATOR);
    for (std::string w; words >> w;) {
        out.push_back(w);
    }
#endif
    return out;
}

struct Child {
    pid_t pid = -1;
    int outFd = -1; // standard output and error together
};

inline Child Spawn(const std::string &tool, const std::vector<std::string> &args) {
    std::vector<std::string> words = EmulatorPrefix();
    words.push_back(tool);
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &w : words) {
        argv.push_back(w.data());
    }
    argv.push_back(nullptr);
    int fds[2];
    Child child;
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return child;
    }
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, fds[1], 1);
    posix_spawn_file_actions_adddup2(&fa, fds[1], 2);
    if (posix_spawnp(&child.pid, argv[0], &fa, nullptr, argv.data(), environ) != 0) {
        child.pid = -1;
    }
    posix_spawn_file_actions_destroy(&fa);
    close(fds[1]);
    child.outFd = fds[0];
    return child;
}

// Reads the child's output until it ends, then reaps it. Exit status, or -1 (killed after 60 s).
inline int Finish(Child &child, std::string &out) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    char buf[4096];
    for (;;) {
        pollfd p{child.outFd, POLLIN, 0};
        if (std::chrono::steady_clock::now() > deadline || poll(&p, 1, 1000) < 0) {
            kill(child.pid, SIGKILL);
            break;
        }
        ssize_t n = p.revents != 0 ? read(child.outFd, buf, sizeof buf) : 1;
        if (n <= 0) {
            break;
        }
        if (p.revents != 0) {
            out.append(buf, static_cast<size_t>(n));
        }
    }
    close(child.outFd);
    int status = 0;
    waitpid(child.pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Whole content of a file, empty when it cannot be read.
inline std::string ReadFile(const std::string &path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline int Run(const std::string &tool, const std::vector<std::string> &args, std::string &out) {
    Child child = Spawn(tool, args);
    return child.pid < 0 ? -1 : Finish(child, out);
}

// A daemon on its own socket for one test; stopped (SIGTERM) when the object goes away.
class Daemon {
  public:
    Daemon(const std::string &socketPath, std::vector<std::string> extra = {}) : path_(socketPath) {
        std::string tool = ToolPath("zol_omd");
        if (tool.empty()) {
            return;
        }
        extra.insert(extra.begin(), {"--socket", socketPath});
        child_ = Spawn(tool, extra);
        for (int i = 0; i < 200 && child_.pid > 0; ++i) { // up to 10 s for the daemon to listen
            int fd = plat::omcc::ConnectUnix(path_.c_str());
            if (fd >= 0) {
                close(fd);
                up_ = true;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    ~Daemon() { Stop(); }
    bool Up() const { return up_; }
    int Stop() {
        if (child_.pid <= 0) {
            return -1;
        }
        kill(child_.pid, SIGTERM);
        std::string out;
        int rc = Finish(child_, out);
        child_.pid = -1;
        up_ = false;
        return rc;
    }

  private:
    std::string path_;
    Child child_;
    bool up_ = false;
};

// A socket path unique to this test process and tag.
inline std::string TempSocket(const char *pcTag) {
    return "/tmp/zol_om_test_" + std::to_string(getpid()) + "_" + pcTag + ".sock";
}

// A framework played by the test: a listening socket and raw frames.
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
        close(peer_);
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
        for (int i = 0; i < 50; ++i) {
            if (plat::omcc::TakeFrame(in_, f) == plat::omcc::Take::kFrame) {
                last_ = f;
                return f;
            }
            pollfd p{peer_, POLLIN, 0};
            char buf[4096];
            ssize_t n = poll(&p, 1, 100) > 0 ? read(peer_, buf, sizeof buf) : 0;
            in_.append(buf, n > 0 ? static_cast<size_t>(n) : 0);
        }
        return plat::omcc::Frame{};
    }

  private:
    std::string path_;
    int listen_ = -1;
    int peer_ = -1;
    std::string in_;
    plat::omcc::Frame last_;
};

} // namespace om_test

#endif // OM_SUPPORT_H
