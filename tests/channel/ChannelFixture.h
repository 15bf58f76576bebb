// The simulated adapter behind the real open/ioctl/close calls, on a virtual
// clock with syslog captured.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "Channel.h"
#include "tovrasim/Simulator.h"

namespace chantest {

namespace sim = tovra::sim;

inline constexpr time_t kStartTime = 1'700'000'000;

// Every test ends with no simulated device descriptor open and Mutex4IOCTL free.
class NoLeaks : public ::testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(sim::openDescriptors(), 0u);
        const int locked = pthread_mutex_trylock(&Mutex4IOCTL);
        EXPECT_EQ(locked, 0) << "Mutex4IOCTL left held";
        if (locked == 0) pthread_mutex_unlock(&Mutex4IOCTL);
    }
};

class ChannelTest : public NoLeaks {
protected:
    void SetUp() override {
        sim::setStateFile("");
        sim::loadScenario(scenario());
        sim::reset();
        sim::useVirtualClock(true);
        sim::setTime(kStartTime);
        sim::setIdlePollStep(0.25);
        sim::setChunkSize(0);
        sim::captureLog(true);
        sim::clearLog();
    }

    void TearDown() override {
        device_.reset();  // closes the test's descriptor
        NoLeaks::TearDown();
        sim::captureLog(false);
        sim::useVirtualClock(false);
    }

    virtual const char *scenario() const { return "default"; }

    int fd() {
        if (!device_) device_.emplace();
        return device_->get();
    }

    static double elapsed() { return sim::now() - static_cast<double>(kStartTime); }

    static int logCount(const std::string &line) {
        const auto lines = sim::logLines();
        return static_cast<int>(std::count(lines.begin(), lines.end(), line));
    }

    CMPIStatus status{CMPI_RC_OK, nullptr};

private:
    std::optional<tovra::DeviceFd> device_;
};

template <const char *Name> class ScenarioTest : public ChannelTest {
    const char *scenario() const override { return Name; }
};

}  // namespace chantest
