// The project's own MOF files: every Tovra_ class with its superclass, keys,
// association roles and method signatures, as the providers rely on them.
#include "ProjectRepository.h"

#include <gtest/gtest.h>

#include <set>
#include <tuple>

using namespace cimhost;

namespace {

std::set<std::string> keySet(std::string_view cls) {
    const auto keys = project().keyNames(cls);
    return {keys.begin(), keys.end()};
}

std::string typeText(CimType type, bool isArray) { return std::string(cimTypeName(type)) + (isArray ? "[]" : ""); }

std::string typeOf(std::string_view cls, std::string_view prop) {
    const PropertyDecl *p = project().findProperty(cls, prop);
    return p != nullptr ? typeText(p->type, p->isArray) : "missing";
}

const std::set<std::string> kDeviceKeys{"CreationClassName", "DeviceID", "SystemCreationClassName", "SystemName"};

}  // namespace

TEST(ProjectMof, LoadsAndValidatesInEitherOrder) {
    EXPECT_NO_THROW(project().validate());

    // The Tovra file alone reads, but its superclasses are missing until the
    // CIM file is read too; only validate() complains.
    ClassRepository r;
    r.loadFile(kMofDir + "/Tovra.mof");
    try {
        r.validate();
        FAIL() << "validate() accepted missing superclasses";
    } catch (const MofError &e) {
        EXPECT_NE(std::string(e.what()).find("Tovra.mof:"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("is not defined"), std::string::npos) << e.what();
    }
    r.loadDirectory(kMofDir + "/cim");
    r.loadFile(kMofDir + "/Tovra_CIMSupplement.mof");
    r.loadFile(kMofDir + "/Tovra_Interop.mof");
    EXPECT_NO_THROW(r.validate());
}

TEST(ProjectMof, InstanceClassesDeriveFromTheirStandardClassesWithTheirKeys) {
    struct Row {
        const char *cls, *superclass;
        std::set<std::string> keys;
    };
    const std::vector<Row> rows = {
        {"Tovra_RAIDControllerSystem", "CIM_ComputerSystem", {"CreationClassName", "Name"}},
        {"Tovra_RegisteredProfile", "CIM_RegisteredProfile", {"InstanceID"}},
        {"Tovra_StoragePool", "CIM_StoragePool", {"InstanceID"}},
        {"Tovra_StorageVolume", "CIM_StorageVolume", kDeviceKeys},
        {"Tovra_DefaultStorageSetting", "CIM_StorageSetting", {"InstanceID"}},
        {"Tovra_DiskDrive", "CIM_DiskDrive", kDeviceKeys},
        {"Tovra_DiskDriveSlot", "CIM_Slot", {"CreationClassName", "Tag"}},
        {"Tovra_DiskExtent", "CIM_StorageExtent", kDeviceKeys},
        {"Tovra_Chassis", "CIM_Chassis", {"CreationClassName", "Tag"}},
        {"Tovra_PortController", "CIM_PortController", kDeviceKeys},
        {"Tovra_SoftwareIdentity", "CIM_SoftwareIdentity", {"InstanceID"}},
        {"Tovra_PhysicalPackage", "CIM_PhysicalPackage", {"CreationClassName", "Tag"}},
        {"Tovra_Battery", "CIM_Battery", kDeviceKeys},
        {"Tovra_SASSATAPort", "CIM_SASSATAPort", kDeviceKeys},
        {"Tovra_EventLog", "CIM_RecordLog", {"InstanceID"}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.cls);
        const ClassDecl *c = project().find(row.cls);
        ASSERT_NE(c, nullptr);
        EXPECT_EQ(c->superclass, row.superclass);
        EXPECT_FALSE(c->isAssociation);
        EXPECT_TRUE(project().isA(row.cls, "CIM_ManagedElement"));
        EXPECT_EQ(c->nameSpace, std::string(row.cls) == "Tovra_RegisteredProfile" ? "root/interop" : "tovra/cimv2");
        EXPECT_EQ(keySet(row.cls), row.keys);
    }
    // The class tests of the providers and the association engine go through
    // these intermediate classes.
    EXPECT_TRUE(project().isA("Tovra_StorageVolume", "CIM_StorageExtent"));
    EXPECT_TRUE(project().isA("Tovra_Chassis", "CIM_PhysicalPackage"));
    EXPECT_TRUE(project().isA("Tovra_DiskDriveSlot", "CIM_PhysicalConnector"));
    EXPECT_TRUE(project().isA("Tovra_RAIDControllerSystem", "CIM_System"));
    EXPECT_FALSE(project().isA("Tovra_StoragePool", "CIM_StorageVolume"));
}

TEST(ProjectMof, AssociationClassesCarryTheirRolesAsKeyReferences) {
    struct Row {
        const char *cls, *superclass, *leftRole, *leftClass, *rightRole, *rightClass;
    };
    const std::vector<Row> rows = {
        {"Tovra_AllocatedFromStoragePool", "CIM_AllocatedFromStoragePool", "Antecedent", "Tovra_StoragePool",
         "Dependent", "Tovra_StorageVolume"},
        {"Tovra_ConcreteComponent", "CIM_ConcreteComponent", "GroupComponent", "Tovra_StoragePool", "PartComponent",
         "Tovra_DiskExtent"},
        {"Tovra_ElementSettingData", "CIM_ElementSettingData", "ManagedElement", "Tovra_StorageVolume", "SettingData",
         "Tovra_DefaultStorageSetting"},
        {"Tovra_Container", "CIM_Container", "GroupComponent", "Tovra_Chassis", "PartComponent",
         "Tovra_DiskDriveSlot"},
        {"Tovra_MediaPresent", "CIM_MediaPresent", "Antecedent", "Tovra_DiskDrive", "Dependent", "Tovra_DiskExtent"},
        {"Tovra_PackageInConnector", "CIM_PackageInConnector", "Antecedent", "Tovra_PhysicalPackage", "Dependent",
         "Tovra_DiskDriveSlot"},
        {"Tovra_RealizesDiskDrive", "CIM_Realizes", "Antecedent", "Tovra_PhysicalPackage", "Dependent",
         "Tovra_DiskDrive"},
        {"Tovra_RealizesPortController", "CIM_Realizes", "Dependent", "Tovra_PortController", "Antecedent",
         "Tovra_PhysicalPackage"},
        {"Tovra_ComputerSystemSoftwareIdentity", "CIM_ElementSoftwareIdentity", "Antecedent",
         "Tovra_SoftwareIdentity", "Dependent", "Tovra_RAIDControllerSystem"},
        {"Tovra_DiskDriveSoftwareIdentity", "CIM_ElementSoftwareIdentity", "Antecedent", "Tovra_SoftwareIdentity",
         "Dependent", "Tovra_DiskDrive"},
        {"Tovra_HostedStoragePool", "CIM_HostedStoragePool", "GroupComponent", "Tovra_RAIDControllerSystem",
         "PartComponent", "Tovra_StoragePool"},
        {"Tovra_LogicalIdentity", "CIM_LogicalIdentity", "SystemElement", "Tovra_PortController", "SameElement",
         "Tovra_RAIDControllerSystem"},
        {"Tovra_SystemPackaging", "CIM_SystemPackaging", "Antecedent", "Tovra_RAIDControllerSystem", "Dependent",
         "Tovra_Chassis"},
        {"Tovra_SystemDeviceBattery", "CIM_SystemDevice", "GroupComponent", "Tovra_RAIDControllerSystem",
         "PartComponent", "Tovra_Battery"},
        {"Tovra_SystemDeviceDiskDrive", "CIM_SystemDevice", "GroupComponent", "Tovra_RAIDControllerSystem",
         "PartComponent", "Tovra_DiskDrive"},
        {"Tovra_SystemDeviceSASSATAPort", "CIM_SystemDevice", "GroupComponent", "Tovra_RAIDControllerSystem",
         "PartComponent", "Tovra_SASSATAPort"},
        {"Tovra_SystemDeviceStorageVolume", "CIM_SystemDevice", "GroupComponent", "Tovra_RAIDControllerSystem",
         "PartComponent", "Tovra_StorageVolume"},
        {"Tovra_SystemDeviceSoftwareIdentity", "CIM_SystemDevice", "GroupComponent", "Tovra_RAIDControllerSystem",
         "PartComponent", "Tovra_SoftwareIdentity"},
        {"Tovra_ControllerConformsToProfile", "CIM_ElementConformsToProfile", "ManagedElement",
         "Tovra_PortController", "ConformantStandard", "Tovra_RegisteredProfile"},
    };
    ASSERT_EQ(rows.size(), 19u);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.cls);
        const ClassDecl *c = project().find(row.cls);
        ASSERT_NE(c, nullptr);
        EXPECT_TRUE(c->isAssociation);
        EXPECT_EQ(c->superclass, row.superclass);
        EXPECT_EQ(c->nameSpace, "tovra/cimv2");
        EXPECT_EQ(keySet(row.cls), (std::set<std::string>{row.leftRole, row.rightRole}));
        for (auto [role, end] : {std::pair{row.leftRole, row.leftClass}, std::pair{row.rightRole, row.rightClass}}) {
            SCOPED_TRACE(role);
            // The role is a reference of the standard class too.
            const PropertyDecl *standard = project().findProperty(row.superclass, role);
            ASSERT_NE(standard, nullptr);
            EXPECT_EQ(standard->type, CimType::Reference);
            const PropertyDecl *p = project().findProperty(row.cls, role);
            ASSERT_NE(p, nullptr);
            ASSERT_EQ(p->type, CimType::Reference);
            // Typed with the end class, unless that lives in another namespace;
            // then with a standard class the end class derives from.
            const bool sameNamespace = project().find(end)->nameSpace == c->nameSpace;
            if (sameNamespace)
                EXPECT_EQ(p->refClass, end);
            else
                EXPECT_TRUE(project().isA(end, p->refClass)) << p->refClass;
        }
    }
}

