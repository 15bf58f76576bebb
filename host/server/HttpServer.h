// The network side of the CIM-XML server, on libmicrohttpd: one event loop
// thread per listening socket (HTTP, and HTTPS when a certificate is given)
// owns every connection, and a bounded pool of workers runs the operations
// while their connections are suspended. A slow or idle client costs a
// descriptor and its connection's memory pool, never a worker.
#pragma once

#include "CimExchange.h"
#include "CimRequest.h"
#include "CimService.h"
#include "HttpRules.h"
#include "Users.h"

#include <functional>
#include <memory>
#include <string>

namespace cimserver {

struct ServerOptions {
    std::string address = "127.0.0.1";
    int port = 5988;       // HTTP; 0: any free port
    int httpsPort = 5989;  // HTTPS, served when certFile and keyFile are given; 0: any free port
    std::string certFile, keyFile;
    unsigned threads = 4;     // workers running operations
    std::size_t queue = 64;   // operations waiting for a worker; beyond, 503
    DecodeLimits limits;      // the body's XML; limits.maxBytes is the body limit
    std::size_t maxHeaderBytes = 16 * 1024;
    std::size_t maxHeaders = 64;
    unsigned maxConnections = 256;            // beyond, 503 and close
    unsigned maxConnectionsPerAddress = 32;   // from one client address; beyond, 503 and close
    double requestTimeout = 10;   // seconds for a request to arrive whole, counted from the
                                  // connection's start or the previous reply; also for sending a reply
    double idleTimeout = 5;       // seconds without a byte before a connection is closed
    double shutdownTimeout = 5;   // seconds operations in flight get to finish on stop()
    bool authenticate = true;     // false: anybody, with a principal whose text is NULL
    bool metricsNoAuth = false;   // GET /metrics without credentials
};

class HttpServer {
public:
    using LogSink = std::function<void(const std::string &line)>;

    // users may be null only when options.authenticate is false.
    HttpServer(const CimService &service, const Users *users, ServerOptions options, LogSink log);
    ~HttpServer();
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;

    struct Ports {
        int http = -1;
        int https = -1;  // -1: not served
    };
    // Binds the listening sockets and starts the daemons; throws
    // std::runtime_error ("...: address in use").
    Ports bind();
    // Serves until stop(), then lets operations in flight finish up to the
    // shutdown deadline and closes every connection. False when an operation
    // was still running at the deadline: the caller should then end the
    // process without unwinding what the operation uses.
    bool run();
    // Safe from any thread.
    void stop();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace cimserver
