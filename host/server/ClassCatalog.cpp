#include "ClassCatalog.h"

#include "Schema.h"
#include "XmlWriter.h"

#include <algorithm>
#include <filesystem>

namespace cimserver {

using namespace cimhost;

namespace {

// A qualifier value as MOF text: a flag, a number, a string or "{...}".
std::vector<std::string> arrayItems(std::string_view text) {
    std::vector<std::string> items;
    std::string cur;
    bool inQuote = false, any = false;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        char c = text[i];
        if (inQuote) {
            if (c == '\\' && i + 2 < text.size()) {
                cur += text[++i];
            } else if (c == '"') {
                inQuote = false;
            } else {
                cur += c;
            }
        } else if (c == '"') {
            inQuote = any = true;
        } else if (c == ',') {
            items.push_back(std::move(cur));
            cur.clear();
            any = false;
        } else if (c != ' ') {
            cur += c;
            any = true;
        }
    }
    if (any || !items.empty()) items.push_back(std::move(cur));
    return items;
}

bool isNumber(std::string_view s) {
    if (s.empty()) return false;
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

void appendQualifier(XmlWriter &w, const Qualifier &q) {
    const std::string &v = q.value;
    if (iequals(v, "true") || iequals(v, "false")) {
        w.openWith("QUALIFIER", {{"NAME", q.name}, {"TYPE", "boolean"}});
        w.raw(iequals(v, "true") ? "<VALUE>TRUE</VALUE>\n" : "<VALUE>FALSE</VALUE>\n");
    } else if (v.size() >= 2 && v.front() == '{' && v.back() == '}') {
        auto items = arrayItems(v);
        w.openWith("QUALIFIER", {{"NAME", q.name}, {"TYPE", "string"}});
        w.open("VALUE.ARRAY");
        for (const std::string &item : items) {
            w.open("VALUE");
            w.raw(escaped(item));
            w.close("VALUE");
        }
        w.close("VALUE.ARRAY");
    } else {
        w.openWith("QUALIFIER", {{"NAME", q.name}, {"TYPE", isNumber(v) ? "uint32" : "string"}});
        w.open("VALUE");
        w.raw(escaped(v));
        w.close("VALUE");
    }
    w.close("QUALIFIER");
}

void appendFlag(XmlWriter &w, const char *name, bool value) {
    w.openWith("QUALIFIER", {{"NAME", name}, {"TYPE", "boolean"}});
    w.raw(value ? "<VALUE>TRUE</VALUE>\n" : "<VALUE>FALSE</VALUE>\n");
    w.close("QUALIFIER");
}

bool listed(const std::optional<std::vector<std::string>> &list, std::string_view name) {
    if (!list) return true;
    for (const std::string &n : *list)
        if (iequals(n, name)) return true;
    return false;
}

}  // namespace

ClassCatalog::ClassCatalog(const std::vector<std::string> &mofPaths) {
    for (const std::string &p : mofPaths) {
        if (std::filesystem::is_directory(p))
            repo_.loadDirectory(p);
        else
            repo_.loadFile(p);
    }
    repo_.validate();
    for (const std::string &name : repo_.classNames()) {
        const ClassDecl *decl = repo_.find(name);
        auto &names = visible_[lowerCase(decl->nameSpace)];
        for (const ClassDecl *c : ancestry(name)) names.insert(lowerCase(c->name));
        PropertyShape &shape = shapes_[decl->name];
        for (const PropertyDecl *p : repo_.allProperties(name))
            shape.add(p->name, cmpiTypeOf(p->type, p->isArray));
        if (NamedValues values = classDefaults(repo_, name); !values.empty())
            defaults_.emplace(decl->name, std::move(values));
    }
}

bool ClassCatalog::hasNamespace(std::string_view ns) const { return visible_.count(lowerCase(ns)) != 0; }

const ClassDecl *ClassCatalog::find(std::string_view ns, std::string_view cls) const {
    auto it = visible_.find(lowerCase(ns));
    if (it == visible_.end() || it->second.count(lowerCase(cls)) == 0) return nullptr;
    return repo_.find(cls);
}

std::vector<const ClassDecl *> ClassCatalog::subclasses(std::string_view ns, std::string_view parent, bool deep) const {
    std::vector<const ClassDecl *> out;
    auto it = visible_.find(lowerCase(ns));
    if (it == visible_.end()) return out;
    for (const std::string &name : repo_.classNames()) {
        if (it->second.count(lowerCase(name)) == 0) continue;
        const ClassDecl *c = repo_.find(name);
        bool below = parent.empty() ? (deep || c->superclass.empty())
                                    : (deep ? !iequals(c->name, parent) && repo_.isA(c->name, parent)
                                            : iequals(c->superclass, parent));
        if (below) out.push_back(c);
    }
    return out;
}

std::vector<std::string> ClassCatalog::namespacesOf(std::string_view cls) const {
    std::vector<std::string> out;
    const ClassDecl *decl = repo_.find(cls);
    if (decl == nullptr) return out;
    for (const auto &[ns, names] : visible_)
        if (names.count(lowerCase(cls)) != 0) {
            // The namespace's own spelling, from a class compiled into it.
            std::string spelled = ns;
            for (const std::string &name : repo_.classNames())
                if (const ClassDecl *c = repo_.find(name); iequals(c->nameSpace, ns)) {
                    spelled = c->nameSpace;
                    break;
                }
            out.push_back(spelled);
        }
    return out;
}

bool ClassCatalog::isIndication(std::string_view cls) const {
    if (repo_.find(cls) == nullptr) return false;
    if (repo_.isA(cls, "CIM_Indication")) return true;
    for (const ClassDecl *c : ancestry(cls))
        for (const Qualifier &q : c->qualifiers)
            if (iequals(q.name, "Indication") && !iequals(q.value, "false")) return true;
    return false;
}

std::optional<CMPIType> ClassCatalog::propertyType(std::string_view cls, std::string_view property) const {
    const PropertyShape *s = shape(cls);
    if (s == nullptr) return std::nullopt;
    auto it = s->index.find(std::string(property));
    if (it == s->index.end()) return std::nullopt;
    return s->props[it->second].second;
}

const PropertyShape *ClassCatalog::shape(std::string_view cls) const {
    auto it = shapes_.find(cls);
    return it == shapes_.end() ? nullptr : &it->second;
}

std::vector<const ClassDecl *> ClassCatalog::ancestry(std::string_view cls) const {
    std::vector<const ClassDecl *> chain;
    for (const ClassDecl *c = repo_.find(cls); c != nullptr && chain.size() < 64;
         c = c->superclass.empty() ? nullptr : repo_.find(c->superclass))
        chain.insert(chain.begin(), c);
    return chain;
}

std::string ClassCatalog::originOf(std::string_view cls, std::string_view member, bool method) const {
    for (const ClassDecl *c : ancestry(cls)) {
        if (method) {
            for (const MethodDecl &m : c->methods)
                if (iequals(m.name, member)) return c->name;
        } else {
            for (const PropertyDecl &p : c->properties)
                if (iequals(p.name, member)) return c->name;
        }
    }
    return std::string(cls);
}

void ClassCatalog::appendClass(std::string &out, const ClassDecl &cls, const ClassQuery &q) const {
    XmlWriter w(out);
    if (cls.superclass.empty())
        w.openWith("CLASS", {{"NAME", cls.name}});
    else
        w.openWith("CLASS", {{"NAME", cls.name}, {"SUPERCLASS", cls.superclass}});
    if (q.includeQualifiers)
        for (const Qualifier &qual : cls.qualifiers) appendQualifier(w, qual);

    std::vector<const PropertyDecl *> props;
    if (q.localOnly)
        for (const PropertyDecl &p : cls.properties) props.push_back(&p);
    else
        props = repo_.allProperties(cls.name);
    const auto defaults = defaults_.find(cls.name);
    for (const PropertyDecl *p : props) {
        if (!listed(q.propertyList, p->name)) continue;
        std::string origin = q.includeClassOrigin ? originOf(cls.name, p->name, false) : std::string();
        const char *element = p->type == CimType::Reference ? "PROPERTY.REFERENCE"
                              : p->isArray                  ? "PROPERTY.ARRAY"
                                                            : "PROPERTY";
        std::string type = p->type == CimType::Reference ? std::string() : cimTypeName(cmpiTypeOf(p->type, false));
        const char *typeAttr = p->type == CimType::Reference ? "REFERENCECLASS" : "TYPE";
        std::string_view typeValue = p->type == CimType::Reference ? std::string_view(p->refClass) : type;
        if (q.includeClassOrigin)
            w.openWith(element, {{"NAME", p->name}, {typeAttr, typeValue}, {"CLASSORIGIN", origin}});
        else
            w.openWith(element, {{"NAME", p->name}, {typeAttr, typeValue}});
        if (q.includeQualifiers)
            for (const Qualifier &qual : p->qualifiers) appendQualifier(w, qual);
        if (defaults != defaults_.end())
            if (const Value *v = findNamed(defaults->second, p->name)) w.value(*v);
        w.close(element);
    }

    std::vector<const MethodDecl *> methods;
    if (q.localOnly) {
        for (const MethodDecl &m : cls.methods) methods.push_back(&m);
    } else {
        for (const ClassDecl *c : ancestry(cls.name))
            for (const MethodDecl &m : c->methods) {
                auto same = std::find_if(methods.begin(), methods.end(),
                                         [&](const MethodDecl *x) { return iequals(x->name, m.name); });
                if (same != methods.end())
                    *same = &m;
                else
                    methods.push_back(&m);
            }
    }
    for (const MethodDecl *m : methods) {
        std::string type = cimTypeName(cmpiTypeOf(m->returnType, false));
        if (q.includeClassOrigin)
            w.openWith("METHOD", {{"NAME", m->name}, {"TYPE", type}, {"CLASSORIGIN", originOf(cls.name, m->name, true)}});
        else
            w.openWith("METHOD", {{"NAME", m->name}, {"TYPE", type}});
        for (const ParameterDecl &p : m->params) {
            bool ref = p.type == CimType::Reference;
            const char *element = ref ? (p.isArray ? "PARAMETER.REFARRAY" : "PARAMETER.REFERENCE")
                                      : (p.isArray ? "PARAMETER.ARRAY" : "PARAMETER");
            std::string ptype = ref ? p.refClass : cimTypeName(cmpiTypeOf(p.type, false));
            w.openWith(element, {{"NAME", p.name}, {ref ? "REFERENCECLASS" : "TYPE", ptype}});
            if (q.includeQualifiers) {
                appendFlag(w, "IN", p.in);
                if (p.out) appendFlag(w, "OUT", true);
            }
            w.close(element);
        }
        w.close("METHOD");
    }
    w.close("CLASS");
}

}  // namespace cimserver
