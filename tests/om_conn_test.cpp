// The OM service of a process end to end: zol_omd on a temporary socket, this process connected by its
// "Zol_CONN_OMCC" task and served on the poll task, zol_diag asking; then the daemon restarts.
#include "ipc/diag_cmd_internal.h"
#include "ipc/ipc_internal.h"

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "zol_ipc.h"

#include "om_support.h"

namespace {

struct DiagResult {
    int rc = -1;
    std::string out;
};

class OmConn : public ::testing::Test {
  protected:
    void SetUp() override {
        if (om_test::ToolPath("zol_omd").empty() || om_test::ToolPath("zol_diag").empty()) {
            GTEST_SKIP() << "tools not built or ZOL_TEST_BINARY_DIR not set";
        }
        sock_ = om_test::TempSocket("conn");
        log_ = sock_ + ".log";
        setenv(OMCC_SOCKET_ENV, sock_.c_str(), 1);
        setenv("ZOL_IMAGENT_FILE", log_.c_str(), 1);
        pid_ = std::to_string(getpid());
    }
    void TearDown() override { unlink(log_.c_str()); }

    DiagResult Diag(std::vector<std::string> args) {
        args.insert(args.begin(), {"--socket", sock_});
        DiagResult r;
        r.rc = om_test::Run(om_test::ToolPath("zol_diag"), args, r.out);
        return r;
    }
    // Asks until the process is connected (the daemon knows no such process before), for up to 30 s.
    DiagResult DiagOnceConnected(const std::vector<std::string> &args) {
        DiagResult r;
        for (int i = 0; i < 300; ++i) {
            r = Diag(args);
            if (r.rc != 4) {
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return r;
    }
    DiagResult DiagDoc(const std::string &doc) {
        std::string file = sock_ + ".doc";
        std::ofstream(file) << doc;
        DiagResult r = Diag({"--pid", pid_, "--doc", file});
        unlink(file.c_str());
        return r;
    }
    std::string sock_, log_, pid_;
};

TEST_F(OmConn, ServesDiagnosticsEndToEndAndReconnectsAfterARestart) {
    auto daemon = std::make_unique<om_test::Daemon>(sock_);
    ASSERT_TRUE(daemon->Up());
    ASSERT_EQ(IPC_PollTaskCreate(), 0u);
    ASSERT_EQ(zol::diag::ZOL_OmCmdStart(zol::ipc::g_iIpcEpollFd.load()), 0u);

    DiagResult r = DiagOnceConnected({pid_, "get-ipc-info", "bogus"});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "[Error]:Cmd type (0,bogus) not implement.\n");
    r = Diag({pid_, "get-rpc-info"});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.out, "[Error]:Parse cmd argument type failed, return value is 2.\n");
    std::string proc = "{\"korvex-diagnose:diagnose\":{\"korvex-diagnose-zol:zol\":{\"processes\":{\"process\":[{"
                       "\"process-id\":" +
                       pid_ + "}]}}}}";
    r = DiagDoc(proc);
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.out, "[Error]:Not support action node.\n");
    r = DiagDoc("{\"korvex-diagnose:diagnose\":{\"no-such-node\":{}}}");
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.out, "");
    std::string log = om_test::ReadFile(log_);
    EXPECT_NE(log.find("\"ZCCOTP\",\"Connect to om success.\""), std::string::npos) << log;
    EXPECT_NE(log.find("\"ZCPC\",\"Parse input to doc failed.\",\"code:123 length:"), std::string::npos) << log;

    // A new daemon on the same socket: the hang-up starts a new connection task, which connects again.
    EXPECT_EQ(daemon->Stop(), 0);
    daemon = std::make_unique<om_test::Daemon>(sock_);
    ASSERT_TRUE(daemon->Up());
    auto start = std::chrono::steady_clock::now();
    r = DiagOnceConnected({pid_, "get-rpc-info", "node-detail"});
    auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "[Error]:Cmd type (1,node-detail) not implement.\n");
    RecordProperty("reconnect_ms", static_cast<int>(waited.count()));
}

} // namespace
