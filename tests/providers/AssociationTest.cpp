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
#include <optional>

using namespace harness;
namespace sim = tovra::sim;

namespace {

class Associations : public ProviderTest {
protected:
    void SetUp() override {
        ProviderTest::SetUp();
        sim::loadScenario("pairs");
    }
};

using Ids = std::vector<std::pair<std::string, std::string>>;  // (left id, right id)
using Texts = std::vector<std::string>;

// The identifying key value of a path: DeviceID, Tag, InstanceID or Name.
std::string idOf(const std::string &path) {
    for (const std::string key : {"DeviceID=\"", "Tag=\"", "InstanceID=\"", "Name=\""})
        for (size_t at = path.find(key); at != std::string::npos; at = path.find(key, at + 1))
            if (at > 0 && (path[at - 1] == '.' || path[at - 1] == ','))
                return path.substr(at + key.size(), path.find('"', at + key.size()) - at - key.size());
    return path;
}

std::string refText(const Obj &o, const std::string &name) {
    const Val *v = o.key(name) != nullptr ? o.key(name) : o.prop(name);
    return v != nullptr ? v->text : std::string();
}

Texts sortedIds(const Answer &a) {
    Texts out;
    for (const Obj &o : a.objects) out.push_back(idOf(o.path));
    std::sort(out.begin(), out.end());
    return out;
}

const char *const kCtl = "25";
const char *const kProfileId = "Tovra: Host Hardware RAID Controller_1.2.0";
Ids fromCtl(const Texts &rights) {
    Ids out;
    for (const std::string &r : rights) out.emplace_back(kCtl, r);
    return out;
}
Ids same(const Texts &ids) {
    Ids out;
    for (const std::string &id : ids) out.emplace_back(id, id);
    return out;
}

struct Assoc {
    const char *cls, *leftRole, *leftSuper, *rightRole, *rightSuper;
    Ids pairs;            // the enumerations' pairs, in their order
    Ids associated = {};  // the associator and reference operations' pairs, where they differ
};
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
     same({"PAIR1", "PAIR12", "PAIR2", "PAIR3", "PAIR4"})},
    {"Tovra_PackageInConnector", "Antecedent", "CIM_PhysicalPackage", "Dependent", "CIM_Slot",
     same({"0", "1", "256", "257", "512"})},
    {"Tovra_RealizesDiskDrive", "Antecedent", "CIM_PhysicalPackage", "Dependent", "CIM_DiskDrive",
     {{"0", "PAIR1"}, {"1", "PAIR12"}, {"256", "PAIR2"}, {"257", "PAIR3"}, {"512", "PAIR4"}}},
    {"Tovra_RealizesPortController", "Dependent", "CIM_PortController", "Antecedent", "CIM_PhysicalPackage",
     fromCtl({"25", "256", "257"}), fromCtl({"25"})},
    {"Tovra_ComputerSystemSoftwareIdentity", "Antecedent", "CIM_SoftwareIdentity", "Dependent", "CIM_ComputerSystem",
     {{"Tovra:25:Firmware", kCtl}, {"Tovra:25:BootCode", kCtl}, {"Tovra:25:Driver", kCtl}}},
    {"Tovra_DiskDriveSoftwareIdentity", "Antecedent", "CIM_SoftwareIdentity", "Dependent", "CIM_DiskDrive",
     {{"Tovra:PAIR1:Firmware", "PAIR1"}, {"Tovra:PAIR12:Firmware", "PAIR1"}, {"Tovra:PAIR12:Firmware", "PAIR12"},
      {"Tovra:PAIR2:Firmware", "PAIR2"}, {"Tovra:PAIR3:Firmware", "PAIR3"}, {"Tovra:PAIR4:Firmware", "PAIR4"}}},
    {"Tovra_HostedStoragePool", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_StoragePool",
     fromCtl({"Raid Set # 000", "Raid Set # 001", "Raid Set # 002"})},
    {"Tovra_LogicalIdentity", "SystemElement", "CIM_PortController", "SameElement", "CIM_ComputerSystem", same({kCtl})},
    {"Tovra_SystemPackaging", "Antecedent", "CIM_ComputerSystem", "Dependent", "CIM_Chassis",
     fromCtl({"Expander0210", "TV-8012 Expander0210", "tv-8012 expander0210"})},
    {"Tovra_SystemDeviceBattery", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_Battery",
     fromCtl({"Battery0"})},
    {"Tovra_SystemDeviceDiskDrive", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_DiskDrive",
     fromCtl({"PAIR1", "PAIR12", "PAIR2", "PAIR3", "PAIR4"})},
    {"Tovra_SystemDeviceSASSATAPort", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_SASSATAPort",
     fromCtl({"Port1"})},
    {"Tovra_SystemDeviceStorageVolume", "GroupComponent", "CIM_ComputerSystem", "PartComponent", "CIM_StorageVolume",
     fromCtl({"Volume Set # 000", "Volume Set # 001", "Volume Set # 002"})},
    {"Tovra_SystemDeviceSoftwareIdentity", "GroupComponent", "CIM_ComputerSystem", "PartComponent",
     "CIM_SoftwareIdentity",
     fromCtl({"Tovra:25:Firmware", "Tovra:25:BootCode", "Tovra:25:Driver", "Tovra:PAIR1:Firmware",
              "Tovra:PAIR12:Firmware", "Tovra:PAIR2:Firmware", "Tovra:PAIR3:Firmware", "Tovra:PAIR4:Firmware"})},
    {"Tovra_ControllerConformsToProfile", "ManagedElement", "CIM_PortController", "ConformantStandard",
     "CIM_RegisteredProfile", fromCtl({kProfileId})},
};

