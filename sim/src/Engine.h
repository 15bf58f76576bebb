// The one simulator instance of the process: model, firmware endpoint, faults,
// clock, counters and captured log, all behind one recursive mutex. It is
// never destroyed, so interposed calls made during process exit stay safe.
#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Clock.h"
#include "Faults.h"
#include "Frame.h"
#include "SharedState.h"
#include "Wire.h"
#include "tovrasim/Model.h"
#include "tovrasim/Simulator.h"

struct CMD_MESSAGE_FIELD;

namespace tovra::sim {

class RecursiveMutex {
public:
    RecursiveMutex() { init(); }
    RecursiveMutex(const RecursiveMutex &) = delete;
    RecursiveMutex &operator=(const RecursiveMutex &) = delete;
    void init();  // also used to give a forked child a fresh, unlocked mutex
    void lock() { pthread_mutex_lock(&m_); }
    void unlock() { pthread_mutex_unlock(&m_); }

private:
    pthread_mutex_t m_;
};

// Environment read once at load time.
struct Config {
    std::string scenario = "default";
    std::string scenarioDir;
    std::string statePath;
    std::string faults;
    bool virtualClock = false;
    bool captureLog = false;
    unsigned chunk = 0;
};

// A driver read returns at most its message buffer.
inline constexpr unsigned kDefaultChunk = wire::kMessageDataSize;

// A reply waiting on one descriptor: garbage segments, then the frame.
struct PendingReply {
    std::deque<Bytes> segments;
    std::size_t offset = 0;
    unsigned chunk = kDefaultChunk;
    bool never = false;
    bool readFail = false;
    std::optional<Clock::Stamp> readyAt;
};

class Engine {
public:
    static Engine &get();
    using Lock = std::lock_guard<RecursiveMutex>;

    // Interposer entries; each takes the lock itself.
    bool isDeviceFd(int fd);
    int openDevice(int flags);
    int closeDevice(int fd);
    int ioctlDevice(int fd, unsigned long request, void *arg);
    bool capturing() const { return capture_.load(std::memory_order_acquire); }
    void setCapture(bool on) { capture_.store(on, std::memory_order_release); }
    void capture(int priority, std::string text);

    // Under the lock (the control API takes it).
    void ensureModel();
    void replaceModel(Model m, const std::string &scenario);
    void loadScenario(const std::string &nameOrPath);  // throws on a bad scenario
    void attachStateFile(const std::string &path);
    void saveState();
    // With a state file: starts from its content when another process has
    // replaced it (call under a SharedState::Guard).
    void syncFromState();
    void resetCounters();
    // Seconds for event time stamps: the clock in use.
    uint32_t eventTime() const;

    RecursiveMutex mutex;
    Config config;
    Model model;
    std::string scenario;
    std::string statePath;
    FaultSet faults;
    Clock clock;
    std::map<int, unsigned> counters;
    unsigned totalExchanges = 0;
    std::map<int, Bytes> lastRequests;  // whole ioctl buffers by command; -1 the latest
    std::set<int> deviceFds;
    std::map<int, PendingReply> pending;
    unsigned chunk = kDefaultChunk;
    std::vector<LogEntry> log;
    SharedState shared;

private:
    Engine();
    void readEnvironment();
    int sendFirmware(int fd, CMD_MESSAGE_FIELD *m);
    int sendDriver(int fd, uint8_t command);
    // Counts an exchange and draws its faults; false (errno EIO) when the write fails.
    bool beginExchange(uint8_t command, ExchangeFaults &x);
    int readChunk(int fd, CMD_MESSAGE_FIELD *m);
    void queueReply(int fd, const Bytes &payload, const ExchangeFaults &x);

    bool modelLoaded_ = false;
    std::atomic<int> deviceFdCount_{0};
    // Device descriptors below kFdFlags, readable without the lock: every
    // close() of the process asks, including the sanitizers' own.
    static constexpr int kFdFlags = 4096;
    std::array<std::atomic<bool>, kFdFlags> deviceFdFlags_{};
    std::atomic<bool> capture_{false};
};

}  // namespace tovra::sim
