// Stand-in platform: list removal, calendar time, epoll, device ids and the hash service. Symbol texts are
// checked through the library's symbol helpers, which take the name and offset from them.
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <sys/eventfd.h>

#include "devm.h"
#include "mesh_epoll.h"
#include "plat_hash.h"
#include "ruk_sll.h"
#include "ruk_str.h"
#include "ruk_time.h"
#include "standin_ctl.h"

namespace {

// A ring of 3 nodes linked the way the platform expects; Order() also checks pTail and ulCount.
struct TestList {
    RUK_SLL_S list{{&list.stHead, nullptr}, &list.stHead, 0};
    RUK_SLL_NODE_S nodes[3]{};
    TestList() {
        for (RUK_SLL_NODE_S &node : nodes) {
            node.pNext = &list.stHead;
            list.pTail = list.pTail->pNext = &node;
            ++list.ulCount;
        }
    }
    std::string Order() const {
        std::string order;
        const RUK_SLL_NODE_S *last = &list.stHead;
        for (const RUK_SLL_NODE_S *p = list.stHead.pNext; p != &list.stHead; last = p, p = p->pNext)
            order += static_cast<char>('0' + (p - nodes));
        EXPECT_EQ(last, list.pTail);
        EXPECT_EQ(order.size(), list.ulCount);
        return order;
    }
};

TEST(PlatformMisc, SllDeleteKeepsTailAndCount) {
    const char *left[3] = {"12", "02", "01"};
    for (int i = 0; i < 3; ++i) {
        TestList l;
        EXPECT_EQ(RUK_OK, RUK_SllDeleteSafe(&l.list, &l.nodes[i]));
        EXPECT_EQ(left[i], l.Order());
        EXPECT_EQ(RUK_ERR_NOT_FOUND, RUK_SllDeleteSafe(&l.list, &l.nodes[i])) << "already removed";
    }
    TestList l;
    EXPECT_EQ(RUK_ERR_PARAM, RUK_SllDeleteSafe(&l.list, &l.list.stHead));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("RUK_SllDeleteSafe", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, RUK_SllDeleteSafe(&l.list, &l.nodes[1]));
    EXPECT_EQ("012", l.Order());
}

TEST(PlatformMisc, CalendarTimeAndDottedAddress) {
    RUK_DATE_TIME_S now{};
    u32 zone = 0, high = 0, low = 0;
    const time_t before = time(nullptr);
    ASSERT_EQ(RUK_OK, RUK_TzLocalTimeGet(&now, &zone));
    ASSERT_EQ(RUK_OK, RUK_SystimeSecSince1970(&now, &high, &low));
    EXPECT_EQ(0u, high);
    EXPECT_GE(low, before);
    EXPECT_LE(low, time(nullptr) + 1); // time() reads a coarse clock that may lag the platform's by a tick

    // 2024-02-29 12:00 at UTC+2 is 10:00 UTC; 2023 has no 29 February.
    setenv("TZ", "EET-2", 1);
    tzset();
    RUK_DATE_TIME_S leap{2024, 2, 29, 12, 0, 0, 0, 0}, badYear = leap;
    EXPECT_EQ(RUK_OK, RUK_SystimeSecSince1970(&leap, &high, &low));
    EXPECT_EQ(1709200800u, low);
    ASSERT_EQ(RUK_OK, RUK_TzLocalTimeGet(&now, &zone));
    EXPECT_EQ(7200, static_cast<s32>(zone));
    unsetenv("TZ");
    tzset();
    badYear.usYear = 2023;
    EXPECT_EQ(RUK_ERR_PARAM, RUK_SystimeSecSince1970(&badYear, &high, &low));

    char text[16];
    EXPECT_EQ(RUK_OK, RUK_IpAddrToStr(0xC0A80A01u, text));
    EXPECT_STREQ("192.168.10.1", text);
}

TEST(PlatformMisc, EpollAddWaitModifyDeleteAndErrors) {
    const s32 ep = MESH_EpollCreate();
    const int efd = eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK); // readable and writable from the start
    ASSERT_TRUE(ep >= 0 && efd >= 0);
    int tag = 0;
    MESH_EPOLL_EVENT_S ev{MESH_EPOLLIN, &tag}, out[4]{};
    ASSERT_EQ(0, MESH_EpollCtl(ep, MESH_EPOLL_CTL_ADD, efd, &ev));
    ASSERT_EQ(1, MESH_EpollWait(ep, out, 4, 1000));
    EXPECT_EQ(&tag, out[0].pData);
    EXPECT_EQ(MESH_EPOLLIN, out[0].ulEvents);
    ev.ulEvents = MESH_EPOLLOUT;
    ASSERT_EQ(0, MESH_EpollCtl(ep, MESH_EPOLL_CTL_MOD, efd, &ev));
    ASSERT_EQ(1, MESH_EpollWait(ep, out, 4, 1000));
    EXPECT_EQ(MESH_EPOLLOUT, out[0].ulEvents);
    ASSERT_EQ(0, MESH_EpollCtl(ep, MESH_EPOLL_CTL_DEL, efd, nullptr));
    EXPECT_EQ(0, MESH_EpollWait(ep, out, 4, 0));
    // Failures report -1 and leave the error number for MESH_GetErrorNo.
    auto errorOf = [](s32 rc) { return rc == -1 ? MESH_GetErrorNo() : 0; };
    EXPECT_EQ(ENOENT, errorOf(MESH_EpollCtl(ep, MESH_EPOLL_CTL_DEL, efd, nullptr)));
    EXPECT_EQ(EINVAL, errorOf(MESH_EpollCtl(ep, 7, efd, &ev)));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("MESH_EpollCreate", 0, 1));
    EXPECT_EQ(EIO, errorOf(MESH_EpollCreate()));
    EXPECT_TRUE(MESH_Close(efd) == 0 && MESH_Close(ep) == 0);
    EXPECT_EQ(EBADF, errorOf(MESH_Close(ep)));
}

