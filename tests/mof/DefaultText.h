// A declaration's default value as MOF-like text, for comparisons in tests:
// "" when it gives none, "null", "5", "true", "\"text\"", "{1,2}"; char16 as
// its code, reals in their shortest form.
#pragma once

#include "ClassDecl.h"

#include <charconv>
#include <string>
#include <variant>

inline std::string defaultText(const cimhost::PropertyDecl &p) {
    if (!p.defaultValue) return "";
    if (p.defaultValue->null) return "null";
    std::string text;
    for (const cimhost::MofScalar &e : p.defaultValue->elements) {
        if (!text.empty()) text += ",";
        if (std::holds_alternative<std::monostate>(e)) text += "null";
        if (const auto *b = std::get_if<bool>(&e)) text += *b ? "true" : "false";
        if (const auto *u = std::get_if<uint64_t>(&e)) text += std::to_string(*u);
        if (const auto *i = std::get_if<int64_t>(&e)) text += std::to_string(*i);
        if (const auto *d = std::get_if<double>(&e)) {
            char buf[32];
            text.append(buf, std::to_chars(buf, buf + sizeof buf, *d).ptr);
        }
        if (const auto *s = std::get_if<std::string>(&e)) text += cimhost::quoted(*s);
    }
    return p.isArray ? "{" + text + "}" : text;
}