TEST(ProjectMof, MethodSignatures) {
    using Params = std::vector<std::pair<std::string, std::string>>;
    const Params none;
    const std::string u = "uint32", ua = "uint32[]", s = "string";
    const Params passThrough{{"enc", u}, {"slt", u}, {"id", u}, {"lun", u}, {"tag", u}, {"cache", u}};
    struct Row {
        const char *cls, *method;
        Params params;
    };
    const std::vector<Row> rows = {
        {"Tovra_StoragePool", "CreateRAIDSet", {{"MemberDisks", u}, {"DiskArray", ua}, {"Enc", u}, {"Name", s}}},
        {"Tovra_StoragePool", "DeleteRAIDSet", {{"RAIDNo", u}}},
        {"Tovra_StoragePool", "ExpandRAIDSet", {{"RAIDNo", u}, {"DiskArray", ua}, {"Encls", ua}}},
        {"Tovra_StoragePool", "OfflineRAIDSet", {{"RAIDNo", u}}},
        {"Tovra_StoragePool", "ActivateRAIDSet", {{"RAIDNo", u}}},
        {"Tovra_StoragePool", "CreateHotSpare", {{"Type", u}, {"RAIDNo", u}, {"Enc", u}, {"Disk", u}}},
        {"Tovra_StoragePool", "DeleteHotSpare", {{"Enc", u}, {"Disk", u}}},
        {"Tovra_StorageVolume",
         "CreateVolume",
         {{"ID", u}, {"LUN", u}, {"RAIDNo", u}, {"Strp", u}, {"Ll", u}, {"Cap", u}, {"Name", s}, {"Cache", u},
          {"FG", u}, {"GtT", u}, {"Tag", u}}},
        {"Tovra_StorageVolume",
         "ModifyVolume",
         {{"Cap", u}, {"Num", u}, {"ID", u}, {"LUN", u}, {"Strp", u}, {"Ll", u}, {"Name", s}, {"Cache", u},
          {"Tag", u}}},
        {"Tovra_StorageVolume", "DeleteVolume", {{"Num", u}}},
        {"Tovra_DiskDrive", "CreatePassThrough", passThrough},
        {"Tovra_DiskDrive", "ModifyPassThrough", passThrough},
        {"Tovra_DiskDrive", "DeletePassThrough", {{"enc", u}, {"slt", u}}},
        {"Tovra_EventLog", "ClearLog", none},
        {"Tovra_RAIDControllerSystem", "TimeCalibration", none},
        {"Tovra_DiskDrive", "TimeCalibration", none},
        {"Tovra_EventLog", "TimeCalibration", none},
        {"Tovra_StoragePool", "TimeCalibration", none},
        {"Tovra_StorageVolume", "TimeCalibration", none},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.cls) + "." + row.method);
        const MethodDecl *m = project().findMethod(row.cls, row.method);
        ASSERT_NE(m, nullptr);
        EXPECT_EQ(m->name, row.method);  // exact spelling: the providers compare case-sensitively
        EXPECT_EQ(m->returnType, CimType::String);
        Params actual;
        for (const ParameterDecl &p : m->params) {
            actual.emplace_back(p.name, typeText(p.type, p.isArray));
            EXPECT_TRUE(p.in && !p.out) << p.name;
        }
        EXPECT_EQ(actual, row.params);
    }
    // Instance-only classes offer no methods.
    for (const char *cls : {"Tovra_Chassis", "Tovra_DiskExtent", "Tovra_DefaultStorageSetting"})
        EXPECT_EQ(project().findMethod(cls, "TimeCalibration"), nullptr) << cls;
}