std::string swapCase(std::string s) {
    for (char &c : s) c = static_cast<char>(std::isupper(static_cast<unsigned char>(c)) ? std::tolower(c) : std::toupper(c));
    return s;
}

// From one end's instance: its far ends through the four association
// operations. The far end's superclass and the source's own role, in any
// case, narrow nothing. The profile lives in another namespace than the
// association: its references are looked for in the controller's (below).
void expectFarEnds(const Assoc &a, bool fromLeft, const std::string &source) {
    SCOPED_TRACE(source);
    Texts far;
    for (const auto &[l, r] : a.associated.empty() ? a.pairs : a.associated)
        if ((fromLeft ? l : r) == idOf(source)) far.push_back(fromLeft ? r : l);
    std::sort(far.begin(), far.end());
    const std::string ownRole = fromLeft ? a.leftRole : a.rightRole, farRole = fromLeft ? a.rightRole : a.leftRole;
    const AssocFilter byClass{a.cls, "", "", ""}, bySuper{a.cls, swapCase(fromLeft ? a.rightSuper : a.leftSuper), "", ""};
    for (const Answer &assocs : {associatorNames(source, byClass), associators(source, byClass), associatorNames(source, bySuper)}) {
        EXPECT_EQ(assocs.rc, CMPI_RC_OK);
        EXPECT_EQ(sortedIds(assocs), far);
    }
    if (std::string(a.cls) == "Tovra_ControllerConformsToProfile") return;
    for (const Answer &refs : {referenceNames(source, a.cls, swapCase(ownRole)), references(source, a.cls, ownRole)}) {
        Texts got;
        for (const Obj &o : refs.objects) {
            EXPECT_EQ(refText(o, ownRole), source);
            got.push_back(idOf(refText(o, farRole)));
        }
        std::sort(got.begin(), got.end());
        EXPECT_EQ(got, far);
    }
}

TEST_F(Associations, EveryOperationPairsTheWrittenPairs) {
    for (const Assoc &a : kAssocs) {
        SCOPED_TRACE(a.cls);
        std::map<std::string, bool> ends;  // path -> whether a left end
        for (const Answer &all : {enumNames(a.cls), enumInstances(a.cls)}) {
            ASSERT_EQ(all.rc, CMPI_RC_OK);
            Ids got;
            for (const Obj &o : all.objects) {
                EXPECT_EQ(o.ns, kNs);
                const std::string l = refText(o, a.leftRole), r = refText(o, a.rightRole);
                got.emplace_back(idOf(l), idOf(r));
                ends[l] = true;
                if (a.rightSuper != std::string("CIM_RegisteredProfile")) ends[r] = false;
            }
            EXPECT_EQ(got, a.pairs);
        }
        for (const auto &[path, left] : ends) expectFarEnds(a, left, path);
    }
}

