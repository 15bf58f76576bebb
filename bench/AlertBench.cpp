// The alert watcher's cost: one quiet round (the health of every element and
// the poll) on the default and the full adapter, as the process's CPU time
// per round (the benchmark's own thread only sleeps between polls), and the
// firmware exchanges a round makes.
#include <Host.h>
#include <tovrasim/Simulator.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <ctime>
#include <cstdlib>
#include <thread>

namespace {

double processSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

void watchRounds(benchmark::State &state, const char *scenario) {
    ::setenv("TOVRA_ALERT_INTERVAL", "0.01", 1);
    tovra::sim::loadScenario(scenario);
    tovra::sim::useVirtualClock(true);
    tovra::sim::captureLog(true);
    cimhost::HostOptions o;
    o.mofPaths = {TOVRA_MOF_DIR};
    o.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
    o.providerDirs = {TOVRA_PROVIDER_DIR};
    cimhost::Host host(o);
    const char *q = "SELECT * FROM Tovra_AlertIndication";
    host.activateFilter("tovra/cimv2", "Tovra_AlertIndication", q);
    auto nextRound = [] {
        const unsigned from = tovra::sim::exchanges(0x19);
        while (tovra::sim::exchanges(0x19) == from) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    nextRound();
    unsigned exchanges = 0, rounds = 0;
    for (auto _ : state) {
        const unsigned before = tovra::sim::exchanges();
        const double start = processSeconds();
        nextRound();
        state.SetIterationTime(processSeconds() - start);
        exchanges += tovra::sim::exchanges() - before;
        ++rounds;
    }
    host.deactivateFilter("tovra/cimv2", "Tovra_AlertIndication", q);
    state.counters["exchanges_per_round"] = rounds != 0 ? static_cast<double>(exchanges) / rounds : 0;
}

void BM_RoundDefault(benchmark::State &s) { watchRounds(s, "default"); }
void BM_RoundFull(benchmark::State &s) { watchRounds(s, "full"); }

BENCHMARK(BM_RoundDefault)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(50);
BENCHMARK(BM_RoundFull)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(50);

}  // namespace

BENCHMARK_MAIN();
