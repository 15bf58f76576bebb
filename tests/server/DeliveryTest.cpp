// Indications from a provider to tovra-cim listen processes through the
// server: what each filter lets through, and that a dead listener or a full
// queue costs its own destination only (the others still get theirs, and
// requests are still answered).
#include "AlertSupport.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <regex>
#include <sstream>

using namespace servertest;

namespace {

std::string subscriptionFile(const std::string &name) {
    return "/tmp/tovra-alert-delivery-" + std::to_string(getpid()) + "-" + name;
}

// Makes a filter, a destination and their subscription; the reply of the last.
std::string subscribe(const ServerProcess &server, const std::string &name, const std::string &query,
                      const std::string &url) {
    rawExchange(server.port(), interopPost(createFilter(name, query)));
    rawExchange(server.port(), interopPost(createDestination(name, url)));
    return rawExchange(server.port(), interopPost(createSubscription(name, name)));
}

// Each subscription the test provider hears of makes it report
// authorizeFilter, activateFilter, enableIndications (for its first filter)
// and one from a thread it starts.
constexpr std::size_t kFirstCalls = 4;

// A socket that takes connections into its backlog and never reads: a
// listener that hangs.
struct BlackHole {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int port = 0;
    BlackHole() {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof addr;
        bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
        listen(fd, 16);
        getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &length);
        port = ntohs(addr.sin_port);
    }
    ~BlackHole() { close(fd); }
};

}  // namespace

TEST(Delivery, FiltersSelectWhatAListenerPrints) {
    struct Case {
        const char *name;
        const char *query;
        std::vector<std::string> listenArgs;
        std::size_t lines;                  // indications printed
        std::vector<std::string> expect;    // each in the output
        std::vector<std::string> absent;    // none in the output
    };
    const std::vector<Case> cases = {
        {"everything, as text", "SELECT * FROM Test_Signal", {}, kFirstCalls,
         {" Test_Beacon from 127.0.0.1\n", "  Call = authorizeFilter\n", "  Call = activateFilter\n",
          "  Call = thread\n", "  IndicationFilterName = case\n", "  Owner = admin\n", "  SequenceNumber = 3\n"},
         {"SequenceNumber = 4"}},
        {"a WHERE clause, as JSON", "SELECT * FROM Test_Signal WHERE Call = 'activateFilter' AND Flag = TRUE", {"--json"}, 1,
         {R"({"class":"Test_Beacon","time":")",
          R"("Call":"activateFilter")", R"("Flag":true)", R"("IndicationFilterName":"case")", R"("SequenceNumber":0)"},
         {"authorizeFilter"}},
        {"a select list and NOT", "SELECT Call FROM Test_Beacon WHERE NOT (Call = 'thread')", {"--json"}, 3,
         {R"("Call":"authorizeFilter")", R"("Call":"enableIndications")"}, {"thread", "Owner", "ClassName"}},
        {"IS NOT NULL", "SELECT * FROM Test_Signal WHERE Owner IS NOT NULL", {"--json"}, 1,
         {R"("Call":"authorizeFilter")", R"("Owner":"admin")"}, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ServerProcess server(alertServerArgs(subscriptionFile("filters")), {}, Library::testProvider());
        ListenerProcess listener(c.listenArgs);
        ASSERT_NE(subscribe(server, "case", c.query, listener.url()).find("<IRETURNVALUE>"), std::string::npos);
        EXPECT_TRUE(eventually([&] { return listener.count("Test_Beacon") == c.lines; })) << listener.output();
        const std::string out = listener.output();
        for (const std::string &e : c.expect) EXPECT_NE(out.find(e), std::string::npos) << e << "\n" << out;
        for (const std::string &a : c.absent) EXPECT_EQ(out.find(a), std::string::npos) << a << "\n" << out;
        EXPECT_EQ(server.stop(), 0);
        unlink(subscriptionFile("filters").c_str());
    }
}

TEST(Delivery, ADeadListenerCostsOnlyItsOwnQueue) {
    const std::string file = subscriptionFile("dead");
    ServerProcess server(alertServerArgs(file, {"--delivery-retries", "2", "--delivery-retry-interval", "0.02"}), {},
                         Library::testProvider());
    const std::string dead = "http://127.0.0.1:" + std::to_string(deadPort());
    ASSERT_NE(subscribe(server, "dead", "SELECT * FROM Test_Signal", dead).find("<IRETURNVALUE>"), std::string::npos);
    ListenerProcess live({"--json"});
    // Another query: the host hands the providers each query once.
    ASSERT_NE(subscribe(server, "live", "SELECT * FROM Test_Beacon", live.url()).find("<IRETURNVALUE>"), std::string::npos);
    EXPECT_TRUE(eventually([&] { return live.count("Test_Beacon") == 2; })) << live.output();
    // Every indication for the dead one is tried three times, then dropped and logged.
    EXPECT_TRUE(eventually([&] {
        const std::string log = server.log();
        std::size_t n = 0;
        for (auto at = log.find("failed after 3 attempt(s)"); at != std::string::npos; at = log.find("failed after 3", at + 1)) ++n;
        return n == kFirstCalls + 2;
    })) << server.log();
    EXPECT_NE(rawExchange(server.port(), interopPost(interopBody("EnumerateInstanceNames", classParam("CIM_IndicationFilter"))))
                  .find("<INSTANCENAME CLASSNAME=\"CIM_IndicationFilter\">"),
              std::string::npos);
    EXPECT_EQ(server.stop(), 0);
    EXPECT_TRUE(std::regex_search(server.log(), std::regex("delivery to http://127.0.0.1:[0-9]+/: 0 delivered, 6 failed, 0 dropped")))
        << server.log();
    unlink(file.c_str());
}

