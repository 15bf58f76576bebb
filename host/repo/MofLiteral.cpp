#include "MofLiteral.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace cimhost::mof {

namespace {

// Built in place: moving a variant that may hold a string out of a temporary
// sets off a false maybe-uninitialized warning in some compilers.
template <class T> std::optional<MofScalar> scalar(T value) {
    std::optional<MofScalar> out;
    out.emplace(std::in_place_type<T>, std::move(value));
    return out;
}

struct Integer {
    bool negative = false;
    uint64_t magnitude = 0;
};

std::optional<Integer> integerLiteral(std::string_view s) {
    Integer n;
    if (!s.empty() && (s[0] == '-' || s[0] == '+')) {
        n.negative = s[0] == '-';
        s.remove_prefix(1);
    }
    int base = 10;
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        base = 16;
        s.remove_prefix(2);
    } else if (s.size() > 1 && (s.back() == 'b' || s.back() == 'B')) {
        base = 2;
        s.remove_suffix(1);
    } else if (s.size() > 1 && s[0] == '0') {
        base = 8;
        s.remove_prefix(1);
    }
    if (s.empty()) return std::nullopt;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), n.magnitude, base);
    if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
    return n;
}

unsigned integerBits(CimType type) {
    switch (type) {
    case CimType::Uint8: case CimType::Sint8: return 8;
    case CimType::Uint16: case CimType::Sint16: return 16;
    case CimType::Uint32: case CimType::Sint32: return 32;
    default: return 64;
    }
}

std::optional<MofScalar> unsignedLiteral(CimType type, const Token &t) {
    if (t.kind != TokenKind::Number) return std::nullopt;
    const auto n = integerLiteral(t.text);
    if (!n || (n->negative && n->magnitude != 0)) return std::nullopt;
    const unsigned bits = integerBits(type);
    if (bits < 64 && n->magnitude >> bits != 0) return std::nullopt;
    return scalar(n->magnitude);
}

std::optional<MofScalar> signedLiteral(CimType type, const Token &t) {
    if (t.kind != TokenKind::Number) return std::nullopt;
    const auto n = integerLiteral(t.text);
    if (!n) return std::nullopt;
    const uint64_t limit = uint64_t{1} << (integerBits(type) - 1);  // |min|; max is one less
    if (n->magnitude > (n->negative ? limit : limit - 1)) return std::nullopt;
    const int64_t v = n->negative ? static_cast<int64_t>(0 - n->magnitude) : static_cast<int64_t>(n->magnitude);
    return scalar(v);
}

std::optional<MofScalar> realLiteral(CimType type, const Token &t) {
    if (t.kind != TokenKind::Number) return std::nullopt;
    std::string_view s = t.text;
    if (!s.empty() && s[0] == '+') s.remove_prefix(1);
    double v = 0;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (ec != std::errc() || end != s.data() + s.size() || !std::isfinite(v)) return std::nullopt;
    if (type == CimType::Real32) {
        if (std::fabs(v) > std::numeric_limits<float>::max()) return std::nullopt;
        v = static_cast<float>(v);
    }
    return scalar(v);
}

// The one UTF-8 character of `s` as a UCS-2 code, or nullopt.
std::optional<MofScalar> char16Literal(const Token &t) {
    if (t.kind != TokenKind::Char) return std::nullopt;
    const std::string &s = t.text;
    auto b = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    uint32_t code = 0;
    std::size_t n = 0;
    if (s.size() == 1 && b(0) < 0x80) {
        code = b(0), n = 1;
    } else if (s.size() == 2 && (b(0) & 0xE0) == 0xC0) {
        code = (b(0) & 0x1Fu) << 6 | (b(1) & 0x3Fu), n = 2;
    } else if (s.size() == 3 && (b(0) & 0xF0) == 0xE0) {
        code = (b(0) & 0x0Fu) << 12 | (b(1) & 0x3Fu) << 6 | (b(2) & 0x3Fu), n = 3;
    }
    if (n == 0) return std::nullopt;
    for (std::size_t i = 1; i < n; ++i)
        if ((b(i) & 0xC0) != 0x80) return std::nullopt;
    return scalar(uint64_t{code});
}

// yyyymmddhhmmss.mmmmmmsutc or ddddddddhhmmss.mmmmmm:000; '*' may stand for a digit.
bool looksLikeDateTime(std::string_view s) {
    if (s.size() != 25 || s[14] != '.' || (s[21] != '+' && s[21] != '-' && s[21] != ':')) return false;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (i == 14 || i == 21) continue;
        if (!(s[i] >= '0' && s[i] <= '9') && s[i] != '*') return false;
    }
    return true;
}

}  // namespace

std::optional<MofScalar> typedLiteral(CimType type, const Token &t) {
    switch (type) {
    case CimType::Boolean:
        if (t.isWord("true")) return scalar(true);
        if (t.isWord("false")) return scalar(false);
        return std::nullopt;
    case CimType::String:
        if (t.kind != TokenKind::String) return std::nullopt;
        return scalar(t.text);
    case CimType::DateTime:
        if (t.kind != TokenKind::String || !looksLikeDateTime(t.text)) return std::nullopt;
        return scalar(t.text);
    case CimType::Char16: return char16Literal(t);
    case CimType::Uint8: case CimType::Uint16: case CimType::Uint32: case CimType::Uint64:
        return unsignedLiteral(type, t);
    case CimType::Sint8: case CimType::Sint16: case CimType::Sint32: case CimType::Sint64:
        return signedLiteral(type, t);
    case CimType::Real32: case CimType::Real64: return realLiteral(type, t);
    case CimType::Reference: return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace cimhost::mof
