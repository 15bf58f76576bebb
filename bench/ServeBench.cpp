// tovra-cimd over loopback, warm: GetInstance and EnumerateInstances of the
// disk drives of the `full` scenario (316 disks), each client on one
// keep-alive connection with Basic authentication, as wbemcli-style clients
// send them, and GetInstance of a RAID set for comparison (the disk module
// answers GetInstance through a broker enumeration of all its disks).
// Requests per second are the items_per_second counter.
#include "ServerProcess.h"

#include <benchmark/benchmark.h>
#include <httplib.h>

#include <memory>
#include <stdexcept>

using namespace servertest;

namespace {

struct Served {
    std::unique_ptr<ServerProcess> server;
    std::string getInstance, getPool, enumerateInstances;
};

std::string request(const std::string &method, const std::string &params) {
    std::string full = cimPost(intrinsicBody(method, params));
    return full.substr(full.find("\r\n\r\n") + 4);
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
        httplib::Client c("127.0.0.1", x.server->port());
        c.set_basic_auth("admin", "secret");
        auto r = c.Post("/cimom", {{"CIMOperation", "MethodCall"}, {"CIMMethod", "EnumerateInstanceNames"},
                                   {"CIMObject", "tovra%2Fcimv2"}},
                        request("EnumerateInstanceNames", cls), "application/xml; charset=\"utf-8\"");
        if (!r) throw std::runtime_error("tovra-cimd did not answer");
        size_t at = r->body.rfind("<INSTANCENAME"), end = r->body.rfind("</INSTANCENAME>");
        if (at == std::string::npos || end == std::string::npos) throw std::runtime_error("no disk names: " + r->body);
        x.getInstance = request("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\">" +
                                                   r->body.substr(at, end + 15 - at) + "</IPARAMVALUE>");
        x.getPool = request("GetInstance",
                            R"(<IPARAMVALUE NAME="InstanceName"><INSTANCENAME CLASSNAME="Tovra_StoragePool"><KEYBINDING )"
                            R"(NAME="InstanceID"><KEYVALUE>Raid Set # 000</KEYVALUE></KEYBINDING></INSTANCENAME></IPARAMVALUE>)");
        return x;
    }();
    return s;
}

void run(benchmark::State &state, const char *method, const std::string &body, size_t expectBytes) {
    httplib::Client c("127.0.0.1", served().server->port());
    c.set_basic_auth("admin", "secret");
    c.set_keep_alive(true);
    c.set_tcp_nodelay(true);
    httplib::Headers headers = {{"CIMOperation", "MethodCall"}, {"CIMMethod", method}, {"CIMObject", "tovra%2Fcimv2"}};
    for (auto _ : state) {
        auto r = c.Post("/cimom", headers, body, "application/xml; charset=\"utf-8\"");
        if (!r || r->status != 200 || r->body.size() < expectBytes || r->body.find("<ERROR") != std::string::npos) {
            state.SkipWithError("request failed");
            break;
        }
        benchmark::DoNotOptimize(r->body.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_GetInstanceDisk(benchmark::State &state) { run(state, "GetInstance", served().getInstance, 500); }
void BM_GetInstancePool(benchmark::State &state) { run(state, "GetInstance", served().getPool, 500); }
void BM_EnumerateInstances316Disks(benchmark::State &state) {
    run(state, "EnumerateInstances", served().enumerateInstances, 316 * 1000);
}

}  // namespace

BENCHMARK(BM_GetInstanceDisk)->UseRealTime()->Threads(1)->Threads(4);
BENCHMARK(BM_GetInstancePool)->UseRealTime()->Threads(1)->Threads(4);
BENCHMARK(BM_EnumerateInstances316Disks)->UseRealTime()->Unit(benchmark::kMillisecond)->Threads(1)->Threads(2);

BENCHMARK_MAIN();
