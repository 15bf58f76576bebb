// The controller settings methods of "Tovra_RAIDControllerSystem" as a client
// calls them: through our host into the provider library, down to the
// simulated adapter by real ioctl calls.
#include "Harness.h"
#include "MethodSupport.h"

#include <Wire.h>
#include <tovrasim/FirmwareImage.h>

#include <unistd.h>

#include <fstream>

using namespace harness;
namespace sim = tovra::sim;

namespace {

constexpr const char *kController = "Tovra_RAIDControllerSystem";
constexpr const char *kPassword = "0000";  // the default scenario's
using Bytes = std::vector<uint8_t>;

class ControllerSettings : public ProviderTest {
protected:
    void TearDown() override {
        // The cache lifetime is process-wide: leave it as the other tests expect it.
        setPermission("root", 5);
        invoke(kController, "SetWaTP", {{"Seconds", In::u32(1800)}});
        ProviderTest::TearDown();
    }

    static void unlock() {
        const Answer a = invoke(kController, "CheckPassword", {{"Password", In::str(kPassword)}});
        ASSERT_EQ(a.rc, CMPI_RC_OK) << a.message;
    }

    static sim::Model model() {
        sim::Model copy;
        sim::withModel([&](sim::Model &m) { copy = m; });
        return copy;
    }

    static Bytes setting(const std::string &name) {
        const sim::Model m = model();
        const auto it = m.settings.values.find(name);
        return it == m.settings.values.end() ? Bytes{} : it->second;
    }

    static std::string writeFile(const std::string &name, const Bytes &bytes) {
        const std::string path = ::testing::TempDir() + "tovra-" + std::to_string(::getpid()) + "-" + name;
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()),
                                                    static_cast<std::streamsize>(bytes.size()));
        return path;
    }

    static uint64_t outArg(const Answer &a, const std::string &name) {
        for (const auto &[n, v] : a.outArgs)
            if (n == name && v.kind == Val::Kind::Number) return v.number;
        ADD_FAILURE() << "no output argument " << name;
        return 0;
    }
};

// Each 0x1F setting lands in the adapter with its value bytes, sent in the
// form of its table line by the named sender.
TEST_F(ControllerSettings, EverySettingReachesTheAdapterWithItsValueBytes) {
    struct Row {
        const char *setting;
        In value;
        Bytes stored;
    };
    const Row rows[] = {
        {"NetMask", In::str("255.255.0.0"), {255, 255, 0, 0}},
        {"Gateway", In::str("10.1.2.254"), {10, 1, 2, 254}},
        {"HttpPort", In::u32(8080), {0x90, 0x1F}},
        {"TelnetPort", In::u32(2323), {0x13, 0x09}},
        {"SMTPPort", In::u32(65535), {0xFF, 0xFF}},
        {"NCQ", In::u8(0), {0}},
        {"DiskCache", In::u8(1), {1}},
        {"Truncation", In::u8(2), {2}},
        {"CPUFan", In::u8(1), {1}},
        {"HDDReadAhead", In::u8(3), {3}},
        {"HDDLED", In::u8(0), {0}},
        {"AutoActivate", In::u8(1), {1}},
        {"HDDQdepth", In::u8(32), {32}},
        {"SASMux", In::u8(1), {1}},
        {"VolReadAhead", In::u8(2), {2}},
        {"SES2Support", In::u8(0), {0}},
        {"MAXCMDLen", In::u32(128), {0}},
        {"MAXCMDLen", In::u32(256), {128}},
        {"MAXCMDLen", In::u32(383), {255}},
        {"WriteSame", In::u8(1), {1}},
        {"HPDRebuilding", In::u8(0), {0}},
    };
    unlock();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.setting);
        sim::clearLog();
        const std::string method = std::string("Set") + row.setting;
        const Answer a = invoke(kController, method, {{"Value", row.value}});
        ASSERT_EQ(a.rc, CMPI_RC_OK) << a.message;
        ASSERT_TRUE(a.value.has_value());
        EXPECT_EQ(*a.value, "OK");
        EXPECT_EQ(setting(row.setting), row.stored);
        const bool multiByte = row.stored.size() > 1;
        EXPECT_TRUE(logged(std::string("SendSet") + row.setting + (multiByte ? "_B" : "_A") + ": Ending(0x0)"));
        EXPECT_TRUE(logged("ParseSySCommandCode: Ending return(0)"));

        // On the wire: 1024 payload bytes, the form's length field and value,
        // the checksum at 1029.
        const Bytes sent = methods::sentFrame(0x1F, 1030);
        ASSERT_EQ(sent.size(), 1030u);
        EXPECT_EQ(tovra::wire::getLE16(&sent[3]), 1024);
        const auto n = static_cast<uint8_t>(row.stored.size());
        const Bytes head = multiByte ? Bytes{'B', 0, 0, n, 0} : Bytes{'A', n};
        EXPECT_EQ(Bytes(sent.begin() + 15, sent.begin() + 16), Bytes{head[0]});
        EXPECT_EQ(Bytes(sent.begin() + 19, sent.begin() + 15 + static_cast<long>(head.size()) + 3),
                  Bytes(head.begin() + 1, head.end()));
        const auto valueAt = sent.begin() + (multiByte ? 23 : 20);
        EXPECT_EQ(Bytes(valueAt, valueAt + n), row.stored);
        EXPECT_EQ(sent[1029], tovra::wire::sum8(sent.data(), 3, 1028));
    }
}

