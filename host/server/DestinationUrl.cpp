#include "DestinationUrl.h"

#include "ClassDecl.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>

namespace cimserver {

using cimhost::iequals;

namespace {

constexpr std::size_t kMaxUrl = 2048;

// An IP address as 16 bytes (IPv4 mapped into IPv6) and whether it was IPv4.
struct Address {
    std::array<unsigned char, 16> bytes{};
    bool v4 = false;
};

std::optional<Address> address(const std::string &text) {
    Address a;
    in_addr v4{};
    if (inet_pton(AF_INET, text.c_str(), &v4) == 1) {
        a.v4 = true;
        a.bytes[10] = a.bytes[11] = 0xFF;
        std::memcpy(a.bytes.data() + 12, &v4, 4);
        return a;
    }
    in6_addr v6{};
    if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) {
        std::memcpy(a.bytes.data(), &v6, 16);
        return a;
    }
    return std::nullopt;
}

// The first `bits` bits of both are equal.
bool samePrefix(const Address &a, const Address &b, unsigned bits) {
    for (unsigned i = 0; i < 128 && i < bits; ++i) {
        unsigned byte = i / 8, mask = 0x80u >> (i % 8);
        if ((a.bytes[byte] & mask) != (b.bytes[byte] & mask)) return false;
    }
    return true;
}

bool loopback(const Address &a) {
    static const Address v4 = *address("127.0.0.0"), v6 = *address("::1");
    return a.v4 ? samePrefix(a, v4, 96 + 8) : samePrefix(a, v6, 128);
}

bool allowedBy(const std::string &entry, const std::string &host, const std::optional<Address> &ip) {
    if (!ip) return iequals(entry, host);
    const std::size_t slash = entry.find('/');
    auto net = address(entry.substr(0, slash));
    if (!net || net->v4 != ip->v4) return false;
    unsigned bits = net->v4 ? 32 : 128;
    if (slash != std::string::npos) {
        const std::string length = entry.substr(slash + 1);
        auto [end, ec] = std::from_chars(length.data(), length.data() + length.size(), bits);
        if (ec != std::errc() || end != length.data() + length.size() || bits > (net->v4 ? 32u : 128u)) return false;
    }
    return samePrefix(*net, *ip, net->v4 ? 96 + bits : bits);
}

UrlRefusal invalid(std::string message) { return {CMPI_RC_ERR_INVALID_PARAMETER, std::move(message)}; }

}  // namespace

std::variant<std::string, UrlRefusal> destinationUrl(std::string_view text, const std::vector<std::string> &allowed) {
    if (text.empty() || text.size() > kMaxUrl) return invalid("the URL must have 1 to 2048 characters");
    for (char c : text)
        if (static_cast<unsigned char>(c) <= 0x20 || static_cast<unsigned char>(c) >= 0x7F)
            return invalid("the URL holds a space, a control character or a byte beyond ASCII");
    std::string_view rest = text;
    if (auto scheme = rest.find("://"); scheme != std::string_view::npos) {
        if (!iequals(rest.substr(0, scheme), "http"))
            return UrlRefusal{CMPI_RC_ERR_NOT_SUPPORTED,
                              "scheme " + std::string(rest.substr(0, scheme)) + " is not supported; use http"};
        rest.remove_prefix(scheme + 3);
    }
    const std::size_t pathAt = rest.find_first_of("/?#");
    std::string_view authority = rest.substr(0, pathAt);
    std::string path = pathAt == std::string_view::npos ? "/" : std::string(rest.substr(pathAt));
    if (path[0] != '/') path.insert(0, "/");
    if (path.find('#') != std::string::npos) return invalid("the URL holds a fragment");
    if (authority.find('@') != std::string_view::npos) return invalid("the URL holds user information");
    std::string host;
    std::string_view port;
    bool portGiven = false;
    if (!authority.empty() && authority[0] == '[') {
        const std::size_t close = authority.find(']');
        if (close == std::string_view::npos) return invalid("the IPv6 address is not closed with ]");
        host = std::string(authority.substr(1, close - 1));
        std::string_view after = authority.substr(close + 1);
        if (!after.empty() && after[0] != ':') return invalid("unexpected text after the IPv6 address");
        if (!after.empty()) port = after.substr(1), portGiven = true;
        if (!address(host) || address(host)->v4) return invalid("[" + host + "] is not an IPv6 address");
    } else {
        const std::size_t colon = authority.find(':');
        host = std::string(authority.substr(0, colon));
        if (colon != std::string_view::npos) port = authority.substr(colon + 1), portGiven = true;
    }
    if (host.empty()) return invalid("the URL names no host");
    unsigned portNumber = 80;
    if (portGiven && port.empty()) return invalid("the port is empty");
    if (!port.empty()) {
        auto [end, ec] = std::from_chars(port.data(), port.data() + port.size(), portNumber);
        if (ec != std::errc() || end != port.data() + port.size() || portNumber == 0 || portNumber > 65535)
            return invalid("port " + std::string(port) + " is not a number from 1 to 65535");
    }
    const auto ip = address(host);
    const bool permitted = (ip && loopback(*ip)) || (!ip && iequals(host, "localhost")) ||
                           std::any_of(allowed.begin(), allowed.end(),
                                       [&](const std::string &entry) { return allowedBy(entry, host, ip); });
    if (!permitted)
        return invalid(host + " is not a loopback address, nor one the server allows (--allow-destination)");
    const std::string shownHost = ip && !ip->v4 ? "[" + host + "]" : host;
    return "http://" + shownHost + ":" + std::to_string(portNumber) + path;
}

}  // namespace cimserver
