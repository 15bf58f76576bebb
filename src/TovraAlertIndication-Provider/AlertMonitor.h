// The one watcher of a provider process: while at least one filter is active
// and indications are enabled, a thread reads the adapter every interval and
// delivers an indication per new event and per health change. The thread
// starts and stops with those calls (and at cleanup) and is always joined
// before they return.
#pragma once

#include "Alert.h"
#include "EventWatch.h"
#include "HealthState.h"

#include <cmpift.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace tovra::alerts {

class AlertMonitor {
public:
    static AlertMonitor &instance();
    ~AlertMonitor();
    AlertMonitor(const AlertMonitor &) = delete;
    AlertMonitor &operator=(const AlertMonitor &) = delete;

    void setBroker(const CMPIBroker *broker);
    CMPIStatus activate(const CMPIContext *ctx, const CMPISelectExp *filter, const CMPIObjectPath *classPath);
    CMPIStatus deactivate(const CMPISelectExp *filter);
    CMPIStatus enable(const CMPIContext *ctx);
    CMPIStatus disable();
    // Stops the thread and forgets every filter.
    CMPIStatus cleanup();

    // The poll interval: TOVRA_ALERT_INTERVAL seconds (fractions allowed,
    // 0.01 to 86400), else 5 seconds. Read when the thread starts.
    static std::chrono::milliseconds interval();

private:
    AlertMonitor() = default;
    // Starts or stops the thread to match the filters and the enabled flag.
    // Called with control_ held; ctx is the calling request's (may be null to stop).
    void reconcile(const CMPIContext *ctx);
    void start(const CMPIContext *ctx);
    void stop();
    bool stopAsked();
    void run(const CMPIBroker *broker, const std::string &ns, CMPIContext *threadContext,
             std::chrono::milliseconds every);

    // What the thread knows between rounds; touched by the thread only while
    // it runs, and reset by start before it does.
    struct Watch {
        bool healthKnown = false;
        KnownConditions known;
        EventWatch events;
        bool outage = false;
    };
    void round(Watch &w, std::vector<Alert> &alerts, std::string &systemName);

    std::mutex control_;  // serialises the MI calls; never taken by the thread
    const CMPIBroker *broker_ = nullptr;
    std::set<const CMPISelectExp *> filters_;
    bool enabled_ = false;
    std::string nameSpace_ = "tovra/cimv2";
    std::thread thread_;
    Watch watch_;

    std::mutex wakeMutex_;  // guards stopping_ and firstLookDone_
    std::condition_variable wake_;
    bool stopping_ = false;
    bool firstLookDone_ = false;  // the thread's first round is over
};

}  // namespace tovra::alerts
