// Reads back what the stand-in information-model agent wrote: one line per object,
// {"logId":<n>,"params":[...]}, texts as strings (only '"', '\' and control bytes escaped, the latter as
// \u00XX) and 32-bit values as numbers. ImAgentCapture points the agent at a file of its own for one test.
#ifndef ZOL_TEST_IMAGENT_READER_H
#define ZOL_TEST_IMAGENT_READER_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>
#include <unistd.h>
#include <variant>
#include <vector>

namespace zol::test {

// Index of a record's first own text: slot, CPU, process and thread come first.
constexpr size_t kImFirstText = 4;

struct ImRecord {
    uint32_t logId = 0;
    std::vector<std::variant<std::string, uint32_t>> params;

    // The text at i, or "" when there is none (a failed expectation shows which).
    std::string Text(size_t i) const {
        return i < params.size() && params[i].index() == 0 ? std::get<0>(params[i]) : "";
    }
    std::optional<uint32_t> Value(size_t i) const {
        return i < params.size() && params[i].index() == 1 ? std::optional(std::get<1>(params[i])) : std::nullopt;
    }
    // The formatted text is the last parameter of every record of the log writer; the tag the first own text.
    std::string Formatted() const { return params.empty() ? std::string() : Text(params.size() - 1); }
    std::string Tag() const { return Text(kImFirstText); }
};

// Parses one line of the agent's exact format; false on anything else, so a change of the format shows.
inline bool ParseImRecord(const std::string &line, ImRecord *out) {
    *out = ImRecord();
    char *end = nullptr;
    if (line.rfind("{\"logId\":", 0) != 0) {
        return false;
    }
    out->logId = static_cast<uint32_t>(std::strtoul(line.c_str() + 9, &end, 10));
    if (std::string(end).rfind(",\"params\":[", 0) != 0) {
        return false;
    }
    const char *p = end + 11;
    for (; *p != ']'; p += (*p == ',') ? 1 : 0) {
        if (*p != '"') {
            out->params.emplace_back(static_cast<uint32_t>(std::strtoul(p, &end, 10)));
            if (end == p) {
                return false;
            }
            p = end;
            continue;
        }
        std::string text;
        for (++p; *p != '"'; ++p) {
            if (*p == '\0') {
                return false;
            } else if (*p == '\\' && p[1] == 'u') {
                text.push_back(static_cast<char>(std::strtoul(std::string(p + 2, 4).c_str(), nullptr, 16)));
                p += 5;
            } else {
                text.push_back(*p == '\\' ? *++p : *p);
            }
        }
        out->params.emplace_back(std::move(text));
        ++p;
    }
    return std::string(p) == "]}";
}

inline std::vector<ImRecord> RecordsWithTag(const std::vector<ImRecord> &records, const std::string &tag) {
    std::vector<ImRecord> found;
    std::copy_if(records.begin(), records.end(), std::back_inserter(found), [&](auto &r) { return r.Tag() == tag; });
    return found;
}

// Points the agent (ZOL_IMAGENT_FILE, read at each send) at an empty file of its own for the lifetime
// of the object; the previous setting is restored and the file removed afterwards.
class ImAgentCapture {
  public:
    ImAgentCapture() {
        char pattern[] = "/tmp/zol_imagent_test_XXXXXX";
        close(mkstemp(pattern));
        path_ = pattern;
        if (const char *previous = std::getenv("ZOL_IMAGENT_FILE")) {
            previous_ = previous;
        }
        setenv("ZOL_IMAGENT_FILE", path_.c_str(), 1);
    }
    ~ImAgentCapture() {
        previous_ ? setenv("ZOL_IMAGENT_FILE", previous_->c_str(), 1) : unsetenv("ZOL_IMAGENT_FILE");
        unlink(path_.c_str());
    }
    ImAgentCapture(const ImAgentCapture &) = delete;
    ImAgentCapture &operator=(const ImAgentCapture &) = delete;

    // Every record of the file, in order; a line that does not parse fails the current test.
    std::vector<ImRecord> Records() const {
        std::vector<ImRecord> records(1);
        std::ifstream in(path_);
        for (std::string line; std::getline(in, line);) {
            if (ParseImRecord(line, &records.back())) {
                records.emplace_back();
            } else if (!line.empty()) {
                ADD_FAILURE() << "not a record of the agent: " << line;
            }
        }
        records.pop_back();
        return records;
    }
    std::vector<ImRecord> WithTag(const std::string &tag) const { return RecordsWithTag(Records(), tag); }
    void Clear() const { std::ofstream(path_, std::ios::trunc).close(); }

  private:
    std::string path_;
    std::optional<std::string> previous_;
};

} // namespace zol::test

#endif // ZOL_TEST_IMAGENT_READER_H
