// The payload decoders on hand-made wire bytes: trimming, the model full name,
// capacities, states, levels and status orders, disk types and usages.
#include <cstring>
#include <string>
#include <vector>

#include "ChannelFixture.h"
#include "Controller.h"
#include "DiskInventory.h"
#include "EnclosureInventory.h"
#include "RaidInventory.h"

namespace chantest {
namespace {

namespace w = tovra::wire;

using SystemInfo = NoLeaks;
using RaidSet = NoLeaks;
using Volume = NoLeaks;
using Disk = NoLeaks;
using Enclosure = NoLeaks;

struct Payload {
    std::vector<uint8_t> bytes;
    explicit Payload(std::size_t size) : bytes(size, 0) {}
    Payload &text(std::size_t at, const std::string &s) {
        std::memcpy(bytes.data() + at, s.data(), s.size());
        return *this;
    }
    Payload &u8(std::size_t at, uint8_t v) {
        bytes[at] = v;
        return *this;
    }
    Payload &u32(std::size_t at, uint32_t v) {
        w::putLE32(bytes.data() + at, v);
        return *this;
    }
    Payload &u64(std::size_t at, uint64_t v) {
        w::putLE64(bytes.data() + at, v);
        return *this;
    }
    const uint8_t *data() const { return bytes.data(); }
};

ControllerInfo systemInfo(const std::string &vendor, const std::string &model, const std::string &ext) {
    Payload p(256);
    p.text(0, vendor).text(40, "SER 01\t\n   \r   ").text(104, model).text(208, ext);
    p.u8(116, 10).u8(117, 0).u8(118, 0).u8(119, 7).u32(140, 2048);
    ControllerInfo c{};
    tovra::decodeSystemInfo(p.data(), &c);
    return c;
}

TEST_F(SystemInfo, TrimmingAndTheModelFullName) {
    ControllerInfo c = systemInfo("Tovra" + std::string(35, ' '), "TV-1883i", "X       ");
    EXPECT_STREQ(c.VendorName, "Tovra");
    EXPECT_STREQ(c.SerialNumber, "SER 01");
    EXPECT_STREQ(c.ModelFullName, "TV-1883iX");
    EXPECT_EQ(std::strlen(GetControllerModelFullName(&c)), 9u);
    EXPECT_EQ(c.MemorySize, 2048u);
    EXPECT_EQ(GetCurrentIp(&c)[0], 10);
    EXPECT_EQ(c.CurrentIp[3], 7);

    // A 7-character model leaves its NUL in the first half: the extension is lost.
    c = systemInfo(std::string(40, ' '), "TV-1883", "X");
    EXPECT_STREQ(c.VendorName, "");
    EXPECT_STREQ(c.ModelName, "TV-1883");
    EXPECT_STREQ(c.ModelFullName, "TV-1883");
    // A full 40-character vendor name keeps every character.
    c = systemInfo(std::string(40, 'V'), "M", "");
    EXPECT_EQ(std::string(c.VendorName), std::string(40, 'V'));

    SoftwareInfo fw{};
    Payload p(256);
    p.text(56, "V1.56 2023     ");
    tovra::decodeFirmwareInfo(p.data(), &fw);
    EXPECT_STREQ(fw.version, "V1.56 2023");
    EXPECT_STREQ(fw.name, "fw");
}

// sGUI_RAIDSET with `members` members and a non-empty member list.
Payload raidSet(uint64_t memberBlocks, uint8_t members, uint32_t failMask, uint8_t state, uint32_t rawStripes) {
    Payload p(248);
    p.text(0, "Set A           ").u64(16, memberBlocks).u32(24, failMask).u8(28, 1).u8(60, members);
    p.u8(62, state).u8(63, 2).u8(83, 5).u32(84, rawStripes).u8(216, 1);
    return p;
}

TEST_F(RaidSet, CapacitiesAndTheStateRule) {
    RAIDSetInfo r{};
    ASSERT_TRUE(tovra::decodeRaidSet(raidSet(1000, 4, 0, 6, 10).data(), 2, &r));
    EXPECT_STREQ(GetRAIDSetName(&r), "Set A");
    EXPECT_EQ(r.Capacity, 2'048'000u);
    EXPECT_EQ(r.FreeRawCapacity, 10'485'760u);
    EXPECT_STREQ(r.RaidState, "Normal");  // no failed member: the state code is not consulted
    EXPECT_EQ(r.RAIDSet_No, 2);

    // Products are taken in 64 bits.
    ASSERT_TRUE(tovra::decodeRaidSet(raidSet(0x100000000ULL, 8, 0, 0, 0x80000000u).data(), 0, &r));
    EXPECT_EQ(r.Capacity, 0x100000000ULL * 512 * 8);
    EXPECT_EQ(r.FreeRawCapacity, 8ULL * 0x80000000u * 262144);

    const std::pair<uint8_t, const char *> states[] = {{0, ""},        {1, "Incomplete"}, {5, "Degraded"},
                                                       {6, "Rebuilding"}, {8, "Cloning"},  {9, ""}};
    for (const auto &[code, text] : states) {
        ASSERT_TRUE(tovra::decodeRaidSet(raidSet(1, 1, 1, code, 0).data(), 0, &r));
        EXPECT_STREQ(r.RaidState, text) << int(code);
    }

    Payload empty = raidSet(1000, 4, 0, 3, 0);
    empty.u8(28, 0);
    EXPECT_FALSE(tovra::decodeRaidSet(empty.data(), 1, &r));
}

Payload volume(uint32_t volState, uint32_t failMask, uint32_t status) {
    Payload p(124);
    p.text(0, "Vol 1   ").u64(16, 4096).u32(24, failMask).u32(36, 128).u32(40, status).u32(44, 77);
    p.u8(48, 0).u8(49, 3).u8(50, 1).u8(52, 2).u8(54, 2).u8(55, 1).u8(58, 4).u32(64, volState);
    p.text(94, "SER-V1              ");
    return p;
}

TEST_F(Volume, FieldsLevelsAndStripeSize) {
    VolumeInfo v{};
    v.NewStripeSize = 99;
    v.len = 7;
    tovra::decodeVolume(volume(0x80 | 0x40 | 0x4000, 0, 0).data(), 31, &v);
    EXPECT_STREQ(GetVolumeName(&v), "Vol 1");
    EXPECT_STREQ(v.VolumeSerial, "SER-V1");
    EXPECT_EQ(v.Capacity, 4096u * 512);
    EXPECT_EQ(v.StripeSize, 64u);
    EXPECT_EQ(v.VolumeNumber, 32u);
    EXPECT_EQ(v.RaidLevel, RAIDLevel_10);  // code 1 with two members
    EXPECT_EQ(v.RaidLevel, 1u);
    EXPECT_STREQ(v.CacheMode, "Write Back");
    EXPECT_STREQ(v.TaggedQueuing, "Enabled");
    EXPECT_STREQ(v.WriteProtect, "Enabled");
    EXPECT_EQ(v.NewStripeSize, 99u);  // not the decoder's to touch
    EXPECT_EQ(v.len, 7u);

    // Unknown level codes keep the previous level; the stripe product wraps in 32 bits.
    Payload p = volume(0, 0, 0);
    p.u8(55, 5).u32(36, 0x00800001);
    tovra::decodeVolume(p.data(), 0, &v);
    EXPECT_EQ(v.RaidLevel, 1u);
    EXPECT_EQ(v.StripeSize, 0u);
    EXPECT_STREQ(v.CacheMode, "Write Through");
    EXPECT_STREQ(v.WriteProtect, "Disabled");
    p.u8(55, 4);
    tovra::decodeVolume(p.data(), 0, &v);
    EXPECT_EQ(v.RaidLevel, RAIDLevel_6);
}

TEST_F(Volume, EncryptionAndStatusOrder) {
    struct Case {
        uint32_t volState, failMask, status;
        const char *encryption, *key, *volumeStatus;
    };
    const Case cases[] = {
        {0x8000 | 0x40000000, 0, 0, "Encrypted", "Unlocked", "Normal"},
        {0x8000, 0, 0x40, "Encrypted", "Locked", "Locked"},
        {0x8000, 0, 0x05, "Encrypted", "Locked", "Migrating"},
        {0, 0, 0x21, "Non-Encrypted", "", "Need Migrate"},
        {0, 0, 0x11, "Non-Encrypted", "", "Initializing"},
        {0, 0, 0x90, "Non-Encrypted", "", "Need Init"},
        {0, 0, 0x80, "Non-Encrypted", "", "Need Rebuild"},
        {0, 1, 0x0A, "Non-Encrypted", "", "Rebuilding"},
        {0, 1, 0x02, "Non-Encrypted", "", "Failed"},
        {0, 1, 0x00, "Non-Encrypted", "", "Degraded"},
        {0, 0, 0x40, "Non-Encrypted", "", "Previous"},  // nothing applies: the field is left alone
    };
    for (const Case &c : cases) {
        VolumeInfo v{};
        v.VolumeStatus = "Previous";
        tovra::decodeVolume(volume(c.volState, c.failMask, c.status).data(), 0, &v);
        SCOPED_TRACE(c.volumeStatus);
        EXPECT_STREQ(v.VolumeEncryption, c.encryption);
        EXPECT_STREQ(v.KeyValidated, c.key);
        EXPECT_STREQ(v.VolumeStatus, c.volumeStatus);
    }
}

Payload disk(uint64_t address, uint8_t state) {
    Payload p(272);
    p.text(0, "MODEL-X" + std::string(33, ' ')).text(40, "ABC123" + std::string(14, ' ')).text(60, "FW01    ");
    p.u64(68, 1000).u8(76, state).u8(78, 5).u8(79, 6).u8(81, 3).u32(88, 11).u32(92, 12).u64(96, address);
    p.u8(104, 0x2C).u8(105, 0x01).u8(106, 40).u8(107, 0).u8(108, 0x5D).u64(112, 111).u64(112 + 19 * 8, 222);
    return p;
}

TEST_F(Disk, TypeBandAndTypeSpecificData) {
    const std::pair<uint64_t, const char *> bands[] = {
        {0x5001000000000000ULL, "SAS"}, {0x5001000000000001ULL, "SATA"}, {0x5000000000000000ULL, "SATA"},
        {0x5000000000000001ULL, "SAS"}, {0, "SATA"},
    };
    for (const auto &[address, type] : bands) EXPECT_STREQ(tovra::deviceTypeOf(address), type) << std::hex << address;

    DiskInfo d{};
    tovra::decodeDiskInfo(disk(0x5000000000000001ULL, 0xC0).data(), 0, 0, &d);
    EXPECT_STREQ(d.DeviceType, "SAS");
    EXPECT_EQ(d.u.sas.RotationRPM, 0x012C);
    EXPECT_EQ(d.u.sas.Temperature, 40);
    EXPECT_EQ(d.u.sas.SmartSenseCode, 0x5D);
    EXPECT_EQ(d.u.sas.Attribute[0], 111u);
    EXPECT_EQ(d.u.sas.Attribute[19], 222u);
    EXPECT_STREQ(GetDiskDriveSerialNumber(&d), "ABC123");
    EXPECT_EQ(d.Capacity, 512000u);
    EXPECT_STREQ(d.Enc, "Enc1");
    EXPECT_STREQ(d.Slot, "Slot1");

    tovra::decodeDiskInfo(disk(0, 0xC0).data(), 27, 11, &d);
    EXPECT_STREQ(d.DeviceType, "SATA");
    EXPECT_EQ(d.u.sata.Smart[0].smIndex, 0x012C);
    EXPECT_EQ(d.u.sata.Smart[0].smStatus, 40);
    EXPECT_EQ(d.u.sata.Smart[1].smIndex, 0x5D);
    EXPECT_STREQ(d.Enc, "Enc12");
    EXPECT_STREQ(d.Slot, "Slot28");

    Payload blank = disk(0, 0xC0);
    blank.text(40, std::string(20, ' '));
    tovra::decodeDiskInfo(blank.data(), 0, 0, &d);
    EXPECT_STREQ(d.SerialNumber, "");
}

TEST_F(Disk, UsageAndStateTableOrder) {
    struct Case {
        uint8_t state;
        const char *usage, *deviceState;
    };
    const Case cases[] = {
        {0x30, "Failed", "FAILED"},       {0xF6, "Failed", "FAILED"},       {0xA0, "Hot Spare", "Normal"},
        {0x22, "Hot Spare", "Normal"},     {0x82, "Pass Through", "Normal"}, {0x84, "Offlined", "Offlined"},
        {0x40, "Unavailable", "Offlined"}, {0x00, "Unavailable", "Offlined"}, {0xC0, "Free", "Normal"},
        {0x80, "", ""},                    {0x88, "", ""},
    };
    for (const Case &c : cases) {
        DiskInfo d{};
        tovra::decodeDiskInfo(disk(0, c.state).data(), 0, 0, &d);
        EXPECT_STREQ(d.Usage, c.usage) << std::hex << int(c.state);
        EXPECT_STREQ(d.DeviceState, c.deviceState) << std::hex << int(c.state);
    }
}

TEST_F(Enclosure, NamesCountsAndSensorArray) {
    Payload p(64);
    p.text(0, "Tovra   ").text(8, "Backplane       ").text(24, "0210").u8(29, 7).u8(30, 12);
    p.u8(31, 2).u8(32, 3).u8(33, 1).u8(34, 4);
    EnclosureInfo e{};
    ASSERT_TRUE(tovra::decodeEnclosureProperty(p.data(), 1, &e));
    EXPECT_STREQ(e.Vendor, "Tovra");
    EXPECT_STREQ(GetContainerName(&e), "Backplane");
    EXPECT_STREQ(e.EnclosureNameRev, "Backplane0210");
    EXPECT_EQ(e.EncNumber, 7);
    EXPECT_EQ(e.EnclosureNumber, 1);
    EXPECT_EQ(e.EncSlots, 12);
    EXPECT_EQ(e.members, 10);
    EXPECT_EQ(GetSensorCount(), 10u);
    ASSERT_NE(e.unit, nullptr);
    EXPECT_EQ(e.unit[9].SensorReading, 0.0f);

    Payload none(64);
    none.text(8, "Sixteen-Char-Nam").text(24, "0001");
    ASSERT_TRUE(tovra::decodeEnclosureProperty(none.data(), 0, &e));
    EXPECT_EQ(e.members, 0);
    EXPECT_EQ(GetSensorCount(), 0u);
    EXPECT_STREQ(e.EnclosureNameRev, "Sixteen-Char-Nam0001");
}

}  // namespace
}  // namespace chantest