TEST(ProjectMof, PropertyTypesMatchWhatTheProvidersPublish) {
    const std::vector<std::tuple<const char *, const char *, const char *>> rows = {
        {"Tovra_RAIDControllerSystem", "MAC", "string"},
        {"Tovra_RAIDControllerSystem", "MemorySpeed", "uint32"},
        {"Tovra_RAIDControllerSystem", "OperationalStatus", "uint16[]"},
        {"Tovra_RAIDControllerSystem", "Description", "string"},
        {"Tovra_RegisteredProfile", "RegisteredOrganization", "uint16"},
        {"Tovra_RegisteredProfile", "AdvertiseTypes", "uint16[]"},
        {"Tovra_StoragePool", "DevArray", "uint8[]"},
        {"Tovra_StoragePool", "DevEncArray", "uint8[]"},
        {"Tovra_StoragePool", "Capacity", "uint64"},
        {"Tovra_StoragePool", "PoolID", "string"},
        {"Tovra_StoragePool", "RaidSetNumber", "uint8"},
        {"Tovra_StorageVolume", "StripeSize", "uint64"},
        {"Tovra_StorageVolume", "VolumeNo", "uint32"},
        {"Tovra_StorageVolume", "RaidSetNumber", "uint8"},
        {"Tovra_StorageVolume", "ElementName", "string"},
        {"Tovra_DefaultStorageSetting", "DeltaReservationGoal", "uint8"},
        {"Tovra_DefaultStorageSetting", "ParityLayout", "uint16"},
        {"Tovra_DefaultStorageSetting", "UserDataStripeDepthMax", "uint64"},
        {"Tovra_DefaultStorageSetting", "RAIDLevel", "uint32"},
        {"Tovra_DefaultStorageSetting", "Encryption", "uint16"},
        {"Tovra_DefaultStorageSetting", "ChangeableType", "uint16"},
        {"Tovra_DiskDrive", "NumberOfBlocks", "uint64"},
        {"Tovra_DiskDrive", "EnclosureNumber", "uint8"},
        {"Tovra_DiskDrive", "Tag", "string"},
        {"Tovra_DiskDrive", "RotationSpeed", "uint16"},
        // DMTF declares the slot number uint16; the provider sends one byte.
        {"Tovra_DiskDriveSlot", "Number", "uint16"},
        {"Tovra_DiskDriveSlot", "EnclosureNameRev", "string"},
        {"Tovra_DiskExtent", "NumberOfBlocks", "uint64"},
        {"Tovra_DiskExtent", "RaidSetNumber", "uint8"},
    };
    for (const auto &[cls, prop, type] : rows) EXPECT_EQ(typeOf(cls, prop), type) << cls << "." << prop;

    // The disk drive's names are used exactly, the cut "Threshol" included.
    for (const char *name :
         {"SMARTReadErrorRateThreshold", "SMARTSpinupTimeThreshol", "SMARTReallocationCountThreshol",
          "SMARTSeekErrorRateThreshol", "SMARTSpinupRetriesThreshol", "SMARTCalibrationRetriesThreshol",
          "DeviceTemperatureThreshol", "SSDReservedSpaceThreshol", "SSDWearingIndicatorThreshol",
          "SSDWearingIndicatorStatus"}) {
        const PropertyDecl *p = project().findProperty("Tovra_DiskDrive", name);
        ASSERT_NE(p, nullptr) << name;
        EXPECT_EQ(p->name, name);
        EXPECT_EQ(typeText(p->type, p->isArray), "uint8") << name;
    }
    EXPECT_EQ(project().findProperty("Tovra_DiskDrive", "SMARTSpinupTimeThreshold"), nullptr);
    for (const char *name : {"ReadErrorsRecoveredWDelay", "ReadTotalBytes", "WriteErrorsRecoveredWODelay",
                             "VerifyErrorsUnrecovered", "DefectPListBlockCount", "DefectGListBlockCount"})
        EXPECT_EQ(typeOf("Tovra_DiskDrive", name), "uint64") << name;
}
