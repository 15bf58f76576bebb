// The provider registration: the project's file, and the format's rules.
#include "ClassRepository.h"
#include "Registration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

using namespace cimhost;

namespace {

const std::string kMofDir = TOVRA_MOF_DIR;

std::vector<RegistrationEntry> parse(const std::string &text) {
    std::istringstream in(text);
    return parseRegistration(in, "t.reg");
}

using Strings = std::vector<std::string>;

}  // namespace

TEST(Registration, ProjectFileListsTheModulesThatExistWithTheirKinds) {
    const auto entries = loadRegistration(kMofDir + "/Tovra.reg");
    struct Row {
        std::string cls, provider;
        Strings kinds;
    };
    const Strings im{"instance", "method"}, i{"instance"};
    std::vector<Row> expected = {
        {"Tovra_RAIDControllerSystem", "TovraRAIDComputerSystemProvider", im},
        {"Tovra_RegisteredProfile", "TovraRegisteredProfileProvider", i},
        {"Tovra_StoragePool", "TovraStoragePoolProvider", im},
        {"Tovra_StorageVolume", "TovraStorageVolumeProvider", im},
        {"Tovra_DefaultStorageSetting", "TovraDefaultStorageSettingProvider", i},
        {"Tovra_DiskDrive", "TovraDiskDriveProvider", im},
        {"Tovra_EventLog", "TovraEventLogProvider", im},
        {"Tovra_DiskDriveSlot", "TovraDiskDriveSlotProvider", i},
        {"Tovra_DiskExtent", "TovraDiskExtentProvider", i},
        {"Tovra_Chassis", "TovraChassisProvider", i},
        {"Tovra_PortController", "TovraPortControllerProvider", i},
        {"Tovra_SoftwareIdentity", "TovraSoftwareIdentityProvider", i},
        {"Tovra_PhysicalPackage", "TovraPhysicalPackageProvider", i},
        {"Tovra_Battery", "TovraBatteryProvider", i},
        {"Tovra_SASSATAPort", "TovraSASSATAPortProvider", i},
    };
    for (const char *assoc :
         {"AllocatedFromStoragePool", "ConcreteComponent", "ElementSettingData", "Container", "MediaPresent",
          "PackageInConnector", "RealizesDiskDrive", "RealizesPortController", "ComputerSystemSoftwareIdentity",
          "DiskDriveSoftwareIdentity", "HostedStoragePool", "LogicalIdentity", "SystemPackaging",
          "SystemDeviceBattery", "SystemDeviceDiskDrive", "SystemDeviceSASSATAPort", "SystemDeviceStorageVolume",
          "SystemDeviceSoftwareIdentity", "ControllerConformsToProfile"})
        expected.push_back(
            {std::string("Tovra_") + assoc, std::string("Tovra") + assoc + "Provider", {"instance", "association"}});
    expected.push_back({"Tovra_AlertIndication", "TovraAlertIndicationProvider", {"indication"}});
    ASSERT_EQ(entries.size(), expected.size());

    ClassRepository classes;
    classes.loadDirectory(kMofDir);
    for (std::size_t n = 0; n < entries.size(); ++n) {
        const RegistrationEntry &e = entries[n];
        SCOPED_TRACE(e.className);
        EXPECT_EQ(e.className, expected[n].cls);
        EXPECT_EQ(e.providerName, expected[n].provider);
        EXPECT_EQ(e.kinds, expected[n].kinds);
        EXPECT_EQ(e.location, "TovraProviders");
        EXPECT_EQ(e.unload, "never");
        // Registered where the MOF declares the class; a method provider
        // exactly where the class has methods.
        const ClassDecl *c = classes.find(e.className);
        ASSERT_NE(c, nullptr);
        EXPECT_EQ(e.namespaces, Strings{c->nameSpace});
        const bool method = std::find(e.kinds.begin(), e.kinds.end(), "method") != e.kinds.end();
        EXPECT_EQ(method, classes.findMethod(e.className, "TimeCalibration") != nullptr);
        const bool association = std::find(e.kinds.begin(), e.kinds.end(), "association") != e.kinds.end();
        EXPECT_EQ(association, c->isAssociation);
    }
}

TEST(Registration, CommentsBlankLinesAndLists) {
    const auto entries = parse(
        "# leading comment\n"
        "\n"
        "[Cls_A]\r\n"
        "   provider:   ProvA  \n"
        "\n"
        "location: LibA\n"
        "   type: instance association\n"
        "   namespace: ns/one ns/two\n"
        "#\n"
        "#   a comment between blocks\n"
        "  [Cls_B]\n"
        "provider: ProvB\n"
        "location: LibB\n"
        "type: method\n"
        "namespace: root/x\n"
        "   #   \n");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].className, "Cls_A");
    EXPECT_EQ(entries[0].providerName, "ProvA");
    EXPECT_EQ(entries[0].location, "LibA");
    EXPECT_EQ(entries[0].kinds, (Strings{"instance", "association"}));
    EXPECT_EQ(entries[0].namespaces, (Strings{"ns/one", "ns/two"}));
    EXPECT_EQ(entries[0].unload, "");
    EXPECT_EQ(entries[1].className, "Cls_B");
    EXPECT_TRUE(parse("# only comments\n\n#\n").empty());
}

TEST(Registration, RejectsWhatTheStockCimomRefuses) {
    const std::string block = "provider: P\nlocation: L\ntype: instance\nnamespace: n\n";
    struct Case {
        std::string text;
        int line;
        const char *fragment;
    };
    const std::vector<Case> cases = {
        {"[A]\nprovider: P\ngroup: g\n#\n", 3, "unknown key 'group'"},
        {"[A]\n" + block + "#\n[a]\n" + block + "#\n", 7, "class a is registered twice (first at line 1)"},
        {"[A]\n" + block + "[B]\n" + block + "#\n", 1, "block [A] is not ended by a line '#'"},
        {"[A]\n" + block, 1, "block [A] is not ended by a line '#'"},
        {"provider: P\n", 1, "outside a [Class] block"},
        {"[A]\n" + block + "# a comment ends the block\nunload: never\n#\n", 7, "outside a [Class] block"},
        {"[A]\nprovider: P\nlocation: L\ntype: instance query\nnamespace: n\n#\n", 4, "unknown provider type 'query'"},
        {"[A]\nprovider: P\nprovider: Q\n#\n", 3, "key 'provider' given twice"},
        {"[A]\nlocation: L\ntype: instance\nnamespace: n\n#\n", 1, "lacks 'provider:'"},
        {"[A]\nprovider: P\nlocation: L\ntype: instance\nnamespace:\n#\n", 5, "has no value"},
        {"[A]\nprovider P\n#\n", 2, "expected 'key: value'"},
        {"[A B]\n", 1, "malformed block header"},
    };
    for (const Case &c : cases) {
        try {
            parse(c.text);
            ADD_FAILURE() << "accepted:\n" << c.text;
        } catch (const RegistrationError &e) {
            EXPECT_EQ(e.file(), "t.reg");
            EXPECT_EQ(e.line(), c.line) << c.text;
            EXPECT_NE(std::string(e.what()).find(c.fragment), std::string::npos) << e.what();
        }
    }
    EXPECT_THROW(loadRegistration(kMofDir + "/no-such-file.reg"), RegistrationError);
}
