// The IPC displays of a remote node ("connect-info" and "node-detail"), text compared exactly.
#include "ipc/ipc_chan_internal.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "zol_ipc.h"

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

// The traffic tables are compared end to end by the diagnostics suite; a remote node's lines need a record
// planted in the registry, as a connection layer would leave it.
TEST(IpcDisplayTest, RemoteNodeLineAndDetailBlock) {
    ASSERT_EQ(IPC_Init(kSelf), IPC_OK);
    IPC_ShowError(nullptr, kBufLen); // no output, no crash
    IPC_NODE_S *node = IPC_CreateNode(0x00003005u);
    ASSERT_NE(node, nullptr);
    node->ulIpAddr = inet_addr("192.168.0.9");
    node->usPort = htons(80);
    node->ucLinkStatus = 1;
    node->ulLinkDownNum = 3;
    node->ullRecvPktBytes = 5000000000ull;
    EXPECT_EQ(Show(IPC_ShowConnectInfo),
              Sep(64) + "\r\nSrcNodeID DstNodeID DstIP            DstPort Status DownTimes" + Sep(64) +
                  "\r\n     8193     12293 192.168.0.9        20480 Up             3" + Sep(64));
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
    EXPECT_EQ(Show([](char *buf, u32 len) { IPC_ShowNodeDetailById(buf, len, 0x00003005u); }),
              Sep(44) + block + Sep(44));
    EXPECT_EQ(Show([](char *buf, u32 len) { IPC_ShowNodeDetailById(buf, len, 0x00004005u); }), "");
}

} // namespace
