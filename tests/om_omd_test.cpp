// zol_omd and zol_diag between real peers: routing by process id and by document, relayed output and
// results, unknown processes, time-outs, a missing daemon, and hostile peers that must not hurt it.
#include <atomic>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>

#include "omcc.h"
#include "omcc_frame.h"

#include "om_support.h"

namespace {

std::string CmdPath(u32 pid, const char *pcCmd) {
    return "/korvex-diagnose:diagnose/korvex-diagnose-zol:zol/processes/process[process-id=" + std::to_string(pid) +
           "]/" + pcCmd;
}

// Answers with the subscription's command and the type leaf, and returns the type's length.
u32 TypeHandler(void *ctx, const OMCC_BYTES_S *req) {
    OMCC_DOC_S *doc = omcc_parse_bytes(nullptr, req);
    OMCC_TTY_S *tty = omcc_tty_borrow(ctx, 1);
    std::string proc = CmdPath(getpid(), "");
    proc.pop_back();
    OMCC_NODE_S *node = omcc_find_node(omcc_doc_root(doc), proc.c_str());
    const char *type = "";
    u32 rc = doc == nullptr ? 100 : node == nullptr ? 101 : 0;
    for (const char *cmd : {"get-ipc-info", "get-rpc-info"}) {
        OMCC_NODE_S *c = rc == 0 ? omcc_find_node(node, cmd) : nullptr;
        if (c != nullptr && omcc_parse_str(c, "type", &type) == 0) {
            omcc_tty_printf(tty, "%s/%s", cmd, type);
            rc = static_cast<u32>(std::string(type) == "fail");
        }
    }
    omcc_tty_return(tty);
    omcc_free_doc(doc);
    return rc;
}

// A process offering the two commands, served from its own thread while it runs.
class Server {
  public:
    explicit Server(bool bAnswer = true) : bAnswer_(bAnswer) {
        client_ = omcc_client_new("Zol_omd_test", 2);
        paths_[0] = CmdPath(getpid(), "get-ipc-info");
        paths_[1] = CmdPath(getpid(), "get-rpc-info");
        for (std::string &p : paths_) {
            OMCC_SUBSCRIPTION_S sub{p.c_str(), OMCC_SUB_KIND_REQUEST, TypeHandler, {}};
            omcc_subscribe(client_, &sub);
        }
        fd_ = omcc_connect(client_, 0);
        if (fd_ >= 0 && omcc_activate(client_, 0, 0, 0) == 0) {
            thread_ = std::thread([this] { Serve(); });
        }
    }
    ~Server() {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        omcc_disconnect(client_);
    }
    bool Up() const { return thread_.joinable(); }

  private:
    void Serve() {
        while (!stop_) {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, 50) > 0 && bAnswer_ && omcc_run(client_, 0) < 0) {
                return;
            }
        }
    }
    bool bAnswer_;
    OMCC_CLIENT_S *client_ = nullptr;
    std::string paths_[2];
    int fd_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

struct DiagResult {
    int rc;
    std::string out;
};

DiagResult Diag(const std::string &sock, std::vector<std::string> args) {
    args.insert(args.begin(), {"--socket", sock});
    DiagResult r;
    r.rc = om_test::Run(om_test::ToolPath("zol_diag"), args, r.out);
    return r;
}

class OmDaemon : public ::testing::Test {
  protected:
    void SetUp() override {
        if (om_test::ToolPath("zol_omd").empty() || om_test::ToolPath("zol_diag").empty()) {
            GTEST_SKIP() << "tools not built or ZOL_TEST_BINARY_DIR not set";
        }
        sock_ = om_test::TempSocket("omd");
        setenv(OMCC_SOCKET_ENV, sock_.c_str(), 1);
    }
    void TearDown() override { unsetenv(OMCC_SOCKET_ENV); }
    std::string sock_;
};

