// Every operation under every fault kind: the answer the rules give, no
// partial change of the adapter's state, and afterwards no open descriptor, no
// held lock and no broker object beyond the caches.
//
// Adding an operation is one row in operations() below: give it a name, the
// path it takes to the adapter and an arrange step that returns the call.
// A method that changes the adapter is a Path::Command row; its fault-free
// run defines the changed state, and overrides hold what its own rules say
// for the faults whose default does not fit (its open-failure text, say).
#include "FaultMatrix.h"

#include <tovrasim/FirmwareImage.h>

#include <unistd.h>

#include <fstream>
#include <future>
#include <limits>
#include <sstream>

using namespace harness;
using namespace matrix;
namespace sim = tovra::sim;

namespace {

// ---- the fault kinds -------------------------------------------------------

constexpr unsigned kPastEveryLimitMs = 200000;  // beyond the 120 s of the slowest reply limit

const std::vector<FaultCase> &faults() {
    using K = sim::FaultKind;
    const Expect retried = status(CMPI_RC_ERR_FAILED, "", "command retry failed");
    static const std::vector<FaultCase> table = {
        {"Delay", {.kind = K::Delay, .value = kPastEveryLimitMs}, true, retried,
         status(CMPIrc(0xB0), "Command Timed Out")},
        {"NoReply", {.kind = K::NoReply}, true, retried, status(CMPIrc(0xB0), "Command Timed Out")},
        {"ZeroLength", {.kind = K::ZeroLength}, true, retried,
         status(CMPI_RC_ERR_FAILED, "Returnd Data Length 0")},
        {"BadChecksum", {.kind = K::BadChecksum}, true, retried, status(CMPI_RC_ERR_FAILED, "CheckSum Error")},
        {"GarbageChunks", {.kind = K::Garbage, .value = 3}, true, same(), same()},
        // One-byte chunks never show the three frame-start bytes together, so
        // every chunk is skipped until the time limit.
        {"OneByteChunks", {.kind = K::Chunk, .value = 1}, true, retried, status(CMPIrc(0xB0), "Command Timed Out")},
        // A failed read ends an inventory exchange with status OK and no retry.
        {"ReadFailure", {.kind = K::ReadFail}, true, status(CMPI_RC_OK, "", "ioctl READ Error"),
         status(CMPI_RC_ERROR_SYSTEM, "ioctl READ Error", "ioctl READ Error")},
        // A failed send leaves the status as it was: no retry, nothing read.
        {"WriteFailure", {.kind = K::WriteFail}, false, status(CMPI_RC_OK), anyAnswer()},
        {"OpenFailure", {.kind = K::OpenFail}, false,
         status(CMPI_RC_ERROR_SYSTEM, "", "CMPI_RC_ERR_FAILED(Fail to Open File)"), anyAnswer()},
    };
    return table;
}

// ---- the operations --------------------------------------------------------

std::string ident(std::string s) {
    for (char &c : s)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return s;
}

Keys keysOf(const Obj &o) {
    Keys keys;
    for (const auto &[name, v] : o.keys)
        if (v.kind == Val::Kind::Text) keys.emplace_back(name, In::str(v.text));
        else if (v.kind == Val::Kind::Other) keys.emplace_back(name, In::ref(v.text));  // an association's end
    return keys;
}

// Where an instance module's GetInstance finds its answer.
enum class GetFrom {
    Cache,       // the instance cache, refreshed through the broker when stale
    OwnLookup,   // a lookup of its own on the adapter
    Constants,   // built from constants, without the device
    Existence,   // the adapter is asked whether it exists, then the cache answers
};

// The three read operations of an instance module.
void addInstanceModule(std::vector<Operation> &ops, const std::string &cls, Path path, GetFrom get = GetFrom::Cache,
                       const std::string &ns = kNs) {
    ops.push_back({ident(cls) + "_EnumInstanceNames", path, [=] { return Call([=] { return enumNames(cls, ns); }); }});
    ops.push_back(
        {ident(cls) + "_EnumInstances", path, [=] { return Call([=] { return enumInstances(cls, ns); }); }});
    // A rebuild that fails without an error status leaves the cache as it was,
    // and the get answers from it.
    Expect fromOldCache = same();
    fromOldCache.log = "ioctl READ Error";
    std::map<std::string, Expect> getOverrides;
    if (get == GetFrom::Cache && path == Path::Cached)
        getOverrides = {{"ReadFailure", fromOldCache}, {"WriteFailure", same()}};
    // A failed read or send of the existence check finds nothing.
    if (get == GetFrom::Existence)
        getOverrides = {{"ReadFailure", status(CMPI_RC_ERR_NOT_FOUND)}, {"WriteFailure", status(CMPI_RC_ERR_NOT_FOUND)}};
    ops.push_back({ident(cls) + "_GetInstance", get == GetFrom::Constants ? Path::NoDevice : path,
                   [=] {
                       const Answer names = enumNames(cls, ns);
                       EXPECT_FALSE(names.objects.empty()) << "nothing to get in " << cls;
                       const Keys keys = names.objects.empty() ? Keys{} : keysOf(names.objects.front());
                       return Call([=] { return getInstance(cls, keys, ns); });
                   },
                   getOverrides});
}

void addMethod(std::vector<Operation> &ops, const std::string &cls, const std::string &method, Path path,
               const Keys &args = {}, std::map<std::string, Expect> overrides = {}) {
    ops.push_back({ident(cls) + "_" + method, path,
                   [=] { return Call([=] { return invoke(cls, method, args); }); }, std::move(overrides)});
}

// The path text of the first instance of a class (an association's source).
std::string firstPath(const std::string &cls) {
    const Answer names = enumNames(cls);
    EXPECT_FALSE(names.objects.empty()) << "no " << cls << " to start from";
    return names.objects.empty() ? std::string() : names.objects.front().path;
}

// Association modules read their two ends through the broker, so they answer
// as instance reads do. Every one: its names and the far ends of one source;
// the first one all seven operations.
void addAssociationModules(std::vector<Operation> &ops) {
    using Rules = std::map<std::string, Expect>;
    // A source end whose get asks the adapter first: a failed read or send
    // leaves nothing to find.
    const Rules sourceLookedUp = {{"ReadFailure", status(CMPI_RC_ERR_NOT_FOUND)},
                                  {"WriteFailure", status(CMPI_RC_ERR_NOT_FOUND)}};
    // A source read from its old cache, and a far end built from constants.
    Expect fromOldCache = same();
    fromOldCache.log = "ioctl READ Error";
    const Rules farEndConstant = {{"ReadFailure", fromOldCache}, {"WriteFailure", same()}};
    // A failed enumeration of one end skips to the next instance of the other.
    Rules tolerant;
    for (const FaultCase &f : faults())
        if (!f.cached.asWithoutFault) tolerant.emplace(f.name, status(CMPI_RC_OK));
    struct Assoc {
        const char *cls;
        const char *source;        // a class at one of its ends, in the provider namespace
        Path associatorPath = Path::Cached;
        Rules associatorRules = {};
        Rules enumRules = {};
    };
    const Assoc kAssociations[] = {
        {"Tovra_AllocatedFromStoragePool", "Tovra_StoragePool"},
        {"Tovra_ComputerSystemSoftwareIdentity", "Tovra_SoftwareIdentity", Path::Cached, sourceLookedUp},
        {"Tovra_ConcreteComponent", "Tovra_StoragePool"},
        {"Tovra_Container", "Tovra_Chassis"},
        // Its associators do not fetch the source; the far end is constant.
        {"Tovra_ControllerConformsToProfile", "Tovra_PortController", Path::NoDevice, {}, tolerant},
        {"Tovra_DiskDriveSoftwareIdentity", "Tovra_SoftwareIdentity", Path::Cached, sourceLookedUp},
        {"Tovra_ElementSettingData", "Tovra_StorageVolume", Path::Cached, farEndConstant},
        {"Tovra_HostedStoragePool", "Tovra_RAIDControllerSystem"},
        {"Tovra_LogicalIdentity", "Tovra_PortController"},
        {"Tovra_MediaPresent", "Tovra_DiskDrive"},
        {"Tovra_PackageInConnector", "Tovra_PhysicalPackage"},
        {"Tovra_RealizesDiskDrive", "Tovra_PhysicalPackage"},
        {"Tovra_RealizesPortController", "Tovra_PortController"},
        {"Tovra_SystemDeviceBattery", "Tovra_RAIDControllerSystem"},
        {"Tovra_SystemDeviceDiskDrive", "Tovra_RAIDControllerSystem"},
        {"Tovra_SystemDeviceSASSATAPort", "Tovra_RAIDControllerSystem"},
        {"Tovra_SystemDeviceSoftwareIdentity", "Tovra_RAIDControllerSystem"},
        {"Tovra_SystemDeviceStorageVolume", "Tovra_RAIDControllerSystem"},
        {"Tovra_SystemPackaging", "Tovra_RAIDControllerSystem"},
    };
    for (const Assoc &a : kAssociations) {
        const std::string cls = a.cls, source = a.source, name = ident(cls);
        const AssocFilter only{cls, "", "", ""};
        ops.push_back({name + "_EnumInstanceNames", Path::Cached, [=] { return Call([=] { return enumNames(cls); }); },
                       a.enumRules});
        ops.push_back({name + "_AssociatorNames", a.associatorPath,
                       [=] {
                           const std::string from = firstPath(source);
                           return Call([=] { return associatorNames(from, only); });
                       },
                       a.associatorRules});
        if (&a != &kAssociations[0]) continue;
        ops.push_back({name + "_EnumInstances", Path::Cached, [=] { return Call([=] { return enumInstances(cls); }); }});
        // Built from the keys given, without the broker.
        ops.push_back({name + "_GetInstance", Path::NoDevice, [=] {
                           const Answer names = enumNames(cls);
                           EXPECT_FALSE(names.objects.empty()) << "nothing to get in " << cls;
                           const Keys keys = names.objects.empty() ? Keys{} : keysOf(names.objects.front());
                           return Call([=] { return getInstance(cls, keys); });
                       }});
        ops.push_back({name + "_Associators", Path::Cached, [=] {
                           const std::string from = firstPath(source);
                           return Call([=] { return associators(from, only); });
                       }});
        ops.push_back({name + "_ReferenceNames", Path::Cached, [=] {
                           const std::string from = firstPath(source);
                           return Call([=] { return referenceNames(from, cls); });
                       }});
        ops.push_back({name + "_References", Path::Cached, [=] {
                           const std::string from = firstPath(source);
                           return Call([=] { return references(from, cls); });
                       }});
    }
}

// A method row: its own open-failure text, and what a failed send answers.
std::map<std::string, Expect> methodRules(const std::string &method, Expect writeFailure,
                                          std::map<std::string, Expect> more = {}) {
    more.emplace("OpenFailure", status(CMPI_RC_ERROR_SYSTEM, method + ": File Open Failed."));
    more.emplace("WriteFailure", std::move(writeFailure));
    return more;
}

// A settings method: the adapter's password is checked beforehand (changes
// are refused without), and the call is made inside the allowed window.
void addSettingsMethod(std::vector<Operation> &ops, const std::string &method, const Keys &args,
                       Expect writeFailure, std::map<std::string, Expect> more = {}) {
    const std::string cls = "Tovra_RAIDControllerSystem";
    ops.push_back({ident(cls) + "_" + method, Path::Command,
                   [=] {
                       return Call([=] {
                           sim::withModel([](sim::Model &m) {
                               m.settings.unlockedUntil = std::numeric_limits<uint32_t>::max();
                           });
                           return invoke(cls, method, args);
                       });
                   },
                   methodRules(method, std::move(writeFailure), std::move(more))});
}

// One page of a valid image, written where the provider can read it and
// removed when the tests end.
const std::string &firmwareFile() {
    struct Image {
        std::string path = ::testing::TempDir() + "tovra-matrix-" + std::to_string(::getpid()) + ".img";
        Image() {
            const auto image = sim::makeFirmwareImage("V1.60 2026-11-02", 300);
            std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char *>(image.data()), static_cast<std::streamsize>(image.size()));
        }
        ~Image() { ::unlink(path.c_str()); }
    };
    static const Image image;
    return image.path;
}

