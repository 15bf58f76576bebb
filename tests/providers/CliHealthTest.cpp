// The monitoring check as a monitoring system runs it: tovra-cim in an empty
// environment, the simulator preloaded by --simulate, one process per check,
// against scenario files that put every family of components in each state.
#include "CliRun.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// tovra-cim with nothing in its environment but `env` (the cache counters kept
// in the process, so parallel tests share no file); standard error is read
// too when `errors` is set.
CliRun cli(const std::string &arguments, const std::string &env = "", const char *program = TOVRA_CIM,
           bool errors = false) {
    return runShell("env -i TOVRA_CACHE_EPOCHS= " + env + " " + program + " " + arguments +
                 (errors ? " 2>&1" : " 2>/dev/null"));
}

std::string firstLine(const std::string &out) { return out.substr(0, out.find('\n')); }
std::string statusPart(const std::string &out) { return firstLine(out).substr(0, firstLine(out).find(" | ")); }
std::vector<std::string> perfItems(const std::string &out) {
    const std::string line = firstLine(out);
    std::vector<std::string> items;
    const size_t bar = line.find(" | ");
    if (bar == std::string::npos) return items;
    std::istringstream in(line.substr(bar + 3));
    for (std::string item; in >> item;) items.push_back(item);
    return items;
}

class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/tovra-health-XXXXXX";
        path_ = mkdtemp(pattern) != nullptr ? pattern : "";
    }
    ~TempDir() {
        std::error_code ec;
        if (!path_.empty()) fs::remove_all(path_, ec);
    }
    const fs::path &path() const { return path_; }

private:
    fs::path path_;
};

// ---- Scenario edits --------------------------------------------------------

using Edit = std::function<void(json &)>;

json &disk(json &s, int enc, int slot) {
    for (json &d : s["enclosures"][enc]["disks"])
        if (d["slot"] == slot) return d;
    throw std::out_of_range("no disk in that slot");
}
json &sensor(json &s, int enc, const char *name) {
    for (json &x : s["enclosures"][enc]["sensors"])
        if (x["name"] == name) return x;
    throw std::out_of_range("no such sensor");
}
// A set that lists (1-based) members as the firmware reports them.
void listMembers(json &s, int set, std::vector<int> slots, std::vector<int> enclosures) {
    slots.resize(32);
    enclosures.resize(32);
    s["raidSets"][set]["rawDevArray"] = slots;
    s["raidSets"][set]["rawDevEncArray"] = enclosures;
}

// The default scenario without its failed disk: every component OK.
void healthy(json &s) { disk(s, 0, 6)["role"] = "free"; }

class Scenarios {
public:
    // The default scenario, made healthy, then edited; returns its path.
    std::string write(const Edit &edit) {
        std::ifstream in(TOVRA_SCENARIO_DIR "/default.json");
        json s = json::parse(in);
        healthy(s);
        if (edit) edit(s);
        const fs::path file = dir_.path() / ("scenario" + std::to_string(count_++) + ".json");
        std::ofstream(file) << s.dump();
        return file.string();
    }

private:
    TempDir dir_;
    int count_ = 0;
};

// label=value[UOM];[warn];[crit];[min];[max], thresholds as plugin ranges.
void expectPerfSyntax(const std::string &out) {
    static const std::regex item(R"(^[A-Za-z0-9_.-]+=-?[0-9.]+(%|C|V)?(;(-?[0-9.]*:?-?[0-9.]*)){0,4}$)");
    for (const std::string &p : perfItems(out)) EXPECT_TRUE(std::regex_match(p, item)) << p;
}

struct Verdict {
    const char *name;
    Edit edit;
    const char *arguments;
    int exit;
    std::string status;              // the first line before " | "; ending in '*': its start
    std::vector<const char *> perf;  // items the performance data holds
};

void check(Scenarios &scenarios, const std::vector<Verdict> &cases) {
    for (const Verdict &c : cases) {
        SCOPED_TRACE(c.name);
        const CliRun run = cli("--simulate " + scenarios.write(c.edit) + " health " + c.arguments);
        EXPECT_EQ(run.status, c.exit) << run.out;
        if (c.status.ends_with('*')) {
            EXPECT_TRUE(statusPart(run.out).starts_with(c.status.substr(0, c.status.size() - 1))) << run.out;
        } else {
            EXPECT_EQ(statusPart(run.out), c.status);
        }
        const std::vector<std::string> items = perfItems(run.out);
        for (const char *p : c.perf)
            EXPECT_NE(std::find(items.begin(), items.end(), p), items.end()) << p << "\n" << run.out;
        expectPerfSyntax(run.out);
        EXPECT_EQ(run.out.find('\n'), run.out.size() - 1) << "one line without --verbose";
    }
}

