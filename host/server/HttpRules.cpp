#include "HttpRules.h"

#include "Host.h"

#include <openssl/evp.h>

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace cimserver {

using cimhost::iequals;

const std::string *RequestHead::find(std::string_view name) const {
    for (const auto &[key, value] : headers)
        if (iequals(key, name)) return &value;
    return nullptr;
}

std::size_t RequestHead::count(std::string_view name) const {
    return static_cast<std::size_t>(
        std::count_if(headers.begin(), headers.end(), [&](const auto &h) { return iequals(h.first, name); }));
}

Reply refusal(int status, const char *cimError, bool close) {
    Reply r;
    r.status = status;
    if (cimError != nullptr) r.headers.emplace_back("CIMError", cimError);
    r.close = close;
    return r;
}

namespace {

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

std::optional<unsigned long long> decimal(std::string_view s) {
    s = trimmed(s);
    unsigned long long v = 0;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (s.empty() || ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
    return v;
}

}  // namespace

Route routeOf(std::string_view path) { return path == "/metrics" ? Route::Metrics : Route::Cim; }

namespace {

// GET without a body; the metrics carry no CIMError headers.
std::optional<Reply> checkMetricsHead(const RequestHead &head) {
    constexpr bool close = true;
    if (head.method != "GET") {
        Reply r = refusal(405, nullptr, close);
        r.headers.emplace_back("Allow", "GET");
        return r;
    }
    for (const auto &[key, value] : head.headers)
        if (iequals(key, "Transfer-Encoding") || (iequals(key, "Content-Length") && decimal(value) != 0ull))
            return refusal(400, nullptr, close);
    return std::nullopt;
}

}  // namespace

std::optional<Reply> checkHead(const RequestHead &head, const HeadLimits &limits, Route route) {
    constexpr bool close = true;
    std::size_t bytes = head.method.size() + head.url.size() + head.version.size() + 4;
    for (const auto &[key, value] : head.headers) bytes += key.size() + value.size() + 4;
    if (head.headers.size() > limits.maxHeaders || bytes > limits.maxHeaderBytes)
        return refusal(431, "request-not-valid", close);
    if (head.version == "HTTP/1.1" && head.count("Host") != 1) return refusal(400, "request-not-valid", close);
    if (route == Route::Metrics) return checkMetricsHead(head);
    if (head.method == "M-POST") return refusal(501, nullptr, close);  // clients retry with POST
    if (head.method != "POST") {
        Reply r = refusal(405, nullptr, close);
        r.headers.emplace_back("Allow", "POST");
        return r;
    }
    if (const std::string *coding = head.find("Content-Encoding");
        coding != nullptr && !iequals(trimmed(*coding), "identity"))
        return refusal(415, "request-not-valid", close);
    const std::string *transfer = head.find("Transfer-Encoding");
    const std::size_t lengths = head.count("Content-Length");
    if (transfer != nullptr) {
        // Only chunked framing; never together with a length (two framings
        // are how requests get smuggled past a proxy).
        if (head.count("Transfer-Encoding") != 1 || !iequals(trimmed(*transfer), "chunked"))
            return refusal(501, "request-not-valid", close);
        if (lengths != 0) return refusal(400, "request-not-valid", close);
        return std::nullopt;
    }
    if (lengths == 0) return refusal(411, "request-not-valid", close);
    std::optional<unsigned long long> length;
    for (const auto &[key, value] : head.headers) {
        if (!iequals(key, "Content-Length")) continue;
        auto v = decimal(value);
        if (!v || (length && *length != *v)) return refusal(400, "request-not-valid", close);
        length = v;
    }
    if (*length > limits.maxBody) return refusal(413, "request-not-valid", close);
    return std::nullopt;
}

std::optional<std::pair<std::string, std::string>> basicCredentials(std::string_view header) {
    if (header.size() < 6 || !iequals(header.substr(0, 6), "Basic ")) return std::nullopt;
    std::string_view b64 = trimmed(header.substr(6));
    if (b64.empty() || b64.size() % 4 != 0 || b64.size() > 1024) return std::nullopt;
    std::string raw(b64.size() / 4 * 3, '\0');
    int n = EVP_DecodeBlock(reinterpret_cast<unsigned char *>(raw.data()),
                            reinterpret_cast<const unsigned char *>(b64.data()), static_cast<int>(b64.size()));
    if (n < 0) return std::nullopt;
    std::size_t padding = b64.size() - b64.find_last_not_of('=') - 1;
    raw.resize(static_cast<std::size_t>(n) - std::min<std::size_t>(padding, 2));
    std::size_t colon = raw.find(':');
    if (colon == std::string::npos || raw.find('\0') != std::string::npos) return std::nullopt;
    return std::make_pair(raw.substr(0, colon), raw.substr(colon + 1));
}

namespace {

// "%2F" escapes; nullopt for a broken escape.
std::optional<std::string> percentDecoded(std::string_view s) {
    auto hex = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '%') {
            out += s[i];
            continue;
        }
        if (i + 2 >= s.size()) return std::nullopt;
        int hi = hex(s[i + 1]), lo = hex(s[i + 2]);
        if (hi < 0 || lo < 0) return std::nullopt;
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    return out;
}

std::string_view trimSlashes(std::string_view s) {
    while (!s.empty() && s.front() == '/') s.remove_prefix(1);
    while (!s.empty() && s.back() == '/') s.remove_suffix(1);
    return s;
}

}  // namespace

bool objectHeaderMatches(std::string_view header, const CimRequest &r) {
    auto decoded = percentDecoded(trimmed(header));
    if (!decoded) return false;
    std::string_view text = *decoded;
    if (text.substr(0, 2) == "//") {  // a host in front
        std::size_t slash = text.find('/', 2);
        if (slash == std::string_view::npos) return false;
        text.remove_prefix(slash);
    }
    if (r.intrinsic) return iequals(trimSlashes(text), trimSlashes(r.nameSpace));
    // Keys are not compared: clients leave them unescaped.
    std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    std::string_view cls = text.substr(colon + 1);
    cls = cls.substr(0, cls.find('.'));
    return iequals(trimSlashes(text.substr(0, colon)), trimSlashes(r.nameSpace)) &&
           iequals(cls, r.target.className);
}

bool xmlInUtf8(std::string_view contentType) {
    std::string type = cimhost::lowerCase(std::string(trimmed(contentType)));
    bool xml = type.rfind("application/xml", 0) == 0 || type.rfind("text/xml", 0) == 0;
    std::size_t charset = type.find("charset=");
    if (charset == std::string::npos) return xml;
    std::string_view value = std::string_view(type).substr(charset + 8);
    if (!value.empty() && value.front() == '"') value.remove_prefix(1);
    return xml && value.rfind("utf-8", 0) == 0;
}

bool versionMajorIs(std::string_view v, char major) {
    v = trimmed(v);
    return !v.empty() && v[0] == major && (v.size() == 1 || v[1] == '.');
}

namespace {

std::string escaped(std::string_view text, bool spaces) {
    if (text.empty()) return "-";
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7f || c == '\\' || (c == ' ' && !spaces)) {
            char esc[5];
            std::snprintf(esc, sizeof esc, "\\x%02x", u);
            out += esc;
        } else {
            out += c;
        }
    }
    return out;
}

}  // namespace

std::string logField(std::string_view text) { return escaped(text, false); }

std::string logText(std::string_view text) { return escaped(text, true); }

}  // namespace cimserver
