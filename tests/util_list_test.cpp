// The exported intrusive lists: edge cases, and the invariants after long random sequences of inserts,
// deletes and look-ups checked against a std::list model.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <list>
#include <random>
#include <type_traits>
#include <vector>

#include "zol_util.h"

namespace {

// The node is the first member, so the node pointer is the element pointer.
template <typename Node>
struct Elem {
    Node node;
    int key;
};

// The head doubles as the sentinel node that closes the circle.
template <typename Head>
auto Sentinel(Head *h) {
    return reinterpret_cast<decltype(h->first)>(h);
}
template <typename Head>
void InitHead(Head *h) {
    *h = Head{};
    h->first = h->last = Sentinel(h);
}
template <typename Node>
int KeyOf(Node *n) {
    return reinterpret_cast<Elem<Node> *>(n)->key;
}
template <typename Node>
s32 Cmp(const void *k, Node *n) {
    return KeyOf(n) == *static_cast<const int *>(k) ? 0 : 1;
}

std::vector<int> g_seen; // keys in the order a callback saw them
u32 RecordSll(SllNode *n) {
    g_seen.push_back(KeyOf(n));
    return 7; // the walk counts nodes whatever the callbacks return
}
// Release callbacks poison the element, as a real release would make it unusable: the successor must be
// read first.
template <typename Node>
u32 Poison(Node *n) {
    g_seen.push_back(KeyOf(n));
    std::memset(static_cast<void *>(n), 0x1, sizeof *n);
    return 0;
}

// Walks the list by hand: order, count, `last`, circularity, and the back links of a doubly linked list.
template <typename Head>
void ExpectList(Head *h, const std::list<int> &model) {
    using Node = std::remove_pointer_t<decltype(h->first)>;
    std::vector<int> keys;
    Node *prev = Sentinel(h);
    for (Node *n = h->first; n != Sentinel(h) && keys.size() <= model.size(); prev = n, n = n->next) {
        ASSERT_NE(n, nullptr);
        if constexpr (std::is_same_v<Node, DllNode>) {
            EXPECT_EQ(n->prev, prev);
        }
        keys.push_back(KeyOf(n));
    }
    EXPECT_EQ(keys, std::vector<int>(model.begin(), model.end()));
    EXPECT_EQ(h->count, model.size());
    EXPECT_EQ(h->last, prev);
}

// A node whose neighbours do not point back at it is not a member; deleting it changes nothing.
TEST(ListTest, DeletingANonMemberIsIgnored) {
    DllHead dh;
    InitHead(&dh);
    Elem<DllNode> d[2] = {{{}, 0}, {{}, 1}};
    DLL_Insert(&dh, nullptr, &d[0].node);
    DLL_Insert(&dh, dh.last, &d[1].node);
    DllNode fake = {&d[1].node, &d[0].node};
    DLL_Delete(&dh, &fake);
    ExpectList(&dh, {0, 1});
}

TEST(ListModelTest, RandomSequencesKeepInvariants) {
    constexpr int kElems = 48;
    std::vector<Elem<SllNode>> se(kElems);
    std::vector<Elem<DllNode>> de(kElems);
    for (int i = 0; i < kElems; ++i)
        se[i].key = de[i].key = i;
    SllHead sh;
    DllHead dh;
    InitHead(&sh);
    InitHead(&dh);
    std::list<int> model;
    std::mt19937 rng(20240611u);
    for (int step = 0; step < 4000 && !HasFailure(); ++step) {
        SCOPED_TRACE(step);
        const int k = static_cast<int>(rng() % kElems);
        const bool linked = se[k].node.next != nullptr;
        const auto it = std::find(model.begin(), model.end(), k);
        switch (rng() % 5) {
        case 0: // insert after a random member (or at the front)
            if (!linked) {
                const bool front = model.empty() || rng() % 4 == 0;
                auto after = std::next(model.begin(), front ? 0 : rng() % model.size());
                SLL_Insert(&sh, front ? nullptr : &se[*after].node, &se[k].node);
                DLL_Insert(&dh, front ? nullptr : &de[*after].node, &de[k].node);
                model.insert(front ? model.begin() : std::next(after), k);
            }
            break;
        case 1: // delete, linked or not
            SLL_Delete(&sh, &se[k].node);
            DLL_Delete(&dh, &de[k].node);
            model.remove(k);
            break;
        case 2: // get the first
            EXPECT_EQ(SLL_Get(&sh), model.empty() ? nullptr : &se[model.front()].node);
            EXPECT_EQ(DLL_Get(&dh), model.empty() ? nullptr : &de[model.front()].node);
            if (!model.empty())
                model.pop_front();
            break;
        case 3: // find, previous (null asks for the last) and the walk
            g_seen.clear();
            EXPECT_EQ(SLL_Walk(&sh, RecordSll), model.size());
            EXPECT_EQ(g_seen, std::vector<int>(model.begin(), model.end()));
            EXPECT_EQ(SLL_Previous(&sh, nullptr), model.empty() ? nullptr : &se[model.back()].node);
            EXPECT_EQ(SLL_Find(&sh, &k, Cmp<SllNode>), it != model.end() ? &se[k].node : nullptr);
            EXPECT_EQ(DLL_Find(&dh, &k, Cmp<DllNode>), it != model.end() ? &de[k].node : nullptr);
            EXPECT_EQ(SLL_Previous(&sh, &se[k].node),
                      (it == model.end() || it == model.begin()) ? nullptr : &se[*std::prev(it)].node);
            break;
        default: // insert in the middle by hand-picked neighbours: at the end
            if (!linked) {
                SLL_Insert_In_Middle(&sh, model.empty() ? Sentinel(&sh) : sh.last, &se[k].node, Sentinel(&sh));
                DLL_Insert_In_Middle(&dh, dh.last, &de[k].node, Sentinel(&dh));
                model.push_back(k);
            }
            break;
        }
        ExpectList(&sh, model);
        ExpectList(&dh, model);
    }
    g_seen.clear();
    SLL_FreeAll(&sh, Poison<SllNode>);
    DLL_FreeAll(nullptr, Poison<DllNode>);
    DLL_FreeAll(&dh, Poison<DllNode>);
    std::vector<int> twice(model.begin(), model.end());
    twice.insert(twice.end(), model.begin(), model.end());
    EXPECT_EQ(g_seen, twice);
    ExpectList(&sh, {});
    ExpectList(&dh, {});
}

} // namespace
