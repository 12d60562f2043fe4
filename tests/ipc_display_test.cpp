// The four IPC displays of "get-ipc-info", text compared exactly: before IPC_Init, right after it, and
// after traffic, refusals and (planted in the registry) a remote node.
#include "ipc/ipc_chan_internal.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "zol_ipc.h"

#include "ruk_queue.h"
#include "standin_ctl.h"

using namespace zol::ipc;

namespace {

constexpr u32 kSelf = 0x00002001u; // location 1, process 2 (8193)
constexpr u32 kBufLen = 32768;

std::string Show(void (*display)(char *, u32)) {
    std::vector<char> buf(kBufLen, '\0');
    display(buf.data(), kBufLen);
    return std::string(buf.data());
}

std::string Sep(size_t n) {
    return "\r\n" + std::string(n, '-');
}
const std::string kNotUsed = "\r\nInfo: The IPC function is not used in this process.";

u32 FreeingCallback(u32, u32, u32, u32, void *msg, u32) {
    IPC_FreeMsg(msg);
    return 0;
}

TEST(IpcDisplayTest, BeforeInit) {
    ASSERT_EQ(g_ulIpcInitFlag, 0u) << "must run in a process that has not initialised IPC";
    EXPECT_EQ(Show(IPC_ShowPacket), kNotUsed);
    EXPECT_EQ(Show(IPC_ShowConnectInfo), kNotUsed);
    EXPECT_EQ(Show(IPC_ShowNodeDetail), kNotUsed);
    EXPECT_EQ(Show(IPC_ShowError), "\r\nInfo: The numbers of error messages of all types are zero.");
    IPC_ShowError(nullptr, kBufLen); // no output, no crash
}

TEST(IpcDisplayTest, AfterInitTrafficAndRefusals) {
    ASSERT_EQ(IPC_Init(kSelf), IPC_OK);
    const std::string packetHead =
        Sep(87) + "\r\nSNodeID    ChId    SendOK    SendFail   RcvOK    SendByte    RecvByte    QueErr" + Sep(87);
    const std::string connectHead =
        Sep(64) + "\r\nSrcNodeID DstNodeID DstIP            DstPort Status DownTimes" + Sep(64);
    EXPECT_EQ(Show(IPC_ShowPacket), packetHead);
    EXPECT_EQ(Show(IPC_ShowConnectInfo), connectHead);
    EXPECT_EQ(Show(IPC_ShowNodeDetail), "");

    const std::string errHead =
        Sep(74) + "\r\nMsgId  Error Info                                             Count" + Sep(74);
    EXPECT_EQ(IPC_Create(48, IPC_CHAN_MODE_QUEUE, 1, nullptr), IPC_ERR_CHAN);
    const std::string paramLine1 = "\r\n   16  IPC_PARAM_ERR                                              1";
    EXPECT_EQ(Show(IPC_ShowError), errHead + paramLine1 + Sep(74));

    // Channel 9 (queue) and channel 2 (callback), listed in id order; 2 sends twice, once lost at 9's
    // queue, and fails once towards another node.
    u32 que = 0;
    ASSERT_EQ(RUK_Que_Create("disp", 4, 0, &que), RUK_OK);
    ASSERT_EQ(IPC_Create(9, IPC_CHAN_MODE_QUEUE, que, nullptr), IPC_OK);
    ASSERT_EQ(IPC_Create(2, IPC_CHAN_MODE_CALLBACK, 0, FreeingCallback), IPC_OK);
    for (u32 i = 0; i < 3; i++) {
        void *msg = IPC_AllocMsg_X(100, IPC_MOD_ID, "test", __LINE__);
        ASSERT_NE(msg, nullptr);
        if (i == 1) {
            ASSERT_EQ(PLAT_FaultInject("RUK_Que_Write", 0, 1), 0u);
        }
        const u32 dstNode = i == 2 ? kSelf + 1 : kSelf;
        ASSERT_EQ(IPC_Send(2, dstNode, 9, 0, msg, 100), i == 2 ? IPC_ERR_UNREACHABLE : IPC_OK);
        if (i == 2) {
            IPC_FreeMsg(msg);
        }
    }
    u64 rec[4] = {};
    ASSERT_EQ(RUK_Que_Read(que, rec, RUK_NOWAIT, 0), RUK_OK);
    IPC_FreeMsg(reinterpret_cast<void *>(static_cast<uintptr_t>(rec[1])));
    EXPECT_EQ(IPC_Create(2, IPC_CHAN_MODE_QUEUE, 1, nullptr), IPC_ERR_CHAN_REGISTERED);

    EXPECT_EQ(Show(IPC_ShowPacket),
              packetHead + "\r\n2001       2       2         1          0        200         0           0         " +
                  "\r\n2001       9       0         0          1        0           100         0         ");
    EXPECT_EQ(Show(IPC_ShowError), errHead + "\r\n   16  IPC_PARAM_ERR                                              2" +
                                       "\r\n   50  IPC_NOTIFY_QUE_FAIL                                        1" +
                                       Sep(74));

    // A remote node's record, as a connection layer would leave it: one line, and one detail block.
    IPC_NODE_S *node = IPC_CreateNode(0x00003005u);
    ASSERT_NE(node, nullptr);
    node->ulIpAddr = inet_addr("192.168.0.9");
    node->usPort = htons(80);
    node->ucLinkStatus = 1;
    node->ulLinkDownNum = 3;
    node->ullRecvPktBytes = 5000000000ull;
    EXPECT_EQ(Show(IPC_ShowConnectInfo),
              connectHead + "\r\n     8193     12293 192.168.0.9        20480 Up             3" + Sep(64));
    const char *const detail[][2] = {
        {"Destination node               ", "12293"},       {"  Self Node                    ", "8193"},
        {"  Destination IP               ", "192.168.0.9"}, {"  Destination Port             ", "20480"},
        {"  Link status                  ", "Up"},          {"  Link down times              ", "3"},
        {"  Sequence number              ", "1"},           {"  Ack number                   ", "1"},
        {"  Socket fd                    ", "4294967295"},  {"  Reconnect flag               ", "0"},
        {"  Synchronize request flag     ", "0"},           {"  Lost Synchronize count       ", "0"},
        {"  Alloc semaphore fail times   ", "0"},           {"  Release semaphore fail times ", "0"},
        {"  Get peer addr fail times     ", "0"},           {"  Send packet number           ", "0"},
        {"  Send packet byte             ", "0"},           {"  Send packet error times      ", "0"},
        {"  Send ack times               ", "0"},           {"  Send ack error times         ", "0"},
        {"  Send message sll count       ", "0"},           {"  Receive message sll count    ", "0"},
        {"  Receive Sequence number      ", "1"},           {"  Receive packet number        ", "0"},
        {"  Receive packet byte          ", "5000000000"},  {"  Receive old packet times     ", "0"},
        {"  Receive ack times            ", "0"},           {"  Receive old ack times        ", "0"},
        {"  Receive unexpect ack times   ", "0"},           {"  Receive OOR packet           ", "0"},
        {"  Receive OOR packet success   ", "0"},           {"  Receive OOR packet fail      ", "0"},
    };
    std::string block;
    for (const auto &line : detail) {
        block += std::string("\r\n") + line[0] + ": " + line[1];
    }
    EXPECT_EQ(Show(IPC_ShowNodeDetail), Sep(44) + block + Sep(44));
    std::vector<char> buf(kBufLen, '\0');
    IPC_ShowNodeDetailById(buf.data(), kBufLen, 0x00003005u);
    EXPECT_EQ(std::string(buf.data()), Sep(44) + block + Sep(44));
    buf.assign(kBufLen, '\0');
    IPC_ShowNodeDetailById(buf.data(), kBufLen, 0x00004005u);
    EXPECT_EQ(std::string(buf.data()), "");
}

} // namespace
