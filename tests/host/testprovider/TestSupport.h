// Shared pieces of the host's test provider library: its fixed data and
// small helpers over the broker. Everything but the factories is hidden.
#pragma once

#include <cmpimacs.h>

#include <strings.h>

#include <atomic>
#include <cstring>
#include <string>

namespace testprovider {

extern std::atomic<const CMPIBroker *> broker;
inline const CMPIBroker *mb() { return broker.load(); }

struct Widget {
    const char *name;
    CMPIUint8 slot;
    CMPIUint32 size;
    bool enabled;
};
constexpr Widget kWidgets[] = {{"alpha", 1, 100, true}, {"beta", 2, 200, false}};

struct Gadget {
    const char *name;
    CMPIUint32 id;
    const char *owner;
};
constexpr Gadget kGadgets[] = {{"g1", 7, "alpha"}, {"g2", 8, "alpha"}, {"g3", 9, "beta"}};

inline CMPIStatus status(CMPIrc rc) { return CMPIStatus{rc, nullptr}; }

// Text of a string value, or nullptr.
inline const char *textOf(const CMPIData &d) {
    if ((d.state & CMPI_nullValue) || d.type != CMPI_string || d.value.string == nullptr) return nullptr;
    return CMGetCharsPtr(d.value.string, nullptr);
}

inline const char *keyText(const CMPIObjectPath *op, const char *key) { return textOf(CMGetKey(op, key, nullptr)); }
inline const char *propertyText(const CMPIInstance *inst, const char *name) {
    return textOf(CMGetProperty(inst, name, nullptr));
}

inline std::string nameSpaceOf(const CMPIObjectPath *op) {
    CMPIString *ns = CMGetNameSpace(op, nullptr);
    const char *text = ns != nullptr ? CMGetCharsPtr(ns, nullptr) : nullptr;
    return text != nullptr ? text : "";
}

inline bool isA(const CMPIObjectPath *op, const char *cls) { return CMClassPathIsA(mb(), op, cls, nullptr) != 0; }
inline bool same(const char *a, const char *b) { return a != nullptr && b != nullptr && std::strcmp(a, b) == 0; }
inline bool sameName(const char *a, const char *b) { return a != nullptr && b != nullptr && strcasecmp(a, b) == 0; }

CMPIObjectPath *widgetPath(const std::string &ns, const char *name);
CMPIObjectPath *gadgetPath(const std::string &ns, const Gadget &g);
const Gadget *findGadget(const char *name);

CMPIStatus unsupported();

// The instance operations the test classes do not offer.
inline CMPIStatus noCreate(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                           const CMPIInstance *) {
    return unsupported();
}
inline CMPIStatus noModify(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                           const CMPIInstance *, const char **) {
    return unsupported();
}
inline CMPIStatus noDelete(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *) {
    return unsupported();
}
inline CMPIStatus noQuery(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                          const char *, const char *) {
    return unsupported();
}
CMPIStatus keepLoaded(CMPIBoolean terminating);

}  // namespace testprovider
