// tovra-cim listen: a CIM-XML listener. It takes export requests
// (ExportIndication) over HTTP on libmicrohttpd, answers each with the export
// protocol's response, and prints the indication: as text (class, time and
// the properties an administrator reads first) or, with --json, one JSON
// document per line on standard output. Bounded like the server: a body
// limit, a deadline for each request, an idle time-out, connection limits.
#pragma once

#include "Value.h"

#include <cstddef>
#include <iosfwd>
#include <string>

namespace cimhost::cli {

struct ListenOptions {
    std::string address = "127.0.0.1";
    int port = 0;  // 0: any free port
    bool json = false;
    std::size_t maxBody = 1 << 20;
    double requestTimeout = 10;  // seconds for a whole request to arrive
    unsigned idleTimeout = 5;    // seconds without a byte
    unsigned maxConnections = 64;
    unsigned maxConnectionsPerAddress = 16;
    long long count = 0;  // stop after this many indications; 0: run until SIGINT or SIGTERM
};

// Serves until stopped; prints "listening on http://address:port" on err
// once the port is open. Returns the exit status.
int listen(const ListenOptions &options, std::ostream &out, std::ostream &err);

// How one indication is printed (text: several lines ending in a newline;
// JSON: one line).
std::string indicationText(const InstanceV &indication, const std::string &peer);
std::string indicationJson(const InstanceV &indication, const std::string &peer);

}  // namespace cimhost::cli