TEST(Delivery, AFullQueueDropsAndCountsWhileOthersFlow) {
    const std::string file = subscriptionFile("full");
    ServerProcess server(alertServerArgs(file, {"--delivery-queue", "2", "--delivery-timeout", "60"}), {},
                         Library::testProvider());
    BlackHole hole;
    ASSERT_NE(subscribe(server, "hole", "SELECT * FROM Test_Signal", "http://127.0.0.1:" + std::to_string(hole.port))
                  .find("<IRETURNVALUE>"),
              std::string::npos);
    ListenerProcess live({"--json"});
    ASSERT_NE(subscribe(server, "live", "SELECT * FROM Test_Signal WHERE Call <> 'deActivateFilter'", live.url())
                  .find("<IRETURNVALUE>"),
              std::string::npos);
    // More indications than the hung listener's queue holds: each new
    // subscription of the live filter's kind makes two, each deletion one.
    // The live listener gets its own all along (each round waits for them,
    // so its queue of two never fills).
    const std::size_t rounds = 20;
    for (std::size_t i = 0; i < rounds; ++i) {
        const std::string name = "more" + std::to_string(i);
        ASSERT_NE(subscribe(server, name, "SELECT * FROM Test_Signal WHERE Call = 'none'", live.url()).find("<IRETURNVALUE>"),
                  std::string::npos);
        ASSERT_NE(rawExchange(server.port(), interopPost(interopBody("DeleteInstance", instanceParam(subscriptionName(name, name)))))
                      .find("<IRETURNVALUE>"),
                  std::string::npos);
        ASSERT_TRUE(eventually([&] { return live.count("Test_Beacon") == 2 + 2 * (i + 1); })) << live.output() << server.log();
    }
    EXPECT_TRUE(eventually([&] { return server.log().find(": queue full (2), 1 indication(s) dropped, 1 in all") != std::string::npos; }))
        << server.log();
    EXPECT_EQ(server.stop(), 0);
    std::smatch m;
    const std::string log = server.log();
    ASSERT_TRUE(std::regex_search(log, m, std::regex(std::to_string(hole.port) + "/: 0 delivered, 0 failed, ([0-9]+) dropped \\(queue full\\), 2 not sent")))
        << log;
    // Every indication past the two in the queue was counted; the host's
    // deactivations at shutdown may add theirs.
    EXPECT_GE(std::stoul(m[1]), kFirstCalls + 2 + 3 * rounds - 2);
    EXPECT_LE(std::stoul(m[1]), kFirstCalls + 2 + 3 * rounds - 2 + 3);
    unlink(file.c_str());
}

TEST(Delivery, AFailedDiskArrivesAsOneAlert) {
    const std::string state = subscriptionFile("state.json"), file = subscriptionFile("disk");
    unlink(state.c_str());
    // The adapter is shared through a state file with the control command;
    // the provider looks at it every 50 ms.
    ServerProcess server(alertServerArgs(file), {"TOVRA_SIM_STATE=" + state, "TOVRA_ALERT_INTERVAL=0.05"});
    ListenerProcess listener({"--json"});
    ASSERT_NE(subscribe(server, "disks",
                        "SELECT * FROM CIM_AlertIndication WHERE ProbableCause = 86 OR Message = 'Controller: watched'",
                        listener.url())
                  .find("<IRETURNVALUE>"),
              std::string::npos);
    auto sim = [&](std::vector<std::string> command) {
        command.insert(command.begin(), {"env", "TOVRA_SIM_STATE=" + state, TOVRA_SIM_TOOL});
        servertest::Run r = runProgram(command);
        EXPECT_EQ(r.status, 0) << r.output;
    };
    // The provider takes what the adapter shows in its first round and
    // alerts on what changes after it: an event logged until one arrives
    // says the watching has begun.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    do {
        sim({"event", "watched"});
    } while (!eventually([&] { return listener.count("Controller: watched") != 0; }, std::chrono::milliseconds(500)) &&
             std::chrono::steady_clock::now() < deadline);
    ASSERT_NE(listener.count("Controller: watched"), 0u) << listener.output();
    sim({"fail-disk", "2", "1"});
    ASSERT_TRUE(eventually([&] { return listener.count(R"("ProbableCause":86)") != 0; })) << listener.output();
    EXPECT_EQ(server.stop(), 0) << server.log();
    std::string disk;
    for (std::istringstream lines(listener.output()); std::getline(lines, disk);)
        if (disk.find(R"("ProbableCause":86)") != std::string::npos) break;
    EXPECT_EQ(listener.count(R"("ProbableCause":86)"), 1u) << listener.output();
    EXPECT_TRUE(std::regex_match(disk, std::regex(R"(\{"class":"Tovra_AlertIndication",.*"PerceivedSeverity":6,.*"IndicationFilterName":"disks".*\})")))
        << disk;
    EXPECT_NE(disk.find("Disk Enc2 Slot1"), std::string::npos) << disk;
    unlink(state.c_str());
    unlink(file.c_str());
}
