// Stand-in platform: list removal, strings, calendar time, symbols, epoll, device ids and the hash service.
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>

#include "devm.h"
#include "mesh_epoll.h"
#include "plat_hash.h"
#include "ruk_sll.h"
#include "ruk_str.h"
#include "ruk_symbol.h"
#include "ruk_time.h"
#include "standin_ctl.h"

namespace {

class PlatformMisc : public ::testing::Test {
  protected:
    void SetUp() override { PLAT_FaultClear(); }
    void TearDown() override { PLAT_FaultClear(); }
};

// A list of n nodes linked the way the platform expects, checked against its own invariant.
struct TestList {
    RUK_SLL_S list{};
    RUK_SLL_NODE_S nodes[4]{};

    explicit TestList(u32 n) {
        list.stHead.pNext = &list.stHead;
        list.pTail = &list.stHead;
        for (u32 i = 0; i < n; ++i) {
            nodes[i].pNext = &list.stHead;
            list.pTail->pNext = &nodes[i];
            list.pTail = &nodes[i];
            ++list.ulCount;
        }
    }
    // The nodes still linked, in order, as indexes; also checks pTail and ulCount against the ring.
    std::string Order() const {
        std::string order;
        const RUK_SLL_NODE_S *last = &list.stHead;
        for (const RUK_SLL_NODE_S *p = list.stHead.pNext; p != &list.stHead; p = p->pNext) {
            order += static_cast<char>('0' + (p - nodes));
            last = p;
        }
        EXPECT_EQ(last, list.pTail);
        EXPECT_EQ(order.size(), list.ulCount);
        return order;
    }
};

TEST_F(PlatformMisc, SllDeleteKeepsTailAndCount) {
    TestList first(3), middle(3), last(3), only(1);
    EXPECT_EQ(RUK_OK, RUK_SllDeleteSafe(&first.list, &first.nodes[0]));
    EXPECT_EQ("12", first.Order());
    EXPECT_EQ(RUK_OK, RUK_SllDeleteSafe(&middle.list, &middle.nodes[1]));
    EXPECT_EQ("02", middle.Order());
    EXPECT_EQ(RUK_OK, RUK_SllDeleteSafe(&last.list, &last.nodes[2]));
    EXPECT_EQ("01", last.Order());
    EXPECT_EQ(RUK_OK, RUK_SllDeleteSafe(&only.list, &only.nodes[0]));
    EXPECT_EQ("", only.Order());
    EXPECT_EQ(&only.list.stHead, only.list.stHead.pNext);

    // Refusals leave the list untouched.
    TestList other(2);
    EXPECT_EQ(RUK_ERR_NOT_FOUND, RUK_SllDeleteSafe(&first.list, &first.nodes[0])); // already removed
    EXPECT_EQ(RUK_ERR_NOT_FOUND, RUK_SllDeleteSafe(&first.list, &other.nodes[0]));
    EXPECT_EQ(RUK_ERR_PARAM, RUK_SllDeleteSafe(&first.list, &first.list.stHead));
    EXPECT_EQ(RUK_ERR_PARAM, RUK_SllDeleteSafe(nullptr, &first.nodes[1]));
    EXPECT_EQ(RUK_ERR_PARAM, RUK_SllDeleteSafe(&first.list, nullptr));
    EXPECT_EQ(RUK_ERR_NOT_FOUND, RUK_SllDeleteSafe(&only.list, &only.nodes[0]));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("RUK_SllDeleteSafe", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, RUK_SllDeleteSafe(&first.list, &first.nodes[1]));
    EXPECT_EQ("12", first.Order());
    EXPECT_EQ("01", other.Order());
}

// Only the null handling and the byte order go beyond the C library.
TEST_F(PlatformMisc, StringNullsAndDottedAddress) {
    EXPECT_EQ(0u, RUK_StrLen(nullptr));
    EXPECT_EQ(nullptr, RUK_StrRChr(nullptr, '/'));
    EXPECT_LT(RUK_StrCmp(nullptr, ""), 0);
    EXPECT_GT(RUK_StrCmp("", nullptr), 0);
    EXPECT_EQ(0, RUK_StrCmp(nullptr, nullptr));

    char text[16];
    EXPECT_EQ(RUK_OK, RUK_IpAddrToStr(0xC0A80A01u, text));
    EXPECT_STREQ("192.168.10.1", text);
    EXPECT_EQ(RUK_OK, RUK_IpAddrToStr(0xFFFFFFFFu, text));
    EXPECT_STREQ("255.255.255.255", text);
    EXPECT_EQ(RUK_ERR_PARAM, RUK_IpAddrToStr(1, nullptr));
}

TEST_F(PlatformMisc, LocalTimeConvertsBackToEpochSeconds) {
    RUK_DATE_TIME_S now{};
    u32 zone = 0;
    const time_t before = time(nullptr);
    ASSERT_EQ(RUK_OK, RUK_TzLocalTimeGet(&now, &zone));
    const time_t after = time(nullptr);
    u32 high = 0, low = 0;
    ASSERT_EQ(RUK_OK, RUK_SystimeSecSince1970(&now, &high, &low));
    const s64 seconds = static_cast<s64>((static_cast<u64>(high) << 32) | low);
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, after);
    EXPECT_LT(now.ulMillisecond, 1000u);
    EXPECT_LE(now.ucWeek, 6);