// A module's two tables, as a CIMOM gets them from its factories.
struct Module {
    std::string prefix;
    CMPIAssociationMI *assoc;
    CMPIInstanceMI *inst;
};
Module module(const std::string &cls) {
    const std::string prefix = "Tovra" + cls.substr(6) + "Provider";
    return {prefix, static_cast<CMPIAssociationMI *>(factory(prefix + "_Create_AssociationMI")),
            static_cast<CMPIInstanceMI *>(factory(prefix + "_Create_InstanceMI"))};
}

// Names, version 200, cleanup, and the write operations and queries answering 7.
TEST_F(Associations, FunctionTablesOfEveryModule) {
    for (const Assoc &a : kAssocs) {
        const auto [prefix, assoc, inst] = module(a.cls);
        SCOPED_TRACE(prefix);
        ASSERT_TRUE(assoc != nullptr && inst != nullptr);
        EXPECT_EQ(factory(prefix + "_Create_MethodMI"), nullptr);
        EXPECT_EQ(assoc->ft->miName, "association" + prefix);
        EXPECT_EQ(inst->ft->miName, "instance" + prefix);
        for (const int version : {assoc->ft->ftVersion, assoc->ft->miVersion, inst->ft->ftVersion, inst->ft->miVersion})
            EXPECT_EQ(version, 200);
        const bool profile = prefix == "TovraControllerConformsToProfileProvider";
        EXPECT_EQ(assoc->ft->cleanup(assoc, nullptr, 0).rc, profile ? CMPI_RC_OK : CMPI_RC_NEVER_UNLOAD);
        EXPECT_EQ(assoc->ft->cleanup(assoc, nullptr, 1).rc, CMPI_RC_OK);
        EXPECT_EQ(inst->ft->cleanup(inst, nullptr, 0).rc, CMPI_RC_NEVER_UNLOAD);
        for (const CMPIStatus st : {inst->ft->createInstance(inst, nullptr, nullptr, nullptr, nullptr),
                                    inst->ft->modifyInstance(inst, nullptr, nullptr, nullptr, nullptr, nullptr),
                                    inst->ft->deleteInstance(inst, nullptr, nullptr, nullptr),
                                    inst->ft->execQuery(inst, nullptr, nullptr, nullptr, "select *", "WQL")})
            EXPECT_EQ(st.rc, CMPI_RC_ERR_NOT_SUPPORTED);
    }
}

const std::string kPool0 = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 000\"";
const std::string kAllocated = "Tovra_AllocatedFromStoragePool";

