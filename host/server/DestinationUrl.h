// Where a listener destination may point: an http URL whose host is a
// loopback address, or one the administrator allows.
#pragma once

#include <cmpidt.h>

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cimserver {

struct UrlRefusal {
    CMPIrc rc;
    std::string message;
};

// The URL as delivery uses it ("http://host:port/path"), or why it is
// refused. A URL without a scheme is http. `allowed` holds addresses
// ("10.0.0.5", "fd00::1"), networks ("10.0.0.0/8") or host names, beyond
// loopback and "localhost".
std::variant<std::string, UrlRefusal> destinationUrl(std::string_view text, const std::vector<std::string> &allowed);

}  // namespace cimserver
