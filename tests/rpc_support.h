// Helpers of the RPC suites: messages from text, a queue-mode module served by its own thread, and a
// wait for the receive task to release what it still holds.
#ifndef RPC_SUPPORT_H
#define RPC_SUPPORT_H

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "zol_foundation.h"
#include "zol_ipc.h"
#include "zol_rpc.h"

#include "ruk_event.h"
#include "ruk_queue.h"
#include "ruk_task.h"
#include "standin_ctl.h"

namespace rpc_test {

inline void *NewMsg(const std::string &text) {
    void *p = IPC_RPC_AllocMsg_X(static_cast<u32>(text.size()), IPC_RPC_MOD_ID, "rpc_test", __LINE__);
    if (p != nullptr) {
        std::memcpy(p, text.data(), text.size());
    }
    return p;
}

inline std::string Text(const void *p, u32 len) {
    return p == nullptr ? std::string() : std::string(static_cast<const char *>(p), len);
}

// The RPC header of a message, by its data pointer.
inline const IPC_RPC_MSG_HEAD_S *HeadOf(const void *data) {
    return reinterpret_cast<const IPC_RPC_MSG_HEAD_S *>(static_cast<const char *>(data) - IPC_RPC_HEAD_LEN);
}

// Replies "re:" + request; used by callback-mode modules of several suites.
inline u32 EchoCallback(u32, u32, void *req, u32 len, void **rsp, u32 *rspLen) {
    const std::string out = "re:" + Text(req, len);
    *rsp = NewMsg(out);
    *rspLen = static_cast<u32>(out.size());
    return 0;
}

// Waits until the library's live blocks are back at a count (the receive task may still hold a late
// reply for a moment); true when they are.
inline bool WaitForLiveBlocks(u64 blocks, int tries = 1000) {
    for (int i = 0; i < tries; ++i) {
        u64 now = 0, bytes = 0;
        PLAT_MemStats(ZOL_GetMemHandle(), &now, &bytes);
        if (now == blocks) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// A queue-mode module: its own queue and a thread that takes each record on its event and hands it to
// answer(record); answer owns the request from then on.
class QueueModule {
  public:
    static constexpr u32 kEvent = 0x10;
    explicit QueueModule(std::function<void(const IPC_RPC_DELIVER_MSG_S &)> answer) : answer_(std::move(answer)) {
        RUK_Que_Create("QMOD", 64, 0, &queId_);
        thread_ = std::thread([this] { Run(); });
        while (taskId_.load() == 0) {
            std::this_thread::yield();
        }
    }
    ~QueueModule() {
        stop_ = true;
        RUK_Ev_Write(taskId_, kEvent);
        thread_.join();
    }
    u32 QueId() const { return queId_; }
    u32 TaskId() const { return taskId_; }
    u32 Served() const { return served_; }

  private:
    void Run() {
        taskId_ = RUK_TaskCurrentIdGet();
        while (!stop_) {
            u32 got = 0;
            if (RUK_Ev_Read(kEvent, &got, RUK_WAIT, 0) != RUK_OK) {
                continue;
            }
            IPC_RPC_DELIVER_MSG_S rec;
            while (RUK_Que_Read(queId_, reinterpret_cast<u64 *>(&rec), RUK_NOWAIT, 0) == RUK_OK) {
                answer_(rec);
                ++served_;
            }
        }
    }
    std::function<void(const IPC_RPC_DELIVER_MSG_S &)> answer_;
    u32 queId_ = 0;
    std::atomic<u32> taskId_{0}, served_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

} // namespace rpc_test

#endif // RPC_SUPPORT_H
