// Cost of the log writer: a call the repetition filter suppresses and a call that is reported, on one
// thread and on two threads with distinct tags, each beside a baseline doing comparable plain work.
#include <benchmark/benchmark.h>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <sys/time.h>
#include <unordered_map>

#include "zol_foundation.h"

#include "im_agent.h"

namespace {

const char *const kTags[] = {"BENCH_T0", "BENCH_T1", "BENCH_T2", "BENCH_T3"};
constexpr u8 kTypeIpcMsgErr = 29; // {tag, message} plus the formatted text

const char *TagOf(const benchmark::State &state) {
    return kTags[state.thread_index() % 4];
}

// Records go nowhere; every benchmark sets this before its first record.
void QuietAgent() {
    setenv("ZOL_IMAGENT_FILE", "/dev/null", 1);
}

// Suppressed: after the first record of the tag, at most one call per 500 ms passes the filter.
void BM_WriteLogSuppressed(benchmark::State &state) {
    QuietAgent();
    const char *tag = TagOf(state);
    const char *const texts[] = {tag, "Message check fail"};
    const ZOL_LogPoint point{0x1C, 2, kTypeIpcMsgErr, 1};
    for (auto _ : state) {
        ZOL_WriteLog(&point, tag, texts, 2, "sNode=0x%x, sChan=%d, dChan=%d, len=%d", 0x1A2u, 3, 4, 40);
    }
}
BENCHMARK(BM_WriteLogSuppressed)->Threads(1)->Threads(2)->UseRealTime();

// Baseline of a suppressed call: the key built with snprintf, looked up under a mutex in an
// unordered_map, the clock read and the interval compared.
std::mutex g_baseLock;
std::unordered_map<std::string, u64> g_baseLastUs;

u64 NowUs() {
    struct timeval now {};
    gettimeofday(&now, nullptr);
    return static_cast<u64>(now.tv_sec) * 1000000u + static_cast<u64>(now.tv_usec);
}

void BM_BaselineMapFilter(benchmark::State &state) {
    const char *tag = TagOf(state);
    u64 passed = 0;
    for (auto _ : state) {
        char key[64];
        snprintf(key, sizeof(key), "%s%u", tag, 4u);
        std::lock_guard<std::mutex> guard(g_baseLock);
        u64 now = NowUs();
        auto found = g_baseLastUs.try_emplace(key, now);
        if (!found.second && (now - found.first->second) / 1000u >= 500u) {
            found.first->second = now;
            ++passed;
        }
    }
    benchmark::DoNotOptimize(passed);
}
BENCHMARK(BM_BaselineMapFilter)->Threads(1)->Threads(2)->UseRealTime();

// Reported: an unfiltered call goes all the way to the agent.
void BM_WriteLogReported(benchmark::State &state) {
    QuietAgent();
    const char *tag = TagOf(state);
    const char *const texts[] = {tag, "Message check fail"};
    const ZOL_LogPoint point{0x1C, 2, kTypeIpcMsgErr, 0};
    for (auto _ : state) {
        ZOL_WriteLog(&point, tag, texts, 2, "sNode=0x%x, sChan=%d, dChan=%d, len=%d", 0x1A2u, 3, 4, 40);
    }
}
BENCHMARK(BM_WriteLogReported)->Threads(1)->Threads(2)->UseRealTime();

// Baseline of a reported call, part 1: only formatting the same text into a stack buffer.
__attribute__((format(printf, 2, 3))) int FormatOnStack(char *buf, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int len = vsnprintf(buf, 256, format, args);
    va_end(args);
    return len;
}

void BM_BaselineVsnprintf(benchmark::State &state) {
    for (auto _ : state) {
        char buf[256];
        benchmark::DoNotOptimize(FormatOnStack(buf, "sNode=0x%x, sChan=%d, dChan=%d, len=%d", 0x1A2u, 3, 4, 40));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_BaselineVsnprintf)->Threads(1)->Threads(2)->UseRealTime();

// Baseline of a reported call, part 2: the agent alone, sent the same seven parameters directly, so the
// writer's own share of a reported call is the difference.
void BM_BaselineAgentSend(benchmark::State &state) {
    QuietAgent();
    const char *tag = TagOf(state);
    const char *const texts[] = {"1/1", "123,bench",          "124,bench",
                                 tag,   "Message check fail", "sNode=0x1a2, sChan=3, dChan=4, len=40"};
    const u32 cpu = 0;
    for (auto _ : state) {
        void *handle = IM_Agent_GetHandle();
        void *obj = nullptr;
        IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 0x0EA7100F, &obj, handle);
        IM_Agent_AddPara(obj, IM_AGENT_PARA_TEXT, 3, texts[0], handle);
        IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 4, &cpu, handle);
        for (int i = 1; i < 6; ++i) {
            IM_Agent_AddPara(obj, IM_AGENT_PARA_TEXT, static_cast<u32>(strlen(texts[i])), texts[i], handle);
        }
        IM_Agent_Send(obj, handle);
    }
}
BENCHMARK(BM_BaselineAgentSend)->Threads(1)->Threads(2)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
