// zol_omd and zol_diag between real peers: routing by process id and by document, relayed output and
// results, unknown processes, time-outs, a missing daemon, and hostile peers that must not hurt it.
#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "omcc.h"
#include "omcc_frame.h"

#include "om_support.h"

namespace {

// Answers with the subscription's command and the type leaf, and returns the type's length.
u32 TypeHandler(void *ctx, const OMCC_BYTES_S *req) {
    OMCC_DOC_S *doc = omcc_parse_bytes(nullptr, req);
    OMCC_TTY_S *tty = omcc_tty_borrow(ctx, 1);
    OMCC_NODE_S *node = omcc_find_node(omcc_doc_root(doc), om_test::ProcPath(getpid()).c_str());
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
    std::string paths_[2] = {om_test::ProcPath(getpid()) + "/get-ipc-info",
                             om_test::ProcPath(getpid()) + "/get-rpc-info"};
    int fd_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

class OmDaemon : public om_test::DiagFixture {
  protected:
    void TearDown() override { unsetenv(OMCC_SOCKET_ENV); }
};

TEST_F(OmDaemon, RoutesRequestsAndRelaysAnswers) {
    om_test::Daemon daemon(sock_);
    ASSERT_TRUE(daemon.Up());
    Server server;
    ASSERT_TRUE(server.Up());
    const std::string good = sock_ + ".json", bad = sock_ + ".bad";
    std::ofstream(good) << om_test::Doc(static_cast<u32>(getpid()), ",\"get-rpc-info\":{\"type\":\"x\\\"y\"}");
    std::ofstream(bad) << "not a document";
    const struct {
        std::vector<std::string> args;
        int rc;
        std::string out; // the whole output, or a part of it after '~'
    } cases[] = {
        {{pid_, "get-ipc-info", "packet"}, 0, "get-ipc-info/packet\n"},
        {{pid_, "get-rpc-info", "fail"}, 1, "get-rpc-info/fail\n"},
        {{"--doc", good}, 0, "get-rpc-info/x\"y\n"}, // routed by the document alone: the subscribed path is in it
        {{"--doc", bad}, 4, "~"},
        {{"--pid", pid_, "--doc", bad}, 1, "~"}, // forwarded: the process itself refuses it
        {{"4000000000", "get-ipc-info", "packet"}, 4, "~process 4000000000 is not connected"},
        {{pid_, "get-bogus-info", "packet"}, 2, "~"},
    };
    for (const auto &c : cases) {
        Result r = RunDiag(c.args);
        EXPECT_EQ(r.rc, c.rc) << c.args[1] << " " << r.out;
        EXPECT_TRUE(c.out[0] == '~' ? r.out.find(c.out.substr(1)) != std::string::npos : r.out == c.out) << r.out;
    }
    unlink(good.c_str());
    unlink(bad.c_str());
}

TEST_F(OmDaemon, TimesOutAndReportsAMissingDaemon) {
    const std::vector<std::string> args{pid_, "get-ipc-info", "packet"};
    {
        om_test::Daemon daemon(sock_, {"--timeout", "300"});
        ASSERT_TRUE(daemon.Up());
        Server silent(false);
        ASSERT_TRUE(silent.Up());
        Result r = RunDiag(args);
        EXPECT_EQ(r.rc, 5);
        EXPECT_NE(r.out.find("did not answer within 300 ms"), std::string::npos) << r.out;
        EXPECT_EQ(daemon.Stop(), 0);
    }
    Result r = RunDiag(args);
    EXPECT_EQ(r.rc, 3);
    EXPECT_NE(r.out.find("the OM daemon is not running"), std::string::npos) << r.out;
}

TEST_F(OmDaemon, SurvivesHostilePeers) {
    om_test::Daemon daemon(sock_);
    ASSERT_TRUE(daemon.Up());
    const std::string hello = om_test::FrameOf(OMCC_FRAME_HELLO, 0, 1, "x"), huge = om_test::kHugeFrame;
    const std::string truncated = om_test::FrameOf(OMCC_FRAME_REQUEST, 1, 0, "{}").substr(0, 17);
    for (const std::string &bytes :
         {om_test::RandomBytes(64 * 1024, 11), huge, hello + huge, truncated, hello.substr(0, 5)}) {
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
        plat::omcc::WriteAll(fd, om_test::FrameOf(OMCC_FRAME_REQUEST, 5, static_cast<u32>(getpid()), "{}"));
        close(fd);
    }
    Server server;
    ASSERT_TRUE(server.Up());
    Result r = RunDiag({pid_, "get-ipc-info", "error"});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "get-ipc-info/error\n");
}

} // namespace
