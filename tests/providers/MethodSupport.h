// Helpers of the method tests: the request frame the simulated adapter
// received, and a compact way to state method arguments in tables.
#pragma once

#include "Harness.h"

#include <gtest/gtest.h>
#include <tovrasim/Simulator.h>

#include <cstdint>
#include <string>
#include <vector>

namespace methods {

using harness::In;
using harness::Keys;

// Bytes [0, n) of the message buffer of the last request with this command
// (the ioctl buffer's header is 28 bytes).
inline std::vector<uint8_t> sentFrame(int command, std::size_t n) {
    std::vector<uint8_t> whole = tovra::sim::lastRequest(command);
    if (whole.size() < 28 + n) return {};
    return std::vector<uint8_t>(whole.begin() + 28, whole.begin() + 28 + static_cast<long>(n));
}

// Exchanges of changing commands (0x24, 0x40 to 0x62): what a method sends.
inline unsigned changeRequests() {
    unsigned n = tovra::sim::exchanges(0x24);
    for (int cmd = 0x40; cmd <= 0x62; ++cmd) n += tovra::sim::exchanges(cmd);
    return n;
}

struct Expect {
    CMPIrc rc;
    std::string message;
};

// A request whose frame the tests check on the wire, and its answer.
struct FrameCase {
    const char *name;
    const char *method;
    Keys args;
    int command;
    std::vector<uint8_t> frame;  // the message buffer from its start
    Expect expect;
};

// An argument list refused before the device is opened.
struct ArgCase {
    const char *method;
    Keys args;
    Expect expect;
};

// Each case answers its status and message and sends nothing to the firmware.
template <class Cases> void expectRefusedUnsent(const std::string &cls, const Cases &cases) {
    for (const ArgCase &c : cases) {
        SCOPED_TRACE(c.expect.message);
        tovra::sim::resetCounters();
        harness::Answer a = harness::invokeDirect(cls, c.method, c.args);
        EXPECT_EQ(a.rc, c.expect.rc);
        EXPECT_EQ(a.message, c.expect.message);
        EXPECT_EQ(changeRequests(), 0u);
    }
}

}  // namespace methods
