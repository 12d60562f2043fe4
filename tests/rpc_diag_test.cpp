// The RPC displays end to end: this process starts IPC (which connects it to the OM framework) and RPC,
// makes calls with every kind of outcome, and zol_diag asks zol_omd for each "get-rpc-info" table.
#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "om_support.h"
#include "rpc_support.h"

namespace {

using namespace rpc_test;

constexpr u32 kSelf = 0x00004003u;
constexpr u32 kCaller = 0x10, kEcho = 0x11, kMute = 0x12;

u32 SilentCallback(u32, u32, void *, u32, void **, u32 *) {
    return 0;
}

// Sleeps 2 ms so that its recorded cost is never below the clock's resolution.
u32 SlowEcho(u32 a, u32 b, void *req, u32 len, void **rsp, u32 *rspLen) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return EchoCallback(a, b, req, len, rsp, rspLen);
}

// True when text has the shape of pattern: 'd' stands for any digit, '_' for a digit or a space (right-aligned
// numbers), anything else for itself.
bool Shaped(const std::string &text, const std::string &pattern) {
    const auto fits = [](char t, char p) {
        const bool digit = t >= '0' && t <= '9';
        return p == 'd' ? digit : (p == '_' ? digit || t == ' ' : t == p);
    };
    return text.size() == pattern.size() && std::equal(text.begin(), text.end(), pattern.begin(), fits);
}

using om_test::Dashes;

class RpcDiagTest : public om_test::DiagFixture {
  protected:
    std::string Diag(const char *type) { return Ask("get-rpc-info", type); }
    u32 Call(u32 node, u32 dst, void **rsp, u32 *len, u32 timeout) {
        return IPC_RPC_SyncCall(kCaller, node, dst, 0, NewMsg("ping"), 4, rsp, len, timeout);
    }
};

const std::string kPacketHead =
    Dashes(64) + "\r\nSNodeID    SendOK    SendFail    Timeout    NotReg    RcvOK\r\n" + Dashes(64);
const std::string kCallbackHead = Dashes(95) +
                                  "\r\nMid           NewCost  Last-called-time        LongCost  Longest-called-time  "
                                  "RegFunc           \r\n" +
                                  Dashes(95);

TEST_F(RpcDiagTest, EachTableReflectsTheCallsJustMade) {
    om_test::Daemon daemon(sock_);
    if (!daemon.Up()) {
        GTEST_SKIP() << "zol_omd cannot run here (a cross build runs target programs only through its emulator)";
    }
    ASSERT_EQ(IPC_Init(kSelf), IPC_OK);
    EXPECT_EQ(Diag("error"), "Info: The numbers of error messages of all types are zero.\n");
    EXPECT_EQ(Diag("packet"), kPacketHead + "\r\n4003       0         0           0          0         0         \n");
    EXPECT_EQ(Diag("callback-time"), kCallbackHead + "\n");

    ASSERT_EQ(IPC_RPC_Init(), IPC_RPC_OK);
    QueueModule mute([](const IPC_RPC_DELIVER_MSG_S &rec) { IPC_RPC_FreeMsg(reinterpret_cast<void *>(rec.ulData)); });
    ASSERT_EQ(IPC_RPC_Register(kCaller, SilentCallback), IPC_RPC_OK);
    ASSERT_EQ(IPC_RPC_Register(kEcho, SlowEcho), IPC_RPC_OK);
    ASSERT_EQ(IPC_RPC_RegisterEnhance(kMute, nullptr, mute.QueId(), 1, mute.TaskId(), QueueModule::kEvent), 0u);
    EXPECT_EQ(IPC_RPC_Register(kEcho, SilentCallback), IPC_RPC_ERR_EXIST);
    EXPECT_EQ(IPC_RPC_RegisterEnhance(0x13, SilentCallback, 0, 3, 0, 0), IPC_RPC_ERR_PARAM);
    void *rsp = nullptr;
    u32 len = 0;
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Call(kSelf, kEcho, &rsp, &len, 10000), IPC_RPC_OK);
        IPC_RPC_FreeMsg(rsp);
    }
    EXPECT_EQ(Call(kSelf, 0x55, &rsp, &len, 10000), IPC_RPC_ERR_NOT_REG);
    EXPECT_EQ(Call(kSelf, kMute, &rsp, &len, 100), RUK_ERR_TIMEOUT);
    EXPECT_EQ(Call(kSelf + 1, kEcho, &rsp, &len, 100), IPC_ERR_UNREACHABLE);

    EXPECT_EQ(Diag("packet"), kPacketHead + "\r\n4003       3         1           1          1         2         \n");
    EXPECT_EQ(Diag("error"),
              Dashes(74) + "\r\nMsgId  Error Info                                             Count\r\n" + Dashes(74) +
                  "\r\n    3  RPC_TIMEOUT_ERR                                            1"
                  "\r\n    4  RPC_REG_ERR                                                2"
                  "\r\n    6  RPC_SEND_FAIL                                              1"
                  "\r\n    7  RPC_FIND_MOD_FAIL                                          4"
                  "\r\n   11  RPC_RECV_MSG_FLAG_FINISH                                   7"
                  "\r\n   16  RPC_RECV_FIND_MOD_FAIL                                     1\r\n" +
                  Dashes(74) + "\n");
    // Only the callback module that was called, as "\r\n0x%-8x %10s  %-20s  %10s  %-20s %-18s" then the closing
    // separator; its costs (at least 2 ms) and times vary, their form does not.
    const std::string table = Diag("callback-time");
    ASSERT_EQ(table.compare(0, kCallbackHead.size(), kCallbackHead), 0) << table;
    const std::string row = table.substr(kCallbackHead.size()), tail = "\r\n" + Dashes(95) + "\n";
    ASSERT_GE(row.size(), 80 + 18 + tail.size()) << table;
    EXPECT_TRUE(
        Shaped(row.substr(0, 80), "\r\n0x11       _____d.ddd  dddd-dd-dd dd:dd:dd   _____d.ddd  dddd-dd-dd dd:dd:dd  "))
        << table;
    EXPECT_EQ(row.substr(row.size() - tail.size()), tail);
}

} // namespace
