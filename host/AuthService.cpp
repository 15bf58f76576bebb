// The host's user authorization service, built in as an ordinary CMPI
// provider: one instance, and CheckPermissions(User) answering the level the
// host was given for that user (0 for anybody else). No real account is read.
#include "HostCore.h"

#include <cmpimacs.h>

#include <algorithm>
#include <cstring>

namespace cimhost {

namespace {

HostCore &coreOf(const void *hdl) { return *static_cast<HostCore *>(const_cast<void *>(hdl)); }

CMPIStatus ok() { return CMPIStatus{CMPI_RC_OK, nullptr}; }
CMPIStatus fail(CMPIrc rc) { return CMPIStatus{rc, nullptr}; }

CMPIObjectPath *servicePath(const CMPIBroker *mb, const CMPIObjectPath *request) {
    CMPIString *ns = CMGetNameSpace(request, nullptr);
    CMPIObjectPath *op = CMNewObjectPath(mb, ns != nullptr ? CMGetCharsPtr(ns, nullptr) : Schema::kAuthNamespace,
                                         Schema::kAuthClass, nullptr);
    if (op != nullptr) CMAddKey(op, "Name", Schema::kAuthName, CMPI_chars);
    return op;
}

// The request names the one instance there is.
bool namesService(const CMPIObjectPath *op) {
    CMPIStatus st = ok();
    CMPIData name = CMGetKey(op, "Name", &st);
    if (st.rc != CMPI_RC_OK || (name.state & CMPI_nullValue) || name.type != CMPI_string) return false;
    const char *text = CMGetCharsPtr(name.value.string, nullptr);
    return text != nullptr && std::strcmp(text, Schema::kAuthName) == 0;
}

CMPIStatus instanceCleanup(CMPIInstanceMI *, const CMPIContext *, CMPIBoolean) { return ok(); }

CMPIStatus enumNames(CMPIInstanceMI *mi, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op) {
    CMPIObjectPath *path = servicePath(coreOf(mi->hdl).broker(), op);
    if (path == nullptr) return fail(CMPI_RC_ERR_FAILED);
    CMReturnObjectPath(rslt, path);
    CMReturnDone(rslt);
    return ok();
}

CMPIStatus returnService(CMPIInstanceMI *mi, const CMPIResult *rslt, const CMPIObjectPath *op) {
    const CMPIBroker *mb = coreOf(mi->hdl).broker();
    CMPIObjectPath *path = servicePath(mb, op);
    CMPIInstance *inst = path != nullptr ? CMNewInstance(mb, path, nullptr) : nullptr;
    if (inst == nullptr) return fail(CMPI_RC_ERR_FAILED);
    CMReturnInstance(rslt, inst);
    CMReturnDone(rslt);
    return ok();
}

CMPIStatus enumInstances(CMPIInstanceMI *mi, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op,
                         const char **) {
    return returnService(mi, rslt, op);
}

CMPIStatus getInstance(CMPIInstanceMI *mi, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op,
                       const char **) {
    if (!namesService(op)) return fail(CMPI_RC_ERR_NOT_FOUND);
    return returnService(mi, rslt, op);
}

CMPIStatus createInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                          const CMPIInstance *) {
    return fail(CMPI_RC_ERR_NOT_SUPPORTED);
}
CMPIStatus modifyInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                          const CMPIInstance *, const char **) {
    return fail(CMPI_RC_ERR_NOT_SUPPORTED);
}
CMPIStatus deleteInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *) {
    return fail(CMPI_RC_ERR_NOT_SUPPORTED);
}
CMPIStatus execQuery(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *, const char *,
                     const char *) {
    return fail(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIStatus methodCleanup(CMPIMethodMI *, const CMPIContext *, CMPIBoolean) { return ok(); }

CMPIStatus invokeMethod(CMPIMethodMI *mi, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op,
                        const char *method, const CMPIArgs *in, CMPIArgs *) {
    if (method == nullptr || !iequals(method, "CheckPermissions")) return fail(CMPI_RC_ERR_METHOD_NOT_FOUND);
    if (!namesService(op)) return fail(CMPI_RC_ERR_NOT_FOUND);
    CMPIStatus st = ok();
    CMPIData user = CMGetArg(in, "User", &st);
    const char *name = (st.rc == CMPI_RC_OK && !(user.state & CMPI_nullValue) && user.type == CMPI_string)
                           ? CMGetCharsPtr(user.value.string, nullptr)
                           : nullptr;
    if (name == nullptr) return fail(CMPI_RC_ERR_INVALID_PARAMETER);
    CMPIUint8 level = static_cast<CMPIUint8>(std::min(coreOf(mi->hdl).permission(name), 255u));
    CMReturnData(rslt, &level, CMPI_uint8);
    CMReturnDone(rslt);
    return ok();
}

CMPIInstanceMIFT instanceFT = {CMPICurrentVersion, CMPICurrentVersion, "instanceHostUserAuthorizationProvider",
                               instanceCleanup,    enumNames,          enumInstances,
                               getInstance,        createInstance,     modifyInstance,
                               deleteInstance,     execQuery};
CMPIMethodMIFT methodFT = {CMPICurrentVersion, CMPICurrentVersion, "methodHostUserAuthorizationProvider",
                           methodCleanup, invokeMethod};

CMPIInstanceMI *createInstanceMI(const CMPIBroker *mb, const CMPIContext *, CMPIStatus *) {
    HostCore *core = HostCore::of(mb);
    return core != nullptr ? &core->authInstanceMI : nullptr;
}

CMPIMethodMI *createMethodMI(const CMPIBroker *mb, const CMPIContext *, CMPIStatus *) {
    HostCore *core = HostCore::of(mb);
    return core != nullptr ? &core->authMethodMI : nullptr;
}

}  // namespace

ProviderModule::Resolver authServiceResolver() {
    return [](const std::string &symbol) -> void * {
        const std::string prefix = std::string(kAuthProvider) + "_Create_";
        if (symbol == prefix + "InstanceMI") return reinterpret_cast<void *>(&createInstanceMI);
        if (symbol == prefix + "MethodMI") return reinterpret_cast<void *>(&createMethodMI);
        return nullptr;
    };
}

void initAuthService(HostCore &core) {
    core.authInstanceMI = CMPIInstanceMI{&core, &instanceFT};
    core.authMethodMI = CMPIMethodMI{&core, &methodFT};
}

}  // namespace cimhost
