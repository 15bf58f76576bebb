// In-process control of the adapter simulator. The same library also answers
// open/ioctl/close on the driver device for any code in the process, so tests
// drive the real boundary and use this API to arrange and inspect.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "tovrasim/Model.h"

#define TOVRASIM_API __attribute__((visibility("default")))

namespace tovra::sim {

enum class FaultKind { Delay, NoReply, ZeroLength, BadChecksum, Garbage, Chunk, ReadFail, WriteFail, OpenFail };

struct Fault {
    FaultKind kind;
    int command = -1;    // firmware command code to match (byte 5 of the request frame); -1 = any
    unsigned nth = 0;    // 0 = from the next matching exchange on; N = start at the N-th matching exchange (1-based)
    unsigned count = 0;  // number of matching exchanges affected (0 = unlimited)
    double rate = 1.0;   // probability per matching exchange (deterministic seeded PRNG)
    unsigned value = 0;  // Delay: milliseconds; Garbage: number of garbage chunks before the frame;
                         // Chunk: chunk size in bytes
};

struct LogEntry {
    int priority = 0;
    std::string text;  // formatted, trailing newlines removed
};

TOVRASIM_API void loadScenario(const std::string &nameOrPath);  // replaces the model; clears faults/counters
TOVRASIM_API void reset();  // reload the current scenario, clear faults, counters, captured log
TOVRASIM_API void addFault(const Fault &f);
TOVRASIM_API void addFaults(const std::string &text);  // the TOVRA_SIM_FAULTS syntax; throws on a bad entry
TOVRASIM_API void clearFaults();
TOVRASIM_API unsigned exchanges(int command = -1);  // request frames received per command code, -1 = all
TOVRASIM_API void resetCounters();
// The whole 1060-byte ioctl buffer of the last request written with this
// command byte (-1: of any command); empty when there was none since the
// last counter reset.
TOVRASIM_API std::vector<uint8_t> lastRequest(int command = -1);
TOVRASIM_API unsigned openDescriptors();  // simulated device fds currently open
TOVRASIM_API void useVirtualClock(bool on);  // time() and nanosleep() use the virtual clock
TOVRASIM_API void setTime(time_t t);          // whole seconds, sub-second part reset to 0
TOVRASIM_API void advance(double seconds);
TOVRASIM_API double now();                    // the clock in use, in seconds
TOVRASIM_API void setIdlePollStep(double seconds);  // virtual time per empty read (default 0.25 s)
TOVRASIM_API void captureLog(bool on);
TOVRASIM_API std::vector<std::string> logLines();
TOVRASIM_API std::vector<LogEntry> logEntries();
TOVRASIM_API void clearLog();
TOVRASIM_API void setChunkSize(unsigned bytes);  // default reply chunk size (0 = the built-in default)
TOVRASIM_API void withModel(const std::function<void(Model &)> &fn);  // under the lock; persisted after
// Attach a state file (empty = detach). An existing file replaces the model;
// otherwise the current model is written to it. Written after every change.
TOVRASIM_API void setStateFile(const std::string &path);
TOVRASIM_API std::string scenarioName();

// Health changes of a running adapter, as the control command tovra-sim takes
// them ("fail-disk 1 3", "battery low", "event -s error Fan stopped", ...; see
// controlUsage). Applied under the lock and persisted to the state file, so
// every process sharing it sees them at its next exchange. Returns what was
// done; throws std::invalid_argument (and changes nothing) on a bad command.
TOVRASIM_API std::string runControl(const std::vector<std::string> &args);
TOVRASIM_API std::string controlUsage();

}  // namespace tovra::sim
