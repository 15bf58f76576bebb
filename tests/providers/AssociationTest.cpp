// The association classes through the host against the simulated adapter:
// every association pairs exactly the instances its key rule pairs, in all
// seven operations; then the filters, the failure rules and the departures.
#include "Harness.h"

#include <AssociationHelpers.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>

using namespace harness;
namespace sim = tovra::sim;
using tovra::KeyRule;

namespace {

class Associations : public ProviderTest {};

const std::string kPool0 = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 000\"";
const std::string kPool1 = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 001\"";
const std::string kVolume0 =
    "tovra/cimv2:Tovra_StorageVolume.CreationClassName=\"Tovra_StorageVolume\",DeviceID=\"Volume Set # 000\","
    "SystemCreationClassName=\"Tovra_RAIDControllerSystem\",SystemName=\"TV12A0005531\"";
const std::string kAllocated = "Tovra_AllocatedFromStoragePool";

std::string refText(const Obj &o, const std::string &key) {
    const Val *v = o.key(key);
    return v != nullptr ? v->text : std::string();
}

std::set<std::string> pathsOf(const Answer &a) {
    std::set<std::string> out;
    for (const Obj &o : a.objects) out.insert(o.path);
    return out;
}

// ---- the pairs of every association ------------------------------------------

struct Catalogue {
    const char *assoc;
    const char *left, *leftRole, *leftKey;
    const char *right, *rightRole, *rightKey;
    KeyRule rule;
};

// Every association but the two whose departures are tested on their own.
const Catalogue kCatalogue[] = {
    {"Tovra_AllocatedFromStoragePool", "Tovra_StoragePool", "Antecedent", "RaidSetNumber", "Tovra_StorageVolume",
     "Dependent", "RaidSetNumber", KeyRule::Equal8},
    {"Tovra_ConcreteComponent", "Tovra_StoragePool", "GroupComponent", "RaidSetNumber", "Tovra_DiskExtent",
     "PartComponent", "RaidSetNumber", KeyRule::Equal8},
    {"Tovra_ElementSettingData", "Tovra_StorageVolume", "ManagedElement", "RAIDLevel", "Tovra_DefaultStorageSetting",
     "SettingData", "RAIDLevel", KeyRule::Equal32},
    {"Tovra_Container", "Tovra_Chassis", "GroupComponent", "Tag", "Tovra_DiskDriveSlot", "PartComponent",
     "EnclosureNameRev", KeyRule::SameText},
    {"Tovra_MediaPresent", "Tovra_DiskDrive", "Antecedent", "DeviceID", "Tovra_DiskExtent", "Dependent", "DeviceID",
     KeyRule::SameText},
    {"Tovra_HostedStoragePool", "Tovra_RAIDControllerSystem", "GroupComponent", "", "Tovra_StoragePool",
     "PartComponent", "", KeyRule::AllPairs},
    {"Tovra_SystemPackaging", "Tovra_RAIDControllerSystem", "Antecedent", "", "Tovra_Chassis", "Dependent", "",
     KeyRule::AllPairs},
    {"Tovra_SystemDeviceDiskDrive", "Tovra_RAIDControllerSystem", "GroupComponent", "", "Tovra_DiskDrive",
     "PartComponent", "", KeyRule::AllPairs},
    {"Tovra_SystemDeviceStorageVolume", "Tovra_RAIDControllerSystem", "GroupComponent", "", "Tovra_StorageVolume",
     "PartComponent", "", KeyRule::AllPairs},
    {"Tovra_PackageInConnector", "Tovra_PhysicalPackage", "Antecedent", "Tag", "Tovra_DiskDriveSlot", "Dependent",
     "Tag", KeyRule::SameText},
    {"Tovra_RealizesDiskDrive", "Tovra_PhysicalPackage", "Antecedent", "Tag", "Tovra_DiskDrive", "Dependent", "Tag",
     KeyRule::SameText},
    {"Tovra_ComputerSystemSoftwareIdentity", "Tovra_SoftwareIdentity", "Antecedent", "InstanceID",
     "Tovra_RAIDControllerSystem", "Dependent", "Name", KeyRule::LeftContainsRight},
    {"Tovra_DiskDriveSoftwareIdentity", "Tovra_SoftwareIdentity", "Antecedent", "InstanceID", "Tovra_DiskDrive",
     "Dependent", "DeviceID", KeyRule::LeftContainsRight},
    {"Tovra_LogicalIdentity", "Tovra_PortController", "SystemElement", "", "Tovra_RAIDControllerSystem",
     "SameElement", "", KeyRule::AllPairs},
    {"Tovra_SystemDeviceBattery", "Tovra_RAIDControllerSystem", "GroupComponent", "", "Tovra_Battery",
     "PartComponent", "", KeyRule::AllPairs},
    {"Tovra_SystemDeviceSASSATAPort", "Tovra_RAIDControllerSystem", "GroupComponent", "", "Tovra_SASSATAPort",
     "PartComponent", "", KeyRule::AllPairs},
    {"Tovra_SystemDeviceSoftwareIdentity", "Tovra_RAIDControllerSystem", "GroupComponent", "",
     "Tovra_SoftwareIdentity", "PartComponent", "", KeyRule::AllPairs},
};

bool expectedMatch(KeyRule rule, const Obj &l, const Obj &r, const Catalogue &c) {
    if (rule == KeyRule::AllPairs) return true;
    const Val *lv = l.prop(c.leftKey);
    const Val *rv = r.prop(c.rightKey);
    if (lv == nullptr || rv == nullptr) return false;
    switch (rule) {
        case KeyRule::Equal8: return (lv->number & 0xFF) == (rv->number & 0xFF);
        case KeyRule::Equal32: return (lv->number & 0xFFFFFFFF) == (rv->number & 0xFFFFFFFF);
        case KeyRule::SameText: return lv->text == rv->text;
        case KeyRule::LeftContainsRight: return lv->text.find(rv->text) != std::string::npos;
        default: return false;
    }
}

using Pair = std::pair<std::string, std::string>;  // left path, right path

TEST_F(Associations, EveryOperationPairsWhatTheKeyRulePairs) {
    for (const Catalogue &c : kCatalogue) {
        SCOPED_TRACE(c.assoc);
        const Answer lefts = enumInstances(c.left);
        const Answer rights = enumInstances(c.right);
        ASSERT_EQ(lefts.rc, CMPI_RC_OK);
        ASSERT_EQ(rights.rc, CMPI_RC_OK);
        ASSERT_FALSE(lefts.objects.empty());
        ASSERT_FALSE(rights.objects.empty());
        // Right-end instances outside, the matching left-end ones inside.
        std::vector<Pair> expected;
        for (const Obj &r : rights.objects)
            for (const Obj &l : lefts.objects)
                if (expectedMatch(c.rule, l, r, c)) expected.emplace_back(l.path, r.path);
        ASSERT_FALSE(expected.empty());

        const Answer names = enumNames(c.assoc);
        ASSERT_EQ(names.rc, CMPI_RC_OK);
        std::vector<Pair> got;
        for (const Obj &o : names.objects) {
            EXPECT_EQ(o.ns, kNs);
            got.emplace_back(refText(o, c.leftRole), refText(o, c.rightRole));
        }
        EXPECT_EQ(got, expected);
        const Answer all = enumInstances(c.assoc);
        ASSERT_EQ(all.objects.size(), expected.size());
        EXPECT_EQ(all.objects.front().prop(c.leftRole)->text, expected.front().first);

        // From each end of the first pair, the far ends the rule gives.
        for (bool fromLeft : {true, false}) {
            const std::string source = fromLeft ? expected.front().first : expected.front().second;
            std::set<std::string> far;
            for (const Pair &p : expected)
                if ((fromLeft ? p.first : p.second) == source) far.insert(fromLeft ? p.second : p.first);
            const AssocFilter only{c.assoc, "", "", ""};
            const Answer an = associatorNames(source, only);
            EXPECT_EQ(an.rc, CMPI_RC_OK);
            EXPECT_EQ(pathsOf(an), far);
            EXPECT_EQ(pathsOf(associators(source, only)), far);
            const Answer rn = referenceNames(source, c.assoc);
            ASSERT_EQ(rn.objects.size(), far.size());
            for (const Obj &ref : rn.objects) {
                EXPECT_EQ(refText(ref, fromLeft ? c.leftRole : c.rightRole), source);
                EXPECT_TRUE(far.count(refText(ref, fromLeft ? c.rightRole : c.leftRole)));
            }
            const Answer refs = references(source, c.assoc);
            ASSERT_EQ(refs.objects.size(), far.size());
            EXPECT_EQ(refs.objects.front().prop(fromLeft ? c.leftRole : c.rightRole)->text, source);
        }
    }
}

// ---- what narrows an answer ------------------------------------------------------

TEST_F(Associations, OnlyTheResultClassNarrowsAssociators) {
    struct Case {
        const char *resultClass, *role, *resultRole;
        size_t volumes;
    };
    const Case cases[] = {
        {"", "", "", 2},
        {"CIM_StorageVolume", "", "", 2},
        {"Tovra_StorageVolume", "", "", 2},
        {"tOVRA_sTORAGEvOLUME", "", "", 2},
        {"CIM_StorageExtent", "", "", 0},  // a superclass of the accepted one
        {"Tovra_DiskExtent", "", "", 0},
        {"", "Dependent", "Antecedent", 2},  // roles are not consulted
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.resultClass + std::string("/") + c.role);
        const AssocFilter f{kAllocated, c.resultClass, c.role, c.resultRole};
        const Answer names = associatorNames(kPool0, f);
        EXPECT_EQ(names.rc, CMPI_RC_OK);
        EXPECT_EQ(names.objects.size(), c.volumes);
        EXPECT_EQ(associators(kPool0, f).objects.size(), c.volumes);
    }
    EXPECT_EQ(associatorNames(kVolume0, {kAllocated, "cim_storagepool", "", ""}).objects.size(), 1u);
}

