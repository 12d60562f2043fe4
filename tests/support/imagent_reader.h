// Reads back what the stand-in information-model agent wrote: one JSON line per sent object,
// {"logId":<n>,"params":[...]}, texts as strings and 32-bit values as numbers. ImAgentCapture points
// the agent at a file of its own for one test.
#ifndef ZOL_TEST_IMAGENT_READER_H
#define ZOL_TEST_IMAGENT_READER_H

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <unistd.h>
#include <variant>
#include <vector>

namespace zol::test {

using ImParam = std::variant<std::string, uint32_t>;

// Index of the first text of the record's own in the parameters: slot, CPU, process and thread come first.
constexpr size_t kImFirstText = 4;

struct ImRecord {
    uint32_t logId = 0;
    std::vector<ImParam> params;

    bool IsText(size_t i) const { return i < params.size() && std::holds_alternative<std::string>(params[i]); }
    // The text at i, or "" when there is none (a failed expectation shows which).
    std::string Text(size_t i) const { return IsText(i) ? std::get<std::string>(params[i]) : std::string(); }
    std::optional<uint32_t> Value(size_t i) const {
        if (i < params.size() && std::holds_alternative<uint32_t>(params[i])) {
            return std::get<uint32_t>(params[i]);
        }
        return std::nullopt;
    }
    // The formatted text, last parameter of every record of the log writer.
    std::string Formatted() const { return params.empty() ? std::string() : Text(params.size() - 1); }
    // The first text of the record's own, the tag by convention.
    std::string Tag() const { return Text(kImFirstText); }
};

namespace detail {

class JsonCursor {
  public:
    explicit JsonCursor(const std::string &text) : s_(text) {}

