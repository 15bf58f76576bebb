// Alert indications through our host: the built library's indication
// provider watching the simulated adapter while a filter is active. Changes
// are made with the simulator's control commands (in process, or by the
// tovra-sim command of another process through a shared state file); the
// alerts arrive at the host's indication sink. Rounds are counted by the
// adapter's poll requests, so no test waits longer than it must.
#include "AlertSupport.h"

#include <Host.h>
#include <cmpimacs.h>
#include <tovrasim/Simulator.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

namespace {

namespace sim = tovra::sim;
using alert_support::eventually;
using cimhost::Host;
using cimhost::InstanceV;
using cimhost::Reply;

constexpr const char *kNs = "tovra/cimv2";
constexpr const char *kAlerts = "SELECT * FROM Tovra_AlertIndication";
constexpr const char *kSerial = "TV12A0005531";
constexpr uint8_t kPoll = 0x19;


std::string text(const InstanceV &i, const char *name) {
    const cimhost::Value *v = i.property(name);
    return v != nullptr && !v->isNull() && v->type() == CMPI_string ? v->asString() : "";
}
uint64_t number(const InstanceV &i, const char *name) {
    const cimhost::Value *v = i.property(name);
    return v != nullptr && !v->isNull() ? v->asUnsigned() : 9999;
}

// What one alert must say: a part of its message, its severity and probable
// cause, and the class of the element it names.
struct Expected {
    const char *message;
    uint16_t severity;
    uint16_t cause;
    const char *element;
};

class Alerts : public ::testing::Test {
protected:
    struct Sink {
        std::mutex mutex;
        std::vector<InstanceV> received;
    };

    void SetUp() override {
        sim::reset();
        sim::loadScenario("default");
        sim::useVirtualClock(true);
        sim::captureLog(true);
        host = makeHost();
    }
    void TearDown() override {
        host.reset();  // the provider's cleanup ends its thread
        sim::setStateFile("");
    }

    std::unique_ptr<Host> makeHost() {
        cimhost::HostOptions o;
        o.mofPaths = {TOVRA_MOF_DIR};
        o.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
        o.providerDirs = {TOVRA_PROVIDER_DIR};
        o.indicationSink = [s = sink](const std::string &ns, const InstanceV &ind) {
            std::lock_guard lock(s->mutex);
            if (ns == kNs) s->received.push_back(ind);
        };
        return std::make_unique<Host>(o);
    }

    std::vector<InstanceV> received() {
        std::lock_guard lock(sink->mutex);
        return sink->received;
    }
    size_t count() { return received().size(); }
    // Activates a filter and waits until the provider has read what the
    // adapter shows (its first round) and watched once more.
    void watch(const char *cls = "Tovra_AlertIndication", const char *q = kAlerts) {
        const unsigned from = sim::exchanges(kPoll);
        Reply r = host->activateFilter(kNs, cls, q);
        ASSERT_TRUE(r.ok()) << r.message;
        ASSERT_TRUE(eventually([&] { return sim::exchanges(kPoll) >= from + 2; }));
    }
    // Waits until the provider has polled the adapter `rounds` more times.
    bool rounds(unsigned n) {
        const unsigned from = sim::exchanges(kPoll);
        return eventually([&] { return sim::exchanges(kPoll) >= from + n; });
    }
    // The alerts received since `from`, once `n` are there and three more
    // rounds brought nothing else.
    // They come within two intervals: by the end of the second round that
    // starts after the change (the poll count read may be one ahead).
    std::vector<InstanceV> settle(size_t from, size_t n) {
        const unsigned polls = sim::exchanges(kPoll);
        EXPECT_TRUE(eventually([&] { return count() >= from + n; })) << "only " << count() - from << " alerts";
        EXPECT_LE(sim::exchanges(kPoll), polls + 3) << "later than two intervals";
        EXPECT_TRUE(rounds(3));
        std::vector<InstanceV> all = received();
        return {all.begin() + static_cast<long>(std::min(from, all.size())), all.end()};
    }

    static void check(const std::vector<InstanceV> &got, const std::vector<Expected> &want) {
        std::string messages;
        for (const InstanceV &i : got) messages += "\n  " + text(i, "Message");
        SCOPED_TRACE("received:" + messages);
        ASSERT_EQ(got.size(), want.size());
        std::vector<bool> used(got.size());
        for (const Expected &e : want) {
            SCOPED_TRACE(e.message);
            auto match = std::find_if(got.begin(), got.end(), [&](const InstanceV &i) {
                return !used[&i - got.data()] && text(i, "Message").find(e.message) != std::string::npos;
            });
            ASSERT_NE(match, got.end()) << "no alert says " << e.message;
            used[match - got.begin()] = true;
            EXPECT_EQ(number(*match, "PerceivedSeverity"), e.severity);
            EXPECT_EQ(number(*match, "ProbableCause"), e.cause);
            EXPECT_EQ(text(*match, "AlertingManagedElement").rfind(std::string(kNs) + ":" + e.element + ".", 0), 0u)
                << text(*match, "AlertingManagedElement");
        }
        for (const InstanceV &i : got) {
            EXPECT_EQ(i.path.className, "Tovra_AlertIndication");
            EXPECT_EQ(text(i, "Description"), text(i, "Message"));
            EXPECT_EQ(number(i, "AlertingElementFormat"), 2u);
            EXPECT_EQ(text(i, "SystemName"), kSerial);
            EXPECT_EQ(text(i, "SystemCreationClassName"), "Tovra_RAIDControllerSystem");
            EXPECT_EQ(text(i, "ProviderName"), "TovraAlertIndicationProvider");
            EXPECT_EQ(text(i, "IndicationIdentifier").rfind(std::string("Tovra:") + kSerial + ":", 0), 0u);
            EXPECT_NE(number(i, "AlertType"), 0u);
            const cimhost::Value *when = i.property("IndicationTime");
            ASSERT_TRUE(when != nullptr && when->type() == CMPI_dateTime);
            EXPECT_GT(when->asDateTime().micros, 0u);
        }
    }

