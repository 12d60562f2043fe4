// The hot-patch hooks: the leading no-operation instructions of every patchable function as loaded from
// libzol_comm.so, the reserve areas' sizes, and the synchronisation hook's cases.
#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>
#include <set>
#include <string>
#include <vector>

#include "zol_patch.h"

namespace {

// The function's real code in the loaded library (not a PLT stub of this program).
const uint8_t *CodeOf(const char *name) {
    void *lib = dlopen("libzol_comm.so", RTLD_NOW | RTLD_NOLOAD);
    if (lib == nullptr) {
        return nullptr;
    }
    void *sym = dlsym(lib, name);
    dlclose(lib);
    return static_cast<const uint8_t *>(sym);
}

// Four no-operation instructions, and the branch-target marker that may come before them (on AArch64 the
// little-endian words of "bti c" and "nop").
#if defined(__x86_64__)
const std::vector<uint8_t> kMarker{0xF3, 0x0F, 0x1E, 0xFA}, kNops(4, 0x90);
#elif defined(__aarch64__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
const std::vector<uint8_t> kMarker{0x5F, 0x24, 0x03, 0xD5},
    kNops{0x1F, 0x20, 0x03, 0xD5, 0x1F, 0x20, 0x03, 0xD5, 0x1F, 0x20, 0x03, 0xD5, 0x1F, 0x20, 0x03, 0xD5};
#else
const std::vector<uint8_t> kMarker, kNops;
#endif

bool StartsWithFourNops(const uint8_t *code) {
    code += std::equal(kMarker.begin(), kMarker.end(), code) ? kMarker.size() : 0;
    return std::equal(kNops.begin(), kNops.end(), code);
}

// The reserve slots, the two patch functions, and the reserve areas with their sizes, all zero.
TEST(PatchTest, PatchableFunctionsStartWithFourNopsAndReserveAreasHaveTheirSizes) {
    std::vector<std::string> names = {"libzol_comm_ResPatchC2hActivefunc", "libzol_comm_ResPatchC2hDeactivefunc"};
    for (int i = 1; i <= 10; ++i)
        names.push_back("ZolCommPatchRsv" + std::to_string(i));
    std::set<const uint8_t *> distinct; // a merged slot would leave a patch no room of its own
    for (const std::string &name : names) {
        const uint8_t *code = CodeOf(name.c_str());
        ASSERT_NE(code, nullptr) << name << " not exported by the loaded libzol_comm.so";
        EXPECT_TRUE(StartsWithFourNops(code)) << name;
        distinct.insert(code);
    }
    EXPECT_EQ(distinct.size(), names.size());

    for (auto [name, size] : {std::pair{"g_zolCommPatchRsv1", 80u}, std::pair{"g_zolCommPatchRsv2", 160u}}) {
        const uint8_t *area = CodeOf(name);
        ASSERT_NE(area, nullptr) << name;
        Dl_info info;
        void *entry = nullptr;
        ASSERT_NE(dladdr1(area, &info, &entry, RTLD_DL_SYMENT), 0);
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(static_cast<const ElfW(Sym) *>(entry)->st_size, size) << name;
        EXPECT_EQ(std::vector<uint8_t>(area, area + size), std::vector<uint8_t>(size, 0)) << name;
    }
}

// A patch information record naming a library at the agreed offset.
std::vector<char> InfoFor(const char *lib) {
    std::vector<char> info(ZOL_PATCH_INFO_LIB_NAME_OFFSET + 64, 'x');
    std::strcpy(info.data() + ZOL_PATCH_INFO_LIB_NAME_OFFSET, lib);
    return info;
}

TEST(PatchTest, SyncHookActsOnlyForThisLibrary) {
    g_libzolCommPatLoadAndDelFlag = 0;
    u32 handled = 7;
    // Library name, operation, and the result, handled mark and flag after the call. Other libraries,
    // including names that merely start like ours, are left alone.
    const struct {
        const char *lib;
        s32 oper;
        u32 rc, handled, flag;
    } cases[] = {{"libother.so", ZOL_PATCH_OPER_ACTIVATE, 0, 0, 0},
                 {"libzol_comm.so.1", 0, 0, 0, 0},
                 {"libzol_comm.s", 0, 0, 0, 0},
                 {"", 0, 0, 0, 0},
                 {"libzol_comm.so", ZOL_PATCH_OPER_ACTIVATE, 0, 1, 1},
                 {"libzol_comm.so", ZOL_PATCH_OPER_DEACTIVATE, 0, 1, 2},
                 {"libzol_comm.so", 5, 1, 1, 3}};
    for (const auto &c : cases) {
        handled = 7;
        EXPECT_EQ(libzol_comm_PAT_C2HSyncHookFunc(c.oper, 0, InfoFor(c.lib).data(), &handled), c.rc) << c.lib;
        EXPECT_EQ(handled, c.handled) << c.lib << " " << c.oper;
        EXPECT_EQ(g_libzolCommPatLoadAndDelFlag, c.flag) << c.lib << " " << c.oper;
    }
    const std::vector<char> ours = InfoFor("libzol_comm.so");
    // Missing record or result pointer: nothing for this library / nothing written.
    EXPECT_EQ(libzol_comm_PAT_C2HSyncHookFunc(0, 0, nullptr, &handled), 0u);
    EXPECT_EQ(handled, 0u);
    EXPECT_EQ(libzol_comm_PAT_C2HSyncHookFunc(0, 0, ours.data(), nullptr), 0u);
    EXPECT_EQ(g_libzolCommPatLoadAndDelFlag, 1u);
}

} // namespace
