// The fault matrix: every operation of every module, through the host against
// the simulator, under every fault kind the simulator offers. Both tables live
// in FaultMatrixTest.cpp; one test case is generated per (operation, fault).
#pragma once

#include "Harness.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace matrix {

using harness::Answer;

// What a faulted operation must answer.
struct Expect {
    bool asWithoutFault = false;  // the same answer as the fault-free run
    CMPIrc rc = CMPI_RC_OK;
    std::string message;  // exact text of the status message ("" = none)
    std::string log;      // a text some captured log line must contain ("" = no check)
    bool noObjects = true;
    bool anyAnswer = false;  // only the state and leak checks apply
};

inline Expect same() {
    Expect e;
    e.asWithoutFault = true;
    return e;
}
inline Expect anyAnswer() {
    Expect e;
    e.anyAnswer = true;
    return e;
}
inline Expect status(CMPIrc rc, std::string message = {}, std::string log = {}) {
    Expect e;
    e.rc = rc;
    e.message = std::move(message);
    e.log = std::move(log);
    return e;
}

// How an operation reaches the adapter, which decides the default expectation
// of each fault.
enum class Path {
    Cached,      // instance and association reads: a stale cache rebuilt from the firmware
    Command,     // a method: one firmware command and its one-letter reply
    DeviceOnly,  // opens the device but sends nothing
    NoDevice,    // never opens the device
};

// Runs without faults, before the fault is armed (it may read keys or create
// what the operation needs), and returns the call to make under the fault.
using Call = std::function<Answer()>;
using Arrange = std::function<Call()>;

struct Operation {
    std::string name;  // letters, digits and '_' only: it becomes part of a test name
    Path path;
    Arrange arrange;
    // Expectations that differ from the fault's default for this path, by
    // fault name (a method's own open-failure text, for example).
    std::map<std::string, Expect> overrides = {};
};

struct FaultCase {
    std::string name;
    tovra::sim::Fault fault;
    bool reachesFirmware;  // false: the command never arrives, so no change may happen
    Expect cached;         // default for Path::Cached
    Expect command;        // default for Path::Command
};

}  // namespace matrix
