#include "Privilege.h"

#include "CimWriter.h"

namespace tovra {

namespace {

constexpr unsigned kReadWritePermission = 5;

// The principal's text: a CMPI string or chars; nullptr for anything else.
const char *principalText(const CMPIData &d) {
    if (d.state & CMPI_nullValue) return nullptr;
    if (d.type == CMPI_chars) return d.value.chars;
    return stringOf(d);
}

}  // namespace

CMPIStatus ValidatePrivilege(const CMPIContext *ctx, const CMPIBroker *broker) {
    const CMPIStatus denied = makeStatus(CMPI_RC_ERR_ACCESS_DENIED);
    if (ctx == nullptr || broker == nullptr) return denied;
    CMPIData principal = CMGetContextEntry(ctx, CMPIPrincipal, nullptr);
    const char *user = principalText(principal);
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
    // The level is read as its low byte, whatever integer type the service used
    // (each type from its own member of the value union).
    const auto number = unsignedOf(level);
    if (!number || (*number & 0xFFu) != kReadWritePermission) return denied;
    return makeStatus(checked.rc);
}

}  // namespace tovra
