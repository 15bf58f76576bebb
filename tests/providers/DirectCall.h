// Calls a module's invokeMethod directly with a CMPIArgs list built by the
// caller through the host's broker, so arguments of any type (not only the
// declared ones the host would convert to) reach the provider. The result is
// recorded: the return value's text, the objects returned and how often the
// result was ended.
#pragma once

#include <cmpift.h>
#include <cmpimacs.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace direct {

struct Outcome {
    CMPIrc rc = CMPI_RC_OK;
    std::string message;
    bool hasMessage = false;
    std::optional<std::string> value;  // a chars or string return value
    int dataCount = 0;
    int doneCount = 0;
    // Objects returned: each its namespace, then its property names (an
    // instance) or its reference keys as "name=path" (an object path), sorted.
    std::vector<std::vector<std::string>> objects;
};

class RecordingResult {
public:
    RecordingResult() : result_{this, &kFt} {}
    const CMPIResult *get() const { return &result_; }
    Outcome outcome;

private:
    static RecordingResult *self(const CMPIResult *r) { return static_cast<RecordingResult *>(r->hdl); }
    static CMPIStatus ok() { return CMPIStatus{CMPI_RC_OK, nullptr}; }
    static CMPIStatus release(CMPIResult *) { return ok(); }
    static CMPIResult *clone(const CMPIResult *, CMPIStatus *rc) {
        if (rc) *rc = CMPIStatus{CMPI_RC_ERR_NOT_SUPPORTED, nullptr};
        return nullptr;
    }
    static CMPIStatus returnData(const CMPIResult *r, const CMPIValue *v, CMPIType type) {
        Outcome &o = self(r)->outcome;
        ++o.dataCount;
        if (type == CMPI_chars && v != nullptr)
            o.value = reinterpret_cast<const char *>(v);
        else if (type == CMPI_string && v != nullptr && v->string != nullptr)
            o.value = CMGetCharsPtr(v->string, nullptr);
        return ok();
    }
    static std::string text(CMPIString *s) { return s != nullptr ? CMGetCharsPtr(s, nullptr) : ""; }
    static std::vector<std::string> describe(const CMPIObjectPath *op, const CMPIInstance *inst) {
        std::vector<std::string> seen;
        const CMPICount n = inst != nullptr ? CMGetPropertyCount(inst, nullptr) : CMGetKeyCount(op, nullptr);
        for (CMPICount i = 0; i < n; ++i) {
            CMPIString *name = nullptr;
            const CMPIData d = inst != nullptr ? CMGetPropertyAt(inst, i, &name, nullptr) : CMGetKeyAt(op, i, &name, nullptr);
            if (inst != nullptr)
                seen.push_back(text(name));
            else if (d.type == CMPI_ref)
                seen.push_back(text(name) + "=" + text(CMObjectPathToString(d.value.ref, nullptr)));
        }
        std::sort(seen.begin(), seen.end());
        seen.insert(seen.begin(), text(CMGetNameSpace(op, nullptr)));
        return seen;
    }
    static CMPIStatus returnInstance(const CMPIResult *r, const CMPIInstance *inst) {
        self(r)->outcome.objects.push_back(describe(CMGetObjectPath(inst, nullptr), inst));
        return ok();
    }
    static CMPIStatus returnObjectPath(const CMPIResult *r, const CMPIObjectPath *op) {
        self(r)->outcome.objects.push_back(describe(op, nullptr));
        return ok();
    }
    static CMPIStatus returnDone(const CMPIResult *r) {
        ++self(r)->outcome.doneCount;
        return ok();
    }
    static CMPIStatus returnError(const CMPIResult *, const CMPIError *) { return ok(); }
    static inline CMPIResultFT kFt = {CMPICurrentVersion, release,          clone,      returnData,
                                      returnInstance,     returnObjectPath, returnDone, returnError};
    CMPIResult result_;
};

// Invokes `method` of the method MI on an object path of `cls` in `ns`,
// with the arguments `fill` adds, inside a request of the given broker and
// context. The status message is read before the request's objects go away.
inline Outcome invoke(CMPIMethodMI *mi, const CMPIBroker *broker, const CMPIContext *ctx, const char *ns,
                      const char *cls, const char *method, const std::function<void(CMPIArgs *)> &fill) {
    RecordingResult result;
    CMPIArgs *in = CMNewArgs(broker, nullptr);
    CMPIArgs *out = CMNewArgs(broker, nullptr);
    CMPIObjectPath *op = CMNewObjectPath(broker, ns, cls, nullptr);
    if (fill) fill(in);
    const CMPIStatus st = mi->ft->invokeMethod(mi, ctx, result.get(), op, method, in, out);
    Outcome o = result.outcome;
    o.rc = st.rc;
    if (st.msg != nullptr) {
        o.hasMessage = true;
        o.message = CMGetCharsPtr(st.msg, nullptr);
    }
    return o;
}

}  // namespace direct