void addMethodModules(std::vector<Operation> &ops) {
    const Expect failed = status(CMPI_RC_ERR_FAILED), ok = status(CMPI_RC_OK);
    auto add = [&](const std::string &cls, const std::string &method, const Keys &args, const Expect &writeFailure) {
        addMethod(ops, cls, method, Path::Command, args, methodRules(method, writeFailure));
    };
    const std::string pool = "Tovra_StoragePool", volume = "Tovra_StorageVolume", disk = "Tovra_DiskDrive";
    add(pool, "CreateRAIDSet",
        {{"MemberDisks", In::u32(2)}, {"DiskArray", In::u32s({4, 5})}, {"Enc", In::u32(2)}, {"Name", In::str("New")}},
        failed);
    // A set without volumes, made first, so that the delete succeeds.
    ops.push_back({"Tovra_StoragePool_DeleteRAIDSet", Path::Command,
                   [=] {
                       const Answer made = invoke(pool, "CreateRAIDSet",
                                                  {{"MemberDisks", In::u32(2)}, {"DiskArray", In::u32s({4, 5})},
                                                   {"Enc", In::u32(2)}, {"Name", In::str("Gone")}});
                       EXPECT_EQ(made.rc, CMPI_RC_OK) << made.message;
                       return Call([=] { return invoke(pool, "DeleteRAIDSet", {{"RAIDNo", In::u32(3)}}); });
                   },
                   methodRules("DeleteRAIDSet", failed)});
    // "Encls" is read only up to the number of sets in the pool's instance cache: fill it.
    ops.push_back({"Tovra_StoragePool_ExpandRAIDSet", Path::Command,
                   [=] {
                       EXPECT_EQ(enumInstances(pool).objects.size(), 2u);
                       return Call([=] {
                           return invoke(pool, "ExpandRAIDSet", {{"RAIDNo", In::u32(2)},
                                                                 {"DiskArray", In::u32s({4})},
                                                                 {"Encls", In::u32s({2})}});
                       });
                   },
                   methodRules("ExpandRAIDSet", failed)});
    add(pool, "OfflineRAIDSet", {{"RAIDNo", In::u32(2)}}, failed);
    add(pool, "ActivateRAIDSet", {{"RAIDNo", In::u32(2)}}, failed);
    add(pool, "CreateHotSpare", {{"Type", In::u32(1)}, {"RAIDNo", In::u32(2)}, {"Enc", In::u32(2)}, {"Disk", In::u32(4)}},
        failed);
    add(pool, "DeleteHotSpare", {{"Enc", In::u32(1)}, {"Disk", In::u32(5)}}, failed);
    add(volume, "CreateVolume",
        {{"ID", In::u32(2)}, {"LUN", In::u32(0)}, {"RAIDNo", In::u32(2)}, {"Strp", In::u32(128)}, {"Ll", In::u32(5)},
         {"Cap", In::u32(10)}, {"Name", In::str("Vol")}, {"Cache", In::u32(1)}, {"FG", In::u32(1)},
         {"GtT", In::u32(1)}, {"Tag", In::u32(1)}},
        failed);
    add(volume, "ModifyVolume",
        {{"Cap", In::u32(1500)}, {"Num", In::u32(3)}, {"ID", In::u32(0)}, {"LUN", In::u32(2)}, {"Strp", In::u32(64)},
         {"Ll", In::u32(5)}, {"Name", In::str("Big")}, {"Cache", In::u32(1)}, {"Tag", In::u32(0)}},
        failed);
    add(volume, "DeleteVolume", {{"Num", In::u32(3)}}, failed);
    const auto target = [](unsigned enc, unsigned slot, unsigned id, unsigned lun) {
        return Keys{{"enc", In::u32(enc)}, {"slt", In::u32(slot)}, {"id", In::u32(id)}, {"lun", In::u32(lun)},
                    {"tag", In::u32(1)}, {"cache", In::u32(0)}};
    };
    add(disk, "CreatePassThrough", target(2, 4, 3, 1), ok);
    add(disk, "ModifyPassThrough", target(1, 6, 5, 2), ok);
    add(disk, "DeletePassThrough", {{"enc", In::u32(1)}, {"slt", In::u32(6)}}, ok);
    // Its open failure carries no message.
    addMethod(ops, "Tovra_EventLog", "ClearLog", Path::Command, {},
              {{"OpenFailure", status(CMPI_RC_ERROR_SYSTEM)}, {"WriteFailure", failed}});
    // Argument refusals never reach the device.
    ops.push_back({"Tovra_StorageVolume_CreateVolume_IDAbove15", Path::NoDevice, [=] {
                       return Call([=] {
                           return invoke(volume, "CreateVolume",
                                         {{"ID", In::u32(16)}, {"LUN", In::u32(0)}, {"RAIDNo", In::u32(2)},
                                          {"Strp", In::u32(128)}, {"Ll", In::u32(5)}, {"Cap", In::u32(10)},
                                          {"Name", In::str("Vol")}, {"Cache", In::u32(1)}, {"FG", In::u32(1)},
                                          {"GtT", In::u32(1)}, {"Tag", In::u32(1)}});
                       });
                   }});
    ops.push_back({"Tovra_RAIDControllerSystem_SetHttpPort_Zero", Path::NoDevice, [] {
                       return Call([] { return invoke("Tovra_RAIDControllerSystem", "SetHttpPort", {{"Value", In::u32(0)}}); });
                   }});
    // The settings reader waits 120 s for a reply.
    addSettingsMethod(ops, "SetNCQ", {{"Value", In::u8(0)}}, failed);
    addSettingsMethod(ops, "SetHttpPort", {{"Value", In::u32(8080)}}, failed);
    addSettingsMethod(ops, "SetNetMask", {{"Value", In::str("255.255.0.0")}}, failed);
    addSettingsMethod(ops, "CheckPassword", {{"Password", In::str("0000")}}, failed);
    addSettingsMethod(ops, "UpdateFirmware", {{"FileName", In::str(firmwareFile())}}, failed);
    // The cache lifetime is the provider's own: the device is not asked.
    addMethod(ops, "Tovra_RAIDControllerSystem", "SetWaTP", Path::NoDevice, {{"Seconds", In::u32(1800)}});
}

