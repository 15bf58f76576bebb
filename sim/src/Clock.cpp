#include "Clock.h"

namespace tovra::sim {

namespace {

int64_t clockNs(clockid_t id) {
    timespec ts{};
    clock_gettime(id, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace

int64_t realtimeNs() { return clockNs(CLOCK_REALTIME); }
int64_t monotonicNs() { return clockNs(CLOCK_MONOTONIC); }

void Clock::setVirtual(bool on) {
    if (on && !virtualSet_) set(static_cast<time_t>(realtimeNs() / 1000000000));
    virtual_.store(on, std::memory_order_release);
}

void Clock::set(time_t seconds) {
    virtualNs_ = static_cast<int64_t>(seconds) * 1000000000;
    virtualSet_ = true;
}

double Clock::seconds() const {
    return static_cast<double>(isVirtual() ? virtualNs_.load() : realtimeNs()) / 1e9;
}

Clock::Stamp Clock::after(int64_t ns) const {
    return isVirtual() ? Stamp{true, virtualNs_.load() + ns} : Stamp{false, monotonicNs() + ns};
}

bool Clock::reached(const Stamp &deadline) const {
    return (deadline.isVirtual ? virtualNs_.load() : monotonicNs()) >= deadline.ns;
}

}  // namespace tovra::sim
