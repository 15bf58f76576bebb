// What every method family shares: the refused caller, the caches each
// change drops in both provider layouts, and failures on the command path.
#include "MethodSupport.h"

#include <Wire.h>

#include <atomic>
#include <new>

// The library's exchange buffers come from this nothrow new[] (the test
// exports it): armed, it refuses the next allocations of three 1060-byte
// buffers, as a process out of memory would.
namespace {
std::atomic<int> refusedExchangeBuffers{0};
}
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
    if (size == 3 * sizeof(CMD_MESSAGE_FIELD)) {
        int armed = refusedExchangeBuffers.load();
        while (armed > 0 && !refusedExchangeBuffers.compare_exchange_weak(armed, armed - 1)) {
        }
        if (armed > 0) return nullptr;
    }
    try {
        return ::operator new[](size);
    } catch (...) {
        return nullptr;
    }
}

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

TEST_F(MethodPath, ARefusedCallerReachesNoFirmwareAndKeepsEveryCache) {
    // The empty principal is refused without asking the service, which would
    // answer it 5.
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
            setPermission(caller.principal, caller.level);
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
    setPermission("", 0);
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
    struct Case {
        Call call;
        std::vector<std::string> rebuilt;
    };
    const Case cases[] = {
        {kChanges[0], poolChange},
        {kChanges[1], {"Tovra_StoragePool", "Tovra_StorageVolume"}},
        {kChanges[2], poolChange},
        {kChanges[3], {"Tovra_EventLog"}},
        {{"Tovra_RAIDControllerSystem", "SetIPAddress", {{"Address", In::str("10.0.0.7")}}},
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

// Faults of the one command exchange: the reply letter never comes (on the
// virtual clock), the read fails, the frame is empty, broken or preceded by
// garbage, the device will not open, or ("alloc") the exchange's buffers
// cannot be had.
TEST_F(MethodPath, CommandPathFaultsGiveTheirStatusAndLeaveNothingBehind) {
    struct Expect {
        CMPIrc rc;
        std::string message;
    };
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
    const Keys target = {{"enc", In::u32(1)}, {"slt", In::u32(6)}, {"id", In::u32(3)},
                         {"lun", In::u32(1)}, {"tag", In::u32(1)}, {"cache", In::u32(0)}};
    const CMPIrc system = CMPI_RC_ERROR_SYSTEM;
    const Case cases[] = {
        {"alloc", "Tovra_StoragePool", "DeleteRAIDSet", {{"RAIDNo", In::u32(2)}}, {system, ""}, ""},
        {"alloc", "Tovra_StorageVolume", "DeleteVolume", volume, {system, ""}, ""},
        {"alloc", "Tovra_DiskDrive", "CreatePassThrough", target,
         {system, "CreatePassThrough: Memory Allocation Failed."}, "CreatePassThrough: Memory Allocation Failed."},
        {"alloc", "Tovra_DiskDrive", "ModifyPassThrough", target,
         {system, "ModifyPassThrough: Memory Allocation Failed."}, "ModifyPassThrough: Memory Allocation Failed."},
        {"alloc", "Tovra_DiskDrive", "DeletePassThrough", disk,
         {system, "DeletePassThrough: Memory Allocation Failed."}, "DeletePassThrough: Memory Allocation Failed."},
        {"alloc", "Tovra_EventLog", "ClearLog", {}, {system, "ClearEvent: Memory Allocation Failed."},
         "ClearEvent: Memory Allocation Failed."},
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
        const bool alloc = std::string(c.fault) == "alloc";
        if (alloc) {
            refusedExchangeBuffers = 1;
        } else {
            sim::addFaults(c.fault);
        }
        const double started = sim::now();
        const Answer a = invokeDirect(c.cls, c.method, c.args);
        sim::clearFaults();
        if (alloc) {
            EXPECT_EQ(refusedExchangeBuffers.exchange(0), 0) << "the method's buffers were refused";
            EXPECT_EQ(changeRequests(), 0u);
        }
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

}  // namespace
