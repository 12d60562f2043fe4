// The wait list's handle index table from a fresh process: the first table of 20 entries, its doubling,
// the clock tag in the handle's high half, reuse of a freed entry, and a table that cannot grow.
// One test on purpose: the table belongs to the process and never shrinks.
#include <ctime>
#include <gtest/gtest.h>
#include <vector>

#include "zol_foundation.h"
#include "zol_waitlist.h"

#include "standin_ctl.h"

namespace {

u64 Proc(u64, u64 *) {
    return 0;
}

void Stats(u64 *blocks, u64 *bytes) {
    PLAT_MemStats(ZOL_GetMemHandle(), blocks, bytes);
}

TEST(WaitListIndexTest, TableStartsAt20DoublesAndRefusesWhenItCannotGrow) {
    u64 blocks0 = 0, bytes0 = 0;
    Stats(&blocks0, &bytes0);

    const u32 t0 = static_cast<u32>(std::time(nullptr));
    std::vector<u32> h(1, 0);
    ASSERT_EQ(RUK_WaitListRegister(1, &h[0], Proc), 0u);
    const u32 t1 = static_cast<u32>(std::time(nullptr));
    EXPECT_EQ(h[0] & 0xFFFFu, 1u) << "the first registration takes entry 1";
    const u32 tag = h[0] >> 16;
    EXPECT_TRUE(tag == (t0 & 0xFFFFu) || tag == (t1 & 0xFFFFu)) << "tag " << tag << " is not the clock's seconds";

    u64 blocks1 = 0, bytes1 = 0;
    Stats(&blocks1, &bytes1);
    EXPECT_EQ(blocks1, blocks0 + 3); // the table, the list's main node, the registration

    // Entries 1..19 taken: the 20th registration grows the table to 40 and gets entry 20.
    for (u32 i = 2; i <= 20; ++i) {
        u32 x = 0;
        ASSERT_EQ(RUK_WaitListRegister(1, &x, Proc), 0u);
        EXPECT_EQ(x & 0xFFFFu, i);
        h.push_back(x);
    }
    u64 blocks2 = 0, bytes2 = 0;
    Stats(&blocks2, &bytes2);
    EXPECT_EQ(blocks2, blocks1 + 19); // grown in place: still one table block

    // A freed entry is taken again before the table's fresh ones.
    ASSERT_EQ(RUK_WaitListUnregister(h[2]), 0u);
    u32 again = 0;
    ASSERT_EQ(RUK_WaitListRegister(2, &again, Proc), 0u);
    EXPECT_EQ(again & 0xFFFFu, 3u);
    u64 v = 0;
    if (again == h[2]) {
        // Re-registered within the same second: a seconds tag cannot tell them apart.
        EXPECT_EQ(RUK_WaitListGet(h[2], &v), 0u);
    } else {
        EXPECT_EQ(RUK_WaitListGet(h[2], &v), WAITLIST_ERR_HANDLE);
    }
    h[2] = again;

    // Fill entries 21..39; the next one needs a table of 80, which the allocator refuses.
    for (u32 i = 21; i <= 39; ++i) {
        u32 x = 0;
        ASSERT_EQ(RUK_WaitListRegister(1, &x, Proc), 0u);
        h.push_back(x);
    }
    u64 blocks3 = 0, bytes3 = 0;
    Stats(&blocks3, &bytes3);
    ASSERT_EQ(PLAT_FaultInject("RUK_MemReAlloc_F", 0, 1), 0u);
    u32 refused = 0x77;
    EXPECT_EQ(RUK_WaitListRegister(9, &refused, Proc), WAITLIST_ERR_FAILED);
    EXPECT_EQ(refused, 0u);
    u64 blocks4 = 0, bytes4 = 0;
    Stats(&blocks4, &bytes4);
    EXPECT_EQ(blocks4, blocks3) << "the refused registration and its new list must be gone";
    EXPECT_EQ(bytes4, bytes3);
    EXPECT_EQ(RUK_WaitListDelFromList(9, 0), WAITLIST_ERR_NOT_FOUND);
    PLAT_FaultClear();

    u32 grown = 0;
    ASSERT_EQ(RUK_WaitListRegister(1, &grown, Proc), 0u);
    EXPECT_EQ(grown & 0xFFFFu, 40u);
    h.push_back(grown);
    for (u32 x : h) {
        EXPECT_EQ(RUK_WaitListUnregister(x), 0u);
    }
    u64 blocks5 = 0;
    Stats(&blocks5, nullptr);
    EXPECT_EQ(blocks5, blocks0 + 1) << "only the index table stays";
}

} // namespace