    // A fixed date in a fixed zone: 2024-02-29 12:00 at UTC+2 is 10:00 UTC.
    const char *savedTz = getenv("TZ");
    const std::string saved = savedTz ? savedTz : "";
    setenv("TZ", "EET-2", 1);
    tzset();
    RUK_DATE_TIME_S leap{2024, 2, 29, 12, 0, 0, 0, 0};
    EXPECT_EQ(RUK_OK, RUK_SystimeSecSince1970(&leap, &high, &low));
    EXPECT_EQ(0u, high);
    EXPECT_EQ(1709200800u, low);
    ASSERT_EQ(RUK_OK, RUK_TzLocalTimeGet(&now, &zone));
    EXPECT_EQ(7200, static_cast<s32>(zone));
    savedTz ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
    tzset();

    RUK_DATE_TIME_S bad = leap;
    bad.usYear = 2023; // not a leap year
    EXPECT_EQ(RUK_ERR_PARAM, RUK_SystimeSecSince1970(&bad, &high, &low));
    bad = leap;
    bad.ucMonth = 13;
    EXPECT_EQ(RUK_ERR_PARAM, RUK_SystimeSecSince1970(&bad, &high, &low));
    EXPECT_EQ(RUK_ERR_PARAM, RUK_SystimeSecSince1970(&leap, nullptr, &low));
    EXPECT_EQ(RUK_ERR_PARAM, RUK_TzLocalTimeGet(nullptr, &zone));
}

// Static, so it has no dynamic symbol: its text carries only an offset.
__attribute__((noinline)) u32 CaptureStack(void **frames, u32 depth, u32 skip, u32 *count) {
    const u32 rc = RUK_CallStackSelfGet(depth, skip, frames, count);
    asm volatile("" ::: "memory"); // no tail call: this frame must be on the stack
    return rc;
}

uintptr_t ParseHexAfter(const std::string &text, const std::string &marker) {
    const size_t at = text.find(marker);
    return at == std::string::npos ? 0 : std::strtoull(text.c_str() + at + marker.size(), nullptr, 16);
}

TEST_F(PlatformMisc, SymbolTextsAndCallStack) {
    // A named function of the platform library itself, 4 bytes in.
    const auto named = reinterpret_cast<uintptr_t>(&RUK_StrLen) + 4;
    Dl_info info{};
    ASSERT_NE(0, dladdr(reinterpret_cast<void *>(named), &info));
    char expected[4200];
    snprintf(expected, sizeof expected, "%s(RUK_StrLen+0x4) [0x%" PRIxPTR "]", info.dli_fname, named);
    EXPECT_STREQ(expected, RUK_SymNameGet(reinterpret_cast<void *>(named)));

    // The test's own static function: file, offset from the executable's base, address.
    void *frames[2][8];
    u32 counts[2] = {0, 0};
    for (u32 skip = 0; skip < 2; ++skip) {
        ASSERT_EQ(RUK_OK, CaptureStack(frames[skip], 8, skip, &counts[skip]));
    }
    ASSERT_GE(counts[0], 3u);
    EXPECT_EQ(frames[0][1], frames[1][0]); // same call site: skipping one frame shifts the trace by one
    EXPECT_EQ(frames[0][2], frames[1][1]);
    u32 count = 0;
    ASSERT_EQ(RUK_OK, CaptureStack(frames[1], 1, 0, &count));
    EXPECT_EQ(1u, count);
    const std::string inTest = RUK_SymNameGet(reinterpret_cast<void *>(&CaptureStack));
    ASSERT_NE(0, dladdr(reinterpret_cast<void *>(&CaptureStack), &info));
    EXPECT_EQ(0u, inTest.find(std::string(info.dli_fname) + "(+0x")) << inTest;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&CaptureStack) - reinterpret_cast<uintptr_t>(info.dli_fbase),
              ParseHexAfter(inTest, "(+0x"));
    // The first frame is a return address inside CaptureStack (the platform's own frame is skipped).
    const auto ret = reinterpret_cast<uintptr_t>(frames[0][0]);
    EXPECT_GT(ret, reinterpret_cast<uintptr_t>(&CaptureStack));
    EXPECT_LT(ret, reinterpret_cast<uintptr_t>(&CaptureStack) + 256);
    EXPECT_EQ(RUK_ERR_PARAM, RUK_CallStackSelfGet(0, 0, frames[0], &count));
    EXPECT_EQ(RUK_ERR_PARAM, RUK_CallStackSelfGet(4, 0, nullptr, &count));

    // No object holds a tiny address; null gives null.
    EXPECT_STREQ("[0x4000]", RUK_SymNameGet(reinterpret_cast<void *>(0x4000)));
    EXPECT_EQ(nullptr, RUK_SymNameGet(nullptr));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("RUK_SymNameGet", 0, 1));
    EXPECT_EQ(nullptr, RUK_SymNameGet(reinterpret_cast<void *>(named)));
}

