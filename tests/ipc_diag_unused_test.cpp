// A process that runs the OM diagnostic service but never initialised IPC: "get-ipc-info" says so,
// except for the error counters, which exist from load.
#include "ipc/diag_cmd_internal.h"
#include "ipc/ipc_internal.h"

#include <gtest/gtest.h>
#include <string>

#include "zol_ipc.h"

#include "om_support.h"

namespace {

class IpcDiagUnusedTest : public om_test::DiagFixture {};

TEST_F(IpcDiagUnusedTest, TablesOfAProcessWithoutIpcInit) {
    om_test::Daemon daemon(sock_);
    ASSERT_TRUE(daemon.Up());
    ASSERT_EQ(IPC_PollTaskCreate(), IPC_OK);
    ASSERT_EQ(zol::diag::ZOL_OmCmdStart(zol::ipc::g_iIpcEpollFd.load()), 0u);
    for (const char *type : {"packet", "connect-info", "node-detail", "error"}) {
        EXPECT_EQ(Ask("get-ipc-info", type), std::string(type) == "error"
                                                 ? "Info: The numbers of error messages of all types are zero.\n"
                                                 : "Info: The IPC function is not used in this process.\n")
            << type;
    }
}

} // namespace
