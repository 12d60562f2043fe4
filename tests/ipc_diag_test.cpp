// The IPC displays end to end: this process initialises IPC (which connects it to the OM framework),
// sends some traffic, and zol_diag asks zol_omd for each "get-ipc-info" table of this process.
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "zol_ipc.h"

#include "om_support.h"

namespace {

constexpr u32 kSelf = 0x00001002u; // location 2, process 1 (4098)

u32 FreeingCallback(u32, u32, u32, u32, void *msg, u32) {
    IPC_FreeMsg(msg);
    return 0;
}

using om_test::Dashes;

class IpcDiagTest : public om_test::DiagFixture {
  protected:
    std::string Diag(const char *type) { return Ask("get-ipc-info", type); }
};

TEST_F(IpcDiagTest, EachTableReflectsTheTrafficJustSent) {
    om_test::Daemon daemon(sock_);
    ASSERT_TRUE(daemon.Up());
    ASSERT_EQ(IPC_Init(kSelf), IPC_OK);
    ASSERT_EQ(IPC_Create(6, IPC_CHAN_MODE_CALLBACK, 0, FreeingCallback), IPC_OK);
    ASSERT_EQ(IPC_Create(1, IPC_CHAN_MODE_CALLBACK, 0, FreeingCallback), IPC_OK);
    for (u32 len : {10u, 20u, 30u}) {
        void *msg = IPC_AllocMsg_X(len, IPC_MOD_ID, "test", __LINE__);
        ASSERT_EQ(IPC_Send(6, kSelf, 1, 0, msg, len), IPC_OK);
    }
    void *msg = IPC_AllocMsg_X(8, IPC_MOD_ID, "test", __LINE__);
    EXPECT_EQ(IPC_Send(6, kSelf, 40, 0, msg, 8), IPC_ERR_CHAN_NOT_REG);
    EXPECT_EQ(IPC_Send(6, kSelf, 1, IPC_SEND_FLAG_MULTICAST, msg, 8), IPC_ERR_UNREACHABLE);
    IPC_FreeMsg(msg);
    IPC_FreeMsg(msg); // a repeated release, counted

    EXPECT_EQ(Diag("packet"),
              Dashes(87) + "\r\nSNodeID    ChId    SendOK    SendFail   RcvOK    SendByte    RecvByte    QueErr\r\n" +
                  Dashes(87) +
                  "\r\n1002       1       0         0          3        0           60          0         "
                  "\r\n1002       6       3         1          0        60          0           0         \n");
    EXPECT_EQ(Diag("error"),
              Dashes(74) + "\r\nMsgId  Error Info                                             Count\r\n" + Dashes(74) +
                  "\r\n   20  IPC_REPEATED_RELEASE_ERR                                   1"
                  "\r\n   51  IPC_SEND_MC_NOT_SUPPORT                                    1\r\n" +
                  Dashes(74) + "\n");
    EXPECT_EQ(Diag("connect-info"),
              Dashes(64) + "\r\nSrcNodeID DstNodeID DstIP            DstPort Status DownTimes\r\n" + Dashes(64) + "\n");
    EXPECT_EQ(Diag("node-detail"), ""); // nothing but the own node: no table at all
}

} // namespace