const std::vector<Operation> &operations() {
    static const std::vector<Operation> table = [] {
        std::vector<Operation> ops;
        // Instance modules.
        addInstanceModule(ops, "Tovra_RAIDControllerSystem", Path::Cached);
        addInstanceModule(ops, "Tovra_RegisteredProfile", Path::NoDevice, GetFrom::Constants, kInterop);
        addInstanceModule(ops, "Tovra_StoragePool", Path::Cached);
        addInstanceModule(ops, "Tovra_StorageVolume", Path::Cached);
        addInstanceModule(ops, "Tovra_DefaultStorageSetting", Path::DeviceOnly, GetFrom::Constants);
        addInstanceModule(ops, "Tovra_DiskDrive", Path::Cached);
        addInstanceModule(ops, "Tovra_DiskDriveSlot", Path::Cached, GetFrom::OwnLookup);
        addInstanceModule(ops, "Tovra_DiskExtent", Path::Cached);
        addInstanceModule(ops, "Tovra_Chassis", Path::Cached, GetFrom::OwnLookup);
        addInstanceModule(ops, "Tovra_PortController", Path::Cached);
        addInstanceModule(ops, "Tovra_SoftwareIdentity", Path::Cached, GetFrom::Existence);
        addInstanceModule(ops, "Tovra_PhysicalPackage", Path::Cached);
        addInstanceModule(ops, "Tovra_Battery", Path::Cached);
        addInstanceModule(ops, "Tovra_SASSATAPort", Path::Cached);
        addInstanceModule(ops, "Tovra_EventLog", Path::Cached);
        addAssociationModules(ops);
        addMethodModules(ops);
        for (const char *cls : {"Tovra_RAIDControllerSystem", "Tovra_StoragePool", "Tovra_StorageVolume",
                                "Tovra_DiskDrive"})
            addMethod(ops, cls, "TimeCalibration", Path::NoDevice);
        return ops;
    }();
    return table;
}

