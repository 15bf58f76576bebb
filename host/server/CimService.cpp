#include "CimService.h"

#include "Schema.h"
#include "XmlWriter.h"

#include <algorithm>
#include <array>

namespace cimserver {

using namespace cimhost;

namespace {

// A failure that ends a call with an ERROR element.
struct Failure {
    CMPIrc rc;
    std::string message;
    bool fromProvider = false;
};

[[noreturn]] void fail(CMPIrc rc, std::string message) { throw Failure{rc, std::move(message)}; }

constexpr std::array<const char *, 18> kDescriptions = {
    "",
    "General failure",
    "Access denied",
    "Invalid namespace",
    "Invalid parameter",
    "Invalid class",
    "Object not found",
    "Operation not supported",
    "Class has subclasses",
    "Class has instances",
    "Invalid superclass",
    "Object already exists",
    "No such property",
    "Type mismatch",
    "Query language not supported",
    "Invalid query",
    "Method not available",
    "Method not found",
};

}  // namespace

std::string_view standardDescription(int code) {
    return code > 0 && code < static_cast<int>(kDescriptions.size()) ? kDescriptions[static_cast<size_t>(code)] : "";
}

// One running request: its parameters, read with the operation's defaults,
// and the IRETURNVALUE content written so far.
struct CimService::Call {
    const CimRequest &request;
    unsigned level;
    std::string out;
    std::string className;