constexpr const char kHealthy[] =
    "TOVRA OK - 12 disks, 2 RAID sets, 3 volumes, battery 100%, 13 sensors: all OK";

TEST(CliHealth, DiskStates) {
    Scenarios scenarios;
    check(scenarios, {
        {"all disks OK", nullptr, "", 0, kHealthy,
         {"disks_failed=0;;0;0", "disks_missing=0;;0;0", "disks_rebuilding=0;0;;0"}},
        {"a free disk failed", [](json &s) { disk(s, 1, 3)["role"] = "failed"; }, "", 2,
         "TOVRA CRITICAL - Enc2 Slot4 Z1Z0B7Q1 failed", {"disks_failed=1;;0;0"}},
        {"a member failed: its set and volume degrade",
         [](json &s) { disk(s, 1, 1)["role"] = "failed"; }, "", 2,
         "TOVRA CRITICAL - Enc2 Slot2 WD-WMAY04200002 failed (Raid Set # 001); Raid Set # 001 degraded; "
         "Volume Set # 002 degraded",
         {"disks_failed=1;;0;0", "raid_sets_degraded=1;0;;0", "volumes_degraded=1;0;;0"}},
        {"offline", [](json &s) { disk(s, 1, 4)["role"] = "offline"; }, "", 2,
         "TOVRA CRITICAL - Enc2 Slot5 WD-WMAY04200005 offline", {"disks_offline=1;;0;0"}},
        {"unavailable", [](json &s) { disk(s, 1, 4)["role"] = "unavailable"; }, "", 2,
         "TOVRA CRITICAL - Enc2 Slot5 WD-WMAY04200005 unavailable", {"disks_offline=1;;0;0"}},
        {"missing from its set: the set lists an empty slot",
         [](json &s) {
             listMembers(s, 1, {1, 2, 6}, {2, 2, 2});
             s["raidSets"][1]["rawFailMask"] = 4;
         },
         "", 2,
         "TOVRA CRITICAL - Enc2 Slot6 missing from Raid Set # 001; Raid Set # 001 degraded; Volume Set # 002 degraded",
         {"disks_missing=1;;0;0", "raid_sets_degraded=1;0;;0"}},
        {"missing from its set: the set lists a disk of another use",
         [](json &s) {
             listMembers(s, 1, {1, 2, 4}, {2, 2, 2});
             s["raidSets"][1]["rawFailMask"] = 4;
         },
         "", 2,
         "TOVRA CRITICAL - Enc2 Slot4 missing from Raid Set # 001; Raid Set # 001 degraded; Volume Set # 002 degraded",
         {"disks_missing=1;;0;0"}},
        {"hot spare in use", [](json &s) { disk(s, 0, 4)["raidSet"] = 1; }, "", 1,
         "TOVRA WARNING - Enc1 Slot5 WD-WMAY04123456 hot spare in use (Raid Set # 001)", {"hot_spares_in_use=1;0;;0"}},
        {"rebuilding",
         [](json &s) {
             s["raidSets"][1]["rawState"] = 6;
             s["raidSets"][1]["rawFailMask"] = 1;
             s["volumes"][2]["rawVolumeStatus"] = 8;
         },
         "", 1,
         "TOVRA WARNING - Enc2 Slot1 WD-WMAY04200001 rebuilding (Raid Set # 001); Enc2 Slot2 WD-WMAY04200002 "
         "rebuilding (Raid Set # 001); Enc2 Slot3 WD-WMAY04200003 rebuilding (Raid Set # 001); Raid Set # 001 "
         "rebuilding; Volume Set # 002 rebuilding",
         {"disks_rebuilding=3;0;;0", "raid_sets_rebuilding=1;0;;0", "volumes_rebuilding=1;0;;0"}},
        {"initialising",
         [](json &s) {
             s["raidSets"][0]["rawState"] = 4;
             s["raidSets"][0]["rawFailMask"] = 1;
             s["volumes"][0]["rawFailMask"] = 0;
             s["volumes"][1]["rawFailMask"] = 0;
         },
         "", 1,
         "TOVRA WARNING - Enc1 Slot1 Z1Z0A1B2 initialising (Raid Set # 000); Enc1 Slot2 Z1Z0A1B3 initialising (Raid "
         "Set # 000); Enc1 Slot3 Z1Z0A1B4 initialising (Raid Set # 000); Enc1 Slot4 Z1Z0A1B5 initialising (Raid Set "
         "# 000); Raid Set # 000 initialising",
         {"disks_initialising=4;0;;0", "raid_sets_initialising=1;0;;0"}},
    });
}

