// Health changes of a running adapter, made from outside: a disk fails or is
// replaced and rebuilt, the battery weakens, a sensor reading moves, an event
// is logged. Each runs under the simulator lock and the state file's lock, so
// providers in other processes see it at their next exchange.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <strings.h>

#include "Engine.h"
#include "Firmware.h"
#include "ModelRules.h"

namespace tovra::sim {

namespace {

namespace ds = diskstate;

using Args = std::vector<std::string>;

[[noreturn]] void refuse(const std::string &why) { throw std::invalid_argument(why); }

unsigned number(const std::string &text, const char *what, unsigned low, unsigned high) {
    char *end = nullptr;
    errno = 0;
    const unsigned long v = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || v < low || v > high)
        refuse(std::string(what) + " must be a number from " + std::to_string(low) + " to " + std::to_string(high) +
               ", not \"" + text + "\"");
    return static_cast<unsigned>(v);
}

// The disk in 1-based enclosure and slot, as event texts name them.
struct Position {
    unsigned enc, slot;
};
Position position(const Args &a) {
    return {number(a.at(1), "ENC", 1, kEnclosureCount) - 1, number(a.at(2), "SLOT", 1, kMaxSlotsExpander) - 1};
}
Disk &diskAt(Model &m, Position p) {
    Disk *d = m.disk(p.enc, p.slot);
    if (d == nullptr) refuse("no disk in " + diskLabel(p.enc, p.slot));
    return *d;
}

RaidSet *memberSet(Model &m, Position p) {
    for (auto &rs : m.raidSets)
        if (rs && std::find(rs->members.begin(), rs->members.end(), Member{uint8_t(p.enc), uint8_t(p.slot)}) !=
                      rs->members.end())
            return &*rs;
    return nullptr;
}

unsigned setNumber(const Model &m, const RaidSet *rs) {
    for (unsigned i = 0; i < kRaidSetCount; ++i)
        if (m.raidSets[i] && &*m.raidSets[i] == rs) return i;
    return 0;
}

constexpr uint8_t kRebuildingState = 6;
constexpr uint32_t kVolumeRebuilding = 0x08;

// Ends a set's rebuild: the firmware derives its state from its members again.
void clearRebuild(Model &m, unsigned no) {
    m.raidSets[no]->rawState.reset();
    m.raidSets[no]->rawFailMask.reset();
    for (auto &v : m.volumes)
        if (v && v->raidSet == no) v->rawVolumeStatus.reset();
}

struct Change {
    Model &m;
    uint32_t now;
    void event(uint8_t severity, const std::string &device, const std::string &message) {
        logEvent(m, now, severity, device, message);
    }
};

std::string failDisk(Change &c, const Args &a) {
    const Position p = position(a);
    Disk &d = diskAt(c.m, p);
    if (usageOf(d.state) == DiskUsage::Failed) refuse(diskLabel(p.enc, p.slot) + " has failed already");
    d.state = ds::Failed;
    c.event(2, diskLabel(p.enc, p.slot), "Device Failed");
    if (RaidSet *rs = memberSet(c.m, p)) {
        const unsigned no = setNumber(c.m, rs);
        if (rs->rawState == kRebuildingState) clearRebuild(c.m, no);
        c.event(1, setLabel(*rs, no), "RaidSet Degraded");
    }
    return diskLabel(p.enc, p.slot) + " failed";
}

// A failed disk is replaced. A member of a set rejoins it and, when it was
// the set's only failed member, the set rebuilds onto it until
// finish-rebuild: the firmware reports the set as rebuilding (state 6, the
// member still in the fail mask) and its volumes with the rebuilding status.
// Any other disk comes back free.
std::string replaceDisk(Change &c, const Args &a) {
    const Position p = position(a);
    Disk &d = diskAt(c.m, p);
    if (usageOf(d.state) != DiskUsage::Failed) refuse(diskLabel(p.enc, p.slot) + " has not failed");
    RaidSet *rs = memberSet(c.m, p);
    d.state = rs != nullptr ? ds::Member : ds::Free;
    c.event(0, diskLabel(p.enc, p.slot), "Device Inserted");
    if (rs != nullptr && failMask(c.m, *rs) == 0) {
        const auto member = std::find(rs->members.begin(), rs->members.end(), Member{uint8_t(p.enc), uint8_t(p.slot)});
        const unsigned no = setNumber(c.m, rs);
        rs->rawState = kRebuildingState;
        rs->rawFailMask = 1u << (member - rs->members.begin());
        for (auto &v : c.m.volumes)
            if (v && v->raidSet == no) v->rawVolumeStatus = kVolumeRebuilding;
        c.event(0, setLabel(*rs, no), "Start Rebuilding");
    }
    return diskLabel(p.enc, p.slot) + " replaced";
}

std::string finishRebuild(Change &c, const Args &a) {
    const unsigned no = number(a.at(1), "SET", 1, kRaidSetCount) - 1;
    auto &rs = c.m.raidSets[no];
    if (!rs || rs->rawState != kRebuildingState) refuse("RAID set " + a.at(1) + " is not rebuilding");
    clearRebuild(c.m, no);
    c.event(0, setLabel(*rs, no), "Complete Rebuild");
    return setLabel(*rs, no) + " rebuilt";
}

std::string battery(Change &c, const Args &a) {
    Battery &b = c.m.battery;
    const std::string &how = a.at(1);
    if (how == "ok") {
        b = Battery{true, 100, 0, b.temperature ? b.temperature : int8_t(29), 4110};
    } else if (how == "low") {
        b.present = true;
        b.charge = 10;
        b.status = 1;
        b.millivolts = 3500;
    } else if (how == "failed") {
        b.present = true;
        b.status = 2;
    } else if (how == "absent") {
        b = Battery{};
    } else {
        refuse("battery takes ok, low, failed or absent, not \"" + how + "\"");
    }
    return "battery " + how;
}

const char *kindWord(SensorKind k) {
    switch (k) {
    case SensorKind::Voltage: return "voltage";
    case SensorKind::Fan: return "fan";
    case SensorKind::Power: return "power";
    case SensorKind::Temperature: return "temperature";
    }
    return "";
}

// "sensor ENC NAME VALUE" (any kind) or "temperature ENC NAME VALUE".
std::string sensor(Change &c, const Args &a, bool temperatureOnly) {
    const unsigned enc = number(a.at(1), "ENC", 1, kEnclosureCount) - 1;
    const std::string &name = a.at(2);
    char *end = nullptr;
    const float value = std::strtof(a.at(3).c_str(), &end);
    if (a.at(3).empty() || *end != '\0') refuse("VALUE must be a number, not \"" + a.at(3) + "\"");
    for (Sensor &s : c.m.enclosures[enc].sensors) {
        if (strcasecmp(s.name.c_str(), name.c_str()) != 0) continue;
        if (temperatureOnly && s.kind != SensorKind::Temperature) continue;
        s.value = value;
        return std::string(kindWord(s.kind)) + " " + s.name + " of Enc" + a.at(1) + " reads " + a.at(3);
    }
    refuse("Enc" + a.at(1) + " has no " + (temperatureOnly ? "temperature " : "") + "sensor \"" + name + "\"");
}

// "event [-s info|warning|error] [-d DEVICE] TEXT..."
std::string event(Change &c, const Args &a) {
    uint8_t severity = 0;
    std::string device = "Controller";
    size_t i = 1;
    for (; i + 1 < a.size() && (a[i] == "-s" || a[i] == "-d"); i += 2) {
        if (a[i] == "-d") {
            device = a[i + 1];
            continue;
        }
        static const char *const kSeverities[] = {"info", "warning", "error"};
        auto *found = std::find(std::begin(kSeverities), std::end(kSeverities), a[i + 1]);
        if (found == std::end(kSeverities)) refuse("severity is info, warning or error, not \"" + a[i + 1] + "\"");
        severity = static_cast<uint8_t>(found - std::begin(kSeverities));
    }
    std::string text;
    for (; i < a.size(); ++i) text += (text.empty() ? "" : " ") + a[i];
    if (text.empty()) refuse("event wants a text");
    if (device.size() > 24 || text.size() > 64) refuse("the device holds 24 characters and the text 64");
    c.event(severity, device, text);
    return "event logged";
}

struct Command {
    const char *name;
    size_t minArgs, maxArgs;  // the name included; 0: any number
    std::string (*run)(Change &, const Args &);
};

const Command kCommands[] = {
    {"fail-disk", 3, 3, failDisk},
    {"replace-disk", 3, 3, replaceDisk},
    {"finish-rebuild", 2, 2, finishRebuild},
    {"battery", 2, 2, battery},
    {"sensor", 4, 4, [](Change &c, const Args &a) { return sensor(c, a, false); }},
    {"temperature", 4, 4, [](Change &c, const Args &a) { return sensor(c, a, true); }},
    {"event", 2, 0, event},
};

}  // namespace

