// Soak and stress: client threads mix every read (and method) operation
// through the host against the simulator while the virtual clock moves on, so
// the caches expire and rebuild, and faults of every kind fire at random
// rates. Every answer is checked against the ones the rules allow; throughput,
// resident memory and live objects are reported over time.
//
//   tovra_soak [--seconds S] [--rebuilds N] [--threads T] [--fault-rate R] [--report S]
//
// Stops after S seconds or N cache rebuilds, whichever comes first. Exits 1
// when an answer was not allowed or something was left behind.
#include "Harness.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace harness;
namespace sim = tovra::sim;
using Clock = std::chrono::steady_clock;

namespace {

struct Options {
    double seconds = 60;
    unsigned long rebuilds = 0;  // 0 = no limit
    unsigned threads = 4;
    double faultRate = 0.02;
    double report = 10;
};

// An object's class and keys, in key-name order.
std::string keyText(const Obj &o) {
    std::set<std::string> keys;
    for (const auto &[k, v] : o.keys) keys.insert(k + '=' + v.text);
    std::string s = o.className;
    for (const std::string &k : keys) s += ' ' + k;
    return s;
}

// One kind of request and the answers it may get.
struct Workload {
    std::string name;
    std::function<Answer()> call;
    std::function<bool(const Answer &)> allowed;
};

// Under faults a read may fail (1, 100), come back empty (a failed read or
// send), or come back short (a record that failed to read is skipped), but it
// never answers an object the adapter does not have.
// Enumerations stream what they find (an instance module returns each record
// as its cache is rebuilt, an association each pair), so a failure part way
// follows the objects already sent (a CIMOM then answers only the error).
std::function<bool(const Answer &)> subsetOf(const Answer &full, std::set<CMPIrc> also = {},
                                             bool streamed = false) {
    std::set<std::string> known;
    for (const Obj &o : full.objects) known.insert(keyText(o));
    return [known, also, streamed](const Answer &a) {
        if (a.rc != CMPI_RC_OK && a.rc != CMPI_RC_ERR_FAILED && a.rc != CMPI_RC_ERROR_SYSTEM && !also.count(a.rc))
            return false;
        if (a.rc != CMPI_RC_OK && !a.objects.empty() && !streamed) return false;
        for (const Obj &o : a.objects)
            if (!known.count(keyText(o))) return false;
        return true;
    };
}

// The mix: every read of every instance module, the names and far ends of a
// few associations, and methods that leave the adapter as it was, each with
// the answers allowed, built against the fault-free adapter.
std::vector<Workload> workloads() {
    std::vector<Workload> w;
    const std::vector<std::pair<std::string, std::string>> classes = {
        {"Tovra_RAIDControllerSystem", kNs}, {"Tovra_RegisteredProfile", kInterop}, {"Tovra_StoragePool", kNs},
        {"Tovra_StorageVolume", kNs},       {"Tovra_DefaultStorageSetting", kNs},  {"Tovra_DiskDrive", kNs},
        {"Tovra_DiskDriveSlot", kNs},       {"Tovra_DiskExtent", kNs},             {"Tovra_Chassis", kNs},
        {"Tovra_PortController", kNs},      {"Tovra_SoftwareIdentity", kNs},       {"Tovra_PhysicalPackage", kNs},
        {"Tovra_Battery", kNs},             {"Tovra_SASSATAPort", kNs},            {"Tovra_EventLog", kNs},
    };
    for (const auto &[cls, ns] : classes) {
        const Answer names = enumNames(cls, ns), instances = enumInstances(cls, ns);
        if (names.rc != CMPI_RC_OK || names.objects.empty()) {
            std::fprintf(stderr, "soak: %s has no instances without faults\n", cls.c_str());
            std::exit(2);
        }
        w.push_back({cls + " names", [cls, ns] { return enumNames(cls, ns); }, subsetOf(names, {}, true)});
        w.push_back({cls + " instances", [cls, ns] { return enumInstances(cls, ns); }, subsetOf(instances, {}, true)});
        Keys keys;
        for (const auto &[k, v] : names.objects.front().keys) keys.emplace_back(k, In::str(v.text));
        Answer one = names;
        one.objects.resize(1);
        w.push_back({cls + " get", [cls, ns, keys] { return getInstance(cls, keys, ns); },
                     subsetOf(one, {CMPI_RC_ERR_NOT_FOUND})});
    }
    // Associations: the names of each of a few, and the far ends of a source.
    const std::vector<std::pair<std::string, std::string>> associations = {
        {"Tovra_AllocatedFromStoragePool", "Tovra_StoragePool"},
        {"Tovra_SystemDeviceDiskDrive", "Tovra_RAIDControllerSystem"},
        {"Tovra_MediaPresent", "Tovra_DiskDrive"},
        {"Tovra_RealizesDiskDrive", "Tovra_PhysicalPackage"},
        {"Tovra_LogicalIdentity", "Tovra_PortController"},
    };
    for (const auto &[assoc, sourceClass] : associations) {
        const Answer names = enumNames(assoc), sources = enumNames(sourceClass);
        if (names.rc != CMPI_RC_OK || names.objects.empty() || sources.objects.empty()) {
            std::fprintf(stderr, "soak: %s has no instances without faults\n", assoc.c_str());
            std::exit(2);
        }
        const std::string from = sources.objects.front().path;
        const AssocFilter only{assoc, "", "", ""};
        // A source read short under a fault is not found.
        const std::set<CMPIrc> notFound = {CMPI_RC_ERR_NOT_FOUND};
        w.push_back({assoc + " names", [assoc] { return enumNames(assoc); }, subsetOf(names, {}, true)});
        w.push_back({assoc + " associator names", [from, only] { return associatorNames(from, only); },
                     subsetOf(associatorNames(from, only), notFound, true)});
        w.push_back({assoc + " references", [from, assoc] { return references(from, assoc); },
                     subsetOf(references(from, assoc), notFound, true)});
    }
    // Methods that leave the adapter as it was: a refused argument never
    // reaches it, a password check and a failed delete change nothing.
    const auto answered = [](std::set<CMPIrc> allowed) {
        return [allowed](const Answer &a) { return allowed.count(a.rc) != 0; };
    };
    const std::set<CMPIrc> commandFaults = {CMPI_RC_ERR_FAILED, CMPI_RC_ERROR_SYSTEM, static_cast<CMPIrc>(0xB0)};
    auto with = [](std::set<CMPIrc> s, CMPIrc rc) {
        s.insert(rc);
        return s;
    };
    w.push_back({"CheckPassword", [] {
                     return invoke("Tovra_RAIDControllerSystem", "CheckPassword", {{"Password", In::str("0000")}});
                 },
                 answered(with(commandFaults, CMPI_RC_OK))});
    w.push_back({"SetHttpPort refused", [] {
                     return invoke("Tovra_RAIDControllerSystem", "SetHttpPort", {{"Value", In::u32(0)}});
                 },
                 answered({CMPI_RC_ERR_FAILED})});
    w.push_back({"DeleteVolume of none", [] { return invoke("Tovra_StorageVolume", "DeleteVolume", {{"Num", In::u32(9)}}); },
                 answered(with(with(commandFaults, static_cast<CMPIrc>(0x45)), CMPI_RC_OK))});
    w.push_back({"DeleteRAIDSet of none", [] { return invoke("Tovra_StoragePool", "DeleteRAIDSet", {{"RAIDNo", In::u32(8)}}); },
                 answered(with(with(commandFaults, static_cast<CMPIrc>(0x44)), CMPI_RC_OK))});
    for (const char *cls : {"Tovra_RAIDControllerSystem", "Tovra_StoragePool", "Tovra_StorageVolume", "Tovra_DiskDrive"})
        w.push_back({std::string(cls) + " TimeCalibration", [cls] { return invoke(cls, "TimeCalibration"); },
                     [](const Answer &a) { return a.rc == CMPI_RC_OK && a.value && a.value->text == "OK"; }});
    return w;
}

long residentKiB() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

Options parse(int argc, char **argv) {
    Options o;
    CLI::App app{"Soak: client threads mix every operation against the simulated adapter."};
    app.add_option("--seconds", o.seconds, "stop after this many seconds")->capture_default_str();
    app.add_option("--rebuilds", o.rebuilds, "stop after this many cache rebuild passes (0: no limit)")
        ->capture_default_str();
    app.add_option("--threads", o.threads, "client threads")->capture_default_str()->check(CLI::Range(1u, 256u));
    app.add_option("--fault-rate", o.faultRate, "chance per request of each fault kind")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1.0));
    app.add_option("--report", o.report, "seconds between reports")->capture_default_str()->check(CLI::PositiveNumber);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        std::exit(app.exit(e) == 0 ? 0 : 2);
    }
    return o;
}

}  // namespace