// ---- the checks ------------------------------------------------------------

// Everything a method may change on the adapter, as text.
std::string adapterState() {
    std::ostringstream out;
    sim::withModel([&](sim::Model &m) {
        for (const auto &r : m.raidSets) {
            if (!r) continue;
            out << "R " << r->name << ' ' << r->offline << ' ' << r->memberBlocks;
            for (const auto &mem : r->members) out << ' ' << int(mem.enc) << '/' << int(mem.slot);
            out << '\n';
        }
        for (const auto &v : m.volumes)
            if (v)
                out << "V " << v->name << ' ' << int(v->raidSet) << ' ' << v->blocks << ' ' << int(v->levelCode) << ' '
                    << int(v->stripeCode) << ' ' << int(v->scsi.id) << ' ' << int(v->scsi.lun) << '\n';
        for (const auto &e : m.enclosures)
            for (const auto &d : e.slots)
                if (d)
                    out << "D " << d->serial << ' ' << int(d->state) << ' ' << int(d->raidSet) << ' '
                        << int(d->hotSpareType) << ' ' << int(d->hotSpareRaidSet) << ' ' << int(d->scsi.id) << '\n';
        out << "E " << m.events.size() << " S " << m.settings.values.size() << ' ' << int(m.settings.mode) << ' '
            << m.settings.beeperMuted << " P " << m.password << '\n';
    });
    return out.str();
}

