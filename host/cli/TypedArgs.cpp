#include "TypedArgs.h"

#include "Reply.h"
#include "Schema.h"

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

bool quotedText(const std::string &text) {
    return text.size() >= 2 &&
           ((text.front() == '"' && text.back() == '"') || (text.front() == '\'' && text.back() == '\''));
}

// One element of a declared type; strings may be quoted.
std::optional<Value> declaredScalar(CMPIType type, const std::string &text) {
    if (text == "null") return Value::null(type);
    if (isTextType(type) && quotedText(text)) return Value::string(text.substr(1, text.size() - 2));
    return Value::parse(type, text);
}

// A comma-separated list, in brackets or not; quoted elements may hold commas.
std::optional<Value> declaredArray(CMPIType element, std::string text) {
    if (text.size() >= 2 && ((text.front() == '[' && text.back() == ']') || (text.front() == '{' && text.back() == '}')))
        text = text.substr(1, text.size() - 2);
    Value::Array items;
    std::string item;
    char quote = 0;
    bool any = false;
    auto finish = [&]() -> bool {
        auto v = declaredScalar(element, trim(item));
        if (!v) return false;
        items.push_back(std::move(*v));
        item.clear();
        return true;
    };
    for (char c : text) {
        if (quote == 0 && c == ',') {
            if (!finish()) return std::nullopt;
            continue;
        }
        if (quote == 0 && (c == '"' || c == '\'')) quote = c;
        else if (c == quote) quote = 0;
        item += c;
        any = any || (c != ' ' && c != '\t');
    }
    if ((any || !items.empty()) && !finish()) return std::nullopt;
    return Value::array(element, std::move(items));
}

}  // namespace

Value declaredArgument(const ParameterDecl &param, const std::string &text) {
    const CMPIType element = cmpiTypeOf(param.type, false);
    if (text == "null") return Value::null(cmpiTypeOf(param.type, param.isArray));
    auto v = param.isArray ? declaredArray(element, text) : declaredScalar(element, text);
    return v ? std::move(*v) : typedArgument(text);
}

Value typedArgument(const std::string &text) {
    if (quotedText(text))
        return Value::string(text.substr(1, text.size() - 2));
    if (text == "null") return Value::null(CMPI_string);
    if (auto v = integer(text)) return *v;
    if (auto v = integerList(text)) return *v;
    return Value::string(text);
}

NamedValues typedArguments(const std::vector<std::string> &items, const MethodDecl *method) {
    NamedValues out;
    for (const std::string &item : items) {
        const std::size_t eq = item.find('=');
        if (eq == std::string::npos || eq == 0) throw std::invalid_argument("argument '" + item + "' is not name=value");
        const std::string name = item.substr(0, eq), text = item.substr(eq + 1);
        const ParameterDecl *param = nullptr;
        if (method != nullptr)
            for (const ParameterDecl &p : method->params)
                if (p.in && iequals(p.name, name)) param = &p;
        out.emplace_back(name, param != nullptr ? declaredArgument(*param, text) : typedArgument(text));
    }
    return out;
}

std::string statusLine(const Reply &reply) {
    char code[48];
    std::snprintf(code, sizeof code, "Status = %d (0x%X)", static_cast<int>(reply.rc), static_cast<unsigned>(reply.rc));
    return reply.message.empty() ? code : std::string(code) + ": " + reply.message;
}

}  // namespace cimhost::cli
