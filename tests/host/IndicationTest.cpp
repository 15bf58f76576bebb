// Indication providers through the host: a subscription's filter reaches the
// test indication provider in a stock CIMOM's order, and what the provider
// delivers (from its calls and from a thread it attached) reaches the sink.
#include "HostFixture.h"

#include <chrono>
#include <mutex>
#include <thread>

using namespace hosttest;
using cimhost::Host;
using cimhost::InstanceV;
using cimhost::Reply;

namespace {

// "<Call>" or "<Call>:<Flag>" per delivered indication, in order.
struct Received {
    std::mutex mutex;
    std::vector<std::string> calls;
    std::vector<InstanceV> indications;
    size_t fromThreads = 0;  // delivered by the provider's attached threads

    std::vector<std::string> take() {
        std::lock_guard lock(mutex);
        std::vector<std::string> out;
        out.swap(calls);
        return out;
    }
    // Waits (polling, bounded) until n indications came from threads.
    bool waitForThreads(size_t n) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < until) {
            {
                std::lock_guard lock(mutex);
                if (fromThreads >= n) return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }
};

cimhost::HostOptions sinkOptions(Received &received) {
    cimhost::HostOptions o = testOptions();
    o.indicationSink = [&received](const std::string &ns, const InstanceV &ind) {
        std::string call = ind.property("Call") != nullptr ? ind.property("Call")->asString() : "?";
        if (const auto *flag = ind.property("Flag"); flag != nullptr && !flag->isNull())
            call += flag->asBool() ? ":first/last" : ":more";
        std::lock_guard lock(received.mutex);
        if (call == "thread") {
            ++received.fromThreads;  // comes at any time after enabling
            return;
        }
        received.calls.push_back(ns + " " + call);
        received.indications.push_back(ind);
    };
    return o;
}

constexpr const char *kBeacons = "SELECT * FROM Test_Beacon";
constexpr const char *kSignals = "select * from Test_Signal where Flag = TRUE";

struct Step {
    const char *what;
    bool activate;
    const char *cls;
    const char *query;
    std::vector<std::string> calls;  // delivered from within the provider calls, in order
};

TEST(Indications, FiltersReachTheProviderInAStockCimomsOrder) {
    Received received;
    Host host(sinkOptions(received));
    const std::string ns = std::string(kNs) + " ";
    const std::vector<Step> steps = {
        {"first filter: authorized, activated first, then enabled", true, "Test_Beacon", kBeacons,
         {ns + "authorizeFilter", ns + "activateFilter:first/last", ns + "enableIndications"}},
        {"the same filter again: one more subscription only", true, "Test_Beacon", kBeacons, {}},
        {"a filter on the superclass reaches the subclass's provider", true, "Test_Signal", kSignals,
         {ns + "authorizeFilter", ns + "activateFilter:more"}},
        {"one of two subscriptions goes: the filter stays", false, "Test_Beacon", kBeacons, {}},
        {"the filter's last subscription goes", false, "Test_Beacon", kBeacons, {ns + "deActivateFilter:more"}},
        {"the provider's last filter: disabled first", false, "Test_Signal", kSignals,
         {ns + "disableIndications", ns + "deActivateFilter:first/last"}},
        {"activated anew after all went", true, "Test_Beacon", kBeacons,
         {ns + "authorizeFilter", ns + "activateFilter:first/last", ns + "enableIndications"}},
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(s.what);
        Reply r = s.activate ? host.activateFilter(kNs, s.cls, s.query) : host.deactivateFilter(kNs, s.cls, s.query);
        ASSERT_TRUE(r.ok()) << r.message;
        EXPECT_EQ(received.take(), s.calls);
    }
    EXPECT_TRUE(received.waitForThreads(2)) << "each enabling started a thread that delivered";
    std::lock_guard lock(received.mutex);
    const InstanceV &authorize = received.indications.front();
    EXPECT_EQ(authorize.path.className, "Test_Beacon");
    EXPECT_EQ(authorize.property("Query")->asString(), kBeacons);
    EXPECT_EQ(authorize.property("ClassName")->asString(), "Test_Beacon");
    EXPECT_EQ(authorize.property("Owner")->asString(), "alice");
}

TEST(Indications, RefusedFiltersLeaveNothingActive) {
    Received received;
    Host host(sinkOptions(received));
    struct Case {
        const char *what;
        const char *cls;
        const char *query;
        CMPIrc rc;
    };
    const Case cases[] = {
        {"class without an indication provider", "Test_Widget", "SELECT * FROM Test_Widget", CMPI_RC_ERR_NOT_SUPPORTED},
        {"unknown class", "Test_Nothing", "SELECT * FROM Test_Nothing", CMPI_RC_ERR_INVALID_CLASS},
        {"no SELECT", "Test_Beacon", "DELETE FROM Test_Beacon", CMPI_RC_ERR_INVALID_QUERY},
        {"no class after FROM", "Test_Beacon", "SELECT * FROM", CMPI_RC_ERR_INVALID_QUERY},
        {"query on an unknown class", "Test_Beacon", "SELECT * FROM Test_Nothing", CMPI_RC_ERR_INVALID_QUERY},
        {"query on an unrelated class", "Test_Beacon", "SELECT * FROM Test_Widget", CMPI_RC_ERR_INVALID_QUERY},
        {"text after the class", "Test_Beacon", "SELECT * FROM Test_Beacon ORDER BY Call", CMPI_RC_ERR_INVALID_QUERY},
        {"the provider refuses to authorize", "Test_Beacon", "SELECT * FROM Test_Beacon WHERE Call = 'Refused'",
         CMPI_RC_ERR_ACCESS_DENIED},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Reply r = host.activateFilter(kNs, c.cls, c.query);
        EXPECT_EQ(r.rc, c.rc) << r.message;
        EXPECT_FALSE(r.message.empty());
        EXPECT_EQ(host.deactivateFilter(kNs, c.cls, c.query).rc, CMPI_RC_ERR_NOT_FOUND);
    }
    EXPECT_EQ(host.activateFilter("no/such", "Test_Beacon", kBeacons).rc, CMPI_RC_ERR_INVALID_NAMESPACE);
    EXPECT_EQ(received.take(), std::vector<std::string>{});  // nothing was ever enabled
}

TEST(Indications, SelectExpressionsThroughTheBroker) {
    Host host(testOptions());
    struct Case {
        const char *query;
        const char *lang;
        CMPIrc rc;
        int projected;  // -1: no projection array
    };
    const Case cases[] = {
        {"SELECT * FROM Test_Signal", "WQL", CMPI_RC_OK, -1},
        {"SELECT Call, Flag FROM Test_Beacon", "DMTF:CQL", CMPI_RC_OK, 2},
        {"SELECT * FROM Test_Signal", "SQL", CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED, -1},
        {"SELECT FROM Test_Signal", "WQL", CMPI_RC_ERR_INVALID_QUERY, -1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.query);
        inRequest(host, [&](const CMPIBroker *mb, const CMPIContext *) {
            CMPIStatus rc{};
            CMPIArray *projection = nullptr;
            CMPISelectExp *se = CMNewSelectExp(mb, c.query, c.lang, &projection, &rc);
            ASSERT_EQ(rc.rc, c.rc);
            if (c.rc != CMPI_RC_OK) return;
            EXPECT_EQ(text(CMGetSelExpString(se, nullptr)), c.query);
            EXPECT_EQ(projection == nullptr ? -1 : static_cast<int>(CMGetArrayCount(projection, nullptr)), c.projected);
            // evaluate: the FROM class and its subclasses match.
            for (const char *cls : {"Test_Beacon", "Test_Signal", "Test_Widget"}) {
                CMPIInstance *inst = CMNewInstance(mb, CMNewObjectPath(mb, kNs, cls, nullptr), nullptr);
                const bool expected = std::string(cls) == "Test_Beacon" ||
                                      (std::string(cls) == "Test_Signal" && std::string(c.query).find("Signal") != std::string::npos);
                EXPECT_EQ(CMEvaluateSelExp(se, inst, &rc) != 0, expected) << cls;
            }
            CMRelease(se);
        });
    }
}

}  // namespace
