// Enumeration cost on a fully populated adapter (12 enclosures, 316 disks,
// 8 RAID sets, 32 volumes), through our host and the simulated driver:
// a cold cache (every record read from the firmware) against a warm one
// (one open/close of the device, no firmware traffic).
#include <Host.h>
#include <tovrasim/Simulator.h>

#include <benchmark/benchmark.h>

namespace {

cimhost::Host &host() {
    static cimhost::Host h([] {
        cimhost::HostOptions o;
        o.mofPaths = {TOVRA_MOF_DIR};
        o.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
        o.providerDirs = {TOVRA_PROVIDER_DIR};
        return o;
    }());
    return h;
}

void setUp() {
    tovra::sim::loadScenario("full");
    tovra::sim::useVirtualClock(true);
    tovra::sim::captureLog(true);
}

void enumerate(benchmark::State &state, const char *cls, bool cold) {
    setUp();
    size_t count = 0;
    for (auto _ : state) {
        if (cold) tovra::sim::advance(1801);  // every cache stale
        cimhost::Reply r = host().enumerateInstances("tovra/cimv2", cls);
        count = r.instances.size();
        benchmark::DoNotOptimize(r);
    }
    state.counters["instances"] = static_cast<double>(count);
    state.counters["clones"] = static_cast<double>(cimhost::Host::liveClones());
}

void BM_DisksCold(benchmark::State &s) { enumerate(s, "Tovra_DiskDrive", true); }
void BM_DisksWarm(benchmark::State &s) { enumerate(s, "Tovra_DiskDrive", false); }
void BM_VolumesCold(benchmark::State &s) { enumerate(s, "Tovra_StorageVolume", true); }
void BM_VolumesWarm(benchmark::State &s) { enumerate(s, "Tovra_StorageVolume", false); }
void BM_SlotsWarm(benchmark::State &s) { enumerate(s, "Tovra_DiskDriveSlot", false); }
// The adapter's own classes: one identity and one package per disk, the ports
// (a disk walk), and the chassis with three sensor requests per enclosure.
void BM_SoftwareIdentityCold(benchmark::State &s) { enumerate(s, "Tovra_SoftwareIdentity", true); }
void BM_PhysicalPackageCold(benchmark::State &s) { enumerate(s, "Tovra_PhysicalPackage", true); }
void BM_SASSATAPortCold(benchmark::State &s) { enumerate(s, "Tovra_SASSATAPort", true); }
void BM_ChassisCold(benchmark::State &s) { enumerate(s, "Tovra_Chassis", true); }

BENCHMARK(BM_DisksCold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DisksWarm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VolumesCold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VolumesWarm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SlotsWarm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SoftwareIdentityCold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PhysicalPackageCold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SASSATAPortCold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ChassisCold)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
