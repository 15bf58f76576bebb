// Helpers for the simulator tests: a device descriptor, request frames built
// by hand, and the read loop, all through the real open/ioctl/close calls.
#pragma once

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Wire.h"
#include "tovrasim/Simulator.h"

namespace simtest {

namespace w = tovra::wire;
namespace sim = tovra::sim;
using Bytes = std::vector<uint8_t>;

class Device {
public:
    Device() : fd_(::open(w::kDevicePath, O_RDWR)) {}
    ~Device() {
        if (fd_ >= 0) ::close(fd_);
    }
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

// 5E 01 61, L = 1 + params, command, params, checksum.
inline Bytes frame(uint8_t command, const Bytes &params = {}) {
    Bytes f(6 + params.size(), 0);
    f[0] = w::kStart0;
    f[1] = w::kStart1;
    f[2] = w::kStart2;
    f[5] = command;
    std::copy(params.begin(), params.end(), f.begin() + 6);
    w::putLE16(f.data() + 3, static_cast<uint16_t>(1 + params.size()));
    f.push_back(w::frameChecksum(f.data(), static_cast<uint16_t>(1 + params.size())));
    return f;
}

// A frame of payload length len whose parameters are filled by the caller.
inline Bytes sizedFrame(uint8_t command, uint16_t len, const Bytes &params, uint8_t fill = 0) {
    Bytes f(6u + len, fill);
    f[0] = w::kStart0;
    f[1] = w::kStart1;
    f[2] = w::kStart2;
    w::putLE16(f.data() + 3, len);
    f[5] = command;
    std::copy(params.begin(), params.end(), f.begin() + 6);
    f[5 + len] = w::frameChecksum(f.data(), len);
    return f;
}

inline int send(const Device &d, const Bytes &bytes, unsigned long code = w::kIoctlWrite, uint8_t fill = 0) {
    CMD_MESSAGE_FIELD m;
    std::memset(&m, fill, sizeof m);
    std::memcpy(m.messagedatabuffer, bytes.data(), std::min(bytes.size(), sizeof m.messagedatabuffer));
    return ::ioctl(d.fd(), code, &m);
}

struct Chunk {
    int rc;
    Bytes data;  // the Length bytes reported
};

inline Chunk readChunk(const Device &d, unsigned long code = w::kIoctlRead) {
    CMD_MESSAGE_FIELD m{};
    const int rc = ::ioctl(d.fd(), code, &m);
    return Chunk{rc, Bytes(m.messagedatabuffer, m.messagedatabuffer + std::min<uint32_t>(m.cmdmessage.Length, 1032))};
}

// Reads chunks until a whole frame has arrived; chunks before a frame start are
// skipped. Empty when nothing complete arrives within maxReads reads.
inline Bytes readFrame(const Device &d, unsigned long code = w::kIoctlRead, int maxReads = 4000) {
    Bytes f;
    for (int i = 0; i < maxReads; ++i) {
        const Chunk c = readChunk(d, code);
        if (c.rc != 0) return {};
        if (f.empty() && !(c.data.size() >= 3 && c.data[0] == w::kStart0 && c.data[1] == w::kStart1 &&
                           c.data[2] == w::kStart2))
            continue;
        f.insert(f.end(), c.data.begin(), c.data.end());
        if (f.size() >= 5 && f.size() >= 6u + w::getLE16(f.data() + 3)) return f;
    }
    return {};
}

inline bool checksumOk(const Bytes &f) {
    if (f.size() < 6) return false;
    const uint16_t len = w::getLE16(f.data() + 3);
    return f.size() >= 6u + len && w::frameChecksum(f.data(), len) == f[5 + len];
}

inline Bytes payloadOf(const Bytes &f) {
    if (f.size() < 6) return {};
    return Bytes(f.begin() + 5, f.begin() + 5 + w::getLE16(f.data() + 3));
}

// One whole exchange: send, read the frame, check it, return its payload.
inline Bytes transact(const Device &d, const Bytes &request) {
    if (send(d, request) != 0) return {};
    const Bytes f = readFrame(d);
    EXPECT_TRUE(checksumOk(f));
    return payloadOf(f);
}

inline Bytes transact(const Device &d, uint8_t command, const Bytes &params = {}) {
    return transact(d, frame(command, params));
}

// The result letter of a one-byte reply, or '?'.
inline char letterOf(const Bytes &payload) { return payload.size() == 1 ? static_cast<char>(payload[0]) : '?'; }

inline std::string text(const Bytes &p, std::size_t at, std::size_t width) {
    std::string s(p.begin() + static_cast<long>(at), p.begin() + static_cast<long>(at + width));
    while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
    return s;
}

// Every test starts from the default scenario with real time and no capture.
class SimTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim::setStateFile("");
        sim::loadScenario("default");
        sim::useVirtualClock(false);
        sim::setIdlePollStep(0.25);
        sim::setChunkSize(0);
        sim::captureLog(false);
        sim::clearLog();
    }
};

}  // namespace simtest