TEST(CliHealth, RaidSetAndVolumeStates) {
    Scenarios scenarios;
    check(scenarios, {
        {"set offline: incomplete, its volume failed", [](json &s) { s["raidSets"][1]["offline"] = true; }, "", 2,
         "TOVRA CRITICAL - Raid Set # 001 incomplete; Volume Set # 002 failed",
         {"raid_sets_failed=1;;0;0", "volumes_failed=1;;0;0"}},
        {"set in a state the check does not know",
         [](json &s) {
             s["raidSets"][1]["rawState"] = 9;
             s["raidSets"][1]["rawFailMask"] = 1;
             s["volumes"][2]["rawFailMask"] = 0;
         },
         "", 1, "TOVRA WARNING - Raid Set # 001 in an unknown state", {}},
        {"volume failed beyond its set",
         [](json &s) {
             s["volumes"][1]["rawFailMask"] = 3;
             s["volumes"][1]["rawVolumeStatus"] = 2;
         },
         "", 2, "TOVRA CRITICAL - Volume Set # 001 failed", {"volumes_failed=1;;0;0"}},
        {"volume initialising", [](json &s) { s["volumes"][0]["rawVolumeStatus"] = 1; }, "", 1,
         "TOVRA WARNING - Volume Set # 000 initialising", {"volumes_initialising=1;0;;0"}},
        {"volume needs a rebuild", [](json &s) { s["volumes"][0]["rawVolumeStatus"] = 0x80; }, "", 1,
         "TOVRA WARNING - Volume Set # 000 needs a rebuild", {"volumes_degraded=1;0;;0"}},
        {"a locked encrypted volume",
         [](json &s) {
             s["volumes"][2]["encrypted"] = true;
             s["volumes"][2]["rawVolumeStatus"] = 0x100;
         },
         "", 1, "TOVRA WARNING - Volume Set # 002 locked (key not validated)", {}},
    });
}

TEST(CliHealth, BatteryStates) {
    Scenarios scenarios;
    const auto absent = [](json &s) { s["battery"]["present"] = false; };
    const auto absentNoWriteCache = [](json &s) {
        s["battery"]["present"] = false;
        for (json &v : s["volumes"]) v["scsi"]["cacheMode"] = 0;
    };
    const auto charge = [](int percent) { return [percent](json &s) { s["battery"]["charge"] = percent; }; };
    check(scenarios, {
        {"absent while volumes cache writes", absent, "", 1,
         "TOVRA WARNING - battery absent while volumes cache writes", {}},
        {"absent, optional", absent, "--battery optional", 0,
         "TOVRA OK - 12 disks, 2 RAID sets, 3 volumes, no battery, 13 sensors: all OK", {}},
        {"absent, no write cache", absentNoWriteCache, "", 0,
         "TOVRA OK - 12 disks, 2 RAID sets, 3 volumes, no battery, 13 sensors: all OK", {}},
        {"absent, required", absentNoWriteCache, "--battery required", 1, "TOVRA WARNING - battery absent", {}},
        {"failed", [](json &s) { s["battery"]["status"] = 2; }, "", 2, "TOVRA CRITICAL - Battery0 failed", {}},
        {"state unknown", [](json &s) { s["battery"]["status"] = 7; }, "", 1,
         "TOVRA WARNING - Battery0 in state \"Unknown\"", {}},
        {"charge low", charge(25), "", 1, "TOVRA WARNING - Battery0 charge 25% (below 30%)",
         {"battery_charge=25%;30:;10:;0;100"}},
        {"charge critical", charge(5), "", 2, "TOVRA CRITICAL - Battery0 charge 5% (below 10%)",
         {"battery_charge=5%;30:;10:;0;100"}},
        {"charge low by the options", charge(25), "--battery-warning 20 --battery-critical 5", 0,
         "TOVRA OK - 12 disks, 2 RAID sets, 3 volumes, battery 25%, 13 sensors: all OK",
         {"battery_charge=25%;20:;5:;0;100"}},
    });
}