// The single-purpose commands, each seen in the adapter's model and, where it
// shows there, in the system information.
TEST_F(ControllerSettings, AddressBeeperAndModeCommands) {
    struct Row {
        const char *method;
        Keys args;
        uint8_t command;
        std::function<bool(const sim::Model &)> applied;
    };
    const Row rows[] = {
        {"SetIPAddress", {{"Address", In::str("10.0.0.7")}}, 0x39,
         [](const sim::Model &m) { return m.controller.localIp == std::array<uint8_t, 4>{10, 0, 0, 7}; }},
        {"SetBeeper", {{"Beeper", In::u8(0)}}, 0x31, [](const sim::Model &m) { return m.controller.beeper == 0; }},
        {"MuteBeeper", {}, 0x30, [](const sim::Model &m) { return m.settings.beeperMuted; }},
        {"SetMode", {{"Mode", In::u8(2)}}, 0x33, [](const sim::Model &m) { return m.settings.mode == 2; }},
    };
    unlock();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.method);
        sim::resetCounters();
        const Answer a = invoke(kController, row.method, row.args);
        ASSERT_EQ(a.rc, CMPI_RC_OK) << a.message;
        EXPECT_EQ(*a.value, "OK");
        EXPECT_EQ(sim::exchanges(row.command), 1u);
        EXPECT_EQ(sim::exchanges(), 1u) << "one firmware command per call";
        EXPECT_TRUE(row.applied(model()));
    }
}

// A change that shows in what the controller system publishes is visible at
// once, although the cache lifetime has not run out.
TEST_F(ControllerSettings, AddressChangeResetsTheControllerCaches) {
    ASSERT_EQ(enumInstances(kController).objects.at(0).text("LocalIP"), "192.168.10.50");
    ASSERT_EQ(enumNames(kController).objects.size(), 1u);
    unlock();
    ASSERT_EQ(invoke(kController, "SetIPAddress", {{"Address", In::str("172.16.0.9")}}).rc, CMPI_RC_OK);
    sim::resetCounters();
    EXPECT_EQ(enumInstances(kController).objects.at(0).text("LocalIP"), "172.16.0.9");
    EXPECT_EQ(enumNames(kController).objects.size(), 1u);
    EXPECT_EQ(sim::exchanges(0x23), 2u) << "both caches were rebuilt";
}

