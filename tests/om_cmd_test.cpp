// The diagnostic command handler and dispatcher, driven through the OM client by a framework the test
// plays: every terminal message in its exact words, the handler's results, and the logged refusals.
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

std::string Doc(u32 pid, const std::string &body) {
    return "{\"korvex-diagnose:diagnose\":{\"korvex-diagnose-zol:zol\":{\"processes\":{\"process\":[{\"process-id\":" +
           std::to_string(pid) + body + "}]}}}}";
}

std::string Mine(const std::string &body) {
    return Doc(static_cast<u32>(getpid()), body);
}

void DisplayWithBlankLines(char *pcBuf, u32 ulSize) {
    std::snprintf(pcBuf, ulSize, "\r\n\n\rline 1\nline 2\n");
}

class OmCmd : public zol::test::LeakCheckedTest {
  protected:
    void SetUp() override {
        logFile_ = "/tmp/zol_om_cmd_test_" + std::to_string(getpid()) + ".log";
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
    // The terminal text of one request and the handler's result.
    std::string Ask(const std::string &doc, long long &result) {
        std::string text;
        std::string frame;
        plat::omcc::AppendFrame(frame, OMCC_FRAME_REQUEST, ++id_, 0, doc.data(), doc.size());
        fw_.SendRaw(frame);
        EXPECT_EQ(omcc_run(client_, 0), 1);
        for (plat::omcc::Frame f = fw_.Next();; f = fw_.Next()) {
            if (f.usType != OMCC_FRAME_OUTPUT) {
                result = f.usType == OMCC_FRAME_END ? f.ulArg : -1;
                return text;
            }
            text += f.payload;
        }
    }
    om_test::FakeFramework fw_;
    OMCC_CLIENT_S *client_ = nullptr;
    std::string logFile_;
    u32 id_ = 0;
};

TEST_F(OmCmd, AnswersEveryRequestInItsExactWords) {
    long long rc = -1;
    EXPECT_EQ(Ask(Mine(",\"get-ipc-info\":{\"type\":\"bogus\"}"), rc), "[Error]:Cmd type (0,bogus) not implement.");
    EXPECT_EQ(rc, 0);
    // The IPC rows have their displays; this process never initialised IPC.
    for (const char *type : {"connect-info", "node-detail", "packet"}) {
        EXPECT_EQ(Ask(Mine(",\"get-ipc-info\":{\"type\":\"" + std::string(type) + "\"}"), rc),
                  "Info: The IPC function is not used in this process.");
    }
    EXPECT_EQ(Ask(Mine(",\"get-rpc-info\":{\"type\":\"node-detail\"}"), rc),
              "[Error]:Cmd type (1,node-detail) not implement.");
    // Both commands: handled as "get-ipc-info".
    EXPECT_EQ(Ask(Mine(",\"get-rpc-info\":{\"type\":\"b\"},\"get-ipc-info\":{\"type\":\"a\"}"), rc),
              "[Error]:Cmd type (0,a) not implement.");
    EXPECT_EQ(Ask(Mine(",\"get-rpc-info\":{}"), rc), "[Error]:Parse cmd argument type failed, return value is 2.");
    EXPECT_EQ(rc, OMCC_ERR_NOT_FOUND);
    EXPECT_EQ(Ask(Mine(""), rc), "[Error]:Not support action node.");
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(Ask(Doc(static_cast<u32>(getpid()) + 1, ",\"get-ipc-info\":{\"type\":\"a\"}"), rc),
              "[Error]:Not support action node.");
    EXPECT_EQ(rc, 1);
}

TEST_F(OmCmd, RunsAFilledRowAndStripsLeadingBlankLines) {
    zol::diag::OM_SUB_CMD_S &row = g_astOmCmdTable[1].astSubCmd[2];
    ASSERT_STREQ(row.pcSubCmd, "packet");
    const zol::diag::OM_DISPLAY_PF previous = row.pfDisplay;
    row.pfDisplay = DisplayWithBlankLines;
    long long rc = -1;
    std::string rpc = Ask(Mine(",\"get-rpc-info\":{\"type\":\"packet\"}"), rc);
    std::string ipc = Ask(Mine(",\"get-ipc-info\":{\"type\":\"packet\"}"), rc);
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 0, 1), 0u);
    std::string noMem = Ask(Mine(",\"get-rpc-info\":{\"type\":\"packet\"}"), rc);
    row.pfDisplay = previous;
    EXPECT_EQ(rpc, "line 1\nline 2\n");
    EXPECT_EQ(ipc, "Info: The IPC function is not used in this process.");
    EXPECT_EQ(noMem, "[Error]:Malloc buff for result failed.");
    EXPECT_EQ(rc, 0);
}

TEST_F(OmCmd, RefusesAndLogsWhatItCannotServe) {
    long long rc = -1;
    EXPECT_EQ(Ask("{\"korvex-diagnose:diagnose\":{\"bogus\":1}}", rc), "");
    EXPECT_EQ(rc, 1);
    std::string log = om_test::ReadFile(logFile_);
    EXPECT_NE(log.find("\"ZCPC\",\"Parse input to doc failed.\",\"code:123 length:40\""), std::string::npos) << log;
    ASSERT_EQ(PLAT_FaultInject("omcc_tty_borrow", 0, 1), 0u);
    usleep(600 * 1000); // past the repetition filter of the tag
    EXPECT_EQ(Ask(Mine(",\"get-ipc-info\":{\"type\":\"a\"}"), rc), "");
    EXPECT_EQ(rc, 1);
    log = om_test::ReadFile(logFile_);
    // The repetition filter may put its count in front of the formatted text.
    EXPECT_NE(log.find("\"ZCPC\",\"Get tty failed.\",\""), std::string::npos) << log;
    EXPECT_NE(log.find("tty is Null\"]"), std::string::npos) << log;
}

} // namespace