// What narrows or empties an answer beyond the far ends' own filters: a
// superclass of the accepted result class narrows to nothing, roles do not
// narrow associators, the association class narrows both by its superclass.
// A pool without volumes answers an empty success; a source that does not
// exist ends the request with its own status, except where the associators
// do not fetch the source; the profile's references are looked for in the
// port controller's namespace.
TEST_F(Associations, NarrowedAndEmptyAnswers) {
    const std::string controller = "tovra/cimv2:Tovra_PortController.CreationClassName=\"Tovra_PortController\","
                                   "DeviceID=\"25\",SystemCreationClassName=\"Tovra_RAIDControllerSystem\",SystemName=\"25\"";
    std::string goneController = controller;
    goneController.replace(goneController.find("\"25\""), 4, "\"99\"");
    const std::string gonePool = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 007\"";
    const std::string pool2 = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 002\"";
    const CMPIrc ok = CMPI_RC_OK, notFound = CMPI_RC_ERR_NOT_FOUND;
    const std::string profile = "Tovra_ControllerConformsToProfile";
    const struct {
        std::string source;
        AssocFilter filter;
        CMPIrc rc;
        size_t associators;
        CMPIrc referencesRc;
        size_t references;
    } cases[] = {
        {kPool0, {kAllocated, "CIM_StorageExtent", "", ""}, ok, 0, ok, 2},
        {kPool0, {kAllocated, "", "Dependent", "Antecedent"}, ok, 2, ok, 0},
        {kPool0, {"CIM_AllocatedFromStoragePool", "", "", ""}, ok, 2, ok, 2},
        {kPool0, {"Tovra_HostedStoragePool", "Tovra_StorageVolume", "", ""}, ok, 0, ok, 1},
        {pool2, {kAllocated, "", "", ""}, ok, 0, ok, 0},
        {gonePool, {kAllocated, "", "", ""}, notFound, 0, notFound, 0},
        {gonePool, {"Tovra_HostedStoragePool", "", "", ""}, notFound, 0, notFound, 0},
        {goneController, {profile, "", "", ""}, ok, 1, notFound, 0},
        {controller, {profile, "", "", ""}, ok, 1, CMPI_RC_ERR_NOT_SUPPORTED, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.filter.assocClass + " " + c.filter.resultClass + " " + c.filter.role + " from " + c.source);
        for (const Answer &assocs : {associatorNames(c.source, c.filter), associators(c.source, c.filter)}) {
            EXPECT_EQ(assocs.rc, c.rc);
            EXPECT_EQ(assocs.objects.size(), c.associators);
        }
        for (const Answer &refs : {referenceNames(c.source, c.filter.assocClass, c.filter.role),
                                   references(c.source, c.filter.assocClass, c.filter.role)}) {
            EXPECT_EQ(refs.rc, c.referencesRc);
            EXPECT_EQ(refs.objects.size(), c.references);
        }
    }
}

// ---- calls straight into a module's tables -------------------------------------

// What a module returned (DirectCall.h), each reference as the identifying key
// value of its path.
std::vector<Texts> returned(const direct::RecordingResult &result) {
    std::vector<Texts> out = result.outcome.objects;
    for (Texts &o : out)
        for (std::string &s : o)
            if (const size_t eq = s.find('='); eq != std::string::npos) s = s.substr(0, eq + 1) + idOf(s.substr(eq + 1));
    return out;
}

// A path from "ns:Class.Key=\"v\"" (one key at most) with the given keys
// added: In::ref as a reference to such a path, else as text.
CMPIObjectPath *pathFrom(const CMPIBroker *broker, const std::string &text, const Keys &keys = {}) {
    const size_t colon = text.find(':'), dot = text.find('.', colon);
    CMPIObjectPath *op =
        CMNewObjectPath(broker, text.substr(0, colon).c_str(), text.substr(colon + 1, dot - colon - 1).c_str(), nullptr);
    if (dot != std::string::npos) CMAddKey(op, text.substr(dot + 1, text.find('=') - dot - 1).c_str(), idOf(text).c_str(), CMPI_chars);
    for (const auto &[name, value] : keys) {
        CMPIObjectPath *ref = value.kind == In::Kind::Ref ? pathFrom(broker, value.text) : nullptr;
        if (ref != nullptr) {
            CMAddKey(op, name.c_str(), &ref, CMPI_ref);
        } else {
            CMAddKey(op, name.c_str(), value.text.c_str(), CMPI_chars);
        }
    }
    return op;
}

// The library serves the first controller only. This broker passes on the
// calls of an enumeration to the host's and adds a second controller system,
// "TV99", to the controller systems it enumerates.
struct TwinBroker {
    static inline const CMPIBroker *host = nullptr;
    static inline std::vector<CMPIData> items;  // the controller systems still to hand out
    static inline CMPIEnumerationFT enumFT = {
        CMPICurrentVersion, [](CMPIEnumeration *) { return CMPIStatus{CMPI_RC_OK, nullptr}; },
        [](const CMPIEnumeration *, CMPIStatus *) -> CMPIEnumeration * { return nullptr; },
        [](const CMPIEnumeration *, CMPIStatus *rc) {
            *rc = CMPIStatus{CMPI_RC_OK, nullptr};
            const CMPIData d = items.front();
            items.erase(items.begin());
            return d;
        },
        [](const CMPIEnumeration *, CMPIStatus *) -> CMPIBoolean { return !items.empty(); },
        [](const CMPIEnumeration *, CMPIStatus *) -> CMPIArray * { return nullptr; }};
    static inline CMPIEnumeration twins{&items, &enumFT};