// Values the adapter itself refuses come back as its reply letter and text.
TEST_F(ControllerSettings, AdapterRefusalsAreTheMethodsStatusAndValue) {
    struct Row {
        const char *method;
        Keys args;
    };
    const Row rows[] = {
        {"SetNCQ", {{"Value", In::u8(2)}}},
        {"SetHDDQdepth", {{"Value", In::u8(33)}}},
        {"SetNetMask", {{"Value", In::str("255.0.255.0")}}},
        {"SetIPAddress", {{"Address", In::str("224.0.0.1")}}},
        {"SetIPAddress", {{"Address", In::str("0.0.0.0")}}},
        {"SetBeeper", {{"Beeper", In::u8(2)}}},
    };
    unlock();
    const sim::Model before = model();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.method);
        const Answer a = invoke(kController, row.method, row.args);
        EXPECT_EQ(a.rc, 0x47);
        EXPECT_EQ(a.message, "PARAMETER ERROR");
        ASSERT_TRUE(a.value.has_value());
        EXPECT_EQ(*a.value, "PARAMETER ERROR");
    }
    const sim::Model after = model();
    EXPECT_EQ(after.settings.values, before.settings.values);
    EXPECT_EQ(after.controller.localIp, before.controller.localIp);
    EXPECT_EQ(after.controller.beeper, before.controller.beeper);
}

// Bad arguments end the method before the device is opened: nothing is sent.
TEST_F(ControllerSettings, ArgumentErrorsSendNothing) {
    const std::string empty = ::testing::TempDir() + "tovra-empty-" + std::to_string(::getpid());
    std::ofstream(empty).close();
    struct Row {
        const char *method;
        Keys args;
        CMPIrc rc;
        std::string message;
    };
    const Row rows[] = {
        {"SetNCQ", {}, static_cast<CMPIrc>(49), "SetNCQ: incorrect args number were received."},
        {"UpdateFirmware", {}, static_cast<CMPIrc>(49), "UpdateFirmware: incorrect args number were received."},
        {"SetIPAddress", {{"Address", In::str("10.0.0")}}, CMPI_RC_ERR_FAILED,
         "Argument Address in SetIPAddress Method Command is not a dotted IPv4 address: \"10.0.0\"."},
        {"SetIPAddress", {{"Address", In::str("10.0.0.256")}}, CMPI_RC_ERR_FAILED,
         "Argument Address in SetIPAddress Method Command is not a dotted IPv4 address: \"10.0.0.256\"."},
        {"SetGateway", {{"Value", In::str("gateway")}}, CMPI_RC_ERR_FAILED,
         "Argument Value in SetGateway Method Command is not a dotted IPv4 address: \"gateway\"."},
        {"SetHttpPort", {{"Value", In::u32(0)}}, CMPI_RC_ERR_FAILED,
         "Argument Value in SetHttpPort Method Command is outside 1 to 65535."},
        {"SetMAXCMDLen", {{"Value", In::u32(127)}}, CMPI_RC_ERR_FAILED,
         "Argument Value in SetMAXCMDLen Method Command is outside 128 to 383."},
        {"SetMAXCMDLen", {{"Value", In::u32(384)}}, CMPI_RC_ERR_FAILED,
         "Argument Value in SetMAXCMDLen Method Command is outside 128 to 383."},
        {"CheckPassword", {{"Password", In::str("0123456789ABCDEF")}}, CMPI_RC_ERR_FAILED,
         "Argument Password in CheckPassword Method Command is longer than 15 characters."},
        {"SetWaTP", {{"Seconds", In::u32(0)}}, CMPI_RC_ERR_FAILED,
         "Argument Seconds in SetWaTP Method Command is outside 1 to 86400."},
        {"SetWaTP", {{"Seconds", In::u32(86401)}}, CMPI_RC_ERR_FAILED,
         "Argument Seconds in SetWaTP Method Command is outside 1 to 86400."},
        {"SetNCQ", {{"Value", In::null()}}, CMPI_RC_ERR_FAILED,
         "Argument Value in SetNCQ Method Command is not an integer."},
        {"CheckPassword", {{"Password", In::null()}}, CMPI_RC_ERR_FAILED,
         "Argument Password in CheckPassword Method Command is not a string."},
        {"UpdateFirmware", {{"FileName", In::str("/nonexistent/tovra.img")}}, CMPI_RC_ERR_FAILED,
         "Argument FileName in UpdateFirmware Method Command names /nonexistent/tovra.img, which is not a "
         "readable file."},
        {"UpdateFirmware", {{"FileName", In::str(empty)}}, CMPI_RC_ERR_FAILED,
         "Argument FileName in UpdateFirmware Method Command names " + empty +
             ", an image of 0 bytes; an image has 1 to 16777216 bytes."},
    };
    unlock();
    sim::resetCounters();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.method + (" " + row.message));
        const Answer a = invoke(kController, row.method, row.args);
        EXPECT_EQ(a.rc, row.rc);
        EXPECT_EQ(a.message, row.message);
        EXPECT_FALSE(a.value.has_value());
    }
    EXPECT_EQ(sim::exchanges(), 0u);
    ::unlink(empty.c_str());

    sim::addFault({.kind = sim::FaultKind::OpenFail});
    const Answer closed = invoke(kController, "SetNCQ", {{"Value", In::u8(1)}});
    EXPECT_EQ(closed.rc, CMPI_RC_ERROR_SYSTEM);
    EXPECT_EQ(closed.message, "SetNCQ: File Open Failed.");
}