std::string describe(const Answer &a) {
    std::ostringstream out;
    out << "rc " << a.rc << " \"" << a.message << "\" objects";
    for (const Obj &o : a.objects) {
        out << ' ' << o.className;
        for (const auto &[k, v] : o.keys) out << ' ' << k << '=' << v.text;
    }
    if (a.value) out << " value " << a.value->text << a.value->number;
    return out.str();
}

const Expect &expectationFor(const Operation &op, const FaultCase &f) {
    static const Expect unaffected = same();
    static const Expect deviceMissing = status(CMPI_RC_ERROR_SYSTEM, "", "Fail to Open File");
    if (auto it = op.overrides.find(f.name); it != op.overrides.end()) return it->second;
    switch (op.path) {
        case Path::Cached: return f.cached;
        case Path::Command: return f.command;
        case Path::DeviceOnly: return f.fault.kind == sim::FaultKind::OpenFail ? deviceMissing : unaffected;
        case Path::NoDevice: return unaffected;
    }
    return unaffected;
}

// Runs the call on another thread: a lock left held would hang it, and the
// test then fails instead of hanging the suite.
Answer runGuarded(const Call &call, const std::string &what) {
    auto done = std::async(std::launch::async, call);
    if (done.wait_for(std::chrono::seconds(120)) != std::future_status::ready) {
        ADD_FAILURE() << what << " did not return: a lock was left held";
        std::abort();
    }
    return done.get();
}

