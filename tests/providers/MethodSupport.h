// The method tests' rows and the one runner of a method family's table: each
// row calls a method with its arguments and states the request frame the
// adapter received (or that nothing was sent), the status, its text, and so
// which caches the next enumerations rebuild.
#pragma once

#include "Harness.h"

#include <gtest/gtest.h>
#include <tovrasim/Simulator.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace methods {

using harness::In;
using harness::Keys;
namespace sim = tovra::sim;

// Bytes [0, n) of the message buffer of the last request with this command
// (the ioctl buffer's header is 28 bytes).
inline std::vector<uint8_t> sentFrame(int command, std::size_t n) {
    std::vector<uint8_t> whole = sim::lastRequest(command);
    if (whole.size() < 28 + n) return {};
    return std::vector<uint8_t>(whole.begin() + 28, whole.begin() + 28 + static_cast<long>(n));
}

// Exchanges of changing commands (0x24, 0x40 to 0x62): what a method sends.
inline unsigned changeRequests() {
    unsigned n = sim::exchanges(0x24);
    for (int cmd = 0x40; cmd <= 0x62; ++cmd) n += sim::exchanges(cmd);
    return n;
}

// Frame bytes written in pieces: numbers, and texts padded to a width.
inline std::vector<uint8_t> bytes(std::initializer_list<std::vector<uint8_t>> pieces) {
    std::vector<uint8_t> out;
    for (const auto &p : pieces) out.insert(out.end(), p.begin(), p.end());
    return out;
}
inline std::vector<uint8_t> text(const std::string &s, std::size_t width, uint8_t fill) {
    std::vector<uint8_t> out(s.begin(), s.end());
    out.resize(width, fill);
    return out;
}

constexpr const char *kCached[] = {"Tovra_StoragePool", "Tovra_StorageVolume", "Tovra_DiskDrive", "Tovra_EventLog",
                                   "Tovra_RAIDControllerSystem"};

inline void fillCaches() {
    for (const char *cls : kCached) ASSERT_EQ(harness::enumInstances(cls).rc, CMPI_RC_OK) << cls;
}

// Which caches the next enumeration of each class rebuilds from the adapter.
inline std::vector<std::string> rebuiltClasses() {
    std::vector<std::string> rebuilt;
    for (const char *cls : kCached) {
        sim::resetCounters();
        EXPECT_EQ(harness::enumInstances(cls).rc, CMPI_RC_OK) << cls;
        if (sim::exchanges() != 0) rebuilt.emplace_back(cls);
    }
    return rebuilt;
}

// A method family: its class, and the caches a call that reached the adapter
// makes stale (a call refused before that drops only the class's own).
struct Family {
    const char *cls;
    std::vector<std::string> changed;
};

struct MethodCase {
    const char *name;
    const char *method;
    Keys args;
    int command;                 // the request sent, or -1 for none
    std::vector<uint8_t> frame;  // its leading bytes
    CMPIrc rc;
    std::string text;  // the status message; the return value when a request was sent
    int done = 1;      // how often the result is ended
    std::function<void(sim::Model &)> adapter = {};  // changes to the default adapter first
};

// Runs every row on the default adapter with filled caches. The return value
// is the reply text when a request was sent, "OK" for TimeCalibration, and
// absent otherwise; the result is ended once.
inline void expectRows(const Family &family, const std::vector<MethodCase> &cases) {
    for (const MethodCase &c : cases) {
        SCOPED_TRACE(c.name);
        sim::loadScenario("default");
        if (c.adapter) sim::withModel(c.adapter);
        harness::ProviderTest::freshClock();
        fillCaches();
        sim::resetCounters();
        const harness::Answer a = harness::invokeDirect(family.cls, c.method, c.args);
        EXPECT_EQ(a.rc, c.rc);
        EXPECT_EQ(a.message, c.text);
        EXPECT_EQ(a.doneCount, c.done);
        const bool sent = c.command >= 0;
        const std::optional<std::string> value =
            sent ? std::optional<std::string>(c.text)
                 : std::string(c.method) == "TimeCalibration" ? std::optional<std::string>("OK") : std::nullopt;
        EXPECT_EQ(a.value ? std::optional<std::string>(a.value->text) : std::nullopt, value);
        if (sent) {
            EXPECT_EQ(sentFrame(c.command, c.frame.size()), c.frame);
        } else {
            EXPECT_EQ(sim::exchanges(), 0u);
        }
        EXPECT_EQ(rebuiltClasses(), sent ? family.changed : std::vector<std::string>{family.cls});
    }
}

}  // namespace methods