// Arguments of other names, counts and types than declared, as a CIMOM that
// does not convert them would hand them over.
TEST_F(ControllerSettings, UndeclaredArgumentsAndTypesAreRefusedClearly) {
    struct Row {
        const char *method;
        Keys args;
        CMPIrc rc;
        const char *message;
    };
    const Row rows[] = {
        {"SetNCQ", {{"Value", In::str("1")}}, CMPI_RC_ERR_FAILED,
         "Argument Value in SetNCQ Method Command is not an integer."},
        {"SetNCQ", {{"Value", In::u8(1)}, {"Extra", In::u8(1)}}, static_cast<CMPIrc>(49),
         "SetNCQ: incorrect args number were received."},
        {"SetNCQ", {{"Values", In::u8(1)}}, CMPI_RC_ERR_FAILED, "Argument Value not present in SetNCQ Method Command."},
        {"SetNCQ", {{"Value", In::u32(256)}}, CMPI_RC_ERR_FAILED,
         "Argument Value in SetNCQ Method Command is outside 0 to 255."},
        {"CheckPassword", {{"Password", In::u32(1234)}}, CMPI_RC_ERR_FAILED,
         "Argument Password in CheckPassword Method Command is not a string."},
        {"SetWaTP", {{"Seconds", In::str("60")}}, CMPI_RC_ERR_FAILED,
         "Argument Seconds in SetWaTP Method Command is not an integer."},
        {"UpdateFirmware", {{"FileName", In::null()}}, CMPI_RC_ERR_FAILED,
         "Argument FileName in UpdateFirmware Method Command is not a string."},
    };
    unlock();
    sim::resetCounters();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.message);
        const Answer a = invokeDirect(kController, row.method, row.args);
        EXPECT_EQ(a.rc, row.rc);
        EXPECT_EQ(a.message, row.message);
        EXPECT_EQ(a.doneCount, 1);
    }
    for (const char *unknown : {"SetNothing", "setncq", "Set", ""}) {
        SCOPED_TRACE(unknown);
        const Answer a = invokeDirect(kController, unknown, {{"Value", In::u8(1)}});
        EXPECT_EQ(a.rc, CMPI_RC_OK);
        EXPECT_FALSE(a.value.has_value());
        EXPECT_EQ(a.doneCount, 1);
    }
    EXPECT_EQ(sim::exchanges(), 0u);
}

