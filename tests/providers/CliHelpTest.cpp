// The help a user gets from tovra-cim beside the answers: what a method takes,
// what a wrong argument count means, a state file that overrides the scenario
// asked for, and a scenario that does not exist.
#include "CliRun.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

CliRun tovraCim(const std::string &environment, const std::string &arguments) {
    const std::string command = environment + " LD_PRELOAD=" TOVRA_CLI_PRELOAD " " TOVRA_CLI_ENV
                                " TOVRA_CACHE_EPOCHS= " TOVRA_CIM " --mof " TOVRA_MOF_DIR
                                " --registration " TOVRA_MOF_DIR "/Tovra.reg --provider-dir " TOVRA_PROVIDER_DIR
                                " --principal root --permission root=5 " +
                                arguments + " 2>&1";
    return runShell(command);
}

TEST(CliHelp, UsersLearnWhatMethodsTakeAndWhatWentWrong) {
    const std::string state =
        (std::filesystem::temp_directory_path() / ("tovra-help-" + std::to_string(getpid()) + ".json")).string();
    std::filesystem::remove(state);
    struct Row {
        std::string environment, arguments;
        int status;
        std::vector<std::string> shown;
        std::vector<std::string> notShown;
    };
    // In order: the state file written by the "bare" run is then met by a
    // run that asks for "full".
    const std::vector<Row> rows = {
        {"", "describe Tovra_StoragePool CreateRAIDSet", 0,
         {"CreateRAIDSet  returns string\n", "DiskArray    uint32[] in  Slot numbers of the member disks, 1-based",
          "Enc          uint32   in  Enclosure of the member disks, 1-based"},
         {"DeleteRAIDSet"}},
        {"", "describe Tovra_DiskDrive", 0,
         {"Tovra_DiskDrive (tovra/cimv2)\n", "CreatePassThrough", "DeletePassThrough", "TimeCalibration"},
         {}},
        {"", "--json describe Tovra_StorageVolume DeleteVolume", 0,
         {"\"name\": \"Num\"", "\"description\": \"Volume set number, 1-based; not 0.\""}, {"CreateVolume"}},
        {"", "describe Tovra_StoragePool Frobnicate", 2, {"class Tovra_StoragePool has no method Frobnicate"}, {}},
        {"", "describe Tovra_Nothing", 2, {"no class Tovra_Nothing in the MOF"}, {}},
        {"", "invoke tovra/cimv2 Tovra_StoragePool DeleteRAIDSet", 1,
         {"DeleteRAIDSet: incorrect args number were received.", "DeleteRAIDSet takes 1 argument: RAIDNo\n"}, {}},
        {"", "invoke tovra/cimv2 Tovra_StorageVolume DeleteVolume --arg Num=0", 1,
         {"Argument Num is incorrect in DeleteVolume Method Command."}, {"takes"}},
        // A program that preloads the simulator cannot be asked: it is warned
        // and served the default adapter.
        {"TOVRA_SIM_SCENARIO=fulll", "ein tovra/cimv2 Tovra_StoragePool", 0,
         {"no scenario \"fulll\"; built in: default, full; files: bare, edge, pairs; serving \"default\"",
          "Raid Set # 001"},
         {}},
        {"TOVRA_SIM_SCENARIO=bare TOVRA_SIM_STATE=" + state, "ein tovra/cimv2 Tovra_StoragePool", 0, {},
         {"wins over"}},
        {"TOVRA_SIM_SCENARIO=full TOVRA_SIM_STATE=" + state, "ein tovra/cimv2 Tovra_StoragePool", 0,
         {"the state file " + state + " (scenario \"bare\") wins over TOVRA_SIM_SCENARIO=full; remove it"}, {}},
        {"TOVRA_SIM_SCENARIO=bare TOVRA_SIM_STATE=" + state, "ein tovra/cimv2 Tovra_StoragePool", 0, {},
         {"wins over"}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.environment + " " + row.arguments);
        const CliRun run = tovraCim(row.environment, row.arguments);
        EXPECT_EQ(run.status, row.status) << run.out;
        for (const std::string &text : row.shown)
            EXPECT_NE(run.out.find(text), std::string::npos) << text << "\n" << run.out;
        for (const std::string &text : row.notShown) EXPECT_EQ(run.out.find(text), std::string::npos) << text;
    }
    std::filesystem::remove(state);
    std::filesystem::remove(state + ".lock");
}

}  // namespace