TEST(PlatformMisc, DeviceIdsFromEnvironment) {
    // Text of ZOL_SLOT_ID and ZOL_CHASSIS_ID (null: unset), and the slot and chassis answered.
    const struct {
        const char *text;
        u32 rc, slot, chassis;
    } cases[] = {{nullptr, RUK_OK, 1, 1},     {"4294967295", RUK_OK, ~0u, ~0u}, {"", RUK_ERR_PARAM, 0, 1},
                 {"1x", RUK_ERR_PARAM, 0, 1}, {"-1", RUK_ERR_PARAM, 0, 1},      {"4294967296", RUK_ERR_PARAM, 0, 1}};
    for (const auto &c : cases) {
        c.text ? setenv("ZOL_SLOT_ID", c.text, 1) : unsetenv("ZOL_SLOT_ID");
        c.text ? setenv("ZOL_CHASSIS_ID", c.text, 1) : unsetenv("ZOL_CHASSIS_ID");
        u32 slot = 0;
        EXPECT_EQ(c.rc, DEVM_GetSelfSlotId(&slot)) << c.text;
        EXPECT_EQ(c.slot, c.rc == RUK_OK ? slot : 0) << c.text;
        EXPECT_EQ(c.chassis, DEVM_GetChassisId()) << c.text;
    }
    unsetenv("ZOL_SLOT_ID");
    unsetenv("ZOL_CHASSIS_ID");
    u32 cpu = 99;
    EXPECT_EQ(RUK_OK, DEVM_GetSelfCpuId(&cpu));
    EXPECT_EQ(0u, cpu);
}

struct Rec {
    u32 key, value;
};

TEST(PlatformMisc, HashAddFindWithCollisions) {
    // Keys are their own hash and there are only two buckets, so most keys collide.
    auto hash = [](const void *p) { return static_cast<const Rec *>(p)->key; };
    auto same = [](const void *a, const void *b) {
        return static_cast<u32>(static_cast<const Rec *>(a)->key == static_cast<const Rec *>(b)->key);
    };
    void *table = HASH_CreateNew(-4, sizeof(Rec), 2, hash, same, 0);
    ASSERT_NE(nullptr, table);
    for (u32 key = 0; key <= 20; ++key) { // key 5 twice: the first added is found first
        auto *rec = static_cast<Rec *>(HASH_NewData(table, 0));
        ASSERT_NE(nullptr, rec);
        EXPECT_EQ(0u, rec->key | rec->value); // zero-filled
        *rec = key < 20 ? Rec{key, key * 10} : Rec{5, 999};
        ASSERT_EQ(RUK_OK, HASH_AddNode(table, rec, rec, 0));
        EXPECT_EQ(RUK_ERR_PARAM, HASH_AddNode(table, rec, rec, 0)) << "already added";
    }
    for (u32 key = 0; key <= 20; ++key) {
        Rec probe{key, 0};
        auto *found = static_cast<Rec *>(HASH_FindElmtFromFirst(table, &probe));
        EXPECT_EQ(key < 20 ? key * 10 : ~0u, found ? found->value : ~0u) << key;
    }
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("HASH_NewData", 0, 1));
    EXPECT_EQ(nullptr, HASH_NewData(table, 0));
    void *spare = HASH_NewData(table, 0);
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("HASH_AddNode", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, HASH_AddNode(table, spare, spare, 0));
    HASH_FreeData(table, spare);
}

} // namespace
