#include "CacheReset.h"

#include "CimWriter.h"
#include "Platform.h"

namespace tovra {

void TovraInvokeMethodResetBaseTime(const CMPIBroker *broker, const CMPIContext *ctx,
                                    std::initializer_list<const char *> classNames) {
    for (const char *className : classNames) {
        if (className == nullptr) break;
        CMPIObjectPath *op = CMNewObjectPath(broker, "tovra/cimv2", className, nullptr);
        CMPIArgs *in = CMNewArgs(broker, nullptr);
        CMPIArgs *out = CMNewArgs(broker, nullptr);
        if (op == nullptr || in == nullptr || out == nullptr) continue;
        // Results and failures are of no interest: the target only zeroes its cache time.
        CBInvokeMethod(broker, ctx, op, "TimeCalibration", in, out, nullptr);
    }
    logAlert("%s: Ending\n", "TovraInvokeMethodResetBaseTime");
}

}  // namespace tovra
