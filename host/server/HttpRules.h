// What the server decides about an HTTP request without touching the network:
// the checks on its head (run as soon as the headers are in, before any body
// byte is kept), Basic credentials, the CIM headers, and log escaping.
#pragma once

#include "CimRequest.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cimserver {

struct RequestHead {
    std::string method, url, version;
    std::vector<std::pair<std::string, std::string>> headers;  // as sent, in order, values untouched

    // The first header of that name (case-insensitive), or null.
    const std::string *find(std::string_view name) const;
    std::size_t count(std::string_view name) const;
};

struct Reply {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    bool close = false;  // answer with Connection: close and end the connection
};

struct HeadLimits {
    std::size_t maxHeaderBytes = 16 * 1024;  // request line and all header lines
    std::size_t maxHeaders = 64;
    std::size_t maxBody = 1 << 20;
};

// What a request asks for, by its path: the metrics (GET /metrics) or a CIM
// operation (POST to any other path).
enum class Route { Cim, Metrics };
Route routeOf(std::string_view path);

// A refusal when the head alone settles the request; nullopt when the body
// is to be read. The reply to a refused head always closes the connection
// (its body, if any, is never read).
std::optional<Reply> checkHead(const RequestHead &head, const HeadLimits &limits, Route route = Route::Cim);

// A refusal with the CIMError header CIM-XML defines for it (none when
// cimError is null).
Reply refusal(int status, const char *cimError, bool close = false);

// "Basic base64(user:password)"; nullopt when the header is not that, or the
// name or password holds a NUL.
std::optional<std::pair<std::string, std::string>> basicCredentials(std::string_view header);

// CIMObject names the namespace of an intrinsic call, or "ns:Class[.keys]" of
// a method call, %-escaped once.
bool objectHeaderMatches(std::string_view header, const CimRequest &request);

// application/xml or text/xml, with no charset or UTF-8.
bool xmlInUtf8(std::string_view contentType);

bool versionMajorIs(std::string_view version, char major);

// A log field on one line: control characters, backslash, space and DEL as
// \xNN; an empty field as "-".
std::string logField(std::string_view text);
// Free text at the end of a log line: the same, but spaces stay.
std::string logText(std::string_view text);

}  // namespace cimserver