int main(int argc, char **argv) {
    const Options opt = parse(argc, argv);
    sim::loadScenario("default");
    sim::useVirtualClock(true);
    sim::captureLog(true);
    sim::setTime(2000000000);
    setPermission("root", 5);

    const std::vector<Workload> mix = workloads();
    using K = sim::FaultKind;
    for (K kind : {K::Delay, K::NoReply, K::ZeroLength, K::BadChecksum, K::Garbage, K::Chunk, K::ReadFail,
                   K::WriteFail, K::OpenFail})
        sim::addFault({.kind = kind, .rate = opt.faultRate, .value = kind == K::Delay ? 200000u : 2u});

    std::atomic<bool> stop{false};
    std::atomic<unsigned long> done{0}, rejected{0};
    std::mutex reportMutex;
    auto client = [&](unsigned seed) {
        std::mt19937 rng(seed);
        while (!stop) {
            const Workload &w = mix[rng() % mix.size()];
            const Answer a = w.call();
            ++done;
            if (!w.allowed(a)) {
                ++rejected;
                std::lock_guard lock(reportMutex);
                std::fprintf(stderr, "soak: %s answered %d \"%s\" with %zu objects\n", w.name.c_str(), a.rc,
                             a.message.c_str(), a.objects.size());
            }
        }
    };
    std::vector<std::thread> clients;
    for (unsigned t = 0; t < opt.threads; ++t) clients.emplace_back(client, 1000 + t);

    // The clock thread: every pass makes every cache stale, so the clients'
    // next reads rebuild them; the captured log is dropped as it grows.
    const auto start = Clock::now();
    auto last = start;
    unsigned long rebuilds = 0, lastDone = 0;
    long firstRss = 0, peakRss = 0;
    std::printf("%8s %10s %9s %10s %9s %7s %8s\n", "seconds", "requests", "req/s", "rebuilds", "rss_kib", "clones",
                "rejected");
    while (true) {
        const unsigned long before = sim::exchanges(0x23);
        sim::advance(1801);
        while (sim::exchanges(0x23) == before && Clock::now() - start < std::chrono::duration<double>(opt.seconds))
            std::this_thread::yield();  // until some cache rebuilt
        ++rebuilds;
        sim::clearLog();
        const auto now = Clock::now();
        const double elapsed = std::chrono::duration<double>(now - start).count();
        const bool finished = elapsed >= opt.seconds || (opt.rebuilds && rebuilds >= opt.rebuilds);
        if (std::chrono::duration<double>(now - last).count() >= opt.report || finished) {
            const long rss = residentKiB();
            if (firstRss == 0) firstRss = rss;
            peakRss = std::max(peakRss, rss);
            const unsigned long n = done;
            std::printf("%8.1f %10lu %9.0f %10lu %9ld %7zu %8lu\n", elapsed, n,
                        (n - lastDone) / std::chrono::duration<double>(now - last).count(), rebuilds, rss,
                        liveClones(), rejected.load());
            std::fflush(stdout);
            last = now;
            lastDone = n;
        }
        if (finished) break;
    }
    stop = true;
    for (auto &t : clients) t.join();
    sim::clearFaults();

    const long endRss = residentKiB();
    const bool leftOpen = sim::openDescriptors() != 0, leftObjects = liveRequestObjects() != 0;
    std::printf("requests %lu, cache rebuild passes %lu, controller reads (one per rebuild attempt) %u, "
                "rejected answers %lu\n",
                done.load(), rebuilds, sim::exchanges(0x23), rejected.load());
    std::printf("resident memory: first report %ld KiB, end %ld KiB (%+.1f%%), peak %ld KiB\n", firstRss, endRss,
                firstRss ? 100.0 * (endRss - firstRss) / firstRss : 0.0, peakRss);
    std::printf("left behind: %u descriptors, %zu request objects\n", sim::openDescriptors(), liveRequestObjects());
    return rejected || leftOpen || leftObjects ? 1 : 0;
}
