#include "AlertMonitor.h"

#include "AlertDelivery.h"
#include "Platform.h"

#include <cmpimacs.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <map>

namespace tovra::alerts {

namespace {

constexpr auto kDefaultInterval = std::chrono::seconds(5);
// How long the call that starts the thread waits for its first look at the
// adapter: what changes after that call returns is indicated, and a sick
// adapter still cannot hold the call for long.
constexpr auto kFirstLookWait = std::chrono::seconds(2);

CMPIStatus ok() { return CMPIStatus{CMPI_RC_OK, nullptr}; }

std::string nameSpaceOf(const CMPIObjectPath *path) {
    CMPIString *ns = path != nullptr ? CMGetNameSpace(path, nullptr) : nullptr;
    const char *text = ns != nullptr ? CMGetCharsPtr(ns, nullptr) : nullptr;
    return text != nullptr ? text : "";
}

// The firmware's event severity (0 information, 1 warning, 2 error).
uint16_t severityOfEvent(uint8_t firmware) {
    switch (firmware) {
        case 0: return severity::Information;
        case 1: return severity::Warning;
        case 2: return severity::Critical;
        default: return severity::Unknown;
    }
}

// Oldest first; events with the same content in one round get "-2", "-3".
void addEventAlerts(const std::vector<EventInfo> &fresh, const HealthSnapshot *health, const std::string &system,
                    std::vector<Alert> &alerts) {
    std::map<std::string, unsigned> seen;
    for (auto e = fresh.rbegin(); e != fresh.rend(); ++e) {
        const std::string print = eventFingerprint(*e);
        const unsigned n = ++seen[print];
        Alert a;
        a.identifier = "Tovra:" + system + ":E" + print + (n > 1 ? "-" + std::to_string(n) : "");
        a.eventId = "event:" + print;
        a.time = e->time;
        a.perceivedSeverity = severityOfEvent(e->severity);
        a.alertType = alerttype::DeviceAlert;
        a.probableCause = cause::Other;
        a.message = e->device + ": " + e->message;
        a.probableCauseDescription = e->message;
        if (health != nullptr) {
            const auto named = health->devices.find(e->device);
            a.element = named != health->devices.end() ? named->second : health->controller;
        }
        alerts.push_back(std::move(a));
    }
}

}  // namespace

AlertMonitor &AlertMonitor::instance() {
    static AlertMonitor monitor;  // goes with the library
    return monitor;
}

// A CIMOM calls cleanup before it unloads the library; a thread still
// running at unload or exit is stopped here all the same.
AlertMonitor::~AlertMonitor() {
    std::lock_guard lock(control_);
    if (thread_.joinable()) stop();
}

std::chrono::milliseconds AlertMonitor::interval() {
    const char *text = std::getenv("TOVRA_ALERT_INTERVAL");
    if (text == nullptr || *text == '\0') return kDefaultInterval;
    char *end = nullptr;
    const double seconds = std::strtod(text, &end);
    if (*end != '\0' || !std::isfinite(seconds) || seconds < 0.01 || seconds > 86400) return kDefaultInterval;
    return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

void AlertMonitor::setBroker(const CMPIBroker *broker) {
    std::lock_guard lock(control_);
    broker_ = broker;
}

CMPIStatus AlertMonitor::activate(const CMPIContext *ctx, const CMPISelectExp *filter,
                                  const CMPIObjectPath *classPath) {
    std::lock_guard lock(control_);
    if (filters_.empty()) {
        const std::string ns = nameSpaceOf(classPath);
        if (!ns.empty()) nameSpace_ = ns;
    }
    filters_.insert(filter);
    reconcile(ctx);
    return ok();
}

CMPIStatus AlertMonitor::deactivate(const CMPISelectExp *filter) {
    std::lock_guard lock(control_);
    filters_.erase(filter);
    reconcile(nullptr);
    return ok();
}

CMPIStatus AlertMonitor::enable(const CMPIContext *ctx) {
    std::lock_guard lock(control_);
    enabled_ = true;
    reconcile(ctx);
    return ok();
}

CMPIStatus AlertMonitor::disable() {
    std::lock_guard lock(control_);
    enabled_ = false;
    reconcile(nullptr);
    return ok();
}

CMPIStatus AlertMonitor::cleanup() {
    std::lock_guard lock(control_);
    filters_.clear();
    enabled_ = false;
    reconcile(nullptr);
    return ok();
}

void AlertMonitor::reconcile(const CMPIContext *ctx) {
    const bool wanted = enabled_ && !filters_.empty();
    if (wanted && !thread_.joinable() && ctx != nullptr && broker_ != nullptr) start(ctx);
    if (!wanted && thread_.joinable()) stop();
}

void AlertMonitor::start(const CMPIContext *ctx) {
    CMPIContext *threadContext = CBPrepareAttachThread(broker_, ctx);
    if (threadContext == nullptr) {
        logAlert("%s: no thread context; alerts are not watched\n", kProviderName);
        return;
    }
    watch_ = Watch{};
    std::unique_lock lock(wakeMutex_);
    stopping_ = false;
    firstLookDone_ = false;
    thread_ = std::thread([this, threadContext, broker = broker_, ns = nameSpace_, every = interval()] {
        run(broker, ns, threadContext, every);
    });
    wake_.wait_for(lock, kFirstLookWait, [this] { return firstLookDone_; });
}

bool AlertMonitor::stopAsked() {
    std::lock_guard lock(wakeMutex_);
    return stopping_;
}

void AlertMonitor::stop() {
    {
        std::lock_guard lock(wakeMutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void AlertMonitor::run(const CMPIBroker *broker, const std::string &ns, CMPIContext *threadContext,
                       std::chrono::milliseconds every) {
    CBAttachThread(broker, threadContext);
    // The first round reads what the adapter shows now: it raises nothing.
    for (bool first = true;; first = false) {
        if (!first) {
            std::unique_lock lock(wakeMutex_);
            if (wake_.wait_for(lock, every, [this] { return stopping_; })) break;
        }
        std::vector<Alert> alerts;
        std::string systemName;
        round(watch_, alerts, systemName);
        if (first) {
            std::lock_guard lock(wakeMutex_);
            firstLookDone_ = true;
            wake_.notify_all();
        }
        // Delivered holding no lock of this provider; a stop asked for
        // meanwhile (the last filter went) ends the deliveries.
        for (const Alert &a : alerts) {
            if (stopAsked()) break;
            deliverAlert(broker, threadContext, ns, systemName, a);
        }
    }
    CBDetachThread(broker, threadContext);
}

void AlertMonitor::round(Watch &w, std::vector<Alert> &alerts, std::string &systemName) {
    DeviceFd device;
    std::string what = "device";
    std::optional<HealthSnapshot> health;
    std::vector<EventInfo> fresh;
    const bool answered = device.valid() && (health = readHealth(device.get(), what)).has_value() &&
                          (what = "event log", w.events.newEvents(device.get(), fresh));
    if (!answered) {
        // A fault skips the round; the outage is logged once.
        if (!w.outage) logAlert("%s: the adapter did not answer (%s); alerts wait until it does\n", kProviderName,
                                what.c_str());
        w.outage = true;
        return;
    }
    if (w.outage) logAlert("%s: the adapter answers again\n", kProviderName);
    w.outage = false;
    systemName = health->systemName;
    addEventAlerts(fresh, &*health, systemName, alerts);
    const uint32_t now = static_cast<uint32_t>(platformTime());
    std::vector<Alert> changes = healthChanges(w.known, *health, now);
    if (!w.healthKnown) changes.clear();  // the first reading only sets what is known
    w.healthKnown = true;
    static std::atomic<unsigned> sequence{0};
    for (Alert &a : changes) {
        a.identifier = "Tovra:" + systemName + ":H" + std::to_string(now) + "." + std::to_string(++sequence);
        alerts.push_back(std::move(a));
    }
}

}  // namespace tovra::alerts
