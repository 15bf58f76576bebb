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

#include <future>
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
    return keys;
}

// Where an instance module's GetInstance finds its answer.
enum class GetFrom {
    Cache,       // the instance cache, refreshed through the broker when stale
    OwnLookup,   // a lookup of its own on the adapter
    Constants,   // built from constants, without the device
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
        // Association modules: one row per operation, Path::Cached (the source
        // and the far end are read through the broker), for example
        //   ops.push_back({"Tovra_X_AssociatorNames", Path::Cached, [] {
        //       const Keys source = keysOf(enumNames("Tovra_StoragePool").objects.at(0));
        //       return Call([=] { return associatorNames("Tovra_StoragePool", source); });
        //   }});
        // Method modules: the cache-reset method of each, then its own methods
        // as Path::Command rows with the overrides their rules give, e.g.
        //   addMethod(ops, "Tovra_StoragePool", "DeleteRAIDSet", Path::Command, {{"RAIDNo", In::u32(2)}},
        //             {{"OpenFailure", status(CMPI_RC_ERROR_SYSTEM, "DeleteRAIDSet: File Open Failed.")}});
        // (the arrange step runs on a freshly reset adapter, so a row may first
        // create what its method removes).
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

    // The fault-free run gives the reference answer and the changed state.
    const std::string before = adapterState();
    const Answer reference = prepare()();
    const std::string changed = adapterState();
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
