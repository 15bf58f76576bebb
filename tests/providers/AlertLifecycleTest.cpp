// The alert provider's watcher thread through its life: started and stopped
// by filters, by disable/enable and by cleanup (the indication MI called
// directly, as a CIMOM calls it), the same under concurrent calls, and the
// adapter's faults, which skip rounds without losing or repeating an alert.
#include "AlertSupport.h"

#include <Host.h>
#include <cmpimacs.h>
#include <tovrasim/Simulator.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace {

namespace sim = tovra::sim;
using alert_support::eventually;
using cimhost::Host;
using cimhost::InstanceV;

constexpr const char *kNs = "tovra/cimv2";
constexpr const char *kClass = "Tovra_AlertIndication";
constexpr uint8_t kPoll = 0x19;


std::string query(int n) { return "SELECT * FROM Tovra_AlertIndication WHERE AlertType = " + std::to_string(n); }

class Watcher : public ::testing::Test {
protected:
    void SetUp() override {
        sim::reset();
        sim::loadScenario("default");
        sim::useVirtualClock(true);
        sim::captureLog(true);
        sim::clearLog();
        cimhost::HostOptions o;
        o.mofPaths = {TOVRA_MOF_DIR};
        o.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
        o.providerDirs = {TOVRA_PROVIDER_DIR};
        o.indicationSink = [s = sink](const std::string &, const InstanceV &ind) {
            std::lock_guard lock(s->mutex);
            s->received.push_back(ind);
        };
        host = std::make_unique<Host>(o);
    }
    void TearDown() override {
        host.reset();
        if (library != nullptr) dlclose(library);
        library = nullptr;
    }

    // The provider's MI as a CIMOM holds it, from the library the host loads.
    CMPIIndicationMI *mi(const CMPIBroker *mb, const CMPIContext *ctx) {
        {
            std::lock_guard lock(opening);
            const std::string lib = std::string(TOVRA_PROVIDER_DIR) + "/libTovraProviders.so";
            if (library == nullptr) library = dlopen(lib.c_str(), RTLD_NOW | RTLD_GLOBAL);
        }
        using Factory = CMPIIndicationMI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
        auto factory = library != nullptr ? reinterpret_cast<Factory>(
                                                dlsym(library, "TovraAlertIndicationProvider_Create_IndicationMI"))
                                          : nullptr;
        CMPIStatus rc{CMPI_RC_OK, nullptr};
        return factory != nullptr ? factory(mb, ctx, &rc) : nullptr;
    }
    std::mutex opening;
    void *library = nullptr;
    // One MI call in a request of the host.
    void direct(char call) {
        host->withRequest([&](const CMPIBroker *mb, const CMPIContext *ctx) {
            CMPIIndicationMI *m = mi(mb, ctx);
            ASSERT_NE(m, nullptr);
            CMPIStatus st{};
            switch (call) {
                case 'E': st = m->ft->enableIndications(m, ctx); break;
                case 'D': st = m->ft->disableIndications(m, ctx); break;
                case 'C': st = m->ft->cleanup(m, ctx, 0); break;
                case 'T': st = m->ft->cleanup(m, ctx, 1); break;
            }
            EXPECT_EQ(st.rc, CMPI_RC_OK);
        });
    }

    bool polling() {
        const unsigned from = sim::exchanges(kPoll);
        return eventually([&] { return sim::exchanges(kPoll) >= from + 2; });
    }
    // The thread is joined before the call that stops it returns: no poll
    // follows, over several intervals.
    bool quiet() {
        const unsigned from = sim::exchanges(kPoll);
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        return sim::exchanges(kPoll) == from;
    }
    size_t received() {
        std::lock_guard lock(sink->mutex);
        return sink->received.size();
    }

    struct Sink {
        std::mutex mutex;
        std::vector<InstanceV> received;
    };
    std::shared_ptr<Sink> sink = std::make_shared<Sink>();
    std::unique_ptr<Host> host;
};

