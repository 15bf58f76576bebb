#include "ClassDecl.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace cimhost {

namespace {

std::string sourceText(const std::string &file, int line, const std::string &message) {
    if (line > 0) return file + ":" + std::to_string(line) + ": " + message;
    return file + ": " + message;
}

constexpr std::array<std::pair<CimType, const char *>, 14> kTypeNames{{
    {CimType::Boolean, "boolean"}, {CimType::String, "string"},     {CimType::Char16, "char16"},
    {CimType::Uint8, "uint8"},     {CimType::Sint8, "sint8"},       {CimType::Uint16, "uint16"},
    {CimType::Sint16, "sint16"},   {CimType::Uint32, "uint32"},     {CimType::Sint32, "sint32"},
    {CimType::Uint64, "uint64"},   {CimType::Sint64, "sint64"},     {CimType::Real32, "real32"},
    {CimType::Real64, "real64"},   {CimType::DateTime, "datetime"},
}};

}  // namespace

SourceError::SourceError(const std::string &file, int line, const std::string &message)
    : std::runtime_error(sourceText(file, line, message)), file_(file), line_(line) {}

const char *cimTypeName(CimType type) {
    for (const auto &[t, name] : kTypeNames)
        if (t == type) return name;
    return "ref";
}

std::optional<CimType> cimTypeFromName(std::string_view keyword) {
    for (const auto &[t, name] : kTypeNames)
        if (iequals(keyword, name)) return t;
    return std::nullopt;
}

bool iequals(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lowerChar(x) == lowerChar(y); });
}

std::string quoted(std::string_view s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + '"';
}

std::string lowerCase(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(), lowerChar);
    return out;
}

const Qualifier *findQualifier(const std::vector<Qualifier> &qualifiers, std::string_view name) {
    for (const Qualifier &q : qualifiers)
        if (iequals(q.name, name)) return &q;
    return nullptr;
}

}  // namespace cimhost
