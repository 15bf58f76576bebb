#include "Format.h"

#include <charconv>
#include <cmath>
#include <sstream>

namespace cimhost::cli {

namespace {

Json namedToJson(const NamedValues &values) {
    Json out = Json::object();
    for (const auto &[name, value] : values) out[name] = toJson(value);
    return out;
}

// A JSON number that prints as the real's shortest text of its own width (a
// real32 3.31 as 3.31, not 3.309999942779541); JSON has no NaN or infinity:
// those are null.
Json realJson(CMPIType type, double v) {
    if (!std::isfinite(v)) return nullptr;
    const std::string text = realText(type, v);
    double shortest = v;
    std::from_chars(text.data(), text.data() + text.size(), shortest);
    return shortest;
}

bool isUnsigned(CMPIType t) { return isUnsignedType(t) || t == CMPI_char16; }

std::string indentValue(const Value &v) {
    if (v.isNull()) return "NULL";
    if (!v.isArray() && (v.type() == CMPI_string || v.type() == CMPI_chars)) return v.asString();
    return v.toText();
}

}  // namespace

Json toJson(const Value &value) {
    if (value.isNull()) return nullptr;
    if (value.isArray()) {
        Json out = Json::array();
        for (const Value &e : value.asArray()) out.push_back(toJson(e));
        return out;
    }
    CMPIType t = value.type();
    if (t == CMPI_boolean) return value.asBool();
    if (isSignedType(t)) return value.asSigned();
    if (isUnsigned(t)) return value.asUnsigned();
    if (t == CMPI_real32 || t == CMPI_real64) return realJson(t, value.asReal());
    if (t == CMPI_ref) return toJson(value.asRef());
    if (t == CMPI_instance) return toJson(value.asInstance());
    return value.toText();
}

Json toJson(const ObjectPathV &path) {
    Json out;
    if (!path.host.empty()) out["host"] = path.host;
    out["namespace"] = path.ns;
    out["className"] = path.className;
    out["keys"] = namedToJson(path.keys);
    return out;
}

Json toJson(const InstanceV &instance) {
    Json out;
    out["path"] = toJson(instance.path);
    out["properties"] = namedToJson(instance.properties);
    return out;
}

Json toJson(const Reply &reply) {
    Json out;
    if (!reply.ok()) {
        out["error"] = {{"rc", static_cast<int>(reply.rc)}, {"name", rcName(reply.rc)}, {"message", reply.message}};
        return out;
    }
    if (reply.returnValue || !reply.outArgs.empty()) {
        out["returnValue"] = reply.returnValue ? toJson(*reply.returnValue) : Json(nullptr);
        out["outArgs"] = namedToJson(reply.outArgs);
        return out;
    }
    if (!reply.instances.empty()) {
        out["instances"] = Json::array();
        for (const InstanceV &i : reply.instances) out["instances"].push_back(toJson(i));
        return out;
    }
    out["paths"] = Json::array();
    for (const ObjectPathV &p : reply.paths) out["paths"].push_back(toJson(p));
    return out;
}

Json toJson(const std::vector<RegisteredClass> &classes) {
    Json out = Json::array();
    for (const RegisteredClass &c : classes)
        out.push_back({{"className", c.className}, {"namespace", c.nameSpace}, {"provider", c.provider}, {"kinds", c.kinds}});
    return out;
}

std::string toText(const Reply &reply) {
    std::ostringstream out;
    for (const ObjectPathV &p : reply.paths) out << p.toString() << '\n';
    for (size_t i = 0; i < reply.instances.size(); ++i) {
        const InstanceV &inst = reply.instances[i];
        if (i > 0) out << '\n';
        out << inst.path.toString() << '\n';
        for (const auto &[name, value] : inst.properties) out << "    " << name << " = " << indentValue(value) << '\n';
    }
    if (reply.returnValue) out << "ReturnValue = " << indentValue(*reply.returnValue) << '\n';
    for (const auto &[name, value] : reply.outArgs) out << name << " = " << indentValue(value) << '\n';
    return out.str();
}

std::string toText(const std::vector<RegisteredClass> &classes) {
    std::ostringstream out;
    for (const RegisteredClass &c : classes) {
        out << c.className << ' ' << c.nameSpace << ' ' << c.provider << ' ';
        for (size_t i = 0; i < c.kinds.size(); ++i) out << (i > 0 ? "," : "") << c.kinds[i];
        out << '\n';
    }
    return out.str();
}

std::string errorText(const Reply &reply) {
    std::string text = rcName(reply.rc) + " (" + std::to_string(static_cast<int>(reply.rc)) + ")";
    return reply.message.empty() ? text : text + ": " + reply.message;
}

}  // namespace cimhost::cli
