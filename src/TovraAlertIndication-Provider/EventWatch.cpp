#include "EventWatch.h"

#include <algorithm>
#include <cstdio>

namespace tovra::alerts {

namespace {

constexpr unsigned kLogSize = 256;  // the event index is one byte

bool same(const EventInfo &a, const EventInfo &b) {
    return a.time == b.time && a.severity == b.severity && a.device == b.device && a.message == b.message;
}

}  // namespace

std::string eventFingerprint(const EventInfo &e) {
    uint64_t h = 1469598103934665603ull;  // FNV-1a
    auto mix = [&h](const void *p, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) {
            h ^= static_cast<const unsigned char *>(p)[i];
            h *= 1099511628211ull;
        }
    };
    mix(&e.time, sizeof e.time);
    mix(&e.severity, sizeof e.severity);
    mix(e.device.data(), e.device.size() + 1);
    mix(e.message.data(), e.message.size());
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(h));
    return text;
}

bool EventWatch::read(int fd, unsigned index, bool &present, EventInfo &e) {
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    present = false;
    return ReadEventAt(&rc, fd, index, &present, &e) && rc.rc == CMPI_RC_OK;
}

bool EventWatch::newEvents(int fd, std::vector<EventInfo> &fresh) {
    fresh.clear();
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    unsigned count = 0;
    uint32_t newestTime = 0;
    if (!PollEventLog(&rc, fd, &count, &newestTime) || rc.rc != CMPI_RC_OK) return false;
    std::vector<EventInfo> read;
    bool present = false;
    EventInfo e;
    const unsigned readable = std::min(count, kLogSize);
    if (based_ && count == count_ && newestTime == newestTime_) {
        // Nothing was added, unless the log is full (its count stays) and the
        // newest event came within the same second: then the newest tells.
        if (count < kLogSize || !newest_) return true;
        if (!this->read(fd, 0, present, e)) return false;
        if (present && same(e, *newest_)) return true;
    }
    if (!based_) {
        // Where the log stands: its newest event only.
        if (readable > 0 && !this->read(fd, 0, present, e)) return false;
        if (present) read.push_back(e);
    } else {
        // Usually the events were added on top: the one that was newest is
        // now at index `added`, and only those above it are read.
        const unsigned added = count > count_ ? count - count_ : 0;
        bool onTop = false;
        if (newest_ && added > 0 && added < readable) {
            if (!this->read(fd, added, present, e)) return false;
            onTop = present && same(e, *newest_);
        }
        for (unsigned index = 0; index < (onTop ? added : readable); ++index) {
            if (!this->read(fd, index, present, e)) return false;
            if (!present || (!onTop && newest_ && same(e, *newest_))) break;
            read.push_back(e);
        }
        fresh = read;
    }
    based_ = true;
    count_ = count;
    newestTime_ = newestTime;
    if (!read.empty())
        newest_ = read.front();
    else if (count == 0)
        newest_.reset();
    return true;
}

}  // namespace tovra::alerts
