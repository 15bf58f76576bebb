// The in-process control API: each call takes the simulator lock.
#include <algorithm>

#include "Engine.h"

namespace tovra::sim {

namespace {

struct Locked {
    Engine &engine = Engine::get();
    Engine::Lock lock{engine.mutex};
    Engine *operator->() { return &engine; }
};

}  // namespace

void loadScenario(const std::string &nameOrPath) {
    Locked e;
    e->loadScenario(nameOrPath);
    e->faults.clear();
    e->resetCounters();
}

void reset() {
    Locked e;
    e->ensureModel();
    e->loadScenario(e->scenario);
    e->faults.clear();
    e->resetCounters();
    e->log.clear();
}

void addFault(const Fault &f) {
    Locked e;
    e->faults.add(f);
}

void addFaults(const std::string &text) {
    const auto parsed = parseFaults(text);
    Locked e;
    for (const Fault &f : parsed) e->faults.add(f);
}

void clearFaults() {
    Locked e;
    e->faults.clear();
}

std::vector<uint8_t> lastRequest(int command) {
    Locked e;
    const auto it = e->lastRequests.find(command);
    return it == e->lastRequests.end() ? std::vector<uint8_t>{} : std::vector<uint8_t>(it->second.begin(), it->second.end());
}

unsigned exchanges(int command) {
    Locked e;
    if (command < 0) return e->totalExchanges;
    const auto it = e->counters.find(command);
    return it == e->counters.end() ? 0 : it->second;
}

void resetCounters() {
    Locked e;
    e->resetCounters();
}

unsigned openDescriptors() {
    Locked e;
    return static_cast<unsigned>(e->deviceFds.size());
}

void useVirtualClock(bool on) {
    Locked e;
    e->clock.setVirtual(on);
}

void setTime(time_t t) {
    Locked e;
    e->clock.set(t);
}

void advance(double seconds) {
    Locked e;
    e->clock.advanceNs(static_cast<int64_t>(seconds * 1e9));
}

double now() {
    Locked e;
    return e->clock.seconds();
}

void setIdlePollStep(double seconds) {
    Locked e;
    e->clock.setIdleStep(seconds);
}

void captureLog(bool on) { Engine::get().setCapture(on); }

std::vector<LogEntry> logEntries() {
    Locked e;
    return e->log;
}

std::vector<std::string> logLines() {
    std::vector<std::string> lines;
    for (auto &entry : logEntries()) lines.push_back(std::move(entry.text));
    return lines;
}

void clearLog() {
    Locked e;
    e->log.clear();
}

void setChunkSize(unsigned bytes) {
    Locked e;
    e->chunk = bytes ? std::min(bytes, kDefaultChunk) : (e->config.chunk ? e->config.chunk : kDefaultChunk);
}

void withModel(const std::function<void(Model &)> &fn) {
    Locked e;
    e->ensureModel();
    SharedState::Guard guard(&e->shared);
    e->syncFromState();
    fn(e->model);
    e->saveState();
}

void setStateFile(const std::string &path) {
    Locked e;
    e->ensureModel();
    e->attachStateFile(path);
}

std::string scenarioName() {
    Locked e;
    e->ensureModel();
    return e->scenario;
}

}  // namespace tovra::sim
