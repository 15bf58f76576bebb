// tovra-cimd over loopback, warm: GetInstance and EnumerateInstances of the
// disk drives of the `full` scenario (316 disks), each client on one
// keep-alive connection with Basic authentication, as wbemcli-style clients
// send them, and GetInstance of a RAID set for comparison (the disk module
// answers GetInstance through a broker enumeration of all its disks).
// Requests per second are the items_per_second counter.
#include "ServerProcess.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>

using namespace servertest;

namespace {

struct Served {
    std::unique_ptr<ServerProcess> server;
    std::string getInstance, getPool, enumerateInstances, scrape;
};

// A whole keep-alive request, head and body.
std::string request(const std::string &method, const std::string &params) {
    return cimPost(intrinsicBody(method, params), {{"Connection", "keep-alive"}});
}

Served &served() {
    static Served s = [] {
        Served x;
        x.server = std::make_unique<ServerProcess>(
            std::vector<std::string>{"--users", usersFile(), "--threads", "4"},
            std::vector<std::string>{"TOVRA_SIM_SCENARIO=full"});
        const std::string cls = R"(<IPARAMVALUE NAME="ClassName"><CLASSNAME NAME="Tovra_DiskDrive"/></IPARAMVALUE>)";
        x.enumerateInstances = request("EnumerateInstances", cls);
        // The name of the last disk, for GetInstance.
        std::string names = rawExchange(x.server->port(), cimPost(intrinsicBody("EnumerateInstanceNames", cls)));
        size_t at = names.rfind("<INSTANCENAME"), end = names.rfind("</INSTANCENAME>");
        if (at == std::string::npos || end == std::string::npos) throw std::runtime_error("no disk names: " + names);
        x.getInstance = request("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\">" +
                                                   names.substr(at, end + 15 - at) + "</IPARAMVALUE>");
        x.getPool = request("GetInstance",
                            R"(<IPARAMVALUE NAME="InstanceName"><INSTANCENAME CLASSNAME="Tovra_StoragePool"><KEYBINDING )"
                            R"(NAME="InstanceID"><KEYVALUE>Raid Set # 000</KEYVALUE></KEYBINDING></INSTANCENAME></IPARAMVALUE>)");
        x.scrape = "GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Basic YWRtaW46c2VjcmV0\r\n"
                   "Accept: application/openmetrics-text;version=1.0.0,text/plain;version=0.0.4;q=0.5\r\n\r\n";
        return x;
    }();
    return s;
}

void run(benchmark::State &state, const std::string &request, size_t expectBytes) {
    Connection c(served().server->port());
    for (auto _ : state) {
        std::string reply;
        if (c.send(request)) reply = c.response(std::chrono::seconds(30));
        if (reply.rfind("HTTP/1.1 200 ", 0) != 0 || reply.size() < expectBytes || reply.find("<ERROR") != std::string::npos ||
            reply.find("_up{class=\"Tovra_DiskDrive\"} 0") != std::string::npos) {
            state.SkipWithError("request failed");
            break;
        }
        benchmark::DoNotOptimize(reply.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_GetInstanceDisk(benchmark::State &state) { run(state, served().getInstance, 500); }
void BM_GetInstancePool(benchmark::State &state) { run(state, served().getPool, 500); }
void BM_EnumerateInstances316Disks(benchmark::State &state) {
    run(state, served().enumerateInstances, 316 * 1000);
}
void BM_ScrapeMetrics316Disks(benchmark::State &state) { run(state, served().scrape, 316 * 1000); }

}  // namespace

BENCHMARK(BM_GetInstanceDisk)->UseRealTime()->Threads(1)->Threads(4);
BENCHMARK(BM_GetInstancePool)->UseRealTime()->Threads(1)->Threads(4);
BENCHMARK(BM_EnumerateInstances316Disks)->UseRealTime()->Unit(benchmark::kMillisecond)->Threads(1)->Threads(2);
BENCHMARK(BM_ScrapeMetrics316Disks)->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
