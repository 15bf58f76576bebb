// A scrape reads the adapter as any client does: through the host's
// enumerations, answered from the providers' instance caches. Scrapes within
// the cache lifetime (1800 s unless SetWaTP changes it) add no firmware
// exchange; the first one past it rebuilds the caches. The provider library
// runs in this process against the linked simulator, with its virtual clock.
#include "AdapterMetrics.h"
#include "Host.h"

#include <tovrasim/Simulator.h>

#include <gtest/gtest.h>

#include <memory>

namespace sim = tovra::sim;
using namespace cimserver;

namespace {

cimhost::Host &host() {
    static std::unique_ptr<cimhost::Host> h = [] {
        cimhost::HostOptions options;
        options.mofPaths = {TOVRA_MOF_DIR};
        options.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
        options.providerDirs = {TOVRA_PROVIDER_DIR};
        return std::make_unique<cimhost::Host>(options);
    }();
    return *h;
}

std::string scrape() {
    Exposition out(ExpositionFormat::OpenMetrics);
    EXPECT_EQ(AdapterMetrics(host()).write(out), 0u) << "an enumeration failed";
    return out.finish();
}

struct Interval {
    const char *name;
    double seconds;  // between the warm scrape and the next
    bool firmwareTraffic;
};

const Interval kIntervals[] = {
    {"the next scrape at once", 0, false},
    {"a scrape 15 s later", 15, false},
    {"a scrape at the end of the cache lifetime", 1800, false},
    {"a scrape past the cache lifetime", 1801, true},
};

}  // namespace

TEST(MetricsCache, ScrapesWithinTheCacheLifetimeAddNoFirmwareTraffic) {
    sim::loadScenario("default");
    sim::useVirtualClock(true);
    time_t base = 2000000000;
    for (const Interval &row : kIntervals) {
        SCOPED_TRACE(row.name);
        base += 100000;  // past every cache lifetime: the first scrape rebuilds
        sim::setTime(base);
        sim::resetCounters();
        const std::string warm = scrape();
        ASSERT_GT(sim::exchanges(), 0u) << "the first scrape read the adapter";
        ASSERT_NE(warm.find(R"(tovra_disk_state{enclosure="1",slot="7",tovra_disk_state="failed"} 1)"), std::string::npos);

        sim::resetCounters();
        sim::advance(row.seconds);
        const std::string next = scrape();
        EXPECT_EQ(sim::exchanges() > 0, row.firmwareTraffic) << sim::exchanges() << " exchanges";
        EXPECT_EQ(next, warm);
        EXPECT_EQ(sim::openDescriptors(), 0u);
    }
}
