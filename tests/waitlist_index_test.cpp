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

u64 Blocks(u64 *bytes = nullptr) {
    u64 blocks = 0;
    PLAT_MemStats(ZOL_GetMemHandle(), &blocks, bytes);
    return blocks;
}

// Registers on list 1 until entry `last` is taken, each handle taking the next entry.
void RegisterUpTo(u32 last, std::vector<u32> *handles) {
    for (u32 entry = (handles->back() & 0xFFFFu) + 1; entry <= last; ++entry) {
        u32 h = 0;
        ASSERT_EQ(RUK_WaitListRegister(1, &h, Proc), 0u);
        EXPECT_EQ(h & 0xFFFFu, entry);
        handles->push_back(h);
    }
}

TEST(WaitListIndexTest, TableStartsAt20DoublesAndRefusesWhenItCannotGrow) {
    const u64 blocks0 = Blocks();
    const u32 t0 = static_cast<u32>(std::time(nullptr));
    std::vector<u32> h(1, 0);
    ASSERT_EQ(RUK_WaitListRegister(1, &h[0], Proc), 0u);
    const u32 t1 = static_cast<u32>(std::time(nullptr)), tag = h[0] >> 16;
    EXPECT_EQ(h[0] & 0xFFFFu, 1u) << "the first registration takes entry 1";
    EXPECT_TRUE(tag == (t0 & 0xFFFFu) || tag == (t1 & 0xFFFFu)) << "tag " << tag << " is not the clock's seconds";
    const u64 blocks1 = Blocks();
    EXPECT_EQ(blocks1, blocks0 + 3); // the table, the list's main node, the registration

    // Entries 1..19 taken: the 20th registration grows the table to 40, in place.
    RegisterUpTo(20, &h);
    EXPECT_EQ(Blocks(), blocks1 + 19);

    // A freed entry is taken again before the table's fresh ones.
    ASSERT_EQ(RUK_WaitListUnregister(h[2]), 0u);
    u32 again = 0;
    ASSERT_EQ(RUK_WaitListRegister(2, &again, Proc), 0u);
    EXPECT_EQ(again & 0xFFFFu, 3u);
    u64 v = 0;
    // Re-registered within the same second, a seconds tag cannot tell the handles apart.
    EXPECT_EQ(RUK_WaitListGet(h[2], &v), again == h[2] ? 0u : WAITLIST_ERR_HANDLE);
    h[2] = again;

    // Entries up to 39 taken; the next one needs a table of 80, which the allocator refuses.
    RegisterUpTo(39, &h);
    u64 bytes3 = 0, bytes4 = 0;
    const u64 blocks3 = Blocks(&bytes3);
    ASSERT_EQ(PLAT_FaultInject("RUK_MemReAlloc_F", 0, 1), 0u);
    u32 refused = 0x77;
    EXPECT_EQ(RUK_WaitListRegister(9, &refused, Proc), WAITLIST_ERR_FAILED);
    EXPECT_EQ(refused, 0u);
    EXPECT_TRUE(Blocks(&bytes4) == blocks3 && bytes4 == bytes3) << "the refused registration and its list stay";
    EXPECT_EQ(RUK_WaitListDelFromList(9, 0), WAITLIST_ERR_NOT_FOUND);
    PLAT_FaultClear();

    RegisterUpTo(40, &h);
    for (u32 x : h)
        EXPECT_EQ(RUK_WaitListUnregister(x), 0u);
    EXPECT_EQ(Blocks(), blocks0 + 1) << "only the index table stays";
}

} // namespace