// Steps: A/B activate filter A/B through the host, a/b deactivate it,
// E/D enableIndications/disableIndications, C/T cleanup (terminating false/true).
TEST_F(Watcher, RunsExactlyWhileAFilterIsActiveAndIndicationsAreEnabled) {
    struct Case {
        const char *steps;
        const char *running;  // after each step: 'y' polling, 'n' no thread
    };
    const Case cases[] = {
        {"Aa", "yn"}, {"ABab", "yyyn"}, {"ABba", "yyyn"}, {"ADE", "yny"}, {"ADa", "ynn"},
        {"AC", "yn"}, {"AT", "yn"},     {"ABC", "yyn"},   {"ADEDE", "ynyny"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.steps);
        SetUp();
        for (size_t i = 0; c.steps[i] != '\0'; ++i) {
            const char step = c.steps[i];
            SCOPED_TRACE(std::string(1, step));
            if (step == 'A' || step == 'B') {
                ASSERT_TRUE(host->activateFilter(kNs, kClass, query(step)).ok());
            } else if (step == 'a' || step == 'b') {
                ASSERT_TRUE(host->deactivateFilter(kNs, kClass, query(step - 'a' + 'A')).ok());
            } else {
                direct(step);
            }
            EXPECT_TRUE(c.running[i] == 'y' ? polling() : quiet());
        }
        TearDown();
    }
}

TEST_F(Watcher, ConcurrentCallsLeaveNoThreadBehind) {
    constexpr int kThreads = 4, kToggles = 40;
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kToggles; ++i) {
                const cimhost::Reply r = i % 2 == 0 ? host->activateFilter(kNs, kClass, query(t))
                                                    : host->deactivateFilter(kNs, kClass, query(t));
                EXPECT_TRUE(r.ok()) << r.message;
            }
        });
    }
    std::thread toggler([&] {
        for (int i = 0; !done; ++i) direct(i % 2 == 0 ? 'D' : 'E');
    });
    std::thread changer([&] {
        for (int i = 0; !done; ++i) sim::runControl({"event", "change", std::to_string(i)});
    });
    for (std::thread &t : threads) t.join();
    done = true;
    toggler.join();
    changer.join();
    EXPECT_TRUE(quiet()) << "every filter went: no thread may poll";
    // Activated again, the watcher works.
    ASSERT_TRUE(host->activateFilter(kNs, kClass, query(9)).ok());
    direct('E');
    EXPECT_TRUE(polling());
    const size_t before = received();
    sim::runControl({"event", "after", "the", "storm"});
    EXPECT_TRUE(eventually([&] { return received() > before; }));
}

// Each fault of the adapter, on every exchange for a while: rounds fail and
// are skipped (logged once), and the change made meanwhile arrives once when
// the adapter answers again.
TEST_F(Watcher, FaultsSkipRoundsWithoutLosingOrRepeatingAlerts) {
    const char *const faults[] = {
        "kind=delay,ms=3000,count=30", "kind=noreply,count=30",  "kind=zerolength,count=30",
        "kind=badchecksum,count=30",   "kind=garbage,value=3",   "kind=chunk,value=1,count=30",
        "kind=readfail,count=30",      "kind=writefail,count=30", "kind=openfail,count=5",
    };
    for (const char *fault : faults) {
        SCOPED_TRACE(fault);
        SetUp();
        const unsigned first = sim::exchanges(kPoll);
        ASSERT_TRUE(host->activateFilter(kNs, kClass, query(1)).ok());
        ASSERT_TRUE(eventually([&] { return sim::exchanges(kPoll) >= first + 2; })) << "the first rounds";
        sim::addFaults(fault);
        sim::runControl({"fail-disk", "2", "4"});
        ASSERT_TRUE(eventually([&] { return received() >= 2; })) << received();
        const unsigned polls = sim::exchanges(kPoll);
        ASSERT_TRUE(eventually([&] { return sim::exchanges(kPoll) >= polls + 3; }));
        EXPECT_EQ(received(), 2u) << "the event and the disk's state, once each";
        size_t outages = 0;
        for (const std::string &line : sim::logLines())
            outages += line.find("TovraAlertIndicationProvider: the adapter did not answer") != std::string::npos;
        EXPECT_LE(outages, 1u);
        {
            std::lock_guard lock(sink->mutex);
            sink->received.clear();
        }
        TearDown();
    }
}

}  // namespace