// The adapter's password: changes need a check first; a wrong password or
// the passing of time locks them again. Each step: the call, the virtual
// seconds that pass before it, the reply.
TEST_F(ControllerSettings, PasswordRequiredAndInvalidFlows) {
    struct Step {
        const char *method;
        Keys args;
        double after;
        unsigned rc;
        const char *text;
    };
    const In ncq = In::u8(1);
    const Step steps[] = {
        {"SetNCQ", {{"Value", ncq}}, 0, 0x4D, "PASSWORD REQUIRED"},
        {"SetPassword", {{"Password", In::str("x")}}, 0, 0x4D, "PASSWORD REQUIRED"},
        {"CheckPassword", {{"Password", In::str("1234")}}, 0, 0x4A, "INVALID PASSWORD"},
        {"SetNCQ", {{"Value", ncq}}, 0, 0x4D, "PASSWORD REQUIRED"},
        {"CheckPassword", {{"Password", In::str(kPassword)}}, 0, 0, "OK"},
        {"SetNCQ", {{"Value", ncq}}, 599, 0, "OK"},
        {"SetNCQ", {{"Value", ncq}}, 2, 0x4D, "PASSWORD REQUIRED"},
        {"CheckPassword", {{"Password", In::str(kPassword)}}, 0, 0, "OK"},
        {"CheckPassword", {{"Password", In::str("00000")}}, 0, 0x4A, "INVALID PASSWORD"},
        {"MuteBeeper", {}, 0, 0x4D, "PASSWORD REQUIRED"},
        {"CheckPassword", {{"Password", In::str(kPassword)}}, 0, 0, "OK"},
        // Fifteen characters: the last one is the byte the checksum leaves out.
        {"SetPassword", {{"Password", In::str("Fifteen-chars-X")}}, 0, 0, "OK"},
        {"CheckPassword", {{"Password", In::str(kPassword)}}, 0, 0x4A, "INVALID PASSWORD"},
        {"CheckPassword", {{"Password", In::str("Fifteen-chars-Y")}}, 0, 0x4A, "INVALID PASSWORD"},
        {"CheckPassword", {{"Password", In::str("Fifteen-chars-X")}}, 0, 0, "OK"},
        {"SetPassword", {{"Password", In::str("")}}, 0, 0, "OK"},
        {"SetNCQ", {{"Value", ncq}}, 3600, 0, "OK"},
    };
    for (const Step &step : steps) {
        SCOPED_TRACE(std::string(step.method) + " expecting " + step.text);
        sim::advance(step.after);
        const Answer a = invoke(kController, step.method, step.args);
        EXPECT_EQ(a.rc, static_cast<CMPIrc>(step.rc));
        ASSERT_TRUE(a.value.has_value());
        EXPECT_EQ(*a.value, step.text);
    }
    EXPECT_TRUE(logged("SendCheckPassword: Ending(0x0)"));
    EXPECT_TRUE(logged("SendSetPassword: Ending(0x0)"));
    // The last check on the wire: the fifteenth character at 21, left out of
    // the sum at 22.
    const Bytes check = methods::sentFrame(0x14, 23);
    ASSERT_EQ(check.size(), 23u);
    EXPECT_EQ(check[6], 15);
    EXPECT_EQ(check[21], 'X');
    EXPECT_EQ(check[22], tovra::wire::sum8(check.data(), 3, 20));
    EXPECT_EQ(model().password, "");
}

// The image is sent page by page; the first refused page ends the update and
// its reply is the method's answer, with the pages the adapter accepted.
TEST_F(ControllerSettings, FirmwareUpdatePagesAndRefusals) {
    const std::string oldVersion = "V1.56 2023-04-12";
    const std::string newVersion = "V1.60 2026-11-02";
    const Bytes valid = sim::makeFirmwareImage(newVersion, 10 * 512 - 64 - 100);  // 10 pages, the last short
    Bytes corrupted = valid;
    corrupted[3000] ^= 0x01;
    Bytes badHeader = valid;
    badHeader[0] = 'X';
    struct Row {
        const char *name;
        Bytes image;
        std::string faults;
        bool unlocked;
        unsigned rc;
        const char *text;
        unsigned pages;
        unsigned sent;
    };
    const Row rows[] = {
        {"valid", valid, "", true, 0, "OK", 10, 10},
        {"corrupted", corrupted, "", true, 0x50, "FIRMWARE CRC ERROR", 9, 10},
        {"bad header", badHeader, "", true, 0x51, "FIRMWARE INVALID", 0, 1},
        {"reply lost half-way", valid, "cmd=0x1F,kind=noreply,nth=5,count=1", true, 0xB0, "Command Timed Out", 4, 5},
        {"locked", valid, "", false, 0x4D, "PASSWORD REQUIRED", 0, 1},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        sim::reset();
        sim::clearLog();
        if (row.unlocked) unlock();
        if (!row.faults.empty()) sim::addFaults(row.faults);
        sim::resetCounters();
        const std::string path = writeFile("image.bin", row.image);
        const double start = sim::now();
        const Answer a = invoke(kController, "UpdateFirmware", {{"FileName", In::str(path)}});
        ::unlink(path.c_str());
        EXPECT_EQ(a.rc, static_cast<CMPIrc>(row.rc));
        ASSERT_TRUE(a.value.has_value());
        EXPECT_EQ(*a.value, row.text);
        EXPECT_EQ(outArg(a, "PagesAccepted"), row.pages);
        EXPECT_EQ(sim::exchanges(0x1F), row.sent);
        EXPECT_EQ(sim::exchanges(), row.sent);
        const bool updated = row.rc == 0;
        EXPECT_EQ(model().controller.firmware, updated ? newVersion : oldVersion);
        EXPECT_EQ(enumInstances(kController).objects.at(0).text("FirmVersion"), updated ? newVersion : oldVersion);
        if (row.rc == 0xB0) {
            EXPECT_GT(sim::now() - start, 120.0) << "the settings reader waits 120 seconds";
        }
        sim::clearFaults();
    }
}