    static CMPIEnumeration *enumerate(const CMPIBroker *, const CMPIContext *ctx, const CMPIObjectPath *op,
                                      const char **props, CMPIStatus *rc) {
        CMPIEnumeration *en = CBEnumInstances(host, ctx, op, props, rc);
        if (en == nullptr || std::string(CMGetCharsPtr(CMGetClassName(op, nullptr), nullptr)) != "Tovra_RAIDControllerSystem")
            return en;
        items.clear();
        while (CMHasNext(en, nullptr)) items.push_back(CMGetNext(en, nullptr));
        CMPIObjectPath *second = CMNewObjectPath(host, kNs, "Tovra_RAIDControllerSystem", nullptr);
        CMAddKey(second, "Name", "TV99", CMPI_chars);
        items.push_back(CMPIData{CMPI_instance, CMPI_goodValue, {.inst = CMNewInstance(host, second, nullptr)}});
        return &twins;
    }
    static const CMPIBroker *broker() {
        static CMPIBrokerFT bft{};
        static CMPIBrokerEncFT eft{};
        bft.enumerateInstances = enumerate;
        eft.newObjectPath = [](const CMPIBroker *, const char *ns, const char *cls, CMPIStatus *rc) {
            return CMNewObjectPath(host, ns, cls, rc);
        };
        eft.classPathIsA = [](const CMPIBroker *, const CMPIObjectPath *op, const char *cls, CMPIStatus *rc) {
            return CMClassPathIsA(host, op, cls, rc);
        };
        static CMPIBroker b{nullptr, &bft, &eft, nullptr, nullptr};
        return &b;
    }
};