TEST_F(PlatformMisc, EpollAddWaitModifyDelete) {
    const s32 ep = MESH_EpollCreate();
    ASSERT_GE(ep, 0);
    const int efd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    ASSERT_GE(efd, 0);
    int tag = 0;
    MESH_EPOLL_EVENT_S ev{MESH_EPOLLIN, &tag};
    ASSERT_EQ(0, MESH_EpollCtl(ep, MESH_EPOLL_CTL_ADD, efd, &ev));

    MESH_EPOLL_EVENT_S out[4]{};
    EXPECT_EQ(0, MESH_EpollWait(ep, out, 4, 0)); // nothing yet
    const uint64_t one = 1;
    ASSERT_EQ(static_cast<ssize_t>(sizeof one), write(efd, &one, sizeof one));
    ASSERT_EQ(1, MESH_EpollWait(ep, out, 4, 1000));
    EXPECT_EQ(&tag, out[0].pData);
    EXPECT_EQ(MESH_EPOLLIN, out[0].ulEvents);

    ev.ulEvents = MESH_EPOLLOUT;
    ASSERT_EQ(0, MESH_EpollCtl(ep, MESH_EPOLL_CTL_MOD, efd, &ev));
    ASSERT_EQ(1, MESH_EpollWait(ep, out, 4, 1000));
    EXPECT_EQ(MESH_EPOLLOUT, out[0].ulEvents);
    ASSERT_EQ(0, MESH_EpollCtl(ep, MESH_EPOLL_CTL_DEL, efd, nullptr));
    EXPECT_EQ(0, MESH_EpollWait(ep, out, 4, 0));

    // Failures report -1 and keep the error number per thread.
    EXPECT_EQ(-1, MESH_EpollCtl(ep, MESH_EPOLL_CTL_DEL, efd, nullptr));
    EXPECT_EQ(ENOENT, MESH_GetErrorNo());
    EXPECT_EQ(-1, MESH_EpollCtl(ep, MESH_EPOLL_CTL_ADD, -1, &ev));
    EXPECT_EQ(EBADF, MESH_GetErrorNo());
    EXPECT_EQ(-1, MESH_EpollCtl(ep, 7, efd, &ev));
    EXPECT_EQ(EINVAL, MESH_GetErrorNo());
    EXPECT_EQ(-1, MESH_EpollCtl(ep, MESH_EPOLL_CTL_ADD, efd, nullptr));
    EXPECT_EQ(-1, MESH_EpollWait(ep, out, 0, 0));
    EXPECT_EQ(-1, MESH_EpollWait(-1, out, 4, 0));
    EXPECT_EQ(EBADF, MESH_GetErrorNo());
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("MESH_EpollCreate", 0, 1));
    EXPECT_EQ(-1, MESH_EpollCreate());
    EXPECT_EQ(EIO, MESH_GetErrorNo());

    EXPECT_EQ(0, MESH_Close(efd));
    EXPECT_EQ(0, MESH_Close(ep));
    EXPECT_EQ(-1, MESH_Close(ep));
    EXPECT_EQ(EBADF, MESH_GetErrorNo());
}

