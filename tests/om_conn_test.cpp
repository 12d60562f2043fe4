// The OM service of a process end to end: zol_omd on a temporary socket, this process connected by its
// "Zol_CONN_OMCC" task and served on the poll task, zol_diag asking; then the daemon restarts.
#include "ipc/diag_cmd_internal.h"
#include "ipc/ipc_internal.h"

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>

#include "zol_ipc.h"

#include "om_support.h"

namespace {

class OmConn : public om_test::DiagFixture {
  protected:
    void TearDown() override { unlink(log_.c_str()); }
    Result RunDoc(const std::string &doc) {
        std::ofstream(sock_ + ".doc") << doc;
        return RunDiag({"--pid", pid_, "--doc", sock_ + ".doc"});
    }
    std::string log_ = om_test::TempSocket("conn") + ".log";
};

TEST_F(OmConn, ServesDiagnosticsEndToEndAndReconnectsAfterARestart) {
    setenv("ZOL_IMAGENT_FILE", log_.c_str(), 1);
    auto daemon = std::make_unique<om_test::Daemon>(sock_);
    ASSERT_TRUE(daemon->Up());
    ASSERT_EQ(IPC_PollTaskCreate(), 0u);
    ASSERT_EQ(zol::diag::ZOL_OmCmdStart(zol::ipc::g_iIpcEpollFd.load()), 0u);

    const struct {
        Result got;
        int rc;
        const char *out;
    } cases[] = {
        {RunDiagConnected({pid_, "get-ipc-info", "bogus"}), 0, "[Error]:Cmd type (0,bogus) not implement.\n"},
        {RunDiag({pid_, "get-rpc-info"}), 1, "[Error]:Parse cmd argument type failed, return value is 2.\n"},
        // Both commands: handled as "get-ipc-info".
        {RunDoc(om_test::Doc(static_cast<u32>(getpid()),
                             ",\"get-rpc-info\":{\"type\":\"b\"},\"get-ipc-info\":{\"type\":\"a\"}")),
         0, "[Error]:Cmd type (0,a) not implement.\n"},
        {RunDoc(om_test::Doc(static_cast<u32>(getpid()), "")), 1, "[Error]:Not support action node.\n"},
        {RunDoc("{\"korvex-diagnose:diagnose\":{\"no-such-node\":{}}}"), 1, ""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.got.rc, c.rc) << c.out;
        EXPECT_EQ(c.got.out, c.out);
    }
    unlink((sock_ + ".doc").c_str());
    std::string log = om_test::ReadFile(log_);
    EXPECT_NE(log.find("\"ZCCOTP\",\"Connect to om success.\""), std::string::npos) << log;
    EXPECT_NE(log.find("\"ZCPC\",\"Parse input to doc failed.\",\"code:123 length:"), std::string::npos) << log;

    // A new daemon on the same socket: the hang-up starts a new connection task, which connects again.
    EXPECT_EQ(daemon->Stop(), 0);
    daemon = std::make_unique<om_test::Daemon>(sock_);
    ASSERT_TRUE(daemon->Up());
    Result r = RunDiagConnected({pid_, "get-rpc-info", "node-detail"});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "[Error]:Cmd type (1,node-detail) not implement.\n");
}

} // namespace
