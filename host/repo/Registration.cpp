#include "Registration.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <optional>
#include <sstream>

namespace cimhost {

namespace {

constexpr std::array<std::string_view, 5> kKinds{"instance", "association", "method", "indication", "property"};

std::string trim(const std::string &s) {
    const auto first = s.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    const auto last = s.find_last_not_of(" \t\r");
    return s.substr(first, last - first + 1);
}

std::vector<std::string> words(const std::string &s) {
    std::istringstream in(s);
    std::vector<std::string> out;
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

class Reader {
public:
    explicit Reader(std::string origin) : origin_(std::move(origin)) {}

    void line(const std::string &raw, int number) {
        line_ = number;
        const std::string text = trim(raw);
        if (text.empty()) return;
        if (text[0] == '#') return closeBlock();
        if (text[0] == '[') return openBlock(text);
        if (!open_) fail("'" + text + "' is outside a [Class] block");
        keyValue(text);
    }

    std::vector<RegistrationEntry> finish() {
        if (open_) fail("block [" + current_.className + "] is not ended by a line '#'", headerLine_);
        return std::move(entries_);
    }

private:
    struct Seen {
        std::string lowerName;
        int line;
    };

    [[noreturn]] void fail(const std::string &message, int line = 0) const {
        throw RegistrationError(origin_, line > 0 ? line : line_, message);
    }

    void openBlock(const std::string &text) {
        if (open_) fail("block [" + current_.className + "] is not ended by a line '#'", headerLine_);
        const std::string name = trim(text.substr(1, text.size() - 1 - (text.back() == ']' ? 1 : 0)));
        if (text.back() != ']' || name.empty() || name.find_first_of(" \t[]") != std::string::npos)
            fail("malformed block header '" + text + "'");
        for (const Seen &s : seen_)
            if (s.lowerName == lowerCase(name))
                fail("class " + name + " is registered twice (first at line " + std::to_string(s.line) + ")");
        seen_.push_back({lowerCase(name), line_});
        current_ = RegistrationEntry{};
        current_.className = name;
        keys_.clear();
        open_ = true;
        headerLine_ = line_;
    }

    void keyValue(const std::string &text) {
        const auto colon = text.find(':');
        if (colon == std::string::npos) fail("expected 'key: value' but found '" + text + "'");
        const std::string key = trim(text.substr(0, colon));
        const std::string value = trim(text.substr(colon + 1));
        if (std::find(keys_.begin(), keys_.end(), key) != keys_.end()) fail("key '" + key + "' given twice");
        keys_.push_back(key);
        if (value.empty()) fail("key '" + key + "' has no value");
        if (key == "provider")
            current_.providerName = single(key, value);
        else if (key == "location")
            current_.location = single(key, value);
        else if (key == "unload")
            current_.unload = single(key, value);
        else if (key == "namespace")
            current_.namespaces = words(value);
        else if (key == "type")
            current_.kinds = kinds(value);
        else
            fail("unknown key '" + key + "'");
    }

    std::string single(const std::string &key, const std::string &value) const {
        if (value.find_first_of(" \t") != std::string::npos) fail("key '" + key + "' takes one word");
        return value;
    }

    std::vector<std::string> kinds(const std::string &value) const {
        std::vector<std::string> out = words(value);
        for (auto it = out.begin(); it != out.end(); ++it) {
            if (std::find(kKinds.begin(), kKinds.end(), *it) == kKinds.end())
                fail("unknown provider type '" + *it + "'");
            if (std::find(out.begin(), it, *it) != it) fail("provider type '" + *it + "' given twice");
        }
        return out;
    }

    void closeBlock() {
        if (!open_) return;  // a comment between blocks
        for (const char *required : {"provider", "location", "type", "namespace"})
            if (std::find(keys_.begin(), keys_.end(), required) == keys_.end())
                fail("block [" + current_.className + "] lacks '" + required + ":'", headerLine_);
        entries_.push_back(std::move(current_));
        open_ = false;
    }

    std::string origin_;
    int line_ = 0;
    bool open_ = false;
    int headerLine_ = 0;
    RegistrationEntry current_;
    std::vector<std::string> keys_;
    std::vector<Seen> seen_;
    std::vector<RegistrationEntry> entries_;
};

}  // namespace

std::vector<RegistrationEntry> parseRegistration(std::istream &in, const std::string &origin) {
    Reader reader(origin);
    int number = 0;
    for (std::string raw; std::getline(in, raw);) reader.line(raw, ++number);
    return reader.finish();
}

std::vector<RegistrationEntry> loadRegistration(const std::string &path) {
    std::ifstream in(path);
    if (!in) throw RegistrationError(path, 0, "cannot open the file");
    return parseRegistration(in, path);
}

}  // namespace cimhost
