#include "Schema.h"

#include "Objects.h"

#include <filesystem>

namespace cimhost {

namespace {

// The host's own classes. The authorization service stands in for the host
// operating system's one; it knows users only by the levels the host is given.
constexpr const char *kBuiltinMof = R"(
#pragma namespace("root/cimv2")
[Description("Stand-in for the host's user authorization service.")]
class VMware_UserAuthorizationService {
    [Key] string Name;
    [Description("The permission level of a user; 5 allows changes.")]
    uint8 CheckPermissions([IN] string User);
};
)";

Value scalarOf(CimType type, const MofScalar &s) {
    const CMPIType t = cmpiTypeOf(type, false);
    if (const auto *b = std::get_if<bool>(&s)) return Value::boolean(*b);
    if (const auto *u = std::get_if<uint64_t>(&s))
        return type == CimType::Char16 ? Value::char16(static_cast<uint16_t>(*u)) : Value::unsignedOf(t, *u);
    if (const auto *i = std::get_if<int64_t>(&s)) return Value::signedOf(t, *i);
    if (const auto *d = std::get_if<double>(&s))
        return type == CimType::Real32 ? Value::real32(static_cast<float>(*d)) : Value::real64(*d);
    if (const auto *text = std::get_if<std::string>(&s)) {
        if (type != CimType::DateTime) return Value::string(*text);
        if (auto when = DateTimeV::fromCim(*text)) return Value::dateTime(*when);
    }
    return Value::null(t);  // NULL, or a datetime pattern with wildcards
}

// A declaration's default as the type of the property that inherits it.
Value defaultOf(std::string_view cls, const ClassRepository::Default &d) {
    const PropertyDecl &src = *d.source;
    Value v;
    if (src.isArray) {
        Value::Array elements;
        for (const MofScalar &e : src.defaultValue->elements) elements.push_back(scalarOf(src.type, e));
        v = Value::array(cmpiTypeOf(src.type, false), std::move(elements));
    } else {
        v = scalarOf(src.type, src.defaultValue->elements.at(0));
    }
    const CMPIType target = cmpiTypeOf(d.property->type, d.property->isArray);
    if (v.type() == target) return v;
    if (auto converted = v.convertTo(target)) return *converted;
    throw MofError(std::string(cls), 0, "the default of " + src.name + " does not fit the type " + typeName(target));
}

}  // namespace

CMPIType cmpiTypeOf(CimType type, bool isArray) {
    CMPIType t = CMPI_null;
    switch (type) {
        case CimType::Boolean: t = CMPI_boolean; break;
        case CimType::String: t = CMPI_string; break;
        case CimType::Char16: t = CMPI_char16; break;
        case CimType::Uint8: t = CMPI_uint8; break;
        case CimType::Sint8: t = CMPI_sint8; break;
        case CimType::Uint16: t = CMPI_uint16; break;
        case CimType::Sint16: t = CMPI_sint16; break;
        case CimType::Uint32: t = CMPI_uint32; break;
        case CimType::Sint32: t = CMPI_sint32; break;
        case CimType::Uint64: t = CMPI_uint64; break;
        case CimType::Sint64: t = CMPI_sint64; break;
        case CimType::Real32: t = CMPI_real32; break;
        case CimType::Real64: t = CMPI_real64; break;
        case CimType::DateTime: t = CMPI_dateTime; break;
        case CimType::Reference: t = CMPI_ref; break;
    }
    return isArray ? static_cast<CMPIType>(t | CMPI_ARRAY) : t;
}

NamedValues classDefaults(const ClassRepository &repo, std::string_view cls) {
    NamedValues defaults;
    for (const auto &d : repo.defaultValues(cls)) defaults.emplace_back(d.property->name, defaultOf(cls, d));
    return defaults;
}

Schema::Schema(const std::vector<std::string> &mofPaths) {
    repo_.loadText(kBuiltinMof, "<host classes>");
    for (const std::string &path : mofPaths) {
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec)) {
            repo_.loadDirectory(path);
        } else {
            repo_.loadFile(path);
        }
    }
    repo_.validate();
    for (const std::string &name : repo_.classNames()) {
        namespaces_.insert(lowerCase(repo_.find(name)->nameSpace));
        rt::registerClassKeys(name, repo_.keyNames(name));
        PropertyTypes &types = types_[name];
        for (const PropertyDecl *p : repo_.allProperties(name)) types[p->name] = cmpiTypeOf(p->type, p->isArray);
        if (NamedValues defaults = classDefaults(repo_, name); !defaults.empty())
            defaults_.emplace(name, std::move(defaults));
    }
}

std::vector<std::string> Schema::subclasses(std::string_view cls) const {
    std::vector<std::string> out;
    for (const std::string &name : repo_.classNames())
        if (isA(name, cls)) out.push_back(lowerCase(name));
    return out;
}

bool Schema::isA(std::string_view cls, std::string_view ancestor) const {
    return iequals(cls, ancestor) || repo_.isA(cls, ancestor);
}

CMPIType Schema::propertyType(std::string_view cls, std::string_view prop) const {
    const PropertyTypes *types = propertyTypes(cls);
    if (types == nullptr) return CMPI_null;
    const auto p = types->find(prop);
    return p == types->end() ? CMPIType(CMPI_null) : p->second;
}

const Schema::PropertyTypes *Schema::propertyTypes(std::string_view cls) const {
    const auto c = types_.find(cls);
    return c == types_.end() ? nullptr : &c->second;
}

const NamedValues *Schema::defaults(std::string_view cls) const {
    const auto c = defaults_.find(cls);
    return c == defaults_.end() ? nullptr : &c->second;
}

std::vector<const PropertyDecl *> Schema::references(std::string_view cls) const {
    std::vector<const PropertyDecl *> refs;
    for (const PropertyDecl *p : repo_.allProperties(cls))
        if (p->type == CimType::Reference) refs.push_back(p);
    return refs;
}

}  // namespace cimhost
