// Sends CIM-XML export requests over HTTP with libcurl: one handle per
// destination (so connections are kept alive between requests), http only,
// no redirects followed, a deadline per request, and an answer of at most
// 64 KiB read.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace cimserver {

class ExportClient {
public:
    ExportClient();
    ~ExportClient();
    ExportClient(const ExportClient &) = delete;
    ExportClient &operator=(const ExportClient &) = delete;

    struct Result {
        bool delivered = false;  // the listener answered 2xx
        std::string error;       // why not: the transfer's error or the HTTP status
    };
    // POSTs the body to the URL; gives up at the timeout or soon after
    // `cancel` becomes true.
    Result post(const std::string &url, const std::string &body, std::chrono::milliseconds timeout,
                const std::atomic<bool> &cancel);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace cimserver