    const RawValue *raw(const char *name) const {
        const NamedParam *p = request.param(name);
        return p == nullptr || p->value.kind == RawValue::Kind::Null ? nullptr : &p->value;
    }
    // Flags the operation accepts but does not act on (see the header):
    // checked to be booleans all the same.
    void ignoredFlags(std::initializer_list<const char *> names) const {
        for (const char *n : names) flag(n, false);
    }
    bool flag(const char *name, bool fallback) const {
        const RawValue *v = raw(name);
        if (v == nullptr) return fallback;
        if (v->kind == RawValue::Kind::Text) {
            if (iequals(v->text, "true")) return true;
            if (iequals(v->text, "false")) return false;
        }
        fail(CMPI_RC_ERR_INVALID_PARAMETER, std::string(name) + " must be TRUE or FALSE");
    }
    std::string optionalClass(const char *name) const {
        const RawValue *v = raw(name);
        if (v == nullptr) return {};
        if (v->kind != RawValue::Kind::ClassName) fail(CMPI_RC_ERR_INVALID_PARAMETER, std::string(name) + " must be a CLASSNAME");
        return v->text;
    }
    std::string requiredClass(const char *name) {
        std::string cls = optionalClass(name);
        if (cls.empty()) fail(CMPI_RC_ERR_INVALID_PARAMETER, std::string(name) + " is required");
        className = cls;
        return cls;
    }
    std::string text(const char *name) const {
        const RawValue *v = raw(name);
        if (v == nullptr) return {};
        if (v->kind != RawValue::Kind::Text) fail(CMPI_RC_ERR_INVALID_PARAMETER, std::string(name) + " must be a VALUE");
        return v->text;
    }
    std::optional<std::vector<std::string>> propertyList() const {
        const RawValue *v = raw("PropertyList");
        if (v == nullptr) return std::nullopt;
        if (v->kind != RawValue::Kind::Array) fail(CMPI_RC_ERR_INVALID_PARAMETER, "PropertyList must be a VALUE.ARRAY");
        std::vector<std::string> names;
        for (const auto &item : v->items)
            if (item) names.push_back(*item);
        return names;
    }
    // An instance path in the request's namespace.
    ObjectPathV instance(const char *name) {
        const RawValue *v = raw(name);
        if (v != nullptr && v->kind == RawValue::Kind::ClassName)
            fail(CMPI_RC_ERR_NOT_SUPPORTED, "association requests on a class are not supported");
        if (v == nullptr || v->kind != RawValue::Kind::InstanceName)
            fail(CMPI_RC_ERR_INVALID_PARAMETER, std::string(name) + " must be an INSTANCENAME");
        ObjectPathV path = v->path;
        path.ns = request.nameSpace;
        className = path.className;
        return path;
    }
};

CimService::CimService(Host &host, const ClassCatalog &catalog, std::string hostName, Subscriptions *subscriptions)
    : host_(host), catalog_(catalog), hostName_(std::move(hostName)), subscriptions_(subscriptions) {}

const std::vector<CimService::Intrinsic> &CimService::intrinsics() {
    static const std::vector<Intrinsic> table = {
        {"GetClass", &CimService::getClass,
         {"ClassName", "LocalOnly", "IncludeQualifiers", "IncludeClassOrigin", "PropertyList"}},
        {"EnumerateClasses", &CimService::enumerateClasses,
         {"ClassName", "DeepInheritance", "LocalOnly", "IncludeQualifiers", "IncludeClassOrigin"}},
        {"EnumerateClassNames", &CimService::enumerateClassNames, {"ClassName", "DeepInheritance"}},
        {"GetInstance", &CimService::getInstance,
         {"InstanceName", "LocalOnly", "IncludeQualifiers", "IncludeClassOrigin", "PropertyList"}},
        {"EnumerateInstances", &CimService::enumerateInstances,
         {"ClassName", "LocalOnly", "DeepInheritance", "IncludeQualifiers", "IncludeClassOrigin", "PropertyList"}},
        {"EnumerateInstanceNames", &CimService::enumerateInstanceNames, {"ClassName"}},
        {"Associators", &CimService::associators,
         {"ObjectName", "AssocClass", "ResultClass", "Role", "ResultRole", "IncludeQualifiers", "IncludeClassOrigin",
          "PropertyList"}},
        {"AssociatorNames", &CimService::associatorNames,
         {"ObjectName", "AssocClass", "ResultClass", "Role", "ResultRole"}},
        {"References", &CimService::references,
         {"ObjectName", "ResultClass", "Role", "IncludeQualifiers", "IncludeClassOrigin", "PropertyList"}},
        {"ReferenceNames", &CimService::referenceNames, {"ObjectName", "ResultClass", "Role"}},
        {"CreateInstance", &CimService::createInstance, {"NewInstance"}},
        {"DeleteInstance", &CimService::deleteInstance, {"InstanceName"}},
    };
    return table;
}

Outcome CimService::run(const CimRequest &request, unsigned level) const {
    // The envelope is written first and the result straight after it, so a
    // large answer is never copied; a failure cuts back to the envelope.
    Call c{request, level, {}, {}};
    XmlWriter w(c.out);
    c.out += "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">\n";
    w.openWith("MESSAGE", {{"ID", request.messageId}, {"PROTOCOLVERSION", "1.0"}});
    c.out += "\n<SIMPLERSP>\n";
    const char *response = request.intrinsic ? "IMETHODRESPONSE" : "METHODRESPONSE";
    w.openWith(response, {{"NAME", request.method}});
    c.out += '\n';
    const std::size_t head = c.out.size();
    if (request.intrinsic) c.out += "<IRETURNVALUE>\n";

    CMPIrc rc = CMPI_RC_OK;
    std::string message;
    std::string_view label = request.intrinsic ? "unsupported" : "InvokeMethod";
    bool providerError = false;
    try {
        if (request.intrinsic) {
            auto it = std::find_if(intrinsics().begin(), intrinsics().end(),
                                   [&](const Intrinsic &i) { return iequals(i.name, request.method); });
            if (it == intrinsics().end()) fail(CMPI_RC_ERR_NOT_SUPPORTED, request.method + " is not supported");
            label = it->name;
            for (const NamedParam &p : request.params)
                if (std::none_of(it->params.begin(), it->params.end(), [&](const char *n) { return iequals(n, p.name); }))
                    fail(CMPI_RC_ERR_INVALID_PARAMETER, request.method + " has no parameter " + p.name);
            (this->*(it->handler))(c);
        } else {
            invokeMethod(c);
        }
    } catch (const Failure &f) {
        rc = f.rc;
        message = f.message;
        providerError = f.fromProvider;
    } catch (const std::exception &e) {
        rc = CMPI_RC_ERR_FAILED;
        message = e.what();
    }

    if (rc != CMPI_RC_OK) {
        c.out.resize(head);
        std::string code = std::to_string(static_cast<int>(rc));
        std::string_view description = message.empty() ? standardDescription(rc) : std::string_view(message);
        if (description.empty())
            w.openWith("ERROR", {{"CODE", code}}, true);
        else
            w.openWith("ERROR", {{"CODE", code}, {"DESCRIPTION", description}}, true);
    } else if (request.intrinsic) {
        c.out += "</IRETURNVALUE>\n";
    }
    w.close(response);
    c.out += "</SIMPLERSP>\n</MESSAGE>\n</CIM>\n";
    return Outcome{std::move(c.out), std::move(c.className), rc, label, providerError};
}

// ---- classes ----------------------------------------------------------------

void CimService::getClass(Call &c) const {
    std::string cls = c.requiredClass("ClassName");
    ClassQuery q{c.flag("LocalOnly", true), c.flag("IncludeQualifiers", true), c.flag("IncludeClassOrigin", false),
                 c.propertyList()};
    if (!catalog_.hasNamespace(c.request.nameSpace))
        fail(CMPI_RC_ERR_INVALID_NAMESPACE, "namespace '" + c.request.nameSpace + "' does not exist");
    const ClassDecl *decl = catalog_.find(c.request.nameSpace, cls);
    if (decl == nullptr) fail(CMPI_RC_ERR_NOT_FOUND, "class " + cls + " does not exist");
    catalog_.appendClass(c.out, *decl, q);
}

void CimService::enumerateClasses(Call &c) const {
    std::string parent = c.optionalClass("ClassName");
    c.className = parent;
    bool deep = c.flag("DeepInheritance", false);
    ClassQuery q{c.flag("LocalOnly", true), c.flag("IncludeQualifiers", true), c.flag("IncludeClassOrigin", false),
                 std::nullopt};
    if (!catalog_.hasNamespace(c.request.nameSpace))
        fail(CMPI_RC_ERR_INVALID_NAMESPACE, "namespace '" + c.request.nameSpace + "' does not exist");
    if (!parent.empty() && catalog_.find(c.request.nameSpace, parent) == nullptr)
        fail(CMPI_RC_ERR_INVALID_CLASS, "class " + parent + " does not exist");
    for (const ClassDecl *decl : catalog_.subclasses(c.request.nameSpace, parent, deep))
        catalog_.appendClass(c.out, *decl, q);
}

void CimService::enumerateClassNames(Call &c) const {
    std::string parent = c.optionalClass("ClassName");
    c.className = parent;
    bool deep = c.flag("DeepInheritance", false);
    if (!catalog_.hasNamespace(c.request.nameSpace))
        fail(CMPI_RC_ERR_INVALID_NAMESPACE, "namespace '" + c.request.nameSpace + "' does not exist");
    if (!parent.empty() && catalog_.find(c.request.nameSpace, parent) == nullptr)
        fail(CMPI_RC_ERR_INVALID_CLASS, "class " + parent + " does not exist");
    XmlWriter w(c.out);
    for (const ClassDecl *decl : catalog_.subclasses(c.request.nameSpace, parent, deep))
        w.openWith("CLASSNAME", {{"NAME", decl->name}}, true);
}

// ---- instances --------------------------------------------------------------

namespace {

// A failed answer of the host; a general failure or a status of the
// provider's own counts against the provider.
void check(const Reply &r) {
    if (r.ok()) return;
    const int code = static_cast<int>(r.rc);
    const bool provider = code == CMPI_RC_ERR_FAILED || code < 0 || code >= static_cast<int>(kDescriptions.size());
    throw Failure{r.rc, r.message, provider};
}

bool listed(const std::vector<std::string> &list, std::string_view name) {
    return std::any_of(list.begin(), list.end(), [&](const std::string &n) { return iequals(n, name); });
}

}  // namespace

void CimService::writeInstance(std::string &out, const InstanceV &inst, const std::string &shapeClass,
                               const std::optional<std::vector<std::string>> &propertyList) const {
    XmlWriter w(out);
    const PropertyShape *shape = catalog_.shape(shapeClass);
    if (shape == nullptr) return w.instance(inst);
    const bool narrower = !iequals(shapeClass, inst.path.className);  // DeepInheritance FALSE
    if (!propertyList && !narrower) return w.instance(inst, shape);
    // A property list leaves out the unset properties it does not name; a
    // superclass's shape leaves out the subclass's properties.
    PropertyShape narrowed;
    for (const auto &[name, type] : shape->props)
        if (!propertyList || listed(*propertyList, name) || inst.property(name) != nullptr) narrowed.add(name, type);
    if (!narrower) return w.instance(inst, &narrowed);
    InstanceV narrow{inst.path, {}};
    for (const auto &[name, v] : inst.properties)
        if (narrowed.index.count(name) != 0) narrow.properties.emplace_back(name, v);
    w.instance(narrow, &narrowed);
}

Subscriptions *CimService::kept(const Call &c, const std::string &cls) const {
    if (subscriptions_ == nullptr || !subscriptions_->serves(c.request.nameSpace, cls)) return nullptr;
    if (c.level < kReadWrite)
        fail(CMPI_RC_ERR_ACCESS_DENIED, "subscriptions need read-write rights (level " + std::to_string(kReadWrite) + ")");
    return subscriptions_;
}

void CimService::getInstance(Call &c) const {
    ObjectPathV path = c.instance("InstanceName");
    c.ignoredFlags({"LocalOnly", "IncludeQualifiers", "IncludeClassOrigin"});
    auto props = c.propertyList();
    Subscriptions *store = kept(c, path.className);
    Reply r = store != nullptr ? store->get(path) : host_.getInstance(path, props ? &*props : nullptr);
    check(r);
    if (r.instances.empty()) fail(CMPI_RC_ERR_NOT_FOUND, "");
    writeInstance(c.out, r.instances.front(), r.instances.front().path.className, props);
}

void CimService::enumerateInstances(Call &c) const {
    std::string cls = c.requiredClass("ClassName");
    bool deep = c.flag("DeepInheritance", true);
    c.ignoredFlags({"LocalOnly", "IncludeQualifiers", "IncludeClassOrigin"});
    auto props = c.propertyList();
    Subscriptions *store = kept(c, cls);
    Reply r = store != nullptr ? store->enumerate(cls)
                               : host_.enumerateInstances(c.request.nameSpace, cls, props ? &*props : nullptr);
    check(r);
    XmlWriter w(c.out);
    c.out.reserve(c.out.size() + r.instances.size() * 8192);
    for (const InstanceV &inst : r.instances) {
        w.open("VALUE.NAMEDINSTANCE");
        w.instanceName(inst.path);
        writeInstance(c.out, inst, deep ? inst.path.className : cls, props);
        w.close("VALUE.NAMEDINSTANCE");
    }
}

void CimService::enumerateInstanceNames(Call &c) const {
    std::string cls = c.requiredClass("ClassName");
    Subscriptions *store = kept(c, cls);
    Reply r = store != nullptr ? store->enumerate(cls) : host_.enumerateInstanceNames(c.request.nameSpace, cls);
    check(r);
    XmlWriter w(c.out);
    for (const ObjectPathV &p : r.paths) w.instanceName(p);
}

void CimService::createInstance(Call &c) const {
    const RawValue *v = c.raw("NewInstance");
    if (v == nullptr || v->kind != RawValue::Kind::Instance)
        fail(CMPI_RC_ERR_INVALID_PARAMETER, "NewInstance must be an INSTANCE");
    c.className = v->instance.path.className;
    Subscriptions *store = kept(c, c.className);
    if (store == nullptr) fail(CMPI_RC_ERR_NOT_SUPPORTED, "CreateInstance is not supported for " + c.className);
    Reply r = store->create(v->instance);
    check(r);
    XmlWriter(c.out).instanceName(r.paths.front());
}

void CimService::deleteInstance(Call &c) const {
    ObjectPathV path = c.instance("InstanceName");
    Subscriptions *store = kept(c, path.className);
    if (store == nullptr) fail(CMPI_RC_ERR_NOT_SUPPORTED, "DeleteInstance is not supported for " + path.className);
    check(store->remove(path));
}

// ---- associations -----------------------------------------------------------

void CimService::writeObjects(Call &c, const Reply &reply, bool names) const {
    XmlWriter w(c.out);
    auto withNamespace = [&](ObjectPathV p) {
        if (p.ns.empty()) p.ns = c.request.nameSpace;
        return p;
    };
    if (names) {
        for (const ObjectPathV &p : reply.paths) {
            w.open("OBJECTPATH");
            w.instancePath(withNamespace(p), hostName_);
            w.close("OBJECTPATH");
        }
        return;
    }
    auto props = c.propertyList();
    for (const InstanceV &inst : reply.instances) {
        w.open("VALUE.OBJECTWITHPATH");
        w.instancePath(withNamespace(inst.path), hostName_);
        writeInstance(c.out, inst, inst.path.className, props);
        w.close("VALUE.OBJECTWITHPATH");
    }
}

void CimService::associators(Call &c) const {
    ObjectPathV path = c.instance("ObjectName");
    AssocFilter f{c.optionalClass("AssocClass"), c.optionalClass("ResultClass"), c.text("Role"), c.text("ResultRole")};
    c.ignoredFlags({"IncludeQualifiers", "IncludeClassOrigin"});
    auto props = c.propertyList();
    Reply r = host_.associators(path, f, props ? &*props : nullptr);
    check(r);
    writeObjects(c, r, false);
}

void CimService::associatorNames(Call &c) const {
    ObjectPathV path = c.instance("ObjectName");
    AssocFilter f{c.optionalClass("AssocClass"), c.optionalClass("ResultClass"), c.text("Role"), c.text("ResultRole")};
    Reply r = host_.associatorNames(path, f);
    check(r);
    writeObjects(c, r, true);
}

void CimService::references(Call &c) const {
    ObjectPathV path = c.instance("ObjectName");
    std::string resultClass = c.optionalClass("ResultClass"), role = c.text("Role");
    c.ignoredFlags({"IncludeQualifiers", "IncludeClassOrigin"});
    auto props = c.propertyList();
    Subscriptions *store = kept(c, path.className);
    Reply r = store != nullptr ? store->references(path, resultClass, role)
                               : host_.references(path, resultClass, role, props ? &*props : nullptr);
    check(r);
    writeObjects(c, r, false);
}

void CimService::referenceNames(Call &c) const {
    ObjectPathV path = c.instance("ObjectName");
    std::string resultClass = c.optionalClass("ResultClass"), role = c.text("Role");
    Subscriptions *store = kept(c, path.className);
    Reply r = store != nullptr ? store->references(path, resultClass, role) : host_.referenceNames(path, resultClass, role);
    check(r);
    writeObjects(c, r, true);
}

// ---- methods ----------------------------------------------------------------

namespace {

// A parameter as sent: typed after PARAMTYPE when the client gave one; else
// text (or text array, or reference) for the host to type after the method's
// declaration.
Value argument(const NamedParam &p, const std::string &ns) {
    const RawValue &v = p.value;
    std::optional<CMPIType> type;
    if (!p.paramType.empty()) {
        if (iequals(p.paramType, "reference")) {
            type = CMPI_ref;
        } else if (auto t = cimTypeFromName(p.paramType)) {
            type = cmpiTypeOf(*t, false);
        } else {
            fail(CMPI_RC_ERR_INVALID_PARAMETER, "parameter " + p.name + " has unknown PARAMTYPE " + p.paramType);
        }
    }
    auto parsed = [&](CMPIType t, const std::string &text) {
        auto value = Value::parse(t, text);
        if (!value) fail(CMPI_RC_ERR_INVALID_PARAMETER, "parameter " + p.name + " is not a " + p.paramType);
        return *value;
    };
    switch (v.kind) {
        case RawValue::Kind::Null: return type ? Value::null(*type) : Value();
        case RawValue::Kind::Text: return type ? parsed(*type, v.text) : Value::string(v.text);
        case RawValue::Kind::Array: {
            CMPIType element = type ? *type : CMPIType(CMPI_string);
            Value::Array items;
            for (const auto &item : v.items) items.push_back(item ? parsed(element, *item) : Value::null(element));
            return Value::array(element, std::move(items));
        }
        case RawValue::Kind::InstanceName:
        case RawValue::Kind::Reference: {
            ObjectPathV path = v.path;
            if (path.ns.empty()) path.ns = ns;
            return Value::ref(std::move(path));
        }
        case RawValue::Kind::ClassName: {
            ObjectPathV path;
            path.ns = ns;
            path.className = v.text;
            return Value::ref(std::move(path));
        }
        case RawValue::Kind::Instance: return Value::instance(v.instance);
        case RawValue::Kind::Other: break;
    }
    fail(CMPI_RC_ERR_INVALID_PARAMETER, "parameter " + p.name + " holds a value this server does not take");
}

}  // namespace

void CimService::invokeMethod(Call &c) const {
    const CimRequest &req = c.request;
    c.className = req.target.className;
    NamedValues args;
    for (const NamedParam &p : req.params) args.emplace_back(p.name, argument(p, req.nameSpace));
    Reply r = host_.invokeMethod(req.target, req.method, args);
    check(r);
    XmlWriter w(c.out);
    if (r.returnValue && !r.returnValue->isNull()) {
        w.openWith("RETURNVALUE", {{"PARAMTYPE", cimTypeName(r.returnValue->type())}});
        w.value(*r.returnValue);
        w.close("RETURNVALUE");
    }
    for (const auto &[name, v] : r.outArgs) {
        w.openWith("PARAMVALUE", {{"NAME", name}, {"PARAMTYPE", cimTypeName(v.type())}});
        w.value(v);
        w.close("PARAMVALUE");
    }
}

}  // namespace cimserver
