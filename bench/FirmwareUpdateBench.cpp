// Firmware update through our host into the simulated adapter: an image sent
// in 512-byte pages, one locked exchange per page, each page logged by its
// sender and reader.
#include <Host.h>
#include <tovrasim/FirmwareImage.h>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <fstream>

namespace {

cimhost::Host &host() {
    static cimhost::Host h([] {
        cimhost::HostOptions o;
        o.mofPaths = {TOVRA_MOF_DIR};
        o.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
        o.providerDirs = {TOVRA_PROVIDER_DIR};
        o.principal = "root";
        return o;
    }());
    h.setPermission("root", 5);
    return h;
}

void update(benchmark::State &state) {
    namespace sim = tovra::sim;
    const auto image = sim::makeFirmwareImage("V9.99 BENCH", static_cast<std::size_t>(state.range(0)) - 64);
    const std::string path = "/tmp/tovra-fw-bench-" + std::to_string(::getpid()) + ".img";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(image.data()), static_cast<std::streamsize>(image.size()));
    sim::loadScenario("default");
    sim::useVirtualClock(true);
    sim::captureLog(true);
    cimhost::ObjectPathV controller;
    controller.ns = "tovra/cimv2";
    controller.className = "Tovra_RAIDControllerSystem";
    for (auto _ : state) {
        sim::withModel([](sim::Model &m) { m.password.clear(); });
        sim::clearLog();
        cimhost::Reply r = host().invokeMethod(controller, "UpdateFirmware",
                                               {{"FileName", cimhost::Value::string(path)}});
        if (r.rc != CMPI_RC_OK) state.SkipWithError(r.message.c_str());
        benchmark::DoNotOptimize(r);
    }
    ::unlink(path.c_str());
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.counters["pages"] = static_cast<double>((state.range(0) + 511) / 512);
}

BENCHMARK(update)->Name("BM_FirmwareUpdate")->Arg(1 << 20)->Arg(16 << 20)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