std::string controlUsage() {
    return "usage: tovra-sim COMMAND ...   (the adapter of TOVRA_SIM_STATE, or of TOVRA_SIM_SCENARIO)\n"
           "  fail-disk ENC SLOT           the disk fails; its RAID set becomes degraded\n"
           "  replace-disk ENC SLOT        a failed disk is replaced; its RAID set rebuilds\n"
           "  finish-rebuild SET           the RAID set's rebuild completes\n"
           "  battery ok|low|failed|absent the cache backup battery's condition\n"
           "  sensor ENC NAME VALUE        a sensor reading (temperature ENC NAME VALUE: a temperature)\n"
           "  event [-s info|warning|error] [-d DEVICE] TEXT...   an event in the log\n"
           "ENC, SLOT and SET count from 1, as the event log names them.\n";
}

std::string runControl(const std::vector<std::string> &args) {
    if (args.empty()) refuse("no command");
    const auto *cmd = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&](const Command &c) { return args[0] == c.name; });
    if (cmd == std::end(kCommands)) refuse("unknown command \"" + args[0] + "\"");
    if (args.size() < cmd->minArgs || (cmd->maxArgs != 0 && args.size() > cmd->maxArgs))
        refuse(args[0] + ": wrong number of arguments");
    std::string done;
    // A refused command changes nothing: it runs on a copy of the model.
    withModel([&](Model &m) {
        Model changed = m;
        Change c{changed, Engine::get().eventTime()};
        done = cmd->run(c, args);
        m = std::move(changed);
    });
    return done;
}

}  // namespace tovra::sim
