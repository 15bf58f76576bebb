// The shape every method provider shares: start/end log lines, the caller's
// rights, the zeroed cache time, "TimeCalibration", and the module's own
// methods (a module without any answers unknown names with success).
#pragma once

#include "CacheEpochs.h"
#include "MethodArgs.h"
#include "Privilege.h"
#include "ProviderFrame.h"

#include <cstring>

namespace tovra {

template <class M> struct MethodOps {
    using S = ModuleState<M>;

    static CMPIStatus invoke(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                             const char *method, const CMPIArgs *in, CMPIArgs *out) {
        const std::string name = opName(M::kPrefix, "InvokeMethod");
        logAlert("%s: Sarting\n", name.c_str());
        CMPIStatus st = run(ctx, rslt, ref, method, in, out);
        logAlert("%s: Ending(0x%x)\n", name.c_str(), st.rc);
        return st;
    }

private:
    // The refusal names the module, unless its traits name another in kDeniedBy.
    static std::string deniedBy() {
        if constexpr (requires { M::kDeniedBy; })
            return M::kDeniedBy;
        else
            return M::kPrefix;
    }

    static CMPIStatus run(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                          const char *method, const CMPIArgs *in, CMPIArgs *out) {
        const CMPIBroker *broker = S::_TovraBroker;
        if (ValidatePrivilege(ctx, broker).rc != CMPI_RC_OK) {
            CMReturnDone(rslt);
            const std::string message = deniedBy() + "InvokeMethod: Caller does not have rw privileges to invoke methods.";
            CMPIStatus denied{CMPI_RC_ERR_FAILED, CMNewString(broker, message.c_str(), nullptr)};
            return denied;
        }
        // The module's own cache is stale from here on, in this process and
        // in any other that serves the class too.
        S::SetInstTime.store(0);
        announceCacheReset({M::kClass});
        if (method != nullptr && std::strcmp(method, "TimeCalibration") == 0) {
            CMReturnData(rslt, "OK", CMPI_chars);
            CMReturnDone(rslt);
            // A module whose traits say so also answers with the message "OK".
            if constexpr (requires { M::kCalibrationMessage; })
                return CMPIStatus{CMPI_RC_OK, CMNewString(broker, M::kCalibrationMessage, nullptr)};
            else
                return okStatus();
        }
        if constexpr (HasMethodProvider<M>) {
            // A module's method ends early by throwing MethodFailure (a bad
            // argument count or value, a device that will not open).
            try {
                return M::invokeMethod(ctx, rslt, ref, method, in, out);
            } catch (const MethodFailure &failure) {
                CMReturnDone(rslt);
                return CMPIStatus{failure.rc, CMNewString(broker, failure.message.c_str(), nullptr)};
            }
        } else {
            (void)ref;
            (void)in;
            (void)out;
            CMReturnDone(rslt);
            return okStatus();
        }
    }
};

}  // namespace tovra
