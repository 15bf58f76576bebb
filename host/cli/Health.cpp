#include "Health.h"

#include "Format.h"
#include "HealthSensors.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <span>
#include <stdexcept>
#include <tuple>

namespace cimhost::cli {
namespace {

// ---- Rule tables -----------------------------------------------------------

// A rule over the facts of one component: the first that applies decides its
// state. `counter` names the performance counter the rule counts (nullptr:
// none); every counter of a table is reported, zero included, so graphs have
// no gaps.
template <class Facts>
struct Rule {
    bool (*applies)(const Facts &);
    State state;
    const char *problem;
    const char *counter;
};

// A rule on the text of one property; a nullptr value matches any text no
// earlier rule named.
struct TextRule {
    const char *value;
    State state;
    const char *problem;  // nullptr: name the text itself
    const char *counter;
};

struct DiskFacts {
    std::string usage;        // "Failed", "Hot Spare", "" (a RAID set member), ...
    std::string deviceState;  // "FAILED", "Offlined", "Normal" or ""
    std::string setState;     // RAIDState of the set the disk belongs to, if any
    bool hasSet = false;
};

bool member(const DiskFacts &d) { return d.usage.empty() && d.hasSet; }

constexpr Rule<DiskFacts> kDiskRules[] = {
    {[](const DiskFacts &d) { return d.usage == "Failed" || d.deviceState == "FAILED"; }, State::Critical, "failed",
     "disks_failed"},
    {[](const DiskFacts &d) { return d.usage == "Offlined"; }, State::Critical, "offline", "disks_offline"},
    {[](const DiskFacts &d) { return d.usage == "Unavailable"; }, State::Critical, "unavailable", "disks_offline"},
    {[](const DiskFacts &d) { return d.usage == "Hot Spare" && d.hasSet; }, State::Warning, "hot spare in use",
     "hot_spares_in_use"},
    {[](const DiskFacts &d) { return member(d) && d.setState == "Rebuilding"; }, State::Warning, "rebuilding",
     "disks_rebuilding"},
    {[](const DiskFacts &d) { return member(d) && d.setState == "Init"; }, State::Warning, "initialising",
     "disks_initialising"},
};

// A set member the set lists at a position that holds no disk of the set.
constexpr const char kMissingCounter[] = "disks_missing";

constexpr TextRule kRaidSetRules[] = {
    {"Normal", State::Ok, nullptr, nullptr},
    {"Migrating", State::Ok, nullptr, nullptr},
    {"Checking", State::Ok, nullptr, nullptr},
    {"Cloning", State::Ok, nullptr, nullptr},
    {"Failed", State::Critical, "failed", "raid_sets_failed"},
    {"Incomplete", State::Critical, "incomplete", "raid_sets_failed"},
    {"Degraded", State::Warning, "degraded", "raid_sets_degraded"},
    {"Rebuilding", State::Warning, "rebuilding", "raid_sets_rebuilding"},
    {"Init", State::Warning, "initialising", "raid_sets_initialising"},
    {nullptr, State::Warning, nullptr, nullptr},
};

constexpr TextRule kVolumeRules[] = {
    {"Normal", State::Ok, nullptr, nullptr},
    {"Migrating", State::Ok, nullptr, nullptr},
    {"Failed", State::Critical, "failed", "volumes_failed"},
    {"Degraded", State::Warning, "degraded", "volumes_degraded"},
    {"Need Rebuild", State::Warning, "needs a rebuild", "volumes_degraded"},
    {"Rebuilding", State::Warning, "rebuilding", "volumes_rebuilding"},
    {"Initializing", State::Warning, "initialising", "volumes_initialising"},
    {"Need Init", State::Warning, "needs initialising", "volumes_initialising"},
    {"Need Migrate", State::Warning, "needs a migration", nullptr},
    {"Locked", State::Warning, "locked (key not validated)", nullptr},
    {nullptr, State::Warning, nullptr, nullptr},
};

constexpr TextRule kBatteryRules[] = {
    {"Normal", State::Ok, nullptr, nullptr},
    {"Charging", State::Ok, nullptr, nullptr},
    {"Failed", State::Critical, "failed", nullptr},
    {nullptr, State::Warning, nullptr, nullptr},
};

// Event records read "<date> <time> <severity> <text>".
constexpr TextRule kEventRules[] = {
    {"Error", State::Warning, "error event", "error_events"},
    {nullptr, State::Ok, nullptr, nullptr},
};

const TextRule &firstMatch(std::span<const TextRule> rules, const std::string &value) {
    for (const TextRule &r : rules)
        if (r.value == nullptr || value == r.value) return r;
    throw std::logic_error("rule table without a catch-all");
}

template <class Facts>
const Rule<Facts> *firstMatch(std::span<const Rule<Facts>> rules, const Facts &facts) {
    for (const Rule<Facts> &r : rules)
        if (r.applies(facts)) return &r;
    return nullptr;
}

std::string problemText(const TextRule &r, const std::string &value) {
    if (r.problem != nullptr) return r.problem;
    return value.empty() ? "in an unknown state" : "in state \"" + value + "\"";
}

// ---- Performance data ------------------------------------------------------

// Counters in the order their tables name them; each alerts above 0 at the
// state of its rule.
class Tally {
public:
    void declare(const char *counter, State state) {
        if (counter == nullptr || index_.contains(counter)) return;
        index_[counter] = entries_.size();
        entries_.push_back({counter, state, 0});
    }
    template <class Table>
    void declareAll(const Table &rules) {
        for (const auto &r : rules) declare(r.counter, r.state);
    }
    void count(const char *counter) {
        if (counter != nullptr) ++entries_[index_.at(counter)].value;
    }
    void emit(std::vector<PerfDatum> &out) const {
        for (const Entry &e : entries_)
            out.push_back({e.label, static_cast<double>(e.value), "", e.state == State::Warning ? "0" : "",
                           e.state == State::Critical ? "0" : "", "0", ""});
    }

private:
    struct Entry {
        std::string label;
        State state;
        unsigned value;
    };
    std::vector<Entry> entries_;
    std::map<std::string, size_t> index_;
};

// ---- The families ----------------------------------------------------------

struct Judging {
    const Snapshot &adapter;
    const HealthLimits &limits;
    Verdict verdict;
    Tally tally;

