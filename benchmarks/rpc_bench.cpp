// IPC_RPC_SyncCall with a 64-byte request and a 64-byte reply to a callback-mode module, on one core,
// beside two baselines in the same binary: the same round trip from plain parts (a mutex + condition-
// variable queue, a worker thread, a POSIX semaphore) and ZeroMQ inproc REQ/REP. Prints the ratios.
#include <benchmark/benchmark.h>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <mutex>
#include <semaphore.h>
#include <thread>

#include "zol_ipc.h"
#include "zol_rpc.h"

#include "bench_ratio.h"

#if defined(ZOL_BENCH_HAVE_ZMQ)
#include <zmq.h>
#endif

namespace {

constexpr u32 kSelf = 0x2001;
constexpr u32 kCaller = 0x10, kServer = 0x11;
constexpr u32 kLen = 64;
constexpr u32 kTimeoutMs = 5000;

// ----------------------------------------------------------------------------- the library

u32 EchoCallback(u32, u32, void *req, u32 len, void **rsp, u32 *rspLen) {
    void *out = IPC_RPC_AllocMsg_X(len, IPC_RPC_MOD_ID, "bench", __LINE__);
    memcpy(out, req, len);
    *rsp = out;
    *rspLen = len;
    return 0;
}

void BM_RpcSyncCall64(benchmark::State &state) {
    unsigned char request[kLen];
    memset(request, 0x5A, sizeof(request));
    for (auto _ : state) {
        void *req = IPC_RPC_AllocMsg_X(kLen, IPC_RPC_MOD_ID, "bench", __LINE__);
        memcpy(req, request, kLen);
        void *rsp = nullptr;
        u32 rspLen = 0;
        if (IPC_RPC_SyncCall(kCaller, kSelf, kServer, 0, req, kLen, &rsp, &rspLen, kTimeoutMs) != IPC_RPC_OK ||
            rspLen != kLen) {
            state.SkipWithError("IPC_RPC_SyncCall failed");
            break;
        }
        IPC_RPC_FreeMsg(rsp);
    }
}
BENCHMARK(BM_RpcSyncCall64)->UseRealTime();

// ----------------------------------------------------------------------------- (a) plain parts

struct PlainCall {
    void *req;
    void *rsp;
    sem_t *done;
};

// The request goes in as a record; the worker copies it into a malloc'd reply and posts the caller.
class PlainServer {
  public:
    PlainServer() : worker_([this] { Serve(); }) {}
    ~PlainServer() {
        Push(nullptr);
        worker_.join();
    }
    void Push(PlainCall *call) {
        {
            std::lock_guard<std::mutex> guard(mutex_);
            calls_.push_back(call);
        }
        ready_.notify_one();
    }

  private:
    void Serve() {
        for (;;) {
            PlainCall *call;
            {
                std::unique_lock<std::mutex> guard(mutex_);
                ready_.wait(guard, [this] { return !calls_.empty(); });
                call = calls_.front();
                calls_.pop_front();
            }
            if (call == nullptr) {
                return;
            }
            call->rsp = malloc(kLen);
            memcpy(call->rsp, call->req, kLen);
            sem_post(call->done);
        }
    }
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<PlainCall *> calls_;
    std::thread worker_;
};

void BM_PlainCondvarSem64(benchmark::State &state) {
    PlainServer server;
    sem_t done;
    sem_init(&done, 0, 0);
    unsigned char request[kLen];
    memset(request, 0x5A, sizeof(request));
    for (auto _ : state) {
        PlainCall call{malloc(kLen), nullptr, &done};
        memcpy(call.req, request, kLen);
        server.Push(&call);
        struct timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += kTimeoutMs / 1000;
        while (sem_timedwait(&done, &until) != 0 && errno == EINTR) {
        }
        benchmark::DoNotOptimize(call.rsp);
        free(call.req);
        free(call.rsp);
    }
    sem_destroy(&done);
}
BENCHMARK(BM_PlainCondvarSem64)->UseRealTime();

// ----------------------------------------------------------------------------- (b) ZeroMQ

#if defined(ZOL_BENCH_HAVE_ZMQ)
void BM_ZmqReqRep64(benchmark::State &state) {
    void *ctx = zmq_ctx_new();
    void *rep = zmq_socket(ctx, ZMQ_REP);
    void *req = zmq_socket(ctx, ZMQ_REQ);
    if (zmq_bind(rep, "inproc://rpc_bench") != 0 || zmq_connect(req, "inproc://rpc_bench") != 0) {
        state.SkipWithError("zmq setup failed");
        return;
    }
    std::thread server([rep] {
        unsigned char buf[kLen];
        while (zmq_recv(rep, buf, sizeof(buf), 0) == static_cast<int>(kLen)) {
            zmq_send(rep, buf, kLen, 0);
        }
        zmq_send(rep, buf, 1, 0); // answers the stop request
    });
    unsigned char request[kLen], reply[kLen];
    memset(request, 0x5A, sizeof(request));
    for (auto _ : state) {
        zmq_send(req, request, kLen, 0);
        if (zmq_recv(req, reply, sizeof(reply), 0) != static_cast<int>(kLen)) {
            state.SkipWithError("zmq round trip failed");
            break;
        }
    }
    zmq_send(req, request, 1, 0); // a short request stops the server
    zmq_recv(req, reply, sizeof(reply), 0);
    server.join();
    zmq_close(req);
    zmq_close(rep);
    zmq_ctx_term(ctx);
}
BENCHMARK(BM_ZmqReqRep64)->UseRealTime();
#endif

} // namespace

int main(int argc, char **argv) {
    zol::bench::PinToCpu0(); // the caller, "RPCR" and every baseline's worker share one core
    if (IPC_Init(kSelf) != IPC_OK || IPC_RPC_Init() != IPC_RPC_OK ||
        IPC_RPC_Register(kCaller, EchoCallback) != IPC_RPC_OK ||
        IPC_RPC_Register(kServer, EchoCallback) != IPC_RPC_OK) {
        fprintf(stderr, "RPC set-up failed\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    zol::bench::RatioReporter reporter(zol::bench::RatioReporter::Figure::kRealTime);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printf("\nTime per call relative to the baselines of this run:\n");
    reporter.PrintRatio("IPC_RPC_SyncCall / BM_PlainCondvarSem64", "BM_RpcSyncCall64", "BM_PlainCondvarSem64",
                        "goal <= 1.2");
    reporter.PrintRatio("IPC_RPC_SyncCall / BM_ZmqReqRep64", "BM_RpcSyncCall64", "BM_ZmqReqRep64", "goal <= 0.7");
    benchmark::Shutdown();
    return 0;
}
