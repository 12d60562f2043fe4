// Tests of the exported intrusive lists: edge cases, and the list invariants after long random sequences of inserts,
// deletes and look-ups checked against a std::list model.
#include <algorithm>
#include <cstddef>
#include <gtest/gtest.h>
#include <list>
#include <random>
#include <vector>

#include "zol_app.h"
#include "zol_patch.h"
#include "zol_util.h"
#include "zol_waitlist.h"

extern "C" size_t ZolCHeadersLayout(size_t *pulValues, size_t ulMax);

namespace {

struct SllElem {
    SllNode node; // first member: the node pointer is the element pointer
    int key;
};
struct DllElem {
    DllNode node;
    int key;
};

SllNode *SllSentinel(SllHead *h) {
    return reinterpret_cast<SllNode *>(h);
}
DllNode *DllSentinel(DllHead *h) {
    return reinterpret_cast<DllNode *>(h);
}
void InitHead(SllHead *h) {
    *h = SllHead{SllSentinel(h), 0, SllSentinel(h), 0};
}
void InitHead(DllHead *h) {
    *h = DllHead{DllSentinel(h), DllSentinel(h), 0, 0};
}

int KeyOf(SllNode *n) {
    return reinterpret_cast<SllElem *>(n)->key;
}
int KeyOf(DllNode *n) {
    return reinterpret_cast<DllElem *>(n)->key;
}

template <typename Node>
s32 Cmp(const void *k, Node *n) {
    return KeyOf(n) == *static_cast<const int *>(k) ? 0 : 1;
}

std::vector<int> g_seen; // keys in the order a callback saw them
u32 RecordSll(SllNode *n) {
    g_seen.push_back(KeyOf(n));
    return 7;
}
// Release callbacks poison the element, as a real release would make it unusable.
u32 PoisonSll(SllNode *n) {
    g_seen.push_back(KeyOf(n));
    n->next = reinterpret_cast<SllNode *>(0x1);
    return 0;
}
u32 PoisonDll(DllNode *n) {
    g_seen.push_back(KeyOf(n));
    n->next = n->prev = reinterpret_cast<DllNode *>(0x1);
    return 0;
}

// Walks the list by hand and checks it against the model: order, count, `last`, circularity.
void ExpectSll(SllHead *h, const std::list<int> &model) {
    std::vector<int> keys;
    SllNode *prev = SllSentinel(h);
    for (SllNode *n = h->first; n != SllSentinel(h) && keys.size() <= model.size(); n = n->next) {
        ASSERT_NE(n, nullptr);
        keys.push_back(KeyOf(n));
        prev = n;
    }
    EXPECT_EQ(keys, std::vector<int>(model.begin(), model.end()));
    EXPECT_EQ(h->count, model.size());
    EXPECT_EQ(h->last, prev);
}

void ExpectDll(DllHead *h, const std::list<int> &model) {
    std::vector<int> fwd, back;
    DllNode *prev = DllSentinel(h);
    for (DllNode *n = h->first; n != DllSentinel(h) && fwd.size() <= model.size(); n = n->next) {
        ASSERT_NE(n, nullptr);
        EXPECT_EQ(n->prev, prev);
        fwd.push_back(KeyOf(n));
        prev = n;
    }
    EXPECT_EQ(h->last, prev);
    for (DllNode *n = h->last; n != DllSentinel(h) && back.size() <= model.size(); n = n->prev) {
        back.insert(back.begin(), KeyOf(n));
    }
    EXPECT_EQ(fwd, std::vector<int>(model.begin(), model.end()));
    EXPECT_EQ(back, fwd);
    EXPECT_EQ(h->count, model.size());
}

// What the random model below does not reach: empty lists, the walk, nodes that are not members, and
// release callbacks that poison each node (the successor must be read first).
TEST(ListTest, EdgeCasesTheModelDoesNotReach) {
    SllHead sh;
    DllHead dh;
    InitHead(&sh);
    InitHead(&dh);
    SllElem s[3] = {{{nullptr}, 0}, {{nullptr}, 1}, {{nullptr}, 2}};
    DllElem d[3] = {{{nullptr, nullptr}, 0}, {{nullptr, nullptr}, 1}, {{nullptr, nullptr}, 2}};
    g_seen.clear();
    EXPECT_EQ(SLL_Walk(&sh, RecordSll), 0u);
    EXPECT_EQ(SLL_Previous(&sh, nullptr), nullptr);
    EXPECT_EQ(DLL_Get(&dh), nullptr);
    for (int i = 0; i < 2; ++i) {
        SLL_Insert(&sh, i ? sh.last : nullptr, &s[i].node);
        DLL_Insert(&dh, i ? dh.last : nullptr, &d[i].node);
    }
    EXPECT_EQ(SLL_Previous(&sh, nullptr), &s[1].node); // null asks for the last
    EXPECT_EQ(SLL_Previous(&sh, &s[2].node), nullptr);
    EXPECT_EQ(SLL_Walk(&sh, RecordSll), 2u); // nodes visited, whatever the callbacks return
    EXPECT_EQ(g_seen, (std::vector<int>{0, 1}));

    DllNode fake = {&d[1].node, &d[0].node}; // neighbours do not point back at it
    DLL_Delete(&dh, &fake);
    DLL_Delete(&dh, &d[0].node);
    EXPECT_EQ(d[0].node.next, nullptr);
    EXPECT_EQ(d[0].node.prev, nullptr);
    DLL_Delete(&dh, &d[0].node); // a second delete is ignored
    ExpectDll(&dh, {1});

    g_seen.clear();
    SLL_FreeAll(&sh, PoisonSll);
    DLL_FreeAll(nullptr, PoisonDll);
    DLL_FreeAll(&dh, PoisonDll);
    EXPECT_EQ(g_seen, (std::vector<int>{0, 1, 1}));
    ExpectSll(&sh, {});
    ExpectDll(&dh, {});
}

// Random mix of operations on both lists, checked against std::list after every step.
TEST(ListModelTest, RandomSequencesKeepInvariants) {
    constexpr int kElems = 48;
    std::vector<SllElem> se(kElems);
    std::vector<DllElem> de(kElems);
    for (int i = 0; i < kElems; ++i) {
        se[i] = SllElem{{nullptr}, i};
        de[i] = DllElem{{nullptr, nullptr}, i};
    }
    SllHead sh;
    DllHead dh;
    InitHead(&sh);
    InitHead(&dh);
    std::list<int> model;
    std::mt19937 rng(20240611u);
    for (int step = 0; step < 4000; ++step) {
        const int k = static_cast<int>(rng() % kElems);
        const bool linked = se[k].node.next != nullptr;
        switch (rng() % 5) {
        case 0: // insert after a random member (or at the front)
            if (!linked) {
                auto it = model.begin();
                const bool front = model.empty() || rng() % 4 == 0;
                if (!front) {
                    std::advance(it, rng() % model.size());
                }
                SLL_Insert(&sh, front ? nullptr : &se[*it].node, &se[k].node);
                DLL_Insert(&dh, front ? nullptr : &de[*it].node, &de[k].node);
                model.insert(front ? model.begin() : std::next(it), k);
            }
            break;
        case 1: // delete, linked or not
            SLL_Delete(&sh, &se[k].node);
            DLL_Delete(&dh, &de[k].node);
            model.remove(k);
            break;
        case 2: { // get the first
            SllNode *s = SLL_Get(&sh);
            DllNode *d = DLL_Get(&dh);
            if (model.empty()) {
                EXPECT_EQ(s, nullptr);
                EXPECT_EQ(d, nullptr);
            } else {
                EXPECT_EQ(KeyOf(s), model.front());
                EXPECT_EQ(KeyOf(d), model.front());
                model.pop_front();
            }
            break;
        }
        case 3: { // find and previous
            const bool inModel = std::find(model.begin(), model.end(), k) != model.end();
            SllNode *s = SLL_Find(&sh, &k, Cmp<SllNode>);
            DllNode *d = DLL_Find(&dh, &k, Cmp<DllNode>);
            EXPECT_EQ(s, inModel ? &se[k].node : nullptr);
            EXPECT_EQ(d, inModel ? &de[k].node : nullptr);
            SllNode *p = SLL_Previous(&sh, &se[k].node);
            auto it = std::find(model.begin(), model.end(), k);
            EXPECT_EQ(p, (!inModel || it == model.begin()) ? nullptr : &se[*std::prev(it)].node);
            break;
        }
        default: // insert in the middle by hand-picked neighbours: at the end
            if (!linked) {
                SLL_Insert_In_Middle(&sh, model.empty() ? SllSentinel(&sh) : sh.last, &se[k].node, SllSentinel(&sh));
                DLL_Insert_In_Middle(&dh, dh.last, &de[k].node, DllSentinel(&dh));
                model.push_back(k);
            }
            break;
        }
        ExpectSll(&sh, model);
        ExpectDll(&dh, model);
        if (HasFailure()) {
            FAIL() << "diverged at step " << step;
        }
    }
}

// The C view of the headers (compiled as C in a companion file) agrees with the C++ view.
TEST(UtilHeadersTest, CAndCxxAgreeOnLayouts) {
    size_t c[16] = {};
    ASSERT_EQ(ZolCHeadersLayout(c, 16), 8u);
    EXPECT_EQ(c[0], sizeof(SllHead));
    EXPECT_EQ(c[1], offsetof(SllHead, count));
    EXPECT_EQ(c[2], offsetof(DllHead, reserved));
    EXPECT_EQ(c[3], offsetof(HashTable, buckets));
    EXPECT_EQ(c[4], sizeof(DllHead));
    EXPECT_EQ(c[5], sizeof(SYS_AppInfo));
    EXPECT_EQ(c[6], offsetof(SYS_AppInfo, ulTaskId));
    EXPECT_EQ(c[7], sizeof(g_zolCommPatchRsv2));
    if (sizeof(void *) == 8) { // the 64-bit layouts other programs are built against
        EXPECT_EQ(sizeof(SllHead), 32u);
        EXPECT_EQ(sizeof(SYS_AppInfo), 104u);
        EXPECT_EQ(offsetof(SYS_AppInfo, pfnInit), 88u);
    }
}

} // namespace
