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
#include <tuple>

using namespace harness;
namespace sim = tovra::sim;

namespace {

struct Associations : ProviderTest {
    void SetUp() override { ProviderTest::SetUp(), sim::loadScenario("pairs"); }
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

const char *const kCtl = "25";
const char *const kProfileId = "Tovra: Host Hardware RAID Controller_1.2.0";
Ids fromCtl(const Texts &rights) {
    Ids out;
    for (const std::string &r : rights) out.emplace_back(kCtl, r);
    return out;
}

// An association ("Tovra_" left out) with its ends' roles and accepted
// superclasses ("CIM_" left out).
struct Assoc {
    std::string cls, leftRole, leftSuper, rightRole, rightSuper;
    Ids pairs;            // the enumerations' pairs, in their order
    Ids associated = {};  // the associator and reference operations' pairs, where they differ
};
const Assoc kAssocs[] = {
    {"AllocatedFromStoragePool", "Antecedent", "StoragePool", "Dependent", "StorageVolume",
     {{"Raid Set # 000", "Volume Set # 000"}, {"Raid Set # 000", "Volume Set # 001"}, {"Raid Set # 001", "Volume Set # 002"}}},
    {"ConcreteComponent", "GroupComponent", "StoragePool", "PartComponent", "StorageExtent",
     {{"Raid Set # 000", "PAIR1"}, {"Raid Set # 000", "PAIR2"}, {"Raid Set # 001", "PAIR3"}, {"Raid Set # 002", "PAIR4"}}},
    {"ElementSettingData", "ManagedElement", "StorageVolume", "SettingData", "StorageSetting",
     {{"Volume Set # 001", "RAID 0"}, {"Volume Set # 002", "RAID 0"}, {"Volume Set # 000", "RAID 5"}}},
    {"Container", "GroupComponent", "Chassis", "PartComponent", "Slot",
     {{"Expander0210", "0"}, {"Expander0210", "1"}, {"TV-8012 Expander0210", "256"}, {"TV-8012 Expander0210", "257"},
      {"tv-8012 expander0210", "512"}}},
    {"MediaPresent", "Antecedent", "DiskDrive", "Dependent", "StorageExtent",
     {{"PAIR1", "PAIR1"}, {"PAIR12", "PAIR12"}, {"PAIR2", "PAIR2"}, {"PAIR3", "PAIR3"}, {"PAIR4", "PAIR4"}}},
    {"PackageInConnector", "Antecedent", "PhysicalPackage", "Dependent", "Slot",
     {{"0", "0"}, {"1", "1"}, {"256", "256"}, {"257", "257"}, {"512", "512"}}},
    {"RealizesDiskDrive", "Antecedent", "PhysicalPackage", "Dependent", "DiskDrive",
     {{"0", "PAIR1"}, {"1", "PAIR12"}, {"256", "PAIR2"}, {"257", "PAIR3"}, {"512", "PAIR4"}}},
    {"RealizesPortController", "Dependent", "PortController", "Antecedent", "PhysicalPackage",
     fromCtl({"25", "256", "257"}), fromCtl({"25"})},
    {"ComputerSystemSoftwareIdentity", "Antecedent", "SoftwareIdentity", "Dependent", "ComputerSystem",
     {{"Tovra:25:Firmware", kCtl}, {"Tovra:25:BootCode", kCtl}, {"Tovra:25:Driver", kCtl}}},
    {"DiskDriveSoftwareIdentity", "Antecedent", "SoftwareIdentity", "Dependent", "DiskDrive",
     {{"Tovra:PAIR1:Firmware", "PAIR1"}, {"Tovra:PAIR12:Firmware", "PAIR1"}, {"Tovra:PAIR12:Firmware", "PAIR12"},
      {"Tovra:PAIR2:Firmware", "PAIR2"}, {"Tovra:PAIR3:Firmware", "PAIR3"}, {"Tovra:PAIR4:Firmware", "PAIR4"}}},
    {"HostedStoragePool", "GroupComponent", "ComputerSystem", "PartComponent", "StoragePool",
     fromCtl({"Raid Set # 000", "Raid Set # 001", "Raid Set # 002"})},
    {"LogicalIdentity", "SystemElement", "PortController", "SameElement", "ComputerSystem", fromCtl({kCtl})},
    {"SystemPackaging", "Antecedent", "ComputerSystem", "Dependent", "Chassis",
     fromCtl({"Expander0210", "TV-8012 Expander0210", "tv-8012 expander0210"})},
    {"SystemDeviceBattery", "GroupComponent", "ComputerSystem", "PartComponent", "Battery", fromCtl({"Battery0"})},
    {"SystemDeviceDiskDrive", "GroupComponent", "ComputerSystem", "PartComponent", "DiskDrive",
     fromCtl({"PAIR1", "PAIR12", "PAIR2", "PAIR3", "PAIR4"})},
    {"SystemDeviceSASSATAPort", "GroupComponent", "ComputerSystem", "PartComponent", "SASSATAPort", fromCtl({"Port1"})},
    {"SystemDeviceStorageVolume", "GroupComponent", "ComputerSystem", "PartComponent", "StorageVolume",
     fromCtl({"Volume Set # 000", "Volume Set # 001", "Volume Set # 002"})},
    {"SystemDeviceSoftwareIdentity", "GroupComponent", "ComputerSystem", "PartComponent", "SoftwareIdentity",
     fromCtl({"Tovra:25:Firmware", "Tovra:25:BootCode", "Tovra:25:Driver", "Tovra:PAIR1:Firmware",
              "Tovra:PAIR12:Firmware", "Tovra:PAIR2:Firmware", "Tovra:PAIR3:Firmware", "Tovra:PAIR4:Firmware"})},
    {"ControllerConformsToProfile", "ManagedElement", "PortController", "ConformantStandard", "RegisteredProfile",
     fromCtl({kProfileId})},
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
    const std::string cls = "Tovra_" + a.cls, farSuper = swapCase("CIM_" + (fromLeft ? a.rightSuper : a.leftSuper));
    const std::string ownRole = fromLeft ? a.leftRole : a.rightRole, farRole = fromLeft ? a.rightRole : a.leftRole;
    const std::vector<Answer> answers = {
        associatorNames(source, {cls, "", "", ""}), associators(source, {cls, "", "", ""}),
        associatorNames(source, {cls, farSuper, "", ""}), referenceNames(source, cls, swapCase(ownRole)),
        references(source, cls, ownRole)};
    for (size_t i = 0; i < (a.cls == "ControllerConformsToProfile" ? 3 : answers.size()); ++i) {
        Texts got;
        for (const Obj &o : answers[i].objects) {
            EXPECT_TRUE(i < 3 || refText(o, ownRole) == source);
            got.push_back(idOf(i < 3 ? o.path : refText(o, farRole)));
        }
        std::sort(got.begin(), got.end());
        EXPECT_EQ(answers[i].rc, CMPI_RC_OK);
        EXPECT_EQ(got, far) << "answer " << i;
    }
}

// A module's name and its two tables, as a CIMOM gets them from its factories.
std::tuple<std::string, CMPIAssociationMI *, CMPIInstanceMI *> module(const std::string &cls) {
    const std::string prefix = "Tovra" + cls.substr(6) + "Provider";
    return {prefix, static_cast<CMPIAssociationMI *>(factory(prefix + "_Create_AssociationMI")),
            static_cast<CMPIInstanceMI *>(factory(prefix + "_Create_InstanceMI"))};
}

// Every module: its association table beside the instance table (whose stamp
// the frame tests check), with its name, version 200 and cleanup, and no method
// table; its pairs through every operation.
TEST_F(Associations, EveryModulePairsTheWrittenPairs) {
    for (const Assoc &a : kAssocs) {
        SCOPED_TRACE(a.cls);
        const auto [prefix, assoc, inst] = module("Tovra_" + a.cls);
        ASSERT_TRUE(assoc != nullptr && inst != nullptr);
        EXPECT_EQ(factory(prefix + "_Create_MethodMI"), nullptr);
        EXPECT_EQ(assoc->ft->miName, "association" + prefix);
        EXPECT_EQ(assoc->ft->ftVersion, 200);
        EXPECT_EQ(assoc->ft->miVersion, 200);
        const bool profile = a.cls == "ControllerConformsToProfile";
        EXPECT_EQ(assoc->ft->cleanup(assoc, nullptr, 0).rc, profile ? CMPI_RC_OK : CMPI_RC_NEVER_UNLOAD);
        EXPECT_EQ(assoc->ft->cleanup(assoc, nullptr, 1).rc, CMPI_RC_OK);
        std::map<std::string, bool> ends;  // path -> whether a left end
        for (const Answer &all : {enumNames("Tovra_" + a.cls), enumInstances("Tovra_" + a.cls)}) {
            ASSERT_EQ(all.rc, CMPI_RC_OK);
            Ids got;
            for (const Obj &o : all.objects) {
                EXPECT_EQ(o.ns, kNs);
                const std::string l = refText(o, a.leftRole), r = refText(o, a.rightRole);
                got.emplace_back(idOf(l), idOf(r));
                ends[l] = true;
                if (a.rightSuper != "RegisteredProfile") ends[r] = false;
            }
            EXPECT_EQ(got, a.pairs);
        }
        for (const auto &[path, left] : ends) expectFarEnds(a, left, path);
    }
}

const std::string kPool0 = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 000\"";
const std::string kAllocated = "Tovra_AllocatedFromStoragePool", kProfile = "Tovra_ControllerConformsToProfile";

// What narrows or empties an answer beyond the far ends' own filters: a
// superclass of the accepted result class narrows to nothing, roles do not
// narrow associators, the association class narrows both by its superclass.
// A pool without volumes answers an empty success; a source that does not
// exist ends the request with its own status, except where the associators
// do not fetch the source; the profile's references are looked for in the
// port controller's namespace.
TEST_F(Associations, NarrowedAndEmptyAnswers) {
    const std::string gonePool = "tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 007\"";
    const std::string controller = "tovra/cimv2:Tovra_PortController.CreationClassName=\"Tovra_PortController\","
                                   "DeviceID=\"25\",SystemCreationClassName=\"Tovra_RAIDControllerSystem\",SystemName=\"25\"";
    const std::string goneController = std::string(controller).replace(controller.find("\"25\""), 4, "\"99\"");
    const CMPIrc ok = CMPI_RC_OK, notFound = CMPI_RC_ERR_NOT_FOUND;
    struct Case {
        std::string source;
        AssocFilter filter;
        CMPIrc rc;
        size_t associators;
        CMPIrc referencesRc;
        size_t references;
    };
    for (const Case &c : {
             Case{kPool0, {kAllocated, "CIM_StorageExtent", "", ""}, ok, 0, ok, 2},
             Case{kPool0, {kAllocated, "", "Dependent", "Antecedent"}, ok, 2, ok, 0},
             Case{kPool0, {"CIM_AllocatedFromStoragePool", "", "", ""}, ok, 2, ok, 2},
             Case{kPool0, {"Tovra_HostedStoragePool", "Tovra_StorageVolume", "", ""}, ok, 0, ok, 1},
             Case{"tovra/cimv2:Tovra_StoragePool.InstanceID=\"Raid Set # 002\"", {kAllocated, "", "", ""}, ok, 0, ok, 0},
             Case{gonePool, {kAllocated, "", "", ""}, notFound, 0, notFound, 0},
             Case{gonePool, {"Tovra_HostedStoragePool", "", "", ""}, notFound, 0, notFound, 0},
             Case{goneController, {kProfile, "", "", ""}, ok, 1, notFound, 0},
             Case{controller, {kProfile, "", "", ""}, ok, 1, CMPI_RC_ERR_NOT_SUPPORTED, 0},
         }) {
        SCOPED_TRACE(c.filter.assocClass + " " + c.filter.resultClass + " " + c.filter.role + " from " + c.source);
        const std::vector<Answer> found = {associatorNames(c.source, c.filter), associators(c.source, c.filter),
                                           referenceNames(c.source, c.filter.assocClass, c.filter.role),
                                           references(c.source, c.filter.assocClass, c.filter.role)};
        for (size_t i = 0; i < found.size(); ++i) {
            EXPECT_EQ(found[i].rc, i < 2 ? c.rc : c.referencesRc) << "answer " << i;
            EXPECT_EQ(found[i].objects.size(), i < 2 ? c.associators : c.references) << "answer " << i;
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
        const void *v = ref != nullptr ? static_cast<const void *>(&ref) : value.text.c_str();
        CMAddKey(op, name.c_str(), v, ref != nullptr ? CMPI_ref : CMPI_chars);
    }
    return op;
}

// The library serves the first controller only. This broker passes on the
// calls of an enumeration to the host's and adds a second controller system,
// "TV99", to the controller systems it enumerates.
struct TwinBroker {
    static inline std::vector<CMPIData> items;  // the controller systems of the last enumeration
    static inline size_t next = 0;
    static inline CMPIEnumerationFT enumFT = {
        CMPICurrentVersion, [](CMPIEnumeration *) { return CMPIStatus{CMPI_RC_OK, nullptr}; },
        [](const CMPIEnumeration *, CMPIStatus *) -> CMPIEnumeration * { return nullptr; },
        [](const CMPIEnumeration *, CMPIStatus *rc) { return *rc = {CMPI_RC_OK, nullptr}, items.at(next++); },
        [](const CMPIEnumeration *, CMPIStatus *) -> CMPIBoolean { return next < items.size(); },
        [](const CMPIEnumeration *, CMPIStatus *) -> CMPIArray * { return nullptr; }};
    static inline CMPIEnumeration twins{&items, &enumFT};
    static inline const CMPIBroker *host = nullptr;
    static inline CMPIBrokerFT ft{};
    static inline CMPIBrokerEncFT eft{};
    static inline CMPIBroker broker{nullptr, &ft, &eft, nullptr, nullptr};

    static CMPIEnumeration *enumerate(const CMPIBroker *, const CMPIContext *ctx, const CMPIObjectPath *op,
                                      const char **props, CMPIStatus *rc) {
        CMPIEnumeration *en = CBEnumInstances(host, ctx, op, props, rc);
        if (en == nullptr || std::string(CMGetCharsPtr(CMGetClassName(op, nullptr), nullptr)) != "Tovra_RAIDControllerSystem")
            return en;
        items.clear(), next = 0;
        while (CMHasNext(en, nullptr)) items.push_back(CMGetNext(en, nullptr));
        CMPIObjectPath *second = CMNewObjectPath(host, kNs, "Tovra_RAIDControllerSystem", nullptr);
        CMAddKey(second, "Name", "TV99", CMPI_chars);
        items.push_back(CMPIData{CMPI_instance, CMPI_goodValue, {.inst = CMNewInstance(host, second, nullptr)}});
        return &twins;
    }
    static const CMPIBroker *over(const CMPIBroker *b) {
        host = b, ft.enumerateInstances = enumerate;
        eft.newObjectPath = [](const CMPIBroker *, const char *ns, const char *cls, CMPIStatus *rc) {
            return CMNewObjectPath(host, ns, cls, rc);
        };
        eft.classPathIsA = [](const CMPIBroker *, const CMPIObjectPath *op, const char *cls, CMPIStatus *rc) {
            return CMClassPathIsA(host, op, cls, rc);
        };
        return &broker;
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
struct Call {
    std::string assoc = kAllocated;
    std::vector<Op> ops;          // each called once
    std::string source = kPool0;  // the request's path, the keys added to it
    Keys keys = {};
    std::optional<std::vector<const char *>> properties = {};
    CMPIrc rc = CMPI_RC_OK;
    std::vector<Texts> returned = {};  // an object of one text, its namespace, stands for any object there
    std::string line = "";             // logged, or (with a leading '!') not logged
    unsigned failingOpen = 0;          // the adapter's open that fails, counted from the call
    bool twin = false;                 // the module's enumerations see a second controller system
};
const std::string kAllocatedPath = "tovra/cimv2:" + kAllocated, kGetLog = "TovraAllocatedFromStoragePoolProviderGetInstance: ";
const Keys kBothEnds = {{"Antecedent", In::ref("root/interop:Tovra_StoragePool.InstanceID=\"Raid Set # 000\"")},
                        {"Dependent", In::ref("tovra/cimv2:Tovra_StorageVolume.DeviceID=\"Volume Set # 000\"")}};
const Texts kRoles = {kNs, "Antecedent", "Dependent"}, kProfilePair = {kNs, "ConformantStandard", "ManagedElement"};
Texts hosted(const char *controller, const char *pool) {
    return {kNs, "GroupComponent=" + std::string(controller), "PartComponent=Raid Set # 00" + std::string(pool)};
}

const Call kCalls[] = {
    {.ops = {Op::AssociatorNames, Op::Associators, Op::ReferenceNames, Op::References, Op::EnumNames},
     .source = "tovra/cimv2:Tovra_DiskDrive.DeviceID=\"PAIR1\"",
     .line = "TovraAllocatedFromStoragePoolProviderEnumInstanceNames: CMClassPathIsNotA_SuperClassName"},
    // The source is fetched with the list: without the key property the search
    // ends with the failed read. Association instances keep their references.
    {.ops = {Op::Associators}, .properties = {{"RaidSetNumber", nullptr}}, .returned = {{kNs}, {kNs}}},
    {.ops = {Op::Associators}, .properties = {{"Capacity", nullptr}}, .rc = CMPI_RC_ERR_NO_SUCH_PROPERTY},
    {.ops = {Op::References}, .properties = {{"RaidSetNumber", nullptr}}, .returned = {kRoles, kRoles}},
    {.assoc = kProfile, .ops = {Op::EnumInstances}, .source = "tovra/cimv2:" + kProfile,
     .properties = {{"Nothing", nullptr}}, .returned = {kProfilePair}},
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
    {.ops = {Op::GetInstance}, .source = kAllocatedPath, .keys = kBothEnds, .properties = {{"Tovra_StorageVolume", nullptr}},
     .returned = {{kInterop, "Tovra_StorageVolume"}}},
    {.ops = {Op::GetInstance}, .source = kAllocatedPath, .keys = {{"Antecedent", In::ref(kPool0)}},
     .rc = CMPI_RC_ERR_NO_SUCH_PROPERTY, .line = kGetLog + "CMPI_RC_ERR_FAILED"},
    {.ops = {Op::GetInstance}, .source = kAllocatedPath, .keys = {{"Antecedent", In::ref(kPool0)}, {"Dependent", In::str("x")}},
     .line = kGetLog + "CMPI_RC_ERROR_SYSTEM"},
    {.assoc = "Tovra_SystemDeviceBattery", .ops = {Op::GetInstance}, .source = "tovra/cimv2:Tovra_SystemDeviceBattery",
     .keys = {{"GroupComponent", In::str("x")}, {"PartComponent", In::str("y")}},
     .line = "!TovraSystemDeviceBatteryProviderGetInstance"},
    // A failed broker call ends the request with the results so far. Opens:
    // the extents, then the disks once per extent; the third fails. The
    // profile association skips a profile whose controllers cannot be read.
    {.assoc = "Tovra_MediaPresent", .ops = {Op::EnumNames}, .source = "tovra/cimv2:Tovra_MediaPresent",
     .rc = CMPI_RC_ERROR_SYSTEM, .returned = {{kNs}},
     .line = "TovraMediaPresentProviderEnumInstanceNames: Not Return CMPI_RC_OK(0x64)", .failingOpen = 3},
    {.ops = {Op::AssociatorNames}, .rc = CMPI_RC_ERROR_SYSTEM,
     .line = "TovraAllocatedFromStoragePoolProviderAssociatorNames: Not Return CMPI_RC_OK(0x64)", .failingOpen = 1},
    {.assoc = kProfile, .ops = {Op::EnumNames}, .source = "tovra/cimv2:" + kProfile, .failingOpen = 1},
    // All-pairs ties every pool to both controller systems.
    {.assoc = "Tovra_HostedStoragePool", .ops = {Op::EnumNames}, .source = "tovra/cimv2:Tovra_HostedStoragePool",
     .returned = {hosted("25", "0"), hosted("TV99", "0"), hosted("25", "1"), hosted("TV99", "1"), hosted("25", "2"),
                  hosted("TV99", "2")},
     .twin = true},
};

TEST_F(Associations, DirectCallsAnswerAsTheirRequestAsks) {
    for (const Call &c : kCalls) {
        sim::clearLog();
        freshClock();
        if (c.failingOpen != 0) sim::addFault({.kind = sim::FaultKind::OpenFail, .nth = c.failingOpen, .count = 1});
        const auto [prefix, a, i] = module(c.assoc);
        const char **list = c.properties ? const_cast<const char **>(c.properties->data()) : nullptr;
        for (const Op op : c.ops) {
            SCOPED_TRACE(c.assoc + " " + c.source + " " + std::to_string(static_cast<int>(op)));
            inRequest([&](const CMPIBroker *broker, const CMPIContext *ctx) {
                if (c.twin) useBroker(prefix, TwinBroker::over(broker));
                const CMPIObjectPath *cop = pathFrom(broker, c.source, c.keys);
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
        EXPECT_TRUE(c.line.empty() || logged(c.line.substr(c.line[0] == '!')) == (c.line[0] != '!')) << c.line;
    }
}

// ---- the key rules where the adapter's values cannot differ -----------------

TEST(KeyRules, CompareAsTheirRuleSays) {
    auto number = [](CMPIType type, uint64_t v) { return CMPIData{type, CMPI_goodValue, {.uint64 = v}}; };
    auto chars = [](const char *text) { return CMPIData{CMPI_chars, CMPI_goodValue, {.chars = const_cast<char *>(text)}}; };
    using tovra::KeyRule;
    struct Case {
        KeyRule rule;
        CMPIData left, right;
        bool typed, holds;
    };
    for (const Case &c : {
             Case{KeyRule::Equal8, number(CMPI_uint32, 0x105), number(CMPI_uint8, 0x05), false, true},  // low byte only
             Case{KeyRule::Equal32, number(CMPI_uint64, 0x100000006), number(CMPI_uint32, 6), false, true},
             Case{KeyRule::Equal32, number(CMPI_uint32, 0x106), number(CMPI_uint32, 6), false, false},
             Case{KeyRule::SameText, chars("Encl A"), chars("Encl A"), true, false},  // chars is not string
             Case{KeyRule::LeftContainsRight, chars("anything"), chars(""), false, true},
         })
        EXPECT_EQ(tovra::keyRuleHolds(c.rule, c.left, c.right, c.typed), c.holds) << static_cast<int>(c.rule);
}

}  // namespace