TEST(CliHealth, SensorStates) {
    Scenarios scenarios;
    const auto reading = [](int enc, const char *name, double value) {
        return [=](json &s) { sensor(s, enc, name)["value"] = value; };
    };
    check(scenarios, {
        {"readings in range", nullptr, "", 0, kHealthy,
         {"temp_Enc1_Controller=48C;60;70", "volt_Enc1_3.3V=3.31V;3.135:3.465;2.97:3.63", "fan_Enc2_Fan_1=5400;;1:"}},
        {"temperature high", reading(0, "Controller", 65), "", 1, "TOVRA WARNING - Enc1 Controller 65 C (above 60 C)",
         {"temp_Enc1_Controller=65C;60;70"}},
        {"temperature critical", reading(0, "Controller", 75), "", 2,
         "TOVRA CRITICAL - Enc1 Controller 75 C (above 70 C)", {}},
        {"temperature limits by the options", reading(0, "Controller", 75), "--temp-warning 70 --temp-critical 80", 1,
         "TOVRA WARNING - Enc1 Controller 75 C (above 70 C)", {"temp_Enc1_Controller=75C;70;80"}},
        {"voltage low", reading(1, "12V", 11.2), "", 1, "TOVRA WARNING - Enc2 12V 11.2 V (more than 5% off 12 V)",
         {"volt_Enc2_12V=11.2V;11.4:12.6;10.8:13.2"}},
        {"voltage far off", reading(0, "5V", 5.8), "", 2, "TOVRA CRITICAL - Enc1 5V 5.8 V (more than 10% off 5 V)",
         {}},
        {"voltage within wider limits", reading(0, "5V", 5.4), "--voltage-warning 10 --voltage-critical 20", 0,
         kHealthy, {"volt_Enc1_5V=5.4V;4.5:5.5;4:6"}},
        {"fan stopped", reading(1, "Fan 2", 0), "", 2, "TOVRA CRITICAL - Enc2 Fan 2 stopped",
         {"fan_Enc2_Fan_2=0;;1:"}},
        {"fan below the minimum", reading(1, "Fan 2", 900), "--fan-minimum 1000", 2,
         "TOVRA CRITICAL - Enc2 Fan 2 900 RPM (below 1000 RPM)", {"fan_Enc2_Fan_2=900;;1000:"}},
        {"power supply off", reading(1, "PSU 2", 0), "", 1, "TOVRA WARNING - Enc2 Power 2 power supply off", {}},
    });
}

TEST(CliHealth, ErrorEventsSince) {
    Scenarios scenarios;
    const auto anHourAgo = [](json &s) { s["events"][0]["time"] = std::time(nullptr) - 3600; };
    check(scenarios, {
        {"old events are not counted", nullptr, "", 0, kHealthy, {"error_events=0;0;;0"}},
        {"since a day", nullptr, "--since 2023-11-14", 1,
         "TOVRA WARNING - error event 2023-11-14 23:13:20 Enc1 Slot7: Device Failed", {"error_events=1;0;;0"}},
        {"since a time after it", nullptr, "--since '2023-11-14 23:13:21'", 0, kHealthy, {"error_events=0;0;;0"}},
        {"since a time at it", nullptr, "--since 2023-11-14T23:13:20", 1,
         "TOVRA WARNING - error event 2023-11-14 23:13:20 Enc1 Slot7: Device Failed", {}},
        {"an hour ago, default 24 hours", anHourAgo, "", 1, "TOVRA WARNING - error event *", {"error_events=1;0;;0"}},
        {"an hour ago, since 30 minutes", anHourAgo, "--since 30m", 0, kHealthy, {"error_events=0;0;;0"}},
        {"an hour ago, since 2 hours", anHourAgo, "--since 2h", 1, "TOVRA WARNING - error event *",
         {"error_events=1;0;;0"}},
        {"information and warning events only",
         [](json &s) {
             for (json &e : s["events"]) {
                 e["time"] = std::time(nullptr) - 60;
                 if (e["severity"] == 2) e["severity"] = 1;
             }
         },
         "", 0, kHealthy, {"error_events=0;0;;0"}},
    });
}