TEST_F(OmDaemon, RoutesRequestsAndRelaysAnswers) {
    om_test::Daemon daemon(sock_);
    ASSERT_TRUE(daemon.Up());
    Server server;
    ASSERT_TRUE(server.Up());
    std::string pid = std::to_string(getpid());
    DiagResult r = Diag(sock_, {pid, "get-ipc-info", "packet"});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "get-ipc-info/packet\n");
    r = Diag(sock_, {pid, "get-rpc-info", "fail"});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.out, "get-rpc-info/fail\n");
    // Routed by the document alone: the daemon finds the subscribed path in it.
    std::string file = sock_ + ".json";
    std::ofstream(file) << "{\"korvex-diagnose:diagnose\":{\"korvex-diagnose-zol:zol\":{\"processes\":{\"process\":"
                           "[{\"process-id\":"
                        << pid << ",\"get-rpc-info\":{\"type\":\"x\\\"y\"}}]}}}}";
    r = Diag(sock_, {"--doc", file});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "get-rpc-info/x\"y\n");
    std::ofstream(file) << "not a document";
    r = Diag(sock_, {"--doc", file});
    EXPECT_EQ(r.rc, 4);
    r = Diag(sock_, {"--pid", pid, "--doc", file}); // forwarded: the process itself refuses it
    EXPECT_EQ(r.rc, 1);
    unlink(file.c_str());
    r = Diag(sock_, {"4000000000", "get-ipc-info", "packet"});
    EXPECT_EQ(r.rc, 4);
    EXPECT_NE(r.out.find("process 4000000000 is not connected"), std::string::npos) << r.out;
    EXPECT_EQ(Diag(sock_, {pid, "get-bogus-info", "packet"}).rc, 2);
}

TEST_F(OmDaemon, TimesOutAndReportsAMissingDaemon) {
    {
        om_test::Daemon daemon(sock_, {"--timeout", "300"});
        ASSERT_TRUE(daemon.Up());
        Server silent(false);
        ASSERT_TRUE(silent.Up());
        DiagResult r = Diag(sock_, {std::to_string(getpid()), "get-ipc-info", "packet"});
        EXPECT_EQ(r.rc, 5);
        EXPECT_NE(r.out.find("did not answer within 300 ms"), std::string::npos) << r.out;
        EXPECT_EQ(daemon.Stop(), 0);
    }
    DiagResult r = Diag(sock_, {std::to_string(getpid()), "get-ipc-info", "packet"});
    EXPECT_EQ(r.rc, 3);
    EXPECT_NE(r.out.find("the OM daemon is not running"), std::string::npos) << r.out;
}

TEST_F(OmDaemon, SurvivesHostilePeers) {
    om_test::Daemon daemon(sock_);
    ASSERT_TRUE(daemon.Up());
    std::mt19937 rng(11);
    std::string random(64 * 1024, '\0');
    for (char &c : random) {
        c = static_cast<char>(rng());
    }
    std::string hello;
    plat::omcc::AppendFrame(hello, OMCC_FRAME_HELLO, 0, 1, "x", 1);
    const std::string huge = std::string("\xff\xff\xff\xff\x00\x03\x00\x00", 8) + std::string(8, '\0');
    std::string truncatedRequest;
    plat::omcc::AppendFrame(truncatedRequest, OMCC_FRAME_REQUEST, 1, 0, "{}", 2);
    truncatedRequest.resize(truncatedRequest.size() - 1);
    for (const std::string &bytes : {random, huge, hello + huge, truncatedRequest, hello.substr(0, 5)}) {
        int fd = plat::omcc::ConnectUnix(sock_.c_str());
        ASSERT_GE(fd, 0);
        plat::omcc::WriteAll(fd, bytes);
        close(fd);
    }
    // A requester that hangs up before the answer, and a process that hangs up mid-request.
    {
        Server server;
        ASSERT_TRUE(server.Up());
        int fd = plat::omcc::ConnectUnix(sock_.c_str());
        std::string req;
        std::string doc = "{}";
        plat::omcc::AppendFrame(req, OMCC_FRAME_REQUEST, 5, static_cast<u32>(getpid()), doc.data(), doc.size());
        plat::omcc::WriteAll(fd, req);
        close(fd);
    }
    Server server;
    ASSERT_TRUE(server.Up());
    DiagResult r = Diag(sock_, {std::to_string(getpid()), "get-ipc-info", "error"});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "get-ipc-info/error\n");
}

} // namespace