TEST_F(Associations, TheRoleNarrowsReferences) {
    struct Case {
        std::string source, role, assocClass;
        size_t refs;
    };
    const Case cases[] = {
        {kPool0, "", kAllocated, 2},
        {kPool0, "Antecedent", kAllocated, 2},
        {kPool0, "aNTECEDENT", kAllocated, 2},
        {kPool0, "Dependent", kAllocated, 0},
        {kPool0, "GroupComponent", kAllocated, 0},
        {kPool0, "", "CIM_AllocatedFromStoragePool", 2},
        {kVolume0, "Dependent", kAllocated, 1},
        {kVolume0, "Antecedent", kAllocated, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.source + " " + c.role + " " + c.assocClass);
        const Answer names = referenceNames(c.source, c.assocClass, c.role);
        EXPECT_EQ(names.rc, CMPI_RC_OK);
        EXPECT_EQ(names.objects.size(), c.refs);
        EXPECT_EQ(references(c.source, c.assocClass, c.role).objects.size(), c.refs);
    }
}

TEST_F(Associations, EmptyAnswersAreSuccessful) {
    sim::withModel([](sim::Model &m) { m.volumes[2].reset(); });  // pool 1's only volume
    const AssocFilter only{kAllocated, "", "", ""};
    for (const Answer &a : {associatorNames(kPool1, only), associators(kPool1, only),
                            referenceNames(kPool1, kAllocated), references(kPool1, kAllocated)}) {
        EXPECT_EQ(a.rc, CMPI_RC_OK);
        EXPECT_TRUE(a.objects.empty());
    }
    // A source that does not exist ends the request quietly.
    const std::string gone = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 007\"";
    EXPECT_TRUE(associatorNames(gone, only).objects.empty());
    EXPECT_NE(referenceNames(gone, kAllocated).rc, CMPI_RC_OK) << "the source's own not-found";
}

