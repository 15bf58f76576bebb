// Model to JSON, in the scenario format (the state file uses it too).
#include "JsonFields.h"
#include "ScenarioIO.h"

namespace tovra::sim {

using namespace jsonfields;

namespace {

json writeController(const Controller &c) {
    json j;
    const auto wr = [&](const char *k, const auto &v) { j[k] = v; };
    controllerTexts(c, wr);
    controllerNumbers(c, wr);
    j["localIp"] = dotted(c.localIp);
    j["currentIp"] = dotted(c.currentIp);
    j["mac"] = colonHex(c.mac);
    j["comA"] = c.comA;
    j["comB"] = c.comB;
    putOptional(j, "events", c.events);
    putOptional(j, "numberEnclosures", c.numberEnclosures);
    j["sasAddress"] = hex64(c.sasAddress);
    return j;
}

json writeScsi(const ScsiAttr &s) {
    return json{{"channel", s.channel}, {"id", s.id},           {"lun", s.lun},
                {"tagged", s.tagged},   {"cacheMode", s.cacheMode}, {"speed", s.speed}};
}

json writeDisk(const Disk &d, unsigned slot) {
    json j{{"slot", slot},
           {"type", d.sas ? "SAS" : "SATA"},
           {"model", d.model},
           {"serial", d.serial},
           {"firmware", d.firmware},
           {"blocks", d.blocks},
           {"address", hex64(d.sasAddress)},
           {"state", d.state},
           {"raidSet", d.raidSet},
           {"pio", d.pioMode},
           {"currentUdma", d.currentUdma},
           {"udma", d.udma},
           {"driveSelect", d.driveSelect},
           {"scsi", writeScsi(d.scsi)},
           {"mediaErrors", d.mediaErrors},
           {"timeouts", d.timeouts},
           {"hotSpareType", d.hotSpareType},
           {"hotSpareRaidSet", d.hotSpareRaidSet}};
    if (d.sas) {
        j["rpm"] = d.rpm;
        j["temperature"] = d.temperature;
        j["smartSense"] = d.smartSense;
        j["reserved"] = d.reserved;
        j["attributes"] = d.attributes;
    } else {
        json smart = json::array();
        for (const SmartEntry &e : d.smart) smart.push_back({e.index, e.status, e.threshold});
        j["smart"] = smart;
    }
    return j;
}

json writeEnclosure(const Enclosure &e, unsigned index) {
    json j{{"index", index},       {"vendor", e.vendor}, {"product", e.product},
           {"revision", e.revision}, {"type", e.type},   {"slots", e.slots.size()}};
    putOptional(j, "number", e.number);
    putOptional(j, "rawSlots", e.rawSlots);
    json sensors = json::array();
    for (const Sensor &s : e.sensors)
        sensors.push_back({{"kind", kindName(s.kind)}, {"name", s.name}, {"value", s.value}});
    j["sensors"] = sensors;
    json disks = json::array();
    for (std::size_t s = 0; s < e.slots.size(); ++s)
        if (e.slots[s]) disks.push_back(writeDisk(*e.slots[s], static_cast<unsigned>(s)));
    j["disks"] = disks;
    return j;
}

json writeRaidSet(const RaidSet &rs, unsigned no) {
    json members = json::array();
    for (const Member &mem : rs.members) members.push_back({mem.enc, mem.slot});
    json j{{"number", no},
           {"name", rs.name},
           {"members", members},
           {"memberBlocks", rs.memberBlocks},
           {"offline", rs.offline},
           {"freeSegments", rs.freeSegments},
           {"newMemberDisks", rs.newMemberDisks}};
    putOptional(j, "rawState", rs.rawState);
    putOptional(j, "rawFailMask", rs.rawFailMask);
    putOptional(j, "rawStripes", rs.rawStripes);
    putOptional(j, "rawDevArray", rs.rawDevArray);
    putOptional(j, "rawDevEncArray", rs.rawDevEncArray);
    return j;
}

json writeVolume(const Volume &v, unsigned no) {
    json j{{"number", no},
           {"name", v.name},
           {"serial", v.serial},
           {"raidSet", v.raidSet},
           {"blocks", v.blocks},
           {"level", v.levelCode},
           {"stripeCode", v.stripeCode},
           {"scsi", writeScsi(v.scsi)},
           {"writeProtect", v.writeProtect},
           {"encrypted", v.encrypted},
           {"keyUnlocked", v.keyUnlocked},
           {"foregroundInit", v.foregroundInit},
           {"over2TB", v.over2TB},
           {"encryptionType", v.encryptionType},
           {"progress", v.progress},
           {"hostSpeed", v.hostSpeed}};
    putOptional(j, "rawVolState", v.rawVolState);
    putOptional(j, "rawVolumeStatus", v.rawVolumeStatus);
    putOptional(j, "rawFailMask", v.rawFailMask);
    putOptional(j, "rawStripeWord", v.rawStripeWord);
    putOptional(j, "rawMemberDisks", v.rawMemberDisks);
    return j;
}

}  // namespace

json modelToJson(const Model &m) {
    json j;
    j["controller"] = writeController(m.controller);
    j["driver"] = {{"version", m.driver.version}, {"name", m.driver.name}};
    j["pci"] = {{"width", m.pci.width}, {"speed", m.pci.speed}};
    j["battery"] = {{"present", m.battery.present},         {"charge", m.battery.charge},
                    {"status", m.battery.status},           {"temperature", m.battery.temperature},
                    {"millivolts", m.battery.millivolts}};
    json enclosures = json::array();
    for (unsigned i = 0; i < kEnclosureCount; ++i)
        if (m.enclosures[i].present) enclosures.push_back(writeEnclosure(m.enclosures[i], i));
    j["enclosures"] = enclosures;
    json sets = json::array();
    for (unsigned i = 0; i < kRaidSetCount; ++i)
        if (m.raidSets[i]) sets.push_back(writeRaidSet(*m.raidSets[i], i));
    j["raidSets"] = sets;
    json volumes = json::array();
    for (unsigned i = 0; i < kVolumeCount; ++i)
        if (m.volumes[i]) volumes.push_back(writeVolume(*m.volumes[i], i));
    j["volumes"] = volumes;
    json events = json::array();
    for (const Event &e : m.events)
        events.push_back({{"time", e.time}, {"severity", e.severity}, {"device", e.device}, {"message", e.message}});
    j["events"] = events;
    j["settings"] = {{"values", m.settings.values},
                     {"mode", m.settings.mode},
                     {"beeperMuted", m.settings.beeperMuted},
                     {"firmwarePages", m.settings.firmwarePages},
                     {"lastFirmwarePage", m.settings.lastFirmwarePage},
                     {"unlockedUntil", m.settings.unlockedUntil}};
    j["password"] = m.password;
    j["nextSerial"] = m.nextSerial;
    return j;
}

}  // namespace tovra::sim
