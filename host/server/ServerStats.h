// The server's own counters, kept by the event loops and read by a scrape:
// requests by operation and CIM status, HTTP responses by status, request
// durations, provider errors, refused connections. Every label value is from
// a fixed set (operation names of the server's table, status codes), never
// text a client sent.
#pragma once

#include "Exposition.h"
#include "HttpRules.h"

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace cimserver {

class ServerStats {
public:
    // Upper bounds of the request duration buckets, in seconds.
    static constexpr std::array<double, 14> kBounds = {0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                                       0.1,    0.25,  0.5,    1,     2.5,  5,     10};

    struct Finished {
        Route route = Route::Cim;
        int httpStatus = 0;           // 0: none was sent
        std::string_view operation;   // empty: the request never reached an operation
        int cimStatus = 0;
        bool providerError = false;
        double seconds = 0;
    };
    void finished(const Finished &request);
    void providerErrors(unsigned count);
    void connectionRefused();

    // The server's families.
    void write(Exposition &out, unsigned openConnections) const;

private:
    struct Durations {
        std::array<uint64_t, kBounds.size()> buckets{};  // per bucket, not cumulative
        uint64_t count = 0;
        double sum = 0;
    };
    mutable std::mutex mutex_;
    std::map<std::pair<std::string, int>, uint64_t> operations_;
    std::map<int, uint64_t> responses_;
    std::array<Durations, 2> durations_;  // by Route
    uint64_t providerErrors_ = 0;
    uint64_t refused_ = 0;
};

}  // namespace cimserver
