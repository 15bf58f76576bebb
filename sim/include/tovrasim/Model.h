// The simulated adapter: controller identity, enclosures with their slots and
// disks, RAID sets, volume sets, events and settings. Plain data; the firmware
// derives the wire fields (fail masks, states, free space) from it on demand.
// Optional "raw" members replace a derived wire value so that tests can reach
// every decoding rule of the reader.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tovra::sim {

inline constexpr unsigned kEnclosureCount = 12;
inline constexpr unsigned kRaidSetCount = 8;
inline constexpr unsigned kVolumeCount = 32;
inline constexpr unsigned kMaxMembers = 32;
inline constexpr unsigned kMaxSlotsOwnBackplane = 8;  // enclosure 0
inline constexpr unsigned kMaxSlotsExpander = 28;     // enclosures 1 to 11
inline constexpr uint8_t kNoRaidSet = 0xFF;

// Disk state bits (gpdDeviceState) and the usual combinations.
namespace diskstate {
inline constexpr uint8_t PassThroughBit = 0x02;
inline constexpr uint8_t OfflinedBit = 0x04;
inline constexpr uint8_t FailedBit = 0x10;
inline constexpr uint8_t HotSpareBit = 0x20;
inline constexpr uint8_t FreeBit = 0x40;
inline constexpr uint8_t AvailableBit = 0x80;
inline constexpr uint8_t Free = 0xC0;
inline constexpr uint8_t Member = 0x80;
inline constexpr uint8_t HotSpare = 0xA0;
inline constexpr uint8_t PassThrough = 0x82;
inline constexpr uint8_t Failed = 0x90;
inline constexpr uint8_t Offlined = 0x84;
}  // namespace diskstate

// Volume state word bits (gvsVolState).
namespace volstate {
inline constexpr uint32_t TaggedQueuing = 0x40;
inline constexpr uint32_t WriteBack = 0x80;
inline constexpr uint32_t WriteProtect = 0x4000;
inline constexpr uint32_t Encrypted = 0x8000;
inline constexpr uint32_t KeyUnlocked = 0x40000000;
}  // namespace volstate

struct ScsiAttr {
    uint8_t channel = 0;
    uint8_t id = 0;
    uint8_t lun = 0;
    uint8_t tagged = 0;
    uint8_t cacheMode = 0;
    uint8_t speed = 0;
};

struct SmartEntry {
    uint16_t index = 0;
    uint8_t status = 0;
    uint8_t threshold = 0;
};

struct Disk {
    bool sas = true;  // decides which half of the reply union is filled
    std::string model;
    std::string serial;
    std::string firmware;
    uint64_t blocks = 0;  // 512-byte blocks; 0 reads as an empty slot
    uint64_t sasAddress = 0;
    uint8_t state = diskstate::Free;
    uint8_t raidSet = kNoRaidSet;  // gpdRaidNumber
    uint8_t pioMode = 4;
    uint8_t currentUdma = 6;
    uint8_t udma = 6;
    uint8_t driveSelect = 0;
    ScsiAttr scsi;  // pass-through target settings
    uint32_t mediaErrors = 0;
    uint32_t timeouts = 0;
    // SAS half of the union.
    uint16_t rpm = 0;
    uint16_t temperature = 0;
    uint16_t smartSense = 0;
    uint16_t reserved = 0;
    std::array<uint64_t, 20> attributes{};
    // SATA half of the union.
    std::array<SmartEntry, 9> smart{};
    // Hot spare definition (meaningful while the hot spare bit is set).
    uint8_t hotSpareType = 0;
    uint8_t hotSpareRaidSet = kNoRaidSet;
};

enum class SensorKind : uint8_t { Voltage, Fan, Power, Temperature };

struct Sensor {
    SensorKind kind = SensorKind::Temperature;
    std::string name;
    float value = 0;
};

struct Enclosure {
    bool present = false;
    std::string vendor;    // 8 bytes on the wire
    std::string product;   // 16 bytes
    std::string revision;  // 4 bytes
    uint8_t type = 0;
    std::optional<uint8_t> number;  // EncNumber; the position when unset
    std::vector<Sensor> sensors;
    std::vector<std::optional<Disk>> slots;  // one entry per drive slot
    std::optional<uint8_t> rawSlots;         // slot count reported instead of slots.size()
};

struct Member {
    uint8_t enc = 0;
    uint8_t slot = 0;
    bool operator==(const Member &) const = default;
};

struct RaidSet {
    std::string name;
    std::vector<Member> members;
    uint64_t memberBlocks = 0;  // grsCapacity; 0 = the smallest member
    bool offline = false;
    uint8_t freeSegments = 0;
    uint8_t newMemberDisks = 0;
    std::optional<uint8_t> rawState;
    std::optional<uint32_t> rawFailMask;
    std::optional<uint32_t> rawStripes;  // first grsRawStripes word
    std::optional<std::array<uint8_t, 32>> rawDevArray;
    std::optional<std::array<uint8_t, 32>> rawDevEncArray;
};