// Hands a module's instance table another broker through its factory.
void useBroker(const std::string &prefix, const CMPIBroker *broker) {
    void *lib = dlopen(TOVRA_PROVIDER_DIR "/libTovraProviders.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(lib, nullptr);
    using Factory = CMPIInstanceMI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
    reinterpret_cast<Factory>(dlsym(lib, (prefix + "_Create_InstanceMI").c_str()))(broker, nullptr, nullptr);
    dlclose(lib);
}

enum class Op { AssociatorNames, Associators, ReferenceNames, References, EnumNames, EnumInstances, GetInstance };
const std::string kPoolVolume = "tovra/cimv2:Tovra_StorageVolume.DeviceID=\"Volume Set # 000\"";
const std::string kAllocatedPath = "tovra/cimv2:Tovra_AllocatedFromStoragePool";
const Keys kBothEnds = {{"Antecedent", In::ref("root/interop:" + kPool0.substr(12))}, {"Dependent", In::ref(kPoolVolume)}};
const std::string kProfile = "Tovra_ControllerConformsToProfile";

struct Call {
    std::string assoc = kAllocated;
    std::vector<Op> ops;  // each called once
    std::string source = kPool0;  // the request's path, the keys added to it
    Keys keys = {};
    std::optional<Texts> properties = {};
    CMPIrc rc = CMPI_RC_OK;
    std::vector<Texts> returned = {};  // an object of one text, its namespace, stands for any object there
    std::string line = "";             // logged, or (with a leading '!') not logged
    unsigned failingOpen = 0;          // the adapter's open that fails, counted from the call
    bool twin = false;                 // the module's enumerations see a second controller system
};
const Texts kRoles = {kNs, "Antecedent", "Dependent"}, kProfilePair = {kNs, "ConformantStandard", "ManagedElement"};
const std::string kGetLog = "TovraAllocatedFromStoragePoolProviderGetInstance: ";

std::vector<Texts> hostedByTwins() {
    std::vector<Texts> out;
    for (const std::string pool : {"Raid Set # 000", "Raid Set # 001", "Raid Set # 002"})
        for (const std::string controller : {"25", "TV99"})
            out.push_back({kNs, "GroupComponent=" + controller, "PartComponent=" + pool});
    return out;
}

const Call kCalls[] = {
    {.ops = {Op::AssociatorNames, Op::Associators, Op::ReferenceNames, Op::References, Op::EnumNames},
     .source = "tovra/cimv2:Tovra_DiskDrive.DeviceID=\"PAIR1\"",
     .line = "TovraAllocatedFromStoragePoolProviderEnumInstanceNames: CMClassPathIsNotA_SuperClassName"},
    // The source is fetched with the list: without the key property the search
    // ends with the failed read. Association instances keep their references.
    {.ops = {Op::Associators}, .properties = Texts{"RaidSetNumber"}, .returned = {{kNs}, {kNs}}},
    {.ops = {Op::Associators}, .properties = Texts{"Capacity"}, .rc = CMPI_RC_ERR_NO_SUCH_PROPERTY},
    {.ops = {Op::References}, .properties = Texts{"RaidSetNumber"}, .returned = {kRoles, kRoles}},
    {.assoc = kProfile, .ops = {Op::EnumInstances}, .source = "tovra/cimv2:" + kProfile, .properties = Texts{"Nothing"},
     .returned = {kProfilePair}},
    // The profile association names its pairs in the request's namespace, its
    // instances in the module's.
    {.assoc = kProfile, .ops = {Op::EnumNames}, .source = "root/interop:" + kProfile,
     .returned = {{kInterop, "ConformantStandard=" + std::string(kProfileId), "ManagedElement=25"}}},
    {.assoc = kProfile, .ops = {Op::EnumInstances}, .source = "root/interop:" + kProfile, .returned = {kProfilePair}},
    // GetInstance: the left reference's namespace, properties named after the
    // end classes and filtered by the list; a missing key fails the read, a
    // key that is no reference ends silently for the battery.
    {.ops = {Op::GetInstance}, .source = kAllocatedPath, .keys = kBothEnds,
     .returned = {{kInterop, "Tovra_StoragePool", "Tovra_StorageVolume"}}},
    {.ops = {Op::GetInstance}, .source = kAllocatedPath, .keys = kBothEnds, .properties = Texts{"Tovra_StorageVolume"},
     .returned = {{kInterop, "Tovra_StorageVolume"}}},
    {.ops = {Op::GetInstance}, .source = kAllocatedPath, .keys = {{"Antecedent", In::ref(kPool0)}},
     .rc = CMPI_RC_ERR_NO_SUCH_PROPERTY, .line = kGetLog + "CMPI_RC_ERR_FAILED"},
    {.ops = {Op::GetInstance}, .source = kAllocatedPath, .keys = {{"Antecedent", In::ref(kPool0)}, {"Dependent", In::str("x")}},
     .line = kGetLog + "CMPI_RC_ERROR_SYSTEM"},
    {.assoc = "Tovra_SystemDeviceBattery", .ops = {Op::GetInstance}, .source = "tovra/cimv2:Tovra_SystemDeviceBattery",
     .keys = {{"GroupComponent", In::str("x")}, {"PartComponent", In::str("y")}},
     .line = "!TovraSystemDeviceBatteryProviderGetInstance"},
    // A failed broker call ends the request with the results so far. Opens:
    // the extents, then the disks once per extent; the third fails.
    {.assoc = "Tovra_MediaPresent", .ops = {Op::EnumNames}, .source = "tovra/cimv2:Tovra_MediaPresent",
     .rc = CMPI_RC_ERROR_SYSTEM, .returned = {{kNs}},
     .line = "TovraMediaPresentProviderEnumInstanceNames: Not Return CMPI_RC_OK(0x64)", .failingOpen = 3},
    {.ops = {Op::AssociatorNames}, .rc = CMPI_RC_ERROR_SYSTEM,
     .line = "TovraAllocatedFromStoragePoolProviderAssociatorNames: Not Return CMPI_RC_OK(0x64)", .failingOpen = 1},
    // The profile association skips a profile whose controllers cannot be read.
    {.assoc = kProfile, .ops = {Op::EnumNames}, .source = "tovra/cimv2:" + kProfile, .failingOpen = 1},
    // All-pairs ties every pool to both controller systems.
    {.assoc = "Tovra_HostedStoragePool", .ops = {Op::EnumNames}, .source = "tovra/cimv2:Tovra_HostedStoragePool",
     .returned = hostedByTwins(), .twin = true},
};

TEST_F(Associations, DirectCallsAnswerAsTheirRequestAsks) {
    for (const Call &c : kCalls) {
        sim::clearLog();
        freshClock();
        if (c.failingOpen != 0) sim::addFault({.kind = sim::FaultKind::OpenFail, .nth = c.failingOpen, .count = 1});
        const auto [prefix, a, i] = module(c.assoc);
        for (const Op op : c.ops) {
            SCOPED_TRACE(c.assoc + " " + c.source + " " + std::to_string(static_cast<int>(op)));
            inRequest([&](const CMPIBroker *broker, const CMPIContext *ctx) {
                TwinBroker::host = broker;
                if (c.twin) useBroker(prefix, TwinBroker::broker());
                const CMPIObjectPath *cop = pathFrom(broker, c.source, c.keys);
                const Texts names = c.properties.value_or(Texts{});
                std::vector<const char *> props;
                for (const std::string &p : names) props.push_back(p.c_str());
                props.push_back(nullptr);
                const char **list = c.properties ? props.data() : nullptr;
                direct::RecordingResult result;
                const CMPIResult *r = result.get();
                const CMPIStatus st =
                    op == Op::AssociatorNames  ? a->ft->associatorNames(a, ctx, r, cop, nullptr, nullptr, nullptr, nullptr)
                    : op == Op::Associators    ? a->ft->associators(a, ctx, r, cop, nullptr, nullptr, nullptr, nullptr, list)
                    : op == Op::ReferenceNames ? a->ft->referenceNames(a, ctx, r, cop, nullptr, nullptr)
                    : op == Op::References     ? a->ft->references(a, ctx, r, cop, nullptr, nullptr, list)
                    : op == Op::EnumNames      ? i->ft->enumerateInstanceNames(i, ctx, r, cop)
                    : op == Op::EnumInstances  ? i->ft->enumerateInstances(i, ctx, r, cop, list)
                                               : i->ft->getInstance(i, ctx, r, cop, list);
                if (c.twin) useBroker(prefix, broker);
                EXPECT_EQ(st.rc, c.rc);
                EXPECT_EQ(result.outcome.doneCount, 1);
                const std::vector<Texts> got = returned(result);
                EXPECT_TRUE(std::equal(got.begin(), got.end(), c.returned.begin(), c.returned.end(),
                                       [](const Texts &g, const Texts &w) { return w.size() == 1 ? g[0] == w[0] : g == w; }))
                    << testing::PrintToString(got);
            });
        }
        sim::clearFaults();
        TwinBroker::items.clear();
        if (!c.line.empty()) {
            EXPECT_EQ(logged(c.line.substr(c.line[0] == '!')), c.line[0] != '!') << c.line;
        }
    }
}

// ---- the key rules where the adapter's values cannot differ -----------------

TEST(KeyRules, CompareAsTheirRuleSays) {
    auto number = [](CMPIType type, uint64_t v) { return CMPIData{type, CMPI_goodValue, {.uint64 = v}}; };
    auto chars = [](const char *text) { return CMPIData{CMPI_chars, CMPI_goodValue, {.chars = const_cast<char *>(text)}}; };
    using tovra::KeyRule;
    const struct {
        KeyRule rule;
        CMPIData left, right;
        bool typed, holds;
    } cases[] = {
        {KeyRule::Equal8, number(CMPI_uint32, 0x105), number(CMPI_uint8, 0x05), false, true},  // low byte only
        {KeyRule::Equal32, number(CMPI_uint64, 0x100000006), number(CMPI_uint32, 6), false, true},
        {KeyRule::Equal32, number(CMPI_uint32, 0x106), number(CMPI_uint32, 6), false, false},
        {KeyRule::SameText, chars("Encl A"), chars("Encl A"), true, false},  // chars is not string
        {KeyRule::LeftContainsRight, chars("anything"), chars(""), false, true},
    };
    for (const auto &c : cases) EXPECT_EQ(tovra::keyRuleHolds(c.rule, c.left, c.right, c.typed), c.holds) << int(c.rule);
}

}  // namespace