// UNKNOWN: no device, an adapter that does not answer or answers wrongly, a
// check given options it cannot use. No performance data then.
TEST(CliHealth, UnknownWhenTheAdapterCannotBeJudged) {
    struct Case {
        const char *name;
        const char *env;
        const char *arguments;
        std::string status;
    };
    const std::vector<Case> cases = {
        {"no device", "", "health",
         "TOVRA UNKNOWN - no adapter device at /vmfs/devices/char/vmkdriver/tovdrv; use --simulate to try the "
         "simulator"},
        {"no reply within the time limit", "TOVRA_SIM_FAULTS=kind=noreply", "--simulate health --timeout 0.3",
         "TOVRA UNKNOWN - no answer from the adapter within 0.3 s"},
        {"disk requests unanswered", "TOVRA_SIM_FAULTS=cmd=0x22,kind=noreply", "--simulate health --timeout 0.3",
         "TOVRA UNKNOWN - no answer from the adapter within 0.3 s"},
        {"replies with a bad checksum", "TOVRA_SIM_FAULTS=kind=badchecksum", "--simulate health",
         "TOVRA UNKNOWN - Tovra_Battery: CMPI_RC_ERR_FAILED (1)"},
        {"every read fails", "TOVRA_SIM_FAULTS=kind=readfail", "--simulate health",
         "TOVRA UNKNOWN - the adapter did not answer (no controller system)"},
        {"the device does not open", "TOVRA_SIM_FAULTS=kind=openfail", "--simulate health",
         "TOVRA UNKNOWN - cannot open the simulated adapter device /vmfs/devices/char/vmkdriver/tovdrv: No such file "
         "or directory"},
        {"--since unreadable", "", "--simulate health --since yesterday",
         "TOVRA UNKNOWN - --since 'yesterday' is neither a duration (90s, 30m, 24h, 7d, 2w) nor a UTC time "
         "(2023-11-14 23:13:20)"},
        {"an unknown battery choice", "", "--simulate health --battery sometimes", ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const CliRun run = cli(c.arguments, c.env);
        EXPECT_EQ(run.status, 3) << run.out;
        if (c.status.empty()) continue;  // CLI11's usage message goes to standard error
        EXPECT_EQ(run.out, c.status + "\n");
    }
}

// --json: the same verdict as one document, alone on standard output;
// --verbose: one line per component after the first.
TEST(CliHealth, JsonAndVerboseShowTheSameVerdict) {
    Scenarios scenarios;
    const std::string failedMember =
        scenarios.write([](json &s) { disk(s, 1, 1)["role"] = "failed"; });
    // A fixed --since: both runs judge the same events whenever they run.
    const CliRun text = cli("--simulate " + failedMember + " health --since 2023-11-14 --verbose");
    const CliRun doc = cli("--simulate " + failedMember + " health --since 2023-11-14 --json");
    ASSERT_EQ(doc.status, 2) << doc.out;
    json verdict;
    ASSERT_NO_THROW(verdict = json::parse(doc.out)) << doc.out;
    EXPECT_EQ(verdict["state"], "CRITICAL");
    EXPECT_EQ(verdict["exitCode"], 2);
    EXPECT_EQ("TOVRA CRITICAL - " + verdict["summary"].get<std::string>(), statusPart(text.out));
    ASSERT_EQ(verdict["problems"].size(), 4u);  // the disk, its set, its volume, the error event
    EXPECT_EQ(verdict["problems"][0],
              (json{{"kind", "disk"}, {"name", "Enc2 Slot2 WD-WMAY04200002"}, {"state", "CRITICAL"},
                    {"detail", "failed (Raid Set # 001)"}}));
    EXPECT_EQ(verdict["perfdata"].size(), perfItems(text.out).size());
    EXPECT_EQ(verdict["perfdata"][0], (json{{"label", "disks_failed"}, {"value", 1}, {"crit", "0"}, {"min", "0"}}));

    std::vector<std::string> lines;
    std::istringstream in(text.out);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), 1 + verdict["components"].size());
    for (size_t i = 1; i < lines.size(); ++i) {
        const json &c = verdict["components"][i - 1];
        EXPECT_EQ(lines[i], "[" + c["state"].get<std::string>() + "] " + c["kind"].get<std::string>() + ": " +
                                c["name"].get<std::string>() + " " + c["detail"].get<std::string>());
    }
    EXPECT_NE(text.out.find("\n[CRITICAL] disk: Enc2 Slot2 WD-WMAY04200002 failed (Raid Set # 001)\n"),
              std::string::npos);
    EXPECT_NE(text.out.find("\n[OK] sensor: Enc1 Controller 48 C\n"), std::string::npos);

    const CliRun late = cli("--simulate health --json --timeout 0.3", "TOVRA_SIM_FAULTS=kind=noreply");
    EXPECT_EQ(late.status, 3);
    ASSERT_NO_THROW(verdict = json::parse(late.out)) << late.out;
    EXPECT_EQ(verdict["state"], "UNKNOWN");
    EXPECT_EQ(verdict["summary"], "no answer from the adapter within 0.3 s");
}

