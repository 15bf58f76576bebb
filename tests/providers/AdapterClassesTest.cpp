// The adapter's own classes against the simulated adapter: port controller,
// software identities, physical packages, battery, SAS/SATA ports and the
// chassis sensors, with the keys the associations compare.
#include "Harness.h"

#include <set>

using namespace harness;
namespace sim = tovra::sim;

namespace {

class Adapter : public ProviderTest {};

std::vector<Obj> all(const std::string &cls) {
    Answer a = enumInstances(cls);
    EXPECT_EQ(a.rc, CMPI_RC_OK) << cls;
    return a.objects;
}

const Obj *withKey(const std::vector<Obj> &objs, const std::string &key, const std::string &value) {
    for (const Obj &o : objs)
        if (o.text(key) == value) return &o;
    return nullptr;
}

// ---- keys against the association rules ----------------------------------

enum class Rule { SameText, LeftContainsRight, RightContainsLeft };
// How many: a fixed number, or one per present disk.
struct Count {
    unsigned fixed = 0;
    bool perDisk = false;
    unsigned of(unsigned disks) const { return perDisk ? disks : fixed; }
};
constexpr Count kPerDisk{0, true};

bool holds(Rule rule, const std::string &left, const std::string &right) {
    switch (rule) {
        case Rule::SameText: return left == right;
        case Rule::LeftContainsRight: return left.find(right) != std::string::npos;
        case Rule::RightContainsLeft: return right.find(left) != std::string::npos;
    }
    return false;
}

void checkAssociationKeys(unsigned expectedDisks) {
    struct Row {
        const char *association, *left, *leftKey, *right, *rightKey;
        Rule rule;
        Count pairs, lefts, rights;  // matching pairs, distinct left and right ends in them
    };
    const std::vector<Row> rows = {
        {"Tovra_RealizesPortController (associators)", "Tovra_PortController", "DeviceID", "Tovra_PhysicalPackage",
         "Tag", Rule::SameText, {1}, {1}, {1}},
        {"Tovra_RealizesPortController (enumeration)", "Tovra_PortController", "DeviceID", "Tovra_PhysicalPackage",
         "Tag", Rule::RightContainsLeft, {1}, {1}, {1}},
        {"Tovra_RealizesDiskDrive", "Tovra_PhysicalPackage", "Tag", "Tovra_DiskDrive", "Tag", Rule::SameText,
         kPerDisk, kPerDisk, kPerDisk},
        {"Tovra_PackageInConnector", "Tovra_PhysicalPackage", "Tag", "Tovra_DiskDriveSlot", "Tag", Rule::SameText,
         kPerDisk, kPerDisk, kPerDisk},
        {"Tovra_ComputerSystemSoftwareIdentity", "Tovra_SoftwareIdentity", "InstanceID",
         "Tovra_RAIDControllerSystem", "Name", Rule::LeftContainsRight, {3}, {3}, {1}},
        {"Tovra_DiskDriveSoftwareIdentity", "Tovra_SoftwareIdentity", "InstanceID", "Tovra_DiskDrive", "DeviceID",
         Rule::LeftContainsRight, kPerDisk, kPerDisk, kPerDisk},
    };
    const unsigned disks = static_cast<unsigned>(all("Tovra_DiskDrive").size());
    ASSERT_EQ(disks, expectedDisks);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.association);
        const std::vector<Obj> lefts = all(row.left), rights = all(row.right);
        unsigned pairs = 0;
        std::set<std::string> matchedLefts, matchedRights;
        for (const Obj &l : lefts)
            for (const Obj &r : rights)
                if (holds(row.rule, l.text(row.leftKey), r.text(row.rightKey))) {
                    ++pairs;
                    matchedLefts.insert(l.text(row.leftKey));
                    matchedRights.insert(r.text(row.rightKey));
                }
        EXPECT_EQ(pairs, row.pairs.of(disks));
        EXPECT_EQ(matchedLefts.size(), row.lefts.of(disks));
        EXPECT_EQ(matchedRights.size(), row.rights.of(disks));
    }
}

TEST_F(Adapter, KeysSatisfyTheAssociationRules) { checkAssociationKeys(12); }

