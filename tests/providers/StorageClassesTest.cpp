// The storage classes against the simulated adapter: pools, volumes, default
// settings, disks, slots, extents and chassis, grouped per class.
#include "Harness.h"

#include <algorithm>
#include <set>

using namespace harness;
namespace sim = tovra::sim;

namespace {

class OnEdge : public ProviderTest {
protected:
    void SetUp() override {
        ProviderTest::SetUp();
        sim::loadScenario("edge");
        sim::useVirtualClock(true);
        freshClock();
    }
};

std::vector<std::string> texts(const Answer &a, const std::string &prop) {
    std::vector<std::string> out;
    for (const Obj &o : a.objects) out.push_back(o.text(prop));
    return out;
}

// ---- storage pool --------------------------------------------------------

TEST_F(OnEdge, PoolsAreTheRaidSetsInNumberOrder) {
    Answer a = enumInstances("Tovra_StoragePool");
    ASSERT_EQ(a.rc, CMPI_RC_OK);
    ASSERT_EQ(a.objects.size(), 2u);
    const Obj &first = a.objects[0];
    EXPECT_EQ(first.num("RaidSetNumber"), 0u);
    EXPECT_EQ(first.text("InstanceID"), "Edge Set");
    EXPECT_EQ(first.text("PoolID"), "Edge Set");
    EXPECT_EQ(first.text("RAIDState"), "Rebuilding") << "a member failed, so the state code counts";
    EXPECT_EQ(first.prop("DevArray")->numbers.size(), 3u);
    EXPECT_EQ(first.prop("DevEncArray")->numbers.size(), 3u);
    const Obj &second = a.objects[1];
    EXPECT_EQ(second.num("RaidSetNumber"), 3u);
    EXPECT_EQ(second.text("InstanceID"), "") << "an all-blank name";
    EXPECT_EQ(second.text("RAIDState"), "") << "failed member and state code 9";
    EXPECT_EQ(enumNames("Tovra_StoragePool").objects.size(), 2u);
}

TEST_F(OnEdge, PoolEnumerationFailsWithoutInstancesWhenThePrecedingRequestFails) {
    ASSERT_EQ(enumInstances("Tovra_StoragePool").objects.size(), 2u);
    freshClock();
    sim::addFault({.kind = sim::FaultKind::NoReply, .command = 0x1F});
    Answer failed = enumInstances("Tovra_StoragePool");
    EXPECT_EQ(failed.rc, CMPI_RC_ERR_FAILED);
    EXPECT_TRUE(failed.objects.empty());
    sim::clearFaults();
    // The failed walk did not renew the cache time, so the next call rebuilds.
    EXPECT_EQ(enumInstances("Tovra_StoragePool").objects.size(), 2u);
}

TEST_F(OnEdge, PoolGetByInstanceID) {
    ASSERT_EQ(getInstance("Tovra_StoragePool", {{"InstanceID", In::str("Edge Set")}}).objects.size(), 1u);
    EXPECT_EQ(getInstance("Tovra_StoragePool", {{"InstanceID", In::str("Edge")}}).rc, CMPI_RC_ERR_NOT_FOUND);
}

// ---- storage volume ------------------------------------------------------

TEST_F(OnEdge, VolumesNumberFromOneAndCarryOverUndecodedFields) {
    // Volume 5 (level code 7) moves right behind volume 0 so that nothing
    // read in between sets the level it carries over.
    sim::withModel([](sim::Model &m) {
        m.volumes[1] = m.volumes[5];
        m.volumes[5].reset();
    });
    Answer a = enumInstances("Tovra_StorageVolume");
    ASSERT_EQ(a.rc, CMPI_RC_OK);
    ASSERT_EQ(a.objects.size(), 2u);
    const Obj &locked = a.objects[0];
    const Obj &five = a.objects[1];
    EXPECT_EQ(locked.num("VolumeNo"), 1u);
    EXPECT_EQ(five.num("VolumeNo"), 2u);
    EXPECT_EQ(locked.text("VolumeEncryption"), "Encrypted");
    EXPECT_EQ(locked.text("KeyValidated"), "Locked");
    EXPECT_EQ(locked.text("VolumeState"), "Locked");
    EXPECT_EQ(five.text("KeyValidated"), "Unlocked");
    EXPECT_EQ(five.num("StripeSize"), 64u);
    // Level code 7 is not decoded: the previous volume's level carries over.
    EXPECT_EQ(locked.num("RAIDLevel"), 5u);
    EXPECT_EQ(five.num("RAIDLevel"), 5u);
    for (const Obj &v : a.objects) {
        EXPECT_EQ(v.prop("OperationalStatus")->numbers, std::vector<uint64_t>{2});
        EXPECT_EQ(v.text("SystemCreationClassName"), "Tovra_RAIDControllerSystem");
        EXPECT_EQ(v.text("SystemName"), "EDGE00000001");
    }
    Answer names = enumNames("Tovra_StorageVolume");
    ASSERT_EQ(names.objects.size(), 2u);
    EXPECT_EQ(names.objects[0].keys.size(), 4u);
}

TEST_F(OnEdge, VolumeGetMatchesAPartOfTheNameOrTheNumber) {
    Answer part = getInstance("Tovra_StorageVolume", {{"DeviceID", In::str("Vol")}});
    ASSERT_EQ(part.objects.size(), 1u);
    EXPECT_EQ(part.objects[0].text("DeviceID"), "Locked Vol") << "first cached name containing the text";

    Answer empty = getInstance("Tovra_StorageVolume", {{"DeviceID", In::str("")}});
    ASSERT_EQ(empty.objects.size(), 1u);
    EXPECT_EQ(empty.objects[0].num("VolumeNo"), 1u);

    sim::resetCounters();
    Answer byNumber = getInstance("Tovra_StorageVolume", {{"VolumeNo", In::u32(6)}});  // number 5
    ASSERT_EQ(byNumber.objects.size(), 1u);
    EXPECT_EQ(byNumber.objects[0].text("DeviceID"), "Vol5");
    EXPECT_GT(sim::exchanges(0x21), 0u) << "a lookup by number rebuilds the cache";

    Answer zero = getInstance("Tovra_StorageVolume", {{"VolumeNo", In::u32(0)}});
    EXPECT_EQ(zero.rc, 50);
    EXPECT_EQ(zero.message, "%s: Error!! VolumeNo is smaller than 1.\n");

    EXPECT_EQ(getInstance("Tovra_StorageVolume", {{"VolumeNo", In::u32(3)}}).rc, CMPI_RC_ERR_NOT_FOUND);
}

// ---- default storage setting --------------------------------------------

TEST_F(OnEdge, EightDefaultSettingsFromConstants) {
    Answer a = enumInstances("Tovra_DefaultStorageSetting");
    ASSERT_EQ(a.rc, CMPI_RC_OK);
    EXPECT_EQ(texts(a, "InstanceID"), (std::vector<std::string>{"RAID 0", "RAID 3", "RAID 5", "RAID 6", "RAID 10",
                                                                "RAID 30", "RAID 50", "RAID 60"}));
    EXPECT_EQ(a.objects[4].num("RAIDLevel"), 1u);
    EXPECT_EQ(a.objects[0].num("UserDataStripeDepthMax"), 1048576u);
    EXPECT_EQ(sim::exchanges(), 0u);
    EXPECT_EQ(enumNames("Tovra_DefaultStorageSetting").objects.size(), 8u);

    EXPECT_EQ(getInstance("Tovra_DefaultStorageSetting", {{"InstanceID", In::str("RAID 10")}}).objects.at(0).num(
                  "RAIDLevel"),
              1u);
    for (const char *missing : {"RAID 1", "raid 10"}) {
        EXPECT_EQ(getInstance("Tovra_DefaultStorageSetting", {{"InstanceID", In::str(missing)}}).rc,
                  CMPI_RC_ERR_NOT_FOUND);
    }
    EXPECT_TRUE(logged("TovraDefaultStorageSettingProviderGetInstance: CMPI_RC_ERR_NOT_FOUND(ID = raid 10)"));

    sim::addFault({.kind = sim::FaultKind::OpenFail});
    EXPECT_EQ(enumInstances("Tovra_DefaultStorageSetting").rc, CMPI_RC_ERROR_SYSTEM);
}

// ---- disk drive ----------------------------------------------------------

TEST_F(OnEdge, DisksArePresentSlotsWithTheirHealthData) {
    Answer a = enumInstances("Tovra_DiskDrive");
    ASSERT_EQ(a.rc, CMPI_RC_OK);
    // 7 present disks in enclosure 0 (slot 5 has capacity 0), 3 + 2 behind the expanders.
    ASSERT_EQ(a.objects.size(), 12u);
    std::set<std::string> serials;
    for (const Obj &d : a.objects) serials.insert(d.text("DeviceID"));
    EXPECT_FALSE(serials.count("EDGE0005"));

    const Obj &sas = a.objects[0];
    EXPECT_EQ(sas.text("DeviceType"), "SAS");
    EXPECT_TRUE(sas.has("ReadTotalBytes"));
    EXPECT_TRUE(sas.has("DefectGListBlockCount"));
    EXPECT_FALSE(sas.has("SMARTReadErrorRateStatus"));
    EXPECT_EQ(sas.text("Tag"), "0");
    EXPECT_EQ(sas.text("Enc"), "Enc1");
    EXPECT_EQ(sas.num("SlotNumber"), 0u);
    EXPECT_EQ(sas.text("UsageExt"), "Edge Set") << "member of RAID set 0";

    const Obj &sata = *std::find_if(a.objects.begin(), a.objects.end(),
                                    [](const Obj &d) { return d.text("DeviceType") == "SATA"; });
    EXPECT_TRUE(sata.has("SMARTSpinupTimeThreshol"));
    EXPECT_FALSE(sata.has("ReadTotalBytes"));

    const Obj &failed = *std::find_if(a.objects.begin(), a.objects.end(),
                                      [](const Obj &d) { return d.text("DeviceID") == "EDGE0001"; });
    EXPECT_EQ(failed.text("Usage"), "Failed");
    EXPECT_EQ(failed.text("DeviceState"), "FAILED");

    const Obj &expander = *std::find_if(a.objects.begin(), a.objects.end(),
                                        [](const Obj &d) { return d.text("DeviceID") == "EDGE1000"; });
    EXPECT_EQ(expander.text("Tag"), "256");
    EXPECT_EQ(expander.num("EnclosureNumber"), 1u);
}

TEST_F(OnEdge, DiskGetByIdOrByOneBasedPosition) {
    EXPECT_EQ(getInstance("Tovra_DiskDrive", {{"DeviceID", In::str("EDGE2001")}}).objects.size(), 1u);
    EXPECT_EQ(getInstance("Tovra_DiskDrive", {{"DeviceID", In::str("EDGE20")}}).rc, CMPI_RC_ERR_NOT_FOUND);

    Answer byPosition =
        getInstance("Tovra_DiskDrive", {{"EnclosureNumber", In::u8(3)}, {"SlotNumber", In::u8(2)}});
    ASSERT_EQ(byPosition.objects.size(), 1u);
    EXPECT_EQ(byPosition.objects[0].text("DeviceID"), "EDGE2001");

    Answer zero = getInstance("Tovra_DiskDrive", {{"EnclosureNumber", In::u8(0)}, {"SlotNumber", In::u8(1)}});
    EXPECT_EQ(zero.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(zero.message, "TovraDiskDriveProviderGetInstance: Error!! EnclosureNumber is smaller than 1.\n");
}

// ---- slots, extents, chassis ---------------------------------------------

TEST_F(OnEdge, SlotsComeFromSlotCountsExtentsFromPresentDisks) {
    Answer slots = enumInstances("Tovra_DiskDriveSlot");
    ASSERT_EQ(slots.rc, CMPI_RC_OK);
    EXPECT_EQ(slots.objects.size(), 8u + 4u + 4u);
    const Obj &firstOfSecond = slots.objects[8];
    EXPECT_EQ(firstOfSecond.num("Number"), 0u);
    EXPECT_EQ(firstOfSecond.text("Tag"), "256");
    EXPECT_EQ(firstOfSecond.text("EnclosureNameRev"), "TV-8028 Expander0300");

    Answer extents = enumInstances("Tovra_DiskExtent");
    ASSERT_EQ(extents.objects.size(), 12u) << "the capacity-0 disk has a slot but no extent";
    EXPECT_EQ(extents.objects[0].num("NumberOfBlocks"), 7814037168ull * 512);
    EXPECT_EQ(getInstance("Tovra_DiskDriveSlot", {{"Tag", In::str("257")}}).objects.size(), 1u);
}

TEST_F(OnEdge, ChassisPerEnclosureWithSlotsDuplicatesKept) {
    Answer a = enumInstances("Tovra_Chassis");
    ASSERT_EQ(a.rc, CMPI_RC_OK);
    EXPECT_EQ(texts(a, "Tag"),
              (std::vector<std::string>{"Edge BackplaneE1  ", "TV-8028 Expander0300", "TV-8028 Expander0300"}));
    Answer get = getInstance("Tovra_Chassis", {{"Tag", In::str("TV-8028 Expander0300")}});
    EXPECT_EQ(get.objects.size(), 1u);
}

// ---- scale and replay ----------------------------------------------------

class OnFull : public ProviderTest {};

TEST_F(OnFull, FullyPopulatedAdapterEnumeratesCompletelyAndReplaysWithoutTraffic) {
    sim::loadScenario("full");
    sim::useVirtualClock(true);
    freshClock();
    const std::pair<const char *, size_t> expected[] = {
        {"Tovra_DiskDrive", 316}, {"Tovra_DiskDriveSlot", 316}, {"Tovra_DiskExtent", 316},
        {"Tovra_Chassis", 12},    {"Tovra_StoragePool", 8},     {"Tovra_StorageVolume", 32},
    };
    for (auto [cls, count] : expected) {
        SCOPED_TRACE(cls);
        Answer a = enumInstances(cls);
        EXPECT_EQ(a.rc, CMPI_RC_OK);
        EXPECT_EQ(a.objects.size(), count);
        EXPECT_EQ(enumNames(cls).objects.size(), count);
    }
    sim::resetCounters();
    for (auto [cls, count] : expected) {
        EXPECT_EQ(enumInstances(cls).objects.size(), count);
        EXPECT_EQ(enumNames(cls).objects.size(), count);
    }
    EXPECT_EQ(sim::exchanges(), 0u);
    EXPECT_EQ(sim::openDescriptors(), 0u);
}

TEST_F(OnFull, EverySlotPositionTheFirmwareCanReportIsPublished) {
    // Firmware that reports 255 slots in every enclosure: the extra slots are
    // empty, yet each is a slot, and the disks stay those present.
    sim::loadScenario("full");
    sim::withModel([](sim::Model &m) {
        for (sim::Enclosure &e : m.enclosures) e.rawSlots = 255;
    });
    sim::useVirtualClock(true);
    freshClock();
    EXPECT_EQ(enumInstances("Tovra_DiskDriveSlot").objects.size(), 12u * 255u);
    EXPECT_EQ(enumNames("Tovra_DiskDriveSlot").objects.size(), 12u * 255u);
    EXPECT_EQ(enumInstances("Tovra_DiskDrive").objects.size(), 316u);
    // A complete walk fills the cache: a second enumeration reads nothing.
    sim::resetCounters();
    EXPECT_EQ(enumInstances("Tovra_DiskDriveSlot").objects.size(), 12u * 255u);
    EXPECT_EQ(sim::exchanges(), 0u);
}

}  // namespace
