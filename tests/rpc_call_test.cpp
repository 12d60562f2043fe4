// Synchronous calls through the exported API: callback-mode and queue-mode modules, unregistered
// modules, time-outs with late answers, concurrent callers, every refusal, and injected failures, each
// leaving nothing of the library's memory behind.
#include <gtest/gtest.h>
#include <mutex>
#include <tuple>
#include <utility>
#include <vector>

#include "ruk_types.h"

#include "imagent_reader.h"
#include "leak_check.h"
#include "rpc_support.h"

namespace {

using namespace rpc_test;

constexpr u32 kSelf = 0x00003001u;
constexpr u32 kOtherNode = 0x00003002u;
constexpr u32 kWait = 10000;    // ms; calls that must be answered
constexpr u32 kTimeout = 200;   // ms; calls that must time out
constexpr u32 kCaller = 0x100;  // callback-mode module used as the caller
constexpr u32 kEcho = 0x101;    // answers "re:" + request
constexpr u32 kProbe = 0x103;   // records what it got, takes 110 ms, answers without data
constexpr u32 kQueue = 0x104;   // queue mode with task and event
constexpr u32 kQueueEx = 0x105; // queue mode with task 0 and event 0
constexpr u32 kFaulty = 0x107;  // makes the receive task's next allocation fail, then returns

std::mutex g_probeLock;
std::tuple<std::string, u8, u32, u32, std::string> g_probe; // request, flag, source module and node, task
std::atomic<bool> g_faultyReplies{false};                   // whether kFaulty answers with data

u32 ProbeCallback(u32 srcNode, u32 srcMod, void *req, u32 len, void **, u32 *) {
    std::lock_guard<std::mutex> guard(g_probeLock);
    g_probe = {Text(req, len), HeadOf(req)->ucUserFlag, srcMod, srcNode, RUK_GetTaskName(RUK_TaskCurrentIdGet())};
    std::this_thread::sleep_for(std::chrono::milliseconds(110));
    return 0;
}

u32 SilentCallback(u32, u32, void *, u32, void **, u32 *) {
    return 0;
}

// The setting is atomic: a call that timed out gives the test no ordering with the receive task.
u32 FaultyCallback(u32 a, u32 b, void *req, u32 len, void **rsp, u32 *rspLen) {
    if (g_faultyReplies) {
        EchoCallback(a, b, req, len, rsp, rspLen);
    }
    PLAT_FaultInject("RUK_MemAlloc_F", 0, 1);
    return 0;
}

QueueModule *g_queue = nullptr, *g_queueEx = nullptr;

void AnswerEcho(const IPC_RPC_DELIVER_MSG_S &rec) {
    void *req = reinterpret_cast<void *>(rec.ulData);
    if (rec.ulMsgType != IPC_RPC_DELIVER_MSG_TYPE) {
        IPC_RPC_FreeMsg(req);
        return;
    }
    const std::string out = "q:" + Text(req, static_cast<u32>(rec.ulDataLen));
    IPC_RPC_SendAckMsg(NewMsg(out), static_cast<u32>(out.size()), req, static_cast<u32>(rec.ulSrcNode));
}

class RpcCallTest : public zol::test::LeakCheckedTest {
  protected:
    // IPC and RPC start once per process; the modules of the suite are registered with them.
    static void SetUpTestSuite() {
        static bool s_done = false;
        if (std::exchange(s_done, true)) {
            return;
        }
        ASSERT_EQ(IPC_Init(kSelf), IPC_OK);
        ASSERT_EQ(IPC_RPC_Init(), IPC_RPC_OK);
        ASSERT_EQ(IPC_RPC_Register(kCaller, SilentCallback), IPC_RPC_OK);
        ASSERT_EQ(IPC_RPC_Register(kEcho, EchoCallback), IPC_RPC_OK);
        ASSERT_EQ(IPC_RPC_Register(kProbe, ProbeCallback), IPC_RPC_OK);
        ASSERT_EQ(IPC_RPC_Register(kFaulty, FaultyCallback), IPC_RPC_OK);
        g_queue = new QueueModule(AnswerEcho);
        g_queueEx = new QueueModule(AnswerEcho);
        ASSERT_EQ(IPC_RPC_RegisterEnhance(kQueue, nullptr, g_queue->QueId(), IPC_RPC_MODE_QUEUE, g_queue->TaskId(),
                                          QueueModule::kEvent),
                  IPC_RPC_OK);
        ASSERT_EQ(IPC_RPC_RegisterEx(kQueueEx, nullptr, g_queueEx->QueId(), IPC_RPC_MODE_QUEUE), IPC_RPC_OK);
    }
    void TearDown() override {
        EXPECT_TRUE(WaitForLiveBlocks(startBlocks_)) << "the receive side kept a message";
        LeakCheckedTest::TearDown();
    }
    // Calls kDst with text, returns the status and puts the reply's text in *out.
    u32 Call(u32 dst, const std::string &text, std::string *out, u8 flag = 0, u32 timeout = kWait) {
        void *rsp = reinterpret_cast<void *>(1);
        u32 len = 77;
        const u32 rc = IPC_RPC_SyncCall(kCaller, kSelf, dst, flag, NewMsg(text), static_cast<u32>(text.size()), &rsp,
                                        &len, timeout);
        if (rc == IPC_RPC_OK || rc == IPC_RPC_ERR_NOT_REG) {
            *out = Text(rsp, len);
            EXPECT_EQ(rsp == nullptr, len == 0);
            IPC_RPC_FreeMsg(rsp);
        }
        return rc;
    }
};

// A callback module gets request and flag on "RPCR" and its reply comes back, a callback of more than 100 ms
// is logged, an unregistered module is answered at once; queue modules answer themselves.
TEST_F(RpcCallTest, CallbackUnregisteredAndQueueModulesAnswer) {
    zol::test::ImAgentCapture capture;
    void *rsp = nullptr;
    u32 len = 0;
    ASSERT_EQ(IPC_RPC_SyncCall(kCaller, kSelf, kEcho, 0x5A, NewMsg("hello rpc"), 9, &rsp, &len, kWait), IPC_RPC_OK);
    EXPECT_EQ(Text(rsp, len), "re:hello rpc");
    const IPC_RPC_MSG_HEAD_S *h = HeadOf(rsp); // a reply swaps the modules
    EXPECT_EQ(std::make_tuple(ntohs(h->usMsgType), h->ucUserFlag, ntohl(h->ulSrcMod), ntohl(h->ulDstMod)),
              std::make_tuple(u16{IPC_RPC_MSG_REPLY}, u8{0x5A}, kEcho, kCaller));
    IPC_RPC_FreeMsg(rsp);

    std::string out = "unset";
    ASSERT_EQ(Call(kProbe, "defg", &out, 0x01), IPC_RPC_OK);
    EXPECT_EQ(out, ""); // answered without data
    {
        std::lock_guard<std::mutex> guard(g_probeLock);
        EXPECT_EQ(g_probe, std::make_tuple("defg", u8{0x01}, kCaller, kSelf, "RPCR"));
    }

    // Without outputs, and with the length alone, the reply is released by the call.
    u32 lenOnly = 5;
    EXPECT_EQ(IPC_RPC_SyncCall(kCaller, kSelf, kEcho, 0, NewMsg("x"), 1, nullptr, nullptr, kWait), IPC_RPC_OK);
    EXPECT_EQ(IPC_RPC_SyncCall(kCaller, kSelf, kEcho, 0, NewMsg("x"), 1, nullptr, &lenOnly, kWait), IPC_RPC_OK);
    EXPECT_EQ(lenOnly, 5u);

    EXPECT_EQ(Call(0x55, "who", &out), IPC_RPC_ERR_NOT_REG);
    EXPECT_EQ(out, "");
    EXPECT_EQ(IPC_RPC_SyncCall(kCaller, kSelf, 0x55, 0, NewMsg("who"), 3, nullptr, nullptr, kWait), IPC_RPC_OK);
    for (const auto &[tag, text, formatted] :
         {std::make_tuple("RPC_PRM", "Mod not register", "dMod(0x55), sMod(0x100)"),
          std::make_tuple("RPC_DPBC", "time too long.", "srcMod:256, dstMod:259")}) {
        const auto logs = capture.WithTag(tag);
        ASSERT_FALSE(logs.empty()) << tag;
        EXPECT_EQ(logs[0].Text(zol::test::kImFirstText + 1), text);
        EXPECT_EQ(logs[0].Formatted(), formatted);
    }

    // Queue modules answer from their own task.
    const u32 served = g_queue->Served();
    ASSERT_EQ(Call(kQueue, "item", &out), IPC_RPC_OK);
    EXPECT_EQ(out, "q:item");
    // Registered without task and event: the record still reaches the queue, though its event cannot
    // be written; the next event to the same thread takes it.
    const u32 servedEx = g_queueEx->Served();
    std::atomic<bool> answered{false};
    std::thread nudge([&] {
        while (!answered) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            RUK_Ev_Write(g_queueEx->TaskId(), QueueModule::kEvent);
        }
    });
    EXPECT_EQ(Call(kQueueEx, "ex", &out), IPC_RPC_OK);
    answered = true;
    nudge.join();
    EXPECT_EQ(out, "q:ex");
    while (g_queue->Served() == served || g_queueEx->Served() == servedEx) {
        std::this_thread::yield(); // the module task releases the request after its answer is sent
    }
}

