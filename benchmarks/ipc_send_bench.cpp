// IPC_Send within the own node, beside baselines in the same binary: callback mode against the bare
// malloc + memcpy + free floor; queue mode (one sender, one consumer task, one core) against a mutex +
// condition-variable queue of malloc'd copies and against ZeroMQ inproc PUSH/PULL. Prints the ratios.
#include <atomic>
#include <benchmark/benchmark.h>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <sched.h>
#include <thread>

#include "zol_ipc.h"

#include "ruk_queue.h"
#include "ruk_task.h"

#include "bench_ratio.h"

#if defined(ZOL_BENCH_HAVE_ZMQ)
#include <zmq.h>
#endif

namespace {

constexpr u32 kSelf = 0x1001;
constexpr u32 kPayload = 64;
constexpr u32 kBlock = kPayload + IPC_MSG_HEAD_LEN; // 104: what one IPC message of 64 B occupies
constexpr u32 kDepth = 1024;                        // queue depth of every queued variant
constexpr u32 kChanCbSrc = 1, kChanCbDst = 2, kChanQueSrc = 3, kChanQueDst = 4;
constexpr u64 kStopKind = 0xDEAD;

u32 FreeOnNotify(u32, u32, u32, u32, void *msg, u32) {
    IPC_FreeMsg(msg);
    return 0;
}

// ----------------------------------------------------------------------------- callback mode, 64 B

// Per message: allocation, the send with the receiver's copy, both hand-overs and both releases.
void BM_IpcSendCallback64(benchmark::State &state) {
    unsigned char payload[kPayload];
    memset(payload, 0x5A, sizeof(payload));
    for (auto _ : state) {
        void *msg = IPC_AllocMsg_X(kPayload, IPC_MOD_ID, "bench", __LINE__);
        memcpy(msg, payload, kPayload);
        if (IPC_Send(kChanCbSrc, kSelf, kChanCbDst, 0, msg, kPayload) != IPC_OK) {
            state.SkipWithError("IPC_Send failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IpcSendCallback64);

// The floor: one block of the same size, the payload copied into it, released.
void BM_MallocCopyFree104(benchmark::State &state) {
    unsigned char payload[kPayload];
    memset(payload, 0x5A, sizeof(payload));
    for (auto _ : state) {
        auto *block = static_cast<unsigned char *>(malloc(kBlock));
        benchmark::DoNotOptimize(block);
        memcpy(block + IPC_MSG_HEAD_LEN, payload, kPayload);
        benchmark::ClobberMemory();
        free(block);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_MallocCopyFree104);

// ----------------------------------------------------------------------------- queue mode, 64 B

// Messages the sender has handed over and the consumer has not yet released. The sender yields while
// a queue's worth is outstanding, so it never overruns the queue (an overrun would drop messages).
std::atomic<u64> g_consumed{0};
std::atomic<bool> g_consumerDone{false};
u32 g_ipcQue = 0;

void IpcConsumerTask(uintptr_t, uintptr_t, uintptr_t, uintptr_t) {
    for (;;) {
        u64 rec[4];
        if (RUK_Que_Read(g_ipcQue, rec, RUK_WAIT, 0) != RUK_OK) {
            continue;
        }
        if (rec[0] == kStopKind) {
            break;
        }
        IPC_FreeMsg(reinterpret_cast<void *>(static_cast<uintptr_t>(rec[1])));
        // Only this task writes the count: a plain increment, no locked instruction the baselines lack.
        g_consumed.store(g_consumed.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
    g_consumerDone.store(true, std::memory_order_release);
}

void WaitConsumed(u64 sent) {
    while (g_consumed.load(std::memory_order_acquire) != sent) {
        sched_yield();
    }
}

void BM_IpcSendQueue64(benchmark::State &state) {
    g_consumed = 0;
    g_consumerDone = false;
    u32 taskId = 0;
    if (RUK_TaskCreate("BCON", &taskId, IpcConsumerTask, m_aulTaskPrio[7], 0, 0, nullptr) != RUK_OK) {
        state.SkipWithError("consumer task not created");
        return;
    }
    unsigned char payload[kPayload];
    memset(payload, 0x5A, sizeof(payload));
    u64 sent = 0;
    for (auto _ : state) {
        while (sent - g_consumed.load(std::memory_order_acquire) >= kDepth) {
            sched_yield();
        }
        void *msg = IPC_AllocMsg_X(kPayload, IPC_MOD_ID, "bench", __LINE__);
        memcpy(msg, payload, kPayload);
        if (IPC_Send(kChanQueSrc, kSelf, kChanQueDst, 0, msg, kPayload) != IPC_OK) {
            state.SkipWithError("IPC_Send failed");
            break;
        }
        sent++;
    }
    WaitConsumed(sent);
    state.SetItemsProcessed(static_cast<int64_t>(sent));
    const u64 stop[4] = {kStopKind, 0, 0, 0};
    (void)RUK_Que_Write(g_ipcQue, stop, RUK_WAIT, 0);
    while (!g_consumerDone.load(std::memory_order_acquire)) {
        sched_yield();
    }
}
BENCHMARK(BM_IpcSendQueue64)->UseRealTime();

// Baseline (a): a bounded queue under one mutex with two condition variables, carrying malloc'd copies.
class CondvarQueue {
  public:
    void Push(void *p) {
        std::unique_lock<std::mutex> lock(mutex_);
        notFull_.wait(lock, [this] { return items_.size() < kDepth; });
        items_.push_back(p);
        lock.unlock();
        notEmpty_.notify_one();
    }
    void *Pop() {
        std::unique_lock<std::mutex> lock(mutex_);
        notEmpty_.wait(lock, [this] { return !items_.empty(); });
        void *p = items_.front();
        items_.pop_front();
        lock.unlock();
        notFull_.notify_one();
        return p;
    }

  private:
    std::mutex mutex_;
    std::condition_variable notEmpty_, notFull_;
    std::deque<void *> items_;
};

void BM_CondvarQueue104(benchmark::State &state) {
    CondvarQueue queue;
    std::thread consumer([&queue] {
        while (void *p = queue.Pop()) {
            free(p);
        }
    });
    unsigned char payload[kPayload];
    memset(payload, 0x5A, sizeof(payload));
    for (auto _ : state) {
        auto *block = static_cast<unsigned char *>(malloc(kBlock));
        memcpy(block + IPC_MSG_HEAD_LEN, payload, kPayload);
        queue.Push(block);
    }
    queue.Push(nullptr);
    consumer.join();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CondvarQueue104)->UseRealTime();

#if defined(ZOL_BENCH_HAVE_ZMQ)
// Baseline (b): ZeroMQ inproc PUSH/PULL with 64-byte messages; its high-water mark set to the same depth.
void BM_ZmqPushPull64(benchmark::State &state) {
    void *ctx = zmq_ctx_new();
    void *push = zmq_socket(ctx, ZMQ_PUSH);
    void *pull = zmq_socket(ctx, ZMQ_PULL);
    const int hwm = static_cast<int>(kDepth);
    zmq_setsockopt(push, ZMQ_SNDHWM, &hwm, sizeof(hwm));
    zmq_setsockopt(pull, ZMQ_RCVHWM, &hwm, sizeof(hwm));
    if (zmq_bind(pull, "inproc://ipc_send_bench") != 0 || zmq_connect(push, "inproc://ipc_send_bench") != 0) {
        state.SkipWithError("zmq setup failed");
        return;
    }
    std::thread consumer([pull] {
        unsigned char buf[kPayload];
        while (zmq_recv(pull, buf, sizeof(buf), 0) == static_cast<int>(kPayload)) {
        }
    });
    unsigned char payload[kPayload];
    memset(payload, 0x5A, sizeof(payload));
    for (auto _ : state) {
        zmq_send(push, payload, kPayload, 0);
    }
    zmq_send(push, payload, 1, 0); // a short message stops the consumer
    consumer.join();
    state.SetItemsProcessed(state.iterations());
    zmq_close(push);
    zmq_close(pull);
    zmq_ctx_term(ctx);
}
BENCHMARK(BM_ZmqPushPull64)->UseRealTime();
#endif

// ----------------------------------------------------------------------------- set-up and ratios

bool SetUpIpc() {
    if (IPC_Init(kSelf) != IPC_OK || RUK_Que_Create("BQUE", kDepth, 0, &g_ipcQue) != RUK_OK) {
        return false;
    }
    return IPC_Create(kChanCbSrc, IPC_CHAN_MODE_CALLBACK, 0, FreeOnNotify) == IPC_OK &&
           IPC_Create(kChanCbDst, IPC_CHAN_MODE_CALLBACK, 0, FreeOnNotify) == IPC_OK &&
           IPC_Create(kChanQueSrc, IPC_CHAN_MODE_CALLBACK, 0, FreeOnNotify) == IPC_OK &&
           IPC_Create(kChanQueDst, IPC_CHAN_MODE_QUEUE, g_ipcQue, nullptr) == IPC_OK;
}

} // namespace

int main(int argc, char **argv) {
    zol::bench::PinToCpu0(); // sender and consumer share one core
    if (!SetUpIpc()) {
        fprintf(stderr, "IPC set-up failed\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    zol::bench::RatioReporter reporter(zol::bench::RatioReporter::Figure::kItemsPerSecond);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printf("\nRates relative to the baselines of this run (per-second figures):\n");
    reporter.PrintRatio("callback 64 B: floor / IPC (goal <= 5)", "BM_MallocCopyFree104", "BM_IpcSendCallback64",
                        "IPC costs this many floors");
    reporter.PrintRatio("queue 64 B: IPC / condvar queue (goal >= 0.6)", "BM_IpcSendQueue64", "BM_CondvarQueue104",
                        "messages per second");
    reporter.PrintRatio("queue 64 B: IPC / ZeroMQ inproc (goal >= 1.5)", "BM_IpcSendQueue64", "BM_ZmqPushPull64",
                        "messages per second");
    benchmark::Shutdown();
    return 0;
}
