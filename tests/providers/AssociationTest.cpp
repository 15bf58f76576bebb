// The association classes through the host against the "pairs" adapter, whose
// key values make the rules disagree: names that contain each other or differ
// only in case, serials that contain each other, tags that contain the
// controller's serial "25". The expected pairs are written out, so a module
// with another rule, role or superclass fails.
#include "DirectCall.h"
#include "Harness.h"

#include <AssociationHelpers.h>

#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <memory>
#include <optional>

using namespace harness;
namespace sim = tovra::sim;
using tovra::KeyRule;

namespace {

class Associations : public ProviderTest {
protected:
    void SetUp() override {
        ProviderTest::SetUp();
        sim::loadScenario("pairs");
    }
};

using Ids = std::vector<std::pair<std::string, std::string>>;  // (left id, right id)

// The identifying key value of a path: DeviceID, Tag, InstanceID or Name.
std::string idOf(const std::string &path) {
    for (const char *key : {"DeviceID", "Tag", "InstanceID", "Name"}) {
        for (size_t at = path.find(std::string(key) + "=\""); at != std::string::npos;
             at = path.find(std::string(key) + "=\"", at + 1)) {
            if (at == 0 || (path[at - 1] != '.' && path[at - 1] != ',')) continue;
            const size_t from = at + std::string(key).size() + 2;
            return path.substr(from, path.find('"', from) - from);
        }
    }
    return path;
}

std::string refText(const Obj &o, const std::string &name) {
    const Val *v = o.key(name) != nullptr ? o.key(name) : o.prop(name);
    return v != nullptr ? v->text : std::string();
}

std::vector<std::string> sortedIds(const Answer &a) {
    std::vector<std::string> out;
    for (const Obj &o : a.objects) out.push_back(idOf(o.path));
    std::sort(out.begin(), out.end());
    return out;
}

struct Assoc {
    const char *cls;
    const char *leftRole, *leftSuper, *rightRole, *rightSuper;
    Ids pairs;           // the enumerations' pairs, in their order
    Ids associated = {};  // the associator and reference operations' pairs, where they differ
};

const char *const kCtl = "25";
const char *const kProfileId = "Tovra: Host Hardware RAID Controller_1.2.0";

const Assoc kAssocs[] = {
    {"Tovra_AllocatedFromStoragePool", "Antecedent", "CIM_StoragePool", "Dependent", "CIM_StorageVolume",
     {{"Raid Set # 000", "Volume Set # 000"}, {"Raid Set # 000", "Volume Set # 001"}, {"Raid Set # 001", "Volume Set # 002"}}},
    {"Tovra_ConcreteComponent", "GroupComponent", "CIM_StoragePool", "PartComponent", "CIM_StorageExtent",
     {{"Raid Set # 000", "PAIR1"}, {"Raid Set # 000", "PAIR2"}, {"Raid Set # 001", "PAIR3"}, {"Raid Set # 002", "PAIR4"}}},
    {"Tovra_ElementSettingData", "ManagedElement", "CIM_StorageVolume", "SettingData", "CIM_StorageSetting",
     {{"Volume Set # 001", "RAID 0"}, {"Volume Set # 002", "RAID 0"}, {"Volume Set # 000", "RAID 5"}}},
    {"Tovra_Container", "GroupComponent", "CIM_Chassis", "PartComponent", "CIM_Slot",
     {{"Expander0210", "0"}, {"Expander0210", "1"}, {"TV-8012 Expander0210", "256"}, {"TV-8012 Expander0210", "257"},
      {"tv-8012 expander0210", "512"}}},
    {"Tovra_MediaPresent", "Antecedent", "CIM_DiskDrive", "Dependent", "CIM_StorageExtent",
     {{"PAIR1", "PAIR1"}, {"PAIR12", "PAIR12"}, {"PAIR2", "PAIR2"}, {"PAIR3", "PAIR3"}, {"PAIR4", "PAIR4"}}},
    {"Tovra_PackageInConnector", "Antecedent", "CIM_PhysicalPackage", "Dependent", "CIM_Slot",
     {{"0", "0"}, {"1", "1"}, {"256", "256"}, {"257", "257"}, {"512", "512"}}},
    {"Tovra_RealizesDiskDrive", "Antecedent", "CIM_PhysicalPackage", "Dependent", "CIM_DiskDrive",
     {{"0", "PAIR1"}, {"1", "PAIR12"}, {"256", "PAIR2"}, {"257", "PAIR3"}, {"512", "PAIR4"}}},
    {"Tovra_RealizesPortController", "Dependent", "CIM_PortController", "Antecedent", "CIM_PhysicalPackage",
     {{kCtl, "25"}, {kCtl, "256"}, {kCtl, "257"}}, {{kCtl, "25"}}},
    {"Tovra_ComputerSystemSoftwareIdentity", "Antecedent", "CIM_SoftwareIdentity", "Dependent", "CIM_ComputerSystem",
     {{"Tovra:25:Firmware", kCtl}, {"Tovra:25:BootCode", kCtl}, {"Tovra:25:Driver", kCtl}}},
    {"Tovra_DiskDriveSoftwareIdentity", "Antecedent", "CIM_SoftwareIdentity", "Dependent", "CIM_DiskDrive",
     {{"Tovra:PAIR1:Firmware", "PAIR1"}, {"Tovra:PAIR12:Firmware", "PAIR1"}, {"Tovra:PAIR12:Firmware", "PAIR12"},
      {"Tovra:PAIR2:Firmware", "PAIR2"}, {"Tovra:PAIR3:Firmware", "PAIR3"}, {"Tovra:PAIR4:Firmware", "PAIR4"}}},
    {"Tovra_HostedStoragePool", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_StoragePool",
     {{kCtl, "Raid Set # 000"}, {kCtl, "Raid Set # 001"}, {kCtl, "Raid Set # 002"}}},
    {"Tovra_LogicalIdentity", "SystemElement", "CIM_PortController", "SameElement", "CIM_ComputerSystem", {{kCtl, kCtl}}},
    {"Tovra_SystemPackaging", "Antecedent", "CIM_ComputerSystem", "Dependent", "CIM_Chassis",
     {{kCtl, "Expander0210"}, {kCtl, "TV-8012 Expander0210"}, {kCtl, "tv-8012 expander0210"}}},
    {"Tovra_SystemDeviceBattery", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_Battery",
     {{kCtl, "Battery0"}}},
    {"Tovra_SystemDeviceDiskDrive", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_DiskDrive",
     {{kCtl, "PAIR1"}, {kCtl, "PAIR12"}, {kCtl, "PAIR2"}, {kCtl, "PAIR3"}, {kCtl, "PAIR4"}}},
    {"Tovra_SystemDeviceSASSATAPort", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_SASSATAPort",
     {{kCtl, "Port1"}}},
    {"Tovra_SystemDeviceStorageVolume", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_StorageVolume",
     {{kCtl, "Volume Set # 000"}, {kCtl, "Volume Set # 001"}, {kCtl, "Volume Set # 002"}}},
    {"Tovra_SystemDeviceSoftwareIdentity", "GroupComponent", "CIM_ComputerSystem", "PartComponent",
     "CIM_SoftwareIdentity",
     {{kCtl, "Tovra:25:Firmware"}, {kCtl, "Tovra:25:BootCode"}, {kCtl, "Tovra:25:Driver"},
      {kCtl, "Tovra:PAIR1:Firmware"}, {kCtl, "Tovra:PAIR12:Firmware"}, {kCtl, "Tovra:PAIR2:Firmware"},
      {kCtl, "Tovra:PAIR3:Firmware"}, {kCtl, "Tovra:PAIR4:Firmware"}}},
    {"Tovra_ControllerConformsToProfile", "ManagedElement", "CIM_PortController", "ConformantStandard",
     "CIM_RegisteredProfile", {{kCtl, kProfileId}}},
};

// The profile lives in another namespace than the association: the host
// brings no request from it, and the references of a port controller look
// for it in the controller's namespace (below).
bool profile(const Assoc &a) { return std::string(a.cls) == "Tovra_ControllerConformsToProfile"; }

std::string swapCase(std::string s) {
    for (char &c : s) c = static_cast<char>(std::isupper(static_cast<unsigned char>(c)) ? std::tolower(c) : std::toupper(c));
    return s;
}

// From every instance of both ends: the far ends of its pairs, through the four
// association operations; the far end's superclass and the source's own role,
// in any case, narrow nothing, the source end's superclass and the far role
// everything.
void expectFarEnds(const Assoc &a, bool fromLeft, const std::string &source, const Ids &pairs) {
    const std::string id = idOf(source);
    SCOPED_TRACE(std::string(fromLeft ? "from left " : "from right ") + id);
    std::vector<std::string> far;
    for (const auto &[l, r] : pairs)
        if ((fromLeft ? l : r) == id) far.push_back(fromLeft ? r : l);
    std::sort(far.begin(), far.end());
    const std::string farSuper = fromLeft ? a.rightSuper : a.leftSuper;
    const std::string ownSuper = fromLeft ? a.leftSuper : a.rightSuper;
    const std::string ownRole = fromLeft ? a.leftRole : a.rightRole;
    const std::string farRole = fromLeft ? a.rightRole : a.leftRole;
    const Answer names = associatorNames(source, {a.cls, "", "", ""});
    EXPECT_EQ(names.rc, CMPI_RC_OK);
    EXPECT_EQ(sortedIds(names), far);
    EXPECT_EQ(sortedIds(associators(source, {a.cls, "", "", ""})), far);
    EXPECT_EQ(sortedIds(associatorNames(source, {a.cls, swapCase(farSuper), "", ""})), far);
    EXPECT_TRUE(associatorNames(source, {a.cls, ownSuper, "", ""}).objects.empty());
    if (profile(a)) return;
    for (const bool instances : {false, true}) {
        const std::string role = swapCase(ownRole);
        const Answer refs = instances ? references(source, a.cls, role) : referenceNames(source, a.cls, role);
        EXPECT_EQ(refs.rc, CMPI_RC_OK);
        std::vector<std::string> got;
        for (const Obj &o : refs.objects) {
            EXPECT_EQ(refText(o, ownRole), source);
            got.push_back(idOf(refText(o, farRole)));
        }
        std::sort(got.begin(), got.end());
        EXPECT_EQ(got, far) << (instances ? "References" : "ReferenceNames");
    }
    EXPECT_TRUE(referenceNames(source, a.cls, farRole).objects.empty());
}

TEST_F(Associations, EveryOperationPairsTheWrittenPairs) {
    for (const Assoc &a : kAssocs) {
        SCOPED_TRACE(a.cls);
        std::map<std::string, std::string> lefts, rights;  // id -> path
        for (const bool instances : {false, true}) {
            const Answer all = instances ? enumInstances(a.cls) : enumNames(a.cls);
            ASSERT_EQ(all.rc, CMPI_RC_OK);
            Ids got;
            for (const Obj &o : all.objects) {
                EXPECT_EQ(o.ns, kNs);
                const std::string l = refText(o, a.leftRole), r = refText(o, a.rightRole);
                got.emplace_back(idOf(l), idOf(r));
                lefts[idOf(l)] = l;
                rights[idOf(r)] = r;
            }
            EXPECT_EQ(got, a.pairs) << (instances ? "EnumInstances" : "EnumInstanceNames");
        }
        const Ids &associated = a.associated.empty() ? a.pairs : a.associated;
        for (const auto &[id, path] : lefts) expectFarEnds(a, true, path, associated);
        for (const auto &[id, path] : rights)
            if (!profile(a)) expectFarEnds(a, false, path, associated);
    }
}

// The tables a CIMOM sees: names, version 200, cleanup, and the write
// operations and queries answering 7.
TEST_F(Associations, FunctionTablesOfEveryModule) {
    for (const Assoc &a : kAssocs) {
        const std::string module = std::string(a.cls).substr(6);
        SCOPED_TRACE(module);
        const std::string prefix = "Tovra" + module + "Provider";
        auto *assoc = static_cast<CMPIAssociationMI *>(factory(prefix + "_Create_AssociationMI"));
        auto *inst = static_cast<CMPIInstanceMI *>(factory(prefix + "_Create_InstanceMI"));
        ASSERT_NE(assoc, nullptr);
        ASSERT_NE(inst, nullptr);
        EXPECT_EQ(factory(prefix + "_Create_MethodMI"), nullptr);
        EXPECT_STREQ(assoc->ft->miName, ("association" + prefix).c_str());
        EXPECT_STREQ(inst->ft->miName, ("instance" + prefix).c_str());
        for (const int version : {assoc->ft->ftVersion, assoc->ft->miVersion, inst->ft->ftVersion, inst->ft->miVersion})
            EXPECT_EQ(version, 200);
        const bool profile = module == "ControllerConformsToProfile";
        EXPECT_EQ(assoc->ft->cleanup(assoc, nullptr, 0).rc, profile ? CMPI_RC_OK : CMPI_RC_NEVER_UNLOAD);
        EXPECT_EQ(assoc->ft->cleanup(assoc, nullptr, 1).rc, CMPI_RC_OK);
        EXPECT_EQ(inst->ft->cleanup(inst, nullptr, 0).rc, CMPI_RC_NEVER_UNLOAD);
        EXPECT_EQ(inst->ft->createInstance(inst, nullptr, nullptr, nullptr, nullptr).rc, CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(inst->ft->modifyInstance(inst, nullptr, nullptr, nullptr, nullptr, nullptr).rc,
                  CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(inst->ft->deleteInstance(inst, nullptr, nullptr, nullptr).rc, CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(inst->ft->execQuery(inst, nullptr, nullptr, nullptr, "select *", "WQL").rc, CMPI_RC_ERR_NOT_SUPPORTED);
    }
}

const std::string kPool0 = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 000\"";
const std::string kPool2 = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 002\"";
const std::string kPortController =
    "tovra/cimv2:Tovra_PortController.CreationClassName=\"Tovra_PortController\",DeviceID=\"25\","
    "SystemCreationClassName=\"Tovra_RAIDControllerSystem\",SystemName=\"25\"";
const std::string kAllocated = "Tovra_AllocatedFromStoragePool";

// What narrows or empties an answer. Beyond the far ends' own filters: a
// superclass of the accepted result class narrows to nothing, roles do not
// narrow associators, the association class narrows both by its superclass.
// A pool without volumes answers an empty success; a source that does not
// exist ends the request with the source's own status, except where the
// associators do not fetch the source; the profile's references are looked
// for in the port controller's namespace.
TEST_F(Associations, NarrowedAndEmptyAnswers) {
    struct Case {
        std::string source;
        AssocFilter filter;
        CMPIrc rc;
        size_t associators;
        CMPIrc referencesRc;
        size_t references;
    };
    const std::string gonePool = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 007\"";
    std::string goneController = kPortController;
    goneController.replace(goneController.find("DeviceID=\"25\""), 13, "DeviceID=\"99\"");
    const CMPIrc ok = CMPI_RC_OK, notFound = CMPI_RC_ERR_NOT_FOUND;
    const std::string profile = "Tovra_ControllerConformsToProfile";
    const Case cases[] = {
        {kPool0, {kAllocated, "CIM_StorageExtent", "", ""}, ok, 0, ok, 2},
        {kPool0, {kAllocated, "", "Dependent", "Antecedent"}, ok, 2, ok, 0},
        {kPool0, {"CIM_AllocatedFromStoragePool", "", "", ""}, ok, 2, ok, 2},
        {kPool0, {"Tovra_HostedStoragePool", "Tovra_StorageVolume", "", ""}, ok, 0, ok, 1},
        {kPool2, {kAllocated, "", "", ""}, ok, 0, ok, 0},
        {gonePool, {kAllocated, "", "", ""}, notFound, 0, notFound, 0},
        {gonePool, {"Tovra_HostedStoragePool", "", "", ""}, notFound, 0, notFound, 0},
        {goneController, {profile, "", "", ""}, ok, 1, notFound, 0},
        {kPortController, {profile, "", "", ""}, ok, 1, CMPI_RC_ERR_NOT_SUPPORTED, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.filter.assocClass + " " + c.filter.resultClass + " " + c.filter.role + " from " + c.source);
        const Answer names = associatorNames(c.source, c.filter);
        EXPECT_EQ(names.rc, c.rc);
        EXPECT_EQ(names.objects.size(), c.associators);
        EXPECT_EQ(associators(c.source, c.filter).objects.size(), c.associators);
        for (const Answer &refs : {referenceNames(c.source, c.filter.assocClass, c.filter.role),
                                   references(c.source, c.filter.assocClass, c.filter.role)}) {
            EXPECT_EQ(refs.rc, c.referencesRc);
            EXPECT_EQ(refs.objects.size(), c.references);
        }
    }
}

// ---- calls straight into a module's tables -------------------------------------

// What a module returned (DirectCall.h), with each reference as the
// identifying key value of its path.
using Returned = std::vector<std::string>;
std::vector<Returned> returned(const direct::RecordingResult &result) {
    std::vector<Returned> out = result.outcome.objects;
    for (Returned &o : out)
        for (std::string &s : o)
            if (const size_t eq = s.find('='); eq != std::string::npos) s = s.substr(0, eq + 1) + idOf(s.substr(eq + 1));
    return out;
}

std::string charsOf(CMPIString *s) { return s != nullptr ? CMGetCharsPtr(s, nullptr) : ""; }

// A path from "ns:Class.Key=\"value\"" (one key at most).
CMPIObjectPath *pathFrom(const CMPIBroker *broker, const std::string &text) {
    const size_t colon = text.find(':'), dot = text.find('.', colon);
    CMPIObjectPath *op =
        CMNewObjectPath(broker, text.substr(0, colon).c_str(), text.substr(colon + 1, dot - colon - 1).c_str(), nullptr);
    if (dot != std::string::npos) {
        const size_t eq = text.find('=', dot);
        CMAddKey(op, text.substr(dot + 1, eq - dot - 1).c_str(), text.substr(eq + 2, text.size() - eq - 3).c_str(),
                 CMPI_chars);
    }
    return op;
}

enum class Op { AssociatorNames, Associators, ReferenceNames, References, EnumNames, EnumInstances, GetInstance };

CMPIStatus call(Op op, CMPIAssociationMI *a, CMPIInstanceMI *i, const CMPIContext *ctx, const CMPIResult *r,
                const CMPIObjectPath *cop, const char **props) {
    switch (op) {
        case Op::AssociatorNames: return a->ft->associatorNames(a, ctx, r, cop, nullptr, nullptr, nullptr, nullptr);
        case Op::Associators: return a->ft->associators(a, ctx, r, cop, nullptr, nullptr, nullptr, nullptr, props);
        case Op::ReferenceNames: return a->ft->referenceNames(a, ctx, r, cop, nullptr, nullptr);
        case Op::References: return a->ft->references(a, ctx, r, cop, nullptr, nullptr, props);
        case Op::EnumNames: return i->ft->enumerateInstanceNames(i, ctx, r, cop);
        case Op::EnumInstances: return i->ft->enumerateInstances(i, ctx, r, cop, props);
        case Op::GetInstance: return i->ft->getInstance(i, ctx, r, cop, props);
    }
    return CMPIStatus{CMPI_RC_ERR_FAILED, nullptr};
}

// An expected object {namespace, "*"} matches any property names.
bool matches(const std::vector<Returned> &got, const std::vector<Returned> &want) {
    return got.size() == want.size() && std::equal(got.begin(), got.end(), want.begin(), [](const auto &g, const auto &w) {
               return w.size() == 2 && w[1] == "*" ? g.front() == w.front() : g == w;
           });
}

TEST_F(Associations, DirectCallsAnswerAsTheirRequestAsks) {
    struct Case {
        const char *name, *assoc;
        std::vector<Op> ops;
        std::string source;  // the request's path
        Keys refs;           // reference keys added to it (In::ref paths, or text)
        std::optional<std::vector<std::string>> properties;
        CMPIrc rc;
        std::vector<Returned> returned;
        std::string line;  // logged, or (with a leading '!') not logged
    };
    const std::string pool = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 000\"";
    const std::string volume = "tovra/cimv2:Tovra_StorageVolume.DeviceID=\"Volume Set # 000\"";
    const std::string elsewhere = "root/interop:Tovra_StoragePool.InstanceID=\"Raid Set # 000\"";
    const std::string allocated = "tovra/cimv2:Tovra_AllocatedFromStoragePool";
    const char *profile = "Tovra_ControllerConformsToProfile";
    const Keys both = {{"Antecedent", In::ref(elsewhere)}, {"Dependent", In::ref(volume)}};
    const Returned roles = {kNs, "Antecedent", "Dependent"}, anyVolume = {kNs, "*"};
    const Returned profilePair = {kNs, "ConformantStandard", "ManagedElement"};
    using Props = std::vector<std::string>;
    const Case cases[] = {
        {"a source of neither end", kAllocated.c_str(),
         {Op::AssociatorNames, Op::Associators, Op::ReferenceNames, Op::References, Op::EnumNames},
         "tovra/cimv2:Tovra_DiskDrive.DeviceID=\"PAIR1\"", {}, {}, CMPI_RC_OK, {},
         "TovraAllocatedFromStoragePoolProviderEnumInstanceNames: CMClassPathIsNotA_SuperClassName"},
        // The source is fetched with the list: without the key property the
        // search ends with the failed read. The association instances keep
        // their two references whatever the list.
        {"source list with the key", kAllocated.c_str(), {Op::Associators}, pool, {}, Props{"RaidSetNumber"},
         CMPI_RC_OK, {anyVolume, anyVolume}, ""},
        {"source list without it", kAllocated.c_str(), {Op::Associators}, pool, {}, Props{"Capacity"},
         CMPI_RC_ERR_NO_SUCH_PROPERTY, {}, ""},
        {"references keep their roles", kAllocated.c_str(), {Op::References}, pool, {}, Props{"RaidSetNumber"},
         CMPI_RC_OK, {roles, roles}, ""},
        {"enumerated instances keep theirs", profile, {Op::EnumInstances}, std::string(kNs) + ":" + profile, {},
         Props{"Nothing"}, CMPI_RC_OK, {profilePair}, ""},
        // The profile association names its pairs in the request's namespace,
        // its instances in the module's.
        {"names in the request's namespace", profile, {Op::EnumNames}, std::string(kInterop) + ":" + profile, {}, {},
         CMPI_RC_OK, {{kInterop, "ConformantStandard=" + std::string(kProfileId), "ManagedElement=25"}}, ""},
        {"instances in the module's", profile, {Op::EnumInstances}, std::string(kInterop) + ":" + profile, {}, {},
         CMPI_RC_OK, {profilePair}, ""},
        // GetInstance: the left reference's namespace, properties named after
        // the end classes and filtered by the list; a missing key fails the
        // read, a key that is no reference ends silently for the battery.
        {"get", kAllocated.c_str(), {Op::GetInstance}, allocated, both, {}, CMPI_RC_OK,
         {{kInterop, "Tovra_StoragePool", "Tovra_StorageVolume"}}, ""},
        {"get with a list", kAllocated.c_str(), {Op::GetInstance}, allocated, both, Props{"Tovra_StorageVolume"},
         CMPI_RC_OK, {{kInterop, "Tovra_StorageVolume"}}, ""},
        {"get without a reference", kAllocated.c_str(), {Op::GetInstance}, allocated, {{"Antecedent", In::ref(pool)}},
         {}, CMPI_RC_ERR_NO_SUCH_PROPERTY, {}, "TovraAllocatedFromStoragePoolProviderGetInstance: CMPI_RC_ERR_FAILED"},
        {"get with text for a reference", kAllocated.c_str(), {Op::GetInstance}, allocated,
         {{"Antecedent", In::ref(pool)}, {"Dependent", In::str("x")}}, {}, CMPI_RC_OK, {},
         "TovraAllocatedFromStoragePoolProviderGetInstance: CMPI_RC_ERROR_SYSTEM"},
        {"the battery's is silent", "Tovra_SystemDeviceBattery", {Op::GetInstance},
         "tovra/cimv2:Tovra_SystemDeviceBattery", {{"GroupComponent", In::str("x")}, {"PartComponent", In::str("y")}},
         {}, CMPI_RC_OK, {}, "!TovraSystemDeviceBatteryProviderGetInstance"},
    };
    for (const Case &c : cases) {
        sim::clearLog();
        const std::string prefix = "Tovra" + std::string(c.assoc).substr(6) + "Provider";
        auto *assoc = static_cast<CMPIAssociationMI *>(factory(prefix + "_Create_AssociationMI"));
        auto *inst = static_cast<CMPIInstanceMI *>(factory(prefix + "_Create_InstanceMI"));
        for (const Op op : c.ops) {
            SCOPED_TRACE(std::string(c.name) + " " + std::to_string(static_cast<int>(op)));
            inRequest([&](const CMPIBroker *broker, const CMPIContext *ctx) {
                CMPIObjectPath *cop = pathFrom(broker, c.source);
                for (const auto &[name, value] : c.refs) {
                    CMPIObjectPath *ref = value.kind == In::Kind::Ref ? pathFrom(broker, value.text) : nullptr;
                    if (ref != nullptr) {
                        CMAddKey(cop, name.c_str(), &ref, CMPI_ref);
                    } else {
                        CMAddKey(cop, name.c_str(), value.text.c_str(), CMPI_chars);
                    }
                }
                const Props list = c.properties.value_or(Props{});
                std::vector<const char *> props;
                for (const std::string &p : list) props.push_back(p.c_str());
                props.push_back(nullptr);
                direct::RecordingResult result;
                EXPECT_EQ(call(op, assoc, inst, ctx, result.get(), cop, c.properties ? props.data() : nullptr).rc, c.rc);
                EXPECT_EQ(result.outcome.doneCount, 1);
                EXPECT_TRUE(matches(returned(result), c.returned)) << result.outcome.objects.size();
            });
        }
        if (!c.line.empty()) {
            EXPECT_EQ(logged(c.line.substr(c.line[0] == '!')), c.line[0] != '!') << c.line;
        }
    }
}

// ---- two controllers -------------------------------------------------------------

// The library serves the first controller only. This broker passes the calls
// of an enumeration on to the host's and adds a second controller system,
// "TV99", to every enumeration of that class.
struct TwinBroker {
    struct Listed {
        std::vector<CMPIData> items;
        CMPIEnumeration en;
    };
    static inline const CMPIBroker *host = nullptr;
    static inline std::vector<std::unique_ptr<Listed>> enums;

    static std::vector<CMPIData> &items(const CMPIEnumeration *en) { return static_cast<Listed *>(en->hdl)->items; }
    static inline CMPIEnumerationFT enumFT = {
        CMPICurrentVersion, [](CMPIEnumeration *) { return CMPIStatus{CMPI_RC_OK, nullptr}; },
        [](const CMPIEnumeration *, CMPIStatus *) -> CMPIEnumeration * { return nullptr; },
        [](const CMPIEnumeration *en, CMPIStatus *rc) {
            *rc = CMPIStatus{CMPI_RC_OK, nullptr};
            const CMPIData d = items(en).front();
            items(en).erase(items(en).begin());
            return d;
        },
        [](const CMPIEnumeration *en, CMPIStatus *) -> CMPIBoolean { return !items(en).empty(); },
        [](const CMPIEnumeration *, CMPIStatus *) -> CMPIArray * { return nullptr; }};

    static CMPIEnumeration *enumerate(const CMPIBroker *, const CMPIContext *ctx, const CMPIObjectPath *op,
                                      const char **props, CMPIStatus *rc) {
        CMPIEnumeration *en = CBEnumInstances(host, ctx, op, props, rc);
        if (en == nullptr || charsOf(CMGetClassName(op, nullptr)) != "Tovra_RAIDControllerSystem") return en;
        Listed &listed = *enums.emplace_back(std::make_unique<Listed>());
        while (CMHasNext(en, nullptr)) listed.items.push_back(CMGetNext(en, nullptr));
        CMPIObjectPath *second = CMNewObjectPath(host, kNs, "Tovra_RAIDControllerSystem", nullptr);
        CMAddKey(second, "Name", "TV99", CMPI_chars);
        listed.items.push_back(CMPIData{CMPI_instance, CMPI_goodValue, {.inst = CMNewInstance(host, second, nullptr)}});
        listed.en = CMPIEnumeration{&listed, &enumFT};
        return &listed.en;
    }

    CMPIBrokerFT bft{};
    CMPIBrokerEncFT eft{};
    CMPIBroker broker{nullptr, &bft, &eft, nullptr, nullptr};
    TwinBroker() {
        bft.enumerateInstances = enumerate;
        eft.newObjectPath = [](const CMPIBroker *, const char *ns, const char *cls, CMPIStatus *rc) {
            return CMNewObjectPath(host, ns, cls, rc);
        };
        eft.classPathIsA = [](const CMPIBroker *, const CMPIObjectPath *op, const char *cls, CMPIStatus *rc) {
            return CMClassPathIsA(host, op, cls, rc);
        };
    }
};

TEST_F(Associations, AllPairsCrossesControllersAKeyRuleDoesNot) {
    struct Case {
        const char *assoc;
        std::vector<Returned> pairs;
    };
    auto pair = [](const char *leftRole, const char *left, const char *rightRole, const char *right) {
        return Returned{kNs, std::string(leftRole) + "=" + left, std::string(rightRole) + "=" + right};
    };
    auto hosted = [&](const char *pool, const char *controller) {
        return pair("GroupComponent", controller, "PartComponent", pool);
    };
    auto allocated = [&](const char *pool, const char *volume) { return pair("Antecedent", pool, "Dependent", volume); };
    const Case cases[] = {
        {"Tovra_HostedStoragePool",
         {hosted("Raid Set # 000", "25"), hosted("Raid Set # 000", "TV99"), hosted("Raid Set # 001", "25"),
          hosted("Raid Set # 001", "TV99"), hosted("Raid Set # 002", "25"), hosted("Raid Set # 002", "TV99")}},
        {"Tovra_AllocatedFromStoragePool",
         {allocated("Raid Set # 000", "Volume Set # 000"), allocated("Raid Set # 000", "Volume Set # 001"),
          allocated("Raid Set # 001", "Volume Set # 002")}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.assoc);
        const std::string symbol = "Tovra" + std::string(c.assoc).substr(6) + "Provider_Create_InstanceMI";
        auto *inst = static_cast<CMPIInstanceMI *>(factory(symbol));  // loads the library
        ASSERT_NE(inst, nullptr);
        void *lib = dlopen(TOVRA_PROVIDER_DIR "/libTovraProviders.so", RTLD_NOW | RTLD_NOLOAD);
        ASSERT_NE(lib, nullptr);
        using Factory = CMPIInstanceMI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
        auto create = reinterpret_cast<Factory>(dlsym(lib, symbol.c_str()));
        dlclose(lib);
        TwinBroker twin;
        inRequest([&](const CMPIBroker *broker, const CMPIContext *ctx) {
            TwinBroker::host = broker;
            create(&twin.broker, nullptr, nullptr);
            direct::RecordingResult result;
            CMPIObjectPath *cop = CMNewObjectPath(broker, kNs, c.assoc, nullptr);
            EXPECT_EQ(inst->ft->enumerateInstanceNames(inst, ctx, result.get(), cop).rc, CMPI_RC_OK);
            EXPECT_EQ(returned(result), c.pairs);
            create(broker, nullptr, nullptr);  // the host's broker again
        });
        TwinBroker::enums.clear();
    }
}

// ---- failures ------------------------------------------------------------------------

TEST_F(Associations, ABrokerFailureEndsTheRequestWithTheResultsSoFar) {
    struct Case {
        const char *name;
        std::function<Answer()> call;
        size_t results;
        unsigned failingOpen;
        const char *line;
    };
    const Case cases[] = {
        // Opens: the extents, then the disks once per extent; the third fails.
        {"enumeration", [] { return enumNames("Tovra_MediaPresent"); }, 1, 3,
         "TovraMediaPresentProviderEnumInstanceNames: Not Return CMPI_RC_OK(0x64)"},
        {"associators", [] { return associatorNames(kPool0, {kAllocated, "", "", ""}); }, 0, 1,
         "TovraAllocatedFromStoragePoolProviderAssociatorNames: Not Return CMPI_RC_OK(0x64)"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        freshClock();
        sim::addFault({.kind = sim::FaultKind::OpenFail, .nth = c.failingOpen, .count = 1});
        const Answer a = c.call();
        EXPECT_EQ(a.rc, CMPI_RC_ERROR_SYSTEM);
        EXPECT_EQ(a.objects.size(), c.results);
        EXPECT_TRUE(logged(c.line));
        sim::clearFaults();
        EXPECT_EQ(c.call().rc, CMPI_RC_OK);
    }
}

// ---- the key rules where the adapter's values cannot differ -----------------

CMPIData number(CMPIType type, uint64_t v) {
    CMPIData d{};
    d.type = type;
    d.value.uint64 = v;
    return d;
}

CMPIData chars(const char *text) {
    CMPIData d{};
    d.type = CMPI_chars;
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
        {KeyRule::Equal32, number(CMPI_uint64, 0x100000006), number(CMPI_uint32, 6), false, true},
        {KeyRule::Equal32, number(CMPI_uint32, 0x106), number(CMPI_uint32, 6), false, false},
        {KeyRule::SameText, chars("Encl A"), chars("Encl A"), true, false},  // chars is not string
        {KeyRule::LeftContainsRight, chars("anything"), chars(""), false, true},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        const Case &c = cases[i];
        EXPECT_EQ(tovra::keyRuleHolds(c.rule, c.left, c.right, c.typed), c.holds);
    }
}

}  // namespace
