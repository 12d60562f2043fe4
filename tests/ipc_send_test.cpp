// IPC channels and sending within the own node: registration and its refusals, the small node calls, every
// refusal of IPC_Send, delivery by callback and by queue, the hand-back, failure injection, several senders.
#include "ipc/ipc_chan_internal.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cstring>
#include <numeric>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "zol_ipc.h"

#include "ruk_queue.h"
#include "standin_ctl.h"

#include "leak_check.h"

using namespace zol::ipc;

namespace {

constexpr u32 kSelf = 0x00A05003u; // location 3, process 5, high bits carried along
constexpr u32 kOtherNode = 0x00006003u;
constexpr u32 kLen = 64;
constexpr auto kUncounted = static_cast<IpcErrStatIndex>(IPC_ERR_STAT_NUM); // reads as 0

class IpcEnv : public ::testing::Environment {
  public:
    void SetUp() override { ASSERT_EQ(IPC_Init(kSelf), IPC_OK); }
};
const auto *const g_env = ::testing::AddGlobalTestEnvironment(new IpcEnv);

const auto Chan = [](u32 id) -> IPC_CHAN_S & { return g_pstIpcChanTbl[id]; };
// A channel's local counts: received, bytes received, sent, bytes sent.
std::vector<u64> Local(u32 id) {
    const IPC_CHAN_TRAFFIC_S t = IPC_ReadChanTraffic(id);
    return {t.ulLocalRecvNum, t.ullLocalRecvBytes, t.ulLocalSendNum, t.ullLocalSendBytes};
}

// The header's routing fields and length as stored: source and destination node and channel, length.
std::vector<u32> Fields(void *msg) {
    const IPC_MSG_HEAD_S *h = MsgHead(msg);
    return {h->ulSrcNodeId, h->ulDstNodeId, h->usSrcChanId, h->usDstChanId, h->ulMsgLen};
}

// One hand-over seen by a callback: its arguments but the message, then the header as the receiver read it.
struct Delivery {
    std::vector<u32> args, header;
    void *msg;
    std::vector<u8> payload;
};
std::vector<Delivery> g_seen;

u32 RecordingCallback(u32 type, u32 own, u32 peerNode, u32 peerChan, void *msg, u32 len) {
    const auto *bytes = static_cast<const u8 *>(msg);
    std::vector<u32> header = Fields(msg);
    header.push_back(MsgHead(msg)->ucMemFlag);
    g_seen.push_back(Delivery{{type, own, peerNode, peerChan, len}, header, msg, std::vector<u8>(bytes, bytes + len)});
    IPC_FreeMsg(msg);
    return 0;
}

u32 FreeingCallback(u32, u32, u32, u32, void *msg, u32) {
    IPC_FreeMsg(msg);
    return 0;
}

void *NewMsg(u32 len, u8 fill) {
    void *msg = IPC_AllocMsg_X(len, IPC_MOD_ID, "test", __LINE__);
    if (msg != nullptr) {
        memset(msg, fill, len);
    }
    return msg;
}

class IpcSendTest : public zol::test::LeakCheckedTest {
  protected:
    void SetUp() override {
        LeakCheckedTest::SetUp();
        g_seen.clear();
    }
    // Registers two channels of the given queues (0: callback mode with the recording callback).
    void Pair(u32 src, u32 srcQue, u32 dst, u32 dstQue) {
        for (const auto &[chan, que] : {std::make_pair(src, srcQue), std::make_pair(dst, dstQue)}) {
            ASSERT_EQ(IPC_Create(chan, que ? IPC_CHAN_MODE_QUEUE : IPC_CHAN_MODE_CALLBACK, que,
                                 que ? nullptr : RecordingCallback),
                      IPC_OK);
        }
    }
    u32 NewQueue(const char *name, u32 depth) {
        u32 id = 0;
        EXPECT_EQ(RUK_Que_Create(name, depth, 0, &id), RUK_OK);
        return id;
    }
    // Reads one record of a queue without waiting into rec_.
    u32 Take(u32 que) { return RUK_Que_Read(que, rec_, RUK_NOWAIT, 0); }
    void *RecMsg() const { return reinterpret_cast<void *>(static_cast<uintptr_t>(rec_[1])); }
    u64 rec_[4] = {};
};

TEST(IpcChannelTest, CreateRefusalsThenSmallNodeCalls) {
    EXPECT_EQ(IPC_Init(0x18000), IPC_ERR_ALREADY); // the flag is tested before the id
    const u32 paramErr = IpcErrStatCount(IPC_PARAM_ERR);
    const struct {
        u32 chan, mode, que;
        IPC_CHAN_CALLBACK_PF callback;
        u32 rc;
    } refusals[] = {
        {48, IPC_CHAN_MODE_QUEUE, 7, nullptr, IPC_ERR_CHAN},
        {48, 3, 0, nullptr, IPC_ERR_CHAN},
        {40, 3, 7, FreeingCallback, IPC_ERR_MODE},
        {40, 0, 7, FreeingCallback, IPC_ERR_MODE},
        {40, IPC_CHAN_MODE_CALLBACK, 7, nullptr, IPC_ERR_NO_CALLBACK},
        {40, IPC_CHAN_MODE_QUEUE, 0, nullptr, IPC_ERR_NO_QUEUE},
    };
    for (const auto &r : refusals) {
        EXPECT_EQ(IPC_Create(r.chan, r.mode, r.que, r.callback), r.rc) << r.chan << " " << r.mode;
    }
    EXPECT_EQ(IPC_GetChanRegFlag(40), 0u);
    EXPECT_EQ(IPC_Create(40, IPC_CHAN_MODE_QUEUE, 7, FreeingCallback), IPC_OK);
    EXPECT_EQ(IPC_Create(40, IPC_CHAN_MODE_CALLBACK, 0, FreeingCallback), IPC_ERR_CHAN_REGISTERED);
    EXPECT_EQ(Chan(40).usMode, IPC_CHAN_MODE_QUEUE);
    EXPECT_EQ(IpcErrStatCount(IPC_PARAM_ERR), paramErr + 7);

    EXPECT_EQ(IPC_ConnectDstNode(kSelf), IPC_OK);
    EXPECT_EQ(IPC_ConnectDstNode(kOtherNode), IPC_ERR_UNREACHABLE);
    EXPECT_EQ(IPC_AllowSndDataMaxLen(kSelf), 8383488u);
    EXPECT_EQ(IPC_AllowSndDataMaxLen(kOtherNode), IPC_ERR_NOT_INIT);
    EXPECT_EQ(IPC_AllowSndDataMaxLen(0xFF003), IPC_ERR_PARAM);
    EXPECT_EQ(IPC_SetServerPara(nullptr, 1), IPC_ERR_PARAM);
    EXPECT_EQ(IPC_SetServerPara("10.1.2.3", 8080), IPC_OK);
    EXPECT_EQ(std::make_pair(IPC_GetNode(kSelf)->ulIpAddr, IPC_GetNode(kSelf)->usPort),
              std::make_pair(inet_addr("10.1.2.3"), htons(8080)));

    u8 out2 = 0;
    int out1 = 0;
    EXPECT_EQ(IPC_GetUpNodeByProcess(23, &out1, &out2), IPC_OK);
    EXPECT_EQ(IPC_GetUpNodeByProcess(24, &out1, &out2), 1u);
    EXPECT_EQ(IPC_SetAckMsgQueLen(5001), 1u);
}

// Sends that are refused before the header is touched: the message is byte for byte as it was.
TEST_F(IpcSendTest, RefusalsBeforeTheHeaderIsFilledLeaveTheMessageAlone) {
    Pair(1, 0, 2, 0);
    void *msg = NewMsg(kLen, 0x5A);
    u8 before[IPC_MSG_HEAD_LEN + kLen];
    memcpy(before, MsgHead(msg), sizeof(before));

    const struct {
        u32 src, dstNode, dst, flags;
        bool noMsg;
        u32 len, rc;
        IpcErrStatIndex counter; // counted once there, but a bad node is not counted at all
    } refusals[] = {
        {1, 0x18003, 2, 0, false, kLen, IPC_ERR_DST_PROC, kUncounted},
        {1, 0xFF003, 48, 0, false, kLen, IPC_ERR_DST_PROC, kUncounted}, // node checked before channels
        {48, kSelf, 2, 0, false, kLen, IPC_ERR_CHAN, IPC_PARAM_ERR},
        {1, kSelf, 48, 0, false, kLen, IPC_ERR_CHAN, IPC_PARAM_ERR},
        {1, kSelf, 2, 0, true, kLen, IPC_ERR_MSG, IPC_MSG_ERR},
        {1, kSelf, 2, 0, false, 0, IPC_ERR_MSG, IPC_MSG_ERR},
        {1, kSelf, 2, IPC_SEND_FLAG_MULTICAST | IPC_SEND_FLAG_SYNC, false, kLen, IPC_ERR_UNREACHABLE,
         IPC_SEND_MC_NOT_SUPPORT},
        {47, kSelf, 2, 0, false, kLen, IPC_ERR_CHAN_NOT_REG, IPC_CHAN_ERR},
    };
    for (const auto &r : refusals) {
        SCOPED_TRACE(testing::Message() << r.src << " " << r.dst);
        const u32 param = IpcErrStatCount(IPC_PARAM_ERR), counted = IpcErrStatCount(r.counter);
        EXPECT_EQ(IPC_Send(r.src, r.dstNode, r.dst, r.flags, r.noMsg ? nullptr : msg, r.len), r.rc);
        EXPECT_EQ(IpcErrStatCount(r.counter), counted + (r.counter != kUncounted));
        EXPECT_EQ(IpcErrStatCount(IPC_PARAM_ERR), param + (r.counter == IPC_PARAM_ERR));
    }

    // Marks that say the caller does not hold the message: each counted by its kind, plus the total.
    const u32 memErr = IpcErrStatCount(IPC_SEND_MEMORY_ERR);
    for (const auto &[mark, kind] :
         {std::make_pair(u8{IPC_MEM_SENDING}, IPC_MEMORY_SEND), std::make_pair(u8{0x77}, IPC_MEMORY_OTHERS)}) {
        const u32 counted = IpcErrStatCount(kind);
        MsgHead(msg)->ucMemFlag = mark;
        EXPECT_EQ(IPC_Send(1, kSelf, 2, 0, msg, kLen), IPC_ERR_MSG_OWNER);
        EXPECT_EQ(IpcErrStatCount(kind), counted + 1);
    }
    MsgHead(msg)->ucMemFlag = IPC_MEM_USED;
    EXPECT_EQ(memcmp(before, MsgHead(msg), sizeof(before)), 0);
    EXPECT_EQ(Chan(1).ulSendFailNum, 0u);
    IPC_FreeMsg(msg);
    const u32 released = IpcErrStatCount(IPC_MEMORY_RELEASED);
    EXPECT_EQ(IPC_Send(1, kSelf, 2, 0, msg, kLen), IPC_ERR_MSG_OWNER);
    EXPECT_EQ(IpcErrStatCount(IPC_MEMORY_RELEASED), released + 1);
    EXPECT_EQ(IpcErrStatCount(IPC_SEND_MEMORY_ERR), memErr + 3);
    EXPECT_TRUE(g_seen.empty());
}

// Failures after the header was filled: counted on the source channel, mark back to "held", header in
// network order, the caller still owns the message.
TEST_F(IpcSendTest, FailuresAfterTheHeaderFillCountOnTheSourceChannel) {
    Pair(15, 0, 16, 0);
    void *msg = NewMsg(IPC_MAX_MSG_LEN, 1);
    const u32 chanErr = IpcErrStatCount(IPC_CHAN_ERR);
    EXPECT_EQ(IPC_Send(15, kOtherNode, 16, 0, msg, kLen), IPC_ERR_UNREACHABLE);
    EXPECT_EQ(Fields(msg), (std::vector<u32>{htonl(kSelf), htonl(kOtherNode), htons(15), htons(16), htonl(kLen)}));
    EXPECT_EQ(IPC_Send(15, kSelf, 46, 0, msg, kLen), IPC_ERR_CHAN_NOT_REG);
    EXPECT_EQ(IpcErrStatCount(IPC_CHAN_ERR), chanErr); // a missing destination is not a source-channel error
    EXPECT_EQ(IPC_Send(15, kSelf, 16, 0, msg, IPC_MAX_MSG_LEN + 1), IPC_ERR_MSG_OWNER);
    EXPECT_EQ(Chan(15).ulSendFailNum, 3u);
    EXPECT_EQ(MsgHead(msg)->ucMemFlag, IPC_MEM_USED);
    EXPECT_EQ(IPC_Send(15, kSelf, 16, 0, msg, IPC_MAX_MSG_LEN), IPC_OK); // the largest goes through whole
    ASSERT_EQ(g_seen.size(), 2u);
    EXPECT_EQ(g_seen[0].payload, std::vector<u8>(IPC_MAX_MSG_LEN, 1));
}

TEST_F(IpcSendTest, CallbackDeliveryThenHandBackWithHostOrderHeaders) {
    Pair(3, 0, 4, 0);
    void *msg = NewMsg(kLen, 0);
    std::iota(static_cast<u8 *>(msg), static_cast<u8 *>(msg) + kLen, u8{0});
    const std::vector<u8> sent(static_cast<u8 *>(msg), static_cast<u8 *>(msg) + 50);
    ASSERT_EQ(IPC_Send(3, kSelf, 4, 0, msg, 50), IPC_OK);
    // The receiver first, with a copy; then the sender, with its own message; both headers in host order.
    ASSERT_EQ(g_seen.size(), 2u);
    EXPECT_EQ(g_seen[0].args, (std::vector<u32>{IPC_NOTIFY_RECV, 4, kSelf, 3, 50}));
    EXPECT_NE(g_seen[0].msg, msg);
    EXPECT_EQ(g_seen[0].payload, sent);
    EXPECT_EQ(g_seen[1].args, (std::vector<u32>{IPC_NOTIFY_SEND_FINISH, 3, kSelf, 4, 50}));
    EXPECT_EQ(g_seen[1].msg, msg);
    for (const Delivery &d : g_seen) {
        EXPECT_EQ(d.header, (std::vector<u32>{kSelf, kSelf, 3, 4, 50, IPC_MEM_USED}));
    }

    // With the synchronous flag only the receiver is called; the sender keeps its message.
    g_seen.clear();
    msg = NewMsg(kLen, 9);
    ASSERT_EQ(IPC_Send(3, kSelf, 4, IPC_SEND_FLAG_SYNC, msg, kLen), IPC_OK);
    ASSERT_EQ(g_seen.size(), 1u);
    EXPECT_EQ(g_seen[0].args[0], IPC_NOTIFY_RECV);
    EXPECT_EQ(MsgHead(msg)->ucMemFlag, IPC_MEM_USED);
    EXPECT_EQ(Local(4), (std::vector<u64>{2, 50 + kLen, 0, 0}));
    IPC_FreeMsg(msg);
}

TEST_F(IpcSendTest, QueueDeliveryWritesRecordsTheReaderOwns) {
    const u32 srcQue = NewQueue("tsrc", 8), dstQue = NewQueue("tdst", 8);
    Pair(10, srcQue, 11, dstQue);
    void *msg = NewMsg(kLen, 0x33);
    ASSERT_EQ(IPC_Send(10, kSelf, 11, 0, msg, kLen), IPC_OK);

    ASSERT_EQ(Take(dstQue), RUK_OK);
    void *copy = RecMsg();
    EXPECT_EQ(std::vector<u64>(rec_, rec_ + 4), (std::vector<u64>{IPC_NOTIFY_RECV, rec_[1], kLen, 0}));
    ASSERT_NE(copy, msg);
    EXPECT_EQ(Fields(copy), (std::vector<u32>{kSelf, kSelf, 10, 11, kLen}));
    EXPECT_EQ(memcmp(copy, msg, kLen), 0);
    ASSERT_EQ(Take(srcQue), RUK_OK);
    EXPECT_EQ(std::vector<u64>(rec_, rec_ + 4),
              (std::vector<u64>{IPC_NOTIFY_SEND_FINISH, reinterpret_cast<uintptr_t>(msg), kLen, 0}));
    EXPECT_EQ(Fields(msg), Fields(copy)) << "handed back in host order too";
    EXPECT_EQ(Take(srcQue) + Take(dstQue), 2u * RUK_ERR_EMPTY);
    IPC_FreeMsg(copy);
    IPC_FreeMsg(msg);
}

// Nothing leaks when the copy cannot be allocated or a queue refuses a record (fixture's leak check).
TEST_F(IpcSendTest, InjectedFailuresAreCountedAndLeakNothing) {
    const u32 srcQue = NewQueue("fsrc", 4), dstQue = NewQueue("fdst", 4);
    Pair(12, 0, 13, dstQue);
    ASSERT_EQ(IPC_Create(14, IPC_CHAN_MODE_QUEUE, srcQue, nullptr), IPC_OK);
    void *msg = NewMsg(kLen, 2);
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 0, 1), 0u);
    EXPECT_EQ(IPC_Send(12, kSelf, 13, 0, msg, kLen), IPC_ERR_NO_MEMORY);
    EXPECT_EQ(Chan(12).ulSendFailNum, 1u);
    EXPECT_EQ(MsgHead(msg)->ucMemFlag, IPC_MEM_USED);

    // The receiver's record is refused: the copy is dropped, the sender still gets its message back.
    const u32 queFail = IpcErrStatCount(IPC_NOTIFY_QUE_FAIL);
    ASSERT_EQ(PLAT_FaultInject("RUK_Que_Write", 0, 1), 0u);
    EXPECT_EQ(IPC_Send(12, kSelf, 13, 0, msg, kLen), IPC_OK);
    EXPECT_EQ(IpcErrStatCount(IPC_NOTIFY_QUE_FAIL), queFail + 1);
    EXPECT_EQ(Take(dstQue), RUK_ERR_EMPTY);
    ASSERT_EQ(g_seen.size(), 1u);
    EXPECT_EQ(g_seen[0].args[0], IPC_NOTIFY_SEND_FINISH);
    EXPECT_EQ(Local(13)[0], 0u);

    // The hand-back record is refused: the sent message is dropped, the receiver has its copy.
    ASSERT_EQ(PLAT_FaultInject("RUK_Que_Write", 1, 1), 0u);
    EXPECT_EQ(IPC_Send(14, kSelf, 13, 0, NewMsg(kLen, 3), kLen), IPC_OK);
    EXPECT_EQ(IpcErrStatCount(IPC_NOTIFY_QUE_FAIL), queFail + 2);
    EXPECT_EQ(Take(srcQue), RUK_ERR_EMPTY);
    ASSERT_EQ(Take(dstQue), RUK_OK);
    IPC_FreeMsg(RecMsg());
    EXPECT_EQ(Chan(14).ulSendFailNum, 0u);
}