// A result that counts what a provider returns through it, for calls made
// straight into a module's table.
struct Counted {
    int paths = 0, instances = 0, done = 0;
};

CMPIStatus counted(const CMPIResult *r, int Counted::*field) {
    ++(static_cast<Counted *>(r->hdl)->*field);
    return CMPIStatus{CMPI_RC_OK, nullptr};
}

CMPIResultFT countingFT = {
    CMPICurrentVersion,
    [](CMPIResult *) { return CMPIStatus{CMPI_RC_OK, nullptr}; },
    [](const CMPIResult *, CMPIStatus *) -> CMPIResult * { return nullptr; },
    [](const CMPIResult *, const CMPIValue *, CMPIType) { return CMPIStatus{CMPI_RC_ERR_NOT_SUPPORTED, nullptr}; },
    [](const CMPIResult *r, const CMPIInstance *) { return counted(r, &Counted::instances); },
    [](const CMPIResult *r, const CMPIObjectPath *) { return counted(r, &Counted::paths); },
    [](const CMPIResult *r) { return counted(r, &Counted::done); },
    [](const CMPIResult *, const CMPIError *) { return CMPIStatus{CMPI_RC_ERR_NOT_SUPPORTED, nullptr}; },
};

TEST_F(Associations, ASourceOfNeitherEndYieldsNothing) {
    const std::string module = "TovraAllocatedFromStoragePoolProvider";
    auto *assoc = static_cast<CMPIAssociationMI *>(factory(module + "_Create_AssociationMI"));
    auto *inst = static_cast<CMPIInstanceMI *>(factory(module + "_Create_InstanceMI"));
    ASSERT_NE(assoc, nullptr);
    ASSERT_NE(inst, nullptr);
    inRequest([&](const CMPIBroker *broker, const CMPIContext *ctx) {
        CMPIObjectPath *disk = CMNewObjectPath(broker, kNs, "Tovra_DiskDrive", nullptr);
        CMAddKey(disk, "DeviceID", "Z1Z0A1B2", CMPI_chars);
        using Call = std::function<CMPIStatus(const CMPIResult *)>;
        const std::pair<const char *, Call> calls[] = {
            {"associatorNames",
             [&](const CMPIResult *r) {
                 return assoc->ft->associatorNames(assoc, ctx, r, disk, nullptr, nullptr, nullptr, nullptr);
             }},
            {"associators",
             [&](const CMPIResult *r) {
                 return assoc->ft->associators(assoc, ctx, r, disk, nullptr, nullptr, nullptr, nullptr, nullptr);
             }},
            {"referenceNames",
             [&](const CMPIResult *r) { return assoc->ft->referenceNames(assoc, ctx, r, disk, nullptr, nullptr); }},
            {"references",
             [&](const CMPIResult *r) {
                 return assoc->ft->references(assoc, ctx, r, disk, nullptr, nullptr, nullptr);
             }},
            {"enumInstanceNames",
             [&](const CMPIResult *r) { return inst->ft->enumerateInstanceNames(inst, ctx, r, disk); }},
        };
        for (const auto &[name, call] : calls) {
            SCOPED_TRACE(name);
            Counted seen;
            CMPIResult result{&seen, &countingFT};
            EXPECT_EQ(call(&result).rc, CMPI_RC_OK);
            EXPECT_EQ(seen.paths + seen.instances, 0);
            EXPECT_EQ(seen.done, 1);
        }
    });
    EXPECT_TRUE(logged("TovraAllocatedFromStoragePoolProviderEnumInstanceNames: CMClassPathIsNotA_SuperClassName"));
}

