// The diagnostic command handler and dispatcher, driven through the OM client by a framework the test
// plays: a filled row, the handler's results, and what it reports when it cannot serve.
#include "ipc/diag_cmd_internal.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "standin_ctl.h"

#include "leak_check.h"
#include "om_support.h"

namespace {

using zol::diag::g_astOmCmdTable;

std::string Mine(const std::string &body) {
    return om_test::Doc(static_cast<u32>(getpid()), body);
}

void DisplayWithBlankLines(char *pcBuf, u32 ulSize) {
    std::snprintf(pcBuf, ulSize, "\r\n\n\rline 1\nline 2\n");
}

class OmCmd : public zol::test::LeakCheckedTest {
  protected:
    void SetUp() override {
        logFile_ = om_test::TempSocket("cmd") + ".log";
        unlink(logFile_.c_str());
        setenv("ZOL_IMAGENT_FILE", logFile_.c_str(), 1);
        LeakCheckedTest::SetUp();
        ASSERT_TRUE(zol::diag::ZOL_OmCmdBuildPaths(static_cast<u32>(getpid())));
        client_ = omcc_client_new("Zol_cmd_test", 2);
        ASSERT_EQ(omcc_subscribe(client_, &g_astOmCmdTable[0].stSub), 0);
        ASSERT_GE(omcc_connect(client_, 0), 0);
        fw_.Accept();
        fw_.Next(); // HELLO
    }
    void TearDown() override {
        omcc_disconnect(client_);
        LeakCheckedTest::TearDown();
        unlink(logFile_.c_str());
    }
    // Sends one request; its terminal text, and the handler's result in result_.
    std::string Ask(const std::string &doc) {
        std::string text;
        fw_.SendRaw(om_test::FrameOf(OMCC_FRAME_REQUEST, ++id_, 0, doc));
        EXPECT_EQ(omcc_run(client_, 0), 1);
        plat::omcc::Frame f;
        for (f = fw_.Next(); f.usType == OMCC_FRAME_OUTPUT; f = fw_.Next()) {
            text += f.payload;
        }
        result_ = f.usType == OMCC_FRAME_END ? f.ulArg : -1;
        return text;
    }
    om_test::FakeFramework fw_;
    OMCC_CLIENT_S *client_ = nullptr;
    std::string logFile_;
    u32 id_ = 0;
    long long result_ = -1;
};

TEST_F(OmCmd, RunsAFilledRowAndReportsWhatItCannotServe) {
    zol::diag::OM_SUB_CMD_S &row = g_astOmCmdTable[1].astSubCmd[2];
    ASSERT_STREQ(row.pcSubCmd, "packet");
    const zol::diag::OM_DISPLAY_PF previous = row.pfDisplay;
    row.pfDisplay = DisplayWithBlankLines;
    std::string rpc = Ask(Mine(",\"get-rpc-info\":{\"type\":\"packet\"}"));
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 0, 1), 0u);
    std::string noMem = Ask(Mine(",\"get-rpc-info\":{\"type\":\"packet\"}"));
    row.pfDisplay = previous;
    EXPECT_EQ(rpc, "line 1\nline 2\n") << "leading blank lines are stripped";
    EXPECT_EQ(noMem, "[Error]:Malloc buff for result failed.");
    EXPECT_EQ(result_, 0);
    // The texts are checked end to end in the connection suite; the code of a failed parse is also returned.
    Ask(Mine(",\"get-rpc-info\":{}"));
    EXPECT_EQ(result_, OMCC_ERR_NOT_FOUND);

    ASSERT_EQ(PLAT_FaultInject("omcc_tty_borrow", 0, 1), 0u);
    usleep(600 * 1000); // past the repetition filter of the tag
    EXPECT_EQ(Ask(Mine(",\"get-ipc-info\":{\"type\":\"a\"}")), "");
    EXPECT_EQ(result_, 1);
    // The repetition filter may put its count in front of the formatted text.
    std::string log = om_test::ReadFile(logFile_);
    EXPECT_NE(log.find("\"ZCPC\",\"Get tty failed.\",\""), std::string::npos) << log;
    EXPECT_NE(log.find("tty is Null\"]"), std::string::npos) << log;
}

} // namespace
