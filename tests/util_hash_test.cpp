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
s32 CmpKey(const void *k, DllNode *n) {
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

// Releases the table, expecting the nodes in `order`.
void ExpectReleased(HashTable *t, const std::vector<int> &order) {
    g_serials.clear();
    EXPECT_EQ(HASH_Delete_Table(t, ReleaseElem), 0u);
    EXPECT_EQ(g_serials, order);
}

class HashTest : public zol::test::LeakCheckedTest {};

TEST_F(HashTest, EmptyTablesAndCreationWithoutMemory) {
    HashTable *empty = HASH_Create_Table(0, nullptr); // a table without buckets
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(Walk(empty).empty());
    ExpectReleased(empty, {});
    ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", 0, 1), 0u);
    EXPECT_EQ(HASH_Create_Table(16, nullptr), nullptr);
    EXPECT_EQ(HASH_Create_Table(0xFFFFFFFFu, nullptr), nullptr); // larger than any allocation
}

// Random adds, deletes and finds checked against per-bucket vectors after every step, for each kind of
// bucket order: appended, ascending (equal keys stable), right after the first equal key. The release at
// the end goes in walk order.
TEST_F(HashTest, RandomSequencesMatchModel) {
    constexpr u32 kBuckets = 8;
    constexpr int kElems = 96;
    for (HASH_ORDER_PF order : {HASH_ORDER_PF{}, HASH_ORDER_PF{OrderAscending}, HASH_ORDER_PF{OrderAfterEqual}}) {
        HashTable *t = HASH_Create_Table(kBuckets, order);
        ASSERT_NE(t, nullptr);
        std::vector<Elem> e(kElems);
        std::vector<std::vector<int>> model(kBuckets); // serials in bucket order
        std::mt19937 rng(77001u);
        for (int i = 0; i < kElems; ++i)
            e[i] = Elem{{nullptr, nullptr}, static_cast<int>(rng() % 20), i};
        std::vector<int> all;
        for (int step = 0; step < 3000 && !HasFailure(); ++step) {
            Elem &x = e[rng() % kElems];
            const u32 b = static_cast<u32>(x.key) % kBuckets;
            auto &m = model[b];
            auto it = std::find(m.begin(), m.end(), x.serial);
            auto firstEqual = std::find_if(m.begin(), m.end(), [&](int s) { return e[s].key == x.key; });
            switch (rng() % 3) {
            case 0:
                if (it == m.end()) {
                    HASH_Add_Node(t, &x.node, b, &x.key);
                    if (order == OrderAscending) {
                        m.insert(std::find_if(m.begin(), m.end(), [&](int s) { return e[s].key > x.key; }), x.serial);
                    } else {
                        m.insert(order == nullptr || firstEqual == m.end() ? m.end() : firstEqual + 1, x.serial);
                    }
                }
                break;
            case 1:
                HASH_Delete_Node(t, &x.node, b);
                if (it != m.end())
                    m.erase(it);
                break;
            default:
                EXPECT_EQ(HASH_Find_Node(t, b, &x.key, CmpKey), firstEqual == m.end() ? nullptr : &e[*firstEqual].node);
            }
            all.clear();
            for (u32 i = 0; i < kBuckets; ++i) {
                EXPECT_EQ(t->buckets[i].count, model[i].size());
                all.insert(all.end(), model[i].begin(), model[i].end());
            }
            EXPECT_EQ(Walk(t), all) << "step " << step;
        }
        ExpectReleased(t, all);
    }
}

} // namespace
