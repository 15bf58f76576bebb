// The simulator's clock: the real clocks, or a virtual one that only moves when
// the process sleeps, polls an empty reply, or a test advances it.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

namespace tovra::sim {

class Clock {
public:
    // A point in time in the domain that was in use when it was taken.
    struct Stamp {
        bool isVirtual;
        int64_t ns;
    };

    bool isVirtual() const { return virtual_.load(std::memory_order_acquire); }
    void setVirtual(bool on);
    void set(time_t seconds);
    void advanceNs(int64_t ns) { virtualNs_ += ns; }
    void setIdleStep(double seconds) { idleStepNs_ = static_cast<int64_t>(seconds * 1e9); }
    void idle() {  // an empty poll of the reply
        if (isVirtual()) virtualNs_ += idleStepNs_.load();
    }
    time_t virtualSeconds() const { return static_cast<time_t>(virtualNs_.load() / 1000000000); }
    double seconds() const;  // of the clock in use

    Stamp after(int64_t ns) const;  // now + ns, in the domain in use
    bool reached(const Stamp &deadline) const;

private:
    std::atomic<bool> virtual_{false};
    bool virtualSet_ = false;
    // Atomic: time() and nanosleep() of any thread read and move the clock.
    std::atomic<int64_t> virtualNs_{0};
    std::atomic<int64_t> idleStepNs_{250000000};
};

int64_t realtimeNs();
int64_t monotonicNs();

}  // namespace tovra::sim
