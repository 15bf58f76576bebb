// The firmware side of every management method: one command frame sent and
// its one-letter result read under Mutex4IOCTL with fresh zero-filled buffers,
// and the method's tail around it (device open, cache reset of the
// neighbouring modules, the result's text as the method's return value).
#pragma once

#include <cmpimacs.h>

#include "CacheReset.h"
#include "Channel.h"
#include "CimWriter.h"
#include "MethodArgs.h"
#include "Platform.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace tovra {

// A command-result reader: ParseRAIDSetCommandCode and its siblings.
using CommandReader = CommandResult (*)(int fd, CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply);

// How an operation reports a request it could not write.
enum class OnSendFailure { Failed, Success };

// What an operation function needs besides its frame: the reader of its
// result, the message of a failed allocation (may be null), the status of a
// request that could not be written (1 with no text, or success with no text)
// and the status of a failed allocation (100, or success for the event reads).
struct CommandPlan {
    CommandReader reader;
    const char *allocFailed = nullptr;
    OnSendFailure onSendFailure = OnSendFailure::Failed;
    CMPIrc allocFailedCode = CMPI_RC_ERROR_SYSTEM;
};

// The broker string of a text, or null for none.
inline CMPIString *brokerString(const CMPIBroker *broker, const char *text) {
    return text != nullptr ? CMNewString(broker, text, nullptr) : nullptr;
}

// One firmware command on the open device: three zeroed 1060-byte buffers,
// Mutex4IOCTL around `send(rc, fd, request)` and, when the write went out,
// the reader. The status carries the result's code and text (a broker string).
template <class Send>
CMPIStatus runCommand(const CMPIBroker *broker, int fd, const char *caller, const CommandPlan &plan, Send &&send) {
    ExchangeBuffers buffers(caller);
    if (!buffers.ok()) return CMPIStatus{plan.allocFailedCode, brokerString(broker, plan.allocFailed)};
    IoctlLock lock;
    CMPIStatus rc = okStatus();
    if (!send(&rc, fd, buffers.request()))
        return makeStatus(plan.onSendFailure == OnSendFailure::Failed ? CMPI_RC_ERR_FAILED : CMPI_RC_OK);
    const CommandResult result = plan.reader(fd, buffers.reassembly(), buffers.reply());
    return CMPIStatus{static_cast<CMPIrc>(result.code), brokerString(broker, result.text)};
}

// Frames and writes one request (the common body of the Send functions): a
// failed write sets rc to 1 with no message and gives false.
bool sendFrame(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t command, uint16_t length,
               std::span<const uint8_t> params);

// The text of a status message ("" when it has none).
const char *statusText(const CMPIStatus &st);

// The tail of a method that reaches the firmware: opens the device (failure:
// status 100 with `openFailed`), runs `operation(fd)`, closes the device,
// resets the caches of `resetClasses` through "TimeCalibration", returns the
// operation's text as the method's value (type chars; "" when it has none),
// ends the result and answers the operation's status.
template <class Operation>
CMPIStatus deviceMethod(const CMPIBroker *broker, const CMPIContext *ctx, const CMPIResult *rslt,
                        const char *openFailed, std::initializer_list<const char *> resetClasses,
                        Operation &&operation) {
    CMPIStatus st = okStatus();
    {
        DeviceFd device;
        if (!device.valid()) failMethod(openFailed, CMPI_RC_ERROR_SYSTEM);
        st = operation(device.get());
    }
    if (resetClasses.size() != 0) TovraInvokeMethodResetBaseTime(broker, ctx, resetClasses);
    CMReturnData(rslt, statusText(st), CMPI_chars);
    CMReturnDone(rslt);
    return st;
}

// Runs the handler whose name equals `method` exactly (case-sensitive), in
// table order; any other name ends the result and answers success with no value.
template <class Handler, std::size_t N>
CMPIStatus dispatchMethod(const std::pair<std::string_view, Handler> (&table)[N], const CMPIContext *ctx,
                          const CMPIResult *rslt, const char *method, const CMPIArgs *in) {
    const std::string_view name = method != nullptr ? method : "";
    const ArgReader args(in);
    for (const auto &[candidate, handler] : table)
        if (name == candidate) return handler(ctx, rslt, args);
    CMReturnDone(rslt);
    return okStatus();
}

}  // namespace tovra