// No path options and nothing in the environment: the CLI finds the MOF, the
// registration, the providers and the simulator from where it runs, and
// --simulate lets the default principal change the adapter.
TEST(CliDefaults, RunFromTheBuildTreeWithNoOptions) {
    const CliRun inventory = cli("--simulate inventory");
    EXPECT_EQ(inventory.status, 0);
    EXPECT_TRUE(inventory.out.starts_with("Controller TV-1883i-16  serial TV12A0005531")) << inventory.out;

    const CliRun full = cli("--simulate full health");
    EXPECT_EQ(full.status, 0);
    EXPECT_EQ(statusPart(full.out), "TOVRA OK - 316 disks, 8 RAID sets, 32 volumes, battery 100%, 60 sensors: all OK");
    expectPerfSyntax(full.out);

    struct Case {
        const char *name;
        const char *arguments;
        int status;
        const char *output;
    };
    const std::vector<Case> cases = {
        {"a method without --permission", "--simulate invoke tovra/cimv2 Tovra_StoragePool TimeCalibration", 0,
         "ReturnValue = OK\nStatus = 0 (0x0)\n"},
        {"a scenario by name", "--simulate bare ein tovra/cimv2 Tovra_StoragePool", 0, ""},
        {"explicit options win", "--simulate --registration /nonexistent.reg classes", 2, ""},
        {"a scenario that does not exist is refused, naming those that do", "--simulate fulll ein tovra/cimv2 "
         "Tovra_StoragePool", 2, "tovra-cim: no scenario \"fulll\"; built in: default, full; files: bare, edge, pairs\n"},
        {"the monitoring check: UNKNOWN", "--simulate fulll health", 3,
         "TOVRA UNKNOWN - no scenario \"fulll\"; built in: default, full; files: bare, edge, pairs\n"},
        {"a scenario file that does not exist", "--simulate /nonexistent/scenario.json classes", 2,
         "tovra-cim: no scenario file /nonexistent/scenario.json\n"},
        {"no device: the hint", "ei tovra/cimv2 Tovra_StoragePool", 1,
         "tovra-cim: CMPI_RC_ERROR_SYSTEM (100)\ntovra-cim: no adapter device at /vmfs/devices/char/vmkdriver/tovdrv; "
         "use --simulate to try the simulator\n"},
        {"no device, a method: the provider's message, then the hint",
         "--permission root=5 invoke tovra/cimv2 Tovra_StorageVolume DeleteVolume --arg Num=4", 1,
         "Status = 100 (0x64): DeleteVolume: File Open Failed.\ntovra-cim: no adapter device at "
         "/vmfs/devices/char/vmkdriver/tovdrv; use --simulate to try the simulator\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const CliRun run = cli(c.arguments, "", TOVRA_CIM, true);
        EXPECT_EQ(run.status, c.status) << run.out;
        if (*c.output != '\0') {
            EXPECT_EQ(run.out, c.output);
        }
    }
}

// `cmake --install` puts the CLI where it finds the rest: an installed
// tovra-cim needs no option either.
TEST(CliDefaults, RunFromAnInstallation) {
    TempDir prefix;
    ASSERT_EQ(runShell(std::string(CMAKE_COMMAND " --install " TOVRA_BUILD_DIR " --prefix ") + prefix.path().string() +
                    " >/dev/null 2>&1")
                  .status,
              0);
    const std::string installed = (prefix.path() / "bin" / "tovra-cim").string();
    const CliRun health = cli("--simulate health", "", installed.c_str());
    EXPECT_EQ(health.status, 2);
    EXPECT_EQ(statusPart(health.out), "TOVRA CRITICAL - Enc1 Slot7 Z1Z0A1C9 failed");
    const CliRun classes = cli("classes", "", installed.c_str());
    EXPECT_EQ(classes.status, 0);
    EXPECT_NE(classes.out.find("Tovra_StoragePool tovra/cimv2"), std::string::npos) << classes.out;
    // A scenario that is not built in comes from the installed scenario files.
    const CliRun edge = cli("--simulate edge health", "", installed.c_str());
    EXPECT_TRUE(edge.out.starts_with("TOVRA CRITICAL - ")) << edge.out;
    // The simulator's control command runs from there too.
    const CliRun control = cli("--help", "", (prefix.path() / "bin" / "tovra-sim").c_str());
    EXPECT_EQ(control.status, 0) << control.out;
}

}  // namespace
