#include "SubscriptionFile.h"

#include "Schema.h"
#include "XmlWriter.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace cimserver {

using cimhost::InstanceV;
using cimhost::ObjectPathV;
using cimhost::Value;
using json = nlohmann::json;

namespace {

constexpr int kVersion = 1;

json scalarJson(const Value &v) {
    if (v.isNull()) return nullptr;
    if (v.type() == CMPI_ref) return v.asRef().toString();
    if (cimhost::isTextType(v.type())) return v.asString();
    return v.toText();
}

json valueJson(const Value &v) {
    json out;
    out["type"] = cimTypeName(v.type());
    if (v.isArray()) {
        out["array"] = true;
        json items = json::array();
        if (!v.isNull())
            for (const Value &e : v.asArray()) items.push_back(scalarJson(e));
        out["value"] = v.isNull() ? json(nullptr) : items;
    } else {
        out["value"] = scalarJson(v);
    }
    return out;
}

Value scalarValue(CMPIType type, const json &j, const std::string &what) {
    if (j.is_null()) return Value::null(type);
    if (!j.is_string()) throw std::runtime_error(what + ": a value must be text");
    const std::string &text = j.get_ref<const std::string &>();
    if (type == CMPI_ref) {
        auto path = ObjectPathV::parse(text);
        if (!path) throw std::runtime_error(what + ": '" + text + "' is not an object path");
        return Value::ref(std::move(*path));
    }
    auto v = Value::parse(type, text);
    if (!v) throw std::runtime_error(what + ": '" + text + "' is not a " + cimhost::typeName(type));
    return *v;
}

Value jsonValue(const json &j, const std::string &what) {
    if (!j.is_object() || !j.contains("type") || !j["type"].is_string() || !j.contains("value"))
        throw std::runtime_error(what + ": expected {\"type\", \"value\"}");
    const std::string typeName = j["type"].get<std::string>();
    CMPIType type = CMPI_ref;
    if (typeName != "reference") {
        auto t = cimhost::cimTypeFromName(typeName);
        if (!t) throw std::runtime_error(what + ": unknown type " + typeName);
        type = cimhost::cmpiTypeOf(*t, false);
    }
    const json &value = j["value"];
    if (!j.value("array", false)) return scalarValue(type, value, what);
    if (value.is_null()) return Value::null(static_cast<CMPIType>(type | CMPI_ARRAY));
    if (!value.is_array()) throw std::runtime_error(what + ": an array value must be a list");
    Value::Array items;
    for (const json &item : value) items.push_back(scalarValue(type, item, what));
    return Value::array(type, std::move(items));
}

}  // namespace

std::string subscriptionText(const std::vector<const InstanceV *> &instances) {
    json list = json::array();
    for (const InstanceV *inst : instances) {
        json props = json::object();
        for (const auto &[name, v] : inst->properties) props[name] = valueJson(v);
        list.push_back({{"class", inst->path.className}, {"properties", props}});
    }
    return json{{"version", kVersion}, {"instances", list}}.dump(1) + "\n";
}

std::vector<InstanceV> parseSubscriptions(const std::string &text, const std::string &origin) {
    json doc = json::parse(text, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) throw std::runtime_error(origin + ": not a JSON object");
    if (doc.value("version", 0) != kVersion) throw std::runtime_error(origin + ": unknown version");
    if (!doc.contains("instances") || !doc["instances"].is_array())
        throw std::runtime_error(origin + ": no \"instances\" list");
    std::vector<InstanceV> out;
    for (const json &item : doc["instances"]) {
        if (!item.is_object() || !item.contains("class") || !item["class"].is_string() || !item.contains("properties") ||
            !item["properties"].is_object())
            throw std::runtime_error(origin + ": an instance needs \"class\" and \"properties\"");
        InstanceV inst;
        inst.path.className = item["class"].get<std::string>();
        for (const auto &[name, value] : item["properties"].items())
            inst.properties.emplace_back(name, jsonValue(value, origin + ": " + inst.path.className + "." + name));
        out.push_back(std::move(inst));
    }
    return out;
}

std::vector<InstanceV> readSubscriptionFile(const std::string &path) {
    std::ifstream in(path);
    if (!in) {
        if (errno == ENOENT) return {};
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    std::stringstream text;
    text << in.rdbuf();
    return parseSubscriptions(text.str(), path);
}

void writeSubscriptionFile(const std::string &path, const std::vector<const InstanceV *> &instances) {
    const std::string text = subscriptionText(instances);
    std::string temp = path + ".XXXXXX";
    int fd = mkstemp(temp.data());
    if (fd < 0) throw std::runtime_error("cannot keep the subscriptions in " + path + ": " + std::strerror(errno));
    bool ok = fchmod(fd, 0600) == 0;
    for (std::size_t done = 0; ok && done < text.size();) {
        ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) done += static_cast<std::size_t>(n);
    }
    ok = ok && fsync(fd) == 0;
    const int error = errno;
    ok = close(fd) == 0 && ok;
    if (!ok || rename(temp.c_str(), path.c_str()) != 0) {
        const int why = ok ? errno : error;
        unlink(temp.c_str());
        throw std::runtime_error("cannot keep the subscriptions in " + path + ": " + std::strerror(why));
    }
    // The rename itself reaches the disk with the directory.
    const std::size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    int dfd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        (void)fsync(dfd);
        close(dfd);
    }
}

}  // namespace cimserver
