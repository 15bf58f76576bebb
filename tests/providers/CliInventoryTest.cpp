// The inventory report as an administrator runs it: tovra-cim with the
// simulator preloaded, one process per report. With --json, standard output
// holds the JSON document and nothing else.
#include "CliRun.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>


#include <string>
#include <vector>

namespace {

CliRun inventory(const std::string &scenario, bool json) {
    const std::string command = std::string("TOVRA_SIM_SCENARIO=") + scenario + " LD_PRELOAD=" TOVRA_CLI_PRELOAD
                                " " TOVRA_CLI_ENV " " TOVRA_CIM " --mof " TOVRA_MOF_DIR
                                " --registration " TOVRA_MOF_DIR "/Tovra.reg --provider-dir " TOVRA_PROVIDER_DIR
                                " --principal root --permission root=5 --verbose inventory" +
                                (json ? " --json" : "") + " 2>/dev/null";
    return runShell(command);
}

TEST(CliInventory, JsonOnStandardOutputHoldsEveryClassTheProvidersServe) {
    struct Row {
        const char *scenario;
        std::vector<std::pair<const char *, size_t>> counts;
    };
    const std::vector<Row> rows = {
        {"default",
         {{"Tovra_RAIDControllerSystem", 1}, {"Tovra_PortController", 1}, {"Tovra_SoftwareIdentity", 15},
          {"Tovra_Battery", 1}, {"Tovra_SASSATAPort", 2}, {"Tovra_PhysicalPackage", 13}, {"Tovra_Chassis", 2},
          {"Tovra_DiskDriveSlot", 20}, {"Tovra_DiskDrive", 12}, {"Tovra_DiskExtent", 12}, {"Tovra_StoragePool", 2},
          {"Tovra_StorageVolume", 3}, {"Tovra_DefaultStorageSetting", 8}, {"Tovra_RegisteredProfile", 1}}},
        {"bare", {{"Tovra_Battery", 0}, {"Tovra_SASSATAPort", 1}, {"Tovra_StoragePool", 0}}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.scenario);
        const CliRun run = inventory(row.scenario, true);
        EXPECT_EQ(run.status, 0);
        nlohmann::json doc;
        ASSERT_NO_THROW(doc = nlohmann::json::parse(run.out)) << run.out.substr(0, 200);
        for (const auto &[cls, count] : row.counts) {
            ASSERT_TRUE(doc.contains(cls)) << cls;
            ASSERT_TRUE(doc[cls].contains("instances")) << cls << ": " << doc[cls].dump();
            EXPECT_EQ(doc[cls]["instances"].size(), count) << cls;
        }
    }
}

TEST(CliInventory, TextCliRunShowsTheAdapterToAnAdministrator) {
    struct Row {
        const char *scenario;
        std::vector<const char *> lines;
    };
    const std::vector<Row> rows = {
        {"default",
         {"port controller TV12A0005531: driver tovdrv v1.40.00.00-20230131, PCI link x8 at 5.0 GT/s, SAS address "
          "5001B4D50A2C1000",
          "physical packages: the adapter card and 12 disks", "Adapter firmware       V1.56 2023-04-12",
          "Driver tovdrv          v1.40.00.00-20230131", "Disk firmware          0006 on 1 disk: Z1Z0B7Q1",
          "Battery0: Normal, charge 100 %, 29 C, 4.110 V",
          "2     5001B4D50A2C1000  6.0 Gbit/s   Enc2 TV-8012 Expander0210 (5 disks in 12 slots)",
          "sensors: 12V 12.08 V, 5V 5.02 V, 3.3V 3.31 V, Fan 1 3120 RPM, Controller 48.0 C, Backplane 35.0 C",
          "Disk extents", "WD-WMAY04200005      2    2.0 TB     -"}},
        {"bare", {"Cache backup battery\n    not present"}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.scenario);
        const CliRun run = inventory(row.scenario, false);
        EXPECT_EQ(run.status, 0);
        for (const char *line : row.lines) EXPECT_NE(run.out.find(line), std::string::npos) << line << "\n" << run.out;
    }
}

}  // namespace
