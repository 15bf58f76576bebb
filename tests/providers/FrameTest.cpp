// The frame shared by every module, seen through the controller system and
// the registered profile: the cache time rule, the device rule, the common
// answers and the cache's memory.
#include "Harness.h"

#include <CacheReset.h>
#include <cmpift.h>

using namespace harness;
namespace sim = tovra::sim;

namespace {

constexpr const char *kController = "Tovra_RAIDControllerSystem";

class Frame : public ProviderTest {};

TEST_F(Frame, FirstCallReadsTheFirmwareThenTheCacheAnswersWithoutTraffic) {
    Answer first = enumInstances(kController);
    ASSERT_EQ(first.rc, CMPI_RC_OK);
    ASSERT_EQ(first.objects.size(), 1u);
    EXPECT_EQ(sim::exchanges(0x23), 1u);

    sim::resetCounters();
    Answer again = enumInstances(kController);
    EXPECT_EQ(again.rc, CMPI_RC_OK);
    ASSERT_EQ(again.objects.size(), 1u);
    EXPECT_EQ(again.objects[0].text("Name"), first.objects[0].text("Name"));
    EXPECT_EQ(sim::exchanges(), 0u);
    EXPECT_EQ(sim::openDescriptors(), 0u);
}

TEST_F(Frame, CacheIsFreshForExactlyTheLifetimeAndStaleOneSecondLater) {
    const time_t built = clockNow();
    ASSERT_EQ(enumNames(kController).rc, CMPI_RC_OK);
    sim::resetCounters();

    sim::setTime(built + 1800);
    EXPECT_EQ(enumNames(kController).objects.size(), 1u);
    EXPECT_EQ(sim::exchanges(), 0u);

    sim::setTime(built + 1801);
    EXPECT_EQ(enumNames(kController).objects.size(), 1u);
    EXPECT_EQ(sim::exchanges(0x23), 1u);
}

TEST_F(Frame, InstanceAndNameCachesAgeIndependently) {
    ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
    sim::resetCounters();
    ASSERT_EQ(enumNames(kController).rc, CMPI_RC_OK);
    EXPECT_EQ(sim::exchanges(0x23), 1u) << "the name cache was still empty";
}

TEST_F(Frame, ClockSetBackwardsRebuildsAtOnce) {
    const time_t built = clockNow();
    ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
    sim::resetCounters();
    sim::setTime(built - 1);
    EXPECT_EQ(enumInstances(kController).objects.size(), 1u);
    EXPECT_EQ(sim::exchanges(0x23), 1u);
}

TEST_F(Frame, MissingDeviceAnswers100EvenWithAFreshCache) {
    ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
    sim::addFault({.kind = sim::FaultKind::OpenFail});
    for (const bool names : {false, true}) {
        Answer a = names ? enumNames(kController) : enumInstances(kController);
        EXPECT_EQ(a.rc, CMPI_RC_ERROR_SYSTEM);
        EXPECT_TRUE(a.objects.empty());
    }
    EXPECT_TRUE(logged("TovraRAIDComputerSystemProviderEnumInstances: CMPI_RC_ERR_FAILED(Fail to Open File)"));
    EXPECT_TRUE(logged("TovraRAIDComputerSystemProviderEnumInstanceNames: Not Return CMPI_RC_OK(0x64)"));
}

TEST_F(Frame, FailedRebuildLeavesTheCacheEmptyAndStale) {
    sim::addFault({.kind = sim::FaultKind::NoReply, .command = 0x23});
    Answer failed = enumInstances(kController);
    EXPECT_EQ(failed.rc, CMPI_RC_ERR_FAILED);
    EXPECT_TRUE(failed.objects.empty());
    EXPECT_TRUE(logged("EnumTovraComputerSystemInfo command retry failed"));
    sim::clearFaults();
    sim::resetCounters();
    EXPECT_EQ(enumInstances(kController).objects.size(), 1u);
    EXPECT_EQ(sim::exchanges(0x23), 1u);
}

TEST_F(Frame, ControllerSystemProperties) {
    sim::withModel([](sim::Model &m) {
        m.controller.localIp = {10, 0, 0, 7};
        m.controller.mac = {0x02, 0x00, 0x00, 0x0A, 0x0B, 0x0C};
        m.controller.model = "TV-188";  // shorter than 8: the extension is cut off
        m.controller.modelExt = "X";
        m.controller.serial = "Y123456789";
    });
    Answer a = enumInstances(kController);
    ASSERT_EQ(a.objects.size(), 1u);
    const Obj &c = a.objects[0];
    EXPECT_EQ(c.text("LocalIP"), "10.0.0.7");
    EXPECT_EQ(c.text("MAC"), "02.00.00.0a.0b.0c");
    EXPECT_EQ(c.text("ModelName"), "TV-188");
    EXPECT_EQ(c.text("Name"), "Y123456789");
    EXPECT_EQ(c.text("SerialNumber"), "Y123456789");
    EXPECT_EQ(c.text("Description"),
              "A class derived from ComputerSystem that represents an Tovra SAS RAID Adapter.");
    ASSERT_TRUE(c.has("OperationalStatus"));
    EXPECT_EQ(c.prop("OperationalStatus")->numbers, std::vector<uint64_t>{2});
    Answer names = enumNames(kController);
    ASSERT_EQ(names.objects.size(), 1u);
    EXPECT_EQ(names.objects[0].keys.size(), 2u) << "CreationClassName and Name only";
}

TEST_F(Frame, GetInstanceKeyRules) {
    const std::string serial = enumInstances(kController).objects.at(0).text("Name");
    Answer found = getInstance(kController, {{"CreationClassName", In::str(kController)}, {"Name", In::str(serial)}});
    EXPECT_EQ(found.rc, CMPI_RC_OK);
    EXPECT_EQ(found.objects.size(), 1u);

    Answer other = getInstance(kController, {{"Name", In::str("NOT-" + serial)}});
    EXPECT_EQ(other.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_TRUE(logged("TovraRAIDComputerSystemProviderGetInstance: Not Return CMPI_RC_OK(0x6, NOT-"));

    // A null key answers OK with no instance.
    Answer nullKey = getInstance(kController, {{"Name", In::null()}});
    EXPECT_EQ(nullKey.rc, CMPI_RC_OK);
    EXPECT_TRUE(nullKey.objects.empty());
    EXPECT_TRUE(logged("TovraRAIDComputerSystemProviderGetInstance: CMPI_RC_ERR_FAILED"));
}

TEST_F(Frame, GetInstanceRefreshesAStaleCacheThroughTheBroker) {
    const std::string serial = enumInstances(kController).objects.at(0).text("Name");
    freshClock();
    sim::resetCounters();
    Answer a = getInstance(kController, {{"Name", In::str(serial)}});
    EXPECT_EQ(a.objects.size(), 1u);
    EXPECT_EQ(sim::exchanges(0x23), 1u);
}

TEST_F(Frame, TablesDeclareVersion200AndTheirNames) {
    auto *mi = static_cast<CMPIInstanceMI *>(factory("TovraStoragePoolProvider_Create_InstanceMI"));
    ASSERT_NE(mi, nullptr);
    EXPECT_EQ(mi->ft->ftVersion, 200);
    EXPECT_EQ(mi->ft->miVersion, 200);
    EXPECT_STREQ(mi->ft->miName, "instanceTovraStoragePoolProvider");
    auto *method = static_cast<CMPIMethodMI *>(factory("TovraStoragePoolProvider_Create_MethodMI"));
    ASSERT_NE(method, nullptr);
    EXPECT_EQ(method->ft->ftVersion, 200);
    EXPECT_STREQ(method->ft->miName, "methodTovraStoragePoolProvider");
    EXPECT_EQ(factory("TovraChassisProvider_Create_MethodMI"), nullptr) << "instance-only module";
}

TEST_F(Frame, UnsupportedOperationsAnswer7AndCleanupNeverUnloads) {
    for (const char *module : {"RAIDComputerSystem", "RegisteredProfile", "StoragePool", "StorageVolume",
                               "DefaultStorageSetting", "DiskDrive", "DiskDriveSlot", "DiskExtent", "Chassis"}) {
        SCOPED_TRACE(module);
        auto *mi = static_cast<CMPIInstanceMI *>(
            factory(std::string("Tovra") + module + "Provider_Create_InstanceMI"));
        ASSERT_NE(mi, nullptr);
        EXPECT_EQ(mi->ft->createInstance(mi, nullptr, nullptr, nullptr, nullptr).rc, CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(mi->ft->modifyInstance(mi, nullptr, nullptr, nullptr, nullptr, nullptr).rc,
                  CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(mi->ft->deleteInstance(mi, nullptr, nullptr, nullptr).rc, CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(mi->ft->execQuery(mi, nullptr, nullptr, nullptr, "select *", "WQL").rc,
                  CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(mi->ft->cleanup(mi, nullptr, 0).rc, CMPI_RC_NEVER_UNLOAD);
        EXPECT_EQ(mi->ft->cleanup(mi, nullptr, 1).rc, CMPI_RC_OK);
    }
    auto *method = static_cast<CMPIMethodMI *>(factory("TovraRAIDComputerSystemProvider_Create_MethodMI"));
    ASSERT_NE(method, nullptr);
    EXPECT_STREQ(method->ft->miName, "methodTovraRAIDComputerSystemProvider");
    EXPECT_EQ(method->ft->cleanup(method, nullptr, 0).rc, CMPI_RC_OK);
    EXPECT_FALSE(logged("Not Return"));
}

TEST_F(Frame, TimeCalibrationZeroesTheCacheTimeForCallersWithReadWriteRights) {
    ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
    setPermission("root", 5);
    Answer ok = invoke(kController, "TimeCalibration");
    EXPECT_EQ(ok.rc, CMPI_RC_OK);
    ASSERT_TRUE(ok.value.has_value());
    EXPECT_EQ(*ok.value, "OK");
    EXPECT_TRUE(logged("TovraRAIDComputerSystemProviderInvokeMethod: Sarting"));
    EXPECT_TRUE(logged("TovraRAIDComputerSystemProviderInvokeMethod: Ending(0x0)"));
    sim::resetCounters();
    ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
    EXPECT_EQ(sim::exchanges(0x23), 1u) << "the zeroed cache time forces a rebuild";

    for (unsigned level : {4u, 6u}) {
        setPermission("root", level);
        Answer denied = invoke(kController, "TimeCalibration");
        EXPECT_EQ(denied.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(denied.message,
                  "TovraRAIDComputerSystemProviderInvokeMethod: Caller does not have rw privileges to invoke methods.");
    }
    setPermission("root", 5);
}

TEST_F(Frame, CacheResetReachesTheNamedModules) {
    ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
    ASSERT_EQ(enumInstances("Tovra_StoragePool").rc, CMPI_RC_OK);
    ASSERT_EQ(enumInstances("Tovra_DiskDrive").rc, CMPI_RC_OK);
    inRequest([](const CMPIBroker *broker, const CMPIContext *ctx) {
        tovra::TovraInvokeMethodResetBaseTime(broker, ctx, {"Tovra_RAIDControllerSystem", "Tovra_StoragePool"});
    });
    EXPECT_TRUE(logged("TovraInvokeMethodResetBaseTime: Ending"));
    sim::resetCounters();
    ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
    ASSERT_EQ(enumInstances("Tovra_StoragePool").rc, CMPI_RC_OK);
    ASSERT_EQ(enumInstances("Tovra_DiskDrive").rc, CMPI_RC_OK);
    EXPECT_EQ(sim::exchanges(0x20), 8u) << "the pool cache was dropped";
    EXPECT_EQ(sim::exchanges(0x22), 0u) << "the disk cache was not named";
}

TEST_F(Frame, CacheMemoryStaysFlatAcrossThousandsOfRebuilds) {
    ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
    ASSERT_EQ(enumNames(kController).rc, CMPI_RC_OK);
    const size_t clones = liveClones();
    for (int i = 0; i < 2000; ++i) {
        sim::advance(1801);
        ASSERT_EQ(enumInstances(kController).objects.size(), 1u);
        ASSERT_EQ(enumNames(kController).objects.size(), 1u);
    }
    EXPECT_EQ(liveClones(), clones);
    EXPECT_EQ(liveRequestObjects(), 0u);
    EXPECT_EQ(sim::openDescriptors(), 0u);
}

class RegisteredProfile : public ProviderTest {};

constexpr const char *kProfile = "Tovra_RegisteredProfile";
constexpr const char *kProfileId = "Tovra: Host Hardware RAID Controller_1.2.0";

TEST_F(RegisteredProfile, OneConstantInstanceWithoutFirmwareTraffic) {
    for (int i = 0; i < 2; ++i) {
        Answer a = enumInstances(kProfile, kInterop);
        ASSERT_EQ(a.rc, CMPI_RC_OK);
        ASSERT_EQ(a.objects.size(), 1u);
        const Obj &p = a.objects[0];
        EXPECT_EQ(p.text("InstanceID"), kProfileId);
        EXPECT_EQ(p.num("RegisteredOrganization"), 1u);
        EXPECT_EQ(p.text("RegisteredName"), "Host Hardware RAID Controller");
        EXPECT_EQ(p.text("RegisteredVersion"), "1.2.0");
        EXPECT_EQ(p.prop("AdvertiseTypes")->numbers, std::vector<uint64_t>{3});
    }
    EXPECT_EQ(enumNames(kProfile, kInterop).objects.size(), 1u);
    EXPECT_EQ(sim::exchanges(), 0u);
}

TEST_F(RegisteredProfile, GetCarriesTheKeyOnlyAndComparesTheWholeId) {
    Answer a = getInstance(kProfile, {{"InstanceID", In::str(kProfileId)}}, kInterop);
    ASSERT_EQ(a.rc, CMPI_RC_OK);
    ASSERT_EQ(a.objects.size(), 1u);
    EXPECT_EQ(a.objects[0].ns, kInterop);
    EXPECT_FALSE(a.objects[0].has("RegisteredName"));

    Answer blank = getInstance(kProfile, {{"InstanceID", In::str(std::string(kProfileId) + " ")}}, kInterop);
    EXPECT_EQ(blank.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_TRUE(logged("TovraRegisteredProfileProviderGetInstance: Not Return CMPI_RC_OK(0x6)"));
}

TEST_F(RegisteredProfile, WorksWithTheDeviceMissing) {
    sim::addFault({.kind = sim::FaultKind::OpenFail});
    EXPECT_EQ(enumInstances(kProfile, kInterop).objects.size(), 1u);
}

}  // namespace
