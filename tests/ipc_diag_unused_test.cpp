// A process that runs the OM diagnostic service but never initialised IPC: "get-ipc-info" says so,
// except for the error counters, which exist from load.
#include "ipc/diag_cmd_internal.h"
#include "ipc/ipc_internal.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "zol_ipc.h"

#include "om_support.h"

namespace {

TEST(IpcDiagUnusedTest, TablesOfAProcessWithoutIpcInit) {
    if (om_test::ToolPath("zol_omd").empty() || om_test::ToolPath("zol_diag").empty()) {
        GTEST_SKIP() << "tools not built or ZOL_TEST_BINARY_DIR not set";
    }
    const std::string sock = om_test::TempSocket("ipcunused");
    setenv(OMCC_SOCKET_ENV, sock.c_str(), 1);
    om_test::Daemon daemon(sock);
    ASSERT_TRUE(daemon.Up());
    ASSERT_EQ(IPC_PollTaskCreate(), IPC_OK);
    ASSERT_EQ(zol::diag::ZOL_OmCmdStart(zol::ipc::g_iIpcEpollFd.load()), 0u);

    const std::string pid = std::to_string(getpid());
    for (const char *type : {"packet", "connect-info", "node-detail", "error"}) {
        std::string out;
        int rc = 4;
        for (int i = 0; i < 300 && rc == 4; ++i) { // 4: the daemon does not know this process yet
            out.clear();
            rc = om_test::Run(om_test::ToolPath("zol_diag"), {"--socket", sock, pid, "get-ipc-info", type}, out);
            if (rc == 4) {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        }
        EXPECT_EQ(rc, 0) << type;
        EXPECT_EQ(out, std::string(type) == "error" ? "Info: The numbers of error messages of all types are zero.\n"
                                                    : "Info: The IPC function is not used in this process.\n")
            << type;
    }
}

} // namespace