TEST_F(RpcCallTest, AModuleThatNeverAnswersTimesOutAndItsLateAnswerIsReleased) {
    std::vector<IPC_RPC_DELIVER_MSG_S> held;
    std::mutex heldLock;
    QueueModule mute([&](const IPC_RPC_DELIVER_MSG_S &rec) {
        std::lock_guard<std::mutex> guard(heldLock);
        held.push_back(rec);
    });
    static u32 s_mod = 0x200;
    const u32 mod = s_mod++; // modules cannot be removed: a fresh id per run
    ASSERT_EQ(IPC_RPC_RegisterEnhance(mod, nullptr, mute.QueId(), 1, mute.TaskId(), QueueModule::kEvent), 0u);
    // The registration stays for the life of the process: it is not a leak of this test.
    PLAT_MemStats(handle_, &startBlocks_, &startBytes_);

    zol::test::ImAgentCapture capture;
    const auto t0 = std::chrono::steady_clock::now();
    std::string out;
    EXPECT_EQ(Call(mod, "late", &out, 0, kTimeout), RUK_ERR_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(kTimeout - 10));
    while (mute.Served() == 0) {
        std::this_thread::yield();
    }
    std::lock_guard<std::mutex> guard(heldLock);
    ASSERT_EQ(held.size(), 1u);
    IPC_RPC_SendAckMsg(NewMsg("too late"), 8, reinterpret_cast<void *>(held[0].ulData), kSelf);
    EXPECT_TRUE(WaitForLiveBlocks(startBlocks_));
    const auto logs = capture.WithTag("RPC_PR");
    ASSERT_FALSE(logs.empty());
    EXPECT_EQ(logs[0].Text(zol::test::kImFirstText + 1), "Can't find message ctx");
}