std::atomic<u32> g_pollResult{0xFFFFFFFFu}, g_pollMcResult{0xFFFFFFFFu};

u32 SendFromPollTask(IPC_EPOLL_HANDLER_S *rec, u32) {
    void *msg = NewMsg(kLen, 5);
    const u32 mcResult = IPC_Send(30, kSelf, 31, IPC_SEND_FLAG_SYNC | IPC_SEND_FLAG_MULTICAST, msg, kLen);
    const u32 result = IPC_Send(30, kSelf, 31, IPC_SEND_FLAG_SYNC, msg, kLen);
    IPC_FreeMsg(msg);
    IPC_EpollDelFd(rec->ulFd);
    close(static_cast<int>(rec->ulFd));
    IpcReleaseEpollRecord(rec);
    // Published last: the test checks for leaks as soon as it sees the result.
    g_pollMcResult = mcResult;
    g_pollResult = result;
    return 0;
}

TEST_F(IpcSendTest, SynchronousSendIsRefusedOnThePollTask) {
    Pair(30, 0, 31, 0);
    const u32 param = IpcErrStatCount(IPC_PARAM_ERR);
    const int fd = eventfd(1, EFD_CLOEXEC);
    ASSERT_EQ(IPC_EpollAddFd(static_cast<u32>(fd), 0, SendFromPollTask, 0x1), IPC_OK);
    for (int i = 0; i < 500 && g_pollResult == 0xFFFFFFFFu; i++) {
        usleep(10000);
    }
    EXPECT_EQ(g_pollResult, IPC_ERR_SYNC_ON_POLL);
    EXPECT_EQ(g_pollMcResult, IPC_ERR_SYNC_ON_POLL);
    EXPECT_EQ(IpcErrStatCount(IPC_PARAM_ERR), param + 2);
    // The same send from an ordinary task goes through.
    void *msg = NewMsg(kLen, 6);
    EXPECT_EQ(IPC_Send(30, kSelf, 31, IPC_SEND_FLAG_SYNC, msg, kLen), IPC_OK);
    IPC_FreeMsg(msg);
    EXPECT_EQ(g_seen.size(), 1u);
}