TEST_F(Adapter, KeysSatisfyTheAssociationRulesOnAFullAdapter) {
    sim::loadScenario("full");
    freshClock();
    checkAssociationKeys(316);
}

TEST_F(Adapter, DevicesAreScopedByTheControllerSystem) {
    const std::string serial = all("Tovra_RAIDControllerSystem").at(0).text("Name");
    for (const char *cls : {"Tovra_PortController", "Tovra_Battery", "Tovra_SASSATAPort"}) {
        SCOPED_TRACE(cls);
        Answer names = enumNames(cls);
        ASSERT_FALSE(names.objects.empty());
        for (const Obj &path : names.objects) {
            ASSERT_NE(path.key("SystemName"), nullptr);
            EXPECT_EQ(*path.key("SystemName"), serial);
            EXPECT_EQ(*path.key("SystemCreationClassName"), "Tovra_RAIDControllerSystem");
            EXPECT_EQ(*path.key("CreationClassName"), cls);
        }
    }
}

// ---- get instance --------------------------------------------------------

TEST_F(Adapter, GetInstanceByTheKeyOfEachClass) {
    struct Row {
        const char *cls, *key, *value;
    };
    const std::vector<Row> rows = {
        {"Tovra_PortController", "DeviceID", "TV12A0005531"},
        {"Tovra_SoftwareIdentity", "InstanceID", "Tovra:TV12A0005531:Driver"},
        {"Tovra_SoftwareIdentity", "InstanceID", "Tovra:Z1Z0B7Q1:Firmware"},
        {"Tovra_PhysicalPackage", "Tag", "TV12A0005531"},
        {"Tovra_PhysicalPackage", "Tag", "259"},
        {"Tovra_Battery", "DeviceID", "Battery0"},
        {"Tovra_SASSATAPort", "DeviceID", "Port2"},
        {"Tovra_Chassis", "Tag", "TV-8012 Expander0210"},
        {"Tovra_EventLog", "InstanceID", "TV12A0005531:EventLog"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.cls) + " " + row.value);
        Answer a = getInstance(row.cls, {{row.key, In::str(row.value)}});
        ASSERT_EQ(a.rc, CMPI_RC_OK);
        ASSERT_EQ(a.objects.size(), 1u);
        EXPECT_EQ(a.objects[0].text(row.key), row.value);
        // A near miss is not found: keys compare exactly.
        EXPECT_EQ(getInstance(row.cls, {{row.key, In::str(std::string(row.value) + "x")}}).rc,
                  CMPI_RC_ERR_NOT_FOUND);
    }
}

// ---- class defaults ------------------------------------------------------

// What a client sees of a property no provider sets: the class's MOF default,
// which the broker puts into every instance made from a class path (a value
// the provider sets wins; a property without a default stays absent).
TEST_F(Adapter, UnsetPropertiesShowTheClassDefaults) {
    struct Row {
        const char *cls, *property;
        const char *expected;  // nullptr: absent
    };
    const std::vector<Row> rows = {
        {"Tovra_RAIDControllerSystem", "EnabledState", "5"},
        {"Tovra_RAIDControllerSystem", "RequestedState", "12"},
        {"Tovra_RAIDControllerSystem", "EnabledDefault", "2"},
        {"Tovra_RAIDControllerSystem", "TransitioningToState", "12"},
        {"Tovra_RAIDControllerSystem", "OtherEnabledState", nullptr},
        {"Tovra_StoragePool", "Primordial", "false"},
        {"Tovra_StorageVolume", "Primordial", "false"},
        {"Tovra_StorageVolume", "EnabledState", "5"},
        {"Tovra_DiskDrive", "RequestedState", "12"},
        {"Tovra_DiskExtent", "Primordial", "false"},
        {"Tovra_EventLog", "LogState", "4"},
        {"Tovra_EventLog", "OverwritePolicy", "0"},
        {"Tovra_EventLog", "EnabledDefault", "2"},
        {"Tovra_Chassis", "RemovalConditions", "2"},
        {"Tovra_PhysicalPackage", "RemovalConditions", "2"},
        {"Tovra_SoftwareIdentity", "IsLargeBuildNumber", "false"},
        {"Tovra_SoftwareIdentity", "IsEntity", "true"},  // set by the provider
        {"Tovra_PortController", "EnabledState", "5"},
        {"Tovra_Battery", "TransitioningToState", "12"},
        {"Tovra_SASSATAPort", "EnabledDefault", "2"},
    };
    auto shown = [](const Val &v) { return v.kind == Val::Kind::Number ? std::to_string(v.number) : v.text; };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.cls) + "." + row.property);
        const std::vector<Obj> objs = all(row.cls);
        ASSERT_FALSE(objs.empty());
        for (const Obj &o : objs) {
            const Val *v = o.prop(row.property);
            if (row.expected == nullptr) {
                EXPECT_EQ(v, nullptr) << o.path;
                continue;
            }
            ASSERT_NE(v, nullptr) << o.path;
            EXPECT_EQ(shown(*v), row.expected) << o.path;
        }
    }
}

