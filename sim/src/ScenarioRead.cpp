// Scenario JSON to model, with every field checked.
#include <algorithm>

#include "JsonFields.h"
#include "ScenarioIO.h"

namespace tovra::sim {

using namespace jsonfields;

namespace {

Controller readController(const json &j) {
    Controller c;
    const auto rd = [&](const char *k, auto &v) { field(j, k, v); };
    controllerTexts(c, rd);
    controllerNumbers(c, rd);
    field(j, "localIp", c.localIp);
    field(j, "currentIp", c.currentIp);
    field(j, "mac", c.mac);
    field(j, "comA", c.comA);
    field(j, "comB", c.comB);
    field(j, "events", c.events);
    field(j, "numberEnclosures", c.numberEnclosures);
    field(j, "sasAddress", c.sasAddress);
    return c;
}

ScsiAttr readScsi(const json &j) {
    ScsiAttr s;
    field(j, "channel", s.channel);
    field(j, "id", s.id);
    field(j, "lun", s.lun);
    field(j, "tagged", s.tagged);
    field(j, "cacheMode", s.cacheMode);
    field(j, "speed", s.speed);
    return s;
}

uint8_t stateOfRole(const std::string &role) {
    namespace ds = diskstate;
    if (role == "free") return ds::Free;
    if (role == "member") return ds::Member;
    if (role == "hotspare") return ds::HotSpare;
    if (role == "passthrough") return ds::PassThrough;
    if (role == "failed") return ds::Failed;
    if (role == "offline") return ds::Offlined;
    if (role == "unavailable") return 0;
    fail("unknown disk role \"" + role + "\"");
}

// Returns whether the JSON fixed the state (otherwise RAID membership decides it).
bool readDisk(const json &j, unsigned enc, unsigned slot, Disk &d) {
    std::string type = "SAS";
    field(j, "type", type);
    if (type != "SAS" && type != "SATA") fail("disk type must be SAS or SATA");
    d.sas = type == "SAS";
    // A default address inside the band the reader classifies as the disk's type.
    const uint64_t position = (static_cast<uint64_t>(enc) << 8 | slot) + 1;
    d.sasAddress = (d.sas ? 0x5000C50000000000ULL : 0x5001B44000000000ULL) + position;
    field(j, "model", d.model);
    field(j, "serial", d.serial);
    field(j, "firmware", d.firmware);
    field(j, "blocks", d.blocks);
    field(j, "address", d.sasAddress);
    field(j, "raidSet", d.raidSet);
    field(j, "pio", d.pioMode);
    field(j, "currentUdma", d.currentUdma);
    field(j, "udma", d.udma);
    field(j, "driveSelect", d.driveSelect);
    if (j.contains("scsi")) d.scsi = readScsi(j.at("scsi"));
    field(j, "mediaErrors", d.mediaErrors);
    field(j, "timeouts", d.timeouts);
    field(j, "rpm", d.rpm);
    field(j, "temperature", d.temperature);
    field(j, "smartSense", d.smartSense);
    field(j, "reserved", d.reserved);
    if (j.contains("attributes")) {
        const json &a = j.at("attributes");
        if (!a.is_array() || a.size() > 20) fail("attributes: at most 20 numbers");
        for (std::size_t i = 0; i < a.size(); ++i) d.attributes[i] = toU64(a[i], "attributes");
    }
    if (j.contains("smart")) {
        const json &s = j.at("smart");
        if (!s.is_array() || s.size() > 9) fail("smart: at most 9 entries");
        for (std::size_t i = 0; i < s.size(); ++i) {
            if (!s[i].is_array() || s[i].size() != 3) fail("smart entries are [index, status, threshold]");
            d.smart[i] = SmartEntry{toUnsigned<uint16_t>(s[i][0], "smart"), toUnsigned<uint8_t>(s[i][1], "smart"),
                                    toUnsigned<uint8_t>(s[i][2], "smart")};
        }
    }
    field(j, "hotSpareType", d.hotSpareType);
    field(j, "hotSpareRaidSet", d.hotSpareRaidSet);
    if (j.contains("state")) {
        field(j, "state", d.state);
        return true;
    }
    if (j.contains("role")) {
        d.state = stateOfRole(j.at("role").get<std::string>());
        return true;
    }
    return false;
}

SensorKind kindOf(const std::string &s) {
    for (SensorKind k : {SensorKind::Voltage, SensorKind::Fan, SensorKind::Power, SensorKind::Temperature})
        if (s == kindName(k)) return k;
    fail("unknown sensor kind \"" + s + "\"");
}

// Positions whose disk state the JSON left to RAID membership.
using Unfixed = std::vector<Member>;

void readEnclosure(const json &j, Model &m, Unfixed &unfixed) {
    unsigned index = 0;
    if (!j.contains("index")) fail("enclosure without \"index\"");
    convert(j.at("index"), "index", index);
    if (index >= kEnclosureCount) fail("enclosure index " + std::to_string(index) + " out of range");
    Enclosure &e = m.enclosures[index];
    if (e.present) fail("enclosure " + std::to_string(index) + " given twice");
    e.present = true;
    field(j, "vendor", e.vendor);
    field(j, "product", e.product);
    field(j, "revision", e.revision);
    field(j, "type", e.type);
    field(j, "number", e.number);
    unsigned slots = 0;
    field(j, "slots", slots);
    if (slots > (index == 0 ? kMaxSlotsOwnBackplane : kMaxSlotsExpander))
        fail("enclosure " + std::to_string(index) + " has too many slots");
    e.slots.assign(slots, std::nullopt);
    field(j, "rawSlots", e.rawSlots);
    for (const json &s : j.value("sensors", json::array())) {
        Sensor sensor;
        std::string kind = "temperature";
        field(s, "kind", kind);
        sensor.kind = kindOf(kind);
        field(s, "name", sensor.name);
        field(s, "value", sensor.value);
        e.sensors.push_back(sensor);
    }
    for (const json &dj : j.value("disks", json::array())) {
        unsigned slot = 0;
        if (!dj.contains("slot")) fail("disk without \"slot\"");
        convert(dj.at("slot"), "slot", slot);
        if (slot >= slots) fail("disk slot " + std::to_string(slot) + " beyond the enclosure's slots");
        if (e.slots[slot]) fail("slot " + std::to_string(slot) + " given twice");
        Disk d;
        if (!readDisk(dj, index, slot, d))
            unfixed.push_back(Member{static_cast<uint8_t>(index), static_cast<uint8_t>(slot)});
        e.slots[slot] = d;
    }
}

void readRaidSet(const json &j, Model &m, const Unfixed &unfixed) {
    unsigned no = 0;
    if (!j.contains("number")) fail("RAID set without \"number\"");
    convert(j.at("number"), "number", no);
    if (no >= kRaidSetCount) fail("RAID set number " + std::to_string(no) + " out of range");
    if (m.raidSets[no]) fail("RAID set " + std::to_string(no) + " given twice");
    RaidSet rs;
    field(j, "name", rs.name);
    for (const json &p : j.value("members", json::array())) {
        if (!p.is_array() || p.size() != 2) fail("RAID set members are [enclosure, slot] pairs");
        rs.members.push_back(Member{toUnsigned<uint8_t>(p[0], "members"), toUnsigned<uint8_t>(p[1], "members")});
    }
    if (rs.members.size() > kMaxMembers) fail("RAID set with more than 32 members");
    field(j, "memberBlocks", rs.memberBlocks);
    field(j, "offline", rs.offline);
    field(j, "freeSegments", rs.freeSegments);
    field(j, "newMemberDisks", rs.newMemberDisks);
    field(j, "rawState", rs.rawState);
    field(j, "rawFailMask", rs.rawFailMask);
    field(j, "rawStripes", rs.rawStripes);
    field(j, "rawDevArray", rs.rawDevArray);
    field(j, "rawDevEncArray", rs.rawDevEncArray);
    for (const Member &mem : rs.members) {
        Disk *d = m.disk(mem.enc, mem.slot);
        if (!d) fail("RAID set " + std::to_string(no) + " member has no disk");
        if (std::find(unfixed.begin(), unfixed.end(), mem) != unfixed.end()) d->state = diskstate::Member;
        d->raidSet = static_cast<uint8_t>(no);
    }
    m.raidSets[no] = rs;
}

void readVolume(const json &j, Model &m) {
    unsigned no = 0;
    if (!j.contains("number")) fail("volume without \"number\"");
    convert(j.at("number"), "number", no);
    if (no >= kVolumeCount) fail("volume number " + std::to_string(no) + " out of range");
    if (m.volumes[no]) fail("volume " + std::to_string(no) + " given twice");
    Volume v;
    field(j, "name", v.name);
    field(j, "serial", v.serial);
    field(j, "raidSet", v.raidSet);
    field(j, "blocks", v.blocks);
    field(j, "level", v.levelCode);
    field(j, "stripeCode", v.stripeCode);
    if (j.contains("scsi")) v.scsi = readScsi(j.at("scsi"));
    field(j, "writeProtect", v.writeProtect);
    field(j, "encrypted", v.encrypted);
    field(j, "keyUnlocked", v.keyUnlocked);
    field(j, "foregroundInit", v.foregroundInit);
    field(j, "over2TB", v.over2TB);
    field(j, "encryptionType", v.encryptionType);
    field(j, "progress", v.progress);
    field(j, "hostSpeed", v.hostSpeed);
    field(j, "rawVolState", v.rawVolState);
    field(j, "rawVolumeStatus", v.rawVolumeStatus);
    field(j, "rawFailMask", v.rawFailMask);
    field(j, "rawStripeWord", v.rawStripeWord);
    field(j, "rawMemberDisks", v.rawMemberDisks);
    m.volumes[no] = v;
}

}  // namespace

Model modelFromJson(const json &j) {
    if (!j.is_object()) fail("a scenario is a JSON object");
    Model m;
    if (j.contains("controller")) m.controller = readController(j.at("controller"));
    if (j.contains("driver")) {
        field(j.at("driver"), "version", m.driver.version);
        field(j.at("driver"), "name", m.driver.name);
    }
    if (j.contains("pci")) {
        field(j.at("pci"), "width", m.pci.width);
        field(j.at("pci"), "speed", m.pci.speed);
    }
    if (j.contains("battery")) {
        const json &b = j.at("battery");
        field(b, "present", m.battery.present);
        field(b, "charge", m.battery.charge);
        field(b, "status", m.battery.status);
        field(b, "temperature", m.battery.temperature);
        field(b, "millivolts", m.battery.millivolts);
    }
    Unfixed unfixed;
    for (const json &e : j.value("enclosures", json::array())) readEnclosure(e, m, unfixed);
    for (const json &r : j.value("raidSets", json::array())) readRaidSet(r, m, unfixed);
    for (const json &v : j.value("volumes", json::array())) readVolume(v, m);
    for (const json &e : j.value("events", json::array())) {
        Event ev;
        field(e, "time", ev.time);
        field(e, "severity", ev.severity);
        field(e, "device", ev.device);
        field(e, "message", ev.message);
        m.events.push_back(ev);
    }
    if (j.contains("settings")) {
        const json &s = j.at("settings");
        const json values = s.value("values", json::object());
        for (const auto &[name, bytes] : values.items()) {
            if (!bytes.is_array()) fail("setting values are byte arrays");
            auto &out = m.settings.values[name];
            for (const json &b : bytes) out.push_back(toUnsigned<uint8_t>(b, "values"));
        }
        field(s, "mode", m.settings.mode);
        field(s, "beeperMuted", m.settings.beeperMuted);
        field(s, "firmwarePages", m.settings.firmwarePages);
        field(s, "lastFirmwarePage", m.settings.lastFirmwarePage);
        field(s, "unlockedUntil", m.settings.unlockedUntil);
    }
    field(j, "password", m.password);
    field(j, "nextSerial", m.nextSerial);
    return m;
}

}  // namespace tovra::sim