TEST_F(RpcCallTest, EightConcurrentCallersEachGetTheirOwnReply) {
    constexpr int kThreads = 8, kCalls = 60;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kCalls; ++i) {
                const std::string req = "t" + std::to_string(t) + "-" + std::to_string(i);
                void *rsp = nullptr;
                u32 len = 0;
                // Half of them share one caller module, so their contexts wait in the same list.
                const u32 caller = (t % 2 == 0) ? kCaller : kEcho;
                const u32 rc = IPC_RPC_SyncCall(caller, kSelf, kEcho, static_cast<u8>(t), NewMsg(req),
                                                static_cast<u32>(req.size()), &rsp, &len, kWait);
                if (rc != IPC_RPC_OK || Text(rsp, len) != "re:" + req || HeadOf(rsp)->ucUserFlag != t) {
                    ++wrong;
                }
                IPC_RPC_FreeMsg(rsp);
            }
        });
    }
    for (std::thread &th : threads) {
        th.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(RpcCallTest, CallRefusalsReleaseTheRequest) {
    void *rsp = nullptr;
    u32 len = 0;
    EXPECT_EQ(IPC_RPC_SyncCall(kCaller, kSelf, kEcho, 0, nullptr, 4, &rsp, &len, kWait), IPC_RPC_ERR_PARAM);
    EXPECT_EQ(IPC_RPC_SyncCall(kCaller, kSelf, kEcho, 0, NewMsg("a"), 0, &rsp, &len, kWait), IPC_RPC_ERR_PARAM);
    EXPECT_EQ(IPC_RPC_SyncCall(kCaller, kSelf, kEcho, 0, NewMsg("a"), 1, &rsp, nullptr, kWait), IPC_RPC_ERR_PARAM);
    EXPECT_EQ(IPC_RPC_SyncCall(0x999, kSelf, kEcho, 0, NewMsg("a"), 1, &rsp, &len, kWait), IPC_RPC_ERR_NO_SRC);
    EXPECT_EQ(IPC_RPC_SyncCall(kCaller, kOtherNode, kEcho, 0, NewMsg("a"), 1, &rsp, &len, kWait), IPC_ERR_UNREACHABLE);
    EXPECT_EQ(IPC_RPC_SyncCall(kCaller, kSelf, kEcho, 0, NewMsg("a"), IPC_RPC_MAX_DATA_LEN + 1, &rsp, &len, kWait),
              IPC_ERR_MSG_OWNER);
    EXPECT_EQ(std::tie(rsp, len), std::make_tuple(nullptr, 0u));

    EXPECT_EQ(IPC_RPC_AllocMsg_X(0, IPC_RPC_MOD_ID, "t", 1), nullptr);
    EXPECT_EQ(IPC_RPC_AllocMsg_X(IPC_RPC_MAX_DATA_LEN + 1, IPC_RPC_MOD_ID, "t", 1), nullptr);
    void *big = IPC_RPC_AllocMsg_X(IPC_RPC_MAX_DATA_LEN, IPC_RPC_MOD_ID, "t", 1);
    auto *head = const_cast<IPC_RPC_MSG_HEAD_S *>(HeadOf(big));
    EXPECT_EQ(std::make_tuple(head->ucHeadFlag, head->usMsgType), std::make_tuple(u8{1}, u16{0}));
    // Not an RPC message (type 5): left alone, then released once it reads as one again.
    head->usMsgType = htons(5);
    IPC_RPC_FreeMsg(big);
    EXPECT_FALSE(WaitForLiveBlocks(startBlocks_, 1));
    head->usMsgType = 0;
    IPC_RPC_FreeMsg(big);
    IPC_RPC_SendAckMsg(NewMsg("orphan"), 6, nullptr, kSelf); // no request: the answer is only released
}

// Registration refusals and what a registration leaves behind: its record and list node, nothing when refused.
TEST_F(RpcCallTest, EveryRegistrationRefusalCodeAndNothingLeftWhenRefused) {
    static u32 s_base = 0x300;
    const u32 a = s_base, b = s_base + 1, c = s_base + 2; // fresh ids per run
    s_base += 3;
    u64 after = 0, bytes = 0;
    EXPECT_EQ(IPC_RPC_Register(a, SilentCallback), IPC_RPC_OK);
    EXPECT_EQ(IPC_RPC_Register(a, EchoCallback), IPC_RPC_ERR_EXIST);
    EXPECT_EQ(IPC_RPC_RegisterEx(a, nullptr, 0x20, IPC_RPC_MODE_QUEUE), IPC_RPC_ERR_EXIST);
    EXPECT_EQ(IPC_RPC_RegisterEx(b, nullptr, 0x20, IPC_RPC_MODE_QUEUE), IPC_RPC_OK);
    EXPECT_EQ(IPC_RPC_RegisterEx(c, EchoCallback, 0, IPC_RPC_MODE_QUEUE), IPC_RPC_ERR_PARAM);
    EXPECT_EQ(IPC_RPC_RegisterEnhance(c, nullptr, 0, IPC_RPC_MODE_CALLBACK, 0, 0), IPC_RPC_ERR_PARAM);
    EXPECT_EQ(IPC_RPC_RegisterEnhance(c, EchoCallback, 5, 3, 0, 0), IPC_RPC_ERR_PARAM);
    EXPECT_EQ(IPC_RPC_RegisterEnhance(c, EchoCallback, 5, 0, 0, 0), IPC_RPC_ERR_PARAM);
    EXPECT_EQ(IPC_RPC_RegisterEnhance(c, nullptr, 5, IPC_RPC_MODE_QUEUE, 12, 0), IPC_RPC_ERR_PARAM);
    PLAT_MemStats(handle_, &after, &bytes);
    EXPECT_EQ(after, startBlocks_ + 4); // two registrations, a record and a list node each

    PLAT_FaultInject("RUK_MemAlloc_F", 0, 1); // the record
    EXPECT_EQ(IPC_RPC_Register(c, EchoCallback), IPC_RPC_ERR_NO_MEMORY);
    PLAT_FaultInject("RUK_MemAlloc_F", 1, 1); // its list node
    EXPECT_EQ(IPC_RPC_Register(c, EchoCallback), IPC_RPC_ERR_NO_MEMORY);
    PLAT_FaultClear();
    PLAT_MemStats(handle_, &startBlocks_, &startBytes_);
    EXPECT_EQ(startBlocks_, after);
    EXPECT_EQ(IPC_RPC_Register(c, EchoCallback), IPC_RPC_OK); // not half registered by the failures
    PLAT_MemStats(handle_, &startBlocks_, &startBytes_);      // registrations stay for the life of the process
}

TEST_F(RpcCallTest, InjectedFailuresAreSurvivedWithNothingLeaked) {
    std::string out;
    PLAT_FaultInject("RUK_MemAlloc_F", 0, 1);
    EXPECT_EQ(IPC_RPC_AllocMsg_X(8, IPC_RPC_MOD_ID, "t", 1), nullptr);
    // The context, its list node, its semaphore, then (after those two blocks) IPC's copy for the receiver.
    const std::tuple<const char *, u32, u32> failing[] = {{"RUK_MemAlloc_F", 0, IPC_RPC_ERR_NO_MEMORY},
                                                          {"RUK_MemAlloc_F", 1, IPC_RPC_ERR_NO_MEMORY},
                                                          {"RUK_Sm_Create", 0, IPC_RPC_ERR_NO_MEMORY},
                                                          {"RUK_MemAlloc_F", 2, IPC_ERR_NO_MEMORY}};
    for (const auto &[call, skip, rc] : failing) {
        void *req = NewMsg("ctx");
        PLAT_FaultInject(call, skip, 1);
        EXPECT_EQ(IPC_RPC_SyncCall(kCaller, kSelf, kEcho, 0, req, 3, nullptr, nullptr, kWait), rc) << call << skip;
    }

    // The request cannot be queued for "RPCR": the caller waits in vain.
    PLAT_FaultInject("RUK_Que_Write", 0, 1);
    EXPECT_EQ(Call(kEcho, "lost", &out, 0, kTimeout), RUK_ERR_TIMEOUT);
    // The wait itself fails: the answer comes anyway and is released by the receive side.
    PLAT_FaultInject("RUK_Sm_P", 0, 1);
    EXPECT_EQ(Call(kEcho, "nowait", &out), RUK_ERR_INJECTED);
    EXPECT_TRUE(WaitForLiveBlocks(startBlocks_));
    // The caller cannot be woken: the attached answer is released by its clean-up after the time-out.
    PLAT_FaultInject("RUK_Sm_V", 0, 1);
    EXPECT_EQ(Call(kEcho, "sleepy", &out, 0, kTimeout), RUK_ERR_TIMEOUT);
    // "RPCR" is not told: the request waits in its queue and is taken with the next call's event.
    PLAT_FaultInject("RUK_Ev_Write", 0, 1);
    EXPECT_EQ(Call(kEcho, "untold", &out, 0, kTimeout), RUK_ERR_TIMEOUT);
    EXPECT_EQ(Call(kEcho, "next", &out), IPC_RPC_OK);
    EXPECT_EQ(out, "re:next");

    // On the receive task: the empty answer cannot be allocated, then an answer cannot be sent.
    g_faultyReplies = false;
    EXPECT_EQ(Call(kFaulty, "noalloc", &out, 0, kTimeout), RUK_ERR_TIMEOUT);
    g_faultyReplies = true; // IPC's copy of the answer fails
    EXPECT_EQ(Call(kFaulty, "nosend", &out, 0, kTimeout), RUK_ERR_TIMEOUT);
    PLAT_FaultClear();
    EXPECT_EQ(Call(kEcho, "after", &out), IPC_RPC_OK);
}

} // namespace