// ---- the answers' shapes -----------------------------------------------------------

TEST_F(Associations, EachReferenceCarriesItsOwnPair) {
    const Answer names = referenceNames(kPool0, kAllocated);
    ASSERT_EQ(names.objects.size(), 2u);
    EXPECT_EQ(refText(names.objects[0], "Antecedent"), refText(names.objects[1], "Antecedent"));
    EXPECT_NE(refText(names.objects[0], "Dependent"), refText(names.objects[1], "Dependent"));
    for (const Obj &o : names.objects) EXPECT_EQ(o.className, kAllocated);
    const Answer refs = references(kPool0, kAllocated);
    ASSERT_EQ(refs.objects.size(), 2u);
    EXPECT_NE(refs.objects[0].prop("Dependent")->text, refs.objects[1].prop("Dependent")->text);
}

TEST_F(Associations, GetInstanceNamesItsReferencesAfterTheEndClasses) {
    const Answer names = enumNames(kAllocated);
    ASSERT_FALSE(names.objects.empty());
    const Obj &pair = names.objects.front();
    const Answer got = getInstance(kAllocated, {{"Antecedent", In::ref(refText(pair, "Antecedent"))},
                                                {"Dependent", In::ref(refText(pair, "Dependent"))}});
    ASSERT_EQ(got.rc, CMPI_RC_OK);
    ASSERT_EQ(got.objects.size(), 1u);
    const Obj &inst = got.objects.front();
    EXPECT_EQ(inst.text("Tovra_StoragePool"), "") << "a reference, not text";
    ASSERT_TRUE(inst.has("Tovra_StoragePool"));
    ASSERT_TRUE(inst.has("Tovra_StorageVolume"));
    EXPECT_EQ(inst.prop("Tovra_StoragePool")->text, refText(pair, "Antecedent"));
    EXPECT_FALSE(inst.has("Antecedent"));
    EXPECT_EQ(inst.ns, kNs) << "the left reference's namespace";
}