class FaultMatrix : public ProviderTest, public ::testing::WithParamInterface<std::tuple<size_t, size_t>> {
protected:
    const Operation &op() const { return operations()[std::get<0>(GetParam())]; }
    const FaultCase &fault() const { return faults()[std::get<1>(GetParam())]; }

    // A fresh adapter and stale caches; the call arranged on it.
    Call prepare() {
        sim::reset();
        freshClock();
        Call call = op().arrange();
        freshClock();
        sim::clearLog();
        return call;
    }
};

TEST_P(FaultMatrix, AnswersByTheRulesAndLeavesNothingBehind) {
    const Expect &expect = expectationFor(op(), fault());

    // The fault-free run gives the reference answer and the changed state;
    // the state before is the arranged one.
    const Call referenceCall = prepare();
    const std::string before = adapterState();
    const Answer reference = referenceCall();
    const std::string changed = adapterState();
    if (op().path == Path::Command) {
        // Faults are measured against a command that succeeds.
        ASSERT_EQ(reference.rc, CMPI_RC_OK) << describe(reference);
    }
    ASSERT_EQ(sim::openDescriptors(), 0u);

    size_t clonesAfterFirstCycle = 0;
    for (int cycle = 0; cycle < 2; ++cycle) {  // a second cycle shows growth the first one hides
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        const Call call = prepare();
        ASSERT_EQ(adapterState(), before);
        sim::addFault(fault().fault);
        const Answer got = runGuarded(call, op().name);
        const std::string after = adapterState();
        sim::clearFaults();

        SCOPED_TRACE(describe(got));
        if (expect.asWithoutFault) {
            EXPECT_EQ(describe(got), describe(reference));
        } else if (!expect.anyAnswer) {
            EXPECT_EQ(got.rc, expect.rc);
            EXPECT_EQ(got.message, expect.message);
            if (expect.noObjects) {
                EXPECT_TRUE(got.objects.empty());
            }
        }
        if (!expect.log.empty()) {
            EXPECT_TRUE(logged(expect.log)) << "no log line with \"" << expect.log << "\"";
        }

        // All or nothing: a command that never arrived changed nothing; one
        // that arrived changed what the fault-free run changed, or nothing.
        if (!fault().reachesFirmware) {
            EXPECT_EQ(after, before) << "the adapter changed without a command";
        }
        EXPECT_TRUE(after == before || after == changed) << "partial change:\n" << after;

        EXPECT_EQ(sim::openDescriptors(), 0u) << "a device descriptor was left open";
        EXPECT_EQ(liveRequestObjects(), 0u) << "request objects outlived their request";
        // No lock left held: the same operation, and a full rebuild of the
        // controller's cache (which takes the device lock), still return.
        runGuarded(call, op().name + " again");
        freshClock();
        EXPECT_EQ(runGuarded([] { return enumNames("Tovra_RAIDControllerSystem"); }, "a controller rebuild").rc,
                  CMPI_RC_OK);
        if (cycle == 0) {
            clonesAfterFirstCycle = liveClones();
        } else {
            EXPECT_EQ(liveClones(), clonesAfterFirstCycle) << "broker clones grow with every fault";
        }
    }
}

std::string caseName(const ::testing::TestParamInfo<std::tuple<size_t, size_t>> &info) {
    return operations()[std::get<0>(info.param)].name + "_" + faults()[std::get<1>(info.param)].name;
}

INSTANTIATE_TEST_SUITE_P(AllOperations, FaultMatrix,
                         ::testing::Combine(::testing::Range<size_t>(0, operations().size()),
                                            ::testing::Range<size_t>(0, faults().size())),
                         caseName);

}  // namespace