TEST_F(Adapter, SoftwareIdentityGetAsksTheAdapterFirst) {
    ASSERT_EQ(all("Tovra_SoftwareIdentity").size(), 15u);
    // Without driver and firmware answers, an identity exists only when it
    // names a present disk's serial number.
    sim::addFault({.kind = sim::FaultKind::ReadFail, .command = 0x02});
    sim::addFault({.kind = sim::FaultKind::NoReply, .command = 0x23, .nth = 2});
    Answer disk = getInstance("Tovra_SoftwareIdentity", {{"InstanceID", In::str("Tovra:Z1Z0B7Q1:Firmware")}});
    EXPECT_EQ(disk.rc, CMPI_RC_OK);
    EXPECT_EQ(disk.objects.size(), 1u);
    sim::clearFaults();
    sim::addFault({.kind = sim::FaultKind::ReadFail, .command = 0x02});
    sim::addFault({.kind = sim::FaultKind::NoReply, .command = 0x23, .nth = 2});
    Answer adapter = getInstance("Tovra_SoftwareIdentity", {{"InstanceID", In::str("Tovra:TV12A0005531:Driver")}});
    EXPECT_EQ(adapter.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_TRUE(adapter.objects.empty());
}

// ---- properties ----------------------------------------------------------

TEST_F(Adapter, PortControllerCarriesDriverPciAndSasAddress) {
    const Obj pc = all("Tovra_PortController").at(0);
    EXPECT_EQ(pc.text("DeviceID"), "TV12A0005531");
    EXPECT_EQ(pc.text("DriverName"), "tovdrv");
    EXPECT_EQ(pc.text("DriverVersion"), "v1.40.00.00-20230131");
    EXPECT_EQ(pc.text("PCIBusWidth"), "x8");
    EXPECT_EQ(pc.text("PCILinkSpeed"), "5.0 GT/s");
    EXPECT_EQ(pc.text("SASAddress"), "5001B4D50A2C1000");
    EXPECT_EQ(pc.text("FirmwareVersion"), "V1.56 2023-04-12");
}

TEST_F(Adapter, SoftwareVersionsSplitWhereTheyParse) {
    struct Row {
        const char *instanceId, *version;
        std::vector<uint64_t> numbers;  // major, minor, revision, build as far as set
        uint64_t classification;
    };
    const std::vector<Row> rows = {
        {"Tovra:TV12A0005531:Firmware", "V1.56 2023-04-12", {1, 56}, 10},
        {"Tovra:TV12A0005531:BootCode", "V1.56 2023-04-12", {1, 56}, 11},
        {"Tovra:TV12A0005531:Driver", "v1.40.00.00-20230131", {1, 40, 0, 0}, 2},
        {"Tovra:WD-WMAY04200001:Firmware", "01.01D02", {1, 1}, 10},
        {"Tovra:Z1Z0A1B2:Firmware", "0004", {4}, 10},
        {"Tovra:Z1Z0B7Q1:Firmware", "0006", {6}, 10},
    };
    const std::vector<Obj> ids = all("Tovra_SoftwareIdentity");
    const char *fields[] = {"MajorVersion", "MinorVersion", "RevisionNumber", "BuildNumber"};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.instanceId);
        const Obj *o = withKey(ids, "InstanceID", row.instanceId);
        ASSERT_NE(o, nullptr);
        EXPECT_EQ(o->text("VersionString"), row.version);
        for (size_t i = 0; i < 4; ++i) {
            if (i < row.numbers.size())
                EXPECT_EQ(o->num(fields[i]), row.numbers[i]) << fields[i];
            else
                EXPECT_FALSE(o->has(fields[i])) << fields[i];
        }
        EXPECT_EQ(o->prop("Classifications")->numbers, std::vector<uint64_t>{row.classification});
    }
}