// Several tasks send to one queue channel at once; a reader takes every message exactly once.
TEST_F(IpcSendTest, SeveralSendersToOneQueueChannelDeliverEachMessageOnce) {
    constexpr u32 kThreads = 4, kPerThread = 1000;
    const u32 que = NewQueue("multi", kThreads * kPerThread);
    ASSERT_EQ(IPC_Create(20, IPC_CHAN_MODE_CALLBACK, 0, FreeingCallback), IPC_OK);
    ASSERT_EQ(IPC_Create(21, IPC_CHAN_MODE_QUEUE, que, nullptr), IPC_OK);
    std::vector<u32> seen(kThreads * kPerThread, 0);
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (u32 n = 0; n < kThreads * kPerThread; n++) {
            u64 rec[4] = {};
            if (RUK_Que_Read(que, rec, RUK_WAIT, 10000) != RUK_OK) {
                return;
            }
            auto *msg = reinterpret_cast<u32 *>(static_cast<uintptr_t>(rec[1]));
            if (rec[0] == IPC_NOTIFY_RECV && rec[2] == kLen && *msg < seen.size()) {
                seen[*msg]++;
            }
            IPC_FreeMsg(msg);
        }
    });
    std::atomic<u32> failures{0};
    for (u32 t = 0; t < kThreads; t++) {
        threads.emplace_back([t, &failures] {
            for (u32 i = 0; i < kPerThread; i++) {
                void *msg = NewMsg(kLen, 0);
                *static_cast<u32 *>(msg) = t * kPerThread + i;
                if (IPC_Send(20, kSelf, 21, 0, msg, kLen) != IPC_OK) {
                    failures++;
                    IPC_FreeMsg(msg);
                }
            }
        });
    }
    for (std::thread &s : threads) {
        s.join();
    }
    EXPECT_EQ(failures, 0u);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1u), static_cast<long>(seen.size()));
    EXPECT_EQ(Local(21), (std::vector<u64>{kThreads * kPerThread, u64{kThreads} * kPerThread * kLen, 0, 0}));
    EXPECT_EQ(Local(20)[2], kThreads * kPerThread);
}

} // namespace
