// Whole inventory reads and lookups against the simulated adapter.
#include "ChannelFixture.h"
#include "Controller.h"
#include "DiskInventory.h"
#include "EnclosureInventory.h"
#include "RaidInventory.h"

#include <cstring>

namespace chantest {
namespace {

constexpr char kFull[] = "full";
constexpr char kEdge[] = "edge";

class Inventory : public ChannelTest {
protected:
    ControllerInfo controller{};
    EnclosureInfo enclosure{};
    SoftwareInfo software{};
    DiskInfo disk{};
    RAIDSetInfo raid{};
    VolumeInfo volume{};
};

TEST_F(Inventory, ControllerSoftwareAndPreparingRequests) {
    ASSERT_TRUE(EnumTovraComputerSystemInfo(&status, fd(), &controller));
    EXPECT_STREQ(controller.VendorName, "Tovra Technology Corp.");
    EXPECT_STREQ(GetControllerSerialNumber(&controller), "TV12A0005531");
    EXPECT_STREQ(GetControllerModelFullName(&controller), "TV-1883i-16");
    EXPECT_STREQ(GetFirmVersion(&controller), "V1.56 2023-04-12");
    EXPECT_EQ(controller.CurrentIp[0], 192);
    for (auto read : {EnumTovraControllerInfo, EnumTovraPortControllerInfo}) {
        ControllerInfo again{};
        ASSERT_TRUE(read(&status, fd(), &again));
        EXPECT_EQ(std::memcmp(&again, &controller, sizeof again), 0);
    }
    ASSERT_TRUE(EnumTovraFirmwareInfo(&status, fd(), &software));
    EXPECT_STREQ(software.version, "V1.56 2023-04-12");
    EXPECT_STREQ(software.name, "fw");
    ASSERT_TRUE(EnumTovraDriverInfo(&status, fd(), &software));
    EXPECT_STREQ(software.version, "v1.40.00.00-20230131");
    EXPECT_STREQ(software.name, "tovdrv");
    PCIInfo pci{};
    ASSERT_TRUE(EnumTovraPCIInfo(&status, fd(), &pci));
    EXPECT_STREQ(pci.width, "x8");
    EXPECT_STREQ(pci.speed, "5.0 GT/s");
    EXPECT_TRUE(ProceedingIdentify(&status, fd()));
    EXPECT_TRUE(PrecedingEnumeration(&status, fd(), 4));
    EXPECT_TRUE(PrecedingEnumeration(&status, fd(), 5));
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_TRUE(sim::logLines().empty());
}

TEST_F(Inventory, RaidSetsAndVolumeWalk) {
    ASSERT_TRUE(EnumTovraRAIDsInfo(&status, fd(), 0, &raid));
    EXPECT_STREQ(raid.RaidSetName, "Raid Set # 000");
    EXPECT_EQ(raid.MemberDisks, 4);
    EXPECT_STREQ(raid.RaidState, "Normal");
    EXPECT_EQ(raid.Capacity, 4 * 7814037168ULL * 512);
    EXPECT_FALSE(EnumTovraRAIDsInfo(&status, fd(), 5, &raid));  // no set there: not a failure
    EXPECT_EQ(status.rc, CMPI_RC_OK);

    int volumes = 0;
    for (int n = 0; n < 32; ++n)
        if (EnumTovraVolumeInfo(&status, fd(), n, &volume) && volume.Capacity != 0) ++volumes;
    EXPECT_EQ(volumes, 3);
    ASSERT_TRUE(LookupVolumeByNo(&status, fd(), 2, &volume));
    EXPECT_STREQ(volume.VolumeName, "Volume Set # 002");
    EXPECT_EQ(volume.RaidSetNumber, 1);
    EXPECT_EQ(volume.VolumeNumber, 3u);
    EXPECT_EQ(sim::exchanges(0x21), 33u);  // no retries
}

TEST_F(Inventory, ControllerAndSoftwareLookups) {
    EXPECT_FALSE(LookupControllerBySerialNumber(&status, fd(), "", &controller));
    EXPECT_EQ(sim::exchanges(), 0u);
    EXPECT_TRUE(LookupControllerBySerialNumber(&status, fd(), "TV12A0005531", &controller));
    EXPECT_FALSE(LookupControllerBySerialNumber(&status, fd(), "TV12A000553", &controller));
    sim::withModel([](sim::Model &m) { m.controller.serial.clear(); });
    EXPECT_TRUE(LookupControllerBySerialNumber(&status, fd(), "ANYTHING", &controller));

    auto identity = [&](const char *id) {
        return LookupSoftwareIdentityByID(&status, fd(), id, &controller, &enclosure, &software, &disk);
    };
    EXPECT_FALSE(identity(""));
    sim::resetCounters();
    EXPECT_TRUE(identity("any identity at all"));
    EXPECT_EQ(sim::exchanges(0x02), 1u);
    EXPECT_EQ(sim::exchanges(0x22), 0u);

    // Without the driver the firmware answers; without both, a disk serial must match.
    sim::addFault({sim::FaultKind::WriteFail, 0x02});
    EXPECT_TRUE(identity("any identity at all"));
    sim::reset();
    sim::addFault({sim::FaultKind::WriteFail, 0x02});
    sim::addFault({sim::FaultKind::ZeroLength, 0x23, 2});
    EXPECT_TRUE(identity("driver of Z1Z0B7Q1"));
    EXPECT_EQ(disk.EnclosureNumber, 1);
    EXPECT_EQ(enclosure.unit, nullptr);
    sim::clearFaults();
    sim::addFault({sim::FaultKind::WriteFail, 0x02});
    sim::addFault({sim::FaultKind::ZeroLength, 0x23, 2});
    EXPECT_FALSE(identity("nothing of ours"));
}

TEST_F(Inventory, DiskLookups) {
    auto bySerial = [&](const char *id) {
        return LookupDiskDriveBySerialNumber(&status, fd(), id, &controller, &enclosure, &disk);
    };
    EXPECT_FALSE(bySerial(""));
    EXPECT_TRUE(bySerial("z1z0a1b3"));
    EXPECT_EQ(disk.SlotNumber, 1);
    EXPECT_EQ(enclosure.unit, nullptr);
    EXPECT_TRUE(bySerial("disk:wd-WMAY04200002:x"));  // the id contains the serial
    EXPECT_EQ(disk.EnclosureNumber, 1);
    EXPECT_EQ(disk.SlotNumber, 1);
    EXPECT_TRUE(bySerial("A1B4"));  // the serial contains the id
    EXPECT_STREQ(disk.SerialNumber, "Z1Z0A1B4");
    EXPECT_FALSE(bySerial("nothing"));

    auto byTag = [&](const char *id) {
        return LookupPhysicalPackageByTag(&status, fd(), id, &controller, &enclosure, &disk);
    };
    EXPECT_FALSE(byTag(""));
    EXPECT_TRUE(byTag("TV12A0005531"));
    EXPECT_TRUE(byTag("259"));
    EXPECT_STREQ(disk.SerialNumber, "Z1Z0B7Q1");
    EXPECT_TRUE(byTag("0"));
    EXPECT_STREQ(disk.SerialNumber, "Z1Z0A1B2");
    EXPECT_FALSE(byTag("99999"));

    EXPECT_TRUE(LookupDiskDriveByEncSlot(&status, fd(), 1, 3, &disk, &controller, &enclosure));
    EXPECT_STREQ(disk.SerialNumber, "Z1Z0B7Q1");
    EXPECT_EQ(enclosure.unit, nullptr);
    EXPECT_FALSE(LookupDiskDriveByEncSlot(&status, fd(), 5, 0, &disk, &controller, &enclosure));
    EXPECT_EQ(status.rc, CMPI_RC_OK);
}

TEST_F(Inventory, EnclosureSetAndVolumeLookups) {
    ASSERT_TRUE(LookupChassisByEnclosureNumber(&status, fd(), 1, &enclosure));
    EXPECT_EQ(enclosure.EncSlots, 12);
    EXPECT_STREQ(enclosure.EnclosureNameRev, "TV-8012 Expander0210");
    EXPECT_EQ(enclosure.unit, nullptr);
    EXPECT_FALSE(LookupEnclosureByEnclosureNameRev(&status, fd(), "", &enclosure));
    EXPECT_TRUE(LookupEnclosureByEnclosureNameRev(&status, fd(), "[TV-8012 Expander0210]", &enclosure));
    EXPECT_EQ(enclosure.EnclosureNumber, 1);
    EXPECT_EQ(enclosure.unit, nullptr);

    EXPECT_FALSE(LookupRAIDSetByAddress(&status, fd(), "", &controller, &raid));
    EXPECT_TRUE(LookupRAIDSetByAddress(&status, fd(), "Raid Set # 001", &controller, &raid));
    EXPECT_EQ(raid.RAIDSet_No, 1);
    EXPECT_FALSE(LookupRAIDSetByAddress(&status, fd(), "raid set # 001", &controller, &raid));
    EXPECT_TRUE(LookupVolumeByName(&status, fd(), "Volume Set # 002", &controller, &volume));
    EXPECT_EQ(volume.VolumeNumber, 3u);

    auto extent = [&](const char *id) {
        return LookupStorageExtentByDeviceID(&status, fd(), id, &disk, &raid, &volume);
    };
    EXPECT_EQ(extent(""), -1);
    EXPECT_EQ(extent("Z1Z0B7Q1"), 0);
    EXPECT_EQ(extent("Volume Set # 001"), 1);
    EXPECT_EQ(extent("Raid Set # 000"), 2);
    EXPECT_EQ(extent("Raid Set"), -1);
    EXPECT_TRUE(sim::logLines().empty());
}

using FullAdapter = ScenarioTest<kFull>;

TEST_F(FullAdapter, WalkFindsEveryDiskAndEnclosureSearchStopsAtEleven) {
    int disks = 0, slots = 0;
    EXPECT_TRUE(WalkDisks(&status, fd(), [&](const EnclosureInfo &, DiskInfo &d) {
        ++slots;
        disks += d.Capacity != 0;
        return true;
    }));
    EXPECT_EQ(disks, 316);
    EXPECT_EQ(slots, 316);
    EXPECT_EQ(sim::exchanges(0x1B), 12u);

    int seen = 0;
    EXPECT_FALSE(WalkDisks(&status, fd(), [&](const EnclosureInfo &, DiskInfo &) { return ++seen < 10; }));
    EXPECT_EQ(seen, 10);

    sim::resetCounters();
    EnclosureInfo e{};
    EXPECT_FALSE(LookupEnclosureByEnclosureNameRev(&status, fd(), "no such enclosure", &e));
    EXPECT_EQ(sim::exchanges(0x1B), 12u);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
}

using EdgeAdapter = ScenarioTest<kEdge>;

TEST_F(EdgeAdapter, RawDecoderInputs) {
    ControllerInfo c{};
    ASSERT_TRUE(EnumTovraComputerSystemInfo(&status, fd(), &c));
    EXPECT_STREQ(c.ModelFullName, "TV-1883");  // a 7-character model drops the extension

    RAIDSetInfo r{};
    ASSERT_TRUE(EnumTovraRAIDsInfo(&status, fd(), 0, &r));
    EXPECT_STREQ(r.RaidState, "Rebuilding");
    ASSERT_TRUE(EnumTovraRAIDsInfo(&status, fd(), 3, &r));
    EXPECT_STREQ(r.RaidState, "");
    // A RAID set with a blank name answers to any name.
    EXPECT_TRUE(LookupRAIDSetByAddress(&status, fd(), "whatever", &c, &r));
    EXPECT_EQ(r.RAIDSet_No, 3);

    // One record across the walk: the unknown level code of volume 5 keeps volume 0's level.
    VolumeInfo v{};
    ASSERT_TRUE(EnumTovraVolumeInfo(&status, fd(), 0, &v));
    EXPECT_STREQ(v.VolumeStatus, "Locked");
    EXPECT_EQ(v.RaidLevel, RAIDLevel_5);
    ASSERT_TRUE(EnumTovraVolumeInfo(&status, fd(), 5, &v));
    EXPECT_EQ(v.RaidLevel, RAIDLevel_5);
    EXPECT_EQ(v.StripeSize, 64u);
    EXPECT_STREQ(v.KeyValidated, "Unlocked");

    // The blank serial in enclosure 0 never matches, though "" is in every id.
    EnclosureInfo e{};
    DiskInfo d{};
    EXPECT_TRUE(LookupDiskDriveBySerialNumber(&status, fd(), "EDGE1001", &c, &e, &d));
    EXPECT_EQ(d.EnclosureNumber, 1);

    ASSERT_TRUE(EnumTovraEnclosureInfo(&status, fd(), 3, &e));
    EXPECT_EQ(e.EncSlots, 0);
    EXPECT_EQ(e.members, 5);
    EXPECT_EQ(GetSensorCount(), 5u);
}

}  // namespace
}  // namespace chantest