    std::shared_ptr<Sink> sink = std::make_shared<Sink>();
    std::unique_ptr<Host> host;
};

struct Step {
    std::vector<std::string> command;
    std::vector<Expected> alerts;
};
struct Story {
    const char *what;
    std::vector<Step> steps;
};

// Severities: 2 Information, 3 Warning, 5 Major, 6 Critical. Causes: 1 Other,
// 35 Performance Degraded, 51 Temperature, 59 Cleared, 73 Element Missing,
// 86 Disk Failure, 88 Loss of Redundancy, 94 Fan Failure, 99 Low Battery.
const std::vector<Story> kStories = {
    {"a member disk fails: its event, the set's event, the disk, set and volume",
     {{{"fail-disk", "2", "1"},
       {{"Enc2 Slot1: Device Failed", 6, 1, "Tovra_DiskDrive"},
        {"Raid Set # 001: RaidSet Degraded", 3, 1, "Tovra_StoragePool"},
        {"Disk Enc2 Slot1 (WD-WMAY04200001) changed from Normal to FAILED", 6, 86, "Tovra_DiskDrive"},
        {"RAID set Raid Set # 001 changed from Normal to Degraded", 5, 88, "Tovra_StoragePool"},
        {"Volume Volume Set # 002 changed from Normal to Degraded", 5, 88, "Tovra_StorageVolume"}}}}},
    {"the disk is replaced, the set rebuilds and is normal again",
     {{{"fail-disk", "2", "2"}, {{"Device Failed", 6, 1, "Tovra_DiskDrive"}, {"RaidSet Degraded", 3, 1, "Tovra_StoragePool"},
                                 {"to FAILED", 6, 86, "Tovra_DiskDrive"}, {"Normal to Degraded", 5, 88, "Tovra_StoragePool"},
                                 {"Normal to Degraded", 5, 88, "Tovra_StorageVolume"}}},
      {{"replace-disk", "2", "2"},
       {{"Enc2 Slot2: Device Inserted", 2, 1, "Tovra_DiskDrive"},
        {"Raid Set # 001: Start Rebuilding", 2, 1, "Tovra_StoragePool"},
        {"(WD-WMAY04200002) changed from FAILED to Normal", 2, 59, "Tovra_DiskDrive"},
        {"Raid Set # 001 changed from Degraded to Rebuilding", 3, 35, "Tovra_StoragePool"},
        {"Volume Set # 002 changed from Degraded to Rebuilding", 3, 35, "Tovra_StorageVolume"}}},
      {{"finish-rebuild", "2"},
       {{"Raid Set # 001: Complete Rebuild", 2, 1, "Tovra_StoragePool"},
        {"Raid Set # 001 changed from Rebuilding to Normal", 2, 59, "Tovra_StoragePool"},
        {"Volume Set # 002 changed from Rebuilding to Normal", 2, 59, "Tovra_StorageVolume"}}}}},
    {"a free disk fails: no set is touched",
     {{{"fail-disk", "2", "4"},
       {{"Enc2 Slot4: Device Failed", 6, 1, "Tovra_DiskDrive"}, {"(Z1Z0B7Q1) changed from Normal to FAILED", 6, 86, "Tovra_DiskDrive"}}}}},
    {"the battery weakens, fails, goes and comes back (no event: its state alone)",
     {{{"battery", "low"}, {{"Cache backup battery changed from Normal to Low", 3, 99, "Tovra_Battery"}}},
      {{"battery", "failed"}, {{"from Low to Failed", 6, 92, "Tovra_Battery"}}},
      {{"battery", "absent"}, {{"from Failed to Absent", 5, 73, "Tovra_Battery"}}},
      {{"battery", "ok"}, {{"from Absent to Normal", 2, 59, "Tovra_Battery"}}}}},
    {"sensors cross their thresholds and come back",
     {{{"temperature", "1", "Controller", "64"}, {{"Temperature sensor Controller of Enc1 changed from Normal to Above 60 C", 3, 51, "Tovra_Chassis"}}},
      {{"temperature", "1", "Controller", "75"}, {{"from Above 60 C to Above 70 C", 6, 51, "Tovra_Chassis"}}},
      {{"temperature", "1", "Controller", "70.5"}, {}},
      {{"temperature", "1", "Controller", "41"}, {{"from Above 70 C to Normal", 2, 59, "Tovra_Chassis"}}},
      {{"sensor", "2", "Fan 1", "0"}, {{"Fan sensor Fan 1 of Enc2 changed from Normal to Stopped", 6, 94, "Tovra_Chassis"}}},
      {{"sensor", "2", "12V", "0"}, {}}}},
    {"events name the element they concern, else the controller",
     {{{"event", "-s", "error", "-d", "Enc1 Slot3", "SMART", "threshold", "exceeded"},
       {{"Enc1 Slot3: SMART threshold exceeded", 6, 1, "Tovra_DiskDrive"}}},
      {{"event", "-s", "warning", "-d", "Volume Set # 000", "Volume", "check"}, {{"Volume check", 3, 1, "Tovra_StorageVolume"}}},
      {{"event", "Controller", "restarted"}, {{"Controller: Controller restarted", 2, 1, "Tovra_RAIDControllerSystem"}}}}},
};

TEST_F(Alerts, ChangesOfTheAdapterArriveOnceEach) {
    for (const Story &story : kStories) {
        SCOPED_TRACE(story.what);
        SetUp();
        watch();
        for (const Step &step : story.steps) {
            SCOPED_TRACE(step.command.front());
            const size_t before = count();
            sim::runControl(step.command);
            check(settle(before, step.alerts.size()), step.alerts);
        }
        EXPECT_TRUE(host->deactivateFilter(kNs, "Tovra_AlertIndication", kAlerts).ok());
        TearDown();
        sink->received.clear();
    }
}

TEST_F(Alerts, IdentifiersAreUniqueAndAnEventKeepsItsOwn) {
    watch("CIM_AlertIndication", "SELECT * FROM CIM_AlertIndication");
    // Two events of the same text in one round are told apart.
    sim::withModel([](sim::Model &m) {
        for (int n = 0; n < 2; ++n) m.events.insert(m.events.begin(), sim::Event{1800000000, 1, "Enc1 Slot1", "Twice"});
    });
    sim::runControl({"fail-disk", "1", "1"});
    std::vector<InstanceV> got = settle(0, 4 + 4);  // four events; the disk, its set and two volumes
    std::set<std::string> ids, eventIds;
    for (const InstanceV &i : got) {
        ids.insert(text(i, "IndicationIdentifier"));
        if (text(i, "Message").find("Twice") != std::string::npos) eventIds.insert(text(i, "EventID"));
    }
    EXPECT_EQ(ids.size(), got.size());
    EXPECT_EQ(eventIds.size(), 1u) << "the same event content, the same EventID";
    // Watched again later, the log's old events are not alerted again.
    ASSERT_TRUE(host->deactivateFilter(kNs, "CIM_AlertIndication", "SELECT * FROM CIM_AlertIndication").ok());
    watch();
    EXPECT_TRUE(settle(got.size(), 0).empty());
}

TEST_F(Alerts, AnotherProcessChangesTheSharedAdapter) {
    const std::string state = testing::TempDir() + "alerts-state-" + std::to_string(::getpid()) + ".json";
    std::remove(state.c_str());
    sim::setStateFile(state);
    watch();
    const std::string command = "TOVRA_SIM_STATE=" + state + " " + TOVRA_SIM_TOOL + " fail-disk 2 4 >/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    check(settle(0, 2), {{"Enc2 Slot4: Device Failed", 6, 1, "Tovra_DiskDrive"},
                          {"changed from Normal to FAILED", 6, 86, "Tovra_DiskDrive"}});
    std::remove(state.c_str());
    std::remove((state + ".lock").c_str());
}

TEST_F(Alerts, NothingArrivesOnceTheLastFilterGoes) {
    struct Case {
        const char *what;
        std::function<void(Host &)> stop;
    };
    const std::vector<Case> cases = {
        {"the filter is deactivated",
         [](Host &h) { EXPECT_TRUE(h.deactivateFilter(kNs, "Tovra_AlertIndication", kAlerts).ok()); }},
        {"the host ends (the provider is told at cleanup)", [](Host &) {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        ASSERT_TRUE(host->activateFilter(kNs, "Tovra_AlertIndication", kAlerts).ok());
        ASSERT_TRUE(rounds(2)) << "the provider polls while the filter is active";
        c.stop(*host);
        host.reset();  // (for the first case, cleanup after the thread has gone)
        const unsigned polls = sim::exchanges(kPoll);
        sim::runControl({"fail-disk", "2", "1"});
        std::this_thread::sleep_for(std::chrono::milliseconds(150));  // several intervals
        EXPECT_EQ(sim::exchanges(kPoll), polls) << "a thread is left polling";
        EXPECT_EQ(count(), 0u);
        TearDown();
    }
}

}  // namespace
