// Text, process, call-stack and symbol utilities of the foundation, through the exported API.
#include <cstring>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "zol_foundation.h"

#include "standin_ctl.h"

#include "imagent_reader.h"
#include "leak_check.h"

namespace zol::test {
namespace {

class UtilTest : public LeakCheckedTest {
  protected:
    void ExpectOneRecord(const char *tag, u32 logId, const char *message, const std::string &formatted) {
        std::vector<ImRecord> records = agent_.WithTag(tag);
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(records[0].logId, logId);
        EXPECT_EQ(records[0].Text(5), message);
        EXPECT_EQ(records[0].Formatted(), formatted);
    }
    ImAgentCapture agent_;
};

TEST_F(UtilTest, FormatToBuffAppendsAndRefusesWhatDoesNotFit) {
    char buf[16];
    ZOL_FormatToBuff(buf, sizeof(buf), nullptr, __LINE__, "ab%d", 1);
    ZOL_FormatToBuff(buf, sizeof(buf), nullptr, __LINE__, "cd");
    EXPECT_STREQ(buf, "cd") << "without a used length every text lands at the start";

    u32 used = 0;
    ZOL_FormatToBuff(buf, sizeof(buf), &used, __LINE__, "%s-%u", "abc", 42u);
    ZOL_FormatToBuff(buf, sizeof(buf), &used, __LINE__, "|%x", 0xffu);
    EXPECT_EQ(used, 9u);
    EXPECT_STREQ(buf, "abc-42|ff");
    const int failLine = __LINE__ + 1;
    ZOL_FormatToBuff(buf, sizeof(buf), &used, failLine, "%s", "1234567");
    EXPECT_EQ(used, 9u) << "a refused append leaves the used length";
    ZOL_FormatToBuff(buf, sizeof(buf), &used, __LINE__, "%s", "123456");
    EXPECT_EQ(used, 15u);
    EXPECT_STREQ(buf, "abc-42|ff123456") << "the shorter text lands at the old end";

    ExpectOneRecord("ZOL_FTB", 0x0EA71028u, "Format to buf fail", "lineNo:" + std::to_string(failLine));
}

TEST_F(UtilTest, ProcessNameComesFromProcWithoutItsLineFeed) {
    std::string comm;
    std::getline(std::ifstream("/proc/self/comm"), comm);
    char name[64];
    ZOL_GetProcNameById(static_cast<u32>(getpid()), name, sizeof(name));
    EXPECT_EQ(std::string(name), comm);
    ZOL_GetProcNameById(static_cast<u32>(getpid()), name, 4);
    EXPECT_EQ(std::string(name), comm.substr(0, 3)) << "cut to the buffer";
    for (u32 pid : {4194305u, 4000000000u}) { // above the kernel's largest process id; a path that cannot fit
        ZOL_GetProcNameById(pid, name, sizeof(name));
        EXPECT_STREQ(name, "Unknown");
    }
}

std::vector<std::string> StackLines(const std::string &text) {
    std::vector<std::string> lines;
    size_t pos = 0;
    for (size_t end; (end = text.find("\r\n", pos)) != std::string::npos; pos = end + 2)
        lines.push_back(text.substr(pos, end - pos));
    EXPECT_EQ(pos, text.size()) << "every line ends with CR LF";
    return lines;
}

__attribute__((noinline)) std::string Stack(u32 skip, u32 depth, u32 size) {
    std::vector<char> buf(size + 1, '#');
    ZOL_GetCurrStack(skip, depth, buf.data(), size);
    return buf[0] == '#' ? std::string("<untouched>") : std::string(buf.data());
}

TEST_F(UtilTest, CallStackListsFramesWithoutPathsAndStopsWhenFull) {
    std::vector<std::string> bySkip[2];
    for (u32 skip = 0; skip < 2; ++skip) // one call site, so both captures see the same frames
        bySkip[skip] = StackLines(Stack(skip, 10, 4096));
    const std::vector<std::string> &full = bySkip[0];
    ASSERT_TRUE(full.size() >= 4 && full.size() <= 11 && bySkip[1].size() >= 3) << "at most the asked depth";
    ASSERT_EQ(full[0], "<CallStack>");
    for (size_t i = 1; i < full.size(); ++i) {
        EXPECT_EQ(full[i].rfind("[" + std::to_string(i - 1) + "]", 0), 0u) << full[i];
        EXPECT_EQ(full[i].find('/'), std::string::npos) << full[i];
    }
    EXPECT_EQ(bySkip[1][1].substr(3), full[2].substr(3)) << "one frame skipped";

    // Room for the header and the first frame line (inside Stack, the same from any call site) only.
    u32 size = static_cast<u32>(full[0].size() + full[1].size() + 5);
    EXPECT_EQ(Stack(0, 10, size), full[0] + "\r\n" + full[1] + "\r\n") << "ends after the last line that fit";
    EXPECT_EQ(Stack(0, 0, 256), "<CallStack>\r\n") << "no depth, only the header";
    EXPECT_EQ(Stack(40, 10, 256), "<CallStack>\r\n") << "nothing left after skipping";
    EXPECT_EQ(Stack(0, 10, 8), "") << "not even the header fits";
}

void LocalFunction() {}

TEST_F(UtilTest, SymbolNamesOfAddressesAndCraftedTexts) {
    char name[64];
    // Address, buffer size, name: exported, inside an exported function, cut, an address no object holds.
    const std::tuple<const void *, u32, const char *> rows[] = {
        {reinterpret_cast<void *>(&ZOL_WriteLog), 64, "ZOL_WriteLog"},
        {reinterpret_cast<char *>(&ZOL_FormatToBuff) + 4, 64, "ZOL_FormatToBuff"},
        {reinterpret_cast<void *>(&ZOL_WriteLog), 5, "ZOL_"},
        {reinterpret_cast<void *>(0x10), 64, "0x10"},
        {reinterpret_cast<void *>(0x4000), 4, "0x4"}};
    for (auto [address, size, expected] : rows) {
        BDS_SymNameGetEx(const_cast<void *>(address), name, size);
        EXPECT_STREQ(name, expected);
    }
    BDS_SymNameGetEx(reinterpret_cast<void *>(&LocalFunction), name, sizeof(name));
    EXPECT_EQ(std::string(name).rfind("-x", 0), 0u) << "a function without an exported name: " << name;

    std::strcpy(name, "kept");
    BDS_SymNameGetEx(nullptr, name, sizeof(name));
    EXPECT_STREQ(name, "kept");
    ExpectOneRecord("BDS_SNGE", 0x0EA7102Du, "Input para is NULL", "arrSize:64!");

    // Crafted texts: the name before "+", "-x" for an offset alone, ASCII identifier characters only.
    for (auto [text, expected] : {std::pair{"func+0x10) [0x4000]", "func"},
                                  {"0x10) [0x4000]", "-x10"},
                                  {"_Z3fooi_9", "_Z3fooi_9"},
                                  {"caf\xc3\xa9", "caf"},
                                  {")", ""}}) {
        BDS_SymNameGetCheck(text, name, sizeof(name));
        EXPECT_STREQ(name, expected) << text;
    }
    std::memset(name, '#', sizeof(name));
    BDS_SymNameGetCheck("abcdef", name, 4);
    EXPECT_EQ(std::string(name, 5), std::string("abc\0#", 5)) << "cut, and only the buffer is touched";
}

} // namespace
} // namespace zol::test
