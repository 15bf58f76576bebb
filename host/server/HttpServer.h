// The HTTP side of the CIM-XML server: POST requests carrying CIM operations,
// Basic authentication against the users file, the DSP0200 header checks,
// a bounded pool of worker threads, and one log line per request.
#pragma once

#include "CimRequest.h"
#include "CimService.h"
#include "Users.h"

#include <functional>
#include <memory>
#include <string>

namespace cimserver {

struct ServerOptions {
    std::string address = "127.0.0.1";
    int port = 5988;                // 0: any free port
    unsigned threads = 4;           // workers; each serves one connection at a time
    std::size_t queue = 64;         // accepted connections waiting for a worker
    DecodeLimits limits;
    bool authenticate = true;       // false: anybody, with a principal whose text is NULL
    int keepAliveSeconds = 5;
    int ioTimeoutSeconds = 10;
};

class HttpServer {
public:
    using LogSink = std::function<void(const std::string &line)>;

    // users may be null only when options.authenticate is false.
    HttpServer(const CimService &service, const Users *users, ServerOptions options, LogSink log);
    ~HttpServer();
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;

    // Binds the listening socket; returns the port, throws std::runtime_error.
    int bind();
    // Serves until stop(); in-flight requests finish before it returns.
    void run();
    // Safe from any thread.
    void stop();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace cimserver
