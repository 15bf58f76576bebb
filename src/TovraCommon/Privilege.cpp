#include "Privilege.h"

#include "CimWriter.h"

namespace tovra {

namespace {
constexpr unsigned kReadWritePermission = 5;
}

CMPIStatus ValidatePrivilege(const CMPIContext *ctx, const CMPIBroker *broker) {
    const CMPIStatus denied = makeStatus(CMPI_RC_ERR_ACCESS_DENIED);
    if (ctx == nullptr || broker == nullptr) return denied;
    CMPIData principal = CMGetContextEntry(ctx, CMPIPrincipal, nullptr);
    const char *user = stringOf(principal);
    if (user == nullptr || *user == '\0') return denied;

    CMPIStatus st = okStatus();
    CMPIObjectPath *service = CMNewObjectPath(broker, "root/cimv2", "VMware_UserAuthorizationService", &st);
    if (service == nullptr) return denied;
    CMPIStatus checked = CMAddKey(service, "Name", "VMware:UserAuthorizationService", CMPI_chars);
    CMPIArgs *in = CMNewArgs(broker, nullptr);
    CMPIArgs *out = CMNewArgs(broker, nullptr);
    if (in == nullptr || out == nullptr) return denied;
    CMAddArg(in, "User", user, CMPI_chars);

    CMPIData level = CBInvokeMethod(broker, ctx, service, "CheckPermissions", in, out, nullptr);
    // The level is read as its low byte, whatever integer type the service used.
    if ((level.state & CMPI_nullValue) || level.type == CMPI_null || (level.type & CMPI_ARRAY) ||
        !(level.type & (CMPI_UINT | CMPI_SINT)))
        return denied;
    if (level.value.uint8 != kReadWritePermission) return denied;
    return makeStatus(checked.rc);
}

}  // namespace tovra
