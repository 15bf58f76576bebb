// The events the adapter logs while alerts are watched: the poll request
// tells the log's count and newest time each round, and only when they moved
// are the new events read with the get-event request.
#pragma once

#include "../TovraEventLog-Provider/EventRequests.h"

#include <optional>
#include <string>
#include <vector>

namespace tovra::alerts {

class EventWatch {
public:
    // The events logged since the last call, newest first. The first call
    // only notes where the log stands. False (nothing noted) when the
    // adapter did not answer.
    bool newEvents(int fd, std::vector<EventInfo> &fresh);

private:
    bool read(int fd, unsigned index, bool &present, EventInfo &e);

    bool based_ = false;
    unsigned count_ = 0;
    uint32_t newestTime_ = 0;
    std::optional<EventInfo> newest_;
};

// A fingerprint of an event's content (time, severity, device, text): 16 hex digits.
std::string eventFingerprint(const EventInfo &e);

}  // namespace tovra::alerts