TEST_F(Associations, GetInstanceWithoutBothReferencesAnswersNothing) {
    struct Case {
        const char *assoc;
        Keys keys;
        const char *line;  // logged, or "" for silence
    };
    const Case cases[] = {
        {"Tovra_AllocatedFromStoragePool", {{"Antecedent", In::ref(kPool0)}}, "CMPI_RC_ERR_FAILED"},
        {"Tovra_AllocatedFromStoragePool", {{"Antecedent", In::ref(kPool0)}, {"Dependent", In::null()}},
         "CMPI_RC_ERR_FAILED"},
        {"Tovra_SystemDeviceStorageVolume", {}, "CMPI_RC_ERR_FAILED"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.assoc);
        sim::clearLog();
        const Answer a = getInstance(c.assoc, c.keys);
        EXPECT_TRUE(a.objects.empty());
        EXPECT_TRUE(logged(std::string("Provider") + "GetInstance: " + c.line));
    }
}

// ---- the departures ---------------------------------------------------------------------

const std::string kPortController =
    "tovra/cimv2:Tovra_PortController.CreationClassName=\"Tovra_PortController\",DeviceID=\"TV12A0005531\","
    "SystemCreationClassName=\"Tovra_RAIDControllerSystem\",SystemName=\"TV12A0005531\"";

TEST_F(Associations, TheProfileIsFoundInTheInteropNamespace) {
    const std::string assoc = "Tovra_ControllerConformsToProfile";
    const Answer profiles = associatorNames(kPortController, {assoc, "", "", ""});
    ASSERT_EQ(profiles.rc, CMPI_RC_OK);
    ASSERT_EQ(profiles.objects.size(), 1u);
    EXPECT_EQ(profiles.objects[0].ns, kInterop);
    EXPECT_EQ(profiles.objects[0].className, "Tovra_RegisteredProfile");
    const Answer all = enumNames(assoc);
    ASSERT_EQ(all.objects.size(), 1u);
    EXPECT_EQ(all.objects[0].ns, kNs) << "the request's namespace";
    EXPECT_EQ(refText(all.objects[0], "ConformantStandard"), profiles.objects[0].path);
    EXPECT_EQ(refText(all.objects[0], "ManagedElement"), enumInstances("Tovra_PortController").objects.at(0).path);
    EXPECT_EQ(enumInstances(assoc).objects.size(), 1u);
}

TEST_F(Associations, APackageTagThatContainsThePortControllerIdPairsOnlyInEnumerations) {
    // Disk packages are tagged "enclosure * 256 + slot": with the serial "25"
    // the tags 256 to 267 contain it, and only the card's own tag equals it.
    sim::withModel([](sim::Model &m) { m.controller.serial = "25"; });
    const std::string controller =
        "tovra/cimv2:Tovra_PortController.CreationClassName=\"Tovra_PortController\",DeviceID=\"25\","
        "SystemCreationClassName=\"Tovra_RAIDControllerSystem\",SystemName=\"25\"";
    const std::string assoc = "Tovra_RealizesPortController";
    const Answer packages = associatorNames(controller, {assoc, "", "", ""});
    ASSERT_EQ(packages.rc, CMPI_RC_OK);
    ASSERT_EQ(packages.objects.size(), 1u);
    EXPECT_EQ(referenceNames(controller, assoc).objects.size(), 1u);
    const Answer pairs = enumNames(assoc);
    ASSERT_EQ(pairs.rc, CMPI_RC_OK);
    EXPECT_GT(pairs.objects.size(), 1u);
    for (const Obj &o : pairs.objects) {
        EXPECT_EQ(refText(o, "Dependent"), enumInstances("Tovra_PortController").objects.at(0).path);
        EXPECT_NE(refText(o, "Antecedent").find("25"), std::string::npos);
    }
    EXPECT_EQ(enumInstances(assoc).objects.size(), pairs.objects.size());
}

