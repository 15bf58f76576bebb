#include "TypedArgs.h"

#include "Reply.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>

namespace cimhost::cli {

namespace {

std::optional<Value> integer(const std::string &text) {
    if (text.empty()) return std::nullopt;
    const bool negative = text[0] == '-';
    const char *begin = text.c_str() + (negative || text[0] == '+' ? 1 : 0);
    if (*begin < '0' || *begin > '9') return std::nullopt;
    char *end = nullptr;
    errno = 0;
    const unsigned long long magnitude = std::strtoull(begin, &end, 0);
    if (errno != 0 || *end != '\0') return std::nullopt;
    if (!negative) return Value::u64(magnitude);
    if (magnitude > 0x8000000000000000ULL) return std::nullopt;
    return Value::s64(-static_cast<long long>(magnitude - 1) - 1);
}

std::string trim(const std::string &s) {
    const auto first = s.find_first_not_of(" \t");
    if (first == std::string::npos) return {};
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

std::optional<Value> integerList(const std::string &text) {
    if (text.size() < 2) return std::nullopt;
    const char open = text.front(), close = text.back();
    if (!((open == '[' && close == ']') || (open == '{' && close == '}'))) return std::nullopt;
    Value::Array items;
    const std::string inner = trim(text.substr(1, text.size() - 2));
    std::size_t at = 0;
    while (!inner.empty() && at <= inner.size()) {
        const std::size_t comma = inner.find(',', at);
        const std::string item = trim(inner.substr(at, comma == std::string::npos ? std::string::npos : comma - at));
        auto v = integer(item);
        if (!v) return std::nullopt;
        items.push_back(*v);
        if (comma == std::string::npos) break;
        at = comma + 1;
    }
    return Value::array(CMPI_uint64, std::move(items));
}

}  // namespace

Value typedArgument(const std::string &text) {
    if (text.size() >= 2 && ((text.front() == '"' && text.back() == '"') || (text.front() == '\'' && text.back() == '\'')))
        return Value::string(text.substr(1, text.size() - 2));
    if (text == "null") return Value::null(CMPI_string);
    if (auto v = integer(text)) return *v;
    if (auto v = integerList(text)) return *v;
    return Value::string(text);
}

NamedValues typedArguments(const std::vector<std::string> &items) {
    NamedValues out;
    for (const std::string &item : items) {
        const std::size_t eq = item.find('=');
        if (eq == std::string::npos || eq == 0) throw std::invalid_argument("argument '" + item + "' is not name=value");
        out.emplace_back(item.substr(0, eq), typedArgument(item.substr(eq + 1)));
    }
    return out;
}

std::string statusLine(const Reply &reply) {
    char code[48];
    std::snprintf(code, sizeof code, "Status = %d (0x%X)", static_cast<int>(reply.rc), static_cast<unsigned>(reply.rc));
    return reply.message.empty() ? code : std::string(code) + ": " + reply.message;
}

}  // namespace cimhost::cli
