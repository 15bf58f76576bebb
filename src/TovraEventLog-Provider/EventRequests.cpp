#include "EventRequests.h"

#include "MethodCommand.h"

#include <algorithm>
#include <ctime>

using namespace tovra;

namespace {

constexpr unsigned kMaxEvents = 256;  // the index is one byte

// Reading or polling an event: buffers that cannot be had leave the result at
// success (the failure is logged with the function's name).
const CommandPlan kEventCommand{ParseSySCommandCode, nullptr, OnSendFailure::Failed, CMPI_RC_OK};

std::string fixedText(const uint8_t *p, std::size_t width) {
    std::string s(reinterpret_cast<const char *>(p), std::find(p, p + width, 0) - p);
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

template <class Send> CMPIStatus eventCommand(const CMPIBroker *broker, int fd, const char *name, Send &&send) {
    logDebug("%s: Sarting\n", name);
    return runCommand(broker, fd, name, kEventCommand, std::forward<Send>(send));
}

}  // namespace

bool SendClearEvent(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *buf) { return sendFrame(rc, fd, buf, 0x24, 1, {}); }

bool SendGetEvent(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *buf, unsigned char index) {
    const uint8_t params[] = {index};
    return sendFrame(rc, fd, buf, 0x1A, 2, params);
}

bool SendPollEvent(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *buf) { return sendFrame(rc, fd, buf, 0x19, 1, {}); }

CMPIStatus ClearEvent(const CMPIBroker *broker, int fd) {
    logDebug("%s: Sarting\n", "ClearEvent");
    const CommandPlan plan{ParseSySCommandCode, "ClearEvent: Memory Allocation Failed."};
    return runCommand(broker, fd, "ClearEvent", plan,
                      [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) { return SendClearEvent(rc, f, m); });
}

CMPIStatus GetEvent(const CMPIBroker *broker, int fd, unsigned char index) {
    return eventCommand(broker, fd, "GetEvent",
                        [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) { return SendGetEvent(rc, f, m, index); });
}

CMPIStatus PollEvent(const CMPIBroker *broker, int fd) {
    return runCommand(broker, fd, "PollEvent", kEventCommand,
                      [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) { return SendPollEvent(rc, f, m); });
}

// Poll payload: [0..1] number of events, [2..5] time of the newest.
bool PollEventLog(CMPIStatus *rc, int fd, unsigned *count, uint32_t *newest) {
    return exchangeWithRetry(
        rc, "EnumTovraEventInfo", [&](CMD_MESSAGE_FIELD *m) { return SendPollEvent(rc, fd, m); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            if (!readInventoryReply(rc, fd, reassembly, reply, "PollEvent")) return false;
            const uint16_t length = replyLength(reassembly);
            *count = length >= 2 ? wire::getLE16(replyPayload(reassembly)) : 0;
            *newest = length >= 6 ? wire::getLE32(replyPayload(reassembly) + 2) : 0;
            return true;
        });
}

// Event payload: [0..3] time, [4] severity, [8..31] device, [32..95] message.
// A one-byte reply (a result letter) means there is no event at this index.
bool ReadEventAt(CMPIStatus *rc, int fd, unsigned index, bool *present, EventInfo *e) {
    return exchangeWithRetry(
        rc, "EnumTovraEventInfo",
        [&](CMD_MESSAGE_FIELD *m) { return SendGetEvent(rc, fd, m, static_cast<unsigned char>(index)); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            if (!readInventoryReply(rc, fd, reassembly, reply, "GetEvent")) return false;
            const uint8_t *p = replyPayload(reassembly);
            *present = replyLength(reassembly) >= 96;
            if (*present) *e = EventInfo{wire::getLE32(p), p[4], fixedText(p + 8, 24), fixedText(p + 32, 64)};
            return true;
        });
}

bool EnumTovraEventInfo(CMPIStatus *rc, int fd, unsigned *count, std::vector<EventInfo> *events) {
    events->clear();
    uint32_t newest = 0;
    if (!PollEventLog(rc, fd, count, &newest)) return false;
    for (unsigned index = 0; index < std::min(*count, kMaxEvents); ++index) {
        bool present = false;
        EventInfo e;
        if (!ReadEventAt(rc, fd, index, &present, &e)) return false;
        if (!present) break;
        events->push_back(std::move(e));
    }
    return true;
}

std::string eventText(const EventInfo &e) {
    static constexpr const char *kSeverities[] = {"Information", "Warning", "Error"};
    const time_t when = e.time;
    tm utc{};
    gmtime_r(&when, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &utc);
    const std::string severity =
        e.severity < std::size(kSeverities) ? kSeverities[e.severity] : "Severity " + std::to_string(e.severity);
    return std::string(stamp) + " " + severity + " " + e.device + ": " + e.message;
}