TEST_F(PlatformMisc, DeviceIdsFromEnvironment) {
    unsetenv("ZOL_CHASSIS_ID");
    unsetenv("ZOL_SLOT_ID");
    unsetenv("ZOL_CPU_ID");
    u32 slot = 99, cpu = 99;
    EXPECT_EQ(1u, DEVM_GetChassisId());
    EXPECT_EQ(RUK_OK, DEVM_GetSelfSlotId(&slot));
    EXPECT_EQ(1u, slot);
    EXPECT_EQ(RUK_OK, DEVM_GetSelfCpuId(&cpu));
    EXPECT_EQ(0u, cpu);

    setenv("ZOL_CHASSIS_ID", "3", 1);
    setenv("ZOL_SLOT_ID", "17", 1);
    setenv("ZOL_CPU_ID", "4294967295", 1);
    EXPECT_EQ(3u, DEVM_GetChassisId());
    EXPECT_EQ(RUK_OK, DEVM_GetSelfSlotId(&slot));
    EXPECT_EQ(17u, slot);
    EXPECT_EQ(RUK_OK, DEVM_GetSelfCpuId(&cpu));
    EXPECT_EQ(0xFFFFFFFFu, cpu);

    for (const char *bad : {"", "x1", "1x", "-1", " 2", "4294967296"}) {
        setenv("ZOL_SLOT_ID", bad, 1);
        setenv("ZOL_CHASSIS_ID", bad, 1);
        EXPECT_EQ(RUK_ERR_PARAM, DEVM_GetSelfSlotId(&slot)) << '"' << bad << '"';
        EXPECT_EQ(1u, DEVM_GetChassisId()) << '"' << bad << '"';
    }
    setenv("ZOL_CPU_ID", "abc", 1);
    EXPECT_EQ(RUK_ERR_PARAM, DEVM_GetSelfCpuId(&cpu));
    EXPECT_EQ(RUK_ERR_PARAM, DEVM_GetSelfCpuId(nullptr));
    unsetenv("ZOL_CHASSIS_ID");
    unsetenv("ZOL_SLOT_ID");
    unsetenv("ZOL_CPU_ID");
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("DEVM_GetSelfSlotId", 1, 1));
    EXPECT_EQ(RUK_OK, DEVM_GetSelfSlotId(&slot));
    EXPECT_EQ(RUK_ERR_INJECTED, DEVM_GetSelfSlotId(&slot));
    EXPECT_EQ(RUK_OK, DEVM_GetSelfSlotId(&slot));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("DEVM_GetSelfCpuId", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, DEVM_GetSelfCpuId(&cpu));
}

struct Rec {
    u32 key;
    u32 value;
};
// Only two buckets, so that most keys collide.
u32 HashRec(const void *p) {
    return static_cast<const Rec *>(p)->key;
}
u32 SameKey(const void *elmt, const void *probe) {
    return static_cast<const Rec *>(elmt)->key == static_cast<const Rec *>(probe)->key;
}

TEST_F(PlatformMisc, HashAddFindWithCollisions) {
    void *table = HASH_CreateNew(-4, sizeof(Rec), 2, HashRec, SameKey, 0);
    ASSERT_NE(nullptr, table);
    for (u32 key = 0; key < 20; ++key) {
        auto *rec = static_cast<Rec *>(HASH_NewData(table, 0));
        ASSERT_NE(nullptr, rec);
        EXPECT_EQ(0u, rec->key | rec->value); // zero-filled
        rec->key = key;
        rec->value = key * 10;
        ASSERT_EQ(RUK_OK, HASH_AddNode(table, rec, rec, 0));
    }
    for (u32 key = 0; key < 20; ++key) {
        Rec probe{key, 0};
        auto *found = static_cast<Rec *>(HASH_FindElmtFromFirst(table, &probe));
        ASSERT_NE(nullptr, found) << key;
        EXPECT_EQ(key * 10, found->value);
    }
    Rec missing{21, 0};
    EXPECT_EQ(nullptr, HASH_FindElmtFromFirst(table, &missing));

    // A second record with the same key: the first added is found first.
    auto *dup = static_cast<Rec *>(HASH_NewData(table, 0));
    ASSERT_NE(nullptr, dup);
    *dup = Rec{5, 999};
    ASSERT_EQ(RUK_OK, HASH_AddNode(table, dup, dup, 0));
    Rec probe{5, 0};
    EXPECT_EQ(50u, static_cast<Rec *>(HASH_FindElmtFromFirst(table, &probe))->value);
    EXPECT_EQ(RUK_ERR_PARAM, HASH_AddNode(table, dup, dup, 0)); // already added

    // Refusals and injected failures.
    EXPECT_EQ(nullptr, HASH_CreateNew(-4, 0, 2, HashRec, SameKey, 0));
    EXPECT_EQ(nullptr, HASH_CreateNew(-4, 8, 0, HashRec, SameKey, 0));
    EXPECT_EQ(nullptr, HASH_CreateNew(-4, 8, 2, nullptr, SameKey, 0));
    EXPECT_EQ(RUK_ERR_PARAM, HASH_AddNode(nullptr, &probe, dup, 0));
    auto *spare = HASH_NewData(table, 0);
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("HASH_AddNode", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, HASH_AddNode(table, &probe, spare, 0));
    HASH_FreeData(table, spare);
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("HASH_NewData", 0, 1));
    EXPECT_EQ(nullptr, HASH_NewData(table, 0));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("HASH_CreateNew", 0, 1));
    EXPECT_EQ(nullptr, HASH_CreateNew(-4, 8, 2, HashRec, SameKey, 0));
}

} // namespace
