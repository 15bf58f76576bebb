#include "ServerStats.h"

#include <algorithm>

namespace cimserver {

namespace {

constexpr MetricFamily kCimRequests{"tovra_cim_requests", MetricType::Counter, "",
                                    "CIM operations answered, by operation and CIM status code (0 is success)"};
constexpr MetricFamily kResponses{"tovra_http_responses", MetricType::Counter, "",
                                  "HTTP responses sent, by status code"};
constexpr MetricFamily kDurations{"tovra_request_duration_seconds", MetricType::Histogram, "seconds",
                                  "Time from a request's arrival to its reply, by handler (cim, metrics)"};
constexpr MetricFamily kProviderErrors{
    "tovra_provider_errors", MetricType::Counter, "",
    "Operations a provider failed (CIM_ERR_FAILED or a status outside the standard ones), for clients and scrapes"};
constexpr MetricFamily kRefused{"tovra_connections_refused", MetricType::Counter, "",
                                "Connections closed on arrival: over a connection limit, or while the server stops"};
constexpr MetricFamily kOpen{"tovra_open_connections", MetricType::Gauge, "", "Client connections open now"};

constexpr const char *kHandlers[] = {"cim", "metrics"};

}  // namespace

void ServerStats::finished(const Finished &r) {
    std::lock_guard lock(mutex_);
    if (!r.operation.empty()) ++operations_[{std::string(r.operation), r.cimStatus}];
    if (r.httpStatus != 0) ++responses_[r.httpStatus];
    if (r.providerError) ++providerErrors_;
    if (r.httpStatus == 0) return;  // the client left before its reply
    Durations &d = durations_[static_cast<std::size_t>(r.route)];
    auto bucket = std::lower_bound(kBounds.begin(), kBounds.end(), r.seconds);
    if (bucket != kBounds.end()) ++d.buckets[static_cast<std::size_t>(bucket - kBounds.begin())];
    ++d.count;
    d.sum += r.seconds;
}

void ServerStats::providerErrors(unsigned count) {
    std::lock_guard lock(mutex_);
    providerErrors_ += count;
}

void ServerStats::connectionRefused() {
    std::lock_guard lock(mutex_);
    ++refused_;
}

void ServerStats::write(Exposition &out, unsigned openConnections) const {
    std::lock_guard lock(mutex_);
    out.family(kCimRequests);
    for (const auto &[key, count] : operations_)
        out.sample({{"operation", key.first}, {"cim_status", std::to_string(key.second)}}, static_cast<double>(count));
    out.family(kResponses);
    for (const auto &[status, count] : responses_) out.sample({{"code", std::to_string(status)}}, static_cast<double>(count));
    out.family(kDurations);
    for (std::size_t route = 0; route < durations_.size(); ++route) {
        const Durations &d = durations_[route];
        std::array<uint64_t, kBounds.size()> cumulative{};
        uint64_t running = 0;
        for (std::size_t i = 0; i < kBounds.size(); ++i) cumulative[i] = running += d.buckets[i];
        out.histogram({{"handler", kHandlers[route]}}, kBounds, cumulative, d.count, d.sum);
    }
    out.family(kProviderErrors);
    out.sample({}, static_cast<double>(providerErrors_));
    out.family(kRefused);
    out.sample({}, static_cast<double>(refused_));
    out.family(kOpen);
    out.sample({}, openConnections);
}

}  // namespace cimserver
