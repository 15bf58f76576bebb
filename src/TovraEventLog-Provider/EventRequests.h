// The event log requests: clear (0x24), poll (0x19) and get one event (0x1A),
// the clear operation of "ClearLog", and the reading of the whole log for the
// instance provider.
#pragma once

#include <cmpidt.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Wire.h"

bool SendClearEvent(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *buf);
bool SendGetEvent(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *buf, unsigned char index);
bool SendPollEvent(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *buf);

// One request and its one-letter result (the controller's 120-second limit).
CMPIStatus ClearEvent(const CMPIBroker *broker, int fd);
CMPIStatus GetEvent(const CMPIBroker *broker, int fd, unsigned char index);
CMPIStatus PollEvent(const CMPIBroker *broker, int fd);

// One event of the controller's log.
struct EventInfo {
    uint32_t time = 0;  // seconds since 1970, UTC
    uint8_t severity = 0;
    std::string device;
    std::string message;
};

// The poll request read as data: the event count and the newest event's time.
bool PollEventLog(CMPIStatus *rc, int fd, unsigned *count, uint32_t *newest);
// The get-event request read as data: the event at `index` (0 the newest);
// present is false when the firmware has none there.
bool ReadEventAt(CMPIStatus *rc, int fd, unsigned index, bool *present, EventInfo *e);

// The log: its event count (poll) and the events, newest first (get, index 0
// up, until the firmware answers a one-letter reply or the count is reached).
// Each read is one inventory exchange with the retry rule.
bool EnumTovraEventInfo(CMPIStatus *rc, int fd, unsigned *count, std::vector<EventInfo> *events);

// "2026-11-23 14:27:56 Warning Enc1 Slot3: Disk Failed"
std::string eventText(const EventInfo &e);
