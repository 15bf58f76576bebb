// Association cost on a fully populated adapter (316 disks, extents and
// slots in 12 enclosures) through our host: the enumerations pair n x m
// instances and enumerate the left class once per right-end instance; the
// reference operations enumerate the far class once. Beside them, warm
// enumerations of the adapter's classes and of a constant-instance baseline
// of the same shapes, so the ratios can be read in one run.
#include <Host.h>
#include <tovrasim/Simulator.h>

#include <benchmark/benchmark.h>

namespace {

cimhost::Host &host() {
    static cimhost::Host h([] {
        cimhost::HostOptions o;
        o.mofPaths = {TOVRA_MOF_DIR, BASELINE_MOF};
        o.registrationFile = BENCH_REGISTRATION;
        o.providerDirs = {TOVRA_PROVIDER_DIR, BASELINE_PROVIDER_DIR};
        return o;
    }());
    return h;
}

constexpr const char *kNs = "tovra/cimv2";

void setUp() {
    static bool done = false;
    if (done) return;
    done = true;
    tovra::sim::loadScenario("full");
    tovra::sim::useVirtualClock(true);
    tovra::sim::captureLog(true);
}

template <class Op> void run(benchmark::State &state, Op &&op) {
    setUp();
    op();  // caches warm: what is timed is the engine and the host, not the firmware
    size_t count = 0;
    for (auto _ : state) {
        cimhost::Reply r = op();
        if (!r.ok()) state.SkipWithError(cimhost::rcName(r.rc).c_str());
        count = r.paths.size() + r.instances.size();
        benchmark::DoNotOptimize(r);
    }
    state.counters["results"] = static_cast<double>(count);
}

cimhost::ObjectPathV firstPath(const char *cls) {
    setUp();
    cimhost::Reply r = host().enumerateInstanceNames(kNs, cls);
    return r.paths.empty() ? cimhost::ObjectPathV{} : r.paths.front();
}

void names(benchmark::State &s, const char *cls) {
    run(s, [&] { return host().enumerateInstanceNames(kNs, cls); });
}
void instances(benchmark::State &s, const char *cls) {
    run(s, [&] { return host().enumerateInstances(kNs, cls); });
}
void referencesFrom(benchmark::State &s, const char *sourceClass, const char *assoc) {
    const cimhost::ObjectPathV source = firstPath(sourceClass);
    run(s, [&] { return host().references(source, assoc); });
}

void BM_MediaPresentNames(benchmark::State &s) { names(s, "Tovra_MediaPresent"); }
void BM_ContainerNames(benchmark::State &s) { names(s, "Tovra_Container"); }
void BM_MediaPresentReferencesFromDisk(benchmark::State &s) {
    referencesFrom(s, "Tovra_DiskDrive", "Tovra_MediaPresent");
}
void BM_MediaPresentReferencesFromExtent(benchmark::State &s) {
    referencesFrom(s, "Tovra_DiskExtent", "Tovra_MediaPresent");
}
void BM_ContainerReferencesFromSlot(benchmark::State &s) {
    referencesFrom(s, "Tovra_DiskDriveSlot", "Tovra_Container");
}
void BM_DisksWarm(benchmark::State &s) { instances(s, "Tovra_DiskDrive"); }
void BM_BaselineDisks(benchmark::State &s) { instances(s, "Baseline_DiskDrive"); }
void BM_DiskNamesWarm(benchmark::State &s) { names(s, "Tovra_DiskDrive"); }
void BM_BaselineDiskNames(benchmark::State &s) { names(s, "Baseline_DiskDrive"); }
void BM_ExtentsWarm(benchmark::State &s) { instances(s, "Tovra_DiskExtent"); }
void BM_BaselineExtents(benchmark::State &s) { instances(s, "Baseline_DiskExtent"); }
void BM_SlotsWarm(benchmark::State &s) { instances(s, "Tovra_DiskDriveSlot"); }
void BM_BaselineSlots(benchmark::State &s) { instances(s, "Baseline_DiskDriveSlot"); }

// Association requests make up-calls, served on other threads: their time is wall time.
BENCHMARK(BM_MediaPresentNames)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ContainerNames)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MediaPresentReferencesFromDisk)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MediaPresentReferencesFromExtent)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ContainerReferencesFromSlot)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DisksWarm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineDisks)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DiskNamesWarm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineDiskNames)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExtentsWarm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineExtents)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SlotsWarm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineSlots)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
