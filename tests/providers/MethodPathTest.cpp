// What every method family shares: the refused caller, the caches each
// change drops, failures on the command path, and arguments of the wrong type.
#include "MethodSupport.h"

#include <optional>

namespace {

using namespace harness;
using namespace methods;
namespace sim = tovra::sim;

class MethodPath : public ProviderTest {};

struct Call {
    const char *cls;
    const char *method;
    Keys args;
};

// One change per method module, each accepted by the default adapter.
const Call kChanges[] = {
    {"Tovra_StoragePool", "DeleteHotSpare", {{"Enc", In::u32(1)}, {"Disk", In::u32(5)}}},
    {"Tovra_StorageVolume", "DeleteVolume", {{"Num", In::u32(3)}}},
    {"Tovra_DiskDrive", "DeletePassThrough", {{"enc", In::u32(1)}, {"slt", In::u32(6)}}},
    {"Tovra_EventLog", "ClearLog", {}},
};

constexpr const char *kCached[] = {"Tovra_StoragePool", "Tovra_StorageVolume", "Tovra_DiskDrive", "Tovra_EventLog",
                                   "Tovra_RAIDControllerSystem"};

// Which caches are rebuilt by the next enumeration of each class.
std::vector<std::string> rebuiltClasses() {
    std::vector<std::string> rebuilt;
    for (const char *cls : kCached) {
        sim::resetCounters();
        EXPECT_EQ(enumInstances(cls).rc, CMPI_RC_OK) << cls;
        if (sim::exchanges() != 0) rebuilt.emplace_back(cls);
    }
    return rebuilt;
}

void fillCaches() {
    for (const char *cls : kCached) ASSERT_EQ(enumInstances(cls).rc, CMPI_RC_OK) << cls;
}

TEST_F(MethodPath, ARefusedCallerReachesNoFirmwareAndKeepsEveryCache) {
    struct Caller {
        const char *principal;
        unsigned level;
    };
    const Caller callers[] = {{"", 5}, {"root", 4}, {"root", 6}};
    const std::map<std::string, std::string> refusal = {
        {"Tovra_StoragePool", "TovraStoragePoolProviderInvokeMethod"},
        {"Tovra_StorageVolume", "TovraStorageVolumeProviderInvokeMethod"},
        {"Tovra_DiskDrive", "TovraDiskDriveSlotProviderInvokeMethod"},
        {"Tovra_EventLog", "TovraEventLogroviderInvokeMethod"},
    };
    fillCaches();
    for (const Caller &caller : callers) {
        for (const Call &c : kChanges) {
            SCOPED_TRACE(std::string(c.method) + " by '" + caller.principal + "' level " + std::to_string(caller.level));
            setPrincipal(caller.principal);
            setPermission("root", caller.level);
            sim::resetCounters();
            const Answer a = invoke(c.cls, c.method, c.args);
            EXPECT_EQ(a.rc, CMPI_RC_ERR_FAILED);
            EXPECT_EQ(a.message, refusal.at(c.cls) + ": Caller does not have rw privileges to invoke methods.");
            EXPECT_EQ(sim::exchanges(), 0u);
            setPrincipal("root");
            setPermission("root", 5);
            EXPECT_EQ(rebuiltClasses(), std::vector<std::string>{});
        }
    }
}

// Every changing method, called as a client calls it, in both provider
// process layouts: it returns (no up-call waits on another), and the next
// enumeration of each class it made stale rebuilds from the adapter.
class ChangeInLayout : public ProviderTest, public ::testing::WithParamInterface<cimhost::HostOptions::ProcessLayout> {
protected:
    void SetUp() override {
        useLayout(GetParam());
        ProviderTest::SetUp();
    }
    void TearDown() override {
        ProviderTest::TearDown();
        useLayout(cimhost::HostOptions::ProcessLayout::ByLibrary);
    }
};

TEST_P(ChangeInLayout, EveryChangeReturnsAndItsStaleClassesRebuild) {
    const std::vector<std::string> poolChange = {"Tovra_StoragePool", "Tovra_StorageVolume", "Tovra_DiskDrive"};
    const std::vector<std::string> volumeChange = {"Tovra_StoragePool", "Tovra_StorageVolume"};
    const Keys volume = {{"ID", In::u32(2)},  {"LUN", In::u32(0)},       {"RAIDNo", In::u32(2)}, {"Strp", In::u32(128)},
                         {"Ll", In::u32(5)},  {"Cap", In::u32(10)},      {"Name", In::str("Vol")}, {"Cache", In::u32(1)},
                         {"FG", In::u32(1)},  {"GtT", In::u32(1)},       {"Tag", In::u32(1)}};
    const Keys resize = {{"Cap", In::u32(1500)}, {"Num", In::u32(3)}, {"ID", In::u32(0)},       {"LUN", In::u32(2)},
                         {"Strp", In::u32(64)},  {"Ll", In::u32(5)},  {"Name", In::str("Big")}, {"Cache", In::u32(1)},
                         {"Tag", In::u32(0)}};
    auto passThrough = [](uint32_t enc, uint32_t slt) {
        return Keys{{"enc", In::u32(enc)}, {"slt", In::u32(slt)}, {"id", In::u32(3)},
                    {"lun", In::u32(1)},   {"tag", In::u32(1)},   {"cache", In::u32(0)}};
    };
    struct Case {
        Call call;
        std::vector<std::string> rebuilt;
    };
    const Case cases[] = {
        {{"Tovra_StoragePool", "CreateRAIDSet",
          {{"MemberDisks", In::u32(2)}, {"DiskArray", In::u32s({4, 5})}, {"Enc", In::u32(2)}, {"Name", In::str("New")}}},
         poolChange},
        {{"Tovra_StoragePool", "DeleteRAIDSet", {{"RAIDNo", In::u32(2)}}}, poolChange},
        {{"Tovra_StoragePool", "ExpandRAIDSet",
          {{"RAIDNo", In::u32(2)}, {"DiskArray", In::u32s({4, 5})}, {"Encls", In::u32s({2, 2})}}},
         poolChange},
        {{"Tovra_StoragePool", "OfflineRAIDSet", {{"RAIDNo", In::u32(2)}}}, poolChange},
        {{"Tovra_StoragePool", "ActivateRAIDSet", {{"RAIDNo", In::u32(2)}}}, poolChange},
        {{"Tovra_StoragePool", "CreateHotSpare",
          {{"Type", In::u32(1)}, {"RAIDNo", In::u32(2)}, {"Enc", In::u32(2)}, {"Disk", In::u32(4)}}},
         poolChange},
        {kChanges[0], poolChange},
        {{"Tovra_StorageVolume", "CreateVolume", volume}, volumeChange},
        {kChanges[1], volumeChange},
        {{"Tovra_StorageVolume", "ModifyVolume", resize}, volumeChange},
        {{"Tovra_DiskDrive", "CreatePassThrough", passThrough(2, 4)}, poolChange},
        {{"Tovra_DiskDrive", "ModifyPassThrough", passThrough(1, 6)}, poolChange},
        {kChanges[2], poolChange},
        {kChanges[3], {"Tovra_EventLog"}},
        {{"Tovra_RAIDControllerSystem", "SetIPAddress", {{"Address", In::str("10.0.0.7")}}},
         {"Tovra_RAIDControllerSystem"}},
        {{"Tovra_RAIDControllerSystem", "SetNetMask", {{"Value", In::str("255.255.0.0")}}},
         {"Tovra_RAIDControllerSystem"}},
        // Refused by the argument check: only the module's own cache time is zeroed.
        {{"Tovra_StorageVolume", "DeleteVolume", {{"Num", In::u32(0)}}}, {"Tovra_StorageVolume"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.call.method);
        sim::loadScenario("default");
        freshClock();
        fillCaches();
        const Answer a = invoke(c.call.cls, c.call.method, c.call.args);
        EXPECT_EQ(a.message.find("deadlock"), std::string::npos) << a.message;
        if (c.rebuilt.size() > 1) {
            EXPECT_TRUE(a.value.has_value()) << "the reply text is returned";
        }
        EXPECT_EQ(rebuiltClasses(), c.rebuilt);
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, ChangeInLayout,
                         ::testing::Values(cimhost::HostOptions::ProcessLayout::ByLibrary,
                                           cimhost::HostOptions::ProcessLayout::PerProvider),
                         [](const auto &info) {
                             return info.param == cimhost::HostOptions::ProcessLayout::ByLibrary ? "OneProcess"
                                                                                                : "ProcessPerProvider";
                         });

// "TimeCalibration" answers "OK", and a name no module knows answers success
// with no value; neither reaches the firmware, and both drop the module's own
// cache (its time is zeroed before the name is looked at).
TEST_F(MethodPath, CalibrationAndUnknownNamesTouchOnlyTheOwnCache) {
    struct Case {
        const char *cls;
        const char *method;
        std::optional<std::string> value;
    };
    const Case cases[] = {
        {"Tovra_StoragePool", "TimeCalibration", "OK"},   {"Tovra_StoragePool", "Frobnicate", std::nullopt},
        {"Tovra_StorageVolume", "TimeCalibration", "OK"}, {"Tovra_StorageVolume", "Frobnicate", std::nullopt},
        {"Tovra_DiskDrive", "TimeCalibration", "OK"},     {"Tovra_DiskDrive", "Frobnicate", std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.cls) + " " + c.method);
        freshClock();
        fillCaches();
        sim::resetCounters();
        const Answer a = invokeDirect(c.cls, c.method);
        EXPECT_EQ(a.rc, CMPI_RC_OK);
        EXPECT_EQ(a.doneCount, 1);
        EXPECT_EQ(a.value.has_value(), c.value.has_value());
        if (a.value && c.value) {
            EXPECT_EQ(a.value->text, *c.value);
        }
        EXPECT_EQ(sim::exchanges(), 0u);
        EXPECT_EQ(rebuiltClasses(), std::vector<std::string>{c.cls});
    }
}

// Faults of the one command exchange: the reply letter never comes (on the
// virtual clock), the read fails, the frame is empty, broken or preceded by
// garbage, or the device will not open.
TEST_F(MethodPath, CommandPathFaultsGiveTheirStatusAndLeaveNothingBehind) {
    struct Case {
        const char *fault;
        const char *cls;
        const char *method;
        Keys args;
        Expect expect;
        const char *value;
    };
    const Keys volume = {{"Num", In::u32(3)}};
    const Keys disk = {{"enc", In::u32(1)}, {"slt", In::u32(6)}};
    const Case cases[] = {
        {"cmd=0x62,kind=noreply", "Tovra_StorageVolume", "DeleteVolume", volume,
         {static_cast<CMPIrc>(176), "Command Timed Out"}, "Command Timed Out"},
        {"cmd=0x62,kind=delay,ms=32000", "Tovra_StorageVolume", "DeleteVolume", volume,
         {static_cast<CMPIrc>(176), "Command Timed Out"}, "Command Timed Out"},
        {"cmd=0x62,kind=delay,ms=29000", "Tovra_StorageVolume", "DeleteVolume", volume, {CMPI_RC_OK, "OK"}, "OK"},
        {"cmd=0x62,kind=readfail", "Tovra_StorageVolume", "DeleteVolume", volume,
         {static_cast<CMPIrc>(100), "ioctl READ Error"}, "ioctl READ Error"},
        {"cmd=0x62,kind=zerolength", "Tovra_StorageVolume", "DeleteVolume", volume,
         {CMPI_RC_ERR_FAILED, "Returnd Data Length 0"}, "Returnd Data Length 0"},
        {"cmd=0x62,kind=badchecksum", "Tovra_StorageVolume", "DeleteVolume", volume,
         {CMPI_RC_ERR_FAILED, "CheckSum Error"}, "CheckSum Error"},
        {"cmd=0x62,kind=garbage,chunks=3", "Tovra_StorageVolume", "DeleteVolume", volume, {CMPI_RC_OK, "OK"}, "OK"},
        // One-byte chunks never carry the three start bytes together, so no
        // frame starts: the reader gives up at its limit.
        {"cmd=0x62,kind=chunk,size=1", "Tovra_StorageVolume", "DeleteVolume", volume,
         {static_cast<CMPIrc>(176), "Command Timed Out"}, "Command Timed Out"},
        {"cmd=0x62,kind=writefail", "Tovra_StorageVolume", "DeleteVolume", volume, {CMPI_RC_ERR_FAILED, ""}, ""},
        {"kind=openfail", "Tovra_StorageVolume", "DeleteVolume", volume,
         {static_cast<CMPIrc>(100), "DeleteVolume: File Open Failed."}, nullptr},
        {"cmd=0x42,kind=writefail", "Tovra_DiskDrive", "DeletePassThrough", disk, {CMPI_RC_OK, ""}, ""},
        {"cmd=0x42,kind=noreply", "Tovra_DiskDrive", "DeletePassThrough", disk,
         {static_cast<CMPIrc>(176), "Command Timed Out"}, "Command Timed Out"},
        {"cmd=0x51,kind=readfail", "Tovra_StoragePool", "DeleteRAIDSet", {{"RAIDNo", In::u32(2)}},
         {static_cast<CMPIrc>(100), "ioctl READ Error"}, "ioctl READ Error"},
        {"cmd=0x24,kind=badchecksum", "Tovra_EventLog", "ClearLog", {}, {CMPI_RC_ERR_FAILED, "CheckSum Error"},
         "CheckSum Error"},
        {"kind=openfail", "Tovra_EventLog", "ClearLog", {}, {static_cast<CMPIrc>(100), ""}, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.fault);
        sim::loadScenario("default");
        sim::addFaults(c.fault);
        const double started = sim::now();
        const Answer a = invokeDirect(c.cls, c.method, c.args);
        sim::clearFaults();
        EXPECT_EQ(a.rc, c.expect.rc);
        EXPECT_EQ(a.message, c.expect.message);
        EXPECT_EQ(a.value.has_value(), c.value != nullptr);
        if (a.value && c.value) {
            EXPECT_EQ(a.value->text, c.value);
        }
        EXPECT_LT(sim::now() - started, 40.0) << "no wait beyond the 30-second limit";
        EXPECT_EQ(sim::openDescriptors(), 0u);
        // The lock was let go: the next exchange goes through.
        EXPECT_EQ(invoke("Tovra_StorageVolume", "DeleteVolume", {{"Num", In::u32(9)}}).rc, static_cast<CMPIrc>(0x45));
    }
}

// Arguments of another type than the method reads fail with that argument's
// message; nothing is sent.
TEST_F(MethodPath, ArgumentsOfTheWrongTypeFailClearly) {
    struct Case {
        const char *cls;
        const char *method;
        Keys args;
        const char *message;
    };
    const Case cases[] = {
        {"Tovra_StoragePool", "DeleteRAIDSet", {{"RAIDNo", In::str("2")}},
         "Argument RAIDNo not present in DeleteRAIDSet Method Command."},
        {"Tovra_StoragePool", "ActivateRAIDSet", {{"RAIDNo", In::u32s({2})}},
         "Argument RAIDNo not present in ActivateRAIDSet Method Command."},
        {"Tovra_StoragePool", "CreateRAIDSet",
         {{"MemberDisks", In::u32(1)}, {"DiskArray", In::u32(4)}, {"Enc", In::u32(2)}, {"Name", In::str("x")}},
         "Argument DiskArray not present in CreateRAIDSet Method Command."},
        {"Tovra_StoragePool", "CreateRAIDSet",
         {{"MemberDisks", In::u32(1)}, {"DiskArray", In::u32s({4})}, {"Enc", In::u32(2)}, {"Name", In::u32(7)}},
         "Argument Name not present in CreateRAIDSet Method Command."},
        {"Tovra_StorageVolume", "DeleteVolume", {{"Num", In::null()}},
         "Argument Num not present in DeleteVolume Method Command."},
        {"Tovra_StorageVolume", "DeleteVolume", {{"Num", In::u32s({3})}},
         "Argument Num not present in DeleteVolume Method Command."},
        {"Tovra_DiskDrive", "DeletePassThrough", {{"enc", In::str("1")}, {"slt", In::u32(6)}},
         "Argument enc not present in DeletePassThrough Method Command."},
        {"Tovra_DiskDrive", "DeletePassThrough", {{"enc", In::u32(1)}, {"slt", In::null()}},
         "Argument slt not present in DeletePassThrough Method Command."},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.message);
        sim::resetCounters();
        const Answer a = invokeDirect(c.cls, c.method, c.args);
        EXPECT_EQ(a.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(a.message, c.message);
        EXPECT_EQ(changeRequests(), 0u);
    }
}

}  // namespace
