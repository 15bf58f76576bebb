// Delivery of indications to CIM-XML listeners. Each destination has its own
// bounded queue and its own thread, which POSTs export requests one at a time
// in order and retries a failed one with a doubling back-off. Whoever hands
// an indication over never waits: enqueue() only takes a short lock, and an
// indication that finds the queue full is dropped, counted and logged. A slow
// or dead listener therefore holds up only its own queue.
#pragma once

#include "Value.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cimserver {

struct DeliveryOptions {
    std::size_t queue = 1000;        // indications waiting per destination; beyond, dropped
    unsigned retries = 3;            // attempts after the first one, then the indication is dropped
    double retryInterval = 20;       // seconds before the first retry; doubled for each further one
    double maxRetryInterval = 300;   // the back-off's ceiling
    double timeout = 10;             // seconds for one export request, connecting included
};

// What a destination's queue has done so far.
struct DeliveryCounters {
    std::uint64_t delivered = 0;   // accepted by the listener (HTTP 2xx)
    std::uint64_t failed = 0;      // dropped after the last retry
    std::uint64_t overflowed = 0;  // dropped because the queue was full
    std::uint64_t retried = 0;     // attempts after a failure
    std::size_t waiting = 0;       // in the queue now, the one being sent included
};

class Delivery {
public:
    using LogSink = std::function<void(const std::string &)>;
    Delivery(DeliveryOptions options, LogSink log);
    ~Delivery();  // abandons what is queued; an export request in flight is cut short
    Delivery(const Delivery &) = delete;
    Delivery &operator=(const Delivery &) = delete;

    // A destination by an identifier of the caller's choosing (its path),
    // with the http URL its requests go to. Adding one that exists changes nothing.
    void add(const std::string &id, const std::string &url);
    void remove(const std::string &id);
    // Queues an indication for a destination; false when it was dropped
    // (unknown destination, or its queue is full). Never blocks.
    bool enqueue(const std::string &id, cimhost::InstanceV indication);
    // Counters of one destination (zero for an unknown one).
    DeliveryCounters counters(const std::string &id) const;

    struct Channel;

private:
    const DeliveryOptions options_;
    LogSink log_;
    const std::string context_;  // the SequenceContext prefix of this run
    mutable std::mutex mutex_;
    std::map<std::string, std::shared_ptr<Channel>> channels_;
    std::vector<std::shared_ptr<Channel>> retired_;  // removed; their threads are joined on destruction
};

// The body of an ExportIndication request carrying the indication.
std::string exportIndicationBody(const cimhost::InstanceV &indication, const std::string &messageId);

}  // namespace cimserver