TEST_F(Adapter, BatteryStatesAsAStorageAdministratorReadsThem) {
    struct Row {
        uint8_t status, charge;
        const char *state;
        uint64_t batteryStatus, operational;
    };
    const std::vector<Row> rows = {
        {0, 100, "Normal", 3, 2},  {0, 60, "Normal", 11, 2},  {0, 20, "Normal", 4, 2}, {0, 5, "Normal", 5, 2},
        {1, 60, "Charging", 6, 2}, {1, 20, "Charging", 8, 2}, {2, 0, "Failed", 2, 6},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.status) + "/" + std::to_string(row.charge));
        sim::withModel([&](sim::Model &m) {
            m.battery.status = row.status;
            m.battery.charge = row.charge;
            m.battery.temperature = -3;
            m.battery.millivolts = 4050;
        });
        freshClock();
        const std::vector<Obj> b = all("Tovra_Battery");
        ASSERT_EQ(b.size(), 1u);
        EXPECT_EQ(b[0].text("BatteryState"), row.state);
        EXPECT_EQ(b[0].num("BatteryStatus"), row.batteryStatus);
        EXPECT_EQ(b[0].num("ChargeLevel"), row.charge);
        EXPECT_EQ(b[0].num("EstimatedChargeRemaining"), row.charge);
        EXPECT_EQ(b[0].num("Voltage"), 4050u);
        EXPECT_EQ(static_cast<int64_t>(b[0].num("Temperature")), -3);
        EXPECT_EQ(b[0].prop("OperationalStatus")->numbers, std::vector<uint64_t>{row.operational});
    }
}

TEST_F(Adapter, NoBatteryNoInstance) {
    for (const char *scenario : {"edge", "bare"}) {
        SCOPED_TRACE(scenario);
        sim::loadScenario(scenario);
        freshClock();
        Answer a = enumInstances("Tovra_Battery");
        EXPECT_EQ(a.rc, CMPI_RC_OK);
        EXPECT_TRUE(a.objects.empty());
        EXPECT_TRUE(enumNames("Tovra_Battery").objects.empty());
        Answer get = getInstance("Tovra_Battery", {{"DeviceID", In::str("Battery0")}});
        EXPECT_EQ(get.rc, CMPI_RC_OK) << "an empty cache answers OK with no instance";
        EXPECT_TRUE(get.objects.empty());
    }
}

TEST_F(Adapter, PortsCarryAddressLinkRateAndWhatIsAttached) {
    struct Row {
        const char *scenario, *deviceId, *linkRate, *attached;
        uint64_t speed, status;
    };
    const std::vector<Row> rows = {
        {"default", "Port1", "6.0 Gbit/s", "Enc1 TV-1883 Backplan1.56 (7 disks in 8 slots)", 6'000'000'000ULL, 2},
        {"default", "Port2", "6.0 Gbit/s", "Enc2 TV-8012 Expander0210 (5 disks in 12 slots)", 6'000'000'000ULL, 2},
        {"full", "Port4", "12.0 Gbit/s",
         "Enc4 TV-8028 Expander0300 (28 disks in 28 slots), Enc5 TV-8028 Expander0300 (28 disks in 28 slots), "
         "Enc6 TV-8028 Expander0300 (28 disks in 28 slots), Enc7 TV-8028 Expander0300 (28 disks in 28 slots), "
         "Enc8 TV-8028 Expander0300 (28 disks in 28 slots), Enc9 TV-8028 Expander0300 (28 disks in 28 slots), "
         "Enc10 TV-8028 Expander0300 (28 disks in 28 slots), Enc11 TV-8028 Expander0300 (28 disks in 28 slots), "
         "Enc12 TV-8028 Expander0300 (28 disks in 28 slots)",
         12'000'000'000ULL, 2},
        {"bare", "Port1", "Unknown", "Enc1 TV-1883 Backplan1.56 (4 disks in 8 slots)", 0, 2},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.scenario) + " " + row.deviceId);
        sim::loadScenario(row.scenario);
        freshClock();
        const std::vector<Obj> ports = all("Tovra_SASSATAPort");
        const Obj *p = withKey(ports, "DeviceID", row.deviceId);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p->text("SASAddress"), "5001B4D50A2C1000");
        EXPECT_EQ(p->text("LinkRate"), row.linkRate);
        EXPECT_EQ(p->text("AttachedDevice"), row.attached);
        EXPECT_EQ(p->num("Speed"), row.speed);
        EXPECT_EQ(p->prop("OperationalStatus")->numbers, std::vector<uint64_t>{row.status});
    }
}

