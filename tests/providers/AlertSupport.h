// What the alert tests share: a watcher that rounds every 20 ms, cache
// counters kept in the process, and a bounded wait for what the watcher's
// thread does.
#pragma once

#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

namespace alert_support {

// Set in every test file that includes this, before any host loads the provider.
[[maybe_unused]] static const bool environment = [] {
    ::setenv("TOVRA_ALERT_INTERVAL", "0.02", 1);  // a round every 20 ms
    ::setenv("TOVRA_CACHE_EPOCHS", "", 1);        // cache counters in the process
    return true;
}();

// Polls cond until it holds, for at most ten seconds.
inline bool eventually(const std::function<bool()> &cond) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace alert_support