// The cache lifetime is one value for every module; the next freshness test
// of each cache uses it.
TEST_F(ControllerSettings, SetWaTPGovernsEveryCache) {
    struct Row {
        unsigned lifetime;
        unsigned age;
        bool rebuilt;
    };
    const Row rows[] = {{60, 60, false}, {60, 61, true}, {1, 2, true}, {86400, 86400, false}, {1800, 1801, true}};
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.lifetime) + " s, age " + std::to_string(row.age));
        const Answer set = invoke(kController, "SetWaTP", {{"Seconds", In::u32(row.lifetime)}});
        ASSERT_EQ(set.rc, CMPI_RC_OK) << set.message;
        EXPECT_EQ(*set.value, "OK");
        freshClock();
        const time_t built = clockNow();
        ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
        ASSERT_EQ(enumInstances("Tovra_StoragePool").rc, CMPI_RC_OK);
        sim::resetCounters();
        sim::setTime(built + row.age);
        ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
        ASSERT_EQ(enumInstances("Tovra_StoragePool").rc, CMPI_RC_OK);
        EXPECT_EQ(sim::exchanges(0x23) > 0, row.rebuilt);
        EXPECT_EQ(sim::exchanges(0x20) > 0, row.rebuilt);
    }
}

// A caller without read-write rights is refused before anything happens.
TEST_F(ControllerSettings, RefusedCallerChangesNothingAndSendsNothing) {
    const std::string path = writeFile("refused.bin", sim::makeFirmwareImage("V9", 100));
    struct Row {
        const char *method;
        Keys args;
    };
    const Row rows[] = {
        {"CheckPassword", {{"Password", In::str(kPassword)}}},
        {"SetNCQ", {{"Value", In::u8(0)}}},
        {"SetIPAddress", {{"Address", In::str("10.9.9.9")}}},
        {"UpdateFirmware", {{"FileName", In::str(path)}}},
        {"SetWaTP", {{"Seconds", In::u32(1)}}},
        {"SetNCQ", {}},  // refused before the argument count is looked at
    };
    const time_t built = clockNow();
    ASSERT_EQ(enumInstances(kController).rc, CMPI_RC_OK);
    const sim::Model before = model();
    sim::resetCounters();
    setPermission("root", 4);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.method);
        const Answer a = invoke(kController, row.method, row.args);
        EXPECT_EQ(a.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(a.message,
                  "TovraRAIDComputerSystemProviderInvokeMethod: Caller does not have rw privileges to invoke methods.");
    }
    setPermission("root", 5);
    ::unlink(path.c_str());
    EXPECT_EQ(sim::exchanges(), 0u);
    EXPECT_EQ(model().settings.values, before.settings.values);
    EXPECT_EQ(model().settings.unlockedUntil, before.settings.unlockedUntil);
    sim::setTime(built + 2);
    ASSERT_EQ(enumNames("Tovra_StoragePool").rc, CMPI_RC_OK);
    sim::resetCounters();
    sim::setTime(built + 4);
    ASSERT_EQ(enumNames("Tovra_StoragePool").rc, CMPI_RC_OK);
    EXPECT_EQ(sim::exchanges(0x20), 0u) << "the refused SetWaTP left the lifetime alone";
}

}  // namespace
