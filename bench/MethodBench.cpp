// Cost of a management method through our host and the simulated driver:
// a volume created and deleted again (two firmware commands, the privilege
// check and the cache resets through the broker), on a process-private
// adapter and on one shared with other processes through a state file.
#include <Host.h>
#include <tovrasim/Simulator.h>

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

using cimhost::Value;

cimhost::Host &host() {
    static cimhost::Host h([] {
        cimhost::HostOptions o;
        o.mofPaths = {TOVRA_MOF_DIR};
        o.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
        o.providerDirs = {TOVRA_PROVIDER_DIR};
        return o;
    }());
    h.setPermission("root", 5);
    return h;
}

void createAndDelete(benchmark::State &state, bool shared) {
    const std::string statePath = "/tmp/tovra-bench-state-" + std::to_string(getpid()) + ".json";
    tovra::sim::loadScenario("default");
    tovra::sim::useVirtualClock(true);
    tovra::sim::captureLog(true);
    if (shared) tovra::sim::setStateFile(statePath);
    const cimhost::ObjectPathV path = host().path("tovra/cimv2", "Tovra_StorageVolume");
    const cimhost::NamedValues create = {
        {"ID", Value::u32(2)},   {"LUN", Value::u32(0)},          {"RAIDNo", Value::u32(2)}, {"Strp", Value::u32(64)},
        {"Ll", Value::u32(5)},   {"Cap", Value::u32(10)},         {"Name", Value::string("B")},
        {"Cache", Value::u32(1)}, {"FG", Value::u32(0)},          {"GtT", Value::u32(0)},    {"Tag", Value::u32(1)}};
    const cimhost::NamedValues remove = {{"Num", Value::u32(4)}};
    for (auto _ : state) {
        cimhost::Reply made = host().invokeMethod(path, "CreateVolume", create);
        cimhost::Reply gone = host().invokeMethod(path, "DeleteVolume", remove);
        if (made.rc != CMPI_RC_OK || gone.rc != CMPI_RC_OK) state.SkipWithError("a method failed");
        tovra::sim::clearLog();
    }
    if (shared) {
        tovra::sim::setStateFile("");
        std::remove(statePath.c_str());
        std::remove((statePath + ".lock").c_str());
    }
}

void BM_CreateDeleteVolume(benchmark::State &s) { createAndDelete(s, false); }
void BM_CreateDeleteVolumeSharedState(benchmark::State &s) { createAndDelete(s, true); }

BENCHMARK(BM_CreateDeleteVolume)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CreateDeleteVolumeSharedState)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
