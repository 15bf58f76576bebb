// Widgets and gadgets (instances and methods), plus two providers that must
// fail to initialize.
#include "TestSupport.h"

#include <cstdio>

namespace testprovider {

std::atomic<const CMPIBroker *> broker{nullptr};

CMPIObjectPath *widgetPath(const std::string &ns, const char *name) {
    CMPIObjectPath *op = CMNewObjectPath(mb(), ns.c_str(), "Test_Widget", nullptr);
    CMAddKey(op, "Name", name, CMPI_chars);
    return op;
}

CMPIObjectPath *gadgetPath(const std::string &ns, const Gadget &g) {
    CMPIObjectPath *op = CMNewObjectPath(mb(), ns.c_str(), "Test_Gadget", nullptr);
    CMAddKey(op, "Name", g.name, CMPI_chars);
    CMAddKey(op, "Id", &g.id, CMPI_uint32);
    return op;
}

const Gadget *findGadget(const char *name) {
    for (const Gadget &g : kGadgets)
        if (same(g.name, name)) return &g;
    return nullptr;
}

CMPIStatus unsupported() { return status(CMPI_RC_ERR_NOT_SUPPORTED); }
CMPIStatus keepLoaded(CMPIBoolean terminating) { return status(terminating ? CMPI_RC_OK : CMPI_RC_NEVER_UNLOAD); }

namespace {

const char *kNameKey[] = {"Name", nullptr};

CMPIInstance *widgetInstance(const std::string &ns, const Widget &w, const char **properties) {
    CMPIInstance *inst = CMNewInstance(mb(), widgetPath(ns, w.name), nullptr);
    CMSetPropertyFilter(inst, properties, kNameKey);
    std::string caption = std::string("widget ") + w.name;
    CMSetProperty(inst, "Caption", caption.c_str(), CMPI_chars);
    CMSetProperty(inst, "Slot", &w.slot, CMPI_uint8);
    CMSetProperty(inst, "Size", &w.size, CMPI_uint32);
    CMPIBoolean enabled = w.enabled ? 1 : 0;
    CMSetProperty(inst, "Enabled", &enabled, CMPI_boolean);
    // The portable way to a string array: chars elements, attached as stringA.
    CMPIArray *tags = CMNewArray(mb(), 2, CMPI_chars, nullptr);
    CMSetArrayElementAt(tags, 0, "red", CMPI_chars);
    CMSetArrayElementAt(tags, 1, w.name, CMPI_chars);
    CMSetProperty(inst, "Tags", &tags, CMPI_stringA);
    CMPIArray *codes = CMNewArray(mb(), 2, CMPI_uint16, nullptr);
    for (CMPICount i = 0; i < 2; ++i) {
        CMPIUint16 code = static_cast<CMPIUint16>(w.slot * 10 + i);
        CMSetArrayElementAt(codes, i, &code, CMPI_uint16);
    }
    CMSetProperty(inst, "Codes", &codes, CMPI_uint16A);
    return inst;
}

// ---- widgets: instances ----------------------------------------------------

CMPIStatus widgetCleanup(CMPIInstanceMI *, const CMPIContext *, CMPIBoolean terminating) {
    return keepLoaded(terminating);
}

CMPIStatus widgetNames(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op) {
    for (const Widget &w : kWidgets) CMReturnObjectPath(rslt, widgetPath(nameSpaceOf(op), w.name));
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

CMPIStatus widgetInstances(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op,
                           const char **properties) {
    for (const Widget &w : kWidgets) CMReturnInstance(rslt, widgetInstance(nameSpaceOf(op), w, properties));
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

// Looks the widget up itself: a get-instance may be serving an association's
// up-call, and a CIMOM that serialises up-calls would never answer one made now.
CMPIStatus widgetGet(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op,
                     const char **properties) {
    const char *name = keyText(op, "Name");
    if (name == nullptr) return status(CMPI_RC_ERR_INVALID_PARAMETER);
    for (const Widget &w : kWidgets) {
        if (!same(w.name, name)) continue;
        CMReturnInstance(rslt, widgetInstance(nameSpaceOf(op), w, properties));
        CMReturnDone(rslt);
        return status(CMPI_RC_OK);
    }
    CMReturnDone(rslt);
    return status(CMPI_RC_ERR_NOT_FOUND);
}

CMPIInstanceMIFT widgetFT = {CMPICurrentVersion, CMPICurrentVersion, "instanceTestWidgetProvider",
                             widgetCleanup,      widgetNames,        widgetInstances,
                             widgetGet,          noCreate,           noModify,
                             noDelete,           noQuery};
CMPIInstanceMI widgetMI = {nullptr, &widgetFT};

// ---- widgets: methods ------------------------------------------------------

// Appends "name=value" for an argument of exactly the expected type.
bool describeArg(const CMPIArgs *in, const char *name, CMPIType expected, std::string &out) {
    CMPIStatus st = status(CMPI_RC_OK);
    CMPIData d = CMGetArg(in, name, &st);
    if (st.rc == CMPI_RC_ERR_NO_SUCH_PROPERTY) return true;
    if (st.rc != CMPI_RC_OK || d.type != expected) return false;
    char buf[64] = "";
    switch (expected) {
        case CMPI_uint8: std::snprintf(buf, sizeof buf, "%u", d.value.uint8); break;
        case CMPI_uint32: std::snprintf(buf, sizeof buf, "%u", d.value.uint32); break;
        case CMPI_boolean: std::snprintf(buf, sizeof buf, "%s", d.value.boolean ? "true" : "false"); break;
        case CMPI_string: std::snprintf(buf, sizeof buf, "%s", textOf(d) != nullptr ? textOf(d) : ""); break;
        case CMPI_stringA: std::snprintf(buf, sizeof buf, "%u", CMGetArrayCount(d.value.array, nullptr)); break;
        default: return false;
    }
    out += std::string(out.empty() ? "" : " ") + name + "=" + buf;
    return true;
}

CMPIStatus describe(const CMPIResult *rslt, const CMPIArgs *in, CMPIArgs *out) {
    std::string text;
    bool typed = describeArg(in, "Slot", CMPI_uint8, text) && describeArg(in, "Label", CMPI_string, text) &&
                 describeArg(in, "Count", CMPI_uint32, text) && describeArg(in, "Verbose", CMPI_boolean, text) &&
                 describeArg(in, "Items", CMPI_stringA, text);
    if (!typed) return status(CMPI_RC_ERR_TYPE_MISMATCH);
    if (const char *label = textOf(CMGetArg(in, "Label", nullptr))) CMAddArg(out, "Echo", label, CMPI_chars);
    CMReturnData(rslt, text.c_str(), CMPI_chars);
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

// Asks the host's authorization service, as a product method provider does.
CMPIStatus checkAccess(const CMPIContext *ctx, const CMPIResult *rslt) {
    const char *user = textOf(CMGetContextEntry(ctx, CMPIPrincipal, nullptr));
    if (user == nullptr || *user == '\0') return status(CMPI_RC_ERR_ACCESS_DENIED);
    CMPIObjectPath *service = CMNewObjectPath(mb(), "root/cimv2", "VMware_UserAuthorizationService", nullptr);
    CMAddKey(service, "Name", "VMware:UserAuthorizationService", CMPI_chars);
    CMPIArgs *in = CMNewArgs(mb(), nullptr);
    CMPIArgs *out = CMNewArgs(mb(), nullptr);
    CMAddArg(in, "User", user, CMPI_chars);
    CMPIStatus st = status(CMPI_RC_OK);
    CMPIData level = CBInvokeMethod(mb(), ctx, service, "CheckPermissions", in, out, &st);
    if (st.rc != CMPI_RC_OK) return st;
    if (level.type != CMPI_uint8) return status(CMPI_RC_ERR_TYPE_MISMATCH);
    CMReturnData(rslt, &level.value.uint8, CMPI_uint8);
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

// CheckAccess of the same widget, through the broker: that call up-calls the
// authorization service while this one holds the process's up-call lock.
CMPIStatus nest(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *op) {
    CMPIStatus st = status(CMPI_RC_OK);
    CMPIData level = CBInvokeMethod(mb(), ctx, op, "CheckAccess", CMNewArgs(mb(), nullptr), CMNewArgs(mb(), nullptr), &st);
    if (st.rc != CMPI_RC_OK) return st;
    CMReturnData(rslt, &level.value.uint8, CMPI_uint8);
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

// Releases objects the broker owns, and one of its own twice.
CMPIStatus misbehave(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *op, const CMPIArgs *in) {
    CMRelease(const_cast<CMPIContext *>(ctx));
    CMRelease(const_cast<CMPIResult *>(rslt));
    CMRelease(const_cast<CMPIObjectPath *>(op));
    CMRelease(const_cast<CMPIArgs *>(in));
    CMPIData name = CMGetKey(op, "Name", nullptr);
    if (name.type == CMPI_string) CMRelease(name.value.string);
    CMPIString *twice = CMNewString(mb(), "twice", nullptr);
    CMRelease(twice);
    CMRelease(twice);
    CMReturnData(rslt, "survived", CMPI_chars);
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

// "name=value;" for each context entry (strings and uint32 values).
CMPIStatus contextEntries(const CMPIContext *ctx, const CMPIResult *rslt) {
    std::string text;
    CMPICount count = CMGetContextEntryCount(ctx, nullptr);
    for (CMPICount i = 0; i < count; ++i) {
        CMPIString *name = nullptr;
        CMPIData d = CMGetContextEntryAt(ctx, i, &name, nullptr);
        text += std::string(CMGetCharsPtr(name, nullptr)) + "=";
        if (d.type == CMPI_uint32) text += std::to_string(d.value.uint32);
        else if (const char *s = textOf(d)) text += s;
        text += ";";
    }
    CMReturnData(rslt, text.c_str(), CMPI_chars);
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

CMPIStatus widgetMethodCleanup(CMPIMethodMI *, const CMPIContext *, CMPIBoolean) { return status(CMPI_RC_OK); }

CMPIStatus widgetInvoke(CMPIMethodMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *op,
                        const char *method, const CMPIArgs *in, CMPIArgs *out) {
    if (sameName(method, "Describe")) return describe(rslt, in, out);
    if (sameName(method, "CheckAccess")) return checkAccess(ctx, rslt);
    if (sameName(method, "Nest")) return nest(ctx, rslt, op);
    if (sameName(method, "Misbehave")) return misbehave(ctx, rslt, op, in);
    if (sameName(method, "Context")) return contextEntries(ctx, rslt);
    return status(CMPI_RC_ERR_METHOD_NOT_FOUND);
}

CMPIMethodMIFT widgetMethodFT = {CMPICurrentVersion, CMPICurrentVersion, "methodTestWidgetProvider",
                                 widgetMethodCleanup, widgetInvoke};
CMPIMethodMI widgetMethodMI = {nullptr, &widgetMethodFT};

// ---- gadgets -----------------------------------------------------------------

CMPIInstance *gadgetInstance(const std::string &ns, const Gadget &g, const char **properties) {
    CMPIInstance *inst = CMNewInstance(mb(), gadgetPath(ns, g), nullptr);
    const char *keys[] = {"Name", "Id", nullptr};
    CMSetPropertyFilter(inst, properties, keys);
    CMSetProperty(inst, "Owner", g.owner, CMPI_chars);
    CMPIUint32 weight = g.id * 10;  // declared uint16: the host logs the mismatch
    CMSetProperty(inst, "Weight", &weight, CMPI_uint32);
    return inst;
}

CMPIStatus gadgetNames(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op) {
    for (const Gadget &g : kGadgets) CMReturnObjectPath(rslt, gadgetPath(nameSpaceOf(op), g));
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

CMPIStatus gadgetInstances(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op,
                           const char **properties) {
    for (const Gadget &g : kGadgets) CMReturnInstance(rslt, gadgetInstance(nameSpaceOf(op), g, properties));
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

CMPIStatus gadgetGet(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op,
                     const char **properties) {
    const Gadget *g = findGadget(keyText(op, "Name"));
    CMReturnDone(rslt);
    if (g == nullptr) return status(CMPI_RC_ERR_NOT_FOUND);
    CMReturnInstance(rslt, gadgetInstance(nameSpaceOf(op), *g, properties));
    return status(CMPI_RC_OK);
}

CMPIInstanceMIFT gadgetFT = {CMPICurrentVersion, CMPICurrentVersion, "instanceTestGadgetProvider",
                             widgetCleanup,      gadgetNames,        gadgetInstances,
                             gadgetGet,          noCreate,           noModify,
                             noDelete,           noQuery};
CMPIInstanceMI gadgetMI = {nullptr, &gadgetFT};

}  // namespace
}  // namespace testprovider

using namespace testprovider;

CMPI_EXTERN_C CMPIInstanceMI *TestWidgetProvider_Create_InstanceMI(const CMPIBroker *mb, const CMPIContext *,
                                                                   CMPIStatus *) {
    broker = mb;
    return &widgetMI;
}

CMPI_EXTERN_C CMPIMethodMI *TestWidgetProvider_Create_MethodMI(const CMPIBroker *mb, const CMPIContext *,
                                                               CMPIStatus *) {
    broker = mb;
    return &widgetMethodMI;
}

CMPI_EXTERN_C CMPIInstanceMI *TestGadgetProvider_Create_InstanceMI(const CMPIBroker *mb, const CMPIContext *,
                                                                   CMPIStatus *) {
    broker = mb;
    return &gadgetMI;
}

// Its registration also lists "method", which is not exported.
CMPI_EXTERN_C CMPIInstanceMI *TestBrokenProvider_Create_InstanceMI(const CMPIBroker *mb, const CMPIContext *,
                                                                   CMPIStatus *) {
    broker = mb;
    return &gadgetMI;
}

// Hands back a table but reports a failure.
CMPI_EXTERN_C CMPIInstanceMI *TestFailingProvider_Create_InstanceMI(const CMPIBroker *, const CMPIContext *,
                                                                    CMPIStatus *rc) {
    if (rc != nullptr) *rc = CMPIStatus{CMPI_RC_ERR_FAILED, nullptr};
    return &gadgetMI;
}