    void add(std::string kind, std::string name, State state, std::string detail) {
        verdict.components.push_back({std::move(kind), std::move(name), state, std::move(detail)});
    }
};

const InstanceV *poolNumbered(const Snapshot &a, uint64_t number) {
    for (const InstanceV &p : a.of("Tovra_StoragePool"))
        if (cli::number(p, "RaidSetNumber") == number) return &p;
    return nullptr;
}

std::string diskName(const InstanceV &d) {
    return text(d, "Enc") + " Slot" + std::to_string(number(d, "SlotNumber") + 1) + " " + text(d, "DeviceID");
}

void judgeDisks(Judging &j) {
    j.tally.declareAll(kDiskRules);
    j.tally.declare(kMissingCounter, State::Critical);
    // Where each disk is (zero-based enclosure and slot) and the set it is in.
    std::set<std::tuple<uint64_t, uint64_t, uint64_t>> placed;
    for (const InstanceV &d : j.adapter.of("Tovra_DiskDrive")) {
        placed.emplace(number(d, "EnclosureNumber"), number(d, "SlotNumber"), number(d, "RaidSetNumber"));
        const InstanceV *pool = poolNumbered(j.adapter, number(d, "RaidSetNumber"));
        const DiskFacts facts{text(d, "Usage"), text(d, "DeviceState"), pool ? text(*pool, "RAIDState") : "",
                              pool != nullptr};
        const std::string setName = pool != nullptr ? text(*pool, "InstanceID") : "";
        if (const Rule<DiskFacts> *rule = firstMatch<DiskFacts>(kDiskRules, facts)) {
            j.tally.count(rule->counter);
            j.add("disk", diskName(d), rule->state,
                  std::string(rule->problem) + (setName.empty() ? "" : " (" + setName + ")"));
            continue;
        }
        const std::string usage = facts.usage.empty() ? "member of " + setName : facts.usage;
        j.add("disk", diskName(d), State::Ok,
              (facts.deviceState.empty() ? "Normal" : facts.deviceState) + ", " + usage);
    }
    // Members a set lists (1-based slot and enclosure) with no disk of the set there.
    for (const InstanceV &p : j.adapter.of("Tovra_StoragePool")) {
        const auto &slots = list(p, "DevArray");
        const auto &enclosures = list(p, "DevEncArray");
        for (size_t i = 0; i < slots.size() && i < enclosures.size(); ++i) {
            const uint64_t slot = slots[i].asUnsigned(), enc = enclosures[i].asUnsigned();
            if (slot == 0 || enc == 0 || placed.contains({enc - 1, slot - 1, number(p, "RaidSetNumber")})) continue;
            j.tally.count(kMissingCounter);
            j.add("disk", "Enc" + std::to_string(enc) + " Slot" + std::to_string(slot), State::Critical,
                  "missing from " + text(p, "InstanceID"));
        }
    }
}

void judgeByState(Judging &j, const char *cls, const char *kind, const char *stateProperty, const char *nameProperty,
                  std::span<const TextRule> rules) {
    j.tally.declareAll(rules);
    for (const InstanceV &i : j.adapter.of(cls)) {
        const std::string value = text(i, stateProperty);
        const TextRule &rule = firstMatch(rules, value);
        j.tally.count(rule.counter);
        j.add(kind, text(i, nameProperty), rule.state, rule.state == State::Ok ? value : problemText(rule, value));
    }
}

bool volumesCacheWrites(const Snapshot &a) {
    const auto &volumes = a.of("Tovra_StorageVolume");
    return std::any_of(volumes.begin(), volumes.end(),
                       [](const InstanceV &v) { return text(v, "CacheMode") == "Write Back"; });
}

void judgeBattery(Judging &j) {
    const HealthLimits &l = j.limits;
    const auto &batteries = j.adapter.of("Tovra_Battery");
    if (batteries.empty()) {
        using B = HealthLimits::Battery;
        const bool expected = l.battery == B::Required || (l.battery == B::Auto && volumesCacheWrites(j.adapter));
        j.add("battery", "battery", expected ? State::Warning : State::Ok,
              !expected                  ? "not present"
              : l.battery == B::Required ? "absent"
                                         : "absent while volumes cache writes");
        return;
    }
    for (const InstanceV &b : batteries) {
        const std::string value = text(b, "BatteryState");
        const TextRule &rule = firstMatch(kBatteryRules, value);
        const unsigned charge = static_cast<unsigned>(number(b, "ChargeLevel"));
        const std::string chargeText = "charge " + std::to_string(charge) + "%";
        // The worse of the state and the charge.
        State state = rule.state;
        std::string detail = rule.state == State::Ok ? value + ", " + chargeText : problemText(rule, value);
        const struct {
            unsigned below;
            State state;
        } charges[] = {{l.batteryCritical, State::Critical}, {l.batteryWarning, State::Warning}};
        for (const auto &c : charges) {
            if (charge >= c.below) continue;
            if (c.state > state) {
                state = c.state;
                detail = chargeText + " (below " + std::to_string(c.below) + "%)";
            }
            break;
        }
        j.add("battery", text(b, "DeviceID"), state, detail);
        j.verdict.perfdata.push_back({"battery_charge", static_cast<double>(charge), "%",
                                      std::to_string(l.batteryWarning) + ":", std::to_string(l.batteryCritical) + ":",
                                      "0", "100"});
    }
}

void judgeSensors(Judging &j) {
    for (SensorVerdict &s : cli::judgeSensors(j.adapter, j.limits)) {
        j.verdict.components.push_back(std::move(s.component));
        if (s.perf) j.verdict.perfdata.push_back(std::move(*s.perf));
    }
}

std::string utcText(time_t t) {
    struct tm utc {};
    gmtime_r(&t, &utc);
    char out[32];
    std::strftime(out, sizeof out, "%Y-%m-%d %H:%M:%S", &utc);
    return out;
}

void judgeEvents(Judging &j) {
    j.tally.declareAll(kEventRules);
    for (const InstanceV &log : j.adapter.of("Tovra_EventLog")) {
        unsigned counted = 0;
        for (const Value &record : list(log, "EventRecords")) {
            const std::string line = record.toText();
            // "2023-11-14 23:13:20 Error Enc1 Slot7: Device Failed"
            constexpr size_t kStamp = 19;
            if (line.size() <= kStamp + 1) continue;
            const time_t when = parseUtc(line.substr(0, kStamp));
            if (when < 0 || when < j.limits.since) continue;
            const size_t severityEnd = line.find(' ', kStamp + 1);
            const std::string severity = line.substr(kStamp + 1, severityEnd - (kStamp + 1));
            const TextRule &rule = firstMatch(kEventRules, severity);
            if (rule.state == State::Ok) continue;
            j.tally.count(rule.counter);
            ++counted;
            const std::string message = severityEnd == std::string::npos ? "" : line.substr(severityEnd + 1);
            j.add("event", rule.problem, rule.state, line.substr(0, kStamp) + " " + message);
        }
        j.add("event log", text(log, "ElementName"), State::Ok,
              "holds " + std::to_string(number(log, "Events")) + " events, " + std::to_string(counted) +
                  " counted since " + utcText(j.limits.since));
    }
}

// "12 disks, 2 RAID sets, 3 volumes, battery 100%, 13 sensors"
std::string overview(const Snapshot &a) {
    const auto counted = [](size_t n, const char *one, const char *many) {
        return std::to_string(n) + " " + (n == 1 ? one : many);
    };
    size_t sensors = 0;
    for (const InstanceV &c : a.of("Tovra_Chassis")) sensors += list(c, "SensorNames").size();
    std::string battery = "no battery";
    for (const InstanceV &b : a.of("Tovra_Battery"))
        battery = "battery " + std::to_string(number(b, "ChargeLevel")) + "%";
    return counted(a.of("Tovra_DiskDrive").size(), "disk", "disks") + ", " +
           counted(a.of("Tovra_StoragePool").size(), "RAID set", "RAID sets") + ", " +
           counted(a.of("Tovra_StorageVolume").size(), "volume", "volumes") + ", " + battery + ", " +
           counted(sensors, "sensor", "sensors");
}

}  // namespace

const char *stateName(State state) {
    static constexpr const char *kNames[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    return kNames[static_cast<int>(state)];
}

std::vector<const Component *> Verdict::problems() const {
    std::vector<const Component *> out;
    for (const Component &c : components)
        if (c.state != State::Ok) out.push_back(&c);
    std::stable_sort(out.begin(), out.end(),
                     [](const Component *a, const Component *b) { return a->state > b->state; });
    return out;
}

Snapshot gatherForHealth(Host &host) {
    return gather(host, {{kTovraNamespace, "Tovra_RAIDControllerSystem"},
                         {kTovraNamespace, "Tovra_DiskDrive"},
                         {kTovraNamespace, "Tovra_StoragePool"},
                         {kTovraNamespace, "Tovra_StorageVolume"},
                         {kTovraNamespace, "Tovra_Battery"},
                         {kTovraNamespace, "Tovra_Chassis"},
                         {kTovraNamespace, "Tovra_EventLog"}});
}

Verdict unknownVerdict(std::string reason) {
    Verdict v;
    v.state = State::Unknown;
    v.reason = std::move(reason);
    return v;
}

Verdict judge(const Snapshot &adapter, const HealthLimits &limits) {
    if (const auto *failure = adapter.firstFailure())
        return unknownVerdict(failure->first + ": " + errorText(failure->second));
    // Every class answers empty when the adapter's replies do not arrive; the
    // controller system is always there when they do.
    if (adapter.of("Tovra_RAIDControllerSystem").empty())
        return unknownVerdict("the adapter did not answer (no controller system)");
    Judging j{adapter, limits, {}, {}};
    j.verdict.overview = overview(adapter);
    judgeDisks(j);
    judgeByState(j, "Tovra_StoragePool", "raid set", "RAIDState", "InstanceID", kRaidSetRules);
    judgeByState(j, "Tovra_StorageVolume", "volume", "VolumeState", "DeviceID", kVolumeRules);
    judgeBattery(j);
    judgeSensors(j);
    judgeEvents(j);
    // The counters first, then the battery and the sensors.
    std::vector<PerfDatum> perfdata;
    j.tally.emit(perfdata);
    perfdata.insert(perfdata.end(), j.verdict.perfdata.begin(), j.verdict.perfdata.end());
    j.verdict.perfdata = std::move(perfdata);
    for (const Component &c : j.verdict.components) j.verdict.state = std::max(j.verdict.state, c.state);
    return std::move(j.verdict);
}

time_t parseUtc(const std::string &stamp) {
    struct tm t {};
    int consumed = 0;
    const char *formats[] = {"%4d-%2d-%2d %2d:%2d:%2d%n", "%4d-%2d-%2dT%2d:%2d:%2d%n"};
    for (const char *format : formats) {
        t = {};
        consumed = 0;
        if (std::sscanf(stamp.c_str(), format, &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour, &t.tm_min, &t.tm_sec,
                        &consumed) == 6 &&
            static_cast<size_t>(consumed) == stamp.size())
            break;
        consumed = 0;
    }
    if (consumed == 0) {
        // A date alone: midnight.
        t = {};
        if (std::sscanf(stamp.c_str(), "%4d-%2d-%2d%n", &t.tm_year, &t.tm_mon, &t.tm_mday, &consumed) != 3 ||
            static_cast<size_t>(consumed) != stamp.size())
            return -1;
    }
    if (t.tm_mon < 1 || t.tm_mon > 12 || t.tm_mday < 1 || t.tm_mday > 31 || t.tm_hour > 23 || t.tm_min > 59 ||
        t.tm_sec > 60 || t.tm_year < 1970)
        return -1;
    t.tm_year -= 1900;
    t.tm_mon -= 1;
    return timegm(&t);
}

time_t sinceTime(const std::string &text, time_t now) {
    struct Unit {
        char suffix;
        long seconds;
    };
    static constexpr Unit kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}, {'w', 604800}};
    size_t digits = 0;
    while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits]))) ++digits;
    if (digits > 0 && digits <= 9) {
        const long count = std::stol(text.substr(0, digits));
        if (digits == text.size()) return now - count;
        if (digits + 1 == text.size())
            for (const Unit &u : kUnits)
                if (text[digits] == u.suffix) return now - count * u.seconds;
    }
    const time_t at = parseUtc(text);
    if (at < 0)
        throw std::invalid_argument(
            "--since '" + text +
            "' is neither a duration (90s, 30m, 24h, 7d, 2w) nor a UTC time (2023-11-14 23:13:20)");
    return at;
}

}  // namespace cimhost::cli