TEST_F(Adapter, ChassisPublishesTheSensorsOfItsEnclosure) {
    struct Row {
        const char *scenario, *tag;
        std::vector<std::string> names;
        std::vector<uint64_t> kinds;
        std::vector<double> readings;
    };
    const std::vector<Row> rows = {
        {"default", "TV-1883 Backplan1.56", {"12V", "5V", "3.3V", "Fan 1", "Controller", "Backplane"},
         {2, 2, 2, 1, 3, 3}, {12.08, 5.02, 3.31, 3120, 48, 35}},
        {"default", "TV-8012 Expander0210", {"12V", "5V", "Fan 1", "Fan 2", "Power 1", "Power 2", "Enclosure"},
         {2, 2, 1, 1, 4, 4, 3}, {12.11, 5.04, 5400, 5350, 1, 1, 31}},
        {"bare", "TV-1883 Backplan1.56", {}, {}, {}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.scenario) + " " + row.tag);
        sim::loadScenario(row.scenario);
        freshClock();
        const std::vector<Obj> chassis = all("Tovra_Chassis");
        const Obj *c = withKey(chassis, "Tag", row.tag);
        ASSERT_NE(c, nullptr);
        EXPECT_EQ(c->prop("SensorNames")->texts, row.names);
        EXPECT_EQ(c->prop("SensorTypes")->numbers, row.kinds);
        const std::vector<double> &readings = c->prop("SensorReadings")->reals;
        ASSERT_EQ(readings.size(), row.readings.size());
        for (size_t i = 0; i < readings.size(); ++i) EXPECT_NEAR(readings[i], row.readings[i], 0.001) << i;
    }
}

TEST_F(Adapter, ChassisWithoutSensorReadingsIsStillPublished) {
    // The value request of the first enclosure (its fourth 0x1B exchange)
    // fails through every retry.
    sim::addFault({.kind = sim::FaultKind::NoReply, .command = 0x1B, .nth = 4, .count = 5});
    const std::vector<Obj> chassis = all("Tovra_Chassis");
    ASSERT_EQ(chassis.size(), 2u);
    EXPECT_FALSE(chassis[0].has("SensorNames"));
    EXPECT_EQ(chassis[1].prop("SensorNames")->texts.size(), 7u);
}

// ---- the full adapter ----------------------------------------------------

TEST_F(Adapter, FullAdapterEnumeratesCompletely) {
    sim::loadScenario("full");
    freshClock();
    struct Row {
        const char *cls;
        size_t count;
    };
    const std::vector<Row> rows = {
        {"Tovra_PortController", 1}, {"Tovra_SoftwareIdentity", 3 + 316}, {"Tovra_PhysicalPackage", 1 + 316},
        {"Tovra_Battery", 1},        {"Tovra_SASSATAPort", 4},            {"Tovra_Chassis", 12},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.cls);
        Answer names = enumNames(row.cls);
        Answer instances = enumInstances(row.cls);
        EXPECT_EQ(names.rc, CMPI_RC_OK);
        EXPECT_EQ(instances.rc, CMPI_RC_OK);
        EXPECT_EQ(names.objects.size(), row.count);
        EXPECT_EQ(instances.objects.size(), row.count);
    }
    for (const Obj &c : all("Tovra_Chassis")) EXPECT_EQ(c.prop("SensorNames")->texts.size(), 5u) << c.text("Tag");
    EXPECT_FALSE(logged("Not Return CMPI_RC_OK"));
}

}  // namespace
