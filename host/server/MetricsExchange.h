// GET /metrics: the adapter's and the server's metric families, in the format
// the client's Accept header asks for. Runs on a worker thread like a CIM
// operation; the network side has already checked the head.
#pragma once

#include "AdapterMetrics.h"
#include "CimExchange.h"
#include "ServerStats.h"

#include <functional>

namespace cimserver {

struct MetricsContext {
    const AdapterMetrics &adapter;
    const Users *users;  // null: anybody may read the metrics
    ServerStats &stats;
    std::function<unsigned()> openConnections;
};

Reply serveMetrics(const MetricsContext &context, const RequestHead &head, RequestNotes &notes);

}  // namespace cimserver
