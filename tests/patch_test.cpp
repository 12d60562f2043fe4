// The hot-patch hooks: the leading no-operation instructions of every patchable function as loaded from
// libzol_comm.so, the reserve areas' sizes, and the synchronisation hook's cases.
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

// True when the code starts with four no-operation instructions, after a branch-target marker if any.
::testing::AssertionResult StartsWithFourNops(const uint8_t *code) {
#if defined(__x86_64__)
    static const uint8_t endbr64[4] = {0xF3, 0x0F, 0x1E, 0xFA};
    if (std::memcmp(code, endbr64, 4) == 0) {
        code += 4;
    }
    for (int i = 0; i < 4; ++i) {
        if (code[i] != 0x90) {
            return ::testing::AssertionFailure() << "byte " << i << " is 0x" << std::hex << int{code[i]};
        }
    }
#elif defined(__aarch64__)
    auto Word = [](const uint8_t *p) {
        uint32_t w;
        std::memcpy(&w, p, sizeof w);
        return w;
    };
    if (Word(code) == 0xD503245Fu) { // bti c
        code += 4;
    }
    for (int i = 0; i < 4; ++i) {
        if (Word(code + 4 * i) != 0xD503201Fu) {
            return ::testing::AssertionFailure() << "instruction " << i << " is 0x" << std::hex << Word(code + 4 * i);
        }
    }
#else
    (void)code;
#endif
    return ::testing::AssertionSuccess();
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
    EXPECT_EQ(sizeof g_zolCommPatchRsv1, 80u);
    EXPECT_EQ(sizeof g_zolCommPatchRsv2, 160u);
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
    // Another library, including a name that merely starts like ours.
    for (const char *other : {"libother.so", "libzol_comm.so.1", "libzol_comm.s", ""}) {
        handled = 7;
        EXPECT_EQ(libzol_comm_PAT_C2HSyncHookFunc(0, 0, InfoFor(other).data(), &handled), 0u) << other;
        EXPECT_EQ(handled, 0u) << other;
        EXPECT_EQ(g_libzolCommPatLoadAndDelFlag, 0u) << other;
    }
    const std::vector<char> ours = InfoFor("libzol_comm.so");
    const struct {
        s32 oper;
        u32 rc, flag;
    } cases[] = {{ZOL_PATCH_OPER_ACTIVATE, 0, 1}, {ZOL_PATCH_OPER_DEACTIVATE, 0, 2}, {5, 1, 3}};
    for (const auto &c : cases) {
        handled = 0;
        EXPECT_EQ(libzol_comm_PAT_C2HSyncHookFunc(c.oper, 0, ours.data(), &handled), c.rc) << c.oper;
        EXPECT_EQ(handled, 1u) << c.oper;
        EXPECT_EQ(g_libzolCommPatLoadAndDelFlag, c.flag) << c.oper;
    }
    // Missing record or result pointer: nothing for this library / nothing written.
    EXPECT_EQ(libzol_comm_PAT_C2HSyncHookFunc(0, 0, nullptr, &handled), 0u);
    EXPECT_EQ(handled, 0u);
    EXPECT_EQ(libzol_comm_PAT_C2HSyncHookFunc(0, 0, ours.data(), nullptr), 0u);
    EXPECT_EQ(g_libzolCommPatLoadAndDelFlag, 1u);
}

} // namespace
