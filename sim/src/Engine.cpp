#include "Engine.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "RealLibc.h"
#include "ScenarioIO.h"
#include "StateFile.h"
#include "Wire.h"

namespace tovra::sim {

void RecursiveMutex::init() {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_, &attr);
    pthread_mutexattr_destroy(&attr);
}

namespace {

void warn(const std::string &what) { std::fprintf(stderr, "tovrasim: %s\n", what.c_str()); }

std::string env(const char *name) {
    const char *v = std::getenv(name);
    return v ? v : "";
}

// A forked child must never inherit the lock held: the parent takes it before
// the fork, and each side ends up with it free (the child gets a fresh one,
// since the holder's thread does not exist there).
void beforeFork() { Engine::get().mutex.lock(); }
void afterForkParent() { Engine::get().mutex.unlock(); }
void afterForkChild() {
    Engine::get().mutex.init();
    Engine::get().shared.afterFork();
}

}  // namespace

Engine &Engine::get() {
    static Engine *const instance = new Engine;  // never destroyed
    return *instance;
}

Engine::Engine() {
    readEnvironment();
    pthread_atfork(beforeFork, afterForkParent, afterForkChild);
}

void Engine::readEnvironment() {
    if (const std::string s = env("TOVRA_SIM_SCENARIO"); !s.empty()) {
        config.scenario = s;
        config.scenarioNamed = true;
    }
    config.scenarioDir = env("TOVRA_SIM_SCENARIO_DIR");
    config.statePath = env("TOVRA_SIM_STATE");
    config.faults = env("TOVRA_SIM_FAULTS");
    config.virtualClock = env("TOVRA_SIM_CLOCK") == "virtual";
    config.captureLog = env("TOVRA_SIM_LOG") == "capture";
    if (const std::string s = env("TOVRA_SIM_CHUNK"); !s.empty()) {
        const long n = std::strtol(s.c_str(), nullptr, 0);
        if (n > 0 && n <= static_cast<long>(wire::kMessageDataSize)) config.chunk = static_cast<unsigned>(n);
        else warn("TOVRA_SIM_CHUNK must be 1 to 1032; ignored");
    }
    if (config.chunk) chunk = config.chunk;
    try {
        for (const Fault &f : parseFaults(config.faults)) faults.add(f);
    } catch (const std::exception &e) {
        warn(std::string("TOVRA_SIM_FAULTS: ") + e.what());
    }
    clock.setVirtual(config.virtualClock);
    setCapture(config.captureLog);
}

void Engine::ensureModel() {
    if (modelLoaded_) return;
    modelLoaded_ = true;
    scenario = config.scenario;
    try {
        model = loadScenarioModel(scenario, config.scenarioDir);
    } catch (const std::exception &e) {
        warn(std::string(e.what()) + "; serving \"default\"");
        scenario = "default";
        try {
            model = loadScenarioModel(scenario, config.scenarioDir);
        } catch (const std::exception &again) {
            warn(again.what());
            model = Model{};
        }
    }
    if (!config.statePath.empty()) attachStateFile(config.statePath);
}

void Engine::replaceModel(Model m, const std::string &name) {
    modelLoaded_ = true;
    model = std::move(m);
    scenario = name;
    pending.clear();
    saveState();
}

void Engine::loadScenario(const std::string &nameOrPath) {
    replaceModel(loadScenarioModel(nameOrPath, config.scenarioDir), nameOrPath);
}

void Engine::attachStateFile(const std::string &path) {
    statePath = path;
    shared.attach(path);
    if (path.empty()) return;
    SharedState::Guard guard(&shared);
    try {
        if (auto saved = readStateFile(path)) {
            model = std::move(saved->model);
            if (!saved->scenario.empty()) scenario = saved->scenario;
            shared.markSeen();
            // A leftover state file silently replacing the scenario asked for
            // is a common surprise: say so, and how to start afresh.
            if (config.scenarioNamed && saved->scenario != config.scenario)
                warn("the state file " + path + " (scenario \"" + saved->scenario +
                     "\") wins over TOVRA_SIM_SCENARIO=" + config.scenario + "; remove it to start from the scenario");
            return;
        }
    } catch (const std::exception &e) {
        warn(std::string(e.what()) + "; starting from the scenario");
    }
    saveState();
}

void Engine::syncFromState() {
    if (statePath.empty() || !shared.changedSinceSeen()) return;
    try {
        if (auto saved = readStateFile(statePath)) {
            model = std::move(saved->model);
            if (!saved->scenario.empty()) scenario = saved->scenario;
        }
    } catch (const std::exception &e) {
        warn(e.what());
    }
    shared.markSeen();
}

void Engine::saveState() {
    if (statePath.empty()) return;
    SharedState::Guard guard(&shared);
    try {
        writeStateFile(statePath, model, scenario);
    } catch (const std::exception &e) {
        warn(e.what());
    }
    shared.markSeen();
}

void Engine::resetCounters() {
    counters.clear();
    totalExchanges = 0;
    lastRequests.clear();
}

void Engine::capture(int priority, std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    Lock lock(mutex);
    log.push_back(LogEntry{priority, std::move(text)});
}

uint32_t Engine::eventTime() const {
    return static_cast<uint32_t>(clock.isVirtual() ? clock.virtualSeconds() : realtimeNs() / 1000000000);
}

bool Engine::isDeviceFd(int fd) {
    if (deviceFdCount_.load(std::memory_order_acquire) == 0) return false;
    if (fd >= 0 && fd < kFdFlags) return deviceFdFlags_[fd].load(std::memory_order_acquire);
    Lock lock(mutex);
    return deviceFds.count(fd) != 0;
}

int Engine::openDevice(int flags) {
    Lock lock(mutex);
    if (faults.onOpen()) {
        errno = ENOENT;
        return -1;
    }
    // A real descriptor keeps the process's descriptor table consistent.
    const int fd = real::open("/dev/null", O_RDWR | (flags & O_CLOEXEC), 0);
    if (fd < 0) return -1;
    deviceFds.insert(fd);
    if (fd < kFdFlags) deviceFdFlags_[fd].store(true, std::memory_order_release);
    pending.erase(fd);
    deviceFdCount_.store(static_cast<int>(deviceFds.size()), std::memory_order_release);
    return fd;
}

int Engine::closeDevice(int fd) {
    Lock lock(mutex);
    deviceFds.erase(fd);
    if (fd >= 0 && fd < kFdFlags) deviceFdFlags_[fd].store(false, std::memory_order_release);
    pending.erase(fd);
    deviceFdCount_.store(static_cast<int>(deviceFds.size()), std::memory_order_release);
    return real::close(fd);
}

}  // namespace tovra::sim
