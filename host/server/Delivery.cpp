#include "Delivery.h"

#include "ExportClient.h"
#include "XmlWriter.h"

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <thread>

namespace cimserver {

using cimhost::InstanceV;
using cimhost::Value;
using Clock = std::chrono::steady_clock;

std::string exportIndicationBody(const InstanceV &indication, const std::string &messageId) {
    std::string out = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">\n";
    XmlWriter w(out);
    w.openWith("MESSAGE", {{"ID", messageId}, {"PROTOCOLVERSION", "1.0"}});
    out += "\n<SIMPLEEXPREQ>\n";
    w.openWith("EXPMETHODCALL", {{"NAME", "ExportIndication"}});
    out += '\n';
    w.openWith("EXPPARAMVALUE", {{"NAME", "NewIndication"}});
    out += '\n';
    w.instance(indication);
    w.close("EXPPARAMVALUE");
    w.close("EXPMETHODCALL");
    out += "</SIMPLEEXPREQ>\n</MESSAGE>\n</CIM>\n";
    return out;
}

namespace {

std::chrono::milliseconds millis(double seconds) {
    return std::chrono::milliseconds(static_cast<long long>(std::llround(seconds * 1000)));
}

// The context of this run's sequence numbers: a new one after every start.
std::string runContext() {
    auto now = std::chrono::system_clock::now().time_since_epoch();
    return "tovra-cimd#" + std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

}  // namespace

struct Delivery::Channel {
    std::string id, url;
    std::string context;  // SequenceContext of this destination
    const DeliveryOptions &options;
    const LogSink &log;

    std::mutex mutex;
    std::condition_variable wake;
    std::deque<InstanceV> queue;  // the front one is being sent
    std::int64_t nextSequence = 0;
    DeliveryCounters counters;
    Clock::time_point lastOverflowLog{};
    std::uint64_t overflowSinceLog = 0;
    std::atomic<bool> stopping{false};
    std::thread thread;

    Channel(std::string i, std::string u, std::string c, const DeliveryOptions &o, const LogSink &l)
        : id(std::move(i)), url(std::move(u)), context(std::move(c)), options(o), log(l) {}

    void stop() {
        {
            std::lock_guard lock(mutex);
            stopping = true;
        }
        wake.notify_all();
    }

    bool enqueue(InstanceV indication) {
        std::lock_guard lock(mutex);
        if (stopping) return false;
        if (queue.size() >= options.queue) {
            ++counters.overflowed;
            ++overflowSinceLog;
            // One line a second at most, however fast indications come.
            const auto now = Clock::now();
            if (now - lastOverflowLog >= std::chrono::seconds(1)) {
                log("delivery to " + url + ": queue full (" + std::to_string(options.queue) + "), " +
                    std::to_string(overflowSinceLog) + " indication(s) dropped, " +
                    std::to_string(counters.overflowed) + " in all");
                lastOverflowLog = now;
                overflowSinceLog = 0;
            }
            return false;
        }
        setNamed(indication.properties, "SequenceContext", Value::string(context));
        setNamed(indication.properties, "SequenceNumber", Value::s64(nextSequence));
        nextSequence = nextSequence == INT64_MAX ? 0 : nextSequence + 1;
        queue.push_back(std::move(indication));
        wake.notify_one();
        return true;
    }

    // Waits up to `pause`; false when the channel is stopping.
    bool pauseFor(std::chrono::milliseconds pause) {
        std::unique_lock lock(mutex);
        return !wake.wait_for(lock, pause, [&] { return stopping.load(); });
    }

    void run() {
        ExportClient client;
        std::uint64_t messageId = 0;
        for (;;) {
            InstanceV next;
            {
                std::unique_lock lock(mutex);
                wake.wait(lock, [&] { return stopping || !queue.empty(); });
                if (stopping) return;
                next = queue.front();
            }
            const std::string body = exportIndicationBody(next, std::to_string(++messageId));
            double backoff = options.retryInterval;
            for (unsigned attempt = 0;; ++attempt) {
                ExportClient::Result r = client.post(url, body, millis(options.timeout), stopping);
                if (stopping) return;
                if (r.delivered) {
                    std::lock_guard lock(mutex);
                    ++counters.delivered;
                    queue.pop_front();
                    break;
                }
                if (attempt >= options.retries) {
                    log("delivery to " + url + " failed after " + std::to_string(attempt + 1) + " attempt(s) (" +
                        r.error + "); indication dropped");
                    std::lock_guard lock(mutex);
                    ++counters.failed;
                    queue.pop_front();
                    break;
                }
                if (attempt == 0) log("delivery to " + url + " failed (" + r.error + "); retrying");
                if (!pauseFor(millis(backoff))) return;
                backoff = std::min(backoff * 2, options.maxRetryInterval);
                std::lock_guard lock(mutex);
                ++counters.retried;
            }
        }
    }
};

Delivery::Delivery(DeliveryOptions options, LogSink log)
    : options_(options), log_(std::move(log)), context_(runContext()) {}

Delivery::~Delivery() {
    std::vector<std::shared_ptr<Channel>> all;
    {
        std::lock_guard lock(mutex_);
        for (auto &[id, channel] : channels_) all.push_back(channel);
        channels_.clear();
        all.insert(all.end(), retired_.begin(), retired_.end());
        retired_.clear();
    }
    for (auto &c : all) c->stop();
    for (auto &c : all) {
        if (c->thread.joinable()) c->thread.join();
        const DeliveryCounters &n = c->counters;
        if (n.delivered + n.failed + n.overflowed + c->queue.size() != 0)
            log_("delivery to " + c->url + ": " + std::to_string(n.delivered) + " delivered, " + std::to_string(n.failed) +
                 " failed, " + std::to_string(n.overflowed) + " dropped (queue full), " +
                 std::to_string(c->queue.size()) + " not sent");
    }
}

void Delivery::add(const std::string &id, const std::string &url) {
    std::lock_guard lock(mutex_);
    if (channels_.count(id) != 0) return;
    auto channel = std::make_shared<Channel>(id, url, context_ + "#" + std::to_string(channels_.size() + retired_.size()),
                                             options_, log_);
    channel->thread = std::thread([c = channel.get()] { c->run(); });
    channels_.emplace(id, std::move(channel));
}

void Delivery::remove(const std::string &id) {
    std::shared_ptr<Channel> channel;
    {
        std::lock_guard lock(mutex_);
        auto it = channels_.find(id);
        if (it == channels_.end()) return;
        channel = it->second;
        channels_.erase(it);
        retired_.push_back(channel);
    }
    channel->stop();
}

bool Delivery::enqueue(const std::string &id, InstanceV indication) {
    std::shared_ptr<Channel> channel;
    {
        std::lock_guard lock(mutex_);
        auto it = channels_.find(id);
        if (it == channels_.end()) return false;
        channel = it->second;
    }
    return channel->enqueue(std::move(indication));
}

DeliveryCounters Delivery::counters(const std::string &id) const {
    std::shared_ptr<Channel> channel;
    {
        std::lock_guard lock(mutex_);
        auto it = channels_.find(id);
        if (it == channels_.end()) return {};
        channel = it->second;
    }
    std::lock_guard lock(channel->mutex);
    DeliveryCounters c = channel->counters;
    c.waiting = channel->queue.size();
    return c;
}

}  // namespace cimserver