    bool Consume(char c) {
        SkipSpace();
        if (pos_ < s_.size() && s_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    bool Peek(char c) {
        SkipSpace();
        return pos_ < s_.size() && s_[pos_] == c;
    }
    bool AtEnd() {
        SkipSpace();
        return pos_ == s_.size();
    }
    bool String(std::string *out) {
        if (!Consume('"')) {
            return false;
        }
        out->clear();
        while (pos_ < s_.size()) {
            char c = s_[pos_++];
            if (c == '"') {
                return true;
            }
            if (c != '\\') {
                out->push_back(c);
            } else if (!Escape(out)) {
                return false;
            }
        }
        return false;
    }
    // A non-negative integer that fits in 32 bits.
    bool Number(uint32_t *out) {
        SkipSpace();
        uint64_t value = 0;
        size_t start = pos_;
        while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9' && value <= UINT32_MAX) {
            value = value * 10 + static_cast<uint64_t>(s_[pos_++] - '0');
        }
        *out = static_cast<uint32_t>(value);
        return pos_ > start && value <= UINT32_MAX;
    }

  private:
    void SkipSpace() {
        while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\t' || s_[pos_] == '\r' || s_[pos_] == '\n')) {
            ++pos_;
        }
    }
    bool Hex4(uint32_t *out) {
        if (pos_ + 4 > s_.size()) {
            return false;
        }
        *out = static_cast<uint32_t>(std::strtoul(s_.substr(pos_, 4).c_str(), nullptr, 16));
        pos_ += 4;
        return true;
    }
    // Code points below 0x100 come back as the single byte they stand for, so texts holding arbitrary
    // bytes survive a writer that escapes each byte; larger ones are encoded in UTF-8.
    static void Append(std::string *out, uint32_t cp) {
        if (cp < 0x100) {
            out->push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    bool Escape(std::string *out) {
        if (pos_ >= s_.size()) {
            return false;
        }
        char c = s_[pos_++];
        switch (c) {
        case '"':
        case '\\':
        case '/':
            out->push_back(c);
            return true;
        case 'b':
            out->push_back('\b');
            return true;
        case 'f':
            out->push_back('\f');
            return true;
        case 'n':
            out->push_back('\n');
            return true;
        case 'r':
            out->push_back('\r');
            return true;
        case 't':
            out->push_back('\t');
            return true;
        case 'u':
            break;
        default:
            return false;
        }
        uint32_t cp = 0;
        if (!Hex4(&cp)) {
            return false;
        }
        uint32_t low = 0;
        if (cp >= 0xD800 && cp < 0xDC00 && s_.compare(pos_, 2, "\\u") == 0) {
            pos_ += 2;
            if (!Hex4(&low)) {
                return false;
            }
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        }
        Append(out, cp);
        return true;
    }

    const std::string &s_;
    size_t pos_ = 0;
};

inline bool ParseParams(JsonCursor &json, std::vector<ImParam> *params) {
    if (!json.Consume('[')) {
        return false;
    }
    if (json.Consume(']')) {
        return true;
    }
    do {
        if (json.Peek('"')) {
            std::string text;
            if (!json.String(&text)) {
                return false;
            }
            params->emplace_back(std::move(text));
        } else {
            uint32_t value = 0;
            if (!json.Number(&value)) {
                return false;
            }
            params->emplace_back(value);
        }
    } while (json.Consume(','));
    return json.Consume(']');
}

} // namespace detail

// Parses one line; false when it is not a record of the agent (unknown keys are refused too, so a
// change of the line format shows up instead of passing silently).
inline bool ParseImRecord(const std::string &line, ImRecord *out) {
    detail::JsonCursor json(line);
    *out = ImRecord();
    if (!json.Consume('{')) {
        return false;
    }
    do {
        std::string key;
        if (!json.String(&key) || !json.Consume(':')) {
            return false;
        }
        bool ok = (key == "logId") ? json.Number(&out->logId) : (key == "params" && ParseParams(json, &out->params));
        if (!ok) {
            return false;
        }
    } while (json.Consume(','));
    return json.Consume('}') && json.AtEnd();
}

// Every record of the file, in order; a line that does not parse fails the current test.
inline std::vector<ImRecord> ReadImRecords(const std::string &path) {
    std::vector<ImRecord> records;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty()) {
            continue;
        }
        ImRecord record;
        if (ParseImRecord(line, &record)) {
            records.push_back(std::move(record));
        } else {
            ADD_FAILURE() << "not a record of the agent: " << line;
        }
    }
    return records;
}

// The records whose tag (first own text) is the given one.
inline std::vector<ImRecord> RecordsWithTag(const std::vector<ImRecord> &records, const std::string &tag) {
    std::vector<ImRecord> found;
    for (const ImRecord &record : records) {
        if (record.Tag() == tag) {
            found.push_back(record);
        }
    }
    return found;
}

// Points the agent (ZOL_IMAGENT_FILE, read at each send) at an empty file of its own for the lifetime
// of the object; the previous setting is restored and the file removed afterwards.
class ImAgentCapture {
  public:
    ImAgentCapture() {
        char pattern[] = "/tmp/zol_imagent_test_XXXXXX";
        int fd = mkstemp(pattern);
        if (fd >= 0) {
            close(fd);
        }
        path_ = pattern;
        const char *previous = std::getenv("ZOL_IMAGENT_FILE");
        if (previous != nullptr) {
            previous_ = previous;
        }
        setenv("ZOL_IMAGENT_FILE", path_.c_str(), 1);
    }
    ~ImAgentCapture() {
        if (previous_) {
            setenv("ZOL_IMAGENT_FILE", previous_->c_str(), 1);
        } else {
            unsetenv("ZOL_IMAGENT_FILE");
        }
        unlink(path_.c_str());
    }
    ImAgentCapture(const ImAgentCapture &) = delete;
    ImAgentCapture &operator=(const ImAgentCapture &) = delete;

    const std::string &Path() const { return path_; }
    std::vector<ImRecord> Records() const { return ReadImRecords(path_); }
    std::vector<ImRecord> WithTag(const std::string &tag) const { return RecordsWithTag(Records(), tag); }
    // Forgets what was written so far.
    void Clear() const { std::ofstream(path_, std::ios::trunc).close(); }

  private:
    std::string path_;
    std::optional<std::string> previous_;
};

} // namespace zol::test

#endif // ZOL_TEST_IMAGENT_READER_H
