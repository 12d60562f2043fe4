// The exported hash table: bucket order with and without an order callback, look-up, removal, the walk
// and the release of the whole table, and random sequences checked against a model.
#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "zol_util.h"

#include "standin_ctl.h"

#include "leak_check.h"

namespace {

struct Elem {
    DllNode node; // first member
    int key;
    int serial; // distinguishes equal keys
};

Elem *E(DllNode *n) {
    return reinterpret_cast<Elem *>(n);
}

int g_cmpCalls = 0;
s32 CmpKey(const void *k, DllNode *n) {
    ++g_cmpCalls;
    return E(n)->key == *static_cast<const int *>(k) ? 0 : 1;
}
// Keeps a bucket ascending, equal keys in insertion order.
u32 OrderAscending(DllNode *existing, const void *k) {
    return E(existing)->key > *static_cast<const int *>(k) ? 1 : 0;
}
// A new node goes right after the first node with an equal key.
u32 OrderAfterEqual(DllNode *existing, const void *k) {
    return E(existing)->key == *static_cast<const int *>(k) ? 2 : 0;
}

std::vector<int> g_serials;
u32 RecordSerial(DllNode *n) {
    g_serials.push_back(E(n)->serial);
    return 1;
}
u32 ReleaseElem(DllNode *n) {
    g_serials.push_back(E(n)->serial);
    n->next = n->prev = nullptr; // the element is the caller's; the table must not touch it afterwards
    return 0;
}

std::vector<int> Walk(HashTable *t) {
    g_serials.clear();
    HASH_Walk_Table(t, RecordSerial);
    return g_serials;
}

class HashTest : public zol::test::LeakCheckedTest {};

TEST_F(HashTest, BucketOrderEmptyTablesAndCreationWithoutMemory) {
    struct Case {
        HASH_ORDER_PF order;
        std::vector<int> serials; // walk and release order
    } cases[] = {
        {nullptr, {0, 1, 2, 3, 4}},         // appended
        {OrderAscending, {1, 4, 3, 0, 2}},  // 1 1 3 5 5, equal keys stable
        {OrderAfterEqual, {0, 2, 1, 4, 3}}, // right after the first equal key
    };
    for (const Case &c : cases) {
        std::vector<Elem> e = {{{}, 5, 0}, {{}, 1, 1}, {{}, 5, 2}, {{}, 3, 3}, {{}, 1, 4}};
        HashTable *t = HASH_Create_Table(4, c.order);
        ASSERT_NE(t, nullptr);
        for (Elem &x : e)
            HASH_Add_Node(t, &x.node, 1, &x.key);
        EXPECT_EQ(t->buckets[1].count, 5u);
        EXPECT_EQ(Walk(t), c.serials);
        g_serials.clear();
        EXPECT_EQ(HASH_Delete_Table(t, ReleaseElem), 0u);
        EXPECT_EQ(g_serials, c.serials);
    }

    // Empty tables, and creation without memory.
    HashTable *t = HASH_Create_Table(3, nullptr);
    ASSERT_NE(t, nullptr);
    int key = 7;
    g_cmpCalls = 0;
    EXPECT_EQ(HASH_Find_Node(t, 0, &key, CmpKey), nullptr);
    EXPECT_EQ(g_cmpCalls, 0) << "an empty bucket must not call the compare callback";
    EXPECT_EQ(HASH_Delete_Table(t, ReleaseElem), 0u);
    HashTable *empty = HASH_Create_Table(0, nullptr); // a table without buckets
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(Walk(empty).empty());
    EXPECT_EQ(HASH_Delete_Table(empty, ReleaseElem), 0u);

    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 0, 1), 0u);
    EXPECT_EQ(HASH_Create_Table(16, nullptr), nullptr);
    EXPECT_EQ(HASH_Create_Table(0xFFFFFFFFu, nullptr), nullptr); // larger than any allocation
}

// Random adds, deletes and finds over sorted buckets, checked against per-bucket vectors.
TEST_F(HashTest, RandomSequencesMatchModel) {
    constexpr u32 kBuckets = 8;
    constexpr int kElems = 96;
    HashTable *t = HASH_Create_Table(kBuckets, OrderAscending);
    ASSERT_NE(t, nullptr);
    std::vector<Elem> e(kElems);
    std::vector<std::vector<int>> model(kBuckets); // serials in bucket order
    std::mt19937 rng(77001u);
    for (int i = 0; i < kElems; ++i)
        e[i] = Elem{{nullptr, nullptr}, static_cast<int>(rng() % 20), i};
    auto bucketOf = [](int k) { return static_cast<u32>(k) % kBuckets; };
    for (int step = 0; step < 3000; ++step) {
        Elem &x = e[rng() % kElems];
        const u32 b = bucketOf(x.key);
        auto &m = model[b];
        auto it = std::find(m.begin(), m.end(), x.serial);
        switch (rng() % 3) {
        case 0:
            if (it == m.end()) {
                HASH_Add_Node(t, &x.node, b, &x.key);
                auto pos = std::find_if(m.begin(), m.end(), [&](int s) { return e[s].key > x.key; });
                m.insert(pos, x.serial);
            }
            break;
        case 1:
            HASH_Delete_Node(t, &x.node, b);
            if (it != m.end()) {
                m.erase(it);
            }
            break;
        default: {
            DllNode *found = HASH_Find_Node(t, b, &x.key, CmpKey);
            auto first = std::find_if(m.begin(), m.end(), [&](int s) { return e[s].key == x.key; });
            EXPECT_EQ(found, first == m.end() ? nullptr : &e[*first].node);
            break;
        }
        }
        std::vector<int> all;
        for (u32 i = 0; i < kBuckets; ++i) {
            ASSERT_EQ(t->buckets[i].count, model[i].size());
            all.insert(all.end(), model[i].begin(), model[i].end());
        }
        ASSERT_EQ(Walk(t), all) << "step " << step;
    }
    EXPECT_EQ(HASH_Delete_Table(t, ReleaseElem), 0u);
}

} // namespace