struct Volume {
    std::string name;
    std::string serial;
    uint8_t raidSet = 0;
    uint64_t blocks = 0;
    uint8_t levelCode = 3;   // 0 RAID0, 1 RAID1/10, 2 RAID3, 3 RAID5, 4 RAID6; others pass through
    uint8_t stripeCode = 4;  // stripe = 4 KiB << code
    ScsiAttr scsi;
    bool writeProtect = false;
    bool encrypted = false;
    bool keyUnlocked = false;
    bool foregroundInit = false;
    bool over2TB = false;
    uint8_t encryptionType = 0;
    uint32_t progress = 0;
    uint32_t hostSpeed = 0;
    std::optional<uint32_t> rawVolState;
    std::optional<uint32_t> rawVolumeStatus;
    std::optional<uint32_t> rawFailMask;
    std::optional<uint32_t> rawStripeWord;  // gvsNewStripeSize
    std::optional<uint8_t> rawMemberDisks;
};

// Every sSYSTEM_INFO field.
struct Controller {
    std::string vendor;
    std::string serial;
    std::string firmware;
    std::string boot;
    std::string mb;
    std::string model;
    std::string modelExt;
    std::array<uint8_t, 4> localIp{};
    std::array<uint8_t, 4> currentIp{};
    uint32_t timeTick = 0;
    uint32_t cpuSpeed = 0;
    uint32_t iCache = 0;
    uint32_t dCache = 0;
    uint32_t sCache = 0;
    uint32_t memorySize = 0;
    uint32_t memorySpeed = 0;
    std::optional<uint32_t> events;  // gsiEvents; the event count when unset
    std::array<uint8_t, 6> mac{};
    uint8_t dhcp = 0;
    uint8_t beeper = 1;
    uint8_t channelUsage = 0;
    uint8_t maxAtaMode = 0;
    uint8_t sdramEcc = 0;
    uint8_t rebuildPriority = 0;
    std::array<uint8_t, 5> comA{};
    std::array<uint8_t, 5> comB{};
    uint8_t ideChannels = 0;
    uint8_t scsiHostChannels = 0;
    uint8_t ideHostChannels = 0;
    uint8_t maxVolumeSet = kVolumeCount;
    uint8_t maxRaidSet = kRaidSetCount;
    uint8_t etherPort = 0;
    uint8_t raid6Engine = 0;
    uint8_t mib1 = 0;
    uint8_t mib2 = 0;
    uint32_t enterpriseNum = 0;
    uint8_t hostType = 0;
    uint8_t targetType = 0;
    uint8_t inBandEnable = 0;
    uint8_t inBandChannel = 0;
    uint8_t inBandId = 0;
    std::optional<uint8_t> numberEnclosures;  // present enclosures when unset
    uint8_t r5060Supported = 0;
    uint8_t ntpSupported = 0;
    uint32_t flag = 0;
    uint64_t sasAddress = 0;
};

struct DriverInfo {
    std::string version;  // 32 bytes
    std::string name;     // 8 bytes
};

struct PciInfo {
    std::string width;  // 16 bytes
    std::string speed;  // 16 bytes
};

struct Battery {
    bool present = false;
    uint8_t charge = 0;  // percent
    uint8_t status = 0;  // 0 normal, 1 charging, 2 failed
    int8_t temperature = 0;
    uint16_t millivolts = 0;
};

struct Event {
    uint32_t time = 0;
    uint8_t severity = 0;  // 0 information, 1 warning, 2 error
    std::string device;
    std::string message;
};

struct Settings {
    // Values of the 0x1F settings, by name (NetMask, HttpPort, ...), as sent.
    std::map<std::string, std::vector<uint8_t>> values;
    uint8_t mode = 0;
    bool beeperMuted = false;
    unsigned firmwarePages = 0;  // pages of the upload in progress (or the last one) accepted
    unsigned lastFirmwarePage = 0;
    uint32_t unlockedUntil = 0;  // a checked password allows changes until this time
    std::vector<uint8_t> firmwareUpload;  // the image collected so far; not persisted
};

struct Model {
    Controller controller;
    DriverInfo driver;
    PciInfo pci;
    Battery battery;
    std::array<Enclosure, kEnclosureCount> enclosures;
    std::array<std::optional<RaidSet>, kRaidSetCount> raidSets;
    std::array<std::optional<Volume>, kVolumeCount> volumes;
    std::vector<Event> events;  // newest first
    Settings settings;
    std::string password;
    uint32_t nextSerial = 1;  // for volume serials made by the firmware

    // Whatever record a slot holds (a disk of capacity 0 included), or null.
    Disk *slotRecord(unsigned enc, unsigned slot) {
        if (enc >= kEnclosureCount || !enclosures[enc].present) return nullptr;
        auto &slots = enclosures[enc].slots;
        return slot < slots.size() && slots[slot] ? &*slots[slot] : nullptr;
    }
    // A usable disk: null for an absent enclosure, a slot out of range, an
    // empty slot or a disk of capacity 0.
    Disk *disk(unsigned enc, unsigned slot) {
        Disk *d = slotRecord(enc, slot);
        return d && d->blocks ? d : nullptr;
    }
    const Disk *slotRecord(unsigned enc, unsigned slot) const {
        return const_cast<Model *>(this)->slotRecord(enc, slot);
    }
    const Disk *disk(unsigned enc, unsigned slot) const {
        return const_cast<Model *>(this)->disk(enc, slot);
    }
};

}  // namespace tovra::sim