// ---- failures -----------------------------------------------------------------------

TEST_F(Associations, ABrokerFailureEndsAnEnumerationWithTheResultsSoFar) {
    // Opens: the extents, then the disks once per extent; the third fails.
    sim::addFault({.kind = sim::FaultKind::OpenFail, .nth = 3, .count = 1});
    const Answer a = enumNames("Tovra_MediaPresent");
    EXPECT_EQ(a.rc, CMPI_RC_ERROR_SYSTEM);
    EXPECT_EQ(a.objects.size(), 1u);
    EXPECT_TRUE(logged("TovraMediaPresentProviderEnumInstanceNames: Not Return CMPI_RC_OK(0x64)"));
    sim::clearFaults();
    EXPECT_EQ(enumNames("Tovra_MediaPresent").rc, CMPI_RC_OK);
}

TEST_F(Associations, AFarEndThatCannotBeEnumeratedFailsTheRequest) {
    sim::addFault({.kind = sim::FaultKind::OpenFail, .nth = 1, .count = 1});
    const Answer a = associatorNames(kPool0, {kAllocated, "", "", ""});
    EXPECT_EQ(a.rc, CMPI_RC_ERROR_SYSTEM) << "the volume enumeration's status";
    EXPECT_TRUE(a.objects.empty());
    EXPECT_TRUE(logged("TovraAllocatedFromStoragePoolProviderAssociatorNames: Not Return CMPI_RC_OK(0x64)"));
}

// ---- the key rules ---------------------------------------------------------------------

CMPIData number(CMPIType type, uint64_t v) {
    CMPIData d{};
    d.type = type;
    d.state = CMPI_goodValue;
    d.value.uint64 = v;
    return d;
}

CMPIData chars(const char *text) {
    CMPIData d{};
    d.type = CMPI_chars;
    d.state = CMPI_goodValue;
    d.value.chars = const_cast<char *>(text);
    return d;
}

TEST(KeyRules, CompareAsTheirRuleSays) {
    struct Case {
        KeyRule rule;
        CMPIData left, right;
        bool typed, holds;
    };
    const Case cases[] = {
        {KeyRule::Equal8, number(CMPI_uint32, 0x105), number(CMPI_uint8, 0x05), false, true},  // low byte only
        {KeyRule::Equal8, number(CMPI_uint8, 4), number(CMPI_uint8, 5), false, false},
        {KeyRule::Equal32, number(CMPI_uint64, 0x100000006), number(CMPI_uint32, 6), false, true},
        {KeyRule::Equal32, number(CMPI_uint32, 0x106), number(CMPI_uint32, 6), false, false},
        {KeyRule::SameText, chars("Encl A"), chars("Encl A"), false, true},
        {KeyRule::SameText, chars("Encl A"), chars("encl a"), false, false},  // case counts
        {KeyRule::SameText, chars("Encl A"), chars("Encl A"), true, false},   // chars is not string
        {KeyRule::LeftContainsRight, chars("FW:TV12A0005531"), chars("TV12A0005531"), false, true},
        {KeyRule::LeftContainsRight, chars("TV12"), chars("TV12A0005531"), false, false},
        {KeyRule::LeftContainsRight, chars("anything"), chars(""), false, true},
        {KeyRule::RightContainsLeft, chars("PC0"), chars("Package PC0"), false, true},
        {KeyRule::RightContainsLeft, chars("Package PC0"), chars("PC0"), false, false},
        {KeyRule::AllPairs, CMPIData{}, CMPIData{}, true, true},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        const Case &c = cases[i];
        EXPECT_EQ(tovra::keyRuleHolds(c.rule, c.left, c.right, c.typed), c.holds);
    }
}

}  // namespace
